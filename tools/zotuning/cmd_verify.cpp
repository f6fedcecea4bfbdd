// zotuning verify: are these bins from this tree? Packs it again and compares record by record, in whatever order.

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <utility>

#include "ZoTuningUtils.h"
#include "bin/bin_folder.h"
#include "bin_walk.h"
#include "commands.h"
#include "io/directory.h"
#include "library_log.h"
#include "message_text.h"
#include "packing.h"

namespace zotuning_tool {
namespace {

using ZO_TUNING::internal::BinFolder;
using ZO_TUNING::internal::BinPath;

constexpr size_t kShownDifferences = 5;

struct Options {
  std::string dir;
  std::string sensor;
};

/// Where the records of a bin stand, by their labels. Several with the same labels stand in file order.
struct BinIndex {
  std::map<std::vector<int>, std::vector<uint64_t>> records;
  std::vector<std::string> versions;  ///< as text, sorted
  BinContents contents;
};

bool ReadIndex(Project& project, const std::string& path, BinIndex& index, Report& report) {
  const BinVisitor visitor{[&](BinItem& item) { index.versions.push_back(MessageText(*item.message)); },
                           [&](BinRecord& record) { index.records[record.values].push_back(record.label.offset); }};
  if (!WalkBin(project, path, visitor, index.contents, report)) return false;
  std::sort(index.versions.begin(), index.versions.end());
  if (!index.contents.fault) return true;
  report.Error("bin-damaged", "the bin is damaged " + FaultText(*index.contents.fault), "", Shown(path));
  return false;
}

/// The comparison of one bin with what the tree gives.
class BinComparison {
 public:
  BinComparison(Project& project, Report& report, std::string bin_path, std::string tree_path)
      : project_(project), report_(report), bin_path_(std::move(bin_path)), tree_path_(std::move(tree_path)) {}

  /// False when the two cannot be compared, after an error.
  bool Run() {
    BinIndex bin, tree;
    if (!ReadIndex(project_, tree_path_, tree, report_) || !ReadIndex(project_, bin_path_, bin, report_)) return false;
    CompareVersions(bin.versions, tree.versions);
    for (const auto& [values, offsets] : tree.records) {
      const std::vector<uint64_t>& found = bin.records[values];
      for (size_t i = 0; i < offsets.size(); ++i) {
        if (i >= found.size()) {
          Note("missing", project_.LabelText(values), Labels(values));
        } else if (!CompareRecords(values, found[i], offsets[i])) {
          return false;
        }
      }
      for (size_t i = offsets.size(); i < found.size(); ++i) Note("extra", project_.LabelText(values), Labels(values));
    }
    for (const auto& [values, offsets] : bin.records) {
      if (tree.records.count(values) != 0) continue;
      for (size_t i = 0; i < offsets.size(); ++i) Note("extra", project_.LabelText(values), Labels(values));
    }
    return true;
  }

  size_t same() const { return same_; }
  size_t different() const { return notes_.size(); }
  const Json& notes() const { return notes_; }
  const std::string& text() const { return text_; }

 private:
  Json Labels(const std::vector<int>& values) const { return {{"labels", project_.LabelJson(values)}}; }

  Json& Note(const std::string& kind, const std::string& what, const Json& note) {
    text_ += "  " + kind + std::string(kind.size() < 9 ? 9 - kind.size() : 1, ' ') + Printable(what) + "\n";
    Json full = {{"kind", kind}};
    full.update(note);
    notes_.push_back(std::move(full));
    return notes_.back();
  }

  void CompareVersions(const std::vector<std::string>& bin, const std::vector<std::string>& tree) {
    const auto one_line = [](std::string text) {
      std::replace(text.begin(), text.end(), '\n', ' ');
      return text;
    };
    std::vector<std::string> only;
    std::set_difference(tree.begin(), tree.end(), bin.begin(), bin.end(), std::back_inserter(only));
    for (const std::string& text : only) Note("missing", "version " + one_line(text), {{"version", one_line(text)}});
    only.clear();
    std::set_difference(bin.begin(), bin.end(), tree.begin(), tree.end(), std::back_inserter(only));
    for (const std::string& text : only) Note("extra", "version " + one_line(text), {{"version", one_line(text)}});
  }

  bool CompareRecords(const std::vector<int>& values, uint64_t bin_offset, uint64_t tree_offset) {
    BinRecord bin, tree;
    if (!ReadRecordAt(project_, bin_path_, bin_offset, bin, report_) ||
        !ReadRecordAt(project_, tree_path_, tree_offset, tree, report_)) {
      return false;
    }
    std::vector<FieldDifference> differences;
    size_t count = 0;
    if (SameMessages(*bin.module.message, *tree.module.message, kShownDifferences, differences, count)) {
      ++same_;
      return true;
    }
    Json fields = Json::array();
    Json note = Labels(values);
    for (const FieldDifference& difference : differences) {
      fields.push_back({{"path", difference.path}, {"bin", difference.left}, {"tree", difference.right}});
    }
    note["count"] = count;
    note["differences"] = std::move(fields);
    Note("changed", project_.LabelText(values), note);
    for (const FieldDifference& difference : differences) {
      const auto shown = [](const std::string& value) { return value.empty() ? "none" : Printable(value); };
      text_ += "             " + difference.path + ": bin " + shown(difference.left) + ", tree " +
               shown(difference.right) + "\n";
    }
    if (count > differences.size()) {
      text_ += "             and " + std::to_string(count - differences.size()) + " more\n";
    }
    if (count == 0) text_ += "             in bytes only: a zero of another sign, or fields that the schema lacks\n";
    return true;
  }

