/// \file
/// What packing costs with protobuf alone: the path that every benchmark figure is compared with.
#pragma once

#include <string>

namespace zotuning_bench {

/// Packs a project as GenerateProjTuningBins does, to the same bytes, but using only the public functions for each
/// file: protobuf's JSON parser, a search in the text for every field, pruning by reflection, and dynamic
/// serialisation. The schema is loaded once. False if anything fails.
bool PackByReference(const std::string& proj_dir, const std::string& out_dir);

}  // namespace zotuning_bench
