// A trace's header row: which source's records follow, and when it is neither, what
// exactly is wrong with it (a byte order mark, a column in the wrong case, a column
// missing or extra, columns out of order), so that a hand-made trace is quick to fix.
#ifndef SIM_TRACE_HEADER_H
#define SIM_TRACE_HEADER_H

#include <string>
#include <vector>

#include "DriveSource.h"

namespace sim {

// The columns of a kind's trace, in order.
const std::vector<std::string>& TraceColumns(SourceKind aKind);
// The fields of a CSV row (no quoting: trace fields are numbers).
std::vector<std::string> SplitRow(const std::string& aLine);
// Whether aLine is a header row; false with what is wrong in aWhy.
bool ReadTraceHeader(const std::string& aLine, SourceKind& aKind, std::string& aWhy);

}  // namespace sim

#endif  // SIM_TRACE_HEADER_H
