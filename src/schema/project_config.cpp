// Tested by tests/schema/project_config_test.cpp.

#include "schema/project_config.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <utility>

#include "io/directory.h"
#include "io/record_reader.h"

namespace ZO_TUNING {
namespace internal {

namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

constexpr char kNameField[] = "proj_name";
constexpr char kSensorsField[] = "sensor_names";

// A field that reflection cannot read as the expected type counts as missing.
const FieldDescriptor* FindNameField(const Descriptor* type) {
  const FieldDescriptor* field = type->FindFieldByName(kNameField);
  const bool usable = field != nullptr && field->type() == FieldDescriptor::TYPE_STRING && !field->is_repeated();
  return usable ? field : nullptr;
}

const FieldDescriptor* FindSensorsField(const Descriptor* type) {
  const FieldDescriptor* field = type->FindFieldByName(kSensorsField);
  const bool usable = field != nullptr && field->is_repeated() && field->cpp_type() == FieldDescriptor::CPPTYPE_STRING;
  return usable ? field : nullptr;
}

ConfigResult NoField(const char* field) {
  ConfigResult result;
  result.status = ConfigStatus::kNoField;
  result.field = field;
  return result;
}

ConfigResult ReadRecords(RecordReader& reader, Message* message) {
  ConfigResult result;
  int32_t length = 0;
  for (;;) {
    result.offset = reader.offset();
    // One to three bytes after the last record are not a length, and also end the file.
    if (reader.ReadInt32(&length) != ReadStatus::kOk) return {};
    std::string_view bytes;
    if (reader.ReadBytes(length, &bytes) != ReadStatus::kOk) {
      result.status = ConfigStatus::kNotRead;
      return result;
    }
    if (!message->ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))) {
      result.status = ConfigStatus::kNotParsed;
      return result;
    }
  }
}

ConfigResult GetConfig(const Message& message, const Descriptor* type, std::string& proj_name,
                       std::vector<std::string>& sensor_names) {
  const google::protobuf::Reflection* reflection = message.GetReflection();
  const FieldDescriptor* name_field = FindNameField(type);
  if (name_field == nullptr) return NoField(kNameField);
  proj_name = reflection->GetString(message, name_field);
  const FieldDescriptor* sensors_field = FindSensorsField(type);
  if (sensors_field == nullptr) return NoField(kSensorsField);
  const int count = reflection->FieldSize(message, sensors_field);
  sensor_names.resize(static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) {
    sensor_names[static_cast<size_t>(i)] = reflection->GetRepeatedString(message, sensors_field, i);
  }
  return {};
}

}  // namespace

ConfigResult SetConfig(Message* message, const Descriptor* type, const char* proj_name,
                       const std::vector<std::string>& sensor_names) {
  const google::protobuf::Reflection* reflection = message->GetReflection();
  const FieldDescriptor* name_field = FindNameField(type);
  if (name_field == nullptr) return NoField(kNameField);
  reflection->SetString(message, name_field, proj_name);
  const FieldDescriptor* sensors_field = FindSensorsField(type);
  if (sensors_field == nullptr) return NoField(kSensorsField);
  for (const std::string& sensor : sensor_names) reflection->AddString(message, sensors_field, sensor);
  return {};
}

ConfigResult ReadConfigFile(const char* path, Message* message, const Descriptor* type, std::string& proj_name,
                            std::vector<std::string>& sensor_names) {
  UniqueFile file(std::fopen(path, "rb"));
  if (file == nullptr) {
    ConfigResult result;
    result.status = ConfigStatus::kNotOpened;
    result.error = errno;
    return result;
  }
  RecordReader reader(file.get());
  const ConfigResult result = ReadRecords(reader, message);
  file.reset();
  return result.ok() ? GetConfig(*message, type, proj_name, sensor_names) : result;
}

ConfigResult ReadConfigBytes(std::string_view bytes, Message* message, const Descriptor* type, std::string& proj_name,
                             std::vector<std::string>& sensor_names) {
  RecordReader reader(bytes);
  const ConfigResult result = ReadRecords(reader, message);
  return result.ok() ? GetConfig(*message, type, proj_name, sensor_names) : result;
}

LoadResult LoadProjectConfig(const ProjectLayout& layout, Schema& schema, ProjectConfig& config) {
  LoadResult result;
  const auto fail = [&result](LoadStatus status) {
    result.status = status;
    return std::move(result);
  };
  if (!PathExists(layout.dir())) return fail(LoadStatus::kNoProjectDir);
  if (!PathExists(layout.ProtoDir())) return fail(LoadStatus::kNoProtoDir);
  result.type = schema.Find("TuningProjConfig");
  if (result.type.type == nullptr) return fail(LoadStatus::kNoConfigType);
  const Descriptor* config_type = result.type.type;
  const std::unique_ptr<Message> message = schema.NewMessage(config_type);
  result.config =
      ReadConfigFile(layout.ConfigPath().c_str(), message.get(), config_type, config.name, config.sensor_names);
  // Without consequence: the labels are still read.
  result.type = schema.Find("TuningDataLabel");
  if (result.type.type == nullptr) return fail(LoadStatus::kNoLabelType);
  result.labels = AppendLabels(result.type.type, config.label_names, config.label_map);
  return result.labels.ok() ? result : fail(LoadStatus::kBadLabels);
}

}  // namespace internal
}  // namespace ZO_TUNING
