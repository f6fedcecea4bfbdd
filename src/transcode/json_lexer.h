/// \file
/// The strict lexer of the fast path. Every function reads at `p`, in a text that ends with zero bytes, and returns the
/// position after what it read, or null if the token is unsupported.
#pragma once

#include <fast_float/fast_float.h>

#include <cfloat>
#include <cstdint>
#include <cstring>
#include <string>

namespace ZO_TUNING {
namespace internal {

inline uint64_t LoadWord(const char* p) {
  uint64_t word;
  std::memcpy(&word, p, sizeof(word));
  return word;
}

/// A word of eight bytes with the value `byte`.
constexpr uint64_t Repeat(uint8_t byte) { return byte * UINT64_C(0x0101010101010101); }

/// Index of the lowest byte whose top bit is set in the mask; the lowest byte is the first of the text.
inline int FirstByte(uint64_t top_bits) { return __builtin_ctzll(top_bits) >> 3; }

/// The first character that is not whitespace.
inline const char* SkipBlanks(const char* p) {
  if (static_cast<unsigned char>(*p) > ' ') return p;
  if (*p == ' ' && static_cast<unsigned char>(p[1]) > ' ') return p + 1;
  for (;;) {
    if (*p == '\n') ++p;
    // Runs of whitespace, as in indentation.
    for (uint64_t other = LoadWord(p) ^ Repeat(' ');; other = LoadWord(p) ^ Repeat(' ')) {
      if (other != 0) {
        p += __builtin_ctzll(other) >> 3;
        break;
      }
      p += sizeof(other);
    }
    if (static_cast<unsigned char>(*p) > ' ') return p;
    if (*p == '\r' || *p == '\t') {
      ++p;
    } else if (*p != '\n') {
      return p;  // the end of the text, or a control character
    }
  }
}

inline bool IsDigit(char c) { return static_cast<unsigned char>(c - '0') < 10; }

/// The number that eight digit values form, the first of them in the lowest byte.
inline uint32_t EightDigits(uint64_t values) {
  values = values * 10 + (values >> 8);
  const uint64_t low = (values & UINT64_C(0x000000ff000000ff)) * UINT64_C(0x000f424000000064);
  const uint64_t high = ((values >> 16) & UINT64_C(0x000000ff000000ff)) * UINT64_C(0x0000271000000001);
  return static_cast<uint32_t>((low + high) >> 32);
}

/// Appends digits to `value`, which wraps if there are too many: callers limit their number. Eight at a time and
/// without a branch per digit, since a processor cannot predict how many there are.
inline const char* ReadDigits(const char* p, uint64_t* value) {
  static constexpr uint32_t kPowers[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000};
  for (;;) {
    const uint64_t values = LoadWord(p) ^ Repeat('0');
    // The lowest top bit is at the first byte that is not a digit.
    const uint64_t others = (values | (values + Repeat(0x76))) & Repeat(0x80);
    if (others == 0) {
      *value = *value * 100000000 + EightDigits(values);
      p += sizeof(values);
      continue;
    }
    const int count = FirstByte(others);
    // Leading zeros do not change the number. Two shifts, since one by 64 is undefined.
    const uint64_t aligned = values << (56 - 8 * count) << 8;
    *value = *value * kPowers[count] + EightDigits(aligned);
    return p + count;
  }
}

/// The number of decimal digits that 64 bits can hold, whatever the digits are.
constexpr std::ptrdiff_t kMaxDigits = 19;

constexpr uint64_t kTenTo19 = UINT64_C(10000000000000000000);

/// An integer in JSON syntax, without fraction or exponent. "-0" is unsupported.
struct Integer {
  uint64_t magnitude;
  bool negative;
};

inline const char* ReadInteger(const char* p, Integer* integer) {
  integer->negative = *p == '-';
  if (integer->negative) ++p;
  const char* digits = p;
  integer->magnitude = 0;
  p = ReadDigits(p, &integer->magnitude);
  const std::ptrdiff_t count = p - digits;
  if (count == 0 || (*digits == '0' && (count > 1 || integer->negative))) return nullptr;
  if (count > kMaxDigits) {
    // Of 20-digit numbers, only those of 1 to 1.8 times 10^19 fit; larger ones starting with 1 wrap to far less than
    // 10^19.
    const bool fits = count == kMaxDigits + 1 && *digits == '1' && integer->magnitude >= kTenTo19;
    if (!fits) return nullptr;
  }
  if (*p == '.' || *p == 'e' || *p == 'E') return nullptr;
  return p;
}

/// A number as a double, correctly rounded. Integers that a double cannot hold exactly are unsupported, and so is "-0",
/// which protobuf reads as an integer without a sign.
inline const char* ReadReal(const char* p, double* real) {
  static constexpr double kPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                       1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
  constexpr uint64_t kMaxExact = UINT64_C(1) << 53;
  const char* begin = p;
  const bool negative = *p == '-';
  if (negative) ++p;
  const char* digits = p;
  uint64_t mantissa = 0;
  p = ReadDigits(p, &mantissa);
  std::ptrdiff_t count = p - digits;
  if (count == 0 || (*digits == '0' && count > 1)) return nullptr;
  std::ptrdiff_t fraction_count = 0;
  if (*p == '.') {
    const char* fraction = ++p;
    p = ReadDigits(p, &mantissa);
    fraction_count = p - fraction;
    if (fraction_count == 0) return nullptr;
    count += fraction_count;
  } else if (*p != 'e' && *p != 'E') {
    if (count > kMaxDigits || mantissa > kMaxExact || (negative && mantissa == 0)) return nullptr;
    const double value = static_cast<double>(mantissa);
    *real = negative ? -value : value;
    return p;
  }
  const bool has_exponent = *p == 'e' || *p == 'E';
  if (has_exponent) {
    ++p;
    if (*p == '+' || *p == '-') ++p;
    if (!IsDigit(*p)) return nullptr;
    while (IsDigit(*p)) ++p;
  } else if (count <= kMaxDigits && mantissa <= kMaxExact &&
             fraction_count < static_cast<std::ptrdiff_t>(sizeof(kPowers) / sizeof(kPowers[0]))) {
    // Both operands are exact, so the only rounding is that of the division.
    const double value = static_cast<double>(mantissa) / kPowers[fraction_count];
    *real = negative ? -value : value;
    return p;
  }
  const auto result = fast_float::from_chars(begin, p, *real);
  // What is out of range comes back as infinity, in some versions without an error.
  const bool finite = *real >= -DBL_MAX && *real <= DBL_MAX;
  return result.ec == std::errc() && result.ptr == p && finite ? p : nullptr;
}

/// Whether the bytes are valid UTF-8: shortest forms only, no surrogates, nothing above U+10FFFF.
bool IsUtf8(const char* p, const char* end);

/// A string without its quotes, still escaped.
struct RawString {
  const char* begin;
  const char* end;
  bool escaped;  ///< contains backslashes
  bool ascii;    ///< contains no byte above 0x7f
};

/// Reads a quoted string. Control characters in it are unsupported. Non-ASCII bytes are not checked.
inline const char* ReadString(const char* p, RawString* string) {
  if (*p != '"') return nullptr;
  string->begin = ++p;
  string->escaped = false;
  string->ascii = true;
  for (;;) {
    const uint64_t word = LoadWord(p);
    const uint64_t quote = word ^ Repeat('"');
    const uint64_t backslash = word ^ Repeat('\\');
    // The lowest top bit of each of these masks is a true match; higher ones may not be.
    const uint64_t hits = (((quote - Repeat(1)) & ~quote) | ((backslash - Repeat(1)) & ~backslash) |
                           ((word - Repeat(' ')) & ~word) | word) &
                          Repeat(0x80);
    if (hits == 0) {
      p += sizeof(word);
      continue;
    }
    p += FirstByte(hits);
    if (*p == '"') {
      string->end = p;
      return p + 1;
    }
    if (*p == '\\') {
      string->escaped = true;
      ++p;
      if (static_cast<unsigned char>(*p) < ' ') return nullptr;
    } else if (static_cast<unsigned char>(*p) < ' ') {
      return nullptr;
    } else {
      string->ascii = false;
    }
    ++p;
  }
}

/// Replaces `out` with the unescaped string. False for unsupported escapes: surrogates and those that are not JSON.
bool Unescape(const RawString& string, std::string* out);

}  // namespace internal
}  // namespace ZO_TUNING
