/// \file
/// The settings that a command applies to: those selected by labels whose module has the paths.
#pragma once

#include <google/protobuf/descriptor.h>

#include <string>
#include <vector>

#include "workspace/diagnostic.h"
#include "workspace/label_choice.h"
#include "workspace/path_pattern.h"
#include "workspace/project.h"
#include "workspace/type_table.h"

namespace zotuning {

/// A module with the paths in its type.
struct SelectedModule {
  Project::Module module;
  std::vector<TypedPath> paths;  ///< one for each pattern
};

/// A setting and which of the modules it belongs to.
struct SelectedSetting {
  Setting setting;
  size_t module;
};

/// Valid as long as its project.
class Selection {
 public:
  /// Finds the modules of the choice, or all, that have all of the paths. False after errors: there are none.
  bool FindModules(const Project& project, const LabelChoice& choice, const std::vector<PathPattern>& patterns,
                   DiagnosticSink& sink);

  /// Lists the settings of these modules that the choice selects, by scope and path. False after errors: there are
  /// none, or a folder cannot be read.
  bool FindSettings(const Project& project, const LabelChoice& choice, DiagnosticSink& sink);

  const std::vector<SelectedModule>& modules() const { return modules_; }
  const std::vector<SelectedSetting>& settings() const { return settings_; }
  const SelectedModule& ModuleOf(const SelectedSetting& setting) const { return modules_[setting.module]; }

 private:
  TypeTables tables_;
  std::vector<SelectedModule> modules_;
  std::vector<SelectedSetting> settings_;
};

}  // namespace zotuning
