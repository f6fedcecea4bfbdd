// The core of the fast path: one pass over the text, guided by the table, writing wire bytes as it goes. Tested by
// tests/transcode/differential_test.cpp against the slow path.

#include "transcode/json_transcoder.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>

#include "transcode/json_lexer.h"
#include "transcode/seen_fields.h"
#include "transcode/wire_format.h"

namespace ZO_TUNING {
namespace internal {

namespace {

constexpr size_t kFirstCapacity = size_t{64} << 10;

// Protobuf's parser counts text and wire bytes in an int. Before packing numbers it writes up to 13 bytes of wire for
// two of text ("1,"), so nothing below this size can reach its limit.
constexpr size_t kMaxTextSize = static_cast<size_t>(std::numeric_limits<int32_t>::max()) / 7;

/// The C++ type that holds a value of a kind, and whether two's complement or its bits go to the wire.
template <ValueKind kKind>
struct Scalar {
  using Type = uint64_t;
};
template <>
struct Scalar<ValueKind::kFloat> {
  using Type = float;
};
template <>
struct Scalar<ValueKind::kDouble> {
  using Type = double;
};

constexpr bool Is32Bit(ValueKind kind) {
  return kind == ValueKind::kInt32 || kind == ValueKind::kUint32 || kind == ValueKind::kSint32 ||
         kind == ValueKind::kFixed32 || kind == ValueKind::kSfixed32;
}
constexpr bool IsUnsigned(ValueKind kind) {
  return kind == ValueKind::kUint32 || kind == ValueKind::kUint64 || kind == ValueKind::kFixed32 ||
         kind == ValueKind::kFixed64;
}

/// Reads an integer within the range of a kind, as 64 bits in two's complement. Null if it is unsupported.
template <ValueKind kKind>
const char* ReadIntegerOf(const char* p, uint64_t* value) {
  // Protobuf prints 64-bit integers as strings.
  const bool quoted = !Is32Bit(kKind) && *p == '"';
  if (quoted) ++p;
  Integer integer;
  p = ReadInteger(p, &integer);
  if (p == nullptr) return nullptr;
  if (quoted && *p++ != '"') return nullptr;
  if (IsUnsigned(kKind)) {
    if (integer.negative || (Is32Bit(kKind) && integer.magnitude > std::numeric_limits<uint32_t>::max())) {
      return nullptr;
    }
    *value = integer.magnitude;
    return p;
  }
  const uint64_t max = Is32Bit(kKind) ? static_cast<uint64_t>(std::numeric_limits<int32_t>::max())
                                      : static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
  if (integer.magnitude > max + (integer.negative ? 1 : 0)) return nullptr;
  *value = integer.negative ? uint64_t{0} - integer.magnitude : integer.magnitude;
  return p;
}

const char* ReadEnum(const char* p, const EnumTable& table, uint64_t* value) {
  int32_t number = 0;
  if (*p == '"') {
    RawString name;
    p = ReadString(p, &name);
    if (p == nullptr || name.escaped) return nullptr;
    const auto found = table.numbers.find(std::string_view(name.begin, static_cast<size_t>(name.end - name.begin)));
    if (found == table.numbers.end()) return nullptr;
    number = found->second;
  } else {
    uint64_t bits = 0;
    p = ReadIntegerOf<ValueKind::kInt32>(p, &bits);
    if (p == nullptr) return nullptr;
    number = static_cast<int32_t>(bits);
    if (table.descriptor->FindValueByNumber(number) == nullptr) return nullptr;
  }
  *value = static_cast<uint64_t>(static_cast<int64_t>(number));
  return p;
}

const char* ReadBool(const char* p, uint64_t* value) {
  *value = *p == 't' ? 1 : 0;
  if (std::memcmp(p, "true", 4) == 0) return p + 4;
  return std::memcmp(p, "false", 5) == 0 ? p + 5 : nullptr;
}

const char* ReadFloat(const char* p, float* value) {
  double real = 0;
  p = ReadReal(p, &real);
  // Protobuf compares before it rounds: a number that would round down to the largest float is rejected.
  if (p == nullptr || real > FLT_MAX || real < -FLT_MAX) return nullptr;
  *value = static_cast<float>(real);
  // Protobuf takes what is too small, too; whoever wrote it did not mean 0.
  if (*value == 0.0F && real != 0.0) return nullptr;
  return p;
}

template <ValueKind kKind>
const char* ReadScalar(const char* p, const FieldEntry& field, typename Scalar<kKind>::Type* value) {
  if constexpr (kKind == ValueKind::kFloat) {
    return ReadFloat(p, value);
  } else if constexpr (kKind == ValueKind::kDouble) {
    return ReadReal(p, value);
  } else if constexpr (kKind == ValueKind::kBool) {
    return ReadBool(p, value);
  } else if constexpr (kKind == ValueKind::kEnum) {
    return ReadEnum(p, *field.enumeration, value);
  } else {
    return ReadIntegerOf<kKind>(p, value);
  }
}

template <ValueKind kKind>
char* WriteScalar(typename Scalar<kKind>::Type value, char* out) {
  if constexpr (kKind == ValueKind::kFloat || kKind == ValueKind::kDouble || kKind == ValueKind::kFixed64 ||
                kKind == ValueKind::kSfixed64) {
    return WriteFixed(value, out);
  } else if constexpr (kKind == ValueKind::kFixed32 || kKind == ValueKind::kSfixed32) {
    return WriteFixed(static_cast<uint32_t>(value), out);
  } else if constexpr (kKind == ValueKind::kSint32 || kKind == ValueKind::kSint64) {
    // The upper bits of a 32-bit value all equal its sign, so the 64-bit form is the same varint.
    return WriteVarint(ZigZag(static_cast<int64_t>(value)), out);
  } else {
    return WriteVarint(value, out);
  }
}

/// Whether a value is a default to be left out; -0.0 is not.
template <typename T>
bool IsDefault(T value) {
  if constexpr (std::is_floating_point_v<T>) {
    return value == 0 && !std::signbit(value);
  } else {
    return value == 0;
  }
}

}  // namespace

/// The state for one text. Its functions return false as soon as the text is unsupported.
class TextTranscoder {
 public:
  TextTranscoder(JsonTranscoder& encoder, std::string_view text)
      : transcoder_(encoder), p_(text.data()), text_end_(text.data() + text.size()) {
    begin_ = encoder.buffer_.get();
    out_ = begin_;
    limit_ = begin_ + encoder.capacity_;
  }

