// zotuning modules: the modules of the project's label, their types, defaults and settings.

#include <cerrno>
#include <map>
#include <memory>

#include "command_context.h"

namespace zotuning::tool {
namespace {

int Run(CommandContext& context) {
  Console& console = context.console;
  int code = kDone;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;

  std::map<std::string, size_t> settings_of;
  for (const std::string& sensor : project->sensors()) {
    std::vector<Setting> settings;
    project->ListSettings(sensor, settings, console);
    for (const Setting& setting : settings) ++settings_of[project->ModuleName(setting.values)];
  }
  std::vector<std::vector<std::string>> rows = {{"MODULE", "NUMBER", "TYPE", "DEFAULT", "SETTINGS"}};
  Json modules = Json::array();
  for (const auto& [name, number, type] : project->Modules()) {
    if (type == nullptr) project->RequireType(name, console);
    const std::string path = project->layout().DefaultPath(name);
    const FileKind kind = KindOf(path);
    if (kind == FileKind::kUnknown) {
      ReportSystemError("look for the default", path, errno, console);
    }
    const bool has_default = kind != FileKind::kMissing;
    rows.push_back({name, std::to_string(number), type == nullptr ? "none" : type->full_name(),
                    has_default ? "yes" : "no", std::to_string(settings_of[name])});
    modules.push_back({{"name", name},
                       {"number", number},
                       {"type", type == nullptr ? Json(nullptr) : Json(type->full_name())},
                       {"default", has_default},
                       {"settings", settings_of[name]}});
  }
  console.Print(Table(rows));
  console.result()["modules"] = std::move(modules);
  return kDone;
}

}  // namespace

void AddModules(CLI::App& app, CommandContext& context) {
  AddCommand(app, context, "modules", "List the modules, their types, defaults and number of settings",
             "Examples:\n"
             "  zotuning modules\n"
             "  zotuning modules --json | jq -r '.result.modules[].name'",
             [&context] { return Run(context); });
}

}  // namespace zotuning::tool
