// The run's output files, all opened (and so checked) before the run starts: no two
// outputs on one file, no output on an input, every write error reported.
#ifndef SIM_OUTPUT_FILES_H
#define SIM_OUTPUT_FILES_H

#include <stdio.h>

#include <string>
#include <vector>

namespace sim {

// An output the options ask for: the option that names it (for messages) and its path.
struct OutputRequest {
  std::string option;
  std::string path;
};

// False, with the two options in aError, when two outputs name one file or an output
// names one of aInputs. Devices (/dev/null) may be named more than once, standard
// output ("-") only once.
bool OutputsAreDistinct(const std::vector<OutputRequest>& aOutputs, const std::vector<std::string>& aInputs,
                        std::string& aError);

// Opens aPath for writing ("-": standard output); null with "PATH: reason" in aError.
FILE* OpenOutput(const std::string& aPath, std::string& aError);
// Flushes and closes; false with "PATH: reason" when anything written was lost.
bool CloseOutput(FILE* aFile, const std::string& aPath, std::string& aError);
// Closes an output given up on (an error elsewhere), without a word on what it lost.
void DiscardOutput(FILE* aFile);

}  // namespace sim

#endif  // SIM_OUTPUT_FILES_H
