#include "workspace/scalar_check.h"

#include <google/protobuf/stubs/strutil.h>

#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string_view>
#include <vector>

#include "transcode/json_lexer.h"
#include "workspace/suggest.h"

namespace zotuning {
namespace {

using google::protobuf::EnumDescriptor;
using google::protobuf::FieldDescriptor;
using ZO_TUNING::internal::Integer;

/// The integers of a field's type.
struct IntegerRange {
  uint64_t max;
  uint64_t max_negative;  ///< magnitude of the smallest
};

std::optional<IntegerRange> RangeOf(FieldDescriptor::CppType type) {
  constexpr uint64_t kInt32 = std::numeric_limits<int32_t>::max();
  constexpr uint64_t kInt64 = std::numeric_limits<int64_t>::max();
  switch (type) {
    case FieldDescriptor::CPPTYPE_INT32:
    case FieldDescriptor::CPPTYPE_ENUM:
      return IntegerRange{kInt32, kInt32 + 1};
    case FieldDescriptor::CPPTYPE_INT64:
      return IntegerRange{kInt64, kInt64 + 1};
    case FieldDescriptor::CPPTYPE_UINT32:
      return IntegerRange{std::numeric_limits<uint32_t>::max(), 0};
    case FieldDescriptor::CPPTYPE_UINT64:
      return IntegerRange{std::numeric_limits<uint64_t>::max(), 0};
    default:
      return std::nullopt;
  }
}

std::string RangeText(const std::string& type, const IntegerRange& range) {
  return type + " goes from " + (range.max_negative == 0 ? "0" : "-" + std::to_string(range.max_negative)) + " to " +
         std::to_string(range.max);
}

bool InRange(const Integer& integer, const IntegerRange& range) {
  return integer.magnitude <= (integer.negative ? range.max_negative : range.max);
}

/// The digits of the integer that a number equals, without leading zeros; nothing if it is not an integer.
std::optional<std::string> WholeDigits(std::string_view number) {
  if (!number.empty() && number[0] == '-') number.remove_prefix(1);
  const size_t exponent_at = std::min(number.find_first_of("eE"), number.size());
  long exponent = 0;
  if (exponent_at < number.size()) {
    std::string_view text = number.substr(exponent_at + 1);
    if (!text.empty() && text[0] == '+') text.remove_prefix(1);
    const auto result = std::from_chars(text.data(), text.data() + text.size(), exponent);
    if (result.ec != std::errc()) exponent = text[0] == '-' ? -100000 : 100000;
  }
  std::string digits(number.substr(0, exponent_at));
  const size_t point = digits.find('.');
  if (point != std::string::npos) {
    exponent -= static_cast<long>(digits.size() - point - 1);
    digits.erase(point, 1);
  }
  digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size()));
  while (exponent < 0 && !digits.empty() && digits.back() == '0') {
    digits.pop_back();
    ++exponent;
  }
  if (digits.empty()) return digits;
  if (exponent < 0) return std::nullopt;
  // Longer ones never fit.
  constexpr long kMaxZeros = 400;
  digits.append(static_cast<size_t>(std::min(exponent, kMaxZeros)), '0');
  return digits;
}

/// For numbers that are not plain integers within 64 bits, which protobuf reads as a double first.
std::optional<Misfit> CheckOddInteger(std::string_view number, const std::string& type, const IntegerRange& range) {
  const Misfit rounded{Code::kJsonRange, "it is rounded and packed as a different number; write a whole number"};
  const std::optional<std::string> digits = WholeDigits(number);
  if (!digits) {
    double real = 0;
    std::from_chars(number.data(), number.data() + number.size(), real);
    return std::floor(real) < real ? Misfit{Code::kJsonMisfit, "a whole number is expected"} : rounded;
  }
  Integer integer{0, number[0] == '-'};
  const auto result = std::from_chars(digits->data(), digits->data() + digits->size(), integer.magnitude);
  if ((!digits->empty() && result.ec != std::errc()) || !InRange(integer, range)) {
    return Misfit{Code::kJsonRange, RangeText(type, range)};
  }
  if (number.find_first_of(".eE") == std::string_view::npos) return std::nullopt;
  const double real = static_cast<double>(integer.magnitude);
  const bool exact = real < 18446744073709551616.0 && static_cast<uint64_t>(real) == integer.magnitude;
  if (exact) return std::nullopt;
  return rounded;
}

/// What protobuf's string parser rejects before anything else.
bool HasOuterSpace(std::string_view text) { return !text.empty() && (text.front() == ' ' || text.back() == ' '); }

bool IsIntegerText(FieldDescriptor::CppType type, std::string_view text) {
  const google::protobuf::StringPiece piece(text.data(), text.size());
  if (HasOuterSpace(text)) return false;
  int32_t int32 = 0;
  int64_t int64 = 0;
  uint32_t uint32 = 0;
  uint64_t uint64 = 0;
  switch (type) {
    case FieldDescriptor::CPPTYPE_INT32:
    case FieldDescriptor::CPPTYPE_ENUM:
      return google::protobuf::safe_strto32(piece, &int32);
    case FieldDescriptor::CPPTYPE_UINT32:
      return google::protobuf::safe_strtou32(piece, &uint32);
    case FieldDescriptor::CPPTYPE_INT64:
      return google::protobuf::safe_strto64(piece, &int64);
    default:
      return google::protobuf::safe_strtou64(piece, &uint64);
  }
}

