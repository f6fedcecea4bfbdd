#include "reference_packer.h"

#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

#include "ZoTuningUtils.h"
#include "schema/project_config.h"
#include "schema/schema.h"

namespace zotuning_bench {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::Message;
using ZO_TUNING::internal::ProjectConfig;
using ZO_TUNING::internal::Schema;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

using Messages = std::vector<std::unique_ptr<Message>>;

bool WriteMessage(const Message& message, std::FILE* file) {
  const int32_t length = static_cast<int32_t>(message.ByteSizeLong());
  std::string bytes(static_cast<size_t>(length), '\0');
  return message.SerializeToArray(&bytes[0], length) && std::fwrite(&length, sizeof(length), 1, file) == 1 &&
         std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
}

/// The schema and configuration of one call.
class ReferencePacker {
 public:
  explicit ReferencePacker(const std::string& proj_dir) : proj_dir_(proj_dir), schema_(proj_dir + "/proto") {}

  bool Pack(const std::string& out_dir) {
    const std::string folder = out_dir + "/zo_tuning";
    if (mkdir(folder.c_str(), 0700) != 0) return false;
    if (!LoadProjectConfig(ZO_TUNING::internal::ProjectLayout(proj_dir_), schema_, config_).ok()) return false;
    label_type_ = schema_.FindType("TuningDataLabel");
    version_type_ = schema_.FindType("Version");
    if (label_type_ == nullptr || version_type_ == nullptr) return false;
    std::vector<Messages> versions(1 + config_.sensor_names.size());
    if (!ReadVersions(proj_dir_ + "/proto/version", versions[0])) return false;
    for (size_t i = 0; i < config_.sensor_names.size(); ++i) {
      if (!ReadVersions(proj_dir_ + "/" + config_.sensor_names[i] + "/version", versions[i + 1])) return false;
    }
    if (!PackScope(proj_dir_ + "/default", folder + "/default.bin", versions[0])) return false;
    for (size_t i = 0; i < config_.sensor_names.size(); ++i) {
      const std::string& sensor = config_.sensor_names[i];
      if (!PackScope(proj_dir_ + "/" + sensor, folder + "/" + sensor + ".bin", versions[i + 1])) return false;
    }
    return true;
  }

 private:
  bool ReadVersions(const std::string& dir, Messages& versions) {
    std::vector<Message*> messages;
    const bool read = ZoTuningUtils::GetVersionMsgs(dir.c_str(), schema_.Prototype(version_type_), messages);
    for (Message* message : messages) versions.emplace_back(message);
    return read;
  }

  bool PackScope(const std::string& dir, const std::string& bin_path, const Messages& versions) {
    const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(bin_path.c_str(), "wb"));
    if (file == nullptr) return false;
    const int32_t version_count = static_cast<int32_t>(versions.size());
    if (std::fwrite(&version_count, sizeof(version_count), 1, file.get()) != 1) return false;
    for (const std::unique_ptr<Message>& version : versions) {
      if (!WriteMessage(*version, file.get())) return false;
    }
    std::vector<std::string> paths;
    if (!ZoTuningUtils::FindAllJsonFiles(dir.c_str(), paths)) return false;
    for (const std::string& path : paths) {
      if (!PackSetting(path, file.get())) return false;
    }
    return std::fflush(file.get()) == 0;
  }

  bool PackSetting(const std::string& path, std::FILE* file) {
    std::vector<int> values;
    ZO_TUNING::PATH_TO_TUNING_CONFIG(path, config_.label_names, config_.label_map, values);
    const std::unique_ptr<Message> label = schema_.NewMessage(label_type_);
    if (!ZoTuningUtils::InitTuningLabelMsg(label.get(), label_type_, config_.label_names, values)) return false;
    if (!WriteMessage(*label, file)) return false;
    const Descriptor* type = schema_.FindType(config_.label_map[config_.label_names[0]][values[0]]);
    if (type == nullptr) return false;

    std::string text;
    if (!ZO_TUNING::JSON_FILE_TO_STR(path, text)) return false;
    const std::unique_ptr<Message> message = schema_.NewMessage(type);
    if (!ZO_TUNING::JSON_STR_TO_MSG(text, message.get())) return false;
    for (int i = 0; i < type->field_count(); ++i) {
      if (!ZO_TUNING::CheckFieldInString(type->field(i), text)) return false;
    }
    ZO_TUNING::MSG_PRONE_FOR_BIN(message.get(), type);
    return WriteMessage(*message, file);
  }

  std::string proj_dir_;
  Schema schema_;  // before all messages made from it
  ProjectConfig config_;
  const Descriptor* label_type_ = nullptr;
  const Descriptor* version_type_ = nullptr;
};

}  // namespace

bool PackByReference(const std::string& proj_dir, const std::string& out_dir) {
  return ReferencePacker(proj_dir).Pack(out_dir);
}

}  // namespace zotuning_bench
