// Tested by tests/transcode/json_lexer_test.cpp.

#include "transcode/json_lexer.h"

namespace ZO_TUNING {
namespace internal {

namespace {

bool IsContinuation(char c) { return (static_cast<unsigned char>(c) & 0xc0) == 0x80; }

/// The value of four hexadecimal digits, or -1.
int32_t ReadHex4(const char* p) {
  int32_t value = 0;
  for (int i = 0; i < 4; ++i) {
    const char c = p[i];
    int digit = 0;
    if (IsDigit(c)) {
      digit = c - '0';
    } else if (c >= 'a' && c <= 'f') {
      digit = c - 'a' + 10;
    } else if (c >= 'A' && c <= 'F') {
      digit = c - 'A' + 10;
    } else {
      return -1;
    }
    value = value * 16 + digit;
  }
  return value;
}

void AppendUtf8(int32_t code, std::string* out) {
  if (code < 0x80) {
    out->push_back(static_cast<char>(code));
  } else if (code < 0x800) {
    out->push_back(static_cast<char>(0xc0 | code >> 6));
    out->push_back(static_cast<char>(0x80 | (code & 0x3f)));
  } else {
    out->push_back(static_cast<char>(0xe0 | code >> 12));
    out->push_back(static_cast<char>(0x80 | (code >> 6 & 0x3f)));
    out->push_back(static_cast<char>(0x80 | (code & 0x3f)));
  }
}

}  // namespace

bool IsUtf8(const char* p, const char* end) {
  while (p < end) {
    const unsigned char lead = static_cast<unsigned char>(*p);
    const std::ptrdiff_t left = end - p;
    if (lead < 0x80) {
      ++p;
    } else if (lead < 0xc2) {
      return false;  // a continuation byte, or an overlong form
    } else if (lead < 0xe0) {
      if (left < 2 || !IsContinuation(p[1])) return false;
      p += 2;
    } else if (lead < 0xf0) {
      if (left < 3 || !IsContinuation(p[1]) || !IsContinuation(p[2])) return false;
      const unsigned char second = static_cast<unsigned char>(p[1]);
      if (lead == 0xe0 && second < 0xa0) return false;  // overlong
      if (lead == 0xed && second > 0x9f) return false;  // a surrogate
      p += 3;
    } else {
      if (lead > 0xf4 || left < 4 || !IsContinuation(p[1]) || !IsContinuation(p[2]) || !IsContinuation(p[3])) {
        return false;
      }
      const unsigned char second = static_cast<unsigned char>(p[1]);
      if (lead == 0xf0 && second < 0x90) return false;  // overlong
      if (lead == 0xf4 && second > 0x8f) return false;  // above U+10FFFF
      p += 4;
    }
  }
  return true;
}

bool Unescape(const RawString& string, std::string* out) {
  out->clear();
  for (const char* p = string.begin; p < string.end;) {
    if (*p != '\\') {
      out->push_back(*p++);
      continue;
    }
    ++p;
    switch (*p++) {
      case '"':
        out->push_back('"');
        break;
      case '\\':
        out->push_back('\\');
        break;
      case '/':
        out->push_back('/');
        break;
      case 'b':
        out->push_back('\b');
        break;
      case 'f':
        out->push_back('\f');
        break;
      case 'n':
        out->push_back('\n');
        break;
      case 'r':
        out->push_back('\r');
        break;
      case 't':
        out->push_back('\t');
        break;
      case 'u': {
        const int32_t code = string.end - p >= 4 ? ReadHex4(p) : -1;
        if (code < 0 || (code >= 0xd800 && code <= 0xdfff)) return false;
        AppendUtf8(code, out);
        p += 4;
        break;
      }
      default:
        return false;
    }
  }
  return true;
}

}  // namespace internal
}  // namespace ZO_TUNING
