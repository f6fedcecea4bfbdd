// zotuning schema: what a change of the schema means.

#include <memory>

#include "command_context.h"
#include "workspace/schema_compare.h"

namespace zotuning::tool {
namespace {

int Compare(CommandContext& context, const std::string& revision) {
  Console& console = context.console;
  int code = kFailed;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;
  const auto old_schema = SchemaRevision::Load(project->layout().ProtoDir(), revision, console);
  std::vector<SchemaChange> changes;
  if (old_schema == nullptr || !CompareSchemas(*old_schema, *project, changes, console)) return kFailed;
  std::vector<std::vector<std::string>> rows;
  Json list = Json::array();
  size_t breaking = 0;
  for (const SchemaChange& change : changes) {
    if (change.breaks) ++breaking;
    rows.push_back(
        {change.breaks ? "breaking" : "compatible", change.rule.empty() ? "-" : change.rule, change.name, change.text});
    list.push_back(
        {{"breaking", change.breaks}, {"rule", change.rule}, {"name", change.name}, {"change", change.text}});
  }
  console.Print(Table(rows));
  console.Print(changes.empty() ? "nothing that a bin can hold has changed since " + Printable(revision) + "\n"
                                : Count(breaking, "breaking change") + ", " +
                                      std::to_string(changes.size() - breaking) + " compatible\n");
  console.result() = {{"revision", revision}, {"breaking", breaking}, {"changes", std::move(list)}};
  return breaking > 0 ? kFailed : kDone;
}

}  // namespace

void AddSchema(CLI::App& app, CommandContext& context) {
  CLI::App* schema = app.add_subcommand("schema", "What a change of the schema means");
  schema->fallthrough();
  schema->require_subcommand(1);
  schema->footer(
      "Examples:\n"
      "  zotuning schema compare\n"
      "  zotuning schema compare v1.2\n");

  auto revision = std::make_shared<std::string>("HEAD");
  CLI::App* compare =
      AddCommand(*schema, context, "compare", "What a change of the schema does to bins that are on devices already",
                 "Compares the schema with that of a revision of git, by what a bin can hold. The rules are those of\n"
                 "buf. Exit code 1 when a bin would be read otherwise than it was meant.\n"
                 "\n"
                 "Examples:\n"
                 "  zotuning schema compare\n"
                 "  zotuning schema compare v1.2 --json",
                 [&context, revision] { return Compare(context, *revision); });
  compare->add_option("REVISION", *revision, "The older schema (default: HEAD)")->check(NotEmpty());
}

}  // namespace zotuning::tool
