#include "SimRunner.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

namespace testing_host {

std::string SimPath() { return POSITIONING_SIM_PATH; }

SimRun RunSim(const std::vector<std::string>& aArguments, const ProcessOptions& aOptions) {
  std::vector<std::string> command = {SimPath()};
  command.insert(command.end(), aArguments.begin(), aArguments.end());
  return testing_support::RunProcess(command, aOptions);
}

nlohmann::json SimResult::Client(const std::string& aName) const {
  if (summary.is_object() && summary.contains("clients")) {
    for (const nlohmann::json& client : summary["clients"]) {
      if (client.value("name", "") == aName) return client;
    }
  }
  return nlohmann::json();
}

SimResult RunSimWithSummary(std::vector<std::string> aArguments) {
  CTempDir scratch;
  aArguments.push_back("--summary-json");
  aArguments.push_back(scratch.File("summary.json"));
  SimResult result;
  result.run = RunSim(aArguments);
  const std::string text = ReadFile(scratch.File("summary.json"));
  if (!text.empty()) result.summary = nlohmann::json::parse(text, nullptr, false);
  return result;
}

ProcessOptions WithFailingGnuplot(const CTempDir& aScratch, const std::string& aMessage) {
  std::string quoted;
  for (char c : aMessage) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  const std::string script = aScratch.File("gnuplot");
  WriteFile(script, "#!/bin/sh\necho '" + quoted + "' >&2\nexit 1\n");
  EXPECT_EQ(0, chmod(script.c_str(), 0755)) << script;
  const char* path = getenv("PATH");
  ProcessOptions options;
  options.environment = {"PATH=" + aScratch.Path() + ":" + (path != nullptr ? path : "/usr/bin:/bin")};
  return options;
}

}  // namespace testing_host
