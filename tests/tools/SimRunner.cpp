#include "SimRunner.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

namespace testing_host {

namespace {

std::string Quote(const std::string& aText) {
  std::string quoted = "'";
  for (char c : aText) {
    if (c == '\'') {
      quoted += "'\\''";
    } else {
      quoted += c;
    }
  }
  return quoted + "'";
}

}  // namespace

CScratchDir::CScratchDir() {
  char path[] = "/tmp/positioning-test-XXXXXX";
  if (mkdtemp(path) != nullptr) iPath = path;
}

CScratchDir::~CScratchDir() {
  if (!iPath.empty()) {
    const std::string command = "rm -rf " + Quote(iPath);
    if (system(command.c_str()) != 0) {
      // Nothing more to do: a leftover scratch directory harms no test.
    }
  }
}

std::string SimPath() { return POSITIONING_SIM_PATH; }

SimRun RunSim(const std::vector<std::string>& aArguments, const std::string& aEnvironment) {
  CScratchDir scratch;
  std::string command = aEnvironment + " " + Quote(POSITIONING_SIM_PATH);
  for (const std::string& argument : aArguments) command += " " + Quote(argument);
  command += " >" + Quote(scratch.File("out")) + " 2>" + Quote(scratch.File("err")) + " </dev/null";
  SimRun run;
  const int raw = system(command.c_str());
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  run.out = ReadFile(scratch.File("out"));
  run.err = ReadFile(scratch.File("err"));
  return run;
}

std::string ReadFile(const std::string& aPath) {
  std::ifstream file(aPath, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void WriteFile(const std::string& aPath, const std::string& aText) {
  std::ofstream file(aPath, std::ios::binary);
  file << aText;
}

bool FileExists(const std::string& aPath) {
  struct stat info;
  return stat(aPath.c_str(), &info) == 0;
}

std::vector<std::string> Lines(const std::string& aText) {
  std::vector<std::string> lines;
  std::istringstream stream(aText);
  std::string line;
  while (std::getline(stream, line)) lines.push_back(line);
  return lines;
}

double JsonNumber(const std::string& aJson, const std::string& aKey) {
  const std::string key = "\"" + aKey + "\":";
  const size_t at = aJson.find(key);
  if (at == std::string::npos) return -1e300;
  return strtod(aJson.c_str() + at + key.size(), nullptr);
}

}  // namespace testing_host
