/// \file
/// Packing from what the workspace has listed itself: every file is read once, in the order of its path, and every
/// fault of every file is reported.
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

/// Lists what goes into the bins of `scopes` and reads the versions. False after errors about what would block, or be
/// missing in the bins without a word; what is listed can be packed all the same, to find the faults of the rest.
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
  /// Every field of every object has to be spelled out, and nothing may be packed into something other than what the
  /// text says.
  bool check_fields = true;
  /// Called before each bin is begun.
  std::function<void(const std::string& name)> on_bin = nullptr;
  /// Called with each file that cannot be packed at all: without it the bins are of no use, whatever the faults count
  /// as.
  std::function<void(const std::string& path)> on_refused = nullptr;
};

/// Makes one bin per scope in `bin_folder`, which exists. `shown_folder` stands for it in messages. Goes on after a
/// fault, so that all are reported; false after one, and what was made is of no use then.
bool PackBins(Project& project, const std::vector<ScopeInputs>& inputs, const PackOptions& options,
              const std::string& bin_folder, const std::string& shown_folder, std::vector<PackedBin>& bins,
              DiagnosticSink& sink);

}  // namespace zotuning
