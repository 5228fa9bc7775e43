// The oldest runtime the built library runs on: the highest version it needs of each
// runtime library (.gnu.version_r), checked against the table in the README that
// integrators read ("Minimum runtime"), for this target and string ABI.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "ElfSymbols.h"
#include "TestHost.h"

namespace {

#if defined(__arm__) && !defined(__aarch64__)
const char* const kTarget = "armhf";
#elif defined(__x86_64__)
const char* const kTarget = "x86-64";
#else
const char* const kTarget = "";
#endif
const char* const kStringAbi = _GLIBCXX_USE_CXX11_ABI ? "C++11" : "old";

std::string SourceFile(const std::string& aRelative) { return std::string(POSITIONING_SOURCE_DIR) + "/" + aRelative; }

std::vector<std::string> Cells(const std::string& aRow) {
  std::vector<std::string> cells;
  std::stringstream stream(aRow.substr(1));
  std::string cell;
  while (std::getline(stream, cell, '|')) {
    cell = std::regex_replace(cell, std::regex("^\\s+|\\s+$"), "");
    cells.push_back(cell);
  }
  return cells;
}

std::vector<int> Numbers(const std::string& aVersion) {
  std::vector<int> numbers;
  std::stringstream stream(aVersion);
  std::string part;
  while (std::getline(stream, part, '.')) numbers.push_back(std::stoi(part));
  return numbers;
}

// The README's table: header cells, and the row for this target and ABI.
bool ReadTable(std::vector<std::string>& aHeader, std::vector<std::string>& aRow, std::string& aError) {
  std::ifstream readme(SourceFile("README.md"));
  if (!readme) return aError = "cannot read " + SourceFile("README.md"), false;
  std::string line;
  bool inSection = false;
  while (std::getline(readme, line)) {
    if (line.rfind("#", 0) == 0) inSection = line.find("Minimum runtime") != std::string::npos;
    if (!inSection || line.rfind("|", 0) != 0) continue;
    std::vector<std::string> cells = Cells(line);
    if (cells.size() >= 2 && cells[0] == "target") aHeader = cells;
    if (cells.size() >= 2 && cells[0] == kTarget && cells[1].rfind(kStringAbi, 0) == 0) aRow = cells;
  }
  if (aHeader.empty()) return aError = "no table under a \"Minimum runtime\" heading in README.md", false;
  if (aRow.size() != aHeader.size())
    return aError = std::string("no complete row for ") + kTarget + ", " + kStringAbi + " in README.md", false;
  return true;
}

TEST(ModuleRuntimeTest, NeedsExactlyTheVersionsTheReadmeLists) {
  if (kTarget[0] == '\0') GTEST_SKIP() << "no table row for this target";
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the table is for uninstrumented builds; a sanitizer runtime needs more";
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
  GTEST_SKIP() << "the table is for uninstrumented builds; a sanitizer runtime needs more";
#endif
#endif
  testing_host::ElfDynamicInfo info;
  std::string error;
  ASSERT_TRUE(testing_host::ReadElfDynamicInfo(testing_host::ModulePath(), info, error)) << error;
  ASSERT_FALSE(info.versionNeeds.empty());

  // Highest needed version per version prefix (GLIBC_2.14 -> GLIBC: 2.14).
  std::map<std::string, std::string> highest;
  const std::regex versionName("^([A-Z_]+)_([0-9]+(\\.[0-9]+)*)$");
  for (const auto& need : info.versionNeeds) {
    std::smatch match;
    ASSERT_TRUE(std::regex_match(need.second, match, versionName)) << need.second << " from " << need.first;
    std::string& current = highest[match[1]];
    if (current.empty() || Numbers(current) < Numbers(match[2])) current = match[2];
  }

  std::vector<std::string> header, row;
  ASSERT_TRUE(ReadTable(header, row, error)) << error;
  for (size_t column = 2; column < header.size(); ++column) {
    const std::string& prefix = header[column];
    const std::string listed = row[column] == "-" ? "" : row[column];
    auto found = highest.find(prefix);
    EXPECT_EQ(listed, found == highest.end() ? "" : found->second)
        << prefix << " for " << kTarget << ", " << kStringAbi;
    if (found != highest.end()) highest.erase(found);
  }
  for (const auto& unlisted : highest)
    ADD_FAILURE() << "needs " << unlisted.first << "_" << unlisted.second
                  << ", which the README's table has no column for";
}

}  // namespace
