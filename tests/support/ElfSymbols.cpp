#include "ElfSymbols.h"

#include <elf.h>
#include <string.h>

#include <fstream>
#include <iterator>

namespace testing_host {

namespace {

template <class Ehdr, class Shdr, class Sym, class Dyn>
bool Parse(const std::vector<char>& aFile, ElfDynamicInfo& aInfo, std::string& aError) {
  auto in_bounds = [&](uint64_t aOffset, uint64_t aSize) { return aOffset <= aFile.size() && aSize <= aFile.size() - aOffset; };
  if (!in_bounds(0, sizeof(Ehdr))) return aError = "truncated header", false;
  Ehdr header;
  memcpy(&header, aFile.data(), sizeof header);
  aInfo.machine = header.e_machine;
  if (!in_bounds(header.e_shoff, uint64_t(header.e_shnum) * sizeof(Shdr))) return aError = "bad section table", false;
  std::vector<Shdr> sections(header.e_shnum);
  memcpy(sections.data(), aFile.data() + header.e_shoff, sections.size() * sizeof(Shdr));

  for (const Shdr& section : sections) {
    if (section.sh_type == SHT_DYNSYM) {
      if (section.sh_link >= sections.size()) return aError = "bad dynsym link", false;
      const Shdr& strings = sections[section.sh_link];
      if (!in_bounds(section.sh_offset, section.sh_size) || !in_bounds(strings.sh_offset, strings.sh_size))
        return aError = "bad dynsym", false;
      const size_t count = section.sh_size / sizeof(Sym);
      for (size_t i = 1; i < count; ++i) {
        Sym symbol;
        memcpy(&symbol, aFile.data() + section.sh_offset + i * sizeof(Sym), sizeof symbol);
        if (symbol.st_name >= strings.sh_size) return aError = "bad symbol name", false;
        ElfSymbol entry;
        entry.name = std::string(aFile.data() + strings.sh_offset + symbol.st_name);
        entry.defined = symbol.st_shndx != SHN_UNDEF;
        const unsigned bind = symbol.st_info >> 4;
        const unsigned type = symbol.st_info & 0xf;
        entry.weak = bind == STB_WEAK;
        entry.function = type == STT_FUNC;
        entry.object = type == STT_OBJECT;
        aInfo.symbols.push_back(entry);
      }
    } else if (section.sh_type == SHT_DYNAMIC) {
      if (section.sh_link >= sections.size()) return aError = "bad dynamic link", false;
      const Shdr& strings = sections[section.sh_link];
      if (!in_bounds(section.sh_offset, section.sh_size) || !in_bounds(strings.sh_offset, strings.sh_size))
        return aError = "bad dynamic", false;
      const size_t count = section.sh_size / sizeof(Dyn);
      for (size_t i = 0; i < count; ++i) {
        Dyn entry;
        memcpy(&entry, aFile.data() + section.sh_offset + i * sizeof(Dyn), sizeof entry);
        if (entry.d_tag == DT_NULL) break;
        if (entry.d_tag == DT_NEEDED && entry.d_un.d_val < strings.sh_size)
          aInfo.needed.push_back(std::string(aFile.data() + strings.sh_offset + entry.d_un.d_val));
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
