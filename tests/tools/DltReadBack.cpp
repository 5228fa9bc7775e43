#include "DltReadBack.h"

#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>

#include <map>
#include <regex>
#include <sstream>

#include "Subprocess.h"

namespace testing_host {

namespace {

// Type information of a verbose argument, as the DLT format lays it out.
const uint32_t kLengthMask = 0x0F;
const uint32_t kBool = 0x10;
const uint32_t kSigned = 0x20;
const uint32_t kUnsigned = 0x40;
const uint32_t kString = 0x200;
const uint32_t kVariable = 0x800;  // name (and for numbers unit) follow
const uint32_t kHexCoding = 0x10000;

class CPayload {
 public:
  explicit CPayload(const std::vector<uint8_t>& aBytes) : iBytes(aBytes) {}
  bool AtEnd() const { return iAt == iBytes.size(); }
  bool Take(size_t aCount, uint64_t& aValue) {
    if (iBytes.size() - iAt < aCount) return false;
    aValue = 0;
    for (size_t i = 0; i < aCount; ++i) aValue |= static_cast<uint64_t>(iBytes[iAt + i]) << (8 * i);
    iAt += aCount;
    return true;
  }
  // A zero-terminated text of aLength bytes, terminator included.
  bool Text(size_t aLength, std::string& aText) {
    if (iBytes.size() - iAt < aLength || aLength == 0 || iBytes[iAt + aLength - 1] != 0) return false;
    aText.assign(reinterpret_cast<const char*>(&iBytes[iAt]), aLength - 1);
    iAt += aLength;
    return true;
  }

 private:
  const std::vector<uint8_t>& iBytes;
  size_t iAt = 0;
};

bool ReadArgument(CPayload& aPayload, DltArgument& aArgument) {
  uint64_t info = 0;
  if (!aPayload.Take(4, info)) return false;
  const bool named = (info & kVariable) != 0;
  uint64_t length = 0;
  uint64_t nameLength = 0;
  uint64_t unitLength = 0;
  if ((info & kString) != 0) {
    aArgument.type = "string";
    if (!aPayload.Take(2, length)) return false;
    if (named && (!aPayload.Take(2, nameLength) || !aPayload.Text(nameLength, aArgument.name))) return false;
    return aPayload.Text(length, aArgument.text);
  }
  const unsigned bits = 8u << ((info & kLengthMask) - 1);
  if ((info & kLengthMask) == 0 || bits > 64) return false;
  if ((info & kBool) != 0) {
    aArgument.type = "bool";
    if (named && (!aPayload.Take(2, nameLength) || !aPayload.Text(nameLength, aArgument.name))) return false;
  } else if ((info & (kSigned | kUnsigned)) != 0) {
    aArgument.type = std::string((info & kSigned) != 0 ? "i" : "u") + std::to_string(bits);
    aArgument.hex = (info & kHexCoding) != 0;
    if (named && (!aPayload.Take(2, nameLength) || !aPayload.Take(2, unitLength) ||
                  !aPayload.Text(nameLength, aArgument.name) || !aPayload.Text(unitLength, aArgument.unit)))
      return false;
  } else {
    return false;  // floats, raw data, arrays: never written here
  }
  uint64_t value = 0;
  if (!aPayload.Take(bits / 8, value)) return false;
  aArgument.unsignedNumber = value;
  aArgument.number = static_cast<int64_t>(value);
  if ((info & kSigned) != 0 && bits < 64 && (value >> (bits - 1)) != 0)
    aArgument.number = static_cast<int64_t>(value | (~uint64_t(0) << bits));
  return true;
}

}  // namespace

std::string DltArgument::Render() const {
  char buffer[32];
  if (type == "string") return text;
  if (type == "bool") return unsignedNumber != 0 ? "true" : "false";
  if (hex) {
    snprintf(buffer, sizeof buffer, "0x%" PRIx64, unsignedNumber);
  } else if (type[0] == 'i') {
    snprintf(buffer, sizeof buffer, "%" PRId64, number);
  } else {
    snprintf(buffer, sizeof buffer, "%" PRIu64, unsignedNumber);
  }
  return buffer;
}

std::string TextLogLine(const DltMessage& aMessage) {
  static const std::map<std::string, std::string> kCategories = {
      {"error", "Error"}, {"info", "Info"}, {"debug", "Info2"}, {"verbose", "Interface"}};
  const auto category = kCategories.find(aMessage.level);
  std::string line = std::to_string(aMessage.timestamp / 10) + " " +
                     (category != kCategories.end() ? category->second : aMessage.level) + " " +
                     (aMessage.context == "FFW" ? "FeatureFw" : "Positioning") + " ";
  if (aMessage.arguments.size() < 3) return line + "(too few arguments)";
  line += aMessage.arguments[0].text + " " + aMessage.arguments[1].text + ":" + aMessage.arguments[2].Render() + " ";
  for (size_t i = 3; i < aMessage.arguments.size(); ++i) line += aMessage.arguments[i].Render();
  return line;
}

std::string WithoutAddresses(const std::string& aLine) {
  static const std::regex kAddress("0x[0-9a-f]+");
  return std::regex_replace(aLine, kAddress, "0x?");
}

std::vector<DltMessage> ModuleMessages(const std::vector<DltMessage>& aMessages) {
  std::vector<DltMessage> module;
  for (const DltMessage& message : aMessages) {
    if (message.app == "PSIM" && (message.context == "POSI" || message.context == "FFW")) module.push_back(message);
  }
  return module;
}

bool ReadDltFile(const std::string& aPath, std::vector<DltMessage>& aMessages, std::string& aError) {
  const testing_support::ProcessResult converted = testing_support::RunProcess({"dlt-convert", "-x", aPath});
  if (converted.exitCode != 0) {
    aError = "dlt-convert -x " + aPath + ": " + converted.Describe() + " " + converted.err;
    return false;
  }
  aMessages.clear();
  std::istringstream lines(converted.out);
  std::string line;
  while (std::getline(lines, line)) {
    // 0 2026/11/23 11:51:46.824433    1000000 000 ECU1 PSIM POSI log info V 3 [00 0a ...]
    const size_t open = line.find('[');
    if (open == std::string::npos || line.back() != ']') {
      aError = "not a message line: " + line;
      return false;
    }
    std::istringstream header(line.substr(0, open));
    std::string index, date, time, counter, mode;
    DltMessage message;
    header >> index >> date >> time >> message.timestamp >> counter >> message.ecu >> message.app >> message.context >>
        message.type >> message.level >> mode >> message.argumentCount;
    while (!message.context.empty() && message.context.back() == '-') message.context.pop_back();
    if (!header) {
      aError = "cannot read the header of: " + line;
      return false;
    }
    if (mode != "V") {  // a daemon's control messages: kept, their payload not read
      message.arguments.clear();
      aMessages.push_back(message);
      continue;
    }
    std::vector<uint8_t> bytes;
    std::istringstream hex(line.substr(open + 1, line.size() - open - 2));
    std::string byte;
    while (hex >> byte) bytes.push_back(static_cast<uint8_t>(strtoul(byte.c_str(), nullptr, 16)));
    CPayload payload(bytes);
    for (int i = 0; i < message.argumentCount; ++i) {
      DltArgument argument;
      if (!ReadArgument(payload, argument)) {
        aError = "argument " + std::to_string(i) + " cannot be read in: " + line;
        return false;
      }
      message.arguments.push_back(argument);
    }
    if (!payload.AtEnd()) {
      aError = "bytes left after the arguments of: " + line;
      return false;
    }
    aMessages.push_back(message);
  }
  return true;
}

}  // namespace testing_host
