// The project directory and ProjConf.bin: InitProjectConfig, InitProjConfigMsg, GetProjectConfig and
// InitProjConfigMsgFromBin. Tested by tests/schema/project_config_test.cpp.

#include "schema/project_config.h"

#include <sys/stat.h>

#include <memory>
#include <string>
#include <utility>

#include "ZoTuningUtils.h"
#include "api/operations.h"
#include "io/directory.h"

using namespace ZO_TUNING::internal;

namespace ZO_TUNING {
namespace internal {
namespace api {

namespace {

constexpr mode_t kDirMode = 0700;
constexpr char kInitProjConfigMsgFromBin[] = "InitProjConfigMsgFromBin";

/// The line about a configuration that could not be set or read. Returns result.ok().
bool ReportConfig(const ConfigResult& result, const char* function, const char* path) {
  switch (result.status) {
    case ConfigStatus::kOk:
      break;
    case ConfigStatus::kNotOpened:
      TuningLog(kLogError, __LINE__, function, "Open project config bin file failed: %s", path);
      break;
    case ConfigStatus::kNotRead:
      TuningLog(kLogError, __LINE__, function, "Read project config bin failed: %s", path);
      break;
    case ConfigStatus::kNotParsed:
      TuningLog(kLogError, __LINE__, function, "Parse proj_config_msg failed: %s", path);
      break;
    case ConfigStatus::kNoField:
      TuningLog(kLogError, __LINE__, function, "Error in finding the field descriptor of %s", result.field);
      break;
  }
  return result.ok();
}

bool InitProjConfigMsg(google::protobuf::Message* message, const google::protobuf::Descriptor* descriptor,
                       const char* proj_name, const std::vector<std::string>& sensor_names) {
  return ReportConfig(SetConfig(message, descriptor, proj_name, sensor_names), __func__, "");
}

void MakeSensorDirs(const std::string& sensor_dir) {
  const std::string version_dir = ProjectLayout::VersionDir(sensor_dir);
  for (const std::string& dir : {sensor_dir, version_dir}) {
    mkdir(dir.c_str(), kDirMode);
    ADD_GITKEEP_TO_DIR(dir);
  }
}

void InitProjectConfig(const char* proto_dir, const char* proj_name, const std::vector<std::string>& sensor_names,
                       const char* root_dir) {
  Schema schema(proto_dir);
  const google::protobuf::Descriptor* config_type = FindType(schema, "TuningProjConfig");
  if (config_type == nullptr) return;
  const std::unique_ptr<google::protobuf::Message> message = schema.NewMessage(config_type);
  if (!InitProjConfigMsg(message.get(), config_type, proj_name, sensor_names)) {
    TuningLog(kLogError, __LINE__, __func__, "Failed in project config message initialization");
    return;
  }

  const ProjectLayout layout(JoinPath(root_dir, proj_name));
  if (PathExists(layout.dir())) {
    TuningLog(kLogWarn, __LINE__, __func__, "Existed project tuning dir %s", layout.dir().c_str());
  } else {
    mkdir(layout.dir().c_str(), kDirMode);
  }
  for (const std::string& sensor : sensor_names) {
    const std::string sensor_dir = layout.ScopeDir(sensor);
    if (PathExists(sensor_dir)) {
      TuningLog(kLogWarn, __LINE__, __func__, "Sensor dir has already been created %s", sensor_dir.c_str());
    } else {
      TuningLog(kLogInfo, __LINE__, __func__, "Create a new sensor dir %s", sensor_dir.c_str());
      MakeSensorDirs(sensor_dir);
    }
  }
  const std::string default_dir = layout.DefaultDir();
  if (PathExists(default_dir)) {
    TuningLog(kLogWarn, __LINE__, __func__, "Default tuning data dir has already been created %s", default_dir.c_str());
  } else {
    TuningLog(kLogInfo, __LINE__, __func__, "Create the default dir %s", default_dir.c_str());
    mkdir(default_dir.c_str(), kDirMode);
    ADD_GITKEEP_TO_DIR(default_dir);
  }
  MSG_TO_BIN(message.get(), layout.ConfigPath().c_str());
}

}  // namespace

bool GetProjectConfig(const ProjectLayout& layout, Schema& schema, ProjectConfig& config) {
  const LoadResult result = LoadProjectConfig(layout, schema, config);
  if (!ReportConfig(result.config, kInitProjConfigMsgFromBin, layout.ConfigPath().c_str())) {
    // Logged, without further consequence: the labels are still read.
    TuningLog(kLogError, __LINE__, __func__, "Failed in project config message initialization from bin");
  }
  switch (result.status) {
    case LoadStatus::kOk:
      break;
    case LoadStatus::kNoProjectDir:
      TuningLog(kLogError, __LINE__, __func__, "Project dir is not existed %s", layout.dir().c_str());
      break;
    case LoadStatus::kNoProtoDir:
      TuningLog(kLogError, __LINE__, __func__, "Project proto dir is not existed %s", layout.ProtoDir().c_str());
      break;
    case LoadStatus::kNoConfigType:
      ReportType(result.type);
      TuningLog(kLogError, __LINE__, __func__, "Get project config descriptor failed");
      break;
    case LoadStatus::kNoLabelType:
      ReportType(result.type);
      TuningLog(kLogError, __LINE__, __func__, "Get tuning label descriptor failed");
      break;
    case LoadStatus::kBadLabels:
      ReportLabelType(result.labels);
      TuningLog(kLogError, __LINE__, __func__, "Generate tuning label map failed");
      break;
  }
  return result.ok();
}

}  // namespace api
}  // namespace internal
}  // namespace ZO_TUNING

void ZoTuningUtils::InitProjectConfig(const char* proto_dir, const char* proj_name,
                                      const std::vector<std::string>& sensor_names, const char* root_dir) {
  AtBorder(__LINE__, __func__, [&] { api::InitProjectConfig(proto_dir, proj_name, sensor_names, root_dir); });
}

bool ZoTuningUtils::InitProjConfigMsg(google::protobuf::Message* message,
                                      const google::protobuf::Descriptor* descriptor, const char* proj_name,
                                      const std::vector<std::string>& sensor_names) {
  return AtBorder(__LINE__, __func__,
                  [&] { return api::InitProjConfigMsg(message, descriptor, proj_name, sensor_names); });
}

bool ZoTuningUtils::InitProjConfigMsgFromBin(google::protobuf::Message* message,
                                             const google::protobuf::Descriptor* descriptor, const char* bin_path,
                                             std::string& proj_name, std::vector<std::string>& sensor_names) {
  return AtBorder(__LINE__, __func__, [&] {
    const ConfigResult result = ReadConfigFile(bin_path, message, descriptor, proj_name, sensor_names);
    return api::ReportConfig(result, api::kInitProjConfigMsgFromBin, bin_path);
  });
}

bool ZoTuningUtils::GetProjectConfig(const char* proj_dir, std::string& proj_name,
                                     std::vector<std::string>& sensor_names, std::vector<std::string>& label_names,
                                     std::map<std::string, std::map<int, std::string>>& label_map) {
  return AtBorder(__LINE__, __func__, [&] {
    const ProjectLayout layout(proj_dir);
    Schema schema(layout.ProtoDir());
    ProjectConfig config{proj_name, sensor_names, label_names, label_map};
    const bool ok = api::GetProjectConfig(layout, schema, config);
    proj_name = std::move(config.name);
    sensor_names = std::move(config.sensor_names);
    label_names = std::move(config.label_names);
    label_map = std::move(config.label_map);
    return ok;
  });
}
