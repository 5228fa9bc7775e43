// Compact text forms of what the host saw, for exact expectations in tests.
#ifndef TESTS_RECORD_FORMAT_H
#define TESTS_RECORD_FORMAT_H

#include <string>
#include <vector>

#include "EventBroker.h"
#include "LoggedRecord.h"

namespace testing_host {

// "Info|SetEventBroker|SetEventBroker": category, function text and message.
std::string Brief(const host::LoggedRecord& aRecord);
// "Info 108 Fn: Type: <u16:1>, ...": category, line, function and the message with each
// typed piece as <kind:value>.
std::string TypedSummary(const host::LoggedRecord& aRecord);
// Kinds of the pieces between the framing brackets.
std::vector<host::PieceKind> MessageKinds(const host::LoggedRecord& aRecord);
// "register 0/10/1000/1" or "unregister 0/10/0" (the repeat word of an unregistration
// means nothing, so it is not shown).
std::string Describe(const host::EventCall& aCall);

}  // namespace testing_host

#endif  // TESTS_RECORD_FORMAT_H
