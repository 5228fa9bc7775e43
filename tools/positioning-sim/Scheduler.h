// The event queue of simulated time: actions due at an instant, run in time order.
// At one instant, lower lanes run first, and within a lane the order of scheduling.
#ifndef SIM_SCHEDULER_H
#define SIM_SCHEDULER_H

#include <stdint.h>

#include <functional>
#include <vector>

#include "SimTime.h"

namespace sim {

enum class Lane {
  kBeforeRecords = 0,  // changes that a record sent at the same instant must see
  kRecords = 1,        // the drive's records
  kOther = 2,          // everything else
};

class CScheduler {
 public:
  void At(SimTime aTime, std::function<void()> aAction, Lane aLane = Lane::kOther);
  bool Empty() const { return iQueue.empty(); }
  // Time of the next action; UINT64_MAX when none is due.
  SimTime NextTime() const { return iQueue.empty() ? UINT64_MAX : iQueue.front().time; }
  // Takes the next action off the queue and runs it.
  void RunNext();

 private:
  struct Event {
    SimTime time;
    int lane;
    uint64_t order;
    std::function<void()> action;
    bool operator>(const Event& aOther) const {
      if (time != aOther.time) return time > aOther.time;
      if (lane != aOther.lane) return lane > aOther.lane;
      return order > aOther.order;
    }
  };
  // A heap, earliest first. Not a std::priority_queue: its top can only be copied, and
  // copying an action may allocate.
  std::vector<Event> iQueue;
  uint64_t iOrder = 0;
};

}  // namespace sim

#endif  // SIM_SCHEDULER_H
