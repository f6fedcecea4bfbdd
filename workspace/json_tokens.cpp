// Tested by tests/workspace/json_document_test.cpp.

#include "workspace/json_tokens.h"

#include <algorithm>
#include <charconv>

namespace zotuning {

using ZO_TUNING::internal::LoadWord;
using ZO_TUNING::internal::RawString;
using ZO_TUNING::internal::Repeat;

bool IsStrictNumber(std::string_view number) {
  const auto digits = [&] {
    size_t count = 0;
    while (count < number.size() && IsDigit(number[count])) ++count;
    number.remove_prefix(count);
    return count;
  };
  if (number[0] == '-') number.remove_prefix(1);
  const bool zero_first = !number.empty() && number[0] == '0';
  const size_t count = digits();
  if (count == 0 || (zero_first && count > 1)) return false;
  if (!number.empty() && number[0] == '.') {
    number.remove_prefix(1);
    if (digits() == 0) return false;
  }
  return number.empty() || number[0] == 'e' || number[0] == 'E';
}

bool Vanishes(std::string_view digits) {
  const size_t exponent_at = std::min(digits.find_first_of("eE"), digits.size());
  const std::string_view mantissa = digits.substr(0, exponent_at);
  const size_t first = mantissa.find_first_of("123456789");
  const size_t point = std::min(mantissa.find('.'), mantissa.size());
  if (first == std::string_view::npos) return true;
  // Of the first digit, as a power of ten.
  const long long place = static_cast<long long>(point) - static_cast<long long>(first);
  std::string_view text = digits.substr(std::min(exponent_at + 1, digits.size()));
  if (!text.empty() && text[0] == '+') text.remove_prefix(1);
  long long exponent = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), exponent);
  if (result.ec == std::errc::result_out_of_range) return text[0] == '-';
  constexpr long long kLarge = 1'000'000'000'000;  // no text has so many digits
  return place + std::clamp(exponent, -kLarge, kLarge) < 0;
}

const char* FindLineEnd(const char* p, const char* end) {
  const void* found = std::memchr(p, '\n', static_cast<size_t>(end - p));
  return found == nullptr ? end : static_cast<const char*>(found);
}

const char* FindNumberEnd(const char* p) {
  while (IsNumberSign(*p)) ++p;
  return p;
}

const char* FindStringEnd(const char* p, const char* end) {
  RawString string;
  const char* quick = ZO_TUNING::internal::ReadString(p, &string);
  if (quick != nullptr) return quick;
  const char quote = *p;
  for (++p; p < end; ++p) {
    if (*p == '\\') {
      ++p;
    } else if (*p == quote) {
      return p + 1;
    }
  }
  return nullptr;
}

const char* FindKeyEnd(const char* p, const char* end) {
  if (IsQuote(*p)) return FindStringEnd(p, end);
  while (IsNameStart(*p) || IsDigit(*p)) ++p;
  return p;
}

const char* FindInvalidEnd(const char* p, const char* end) {
  if (IsQuote(*p)) {
    const char quote = *p;
    for (++p; p < end && *p != '\n' && *p != '\r'; ++p) {
      if (*p == quote) return p + 1;
      if (*p == '\\' && p + 1 < end && p[1] != '\n') ++p;
    }
    return std::min(p, end);
  }
  const char* last = p;
  for (; p < end && std::strchr(",{}[]\"'#\n\r", *p) == nullptr; ++p) {
    if (*p == '/' && (p[1] == '/' || p[1] == '*')) break;
    if (*p != ' ' && *p != '\t') last = p + 1;
  }
  return last;
}

UnicodeEscape ReadUnicodeEscape(std::string_view text) {
  const auto hex = [&](size_t at, uint32_t* code) {
    if (text.size() < at + 6 || text[at] != '\\' || text[at + 1] != 'u') return false;
    const char* digits = text.data() + at + 2;
    const auto result = std::from_chars(digits, digits + 4, *code, 16);
    return result.ec == std::errc() && result.ptr == digits + 4;
  };
  UnicodeEscape escape;
  escape.size = 6;
  if (!hex(0, &escape.code)) {
    escape.fault = "four hexadecimal digits are expected after \\u";
  } else if (escape.code >= 0xDC00 && escape.code < 0xE000) {
    escape.fault = "a low surrogate has no high one before it";
  } else if (escape.code >= 0xD800 && escape.code < 0xDC00) {
    uint32_t low = 0;
    if (!hex(6, &low) || low < 0xDC00 || low > 0xDFFF) {
      escape.fault = "a high surrogate needs a low one after it";
    } else {
      escape.code = 0x10000 + ((escape.code - 0xD800) << 10) + (low - 0xDC00);
      escape.size = 12;
    }
  }
  return escape;
}

size_t CharacterLength(const char* p, const char* end) {
  const auto byte = [&](size_t i) -> unsigned { return static_cast<unsigned char>(p[i]); };
  const unsigned first = byte(0);
  if (first < 0x80) return 1;
  const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || static_cast<size_t>(end - p) < length) return 0;
  for (size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  const bool overlong = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xF0 && byte(1) < 0x90);
  const bool outside = (first == 0xED && byte(1) > 0x9F) || (first == 0xF4 && byte(1) > 0x8F);
  return overlong || outside ? 0 : length;
}

const char* FindInvalidUtf8(const char* p, const char* end) {
  while (p < end) {
    if ((LoadWord(p) & Repeat(0x80)) == 0) {
      p += sizeof(uint64_t);
      continue;
    }
    const size_t length = CharacterLength(p, end);
    if (length == 0) return p;
    p += length;
  }
  return end;
}

}  // namespace zotuning
