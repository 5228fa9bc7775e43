// Numbers written into the drive files' lines: the short way of writing fixed decimals
// must give the library's text to the byte, since result files are compared by hash.
#include <gtest/gtest.h>

#include <stdint.h>

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>

#include "CsvText.h"

namespace {

using sim::CLineBuilder;
using sim::FixedDecimals;

std::string Ours(double aValue, int aDecimals) {
  char text[400];  // the largest double has 309 digits
  return std::string(text, FixedDecimals(text, text + sizeof text, aValue, aDecimals));
}

std::string Library(double aValue, int aDecimals) {
  char text[400];  // the largest double has 309 digits
  const auto written = std::to_chars(text, text + sizeof text, aValue, std::chars_format::fixed, aDecimals);
  return std::string(text, written.ptr);
}

TEST(CsvTextTest, FixedDecimalsOfValuesOfEveryMagnitudeMatchTheLibrary) {
  std::mt19937_64 random(13);
  std::uniform_real_distribution<double> magnitude(-12.0, 12.0);
  int compared = 0;
  for (int i = 0; i < 20000; ++i) {
    const double value = (i % 2 == 0 ? 1 : -1) * std::pow(10.0, magnitude(random));
    for (int decimals = 0; decimals <= 9; ++decimals) {
      ASSERT_EQ(Library(value, decimals), Ours(value, decimals))
          << "value " << value << ", " << decimals << " decimals";
      ++compared;
    }
  }
  EXPECT_EQ(200000, compared);
}

TEST(CsvTextTest, FixedDecimalsOfRandomBitPatternsMatchTheLibrary) {
  std::mt19937_64 random(29);
  for (int i = 0; i < 100000; ++i) {
    // Exponents around the short way's limits: tiny, subnormal and up to 2^40.
    uint64_t bits = random() & ~(uint64_t{0x7ff} << 52);
    bits |= (random() % 1064) << 52;
    double value = 0;
    memcpy(&value, &bits, sizeof value);
    const int decimals = static_cast<int>(random() % 5);
    ASSERT_EQ(Library(value, decimals), Ours(value, decimals)) << "bits " << std::hex << bits;
  }
}

TEST(CsvTextTest, FixedDecimalsRoundExactTiesToEven) {
  EXPECT_EQ("0.062", Ours(0.0625, 3));
  EXPECT_EQ("0.188", Ours(0.1875, 3));
  EXPECT_EQ("-0.062", Ours(-0.0625, 3));
  EXPECT_EQ("2", Ours(2.5, 0));
  EXPECT_EQ("4", Ours(3.5, 0));
  EXPECT_EQ("1.12", Ours(1.125, 2));
  EXPECT_EQ("1.38", Ours(1.375, 2));
  // Dyadic values with short fractions: every exact tie the short way can meet.
  for (int numerator = -1024; numerator <= 1024; ++numerator) {
    for (int denominator : {2, 4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048, 4096}) {
      const double value = static_cast<double>(numerator) / denominator + 1000;
      for (int decimals = 0; decimals <= 3; ++decimals) ASSERT_EQ(Library(value, decimals), Ours(value, decimals));
    }
  }
}

TEST(CsvTextTest, FixedDecimalsAtTheEdgesMatchTheLibrary) {
  const double limit = 1073741824.0;  // 2^30: the short way ends here
  for (double value :
       {0.0, -0.0, 5e-324, -5e-324, 2.2250738585072014e-308, 1e-300, 0.0005, 0.00049999999999999, 0.9995,
        0.99949999999999994, 9.9995, 999999.9995, std::nextafter(limit, 0.0), limit, -std::nextafter(limit, 0.0),
        std::nextafter(limit, 2 * limit), 1e300, std::numeric_limits<double>::max()}) {
    for (int decimals = 0; decimals <= 9; ++decimals) {
      EXPECT_EQ(Library(value, decimals), Ours(value, decimals))
          << "value " << value << ", " << decimals << " decimals";
    }
  }
  EXPECT_EQ(Library(std::numeric_limits<double>::infinity(), 3), Ours(std::numeric_limits<double>::infinity(), 3));
  EXPECT_EQ(Library(-std::numeric_limits<double>::quiet_NaN(), 3), Ours(-std::numeric_limits<double>::quiet_NaN(), 3));
}

TEST(CsvTextTest, FixedDecimalsThatDoNotFitWriteNothing) {
  char text[4] = {'x', 'x', 'x', 'x'};
  EXPECT_EQ(text, FixedDecimals(text, text + sizeof text, 12345.678, 3));
  EXPECT_EQ(text, FixedDecimals(text, text + sizeof text, 1e20, 3));
  EXPECT_EQ('x', text[0]);
}

TEST(CsvTextTest, ALineWritesValuesThatRoundToZeroWithoutASign) {
  char* content = nullptr;
  size_t size = 0;
  FILE* file = open_memstream(&content, &size);
  ASSERT_NE(nullptr, file);
  CLineBuilder line;
  line.Fixed(-0.0004, 3);
  line.Char(',');
  line.Fixed(-0.0006, 3);
  line.Char(',');
  line.Unsigned(42);
  line.WriteTo(file);
  fclose(file);
  EXPECT_EQ("0.000,-0.001,42\n", std::string(content, size));
  free(content);
}

}  // namespace