  Project& project_;
  Report& report_;
  std::string bin_path_, tree_path_;
  size_t same_ = 0;
  std::string text_;
  Json notes_ = Json::array();
};

/// Looks at the folder: special files are refused, bins that belong to no sensor named.
bool LookAtFolder(const Project& project, const std::string& dir, Report& report) {
  std::vector<std::string> names;
  if (!ListNames(dir, names, report)) return false;
  const std::vector<std::string> scopes = project.Scopes();
  bool good = true;
  for (const std::string& name : names) {
    if (!ZO_TUNING::internal::HasSuffix(name, ZO_TUNING::internal::kBinSuffix)) continue;
    std::string path = dir;
    path.append("/").append(name);
    good &= RefuseSpecialFile(path, report);
    const std::string scope = name.substr(0, name.rfind('.'));
    if (std::find(scopes.begin(), scopes.end(), scope) != scopes.end()) continue;
    report.Error("extra-bin", "this bin belongs to no sensor of the project", "", Shown(path));
  }
  return good;
}

/// The library's own check of the folder.
void Dump(const Project& project, const std::string& dir, Report& report) {
  const LibraryWatch watch;
  const bool dumped = ZoTuningUtils::DumpProjTuningBins(project.dir().c_str(), dir.c_str());
  const bool versions = ZoTuningUtils::DumpBinVersions(project.dir().c_str(), dir.c_str());
  // What was found wrong before is the reason already.
  if ((!dumped || !versions || watch.HasErrors()) && report.ok()) {
    watch.Explain(report, "the library's dump refuses the folder; is there a default.bin?");
  }
}

int Run(Session& session, const Options& options) {
  Report& report = session.report;
  const auto project = Project::Open(session.project_dir, report);
  if (project == nullptr) return kMisuse;
  if (!project->ok()) return kFailed;
  if (!options.sensor.empty() && !project->RequireSensor(options.sensor, report)) return kFailed;
  const std::string dir = BinFolderAt(options.dir);
  if (!LookAtFolder(*project, dir, report)) return kFailed;

  const PackOptions pack{options.sensor, false};
  std::vector<Scope> scopes;
  if (!Survey(*project, pack, scopes, report)) return kFailed;
  std::error_code error;
  const std::string temp = std::filesystem::temp_directory_path(error).string();
  const auto work = StagingDir::Make(error ? "/tmp" : temp, nullptr, report);
  std::vector<BinContents> bins;
  if (work == nullptr || !PackScopes(*project, pack, "the tree", *work, scopes, bins, report)) return kFailed;

  Json results = Json::array();
  size_t different = 0;
  for (const Scope& scope : scopes) {
    const std::string path = BinPath(dir, scope.name);
    if (!Exists(path)) {
      report.Error("missing-bin", "the bin of " + Quoted(scope.name) + " is missing", "", Shown(path));
      continue;
    }
    BinComparison comparison(*project, report, path, BinPath(BinFolder(work->path()), scope.name));
    if (!comparison.Run()) continue;
    report.Print(Printable(scope.name) + ".bin: " + Count(comparison.same(), "record") + " the same, " +
                 Count(comparison.different(), "difference") + "\n" + comparison.text());
    different += comparison.different();
    results.push_back({{"name", scope.name}, {"same", comparison.same()}, {"differences", comparison.notes()}});
  }
  report.result()["bins"] = std::move(results);
  if (different > 0) {
    report.Error("differs", "the bins are not those of the tree: " + Count(different, "difference"),
                 "'zotuning pack' makes them anew", Shown(dir));
  }
  Dump(*project, dir, report);
  return kDone;
}

}  // namespace

void AddVerify(CLI::App& app, Session& session) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      AddCommand(app, session, "verify", "Compare bins with the tree that they should come from",
                 "Packs the tree again in a temporary folder and compares record by record. Exits with 1\n"
                 "on any difference.\n"
                 "\n"
                 "Examples:\n"
                 "  zotuning verify out/zo_tuning\n"
                 "  zotuning verify out/zo_tuning --sensor main_wide --json",
                 [&session, options] { return Run(session, *options); });
  command->add_option("DIR", options->dir, "The folder of bins")->required();
  command->add_option("--sensor", options->sensor, "Only default.bin and the bin of this sensor")->type_name("S");
}

}  // namespace zotuning_tool
