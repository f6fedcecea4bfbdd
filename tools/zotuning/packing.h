/// \file
/// Packing that notices what the library passes over: what is to be packed is listed by the tool itself, and compared
/// with what the bins hold.
#pragma once

#include <string>
#include <vector>

#include "bin_walk.h"
#include "project.h"
#include "report.h"
#include "staging_dir.h"

namespace zotuning_tool {

/// What a bin has to hold.
struct Scope {
  std::string name;
  std::vector<Setting> settings;
  std::vector<FoundFile> versions;
};

struct PackOptions {
  std::string sensor;  ///< only the default scope and this one; "" for all
  bool ask = false;    ///< the library asks for the sensor on standard input
};

/// Lists what is to be packed; refuses what would block the library, or be missing in the bins without a word.
bool Survey(Project& project, const PackOptions& options, std::vector<Scope>& scopes, Report& report);

/// Makes the folder of bins, called zo_tuning, in the work folder. False after errors that tell every fault of every
/// file. `shown_out_dir` stands for the work folder in messages. Of the scopes those remain that were packed, and
/// `bins` says what is in the bin of each.
bool PackScopes(Project& project, const PackOptions& options, const std::string& shown_out_dir, StagingDir& work,
                std::vector<Scope>& scopes, std::vector<BinContents>& bins, Report& report);

}  // namespace zotuning_tool
