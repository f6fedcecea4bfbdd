/// \file
/// Names of the bin folder and of the bins in it. See docs/tuning-bin.md.
#pragma once

#include <string>
#include <vector>

#include "io/directory.h"
#include "schema/project_layout-inl.h"

namespace ZO_TUNING {
namespace internal {

constexpr const char* kBinSuffix = ".bin";

inline std::string BinFolder(const std::string& out_dir) { return JoinPath(out_dir, "zo_tuning"); }

/// The bin of a scope: kDefaultScope or a sensor.
inline std::string BinPath(const std::string& bin_folder, const std::string& scope) {
  return JoinPath(bin_folder, scope + kBinSuffix);
}

/// What a bin folder holds.
struct BinListing {
  std::vector<std::string> names;   ///< of the bins: their scopes, as far as their names tell
  std::vector<std::string> paths;   ///< index-aligned with `names`
  std::vector<std::string> others;  ///< names of entries that are neither bins nor directories
};

/// Appends the entries of a bin folder, in directory order.
DirectoryResult ListBins(const char* dir, BinListing& listing);

}  // namespace internal
}  // namespace ZO_TUNING
