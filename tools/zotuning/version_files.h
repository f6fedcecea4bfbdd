/// \file
/// The version files of a project, and what the plain text scan behind the version header makes of them.
#pragma once

#include <string>
#include <vector>

#include "project.h"
#include "report.h"

namespace zotuning_tool {

struct VersionFile {
  std::string scope;
  std::string path;
  std::string text;
  bool fits = false;  ///< whether it is a message of the type Version
  std::string name;
  std::string version;
};

/// Appends the version files of a scope by path. False after errors that name each file at fault.
bool ReadVersionFiles(Project& project, const std::string& scope, std::vector<VersionFile>& files, Report& report);

/// Why the scan reads other texts from the file than its fields hold, "" when it reads them right.
std::string ScanFault(const VersionFile& file);

/// Why a text would not survive the scan or the header, "" when it would.
std::string TextFault(const std::string& text);

}  // namespace zotuning_tool
