// Tested by tests/bin/generate_test.cpp.

#include "bin/bin_packer.h"

#include <cerrno>
#include <utility>

#include "io/directory.h"
#include "io/text_file-inl.h"
#include "json/json_text-inl.h"
#include "json/pruned_size.h"
#include "schema/field_check.h"
#include "tree/tuning_path-inl.h"

namespace ZO_TUNING {
namespace internal {

namespace {

PackResult Failure(PackStatus status) {
  PackResult result;
  result.status = status;
  return result;
}

PackResult WriteFailure(const BinWriter& bin) {
  PackResult result = Failure(PackStatus::kNotWritten);
  result.error = bin.error();
  return result;
}

PackResult NotConverted(std::string text, std::string reason) {
  PackResult result = Failure(PackStatus::kNotConverted);
  result.text = std::move(text);
  result.reason = std::move(reason);
  return result;
}

PackResult FieldMissing(std::string_view field) {
  PackResult result = Failure(PackStatus::kFieldMissing);
  result.field = field;
  return result;
}

PackResult ResultOf(const BinWriter& bin) { return bin.ok() ? PackResult() : WriteFailure(bin); }

}  // namespace

PackResult BinPacker::Pack(const BinJob& job, PackListener& listener) {
  if (!PathExists(job.data_dir)) return Failure(PackStatus::kNoDataDir);
  BinWriter bin;
  if (!bin.Open(job.bin_path)) {
    PackResult result = Failure(PackStatus::kNotOpened);
    result.error = bin.error();
    return result;
  }
  bin.WriteVersions(job.versions.messages());
  std::vector<std::string> json_paths;
  const DirectoryResult listing = FindJsonFiles(job.data_dir.c_str(), json_paths, listener);
  if (!listing.is_open) {
    PackResult result = Failure(PackStatus::kNotListed);
    result.error = listing.error;
    return result;
  }
  if (json_paths.empty()) listener.OnNoSettings();
  for (const std::string& json_path : json_paths) {
    listener.OnSetting(json_path);
    PackResult result = PackSetting(json_path, job.checking, bin, listener);
    if (!result.ok()) return result;
  }
  return bin.Close() ? PackResult() : WriteFailure(bin);
}

PackResult BinPacker::PackSetting(const std::string& json_path, FieldChecking checking, BinWriter& bin,
                                  PackListener& listener) {
  const google::protobuf::Descriptor* module_type = nullptr;
  PackResult result = PackLabel(json_path, bin, listener, &module_type);
  if (module_type == nullptr) return result;
  PackResult packed;
  if (file_.Read(json_path)) {
    packed = PackModule(file_.text(), module_type, checking, bin);
  } else if (errno == EFBIG) {
    packed = NotConverted({}, kTextTooLong);
  } else {
    std::string text;
    if (!ReadTextFile(json_path, text)) listener.OnFileNotRead(json_path);
    packed = PackBySlowPath(std::move(text), module_type, checking, bin);
  }
  packed.json_path = std::move(result.json_path);
  packed.module = std::move(result.module);
  return packed;
}

PackResult BinPacker::PackText(const std::string& json_path, std::string_view text, FieldChecking checking,
                               BinWriter& bin, PackListener& listener) {
  const google::protobuf::Descriptor* module_type = nullptr;
  PackResult result = PackLabel(json_path, bin, listener, &module_type);
  if (module_type == nullptr) return result;
  PackResult packed = PackModule(text, module_type, checking, bin);
  packed.json_path = std::move(result.json_path);
  packed.module = std::move(result.module);
  return packed;
}

PackResult BinPacker::PackLabel(const std::string& json_path, BinWriter& bin, PackListener& listener,
                                const google::protobuf::Descriptor** module_type) {
  PackResult result;
  result.json_path = json_path;
  std::vector<int> values;
  const PathResult path = ReadSettingPath(labels_, json_path, values);
  if (!path.ok) listener.OnUnknownModule(path.module_name);
  const std::unique_ptr<google::protobuf::Message> label = schema_.NewMessage(label_type_);
  result.label = SetLabelValues(label.get(), label_type_, labels_.names(), values);
  if (!result.label.ok()) {
    result.status = PackStatus::kBadLabel;
    return result;
  }
  bin.WriteMessageBytes(LabelBytes(*label));

  // A label type without fields cannot name a module.
  result.module = labels_.ModuleName(values);
  result.type = schema_.Find(result.module);
  *module_type = result.type.type;
  if (*module_type == nullptr) result.status = PackStatus::kNoModuleType;
  return result;
}

PackResult BinPacker::PackModule(std::string_view text, const google::protobuf::Descriptor* module_type,
                                 FieldChecking checking, BinWriter& bin) {
  const ModuleTable& table = TableOf(module_type);
  if (!transcoder_.Transcode(table, text)) return PackBySlowPath(std::string(text), module_type, checking, bin);
  const std::string_view* missing =
      checking == FieldChecking::kOff ? nullptr : transcoder_.FindMissingName(table, text);
  if (missing != nullptr && checking == FieldChecking::kOn) return FieldMissing(*missing);
  bin.WriteMessageBytes(transcoder_.wire());
  PackResult result = ResultOf(bin);
  if (missing != nullptr) result.field = *missing;
  result.is_complete = transcoder_.complete();
  return result;
}

PackResult BinPacker::PackBySlowPath(std::string text, const google::protobuf::Descriptor* module_type,
                                     FieldChecking checking, BinWriter& bin) {
  const std::unique_ptr<google::protobuf::Message> message = schema_.NewMessage(module_type);
  if (message == nullptr) return Failure(PackStatus::kNoMessage);
  JsonResult json = ParseJson(text, message.get());
  if (!json.ok) return NotConverted(std::move(text), std::move(json.reason));
  const std::string* missing = checking == FieldChecking::kOff ? nullptr : FindMissingField(module_type, text);
  if (missing != nullptr && checking == FieldChecking::kOn) return FieldMissing(*missing);
  if (!PruningFits(*message, module_type)) {
    return NotConverted(std::move(text), "With all parts that the text leaves out the message takes 2 GiB or more.");
  }
  PruneRules(message.get(), module_type);
  if (!CanBeRead(*message)) {
    return NotConverted(std::move(text), "The message is more than 100 levels deep, which could not be read again.");
  }
  bin.WriteMessage(*message);
  PackResult result = ResultOf(bin);
  if (missing != nullptr) result.field = *missing;
  return result;
}

const ModuleTable& BinPacker::TableOf(const google::protobuf::Descriptor* module_type) {
  std::unique_ptr<ModuleTable>& table = tables_[module_type];
  if (table == nullptr) table = std::make_unique<ModuleTable>(module_type);
  return *table;
}

}  // namespace internal
}  // namespace ZO_TUNING
