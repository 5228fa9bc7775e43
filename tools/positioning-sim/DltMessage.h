// One log record as a verbose DLT message: the typed arguments (payload), and for a
// .dlt file the headers around them (storage, standard, extended header). Written
// here rather than through libdlt's file mode, which makes two system calls per
// message (a file-size check and an unbuffered write): five times the text logger's
// cost. The daemon path hands the same payload to libdlt.
#ifndef SIM_DLT_MESSAGE_H
#define SIM_DLT_MESSAGE_H

#include <stdint.h>

#include <string>
#include <string_view>

#include "LoggedRecord.h"

namespace sim {

// DLT log levels (message type info of a log message).
enum class DltLevel : uint8_t { Error = 2, Info = 4, Debug = 5, Verbose = 6 };

// The level a record's category logs at: Error error, Info info, Info2 (sample dumps)
// debug, Interface (entry traces) verbose.
DltLevel LevelOfCategory(uint32_t aCategory);

// The verbose arguments of one message, little-endian as the standard header says.
class CDltPayload {
 public:
  static const size_t kMaxPayload = 65000;

  void Clear() {
    iSize = 0;
    iCount = 0;
  }
  // aName empty: the argument carries no name (and no unit).
  void AddString(std::string_view aText, std::string_view aName = {});
  void AddBool(bool aValue, std::string_view aName = {});
  // aBytes 1, 2, 4 or 8.
  void AddInteger(bool aSigned, unsigned aBytes, uint64_t aValue, std::string_view aName = {},
                  std::string_view aUnit = {});
  // An address, shown in hexadecimal.
  void AddPointer(const void* aPointer);
  // A record's header (function, file, line, each named) and its pieces, numbers named
  // after the label before them. False when the record does not fit one message
  // (kMaxPayload): the pieces that fit are kept.
  bool AddRecord(const host::LoggedRecord& aRecord);

  const uint8_t* Data() const { return iBytes; }
  size_t Size() const { return iSize; }
  uint8_t Count() const { return iCount; }

 private:
  void Put(uint64_t aValue, unsigned aBytes);
  void PutText(std::string_view aText);
  uint8_t iBytes[kMaxPayload + 128] = {};
  size_t iSize = 0;
  uint8_t iCount = 0;
};

// The name a number piece gets from the text piece before it ("TimeStamp        : "
// names "TimeStamp"); empty when that text is not a label ending in ':' or '='.
std::string_view DltArgumentName(std::string_view aLabel);
// The unit of a named number, empty when it has none.
std::string_view DltArgumentUnit(std::string_view aName);

// Message header fields of a .dlt file.
struct DltHeader {
  char ecu[4];
  char app[4];
  char context[4];
  DltLevel level;
  uint8_t counter;       // per context, wrapping
  uint32_t session;      // the writing process
  uint32_t timestamp;    // 0.1 ms units
  uint32_t wallSeconds;  // storage header: when it was stored
  int32_t wallMicroseconds;
};

// The headers of one message of a .dlt file (storage, standard with its extra fields,
// extended), to be followed by the payload.
const size_t kDltFileHeaderSize = 16 + 16 + 10;
void DltFileHeader(const DltHeader& aHeader, const CDltPayload& aPayload, uint8_t aOut[kDltFileHeaderSize]);

// A four-character id from a text (padded with zeros).
void DltId(const char* aText, char aId[4]);

}  // namespace sim

#endif  // SIM_DLT_MESSAGE_H
