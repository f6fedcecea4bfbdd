// Tested by tests/bin/wire_check_test.cpp.

#include "bin/wire_check.h"

#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/io/coded_stream.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "transcode/json_lexer.h"
#include "transcode/wire_format.h"

namespace ZO_TUNING {
namespace internal {

namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::FileDescriptor;

constexpr uint32_t kStartGroup = 3, kEndGroup = 4;
constexpr int32_t kChunk = 1 << 16;
// protobuf reserves this much room after a run of bytes, and rejects lengths that leave less.
constexpr uint64_t kMaxLength = INT_MAX - 16;

WireType WireTypeOf(FieldDescriptor::Type type) {
  switch (type) {
    case FieldDescriptor::TYPE_DOUBLE:
    case FieldDescriptor::TYPE_FIXED64:
    case FieldDescriptor::TYPE_SFIXED64:
      return WireType::kFixed64;
    case FieldDescriptor::TYPE_FLOAT:
    case FieldDescriptor::TYPE_FIXED32:
    case FieldDescriptor::TYPE_SFIXED32:
      return WireType::kFixed32;
    case FieldDescriptor::TYPE_STRING:
    case FieldDescriptor::TYPE_BYTES:
    case FieldDescriptor::TYPE_MESSAGE:
      return WireType::kDelimited;
    case FieldDescriptor::TYPE_GROUP:
      return static_cast<WireType>(kStartGroup);
    default:
      return WireType::kVarint;
  }
}

/// How many bytes at the end of `text` may start a character that continues after it.
size_t OpenTail(std::string_view text) {
  for (size_t count = 1; count <= std::min<size_t>(3, text.size()); ++count) {
    const auto byte = static_cast<unsigned char>(text[text.size() - count]);
    if (byte < 0x80) return 0;
    if (byte >= 0xC0) return count < (byte < 0xE0 ? 2u : byte < 0xF0 ? 3u : 4u) ? count : 0;
  }
  return 0;
}

class Checker {
 public:
  Checker(RecordReader& reader, int32_t length, std::vector<UnknownField>* unknown)
      : reader_(reader), unknown_(unknown), length_(static_cast<uint64_t>(length)), limit_(length_) {}

  bool is_short() const { return is_short_; }

  /// The fields of a message up to the limit, or those of the group with this number up to its end; 0 for none. Of an
  /// unknown group, and of a message of any type, there is no type.
  bool Fields(const Descriptor* type, uint32_t group, int depth) {
    while (offset() < limit_) {
      uint64_t tag = 0;
      if (!Varint(5, &tag)) return false;
      tag &= UINT32_MAX;
      const uint32_t wire_type = tag & 7, number = static_cast<uint32_t>(tag >> 3);
      if (wire_type == kEndGroup) return group != 0 && number == group;
      if (number == 0) return false;
      const FieldDescriptor* field = type == nullptr ? nullptr : type->FindFieldByNumber(static_cast<int>(number));
      if (field != nullptr && static_cast<uint32_t>(WireTypeOf(field->type())) != wire_type) {
        if (field->is_packable() && wire_type == static_cast<uint32_t>(WireType::kDelimited)) {
          if (!Packed(WireTypeOf(field->type()))) return false;
          continue;
        }
        field = nullptr;
      }
      if (field == nullptr && type != nullptr && unknown_ != nullptr) AddUnknown(*type, number);
      if (!Value(field, wire_type, number, depth)) return false;
    }
    return group == 0;
  }

 private:
  uint64_t offset() const { return delivered_ - static_cast<uint64_t>(end_ - at_); }

  void AddUnknown(const Descriptor& type, uint32_t number) {
    const UnknownField field = {&type, number};
    if (type.IsExtensionNumber(static_cast<int>(number)) || unknown_->size() >= kMaxUnknownFields) return;
    if (std::find(unknown_->begin(), unknown_->end(), field) == unknown_->end()) unknown_->push_back(field);
  }

  bool Value(const FieldDescriptor* field, uint32_t wire_type, uint32_t number, int depth) {
    uint64_t value = 0;
    switch (wire_type) {
      case static_cast<uint32_t>(WireType::kVarint):
        return Varint(kMaxVarintSize, &value);
      case static_cast<uint32_t>(WireType::kFixed64):
        return Skip(8);
      case static_cast<uint32_t>(WireType::kFixed32):
        return Skip(4);
      case static_cast<uint32_t>(WireType::kDelimited):
        return Delimited(field, depth);
      case kStartGroup:
        return depth > 0 && Fields(field == nullptr ? nullptr : field->message_type(), number, depth - 1);
      default:
        return false;
    }
  }

