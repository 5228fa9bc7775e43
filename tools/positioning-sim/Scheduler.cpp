#include "Scheduler.h"

#include <utility>

namespace sim {

void CScheduler::At(SimTime aTime, std::function<void()> aAction, Lane aLane) {
  iQueue.push({aTime, static_cast<int>(aLane), iOrder++, std::move(aAction)});
}

void CScheduler::RunNext() {
  Event event = iQueue.top();
  iQueue.pop();
  event.action();
}

}  // namespace sim
