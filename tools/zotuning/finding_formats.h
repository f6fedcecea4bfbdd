/// \file
/// Diagnostics in the formats of other programs.
#pragma once

#include <string>
#include <vector>

#include "console.h"
#include "workspace/diagnostic.h"

namespace zotuning::tool {

/// SARIF 2.1.0, for code scanning services.
Json SarifLog(const std::vector<Diagnostic>& diagnostics);

/// Workflow commands: a line per diagnostic, shown beside the change that it is about.
std::string GithubLines(const std::vector<Diagnostic>& diagnostics);

}  // namespace zotuning::tool
