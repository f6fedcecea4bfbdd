// Tested by tests/tools/check_test.cpp.

#include "workspace/check_project.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <tuple>
#include <utility>

#include "io/directory.h"
#include "workspace/check_tree.h"
#include "workspace/files.h"
#include "workspace/old_names.h"
#include "workspace/project.h"
#include "workspace/schema_faults.h"
#include "workspace/version_files.h"

namespace zotuning {
namespace {

namespace fs = std::filesystem;
using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;

/// The paths given by the user, as paths below the project's folder.
class Wanted {
 public:
  Wanted(const std::string& project_dir, const std::vector<std::string>& paths) : prefix_(DisplayPath(project_dir)) {
    prefix_ = prefix_ == "." ? "" : prefix_ + "/";
    const std::string roots[] = {Normal(project_dir), Canonical(project_dir)};
    all_ = paths.empty();
    for (const std::string& path : paths) {
      // As written, and with links resolved on the way; the last component may be a link.
      const fs::path written(Normal(path));
      const std::string forms[] = {written.string(),
                                   (Canonical(written.parent_path().string()) / written.filename()).string()};
      std::string relative = "/";  // outside the project
      for (const std::string& root : roots) {
        for (const std::string& form : forms) {
          if (form == root) relative = "";
          if (IsBelow(form, root)) relative = form.substr(root.size() + 1);
        }
      }
      all_ = all_ || relative.empty();
      paths_.push_back({path, relative, false});
    }
  }

  bool all() const { return all_; }

  /// Whether a path of the project is one of them, or below one.
  bool operator()(const std::string& path) const {
    if (all_) return true;
    const std::string relative = Relative(path);
    return std::any_of(paths_.begin(), paths_.end(), [&](const Path& wanted) {
      return relative == wanted.relative || IsBelow(relative, wanted.relative);
    });
  }
  /// Whether any of them is below the folder, or the folder below one of them.
  bool Touches(const std::string& dir) const {
    if ((*this)(dir)) return true;
    const std::string relative = Relative(dir);
    return std::any_of(paths_.begin(), paths_.end(),
                       [&](const Path& wanted) { return IsBelow(wanted.relative, relative); });
  }
  /// Those below a folder of the project, as paths below that.
  std::vector<std::string> Below(const std::string& dir) const {
    std::vector<std::string> below;
    const std::string relative = Relative(dir);
    for (const Path& wanted : paths_) {
      if (IsBelow(wanted.relative, relative)) below.push_back(wanted.relative.substr(relative.size() + 1));
    }
    return below;
  }

  /// The path has been checked, or something was reported about it.
  void SetMet(const std::string& path) {
    if (all_) return;
    const std::string relative = Relative(path);
    for (Path& wanted : paths_) {
      wanted.met = wanted.met || relative == wanted.relative || IsBelow(relative, wanted.relative);
    }
  }
  /// As given by the user.
  std::vector<std::string> NotMet() const {
    std::vector<std::string> paths;
    for (const Path& wanted : paths_) {
      if (!all_ && !wanted.met) paths.push_back(wanted.given);
    }
    return paths;
  }

 private:
  struct Path {
    std::string given;
    std::string relative;
    bool met;
  };

  static bool IsBelow(const std::string& path, const std::string& dir) {
    return path.size() > dir.size() && path[dir.size()] == '/' && path.compare(0, dir.size(), dir) == 0;
  }
  static std::string Normal(const std::string& path) {
    std::string normal = fs::absolute(path).lexically_normal().string();
    while (normal.size() > 1 && normal.back() == '/') normal.pop_back();
    return normal;
  }
  static fs::path Canonical(const std::string& path) {
    std::error_code error;
    fs::path canonical = fs::weakly_canonical(path, error);
    return error ? fs::path(Normal(path)) : canonical;
  }
  std::string Relative(const std::string& path) const {
    const std::string shown = DisplayPath(path);
    return shown.compare(0, prefix_.size(), prefix_) == 0 ? shown.substr(prefix_.size()) : shown;
  }

  std::string prefix_;
  std::vector<Path> paths_;
  bool all_ = false;
};

class Check {
 public:
  Check(Project& project, Wanted& wanted, const CheckOptions& options, DiagnosticSink& sink)
      : project_(project),
        wanted_(wanted),
        fit_(FitOf(options, project)),
        version_fit_(VersionOptions()),
        text_(options.text),
        sink_(sink) {}

