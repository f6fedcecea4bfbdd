// Tested by tests/workspace/report_test.cpp.

#include "workspace/report_columns.h"

#include <google/protobuf/stubs/strutil.h>
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

constexpr uint8_t kFloatKind = 5, kDoubleKind = 6, kInt64Kind = 7, kUint64Kind = 8, kTextKind = 9, kReferenceKind = 10,
                  kPackedKind = 0x80;

/// Powers of ten up to this one are exact as doubles, so that a division by them rounds once.
constexpr int kMaxScale = 22;

void WriteHead(uint8_t kind, int scale, size_t count, std::string& bytes) {
  bytes += static_cast<char>(kind);
  bytes += static_cast<char>(scale);
  AppendUint32(count, bytes);
}

std::vector<Bytef> Deflated(std::string_view bytes, int level) {
  uLongf size = compressBound(static_cast<uLong>(bytes.size()));
  std::vector<Bytef> compressed(size);
  // Lack of memory is the only possible failure.
  if (compress2(compressed.data(), &size, reinterpret_cast<const Bytef*>(bytes.data()),
                static_cast<uLong>(bytes.size()), level) != Z_OK) {
    throw std::bad_alloc();
  }
  compressed.resize(size);
  return compressed;
}

/// The lowest bits of numbers, packed one after the other.
std::string PackedBits(const std::vector<uint64_t>& numbers, uint64_t low, int width) {
  std::string bytes((numbers.size() * static_cast<size_t>(width) + 7) / 8, '\0');
  size_t at = 0;
  for (const uint64_t number : numbers) {
    for (int done = 0; done < width;) {
      const int count = std::min(width - done, 8 - static_cast<int>(at % 8));
      const auto part = static_cast<unsigned>((number - low) >> done & ((1u << count) - 1));
      bytes[at / 8] = static_cast<char>(static_cast<unsigned char>(bytes[at / 8]) | part << (at % 8));
      at += static_cast<size_t>(count);
      done += count;
    }
  }
  return bytes;
}

/// Numbers of `width` bytes each, in the form that ends up smaller. Signed ones are extended to 64 bits.
void WriteNumbers(uint8_t kind, int scale, size_t width, const std::vector<uint64_t>& numbers, bool is_signed,
                  std::string& bytes) {
  const size_t count = numbers.size();
  std::string planes(count * width, '\0');
  for (size_t i = 0; i < count; ++i) {
    for (size_t k = 0; k < width; ++k) planes[k * count + i] = static_cast<char>(numbers[i] >> (8 * k) & 0xFF);
  }
  constexpr size_t kFewNumbers = 8;
  if (count > kFewNumbers) {
    const auto [low, high] = std::minmax_element(numbers.begin(), numbers.end(), [&](uint64_t a, uint64_t b) {
      return is_signed ? static_cast<int64_t>(a) < static_cast<int64_t>(b) : a < b;
    });
    int bits = 0;
    while (bits < 64 && (*high - *low) >> bits != 0) ++bits;
    // What looks random does not compress any further.
    if ((count * static_cast<size_t>(bits) + 7) / 8 + 9 < Deflated(planes, Z_BEST_SPEED).size()) {
      WriteHead(kind | kPackedKind, scale, count, bytes);
      AppendUint32(*low & 0xFFFFFFFF, bytes);
      AppendUint32(*low >> 32, bytes);
      bytes += static_cast<char>(bits);
      bytes += PackedBits(numbers, *low, bits);
      return;
    }
  }
  WriteHead(kind, scale, count, bytes);
  bytes += planes;
}

/// Integers with a scale, in as many bytes as the largest needs. False if it needs more than four.
bool WriteScaled(const std::vector<int64_t>& numbers, int scale, std::string& bytes) {
  int64_t low = 0, high = 0;
  for (const int64_t number : numbers) {
    low = std::min(low, number);
    high = std::max(high, number);
  }
  uint8_t width = 1;
  while (width <= 4 && (low < -(int64_t{1} << (8 * width - 1)) || high >= int64_t{1} << (8 * width - 1))) width *= 2;
  if (width > 4) return false;
  WriteNumbers(width, scale, width, std::vector<uint64_t>(numbers.begin(), numbers.end()), true, bytes);
  return true;
}

/// The fewest digits from which a number reads back, as an integer times a power of ten. False for negative zero and
/// what is not a number.
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

void AppendReference(size_t place, std::string& bytes) { WriteHead(kReferenceKind, 0, place, bytes); }

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
      if (field->type() == FieldDescriptor::TYPE_BYTES) {
        // As JSON has them.
        std::string text;
        google::protobuf::Base64Escape(texts_.back(), &text);
        texts_.back() = std::move(text);
      }
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
    // With more digits than a float has bits, its own bits are smaller.
    if (type_ == Type::kFloat && std::abs(number) > 1 << 24) return false;
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
      WriteNumbers(is_unsigned ? kUint64Kind : kInt64Kind, 0, 8,
                   std::vector<uint64_t>(numbers_.begin(), numbers_.end()), !is_unsigned, bytes);
      return;
    }
    case Type::kFloat:
    case Type::kDouble: {
      if (WriteDecimals(bytes)) return;
      const bool is_float = type_ == Type::kFloat;
      std::vector<uint64_t> bits(reals_.size());
      for (size_t i = 0; i < reals_.size(); ++i) {
        const float real = static_cast<float>(reals_[i]);
        if (is_float) {
          std::memcpy(&bits[i], &real, sizeof(real));
        } else {
          std::memcpy(&bits[i], &reals_[i], sizeof(reals_[i]));
        }
      }
      WriteNumbers(is_float ? kFloatKind : kDoubleKind, 0, is_float ? 4 : 8, bits, false, bytes);
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
  const std::vector<Bytef> compressed = Deflated(bytes, Z_BEST_COMPRESSION);
  std::string text;
  text.reserve(compressed.size() * 16 / 13 + 2);
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
  for (const Bytef byte : compressed) {
    bits |= static_cast<uint32_t>(byte) << count;
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
