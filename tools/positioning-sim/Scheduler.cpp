#include "Scheduler.h"

#include <algorithm>
#include <utility>

namespace sim {

void CScheduler::At(SimTime aTime, std::function<void()> aAction, Lane aLane) {
  iQueue.push_back({aTime, static_cast<int>(aLane), iOrder++, std::move(aAction)});
  std::push_heap(iQueue.begin(), iQueue.end(), std::greater<Event>());
}

void CScheduler::RunNext() {
  std::pop_heap(iQueue.begin(), iQueue.end(), std::greater<Event>());
  Event event = std::move(iQueue.back());
  iQueue.pop_back();
  event.action();
}

}  // namespace sim
