/// \file
/// Bodies of the public functions around schema and project directory. Contracts: ZoTuningUtils.h.
#pragma once

#include <google/protobuf/message.h>

#include <cstdio>
#include <string>

#include "api/border-inl.h"
#include "io/message_record-inl.h"
#include "io/text_file-inl.h"
#include "io/unique_file-inl.h"
#include "schema/project_layout-inl.h"
#include "schema/type_names-inl.h"

namespace ZO_TUNING {
namespace internal {
namespace api {

inline void MSG_TO_BIN(const google::protobuf::Message* message, const char* path) {
  const UniqueFile file(std::fopen(path, "wb"));
  if (file == nullptr) {
    TuningLog(kLogError, __LINE__, __func__, "Cannot open output file %s", path);
    return;
  }
  const std::string record = RecordOf(*message);
  (void)std::fwrite(record.data(), 1, record.size(), file.get());
}

inline void ADD_GITKEEP_TO_DIR(const std::string& dir) { WriteTextFile(ProjectLayout::KeepPath(dir), {}); }

}  // namespace api
}  // namespace internal

inline void ADD_NAMESPACE_TO_CLASSNAME(const std::string& name, std::string& out) {
  internal::AtBorder(__LINE__, __func__, [&] { out = internal::QualifiedTypeName(name); });
}

inline void MSG_TO_BIN(const google::protobuf::Message* message, const char* path) {
  internal::AtBorder(__LINE__, __func__, [&] { internal::api::MSG_TO_BIN(message, path); });
}

inline void ADD_GITKEEP_TO_DIR(const std::string& dir) {
  internal::AtBorder(__LINE__, __func__, [&] { internal::api::ADD_GITKEEP_TO_DIR(dir); });
}

}  // namespace ZO_TUNING
