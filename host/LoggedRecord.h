// One log record as the host received it from a module: its header (category, module
// tag, function, file and line) and every typed piece appended, with the readable
// forms that tests, sinks and tools show.
#ifndef HOST_LOGGED_RECORD_H
#define HOST_LOGGED_RECORD_H

#include <stdint.h>

#include <string>
#include <vector>

namespace host {

// Stream slot a piece arrived through.
enum class PieceKind { Bool, U8, I16, U16, I32, U32, I64, Text, Pointer };

// One appended piece. Numbers keep their value in `number` (signed kinds sign-extended).
struct LogPiece {
  PieceKind kind;
  int64_t number;
  std::string text;     // Text
  const void* pointer;  // Pointer
  // The piece as a log line shows it.
  std::string Render() const;
};

// Short name of a piece's kind: "u16", "text", "ptr".
const char* KindName(PieceKind aKind);

// One record as the module wrote it.
struct LoggedRecord {
  std::string category;  // "logging::categories::Info"
  std::string module;    // "logging::Positioning"
  std::string function;
  int32_t enabled = 0;  // what the control answered and the module passed on
  std::string file;
  int line = 0;
  uint64_t time = 0;             // simulated milliseconds (the OSAL tick) when it was opened
  std::vector<LogPiece> pieces;  // everything appended before the line end
  std::string lineEnd;           // what AppendLineEnd received
  bool closed = false;

  // All pieces rendered, brackets included: "(Diversity: CAN)".
  std::string Text() const;
  // The message inside the framing brackets: "Diversity: CAN".
  std::string Message() const;
  // Short category name: "Info".
  std::string CategoryName() const;
  // One readable line: "Info Positioning CPositioning Positioning/src/Positioning.cpp:44 (Diversity: CAN)".
  std::string Line() const;
};

// Category number of a category text, 0 when unknown.
uint32_t CategoryNumber(const std::string& aCategory);

}  // namespace host

#endif  // HOST_LOGGED_RECORD_H
