// Tuning bin generation: GenerateProjTuningBins and GenerateSpecificSensorBin, which are the same steps in other words.
// Tested by tests/bin/generate_test.cpp.

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "ZoTuningUtils.h"
#include "api/operations.h"
#include "bin/bin_folder.h"
#include "bin/bin_packer.h"
#include "io/directory.h"

using namespace ZO_TUNING::internal;

namespace ZO_TUNING {
namespace internal {
namespace api {

namespace {

constexpr mode_t kBinFolderMode = 0700;
constexpr char kProject[] = "GenerateProjTuningBins";
constexpr char kSpecific[] = "GenerateSpecificSensorBin";

/// What one generation call works with.
class Generation {
 public:
  /// Loads schema and configuration; what cannot be read is logged and stays empty.
  Generation(const char* proj_dir, std::string bin_folder)
      : layout_(proj_dir), bin_folder_(std::move(bin_folder)), schema_(layout_.ProtoDir()) {
    (void)GetProjectConfig(layout_, schema_, config_);
  }

  const ProjectLayout& layout() const { return layout_; }
  Schema& schema() { return schema_; }
  const ProjectConfig& config() const { return config_; }
  std::vector<std::string>& sensor_names() { return config_.sensor_names; }

  /// Reads the versions of the default scope and of every sensor.
  bool ReadVersions(const google::protobuf::Descriptor* version_type) {
    const google::protobuf::Message* prototype = schema_.Prototype(version_type);
    if (!GetVersionMsgs(layout_.ScopeVersionDir(kDefaultScope), prototype, default_versions_)) return false;
    return std::all_of(config_.sensor_names.begin(), config_.sensor_names.end(), [&](const std::string& sensor) {
      return GetVersionMsgs(ProjectLayout::VersionDir(layout_.ScopeDir(sensor)), prototype, sensor_versions_[sensor]);
    });
  }

  BinJob DefaultJob(FieldChecking checking) const {
    return {layout_.DefaultDir(), BinPath(bin_folder_, kDefaultScope), default_versions_, checking};
  }
  BinJob SensorJob(const std::string& sensor, FieldChecking checking) const {
    return {layout_.ScopeDir(sensor), BinPath(bin_folder_, sensor), sensor_versions_.at(sensor), checking};
  }

 private:
  ProjectLayout layout_;
  std::string bin_folder_;
  Schema schema_;  // before all messages made from it
  ProjectConfig config_;
  VersionMessages default_versions_;
  std::map<std::string, VersionMessages> sensor_versions_;
};

/// The lines of the step that failed; those of the operation follow.
void ReportStep(const PackResult& result, const BinJob& job) {
  switch (result.status) {
    case PackStatus::kNotListed:
      ReportNotListed(job.data_dir.c_str());
      break;
    case PackStatus::kBadLabel:
      ReportLabel(result.label, "InitTuningLabelMsg");
      break;
    case PackStatus::kNoModuleType:
      ReportType(result.type);
      break;
    case PackStatus::kNotConverted:
      ReportNotConverted(result.text, result.reason);
      break;
    case PackStatus::kFieldMissing:
      ReportMissingField(result.field);
      break;
    case PackStatus::kOk:
    case PackStatus::kNoDataDir:
    case PackStatus::kNotOpened:
    case PackStatus::kNoMessage:
    case PackStatus::kNotWritten:
      break;
  }
}

void ReportNotWritten(const char* function, const PackResult& result, const BinJob& job) {
  TuningLog(kLogError, __LINE__, function, "Cannot write output bin file; %s (%s), the bin is incomplete",
            job.bin_path.c_str(), std::strerror(result.error));
}

// ---- The words of GenerateProjTuningBins ----

class ProjectListener : public LogListener {
 public:
  explicit ProjectListener(const BinJob& job) : job_(job) {}
  void OnNoSettings() override {
    TuningLog(kLogWarn, __LINE__, kProject, "Cannot found any json file under dir: %s", job_.data_dir.c_str());
  }

