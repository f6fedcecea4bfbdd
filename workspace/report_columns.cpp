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
#include <numeric>
#include <utility>

namespace zotuning {
namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

constexpr uint8_t kFloatKind = 5, kDoubleKind = 6, kInt64Kind = 7, kUint64Kind = 8, kTextKind = 9, kReferenceKind = 10,
                  kNearKind = 11, kPackedKind = 0x80;

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

float FloatOf(uint32_t bits) {
  float real;
  std::memcpy(&real, &bits, sizeof(real));
  return real;
}

uint32_t BitsOf(float real) {
  uint32_t bits;
  std::memcpy(&bits, &real, sizeof(bits));
  return bits;
}

/// The place of a float, given by its bits, among all floats in their order.
int64_t OrderOf(uint32_t bits) {
  const auto number = static_cast<int32_t>(bits);
  return number < 0 ? number ^ INT32_MAX : number;
}

/// slope * x + offset. Its product is exact as a double, so that every machine has the same value.
struct Line {
  float slope;
  double offset;
  double At(float x) const { return static_cast<double>(slope) * static_cast<double>(x) + offset; }
};

/// The line that is nearest to the points of two lists.
std::pair<double, double> LeastSquares(const std::vector<float>& x, const std::vector<float>& y) {
  const auto count = static_cast<double>(x.size());
  const double mean_x = std::accumulate(x.begin(), x.end(), 0.0) / count;
  const double mean_y = std::accumulate(y.begin(), y.end(), 0.0) / count;
  double both = 0, square = 0;
  for (size_t i = 0; i < x.size(); ++i) {
    const double from_mean = static_cast<double>(x[i]) - mean_x;
    both += from_mean * (static_cast<double>(y[i]) - mean_y);
    square += from_mean * from_mean;
  }
  const double slope = square > 0 ? both / square : 0;
  return {slope, mean_y - slope * mean_x};
}

}  // namespace

/// The numbers of one column: whole ones, or the bits of others. Signed ones are extended to 64 bits.
struct ReportColumn::Numbers {
  uint8_t kind;
  int scale;
  std::vector<uint64_t> numbers;

  size_t width() const { return kind < kFloatKind ? kind : kind == kFloatKind ? 4 : 8; }
  bool is_signed() const { return kind < kFloatKind || kind == kInt64Kind; }
  void Write(std::string& bytes) const;

  /// Whole numbers with a scale, in as many bytes as the largest needs; nothing where it needs more than four.
  static std::optional<Numbers> Scaled(const std::vector<int64_t>& numbers, int scale);
  /// The numbers as the page reads them, rounded to floats; nothing where one is too large, or not finite.
  std::optional<std::vector<float>> Floats() const;
  /// How far these are above what the line makes of other numbers; nothing where that is too large.
  std::optional<Numbers> Above(const Line& line, const std::vector<float>& other) const;
};

