/// \file
/// The names of schema types.
#pragma once

#include <string>

namespace ZO_TUNING {
namespace internal {

/// `name` qualified by the package that its first two characters select.
inline std::string QualifiedTypeName(const std::string& name) {
  const std::string key = name.substr(0, 2);
  std::string qualified = "ZO_TUNING";
  if (key == "Af") {
    qualified = "ZO_TUNING_AF";
  } else if (key == "AW") {
    qualified = "ZO_TUNING_AWB";
  } else if (key == "AE") {
    qualified = "ZO_TUNING_AEC";
  } else if (key == "Pd") {
    qualified = "ZO_TUNING_PD";
  }
  qualified += '.';
  qualified += name;
  return qualified;
}

}  // namespace internal
}  // namespace ZO_TUNING