  bool Scan(const MessageTable& root) {
    p_ = SkipBlanks(p_);
    if (!EncodeMessage(root)) return false;
    p_ = SkipBlanks(p_);
    transcoder_.size_ = Offset();
    return p_ == text_end_;
  }

 private:
  using FieldSpan = JsonTranscoder::FieldSpan;

  // Offsets, since the buffer moves when it grows.
  size_t Offset() const { return static_cast<size_t>(out_ - begin_); }

  void Reserve(size_t size) {
    if (static_cast<size_t>(limit_ - out_) < size) Grow(size);
  }

  void Grow(size_t size) {
    const size_t used = Offset();
    const size_t capacity = std::max({kFirstCapacity, transcoder_.capacity_ * 2, used + size});
    std::unique_ptr<char[]> buffer(new char[capacity]);
    if (used > 0) std::memcpy(buffer.get(), begin_, used);
    transcoder_.buffer_ = std::move(buffer);
    transcoder_.capacity_ = capacity;
    begin_ = transcoder_.buffer_.get();
    out_ = begin_ + used;
    limit_ = begin_ + capacity;
  }

  void Append(const char* data, size_t size) {
    Reserve(size);
    std::memcpy(out_, data, size);
    out_ += size;
  }

  /// Starts a run of bytes preceded by their length. Reserves room for a length as long as the field's last one.
  size_t BeginDelimited(const FieldEntry& field) {
    Reserve(field.tag_size + kMaxVarintSize);
    std::memcpy(out_, field.tag, sizeof(field.tag));
    out_ += field.tag_size;
    const size_t begin = Offset();
    out_ += field.length_size;
    return begin;
  }

  void EndDelimited(const FieldEntry& field, size_t begin) {
    const size_t length = Offset() - begin - field.length_size;
    const size_t size = VarintSize(length);
    if (size != field.length_size) {
      Reserve(kMaxVarintSize);
      std::memmove(begin_ + begin + size, begin_ + begin + field.length_size, length);
      out_ = begin_ + begin + size + length;
      field.length_size = static_cast<uint8_t>(size);
    }
    WriteVarint(length, begin_ + begin);
  }

