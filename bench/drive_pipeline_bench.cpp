// positioning-drive-bench: what a long recorded drive costs the tools, on one core:
// importing it, replaying it through the module with the reference client's dead
// reckoning, and the dead reckoning with its segment errors alone.
//
//   positioning-drive-bench [--hours H] [--rows-per-second N] [--runs R] [--sim PATH]
//
// A model drive (the built-in generator's true speed and turn rate, held over rows of
// N a second, with a pose every second) is written to a temporary folder first; that
// is not measured. Each step then runs R times (default 3) with this process and its
// children bound to one core; the table gives the least and the median CPU time
// (user + system) and wall time. Import and replay run the built positioning-sim as
// a user would; the dead reckoning runs here, over the imported trace's records.
#include <errno.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "DeadReckoner.h"
#include "DriveGenerator.h"
#include "NumberParse.h"
#include "TrajectoryErrors.h"
#include "Truth.h"

namespace {

using namespace sim;

struct Cost {
  double cpu = 0;  // seconds
  double wall = 0;
};

double Now() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

double ChildrenCpu() {
  rusage usage;
  getrusage(RUSAGE_CHILDREN, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

double OwnCpu() {
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// Runs a program to its end; exits when it fails, since then nothing was measured.
Cost Run(const std::vector<std::string>& aArguments) {
  std::vector<char*> argv;
  for (const std::string& argument : aArguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  const double cpu = ChildrenCpu();
  const double wall = Now();
  const pid_t pid = fork();
  if (pid < 0) {
    perror("positioning-drive-bench: fork");
    exit(1);
  }
  if (pid == 0) {
    execv(argv[0], argv.data());
    fprintf(stderr, "positioning-drive-bench: cannot run %s: %s\n", argv[0], strerror(errno));
    _exit(127);
  }
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  Cost cost;
  cost.wall = Now() - wall;
  cost.cpu = ChildrenCpu() - cpu;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::string command;
    for (const std::string& argument : aArguments) command += argument + " ";
    fprintf(stderr, "positioning-drive-bench: failed (status %d): %s\n", status, command.c_str());
    exit(1);
  }
  return cost;
}

// The model drive as its logger would write it.
uint64_t WriteModelDrive(const std::string& aPath, double aHours, int aRowsPerSecond) {
  FILE* file = fopen(aPath.c_str(), "w");
  if (file == nullptr) {
    fprintf(stderr, "positioning-drive-bench: %s: %s\n", aPath.c_str(), strerror(errno));
    exit(1);
  }
  fputs("t_s,yaw_deg_s,speed_kmh,gear,east_m,north_m,heading_deg\n", file);
  const double seconds = aHours * 3600;
  CDriveGenerator drive(SourceKind::Can, 1, seconds, 200);
  CGeneratedTruth truth(SourceKind::Can, 1, seconds, 200);
  TruthPoint pose;
  truth.Next(pose);
  DriveRecord record;
  const int rowsPerRecord = std::max(1, aRowsPerSecond / 5);
  uint64_t rows = 0;
  for (uint64_t k = 0; drive.Next(record); ++k) {
    // The generator's motion over record k, held over its rows; the pose at its start.
    for (int r = 0; r < rowsPerRecord; ++r) {
      const double t = k * 0.2 + r * 0.2 / rowsPerRecord;
      fprintf(file, "%.3f,%.4f,%.4f,%s", t, -drive.TrueTurnRate(), drive.TrueSpeed() * 3.6,
              drive.TrueSpeed() < 0 ? "R" : "D");
      if (r == 0 && k % 5 == 0) {
        fprintf(file, ",%.3f,%.3f,%.4f\n", pose.pose.x, pose.pose.y, pose.pose.heading);
      } else {
        fputs(",,,\n", file);
      }
      ++rows;
    }
    truth.Next(pose);
  }
  fclose(file);
  return rows;
}

// Dead reckoning with its segment errors over the trace's records, in this process.
Cost DeadReckonTrace(const std::string& aTrace, const std::string& aTruth, double& aEndError) {
  const double cpu = OwnCpu();
  const double wall = Now();
  CTruthReader truth;
  std::string error;
  if (!truth.Open(aTruth, error)) {
    fprintf(stderr, "positioning-drive-bench: %s\n", error.c_str());
    exit(1);
  }
  std::ifstream trace(aTrace);
  TruthPoint point;
  truth.Next(point);
  CDeadReckoner reckoner;
  reckoner.Reset(point.pose);
  CTrajectoryErrors errors;
  errors.Add(point.stamp, point.pose, reckoner.Current());
  std::string line;
  while (std::getline(trace, line)) {
    if (line.empty() || line[0] < '0' || line[0] > '9') continue;
    unsigned long long stamp;
    long long pulses, rate, direction, samples;
    if (sscanf(line.c_str(), "%llu,%lld,%lld,%lld,%lld", &stamp, &pulses, &rate, &direction, &samples) != 5) continue;
    reckoner.Step(stamp, static_cast<int32_t>(rate), static_cast<uint32_t>(pulses),
                  direction == 0x25 ? kDirectionReverse : kDirectionForward);
    if (truth.Next(point)) errors.Add(point.stamp, point.pose, reckoner.Current());
  }
  aEndError = errors.Figures().endErrorShare;
  return {OwnCpu() - cpu, Now() - wall};
}

void Report(const char* aStep, std::vector<Cost> aCosts) {
  auto median = [](std::vector<double> aValues) {
    std::sort(aValues.begin(), aValues.end());
    return aValues[aValues.size() / 2];
  };
  std::vector<double> cpu, wall;
  for (const Cost& cost : aCosts) cpu.push_back(cost.cpu), wall.push_back(cost.wall);
  printf("| %-40s | %6.2f | %6.2f | %6.2f | %6.2f |\n", aStep, *std::min_element(cpu.begin(), cpu.end()), median(cpu),
         *std::min_element(wall.begin(), wall.end()), median(wall));
}

void Usage() {
  fputs(
      "usage: positioning-drive-bench [--hours H] [--rows-per-second N] [--runs R] [--sim PATH]\n"
      "Measures import, replay with dead reckoning, and dead reckoning alone of a model drive\n"
      "(default 10 hours: 180,000 records, 50 rows a second) on one core.\n",
      stderr);
}

}  // namespace

int main(int argc, char** argv) {
  double hours = 10;
  uint64_t rowsPerSecond = 50;
  uint64_t runs = 3;
  std::string simulator = POSITIONING_SIM_PATH;
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    std::string why;
    const bool hasValue = i + 1 < argc;
    bool ok = hasValue;
    if (option == "--help" || option == "-h") {
      Usage();
      return 0;
    } else if (option == "--hours" && hasValue) {
      ok = ParseReal(argv[++i], 0.01, 336, hours, why);
    } else if (option == "--rows-per-second" && hasValue) {
      ok = ParseUnsigned(argv[++i], 1000, rowsPerSecond, why) && rowsPerSecond >= 5;
    } else if (option == "--runs" && hasValue) {
      ok = ParseUnsigned(argv[++i], 100, runs, why) && runs >= 1;
    } else if (option == "--sim" && hasValue) {
      simulator = argv[++i];
    } else {
      ok = false;
    }
    if (!ok) {
      fprintf(stderr, "positioning-drive-bench: bad option or value: %s %s\n", option.c_str(), why.c_str());
      Usage();
      return 2;
    }
  }
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(0, &one);
  if (sched_setaffinity(0, sizeof one, &one) != 0) perror("positioning-drive-bench: one core");

  char folder[] = "/tmp/positioning-drive-bench-XXXXXX";
  if (mkdtemp(folder) == nullptr) {
    perror("positioning-drive-bench: temporary folder");
    return 1;
  }
  const std::string input = std::string(folder) + "/drive.csv";
  const std::string trace = std::string(folder) + "/drive.trace.csv";
  const std::string truth = std::string(folder) + "/drive.truth.csv";
  fprintf(stderr, "positioning-drive-bench: writing a %.1f-hour model drive, %llu rows a second...\n", hours,
          static_cast<unsigned long long>(rowsPerSecond));
  const uint64_t rows = WriteModelDrive(input, hours, static_cast<int>(rowsPerSecond));
  struct stat info;
  stat(input.c_str(), &info);

  const std::vector<std::string> import = {simulator,
                                           "import",
                                           input,
                                           "-o",
                                           trace,
                                           "--truth",
                                           truth,
                                           "--time",
                                           "t_s:s",
                                           "--yaw-rate",
                                           "yaw_deg_s:deg/s:left",
                                           "--speed",
                                           "speed_kmh:km/h",
                                           "--direction",
                                           "gear",
                                           "--x",
                                           "east_m:m",
                                           "--y",
                                           "north_m:m",
                                           "--heading",
                                           "heading_deg:deg:compass"};
  const std::vector<std::string> replay = {simulator, "--trace", trace,       "--truth", truth,
                                           "--quiet", "--out",   "/dev/null", "--path",  "/dev/null"};
  std::vector<Cost> imports, replays, reckonings;
  double endError = 0;
  for (uint64_t run = 0; run < runs; ++run) {
    fprintf(stderr, "positioning-drive-bench: run %llu of %llu\n", static_cast<unsigned long long>(run + 1),
            static_cast<unsigned long long>(runs));
    imports.push_back(Run(import));
    replays.push_back(Run(replay));
    reckonings.push_back(DeadReckonTrace(trace, truth, endError));
  }
  const uint64_t records = static_cast<uint64_t>(hours * 3600 * 5);
  printf("model drive: %.1f h, %llu records, %llu input rows (%.1f MB), %llu runs on one core\n", hours,
         static_cast<unsigned long long>(records), static_cast<unsigned long long>(rows), info.st_size / 1e6,
         static_cast<unsigned long long>(runs));
  printf("| %-40s | %6s | %6s | %6s | %6s |\n", "step (seconds)", "cpu", "median", "wall", "median");
  printf("|%s|-------:|-------:|-------:|-------:|\n", std::string(42, '-').c_str());
  Report("import (positioning-sim import)", imports);
  Report("replay with dead reckoning", replays);
  Report("dead reckoning and segment errors alone", reckonings);
  printf("end-point error of the dead reckoning: %.3f %% of the distance\n", endError);
  for (const std::string& file : {input, trace, truth}) unlink(file.c_str());
  rmdir(folder);
  return 0;
}
