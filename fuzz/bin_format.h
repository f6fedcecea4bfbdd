/// \file
/// A tuning bin read according to docs/tuning-bin.md, without the library's reader.
#pragma once

#include <google/protobuf/message.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "length_prefixed.h"
#include "schema/schema.h"
#include "support.h"

namespace zofuzz {

using MessagePtr = std::unique_ptr<google::protobuf::Message>;

/// The meaning of a bin's bytes according to the format.
struct Reading {
  enum End { kWhole, kDamaged, kNoModuleType };

  bool versions_ok = true;
  End end = kWhole;
  std::vector<MessagePtr> versions;  ///< those read
  std::vector<MessagePtr> messages;  ///< label and module of each complete record
  size_t sound_records = 0;          ///< those before the first fault
  /// The position of the first fault, also one that the library's dump accepts; -1 for none. A truncated message is at
  /// fault at its start, after its length.
  int64_t fault = -1;
  /// Something before the first fault has a module or field that the schema lacks.
  bool is_foreign = false;
};

/// Whether the message, or one within it, has fields that its type lacks.
bool HasUnknownFields(const google::protobuf::Message& message);

class BinFormat {
 public:
  using LabelMap = std::map<std::string, std::map<int, std::string>>;

  /// A module that the schema lacks ends the reading, as in the library's dumps, unless it is to be passed over by its
  /// length, as the tool does.
  BinFormat(ZO_TUNING::internal::Schema& schema, const LabelMap& label_map, bool passes_unknown = false)
      : schema_(schema), label_map_(label_map), passes_unknown_(passes_unknown) {}

  Reading Read(std::string_view bytes) {
    Reading reading;
    bytes_ = bytes;
    left_ = bytes;
    reading_ = &reading;
    ReadVersions();
    while (reading.versions_ok && reading.end == Reading::kWhole && !left_.empty()) ReadRecord();
    TakeLog();  // about the types that were looked for
    return reading;
  }

 private:
  int64_t Offset() const { return static_cast<int64_t>(bytes_.size() - left_.size()); }
  void AddFault(int64_t offset) {
    if (reading_->fault < 0) reading_->fault = offset;
  }

  void ReadVersions() {
    int32_t count = 0;
    const bool has_count = TakeInt32(left_, &count);
    if (!has_count || count < 0) AddFault(0);
    if (!has_count) left_ = {};
    for (int32_t i = 0; i < count && reading_->versions_ok; ++i) {
      MessagePtr version = schema_.NewMessage(schema_.FindType("Version"));
      bool cut = false;
      reading_->versions_ok = ReadItem(version.get(), &cut);
      if (reading_->versions_ok) reading_->versions.push_back(std::move(version));
    }
    if (!reading_->versions_ok) reading_->end = Reading::kDamaged;
  }

  void ReadRecord() {
    const int64_t begin = Offset();
    if (left_.size() < sizeof(int32_t)) {  // the library takes the extra bytes for the end
      AddFault(begin);
      left_ = {};
      return;
    }
    bool cut = false;
    MessagePtr label = schema_.NewMessage(schema_.FindType("TuningDataLabel"));
    if (!ReadItem(label.get(), &cut)) {
      reading_->end = Reading::kDamaged;
      return;
    }
    const auto* module_field = label->GetDescriptor()->FindFieldByName("module");
    const auto& names = label_map_.at("module");
    const auto name = names.find(label->GetReflection()->GetEnumValue(*label, module_field));
    const auto* module_type = name == names.end() ? nullptr : schema_.FindType(name->second);
    if (module_type == nullptr && passes_unknown_) {
      if (!PassItem()) {
        reading_->end = Reading::kDamaged;
      } else if (reading_->fault < 0) {
        reading_->is_foreign = true;
        ++reading_->sound_records;
      }
      return;
    }
    if (module_type == nullptr) {
      AddFault(begin);
      reading_->end = Reading::kNoModuleType;
      return;
    }
    MessagePtr module = schema_.NewMessage(module_type);
    if (!ReadItem(module.get(), &cut) && cut) {
      reading_->end = Reading::kDamaged;
      return;
    }
    reading_->messages.push_back(std::move(label));
    reading_->messages.push_back(std::move(module));
    if (reading_->fault < 0) ++reading_->sound_records;
  }

  /// Reads the length of the next item. False if the item is truncated.
  bool TakeLength(int32_t* length) {
    const int64_t begin = Offset();
    if (!TakeInt32(left_, length) || *length < 0) {
      AddFault(begin);
      return false;
    }
    if (static_cast<size_t>(*length) > left_.size()) {
      AddFault(Offset());
      return false;
    }
    return true;
  }

  bool PassItem() {
    int32_t length = 0;
    if (!TakeLength(&length)) return false;
    left_.remove_prefix(static_cast<size_t>(length));
    return true;
  }

  /// False if the next item is truncated, or is not a message of this type.
  bool ReadItem(google::protobuf::Message* message, bool* cut) {
    int32_t length = 0;
    *cut = !TakeLength(&length);
    if (*cut) return false;
    const int64_t data = Offset();
    const bool parsed = message->ParseFromArray(left_.data(), length);
    left_.remove_prefix(static_cast<size_t>(length));
    if (!parsed) AddFault(data);
    if (reading_->fault < 0 && HasUnknownFields(*message)) reading_->is_foreign = true;
    return parsed;
  }

  ZO_TUNING::internal::Schema& schema_;
  const LabelMap& label_map_;
  const bool passes_unknown_;
  std::string_view bytes_, left_;
  Reading* reading_ = nullptr;
};

/// The modules of the schema that the fuzz targets for bins use.
extern const std::vector<std::string> kBinModules;

/// Writes the bins of the example project to `dir`, split into one bin per record.
void WriteBinSeeds(const std::string& dir);

}  // namespace zofuzz
