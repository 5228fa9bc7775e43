// The few text operations the drive files need row by row, without allocating:
// fields of a CSV row as views, a number read straight from a field, numbers written
// straight into a line. Long drives read and write millions of rows.
#ifndef SIM_CSV_TEXT_H
#define SIM_CSV_TEXT_H

#include <stdint.h>
#include <stdio.h>

#include <string>
#include <string_view>
#include <vector>

namespace sim {

// aText without blanks, tabs and carriage returns at either end.
std::string_view TrimmedView(std::string_view aText);
// The comma-separated fields of aLine, trimmed, as views into it (which must outlive
// them); aFields is reused from row to row.
void SplitFields(const std::string& aLine, std::vector<std::string_view>& aFields);
// A decimal number that is the whole field, finite and within +-aLargest. False for
// anything else: the caller then asks the one parser (NumberParse) for its words.
bool QuickReal(std::string_view aField, double aLargest, double& aValue);
// aValue with aDecimals decimals into [aAt, aEnd), rounded as std::to_chars rounds (to
// nearest on the exact binary value, ties to even), so the text is the same to the
// byte. Answers the end, or aAt when the text does not fit.
char* FixedDecimals(char* aAt, char* aEnd, double aValue, int aDecimals);

// A line of fields built in place, then written at once.
class CLineBuilder {
 public:
  void Clear() { iLength = 0; }
  void Unsigned(uint64_t aValue);
  void Fixed(double aValue, int aDecimals);  // e.g. 12.345 with 3 decimals
  void Text(const char* aText);
  void Char(char aChar);
  // Appends the line end and writes the line.
  void WriteTo(FILE* aFile);

 private:
  char iBuffer[512] = {};
  size_t iLength = 0;
};

}  // namespace sim

#endif  // SIM_CSV_TEXT_H
