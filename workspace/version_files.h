/// \file
/// The version files of a project, and what the plain text scan for the version header reads from them.
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
  std::unique_ptr<google::protobuf::Message> message;  ///< null if the text does not fit the type Version
  std::string name;
  std::string version;
};

/// Appends the version files of a scope, ordered by path. False after errors that name each faulty file. The messages
/// must be deleted before the project.
bool ReadVersionFiles(Project& project, const std::string& scope, std::vector<VersionFile>& files,
                      DiagnosticSink& sink);

/// Reports, with `severity`, that the scan reads other values from the file than its fields have. True if it reads them
/// correctly.
bool ReportScanFault(const VersionFile& file, Severity severity, DiagnosticSink& sink);

/// Why a text would not survive the scan or the header; "" if it would.
std::string TextFault(const std::string& text);

/// The lines of a text, without their line feeds.
std::vector<std::string> SplitLines(const std::string& text);

/// The version header `header` with the versions of `files`.
std::string HeaderText(const std::string& header, const std::vector<VersionFile>& files);

/// Whether the header contains these versions, in any order: the library writes them in directory order.
bool HeaderIsCurrent(const std::string& header, const std::vector<VersionFile>& files);

}  // namespace zotuning
