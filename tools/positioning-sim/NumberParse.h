// The one way positioning-sim reads numbers from text (options and trace fields):
// std::from_chars over the whole text, with the type's full range and a stated range.
#ifndef SIM_NUMBER_PARSE_H
#define SIM_NUMBER_PARSE_H

#include <stdint.h>

#include <string>

namespace sim {

// A whole number in [aLow, aHigh]; surrounding blanks are allowed. On failure answers
// false with the reason in aWhy ("not a whole number: 'x'", "out of range (...)").
bool ParseInteger(const std::string& aText, int64_t aLow, int64_t aHigh, int64_t& aValue, std::string& aWhy);
bool ParseUnsigned(const std::string& aText, uint64_t aHigh, uint64_t& aValue, std::string& aWhy);
// A finite decimal number in [aLow, aHigh] (no nan, no inf).
bool ParseReal(const std::string& aText, double aLow, double aHigh, double& aValue, std::string& aWhy);

}  // namespace sim

#endif  // SIM_NUMBER_PARSE_H
