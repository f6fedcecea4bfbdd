// Tested by tests/workspace/report_test.cpp.

#include "workspace/report_columns.h"

#include <zlib.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>

namespace zotuning {
namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

constexpr uint8_t kFloatKind = 5, kDoubleKind = 6, kInt64Kind = 7, kUint64Kind = 8, kTextKind = 9;

/// Powers of ten up to this one are exact as doubles, so that a division by them rounds once.
constexpr int kMaxScale = 22;

void WriteHead(uint8_t kind, int scale, size_t count, std::string& bytes) {
  bytes += static_cast<char>(kind);
  bytes += static_cast<char>(scale);
  AppendUint32(count, bytes);
}

/// The lowest `width` bytes of each number, byte by byte.
template <typename BitsAt>
void WritePlanes(size_t count, size_t width, const BitsAt& bits_at, std::string& bytes) {
  const size_t begin = bytes.size();
  bytes.resize(begin + count * width);
  for (size_t i = 0; i < count; ++i) {
    const uint64_t bits = bits_at(i);
    for (size_t k = 0; k < width; ++k) bytes[begin + k * count + i] = static_cast<char>(bits >> (8 * k) & 0xFF);
  }
}

/// Whole numbers with a scale, in as many bytes as the largest needs. False where it needs more than four.
bool WriteScaled(const std::vector<int64_t>& numbers, int scale, std::string& bytes) {
  int64_t low = 0, high = 0;
  for (const int64_t number : numbers) {
    low = std::min(low, number);
    high = std::max(high, number);
  }
  uint8_t width = 1;
  while (width <= 4 && (low < -(int64_t{1} << (8 * width - 1)) || high >= int64_t{1} << (8 * width - 1))) width *= 2;
  if (width > 4) return false;
  WriteHead(width, scale, numbers.size(), bytes);
  WritePlanes(
      numbers.size(), width, [&](size_t i) { return static_cast<uint64_t>(numbers[i]); }, bytes);
  return true;
}

/// The fewest digits that a number reads back from, as a whole number times a power of ten. False for zero with a sign
/// and what is no number.
struct Decimal {
  int64_t digits = 0;
  int exponent = 0;
};

template <typename Real>
bool ToDecimal(Real real, Decimal& decimal) {
  if (!std::isfinite(real) || (real == 0 && std::signbit(real))) return false;
  char text[40];
  const char* end = std::to_chars(text, text + sizeof(text), real, std::chars_format::scientific).ptr;
  const bool negative = text[0] == '-';
  decimal = {};
  const char* at = text + (negative ? 1 : 0);
  for (bool after_point = false; at < end && *at != 'e'; ++at) {
    if (*at == '.') {
      after_point = true;
      continue;
    }
    decimal.digits = decimal.digits * 10 + (*at - '0');
    if (after_point) --decimal.exponent;
  }
  int exponent = 0;
  if (at < end) std::from_chars(at[1] == '+' ? at + 2 : at + 1, end, exponent);
  decimal.exponent += exponent;
  if (negative) decimal.digits = -decimal.digits;
  return true;
}

}  // namespace

void AppendUint32(size_t number, std::string& bytes) {
  for (int k = 0; k < 4; ++k) bytes += static_cast<char>(number >> (8 * k) & 0xFF);
}

void ReportColumn::Append(const Message& message, const FieldDescriptor* field) { AppendElement(message, field, -1); }

void ReportColumn::AppendElement(const Message& message, const FieldDescriptor* field, int index) {
  const google::protobuf::Reflection& of = *message.GetReflection();
  const bool one = index < 0;
  switch (field->cpp_type()) {
    case FieldDescriptor::CPPTYPE_BOOL:
      numbers_.push_back((one ? of.GetBool(message, field) : of.GetRepeatedBool(message, field, index)) ? 1 : 0);
      return;
    case FieldDescriptor::CPPTYPE_ENUM:
      numbers_.push_back(one ? of.GetEnumValue(message, field) : of.GetRepeatedEnumValue(message, field, index));
      return;
    case FieldDescriptor::CPPTYPE_INT32:
      numbers_.push_back(one ? of.GetInt32(message, field) : of.GetRepeatedInt32(message, field, index));
      return;
    case FieldDescriptor::CPPTYPE_UINT32:
      numbers_.push_back(one ? of.GetUInt32(message, field) : of.GetRepeatedUInt32(message, field, index));
      return;
    case FieldDescriptor::CPPTYPE_INT64:
      numbers_.push_back(one ? of.GetInt64(message, field) : of.GetRepeatedInt64(message, field, index));
      return;
    case FieldDescriptor::CPPTYPE_UINT64:
      type_ = Type::kUnsigned;
      numbers_.push_back(
          static_cast<int64_t>(one ? of.GetUInt64(message, field) : of.GetRepeatedUInt64(message, field, index)));
      return;
    case FieldDescriptor::CPPTYPE_FLOAT:
      type_ = Type::kFloat;
      reals_.push_back(
          static_cast<double>(one ? of.GetFloat(message, field) : of.GetRepeatedFloat(message, field, index)));
      return;
    case FieldDescriptor::CPPTYPE_DOUBLE:
      type_ = Type::kDouble;
      reals_.push_back(one ? of.GetDouble(message, field) : of.GetRepeatedDouble(message, field, index));
      return;
    case FieldDescriptor::CPPTYPE_STRING:
      type_ = Type::kText;
      texts_.push_back(one ? of.GetString(message, field) : of.GetRepeatedString(message, field, index));
      return;
    case FieldDescriptor::CPPTYPE_MESSAGE:
      return;
  }
}

