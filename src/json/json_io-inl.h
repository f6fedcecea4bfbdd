/// \file
/// Bodies of the public functions between JSON files, JSON text and messages: the one place that calls protobuf's JSON
/// utilities. Contracts: ZoTuningUtils.h; what is read and printed: docs/json-trees.md.
#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>
#include <google/protobuf/util/json_util.h>
#include <google/protobuf/util/type_resolver.h>
#include <google/protobuf/util/type_resolver_util.h>

#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>

#include "json/rules-inl.h"
#include "log/tuning_log-inl.h"

namespace ZO_TUNING {
namespace internal {

/// MessageToJsonString for a message with unset required fields, at which protobuf builds with checks stop: prints what
/// the builds without them print.
inline auto PrintPartialMessage(const google::protobuf::Message& msg,
                                const google::protobuf::util::JsonPrintOptions& options, std::string* out) {
  static constexpr char kUrl[] = "type.googleapis.com";
  const google::protobuf::Descriptor* type = msg.GetDescriptor();
  const std::unique_ptr<google::protobuf::util::TypeResolver> resolver(
      google::protobuf::util::NewTypeResolverForDescriptorPool(kUrl, type->file()->pool()));
  return google::protobuf::util::BinaryToJsonString(resolver.get(), kUrl + ("/" + type->full_name()),
                                                    msg.SerializePartialAsString(), out, options);
}

}  // namespace internal

inline bool JSON_FILE_TO_STR(const std::string& path, std::string& out) try {
  std::ifstream file(path);
  if (file.fail() || file.bad()) {
    internal::TuningLog(internal::kLogError, __LINE__, __func__, "Fail to read json file: %s", path.c_str());
    return false;
  }
  std::ostringstream text;
  // Otherwise the stream keeps to itself that memory could not be had.
  text.exceptions(std::ios::failbit);
  try {
    text << file.rdbuf();
  } catch (const std::ios::failure&) {
    // Nothing was read, or not all: what there is counts.
  }
  out = text.str();
  return true;
} catch (...) {
  return internal::ReportException(__LINE__, __func__);
}

inline bool JSON_STR_TO_MSG(const std::string& json, google::protobuf::Message* msg) try {
  google::protobuf::util::JsonParseOptions options;
  options.ignore_unknown_fields = false;
  options.case_insensitive_enum_parsing = false;
  const auto status = google::protobuf::util::JsonStringToMessage(json, msg, options);
  if (status.ok()) return true;
  internal::TuningLog(internal::kLogError, __LINE__, __func__, "Fail to parse json string %s", json.c_str());
  std::cerr << "Failed to parse JSON: " << status.message() << std::endl;
  return false;
} catch (...) {
  return internal::ReportException(__LINE__, __func__);
}

inline void MSG_TO_JSON_STR(google::protobuf::Message* msg, const google::protobuf::Descriptor* desc,
                            std::string& out) try {
  const internal::PassFailuresOn guard;
  MSG_INIT_FOR_JSON(msg, desc);
  google::protobuf::util::JsonPrintOptions options;
  options.add_whitespace = true;
  options.always_print_primitive_fields = true;
  options.always_print_enums_as_ints = false;
  options.preserve_proto_field_names = true;
  const auto status = msg->IsInitialized() ? google::protobuf::util::MessageToJsonString(*msg, &out, options)
                                           : internal::PrintPartialMessage(*msg, options, &out);
  if (!status.ok()) {
    // The number printed is always 0, not the status code.
    internal::TuningLog(internal::kLogError, __LINE__, __func__, "json generation failed: %d", 0);
  }
} catch (...) {
  internal::ReportException(__LINE__, __func__);
}

inline void JSON_STR_TO_FILE(const std::string& path, const std::string& json) try {
  std::ofstream file(path, std::ios::out | std::ios::ate);
  file << json;
  file.close();
} catch (...) {
  internal::ReportException(__LINE__, __func__);
}

}  // namespace ZO_TUNING
