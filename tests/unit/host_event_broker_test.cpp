// The simulated daemon's event broker and clock: timers fire in order at their due
// times, repeat, and stop when unregistered.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "ContractConstants.h"
#include "EventBroker.h"
#include "SimulatedOsal.h"
#include "TestHost.h"

namespace {

using host::CSimulatedOsal;

// Notes every event with the clock at delivery; may act inside OnEvent.
class Observer : public IEventObserver {
 public:
  explicit Observer(std::vector<std::string>& aJournal, const std::string& aName) : iJournal(aJournal), iName(aName) {}
  void OnEvent(const TEvent& aEvent) override {
    iJournal.push_back(iName + "@" + std::to_string(CSimulatedOsal::Instance().Now()) + ":" +
                       std::to_string(aEvent.eventClass) + "/" + std::to_string(aEvent.eventId));
    if (iInside) iInside();
  }
  std::function<void()> iInside;

 private:
  std::vector<std::string>& iJournal;
  std::string iName;
};

class EventBrokerTest : public testing_host::HostTest {
 protected:
  TBool Register(Observer& aObserver, uint32_t aPeriod, uint32_t aRepeat = 1, uint32_t aId = 10) {
    return iEventBroker.RegisterEventObserver(TEventRegistration{0, aId, aPeriod, aRepeat}, &aObserver);
  }
  std::vector<std::string> iJournal;
  Observer iA{iJournal, "A"};
  Observer iB{iJournal, "B"};
};

TEST_F(EventBrokerTest, PeriodicTimerFiresEveryPeriodWithTheClockAtItsDueTime) {
  CSimulatedOsal::Instance().SetNow(500);
  Register(iA, 1000);
  iEventBroker.RunUntil(3600);
  EXPECT_EQ((std::vector<std::string>{"A@1500:0/10", "A@2500:0/10", "A@3500:0/10"}), iJournal);
  EXPECT_EQ(3600u, CSimulatedOsal::Instance().Now());
}

TEST_F(EventBrokerTest, TimersOfDifferentPeriodsInterleaveInTimeOrder) {
  Register(iA, 300);
  Register(iB, 200);
  iEventBroker.Advance(600);
  EXPECT_EQ((std::vector<std::string>{"B@200:0/10", "A@300:0/10", "B@400:0/10", "A@600:0/10", "B@600:0/10"}), iJournal);
}

TEST_F(EventBrokerTest, OneShotTimerFiresOnce) {
  Register(iA, 100, 0);
  iEventBroker.Advance(1000);
  EXPECT_EQ(1u, iJournal.size());
  EXPECT_TRUE(iEventBroker.Timers().empty());
}

TEST_F(EventBrokerTest, UnregisterStopsEveryTimerOfThatObserverAndEvent) {
  Register(iA, 100);
  Register(iA, 100);
  Register(iA, 100, 1, 11);
  Register(iB, 100);
  EXPECT_EQ(1, iEventBroker.UnregisterEventObserver(
                   TEventRegistration{contract::kSyncEventClass, contract::kSyncEventId, 0, 12345}, &iA));
  iEventBroker.Advance(100);
  EXPECT_EQ((std::vector<std::string>{"A@100:0/11", "B@100:0/10"}), iJournal);
  EXPECT_EQ(0, iEventBroker.UnregisterEventObserver(
                   TEventRegistration{contract::kSyncEventClass, contract::kSyncEventId, 0, 0}, &iA));
}

TEST_F(EventBrokerTest, ObserverMayReRegisterInsideItsEvent) {
  Register(iA, 1000);
  iA.iInside = [this] {
    iEventBroker.UnregisterEventObserver(TEventRegistration{contract::kSyncEventClass, contract::kSyncEventId, 0, 0},
                                         &iA);
    Register(iA, 30000);
    iA.iInside = nullptr;
  };
  iEventBroker.RunUntil(62000);
  EXPECT_EQ((std::vector<std::string>{"A@1000:0/10", "A@31000:0/10", "A@61000:0/10"}), iJournal);
}

TEST_F(EventBrokerTest, CallsAreRecordedWithTheClock) {
  CSimulatedOsal::Instance().SetNow(42);
  Register(iA, 1000);
  iEventBroker.UnregisterEventObserver(TEventRegistration{contract::kSyncEventClass, contract::kSyncEventId, 0, 0},
                                       &iA);
  ASSERT_EQ(2u, iEventBroker.Calls().size());
  EXPECT_TRUE(iEventBroker.Calls()[0].registering);
  EXPECT_EQ(1000u, iEventBroker.Calls()[0].period);
  EXPECT_EQ(1u, iEventBroker.Calls()[0].repeat);
  EXPECT_EQ(42u, iEventBroker.Calls()[0].tick);
  EXPECT_FALSE(iEventBroker.Calls()[1].registering);
}

TEST_F(EventBrokerTest, NextDueNamesTheEarliestTimer) {
  EXPECT_EQ(UINT64_MAX, iEventBroker.NextDue());
  Register(iA, 700);
  Register(iB, 300);
  EXPECT_EQ(300u, iEventBroker.NextDue());
}

TEST_F(EventBrokerTest, DeliverHandsAnEventOverAtOnce) {
  iEventBroker.Deliver(&iB, 3, 4);
  EXPECT_EQ((std::vector<std::string>{"B@0:3/4"}), iJournal);
}

TEST_F(EventBrokerTest, FiredObserverIsToldAfterEachDelivery) {
  std::vector<uint64_t> fired;
  iEventBroker.SetOnFired([&](const host::Timer& aTimer) { fired.push_back(aTimer.period); });
  Register(iA, 250);
  iEventBroker.Advance(500);
  EXPECT_EQ((std::vector<uint64_t>{250, 250}), fired);
  EXPECT_EQ(2u, iEventBroker.FiredCount());
}

}  // namespace
