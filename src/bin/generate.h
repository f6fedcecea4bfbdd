/// \file
/// Generation of bins for callers that choose the sensor by name.
#pragma once

#include <string>

namespace ZO_TUNING {
namespace internal {

/// ZoTuningUtils::GenerateProjTuningBins, under whose name it logs. With `only_sensor`, which has to be a sensor of the
/// project, packs "default.bin" and that sensor's bin alone.
bool GenerateBins(const char* proj_dir, const char* out_dir, const std::string* only_sensor);

}  // namespace internal
}  // namespace ZO_TUNING
