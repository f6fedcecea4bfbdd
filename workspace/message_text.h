/// \file
/// Messages as text for people and other tools.
#pragma once

#include <google/protobuf/message.h>

#include <string>

#include "diagnostic.h"

namespace zotuning {

/// The message as JSON under the schema's field names, with every field except unset message fields. False after an
/// error if protobuf cannot print it (a proto2 type with an unset required field).
bool MessageJson(const google::protobuf::Message& message, std::string& text, DiagnosticSink& sink);

/// The message in protobuf's text format.
std::string MessageText(const google::protobuf::Message& message);

}  // namespace zotuning
