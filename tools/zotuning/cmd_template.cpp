// zotuning template: the default data of modules, straight from the schema.

#include <algorithm>
#include <memory>

#include "command_context.h"
#include "json/default_data.h"
#include "workspace/check_setting.h"
#include "workspace/comment_rules.h"
#include "workspace/suggest.h"

namespace zotuning::tool {
namespace {

struct Options {
  std::vector<std::string> modules;
  bool all = false;
  bool force = false;
  bool rules_from_comments = false;
};

using google::protobuf::FieldDescriptor;
using ZO_TUNING::internal::TemplateFault;

std::string FaultText(const TemplateFault& fault) {
  switch (fault.kind) {
    case TemplateFault::Kind::kRepeatedType:
      return "the field " + Quoted(fault.field->full_name()) + " is a list of " +
             FieldDescriptor::TypeName(fault.field->type()) + ", which templates do not support";
    case TemplateFault::Kind::kRecursiveType:
      return "the message type " + Quoted(fault.type->full_name()) + " contains itself";
    case TemplateFault::Kind::kNoRuleField:
      break;
  }
  return "the rule type " + Quoted(fault.type->full_name()) + " has no singular field " + Quoted(fault.rule_field) +
         " of type " + FieldDescriptor::TypeName(fault.field_type);
}

/// The template of a module as the library prints it; "" after an error.
std::string TemplateText(Project& project, const std::string& module, Console& console) {
  const auto* type = project.RequireType(module, console);
  if (type == nullptr) return "";
  std::vector<TemplateFault> faults;
  std::string text;
  const auto printed = ZO_TUNING::internal::ModuleTemplate(
      project.schema(), type, [&](const TemplateFault& fault) { faults.push_back(fault); }, &text);
  for (const TemplateFault& fault : faults) {
    console.Report(Code::kSchemaType, "the template of " + Quoted(module) + " cannot be made: " + FaultText(fault), "",
                   DisplayPath(project.layout().ProtoDir()));
  }
  if (!printed.ok) {
    console.Report(Code::kPrint, "the template of " + Quoted(module) + " cannot be printed as JSON: " + printed.reason);
  }
  return printed.ok && faults.empty() ? text : "";
}

/// Makes the default data of one module; with --all, an edited default is not an error. `state` is set to what was
/// done: "made", "replaced", "unchanged" or "kept".
bool MakeTemplate(Project& project, const std::string& module, const Options& options, std::string& state,
                  Console& console) {
  const std::string path = project.layout().DefaultPath(module);
  std::string wanted = TemplateText(project, module, console);
  if (wanted.empty()) return false;
  if (options.rules_from_comments) wanted = WithCommentRules(wanted, project.schema().FindType(module));
  state = "made";
  if (Exists(path)) {
    std::string found;
    if (!RefuseSpecialFile(path, console) || !ReadFile(path, found, console)) return false;
    if (found == wanted) {
      state = "unchanged";
      return true;
    }
    if (!options.force) {
      state = "kept";
      if (options.all) return true;
      console.Report(Code::kEditedDefault, "the default of " + Quoted(module) + " has been edited; it is kept",
                     "--force replaces it with the template", DisplayPath(path));
      return false;
    }
    state = "replaced";
  }
  const auto* type = project.schema().FindType(module);
  return CheckSettingText(project.schema(), path, wanted, type, Fields::kAll, console) &&
         ReplaceFile(path, wanted, console);
}

int Run(CommandContext& context, const Options& options) {
  Console& console = context.console;
  if (options.all == !options.modules.empty()) {
    console.Report(Code::kUsage, options.all ? "give module names or --all, not both" : "name modules, or use --all",
                   "see 'zotuning template --help'");
    return kMisuse;
  }
  int code = kDone;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;
  if (!IsDirectory(project->layout().ScopeDir(kDefaultScope))) {
    console.Report(Code::kMissingFolder, "the project has no folder 'default'", "make it with mkdir",
                   DisplayPath(project->layout().ScopeDir(kDefaultScope)));
    return kFailed;
  }

  const std::vector<std::string> known = project->ValueNames(0);
  std::vector<std::string> modules = options.modules;
  for (const std::string& module : modules) {
    if (std::find(known.begin(), known.end(), module) != known.end()) continue;
    console.Report(Code::kUnknownModule, "no module " + Quoted(module) + DidYouMean(module, known),
                   "'zotuning modules' lists them");
  }
  if (!console.ok()) return kFailed;
  if (options.all) {
    for (const auto& module : project->Modules()) modules.push_back(module.name);
  }

  std::vector<std::vector<std::string>> rows;
  Json templates = Json::array();
  for (const std::string& module : modules) {
    std::string state = "failed";
    if (!MakeTemplate(*project, module, options, state, console) && state != "kept") state = "failed";
    const std::string path = DisplayPath(project->layout().DefaultPath(module));
    rows.push_back({path, state});
    templates.push_back({{"module", module}, {"file", path}, {"state", state}});
  }
  console.Print(Table(rows));
  console.result()["templates"] = std::move(templates);
  return kDone;
}

}  // namespace

void AddTemplate(CLI::App& app, CommandContext& context) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      AddCommand(app, context, "template", "Write the default data of modules from the schema",
                 "The template holds every parameter of the module at its default, with its rule. A default that has\n"
                 "been edited is kept, and named, unless --force is given; with --all that is not an error.\n"
                 "\n"
                 "Examples:\n"
                 "  zotuning template --all\n"
                 "  zotuning template --all --rules-from-comments\n"
                 "  zotuning template AfCommon AWBCommon --force",
                 [&context, options] { return Run(context, *options); });
  command->add_option("MODULE", options->modules, "Modules, as 'zotuning modules' lists them");
  command->add_flag("--all", options->all, "All modules");
  command->add_flag("--rules-from-comments", options->rules_from_comments,
                    "Rules say what the comments of the .proto files say: 'Range: 0..511', '9 elements', '17x13'");
  command->add_flag("--force", options->force, "Replace edited defaults");
}

}  // namespace zotuning::tool
