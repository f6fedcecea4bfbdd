// Tested through the tool's commands get and set.

#include "workspace/selection.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "workspace/suggest.h"

namespace zotuning {

bool Selection::FindModules(const Project& project, const LabelChoice& choice, const std::vector<PathPattern>& patterns,
                            DiagnosticSink& sink) {
  const std::vector<int>& wanted = choice.values[0];
  std::string why;
  for (Project::Module& module : project.Modules()) {
    if (!wanted.empty() && std::find(wanted.begin(), wanted.end(), module.number) == wanted.end()) continue;
    if (module.type == nullptr) {
      if (!wanted.empty()) project.RequireType(module.name, sink);
      continue;
    }
    std::vector<TypedPath> paths;
    for (const PathPattern& pattern : patterns) {
      std::optional<TypedPath> path = TypedPath::Resolve(pattern, tables_.Get(module.type), &why);
      if (!path) break;
      paths.push_back(std::move(*path));
    }
    if (paths.size() == patterns.size()) {
      modules_.push_back({std::move(module), std::move(paths)});
    } else if (!wanted.empty()) {
      sink.Report(Code::kNoMatch, why);
      return false;
    }
  }
  if (!modules_.empty()) return true;
  std::string names;
  std::vector<std::string> near;
  for (const PathPattern& pattern : patterns) names += (names.empty() ? "" : " and ") + Quoted(pattern.text());
  for (const Project::Module& module : project.Modules()) {
    if (module.type != nullptr) FindPathsTo(tables_.Get(module.type), patterns[0].first_name(), near);
  }
  sink.Report(Code::kNoMatch, "no module has " + names,
              near.empty() ? "--where module=MODULE tells where the path ends"
                           : "a path begins at the module: " + Quoted(near[0]));
  return false;
}

bool Selection::FindSettings(const Project& project, const LabelChoice& choice, DiagnosticSink& sink) {
  bool listed = true;
  for (const std::string& scope : choice.scopes.empty() ? project.Scopes() : choice.scopes) {
    std::vector<Setting> settings;
    if (!Exists(project.layout().ScopeDir(scope))) continue;
    listed &= project.ListSettings(scope, settings, sink);
    for (Setting& setting : settings) {
      if (!choice.Takes(setting)) continue;
      const std::string name = project.ModuleName(setting.values);
      const auto module = std::find_if(modules_.begin(), modules_.end(),
                                       [&](const SelectedModule& each) { return each.module.name == name; });
      if (module == modules_.end()) continue;
      settings_.push_back({std::move(setting), static_cast<size_t>(module - modules_.begin())});
    }
  }
  if (listed && settings_.empty()) {
    std::string names;
    for (const SelectedModule& module : modules_) names += (names.empty() ? "" : ", ") + module.module.name;
    sink.Report(Code::kNoMatch, "there is no setting of " + names + " with these labels",
                "'zotuning tree' lists the settings; '--create' makes them with 'set'");
  }
  return listed && !settings_.empty();
}

}  // namespace zotuning