bool IsWord(std::string_view text, std::string_view word) {
  if (text.size() != word.size()) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i] >= 'A' && text[i] <= 'Z' ? static_cast<char>(text[i] - 'A' + 'a') : text[i];
    if (c != word[i]) return false;
  }
  return true;
}

std::optional<Misfit> CheckInteger(const FieldDescriptor* field, const JsonValue& value) {
  const IntegerRange range = *RangeOf(field->cpp_type());
  const char* text = value.text();
  const bool wide =
      field->cpp_type() == FieldDescriptor::CPPTYPE_INT64 || field->cpp_type() == FieldDescriptor::CPPTYPE_UINT64;
  if (value.is_number() || (wide && *text == '"')) {
    Integer integer{0, false};
    const char* end = ZO_TUNING::internal::ReadInteger(value.is_number() ? text : text + 1, &integer);
    if (end != nullptr && InRange(integer, range) && (value.is_number() || *end == '"')) return std::nullopt;
  }
  if (value.is_number()) return CheckOddInteger(value.raw(), TypeName(field), range);
  if (!value.is_string()) return Misfit{Code::kJsonMisfit, "a whole number is expected"};
  const std::string string = value.String();
  if (IsIntegerText(field->cpp_type(), string)) {
    if (wide) return std::nullopt;
    return Misfit{Code::kJsonStringForNumber, "remove the quotes"};
  }
  // Numbers in quotes that are valid except for their size.
  const size_t sign = !string.empty() && string[0] == '-' ? 1 : 0;
  const bool digits = string.size() > sign && string.find_first_not_of("0123456789", sign) == std::string::npos;
  if (digits) return Misfit{Code::kJsonRange, RangeText(TypeName(field), range)};
  return Misfit{Code::kJsonMisfit, "a whole number is expected"};
}

/// Whether a number has neither an exponent nor so many digits that a float could not hold it, or take it for 0.
bool IsShortNumber(const char* p) {
  constexpr std::ptrdiff_t kFloatDigits = 38;
  const char* begin = p;
  if (*p == '-') ++p;
  while (ZO_TUNING::internal::IsDigit(*p)) ++p;
  if (p - begin > kFloatDigits) return false;
  if (*p == '.') {
    for (++p; ZO_TUNING::internal::IsDigit(*p);) ++p;
  }
  return p - begin <= kFloatDigits && *p != 'e' && *p != 'E';
}

/// Whether a number that is not 0 is read as 0.
bool BecomesZero(std::string_view text, double real, bool is_float) {
  if (is_float ? static_cast<float>(real) != 0.0F : real != 0) return false;
  return text.substr(0, text.find_first_of("eE")).find_first_of("123456789") != std::string_view::npos;
}

std::optional<Misfit> CheckReal(const FieldDescriptor* field, const JsonValue& value) {
  const bool is_float = field->cpp_type() == FieldDescriptor::CPPTYPE_FLOAT;
  const auto too_large = [&] {
    return Misfit{Code::kJsonRange, is_float ? "the largest float is 3.4028235e38; \"Infinity\" is accepted"
                                             : "the largest double is 1.7976931348623157e308"};
  };
  const auto too_small = [&] {
    return Misfit{Code::kJsonRange, "it is too small for a " + TypeName(field) + " and packed as 0"};
  };
  if (value.is_number()) {
    if (IsShortNumber(value.text())) return std::nullopt;
    const std::string_view raw = value.raw();
    double real = 0;
    if (ZO_TUNING::internal::ReadReal(raw.data(), &real) == nullptr) {
      std::from_chars(raw.data(), raw.data() + raw.size(), real);
    }
    if (BecomesZero(raw, real, is_float)) return too_small();
    // Any other number that the document accepts is a double.
    if (!is_float) return std::nullopt;
    // Halves that round to less than half the largest float are let through, as protobuf does it.
    const double half = std::fabs(real) * 0.5;
    if (std::fabs(real) <= FLT_MAX || (half < FLT_MAX && static_cast<float>(half) <= FLT_MAX * 0.5F)) {
      return std::nullopt;
    }
    return too_large();
  }
  if (!value.is_string()) return Misfit{Code::kJsonMisfit, "a number is expected"};
  const std::string text = value.String();
  if (text == "NaN" || text == "Infinity" || text == "-Infinity") return std::nullopt;
  for (const std::string_view word : {"nan", "inf", "-inf", "+inf", "infinity", "-infinity", "+infinity", "-nan"}) {
    if (IsWord(text, word)) return Misfit{Code::kJsonMisfit, "\"NaN\", \"Infinity\" and \"-Infinity\" are accepted"};
  }
  double real = 0;
  const google::protobuf::StringPiece piece(text.data(), text.size());
  if (HasOuterSpace(text) || !google::protobuf::safe_strtod(piece, &real)) {
    return Misfit{Code::kJsonMisfit, "a number is expected"};
  }
  if (!(std::fabs(real) <= (is_float ? double{FLT_MAX} : DBL_MAX))) return too_large();
  if (text.find_first_of("xX") == std::string::npos && BecomesZero(text, real, is_float)) return too_small();
  return Misfit{Code::kJsonStringForNumber, "remove the quotes"};
}

