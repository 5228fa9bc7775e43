#include "OutputFiles.h"

#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <vector>

namespace sim {

namespace {

// A long drive's samples and path are tens of megabytes. Written 64 KiB at a time
// rather than a page, the system calls cost a sixteenth of what they did: on a virtual
// machine they were 7 % of the run. The C library takes the size only with a buffer of our
// own, which must outlive the stream: each is kept here while its stream is open, then
// kept for the next one. A batch of drives opens and closes the same few outputs for
// every drive, and fresh pages for each would cost more than a short drive's writes.
// A buffer is touched when made, so that resident memory is flat from the start.
const size_t kOutputBuffer = size_t{64} * 1024;
class COutputBuffers {
 public:
  char* Take(FILE* aFile) {
    std::unique_ptr<char[]>& buffer = iInUse[aFile];
    if (iSpare.empty()) {
      buffer.reset(new char[kOutputBuffer]());
    } else {
      buffer = std::move(iSpare.back());
      iSpare.pop_back();
    }
    return buffer.get();
  }
  // When aFile could not take its buffer.
  void GiveBack(FILE* aFile) { Keep(iInUse.find(aFile)); }
  // fclose's answer; the buffer, used until then, is kept for the next output.
  int Close(FILE* aFile) {
    const auto used = iInUse.find(aFile);
    const int closed = fclose(aFile);
    Keep(used);
    return closed;
  }

 private:
  void Keep(std::map<FILE*, std::unique_ptr<char[]>>::iterator aUsed) {
    if (aUsed == iInUse.end()) return;
    iSpare.push_back(std::move(aUsed->second));
    iInUse.erase(aUsed);
  }

  std::map<FILE*, std::unique_ptr<char[]>> iInUse;
  std::vector<std::unique_ptr<char[]>> iSpare;
};
COutputBuffers& OutputBuffers() {
  static COutputBuffers buffers;
  return buffers;
}

// What identifies the file a path names: its device and inode when it exists, its
// absolute path when it is still to be made; empty for devices and pipes.
std::string FileKey(const std::string& aPath) {
  if (aPath == "-") return "-";
  struct stat info;
  if (stat(aPath.c_str(), &info) == 0) {
    if (!S_ISREG(info.st_mode)) return std::string();
    return "#" + std::to_string(info.st_dev) + ":" + std::to_string(info.st_ino);
  }
  const size_t slash = aPath.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : aPath.substr(0, slash);
  const std::string name = slash == std::string::npos ? aPath : aPath.substr(slash + 1);
  char resolved[PATH_MAX];
  if (realpath(folder.c_str(), resolved) == nullptr) return "@" + aPath;
  return "@" + std::string(resolved) + "/" + name;
}

}  // namespace

bool OutputsAreDistinct(const std::vector<OutputRequest>& aOutputs, const std::vector<std::string>& aInputs,
                        std::string& aError) {
  std::vector<std::string> keys;
  keys.reserve(aOutputs.size());
  for (const OutputRequest& output : aOutputs) keys.push_back(FileKey(output.path));
  for (size_t i = 0; i < aOutputs.size(); ++i) {
    if (keys[i].empty()) continue;
    for (const std::string& input : aInputs) {
      if (FileKey(input) == keys[i]) {
        aError = aOutputs[i].option + " " + aOutputs[i].path + " would overwrite the input " + input;
        return false;
      }
    }
    for (size_t j = 0; j < i; ++j) {
      if (keys[j] == keys[i]) {
        aError = aOutputs[j].option + " and " + aOutputs[i].option +
                 (keys[i] == "-" ? " both write to standard output (-)" : " name the same file: " + aOutputs[i].path);
        return false;
      }
    }
  }
  return true;
}

FILE* OpenOutput(const std::string& aPath, std::string& aError) {
  // A copy of standard output: while the module runs, standard output itself carries
  // its printing, captured apart.
  if (aPath == "-") {
    fflush(stdout);
    const int copy = dup(STDOUT_FILENO);
    FILE* file = copy < 0 ? nullptr : fdopen(copy, "w");
    if (file == nullptr) aError = "standard output: " + std::string(strerror(errno));
    return file;
  }
  FILE* file = fopen(aPath.c_str(), "w");
  if (file == nullptr) {
    aError = aPath + ": " + strerror(errno);
    return nullptr;
  }
  // Pipes and devices keep the page: what reads them may be waiting for each piece.
  struct stat info;
  if (fstat(fileno(file), &info) == 0 && S_ISREG(info.st_mode)) {
    if (setvbuf(file, OutputBuffers().Take(file), _IOFBF, kOutputBuffer) != 0) OutputBuffers().GiveBack(file);
  }
  return file;
}

bool CloseOutput(FILE* aFile, const std::string& aPath, std::string& aError) {
  if (aFile == nullptr) return true;
  const bool failed = ferror(aFile) != 0;
  const bool closed = OutputBuffers().Close(aFile) == 0;
  if (closed && !failed) return true;
  aError = aPath + ": writing failed" + (closed ? std::string() : std::string(": ") + strerror(errno));
  return false;
}

void DiscardOutput(FILE* aFile) {
  if (aFile == nullptr) return;
  OutputBuffers().Close(aFile);
}

}  // namespace sim
