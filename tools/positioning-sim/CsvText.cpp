#include "CsvText.h"

#include <charconv>
#include <cmath>
#include <cstring>

namespace sim {

std::string_view TrimmedView(std::string_view aText) {
  const size_t begin = aText.find_first_not_of(" \t\r");
  if (begin == std::string_view::npos) return std::string_view();
  return aText.substr(begin, aText.find_last_not_of(" \t\r") - begin + 1);
}

void SplitFields(const std::string& aLine, std::vector<std::string_view>& aFields) {
  aFields.clear();
  std::string_view rest(aLine);
  for (;;) {
    const size_t comma = rest.find(',');
    aFields.push_back(TrimmedView(rest.substr(0, comma)));
    if (comma == std::string_view::npos) return;
    rest.remove_prefix(comma + 1);
  }
}

bool QuickReal(std::string_view aField, double aLargest, double& aValue) {
  double value = 0;
  const auto parsed = std::from_chars(aField.data(), aField.data() + aField.size(), value);
  if (parsed.ec != std::errc() || parsed.ptr != aField.data() + aField.size()) return false;
  if (!std::isfinite(value) || std::fabs(value) > aLargest) return false;
  aValue = value;
  return true;
}

void CLineBuilder::Unsigned(uint64_t aValue) {
  const auto written = std::to_chars(iBuffer + iLength, iBuffer + sizeof iBuffer - 2, aValue);
  iLength = static_cast<size_t>(written.ptr - iBuffer);
}

void CLineBuilder::Fixed(double aValue, int aDecimals) {
  // -0.000 reads oddly: a value that rounds to zero is written as zero.
  static const double kHalfUnit[] = {0.5, 0.05, 5e-3, 5e-4, 5e-5, 5e-6, 5e-7, 5e-8, 5e-9, 5e-10};
  if (aDecimals >= 0 && aDecimals <= 9 && std::fabs(aValue) < kHalfUnit[aDecimals]) aValue = 0;
  const auto written =
      std::to_chars(iBuffer + iLength, iBuffer + sizeof iBuffer - 2, aValue, std::chars_format::fixed, aDecimals);
  if (written.ec == std::errc()) iLength = static_cast<size_t>(written.ptr - iBuffer);
}

void CLineBuilder::Text(const char* aText) {
  const size_t length = std::min(strlen(aText), sizeof iBuffer - 2 - iLength);
  memcpy(iBuffer + iLength, aText, length);
  iLength += length;
}

void CLineBuilder::WriteTo(FILE* aFile) {
  iBuffer[iLength++] = '\n';
  fwrite(iBuffer, 1, iLength, aFile);
  iLength = 0;
}

}  // namespace sim
