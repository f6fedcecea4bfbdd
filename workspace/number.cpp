// Tested by tests/workspace/number_test.cpp.

#include "workspace/number.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

#include "workspace/diagnostic.h"

namespace zotuning {
namespace {

using google::protobuf::FieldDescriptor;
__extension__ typedef unsigned __int128 Uint128;

/// mantissa * 10 ^ exponent. The mantissa does not end with a zero, unless it is 0.
struct Decimal {
  bool negative = false;
  Uint128 mantissa = 0;
  int64_t exponent = 0;

  friend bool operator==(const Decimal& a, const Decimal& b) {
    return a.mantissa == b.mantissa && (a.mantissa == 0 || (a.negative == b.negative && a.exponent == b.exponent));
  }
};

bool Scale(Uint128* mantissa, int64_t digits) {
  for (; digits > 0 && *mantissa != 0; --digits) {
    if (__builtin_mul_overflow(*mantissa, Uint128{10}, mantissa)) return false;
  }
  return true;
}

Decimal Normal(Decimal number) {
  while (number.mantissa != 0 && number.mantissa % 10 == 0) {
    number.mantissa /= 10;
    ++number.exponent;
  }
  if (number.mantissa == 0) number = Decimal{};
  return number;
}

/// Nothing for texts that are not numbers, or have more digits than fit.
std::optional<Decimal> ToDecimal(std::string_view text) {
  Decimal number;
  size_t at = 0;
  if (at < text.size() && text[at] == '-') {
    number.negative = true;
    ++at;
  }
  bool digits = false, point = false;
  for (; at < text.size(); ++at) {
    if (text[at] == '.' && digits && !point) {
      point = true;
      continue;
    }
    if (text[at] < '0' || text[at] > '9') break;
    digits = true;
    if (!Scale(&number.mantissa, 1)) return std::nullopt;
    if (__builtin_add_overflow(number.mantissa, static_cast<Uint128>(text[at] - '0'), &number.mantissa)) {
      return std::nullopt;
    }
    if (point) --number.exponent;
  }
  if (!digits) return std::nullopt;
  if (at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
    ++at;
    if (at < text.size() && text[at] == '+') ++at;
    int exponent = 0;
    const auto [end, error] = std::from_chars(text.data() + at, text.data() + text.size(), exponent);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    number.exponent += exponent;
    at = text.size();
  }
  if (at != text.size()) return std::nullopt;
  return Normal(number);
}

std::optional<Decimal> Multiply(Decimal a, const Decimal& b) {
  if (__builtin_mul_overflow(a.mantissa, b.mantissa, &a.mantissa)) return std::nullopt;
  a.negative = a.negative != b.negative;
  a.exponent += b.exponent;
  return Normal(a);
}

std::optional<Decimal> Add(Decimal a, Decimal b) {
  if (a.mantissa == 0) return b;
  if (b.mantissa == 0) return a;
  if (a.exponent < b.exponent) std::swap(a, b);
  if (!Scale(&a.mantissa, a.exponent - b.exponent)) return std::nullopt;
  a.exponent = b.exponent;
  if (a.negative == b.negative) {
    if (__builtin_add_overflow(a.mantissa, b.mantissa, &a.mantissa)) return std::nullopt;
  } else {
    if (a.mantissa < b.mantissa) std::swap(a, b);
    a.mantissa -= b.mantissa;
  }
  return Normal(a);
}

/// The nearest integer, halves away from zero.
Decimal Rounded(Decimal number) {
  Uint128 last = 0;
  for (; number.exponent < 0 && (number.mantissa != 0 || last != 0); ++number.exponent) {
    last = number.mantissa % 10;
    number.mantissa /= 10;
  }
  if (last >= 5) ++number.mantissa;
  if (number.exponent < 0) number.exponent = 0;
  return Normal(number);
}

std::string ToText(const Decimal& number) {
  std::string digits;
  Uint128 rest = number.mantissa;
  do {
    digits.insert(digits.begin(), static_cast<char>('0' + static_cast<int>(rest % 10)));
    rest /= 10;
  } while (rest != 0);
  return (number.negative ? "-" : "") + digits + (number.exponent == 0 ? "" : "e" + std::to_string(number.exponent));
}

/// Infinity if it is too large.
double ToDouble(std::string_view text) {
  double number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  if (result.ec != std::errc::result_out_of_range) return number;
  // Too large or too small: from_chars does not say which.
  const size_t e = text.find_first_of("eE");
  return e != std::string_view::npos && e + 1 < text.size() && text[e + 1] == '-' ? 0.0 : HUGE_VAL;
}

/// As a float holds it; unchanged if no float does.
double Narrow(double number) {
  return std::fabs(number) <= static_cast<double>(std::numeric_limits<float>::max())
             ? static_cast<double>(static_cast<float>(number))
             : number;
}

template <typename T>
std::string Shortest(T number) {
  char digits[64];
  const auto result = std::to_chars(digits, digits + sizeof(digits), number);
  return std::string(digits, result.ptr);
}

std::string_view Unquoted(const JsonValue& value) {
  const std::string_view raw = value.raw();
  return value.is_string() ? raw.substr(1, raw.size() - 2) : raw;
}

/// The limits of an integer type.
struct Limits {
  Uint128 most;        ///< of positive numbers
  Uint128 most_below;  ///< of negative ones
};

std::optional<Limits> LimitsOf(const FieldDescriptor* field) {
  switch (field->cpp_type()) {
    case FieldDescriptor::CPPTYPE_INT32:
      return Limits{std::numeric_limits<int32_t>::max(), Uint128{1} << 31};
    case FieldDescriptor::CPPTYPE_UINT32:
      return Limits{std::numeric_limits<uint32_t>::max(), 0};
    case FieldDescriptor::CPPTYPE_INT64:
      return Limits{std::numeric_limits<int64_t>::max(), Uint128{1} << 63};
    case FieldDescriptor::CPPTYPE_UINT64:
      return Limits{std::numeric_limits<uint64_t>::max(), 0};
    default:
      return std::nullopt;
  }
}

bool IsReal(const FieldDescriptor* field) {
  return field->cpp_type() == FieldDescriptor::CPPTYPE_FLOAT || field->cpp_type() == FieldDescriptor::CPPTYPE_DOUBLE;
}

std::optional<std::string> RealText(double number, const FieldDescriptor* field, std::string* why) {
  std::string text = Shortest(number);
  bool fits = std::isfinite(number);
  if (field->cpp_type() == FieldDescriptor::CPPTYPE_FLOAT) {
    fits = std::fabs(number) <= static_cast<double>(std::numeric_limits<float>::max());
    const float narrow = fits ? static_cast<float>(number) : 0.0F;
    text = Shortest(narrow);
    // It is read as a double, which adds a second rounding.
    if (static_cast<float>(ToDouble(text)) != narrow) text = Shortest(static_cast<double>(narrow));
  }
  if (fits) return text == "-0" ? "-0.0" : text;
  *why = "the result is beyond what a " + std::string(field->cpp_type_name()) + " holds";
  return std::nullopt;
}

}  // namespace

bool IsNumber(std::string_view text) { return ToDecimal(text).has_value(); }

std::optional<std::string> Calculate(const JsonValue& number, Operation operation, std::string_view operand, bool round,
                                     const FieldDescriptor* field, std::string* why) {
  const std::optional<Limits> limits = LimitsOf(field);
  const std::string_view text = Unquoted(number);
  const std::optional<Decimal> right = ToDecimal(operand);
  if ((!limits && !IsReal(field)) || (!number.is_number() && !number.is_string()) || !right) {
    *why = "only numbers can be used in a calculation";
    return std::nullopt;
  }
  std::optional<Decimal> result = ToDecimal(text);
  if (result && result->mantissa == 0 && operation == Operation::kMultiply) return std::string(number.raw());
  if (result) result = operation == Operation::kMultiply ? Multiply(*result, *right) : Add(*result, *right);

  std::optional<std::string> changed;
  if (limits && result && round) result = Rounded(*result);
  if (limits) {
    Uint128 mantissa = result ? result->mantissa : 0;
    if (result && result->exponent < 0) {
      *why = "the result " + Shortest(ToDouble(ToText(*result))) + " is not a whole number, and the field is " +
             field->cpp_type_name() + "; --round rounds to the nearest one";
      return std::nullopt;
    }
    if (!result || result->exponent > 40 || !Scale(&mantissa, result->exponent) ||
        mantissa > (result->negative ? limits->most_below : limits->most)) {
      *why = "the result does not fit " + std::string(field->cpp_type_name());
      return std::nullopt;
    }
    changed = ToText({result->negative, mantissa, 0});
  } else if (result) {
    changed = RealText(ToDouble(ToText(*result)), field, why);
  } else {
    // More digits than the decimal form has, or "NaN" and the like.
    const double left = ToDouble(text);
    const double factor = ToDouble(operand);
    double sink = 0;
    const auto whole = std::from_chars(text.data(), text.data() + text.size(), sink);
    if (whole.ptr != text.data() + text.size() || !std::isfinite(left)) {
      *why = std::string(number.raw()) + " cannot be used in a calculation";
      return std::nullopt;
    }
    changed = RealText(operation == Operation::kMultiply ? left * factor : left + factor, field, why);
  }
  if (!changed) return std::nullopt;
  if (number.is_string()) *changed = '"' + *changed + '"';
  const JsonDocument after("[" + *changed + "]");
  return IsSameScalar(number, *after.root().elements().begin(), field) ? std::string(number.raw()) : changed;
}

bool IsSameScalar(const JsonValue& left, const JsonValue& right, const FieldDescriptor* field) {
  if (left.raw() == right.raw()) return true;
  if (left.is_object() || left.is_array() || right.is_object() || right.is_array()) return false;
  if (IsReal(field) || LimitsOf(field)) {
    const std::string_view a = Unquoted(left), b = Unquoted(right);
    const std::optional<Decimal> x = ToDecimal(a), y = ToDecimal(b);
    if (!x || !y) return a == b;
    if (!IsReal(field)) return *x == *y;
    // A zero with a decimal point or an exponent keeps its sign, an integer zero does not.
    const auto negative_zero = [](std::string_view text) {
      return text[0] == '-' && text.find_first_of(".eE") != std::string_view::npos;
    };
    double m = ToDouble(a), n = ToDouble(b);
    if (field->cpp_type() == FieldDescriptor::CPPTYPE_FLOAT) {
      m = Narrow(m);
      n = Narrow(n);
    }
    return m == n && (m != 0 || negative_zero(a) == negative_zero(b));
  }
  return left.is_string() && right.is_string() && left.String() == right.String();
}

}  // namespace zotuning
