// zotuning template: the default data of modules, straight from the schema.

#include <algorithm>
#include <memory>

#include "ZoTuningUtils.h"
#include "commands.h"
#include "json_check.h"
#include "library_log.h"
#include "project.h"
#include "suggest.h"

namespace zotuning_tool {
namespace {

struct Options {
  std::vector<std::string> modules;
  bool all = false;
  bool force = false;
};

/// The template of a module as the library prints it; "" after an error.
std::string TemplateText(Project& project, const std::string& module, Report& report) {
  const auto* type = project.schema().RequireType(module, report);
  if (type == nullptr) return "";
  const auto message = project.schema().NewMessage(type);
  std::string text;
  const LibraryWatch watch;
  ZO_TUNING::MSG_TO_JSON_STR(message.get(), type, text);
  if (watch.HasErrors()) {
    watch.Explain(report, "the template of " + Quoted(module) + " cannot be made");
    return "";
  }
  return text;
}

/// Makes the default data of one module. `state` becomes what was done: "made", "replaced", "unchanged" or "kept".
bool MakeTemplate(Project& project, const std::string& module, bool force, std::string& state, Report& report) {
  const std::string path = project.DefaultPath(module);
  const std::string wanted = TemplateText(project, module, report);
  if (wanted.empty()) return false;
  state = "made";
  if (Exists(path)) {
    std::string found;
    if (!RefuseSpecialFile(path, report) || !ReadFile(path, found, report)) return false;
    if (found == wanted) {
      state = "unchanged";
      return true;
    }
    if (!force) {
      state = "kept";
      report.Error("edited-default", "the default of " + Quoted(module) + " has been edited; it is kept",
                   "--force replaces it by the template", Shown(path));
      return false;
    }
    state = "replaced";
  }
  // What GenerateDefaultModuleData does with a schema that it would load once more.
  const LibraryWatch watch;
  ZO_TUNING::JSON_STR_TO_FILE(path, wanted);
  if (watch.HasErrors()) {
    watch.Explain(report, "the template of " + Quoted(module) + " was not written");
    return false;
  }
  // The operation does not notice a failed write.
  std::string written;
  if (!ReadFile(path, written, report)) return false;
  if (written != wanted) {
    report.Error("io", "the template was not written whole; is the disk full?", "", Shown(path));
    return false;
  }
  return CheckJson(path, written, project.schema().FindType(module), project.schema(), Fields::kAll, report);
}

int Run(Session& session, const Options& options) {
  Report& report = session.report;
  if (options.all == !options.modules.empty()) {
    report.Error("usage", options.all ? "give module names or --all, not both" : "give the names of modules, or --all",
                 "see 'zotuning template --help'");
    return kMisuse;
  }
  const auto project = Project::Open(session.project_dir, report);
  if (project == nullptr) return kMisuse;
  if (!project->ok()) return kFailed;
  if (!IsDirectory(project->ScopeDir(kDefaultScope))) {
    report.Error("missing-folder", "the project has no folder 'default'", "make it with mkdir",
                 Shown(project->ScopeDir(kDefaultScope)));
    return kFailed;
  }

  const std::vector<std::string> known = project->ValueNames(0);
  std::vector<std::string> modules = options.modules;
  for (const std::string& module : modules) {
    if (std::find(known.begin(), known.end(), module) != known.end()) continue;
    report.Error("unknown-module", "no module " + Quoted(module) + DidYouMean(module, known),
                 "'zotuning modules' lists them");
  }
  if (!report.ok()) return kFailed;
  if (options.all) {
    for (const auto& [number, name] : project->label_map().at(project->label_names()[0])) {
      // The first value of an enum has to be 0; often it stands for no module at all.
      if (!name.empty() && (number != 0 || project->schema().FindType(name) != nullptr)) modules.push_back(name);
    }
  }

  std::vector<std::vector<std::string>> rows;
  Json templates = Json::array();
  for (const std::string& module : modules) {
    std::string state = "failed";
    if (!MakeTemplate(*project, module, options.force, state, report) && state != "kept") state = "failed";
    const std::string path = Shown(project->DefaultPath(module));
    rows.push_back({path, state});
    templates.push_back({{"module", module}, {"file", path}, {"state", state}});
  }
  report.Print(Table(rows));
  report.result()["templates"] = std::move(templates);
  return kDone;
}

}  // namespace

void AddTemplate(CLI::App& app, Session& session) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      AddCommand(app, session, "template", "Write the default data of modules from the schema",
                 "The template holds every parameter of the module at its default, with its rule. A default that has\n"
                 "been edited is kept, and named, unless --force is given.\n"
                 "\n"
                 "Examples:\n"
                 "  zotuning template --all\n"
                 "  zotuning template AfCommon AWGain\n"
                 "  zotuning template AfCommon --force",
                 [&session, options] { return Run(session, *options); });
  command->add_option("MODULE", options->modules, "Modules, as 'zotuning modules' lists them");
  command->add_flag("--all", options->all, "All modules");
  command->add_flag("--force", options->force, "Replace edited defaults");
}

}  // namespace zotuning_tool
