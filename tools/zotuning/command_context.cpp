#include "command_context.h"

#include <utility>

namespace zotuning::tool {

CLI::App* AddCommand(CLI::App& app, CommandContext& context, const std::string& name, const std::string& summary,
                     const std::string& help, std::function<int()> run) {
  CLI::App* command = app.add_subcommand(name, summary);
  command->footer(help + "\n\nEvery command also takes -C DIR, --json and -v; see 'zotuning --help'.\n");
  command->fallthrough();
  const std::string full_name = app.get_parent() == nullptr ? name : app.get_name() + " " + name;
  command->callback([&context, command, full_name, run = std::move(run)] {
    if (!command->get_subcommands().empty()) return;  // that one runs
    context.command = full_name;
    context.run = run;
  });
  return command;
}

void AddWhere(CLI::App& command, std::vector<std::string>& where) {
  command
      .add_option("--where", where,
                  "Settings with these label values; 'sensor=S' chooses a sensor or 'default', 'mode=' settings "
                  "without a mode")
      ->type_name("LABEL=VALUE");
}

void ReportNoProject(Console& console) {
  console.Report(Code::kNoProject, "there is no project here: no directory from here up holds ProjConf.bin",
                 "choose one with -C DIR, or make one with 'zotuning init'");
}

int ExitCode(SettingsResult result) {
  switch (result) {
    case SettingsResult::kOk:
      return kDone;
    case SettingsResult::kFaulty:
      return kMisuse;
    case SettingsResult::kNotRead:
      break;
  }
  return kFailed;
}

std::unique_ptr<Project> LoadProject(CommandContext& context, int& code) {
  code = kMisuse;
  std::string dir = context.project_dir;
  if (dir.empty()) dir = Project::FindNearest();
  if (dir.empty()) {
    ReportNoProject(context.console);
    return nullptr;
  }
  auto project = Project::Load(dir, context.console);
  if (project == nullptr) return nullptr;
  code = kFailed;
  return project->ok() ? std::move(project) : nullptr;
}

Json LabelJson(const Project& project, const std::vector<int>& values) {
  const Labels labels = project.labels();
  Json json = Json::object();
  for (size_t i = 0; i < values.size() && i < labels.names().size(); ++i) {
    if (values[i] == kLabelNotSet) continue;
    const std::string& name = labels.ValueName(i, values[i]);
    json[labels.names()[i]] = name.empty() ? Json(values[i]) : Json(name);
  }
  return json;
}

}  // namespace zotuning::tool
