#include "DltLogOutput.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <sys/time.h>

#include <chrono>

#include "DltMessage.h"
#include "LogFacility.h"
#include "LogSink.h"
#include "OutputFiles.h"

#ifdef POSITIONING_SIM_DLT
#include <dlt.h>
#include <syslog.h>
#endif

namespace sim {

const char kDltFilePrefix[] = "dlt:";

std::string DltFileOf(const std::string& aLogTarget) {
  const size_t prefix = sizeof kDltFilePrefix - 1;
  return aLogTarget.compare(0, prefix, kDltFilePrefix) == 0 ? aLogTarget.substr(prefix) : std::string();
}

uint32_t DltStamp(uint64_t aMilliseconds) { return static_cast<uint32_t>(aMilliseconds * 10); }

uint32_t DltStampWraps(uint64_t aMilliseconds) { return static_cast<uint32_t>((aMilliseconds * 10) >> 32); }

namespace {

// The module's records as DLT messages, whatever carries them: the mask, the note on the
// time base and its wraps, and the count of what did not arrive.
class CDltOutput : public ILogOutput, public host::ILogSink {
 public:
  enum Context { kModule, kFramework, kSimulator };

  CDltOutput(const std::string& aWhere, uint32_t aMask) : iWhere(aWhere), iMask(aMask) {}

  uint32_t Categories() const override { return iMask; }
  void OnRecord(const host::LoggedRecord& aRecord) override {
    const uint32_t category = host::CategoryNumber(aRecord.category);
    if ((category & iMask) == 0) return;
    if (!iNoted || DltStampWraps(aRecord.time) != iWraps) NoteTimeBase(aRecord.time);
    ++iRecords;
    CDltPayload& payload = *iRecordPayload;
    payload.Clear();
    if (!payload.AddRecord(aRecord)) ++iTruncated;
    Send(aRecord.module == "logging::FeatureFw" ? kFramework : kModule, LevelOfCategory(category), aRecord.time,
         payload);
  }

  bool Close(std::string& aError) override {
    if (!iAttached) return true;
    iAttached = false;
    host::CLogFacility::Instance().RemoveSink(this);
    std::string problems;
    Finish(problems);
    if (iLost > 0) problems += ", " + std::to_string(iLost) + " lost";
    if (iTruncated > 0) problems += ", " + std::to_string(iTruncated) + " cut short";
    if (problems.empty()) return true;
    aError = iWhere + ": of " + std::to_string(iRecords) + " log records" + problems;
    return false;
  }

 protected:
  void Attach() {
    host::CLogFacility& facility = host::CLogFacility::Instance();
    facility.SetKeepRecords(false);
    facility.AddSink(this);
    iAttached = true;
  }
  // One message of aContext at aLevel, stamped with the simulated time.
  virtual void Send(Context aContext, DltLevel aLevel, uint64_t aMilliseconds, const CDltPayload& aPayload) = 0;
  // Ends the output; adds to aProblems what went wrong besides lost messages.
  virtual void Finish(std::string& aProblems) = 0;

  std::string iWhere;
  uint64_t iLost = 0;

 private:
  // Says once how the stamps read, and marks every wrap with the full simulated time.
  void NoteTimeBase(uint64_t aMilliseconds) {
    iWraps = DltStampWraps(aMilliseconds);
    CDltPayload& note = *iNote;
    note.Clear();
    note.AddString(iNoted ? "time stamp wrapped: add wraps x 429496.7296 s to the stamps from here on"
                          : "time stamps are the simulated time in 0.1 ms; they wrap every 429496.7296 s, and each "
                            "wrap is marked");
    note.AddInteger(false, 4, iWraps, "wraps");
    note.AddInteger(false, 8, aMilliseconds, "simulated time", "ms");
    iNoted = true;
    Send(kSimulator, DltLevel::Info, aMilliseconds, note);
  }

