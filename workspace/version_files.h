/// \file
/// The version files of a project, and what the plain text scan behind the version header makes of them.
#pragma once

#include <google/protobuf/message.h>

#include <memory>
#include <string>
#include <vector>

#include "diagnostic.h"
#include "project.h"

namespace zotuning {

struct VersionFile {
  std::string scope;
  std::string path;
  FileState state;  ///< before it was read
  std::string text;
  std::unique_ptr<google::protobuf::Message> message;  ///< null where the text does not fit the type Version
  std::string name;
  std::string version;
};

/// Appends the version files of a scope, ordered by path. False after errors that name each file at fault. The messages
/// have to be deleted before the project.
bool ReadVersionFiles(Project& project, const std::string& scope, std::vector<VersionFile>& files,
                      DiagnosticSink& sink);

/// Why the scan reads other texts from the file than its fields hold, "" when it reads them right.
std::string ScanFault(const VersionFile& file);

/// Why a text would not survive the scan or the header, "" when it would.
std::string TextFault(const std::string& text);

}  // namespace zotuning
