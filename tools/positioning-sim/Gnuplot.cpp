#include "Gnuplot.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>

namespace sim {

namespace {

std::string ReadAll(const std::string& aPath) {
  std::string text;
  FILE* file = fopen(aPath.c_str(), "rb");
  if (file == nullptr) return text;
  char buffer[4096];
  size_t got;
  while ((got = fread(buffer, 1, sizeof buffer, file)) > 0) text.append(buffer, got);
  fclose(file);
  return text;
}

}  // namespace

CGnuplotFolder::~CGnuplotFolder() {
  if (iFolder.empty()) return;
  std::istringstream names(iNames + "plot.gp\ngnuplot.txt\nplot.out\n");
  std::string name;
  while (std::getline(names, name)) unlink(File(name).c_str());
  rmdir(iFolder.c_str());
}

bool CGnuplotFolder::Make(std::string& aError) {
  const char* tmp = getenv("TMPDIR");
  std::string pattern = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/positioning-sim-plot-XXXXXX";
  if (mkdtemp(&pattern[0]) == nullptr)
    return aError = "cannot make a temporary folder: " + std::string(strerror(errno)), false;
  iFolder = pattern;
  return true;
}

FILE* CGnuplotFolder::Create(const char* aName, std::string& aError) {
  FILE* file = fopen(File(aName).c_str(), "w");
  if (file == nullptr) {
    aError = iFolder + ": " + strerror(errno);
    return nullptr;
  }
  iNames += std::string(aName) + "\n";
  return file;
}

bool CGnuplotFolder::Draw(const std::string& aScript, FILE* aOutput, std::string& aError) {
  FILE* script = fopen(File("plot.gp").c_str(), "w");
  if (script == nullptr) return aError = iFolder + ": " + strerror(errno), false;
  fputs(aScript.c_str(), script);
  if (fclose(script) != 0) return aError = "writing the script failed: " + std::string(strerror(errno)), false;

  const pid_t pid = fork();
  if (pid < 0) return aError = "cannot start gnuplot: " + std::string(strerror(errno)), false;
  if (pid == 0) {
    const int log = open(File("gnuplot.txt").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (log >= 0) {
      dup2(log, STDOUT_FILENO);
      dup2(log, STDERR_FILENO);
    }
    if (chdir(iFolder.c_str()) == 0) execlp("gnuplot", "gnuplot", "plot.gp", static_cast<char*>(nullptr));
    dprintf(STDERR_FILENO, "cannot run gnuplot: %s (is gnuplot installed?)\n", strerror(errno));
    _exit(127);
  }
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  std::string said = ReadAll(File("gnuplot.txt"));
  while (!said.empty() && (said.back() == '\n' || said.back() == ' ')) said.pop_back();
  const std::string picture = ReadAll(File("plot.out"));
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || picture.empty()) {
    return aError = "gnuplot failed" + (said.empty() ? std::string() : ": " + said), false;
  }
  if (fwrite(picture.data(), 1, picture.size(), aOutput) != picture.size())
    return aError = "writing the picture failed: " + std::string(strerror(errno)), false;
  return true;
}

}  // namespace sim
