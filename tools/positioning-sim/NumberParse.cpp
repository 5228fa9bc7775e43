#include "NumberParse.h"

#include <stdio.h>

#include <charconv>
#include <cmath>
#include <system_error>

namespace sim {

namespace {

// The text without blanks around it.
std::string Trimmed(const std::string& aText) {
  const size_t begin = aText.find_first_not_of(" \t\r");
  if (begin == std::string::npos) return std::string();
  return aText.substr(begin, aText.find_last_not_of(" \t\r") - begin + 1);
}

template <typename T>
std::string RangeText(T aLow, T aHigh) {
  return "out of range (" + std::to_string(aLow) + " to " + std::to_string(aHigh) + ")";
}

// from_chars over the whole of aText; the errc says why not.
template <typename T>
std::errc ParseWhole(const std::string& aText, T& aValue) {
  const char* begin = aText.data();
  const char* end = begin + aText.size();
  const std::from_chars_result result = std::from_chars(begin, end, aValue);
  if (result.ec != std::errc()) return result.ec;
  return result.ptr == end ? std::errc() : std::errc::invalid_argument;
}

}  // namespace

bool ParseInteger(const std::string& aText, int64_t aLow, int64_t aHigh, int64_t& aValue, std::string& aWhy) {
  const std::string text = Trimmed(aText);
  if (text.empty()) return aWhy = "empty field", false;
  int64_t value = 0;
  const std::errc error = ParseWhole(text, value);
  if (error == std::errc::invalid_argument) return aWhy = "not a whole number: '" + aText + "'", false;
  if (error != std::errc() || value < aLow || value > aHigh)
    return aWhy = RangeText(aLow, aHigh) + ": '" + aText + "'", false;
  aValue = value;
  return true;
}

bool ParseUnsigned(const std::string& aText, uint64_t aHigh, uint64_t& aValue, std::string& aWhy) {
  const std::string text = Trimmed(aText);
  if (text.empty()) return aWhy = "empty field", false;
  const std::string range = RangeText<uint64_t>(0, aHigh) + ": '" + aText + "'";
  if (text[0] == '-') {
    int64_t negative = 0;
    return aWhy = ParseWhole(text, negative) == std::errc::invalid_argument ? "not a whole number: '" + aText + "'"
                                                                            : range,
           false;
  }
  uint64_t value = 0;
  const std::errc error = ParseWhole(text, value);
  if (error == std::errc::invalid_argument) return aWhy = "not a whole number: '" + aText + "'", false;
  if (error != std::errc() || value > aHigh) return aWhy = range, false;
  aValue = value;
  return true;
}

bool ParseReal(const std::string& aText, double aLow, double aHigh, double& aValue, std::string& aWhy) {
  const std::string text = Trimmed(aText);
  if (text.empty()) return aWhy = "empty value", false;
  double value = 0;
  const std::errc error = ParseWhole(text, value);
  if (error == std::errc::invalid_argument || !std::isfinite(value))
    return aWhy = "not a number: '" + aText + "'", false;
  if (error != std::errc() || value < aLow || value > aHigh) {
    char range[96];
    snprintf(range, sizeof range, "out of range (%g to %g)", aLow, aHigh);
    return aWhy = std::string(range) + ": '" + aText + "'", false;
  }
  aValue = value;
  return true;
}

}  // namespace sim
