// Runs positioning-sim as a user would and collects what it wrote.
#ifndef TESTS_SIM_RUNNER_H
#define TESTS_SIM_RUNNER_H

#include <string>
#include <vector>

namespace testing_host {

struct SimRun {
  int status = -1;  // exit status
  std::string out;  // standard output
  std::string err;  // standard error
};

// A scratch directory removed with the object.
class CScratchDir {
 public:
  CScratchDir();
  ~CScratchDir();
  const std::string& Path() const { return iPath; }
  std::string File(const std::string& aName) const { return iPath + "/" + aName; }

 private:
  std::string iPath;
};

// Path of the built positioning-sim.
std::string SimPath();
// Runs the simulator with aArguments and optional extra environment ("NAME=value").
SimRun RunSim(const std::vector<std::string>& aArguments, const std::string& aEnvironment = "");
std::string ReadFile(const std::string& aPath);
void WriteFile(const std::string& aPath, const std::string& aText);
bool FileExists(const std::string& aPath);
std::vector<std::string> Lines(const std::string& aText);
// The number after "\"aKey\":" in a flat JSON text, or -1e300 when absent.
double JsonNumber(const std::string& aJson, const std::string& aKey);

}  // namespace testing_host

#endif  // TESTS_SIM_RUNNER_H
