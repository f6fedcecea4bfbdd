// zotuning labels: the labels of the project and the values that each may have.

#include <memory>

#include "commands.h"
#include "project.h"
#include "suggest.h"

namespace zotuning_tool {
namespace {

int Run(Session& session, const std::string& only) {
  Report& report = session.report;
  const auto project = Project::Open(session.project_dir, report);
  if (project == nullptr) return kMisuse;
  if (!project->ok()) return kFailed;

  Json labels = Json::array();
  bool found = only.empty();
  for (const std::string& label : project->label_names()) {
    if (!only.empty() && label != only) continue;
    found = true;
    const auto& values = project->label_map().at(label);
    Json json_values = Json::array();
    std::vector<std::vector<std::string>> rows;
    for (const auto& [number, name] : values) {
      rows.push_back({"  " + name, std::to_string(number)});
      json_values.push_back({{"name", name}, {"number", number}});
    }
    report.Print(label + (values.empty() ? ": any whole number but -1\n" : ":\n") + Table(rows));
    labels.push_back({{"name", label}, {"kind", values.empty() ? "int32" : "enum"}, {"values", json_values}});
  }
  if (!found) {
    report.Error("unknown-label", "no label " + Quoted(only) + DidYouMean(only, project->label_names()));
    return kFailed;
  }
  report.result()["labels"] = std::move(labels);
  return kDone;
}

}  // namespace

void AddLabels(CLI::App& app, Session& session) {
  auto only = std::make_shared<std::string>();
  CLI::App* command = AddCommand(app, session, "labels", "List the labels of a setting and their values",
                                 "Examples:\n"
                                 "  zotuning labels\n"
                                 "  zotuning labels scenario",
                                 [&session, only] { return Run(session, *only); });
  command->add_option("LABEL", *only, "Only this label");
}

}  // namespace zotuning_tool
