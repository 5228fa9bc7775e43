#include "DrivePlot.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

namespace sim {

namespace {

const char* const kFiles[] = {"records.dat", "offsets.dat", "plot.gp", "gnuplot.txt", "plot.out"};

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

CDrivePlot::CDrivePlot(FILE* aOutput, bool aSvg, SourceKind aKind) : iOutput(aOutput), iSvg(aSvg), iKind(aKind) {}

CDrivePlot::~CDrivePlot() {
  if (iRecords != nullptr) fclose(iRecords);
  if (iOffsets != nullptr) fclose(iOffsets);
  if (iFolder.empty()) return;
  for (const char* name : kFiles) unlink(File(name).c_str());
  rmdir(iFolder.c_str());
}

bool CDrivePlot::Open(std::string& aError) {
  const char* tmp = getenv("TMPDIR");
  std::string pattern = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/positioning-sim-plot-XXXXXX";
  if (mkdtemp(&pattern[0]) == nullptr)
    return aError = "plot: cannot make a temporary folder: " + std::string(strerror(errno)), false;
  iFolder = pattern;
  iRecords = fopen(File("records.dat").c_str(), "w");
  iOffsets = fopen(File("offsets.dat").c_str(), "w");
  if (iRecords == nullptr || iOffsets == nullptr) return aError = "plot: " + iFolder + ": " + strerror(errno), false;
  return true;
}

void CDrivePlot::OnRecordSent(const SentRecord& aRecord) {
  const int64_t* field = aRecord.record.field;
  fprintf(iRecords, "%g %lld %lld\n", SecondsAt(aRecord.now), static_cast<long long>(field[1]),
          static_cast<long long>(iKind == SourceKind::Can ? field[0] : field[2]));
}

void CDrivePlot::OnOffsetChange(const OffsetPoint& aPoint) {
  fprintf(iOffsets, "%g %lld\n", aPoint.seconds, static_cast<long long>(aPoint.offset));
  iHaveOffset = true;
  iLastOffset = aPoint.offset;
}

bool CDrivePlot::Draw(double aSeconds, std::string& aError) {
  // A step line from each change to the next, and on to the end.
  if (iHaveOffset) fprintf(iOffsets, "%g %lld\n", aSeconds, static_cast<long long>(iLastOffset));
  const bool dataWritten = fclose(iRecords) == 0 && fclose(iOffsets) == 0;
  iRecords = iOffsets = nullptr;
  if (!dataWritten) return aError = "plot: writing the data in " + iFolder + " failed: " + strerror(errno), false;

  FILE* script = fopen(File("plot.gp").c_str(), "w");
  if (script == nullptr) return aError = "plot: " + iFolder + ": " + strerror(errno), false;
  fputs(iSvg ? "set terminal svg size 1000,900 dynamic\n" : "set terminal pngcairo size 1000,900\n", script);
  fprintf(script,
          "set output 'plot.out'\n"
          "set multiplot layout 3,1 title 'positioning-sim drive'\n"
          "set grid\nset xrange [0:%g]\n"
          "set xlabel 'time since feature start (s)'\n"
          "set ylabel 'angular rate (as sent; built-in: 1/100 deg/s)'\n"
          "plot 'records.dat' using 1:2 with lines title 'angular rate'\n"
          "set ylabel 'distance pulses per record (pulses)'\n"
          "plot 'records.dat' using 1:3 with steps title 'distance pulses'\n"
          "set ylabel 'sync offset (ms)'\n",
          aSeconds);
  if (iHaveOffset) {
    fputs("plot 'offsets.dat' using 1:2 with steps title 'module time minus service time'\n", script);
  } else {
    fputs("set label 1 'no sample delivered: no offset seen' at graph 0.4,0.5\nplot 0 notitle with lines\n", script);
  }
  fputs("unset multiplot\n", script);
  if (fclose(script) != 0) return aError = "plot: writing the script failed: " + std::string(strerror(errno)), false;

  const pid_t pid = fork();
  if (pid < 0) return aError = "plot: cannot start gnuplot: " + std::string(strerror(errno)), false;
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
    return aError = "plot: gnuplot failed" + (said.empty() ? std::string() : ": " + said), false;
  }
  if (fwrite(picture.data(), 1, picture.size(), iOutput) != picture.size())
    return aError = "plot: writing the picture failed: " + std::string(strerror(errno)), false;
  return true;
}

}  // namespace sim
