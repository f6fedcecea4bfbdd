/// \file
/// What packing costs with protobuf's own means: the path that every figure of the benchmarks is compared with.
#pragma once

#include <string>

namespace zotuning_bench {

/// Packs a project as GenerateProjTuningBins does, and into the same bytes, but every file by the public functions
/// alone: protobuf's JSON parser, a search in the text for every field, pruning by reflection, and dynamic
/// serialising. The schema is loaded once. False when anything fails.
bool PackByReference(const std::string& proj_dir, const std::string& out_dir);

}  // namespace zotuning_bench