  void Run() {
    const std::string proto_dir = project_.layout().ProtoDir();
    if (wanted_.Touches(proto_dir)) CheckSchemaFolder();
    if (project_.has_labels()) {
      if (wanted_(proto_dir)) CheckLabels();
      if (wanted_(proto_dir)) CheckModules();
      if (wanted_.all()) CheckSensorFolders(project_, sink_);
      for (const std::string& scope : project_.Scopes()) CheckScope(scope);
    }
    if (project_.version_type() != nullptr) CheckVersions();
    wanted_.SetMet(project_.layout().ConfigPath());
    wanted_.SetMet(project_.dir() + "/zotuning.json");
    for (const std::string& path : wanted_.NotMet()) {
      sink_.Warn(
          Code::kNotRead, IsDirectory(path) ? "packing does not read this folder" : "this file is not read",
          "packing reads '.json' files of 'default' and of listed sensors, except in folders called 'version', and "
          "'.proto' files of 'proto'",
          DisplayPath(path));
    }
  }

 private:
  static FitOptions FitOf(const CheckOptions& options, const Project& project) {
    FitOptions fit = options.fit;
    fit.old_names = std::make_shared<OldNames>(project.layout().ProtoDir());
    return fit;
  }

  static FitOptions VersionOptions() {
    FitOptions options;
    options.completeness = false;
    return options;
  }

  /// Files that look like part of the schema but are not loaded, or should not be.
  void CheckSchemaFolder() {
    const std::string dir = project_.layout().ProtoDir();
    std::vector<FoundFile> files;
    CollectingSink ignored;
    ListFiles(dir, "", files, ignored);
    for (const FoundFile& file : files) {
      const std::string lower = Lower(file.relative);
      if (!wanted_(file.path) || lower.find(".proto") == std::string::npos) continue;
      wanted_.SetMet(file.path);
      if (!ZO_TUNING::internal::HasSuffix(file.relative, ".proto")) {
        sink_.Report(Code::kNotRead, "this file is not read: its name does not end in '.proto'",
                     "rename it, or delete it if it is a leftover", DisplayPath(file.path));
      } else if (file.relative.find('/') != std::string::npos) {
        sink_.Report(Code::kNotRead, "this file is not read: it is in a subfolder of the schema",
                     "move it to " + DisplayPath(dir), DisplayPath(file.path));
      } else if (LooksLikeCopy(file.relative) && project_.schema().pool().FindFileByName(file.relative) != nullptr) {
        sink_.Warn(Code::kSchema, "this looks like a backup copy, and it is loaded as part of the schema",
                   "move it elsewhere, or remove it", DisplayPath(file.path));
      }
    }
  }

  static std::string Lower(std::string text) {
    for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return text;
  }

  /// Names of values that the library reads differently from what they suggest.
  void CheckLabels() {
    for (int i = 0; i < project_.label_type()->field_count(); ++i) {
      const auto* type = project_.label_type()->field(i)->enum_type();
      std::map<int, const google::protobuf::EnumValueDescriptor*> named;
      for (int k = 0; type != nullptr && k < type->value_count(); ++k) {
        const auto* value = type->value(k);
        const std::string& name = value->name();
        const size_t prefix = type->name().size() + 1;
        if (name.size() >= prefix && name.compare(0, prefix, type->name() + "_") != 0) {
          AddLabelName(*value,
                       Quoted(name) + " does not begin with " + Quoted(type->name() + "_") +
                           "; its short name is read as " + Quoted(name.substr(prefix)),
                       "name it " + type->name() + "_ and the short name");
        }
        const auto [first, added] = named.emplace(value->number(), value);
        if (!added) {
          AddLabelName(*first->second,
                       Quoted(first->second->name()) + " has the number of " + Quoted(name) + "; only that name counts",
                       "give each value a number of its own");
        }
      }
    }
  }

  void AddLabelName(const google::protobuf::EnumValueDescriptor& value, std::string message, std::string hint) {
    Diagnostic diagnostic(Code::kLabelName, std::move(message), std::move(hint));
    SetSchemaPlace(project_.schema(), value, &diagnostic);
    sink_.Add(std::move(diagnostic));
  }

  /// Modules without a type, and types that templates cannot handle.
  void CheckModules() {
    std::set<const Descriptor*> seen;
    for (const Project::Module& module : project_.Modules()) {
      if (module.type != nullptr) {
        CheckForms(module.type, seen);
      }
    }
    CheckModuleTypes(project_, sink_);
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
        SetSchemaPlace(project_.schema(), *field, &diagnostic);
        sink_.Add(std::move(diagnostic));
      }
      if (field->message_type() != nullptr && !field->is_map()) CheckForms(field->message_type(), seen);
    }
  }

