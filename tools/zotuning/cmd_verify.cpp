// zotuning verify: are these bins from this tree? Packs it again and compares every byte, record by record, in any
// order.

#include <algorithm>
#include <filesystem>
#include <memory>

#include "bin/bin_folder.h"
#include "command_context.h"
#include "comparison_text.h"
#include "workspace/bins.h"
#include "workspace/pack.h"
#include "workspace/sides.h"
#include "workspace/staging_dir.h"

namespace zotuning::tool {
namespace {

using ZO_TUNING::internal::BinPath;
using ZO_TUNING::internal::HasSuffix;
using ZO_TUNING::internal::kBinSuffix;

struct Options {
  std::string path;
  std::string sensor;
  bool all = false;
};

/// A bin and the scope that it should be of.
struct Bin {
  std::string scope;
  std::string path;
};

std::string ScopeOf(const std::string& path) {
  const std::string name = path.substr(path.rfind('/') + 1);
  return name.substr(0, name.rfind('.'));
}

/// Lists the bins that should exist. Rejects special files, and reports bins that belong to no sensor.
bool FindBins(const Project& project, const Options& options, std::vector<Bin>& bins, Console& console) {
  if (options.path == kStandardInput) {
    bins = {{options.sensor, options.path}};
    return true;
  }
  if (!RefuseSpecialFile(options.path, console)) return false;
  const std::vector<std::string> scopes = project.Scopes();
  const auto report_extra = [&](const std::string& path) {
    console.Report(Code::kExtraBin, "this bin belongs to no sensor of the project",
                   "of a single bin, --sensor says whose it is", DisplayPath(path));
    return false;
  };
  if (!IsDirectory(options.path) && Exists(options.path)) {
    const std::string scope = options.sensor.empty() ? ScopeOf(options.path) : options.sensor;
    if (std::find(scopes.begin(), scopes.end(), scope) == scopes.end()) return report_extra(options.path);
    bins = {{scope, options.path}};
    return true;
  }
  const std::string dir = BinFolderAt(options.path);
  std::vector<std::string> names;
  if (!ListNames(dir, names, console)) return false;
  bool good = true;
  for (const std::string& name : names) {
    if (!HasSuffix(name, kBinSuffix)) continue;
    const std::string path = JoinPath(dir, name);
    good &= RefuseSpecialFile(path, console);
    if (std::find(scopes.begin(), scopes.end(), ScopeOf(name)) == scopes.end()) (void)report_extra(path);
  }
  for (const std::string& scope : scopes) {
    if (!options.sensor.empty() && scope != options.sensor && scope != kDefaultScope) continue;
    bins.push_back({scope, BinPath(dir, scope)});
  }
  return good;
}

/// Packs the scopes of the bins into the staging folder. Null after errors.
std::unique_ptr<StagingDir> PackTree(Project& project, const std::vector<Bin>& bins, Console& console) {
  std::vector<std::string> scopes;
  scopes.reserve(bins.size());
  for (const Bin& bin : bins) scopes.push_back(bin.scope);
  std::vector<ScopeInputs> inputs;
  const bool listed = ListInputs(project, scopes, inputs, console);
  std::error_code error;
  const std::string temp = std::filesystem::temp_directory_path(error).string();
  auto staging = StagingDir::Make(error ? "/tmp" : temp, nullptr, console);
  if (staging == nullptr) return nullptr;
  std::vector<PackedBin> packed;
  const bool good = PackBins(project, inputs, {}, staging->path(), "the tree", packed, console);
  staging->StopWatcher();
  return good && listed ? std::move(staging) : nullptr;
}

/// Reports what of a bin the schema does not know.
void ReportUnknown(Project& project, std::FILE* file, const std::string& path, Console& console) {
  std::rewind(file);
  BinScanner scanner(file, project.schema(), project.labels(), BinScanner::Modules::kCheck);
  UnknownContent unknown;
  while (scanner.Next()) unknown.Look(scanner);
  unknown.Report(project, path, console);
}

Json UnknownRecordJson(const UnknownRecord& record, const Bin& bin) {
  Json labels = Json::object();
  for (const auto& [name, value] : record.labels) labels[name] = value;
  return {{"kind", "removed"}, {"scope", bin.scope},      {"labels", std::move(labels)}, {"left", ShownBin(bin.path)},
          {"right", nullptr},  {"offset", record.offset}, {"length", record.size}};
}

/// Compares bins with those packed from the tree, one by one.
class Verifier {
 public:
  Verifier(const std::shared_ptr<Project>& project, const std::string& packed_dir, bool all, Console& console)
      : project_(project), packed_dir_(packed_dir), opener_(project), console_(console) {
    compare_.bytes = true;
    compare_.compare.rules = true;  // those that are in a bin
    if (!all) compare_.compare.max_elements = kShownDifferences;
    form_.all = all;
    form_.colour = MayColour(STDOUT_FILENO);
  }

