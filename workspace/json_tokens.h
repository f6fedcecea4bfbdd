/// \file
/// The tokens of JSON as protobuf's parser reads them. All functions expect zero bytes after the text. For documents
/// and their reader.
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

/// What protobuf's parser accepts as part of a number.
inline bool IsNumberSign(char c) {
  return IsDigit(c) || c == '.' || c == 'e' || c == 'E' || c == '+' || c == '-' || c == 'x';
}

/// Whitespace to protobuf's parser but not to JSON, and what starts comments, conflict markers and zero bytes.
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
    // The lowest top bit is at the first byte that is not a digit.
    const uint64_t others = (values | (values + ZO_TUNING::internal::Repeat(0x76))) & ZO_TUNING::internal::Repeat(0x80);
    if (others != 0) return p + ZO_TUNING::internal::FirstByte(others);
    p += sizeof(values);
  }
}

/// The end of a strict JSON number that a double can hold, or null for any other text.
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
  // Most numbers are followed by a comma, a line ending or a bracket.
  return *p == ',' || (!IsNumberSign(*p) && !IsNameStart(*p)) ? p : nullptr;
}

/// Whether this form of a number is valid JSON.
bool IsStrictNumber(std::string_view number);

/// Whether a number that a double cannot hold, given without its sign, is too small rather than too large.
bool Vanishes(std::string_view digits);

// Ends of tokens, from their first character on.
const char* FindNumberEnd(const char* p);
/// After the closing quote, or null if there is none before `end`.
const char* FindStringEnd(const char* p, const char* end);
const char* FindKeyEnd(const char* p, const char* end);
/// The end of text in place of a value: the next character that may follow a value, or the end of the line.
const char* FindInvalidEnd(const char* p, const char* end);
const char* FindLineEnd(const char* p, const char* end);

/// A \uXXXX escape or a pair of them.
struct UnicodeEscape {
  uint32_t code = 0;
  size_t size = 0;
  const char* fault = nullptr;  ///< what is wrong with it
};
UnicodeEscape ReadUnicodeEscape(std::string_view text);

/// Number of bytes of the UTF-8 character at `p`, 0 if it is invalid.
size_t CharacterLength(const char* p, const char* end);
/// The first byte from `p` on that is not valid UTF-8, or `end`.
const char* FindInvalidUtf8(const char* p, const char* end);

inline bool StartsWith(const char* p, std::string_view start) {
  return std::memcmp(p, start.data(), start.size()) == 0;
}

}  // namespace zotuning
