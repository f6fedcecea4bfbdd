// Tested by tests/workspace/project_test.cpp and, through the tool, tests/tools.

#include "project.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "schema_faults.h"
#include "suggest.h"
#include "tree/tuning_path-inl.h"

namespace zotuning {
namespace {

using google::protobuf::Descriptor;
using ZO_TUNING::internal::ConfigStatus;
using ZO_TUNING::internal::LabelResult;
using ZO_TUNING::internal::LabelStatus;
using ZO_TUNING::internal::LoadResult;
using ZO_TUNING::internal::SchemaFault;
using ZO_TUNING::internal::TypeResult;
using ZO_TUNING::internal::TypeStatus;

std::vector<std::string> SplitFolders(const std::string& relative) {
  std::vector<std::string> folders;
  size_t begin = 0;
  for (size_t end = relative.find('/'); end != std::string::npos; end = relative.find('/', begin)) {
    folders.push_back(relative.substr(begin, end - begin));
    begin = end + 1;
  }
  return folders;
}

/// The position of a declaration in its schema file.
template <typename Declared>
void SetPlace(const Schema& schema, const Declared& declared, const google::protobuf::FileDescriptor* file,
              Diagnostic* diagnostic) {
  diagnostic->file = DisplayPath(schema.proto_dir() + "/" + file->name());
  google::protobuf::SourceLocation place;
  if (!declared.GetSourceLocation(&place)) return;
  diagnostic->line = place.start_line + 1;
  diagnostic->column = place.start_column + 1;
}

}  // namespace

std::string ModuleOfFile(const std::string& path) {
  const std::string file = path.substr(path.rfind('/') + 1);
  return file.substr(0, file.rfind('.'));
}

std::string NameFault(const std::string& name) {
  if (name.empty() || name == "." || name == "..") return "is not the name of a folder";
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '/' || c == '\\' || c == '"') return "must not contain a slash, a backslash or a quote";
    if (byte < 0x20 || byte == 0x7F) return "must not contain control characters";
  }
  for (const char* taken : {kDefaultScope, "proto", "src", "version", "ProjConf.bin"}) {
    if (name == taken) return "is taken by a folder or file of the project";
  }
  return "";
}

std::unique_ptr<Schema> LoadSchema(const std::string& proto_dir, DiagnosticSink& sink, bool* has_errors) {
  std::vector<FoundFile> files;
  if (!ListFiles(proto_dir, ".proto", files, sink)) return nullptr;
  if (files.empty()) {
    sink.Report(Code::kSchema, "this folder holds no .proto file", "", DisplayPath(proto_dir));
    return nullptr;
  }
  std::vector<SchemaFault> faults;
  auto schema = std::make_unique<Schema>(proto_dir, &faults, [](const std::string& path) {
    return std::string(KindOf(path) == FileKind::kSpecial ? "this is a named pipe or a device, not a file" : "");
  });
  bool good = ReportSchemaFaults(*schema, faults, sink);
  // Entries that could not be listed while the schema was loaded are missing without an error.
  for (const FoundFile& file : files) {
    if (!good || file.relative.find('/') != std::string::npos || IsDirectory(file.path)) continue;
    const auto& loaded = schema->files();
    if (std::any_of(loaded.begin(), loaded.end(),
                    [&](const auto& entry) { return entry.is_loaded && entry.name == file.relative; })) {
      continue;
    }
    sink.Report(Code::kSchema, "this file could not be loaded", "", DisplayPath(file.path));
    good = false;
  }
  if (has_errors != nullptr) *has_errors = !good;
  return good || has_errors != nullptr ? std::move(schema) : nullptr;
}

void SetSchemaPlace(const Schema& schema, const google::protobuf::FieldDescriptor& field, Diagnostic* diagnostic) {
  SetPlace(schema, field, field.file(), diagnostic);
}

void SetSchemaPlace(const Schema& schema, const google::protobuf::EnumValueDescriptor& value, Diagnostic* diagnostic) {
  SetPlace(schema, value, value.type()->file(), diagnostic);
}

std::string OtherPackageHint(const Schema& schema, const std::string& short_name) {
  for (const char* package : {"ZO_TUNING", "ZO_TUNING_AF", "ZO_TUNING_AWB", "ZO_TUNING_AEC", "ZO_TUNING_PD"}) {
    const std::string name = std::string(package) + "." + short_name;
    if (schema.pool().FindMessageTypeByName(name) == nullptr) continue;
    return "there is " + Quoted(name) + "; the package goes by the first two letters of the name";
  }
  return "";
}

