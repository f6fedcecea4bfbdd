/// \file
/// Labels on the command line: "mode=1 scenario=Video,Snapshot".
#pragma once

#include <string>
#include <vector>

#include "console.h"
#include "workspace/project.h"

namespace zotuning::tool {

/// Reads "label=value,value ..." into one list of values per label, empty for those that are not given. The exit code,
/// kDone when all is well.
int ReadLabelArguments(const Project& project, const std::vector<std::string>& words,
                       std::vector<std::vector<int>>& choices, Console& console);

}  // namespace zotuning::tool
