#include "LogRecord.h"

namespace positioning {
namespace internals {

const TLogFacility gLogFacility = {&logging::IControl(), &logging::internals::ILog()};

}  // namespace internals
}  // namespace positioning
