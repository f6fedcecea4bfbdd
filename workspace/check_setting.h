/// \file
/// Whether a JSON text can be packed as a message type: protobuf's result, with the reasons as diagnostics.
#pragma once

#include <google/protobuf/message.h>

#include <memory>
#include <string>

#include "diagnostic.h"
#include "project.h"

namespace zotuning {

class OldNames;

/// Whether every field of the type has to be spelled out, as packing demands of settings.
enum class Fields { kAll, kAny };

/// Why packing rejects a text that does not contain the name of a field.
std::string MissingNameText(const std::string& name);

/// Reports why `text`, the content of `file`, does not fit `type`: all faults by structure. `refusal` is protobuf's own
/// sentence, which stands in where they show nothing; "" for a text that protobuf takes. `old_names` may be null. False
/// after an error.
bool ExplainText(const std::string& file, std::string text, const google::protobuf::Descriptor* type, Fields fields,
                 const std::string& refusal, DiagnosticSink& sink,
                 const std::shared_ptr<OldNames>& old_names = nullptr);

/// Parses `text`, the contents of `file`, into `message`. False after errors that say why it does not fit.
bool ParseJson(const std::string& file, const std::string& text, google::protobuf::Message* message,
               DiagnosticSink& sink);

/// Whether `text` fits `type` and mentions the fields that packing requires. False after errors.
bool CheckSettingText(Schema& schema, const std::string& file, const std::string& text,
                      const google::protobuf::Descriptor* type, Fields fields, DiagnosticSink& sink);

}  // namespace zotuning
