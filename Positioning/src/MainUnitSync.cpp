#include "MainUnitSync.h"

#include "LogRecord.h"
#include "OSAL.h"
#include "PlatformDevice.h"

using positioning::CLogRecord;
using positioning::EError;
using positioning::EInfo;
using positioning::EInterface;

namespace {

const char kFile[] = "Positioning/src/MainUnitSync.cpp";
const uint32_t kClkSyncPin = 7;
const uint32_t kLevelActive = 1;
const uint32_t kLevelNotActive = 0;
const int kPulseWidth = 50000;  // microseconds

}  // namespace

CMainUnitSync* CMainUnitSync::Create(IEventBroker* aBroker) { return new CMainUnitSync(aBroker); }

CMainUnitSync::CMainUnitSync(IEventBroker* aBroker) { CSyncTime::SetEventBroker(aBroker); }

CMainUnitSync::~CMainUnitSync() {}

TBool CMainUnitSync::KickSyncTime() {
  // Shows the previous kick's time: it is read before the kick below refreshes it.
  CLogRecord(EInterface, "virtual TBool CMainUnitSync::KickSyncTime()", kFile, __LINE__)
      .Text("Current Time : ")
      .I64(iCurrentTime);
  IMainUnitIO& mainUnit = CPDDevice::Instance().MainUnitIO();
  CSyncTime::KickSyncTime();

  if (mainUnit.IsPluggedIn() == 0) {
    CLogRecord(EError, "KickSyncTime", kFile, __LINE__).Text("Main Unit not plugged in...");
    return 1;
  }
  if (mainUnit.SetPin(kClkSyncPin, kLevelActive) == 1) {
    CLogRecord(EInfo, "KickSyncTime", kFile, __LINE__).Text("Pin CLK_SYNC is set to Active");
  } else {
    CLogRecord(EError, "KickSyncTime", kFile, __LINE__).Text("Failed to set CLK_SYNC pin to Active");
  }
  platSleep(kPulseWidth);
  if (mainUnit.SetPin(kClkSyncPin, kLevelNotActive) == 1) {
    CLogRecord(EInfo, "KickSyncTime", kFile, __LINE__).Text("Pin CLK_SYNC is set to NotActive");
  } else {
    CLogRecord(EError, "KickSyncTime", kFile, __LINE__).Text("Failed to set CLK_SYNC pin to NotActive");
  }
  return 1;
}
