// zotuning sensors: the sensors of the project, with the index that 'pack --ask' asks for.

#include <memory>

#include "command_context.h"

namespace zotuning::tool {
namespace {

int Run(CommandContext& context) {
  Console& console = context.console;
  int code = kDone;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;

  std::vector<std::vector<std::string>> rows = {{"SENSOR", "INDEX", "SETTINGS", "VERSIONS"}};
  Json sensors = Json::array();
  int index = 0;
  for (const std::string& sensor : project->sensors()) {
    const bool exists = Exists(project->layout().ScopeDir(sensor));
    std::vector<Setting> settings;
    std::vector<FoundFile> versions;
    if (exists) {
      project->ListSettings(sensor, settings, console);
      ListFiles(project->layout().ScopeVersionDir(sensor), ".json", versions, console);
    } else {
      console.Report(Code::kMissingFolder, "the folder of the sensor " + Quoted(sensor) + " is missing",
                     "packing needs it; make it, or leave the sensor out of the configuration",
                     DisplayPath(project->layout().ScopeDir(sensor)));
    }
    const std::string shown_index = exists ? std::to_string(index) : "-";
    rows.push_back({sensor, shown_index, std::to_string(settings.size()), std::to_string(versions.size())});
    sensors.push_back({{"name", sensor},
                       {"index", exists ? Json(index) : Json(nullptr)},
                       {"settings", settings.size()},
                       {"versions", versions.size()}});
    if (exists) ++index;  // only sensors with a folder are counted in the question
  }
  console.Print(Table(rows));
  console.result()["project"] = project->name();
  console.result()["sensors"] = std::move(sensors);
  return kDone;
}

}  // namespace

void AddSensors(CLI::App& app, CommandContext& context) {
  AddCommand(app, context, "sensors", "List the sensors with their settings and versions",
             "Examples:\n"
             "  zotuning sensors\n"
             "  zotuning -C ~/projects/demo sensors --json",
             [&context] { return Run(context); });
}

}  // namespace zotuning::tool
