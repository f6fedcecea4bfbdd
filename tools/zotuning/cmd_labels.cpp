// zotuning labels: the labels of the project and the values that each may have.

#include <memory>

#include "command_context.h"
#include "workspace/suggest.h"

namespace zotuning::tool {
namespace {

int Run(CommandContext& context, const std::string& only) {
  Console& console = context.console;
  int code = kDone;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;

  Json labels = Json::array();
  bool found = only.empty();
  for (const std::string& label : project->labels().names()) {
    if (!only.empty() && label != only) continue;
    found = true;
    const auto& values = project->labels().ValuesOf(label);
    Json json_values = Json::array();
    std::vector<std::vector<std::string>> rows;
    for (const auto& [number, name] : values) {
      rows.push_back({"  " + name, std::to_string(number)});
      json_values.push_back({{"name", name}, {"number", number}});
    }
    console.Print(label + (values.empty() ? ": any whole number other than -1\n" : ":\n") + Table(rows));
    labels.push_back({{"name", label}, {"kind", values.empty() ? "int32" : "enum"}, {"values", json_values}});
  }
  if (!found) {
    console.Report(Code::kUnknownLabel, "no label " + Quoted(only) + DidYouMean(only, project->labels().names()));
    return kFailed;
  }
  console.result()["labels"] = std::move(labels);
  return kDone;
}

}  // namespace

void AddLabels(CLI::App& app, CommandContext& context) {
  auto only = std::make_shared<std::string>();
  CLI::App* command = AddCommand(app, context, "labels", "List the labels of a setting and their values",
                                 "Examples:\n"
                                 "  zotuning labels\n"
                                 "  zotuning labels scenario",
                                 [&context, only] { return Run(context, *only); });
  command->add_option("LABEL", *only, "Only this label");
}

}  // namespace zotuning::tool
