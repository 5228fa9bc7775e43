// Drawing with gnuplot without ever putting a user's file name into its input: the
// data and the script live in a private temporary folder, gnuplot draws there to a
// fixed name, and the picture is then copied into the output opened before the run.
#ifndef SIM_GNUPLOT_H
#define SIM_GNUPLOT_H

#include <stdio.h>

#include <string>

namespace sim {

class CGnuplotFolder {
 public:
  ~CGnuplotFolder();  // removes the folder and what was made in it
  // Makes the folder; false with the reason.
  bool Make(std::string& aError);
  // A file in the folder, opened for writing and remembered for removal; null with
  // the reason.
  FILE* Create(const char* aName, std::string& aError);
  // Runs gnuplot on aScript (which must set its output to 'plot.out'), then copies
  // the picture into aOutput; false with gnuplot's own words or the reason.
  bool Draw(const std::string& aScript, FILE* aOutput, std::string& aError);

 private:
  std::string File(const std::string& aName) const { return iFolder + "/" + aName; }

  std::string iFolder;
  std::string iNames;  // made in the folder, each followed by '\n'
};

}  // namespace sim

#endif  // SIM_GNUPLOT_H