  void CheckScope(const std::string& scope) {
    const std::string dir = project_.layout().ScopeDir(scope);
    if (!wanted_.Touches(dir) || !IsDirectory(dir)) return;
    std::vector<Setting> settings;
    CollectingSink found;
    project_.ListSettings(scope, settings, found);
    if (text_) {
      for (const std::string& below : wanted_.Below(dir)) AddSetting(scope, below, settings);
    }
    // Of all settings, since one alone has its labels alone.
    CheckPlaces(project_, settings, found);
    if (wanted_(dir)) {
      CheckUnread(project_, scope, "", found);
    } else {
      for (const std::string& below : wanted_.Below(dir)) {
        if (IsDirectory(JoinPath(dir, below))) CheckUnread(project_, scope, below, found);
      }
    }
    for (Diagnostic& diagnostic : found.Take()) {
      if (!wanted_(diagnostic.file)) continue;
      wanted_.SetMet(diagnostic.file);
      sink_.Add(std::move(diagnostic));
    }
    for (const Setting& setting : settings) {
      if (wanted_(setting.path)) CheckSetting(setting);
    }
  }

  /// Adds a setting that is not on the disk yet.
  void AddSetting(const std::string& scope, const std::string& relative, std::vector<Setting>& settings) const {
    const std::string path = JoinPath(project_.layout().ScopeDir(scope), relative);
    const auto is_same = [&](const Setting& setting) { return setting.relative == relative; };
    if (std::any_of(settings.begin(), settings.end(), is_same)) return;
    settings.push_back({scope, relative, path, project_.LabelsOf(path), {}});
  }

  void CheckSetting(const Setting& setting) {
    const std::string module = project_.ModuleName(setting.values);
    if (module.empty()) return;
    const Descriptor* type = project_.schema().FindType(module);
    // If the schema has errors, they may hide the type; if not, its absence was already reported.
    if (type == nullptr) return wanted_.SetMet(setting.path);
    if (setting.scope == kDefaultScope) {
      CheckDefault(setting.path, module, type);
    } else {
      CheckFile(setting.path, type, fit_, sink_);
    }
    const std::string default_path = project_.layout().DefaultPath(module);
    if (setting.scope == kDefaultScope || Exists(default_path)) return;
    if (!missing_defaults_.insert(module).second) return;
    sink_.Warn(Code::kMissingDefault, "the module " + Quoted(module) + " has settings, but no default",
               "'zotuning template " + module + "' makes it", DisplayPath(default_path));
  }

  /// What a default lacks is usually a field that was added to the schema later.
  void CheckDefault(const std::string& path, const std::string& module, const Descriptor* type) {
    CollectingSink found;
    CheckFile(path, type, fit_, found);
    for (Diagnostic& diagnostic : found.Take()) {
      if (diagnostic.code == Code::kJsonMissingField) {
        diagnostic.hint =
            "is the default older than the schema? 'zotuning migrate' adds the field, 'zotuning template " + module +
            " --force' rewrites the default";
      }
      sink_.Add(std::move(diagnostic));
    }
  }

  void CheckFile(const std::string& path, const Descriptor* type, FitChecker& fit, DiagnosticSink& sink) {
    wanted_.SetMet(path);
    std::string text;
    if (text_) {
      text = *text_;
    } else if (!ReadFile(path, text, sink)) {
      return;
    }
    const JsonDocument document(std::move(text));
    CheckText(document, DisplayPath(path), sink);
    fit.Check(document, type, DisplayPath(path), sink);
  }

  void CheckVersions() {
    std::vector<std::string> scopes = {kDefaultScope};
    if (project_.has_labels()) scopes = project_.Scopes();
    for (const std::string& scope : scopes) {
      const std::string dir = project_.layout().ScopeVersionDir(scope);
      if (!Exists(dir) && wanted_(dir) && IsDirectory(project_.layout().ScopeDir(scope))) {
        sink_.Report(Code::kMissingFolder, "the folder of the versions of " + Quoted(scope) + " is missing",
                     "make it; it may be empty", DisplayPath(dir));
      }
      if (!IsDirectory(dir) || !wanted_.Touches(dir)) continue;
      std::vector<FoundFile> files;
      ListFiles(dir, ".json", files, sink_);
      for (const FoundFile& file : files) {
        if (wanted_(file.path)) CheckFile(file.path, project_.version_type(), version_fit_, sink_);
      }
    }
    const std::string header = project_.dir() + "/src/ZoTuningVersion.h";
    const std::string dir = project_.layout().ScopeVersionDir(kDefaultScope);
    if (!IsDirectory(dir) || !(wanted_.Touches(dir) || wanted_(header))) return;
    std::vector<VersionFile> own;
    CollectingSink ignored;  // reported by CheckFile
    const bool good = ReadVersionFiles(project_, kDefaultScope, own, ignored);
    CheckNames(own);
    wanted_.SetMet(header);
    if (wanted_(header) && !own.empty()) CheckHeader(header, own, good);
  }

