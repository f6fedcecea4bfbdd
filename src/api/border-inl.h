/// \file
/// The border of the library: the one place that catches exceptions.
#pragma once

#include <exception>

#include "log/tuning_log-inl.h"

namespace ZO_TUNING {
namespace internal {

/// Runs the body of an exported operation. An exception from it becomes one error line of `function`, and false or null
/// if there is a result. Bodies call one another without a border, so that the outermost operation reports: a result
/// that an operation ignores is about an unreadable file, not about lack of memory.
template <typename Body>
__attribute__((visibility("hidden"))) auto AtBorder(SourceLine at, const char* function, const Body& body)
    -> decltype(body()) {
  try {
    return body();
  } catch (const std::exception& error) {
    TuningLog(kLogError, at, function, "Stopped by an unexpected failure: %s", error.what());
  } catch (...) {
    TuningLog(kLogError, at, function, "Stopped by an unexpected failure of unknown kind");
  }
  return decltype(body())();
}

}  // namespace internal
}  // namespace ZO_TUNING
