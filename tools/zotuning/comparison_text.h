/// \file
/// Text and JSON of comparisons, the same for every command that compares.
#pragma once

#include <string>

#include "console.h"
#include "workspace/sides.h"

namespace zotuning::tool {

struct ComparisonForm {
  bool scopes = false;  ///< whether the lines name the scope
  bool all = false;     ///< every difference, and every element of lists
  bool stat = false;    ///< one line per setting
  bool colour = false;
};

/// How many lines of a setting are shown unless all are.
constexpr size_t kShownDifferences = 20;

/// "changed  main_wide module=AfCommon mode=1", and a line for each difference.
std::string ComparisonText(const EntryComparison& pair, const ComparisonForm& form);

/// "--- HEAD:" and "+++ main_wide", and what only one of the schemas has.
std::string HeadText(const std::string& left, const std::string& right, bool colour);
std::string SchemaText(const SidesComparison& comparison, const ComparisonForm& form);

/// The same as JSON: kind, scope, labels or version, left, right, count, differences.
Json ComparisonJson(const EntryComparison& pair);

}  // namespace zotuning::tool
