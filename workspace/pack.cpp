// Tested by tests/workspace/pack_test.cpp and, through the tool, tests/tools/pack_test.cpp.

#include "pack.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>

#include "bin/bin_folder.h"
#include "bin/bin_packer.h"
#include "bin/bin_writer.h"
#include "workspace/check_setting.h"
#include "workspace/check_tree.h"
#include "workspace/old_names.h"

namespace zotuning {
namespace {

using ZO_TUNING::internal::BinPacker;
using ZO_TUNING::internal::BinPath;
using ZO_TUNING::internal::BinWriter;
using ZO_TUNING::internal::FieldChecking;
using ZO_TUNING::internal::PackResult;
using ZO_TUNING::internal::PackStatus;

/// Packs the settings of one project.
class Packing {
 public:
  Packing(Project& project, const PackOptions& options, DiagnosticSink& sink)
      : project_(project),
        options_(options),
        sink_(sink),
        packer_(project.schema(), project.labels(), project.label_type()) {}

  bool PackBin(const ScopeInputs& inputs, const std::string& path, const std::string& shown_path, PackedBin* packed) {
    if (options_.on_bin) options_.on_bin(inputs.name);
    const auto began = std::chrono::steady_clock::now();
    BinWriter bin;
    if (!bin.Open(path)) return ReportSystemError("write", shown_path, errno, sink_);
    std::vector<google::protobuf::Message*> versions;
    for (const VersionFile& file : inputs.versions) {
      if (file.message != nullptr) {
        versions.push_back(file.message.get());
      } else {
        Refuse(file.path);
      }
    }
    bin.WriteVersions(versions);
    bool good = true;
    for (const Setting& setting : inputs.settings) good &= PackSetting(setting, bin);
    if (!bin.Close()) return ReportSystemError("write", shown_path, bin.error(), sink_);
    struct stat info;
    if (stat(path.c_str(), &info) != 0) return ReportSystemError("look at", shown_path, errno, sink_);
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - began;
    *packed = {inputs.name, static_cast<uint64_t>(info.st_size), versions.size(), inputs.settings.size(), took.count()};
    return good;
  }

 private:
  void Refuse(const std::string& path) const {
    if (options_.on_refused) options_.on_refused(path);
  }

  bool PackSetting(const Setting& setting, BinWriter& bin) {
    if (!file_.Read(setting.path)) {
      const int error = errno;
      Refuse(setting.path);
      return ReportSystemError("read", setting.path, error, sink_);
    }
    const FieldChecking checking = options_.check_fields ? FieldChecking::kReported : FieldChecking::kOff;
    ZO_TUNING::internal::PackListener listener;
    const PackResult result = packer_.PackText(setting.path, file_.text(), checking, bin, listener);
    if (result.status != PackStatus::kOk && result.status != PackStatus::kNotWritten) Refuse(setting.path);
    switch (result.status) {
      case PackStatus::kOk:
        // A text that the fast path found to be complete needs no further check. A name that the text lacks may be
        // there in camelCase.
        return (result.is_complete && result.field.empty()) || !options_.check_fields ||
               Explain(setting, result.module, "");
      case PackStatus::kNotWritten:  // reported when the bin is closed
        return true;
      case PackStatus::kBadLabel:
        return ReportLabelFault(result.label, project_.schema(), sink_);
      case PackStatus::kNoModuleType:
        return project_.RequireType(result.module, sink_) != nullptr;
      default:
        return Explain(setting, result.module, result.reason);
    }
  }

  bool Explain(const Setting& setting, const std::string& module, const std::string& refusal) {
    return ExplainText(setting.path, std::string(file_.text()), project_.schema().FindType(module),
                       options_.check_fields ? Fields::kAll : Fields::kAny, refusal, sink_, old_names_);
  }

  Project& project_;
  const PackOptions& options_;
  DiagnosticSink& sink_;
  BinPacker packer_;
  std::shared_ptr<OldNames> old_names_ = std::make_shared<OldNames>(project_.layout().ProtoDir());
  ZO_TUNING::internal::PaddedFile file_;
};

}  // namespace

bool ListInputs(Project& project, const std::vector<std::string>& scopes, std::vector<ScopeInputs>& inputs,
                DiagnosticSink& sink) {
  bool good = true;
  for (const std::string& name : scopes) {
    if (!IsDirectory(project.layout().ScopeDir(name))) {
      sink.Report(Code::kMissingFolder, "the folder of " + Quoted(name) + " is missing",
                  name == kDefaultScope ? "'zotuning template --all' makes it" : "",
                  DisplayPath(project.layout().ScopeDir(name)));
      good = false;
      continue;
    }
    ScopeInputs scope{name, {}, {}, {}};
    std::vector<Setting> settings;
    good &= project.ListSettings(name, settings, sink);
    CollectingSink found;
    CheckPlaces(project, settings, found);
    CheckUnread(project, name, "", found);
    good = good && found.ok();
    for (Diagnostic& diagnostic : found.Take()) sink.Add(std::move(diagnostic));
    for (Setting& setting : settings) {
      if (project.ModuleName(setting.values).empty()) continue;  // reported by CheckPlaces
      scope.states.emplace_back(setting.path, StateOf(setting.path));
      scope.settings.push_back(std::move(setting));
    }
    good &= ReadVersionFiles(project, name, scope.versions, sink);
    for (const VersionFile& file : scope.versions) scope.states.emplace_back(file.path, file.state);
    inputs.push_back(std::move(scope));
  }
  return good;
}

bool PackBins(Project& project, const std::vector<ScopeInputs>& inputs, const PackOptions& options,
              const std::string& bin_folder, const std::string& shown_folder, std::vector<PackedBin>& bins,
              DiagnosticSink& sink) {
  Packing packing(project, options, sink);
  bool good = true;
  for (const ScopeInputs& scope : inputs) {
    PackedBin packed;
    good &= packing.PackBin(scope, BinPath(bin_folder, scope.name), BinPath(shown_folder, scope.name), &packed);
    bins.push_back(packed);
  }
  for (const ScopeInputs& scope : inputs) {
    for (const auto& [path, state] : scope.states) {
      if (!(StateOf(path) != state)) continue;
      sink.Report(Code::kChangedMeanwhile, "this file changed while it was being packed", "pack again",
                  DisplayPath(path));
      good = false;
    }
  }
  return good;
}

}  // namespace zotuning