  /// At the "{" of an object: appends the bytes of the message, its fields in field-number order.
  bool EncodeMessage(const MessageTable& table) {
    if (*p_ != '{') return false;
    p_ = SkipBlanks(p_ + 1);
    const size_t message_begin = Offset();
    const size_t first_part = transcoder_.spans_.size();
    SeenFields seen(table.fields.size());
    size_t materialized_count = 0;
    size_t required_count = 0;
    int32_t last_number = 0;
    bool in_order = true;
    if (*p_ == '}') {
      ++p_;
    } else {
      for (size_t next = 0;; ++next) {
        if (!ReadKey(table, &next)) return false;
        const FieldEntry& field = table.fields[next];
        if (seen.Test(next)) return false;
        seen.Set(next);
        const size_t begin = Offset();
        const bool complete = transcoder_.complete_;
        if (!EncodeField(field)) return false;
        if (field.required) {
          ++required_count;
        } else {
          transcoder_.complete_ = complete;  // rules may be incomplete
        }
        if (field.pruned) {
          out_ = begin_ + begin;
        } else if (Offset() != begin) {
          transcoder_.spans_.push_back({field.number, begin, Offset()});
          in_order = in_order && field.number > last_number;
          last_number = field.number;
          materialized_count += field.materialized ? 1 : 0;
        }
        p_ = SkipBlanks(p_);
        if (*p_ == '}') {
          ++p_;
          break;
        }
        if (*p_ != ',') return false;
        p_ = SkipBlanks(p_ + 1);
      }
    }
    if (required_count != table.required_count) transcoder_.complete_ = false;
    if (!in_order || materialized_count != table.materialized_count) Rearrange(table, seen, message_begin, first_part);
    transcoder_.spans_.resize(first_part);
    return true;
  }

