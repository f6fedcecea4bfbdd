#include "project.h"

#include <algorithm>
#include <charconv>

#include "ZoTuningUtils.h"
#include "library_log.h"
#include "suggest.h"

namespace zotuning_tool {
namespace {

constexpr const char* kConfigName = "ProjConf.bin";

/// The nearest directory from here up that holds a configuration, as a relative path; "" when there is none.
std::string NearestProject() {
  std::string dir = ".";
  for (;;) {
    if (Exists(dir + "/" + kConfigName)) return dir;
    std::error_code error;
    const std::string parent = dir == "." ? ".." : dir + "/..";
    struct stat here, above;
    if (stat(dir.c_str(), &here) != 0 || stat(parent.c_str(), &above) != 0) return "";
    if (here.st_dev == above.st_dev && here.st_ino == above.st_ino) return "";
    dir = parent;
  }
}

std::vector<std::string> SplitFolders(const std::string& relative) {
  std::vector<std::string> folders;
  size_t begin = 0;
  for (size_t end = relative.find('/'); end != std::string::npos; end = relative.find('/', begin)) {
    folders.push_back(relative.substr(begin, end - begin));
    begin = end + 1;
  }
  return folders;
}

}  // namespace

std::unique_ptr<Project> Project::Open(const std::string& dir, Report& report) {
  const std::string found = dir.empty() ? NearestProject() : dir;
  if (found.empty()) {
    report.Error("no-project", "there is no project here: no directory from here up holds ProjConf.bin",
                 "choose one with -C DIR, or make one with 'zotuning init'");
    return nullptr;
  }
  if (!Exists(found + "/" + kConfigName)) {
    report.Error("no-project",
                 Quoted(found) + (IsDirectory(found) ? " is no project: it holds no ProjConf.bin" : " is no directory"),
                 "make a project with 'zotuning init'");
    return nullptr;
  }
  std::unique_ptr<Project> project(new Project(found));
  project->ok_ = project->Load(report);
  return project;
}

bool Project::Load(Report& report) {
  const std::string config_path = dir_ + "/" + kConfigName;
  const std::string proto_dir = dir_ + "/proto";
  if (!RefuseSpecialFile(config_path, report)) return false;
  if (!IsDirectory(proto_dir)) {
    report.Error("missing-folder", "the project has no folder 'proto' with its schema", "", Shown(proto_dir));
    return false;
  }
  const int errors_before = report.errors();
  schema_ = std::make_unique<SchemaView>(proto_dir, report);
  if (!schema_->ok()) {
    // Special files among the schema would block the library.
    if (report.errors() == errors_before) report.Error("schema", "the schema could not be loaded");
    return false;
  }
  const auto* config_type = schema_->RequireType("TuningProjConfig", report);
  const auto* label_type = schema_->RequireType("TuningDataLabel", report);
  schema_->RequireType("Version", report);
  if (report.errors() > errors_before) return false;

  // The steps of GetProjectConfig, which would load the schema once more.
  const LibraryWatch watch;
  const auto config = schema_->NewMessage(config_type);
  if (!ZoTuningUtils::InitProjConfigMsgFromBin(config.get(), config_type, config_path.c_str(), name_, sensors_) ||
      !ZoTuningUtils::GetProjectTuningLabelsMap(label_type, label_names_, label_map_) || watch.HasErrors()) {
    watch.Explain(report, "the project's configuration cannot be read");
    return false;
  }
  // The operation takes an empty file, one cut within its first length and a failed read for a project of no sensors.
  if (name_.empty() && sensors_.empty()) {
    report.Error("project-config", "the project configuration is empty or cannot be read",
                 "'zotuning init --force' writes it anew", Shown(config_path));
    return false;
  }
  if (label_names_.empty() || label_map_[label_names_[0]].empty()) {
    report.Error("schema-type", "the first field of TuningDataLabel has to be an enum that names the modules", "",
                 Shown(proto_dir));
    return false;
  }
  return true;
}

std::vector<std::string> Project::ValueNames(size_t index) const {
  std::vector<std::string> names;
  if (index >= label_names_.size()) return names;
  for (const auto& [number, name] : label_map_.at(label_names_[index])) {
    if (!name.empty()) names.push_back(name);
  }
  return names;
}

std::string Project::ValueName(size_t index, int value) const {
  const auto& names = label_map_.at(label_names_[index]);
  if (names.empty()) return std::to_string(value);
  const auto found = names.find(value);
  return found == names.end() ? "" : found->second;
}

std::string Project::ModuleName(const std::vector<int>& values) const {
  return values.empty() || values[0] == -1 ? "" : ValueName(0, values[0]);
}

std::string Project::LabelText(const std::vector<int>& values) const {
  std::string text;
  for (size_t i = 0; i < values.size() && i < label_names_.size(); ++i) {
    if (values[i] == -1) continue;
    const std::string name = ValueName(i, values[i]);
    text += (text.empty() ? "" : " ") + label_names_[i] + "=" + (name.empty() ? std::to_string(values[i]) : name);
  }
  return text;
}

Json Project::LabelJson(const std::vector<int>& values) const {
  Json labels = Json::object();
  for (size_t i = 0; i < values.size() && i < label_names_.size(); ++i) {
    if (values[i] == -1) continue;
    const std::string name = label_map_.at(label_names_[i]).empty() ? "" : ValueName(i, values[i]);
    labels[label_names_[i]] = name.empty() ? Json(values[i]) : Json(name);
  }
  return labels;
}

bool Project::RequireSensor(const std::string& name, Report& report) const {
  if (std::find(sensors_.begin(), sensors_.end(), name) != sensors_.end()) return true;
  report.Error("unknown-sensor", "no sensor " + Quoted(name) + DidYouMean(name, sensors_),
               "'zotuning sensors' lists them");
  return false;
}

std::vector<std::string> Project::Scopes() const {
  std::vector<std::string> scopes = {kDefaultScope};
  scopes.insert(scopes.end(), sensors_.begin(), sensors_.end());
  return scopes;
}

std::string Project::VersionDir(const std::string& scope) const {
  return scope == kDefaultScope ? dir_ + "/proto/version" : ScopeDir(scope) + "/version";
}

bool Project::ListSettings(const std::string& scope, std::vector<Setting>& settings, Report& report) const {
  std::vector<FoundFile> files;
  const bool listed = ListFiles(ScopeDir(scope), ".json", files, report);
  for (const FoundFile& file : files) {
    Setting setting{scope, file.relative, file.path, {}, {}};
    ReadLabels(setting);
    settings.push_back(std::move(setting));
  }
  return listed;
}

std::string Project::SettingPath(const std::string& scope, const std::vector<int>& values) const {
  // The operation makes the folders of the path. Below a device there is nothing that could be made.
  const std::string nowhere = "/dev/null";
  auto names = label_names_;
  auto map = label_map_;
  std::string path;
  const LibraryWatch watch;
  ZO_TUNING::TUNING_CONFIG_TO_PATH(nowhere.c_str(), scope, names, map, values, path);
  return path.size() > nowhere.size() ? path.substr(nowhere.size() + 1) : "";
}

std::vector<int> Project::LabelsOf(const std::string& path) const {
  // Of the labels that are entered here all are empty and read as unknown, so one copy will do for all calls.
  if (read_names_.empty()) {
    read_names_ = label_names_;
    read_map_ = label_map_;
  }
  std::vector<int> values;
  const LibraryWatch watch;
  ZO_TUNING::PATH_TO_TUNING_CONFIG(path, read_names_, read_map_, values);
  return values;
}

void Project::ReadLabels(Setting& setting) const {
  setting.values = LabelsOf(setting.path);
  if (ModuleName(setting.values).empty()) {
    const std::string file = setting.relative.substr(setting.relative.rfind('/') + 1);
    const std::string module = file.substr(0, file.rfind('.'));
    setting.faults.push_back("no module " + Quoted(module) + DidYouMean(module, ValueNames(0)));
  }
  for (const std::string& folder : SplitFolders(setting.relative)) {
    const auto [known, fresh] = folder_faults_.try_emplace(folder);
    if (fresh) known->second = FolderFault(folder);
    if (!known->second.empty()) setting.faults.push_back(known->second);
  }
  if (!setting.faults.empty()) return;
  // Read alone, the part below the scope's folder has to give the same: a level is recognised anywhere in a name.
  if (LabelsOf("/" + setting.relative) != setting.values) {
    setting.faults.push_back("the name of the folder " + Quoted(setting.scope) + " or one above it is read as a level");
  }
}

std::string Project::FolderFault(const std::string& folder) const {
  // The level whose prefix leads, the longest one first.
  size_t level = 0;
  for (size_t i = 1; i < label_names_.size(); ++i) {
    const std::string prefix = label_names_[i] + "_";
    if (folder.rfind(prefix, 0) == 0 && (level == 0 || prefix.size() > label_names_[level].size() + 1)) level = i;
  }
  if (level == 0) {
    std::vector<std::string> prefixes;
    for (size_t i = 1; i < label_names_.size(); ++i) prefixes.push_back(label_names_[i]);
    const std::string near = Nearest(folder.substr(0, folder.find('_')), prefixes);
    return "the folder " + Quoted(folder) + " is no level" + (near.empty() ? "" : "; did you mean '" + near + "_...'?");
  }
  const std::string value = folder.substr(label_names_[level].size() + 1);
  const bool numbered = label_map_.at(label_names_[level]).empty();
  if (numbered) {
    int number = -1;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (error != std::errc() || end != value.data() + value.size() || number == -1) {
      return Quoted(value) + " is no number for " + Quoted(label_names_[level]);
    }
  } else if (const auto known = ValueNames(level); std::find(known.begin(), known.end(), value) == known.end()) {
    return Quoted(label_names_[level]) + " has no value " + Quoted(value) + DidYouMean(value, known);
  }
  const auto modules = ValueNames(0);
  const std::vector<int> values = LabelsOf("/" + folder + "/" + (modules.empty() ? "" : modules.back()) + ".json");
  for (size_t i = 1; i < values.size(); ++i) {
    if ((values[i] != -1) != (i == level)) {
      return "the folder " + Quoted(folder) + " is not read as " + Quoted(label_names_[level]);
    }
  }
  return "";
}

}  // namespace zotuning_tool