const Descriptor* RequireType(const Schema& schema, const std::string& short_name, DiagnosticSink& sink) {
  const TypeResult found = schema.Find(short_name);
  if (found.type != nullptr) return found.type;
  const std::string proto_dir = DisplayPath(schema.proto_dir());
  if (found.status == TypeStatus::kTooManyLevels) {
    sink.Report(Code::kSchemaType,
                "the message type " + Quoted(found.qualified_name) + " holds too many levels of types", "", proto_dir);
    return nullptr;
  }
  // The most common mistake is the right type in the wrong package.
  sink.Report(Code::kSchemaType, "the schema has no message type " + Quoted(found.qualified_name),
              OtherPackageHint(schema, short_name), proto_dir);
  return nullptr;
}

bool ReportLabelFault(const LabelResult& result, const Schema& schema, DiagnosticSink& sink) {
  std::string message, hint;
  switch (result.status) {
    case LabelStatus::kOk:
      return true;
    case LabelStatus::kBadType:
      message = "the field " + Quoted(result.field) + " of TuningDataLabel is neither int32 nor enum";
      break;
    case LabelStatus::kNoShortName:
      message = "the value " + Quoted(result.value->name()) + " of the enum " +
                Quoted(result.value->type()->full_name()) + " has no short name";
      hint = "name it " + result.value->type()->name() + "_ and the short name";
      break;
    case LabelStatus::kNoField:
    case LabelStatus::kTooFewNames:
      message = "TuningDataLabel has no singular field " + Quoted(result.field);
      break;
  }
  Diagnostic diagnostic(Code::kSchemaType, message, hint, DisplayPath(schema.proto_dir()));
  const Descriptor* label_type = schema.FindType("TuningDataLabel");
  const auto* field = label_type == nullptr ? nullptr : label_type->FindFieldByName(result.field);
  if (result.value != nullptr) {
    SetSchemaPlace(schema, *result.value, &diagnostic);
  } else if (field != nullptr) {
    SetSchemaPlace(schema, *field, &diagnostic);
  }
  sink.Add(std::move(diagnostic));
  return false;
}

std::string Project::FindNearest(const std::string& from) {
  std::string dir = from;
  for (;;) {
    if (Exists(ProjectLayout(dir).ConfigPath())) return dir;
    const std::string parent = dir == "." ? ".." : dir + "/..";
    struct stat here, above;
    if (stat(dir.c_str(), &here) != 0 || stat(parent.c_str(), &above) != 0) return "";
    if (here.st_dev == above.st_dev && here.st_ino == above.st_ino) return "";
    dir = parent;
  }
}

std::unique_ptr<Project> Project::Load(const std::string& dir, DiagnosticSink& sink) {
  std::unique_ptr<Project> project(new Project(dir));
  if (!Exists(project->layout_.ConfigPath())) {
    sink.Report(
        Code::kNoProject,
        Quoted(dir) + (IsDirectory(dir) ? " is not a project: it holds no ProjConf.bin" : " is not a directory"),
        "make a project with 'zotuning init'");
    return nullptr;
  }
  project->ok_ = project->LoadAll(sink);
  return project;
}

bool Project::LoadAll(DiagnosticSink& sink) {
  if (!RefuseSpecialFile(layout_.ConfigPath(), sink)) return false;
  const std::string proto_dir = layout_.ProtoDir();
  if (!IsDirectory(proto_dir)) {
    sink.Report(Code::kMissingFolder, "the project has no folder 'proto' with its schema",
                "put the '.proto' files there", DisplayPath(proto_dir));
    return false;
  }
  bool has_errors = false;
  schema_ = LoadSchema(proto_dir, sink, &has_errors);
  if (schema_ == nullptr) return false;
  // A type that is hidden by an error of the schema is not a second fault.
  const auto find = [&](const char* name) { return has_errors ? schema_->FindType(name) : RequireType(name, sink); };
  const Descriptor* config_type = find("TuningProjConfig");
  label_type_ = find("TuningDataLabel");
  version_type_ = find("Version");
  if (label_type_ == nullptr) return false;
  bool good = !has_errors && config_type != nullptr && version_type_ != nullptr;
  // Whatever else is wrong, the labels tell what the files are.
  bool has_sensors = false;
  if (config_type != nullptr) {
    const LoadResult loaded = LoadProjectConfig(layout_, *schema_, config_);
    has_sensors = CheckConfig(loaded, sink);
    has_labels_ = loaded.labels.ok();
  }
  if (!has_labels_) {
    has_labels_ = ReadUsableLabels(sink);
    good = false;
  }
  if (has_labels_ && labels().ValuesOf(0).empty()) {
    sink.Report(Code::kSchemaType, "the first field of TuningDataLabel must be an enum that names the modules", "",
                DisplayPath(proto_dir));
    has_labels_ = false;
  }
  if (has_labels_ && !has_sensors) {
    config_.sensor_names.clear();
    config_.sensor_names = UnlistedFolders();
  }
  return good && has_labels_ && has_sensors;
}

