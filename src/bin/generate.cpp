// Tuning bin generation: GenerateProjTuningBins and GenerateSpecificSensorBin. Both are the same steps in other words;
// each words its failures at the branch where they happen. Tested by tests/bin/generate_test.cpp.

#include "bin/generate.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "ZoTuningUtils.h"
#include "bin/bin_folder.h"
#include "bin/bin_packer.h"
#include "bin/bin_writer.h"
#include "io/directory.h"

using namespace ZO_TUNING::internal;

namespace {

constexpr mode_t kBinFolderMode = 0700;

/// A data directory on its way into its bin.
struct Scope {
  bool is_default;
  std::string dir;
  std::string bin_path;
  const VersionMessages& versions;
};

Scope DefaultScope(BinPacker& session, const std::string& bin_folder) {
  return {true, session.DefaultDir(), BinPath(bin_folder, kDefaultBinName), session.default_versions()};
}

Scope SensorScope(BinPacker& session, const std::string& bin_folder, const std::string& sensor) {
  return {false, session.SensorDir(sensor), BinPath(bin_folder, sensor), session.sensor_versions(sensor)};
}

bool ReportWriteFailure(const char* function, const Scope& scope, const BinWriter& bin) {
  TuningLog(kLogError, __LINE__, function, "Cannot write output bin file; %s (%s), the bin is incomplete",
            scope.bin_path.c_str(), std::strerror(bin.error()));
  return false;
}

bool PackProjScope(BinPacker& session, const Scope& scope) {
  static constexpr char kFunction[] = "GenerateProjTuningBins";
  if (!PathExists(scope.dir)) {
    if (scope.is_default) {
      TuningLog(kLogError, __LINE__, kFunction, "Missing default tuning data dir. %s", scope.dir.c_str());
    } else {
      TuningLog(kLogError, __LINE__, kFunction, "Missing sensor tuning data dir. %s", scope.dir.c_str());
    }
    return false;
  }
  BinWriter bin;
  if (!bin.Open(scope.bin_path)) {
    TuningLog(kLogError, __LINE__, kFunction, "Cannot open output bin file; %s", scope.bin_path.c_str());
    return false;
  }
  bin.WriteVersions(scope.versions.messages());
  std::vector<std::string> json_paths;
  if (!ZoTuningUtils::FindAllJsonFiles(scope.dir.c_str(), json_paths)) {
    TuningLog(kLogError, __LINE__, kFunction, "Find json files failed from root: %s", scope.dir.c_str());
    return false;
  }
  if (json_paths.empty()) {
    TuningLog(kLogWarn, __LINE__, kFunction, "Cannot found any json file under dir: %s", scope.dir.c_str());
  }
  for (const std::string& json_path : json_paths) {
    std::string module;
    switch (session.PackSetting(json_path, FieldChecking::kOn, bin, module)) {
      case PackResult::kPacked:
        break;
      case PackResult::kLabelFailed:
        TuningLog(kLogError, __LINE__, kFunction, "Failed in tuning label initialization");
        return false;
      case PackResult::kNoModuleType:
        TuningLog(kLogError, __LINE__, kFunction, "Get module descriptor failed: %s", module.c_str());
        return false;
      case PackResult::kNoMessage:
      case PackResult::kNotConverted:
        // The two texts differ in the blanks around the arrow.
        if (scope.is_default) {
          TuningLog(kLogError, __LINE__, kFunction,
                    "Failed in json str->msg, please check if json data formats are valid or not");
        } else {
          TuningLog(kLogError, __LINE__, kFunction,
                    "Failed in json str -> msg, please check if json data formats are valid or not");
        }
        return false;
      case PackResult::kFieldMissing:
        TuningLog(kLogError, __LINE__, kFunction,
                  "Failed in json str->msg, please check if json data formats are valid or not");
        return false;
      case PackResult::kWriteFailed:
        return ReportWriteFailure(kFunction, scope, bin);
    }
  }
  return bin.Close() || ReportWriteFailure(kFunction, scope, bin);
}

constexpr char kSpecific[] = "GenerateSpecificSensorBin";

void ReportSpecificDefaultFailure(PackResult result, const Scope& scope, const std::string& module,
                                  const BinWriter& bin) {
  switch (result) {
    case PackResult::kPacked:
      break;
    case PackResult::kLabelFailed:
      TuningLog(kLogError, __LINE__, kSpecific,
                "[Quokka] Using Reflection to write the config index to tuning data lable desc failed\n");
      break;
    case PackResult::kNoModuleType:
      TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] The module name %s cannot be found", module.c_str());
      break;
    case PackResult::kNoMessage:
    case PackResult::kNotConverted:
    case PackResult::kFieldMissing:
      TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] Json write to message failed");
      break;
    case PackResult::kWriteFailed:
      ReportWriteFailure(kSpecific, scope, bin);
      break;
  }
}

void ReportSpecificSensorFailure(PackResult result, const Scope& scope, const std::string& module,
                                 const BinWriter& bin) {
  switch (result) {
    case PackResult::kPacked:
      break;
    case PackResult::kLabelFailed:
      TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] Error to write the config to tuning data lable msg");
      break;
    case PackResult::kNoModuleType:
      TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] Error to find desc from class name: %s", module.c_str());
      break;
    case PackResult::kNoMessage:
      TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] Failed to create the module message data");
      break;
    case PackResult::kNotConverted:
    case PackResult::kFieldMissing:
      TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] error to translate the json file to message");
      break;
    case PackResult::kWriteFailed:
      ReportWriteFailure(kSpecific, scope, bin);
      break;
  }
}

