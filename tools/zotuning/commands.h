/// \file
/// The commands of the tool, one per file. Each adds its subcommand to the parser and leaves what it does in the
/// session.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

#include "report.h"

namespace zotuning_tool {

/// What the command line asks for.
struct Session {
  std::string project_dir;  ///< -C
  bool json = false;
  bool verbose = false;
  Report report;
  std::string command;       ///< the one that was given
  std::function<int()> run;  ///< gives the exit code
};

/// Adds a subcommand with its examples; `run` is called after the whole line has been read.
CLI::App* AddCommand(CLI::App& app, Session& session, const std::string& name, const std::string& summary,
                     const std::string& help, std::function<int()> run);

/// For an option whose value names a file: an unset variable of a shell must not read as the default.
inline CLI::Validator NotEmpty() {
  return CLI::Validator([](std::string& text) { return std::string(text.empty() ? "a name is expected" : ""); }, "");
}

void AddInit(CLI::App& app, Session& session);
void AddTemplate(CLI::App& app, Session& session);
void AddNew(CLI::App& app, Session& session);
void AddPack(CLI::App& app, Session& session);
void AddModules(CLI::App& app, Session& session);
void AddLabels(CLI::App& app, Session& session);
void AddSensors(CLI::App& app, Session& session);
void AddTree(CLI::App& app, Session& session);
void AddShow(CLI::App& app, Session& session);
void AddVerify(CLI::App& app, Session& session);
void AddVersion(CLI::App& app, Session& session);

}  // namespace zotuning_tool