/// In the form that takes fewer bytes in the end.
void ReportColumn::Numbers::Write(std::string& bytes) const {
  const size_t count = numbers.size(), of_each = width();
  std::string planes(count * of_each, '\0');
  for (size_t i = 0; i < count; ++i) {
    for (size_t k = 0; k < of_each; ++k) planes[k * count + i] = static_cast<char>(numbers[i] >> (8 * k) & 0xFF);
  }
  constexpr size_t kFewNumbers = 8;
  if (count > kFewNumbers) {
    const auto [low, high] = std::minmax_element(numbers.begin(), numbers.end(), [&](uint64_t a, uint64_t b) {
      return is_signed() ? static_cast<int64_t>(a) < static_cast<int64_t>(b) : a < b;
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

std::optional<ReportColumn::Numbers> ReportColumn::Numbers::Scaled(const std::vector<int64_t>& numbers, int scale) {
  int64_t low = 0, high = 0;
  for (const int64_t number : numbers) {
    low = std::min(low, number);
    high = std::max(high, number);
  }
  uint8_t width = 1;
  while (width <= 4 && (low < -(int64_t{1} << (8 * width - 1)) || high >= int64_t{1} << (8 * width - 1))) width *= 2;
  if (width > 4) return std::nullopt;
  return Numbers{width, scale, std::vector<uint64_t>(numbers.begin(), numbers.end())};
}

std::optional<std::vector<float>> ReportColumn::Numbers::Floats() const {
  if (kind > kFloatKind) return std::nullopt;
  std::vector<float> floats(numbers.size());
  double power = 1;
  for (int k = 0; k < scale; ++k) power *= 10;
  for (size_t i = 0; i < numbers.size(); ++i) {
    if (kind == kFloatKind) {
      floats[i] = FloatOf(static_cast<uint32_t>(numbers[i]));
      if (!std::isfinite(floats[i])) return std::nullopt;
    } else {
      floats[i] = static_cast<float>(static_cast<double>(static_cast<int64_t>(numbers[i])) / power);
    }
  }
  return floats;
}

std::optional<ReportColumn::Numbers> ReportColumn::Numbers::Above(const Line& line,
                                                                  const std::vector<float>& other) const {
  const bool is_float = kind == kFloatKind;
  const double most = is_float ? static_cast<double>(std::numeric_limits<float>::max()) : 0x1p31;
  std::vector<int64_t> distances(other.size());
  for (size_t i = 0; i < other.size(); ++i) {
    const double near = line.At(other[i]);
    if (!(std::fabs(near) < most)) return std::nullopt;
    if (is_float) {
      distances[i] = OrderOf(static_cast<uint32_t>(numbers[i])) - OrderOf(BitsOf(static_cast<float>(near)));
    } else {
      distances[i] = static_cast<int64_t>(numbers[i]) - static_cast<int64_t>(std::floor(near));
    }
  }
  return Scaled(distances, 0);
}

namespace {

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
std::optional<ReportColumn::Numbers> ReportColumn::Decimals() const {
  std::vector<Decimal> decimals(reals_.size());
  int scale = 0;
  for (size_t i = 0; i < reals_.size(); ++i) {
    const bool done = type_ == Type::kFloat ? ToDecimal(static_cast<float>(reals_[i]), decimals[i])
                                            : ToDecimal(reals_[i], decimals[i]);
    scale = std::max(scale, -decimals[i].exponent);
    if (!done || scale > kMaxScale) return std::nullopt;
  }
  std::vector<int64_t> scaled;
  scaled.reserve(decimals.size());
  for (const Decimal& decimal : decimals) {
    int64_t number = decimal.digits;
    for (int k = decimal.exponent + scale; k > 0 && number != 0; --k) {
      if (std::abs(number) > std::numeric_limits<int32_t>::max()) return std::nullopt;
      number *= 10;
    }
    // More digits than a float has bits: its own bits are fewer.
    if (type_ == Type::kFloat && std::abs(number) > 1 << 24) return std::nullopt;
    scaled.push_back(number);
  }
  return Numbers::Scaled(scaled, scale);
}

ReportColumn::Numbers ReportColumn::ToNumbers() const {
  if (type_ == Type::kFloat || type_ == Type::kDouble) {
    if (auto decimals = Decimals()) return *std::move(decimals);
    const bool is_float = type_ == Type::kFloat;
    std::vector<uint64_t> bits(reals_.size());
    for (size_t i = 0; i < reals_.size(); ++i) {
      if (is_float) {
        bits[i] = BitsOf(static_cast<float>(reals_[i]));
      } else {
        std::memcpy(&bits[i], &reals_[i], sizeof(reals_[i]));
      }
    }
    return {is_float ? kFloatKind : kDoubleKind, 0, std::move(bits)};
  }
  const bool is_unsigned = type_ == Type::kUnsigned;
  // Beyond the range of int64 the bits are those of a negative number.
  const bool has_large = is_unsigned && std::any_of(numbers_.begin(), numbers_.end(), [](int64_t n) { return n < 0; });
  if (!has_large) {
    if (auto scaled = Numbers::Scaled(numbers_, 0)) return *std::move(scaled);
  }
  return {is_unsigned ? kUint64Kind : kInt64Kind, 0, std::vector<uint64_t>(numbers_.begin(), numbers_.end())};
}

void ReportColumn::Write(std::string& bytes) const {
  if (type_ != Type::kText) {
    ToNumbers().Write(bytes);
    return;
  }
  WriteHead(kTextKind, 0, texts_.size(), bytes);
  for (const std::string& text : texts_) AppendUint32(text.size(), bytes);
  for (const std::string& text : texts_) bytes += text;
}

void ReportColumn::WriteBeside(const ReportColumn& other, size_t place, std::string& bytes) const {
  constexpr size_t kFewNumbers = 16;
  std::string best;
  Write(best);
  if (type_ == Type::kText || other.type_ == Type::kText || size() != other.size() || size() <= kFewNumbers) {
    bytes += best;
    return;
  }
  const Numbers own = ToNumbers();
  const auto from = other.ToNumbers().Floats(), to = own.Floats();
  if (!from || !to) {
    bytes += best;
    return;
  }
  const bool is_float = own.kind == kFloatKind;
  double power = 1;
  for (int k = 0; k < own.scale; ++k) power *= 10;
  size_t least = Deflated(best, Z_BEST_SPEED).size();
  const auto look = [&](const Line& line) {
    const auto above = own.Above(line, *from);
    if (!above) return;
    std::string near;
    WriteHead(kNearKind, own.scale, place, near);
    near += static_cast<char>(own.kind);
    AppendUint32(BitsOf(line.slope), near);
    uint64_t offset;
    std::memcpy(&offset, &line.offset, sizeof(offset));
    AppendUint32(offset & 0xFFFFFFFF, near);
    AppendUint32(offset >> 32, near);
    above->Write(near);
    const size_t size = Deflated(near, Z_BEST_SPEED).size();
    if (size >= least) return;
    least = size;
    best = std::move(near);
  };
  const double half = is_float ? 0 : 0.5;  // what is rounded down is rounded to the nearest
  look({static_cast<float>(power), half});
  const auto [slope, offset] = LeastSquares(*from, *to);
  look({static_cast<float>(slope * power), offset * power + half});
  bytes += best;
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