bool PackSpecificDefault(BinPacker& session, const Scope& scope) {
  if (!PathExists(scope.dir)) {
    TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] The folder %s path is not existed\n", scope.dir.c_str());
    return false;
  }
  BinWriter bin;
  if (!bin.Open(scope.bin_path)) {
    TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] Open the output default bin file (%s) failed\n",
              scope.bin_path.c_str());
    return false;
  }
  bin.WriteVersions(scope.versions.messages());
  std::vector<std::string> json_paths;
  if (!ZoTuningUtils::FindAllJsonFiles(scope.dir.c_str(), json_paths)) {
    TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] find the json file from %s failed", scope.dir.c_str());
    return false;
  }
  if (json_paths.empty()) {
    TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] Error to get all json files from default folder\n");
  }
  for (const std::string& json_path : json_paths) {
    // At error priority although nothing is wrong.
    TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] Getcha the json is %s", json_path.c_str());
    std::string module;
    const PackResult result = session.PackSetting(json_path, FieldChecking::kOff, bin, module);
    if (result != PackResult::kPacked) {
      ReportSpecificDefaultFailure(result, scope, module, bin);
      return false;
    }
  }
  return bin.Close() || ReportWriteFailure(kSpecific, scope, bin);
}

bool PackSpecificSensor(BinPacker& session, const Scope& scope) {
  if (!PathExists(scope.dir)) {
    TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] Failed to find the path %s", scope.dir.c_str());
    return false;
  }
  BinWriter bin;
  if (!bin.Open(scope.bin_path)) {
    TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] Failed to open the tuning bin file");
    return false;
  }
  bin.WriteVersions(scope.versions.messages());
  std::vector<std::string> json_paths;
  if (!ZoTuningUtils::FindAllJsonFiles(scope.dir.c_str(), json_paths)) {
    TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] Find the Json files failed\n");
    return false;
  }
  if (json_paths.empty()) {
    TuningLog(kLogError, __LINE__, kSpecific, "[Quokka] Warning cannot find any json files under %s",
              scope.dir.c_str());
  }
  for (const std::string& json_path : json_paths) {
    std::string module;
    const PackResult result = session.PackSetting(json_path, FieldChecking::kOff, bin, module);
    if (result != PackResult::kPacked) {
      ReportSpecificSensorFailure(result, scope, module, bin);
      return false;
    }
  }
  return bin.Close() || ReportWriteFailure(kSpecific, scope, bin);
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

}  // namespace

bool ZO_TUNING::internal::GenerateBins(const char* proj_dir, const char* out_dir, const std::string* only_sensor) {
  const PassFailuresOn guard;
  static constexpr char kFunction[] = "GenerateProjTuningBins";
  const std::string bin_folder = BinFolder(out_dir);
  if (PathExists(bin_folder)) {
    TuningLog(kLogError, __LINE__, kFunction, "Bin folder has been existed, please remove. %s", bin_folder.c_str());
    return false;
  }
  mkdir(bin_folder.c_str(), kBinFolderMode);

  BinPacker session(proj_dir);
  session.LoadConfig();
  if (only_sensor != nullptr) session.sensor_names() = {*only_sensor};
  if (!session.FindLabelType()) {
    TuningLog(kLogError, __LINE__, kFunction, "Get tuning label descriptor failed");
    return false;
  }
  if (!session.FindVersionType()) {
    TuningLog(kLogError, __LINE__, kFunction, "Get tuning version descriptor failed");
    return false;
  }
  if (!session.ReadVersions()) return false;  // reported there
  if (!PackProjScope(session, DefaultScope(session, bin_folder))) return false;
  for (const std::string& sensor : session.sensor_names()) {
    if (!PackProjScope(session, SensorScope(session, bin_folder, sensor))) return false;
  }
  return true;
}

bool ZoTuningUtils::GenerateProjTuningBins(const char* proj_dir, const char* out_dir) try {
  return GenerateBins(proj_dir, out_dir, nullptr);
} catch (...) {
  return ReportException(__LINE__, __func__);
}

bool ZoTuningUtils::GenerateSpecificSensorBin(const char* proj_dir, const char* out_dir) try {
  const PassFailuresOn guard;
  const std::string bin_folder = BinFolder(out_dir);
  if (PathExists(bin_folder)) {
    TuningLog(kLogError, __LINE__, __func__, "[Quokka] Output folder is existed: %s, please remove them!\n",
              bin_folder.c_str());
    return false;
  }
  mkdir(bin_folder.c_str(), kBinFolderMode);

  BinPacker session(proj_dir);
  session.LoadConfig();
  std::vector<std::string>& sensors = session.sensor_names();
  sensors.erase(std::remove_if(sensors.begin(), sensors.end(),
                               [&](const std::string& sensor) { return !PathExists(session.SensorDir(sensor)); }),
                sensors.end());
  if (!session.FindLabelType()) {
    TuningLog(kLogError, __LINE__, __func__, "[Quokka] Tuning Data desc pointer is NULL");
    return false;
  }
  if (!session.FindVersionType()) {
    TuningLog(kLogError, __LINE__, __func__, "Get tuning version descriptor failed");
    return false;
  }
  if (!session.ReadVersions()) return false;  // reported there
  if (!PackSpecificDefault(session, DefaultScope(session, bin_folder))) return false;

  size_t index = 0;
  if (!AskForSensor(sensors, &index)) {
    TuningLog(kLogError, __LINE__, __func__, "[Quokka] Error typing\n");
    return false;
  }
  return PackSpecificSensor(session, SensorScope(session, bin_folder, sensors[index]));
} catch (...) {
  return ReportException(__LINE__, __func__);
}
