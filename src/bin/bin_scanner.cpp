// Tested by tests/tools/bins_test.cpp and the fuzz target bin_show.

#include "bin/bin_scanner.h"

#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "schema/tuning_label.h"

namespace ZO_TUNING {
namespace internal {

namespace {

/// How many skipped bytes are read at once.
constexpr int32_t kPiece = 1 << 16;

std::string Bytes(uint64_t count) { return std::to_string(count) + (count == 1 ? " byte" : " bytes"); }

std::string Rest(uint64_t count) { return count == 0 ? "the bin ends" : Bytes(count); }

uint64_t SizeOf(std::FILE* file) {
  struct stat info;
  return fstat(fileno(file), &info) == 0 && S_ISREG(info.st_mode) ? static_cast<uint64_t>(info.st_size) : 0;
}

}  // namespace

BinScanner::BinScanner(std::FILE* file, Schema& schema, const Labels& labels, Modules modules)
    : schema_(schema),
      labels_(labels),
      modules_(modules),
      reader_(file),
      bytes_(SizeOf(file)),
      version_type_(schema.FindType("Version")),
      label_type_(schema.FindType("TuningDataLabel")) {}

BinScanner::BinScanner(std::string_view bytes, Schema& schema, const Labels& labels, Modules modules)
    : schema_(schema),
      labels_(labels),
      modules_(modules),
      reader_(bytes),
      bytes_(bytes.size()),
      version_type_(schema.FindType("Version")),
      label_type_(schema.FindType("TuningDataLabel")) {}

bool BinScanner::Next() {
  if (fault_ != nullptr) return false;
  unknown_fields_.clear();
  if (!is_started_ && !ReadVersionCount()) return false;
  is_version_ = versions_ < version_count_;
  return is_version_ ? NextVersion() : NextRecord();
}

bool BinScanner::Fail(uint64_t offset, std::string item, std::string expected, std::string found) {
  fault_ = std::make_unique<BinFault>(BinFault{offset, std::move(item), std::move(expected), std::move(found)});
  return false;
}

bool BinScanner::ReadVersionCount() {
  is_started_ = true;
  int32_t count = 0;
  if (reader_.ReadInt32(&count) != ReadStatus::kOk) return Fail(0, "version count", "4 bytes", Rest(bytes_));
  if (count < 0) return Fail(0, "version count", "a count from 0 on", std::to_string(count));
  version_count_ = static_cast<size_t>(count);
  return true;
}

/// False at a fault, and if the bin ends properly before an optional item.
bool BinScanner::ReadLength(const std::string& name, bool has_to_follow, BinItem& item) {
  item.message.reset();
  item.bytes = {};
  item.offset = reader_.offset();
  const uint64_t left = bytes_ - item.offset;
  const ReadStatus length_status = reader_.ReadInt32(&item.length);
  if (length_status == ReadStatus::kEnd && !has_to_follow && left == 0) return false;
  if (length_status != ReadStatus::kOk) return Fail(item.offset, "length of " + name, "4 bytes", Rest(left));
  if (item.length < 0) {
    return Fail(item.offset, "length of " + name, "a length from 0 on", std::to_string(item.length));
  }
  const uint64_t data_left = bytes_ - reader_.offset(), length = static_cast<uint64_t>(item.length);
  return length <= data_left || Fail(reader_.offset(), name, Bytes(length), Rest(data_left));
}

/// Without a type the bytes are not parsed.
bool BinScanner::ReadItem(const std::string& name, const google::protobuf::Descriptor* type, bool has_to_follow,
                          BinItem& item) {
  if (!ReadLength(name, has_to_follow, item)) return false;
  const uint64_t data_offset = reader_.offset();
  if (reader_.ReadBytes(item.length, &item.bytes) != ReadStatus::kOk) {
    return Fail(data_offset, name, Bytes(static_cast<uint64_t>(item.length)), Rest(bytes_ - data_offset));
  }
  if (type == nullptr) return true;
  item.message = schema_.NewMessage(type);
  if (!item.message->ParseFromArray(item.bytes.data(), item.length)) return FailMessage(name, type, item);
  RecordReader again(item.bytes);
  (void)CheckWire(again, item.length, type, &unknown_fields_);
  return true;
}

/// Skips an item piece by piece. If a type is given, the bytes must be a message of it.
bool BinScanner::PassItem(const std::string& name, const google::protobuf::Descriptor* type, BinItem& item) {
  if (!ReadLength(name, true, item)) return false;
  const uint64_t data_offset = reader_.offset();
  WireVerdict verdict = WireVerdict::kMessage;
  if (type != nullptr) {
    verdict = CheckWire(reader_, item.length, type, &unknown_fields_);
  } else {
    std::string_view piece;
    for (int32_t left = item.length; left > 0 && verdict == WireVerdict::kMessage; left -= kPiece) {
      if (reader_.ReadBytes(std::min(left, kPiece), &piece) != ReadStatus::kOk) verdict = WireVerdict::kNotRead;
    }
  }
  if (verdict == WireVerdict::kNotRead) {
    return Fail(data_offset, name, Bytes(static_cast<uint64_t>(item.length)), Rest(bytes_ - data_offset));
  }
  return verdict == WireVerdict::kMessage || FailMessage(name, type, item);
}

bool BinScanner::FailMessage(const std::string& name, const google::protobuf::Descriptor* type, const BinItem& item) {
  Fail(item.offset + sizeof(item.length), name, "a message of type " + type->full_name(),
       Bytes(static_cast<uint64_t>(item.length)) + " that are none");
  fault_->length = item.length;
  return false;
}

bool BinScanner::NextVersion() {
  if (!ReadItem("version " + std::to_string(versions_), version_type_, true, version_)) return false;
  ++versions_;
  return true;
}

bool BinScanner::NextRecord() {
  record_.index = records_;
  const std::string number = std::to_string(records_);
  const std::string label_name = "label of record " + number;
  if (!ReadItem(label_name, label_type_, false, record_.label)) return false;
  record_.values.clear();
  if (label_type_ == nullptr ||
      !GetLabelValues(*record_.label.message, label_type_, labels_.names(), record_.values).ok()) {
    return Fail(record_.label.offset, label_name, "a label of this project", "another");
  }
  // No module has the number that means "not set".
  const bool is_set = !record_.values.empty() && record_.values[0] != kLabelNotSet;
  record_.module_name = is_set ? labels_.ModuleName(record_.values) : std::string();
  const google::protobuf::Descriptor* module_type = schema_.FindType(record_.module_name);
  record_.type = module_type;
  const std::string name = (module_type == nullptr ? "module" : record_.module_name) + " of record " + number;
  bool checks = modules_ == Modules::kCheck && module_type != nullptr;
  if (checks) {
    const auto [known, is_new] = can_check_.try_emplace(module_type);
    if (is_new) known->second = CanCheckWire(module_type);
    checks = known->second;
  }
  const bool read = checks || modules_ == Modules::kSkip || module_type == nullptr
                        ? PassItem(name, checks ? module_type : nullptr, record_.module)
                        : ReadItem(name, module_type, true, record_.module);
  if (!read) return false;
  record_.label.bytes = {};  // the buffer holds the module now
  ++records_;
  return true;
}

bool ReadRecordAt(std::FILE* file, uint64_t offset, Schema& schema, const Labels& labels, BinRecord& record) {
  const google::protobuf::Descriptor* label_type = schema.FindType("TuningDataLabel");
  if (label_type == nullptr || fseeko(file, static_cast<off_t>(offset), SEEK_SET) != 0) return false;
  RecordReader reader(file);
  const auto read = [&](const google::protobuf::Descriptor* type, BinItem& item) {
    item.offset = offset + reader.offset();
    if (type == nullptr) return reader.ReadInt32(&item.length) == ReadStatus::kOk;
    item.message = schema.NewMessage(type);
    return reader.ReadInt32(&item.length) == ReadStatus::kOk &&
           reader.ReadBytes(item.length, &item.bytes) == ReadStatus::kOk &&
           item.message->ParseFromArray(item.bytes.data(), item.length);
  };
  if (!read(label_type, record.label) ||
      !GetLabelValues(*record.label.message, label_type, labels.names(), record.values).ok()) {
    return false;
  }
  record.module_name = labels.ModuleName(record.values);
  record.type = schema.FindType(record.module_name);
  if (!read(record.type, record.module)) return false;
  record.label.bytes = record.module.bytes = {};
  return true;
}

}  // namespace internal
}  // namespace ZO_TUNING
