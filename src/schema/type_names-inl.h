/// \file
/// Bodies of the public functions that name schema types. Contracts: ZoTuningUtils.h.
#pragma once

#include <string>
#include <utility>

#include "log/tuning_log-inl.h"

namespace ZO_TUNING {

inline void ADD_NAMESPACE_TO_CLASSNAME(const std::string& name, std::string& out) try {
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
  out = std::move(qualified);  // last, so that `out` may be `name` itself
} catch (...) {
  internal::ReportException(__LINE__, __func__);
}

}  // namespace ZO_TUNING