  void CheckNames(const std::vector<VersionFile>& versions) {
    std::map<std::string, const VersionFile*> named;
    for (const VersionFile& file : versions) {
      if (file.message == nullptr) continue;
      const auto [first, added] = named.emplace(file.name, &file);
      if (!wanted_(file.path)) continue;
      if (file.name.empty()) {
        AddVersion(file, Code::kVersionMisread, "the version has no name", "set \"name\"");
      } else {
        ReportScanFault(file, Severity::kWarning, sink_);
        if (!added) {
          AddVersion(file, Code::kSameNames,
                     "the name " + Quoted(file.name) + " is also that of " + DisplayPath(first->second->path),
                     "keep one of them, or rename it");
        }
      }
    }
  }

  /// A warning about the name of a version.
  void AddVersion(const VersionFile& file, Code code, std::string message, std::string hint) {
    Diagnostic diagnostic(code, std::move(message), std::move(hint), DisplayPath(file.path));
    diagnostic.severity = Severity::kWarning;
    diagnostic.path = "name";
    const JsonDocument document(file.text);
    const JsonValue name = document.root().Find("name");
    const size_t at = name ? name.begin() : document.root().begin();
    SetPosition(document, at, at, &diagnostic);
    sink_.Add(std::move(diagnostic));
  }

  /// If `complete`, all of the versions are known.
  void CheckHeader(const std::string& path, const std::vector<VersionFile>& versions, bool complete) {
    std::string text;
    if (!Exists(path)) {
      sink_.Warn(Code::kNoHeader, "the project has versions, but no version header",
                 "make it with a line that contains [3AProto], then run 'zotuning version header'", DisplayPath(path));
    } else if (!ReadFile(path, text, sink_)) {
      return;
    } else if (text.find("[3AProto]") == std::string::npos) {
      sink_.Warn(Code::kNoMarker, "the header has no line that contains [3AProto]; the generated lines would pile up",
                 "add such a line", DisplayPath(path));
    } else if (complete && !HeaderIsCurrent(text, versions)) {
      sink_.Warn(Code::kHeaderOutdated, "the header is out of date", "'zotuning version header' updates it",
                 DisplayPath(path));
    }
  }

  Project& project_;
  Wanted& wanted_;
  FitChecker fit_;
  FitChecker version_fit_;
  const std::optional<std::string>& text_;
  DiagnosticSink& sink_;
  std::set<std::string> missing_defaults_;
};

/// Whether a file of the schema that could not be loaded seems to declare the type.
bool MayBeHidden(const Project& project, const std::string& type) {
  const auto& files = project.schema().files();
  return std::any_of(files.begin(), files.end(), [&](const ZO_TUNING::internal::SchemaFile& file) {
    std::string text;
    CollectingSink ignored;  // reported as a fault of the schema
    return !file.is_loaded && ReadFile(project.layout().ProtoDir() + "/" + file.name, text, ignored) &&
           text.find("message " + type) != std::string::npos;
  });
}

}  // namespace

void CheckModuleTypes(Project& project, DiagnosticSink& sink) {
  for (const Project::Module& module : project.Modules()) {
    if (module.type != nullptr || MayBeHidden(project, module.name)) continue;
    const std::string hint = OtherPackageHint(project.schema(), module.name);
    Diagnostic diagnostic(Code::kSchemaType,
                          "the label names a module " + Quoted(module.name) + ", but the schema has no message type " +
                              Quoted(project.schema().Find(module.name).qualified_name),
                          hint.empty() ? "declare it, or remove the value from the enum" : hint);
    SetSchemaPlace(project.schema(), *project.label_type()->field(0)->enum_type()->FindValueByNumber(module.number),
                   &diagnostic);
    sink.Add(std::move(diagnostic));
  }
}

bool CheckProject(const std::string& dir, const std::vector<std::string>& paths, const CheckOptions& options,
                  DiagnosticSink& sink) {
  CollectingSink found;
  bool checked = true;
  for (const std::string& path : paths) {
    const FileKind kind = KindOf(path);
    if (kind == FileKind::kUnknown) ReportSystemError("look at", path, errno, found);
    if (kind != FileKind::kUnknown && (kind != FileKind::kMissing || options.text)) continue;
    if (kind == FileKind::kMissing) {
      found.Report(Code::kIo, "there is no " + DisplayPath(path), "correct the path", DisplayPath(path));
    }
    checked = false;
  }
  const auto project = Project::Load(dir, found);
  checked = checked && project != nullptr;
  if (checked && project->has_schema()) {
    Wanted wanted(dir, paths);
    Check(*project, wanted, options, found).Run();
  }
  std::vector<Diagnostic> diagnostics = found.Take();
  std::stable_sort(diagnostics.begin(), diagnostics.end(), [](const Diagnostic& a, const Diagnostic& b) {
    return std::tie(a.file, a.line, a.column) < std::tie(b.file, b.line, b.column);
  });
  for (Diagnostic& diagnostic : diagnostics) sink.Add(std::move(diagnostic));
  return checked;
}

}  // namespace zotuning
