#include "message_text.h"

#include <google/protobuf/text_format.h>
#include <google/protobuf/util/json_util.h>

#include <exception>

namespace zotuning {

using google::protobuf::Message;
using google::protobuf::TextFormat;

bool MessageJson(const Message& message, std::string& text, DiagnosticSink& sink) {
  google::protobuf::util::JsonPrintOptions options;
  options.add_whitespace = true;
  options.always_print_primitive_fields = true;
  options.preserve_proto_field_names = true;
  std::string reason;
  try {
    const auto status = google::protobuf::util::MessageToJsonString(message, &text, options);
    if (status.ok()) return true;
    reason = std::string(status.message());
  } catch (const std::exception& error) {
    reason = error.what();
  }
  sink.Report(Code::kPrint, "the message cannot be printed as JSON: " + reason,
              "--text prints it in protobuf's text form");
  return false;
}

std::string MessageText(const Message& message) {
  std::string text;
  TextFormat::PrintToString(message, &text);
  return text;
}

}  // namespace zotuning
