// positioning-sim import: a recorded drive (CSV of signals with named columns and
// declared units) becomes a trace the simulator replays, and a truth file where the
// drive carries a reference pose. The outputs are written beside their final names
// and only take them when the whole input was read, so a bad row loses nothing.
#ifndef SIM_IMPORT_COMMAND_H
#define SIM_IMPORT_COMMAND_H

#include <stdint.h>

#include <string>

#include "SignalTable.h"

namespace CLI {
class App;
}

namespace sim {

struct ImportOptions {
  std::string inputPath;
  std::string tracePath;
  std::string truthPath;
  std::string diversity = "CAN";
  uint32_t periodMs = 200;
  bool hasFirstStamp = false;
  uint64_t firstStamp = 0;
  // As given on the command line, "NAME:UNIT[:CONVENTION]"; resolved into columns.
  std::string time, rate, speed, distance, direction, x, y, latitude, longitude, heading;
  ImportColumns columns;
};

// Adds the subcommand to aApp; the values land in aOptions.
CLI::App* AddImportCommand(CLI::App& aApp, ImportOptions& aOptions);
// Checks what was given and resolves units and columns; false with the reason.
bool ResolveImportOptions(ImportOptions& aOptions, std::string& aError);
// Runs the import; answers the exit status.
int RunImport(const ImportOptions& aOptions);

}  // namespace sim

#endif  // SIM_IMPORT_COMMAND_H