 private:
  const BinJob& job_;
};

void ReportProject(const PackResult& result, const BinJob& job, bool is_default) {
  switch (result.status) {
    case PackStatus::kOk:
      break;
    case PackStatus::kNoDataDir:
      if (is_default) {
        TuningLog(kLogError, __LINE__, kProject, "Missing default tuning data dir. %s", job.data_dir.c_str());
      } else {
        TuningLog(kLogError, __LINE__, kProject, "Missing sensor tuning data dir. %s", job.data_dir.c_str());
      }
      break;
    case PackStatus::kNotOpened:
      TuningLog(kLogError, __LINE__, kProject, "Cannot open output bin file; %s", job.bin_path.c_str());
      break;
    case PackStatus::kNotListed:
      TuningLog(kLogError, __LINE__, kProject, "Find json files failed from root: %s", job.data_dir.c_str());
      break;
    case PackStatus::kBadLabel:
      TuningLog(kLogError, __LINE__, kProject, "Failed in tuning label initialization");
      break;
    case PackStatus::kNoModuleType:
      TuningLog(kLogError, __LINE__, kProject, "Get module descriptor failed: %s", result.module.c_str());
      break;
    case PackStatus::kNoMessage:
    case PackStatus::kNotConverted:
      // The two texts differ in the spaces around the arrow.
      if (!is_default) {
        TuningLog(kLogError, __LINE__, kProject,
                  "Failed in json str -> msg, please check if json data formats are valid or not");
        break;
      }
      [[fallthrough]];
    case PackStatus::kFieldMissing:
      TuningLog(kLogError, __LINE__, kProject,
                "Failed in json str->msg, please check if json data formats are valid or not");
      break;
    case PackStatus::kNotWritten:
      ReportNotWritten(kProject, result, job);
      break;
  }
}

bool PackForProject(BinPacker& packer, const BinJob& job, bool is_default) {
  ProjectListener listener(job);
  const PackResult result = packer.Pack(job, listener);
  ReportStep(result, job);
  ReportProject(result, job, is_default);
  return result.ok();
}

// ---- The words of GenerateSpecificSensorBin ----

class SpecificDefaultListener : public LogListener {
 public:
  void OnNoSettings() override {
    TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] Error to get all json files from default folder\n");
  }
  void OnSetting(const std::string& json_path) override {
    // At error priority although nothing is wrong.
    TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] Getcha the json is %s", json_path.c_str());
  }
};

void ReportSpecificDefault(const PackResult& result, const BinJob& job) {
  switch (result.status) {
    case PackStatus::kOk:
      break;
    case PackStatus::kNoDataDir:
      TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] The folder %s path is not existed\n", job.data_dir.c_str());
      break;
    case PackStatus::kNotOpened:
      TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] Open the output default bin file (%s) failed\n",
                job.bin_path.c_str());
      break;
    case PackStatus::kNotListed:
      TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] find the json file from %s failed", job.data_dir.c_str());
      break;
    case PackStatus::kBadLabel:
      TuningLog(kLogError, __LINE__, kSpecific,
                "[Quokka] Using Reflection to write the config index to tuning data lable desc failed\n");
      break;
    case PackStatus::kNoModuleType:
      TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] The module name %s cannot be found", result.module.c_str());
      break;
    case PackStatus::kNoMessage:
    case PackStatus::kNotConverted:
    case PackStatus::kFieldMissing:
      TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] Json write to message failed");
      break;
    case PackStatus::kNotWritten:
      ReportNotWritten(kSpecific, result, job);
      break;
  }
}

class SpecificSensorListener : public LogListener {
 public:
  explicit SpecificSensorListener(const BinJob& job) : job_(job) {}
  void OnNoSettings() override {
    TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] Warning cannot find any json files under %s",
              job_.data_dir.c_str());
  }

 private:
  const BinJob& job_;
};

void ReportSpecificSensor(const PackResult& result, const BinJob& job) {
  switch (result.status) {
    case PackStatus::kOk:
      break;
    case PackStatus::kNoDataDir:
      TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] Failed to find the path %s", job.data_dir.c_str());
      break;
    case PackStatus::kNotOpened:
      TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] Failed to open the tuning bin file");
      break;
    case PackStatus::kNotListed:
      TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] Find the Json files failed\n");
      break;
    case PackStatus::kBadLabel:
      TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] Error to write the config to tuning data lable msg");
      break;
    case PackStatus::kNoModuleType:
      TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] Error to find desc from class name: %s",
                result.module.c_str());
      break;
    case PackStatus::kNoMessage:
      TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] Failed to create the module message data");
      break;
    case PackStatus::kNotConverted:
    case PackStatus::kFieldMissing:
      TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] error to translate the json file to message");
      break;
    case PackStatus::kNotWritten:
      ReportNotWritten(kSpecific, result, job);
      break;
  }
}

