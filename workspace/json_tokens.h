/// \file
/// Tokens of JSON as protobuf's parser takes them. All functions read in a text that is followed by zero bytes. For the
/// reader of documents and the documents themselves.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "transcode/json_lexer.h"

namespace zotuning {

inline bool IsNameStart(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == '$'; }
inline bool IsQuote(char c) { return c == '"' || c == '\''; }
inline bool IsDigit(char c) { return ZO_TUNING::internal::IsDigit(c); }

/// What protobuf's parser takes for a part of a number.
inline bool IsNumberSign(char c) {
  return IsDigit(c) || c == '.' || c == 'e' || c == 'E' || c == '+' || c == '-' || c == 'x';
}

/// Spaces to protobuf's parser but not to JSON, and what begins comments, conflict markers and zero bytes.
inline bool MayBeOddSpace(char c) {
  switch (c) {
    case '\0':
    case '\v':
    case '\f':
    case '/':
    case '#':
    case '<':
    case '=':
    case '>':
    case '|':
      return true;
    default:
      return false;
  }
}

inline const char* SkipDigits(const char* p) {
  for (;;) {
    const uint64_t values = ZO_TUNING::internal::LoadWord(p) ^ ZO_TUNING::internal::Repeat('0');
    // The lowest top bit stands at the first byte that is no digit.
    const uint64_t others = (values | (values + ZO_TUNING::internal::Repeat(0x76))) & ZO_TUNING::internal::Repeat(0x80);
    if (others != 0) return p + ZO_TUNING::internal::FirstByte(others);
    p += sizeof(values);
  }
}

/// The end of a number of strict JSON that a double can hold, or null for any other text.
inline const char* SkipNumber(const char* p) {
  constexpr std::ptrdiff_t kMaxDigits = 200;  // with an exponent of two digits, less than the largest double
  if (*p == '-') ++p;
  const char* digits = p;
  p = SkipDigits(p);
  const std::ptrdiff_t count = p - digits;
  if (count == 0 || count > kMaxDigits || (*digits == '0' && count > 1)) return nullptr;
  if (*p == '.') {
    const char* fraction = ++p;
    p = SkipDigits(p);
    if (p == fraction) return nullptr;
  }
  if (*p == 'e' || *p == 'E') {
    ++p;
    if (*p == '+' || *p == '-') ++p;
    const char* exponent = p;
    p = SkipDigits(p);
    if (p == exponent || p - exponent > 2) return nullptr;
  }
  // Most numbers end before a comma, a line end or a bracket.
  return *p == ',' || (!IsNumberSign(*p) && !IsNameStart(*p)) ? p : nullptr;
}

/// Whether JSON knows this form of a number.
bool IsStrictNumber(std::string_view number);

/// Whether a number that a double cannot hold, given without its sign, is too small rather than too large.
bool Vanishes(std::string_view digits);

// Ends of tokens, from their first character on.
const char* FindNumberEnd(const char* p);
/// After the closing quote, or null when there is none before `end`.
const char* FindStringEnd(const char* p, const char* end);
const char* FindKeyEnd(const char* p, const char* end);
/// Of what stands where a value should: to the next sign that may follow a value, or the end of the line.
const char* FindInvalidEnd(const char* p, const char* end);
const char* FindLineEnd(const char* p, const char* end);

/// A \uXXXX or a pair of them.
struct UnicodeEscape {
  uint32_t code = 0;
  size_t size = 0;
  const char* fault = nullptr;  ///< what is wrong with it
};
UnicodeEscape ReadUnicodeEscape(std::string_view text);

/// Bytes of the UTF-8 character at `p`, 0 when it is none.
size_t CharacterLength(const char* p, const char* end);
/// The first byte from `p` on that is no part of UTF-8 text, or `end`.
const char* FindInvalidUtf8(const char* p, const char* end);

inline bool StartsWith(const char* p, std::string_view start) {
  return std::memcmp(p, start.data(), start.size()) == 0;
}

}  // namespace zotuning