bool Project::ReadUsableLabels(DiagnosticSink& sink) {
  config_.label_names.clear();
  config_.label_map.clear();
  LabelResult result;
  for (int i = 0; i < label_type_->field_count(); ++i) {
    const google::protobuf::FieldDescriptor* field = label_type_->field(i);
    config_.label_names.push_back(field->name());
    auto& values = config_.label_map[field->name()];
    if (field->type() == google::protobuf::FieldDescriptor::TYPE_INT32) continue;
    result.field = field->name();
    if (field->enum_type() == nullptr) {
      result.status = LabelStatus::kBadType;
      return ReportLabelFault(result, *schema_, sink);
    }
    for (int k = 0; k < field->enum_type()->value_count(); ++k) {
      const google::protobuf::EnumValueDescriptor* value = field->enum_type()->value(k);
      const size_t prefix = field->enum_type()->name().size() + 1;
      if (value->name().size() >= prefix) {
        values[value->number()] = value->name().substr(prefix);
        continue;
      }
      result.status = LabelStatus::kNoShortName;
      result.value = value;
      ReportLabelFault(result, *schema_, sink);
    }
  }
  return true;
}

std::vector<std::string> Project::UnlistedFolders() const {
  std::vector<std::string> names, unlisted;
  CollectingSink ignored;  // what cannot be listed is reported where it is needed
  ListNames(dir(), names, ignored);
  for (const std::string& name : names) {
    const std::string path = dir() + "/" + name;
    const bool known = std::find(sensors().begin(), sensors().end(), name) != sensors().end();
    if (known || name[0] == '.' || !NameFault(name).empty() || !IsDirectory(path)) continue;
    std::vector<FoundFile> files;
    ListFiles(path, ".json", files, ignored);
    const bool settings = std::any_of(files.begin(), files.end(), [&](const FoundFile& file) {
      return !ModuleName(LabelsOf("/" + file.relative)).empty();
    });
    if (settings || IsDirectory(path + "/version")) unlisted.push_back(name);
  }
  return unlisted;
}

bool Project::CheckConfig(const LoadResult& loaded, DiagnosticSink& sink) const {
  const std::string path = layout_.ConfigPath();
  switch (loaded.config.status) {
    case ConfigStatus::kOk:
      break;
    case ConfigStatus::kNotOpened:
      return ReportSystemError("read", path, loaded.config.error, sink);
    case ConfigStatus::kNotRead:
      sink.Report(Code::kProjectConfig, "the project configuration is truncated", "", DisplayPath(path));
      return false;
    case ConfigStatus::kNotParsed:
      sink.Report(Code::kProjectConfig, "the project configuration does not fit the schema", "", DisplayPath(path));
      return false;
    case ConfigStatus::kNoField:
      sink.Report(Code::kSchemaType,
                  "the message type 'TuningProjConfig' has no usable field " + Quoted(loaded.config.field),
                  "it needs string proj_name and repeated string sensor_names", DisplayPath(layout_.ProtoDir()));
      return false;
  }
  if (IsDirectory(path)) return ReportSystemError("read", path, EISDIR, sink);
  // Reading takes an empty file, one cut within its first length and a failed read for a project without sensors.
  if (name().empty() && sensors().empty()) {
    sink.Report(Code::kProjectConfig, "the project configuration is empty or cannot be read",
                "'zotuning init --force' writes it again", DisplayPath(path));
    return false;
  }
  bool good = true;
  for (const std::string& sensor : sensors()) {
    const std::string fault = NameFault(sensor);
    if (fault.empty()) continue;
    sink.Report(Code::kProjectConfig, "the sensor name " + Quoted(sensor) + " " + fault,
                "'zotuning init --force' writes the configuration again", DisplayPath(path));
    good = false;
  }
  return good;
}

std::vector<Project::Module> Project::Modules() const {
  std::vector<Module> modules;
  for (const auto& [number, name] : labels().ValuesOf(0)) {
    if (name.empty()) continue;
    const Descriptor* type = schema_->FindType(name);
    if (type != nullptr || number != 0) modules.push_back({name, number, type});
  }
  return modules;
}

std::vector<std::string> Project::ValueNames(size_t index) const {
  std::vector<std::string> names;
  if (index >= labels().names().size()) return names;
  for (const auto& [number, name] : labels().ValuesOf(index)) {
    if (!name.empty()) names.push_back(name);
  }
  return names;
}