/// Lists the sensors on standard output and reads the index of one from standard input. False when what was typed is no
/// index of them.
bool AskForSensor(const std::vector<std::string>& sensor_names, size_t* index) {
  std::printf("Sensors:\n");
  for (size_t i = 0; i < sensor_names.size(); ++i) std::printf("  %zu  %s\n", i, sensor_names[i].c_str());
  std::printf("Index of the sensor to pack: ");
  (void)std::fflush(stdout);
  int typed = 0;
  // The comparison is unsigned, so that a negative number is refused.
  // NOLINTNEXTLINE(cert-err34-c): a number beyond int is read as scanf reads it.
  if (std::scanf("%d", &typed) != 1 || static_cast<unsigned>(typed) >= sensor_names.size()) return false;
  *index = static_cast<size_t>(typed);
  return true;
}

bool PackSpecific(BinPacker& packer, const Generation& generation) {
  const BinJob default_job = generation.DefaultJob(FieldChecking::kOff);
  SpecificDefaultListener default_listener;
  PackResult result = packer.Pack(default_job, default_listener);
  ReportStep(result, default_job);
  ReportSpecificDefault(result, default_job);
  if (!result.ok()) return false;

  const std::vector<std::string>& sensors = generation.config().sensor_names;
  size_t index = 0;
  if (!AskForSensor(sensors, &index)) {
    TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] Error typing\n");
    return false;
  }
  const BinJob sensor_job = generation.SensorJob(sensors[index], FieldChecking::kOff);
  SpecificSensorListener sensor_listener(sensor_job);
  result = packer.Pack(sensor_job, sensor_listener);
  ReportStep(result, sensor_job);
  ReportSpecificSensor(result, sensor_job);
  return result.ok();
}

bool GenerateSpecificSensorBin(const char* proj_dir, const char* out_dir) {
  const std::string bin_folder = BinFolder(out_dir);
  if (PathExists(bin_folder)) {
    TuningLog(kLogError, __LINE__, __func__, "[Quokka] Output folder is existed: %s, please remove them!\n",
              bin_folder.c_str());
    return false;
  }
  mkdir(bin_folder.c_str(), kBinFolderMode);

  Generation generation(proj_dir, bin_folder);
  std::vector<std::string>& sensors = generation.sensor_names();
  sensors.erase(
      std::remove_if(sensors.begin(), sensors.end(),
                     [&](const std::string& sensor) { return !PathExists(generation.layout().ScopeDir(sensor)); }),
      sensors.end());
  BinTypes types;
  if (!FindBinTypes(generation.schema(), __func__, types, "[Quokka] Tuning Data desc pointer is NULL")) return false;
  if (!generation.ReadVersions(types.version)) return false;  // reported there
  BinPacker packer(generation.schema(), generation.config().labels(), types.label);
  return PackSpecific(packer, generation);
}

bool GenerateProjTuningBins(const char* proj_dir, const char* out_dir) {
  const std::string bin_folder = BinFolder(out_dir);
  if (PathExists(bin_folder)) {
    TuningLog(kLogError, __LINE__, __func__, "Bin folder has been existed, please remove. %s", bin_folder.c_str());
    return false;
  }
  mkdir(bin_folder.c_str(), kBinFolderMode);

  Generation generation(proj_dir, bin_folder);
  BinTypes types;
  if (!FindBinTypes(generation.schema(), __func__, types)) return false;
  if (!generation.ReadVersions(types.version)) return false;  // reported there
  BinPacker packer(generation.schema(), generation.config().labels(), types.label);
  if (!PackForProject(packer, generation.DefaultJob(FieldChecking::kOn), true)) return false;
  return std::all_of(generation.sensor_names().begin(), generation.sensor_names().end(),
                     [&](const std::string& sensor) {
                       return PackForProject(packer, generation.SensorJob(sensor, FieldChecking::kOn), false);
                     });
}

}  // namespace
}  // namespace api
}  // namespace internal
}  // namespace ZO_TUNING

bool ZoTuningUtils::GenerateProjTuningBins(const char* proj_dir, const char* out_dir) {
  return AtBorder(__LINE__, __func__, [&] { return api::GenerateProjTuningBins(proj_dir, out_dir); });
}

bool ZoTuningUtils::GenerateSpecificSensorBin(const char* proj_dir, const char* out_dir) {
  return AtBorder(__LINE__, __func__, [&] { return api::GenerateSpecificSensorBin(proj_dir, out_dir); });
}