std::optional<Misfit> CheckBool(const JsonValue& value) {
  if (value.kind() == JsonKind::kTrue || value.kind() == JsonKind::kFalse) return std::nullopt;
  const std::string text = value.String();
  bool read = false;
  if (value.is_string() && !HasOuterSpace(text) &&
      google::protobuf::safe_strtob(google::protobuf::StringPiece(text.data(), text.size()), &read)) {
    return Misfit{Code::kJsonStringForNumber, read ? "write true, without quotes" : "write false, without quotes"};
  }
  return Misfit{Code::kJsonMisfit, "true or false is expected"};
}

/// The existing values, up to a few lines' worth.
std::string ValueNames(const std::vector<std::string>& names) {
  constexpr size_t kMaxSize = 400;
  std::string text = "the values are ";
  for (size_t i = 0; i < names.size(); ++i) {
    if (text.size() > kMaxSize) return text + ", ... (" + std::to_string(names.size()) + " in all)";
    text += (i == 0 ? "" : ", ") + names[i];
  }
  return text;
}

std::optional<Misfit> CheckEnum(const FieldDescriptor* field, const JsonValue& value) {
  const EnumDescriptor* type = field->enum_type();
  std::string scratch;
  const std::string name(value.String(&scratch));
  if (value.is_string() && type->FindValueByName(name) != nullptr) return std::nullopt;
  std::vector<std::string> names;
  names.reserve(static_cast<size_t>(type->value_count()));
  for (int i = 0; i < type->value_count(); ++i) names.push_back(type->value(i)->name());
  if (value.is_string()) {
    int32_t number = 0;
    if (IsIntegerText(FieldDescriptor::CPPTYPE_ENUM, name) && google::protobuf::safe_strto32(name, &number)) {
      const auto* known = type->FindValueByNumber(number);
      if (known != nullptr) return Misfit{Code::kJsonStringForNumber, "write \"" + known->name() + "\""};
    }
    const std::string nearest = Nearest(name, names);
    return Misfit{Code::kJsonEnum, nearest.empty() ? ValueNames(names) : "did you mean '" + nearest + "'?"};
  }
  if (!value.is_number()) return Misfit{Code::kJsonEnum, ValueNames(names)};
  if (auto misfit = CheckInteger(field, value)) return misfit;
  double number = 0;
  const std::string_view raw = value.raw();
  std::from_chars(raw.data(), raw.data() + raw.size(), number);
  if (type->FindValueByNumber(static_cast<int>(number)) != nullptr) return std::nullopt;
  return Misfit{Code::kJsonEnumNumber, ValueNames(names)};
}

/// Whether a text is base64 in either alphabet, and how its bytes would be written, except for '='s at the end.
bool IsBase64(const std::string& text) {
  using google::protobuf::StringPiece;
  const StringPiece piece(text.data(), text.size());
  const std::string unpadded = text.substr(0, text.find_last_not_of('=') + 1);
  std::string bytes, encoded;
  if (google::protobuf::WebSafeBase64Unescape(piece, &bytes)) {
    google::protobuf::WebSafeBase64Escape(StringPiece(bytes), &encoded);
    return encoded == unpadded;
  }
  if (!google::protobuf::Base64Unescape(piece, &bytes)) return false;
  google::protobuf::Base64Escape(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()),
                                 &encoded, false);
  return encoded == unpadded;
}

std::optional<Misfit> CheckBytes(const JsonValue& value) {
  if (value.is_string() && IsBase64(value.String())) return std::nullopt;
  return Misfit{Code::kJsonMisfit, "bytes are written as base64 in double quotes"};
}

}  // namespace

std::optional<Misfit> CheckScalar(const FieldDescriptor* field, const JsonValue& value) {
  switch (field->cpp_type()) {
    case FieldDescriptor::CPPTYPE_FLOAT:
    case FieldDescriptor::CPPTYPE_DOUBLE:
      return CheckReal(field, value);
    case FieldDescriptor::CPPTYPE_BOOL:
      return CheckBool(value);
    case FieldDescriptor::CPPTYPE_ENUM:
      return CheckEnum(field, value);
    case FieldDescriptor::CPPTYPE_STRING:
      if (field->type() == FieldDescriptor::TYPE_BYTES) return CheckBytes(value);
      if (value.is_string()) return std::nullopt;
      return Misfit{Code::kJsonMisfit, "a string in double quotes is expected"};
    default:
      return CheckInteger(field, value);
  }
}

std::string TypeName(const FieldDescriptor* field) {
  if (field->enum_type() != nullptr) return field->enum_type()->full_name();
  if (field->message_type() != nullptr) return field->message_type()->full_name();
  return field->type_name();
}

}  // namespace zotuning
