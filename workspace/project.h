/// \file
/// A tuning project, loaded once: its layout, schema, labels and configuration, and the list of its settings.
#pragma once

#include <google/protobuf/descriptor.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "diagnostic.h"
#include "files.h"
#include "schema/labels-inl.h"
#include "schema/project_config.h"
#include "schema/project_layout-inl.h"
#include "schema/schema.h"

namespace zotuning {

using ZO_TUNING::internal::JoinPath;
using ZO_TUNING::internal::kDefaultScope;
using ZO_TUNING::internal::kLabelNotSet;
using ZO_TUNING::internal::Labels;
using ZO_TUNING::internal::ProjectLayout;
using ZO_TUNING::internal::Schema;

/// A JSON file of a scope.
struct Setting {
  std::string scope;
  std::string relative;  ///< its path below the scope's folder
  std::string path;
  std::vector<int> values;          ///< label values, kLabelNotSet for those not set
  std::vector<std::string> faults;  ///< what the labels do not know about its folders and name
};

/// The module name that a setting's file name gives, known or not.
std::string ModuleOfFile(const std::string& path);

/// Why a name cannot be used for a folder of a project, such as a sensor's; "" if it can.
std::string NameFault(const std::string& name);

/// Loads the schema below `proto_dir` and reports every fault of every file; special files, which would block, are
/// rejected. Null if it cannot be read and, unless `has_errors` is given, if it has errors: its other types can still
/// be used.
std::unique_ptr<Schema> LoadSchema(const std::string& proto_dir, DiagnosticSink& sink, bool* has_errors = nullptr);

/// The message type that a short name refers to; null after an error that says what the schema has instead.
const google::protobuf::Descriptor* RequireType(const Schema& schema, const std::string& short_name,
                                                DiagnosticSink& sink);

/// The position of a declaration in the schema.
void SetSchemaPlace(const Schema& schema, const google::protobuf::FieldDescriptor& field, Diagnostic* diagnostic);
void SetSchemaPlace(const Schema& schema, const google::protobuf::EnumValueDescriptor& value, Diagnostic* diagnostic);

/// Says in which other package a missing type is; "" if in none.
std::string OtherPackageHint(const Schema& schema, const std::string& short_name);

/// Reports why labels cannot be used, from the result of reading or setting them. Returns false.
bool ReportLabelFault(const ZO_TUNING::internal::LabelResult& result, const Schema& schema, DiagnosticSink& sink);

class Project {
 public:
  /// The nearest directory from `from` upwards with a configuration, as a path from `from`; "" if there is none.
  static std::string FindNearest(const std::string& from = ".");

  /// Loads the project at `dir`; null after an error if there is none. A project with faults is not ok().
  static std::unique_ptr<Project> Load(const std::string& dir, DiagnosticSink& sink);

  /// Whether schema, configuration and labels were read without an error.
  bool ok() const { return ok_; }
  /// Whether labels are known, even if the schema has errors elsewhere. If the configuration cannot be read, the
  /// folders that contain settings are taken as the sensors.
  bool has_labels() const { return has_labels_; }
  /// Whether there is a schema at all.
  bool has_schema() const { return schema_ != nullptr; }

  const ProjectLayout& layout() const { return layout_; }
  const std::string& dir() const { return layout_.dir(); }
  const std::string& name() const { return config_.name; }
  const std::vector<std::string>& sensors() const { return config_.sensor_names; }
  Labels labels() const { return config_.labels(); }
  Schema& schema() { return *schema_; }
  const Schema& schema() const { return *schema_; }
  const google::protobuf::Descriptor* label_type() const { return label_type_; }
  const google::protobuf::Descriptor* version_type() const { return version_type_; }

  const google::protobuf::Descriptor* RequireType(const std::string& short_name, DiagnosticSink& sink) const {
    return zotuning::RequireType(*schema_, short_name, sink);
  }

  /// Modules that the labels name and that have a type, in number order; others have a null type. The number 0 means no
  /// module if it has no type, and is then left out.
  struct Module {
    std::string name;
    int number;
    const google::protobuf::Descriptor* type;
  };
  std::vector<Module> Modules() const;

  /// Names of the values of label `index` in number order.
  std::vector<std::string> ValueNames(size_t index) const;
  /// The short name of a value, the number for an int32 label, "" if it has no name.
  std::string ValueText(size_t index, int value) const;
  /// "AfCommon", the module of label values; "" if there is none.
  std::string ModuleName(const std::vector<int>& values) const;
  /// "module=AfCommon mode=1", the labels that are set.
  std::string LabelText(const std::vector<int>& values) const;

  /// Whether `name` is a sensor; reports a wrong name with the nearest one.
  bool RequireSensor(const std::string& name, DiagnosticSink& sink) const;

  /// kDefaultScope and the sensors.
  std::vector<std::string> Scopes() const;

  /// Folders of the project that contain settings or versions like a sensor's, but are not listed.
  std::vector<std::string> UnlistedFolders() const;

  /// The settings of a scope, ordered by path. False after an error if not all could be listed.
  bool ListSettings(const std::string& scope, std::vector<Setting>& settings, DiagnosticSink& sink) const;

  /// What the labels do not know about the name of a folder, "" for a level.
  std::string FolderFault(const std::string& folder) const;

  /// The label values read from the path of a JSON file.
  std::vector<int> LabelsOf(const std::string& path) const;

  /// The path of a setting below the project's folder. Creates nothing on disk.
  std::string SettingPath(const std::string& scope, const std::vector<int>& values) const;

 private:
  explicit Project(const std::string& dir) : layout_(dir) {}
  bool LoadAll(DiagnosticSink& sink);
  /// Reads the labels, reporting values without a short name. False if the labels are unusable.
  bool ReadUsableLabels(DiagnosticSink& sink);
  bool CheckConfig(const ZO_TUNING::internal::LoadResult& loaded, DiagnosticSink& sink) const;
  void ReadLabels(Setting& setting) const;

  ProjectLayout layout_;
  bool ok_ = false;
  bool has_labels_ = false;
  ZO_TUNING::internal::ProjectConfig config_;
  std::unique_ptr<Schema> schema_;
  const google::protobuf::Descriptor* label_type_ = nullptr;
  const google::protobuf::Descriptor* version_type_ = nullptr;
  mutable std::map<std::string, std::string> folder_faults_;  ///< cache
};

}  // namespace zotuning
