#include "LogSinks.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "LogFacility.h"
#include "LogSink.h"
#include "LoggedRecord.h"

#ifdef POSITIONING_SIM_DLT
#include <dlt.h>
#endif

namespace sim {

namespace {

// Nothing kept, nothing written.
class CDiscard : public ILogOutput {
 public:
  CDiscard() { host::CLogFacility::Instance().SetDiscard(true); }
  ~CDiscard() override { host::CLogFacility::Instance().SetDiscard(false); }
};

// Readable lines in a file.
class CTextFile : public ILogOutput {
 public:
  CTextFile(FILE* aFile, uint32_t aMask) : iFile(aFile), iSink(aFile, aMask) {
    host::CLogFacility& facility = host::CLogFacility::Instance();
    facility.SetKeepRecords(false);
    facility.AddSink(&iSink);
  }
  ~CTextFile() override {
    host::CLogFacility::Instance().RemoveSink(&iSink);
    fclose(iFile);
  }

 private:
  FILE* iFile;
  host::CTextLogSink iSink;
};

#ifdef POSITIONING_SIM_DLT
// Records to a running DLT daemon: application PSIM, context POSI for the module's
// own records, FFW for the framework's.
class CDlt : public ILogOutput, public host::ILogSink {
 public:
  explicit CDlt(uint32_t aMask) : iMask(aMask) {
    DLT_REGISTER_APP("PSIM", "positioning-sim");
    // Every level reaches the daemon; --log-level is the filter.
    DLT_REGISTER_CONTEXT_LL_TS(iModule, "POSI", "positioning module", DLT_LOG_VERBOSE, DLT_TRACE_STATUS_OFF);
    DLT_REGISTER_CONTEXT_LL_TS(iFramework, "FFW", "feature framework adapters", DLT_LOG_VERBOSE, DLT_TRACE_STATUS_OFF);
    host::CLogFacility& facility = host::CLogFacility::Instance();
    facility.SetKeepRecords(false);
    facility.AddSink(this);
  }
  ~CDlt() override {
    host::CLogFacility::Instance().RemoveSink(this);
    DLT_UNREGISTER_CONTEXT(iFramework);
    DLT_UNREGISTER_CONTEXT(iModule);
    DLT_UNREGISTER_APP();
  }
  void OnRecord(const host::LoggedRecord& aRecord) override {
    const uint32_t category = host::CategoryNumber(aRecord.category);
    if ((category & iMask) == 0) return;
    DltLogLevelType level = DLT_LOG_VERBOSE;
    if (category == 1) level = DLT_LOG_ERROR;
    if (category == 4) level = DLT_LOG_INFO;
    if (category == 8) level = DLT_LOG_DEBUG;
    const std::string text =
        aRecord.function + " " + aRecord.file + ":" + std::to_string(aRecord.line) + " " + aRecord.Text();
    DltContext& context = aRecord.module == "logging::FeatureFw" ? iFramework : iModule;
    DLT_LOG(context, level, DLT_STRING(text.c_str()));
  }

 private:
  uint32_t iMask;
  DltContext iModule;
  DltContext iFramework;
};
#endif

}  // namespace

bool OpenLogOutput(const std::string& aTarget, uint32_t aMask, std::unique_ptr<ILogOutput>& aOutput,
                   std::string& aError) {
  if (aTarget.empty()) {
    aOutput.reset(new CDiscard);
    return true;
  }
  if (aTarget == "dlt") {
#ifdef POSITIONING_SIM_DLT
    aOutput.reset(new CDlt(aMask));
    return true;
#else
    aError = "--log dlt: this build has no DLT support (install libdlt-dev and rebuild)";
    return false;
#endif
  }
  FILE* file = fopen(aTarget.c_str(), "w");
  if (file == nullptr) {
    aError = aTarget + ": " + strerror(errno);
    return false;
  }
  aOutput.reset(new CTextFile(file, aMask));
  return true;
}

}  // namespace sim
