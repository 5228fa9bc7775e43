#include "StdoutCapture.h"

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

namespace host {

CStdoutCapture::CStdoutCapture() {
  // What stdout buffered so far belongs to before the capture; a failed flush loses it
  // either way, and the capture itself does not depend on it.
  (void)fflush(stdout);
  char path[] = "/tmp/positioning-stdout-XXXXXX";
  iCaptureFd = mkstemp(path);
  if (iCaptureFd < 0) return;
  unlink(path);
  iSavedFd = dup(STDOUT_FILENO);
  dup2(iCaptureFd, STDOUT_FILENO);
}

CStdoutCapture::~CStdoutCapture() { Stop(); }

std::string CStdoutCapture::Text() {
  if (iCaptureFd < 0) return std::string();
  // A failed flush leaves text out of the capture, which the caller's comparison shows.
  (void)fflush(stdout);
  std::string text;
  char buffer[4096];
  off_t offset = 0;
  ssize_t got;
  while ((got = pread(iCaptureFd, buffer, sizeof buffer, offset)) > 0) {
    text.append(buffer, static_cast<size_t>(got));
    offset += got;
  }
  return text;
}

std::string CStdoutCapture::Stop() {
  if (iCaptureFd < 0) return std::string();
  std::string text = Text();
  dup2(iSavedFd, STDOUT_FILENO);
  close(iSavedFd);
  close(iCaptureFd);
  iSavedFd = -1;
  iCaptureFd = -1;
  return text;
}

}  // namespace host
