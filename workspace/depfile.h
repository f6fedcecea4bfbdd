/// \file
/// What bins were made from, for Make and Ninja.
#pragma once

#include <string>
#include <vector>

#include "pack.h"

namespace zotuning {

/// A rule of Make: the bins `made` depend on the schema, the configuration, the files of `inputs`, and their folders,
/// which change when files come and go. Each of them is a target of its own as well, so that one that is removed is no
/// error.
std::string DepfileText(const std::vector<std::string>& made, const Project& project,
                        const std::vector<ScopeInputs>& inputs);

}  // namespace zotuning
