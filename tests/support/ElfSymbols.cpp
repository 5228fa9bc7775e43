#include "ElfSymbols.h"

#include <elf.h>
#include <string.h>

#include <fstream>
#include <iterator>
#include <map>
#include <utility>

namespace testing_host {

namespace {

template <class Ehdr, class Shdr, class Sym, class Dyn>
bool Parse(const std::vector<char>& aFile, ElfDynamicInfo& aInfo, std::string& aError) {
  auto in_bounds = [&](uint64_t aOffset, uint64_t aSize) {
    return aOffset <= aFile.size() && aSize <= aFile.size() - aOffset;
  };
  // A NUL-terminated text at aOffset of the string table aStrings, or "" when outside it.
  auto text = [&](const Shdr& aStrings, uint64_t aOffset) {
    if (aOffset >= aStrings.sh_size) return std::string();
    const char* begin = aFile.data() + aStrings.sh_offset + aOffset;
    return std::string(begin, strnlen(begin, aStrings.sh_size - aOffset));
  };
  if (!in_bounds(0, sizeof(Ehdr))) return aError = "truncated header", false;
  Ehdr header;
  memcpy(&header, aFile.data(), sizeof header);
  aInfo.machine = header.e_machine;
  aInfo.flags = header.e_flags;
  if (!in_bounds(header.e_shoff, uint64_t(header.e_shnum) * sizeof(Shdr))) return aError = "bad section table", false;
  std::vector<Shdr> sections(header.e_shnum);
  memcpy(sections.data(), aFile.data() + header.e_shoff, sections.size() * sizeof(Shdr));
  for (const Shdr& section : sections) {
    if (section.sh_type == SHT_NOBITS) continue;
    if (!in_bounds(section.sh_offset, section.sh_size)) return aError = "bad section", false;
    if (section.sh_link >= sections.size()) return aError = "bad section link", false;
  }

  std::vector<uint16_t> versionIndex;                                 // per .dynsym entry
  std::map<uint16_t, std::pair<std::string, std::string> > versions;  // index: name, file
  for (const Shdr& section : sections) {
    const Shdr& strings = sections[section.sh_link];
    if (section.sh_type == SHT_GNU_versym) {
      versionIndex.resize(section.sh_size / sizeof(uint16_t));
      memcpy(versionIndex.data(), aFile.data() + section.sh_offset, versionIndex.size() * sizeof(uint16_t));
    } else if (section.sh_type == SHT_GNU_verneed) {
      // Elf32_Verneed and Elf64_Verneed have one layout.
      uint64_t at = section.sh_offset;
      const uint64_t end = section.sh_offset + section.sh_size;
      while (at + sizeof(Elf32_Verneed) <= end) {
        Elf32_Verneed need;
        memcpy(&need, aFile.data() + at, sizeof need);
        const std::string file = text(strings, need.vn_file);
        uint64_t auxAt = at + need.vn_aux;
        for (unsigned i = 0; i < need.vn_cnt && auxAt + sizeof(Elf32_Vernaux) <= end; ++i) {
          Elf32_Vernaux aux;
          memcpy(&aux, aFile.data() + auxAt, sizeof aux);
          versions[aux.vna_other] = std::make_pair(text(strings, aux.vna_name), file);
          aInfo.versionNeeds.push_back(std::make_pair(file, text(strings, aux.vna_name)));
          if (aux.vna_next == 0) break;
          auxAt += aux.vna_next;
        }
        if (need.vn_next == 0) break;
        at += need.vn_next;
      }
    } else if (section.sh_type == SHT_GNU_verdef) {
      uint64_t at = section.sh_offset;
      const uint64_t end = section.sh_offset + section.sh_size;
      while (at + sizeof(Elf32_Verdef) <= end) {
        Elf32_Verdef def;
        memcpy(&def, aFile.data() + at, sizeof def);
        if (at + def.vd_aux + sizeof(Elf32_Verdaux) <= end) {
          Elf32_Verdaux aux;
          memcpy(&aux, aFile.data() + at + def.vd_aux, sizeof aux);
          versions[def.vd_ndx] = std::make_pair(text(strings, aux.vda_name), std::string());
        }
        if (def.vd_next == 0) break;
        at += def.vd_next;
      }
    }
  }

  for (const Shdr& section : sections) {
    const Shdr& strings = sections[section.sh_link];
    if (section.sh_type == SHT_DYNSYM) {
      const size_t count = section.sh_size / sizeof(Sym);
      for (size_t i = 1; i < count; ++i) {
        Sym symbol;
        memcpy(&symbol, aFile.data() + section.sh_offset + i * sizeof(Sym), sizeof symbol);
        if (symbol.st_name >= strings.sh_size) return aError = "bad symbol name", false;
        ElfSymbol entry;
        entry.name = text(strings, symbol.st_name);
        entry.defined = symbol.st_shndx != SHN_UNDEF;
        const unsigned bind = symbol.st_info >> 4;
        const unsigned type = symbol.st_info & 0xf;
        entry.weak = bind == STB_WEAK;
        entry.local = bind == STB_LOCAL;
        entry.function = type == STT_FUNC;
        entry.object = type == STT_OBJECT;
        if (i < versionIndex.size()) {
          // Bit 15 hides a default version; 0 is local and 1 global, both unversioned.
          auto version = versions.find(versionIndex[i] & 0x7fff);
          if (version != versions.end()) {
            entry.version = version->second.first;
            entry.versionFile = version->second.second;
          }
        }
        aInfo.symbols.push_back(entry);
      }
    } else if (section.sh_type == SHT_DYNAMIC) {
      const size_t count = section.sh_size / sizeof(Dyn);
      for (size_t i = 0; i < count; ++i) {
        Dyn entry;
        memcpy(&entry, aFile.data() + section.sh_offset + i * sizeof(Dyn), sizeof entry);
        if (entry.d_tag == DT_NULL) break;
        if (entry.d_tag == DT_NEEDED && entry.d_un.d_val < strings.sh_size)
          aInfo.needed.push_back(text(strings, entry.d_un.d_val));
      }
    }
  }
  return true;
}

}  // namespace

bool ReadElfDynamicInfo(const std::string& aPath, ElfDynamicInfo& aInfo, std::string& aError) {
  std::ifstream stream(aPath, std::ios::binary);
  if (!stream) return aError = "cannot open " + aPath, false;
  std::vector<char> file((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
  if (file.size() < EI_NIDENT || memcmp(file.data(), ELFMAG, SELFMAG) != 0) return aError = "not ELF", false;
  if (file[EI_DATA] != ELFDATA2LSB) return aError = "not little-endian", false;
  aInfo = ElfDynamicInfo();
  if (file[EI_CLASS] == ELFCLASS32) {
    aInfo.elfClass = 32;
    return Parse<Elf32_Ehdr, Elf32_Shdr, Elf32_Sym, Elf32_Dyn>(file, aInfo, aError);
  }
  if (file[EI_CLASS] == ELFCLASS64) {
    aInfo.elfClass = 64;
    return Parse<Elf64_Ehdr, Elf64_Shdr, Elf64_Sym, Elf64_Dyn>(file, aInfo, aError);
  }
  return aError = "unknown ELF class", false;
}

}  // namespace testing_host
