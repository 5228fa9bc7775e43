#include "TraceFile.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iostream>

#include "NumberParse.h"
#include "OutputFiles.h"
#include "TraceHeader.h"

namespace sim {

namespace {

const size_t kLinesNamed = 10;  // lines a warning names before it only counts

std::string Trim(const std::string& aText) {
  const size_t begin = aText.find_first_not_of(" \t\r");
  if (begin == std::string::npos) return std::string();
  return aText.substr(begin, aText.find_last_not_of(" \t\r") - begin + 1);
}

const int64_t kCanLow[] = {0, -32768, 0, 0};
const int64_t kCanHigh[] = {65535, 32767, 0xFFFFFFFFLL, 255};

std::string LineList(const std::vector<int>& aLines, uint64_t aCount) {
  std::string text;
  for (int line : aLines) text += (text.empty() ? "" : ", ") + std::to_string(line);
  if (aCount > aLines.size()) text += ", ... (" + std::to_string(aCount) + " rows)";
  return text;
}

// Standard input, kept in a private file that is gone once closed, so that the
// trace can be checked first and then read again.
std::unique_ptr<std::istream> StandardInputCopy(std::string& aError) {
  const char* tmp = getenv("TMPDIR");
  std::string name = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/positioning-sim-trace-XXXXXX";
  const int fd = mkstemp(&name[0]);
  if (fd < 0) return aError = "-: cannot keep standard input: " + std::string(strerror(errno)), nullptr;
  std::unique_ptr<std::ifstream> copy;
  FILE* out = fdopen(fd, "w");
  char buffer[65536];
  size_t got;
  while ((got = fread(buffer, 1, sizeof buffer, stdin)) > 0) {
    if (fwrite(buffer, 1, got, out) != got) break;
  }
  const bool failed = ferror(stdin) != 0 || ferror(out) != 0;
  const std::string why = strerror(errno);
  fclose(out);
  if (!failed) copy.reset(new std::ifstream(name, std::ios::binary));
  unlink(name.c_str());
  if (failed || !*copy) return aError = "-: cannot read standard input: " + why, nullptr;
  return copy;
}

}  // namespace

const char* TraceHeader(SourceKind aKind) {
  return aKind == SourceKind::Can ? "TimeStamp,DistancePuls,AngularRate,DrivingDirection,NrOfSamples"
                                  : "timeStamp,value0,value1,value2,value3";
}

const char* SourceName(SourceKind aKind) { return aKind == SourceKind::Can ? "CAN" : "EXTERNAL"; }

CTraceReader::~CTraceReader() {}

bool CTraceReader::ReadComment(const std::string& aLine, const std::string& aWhere) {
  bool isLine = false;
  std::string why;
  int64_t shift = 0;
  const bool shiftRead = ParseShiftLine(aLine, shift, isLine, why);
  if (isLine) {
    if (!shiftRead) return iError = aWhere + why, false;
    iPos.recordedShift = shift;
    return true;
  }
  ClockLine clock;
  const bool clockRead = ParseClockLine(aLine, clock, isLine, why);
  if (!isLine) return true;  // a comment
  if (!clockRead) return iError = aWhere + why, false;
  if (iPos.headerSeen) return iError = aWhere + "the clock line must come before the header", false;
  if (iPos.checking) {
    // Shifted stamps are a service that booted that much earlier, on the same unit.
    clock.localStart += iStampShift;
    clock.localAnchor += iStampShift;
    clock.peerAnchor += static_cast<int64_t>(iStampShift);
    iContents.clock = clock;
    iContents.hasClock = true;
    iPos.follower.SetReference(clock.peerAnchor);
  }
  return true;
}

bool CTraceReader::ReadFields(const std::string& aLine, const std::string& aWhere, DriveRecord& aRecord) {
  const std::vector<std::string> fields = SplitRow(aLine);
  if (fields.size() != 5) return iError = aWhere + "expected 5 columns, found " + std::to_string(fields.size()), false;
  const bool can = iKind == SourceKind::Can;
  const std::vector<std::string>& names = TraceColumns(iKind);
  aRecord = DriveRecord();
  aRecord.line = iPos.line;
  std::string why;
  if (!ParseUnsigned(fields[0], kLargestStamp, aRecord.stamp, why))
    return iError = aWhere + names[0] + ": " + why + ": the service's stamps are 32-bit", false;
  for (int f = 0; f < 4; ++f) {
    if (!ParseInteger(fields[f + 1], can ? kCanLow[f] : -32768, can ? kCanHigh[f] : 32767, aRecord.field[f], why))
      return iError = aWhere + names[f + 1] + (": " + why), false;
  }
  aRecord.stamp = WireStamp(static_cast<int64_t>(aRecord.stamp + iStampShift));
  aRecord.peerTime = iPos.follower.Follow(WireStamp(static_cast<int64_t>(aRecord.stamp) - iPos.recordedShift));
  return true;
}

bool CTraceReader::ReadRow(DriveRecord& aRecord) {
  std::string line;
  while (std::getline(*iStream, line)) {
    ++iPos.line;
    const std::string where = iPath + ":" + std::to_string(iPos.line) + ": ";
    const size_t nul = line.find('\0');
    if (nul != std::string::npos)
      return iError = where + "a NUL byte in column " + std::to_string(SplitRow(line.substr(0, nul)).size()), false;
    const std::string trimmed = Trim(line);
    if (trimmed.empty()) continue;
    if (trimmed[0] == '#') {
      if (!ReadComment(trimmed, where)) return false;
      continue;
    }
    if (!iPos.headerSeen) {
      std::string why;
      if (!ReadTraceHeader(trimmed, iKind, why)) return iError = where + why, false;
      iPos.headerSeen = true;
      continue;
    }
    return ReadFields(trimmed, where, aRecord);
  }
  if (iStream->bad()) iError = iPath + ": cannot read the trace";
  return false;
}

void CTraceReader::NoteStampOrder(const DriveRecord& aRecord) {
  if (iPos.haveStamp) {
    const int64_t step = StampStep(iPos.lastStamp, aRecord.stamp);
    if (step <= 0) {
      std::vector<int>& lines = step == 0 ? iRepeatLines : iBackLines;
      if (lines.size() < kLinesNamed) lines.push_back(aRecord.line);
      ++(step == 0 ? iRepeat : iBack);
    }
  }
  iPos.haveStamp = true;
  iPos.lastStamp = aRecord.stamp;
}

void CTraceReader::StartPass(bool aChecking) {
  iStream->clear();
  iStream->seekg(0);
  iPos = Position();
  iPos.checking = aChecking;
  if (iContents.hasClock) iPos.follower.SetReference(iContents.clock.peerAnchor);
}

bool CTraceReader::Check() {
  StartPass(true);
  DriveRecord record;
  while (ReadRow(record)) {
    if (iContents.count == 0) iContents.firstPeerTime = iContents.lastPeerTime = record.peerTime;
    if (record.peerTime > iContents.lastPeerTime) iContents.lastPeerTime = record.peerTime;
    NoteStampOrder(record);
    ++iContents.count;
  }
  if (!iError.empty()) return false;
  const std::string where = iPath + ":" + std::to_string(iPos.line) + ": ";
  if (!iPos.headerSeen) return iError = where + "missing header: the file has no rows", false;
  if (iContents.count == 0) return iError = where + "the trace holds no records, only its header", false;
  iContents.wraps = iPos.follower.Wraps();
  if (iBack > 0) iContents.warnings.push_back(iPath + ": time stamps go back at line " + LineList(iBackLines, iBack));
  if (iRepeat > 0)
    iContents.warnings.push_back(iPath + ": time stamps repeat at line " + LineList(iRepeatLines, iRepeat));
  return true;
}

bool CTraceReader::Open(const std::string& aName, std::unique_ptr<std::istream> aStream, std::string& aError) {
  iPath = aName;
  iStream = std::move(aStream);
  if (!Check()) return aError = iError, false;
  StartPass(false);
  return true;
}

bool CTraceReader::Open(const std::string& aPath, std::string& aError) {
  std::unique_ptr<std::istream> stream;
  if (aPath == "-") {
    stream = StandardInputCopy(aError);
    if (!stream) return false;
  } else {
    struct stat info;
    if (stat(aPath.c_str(), &info) == 0 && S_ISDIR(info.st_mode))
      return aError = aPath + ": cannot open the trace: " + strerror(EISDIR), false;
    std::unique_ptr<std::ifstream> file(new std::ifstream(aPath, std::ios::binary));
    if (!*file) return aError = aPath + ": cannot open the trace: " + strerror(errno), false;
    stream = std::move(file);
  }
  return Open(aPath == "-" ? std::string("standard input") : aPath, std::move(stream), aError);
}

bool CTraceReader::Rewind() {
  if (!iError.empty()) return false;
  StartPass(false);
  return true;
}

bool CTraceReader::Next(DriveRecord& aRecord) { return iError.empty() && ReadRow(aRecord); }

std::string CTraceReader::Describe() const {
  return "trace " + iPath + " (" + std::to_string(iContents.count) + " records)";
}

CTraceWriter::CTraceWriter(FILE* aFile, SourceKind aKind, const ClockLine& aClock) : iFile(aFile) {
  fprintf(iFile, "# positioning-sim trace: the records the %s service sent\n",
          aKind == SourceKind::Can ? "micro-host sensor" : "external positioning-sensor");
  fprintf(iFile, "%s\n", FormatClockLine(aClock).c_str());
  fprintf(iFile, "%s\n", TraceHeader(aKind));
}

CTraceWriter::CTraceWriter(FILE* aFile, SourceKind aKind, std::nullptr_t) : iFile(aFile) {
  fprintf(iFile, "%s\n", TraceHeader(aKind));
}

void CTraceWriter::Write(const DriveRecord& aRecord) {
  // A time-jump fault moves the stamps away from the service's clock: the replay must
  // know, to send them when the service did.
  const int64_t shift = StampStep(WireStamp(aRecord.peerTime), aRecord.stamp);
  if (shift != iShift) fprintf(iFile, "%s\n", FormatShiftLine(shift).c_str());
  iShift = shift;
  fprintf(iFile, "%llu,%lld,%lld,%lld,%lld\n", static_cast<unsigned long long>(aRecord.stamp),
          static_cast<long long>(aRecord.field[0]), static_cast<long long>(aRecord.field[1]),
          static_cast<long long>(aRecord.field[2]), static_cast<long long>(aRecord.field[3]));
}

bool CTraceWriter::Close() {
  std::string error;  // the caller names the file
  return CloseOutput(iFile, std::string(), error);
}

}  // namespace sim
