// Tuning bin dump: FindTuningBinFiles, ParseVersionMsgFromBin, DumpBinVersions and DumpProjTuningBins. The dumps check
// that bins decode; their visible effects are results and log lines. Tested by tests/bin/dump_test.cpp.

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ZoTuningUtils.h"
#include "bin/bin_folder.h"
#include "bin/bin_reader.h"
#include "io/directory.h"
#include "schema/project_config.h"
#include "schema/schema.h"

using namespace ZO_TUNING::internal;
using google::protobuf::Message;

namespace {

constexpr char kDump[] = "DumpProjTuningBins";

/// The first check of both dumps, under the name of either.
bool HasProjectAndProtoFolder(const std::string& proj_dir, const std::string& proto_dir, const char* function) {
  if (!PathExists(proj_dir)) {
    TuningLog(kLogError, __LINE__, function, "Input proj_dir doesn't existed: %s", proj_dir.c_str());
    return false;
  }
  if (!PathExists(proto_dir)) {
    TuningLog(kLogError, __LINE__, function, "Cannot find project proto folder in input proj_dir: %s",
              proto_dir.c_str());
    return false;
  }
  return true;
}

/// The types that both dumps need; false after a line under the name of either.
bool FindDumpTypes(const Schema& schema, const char* function, const google::protobuf::Descriptor** label_type,
                   const google::protobuf::Descriptor** version_type) {
  *label_type = schema.FindType("TuningDataLabel");
  if (*label_type == nullptr) {
    TuningLog(kLogError, __LINE__, function, "Get tuning label descriptor failed");
    return false;
  }
  *version_type = schema.FindType("Version");
  if (*version_type == nullptr) {
    TuningLog(kLogError, __LINE__, function, "Get tuning version descriptor failed");
    return false;
  }
  return true;
}

/// ParseVersionMsgFromBin, under whose name it logs; `next_message` gives the message that the next version replaces.
bool ReadVersionBlock(const std::string& path, const std::function<Message*()>& next_message) {
  static constexpr char kFunction[] = "ParseVersionMsgFromBin";
  const UniqueFile file(std::fopen(path.c_str(), "rb"));
  if (file == nullptr) {
    // Exact text, whichever bin it is.
    TuningLog(kLogError, __LINE__, kFunction, "Open default bin file failed: %s", path.c_str());
    return false;
  }
  BinReader bin(file.get());
  const int32_t count = bin.ReadVersionCount();
  for (int32_t i = 0; i < count; ++i) {
    Message* version = next_message();
    int32_t length = 0;
    if (bin.ReadLength(&length) != ReadStatus::kOk) {
      TuningLog(kLogError, __LINE__, kFunction, "Read tuning version len from file %s failed", path.c_str());
      return false;
    }
    const ReadStatus status = bin.ReadMessage(length, version);
    if (status == ReadStatus::kParseFailed) {
      TuningLog(kLogError, __LINE__, kFunction, "Parse tuning version msg failed: %s", path.c_str());
      return false;
    }
    if (status != ReadStatus::kOk) {
      TuningLog(kLogError, __LINE__, kFunction, "Read tuning version msg from %s failed", path.c_str());
      return false;
    }
  }
  return true;
}

enum class DumpResult {
  kWhole,
  kDamaged,       ///< logged; ends the walk without failing the call
  kNoModuleType,  ///< logged; fails the call
};

/// What the walk over the bins of one folder works with.
struct BinDump {
  Schema& schema;
  ProjectConfig& config;
  const google::protobuf::Descriptor* label_type;
  const google::protobuf::Descriptor* version_type;
  const std::vector<std::string>& paths;

  /// The path that the lines about the version record `index` name: the one at that position of the list, whichever
  /// bin is being read, and the current one past the end of the list.
  const char* VersionRecordPath(int32_t index, const std::string& current) const {
    const size_t position = static_cast<size_t>(index);
    return position < paths.size() ? paths[position].c_str() : current.c_str();
  }