std::string Project::ValueText(size_t index, int value) const {
  return labels().ValuesOf(index).empty() ? std::to_string(value) : labels().ValueName(index, value);
}

std::string Project::ModuleName(const std::vector<int>& values) const {
  return values.empty() || values[0] == -1 ? "" : labels().ValueName(0, values[0]);
}

std::string Project::LabelText(const std::vector<int>& values) const {
  std::string text;
  for (size_t i = 0; i < values.size() && i < labels().names().size(); ++i) {
    if (values[i] == -1) continue;
    const std::string name = ValueText(i, values[i]);
    text += (text.empty() ? "" : " ") + labels().names()[i] + "=" + (name.empty() ? std::to_string(values[i]) : name);
  }
  return text;
}

bool Project::RequireSensor(const std::string& name, DiagnosticSink& sink) const {
  if (std::find(sensors().begin(), sensors().end(), name) != sensors().end()) return true;
  sink.Report(Code::kUnknownSensor, "no sensor " + Quoted(name) + DidYouMean(name, sensors()),
              "'zotuning sensors' lists them");
  return false;
}

std::vector<std::string> Project::Scopes() const {
  std::vector<std::string> scopes = {kDefaultScope};
  scopes.insert(scopes.end(), sensors().begin(), sensors().end());
  return scopes;
}

bool Project::ListSettings(const std::string& scope, std::vector<Setting>& settings, DiagnosticSink& sink) const {
  std::vector<FoundFile> files;
  const bool listed = ListFiles(layout_.ScopeDir(scope), ".json", files, sink);
  for (const FoundFile& file : files) {
    Setting setting{scope, file.relative, file.path, {}, {}};
    ReadLabels(setting);
    settings.push_back(std::move(setting));
  }
  return listed;
}

std::string Project::SettingPath(const std::string& scope, const std::vector<int>& values) const {
  return scope + "/" + ZO_TUNING::internal::SettingPath(labels(), values);
}

std::vector<int> Project::LabelsOf(const std::string& path) const {
  std::vector<int> values;
  (void)ZO_TUNING::internal::ReadSettingPath(labels(), path, values);
  return values;
}

void Project::ReadLabels(Setting& setting) const {
  setting.values = LabelsOf(setting.path);
  if (ModuleName(setting.values).empty()) {
    const std::string module = ModuleOfFile(setting.relative);
    setting.faults.push_back("no module " + Quoted(module) + DidYouMean(module, ValueNames(0)));
  }
  for (const std::string& folder : SplitFolders(setting.relative)) {
    const auto [known, fresh] = folder_faults_.try_emplace(folder);
    if (fresh) known->second = FolderFault(folder);
    if (!known->second.empty()) setting.faults.push_back(known->second);
  }
  if (!setting.faults.empty()) return;
  // Read by itself, the part below the scope's folder must mean the same: a level is recognised anywhere in a name.
  if (LabelsOf("/" + setting.relative) != setting.values) {
    setting.faults.push_back("the name of the folder " + Quoted(setting.scope) + " or one above it is read as a level");
  }
}

std::string Project::FolderFault(const std::string& folder) const {
  // The level whose prefix is at the start, the longest one first.
  size_t level = 0;
  for (size_t i = 1; i < labels().names().size(); ++i) {
    const std::string prefix = labels().names()[i] + "_";
    if (folder.rfind(prefix, 0) == 0 && (level == 0 || prefix.size() > labels().names()[level].size() + 1)) level = i;
  }
  if (level == 0) {
    const std::vector<std::string> prefixes(labels().names().begin() + 1, labels().names().end());
    const std::string near = Nearest(folder.substr(0, folder.find('_')), prefixes);
    return "the folder " + Quoted(folder) + " is not a level" +
           (near.empty() ? "" : "; did you mean '" + near + "_...'?");
  }
  const std::string& label = labels().names()[level];
  const std::string value = folder.substr(label.size() + 1);
  if (labels().ValuesOf(level).empty()) {
    int number = -1;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (error != std::errc() || end != value.data() + value.size() || number == -1) {
      return Quoted(value) + " is not a number for " + Quoted(label);
    }
  } else if (const auto known = ValueNames(level); std::find(known.begin(), known.end(), value) == known.end()) {
    return Quoted(label) + " has no value " + Quoted(value) + DidYouMean(value, known);
  }
  const auto modules = ValueNames(0);
  const std::vector<int> values = LabelsOf("/" + folder + "/" + (modules.empty() ? "" : modules.back()) + ".json");
  for (size_t i = 1; i < values.size(); ++i) {
    if ((values[i] != -1) != (i == level)) {
      return "the folder " + Quoted(folder) + " is not read as " + Quoted(label);
    }
  }
  return "";
}

}  // namespace zotuning
