// Tested by tests/tools/check_test.cpp.

#include "workspace/check_tree.h"

#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <set>

#include "io/directory.h"
#include "tree/tuning_path-inl.h"
#include "workspace/files.h"
#include "workspace/suggest.h"

namespace zotuning {
namespace {

using ZO_TUNING::internal::EntryKind;

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string Lower(std::string text) {
  for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return text;
}

/// Whether the name of an ignored file looks like JSON but for case, a typo, or what an editor appends.
bool LooksLikeJson(const std::string& name) {
  const std::string lower = Lower(name);
  if (lower.find(".json") != std::string::npos) return true;
  for (const char* slip : {".jsn", ".jso", ".jason", ".js0n", ".sjon", ".jsno"}) {
    if (EndsWith(lower, slip)) return true;
  }
  return false;
}

/// Walks what packing does not read. `in_version` is below a folder that packing does not enter.
void WalkUnread(const Project& project, const std::string& dir, bool in_version, bool top, DiagnosticSink& sink) {
  std::vector<ZO_TUNING::internal::DirectoryEntry> entries;
  // What cannot be listed is reported with the settings.
  (void)ZO_TUNING::internal::ReadDirectory(dir.c_str(), entries);
  std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
  for (const auto& [name, listed_kind] : entries) {
    const std::string path = JoinPath(dir, name);
    EntryKind kind = listed_kind;
    struct stat info;
    if (kind == EntryKind::kUnknown && lstat(path.c_str(), &info) == 0) {
      kind = S_ISDIR(info.st_mode)   ? EntryKind::kDirectory
             : S_ISLNK(info.st_mode) ? EntryKind::kLink
                                     : EntryKind::kFile;
    }
    if (kind == EntryKind::kLink && IsDirectory(path)) {
      if (name[0] == '.') continue;
      // Whoever put it there believes that the settings behind it are packed.
      sink.Error(Code::kNotRead, "this is a link to a folder; packing does not follow it",
                 "put the folder itself there", DisplayPath(path));
    } else if (kind == EntryKind::kDirectory) {
      if (ZO_TUNING::internal::HasSuffix(name, ".json")) {
        sink.Report(Code::kNotRead, "this is a folder; its name makes it look like a file of settings",
                    "rename or remove it", DisplayPath(path));
      }
      WalkUnread(project, path, in_version || (name == "version" && !top), false, sink);
    } else if (!ZO_TUNING::internal::HasSuffix(name, ".json")) {
      if (!LooksLikeJson(name)) {
        // A folder of settings that lost its kind, in an archive or on its way through another system.
        if (name.find('_') == name.npos || !project.FolderFault(name).empty()) continue;
        sink.Report(Code::kNotRead, "this is a file; its name makes it look like a folder of settings",
                    "rename or remove it", DisplayPath(path));
        continue;
      }
      sink.Report(Code::kNotRead, "this file is not read: its name does not end in '.json'",
                  "rename it, or delete it if it is a leftover", DisplayPath(path));
    } else if (in_version) {
      sink.Report(Code::kNotRead, "this file is not read: packing does not enter folders called 'version'",
                  "move it out of there", DisplayPath(path));
    }
  }
}

/// Reports each folder that the labels do not know once. Returns whether all of them are levels.
bool CheckFolders(const Project& project, const Setting& setting, std::set<std::string>& told, DiagnosticSink& sink) {
  if (setting.faults.empty()) return true;
  bool good = true;
  const std::string scope_dir = project.layout().ScopeDir(setting.scope) + "/";
  size_t begin = 0;
  for (size_t end; (end = setting.relative.find('/', begin)) != std::string::npos; begin = end + 1) {
    const std::string fault = project.FolderFault(setting.relative.substr(begin, end - begin));
    if (fault.empty()) continue;
    good = false;
    const std::string path = scope_dir + setting.relative.substr(0, end);
    if (told.insert(path).second) sink.Report(Code::kUnknownLabel, fault, "", DisplayPath(path));
  }
  return good;
}

}  // namespace

void CheckPlaces(const Project& project, const std::vector<Setting>& settings, DiagnosticSink& sink) {
  std::set<std::string> told;
  std::map<std::vector<int>, const Setting*> seen;
  for (const Setting& setting : settings) {
    const std::string shown = DisplayPath(setting.path);
    const bool levels = CheckFolders(project, setting, told, sink);
    if (project.ModuleName(setting.values).empty()) {
      const std::string module = ModuleOfFile(setting.relative);
      sink.Report(Code::kUnknownModule, "no module " + Quoted(module) + DidYouMean(module, project.ValueNames(0)),
                  "'zotuning modules' lists them", shown);
      continue;
    }
    const std::string wanted = ZO_TUNING::internal::SettingPath(project.labels(), setting.values);
    if (levels && setting.scope == kDefaultScope && setting.relative.find('/') != std::string::npos) {
      sink.Report(
          Code::kTreeNesting,
          "the default of a module has no levels; this is packed as a default for " + project.LabelText(setting.values),
          "move it to a sensor, or to " + DisplayPath(project.layout().DefaultPath(project.ModuleName(setting.values))),
          shown);
    } else if (levels && setting.relative != wanted) {
      sink.Report(Code::kTreeNesting, "the folders are read as " + project.LabelText(setting.values),
                  "the path of these labels is " + setting.scope + "/" + wanted, shown);
    }
    const auto [place, fresh] = seen.emplace(setting.values, &setting);
    if (fresh) continue;
    sink.Report(Code::kSameLabels,
                "this setting has the labels of " + DisplayPath(place->second->path) + " (" +
                    project.LabelText(setting.values) + ")",
                "both would be packed; remove one", shown);
  }
}

void CheckUnread(const Project& project, const std::string& scope, const std::string& relative, DiagnosticSink& sink) {
  const std::string scope_dir = project.layout().ScopeDir(scope);
  const std::string dir = relative.empty() ? scope_dir : scope_dir + "/" + relative;
  // The version files of a sensor are in its folder, those of the project beside the schema.
  const bool is_default = scope == kDefaultScope;
  bool in_version = false;
  for (size_t begin = 0; begin < relative.size();) {
    const size_t end = std::min(relative.find('/', begin), relative.size());
    in_version = in_version || (relative.compare(begin, end - begin, "version") == 0 && (is_default || begin > 0));
    begin = end + 1;
  }
  WalkUnread(project, dir, in_version, relative.empty() && !is_default, sink);
  if (is_default && relative.empty()) WalkUnread(project, project.layout().ScopeVersionDir(scope), false, false, sink);
}

void CheckSensorFolders(const Project& project, DiagnosticSink& sink) {
  std::vector<std::string> names;
  ListNames(project.dir(), names, sink);
  for (const std::string& name : names) {
    if (!ZO_TUNING::internal::HasSuffix(name, ".json")) continue;
    if (project.ModuleName(project.LabelsOf("/" + name)).empty()) continue;
    sink.Report(Code::kNotRead, "this file is not read: it is in no sensor's folder",
                "move it to the folder of a sensor, or remove it", DisplayPath(project.dir() + "/" + name));
  }
  const std::vector<std::string> unlisted = project.UnlistedFolders();
  for (const std::string& name : unlisted) {
    sink.Report(Code::kNotRead, "this folder holds settings, but it is not a sensor of the project",
                "'zotuning sensors add " + name + "' lists it", DisplayPath(project.dir() + "/" + name));
  }
  if (!Exists(project.layout().DefaultDir())) {
    sink.Report(Code::kMissingFolder, "the folder of the defaults is missing", "'zotuning template --all' makes it",
                DisplayPath(project.layout().DefaultDir()));
  }
  for (const std::string& sensor : project.sensors()) {
    if (Exists(project.layout().ScopeDir(sensor))) continue;
    std::string hint = "make the folder, or remove the sensor from the list";
    if (const std::string near = Nearest(sensor, unlisted); !near.empty()) {
      hint = "there is a folder " + Quoted(near) + " that is not listed";
    }
    sink.Report(Code::kMissingFolder, "the folder of the sensor " + Quoted(sensor) + " is missing", hint,
                DisplayPath(project.layout().ScopeDir(sensor)));
  }
}

}  // namespace zotuning