  bool DumpVersions(BinReader& bin, const std::string& path) const {
    bool ok = true;
    const int32_t count = bin.ReadVersionCount();
    for (int32_t i = 0; i < count; ++i) {
      int32_t length = 0;
      if (bin.ReadLength(&length) != ReadStatus::kOk) {
        TuningLog(kLogError, __LINE__, kDump, "Read tuning version len from bin failed: %s",
                  VersionRecordPath(i, path));
        return false;
      }
      const std::unique_ptr<Message> version = schema.NewMessage(version_type);
      const ReadStatus status = bin.ReadMessage(length, version.get());
      if (status == ReadStatus::kParseFailed) {
        TuningLog(kLogError, __LINE__, kDump, "Parse tuning version msg failed: %s", VersionRecordPath(i, path));
        ok = false;
      } else if (status != ReadStatus::kOk) {
        TuningLog(kLogError, __LINE__, kDump, "Read tuning version msg failed: %s", VersionRecordPath(i, path));
        ok = false;
      }
    }
    return ok;
  }

  DumpResult DumpRecord(BinReader& bin, int32_t label_length, const std::string& path) const {
    const std::unique_ptr<Message> label = schema.NewMessage(label_type);
    const ReadStatus label_status = bin.ReadMessage(label_length, label.get());
    if (label_status == ReadStatus::kParseFailed) {
      TuningLog(kLogError, __LINE__, kDump, "Parse tuning data label failed: %s", path.c_str());
      return DumpResult::kDamaged;
    }
    if (label_status != ReadStatus::kOk) {
      TuningLog(kLogError, __LINE__, kDump, "Read tuning data label from bin failed: %s", path.c_str());
      return DumpResult::kDamaged;
    }
    std::vector<int> label_values;
    ZoTuningUtils::ParseTuningLabelMsg(label.get(), label_type, config.label_names, label_values);
    const std::string module =
        label_values.empty() ? std::string() : config.label_map[config.label_names[0]][label_values[0]];
    const google::protobuf::Descriptor* module_type = schema.FindType(module);
    if (module_type == nullptr) {
      TuningLog(kLogError, __LINE__, kDump, "Get module descriptor failed: %s", module.c_str());
      return DumpResult::kNoModuleType;
    }
    int32_t module_length = 0;
    if (bin.ReadLength(&module_length) != ReadStatus::kOk) {
      TuningLog(kLogError, __LINE__, kDump, "Read tuning data for module failed: %s", module.c_str());
      return DumpResult::kDamaged;
    }
    const std::unique_ptr<Message> message = schema.NewMessage(module_type);
    const ReadStatus module_status = bin.ReadMessage(module_length, message.get());
    // Whether the bytes parse as the module is not checked.
    if (module_status != ReadStatus::kOk && module_status != ReadStatus::kParseFailed) {
      TuningLog(kLogError, __LINE__, kDump, "Parse module msg failed: %s", module.c_str());
      return DumpResult::kDamaged;
    }
    return DumpResult::kWhole;
  }

  DumpResult DumpBin(std::FILE* file, const std::string& path) const {
    BinReader bin(file);
    if (!DumpVersions(bin, path)) return DumpResult::kDamaged;
    int32_t label_length = 0;
    while (bin.ReadLength(&label_length) == ReadStatus::kOk) {
      const DumpResult result = DumpRecord(bin, label_length, path);
      if (result != DumpResult::kWhole) return result;
    }
    return DumpResult::kWhole;
  }
};

}  // namespace

bool ZoTuningUtils::FindTuningBinFiles(const char* dir, std::vector<std::string>& names,
                                       std::vector<std::string>& paths) try {
  std::vector<DirectoryEntry> entries;
  if (!ReadDirectory(dir, entries)) {
    TuningLog(kLogError, __LINE__, __func__, "Open directory failed: %s", dir);
    return false;
  }
  for (const DirectoryEntry& entry : entries) {
    if (entry.is_directory) continue;
    if (!HasSuffix(entry.name, kBinSuffix)) {
      TuningLog(kLogWarn, __LINE__, __func__, "Unexpected file type in tuning data dir: %s", entry.name.c_str());
      continue;
    }
    names.push_back(entry.name.substr(0, entry.name.rfind('.')));
    paths.push_back(std::string(dir) + "/" + entry.name);
  }
  return true;
} catch (...) {
  return ReportException(__LINE__, __func__);
}

