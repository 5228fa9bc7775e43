// Option values as CLI11 takes them: text, converted once the whole command line is
// read, so that every number goes through one parser and every error names its option;
// and the small value forms several options share (seconds, windows, log levels).
#ifndef SIM_OPTION_VALUES_H
#define SIM_OPTION_VALUES_H

#include <stdint.h>

#include <CLI/CLI.hpp>
#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Scenario.h"

namespace sim {

// The longest drive or time an option takes, in seconds.
const double kLongestDrive = 14 * 86400.0;

// A value given as text, converted once the whole line is read, so that every number
// goes through the same parser and every error names its option.
struct Deferred {
  std::string option;
  std::string text;
  std::function<bool(const std::string&, std::string&)> convert;
  std::string expects;
};

class COptionValues {
 public:
  // Registers aName with a text value and its conversion.
  CLI::Option* Add(CLI::App& aApp, const std::string& aName, const std::string& aType, const std::string& aHelp,
                   const std::string& aExpects, std::function<bool(const std::string&, std::string&)> aConvert);
  // Converts every value given; false with "--opt takes ...: text (why)".
  bool Convert(std::string& aError);

 private:
  std::deque<Deferred> iValues;
  std::vector<std::pair<Deferred*, std::string>> iPending;
};

// Seconds from 0 to kLongestDrive.
bool Seconds(const std::string& aText, double& aValue, std::string& aWhy);
// "START" or "START:END" in seconds, appended to aWindows.
bool Window(const std::string& aText, std::vector<TimeWindow>& aWindows, std::string& aWhy);
// "error", "info", "info2", "interface" or "all" as a category mask.
bool LogLevel(const std::string& aText, uint32_t& aMask);
bool EndsWith(const std::string& aText, const std::string& aEnd);

}  // namespace sim

#endif  // SIM_OPTION_VALUES_H