size_t ReportColumn::CountOutside(size_t begin, double low, double high) const {
  const auto is_outside = [&](double number) { return !(number >= low && number <= high); };
  size_t count = 0;
  for (size_t i = begin; i < numbers_.size(); ++i) {
    const bool is_unsigned = type_ == Type::kUnsigned;
    count += is_outside(is_unsigned ? static_cast<double>(static_cast<uint64_t>(numbers_[i]))
                                    : static_cast<double>(numbers_[i]));
  }
  for (size_t i = begin; i < reals_.size(); ++i) count += is_outside(reals_[i]);
  return count;
}

/// Most numbers of tuning data have few digits.
bool ReportColumn::WriteDecimals(std::string& bytes) const {
  std::vector<Decimal> decimals(reals_.size());
  int scale = 0;
  for (size_t i = 0; i < reals_.size(); ++i) {
    const bool done = type_ == Type::kFloat ? ToDecimal(static_cast<float>(reals_[i]), decimals[i])
                                            : ToDecimal(reals_[i], decimals[i]);
    scale = std::max(scale, -decimals[i].exponent);
    if (!done || scale > kMaxScale) return false;
  }
  std::vector<int64_t> scaled;
  scaled.reserve(decimals.size());
  for (const Decimal& decimal : decimals) {
    int64_t number = decimal.digits;
    for (int k = decimal.exponent + scale; k > 0 && number != 0; --k) {
      if (std::abs(number) > std::numeric_limits<int32_t>::max()) return false;
      number *= 10;
    }
    scaled.push_back(number);
  }
  return WriteScaled(scaled, scale, bytes);
}

void ReportColumn::Write(std::string& bytes) const {
  switch (type_) {
    case Type::kSigned:
    case Type::kUnsigned: {
      const bool is_unsigned = type_ == Type::kUnsigned;
      // Beyond the range of int64 the bits are those of a negative number.
      const bool has_large =
          is_unsigned && std::any_of(numbers_.begin(), numbers_.end(), [](int64_t n) { return n < 0; });
      if (!has_large && WriteScaled(numbers_, 0, bytes)) return;
      WriteHead(is_unsigned ? kUint64Kind : kInt64Kind, 0, numbers_.size(), bytes);
      WritePlanes(
          numbers_.size(), 8, [&](size_t i) { return static_cast<uint64_t>(numbers_[i]); }, bytes);
      return;
    }
    case Type::kFloat:
    case Type::kDouble: {
      if (WriteDecimals(bytes)) return;
      const bool is_float = type_ == Type::kFloat;
      WriteHead(is_float ? kFloatKind : kDoubleKind, 0, reals_.size(), bytes);
      const auto bits_at = [&](size_t i) {
        uint64_t bits = 0;
        if (is_float) {
          const float real = static_cast<float>(reals_[i]);
          uint32_t word;
          std::memcpy(&word, &real, sizeof(word));
          bits = word;
        } else {
          std::memcpy(&bits, &reals_[i], sizeof(bits));
        }
        return bits;
      };
      WritePlanes(reals_.size(), is_float ? 4 : 8, bits_at, bytes);
      return;
    }
    case Type::kText:
      WriteHead(kTextKind, 0, texts_.size(), bytes);
      for (const std::string& text : texts_) AppendUint32(text.size(), bytes);
      for (const std::string& text : texts_) bytes += text;
      return;
  }
}

std::string PackedText(std::string_view bytes) {
  uLongf size = compressBound(static_cast<uLong>(bytes.size()));
  std::vector<Bytef> compressed(size);
  // Memory is all that it can lack.
  if (compress2(compressed.data(), &size, reinterpret_cast<const Bytef*>(bytes.data()),
                static_cast<uLong>(bytes.size()), Z_BEST_COMPRESSION) != Z_OK) {
    throw std::bad_alloc();
  }
  std::string text;
  text.reserve(size * 16 / 13 + 2);
  const auto digit = [](uint32_t number) {
    // '&' is the 6th of the visible characters, '<' the 28th, '>' the 30th.
    const uint32_t skipped = number < 5 ? 0 : number < 26 ? 1 : number < 27 ? 2 : 3;
    return static_cast<char>('!' + number + skipped);
  };
  uint32_t bits = 0;
  int count = 0;
  const auto write = [&](uint32_t number, bool two) {
    text += digit(number % 91);
    if (two) text += digit(number / 91);
  };
  for (uLongf i = 0; i < size; ++i) {
    bits |= static_cast<uint32_t>(compressed[i]) << count;
    count += 8;
    if (count < 13) continue;
    write(bits & 0x1FFF, true);
    bits >>= 13;
    count -= 13;
  }
  if (count > 0) write(bits, count > 6);
  return text;
}

}  // namespace zotuning
