// Reads a .dlt file back as engineers do, with dlt-convert (dlt-tools): the header
// fields it prints and, from its hex dump of each payload, every verbose argument with
// its type, name, unit and value.
#ifndef TESTS_DLT_READ_BACK_H
#define TESTS_DLT_READ_BACK_H

#include <stdint.h>

#include <string>
#include <vector>

namespace testing_host {

struct DltArgument {
  std::string type;  // "string", "bool", "u8" ... "u64", "i8" ... "i64"
  bool hex = false;  // a number to be shown in hexadecimal (how libdlt writes a pointer)
  std::string name;  // empty when the argument carries none
  std::string unit;
  std::string text;  // strings
  int64_t number = 0;
  uint64_t unsignedNumber = 0;
  // The value as a log line shows it: texts as they are, numbers in decimal, truth
  // values as true/false, hexadecimal numbers as 0x with no leading zeros.
  std::string Render() const;
};

struct DltMessage {
  uint32_t timestamp = 0;  // 0.1 ms units
  std::string ecu;
  std::string app;
  std::string context;  // "POSI", "FFW", "SIM" (dlt-convert pads with '-')
  std::string type;     // "log"
  std::string level;    // "info", "debug", "verbose", "error"
  int argumentCount = -1;
  std::vector<DltArgument> arguments;
};

// The text log's line (--log FILE) for a message of the module: time, category, module
// tag, function, file:line, the pieces; DLT levels map back to the categories one to one.
std::string TextLogLine(const DltMessage& aMessage);
// aLine with every address as "0x?": addresses differ from run to run.
std::string WithoutAddresses(const std::string& aLine);
// The module's messages only (POSI, FFW) of application PSIM: without the simulator's
// notes (SIM) and a daemon's own messages.
std::vector<DltMessage> ModuleMessages(const std::vector<DltMessage>& aMessages);

// The messages of aPath, decoded; false with the reason when dlt-convert fails or a
// line or payload cannot be read.
bool ReadDltFile(const std::string& aPath, std::vector<DltMessage>& aMessages, std::string& aError);

}  // namespace testing_host

#endif  // TESTS_DLT_READ_BACK_H
