/// \file
/// zotuning.json beside ProjConf.bin: permanent settings of a project. JSON, with comments.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "workspace/compare.h"
#include "workspace/diagnostic.h"

namespace zotuning {

struct ProjectSettings {
  /// "diff": {"tolerances": [{"path": "AfCommon.gain.*", "abs": 0.5, "rel": 0.01}]}
  std::vector<PathTolerance> tolerances;
  /// "severities": {"json-missing-field": "warning"}: by the name of a code, "error", "warning" or "off". Unknown codes
  /// are checked later.
  std::map<std::string, std::string> severities;
};

enum class [[nodiscard]] SettingsResult{
    kOk,
    kFaulty,   ///< errors with their places: an unknown key is one
    kNotRead,  ///< the system's reason
};

/// Reads the settings of the project at `dir`; without the file they are empty. All but kOk was reported.
SettingsResult ReadProjectSettings(const std::string& dir, ProjectSettings& settings, DiagnosticSink& sink);

/// The same from the text of `file`. False when it is faulty.
bool ParseProjectSettings(std::string text, const std::string& file, ProjectSettings& settings, DiagnosticSink& sink);

}  // namespace zotuning
