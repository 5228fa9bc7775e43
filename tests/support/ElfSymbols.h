// Reads the dynamic symbol table, the symbol versions and the needed libraries of an
// ELF shared object (32- or 64-bit, little-endian), without any external tool.
#ifndef TESTS_ELF_SYMBOLS_H
#define TESTS_ELF_SYMBOLS_H

#include <string>
#include <utility>
#include <vector>

namespace testing_host {

struct ElfSymbol {
  std::string name;  // mangled
  bool defined;      // has a section (not SHN_UNDEF)
  bool weak;
  bool local;  // STB_LOCAL: not visible to other objects (ARM links keep section symbols here)
  bool function;
  bool object;
  std::string version;      // "GLIBC_2.4", empty when unversioned
  std::string versionFile;  // for an undefined versioned symbol: the library that must provide it
};

struct ElfDynamicInfo {
  std::vector<ElfSymbol> symbols;   // .dynsym without the null entry
  std::vector<std::string> needed;  // DT_NEEDED entries
  // .gnu.version_r: every (library, version) the object needs, "GLIBCXX_3.4.21" from
  // "libstdc++.so.6", whether or not a symbol names it.
  std::vector<std::pair<std::string, std::string> > versionNeeds;
  int elfClass = 0;      // 32 or 64
  unsigned machine = 0;  // e_machine
  unsigned flags = 0;    // e_flags (ARM: EABI version, float ABI)
};

// Reads aPath; on failure answers false and says why in aError.
bool ReadElfDynamicInfo(const std::string& aPath, ElfDynamicInfo& aInfo, std::string& aError);

}  // namespace testing_host

#endif  // TESTS_ELF_SYMBOLS_H
