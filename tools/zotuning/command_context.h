/// \file
/// The commands of the tool, one per file. Each adds its subcommand to the parser and puts what it does into the
/// context.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "console.h"
#include "workspace/project.h"
#include "workspace/project_settings.h"

namespace zotuning::tool {

/// What the command line asks for.
struct CommandContext {
  std::string project_dir;  ///< -C
  bool json = false;
  bool verbose = false;
  Console console;
  std::vector<std::string> help;  ///< for the command "help", which is read before all others
  std::string command;            ///< the one that was given
  std::function<int()> run;       ///< returns the exit code
};

/// Adds a subcommand with its examples; `run` is called after the whole command line has been read.
CLI::App* AddCommand(CLI::App& app, CommandContext& context, const std::string& name, const std::string& summary,
                     const std::string& help, std::function<int()> run);

/// Loads the project given with -C, or the nearest one upwards. Null after errors; the command must then return `code`.
std::unique_ptr<Project> LoadProject(CommandContext& context, int& code);

/// The error that neither -C nor the current folder leads to a project.
void ReportNoProject(Console& console);

/// What a command returns after reading zotuning.json: kDone, kMisuse if its contents are wrong, kFailed if it cannot
/// be read.
int ExitCode(SettingsResult result);

/// {"module": "AfCommon", "mode": 1}, the labels that are set.
Json LabelJson(const Project& project, const std::vector<int>& values);

/// Adds the option that chooses settings by labels.
void AddWhere(CLI::App& command, std::vector<std::string>& where);

/// For an option whose value names a file: an unset shell variable must not count as the default.
inline CLI::Validator NotEmpty() {
  return CLI::Validator([](std::string& text) { return std::string(text.empty() ? "a name is expected" : ""); }, "");
}

void AddFmt(CLI::App& app, CommandContext& context);
void AddGet(CLI::App& app, CommandContext& context);
void AddInit(CLI::App& app, CommandContext& context);
void AddCheck(CLI::App& app, CommandContext& context);
void AddTemplate(CLI::App& app, CommandContext& context);
void AddNew(CLI::App& app, CommandContext& context);
void AddPack(CLI::App& app, CommandContext& context);
void AddModules(CLI::App& app, CommandContext& context);
void AddLabels(CLI::App& app, CommandContext& context);
void AddSensors(CLI::App& app, CommandContext& context);
void AddTree(CLI::App& app, CommandContext& context);
void AddSet(CLI::App& app, CommandContext& context);
void AddShow(CLI::App& app, CommandContext& context);
void AddDiff(CLI::App& app, CommandContext& context);
void AddWhich(CLI::App& app, CommandContext& context);
void AddReport(CLI::App& app, CommandContext& context);
void AddVerify(CLI::App& app, CommandContext& context);
void AddMigrate(CLI::App& app, CommandContext& context);
void AddSchema(CLI::App& app, CommandContext& context);
void AddVersion(CLI::App& app, CommandContext& context);

}  // namespace zotuning::tool
