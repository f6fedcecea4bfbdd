/// \file
/// What one call of bin generation works with, and the packing of one setting.
#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "bin/bin_writer.h"
#include "io/padded_file.h"
#include "schema/project_config.h"
#include "schema/schema.h"
#include "transcode/json_transcoder.h"
#include "transcode/module_table.h"

namespace ZO_TUNING {
namespace internal {

/// The version messages of one scope, owned.
class VersionMessages {
 public:
  VersionMessages() = default;
  VersionMessages(const VersionMessages&) = delete;
  VersionMessages& operator=(const VersionMessages&) = delete;
  ~VersionMessages() { Clear(); }

  /// Replaces the messages by those of the files below `version_dir`. False after a failure that GetVersionMsgs logged.
  [[nodiscard]] bool Read(const std::string& version_dir, const google::protobuf::Message* prototype);

  const std::vector<google::protobuf::Message*>& messages() const { return messages_; }

 private:
  void Clear();

  std::vector<google::protobuf::Message*> messages_;
};

enum class PackResult {
  kPacked,
  kLabelFailed,
  kNoModuleType,  ///< the label is in the bin then
  kNoMessage,     ///< no module message could be made; protobuf itself stops rather than say so
  kNotConverted,  ///< the JSON text does not fit the module type
  kFieldMissing,  ///< the JSON text does not mention a field
  kWriteFailed,
};

enum class FieldChecking { kOn, kOff };

/// The schema, configuration and versions of one generation call. Logs nothing of its own; the operations whose steps
/// it carries out word the failures.
class BinPacker {
 public:
  /// Loads the schema of the project.
  explicit BinPacker(const std::string& proj_dir);

  /// GetProjectConfig; what it could not read stays empty.
  void LoadConfig() { LoadProjectConfig(proj_dir_, schema_, config_); }

  /// Find the types that generation needs; false when the schema lacks them.
  [[nodiscard]] bool FindLabelType();
  [[nodiscard]] bool FindVersionType();

  /// Reads the versions of the default scope and of every sensor of the configuration.
  [[nodiscard]] bool ReadVersions();

  /// Appends the record of the JSON file at `json_path` to the bin. `module` is replaced with the name of its module.
  [[nodiscard]] PackResult PackSetting(const std::string& json_path, FieldChecking checking, BinWriter& bin,
                                       std::string& module);

  std::vector<std::string>& sensor_names() { return config_.sensor_names; }
  std::string DefaultDir() const { return proj_dir_ + "/" + "default"; }
  std::string SensorDir(const std::string& sensor) const { return proj_dir_ + "/" + sensor; }
  const VersionMessages& default_versions() const { return default_versions_; }
  const VersionMessages& sensor_versions(const std::string& sensor) { return sensor_versions_[sensor]; }

 private:
  const ModuleTable& TableOf(const google::protobuf::Descriptor* module_type);

  /// The path of every text that the fast path does not support: through protobuf's own parser and a message.
  [[nodiscard]] PackResult PackBySlowPath(const std::string& text, const google::protobuf::Descriptor* module_type,
                                          FieldChecking checking, BinWriter& bin);

  std::string proj_dir_;
  Schema schema_;  // before all messages made from it
  ProjectConfig config_;
  const google::protobuf::Descriptor* label_type_ = nullptr;
  const google::protobuf::Descriptor* version_type_ = nullptr;
  VersionMessages default_versions_;
  std::map<std::string, VersionMessages> sensor_versions_;
  std::unordered_map<const google::protobuf::Descriptor*, std::unique_ptr<ModuleTable>> tables_;
  PaddedFile file_;
  JsonTranscoder transcoder_;
};

}  // namespace internal
}  // namespace ZO_TUNING