bool ZoTuningUtils::ParseVersionMsgFromBin(const std::string& path, const Message* prototype,
                                           std::vector<Message*>& versions) try {
  return ReadVersionBlock(path, [&] {
    versions.push_back(nullptr);
    return versions.back() = prototype->New();
  });
} catch (...) {
  return ReportException(__LINE__, __func__);
}

bool ZoTuningUtils::DumpBinVersions(const char* proj_dir, const char* bin_dir) try {
  const PassFailuresOn guard;
  const std::string proto_dir = std::string(proj_dir) + "/" + "proto";
  if (!HasProjectAndProtoFolder(proj_dir, proto_dir, __func__)) return false;
  Schema schema(proto_dir);
  const google::protobuf::Descriptor* label_type = nullptr;
  const google::protobuf::Descriptor* version_type = nullptr;
  if (!FindDumpTypes(schema, __func__, &label_type, &version_type)) return false;

  std::vector<std::string> names, paths;
  if (!FindTuningBinFiles(bin_dir, names, paths)) return false;
  const auto default_name = std::find(names.begin(), names.end(), kDefaultBinName);
  if (default_name == names.end()) return false;  // without a message
  // The default bin is read first, wherever it stands in the listing.
  std::rotate(paths.begin(), paths.begin() + (default_name - names.begin()),
              paths.begin() + (default_name - names.begin()) + 1);
  // One message for all versions: a damaged count may promise more of them than anybody has memory for.
  const std::unique_ptr<Message> version = schema.NewMessage(version_type);
  return std::all_of(paths.begin(), paths.end(),
                     [&](const std::string& path) { return ReadVersionBlock(path, [&] { return version.get(); }); });
} catch (...) {
  return ReportException(__LINE__, __func__);
}

bool ZoTuningUtils::DumpProjTuningBins(const char* proj_dir, const char* bin_dir) try {
  const PassFailuresOn guard;
  const std::string proto_dir = std::string(proj_dir) + "/" + "proto";
  if (!HasProjectAndProtoFolder(proj_dir, proto_dir, __func__)) return false;
  Schema schema(proto_dir);
  ProjectConfig config;
  LoadProjectConfig(proj_dir, schema, config);  // what it could not read stays empty
  const google::protobuf::Descriptor* label_type = nullptr;
  const google::protobuf::Descriptor* version_type = nullptr;
  if (!FindDumpTypes(schema, __func__, &label_type, &version_type)) return false;

  std::vector<std::string> names, paths;
  if (!FindTuningBinFiles(bin_dir, names, paths)) return false;
  for (const std::string& name : names) {
    const bool known = name == kDefaultBinName || std::find(config.sensor_names.begin(), config.sensor_names.end(),
                                                            name) != config.sensor_names.end();
    if (!known) {
      TuningLog(kLogError, __LINE__, __func__, "Name of sensor bin %s doesn't existed in the project config",
                name.c_str());
      return false;
    }
  }
  const BinDump dump{schema, config, label_type, version_type, paths};
  for (const std::string& path : paths) {
    const UniqueFile file(std::fopen(path.c_str(), "rb"));
    if (file == nullptr) {
      TuningLog(kLogError, __LINE__, __func__, "Open tuning bin file failed: %s", path.c_str());
      return false;
    }
    switch (dump.DumpBin(file.get(), path)) {
      case DumpResult::kWhole:
        break;
      case DumpResult::kDamaged:
        return true;  // a damaged bin ends the walk without failing the call
      case DumpResult::kNoModuleType:
        return false;
    }
  }
  return true;
} catch (...) {
  return ReportException(__LINE__, __func__);
}
