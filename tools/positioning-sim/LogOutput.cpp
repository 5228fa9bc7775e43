#include "LogOutput.h"

#include "LogFacility.h"
#include "LogSink.h"
#include "OutputFiles.h"

namespace sim {

namespace {

class CDiscard : public ILogOutput {
 public:
  CDiscard() { host::CLogFacility::Instance().SetDiscard(true); }
  ~CDiscard() override { host::CLogFacility::Instance().SetDiscard(false); }
};

class CTextFile : public ILogOutput {
 public:
  CTextFile(FILE* aFile, const std::string& aName, uint32_t aMask) : iFile(aFile), iName(aName), iSink(aFile, aMask) {
    host::CLogFacility& facility = host::CLogFacility::Instance();
    facility.SetKeepRecords(false);
    facility.AddSink(&iSink);
  }
  ~CTextFile() override {
    std::string ignored;
    Close(ignored);
  }
  bool Close(std::string& aError) override {
    if (iFile == nullptr) return true;
    host::CLogFacility::Instance().RemoveSink(&iSink);
    FILE* file = iFile;
    iFile = nullptr;
    return CloseOutput(file, iName, aError);
  }

 private:
  FILE* iFile;
  std::string iName;
  host::CTextLogSink iSink;
};

}  // namespace

std::unique_ptr<ILogOutput> DiscardLog() { return std::unique_ptr<ILogOutput>(new CDiscard); }

std::unique_ptr<ILogOutput> TextLog(FILE* aFile, const std::string& aName, uint32_t aMask) {
  return std::unique_ptr<ILogOutput>(new CTextFile(aFile, aName, aMask));
}

}  // namespace sim
