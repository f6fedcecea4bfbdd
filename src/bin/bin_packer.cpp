// Tested by tests/bin/generate_test.cpp.

#include "bin/bin_packer.h"

#include <memory>

#include "ZoTuningUtils.h"
#include "schema/field_check.h"

namespace ZO_TUNING {
namespace internal {

bool VersionMessages::Read(const std::string& version_dir, const google::protobuf::Message* prototype) {
  Clear();
  return ZoTuningUtils::GetVersionMsgs(version_dir.c_str(), prototype, messages_);
}

void VersionMessages::Clear() {
  for (google::protobuf::Message* message : messages_) delete message;
  messages_.clear();
}

BinPacker::BinPacker(const std::string& proj_dir) : proj_dir_(proj_dir), schema_(proj_dir + "/" + "proto") {}

bool BinPacker::FindLabelType() {
  label_type_ = schema_.FindType("TuningDataLabel");
  return label_type_ != nullptr;
}

bool BinPacker::FindVersionType() {
  version_type_ = schema_.FindType("Version");
  return version_type_ != nullptr;
}

bool BinPacker::ReadVersions() {
  const google::protobuf::Message* prototype = schema_.Prototype(version_type_);
  if (!default_versions_.Read(proj_dir_ + "/" + "proto" + "/" + "version", prototype)) return false;
  for (const std::string& sensor : config_.sensor_names) {
    if (!sensor_versions_[sensor].Read(SensorDir(sensor) + "/" + "version", prototype)) return false;
  }
  return true;
}

PackResult BinPacker::PackSetting(const std::string& json_path, FieldChecking checking, BinWriter& bin,
                                  std::string& module) {
  std::vector<int> label_values;
  PATH_TO_TUNING_CONFIG(json_path, config_.label_names, config_.label_map, label_values);
  const std::unique_ptr<google::protobuf::Message> label = schema_.NewMessage(label_type_);
  if (!ZoTuningUtils::InitTuningLabelMsg(label.get(), label_type_, config_.label_names, label_values)) {
    return PackResult::kLabelFailed;
  }
  bin.WriteMessage(*label);

  // A label type without fields names no module.
  module = label_values.empty() ? std::string() : config_.label_map[config_.label_names[0]][label_values[0]];
  const google::protobuf::Descriptor* module_type = schema_.FindType(module);
  if (module_type == nullptr) return PackResult::kNoModuleType;

  std::string text;
  if (!file_.Read(json_path)) {
    JSON_FILE_TO_STR(json_path, text);  // says what is wrong; an unreadable file is an empty text
    return PackBySlowPath(text, module_type, checking, bin);
  }
  const ModuleTable& table = TableOf(module_type);
  if (!transcoder_.Transcode(table, file_.text())) {
    text = file_.text();
    return PackBySlowPath(text, module_type, checking, bin);
  }
  if (checking == FieldChecking::kOn) {
    const std::string_view* missing = transcoder_.FindMissingName(table, file_.text());
    if (missing != nullptr) {
      ReportMissingField(*missing);
      return PackResult::kFieldMissing;
    }
  }
  bin.WriteMessageBytes(transcoder_.wire());
  return bin.ok() ? PackResult::kPacked : PackResult::kWriteFailed;
}

const ModuleTable& BinPacker::TableOf(const google::protobuf::Descriptor* module_type) {
  std::unique_ptr<ModuleTable>& table = tables_[module_type];
  if (table == nullptr) table = std::make_unique<ModuleTable>(module_type);
  return *table;
}

PackResult BinPacker::PackBySlowPath(const std::string& text, const google::protobuf::Descriptor* module_type,
                                     FieldChecking checking, BinWriter& bin) {
  const std::unique_ptr<google::protobuf::Message> message = schema_.NewMessage(module_type);
  if (message == nullptr) return PackResult::kNoMessage;
  if (!JSON_STR_TO_MSG(text, message.get())) return PackResult::kNotConverted;
  if (checking == FieldChecking::kOn && !CheckAllFieldsInString(module_type, text)) return PackResult::kFieldMissing;
  MSG_PRONE_FOR_BIN(message.get(), module_type);
  bin.WriteMessage(*message);
  return bin.ok() ? PackResult::kPacked : PackResult::kWriteFailed;
}

}  // namespace internal
}  // namespace ZO_TUNING
