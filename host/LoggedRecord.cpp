#include "LoggedRecord.h"

#include <inttypes.h>
#include <stdio.h>

#include "Logging.h"

namespace host {

namespace {

const char kCategoryPrefix[] = "logging::categories::";
const char kModulePrefix[] = "logging::";

std::string StripPrefix(const std::string& aText, const char* aPrefix) {
  const std::string prefix(aPrefix);
  return aText.compare(0, prefix.size(), prefix) == 0 ? aText.substr(prefix.size()) : aText;
}

}  // namespace

const char* KindName(PieceKind aKind) {
  switch (aKind) {
    case PieceKind::Bool:
      return "bool";
    case PieceKind::U8:
      return "u8";
    case PieceKind::I16:
      return "i16";
    case PieceKind::U16:
      return "u16";
    case PieceKind::I32:
      return "i32";
    case PieceKind::U32:
      return "u32";
    case PieceKind::I64:
      return "i64";
    case PieceKind::Text:
      return "text";
    case PieceKind::Pointer:
      return "ptr";
  }
  return "?";
}

std::string LogPiece::Render() const {
  // Holds any pointer or 64-bit number in full, so snprintf never truncates.
  char buffer[32];
  switch (kind) {
    case PieceKind::Bool:
      return number != 0 ? "true" : "false";
    case PieceKind::Text:
      return text;
    case PieceKind::Pointer:
      (void)snprintf(buffer, sizeof buffer, "0x%" PRIxPTR, reinterpret_cast<uintptr_t>(pointer));
      return buffer;
    default:
      (void)snprintf(buffer, sizeof buffer, "%" PRId64, number);
      return buffer;
  }
}

std::string LoggedRecord::Text() const {
  std::string text;
  for (const LogPiece& piece : pieces) text += piece.Render();
  return text;
}

std::string LoggedRecord::Message() const {
  size_t first = 0;
  size_t last = pieces.size();
  if (last > 0 && pieces[0].kind == PieceKind::Text && pieces[0].text == "(") ++first;
  if (last > first && pieces[last - 1].kind == PieceKind::Text && pieces[last - 1].text == ")") --last;
  std::string text;
  for (size_t i = first; i < last; ++i) text += pieces[i].Render();
  return text;
}

std::string LoggedRecord::CategoryName() const { return StripPrefix(category, kCategoryPrefix); }

std::string LoggedRecord::Line() const {
  return CategoryName() + " " + StripPrefix(module, kModulePrefix) + " " + function + " " + file + ":" +
         std::to_string(line) + " " + Text();
}

uint32_t CategoryNumber(const std::string& aCategory) {
  const std::string name = StripPrefix(aCategory, kCategoryPrefix);
  if (name == "Error") return logging::categories::Error;
  if (name == "Info") return logging::categories::Info;
  if (name == "Info2") return logging::categories::Info2;
  if (name == "Interface") return logging::categories::Interface;
  return 0;
}

}  // namespace host
