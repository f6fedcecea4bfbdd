/// \file
/// Bodies of the public functions between JSON files, JSON text and messages. Contracts: ZoTuningUtils.h.
#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <iostream>
#include <string>

#include "api/border-inl.h"
#include "io/text_file-inl.h"
#include "json/json_text-inl.h"
#include "json/rules-inl.h"

namespace ZO_TUNING {
namespace internal {
namespace api {

/// The line of JSON_FILE_TO_STR about a file that cannot be opened.
inline void ReportNotRead(const std::string& path) {
  TuningLog(kLogError, __LINE__, "JSON_FILE_TO_STR", "Fail to read json file: %s", path.c_str());
}

inline bool JSON_FILE_TO_STR(const std::string& path, std::string& out) {
  const bool is_read = ReadTextFile(path, out);
  if (!is_read) ReportNotRead(path);
  return is_read;
}

/// The lines of JSON_STR_TO_MSG about a text that does not fit its type.
inline void ReportNotConverted(const std::string& json, const std::string& reason) {
  TuningLog(kLogError, __LINE__, "JSON_STR_TO_MSG", "Fail to parse json string %s", json.c_str());
  std::cerr << "Failed to parse JSON: " << reason << std::endl;
}

inline bool JSON_STR_TO_MSG(const std::string& json, google::protobuf::Message* msg) {
  const JsonResult result = ParseJson(json, msg);
  if (!result.ok) ReportNotConverted(json, result.reason);
  return result.ok;
}

/// The line of MSG_INIT_FOR_JSON about a fault.
inline void ReportTemplateFault(const TemplateFault& fault) {
  static constexpr char kFunction[] = "MSG_INIT_FOR_JSON";
  switch (fault.kind) {
    case TemplateFault::Kind::kRepeatedType:
      TuningLog(kLogError, __LINE__, kFunction, "Unknown repeated data type: %d", static_cast<int>(fault.field_type));
      break;
    case TemplateFault::Kind::kRecursiveType:
      TuningLog(kLogError, __LINE__, kFunction,
                "Message type %s contains itself, its template is filled once on each way down; please check the "
                "protos under project dir",
                fault.type->full_name().c_str());
      break;
    case TemplateFault::Kind::kNoRuleField:
      TuningLog(kLogError, __LINE__, kFunction,
                "Rule type %s has no singular field %s of type %s, it is left out; please check the protos under "
                "project dir",
                fault.type->full_name().c_str(), fault.rule_field,
                google::protobuf::FieldDescriptor::TypeName(fault.field_type));
      break;
  }
}

/// The line of MSG_TO_JSON_STR about a failed print.
inline void ReportNotPrinted() {
  // The number printed is always 0, not the status code.
  TuningLog(kLogError, __LINE__, "MSG_TO_JSON_STR", "json generation failed: %d", 0);
}

inline void MSG_TO_JSON_STR(google::protobuf::Message* msg, const google::protobuf::Descriptor* desc,
                            std::string& out) {
  if (!PrintTemplate(msg, desc, ReportTemplateFault, &out).ok) ReportNotPrinted();
}

}  // namespace api
}  // namespace internal

inline bool JSON_FILE_TO_STR(const std::string& path, std::string& out) {
  return internal::AtBorder(__LINE__, __func__, [&] { return internal::api::JSON_FILE_TO_STR(path, out); });
}

inline bool JSON_STR_TO_MSG(const std::string& json, google::protobuf::Message* msg) {
  return internal::AtBorder(__LINE__, __func__, [&] { return internal::api::JSON_STR_TO_MSG(json, msg); });
}

inline void MSG_TO_JSON_STR(google::protobuf::Message* msg, const google::protobuf::Descriptor* desc,
                            std::string& out) {
  internal::AtBorder(__LINE__, __func__, [&] { internal::api::MSG_TO_JSON_STR(msg, desc, out); });
}

inline void JSON_STR_TO_FILE(const std::string& path, const std::string& json) {
  internal::AtBorder(__LINE__, __func__, [&] { internal::WriteTextFile(path, json); });
}

inline void MSG_INIT_FOR_JSON(google::protobuf::Message* msg, const google::protobuf::Descriptor* desc) {
  internal::AtBorder(__LINE__, __func__,
                     [&] { internal::FillTemplate(msg, desc, internal::api::ReportTemplateFault); });
}

inline void MSG_PRONE_FOR_BIN(google::protobuf::Message* msg, const google::protobuf::Descriptor* desc) {
  internal::AtBorder(__LINE__, __func__, [&] { internal::PruneRules(msg, desc); });
}

}  // namespace ZO_TUNING