  uint32_t iMask;
  bool iAttached = false;
  bool iNoted = false;
  uint32_t iWraps = 0;
  uint64_t iRecords = 0;
  uint64_t iTruncated = 0;
  // Large (a whole message each): kept, not made per record.
  std::unique_ptr<CDltPayload> iNote{new CDltPayload};
  std::unique_ptr<CDltPayload> iRecordPayload{new CDltPayload};
};

const char* const kContextIds[] = {"POSI", "FFW", "SIM"};

// A .dlt file: whole messages, storage header first, through the C library's buffer.
class CDltFile : public CDltOutput {
 public:
  CDltFile(FILE* aFile, const std::string& aPath, uint32_t aMask) : CDltOutput(aPath, aMask), iFile(aFile) {
    DltId("SIMU", iHeader.ecu);
    DltId("PSIM", iHeader.app);
    iHeader.session = static_cast<uint32_t>(getpid());
    Attach();
  }
  ~CDltFile() override {
    std::string ignored;
    Close(ignored);
  }

 private:
  void Send(Context aContext, DltLevel aLevel, uint64_t aMilliseconds, const CDltPayload& aPayload) override {
    struct timeval now;
    gettimeofday(&now, nullptr);
    DltId(kContextIds[aContext], iHeader.context);
    iHeader.level = aLevel;
    iHeader.counter = iCounters[aContext]++;
    iHeader.timestamp = DltStamp(aMilliseconds);
    iHeader.wallSeconds = static_cast<uint32_t>(now.tv_sec);
    iHeader.wallMicroseconds = static_cast<int32_t>(now.tv_usec);
    uint8_t header[kDltFileHeaderSize];
    DltFileHeader(iHeader, aPayload, header);
    if (fwrite(header, 1, sizeof header, iFile) != sizeof header ||
        fwrite(aPayload.Data(), 1, aPayload.Size(), iFile) != aPayload.Size())
      ++iLost;
  }

  void Finish(std::string& aProblems) override {
    std::string error;
    if (!CloseOutput(iFile, iWhere, error)) aProblems += ", " + error;
    iFile = nullptr;
  }

  FILE* iFile;
  DltHeader iHeader = {};
  uint8_t iCounters[3] = {0, 0, 0};
};

#ifdef POSITIONING_SIM_DLT

const uint32_t kStallLimitMs = 5000;  // the daemon took nothing for this long: it is gone

// A running daemon, through libdlt: the payload is handed over as built, with the
// simulated time as the message's time stamp.
class CDltDaemon : public CDltOutput {
 public:
  explicit CDltDaemon(uint32_t aMask) : CDltOutput("--log dlt", aMask) {}
  ~CDltDaemon() override {
    std::string ignored;
    Close(ignored);
  }

  // Registers the application and its contexts; false with the reason.
  bool Start(std::string& aError) {
    // libdlt's own messages go to standard error, errors only: standard output carries
    // the samples and the module's printing, which is counted.
    dlt_log_set_level(LOG_ERR);
    dlt_log_init(DLT_LOG_TO_STDERR);
    // Every level is sent; --log-level is the filter.
    iStarted = true;
    if (dlt_register_app("PSIM", "positioning-sim: the simulated head unit") < DLT_RETURN_OK ||
        dlt_register_context_ll_ts(&iContexts[kModule], "POSI", "positioning module", DLT_LOG_VERBOSE,
                                   DLT_TRACE_STATUS_OFF) < DLT_RETURN_OK ||
        dlt_register_context_ll_ts(&iContexts[kFramework], "FFW", "feature framework adapters", DLT_LOG_VERBOSE,
                                   DLT_TRACE_STATUS_OFF) < DLT_RETURN_OK ||
        dlt_register_context_ll_ts(&iContexts[kSimulator], "SIM", "simulator: time base of the stamps", DLT_LOG_VERBOSE,
                                   DLT_TRACE_STATUS_OFF) < DLT_RETURN_OK) {
      aError = "--log dlt: libdlt refused to register the application PSIM";
      return false;
    }
    iRegistered = true;
    Attach();
    return true;
  }

