// zotuning migrate: updates defaults and settings after a schema change.

#include <memory>

#include "command_context.h"
#include "workspace/migrate.h"

namespace zotuning::tool {
namespace {

struct Options : MigrateOptions {
  bool dry_run = false;
};

Json FileJson(const MigratedFile& file) {
  return {{"file", file.path},   {"old_file", file.old_path}, {"added", file.added}, {"renamed", file.renamed},
          {"moved", file.moved}, {"dropped", file.dropped},   {"rules", file.rules}};
}

std::string FileText(const MigratedFile& file) {
  std::string text = file.old_path == file.path ? file.path : file.old_path + " -> " + file.path;
  const std::pair<const char*, size_t> counts[] = {{" added", file.added.size()},
                                                   {" renamed", file.renamed.size()},
                                                   {" moved", file.moved.size()},
                                                   {" dropped", file.dropped.size()},
                                                   {" rule parts updated", file.rules.size()}};
  const char* separator = ": ";
  for (const auto& [what, count] : counts) {
    if (count == 0) continue;
    text += separator + std::to_string(count) + what;
    separator = ", ";
  }
  text += '\n';
  for (const std::string& path : file.dropped) text += "  dropped " + path + "\n";
  return text;
}

int Run(CommandContext& context, const Options& options) {
  Console& console = context.console;
  int code = kFailed;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;
  Migration migration;
  if (!PlanMigration(*project, options, migration, console)) return migration.misuse ? kMisuse : kFailed;
  Json files = Json::array();
  for (const MigratedFile& file : migration.files) files.push_back(FileJson(file));
  console.result() = {{"dry_run", options.dry_run}, {"files", std::move(files)}, {"report", migration.report_path}};
  if (options.dry_run) {
    const std::string diff = migration.changes.Diff(project->dir());
    console.Print(diff);
    console.result()["diff"] = diff;
    return kDone;
  }
  if (!migration.changes.Apply(console)) return kFailed;
  std::string text;
  for (const MigratedFile& file : migration.files) text += FileText(file);
  if (!migration.files.empty()) {
    text += Count(migration.files.size(), "file") + " migrated\n";
  } else {
    text +=
        migration.left ? "nothing to migrate except files without a module or label\n" : "everything fits the schema\n";
  }
  if (!migration.report_path.empty()) text += "the dropped values are kept in " + migration.report_path + "\n";
  console.Print(Printable(text, true));
  return kDone;
}

}  // namespace

void AddMigrate(CLI::App& app, CommandContext& context) {
  auto options = std::make_shared<Options>();
  CLI::App* command = AddCommand(
      app, context, "migrate", "Bring defaults and settings up to a changed schema",
      "Adds what is missing, from the default of the module where it has it; drops keys that the schema does not\n"
      "have, and keeps them in migrate.rej.json; moves values into their data types. Everything else stays byte for\n"
      "byte. What has the number and type of a field that is gone has to be renamed or dropped by name: nothing is\n"
      "written until then.\n"
      "\n"
      "Examples:\n"
      "  zotuning migrate --dry-run\n"
      "  zotuning migrate --rename AfLens.backlash_codes=backlash\n"
      "  zotuning migrate --rename-module AfContrast=AfSharpness --rename-label scenario.Video=Movie",
      [&context, options] { return Run(context, *options); });
  const auto add = [&](const char* name, std::vector<std::string>& values, const char* help, const char* form) {
    command->add_option(name, values, help)->allow_extra_args(false)->type_name(form);
  };
  add("--rename", options->renames, "Rename a field wherever its type is used; may be given several times",
      "TYPE.OLD=NEW");
  add("--drop", options->drops, "A field that is gone, although another one has its number and type", "TYPE.FIELD");
  add("--rename-module", options->module_renames, "Rename a module and its files", "OLD=NEW");
  add("--rename-label", options->label_renames, "Rename a value of a label and its folders", "LABEL.OLD=NEW");
  command
      ->add_option_function<std::string>(
          "--rules", [options](const std::string&) { options->rules = true; }, "Make all rules those of the template")
      ->expected(0, 1)
      ->check(CLI::IsMember({"all"}))
      ->type_name("[all]");
  command
      ->add_option("--since", options->since,
                   "The revision whose schema the files fit (default: HEAD, or before the schema's last change)")
      ->type_name("REVISION")
      ->check(NotEmpty());
  command->add_flag("--dry-run", options->dry_run, "Write nothing; print the changes as a unified diff");
}

}  // namespace zotuning::tool
