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

// The text sink's lines with every address replaced by its number of first appearance.
class CNumberedAddressSink : public host::ILogSink {
 public:
  CNumberedAddressSink(FILE* aFile, uint32_t aMask) : iFile(aFile), iMask(aMask) {}
  uint32_t Categories() const override { return iMask; }
  void OnRecord(const host::LoggedRecord& aRecord) override {
    if ((host::CategoryNumber(aRecord.category) & iMask) == 0) return;
    host::LoggedRecord numbered = aRecord;
    for (host::LogPiece& piece : numbered.pieces) {
      if (piece.kind != host::PieceKind::Pointer) continue;
      const auto known = iNumbers.emplace(piece.pointer, iNumbers.size() + 1).first;
      piece.kind = host::PieceKind::Text;
      piece.text = "addr" + std::to_string(known->second);
    }
    (void)fprintf(iFile, "%llu %s\n", static_cast<unsigned long long>(numbered.time), numbered.Line().c_str());
  }

 private:
  FILE* iFile;
  uint32_t iMask;
  std::map<const void*, size_t> iNumbers;
};

class CTextFile : public ILogOutput {
 public:
  CTextFile(FILE* aFile, const std::string& aName, uint32_t aMask, bool aNumberAddresses)
      : iFile(aFile), iName(aName), iPlainSink(aFile, aMask), iNumberedSink(aFile, aMask) {
    iSink = aNumberAddresses ? static_cast<host::ILogSink*>(&iNumberedSink) : &iPlainSink;
    host::CLogFacility& facility = host::CLogFacility::Instance();
    facility.SetKeepRecords(false);
    facility.AddSink(iSink);
  }
  ~CTextFile() override {
    std::string ignored;
    CTextFile::Close(ignored);  // this class's own: nothing derived is left to call
  }
  bool Close(std::string& aError) override {
    if (iFile == nullptr) return true;
    host::CLogFacility::Instance().RemoveSink(iSink);
    FILE* file = iFile;
    iFile = nullptr;
    return CloseOutput(file, iName, aError);
  }

 private:
  FILE* iFile;
  std::string iName;
  host::CTextLogSink iPlainSink;
  CNumberedAddressSink iNumberedSink;
  host::ILogSink* iSink;
};

}  // namespace

std::unique_ptr<ILogOutput> DiscardLog() { return std::unique_ptr<ILogOutput>(new CDiscard); }

std::unique_ptr<ILogOutput> TextLog(FILE* aFile, const std::string& aName, uint32_t aMask, bool aNumberAddresses) {
  return std::unique_ptr<ILogOutput>(new CTextFile(aFile, aName, aMask, aNumberAddresses));
}

}  // namespace sim
