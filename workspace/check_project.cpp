// Tested by tests/tools/check_test.cpp.

#include "workspace/check_project.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <utility>

#include "version/version_text-inl.h"
#include "workspace/check_tree.h"
#include "workspace/files.h"
#include "workspace/project.h"
#include "workspace/version_files.h"

namespace zotuning {
namespace {

namespace fs = std::filesystem;
using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;

/// Whether a path is one of those that were asked for, or below one.
class Wanted {
 public:
  explicit Wanted(const std::vector<std::string>& paths) {
    for (const std::string& path : paths) paths_.push_back(Absolute(path));
  }
  bool all() const { return paths_.empty(); }
  bool operator()(const std::string& path) const {
    if (all()) return true;
    const std::string absolute = Absolute(path);
    return std::any_of(paths_.begin(), paths_.end(), [&](const std::string& wanted) {
      return absolute == wanted || absolute.rfind(wanted == "/" ? wanted : wanted + "/", 0) == 0;
    });
  }
  /// Whether any of the paths is below the folder, or the folder below one of them.
  bool Touches(const std::string& dir) const {
    if ((*this)(dir)) return true;
    const std::string absolute = Absolute(dir) + "/";
    return std::any_of(paths_.begin(), paths_.end(),
                       [&](const std::string& wanted) { return wanted.rfind(absolute, 0) == 0; });
  }

 private:
  static std::string Absolute(const std::string& path) {
    std::error_code error;
    std::string absolute = fs::weakly_canonical(path, error).string();
    if (error) absolute = fs::absolute(path, error).lexically_normal().string();
    while (absolute.size() > 1 && absolute.back() == '/') absolute.pop_back();
    return absolute;
  }

  std::vector<std::string> paths_;
};

class Check {
 public:
  Check(Project& project, const Wanted& wanted, const CheckOptions& options, DiagnosticSink& sink)
      : project_(project), wanted_(wanted), fit_(options.fit), version_fit_(VersionOptions()), sink_(sink) {}

  void Run() {
    if (wanted_.Touches(project_.layout().ProtoDir())) CheckSchemaFolder();
    if (project_.has_labels()) {
      if (wanted_.all()) CheckModules();
      if (wanted_.all()) CheckSensorFolders(project_, sink_);
      for (const std::string& scope : project_.Scopes()) CheckScope(scope);
    }
    if (project_.version_type() != nullptr) CheckVersions();
  }

 private:
  static FitOptions VersionOptions() {
    FitOptions options;
    options.completeness = false;
    return options;
  }

  /// Files that look like part of the schema, and are not loaded.
  void CheckSchemaFolder() {
    std::vector<FoundFile> files;
    CollectingSink ignored;
    ListFiles(project_.layout().ProtoDir(), ".proto", files, ignored);
    for (const FoundFile& file : files) {
      if (!wanted_(file.path)) continue;
      const std::string name = file.relative.substr(file.relative.rfind('/') + 1);
      const bool backup = std::count(name.begin(), name.end(), '.') > 1 || name.find(" (") != std::string::npos;
      if (file.relative.find('/') != std::string::npos) {
        sink_.Report(Code::kNotRead, "this file is not read: it is in a subfolder of the schema",
                     "move it to " + DisplayPath(project_.layout().ProtoDir()), DisplayPath(file.path));
      } else if (backup) {
        sink_.Warn(Code::kSchema, "this looks like a backup copy, and it is loaded as part of the schema",
                   "move it elsewhere, or remove it", DisplayPath(file.path));
      }
    }
  }

  /// Modules without a type, and types in forms that templates cannot handle.
  void CheckModules() {
    std::set<const Descriptor*> seen;
    for (const Project::Module& module : project_.Modules()) {
      if (module.type != nullptr) {
        CheckForms(module.type, seen);
      } else if (project_.ok()) {
        Diagnostic diagnostic(Code::kSchemaType,
                              "the label names a module " + Quoted(module.name) +
                                  ", but the schema has no message type " +
                                  Quoted(project_.schema().Find(module.name).qualified_name),
                              "declare it, or take the value out of the enum");
        const auto* value = project_.label_type()->field(0)->enum_type()->FindValueByNumber(module.number);
        SetSchemaPlace(value, value->type()->file(), &diagnostic);
        sink_.Add(std::move(diagnostic));
      }
    }
  }

  void CheckForms(const Descriptor* type, std::set<const Descriptor*>& seen) {
    if (!seen.insert(type).second) return;
    for (int i = 0; i < type->field_count(); ++i) {
      const FieldDescriptor* field = type->field(i);
      const char* form = field->is_map()                                ? "a map"
                         : field->type() == FieldDescriptor::TYPE_GROUP ? "a group"
                         : field->is_required()                         ? "required"
                         : field->real_containing_oneof() != nullptr    ? "part of a oneof"
                                                                        : nullptr;
      if (form != nullptr) {
        Diagnostic diagnostic(Code::kSchemaForm,
                              "the field " + Quoted(field->full_name()) + " is " + form +
                                  ", which templates or packing cannot handle well",
                              "use plain fields and lists of messages");
        SetSchemaPlace(field, field->file(), &diagnostic);
        sink_.Add(std::move(diagnostic));
      }
      if (field->message_type() != nullptr && !field->is_map()) CheckForms(field->message_type(), seen);
    }
  }

