/// \file
/// Helpers for the wording of messages.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zotuning {

/// "1 bin", "3 bins".
inline std::string Count(size_t count, std::string_view noun) {
  return std::to_string(count) + " " + std::string(noun) + (count == 1 ? "" : "s");
}

}  // namespace zotuning
