/// \file
/// What bins were made from, for Make and Ninja.
#pragma once

#include <string>
#include <vector>

#include "pack.h"

namespace zotuning {

/// A Make rule: the bins `made` depend on the schema, the configuration, the files of `inputs`, and their folders,
/// which change when files are added or removed. Each is also a target of its own, so that a removed one is not an
/// error.
std::string DepfileText(const std::vector<std::string>& made, const Project& project,
                        const std::vector<ScopeInputs>& inputs);

}  // namespace zotuning