  /// Sorts the fields of a message by number, inserting those that pruning creates.
  void Rearrange(const MessageTable& table, const SeenFields& seen, size_t message_begin, size_t first_part) {
    std::vector<std::pair<int32_t, std::string_view>> parts;
    for (size_t i = first_part; i < transcoder_.spans_.size(); ++i) {
      const FieldSpan& part = transcoder_.spans_[i];
      parts.emplace_back(part.number, std::string_view(begin_ + part.begin, part.end - part.begin));
    }
    for (size_t i = 0; i < table.fields.size(); ++i) {
      const FieldEntry& field = table.fields[i];
      if (field.materialized && !seen.Test(i)) parts.emplace_back(field.number, field.default_bytes);
    }
    std::sort(parts.begin(), parts.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::string& arranged = transcoder_.scratch_;
    arranged.clear();
    for (const auto& part : parts) arranged += part.second;
    out_ = begin_ + message_begin;
    Append(arranged.data(), arranged.size());
  }

  /// Reads a key and its colon; `index` is the field that usually comes here, and on return the one that does.
  bool ReadKey(const MessageTable& table, size_t* index) {
    if (*index < table.fields.size()) {
      const FieldEntry& field = table.fields[*index];
      const std::string& usual = field.quoted_name;
      if (field.name_is_key && static_cast<size_t>(text_end_ - p_) >= usual.size() &&
          std::memcmp(p_, usual.data(), usual.size()) == 0) {
        p_ = SkipBlanks(p_ + usual.size());
        transcoder_.names_seen_[field.name_id] = 1;
        return true;
      }
    }
    RawString raw;
    p_ = ReadString(p_, &raw);
    if (p_ == nullptr || raw.escaped || !raw.ascii || raw.begin == raw.end) return false;
    const std::string_view key(raw.begin, static_cast<size_t>(raw.end - raw.begin));
    const auto found = table.by_key.find(key);
    if (found == table.by_key.end()) return false;
    *index = found->second;
    const FieldEntry& field = table.fields[*index];
    // A key that is the json_name does not prove that the field's name is in the text.
    if (key == field.name()) transcoder_.names_seen_[field.name_id] = 1;
    p_ = SkipBlanks(p_);
    if (*p_ != ':') return false;
    p_ = SkipBlanks(p_ + 1);
    return true;
  }

  bool EncodeField(const FieldEntry& field) {
    switch (field.kind) {
      case ValueKind::kUnsupported:
        return false;
      case ValueKind::kMessage:
        return field.repeated ? EncodeMessages(field) : EncodeSubmessage(field);
      case ValueKind::kString:
        return field.repeated ? ForEachElement([&] { return EncodeString(field, true); })
                              : EncodeString(field, field.has_presence);
      case ValueKind::kBool:
        return EncodeScalars<ValueKind::kBool>(field);
      case ValueKind::kInt32:
        return EncodeScalars<ValueKind::kInt32>(field);
      case ValueKind::kInt64:
        return EncodeScalars<ValueKind::kInt64>(field);
      case ValueKind::kUint32:
        return EncodeScalars<ValueKind::kUint32>(field);
      case ValueKind::kUint64:
        return EncodeScalars<ValueKind::kUint64>(field);
      case ValueKind::kSint32:
        return EncodeScalars<ValueKind::kSint32>(field);
      case ValueKind::kSint64:
        return EncodeScalars<ValueKind::kSint64>(field);
      case ValueKind::kFixed32:
        return EncodeScalars<ValueKind::kFixed32>(field);
      case ValueKind::kFixed64:
        return EncodeScalars<ValueKind::kFixed64>(field);
      case ValueKind::kSfixed32:
        return EncodeScalars<ValueKind::kSfixed32>(field);
      case ValueKind::kSfixed64:
        return EncodeScalars<ValueKind::kSfixed64>(field);
      case ValueKind::kFloat:
        return EncodeScalars<ValueKind::kFloat>(field);
      case ValueKind::kDouble:
        return EncodeScalars<ValueKind::kDouble>(field);
      case ValueKind::kEnum:
        return EncodeScalars<ValueKind::kEnum>(field);
    }
    return false;
  }

  /// At the "[" of an array: calls `encode_element` for each element.
  template <typename EncodeElement>
  bool ForEachElement(EncodeElement encode_element) {
    if (*p_ != '[') return false;
    p_ = SkipBlanks(p_ + 1);
    if (*p_ == ']') {
      ++p_;
      return true;
    }
    for (;;) {
      if (!encode_element()) return false;
      p_ = SkipBlanks(p_);
      if (*p_ == ']') {
        ++p_;
        return true;
      }
      if (*p_ != ',') return false;
      p_ = SkipBlanks(p_ + 1);
    }
  }

  bool EncodeMessages(const FieldEntry& field) {
    const size_t begin = Offset();
    if (!ForEachElement([&] { return EncodeSubmessage(field); })) return false;
    if (Offset() == begin) transcoder_.complete_ = false;  // there is no element that spells out the fields
    return true;
  }

  bool EncodeSubmessage(const FieldEntry& field) {
    const size_t begin = BeginDelimited(field);
    if (!EncodeMessage(*field.message)) return false;
    EndDelimited(field, begin);
    return true;
  }

  bool EncodeString(const FieldEntry& field, bool write_default) {
    RawString raw;
    p_ = ReadString(p_, &raw);
    if (p_ == nullptr || (!raw.ascii && !IsUtf8(raw.begin, raw.end))) return false;
    std::string_view text(raw.begin, static_cast<size_t>(raw.end - raw.begin));
    if (raw.escaped) {
      if (!Unescape(raw, &transcoder_.scratch_)) return false;
      text = transcoder_.scratch_;
    }
    if (text.empty() && !write_default) return true;
    Reserve(field.tag_size + kMaxVarintSize + text.size());
    std::memcpy(out_, field.tag, sizeof(field.tag));
    out_ = WriteVarint(text.size(), out_ + field.tag_size);
    std::memcpy(out_, text.data(), text.size());
    out_ += text.size();
    return true;
  }

  template <ValueKind kKind>
  bool EncodeScalars(const FieldEntry& field) {
    if (field.packed) return EncodePacked<kKind>(field);
    if (field.repeated) return ForEachElement([&] { return EncodeScalar<kKind>(field, true); });
    return EncodeScalar<kKind>(field, field.has_presence);
  }

  template <ValueKind kKind>
  bool EncodeScalar(const FieldEntry& field, bool write_default) {
    typename Scalar<kKind>::Type value = 0;
    p_ = ReadScalar<kKind>(p_, field, &value);
    if (p_ == nullptr) return false;
    if (!write_default && IsDefault(value)) return true;
    Reserve(sizeof(field.tag) + kMaxVarintSize);
    std::memcpy(out_, field.tag, sizeof(field.tag));
    out_ = WriteScalar<kKind>(value, out_ + field.tag_size);
    return true;
  }

  template <ValueKind kKind>
  bool EncodePacked(const FieldEntry& field) {
    const size_t run = Offset();
    const size_t begin = BeginDelimited(field);
    const size_t values = Offset();
    const bool supported = ForEachElement([&] {
      typename Scalar<kKind>::Type value = 0;
      p_ = ReadScalar<kKind>(p_, field, &value);
      if (p_ == nullptr) return false;
      Reserve(kMaxVarintSize);
      out_ = WriteScalar<kKind>(value, out_);
      return true;
    });
    if (!supported) return false;
    if (Offset() == values) {
      out_ = begin_ + run;  // an empty list leaves nothing on the wire
    } else {
      EndDelimited(field, begin);
    }
    return true;
  }

  JsonTranscoder& transcoder_;
  const char* p_;
  const char* text_end_;
  char* begin_;
  char* out_;
  char* limit_;
};

bool JsonTranscoder::Transcode(const ModuleTable& table, std::string_view text) {
  if (table.root() == nullptr || text.size() > kMaxTextSize) return false;
  names_seen_.assign(table.required_names().size() + 1, 0);
  spans_.clear();
  complete_ = true;
  return TextTranscoder(*this, text).Scan(*table.root());
}

const std::string_view* JsonTranscoder::FindMissingName(const ModuleTable& table, std::string_view text) const {
  const std::vector<std::string_view>& names = table.required_names();
  for (size_t i = 0; i < names.size(); ++i) {
    if (names_seen_[i + 1] == 0 && text.find(names[i]) == std::string_view::npos) return &names[i];
  }
  return nullptr;
}

}  // namespace internal
}  // namespace ZO_TUNING
