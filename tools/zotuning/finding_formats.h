/// \file
/// Diagnostics in the forms that other programs read.
#pragma once

#include <string>
#include <vector>

#include "console.h"
#include "workspace/diagnostic.h"

namespace zotuning::tool {

/// SARIF 2.1.0, for code scanning services.
Json SarifLog(const std::vector<Diagnostic>& diagnostics);

/// Workflow commands: a line per diagnostic that shows it beside the change it is about.
std::string GithubLines(const std::vector<Diagnostic>& diagnostics);

}  // namespace zotuning::tool
