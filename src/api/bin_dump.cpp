// Tuning bin dump: FindTuningBinFiles, ParseVersionMsgFromBin, DumpBinVersions and DumpProjTuningBins. The dumps check
// that bins decode; their visible effects are results and log lines. Tested by tests/bin/dump_test.cpp.

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ZoTuningUtils.h"
#include "api/operations.h"
#include "bin/bin_folder.h"
#include "bin/bin_reader.h"
#include "io/directory.h"
#include "schema/project_config.h"
#include "schema/schema.h"

using namespace ZO_TUNING::internal;

namespace ZO_TUNING {
namespace internal {
namespace api {

namespace {

using google::protobuf::Message;

constexpr char kDump[] = "DumpProjTuningBins";
constexpr char kNoProject[] = "Input proj_dir doesn't existed";

/// ParseVersionMsgFromBin, under whose name it logs; `next_message` returns the message that the next version replaces.
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
  const Labels labels;
  const BinTypes types;
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
      const std::unique_ptr<Message> version = schema.NewMessage(types.version);
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
    const std::unique_ptr<Message> label = schema.NewMessage(types.label);
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
    ParseTuningLabelMsg(*label, types.label, labels.names(), label_values);
    const std::string& module = labels.ModuleName(label_values);
    const google::protobuf::Descriptor* module_type = FindType(schema, module);
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

/// FindTuningBinFiles.
bool FindBins(const char* dir, BinListing& listing) {
  static constexpr char kFunction[] = "FindTuningBinFiles";
  if (!ListBins(dir, listing).is_open) {
    TuningLog(kLogError, __LINE__, kFunction, "Open directory failed: %s", dir);
    return false;
  }
  for (const std::string& name : listing.others) {
    TuningLog(kLogWarn, __LINE__, kFunction, "Unexpected file type in tuning data dir: %s", name.c_str());
  }
  return true;
}

bool DumpBinVersions(const ProjectLayout& layout, const char* bin_dir) {
  if (!HasProjectAndSchema(layout, __func__, kNoProject)) return false;
  Schema schema(layout.ProtoDir());
  BinTypes types;
  if (!FindBinTypes(schema, __func__, types)) return false;

  BinListing bins;
  if (!FindBins(bin_dir, bins)) return false;
  const auto default_name = std::find(bins.names.begin(), bins.names.end(), kDefaultScope);
  if (default_name == bins.names.end()) return false;  // without a message
  // The default bin is read first, wherever it is in the listing.
  const auto default_path = bins.paths.begin() + (default_name - bins.names.begin());
  std::rotate(bins.paths.begin(), default_path, default_path + 1);
  // One message for all versions: a damaged count may promise more of them than anybody has memory for.
  const std::unique_ptr<Message> version = schema.NewMessage(types.version);
  return std::all_of(bins.paths.begin(), bins.paths.end(),
                     [&](const std::string& path) { return ReadVersionBlock(path, [&] { return version.get(); }); });
}

bool DumpProjTuningBins(const ProjectLayout& layout, const char* bin_dir) {
  if (!HasProjectAndSchema(layout, __func__, kNoProject)) return false;
  Schema schema(layout.ProtoDir());
  ProjectConfig config;
  GetProjectConfig(layout, schema, config);  // what it could not read stays empty
  BinTypes types;
  if (!FindBinTypes(schema, __func__, types)) return false;

  BinListing bins;
  if (!FindBins(bin_dir, bins)) return false;
  for (const std::string& name : bins.names) {
    const bool known = name == kDefaultScope || std::find(config.sensor_names.begin(), config.sensor_names.end(),
                                                          name) != config.sensor_names.end();
    if (!known) {
      TuningLog(kLogError, __LINE__, __func__, "Name of sensor bin %s doesn't existed in the project config",
                name.c_str());
      return false;
    }
  }
  const BinDump dump{schema, config.labels(), types, bins.paths};
  for (const std::string& path : bins.paths) {
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
}

}  // namespace

}  // namespace api
}  // namespace internal
}  // namespace ZO_TUNING

bool ZoTuningUtils::FindTuningBinFiles(const char* dir, std::vector<std::string>& names,
                                       std::vector<std::string>& paths) {
  return AtBorder(__LINE__, __func__, [&] {
    BinListing bins;
    if (!api::FindBins(dir, bins)) return false;
    names.insert(names.end(), bins.names.begin(), bins.names.end());
    paths.insert(paths.end(), bins.paths.begin(), bins.paths.end());
    return true;
  });
}

bool ZoTuningUtils::ParseVersionMsgFromBin(const std::string& path, const google::protobuf::Message* prototype,
                                           std::vector<google::protobuf::Message*>& versions) {
  return AtBorder(__LINE__, __func__, [&] {
    return api::ReadVersionBlock(path, [&] {
      versions.push_back(nullptr);
      return versions.back() = prototype->New();
    });
  });
}

bool ZoTuningUtils::DumpBinVersions(const char* proj_dir, const char* bin_dir) {
  return AtBorder(__LINE__, __func__, [&] { return api::DumpBinVersions(ProjectLayout(proj_dir), bin_dir); });
}

bool ZoTuningUtils::DumpProjTuningBins(const char* proj_dir, const char* bin_dir) {
  return AtBorder(__LINE__, __func__, [&] { return api::DumpProjTuningBins(ProjectLayout(proj_dir), bin_dir); });
}
