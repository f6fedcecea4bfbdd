/// \file
/// The project configuration, its file ProjConf.bin, and what operations on a project start from. Format:
/// docs/project-directory.md.
#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "schema/labels-inl.h"
#include "schema/project_layout-inl.h"
#include "schema/schema.h"
#include "schema/tuning_label.h"

namespace ZO_TUNING {
namespace internal {

/// A project's name and sensors, and its labels.
struct ProjectConfig {
  std::string name;
  std::vector<std::string> sensor_names;
  std::vector<std::string> label_names;
  LabelMap label_map;

  /// Valid as long as this object.
  Labels labels() const { return {label_names, label_map}; }
};

enum class ConfigStatus {
  kOk,
  kNotOpened,  ///< see `error`
  kNotRead,    ///< the record at `offset` is truncated or has an impossible length
  kNotParsed,  ///< the record at `offset` is not a message of the type
  kNoField,    ///< the type has no usable field `field`
};

struct [[nodiscard]] ConfigResult {
  ConfigStatus status = ConfigStatus::kOk;
  uint64_t offset = 0;
  const char* field = "";
  int error = 0;

  bool ok() const { return status == ConfigStatus::kOk; }
};

/// Sets "proj_name" and appends to "sensor_names" of a TuningProjConfig. Ends at the first missing field; fields
/// already set keep their values.
ConfigResult SetConfig(google::protobuf::Message* message, const google::protobuf::Descriptor* type,
                       const char* proj_name, const std::vector<std::string>& sensor_names);

/// Reads ProjConf.bin through `message`, a TuningProjConfig, and replaces both outputs. The last of several records
/// wins; without a record, both outputs are empty. One to three bytes after the last record are ignored.
ConfigResult ReadConfigFile(const char* path, google::protobuf::Message* message,
                            const google::protobuf::Descriptor* type, std::string& proj_name,
                            std::vector<std::string>& sensor_names);

/// The same from the contents of the file.
ConfigResult ReadConfigBytes(std::string_view bytes, google::protobuf::Message* message,
                             const google::protobuf::Descriptor* type, std::string& proj_name,
                             std::vector<std::string>& sensor_names);

// The reverse is RecordOf(message), see io/message_record-inl.h.

enum class LoadStatus {
  kOk,  ///< even if ProjConf.bin is unreadable: see `config`
  kNoProjectDir,
  kNoProtoDir,
  kNoConfigType,
  kNoLabelType,
  kBadLabels,
};

struct [[nodiscard]] LoadResult {
  LoadStatus status = LoadStatus::kOk;
  ConfigResult config;  ///< of ProjConf.bin
  TypeResult type{};    ///< with kNoConfigType and kNoLabelType
  LabelResult labels;   ///< with kBadLabels

  bool ok() const { return status == LoadStatus::kOk; }
};

/// Reads a project's configuration and labels. `schema` is that of layout.ProtoDir(). Name and sensors are replaced if
/// ProjConf.bin can be read, the labels are appended; what was read before a fault is kept.
LoadResult LoadProjectConfig(const ProjectLayout& layout, Schema& schema, ProjectConfig& config);

}  // namespace internal
}  // namespace ZO_TUNING
