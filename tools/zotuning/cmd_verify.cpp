// zotuning verify: are these bins from this tree? Packs it again and compares record by record, in whatever order.

#include <algorithm>
#include <filesystem>
#include <memory>

#include "bin/bin_folder.h"
#include "command_context.h"
#include "workspace/bins.h"
#include "workspace/pack.h"
#include "workspace/staging_dir.h"

namespace zotuning::tool {
namespace {

using ZO_TUNING::internal::BinPath;

constexpr size_t kShownFields = 5;

struct Options {
  std::string dir;
  std::string sensor;
};

const char* KindName(BinDifference::Kind kind) {
  switch (kind) {
    case BinDifference::Kind::kMissing:
      return "missing";
    case BinDifference::Kind::kExtra:
      return "extra";
    case BinDifference::Kind::kChanged:
      break;
  }
  return "changed";
}

std::string DifferenceText(const Project& project, const BinDifference& difference) {
  const std::string kind = KindName(difference.kind);
  const std::string what =
      difference.version.empty() ? project.LabelText(difference.values) : "version " + difference.version;
  std::string text = "  " + kind + std::string(9 - kind.size(), ' ') + Printable(what) + "\n";
  if (difference.kind != BinDifference::Kind::kChanged) return text;
  const std::string indent(13, ' ');
  const auto shown = [](const std::string& value) { return value.empty() ? "none" : Printable(value); };
  for (const FieldDifference& field : difference.fields) {
    text += indent + field.path + ": bin " + shown(field.left) + ", tree " + shown(field.right) + "\n";
  }
  if (difference.count > difference.fields.size()) {
    text += indent + "and " + std::to_string(difference.count - difference.fields.size()) + " more\n";
  }
  if (difference.count == 0)
    text += indent + "in bytes only: a zero of another sign, or fields that the schema lacks\n";
  return text;
}

Json DifferenceJson(const Project& project, const BinDifference& difference) {
  Json json = {{"kind", KindName(difference.kind)}};
  if (!difference.version.empty()) {
    json["version"] = difference.version;
    return json;
  }
  json["labels"] = LabelJson(project, difference.values);
  if (difference.kind != BinDifference::Kind::kChanged) return json;
  Json fields = Json::array();
  for (const FieldDifference& field : difference.fields) {
    fields.push_back({{"path", field.path}, {"bin", field.left}, {"tree", field.right}});
  }
  json["count"] = difference.count;
  json["differences"] = std::move(fields);
  return json;
}

/// Refuses special files, and names bins that belong to no sensor.
bool CheckBinDir(const Project& project, const std::string& dir, Console& console) {
  std::vector<std::string> names;
  if (!ListNames(dir, names, console)) return false;
  const std::vector<std::string> scopes = project.Scopes();
  bool good = true;
  for (const std::string& name : names) {
    if (!ZO_TUNING::internal::HasSuffix(name, ZO_TUNING::internal::kBinSuffix)) continue;
    std::string path = dir;
    path.append("/").append(name);
    good &= RefuseSpecialFile(path, console);
    const std::string scope = name.substr(0, name.rfind('.'));
    if (std::find(scopes.begin(), scopes.end(), scope) != scopes.end()) continue;
    console.Report(Code::kExtraBin, "this bin belongs to no sensor of the project", "", DisplayPath(path));
  }
  return good;
}

/// Packs the tree into the staging folder. Null after errors.
std::unique_ptr<StagingDir> PackTree(Project& project, const std::vector<std::string>& scopes, Console& console) {
  std::vector<ScopeInputs> inputs;
  const bool listed = ListInputs(project, scopes, inputs, console);
  std::error_code error;
  const std::string temp = std::filesystem::temp_directory_path(error).string();
  auto staging = StagingDir::Make(error ? "/tmp" : temp, nullptr, console);
  if (staging == nullptr) return nullptr;
  std::vector<PackedBin> bins;
  const bool packed = PackBins(project, inputs, {}, staging->path(), "the tree", bins, console);
  staging->StopWatcher();
  return packed && listed ? std::move(staging) : nullptr;
}

int Run(CommandContext& context, const Options& options) {
  Console& console = context.console;
  int code = kDone;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;
  if (!options.sensor.empty() && !project->RequireSensor(options.sensor, console)) return kFailed;
  const std::string dir = BinFolderAt(options.dir);
  if (!CheckBinDir(*project, dir, console)) return kFailed;
  std::vector<std::string> scopes = project->Scopes();
  if (!options.sensor.empty()) scopes = {kDefaultScope, options.sensor};
  const auto staging = PackTree(*project, scopes, console);
  if (staging == nullptr) return kFailed;

  Json results = Json::array();
  size_t different = 0;
  for (const std::string& scope : scopes) {
    const std::string path = BinPath(dir, scope);
    if (!Exists(path)) {
      console.Report(Code::kMissingBin, "the bin of " + Quoted(scope) + " is missing", "", DisplayPath(path));
      continue;
    }
    BinComparison comparison;
    if (!CompareBins(*project, path, BinPath(staging->path(), scope), kShownFields, comparison, console)) continue;
    std::string text = Printable(scope) + ".bin: " + Count(comparison.same, "record") + " the same, " +
                       Count(comparison.differences.size(), "difference") + "\n";
    Json differences = Json::array();
    for (const BinDifference& difference : comparison.differences) {
      text += DifferenceText(*project, difference);
      differences.push_back(DifferenceJson(*project, difference));
    }
    console.Print(text);
    different += comparison.differences.size();
    results.push_back({{"name", scope}, {"same", comparison.same}, {"differences", std::move(differences)}});
  }
  console.result()["bins"] = std::move(results);
  if (different > 0) {
    console.Report(Code::kDiffers, "the bins are not those of the tree: " + Count(different, "difference"),
                   "'zotuning pack' makes them again", DisplayPath(dir));
  }
  return kDone;
}

}  // namespace

void AddVerify(CLI::App& app, CommandContext& context) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      AddCommand(app, context, "verify", "Compare bins with the tree that they should come from",
                 "Packs the tree again in a temporary folder and compares record by record. Exits with 1\n"
                 "on any difference.\n"
                 "\n"
                 "Examples:\n"
                 "  zotuning verify out/zo_tuning\n"
                 "  zotuning verify out/zo_tuning --sensor main_wide --json",
                 [&context, options] { return Run(context, *options); });
  command->add_option("DIR", options->dir, "The folder of bins")->required();
  command->add_option("--sensor", options->sensor, "Only default.bin and the bin of this sensor")->type_name("S");
}

}  // namespace zotuning::tool
