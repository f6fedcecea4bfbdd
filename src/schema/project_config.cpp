// The project directory and ProjConf.bin: InitProjectConfig, InitProjConfigMsg, GetProjectConfig and
// InitProjConfigMsgFromBin. Tested by tests/schema/project_config_test.cpp.

#include "schema/project_config.h"

#include <sys/stat.h>

#include <memory>
#include <string>

#include "ZoTuningUtils.h"
#include "io/directory.h"
#include "io/record_reader.h"

using namespace ZO_TUNING::internal;
using google::protobuf::FieldDescriptor;

namespace {

constexpr char kNameField[] = "proj_name";
constexpr char kSensorsField[] = "sensor_names";
constexpr mode_t kDirMode = 0700;

std::string ConfigPath(const std::string& proj_dir) { return proj_dir + "/" + "ProjConf" + ".bin"; }
std::string ProtoDir(const std::string& proj_dir) { return proj_dir + "/" + "proto"; }

// A field that reflection cannot read as the one that is meant counts as missing.
const FieldDescriptor* FindNameField(const google::protobuf::Descriptor* descriptor) {
  const FieldDescriptor* field = descriptor->FindFieldByName(kNameField);
  const bool usable = field != nullptr && field->type() == FieldDescriptor::TYPE_STRING && !field->is_repeated();
  return usable ? field : nullptr;
}

const FieldDescriptor* FindSensorsField(const google::protobuf::Descriptor* descriptor) {
  const FieldDescriptor* field = descriptor->FindFieldByName(kSensorsField);
  const bool usable = field != nullptr && field->is_repeated() && field->cpp_type() == FieldDescriptor::CPPTYPE_STRING;
  return usable ? field : nullptr;
}

void MakeSensorDirs(const std::string& sensor_dir) {
  mkdir(sensor_dir.c_str(), kDirMode);
  ZO_TUNING::ADD_GITKEEP_TO_DIR(sensor_dir);
  const std::string version_dir = sensor_dir + "/" + "version";
  mkdir(version_dir.c_str(), kDirMode);
  ZO_TUNING::ADD_GITKEEP_TO_DIR(version_dir);
}

/// The steps of GetProjectConfig, under whose name it logs, from the schema on.
bool ReadConfigAndLabels(const std::string& proj_dir, Schema& schema, std::string& proj_name,
                         std::vector<std::string>& sensor_names, std::vector<std::string>& label_names,
                         std::map<std::string, std::map<int, std::string>>& label_map, const char* function) {
  const google::protobuf::Descriptor* config_type = schema.FindType("TuningProjConfig");
  if (config_type == nullptr) {
    TuningLog(kLogError, __LINE__, function, "Get project config descriptor failed");
    return false;
  }
  const std::unique_ptr<google::protobuf::Message> message = schema.NewMessage(config_type);
  if (!ZoTuningUtils::InitProjConfigMsgFromBin(message.get(), config_type, ConfigPath(proj_dir).c_str(), proj_name,
                                               sensor_names)) {
    // Logged and without consequence: the labels are read all the same.
    TuningLog(kLogError, __LINE__, function, "Failed in project config message initialization from bin");
  }
  const google::protobuf::Descriptor* label_type = schema.FindType("TuningDataLabel");
  if (label_type == nullptr) {
    TuningLog(kLogError, __LINE__, function, "Get tuning label descriptor failed");
    return false;
  }
  if (!ZoTuningUtils::GetProjectTuningLabelsMap(label_type, label_names, label_map)) {
    TuningLog(kLogError, __LINE__, function, "Generate tuning label map failed");
    return false;
  }
  return true;
}

bool HasProjectAndProtoDir(const std::string& proj_dir, const char* function) {
  if (!PathExists(proj_dir)) {
    TuningLog(kLogError, __LINE__, function, "Project dir is not existed %s", proj_dir.c_str());
    return false;
  }
  if (!PathExists(ProtoDir(proj_dir))) {
    TuningLog(kLogError, __LINE__, function, "Project proto dir is not existed %s", ProtoDir(proj_dir).c_str());
    return false;
  }
  return true;
}

}  // namespace

void ZoTuningUtils::InitProjectConfig(const char* proto_dir, const char* proj_name,
                                      const std::vector<std::string>& sensor_names, const char* root_dir) try {
  const PassFailuresOn guard;
  Schema schema(proto_dir);
  const google::protobuf::Descriptor* config_type = schema.FindType("TuningProjConfig");
  if (config_type == nullptr) return;
  const std::unique_ptr<google::protobuf::Message> message = schema.NewMessage(config_type);
  if (!InitProjConfigMsg(message.get(), config_type, proj_name, sensor_names)) {
    TuningLog(kLogError, __LINE__, __func__, "Failed in project config message initialization");
    return;
  }

  const std::string proj_dir = std::string(root_dir) + "/" + proj_name;
  if (PathExists(proj_dir)) {
    TuningLog(kLogWarn, __LINE__, __func__, "Existed project tuning dir %s", proj_dir.c_str());
  } else {
    mkdir(proj_dir.c_str(), kDirMode);
  }
  const std::string in_proj_dir = proj_dir + "/";
  for (const std::string& sensor : sensor_names) {
    const std::string sensor_dir = in_proj_dir + sensor;
    if (PathExists(sensor_dir)) {
      TuningLog(kLogWarn, __LINE__, __func__, "Sensor dir has already been created %s", sensor_dir.c_str());
    } else {
      TuningLog(kLogInfo, __LINE__, __func__, "Create a new sensor dir %s", sensor_dir.c_str());
      MakeSensorDirs(sensor_dir);
    }
  }
  const std::string default_dir = proj_dir + "/" + "default";
  if (PathExists(default_dir)) {
    TuningLog(kLogWarn, __LINE__, __func__, "Default tuning data dir has already been created %s", default_dir.c_str());
  } else {
    TuningLog(kLogInfo, __LINE__, __func__, "Create the default dir %s", default_dir.c_str());
    mkdir(default_dir.c_str(), kDirMode);
    ZO_TUNING::ADD_GITKEEP_TO_DIR(default_dir);
  }
  ZO_TUNING::MSG_TO_BIN(message.get(), ConfigPath(proj_dir).c_str());
} catch (...) {
  ReportException(__LINE__, __func__);
}