 private:
  void Send(Context aContext, DltLevel aLevel, uint64_t aMilliseconds, const CDltPayload& aPayload) override {
    if (aPayload.Size() > DLT_USER_BUF_MAX_SIZE) {
      ++iTooLong;
      return;
    }
    DltContextData message;
    const DltReturnValue started = dlt_user_log_write_start_w_given_buffer(
        &iContexts[aContext], &message, static_cast<DltLogLevelType>(aLevel),
        const_cast<char*>(reinterpret_cast<const char*>(aPayload.Data())), aPayload.Size(), aPayload.Count());
    if (started != DLT_RETURN_TRUE) {
      if (started == DLT_RETURN_OK) {
        ++iHeldBack;
      } else {
        ++iLost;
      }
      return;
    }
    message.use_timestamp = DLT_USER_TIMESTAMP;
    message.user_timestamp = DltStamp(aMilliseconds);
    if (dlt_user_log_write_finish_w_given_buffer(&message) < DLT_RETURN_OK) ++iLost;
    if (Pending() > 0 && !Drain()) iLost += Pending();
  }

  void Finish(std::string& aProblems) override {
    if (iRegistered) {
      if (!Drain()) iLost += Pending();
      for (int context = kSimulator; context >= kModule; --context) dlt_unregister_context(&iContexts[context]);
      dlt_unregister_app();
    }
    if (iStarted) dlt_free();
    iRegistered = iStarted = false;
    if (iHeldBack > 0) {
      aProblems += ", " + std::to_string(iHeldBack) +
                   " held back by a log level the DLT daemon set for their context (dlt-control -l raises it)";
    }
    if (iTooLong > 0) {
      aProblems += ", " + std::to_string(iTooLong) + " too long for libdlt (" + std::to_string(DLT_USER_BUF_MAX_SIZE) +
                   " bytes)";
    }
  }

  // Messages libdlt holds because the daemon's pipe was full.
  uint32_t Pending() {
    int total = 0;
    int used = 0;
    dlt_user_check_buffer(&total, &used);
    return used > 0 ? static_cast<uint32_t>(used) : 0;
  }

  // Hands libdlt's held messages to the daemon; false when it stops taking them.
  bool Drain() {
    uint32_t pending = Pending();
    auto progress = std::chrono::steady_clock::now();
    while (pending > 0) {
      dlt_user_log_resend_buffer();
      const uint32_t now = Pending();
      if (now < pending) {
        progress = std::chrono::steady_clock::now();
      } else if (std::chrono::steady_clock::now() - progress > std::chrono::milliseconds(kStallLimitMs)) {
        return false;
      } else {
        usleep(200);
      }
      pending = now;
    }
    return true;
  }

  bool iStarted = false;
  bool iRegistered = false;
  uint64_t iHeldBack = 0;
  uint64_t iTooLong = 0;
  DltContext iContexts[3];
};

std::string PipeOfDaemon() {
  const char* directory = getenv("DLT_PIPE_DIR");
  return std::string(directory != nullptr && *directory != '\0' ? directory : "/tmp") + "/dlt";
}

#endif

}  // namespace

std::unique_ptr<ILogOutput> DltFileLog(FILE* aFile, const std::string& aPath, uint32_t aMask, std::string&) {
  return std::unique_ptr<ILogOutput>(new CDltFile(aFile, aPath, aMask));
}

#ifdef POSITIONING_SIM_DLT

std::unique_ptr<ILogOutput> DltDaemonLog(uint32_t aMask, std::string& aError) {
  // libdlt would wait for a daemon in the background and buffer meanwhile; say at once
  // that there is none.
  const std::string pipe = PipeOfDaemon();
  const int fd = open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    aError = "--log dlt: no DLT daemon is reachable through " + pipe + " (" + strerror(errno) +
             "); start dlt-daemon (or set DLT_PIPE_DIR to the directory of its pipe), or write a file with "
             "--log dlt:FILE.dlt";
    return nullptr;
  }
  close(fd);
  std::unique_ptr<CDltDaemon> output(new CDltDaemon(aMask));
  if (!output->Start(aError)) return nullptr;
  return std::unique_ptr<ILogOutput>(output.release());
}

#else

std::unique_ptr<ILogOutput> DltDaemonLog(uint32_t, std::string& aError) {
  aError =
      "--log dlt: this build has no libdlt, so no daemon can be reached (install libdlt-dev and rebuild); "
      "--log dlt:FILE.dlt works without it";
  return nullptr;
}

#endif

}  // namespace sim
