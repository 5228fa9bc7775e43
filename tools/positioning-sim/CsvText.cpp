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

namespace {

// FixedDecimals below 2^30 with kDecimals of 0 to 3, in whole numbers: the mantissa
// times 10^kDecimals stays within 63 bits, so the rounding is exact. The scale is a
// constant, so that no division is left.
template <int kDecimals>
char* ShortFixed(char* aAt, char* aEnd, double aValue) {
  constexpr uint64_t kScale = kDecimals == 0 ? 1 : kDecimals == 1 ? 10 : kDecimals == 2 ? 100 : 1000;
  uint64_t bits = 0;
  memcpy(&bits, &aValue, sizeof bits);
  const int biased = static_cast<int>((bits >> 52) & 0x7ff);
  uint64_t mantissa = bits & ((uint64_t{1} << 52) - 1);
  if (biased != 0) mantissa |= uint64_t{1} << 52;
  // |aValue| = mantissa / 2^shift, and shift >= 23 below 2^30.
  const int shift = biased != 0 ? 1075 - biased : 1074;
  uint64_t units = 0;  // |aValue| * kScale, rounded
  if (shift < 64) {
    const uint64_t scaled = mantissa * kScale;
    const uint64_t half = uint64_t{1} << (shift - 1);
    const uint64_t rest = scaled & ((half << 1) - 1);
    units = scaled >> shift;
    if (rest > half || (rest == half && (units & 1) != 0)) ++units;
  }  // else below 2^-11 / kScale: less than half a unit
  char* at = aAt;
  if (std::signbit(aValue)) *at++ = '-';
  at = std::to_chars(at, aEnd, units / kScale).ptr;
  if (kDecimals == 0) return at;
  *at++ = '.';
  uint64_t fraction = units % kScale;
  for (int i = kDecimals; i > 0; --i) {
    at[i - 1] = static_cast<char>('0' + fraction % 10);
    fraction /= 10;
  }
  return at + kDecimals;
}

}  // namespace

char* FixedDecimals(char* aAt, char* aEnd, double aValue, int aDecimals) {
  // A path's metres and degrees take the short way; the library's is exact too, but
  // several times slower.
  if (std::fabs(aValue) < 1073741824.0 && aEnd - aAt >= 32) {
    switch (aDecimals) {
      case 0:
        return ShortFixed<0>(aAt, aEnd, aValue);
      case 1:
        return ShortFixed<1>(aAt, aEnd, aValue);
      case 2:
        return ShortFixed<2>(aAt, aEnd, aValue);
      case 3:
        return ShortFixed<3>(aAt, aEnd, aValue);
      default:
        break;
    }
  }
  const auto written = std::to_chars(aAt, aEnd, aValue, std::chars_format::fixed, aDecimals);
  return written.ec == std::errc() ? written.ptr : aAt;
}

void CLineBuilder::Unsigned(uint64_t aValue) {
  const auto written = std::to_chars(iBuffer + iLength, iBuffer + sizeof iBuffer - 2, aValue);
  iLength = static_cast<size_t>(written.ptr - iBuffer);
}

void CLineBuilder::Fixed(double aValue, int aDecimals) {
  // -0.000 reads oddly: a value that rounds to zero is written as zero.
  static const double kHalfUnit[] = {0.5, 0.05, 5e-3, 5e-4, 5e-5, 5e-6, 5e-7, 5e-8, 5e-9, 5e-10};
  if (aDecimals >= 0 && aDecimals <= 9 && std::fabs(aValue) < kHalfUnit[aDecimals]) aValue = 0;
  iLength =
      static_cast<size_t>(FixedDecimals(iBuffer + iLength, iBuffer + sizeof iBuffer - 2, aValue, aDecimals) - iBuffer);
}

void CLineBuilder::Text(const char* aText) {
  const size_t length = std::min(strlen(aText), sizeof iBuffer - 2 - iLength);
  memcpy(iBuffer + iLength, aText, length);
  iLength += length;
}

void CLineBuilder::Char(char aChar) {
  if (iLength < sizeof iBuffer - 2) iBuffer[iLength++] = aChar;
}

void CLineBuilder::WriteTo(FILE* aFile) {
  iBuffer[iLength++] = '\n';
  fwrite(iBuffer, 1, iLength, aFile);
  iLength = 0;
}

}  // namespace sim
