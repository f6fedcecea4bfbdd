/// \file
/// Whether a JSON text can be packed as a message type: protobuf's result, with the reasons as diagnostics.
#pragma once

#include <google/protobuf/message.h>

#include <string>

#include "diagnostic.h"
#include "project.h"

namespace zotuning {

/// Whether every field of the type must be spelled out, as packing requires of settings.
enum class Fields { kAll, kAny };

/// Why packing rejects a text that does not contain the name of a field.
std::string MissingNameText(const std::string& name);

/// Reports all reasons why `text`, the contents of `file`, does not fit `type`. `refusal` is protobuf's own message,
/// used if the structure shows no fault; "" for a text that protobuf accepts. False after an error.
bool ExplainText(const std::string& file, std::string text, const google::protobuf::Descriptor* type, Fields fields,
                 const std::string& refusal, DiagnosticSink& sink);

/// Parses `text`, the contents of `file`, into `message`. False after errors that say why it does not fit.
bool ParseJson(const std::string& file, const std::string& text, google::protobuf::Message* message,
               DiagnosticSink& sink);

/// Whether `text` fits `type` and mentions the fields that packing requires. False after errors.
bool CheckSettingText(Schema& schema, const std::string& file, const std::string& text,
                      const google::protobuf::Descriptor* type, Fields fields, DiagnosticSink& sink);

}  // namespace zotuning
