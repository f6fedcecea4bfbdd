/// \file
/// The project that a command works on, and its settings with their labels.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "files.h"
#include "report.h"
#include "schema_view.h"

namespace zotuning_tool {

/// The scope of the default data; every other scope is a sensor.
constexpr const char* kDefaultScope = "default";

/// A JSON file of a scope.
struct Setting {
  std::string scope;
  std::string relative;  ///< its path below the scope's folder
  std::string path;
  std::vector<int> values;          ///< label values, -1 for "not set"
  std::vector<std::string> faults;  ///< what the labels do not know about its folders and name
};

class Project {
 public:
  /// Opens the project at `dir`, or, when that is empty, in the nearest parent directory that holds ProjConf.bin. Null
  /// after an error when there is none; check ok() for one that has faults.
  static std::unique_ptr<Project> Open(const std::string& dir, Report& report);

  /// Whether schema, configuration and labels were read without an error.
  bool ok() const { return ok_; }

  const std::string& dir() const { return dir_; }
  const std::string& name() const { return name_; }
  const std::vector<std::string>& sensors() const { return sensors_; }
  SchemaView& schema() { return *schema_; }

  // The library takes these by reference and enters what it looks up, so it gets copies.
  const std::vector<std::string>& label_names() const { return label_names_; }
  const std::map<std::string, std::map<int, std::string>>& label_map() const { return label_map_; }

  /// Names of label `index` in number order.
  std::vector<std::string> ValueNames(size_t index) const;
  /// The short name of a value, its number for an int32 label, "" for one without a name.
  std::string ValueName(size_t index, int value) const;
  /// "AfCommon", the module of label values; "" when they name none.
  std::string ModuleName(const std::vector<int>& values) const;
  /// "module=AfCommon mode=1", the labels that are set.
  std::string LabelText(const std::vector<int>& values) const;
  Json LabelJson(const std::vector<int>& values) const;

  /// Whether `name` is a sensor; reports a wrong name with the nearest one.
  bool RequireSensor(const std::string& name, Report& report) const;

  /// kDefaultScope and the sensors.
  std::vector<std::string> Scopes() const;
  std::string ScopeDir(const std::string& scope) const { return dir_ + "/" + scope; }
  std::string VersionDir(const std::string& scope) const;
  std::string DefaultPath(const std::string& module) const { return ScopeDir(kDefaultScope) + "/" + module + ".json"; }

  /// The settings of a scope by path. False after an error when they could not all be listed.
  bool ListSettings(const std::string& scope, std::vector<Setting>& settings, Report& report) const;

  /// The label values that a path of a JSON file reads as.
  std::vector<int> LabelsOf(const std::string& path) const;

  /// The path of a setting below the project's folder. Makes nothing on disk.
  std::string SettingPath(const std::string& scope, const std::vector<int>& values) const;

 private:
  explicit Project(std::string dir) : dir_(std::move(dir)) {}
  bool Load(Report& report);
  void ReadLabels(Setting& setting) const;
  /// What the labels do not know about the name of a folder, "" for a level.
  std::string FolderFault(const std::string& folder) const;

  std::string dir_;
  bool ok_ = false;
  std::string name_;
  std::vector<std::string> sensors_;
  std::vector<std::string> label_names_;
  std::map<std::string, std::map<int, std::string>> label_map_;
  std::unique_ptr<SchemaView> schema_;
  mutable std::vector<std::string> read_names_;  ///< of LabelsOf
  mutable std::map<std::string, std::map<int, std::string>> read_map_;
  mutable std::map<std::string, std::string> folder_faults_;  ///< of the folders met so far
};

}  // namespace zotuning_tool
