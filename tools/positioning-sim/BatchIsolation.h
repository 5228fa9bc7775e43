// What keeps the drives of one batch apart: each drive's messages caught on their own,
// and its result folder written aside and renamed into place only when whole.
#ifndef SIM_BATCH_ISOLATION_H
#define SIM_BATCH_ISOLATION_H

#include <stddef.h>

#include <string>

namespace sim {

// Catches what is written to standard error (fd 2, children included) between Start
// and Stop, in memory, so that a drive's messages can be told from the next one's.
class CMessageCapture {
 public:
  CMessageCapture() = default;
  CMessageCapture(const CMessageCapture&) = delete;
  CMessageCapture& operator=(const CMessageCapture&) = delete;
  // Restores standard error if still capturing.
  ~CMessageCapture();

  // False with the reason when no place for the messages can be made.
  bool Open(std::string& aError);
  void Start();
  // Restores standard error; answers the end of what was caught (at most aLines lines).
  std::string Stop(size_t aLines);
  // The end of what was caught since the last Start, in this process or another that
  // shares the capture (a child that crashed).
  std::string Tail(size_t aLines) const;

 private:
  int iBuffer = -1;
  int iSaved = -1;
};

// A result folder that appears whole or not at all: the drive writes into a temporary
// folder beside it (.NAME.tmp.HOST.PID), renamed to NAME when the drive went through.
class CAtomicFolder {
 public:
  explicit CAtomicFolder(const std::string& aFinal);
  CAtomicFolder(const CAtomicFolder&) = delete;
  CAtomicFolder& operator=(const CAtomicFolder&) = delete;
  // Removes the temporary folder unless it was published.
  ~CAtomicFolder();

  // The folder is there already: a complete result.
  bool Exists() const;
  // Removes the temporary folders that runs on this machine left when they were killed
  // (their process is gone); other machines' may still be running.
  void RemoveStale() const;
  const std::string& Temporary() const { return iTemporary; }
  // Renames the temporary folder into place. False with the reason when it cannot be;
  // aTaken set when another run put the result in place meanwhile (that one stands).
  bool Publish(bool& aTaken, std::string& aError);

 private:
  std::string iFinal;
  std::string iParent;
  std::string iPrefix;  // of this machine's temporary folders: .NAME.tmp.HOST.
  std::string iTemporary;
  bool iPublished = false;
};

}  // namespace sim

#endif  // SIM_BATCH_ISOLATION_H
