// zotuning modules: the modules of the project's label, their types, defaults and settings.

#include <cerrno>
#include <cstring>
#include <map>
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

  std::map<std::string, size_t> settings_of;
  for (const std::string& sensor : project->sensors()) {
    std::vector<Setting> settings;
    project->ListSettings(sensor, settings, report);
    for (const Setting& setting : settings) ++settings_of[project->ModuleName(setting.values)];
  }
  std::vector<std::vector<std::string>> rows = {{"MODULE", "NUMBER", "TYPE", "DEFAULT", "SETTINGS"}};
  Json modules = Json::array();
  for (const auto& [number, name] : project->label_map().at(project->label_names()[0])) {
    if (name.empty()) continue;
    const auto* type = project->schema().FindType(name);
    // The first value of an enum has to be 0; often it stands for no module at all.
    if (type == nullptr && number == 0) continue;
    if (type == nullptr) {
      report.Error("schema-type", "the label names a module " + Quoted(name) + ", but the schema has no message type " +
                                      Quoted(SchemaView::QualifiedName(name)));
    }
    const std::string path = project->DefaultPath(name);
    const FileKind kind = KindOf(path);
    if (kind == FileKind::kUnknown) {
      report.Error("io", std::string("cannot look for the default: ") + std::strerror(errno), "", Shown(path));
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
  report.Print(Table(rows));
  report.result()["modules"] = std::move(modules);
  return kDone;
}

}  // namespace

void AddModules(CLI::App& app, Session& session) {
  AddCommand(app, session, "modules", "List the modules, their types, defaults and number of settings",
             "Examples:\n"
             "  zotuning modules\n"
             "  zotuning modules --json | jq -r '.result.modules[].name'",
             [&session] { return Run(session); });
}

}  // namespace zotuning_tool
