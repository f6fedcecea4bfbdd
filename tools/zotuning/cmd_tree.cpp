// zotuning tree: every setting with its label values, and what the labels do not know about it.

#include <algorithm>
#include <map>
#include <memory>

#include "command_context.h"
#include "workspace/suggest.h"

namespace zotuning::tool {
namespace {

/// Settings with the same labels: only one of them can be right.
void ReportTwins(const Project& project, const std::vector<Setting>& settings, Console& console) {
  std::map<std::vector<int>, const Setting*> seen;
  for (const Setting& setting : settings) {
    if (!setting.faults.empty()) continue;
    const auto [place, fresh] = seen.emplace(setting.values, &setting);
    if (fresh) continue;
    console.Warn(Code::kSameLabels,
                 "this setting has the labels of " + Quoted(place->second->relative) + " (" +
                     project.LabelText(setting.values) + ")",
                 "both are packed; remove one", DisplayPath(setting.path));
  }
}

std::vector<std::string> Heading(const Project& project) {
  std::vector<std::string> row;
  for (const std::string& label : project.labels().names()) row.push_back((row.empty() ? "  " : "") + label);
  row.push_back("file");
  return row;
}

std::vector<std::string> Row(const Project& project, const Setting& setting) {
  std::vector<std::string> row;
  for (size_t i = 0; i < setting.values.size(); ++i) {
    const std::string name = setting.values[i] == -1 ? "-" : project.ValueText(i, setting.values[i]);
    row.push_back((i == 0 ? "  " : "") + name);
  }
  row.push_back(setting.relative + (setting.faults.empty() ? "" : "  (!)"));
  return row;
}

int Run(CommandContext& context, const std::string& only) {
  Console& console = context.console;
  int code = kDone;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;
  if (!only.empty() && only != kDefaultScope && !project->RequireSensor(only, console)) return kFailed;

  Json scopes = Json::array();
  for (const std::string& scope : project->Scopes()) {
    if (!only.empty() && scope != only) continue;
    std::vector<Setting> settings;
    project->ListSettings(scope, settings, console);
    Json json_settings = Json::array();
    std::vector<std::vector<std::string>> rows = {Heading(*project)};
    for (const Setting& setting : settings) {
      rows.push_back(Row(*project, setting));
      json_settings.push_back({{"path", DisplayPath(setting.path)},
                               {"labels", LabelJson(*project, setting.values)},
                               {"values", setting.values},
                               {"faults", setting.faults}});
    }
    console.Print(Printable(scope) + " (" + Count(settings.size(), "setting") + ")\n");
    if (!settings.empty()) console.Print(Table(rows));
    for (const Setting& setting : settings) {
      for (const std::string& fault : setting.faults)
        console.Report(Code::kUnknownLabel, fault, "", DisplayPath(setting.path));
    }
    ReportTwins(*project, settings, console);
    scopes.push_back({{"scope", scope}, {"settings", std::move(json_settings)}});
  }
  console.result()["scopes"] = std::move(scopes);
  return kDone;
}

}  // namespace

void AddTree(CLI::App& app, CommandContext& context) {
  auto only = std::make_shared<std::string>();
  CLI::App* command =
      AddCommand(app, context, "tree", "Show each setting with its label values, and what the labels do not know",
                 "Exits with 1 when a file's folders or name give no labels.\n"
                 "\n"
                 "Examples:\n"
                 "  zotuning tree\n"
                 "  zotuning tree main_wide\n"
                 "  zotuning tree default --json",
                 [&context, only] { return Run(context, *only); });
  command->add_option("SENSOR", *only, "Only this sensor, or 'default'");
}

}  // namespace zotuning::tool
