/// \file
/// Everything that can be wrong with a project, found in one run. Only reads; writes nothing.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "workspace/check_json.h"
#include "workspace/diagnostic.h"
#include "workspace/project.h"

namespace zotuning {

struct CheckOptions {
  FitOptions fit;
  /// What the one path that is to be checked holds, whatever is on the disk; the file need not be there.
  std::optional<std::string> text;
};

/// Reports the schema errors that packing does not find by itself: modules of the labels without a type.
void CheckModuleTypes(Project& project, DiagnosticSink& sink);

/// Checks the project at `dir`: schema, configuration, labels, versions and version header, defaults and the settings
/// of every sensor. With `paths`, only those files and the files below those folders; the schema is still loaded, and
/// its faults are reported if it is among the paths or its faults hide theirs. Diagnostics are ordered by path and
/// line. False if there is no project, or a path cannot be checked.
bool CheckProject(const std::string& dir, const std::vector<std::string>& paths, const CheckOptions& options,
                  DiagnosticSink& sink);

}  // namespace zotuning
