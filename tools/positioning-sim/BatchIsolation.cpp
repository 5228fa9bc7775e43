// 64-bit directory offsets, also in a 32-bit build: ext4 hands out 64-bit ones, and a
// 32-bit readdir under an emulator on a 64-bit kernel fails on them (EOVERFLOW), which
// would leave a crashed drive's temporary folder behind.
#define _FILE_OFFSET_BITS 64

#include "BatchIsolation.h"

#include <dirent.h>
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <vector>

namespace sim {

namespace {

std::string HostName() {
  char name[256] = {};
  if (gethostname(name, sizeof name - 1) != 0) return "host";
  return name;
}

void RemoveTree(const std::string& aPath) {
  std::error_code ignored;
  std::filesystem::remove_all(aPath, ignored);
}

}  // namespace

CMessageCapture::~CMessageCapture() {
  if (iSaved >= 0) Stop(0);
  if (iBuffer >= 0) close(iBuffer);
}

bool CMessageCapture::Open(std::string& aError) {
  // In memory where the kernel offers it; a deleted temporary file otherwise.
  iBuffer = memfd_create("positioning-sim-messages", MFD_CLOEXEC);
  if (iBuffer < 0) {
    FILE* file = tmpfile();
    if (file != nullptr) iBuffer = dup(fileno(file));
    if (file != nullptr) fclose(file);
  }
  if (iBuffer < 0) aError = std::string("cannot keep the drives' messages: ") + strerror(errno);
  return iBuffer >= 0;
}

void CMessageCapture::Start() {
  if (iBuffer < 0 || iSaved >= 0) return;
  fflush(stderr);
  if (ftruncate(iBuffer, 0) != 0 || lseek(iBuffer, 0, SEEK_SET) != 0) return;
  iSaved = dup(STDERR_FILENO);
  if (iSaved >= 0 && dup2(iBuffer, STDERR_FILENO) < 0) {
    close(iSaved);
    iSaved = -1;
  }
}

std::string CMessageCapture::Stop(size_t aLines) {
  if (iSaved < 0) return std::string();
  fflush(stderr);
  dup2(iSaved, STDERR_FILENO);
  close(iSaved);
  iSaved = -1;
  return Tail(aLines);
}

std::string CMessageCapture::Tail(size_t aLines) const {
  if (iBuffer < 0) return std::string();
  // The end is what tells why a drive failed; a runaway drive's megabytes are not.
  const off_t size = lseek(iBuffer, 0, SEEK_END);
  const off_t keep = size < 8192 ? size : 8192;
  std::string text(static_cast<size_t>(keep > 0 ? keep : 0), '\0');
  const ssize_t got = keep > 0 ? pread(iBuffer, &text[0], text.size(), size - keep) : 0;
  text.resize(got > 0 ? static_cast<size_t>(got) : 0);
  size_t start = text.size();
  if (start > 0 && text[start - 1] == '\n') --start;
  for (size_t lines = 0; start > 0; --start) {
    if (text[start - 1] == '\n' && ++lines == aLines) break;
  }
  return aLines == 0 ? std::string() : text.substr(start);
}

CAtomicFolder::CAtomicFolder(const std::string& aFinal) : iFinal(aFinal) {
  while (iFinal.size() > 1 && iFinal.back() == '/') iFinal.pop_back();
  const size_t slash = iFinal.rfind('/');
  iParent = slash == std::string::npos ? "." : slash == 0 ? "/" : iFinal.substr(0, slash);
  const std::string name = slash == std::string::npos ? iFinal : iFinal.substr(slash + 1);
  iPrefix = "." + name + ".tmp." + HostName() + ".";
  iTemporary = iParent + "/" + iPrefix + std::to_string(getpid());
}

CAtomicFolder::~CAtomicFolder() {
  if (!iPublished) RemoveTree(iTemporary);
}

bool CAtomicFolder::Exists() const {
  struct stat info;
  return stat(iFinal.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

void CAtomicFolder::RemoveStale() const {
  DIR* folder = opendir(iParent.c_str());
  if (folder == nullptr) return;
  std::vector<std::string> stale;
  while (const dirent* entry = readdir(folder)) {
    const std::string name = entry->d_name;
    if (name.compare(0, iPrefix.size(), iPrefix) != 0) continue;
    char* end = nullptr;
    const long pid = strtol(name.c_str() + iPrefix.size(), &end, 10);
    if (pid <= 0 || *end != '\0') continue;
    if (pid == getpid() || (kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH))
      stale.push_back(iParent + "/" + name);
  }
  closedir(folder);
  for (const std::string& path : stale) RemoveTree(path);
}

bool CAtomicFolder::Publish(bool& aTaken, std::string& aError) {
  aTaken = false;
  // rename() would replace an empty folder: one that is there, whatever it holds, stands.
  if (Exists()) return aTaken = true, true;
  if (rename(iTemporary.c_str(), iFinal.c_str()) == 0) return iPublished = true, true;
  if ((errno == EEXIST || errno == ENOTEMPTY) && Exists()) return aTaken = true, true;
  aError = iFinal + ": " + strerror(errno);
  return false;
}

}  // namespace sim