  bool Delimited(const FieldDescriptor* field, int depth) {
    uint64_t length = 0;
    if (!Length(&length)) return false;
    if (field == nullptr || field->type() == FieldDescriptor::TYPE_BYTES) return Skip(length);
    if (field->type() == FieldDescriptor::TYPE_STRING) {
      return field->file()->syntax() == FileDescriptor::SYNTAX_PROTO3 ? Utf8(length) : Skip(length);
    }
    if (depth <= 0) return false;
    const uint64_t outer = limit_;
    SetLimit(offset() + length);
    if (!Fields(field->message_type(), 0, depth - 1)) return false;
    SetLimit(outer);
    return true;
  }

  bool Packed(WireType type) {
    uint64_t length = 0;
    if (!Length(&length)) return false;
    if (type != WireType::kVarint) return length % (type == WireType::kFixed64 ? 8 : 4) == 0 && Skip(length);
    const uint64_t outer = limit_;
    SetLimit(offset() + length);
    uint64_t value = 0;
    while (offset() < limit_) {
      if (!Varint(kMaxVarintSize, &value)) return false;
    }
    SetLimit(outer);
    return true;
  }

  bool Utf8(uint64_t length) {
    std::string text;
    while (length > 0) {
      if (at_ == stop_ && !Refill()) return false;
      const size_t count = std::min<size_t>(length, static_cast<size_t>(stop_ - at_));
      text.append(at_, count);
      at_ += count;
      length -= count;
      const size_t open = length == 0 ? 0 : OpenTail(text);
      if (!IsUtf8(text.data(), text.data() + text.size() - open)) return false;
      text.erase(0, text.size() - open);
    }
    return true;
  }

  /// The length of what follows, which is within the limit.
  bool Length(uint64_t* length) { return Varint(5, length) && *length <= kMaxLength && *length <= limit_ - offset(); }

  bool Varint(size_t max_size, uint64_t* value) {
    *value = 0;
    for (size_t i = 0; i < max_size; ++i) {
      if (at_ == stop_ && !Refill()) return false;
      const auto byte = static_cast<unsigned char>(*at_++);
      *value |= static_cast<uint64_t>(byte & 0x7F) << (7 * i);
      if (byte < 0x80) return true;
    }
    return false;
  }

  bool Skip(uint64_t count) {
    while (count > 0) {
      if (at_ == stop_ && !Refill()) return false;
      const uint64_t step = std::min(count, static_cast<uint64_t>(stop_ - at_));
      at_ += step;
      count -= step;
    }
    return true;
  }

  void SetLimit(uint64_t limit) {
    limit_ = limit;
    stop_ = end_ - (delivered_ > limit_ ? delivered_ - limit_ : 0);
  }

  /// The next bytes; false at the limit.
  bool Refill() {
    if (is_short_ || offset() == limit_) return false;
    std::string_view bytes;
    const auto wanted = static_cast<int32_t>(std::min<uint64_t>(kChunk, length_ - delivered_));
    if (reader_.ReadBytes(wanted, &bytes) != ReadStatus::kOk) {
      is_short_ = true;
      return false;
    }
    delivered_ += bytes.size();
    at_ = bytes.data();
    end_ = at_ + bytes.size();
    SetLimit(limit_);
    return true;
  }

  RecordReader& reader_;
  std::vector<UnknownField>* unknown_;  ///< may be null
  const uint64_t length_;
  uint64_t limit_;
  uint64_t delivered_ = 0;      ///< by the reader
  const char* at_ = nullptr;    ///< in the bytes delivered last
  const char* end_ = nullptr;   ///< of these bytes
  const char* stop_ = nullptr;  ///< the same, but not past the limit
  bool is_short_ = false;
};

}  // namespace

bool CanCheckWire(const Descriptor* type) {
  std::set<const Descriptor*> seen = {type};
  std::vector<const Descriptor*> open = {type};
  while (!open.empty()) {
    const Descriptor* each = open.back();
    open.pop_back();
    if (each->extension_range_count() > 0 || each->options().message_set_wire_format()) return false;
    for (int i = 0; i < each->field_count(); ++i) {
      const FieldDescriptor* field = each->field(i);
      if (field->is_required()) return false;
      if (field->message_type() != nullptr && seen.insert(field->message_type()).second) {
        open.push_back(field->message_type());
      }
    }
  }
  return true;
}

WireVerdict CheckWire(RecordReader& reader, int32_t length, const Descriptor* type,
                      std::vector<UnknownField>* unknown) {
  Checker checker(reader, length, unknown);
  const int depth = google::protobuf::io::CodedInputStream::GetDefaultRecursionLimit();
  if (checker.Fields(type, 0, depth)) return WireVerdict::kMessage;
  return checker.is_short() ? WireVerdict::kNotRead : WireVerdict::kNoMessage;
}

}  // namespace internal
}  // namespace ZO_TUNING
