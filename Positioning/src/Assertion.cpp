#include "Assertion.h"

#include <stdio.h>

namespace positioning {

void ReportAssertion(const char* aExpression, const char* aFile, int aLine) {
  printf("\nAssertion failed (%s) in file %s, line %d\n", aExpression, aFile, aLine);
}

}  // namespace positioning
