// Reports a broken invariant on standard output. Not fatal: the caller carries on.
#ifndef POSITIONING_ASSERTION_H
#define POSITIONING_ASSERTION_H

namespace positioning {

// Prints "\nAssertion failed (<expression>) in file <file>, line <line>\n".
void ReportAssertion(const char* aExpression, const char* aFile, int aLine);

}  // namespace positioning

#endif  // POSITIONING_ASSERTION_H