bool ZoTuningUtils::InitProjConfigMsg(google::protobuf::Message* message,
                                      const google::protobuf::Descriptor* descriptor, const char* proj_name,
                                      const std::vector<std::string>& sensor_names) try {
  const google::protobuf::Reflection* reflection = message->GetReflection();
  const FieldDescriptor* name_field = FindNameField(descriptor);
  if (name_field == nullptr) {
    TuningLog(kLogError, __LINE__, __func__, "Error in finding the field descriptor of %s", kNameField);
    return false;
  }
  reflection->SetString(message, name_field, proj_name);
  const FieldDescriptor* sensors_field = FindSensorsField(descriptor);
  if (sensors_field == nullptr) {
    TuningLog(kLogError, __LINE__, __func__, "Error in finding the field descriptor of %s", kSensorsField);
    return false;
  }
  for (const std::string& sensor : sensor_names) reflection->AddString(message, sensors_field, sensor);
  return true;
} catch (...) {
  return ReportException(__LINE__, __func__);
}

bool ZoTuningUtils::InitProjConfigMsgFromBin(google::protobuf::Message* message,
                                             const google::protobuf::Descriptor* descriptor, const char* bin_path,
                                             std::string& proj_name, std::vector<std::string>& sensor_names) try {
  UniqueFile file(std::fopen(bin_path, "rb"));
  if (file == nullptr) {
    TuningLog(kLogError, __LINE__, __func__, "Open project config bin file failed: %s", bin_path);
    return false;
  }
  RecordReader reader(file.get());
  int32_t length = 0;
  // One to three bytes behind the last record are no length and end the file as well.
  while (reader.ReadInt32(&length) == ReadStatus::kOk) {
    std::string_view bytes;
    if (reader.ReadBytes(length, &bytes) != ReadStatus::kOk) {
      TuningLog(kLogError, __LINE__, __func__, "Read project config bin failed: %s", bin_path);
      return false;
    }
    if (!message->ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))) {
      TuningLog(kLogError, __LINE__, __func__, "Parse proj_config_msg failed: %s", bin_path);
      return false;
    }
  }
  file.reset();

  const google::protobuf::Reflection* reflection = message->GetReflection();
  const FieldDescriptor* name_field = FindNameField(descriptor);
  if (name_field == nullptr) {
    TuningLog(kLogError, __LINE__, __func__, "Error in finding the field descriptor of %s", kNameField);
    return false;
  }
  proj_name = reflection->GetString(*message, name_field);
  const FieldDescriptor* sensors_field = FindSensorsField(descriptor);
  if (sensors_field == nullptr) {
    TuningLog(kLogError, __LINE__, __func__, "Error in finding the field descriptor of %s", kSensorsField);
    return false;
  }
  const int count = reflection->FieldSize(*message, sensors_field);
  sensor_names.resize(static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) {
    sensor_names[static_cast<size_t>(i)] = reflection->GetRepeatedString(*message, sensors_field, i);
  }
  return true;
} catch (...) {
  return ReportException(__LINE__, __func__);
}

bool ZoTuningUtils::GetProjectConfig(const char* proj_dir, std::string& proj_name,
                                     std::vector<std::string>& sensor_names, std::vector<std::string>& label_names,
                                     std::map<std::string, std::map<int, std::string>>& label_map) try {
  const PassFailuresOn guard;
  if (!HasProjectAndProtoDir(proj_dir, __func__)) return false;
  Schema schema(ProtoDir(proj_dir));
  return ReadConfigAndLabels(proj_dir, schema, proj_name, sensor_names, label_names, label_map, __func__);
} catch (...) {
  return ReportException(__LINE__, __func__);
}

bool ZO_TUNING::internal::LoadProjectConfig(const std::string& proj_dir, Schema& schema, ProjectConfig& config) {
  static constexpr char kFunction[] = "GetProjectConfig";
  try {
    const PassFailuresOn guard;
    return HasProjectAndProtoDir(proj_dir, kFunction) &&
           ReadConfigAndLabels(proj_dir, schema, config.name, config.sensor_names, config.label_names, config.label_map,
                               kFunction);
  } catch (...) {
    return ReportException(__LINE__, kFunction);
  }
}
