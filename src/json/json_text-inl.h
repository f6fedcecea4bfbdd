/// \file
/// JSON text to messages and back: the one place that calls protobuf's JSON utilities. docs/json-trees.md says what is
/// read and printed.
#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>
#include <google/protobuf/util/json_util.h>
#include <google/protobuf/util/type_resolver.h>
#include <google/protobuf/util/type_resolver_util.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>

#include "json/rules-inl.h"

namespace ZO_TUNING {
namespace internal {

struct [[nodiscard]] JsonResult {
  bool ok = true;
  std::string reason;  ///< protobuf's error message
};

inline constexpr const char* kTextTooLong = "The text has 2 GiB or more.";

/// Parses `json` into `message`; unknown keys are rejected. After a failure the content of `message` is unspecified.
inline JsonResult ParseJson(const std::string& json, google::protobuf::Message* message) {
  // Protobuf counts in an int, and would read only the rest of a longer text, or nothing.
  if (json.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) return {false, kTextTooLong};
  google::protobuf::util::JsonParseOptions options;
  options.ignore_unknown_fields = false;
  options.case_insensitive_enum_parsing = false;
  const auto status = google::protobuf::util::JsonStringToMessage(json, message, options);
  if (status.ok()) return {};
  return {false, status.message().ToString()};
}

/// MessageToJsonString for a message with unset required fields, at which protobuf stops when built with checks: prints
/// what it prints when built without.
inline auto PrintPartialMessage(const google::protobuf::Message& message,
                                const google::protobuf::util::JsonPrintOptions& options, std::string* json) {
  static constexpr char kUrl[] = "type.googleapis.com";
  const google::protobuf::Descriptor* type = message.GetDescriptor();
  const std::unique_ptr<google::protobuf::util::TypeResolver> resolver(
      google::protobuf::util::NewTypeResolverForDescriptorPool(kUrl, type->file()->pool()));
  return google::protobuf::util::BinaryToJsonString(resolver.get(), kUrl + ("/" + type->full_name()),
                                                    message.SerializePartialAsString(), json, options);
}

/// Appends the JSON of `message` to `json`: all fields, under the schema's names.
inline JsonResult PrintJson(const google::protobuf::Message& message, std::string* json) {
  google::protobuf::util::JsonPrintOptions options;
  options.add_whitespace = true;
  options.always_print_primitive_fields = true;
  options.always_print_enums_as_ints = false;
  options.preserve_proto_field_names = true;
  const auto status = message.IsInitialized() ? google::protobuf::util::MessageToJsonString(message, json, options)
                                              : PrintPartialMessage(message, options, json);
  if (status.ok()) return {};
  return {false, status.message().ToString()};
}

/// Fills `message`, of type `type`, with its rule templates and appends its JSON to `json`. Anything the schema lacks
/// for them goes to `sink`.
inline JsonResult PrintTemplate(google::protobuf::Message* message, const google::protobuf::Descriptor* type,
                                const TemplateSink& sink, std::string* json) {
  FillTemplate(message, type, sink);
  return PrintJson(*message, json);
}

}  // namespace internal
}  // namespace ZO_TUNING
