#include "SyncTime.h"

#include "LogRecord.h"
#include "OSAL.h"

using positioning::CLogRecord;
using positioning::EInfo;
using positioning::EInfo2;
using positioning::EInterface;

namespace {

const char kFile[] = "Positioning/src/SyncTime.cpp";
const uint32_t kSyncEventClass = 0;
const uint32_t kSyncEventId = 10;
const uint32_t kFastPeriod = 1000;
const uint32_t kSlowPeriod = 30000;

// The repeat word means nothing to an unregistration; it is zeroed rather than left
// for the broker to read uninitialised.
const TEventRegistration kUnregistration = {kSyncEventClass, kSyncEventId, 0, 0};

}  // namespace

CSyncTime::CSyncTime() : iCurrentTime(0), iSyncedTime(0), iEventBroker(NULL) { OSALTickInit(); }

CSyncTime::~CSyncTime() {
  if (iEventBroker != NULL) iEventBroker->UnregisterEventObserver(kUnregistration, this);
}

void CSyncTime::OnEvent(const TEvent& aEvent) {
  CLogRecord(EInterface, "virtual void CSyncTime::OnEvent(const TEvent&)", kFile, __LINE__).Text("OnEvent");
  if (aEvent.eventClass != kSyncEventClass || aEvent.eventId != kSyncEventId) return;
  CLogRecord(EInfo, "OnEvent", kFile, __LINE__).Text("KickSyncTime");
  KickSyncTime();
}

void CSyncTime::SetEventBroker(IEventBroker* aBroker) {
  CLogRecord(EInfo, "SetEventBroker", kFile, __LINE__).Text("SetEventBroker");
  iEventBroker = aBroker;
  if (aBroker == NULL) return;
  const TEventRegistration registration = {kSyncEventClass, kSyncEventId, kFastPeriod, 1};
  aBroker->RegisterEventObserver(registration, this);
}

TBool CSyncTime::KickSyncTime() {
  CLogRecord(EInterface, "virtual TBool CSyncTime::KickSyncTime()", kFile, __LINE__);
  getDateTimeInMS();
  return 1;
}

int64_t CSyncTime::getDateTimeInMS() {
  iCurrentTime = static_cast<int64_t>(OSALTickCount());
  CLogRecord(EInfo, "getDateTimeInMS", kFile, __LINE__).Text("iCurrentTime = ").I64(iCurrentTime);
  return iCurrentTime;
}

TAny CSyncTime::SetMeasuredTime(txdr_uint32 aTime) {
  CLogRecord(EInterface, "virtual TAny CSyncTime::SetMeasuredTime(txdr_uint32)", kFile, __LINE__)
      .Text("iCurrentTime=")
      .I64(iCurrentTime)
      .Text(" aTime=")
      .U32(aTime);

  // Tested before the update, so the first measurement switches whether or not it is
  // accepted; while the offset stays 0 every measurement restarts the slow timer.
  if (iSyncedTime == 0 && iEventBroker != NULL) {
    iEventBroker->UnregisterEventObserver(kUnregistration, this);
    const TEventRegistration registration = {kSyncEventClass, kSyncEventId, kSlowPeriod, 1};
    iEventBroker->RegisterEventObserver(registration, this);
    CLogRecord(EInfo2, "SetMeasuredTime", kFile, __LINE__)
        .Text("iCurrentTime=")
        .I64(iCurrentTime)
        .Text(" aTime=")
        .U32(aTime);
  }

  const int64_t peerTime = static_cast<int64_t>(static_cast<uint64_t>(aTime));
  if (iCurrentTime > peerTime) iSyncedTime = iCurrentTime - peerTime;

  CLogRecord(EInfo2, "SetMeasuredTime", kFile, __LINE__).Text("iSyncedTime=").I64(iSyncedTime);
}
