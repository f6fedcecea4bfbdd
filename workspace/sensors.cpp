// Tested by tests/tools/sensors_test.cpp.

#include "sensors.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <utility>

#include "io/message_record-inl.h"

namespace zotuning {
namespace {

namespace fs = std::filesystem;

/// A folder made beside the others, removed again unless it is moved into place.
class NewFolder {
 public:
  explicit NewFolder(std::string path) : path_(std::move(path)), beside_(path_) {
    beside_.insert(beside_.rfind('/') + 1, ".new.");
  }
  NewFolder(const NewFolder&) = delete;
  NewFolder& operator=(const NewFolder&) = delete;
  ~NewFolder() {
    std::error_code ignored;
    if (!made_.empty()) fs::remove_all(made_, ignored);
  }

  bool Make(const std::string& from, DiagnosticSink& sink) {
    std::error_code error;
    if (Exists(beside_)) {
      sink.Report(Code::kExists, "this is a leftover of a run that was stopped", "remove it", DisplayPath(beside_));
      return false;
    }
    made_ = beside_;
    if (from.empty()) {
      const std::string version = ProjectLayout::VersionDir(beside_);
      bool exists = false;
      return MakeDirectories(version, sink) && CreateFile(ProjectLayout::KeepPath(beside_), "", &exists, sink) &&
             CreateFile(ProjectLayout::KeepPath(version), "", &exists, sink);
    }
    fs::copy(from, beside_, fs::copy_options::recursive | fs::copy_options::copy_symlinks, error);
    return !error || ReportSystemError("copy", from, error.value(), sink);
  }

  bool PutInPlace(DiagnosticSink& sink) {
    if (std::rename(beside_.c_str(), path_.c_str()) != 0) return ReportSystemError("make", path_, errno, sink);
    made_ = path_;
    return true;
  }

  void Keep() { made_.clear(); }

 private:
  std::string path_;
  std::string beside_;
  std::string made_;
};

bool WriteList(Project& project, const std::vector<std::string>& sensors, DiagnosticSink& sink) {
  const std::string text = ConfigText(project.schema(), project.name(), sensors, sink);
  return !text.empty() && ReplaceFile(project.layout().ConfigPath(), text, sink);
}

bool IsNew(const Project& project, const std::string& name, DiagnosticSink& sink) {
  if (!CheckSensorName(name, project.labels().names(), Code::kUsage, sink)) return false;
  const std::vector<std::string>& sensors = project.sensors();
  if (std::find(sensors.begin(), sensors.end(), name) == sensors.end()) {
    return RefuseSpecialFile(project.layout().ScopeDir(name), sink);
  }
  sink.Report(Code::kExists, "the project has a sensor " + Quoted(name) + " already", "'zotuning sensors' lists them");
  return false;
}

}  // namespace

std::string ConfigText(Schema& schema, const std::string& name, const std::vector<std::string>& sensors,
                       DiagnosticSink& sink) {
  const auto* type = schema.FindType("TuningProjConfig");
  const auto message = schema.NewMessage(type);
  const auto result = ZO_TUNING::internal::SetConfig(message.get(), type, name.c_str(), sensors);
  if (result.ok()) return ZO_TUNING::internal::RecordOf(*message);
  sink.Report(Code::kSchemaType,
              "the message type " + Quoted(type->full_name()) + " has no usable field " + Quoted(result.field),
              "it needs string proj_name and repeated string sensor_names", DisplayPath(schema.proto_dir()));
  return "";
}

bool CheckSensorName(const std::string& name, const std::vector<std::string>& labels, Code code, DiagnosticSink& sink) {
  std::string fault = NameFault(name), hint;
  if (fault.empty() && name.find(',') != std::string::npos) {
    fault = "contains a comma";
    hint = "give one sensor at a time, for example --sensor main_wide --sensor front";
  }
  if (!fault.empty()) {
    sink.Report(code, "the sensor name " + Quoted(name) + " " + fault, hint);
    return false;
  }
  for (size_t i = 1; i < labels.size(); ++i) {
    if (name.find(labels[i] + "_") == std::string::npos) continue;
    sink.Report(Code::kAmbiguousName, "the sensor name " + Quoted(name) + " contains " + Quoted(labels[i] + "_") +
                                          " and would be read as a level of the tree");
    return false;
  }
  return true;
}

bool AddSensor(Project& project, const std::string& name, const std::string& from, DiagnosticSink& sink) {
  if (!IsNew(project, name, sink) || (!from.empty() && !project.RequireSensor(from, sink))) return false;
  const std::string dir = project.layout().ScopeDir(name);
  NewFolder folder(dir);
  if (!Exists(dir)) {
    if (!folder.Make(from.empty() ? "" : project.layout().ScopeDir(from), sink) || !folder.PutInPlace(sink))
      return false;
  } else if (IsDirectory(dir) && from.empty()) {
    // Packing requires it, although it may be empty.
    if (!MakeDirectories(project.layout().ScopeVersionDir(name), sink)) return false;
  } else {
    sink.Report(Code::kExists, "this exists already; it is kept",
                from.empty() ? "choose another name" : "leave out --from to list the folder as it is",
                DisplayPath(dir));
    return false;
  }
  std::vector<std::string> sensors = project.sensors();
  sensors.push_back(name);
  if (!WriteList(project, sensors, sink)) return false;
  folder.Keep();
  return true;
}

bool RemoveSensor(Project& project, const std::string& name, DiagnosticSink& sink) {
  if (!project.RequireSensor(name, sink)) return false;
  std::vector<std::string> sensors = project.sensors();
  sensors.erase(std::remove(sensors.begin(), sensors.end(), name), sensors.end());
  // First the list: a folder that is not listed is never packed.
  if (!WriteList(project, sensors, sink)) return false;
  std::error_code error;
  const std::string dir = project.layout().ScopeDir(name);
  fs::remove_all(dir, error);
  return !error || ReportSystemError("remove all of", dir, error.value(), sink);
}

bool RenameSensor(Project& project, const std::string& name, const std::string& to, DiagnosticSink& sink) {
  if (!project.RequireSensor(name, sink) || !IsNew(project, to, sink)) return false;
  const std::string old_dir = project.layout().ScopeDir(name), new_dir = project.layout().ScopeDir(to);
  const bool has_folder = Exists(old_dir);
  if (has_folder && Exists(new_dir)) {
    sink.Report(Code::kExists, "this exists already; it is kept", "choose another name", DisplayPath(new_dir));
    return false;
  }
  if (has_folder && std::rename(old_dir.c_str(), new_dir.c_str()) != 0) {
    return ReportSystemError("rename", old_dir, errno, sink);
  }
  std::vector<std::string> sensors = project.sensors();
  std::replace(sensors.begin(), sensors.end(), name, to);
  if (WriteList(project, sensors, sink)) return true;
  if (has_folder && std::rename(new_dir.c_str(), old_dir.c_str()) != 0) {
    ReportSystemError("rename back", new_dir, errno, sink);
  }
  return false;
}

}  // namespace zotuning
