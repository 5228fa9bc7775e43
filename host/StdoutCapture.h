// Captures what the process writes to standard output (the module's printf messages)
// while it lives.
#ifndef HOST_STDOUT_CAPTURE_H
#define HOST_STDOUT_CAPTURE_H

#include <string>

namespace host {

class CStdoutCapture {
 public:
  // Starts capturing at once.
  CStdoutCapture();
  // Restores standard output if still capturing.
  ~CStdoutCapture();
  CStdoutCapture(const CStdoutCapture&) = delete;
  CStdoutCapture& operator=(const CStdoutCapture&) = delete;

  // Everything written so far (standard output is flushed first); capture goes on.
  std::string Text();
  // Restores standard output and returns everything captured.
  std::string Stop();

 private:
  int iSavedFd = -1;
  int iCaptureFd = -1;
};

}  // namespace host

#endif  // HOST_STDOUT_CAPTURE_H
