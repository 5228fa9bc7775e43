#include "DltMessage.h"

#include <string.h>

#include "Logging.h"

namespace sim {

namespace {

// Type information of a verbose argument.
const uint32_t kBool = 0x10;
const uint32_t kSigned = 0x20;
const uint32_t kUnsigned = 0x40;
const uint32_t kString = 0x200;
const uint32_t kNamed = 0x800;
const uint32_t kHexadecimal = 0x10000;

// Standard header: extended header, ECU id, session id and time stamp follow; version 1.
const uint8_t kHeaderType = 0x01 | 0x04 | 0x08 | 0x10 | 0x20;
const uint8_t kVerbose = 0x01;  // message info: verbose, type log (0)

uint32_t LengthCode(unsigned aBytes) { return aBytes == 1 ? 1 : aBytes == 2 ? 2 : aBytes == 4 ? 3 : 4; }

uint8_t* PutBigEndian(uint8_t* aOut, uint64_t aValue, unsigned aBytes) {
  for (unsigned i = aBytes; i > 0; --i) *aOut++ = static_cast<uint8_t>(aValue >> (8 * (i - 1)));
  return aOut;
}

uint8_t* PutLittleEndian(uint8_t* aOut, uint64_t aValue, unsigned aBytes) {
  for (unsigned i = 0; i < aBytes; ++i) *aOut++ = static_cast<uint8_t>(aValue >> (8 * i));
  return aOut;
}

uint8_t* PutId(uint8_t* aOut, const char aId[4]) {
  memcpy(aOut, aId, 4);
  return aOut + 4;
}

}  // namespace

DltLevel LevelOfCategory(uint32_t aCategory) {
  if (aCategory == logging::categories::Error) return DltLevel::Error;
  if (aCategory == logging::categories::Info) return DltLevel::Info;
  if (aCategory == logging::categories::Info2) return DltLevel::Debug;
  return DltLevel::Verbose;
}

std::string_view DltArgumentName(std::string_view aLabel) {
  size_t end = aLabel.find_last_not_of(' ');
  if (end == std::string_view::npos || (aLabel[end] != ':' && aLabel[end] != '=') || end == 0) return {};
  end = aLabel.find_last_not_of(' ', end - 1);
  if (end == std::string_view::npos) return {};
  // "Configuration, Sensor Index        : " names "Sensor Index".
  const size_t comma = aLabel.rfind(", ", end);
  const size_t begin = aLabel.find_first_not_of(' ', comma == std::string_view::npos ? 0 : comma + 2);
  if (begin == std::string_view::npos || begin > end) return {};
  return aLabel.substr(begin, end - begin + 1);
}

std::string_view DltArgumentUnit(std::string_view aName) {
  // The module's clock readings and the services' time stamps are milliseconds.
  static const std::string_view kMilliseconds[] = {"TimeStamp",   "iCurrentTime", "aTime",
                                                   "iSyncedTime", "Current Time", "TimeStampReport"};
  for (std::string_view name : kMilliseconds) {
    if (aName == name) return "ms";
  }
  return {};
}

void CDltPayload::Put(uint64_t aValue, unsigned aBytes) {
  PutLittleEndian(iBytes + iSize, aValue, aBytes);
  iSize += aBytes;
}

void CDltPayload::PutText(std::string_view aText) {
  if (!aText.empty()) memcpy(iBytes + iSize, aText.data(), aText.size());  // an empty view may hold null
  iSize += aText.size();
  iBytes[iSize++] = 0;
}

void CDltPayload::AddString(std::string_view aText, std::string_view aName) {
  if (iSize + aText.size() + aName.size() + 16 > kMaxPayload) aText = aText.substr(0, kMaxPayload / 2);
  Put(kString | (aName.empty() ? 0 : kNamed), 4);
  Put(aText.size() + 1, 2);
  if (!aName.empty()) {
    Put(aName.size() + 1, 2);
    PutText(aName);
  }
  PutText(aText);
  ++iCount;
}

void CDltPayload::AddBool(bool aValue, std::string_view aName) {
  Put(kBool | 1 | (aName.empty() ? 0 : kNamed), 4);
  if (!aName.empty()) {
    Put(aName.size() + 1, 2);
    PutText(aName);
  }
  Put(aValue ? 1 : 0, 1);
  ++iCount;
}

void CDltPayload::AddInteger(bool aSigned, unsigned aBytes, uint64_t aValue, std::string_view aName,
                             std::string_view aUnit) {
  Put((aSigned ? kSigned : kUnsigned) | LengthCode(aBytes) | (aName.empty() ? 0 : kNamed), 4);
  if (!aName.empty()) {
    Put(aName.size() + 1, 2);
    Put(aUnit.size() + 1, 2);
    PutText(aName);
    PutText(aUnit);
  }
  Put(aValue, aBytes);
  ++iCount;
}

void CDltPayload::AddPointer(const void* aPointer) {
  const unsigned bytes = sizeof aPointer;
  Put(kUnsigned | kHexadecimal | LengthCode(bytes), 4);
  Put(reinterpret_cast<uintptr_t>(aPointer), bytes);
  ++iCount;
}

bool CDltPayload::AddRecord(const host::LoggedRecord& aRecord) {
  AddString(aRecord.function, "function");
  AddString(aRecord.file, "file");
  AddInteger(true, 4, static_cast<uint32_t>(aRecord.line), "line");
  const std::string* label = nullptr;
  for (const host::LogPiece& piece : aRecord.pieces) {
    // The largest piece besides a text is a 64-bit number named after a label.
    const size_t labelSize = label != nullptr ? label->size() : 0;
    if (iSize + (piece.kind == host::PieceKind::Text ? piece.text.size() : labelSize) + 64 > kMaxPayload ||
        iCount == 255)
      return false;
    std::string_view name;
    if (label != nullptr && piece.kind != host::PieceKind::Text && piece.kind != host::PieceKind::Pointer)
      name = DltArgumentName(*label);
    const std::string_view unit = name.empty() ? std::string_view() : DltArgumentUnit(name);
    const uint64_t value = static_cast<uint64_t>(piece.number);
    switch (piece.kind) {
      case host::PieceKind::Bool:
        AddBool(piece.number != 0, name);
        break;
      case host::PieceKind::U8:
        AddInteger(false, 1, value, name, unit);
        break;
      case host::PieceKind::I16:
        AddInteger(true, 2, value, name, unit);
        break;
      case host::PieceKind::U16:
        AddInteger(false, 2, value, name, unit);
        break;
      case host::PieceKind::I32:
        AddInteger(true, 4, value, name, unit);
        break;
      case host::PieceKind::U32:
        AddInteger(false, 4, value, name, unit);
        break;
      case host::PieceKind::I64:
        AddInteger(true, 8, value, name, unit);
        break;
      case host::PieceKind::Text:
        AddString(piece.text);
        break;
      case host::PieceKind::Pointer:
        AddPointer(piece.pointer);
        break;
    }
    label = piece.kind == host::PieceKind::Text ? &piece.text : nullptr;
  }
  return true;
}

void DltId(const char* aText, char aId[4]) {
  const size_t length = strnlen(aText, 4);
  memset(aId, 0, 4);
  memcpy(aId, aText, length);
}

void DltFileHeader(const DltHeader& aHeader, const CDltPayload& aPayload, uint8_t aOut[kDltFileHeaderSize]) {
  // Storage header: the pattern, when it was stored, the ECU.
  const char pattern[] = {'D', 'L', 'T', 0x01};
  uint8_t* at = PutId(aOut, pattern);
  at = PutLittleEndian(at, aHeader.wallSeconds, 4);
  at = PutLittleEndian(at, static_cast<uint32_t>(aHeader.wallMicroseconds), 4);
  at = PutId(at, aHeader.ecu);
  // Standard header (its numbers big-endian), ECU id, session id, time stamp.
  *at++ = kHeaderType;
  *at++ = aHeader.counter;
  at = PutBigEndian(at, kDltFileHeaderSize - 16 + aPayload.Size(), 2);
  at = PutId(at, aHeader.ecu);
  at = PutBigEndian(at, aHeader.session, 4);
  at = PutBigEndian(at, aHeader.timestamp, 4);
  // Extended header: verbose log message of its level, argument count, app, context.
  *at++ = static_cast<uint8_t>(kVerbose | (static_cast<uint8_t>(aHeader.level) << 4));
  *at++ = aPayload.Count();
  at = PutId(at, aHeader.app);
  PutId(at, aHeader.context);
}

}  // namespace sim
