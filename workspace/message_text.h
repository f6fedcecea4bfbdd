/// \file
/// Messages as text for people and other tools, and what differs between two of them.
#pragma once

#include <google/protobuf/message.h>

#include <string>
#include <vector>

#include "diagnostic.h"

namespace zotuning {

/// The message as JSON in the schema's field names, every plain field included. False after an error when protobuf
/// cannot print it (a proto2 type with a required field unset).
bool MessageJson(const google::protobuf::Message& message, std::string& text, DiagnosticSink& sink);

/// The message in protobuf's text form.
std::string MessageText(const google::protobuf::Message& message);

/// A field that two messages do not agree on. Values are short texts, "" where there is none.
struct FieldDifference {
  std::string path;
  std::string left;
  std::string right;
};

/// Whether two messages of one type are equal byte for byte; if not, appends the first `limit` fields that differ and
/// counts all that do. `count` may be 0 for unequal messages: a zero of another sign is no other value.
bool SameMessages(const google::protobuf::Message& left, const google::protobuf::Message& right, size_t limit,
                  std::vector<FieldDifference>& differences, size_t& count);

}  // namespace zotuning