  /// Prints what differs in a bin. What cannot be compared is reported.
  void Verify(const Bin& bin) {
    if (bin.path != kStandardInput && !Exists(bin.path)) {
      console_.Report(Code::kMissingBin, "the bin of " + Quoted(bin.scope) + " is missing", "", ShownBin(bin.path));
      return;
    }
    BinPair pair;
    const BinFile packed{BinPath(packed_dir_, bin.scope), "the tree"};
    if (!opener_.OpenBinPair({bin.path, ShownBin(bin.path)}, packed, bin.scope, pair, console_)) return;
    std::string lines;
    Json differences = Json::array();
    SidesComparison comparison;
    const auto add = [&](const EntryComparison& entry) {
      if (console_.json()) {
        differences.push_back(ComparisonJson(entry));
      } else {
        lines += ComparisonText(entry, form_);
      }
    };
    if (!CompareSides(*pair.left, *pair.right, compare_, add, comparison, console_)) return;
    for (const UnknownRecord& record : pair.unknown) {
      const std::string where = std::to_string(record.size) + " bytes at byte " + std::to_string(record.offset);
      lines += "removed  " + Printable(LabelText(record.labels)) + " (unknown module, " + where + ")\n";
      if (console_.json()) differences.push_back(UnknownRecordJson(record, bin));
    }
    if (pair.unlisted > 0) lines += "and " + std::to_string(pair.unlisted) + " more\n";
    const size_t same = pair.same + comparison.same;
    const size_t found = comparison.different + pair.unlisted + pair.unknown.size();
    console_.Print(Printable(bin.scope) + ".bin: " + std::to_string(same) + " the same, " + Count(found, "difference") +
                   "\n");
    if (found > 0) {
      console_.Print(HeadText(ShownBin(bin.path), packed.name, form_.colour) + lines);
      ReportUnknown(*project_, pair.left_file, bin.path, console_);
    }
    different_ += found;
    results_.push_back(
        {{"name", bin.scope}, {"same", same}, {"different", found}, {"differences", std::move(differences)}});
  }

  /// Differences so far.
  size_t different() const { return different_; }
  Json TakeResults() { return std::move(results_); }

 private:
  std::shared_ptr<Project> project_;
  std::string packed_dir_;
  SideOpener opener_;
  Console& console_;
  CompareSidesOptions compare_;
  ComparisonForm form_;
  Json results_ = Json::array();
  size_t different_ = 0;
};

int Run(CommandContext& context, const Options& options) {
  Console& console = context.console;
  int code = kDone;
  const std::shared_ptr<Project> project = LoadProject(context, code);
  if (project == nullptr) return code;
  if (options.path == kStandardInput && options.sensor.empty()) {
    console.Report(Code::kUsage, "--sensor must say whose bin is on standard input",
                   "'default' stands for that of the defaults");
    return kMisuse;
  }
  if (!options.sensor.empty() && options.sensor != kDefaultScope && !project->RequireSensor(options.sensor, console)) {
    return kFailed;
  }
  std::vector<Bin> bins;
  if (!FindBins(*project, options, bins, console)) return kFailed;
  const auto staging = PackTree(*project, bins, console);
  if (staging == nullptr) return kFailed;

  Verifier verifier(project, staging->path(), options.all, console);
  for (const Bin& bin : bins) verifier.Verify(bin);
  console.result()["bins"] = verifier.TakeResults();
  if (verifier.different() > 0) {
    console.Report(Code::kDiffers, "the bins do not match the tree: " + Count(verifier.different(), "difference"),
                   "'zotuning pack' renews them", ShownBin(options.path));
  }
  return kDone;
}

}  // namespace

void AddVerify(CLI::App& app, CommandContext& context) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      AddCommand(app, context, "verify", "Compare bins with the tree that they should come from",
                 "Packs the tree again in a temporary folder and compares record by record, every byte but\n"
                 "their order. Exits with 1 on any difference.\n"
                 "\n"
                 "Examples:\n"
                 "  zotuning verify out/zo_tuning\n"
                 "  zotuning verify out/zo_tuning --sensor main_wide --json\n"
                 "  zotuning verify out/zo_tuning/front.bin --all\n"
                 "  zotuning verify - --sensor front < out/zo_tuning/front.bin",
                 [&context, options] { return Run(context, *options); });
  command->add_option("PATH", options->path, "The folder of bins, or one bin; '-' is standard input")->required();
  command
      ->add_option("--sensor", options->sensor, "Only default.bin and the bin of this sensor; of one bin, whose it is")
      ->type_name("S");
  command->add_flag("--all", options->all, "Show every difference, and every element of lists and tables");
}

}  // namespace zotuning::tool
