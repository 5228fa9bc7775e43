#include "TempDir.h"

#include <ftw.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>

namespace testing_support {

namespace {

int RemoveEntry(const char* aPath, const struct stat* /*aInfo*/, int /*aType*/, struct FTW* /*aWalk*/) {
  return remove(aPath) == 0 ? 0 : -1;
}

}  // namespace

CTempDir::CTempDir() {
  const char* base = getenv("TMPDIR");
  std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/positioning-test-XXXXXX";
  if (mkdtemp(&pattern[0]) != nullptr) iPath = pattern;
}

CTempDir::~CTempDir() {
  if (!iPath.empty()) RemoveTree(iPath);
}

bool RemoveTree(const std::string& aPath) {
  // Depth first, not following links out of the tree.
  return nftw(aPath.c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS) == 0;
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

}  // namespace testing_support
