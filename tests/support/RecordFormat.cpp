#include "RecordFormat.h"

#include "EventBroker.h"
#include "LoggedRecord.h"

namespace testing_host {

std::string Brief(const host::LoggedRecord& aRecord) {
  return aRecord.CategoryName() + "|" + aRecord.function + "|" + aRecord.Message();
}

std::string TypedSummary(const host::LoggedRecord& aRecord) {
  std::string message;
  for (size_t i = 1; i + 1 < aRecord.pieces.size(); ++i) {
    const host::LogPiece& piece = aRecord.pieces[i];
    switch (piece.kind) {
      case host::PieceKind::Text:
        message += piece.text;
        break;
      case host::PieceKind::Bool:
        message += "<bool:" + piece.Render() + ">";
        break;
      case host::PieceKind::U8:
        message += "<u8:" + piece.Render() + ">";
        break;
      case host::PieceKind::I16:
        message += "<i16:" + piece.Render() + ">";
        break;
      case host::PieceKind::U16:
        message += "<u16:" + piece.Render() + ">";
        break;
      case host::PieceKind::I32:
        message += "<i32:" + piece.Render() + ">";
        break;
      case host::PieceKind::U32:
        message += "<u32:" + piece.Render() + ">";
        break;
      case host::PieceKind::I64:
        message += "<i64:" + piece.Render() + ">";
        break;
      case host::PieceKind::Pointer:
        message += "<ptr>";
        break;
    }
  }
  return aRecord.CategoryName() + " " + std::to_string(aRecord.line) + " " + aRecord.function + ": " + message;
}

std::vector<host::PieceKind> MessageKinds(const host::LoggedRecord& aRecord) {
  std::vector<host::PieceKind> kinds;
  for (size_t i = 1; i + 1 < aRecord.pieces.size(); ++i) kinds.push_back(aRecord.pieces[i].kind);
  return kinds;
}

std::string Describe(const host::EventCall& aCall) {
  std::string text = (aCall.registering ? "register " : "unregister ") + std::to_string(aCall.eventClass) + "/" +
                     std::to_string(aCall.eventId) + "/" + std::to_string(aCall.period);
  if (aCall.registering) text += "/" + std::to_string(aCall.repeat);
  return text;
}

}  // namespace testing_host
