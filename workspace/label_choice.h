/// \file
/// Settings selected by label values, as on a command line: module=AfCommon,AWGain mode=1 sensor=main_wide.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "workspace/diagnostic.h"
#include "workspace/project.h"

namespace zotuning {

struct LabelChoice {
  std::vector<std::string> scopes;       ///< of "sensor=", kDefaultScope for "default"; empty if not given
  std::vector<std::vector<int>> values;  ///< by label; empty if not given, kLabelNotSet for "label="

  /// Whether the setting has one of the values for each label given.
  bool Takes(const Setting& setting) const;

  /// All combinations of the values, the last label changing fastest; labels not given are not set.
  std::vector<std::vector<int>> Combine() const;
};

enum class ChoiceResult {
  kOk,
  kMisuse,   ///< not of this form
  kUnknown,  ///< no such label, value or sensor
};

/// Parses "label=value,value" words. Reports every fault. "sensor=" and "label=" are allowed if `scopes` says so.
ChoiceResult ParseLabelChoice(const Project& project, const std::vector<std::string>& words, bool scopes,
                              LabelChoice& choice, DiagnosticSink& sink);

/// Whether settings can be created for the choice: a module is given, and no level of the tree is skipped. False after
/// one error.
bool CheckLevels(const Project& project, const LabelChoice& choice, DiagnosticSink& sink);

/// A setting to create.
struct NewSetting {
  std::vector<int> values;
  std::string path;
  std::string text;
};

/// The path to copy the setting of a module from; "" after an error.
using CopySource = std::function<std::string(const std::string& module)>;

/// Plans settings of `scope`, one for each of `values`, as copies of what `source` selects, by default the modules'
/// defaults. Checks their texts, and that the paths read back as the values. False after errors.
bool PlanSettings(Project& project, const std::string& scope, const std::vector<std::vector<int>>& values,
                  const CopySource& source, std::vector<NewSetting>& plan, DiagnosticSink& sink);

}  // namespace zotuning