  template <typename Element>
  void SetSchemaPlace(const Element* element, const google::protobuf::FileDescriptor* file, Diagnostic* diagnostic) {
    diagnostic->file = DisplayPath(project_.layout().ProtoDir() + "/" + file->name());
    google::protobuf::SourceLocation place;
    if (!element->GetSourceLocation(&place)) return;
    diagnostic->line = place.start_line + 1;
    diagnostic->column = place.start_column + 1;
  }

  void CheckScope(const std::string& scope) {
    const std::string dir = project_.layout().ScopeDir(scope);
    if (!wanted_.Touches(dir) || !IsDirectory(dir)) return;
    std::vector<Setting> settings;
    project_.ListSettings(scope, settings, sink_);
    if (!wanted_.all()) {
      settings.erase(std::remove_if(settings.begin(), settings.end(),
                                    [&](const Setting& setting) { return !wanted_(setting.path); }),
                     settings.end());
    }
    CheckPlaces(project_, settings, sink_);
    if (wanted_(dir)) CheckUnread(project_, scope, sink_);
    for (const Setting& setting : settings) CheckSetting(setting);
  }

  void CheckSetting(const Setting& setting) {
    const std::string module = project_.ModuleName(setting.values);
    if (module.empty()) return;
    const Descriptor* type = project_.schema().FindType(module);
    // Where the schema has errors, they may hide the type; where it has none, its absence was told.
    if (type != nullptr) CheckFile(setting.path, type, fit_);
    const std::string default_path = project_.layout().DefaultPath(module);
    if (type == nullptr || setting.scope == kDefaultScope || Exists(default_path)) return;
    if (!missing_defaults_.insert(module).second) return;
    sink_.Warn(Code::kMissingDefault, "the module " + Quoted(module) + " has settings, but no default",
               "'zotuning template " + module + "' makes it", DisplayPath(default_path));
  }

  void CheckFile(const std::string& path, const Descriptor* type, FitChecker& fit) {
    std::string text;
    if (!ReadFile(path, text, sink_)) return;
    const JsonDocument document(std::move(text));
    CheckText(document, DisplayPath(path), sink_);
    fit.Check(document, type, DisplayPath(path), sink_);
  }

  void CheckVersions() {
    std::vector<VersionFile> own;
    bool good = true;
    std::vector<std::string> scopes = {kDefaultScope};
    if (project_.has_labels()) scopes = project_.Scopes();
    for (const std::string& scope : scopes) {
      const std::string dir = project_.layout().ScopeVersionDir(scope);
      if (!IsDirectory(dir) || !(wanted_.Touches(dir) || scope == kDefaultScope)) continue;
      std::vector<FoundFile> files;
      good &= ListFiles(dir, ".json", files, sink_);
      for (const FoundFile& file : files) {
        if (wanted_(file.path)) CheckFile(file.path, project_.version_type(), version_fit_);
      }
      if (scope != kDefaultScope) continue;
      CollectingSink ignored;  // told by CheckFile
      good &= ReadVersionFiles(project_, scope, own, ignored);
    }
    const std::string header = project_.layout().HeaderPath();
    for (const VersionFile& file : own) {
      if (file.message == nullptr || !wanted_(file.path)) continue;
      if (file.name.empty()) {
        sink_.Warn(Code::kVersionMisread, "the version has no name", "set \"name\"", DisplayPath(file.path));
      } else if (const std::string fault = ScanFault(file); !fault.empty()) {
        sink_.Warn(Code::kVersionMisread, "the version header would get this file wrong: " + fault, "",
                   DisplayPath(file.path));
      }
    }
    if (good && wanted_(header)) CheckHeader(own);
  }

  void CheckHeader(const std::vector<VersionFile>& versions) {
    const std::string path = project_.dir() + "/src/ZoTuningVersion.h";
    std::string text;
    if (!Exists(path) || !ReadFile(path, text, sink_)) return;
    if (!HeaderIsCurrent(text, versions)) {
      sink_.Warn(Code::kHeaderOutdated, "the header is out of date", "'zotuning version header' makes it again",
                 DisplayPath(path));
    }
  }

  Project& project_;
  const Wanted& wanted_;
  FitChecker fit_;
  FitChecker version_fit_;
  DiagnosticSink& sink_;
  std::set<std::string> missing_defaults_;
};

}  // namespace

bool CheckProject(const std::string& dir, const std::vector<std::string>& paths, const CheckOptions& options,
                  DiagnosticSink& sink) {
  CollectingSink found;
  bool checked = true;
  for (const std::string& path : paths) {
    if (Exists(path)) continue;
    found.Report(Code::kIo, "there is no " + DisplayPath(path), "", DisplayPath(path));
    checked = false;
  }
  const auto project = Project::Load(dir, found);
  checked = checked && project != nullptr;
  if (checked && project->has_schema()) Check(*project, Wanted(paths), options, found).Run();
  std::vector<Diagnostic> diagnostics = found.Take();
  std::stable_sort(diagnostics.begin(), diagnostics.end(), [](const Diagnostic& a, const Diagnostic& b) {
    return std::tie(a.file, a.line, a.column) < std::tie(b.file, b.line, b.column);
  });
  for (Diagnostic& diagnostic : diagnostics) sink.Add(std::move(diagnostic));
  return checked;
}

}  // namespace zotuning
