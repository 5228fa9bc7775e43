// Where positioning-sim sends the module's log records.
#ifndef SIM_LOG_SINKS_H
#define SIM_LOG_SINKS_H

#include <stdint.h>

#include <memory>
#include <string>

namespace sim {

// An attached log destination; detaches (and closes) when destroyed.
class ILogOutput {
 public:
  virtual ~ILogOutput() {}
};

// aTarget: empty (records discarded: the cheapest logger), "dlt" (a running DLT
// daemon), or a file for readable lines. aMask selects categories.
bool OpenLogOutput(const std::string& aTarget, uint32_t aMask, std::unique_ptr<ILogOutput>& aOutput,
                   std::string& aError);

}  // namespace sim

#endif  // SIM_LOG_SINKS_H
