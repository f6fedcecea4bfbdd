// zotuning sensors: the sensors of the project, with the index that 'pack --ask' asks for.

#include <memory>

#include "commands.h"
#include "project.h"

namespace zotuning_tool {
namespace {

int Run(Session& session) {
  Report& report = session.report;
  const auto project = Project::Open(session.project_dir, report);
  if (project == nullptr) return kMisuse;
  if (!project->ok()) return kFailed;

  std::vector<std::vector<std::string>> rows = {{"SENSOR", "INDEX", "SETTINGS", "VERSIONS"}};
  Json sensors = Json::array();
  int index = 0;
  for (const std::string& sensor : project->sensors()) {
    const bool exists = Exists(project->ScopeDir(sensor));
    std::vector<Setting> settings;
    std::vector<FoundFile> versions;
    if (exists) {
      project->ListSettings(sensor, settings, report);
      ListFiles(project->VersionDir(sensor), ".json", versions, report);
    } else {
      report.Error("missing-folder", "the folder of the sensor " + Quoted(sensor) + " is missing",
                   "packing needs it; make it, or leave the sensor out of the configuration",
                   Shown(project->ScopeDir(sensor)));
    }
    const std::string shown_index = exists ? std::to_string(index) : "-";
    rows.push_back({sensor, shown_index, std::to_string(settings.size()), std::to_string(versions.size())});
    sensors.push_back({{"name", sensor},
                       {"index", exists ? Json(index) : Json(nullptr)},
                       {"settings", settings.size()},
                       {"versions", versions.size()}});
    if (exists) ++index;  // only sensors with a folder are counted in the question
  }
  report.Print(Table(rows));
  report.result()["project"] = project->name();
  report.result()["sensors"] = std::move(sensors);
  return kDone;
}

}  // namespace

void AddSensors(CLI::App& app, Session& session) {
  AddCommand(app, session, "sensors", "List the sensors with their settings and versions",
             "Examples:\n"
             "  zotuning sensors\n"
             "  zotuning -C ~/projects/demo sensors --json",
             [&session] { return Run(session); });
}

}  // namespace zotuning_tool
