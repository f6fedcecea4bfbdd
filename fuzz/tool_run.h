/// \file
/// The entire command-line tool in a fuzz target, and a small project for it.
#pragma once

#include <string>
#include <vector>

namespace zofuzz {

struct ToolRun {
  int code = 0;
  std::string out, err;
};

/// Runs the tool in the current directory. A run that breaks what every command promises is a finding: the exit code is
/// 0, 1 or 2, a failure is reported, and what --json prints is an object that says the same.
ToolRun RunTool(const std::vector<std::string>& words);

/// Makes a project of the example's files of these modules in `dir`; nothing in it is a link. AfCommon, the first of
/// the label's modules, must be among them.
void MakeSmallProject(const std::string& dir, const std::vector<std::string>& modules);

/// The files in `dir` and their contents, in the form that SplitParts parses; folders are files that end in "/".
std::string Archive(const std::string& dir);

}  // namespace zofuzz
