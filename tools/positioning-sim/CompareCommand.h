// positioning-sim compare A B: two result folders of one drive (--result-dir), or two
// trees of them with the same relative drive keys, compared drive by drive: identical,
// or the first sample that differs and how many do, and which summary figures moved
// and by how much. The sample files are read side by side, a line at a time.
#ifndef SIM_COMPARE_COMMAND_H
#define SIM_COMPARE_COMMAND_H

#include <stdint.h>

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace sim {

struct CompareOptions {
  std::string first;     // A: a result folder or a tree of them
  std::string second;    // B
  std::string jsonPath;  // the comparison as JSON as well ("-": standard output)
  bool quiet = false;    // only the differences and the count
};

// Adds the subcommand to aApp; the values land in aOptions.
CLI::App* AddCompareCommand(CLI::App& aApp, CompareOptions& aOptions);
// Runs the comparison; answers 0 when every drive is identical, 1 when one differs
// (or is in one tree only), 2 on bad input.
int RunCompare(const CompareOptions& aOptions);

// The drive keys under aRoot: the relative folders that hold a summary.json ("." when
// aRoot is a result folder itself), sorted; false with the reason.
bool FindResults(const std::string& aRoot, std::vector<std::string>& aKeys, std::string& aError);

}  // namespace sim

#endif  // SIM_COMPARE_COMMAND_H
