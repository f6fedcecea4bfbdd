/// \file
/// Messages as text for people and other tools.
#pragma once

#include <google/protobuf/message.h>

#include <string>

#include "diagnostic.h"

namespace zotuning {

/// The message as JSON in the schema's field names, every plain field included. False after an error when protobuf
/// cannot print it (a proto2 type with a required field unset).
bool MessageJson(const google::protobuf::Message& message, std::string& text, DiagnosticSink& sink);

/// The message in protobuf's text form.
std::string MessageText(const google::protobuf::Message& message);

}  // namespace zotuning
