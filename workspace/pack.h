/// \file
/// Packing from the workspace's own list of files: every file is read once, in the order of its path, and every fault
/// of every file is reported.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "diagnostic.h"
#include "project.h"
#include "version_files.h"

namespace zotuning {

/// What a bin is made from.
struct ScopeInputs {
  std::string name;
  std::vector<Setting> settings;
  std::vector<VersionFile> versions;
  std::vector<std::pair<std::string, FileState>> states;  ///< of all its files, before they were read
};

/// Lists what goes into the bins of `scopes` and reads the versions. False after errors about files that would block,
/// or be silently missing in the bins; what is listed can still be packed, to find the faults of the rest.
bool ListInputs(Project& project, const std::vector<std::string>& scopes, std::vector<ScopeInputs>& inputs,
                DiagnosticSink& sink);

struct PackedBin {
  std::string name;
  uint64_t bytes = 0;
  size_t versions = 0;
  size_t records = 0;
  double milliseconds = 0;
};

struct PackOptions {
  /// Every field of every object must be spelled out, and nothing may be packed as something other than what the text
  /// says.
  bool check_fields = true;
  /// Called before each bin is started.
  std::function<void(const std::string& name)> on_bin = nullptr;
  /// Called with each file that cannot be packed at all: without it the bins are useless, whatever the severity of the
  /// faults.
  std::function<void(const std::string& path)> on_refused = nullptr;
};

/// Makes one bin per scope in `bin_folder`, which exists. Messages show it as `shown_folder`. Continues after a fault,
/// so that all are reported; false after one, and the output is then useless.
bool PackBins(Project& project, const std::vector<ScopeInputs>& inputs, const PackOptions& options,
              const std::string& bin_folder, const std::string& shown_folder, std::vector<PackedBin>& bins,
              DiagnosticSink& sink);

}  // namespace zotuning
