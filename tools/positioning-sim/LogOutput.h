// Where the module's log records go: nowhere (the cheapest logger) or readable lines in
// a file; DLT is a unit of its own (DltLogOutput). All behind ILogOutput.
#ifndef SIM_LOG_OUTPUT_H
#define SIM_LOG_OUTPUT_H

#include <stdint.h>
#include <stdio.h>

#include <map>
#include <memory>
#include <string>

namespace sim {

// An attached log destination; detaches when destroyed.
class ILogOutput {
 public:
  virtual ~ILogOutput() {}
  // Detaches and finishes writing; false with the reason when something was lost.
  virtual bool Close(std::string& /*aError*/) { return true; }
};

// Records discarded.
std::unique_ptr<ILogOutput> DiscardLog();
// Readable lines into aFile (which the output closes); aName for messages. With
// aNumberAddresses, an address shows as "addr1", "addr2", ... in the order they first
// appear, so that two runs of one drive write the same bytes whatever the address
// space layout.
std::unique_ptr<ILogOutput> TextLog(FILE* aFile, const std::string& aName, uint32_t aMask,
                                    bool aNumberAddresses = false);

}  // namespace sim

#endif  // SIM_LOG_OUTPUT_H
