/// \file
/// "Did you mean": the known name nearest to a wrong one.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zotuning {

/// The one candidate that starts with `name`, else the nearest by edit distance, ignoring case; "" if none is near.
/// Never `name` itself.
std::string Nearest(std::string_view name, const std::vector<std::string>& candidates);

/// "; did you mean 'X'?" or "".
std::string DidYouMean(std::string_view name, const std::vector<std::string>& candidates);

}  // namespace zotuning
