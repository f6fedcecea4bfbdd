/// \file
/// Names of the bin folder and of the bins in it. See docs/tuning-bin.md.
#pragma once

#include <string>

namespace ZO_TUNING {
namespace internal {

/// The name of the default bin; every other name is that of a sensor.
constexpr const char* kDefaultBinName = "default";
constexpr const char* kBinSuffix = ".bin";

inline std::string BinFolder(const std::string& out_dir) { return out_dir + "/" + "zo_tuning"; }
inline std::string BinPath(const std::string& bin_folder, const std::string& name) {
  return bin_folder + "/" + name + kBinSuffix;
}

}  // namespace internal
}  // namespace ZO_TUNING
