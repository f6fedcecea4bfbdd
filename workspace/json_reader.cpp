// Tested by tests/workspace/json_document_test.cpp.

#include "workspace/json_reader.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "transcode/json_lexer.h"

namespace zotuning {
namespace {

using ZO_TUNING::internal::FirstByte;
using ZO_TUNING::internal::IsDigit;
using ZO_TUNING::internal::LoadWord;
using ZO_TUNING::internal::RawString;
using ZO_TUNING::internal::Repeat;
using ZO_TUNING::internal::SkipBlanks;

constexpr uint32_t kMark = 0x80000000;

// After so many errors the rest of a text is not read.
constexpr size_t kMaxErrors = 1000;

// Protobuf's parser counts objects, not lists.
constexpr size_t kMaxObjectDepth = 100;

// A fault lets this many words onto the tape that the brackets, commas and colons of the text do not account for.
constexpr size_t kWordsPerFault = 8;

bool IsNameStart(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == '$'; }
bool IsQuote(char c) { return c == '"' || c == '\''; }

/// What protobuf's parser takes for a part of a number.
bool IsNumberSign(char c) { return IsDigit(c) || c == '.' || c == 'e' || c == 'E' || c == '+' || c == '-' || c == 'x'; }

/// Spaces to protobuf's parser but not to JSON, and what begins comments, conflict markers and zero bytes.
bool MayBeOddSpace(char c) {
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
    const uint64_t values = LoadWord(p) ^ Repeat('0');
    // The lowest top bit stands at the first byte that is no digit.
    const uint64_t others = (values | (values + Repeat(0x76))) & Repeat(0x80);
    if (others != 0) return p + FirstByte(others);
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

/// Whether a number that a double cannot hold is too small rather than too large.
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

/// Bytes of the UTF-8 character at `p`, 0 when it is none.
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

/// The first byte from `p` on that is no part of UTF-8 text, or `end`.
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

const char* FindLineEnd(const char* p, const char* end) {
  const void* found = std::memchr(p, '\n', static_cast<size_t>(end - p));
  return found == nullptr ? end : static_cast<const char*>(found);
}

bool StartsWith(const char* p, std::string_view start) { return std::memcmp(p, start.data(), start.size()) == 0; }

/// For what people and editors put where JSON has no place for it.
const char* HintAt(const char* p) {
  if (StartsWith(p, "\xC2\xA0") || StartsWith(p, "\xE2\x80\x8B") || StartsWith(p, "\xEF\xBB\xBF")) {
    return "there is an invisible character here that is not a space in JSON";
  }
  if (StartsWith(p, "\xE2\x80\x9C") || StartsWith(p, "\xE2\x80\x9D") || StartsWith(p, "\xE2\x80\x9E")) {
    return "use straight double quotes";
  }
  return "";
}

}  // namespace

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
    escape.fault = "a low surrogate stands alone";
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

// ---- The whole text ----

JsonReader::JsonReader(JsonDocument* document)
    : document_(*document), text_(document->text_.data()), end_(text_ + document->size_), p_(text_) {}

void JsonReader::Read() {
  if (RefuseWhole()) return;
  NoteInvalidUtf8();
  if (StartsWith(p_, "\xEF\xBB\xBF")) {
    Fail(Code::kJsonByteOrderMark, p_, p_ + 3, "the file begins with a byte order mark",
         "save the file as UTF-8 without a byte order mark");
    p_ += 3;
  }
  SkipSpace();
  if (p_ == end_) {
    Fail(Code::kJsonEmpty, end_, end_, "the text is empty; an object { ... } is expected");
  } else {
    ReadValue();
    Run();
    SkipSpace();
    if (p_ < end_ && errors_ <= kMaxErrors) {
      Fail(Code::kJsonSyntax, p_, p_ + 1, "nothing may follow the end of the object",
           *p_ == '}' || *p_ == ',' ? "is there one '}' too many before it?" : HintAt(p_));
    }
  }
  std::stable_sort(document_.faults_.begin(), document_.faults_.end(),
                   [](const JsonFault& a, const JsonFault& b) { return a.offset < b.offset; });
  if (tape_size_ < tape_capacity_) {
    // Cannot fail to shrink, and if it does, nothing is lost.
    void* shrunk = std::realloc(document_.tape_.get(), std::max<size_t>(tape_size_, 1) * sizeof(uint32_t));
    if (shrunk != nullptr) {
      static_cast<void>(document_.tape_.release());
      document_.tape_.reset(static_cast<uint32_t*>(shrunk));
    }
  }
  document_.tape_size_ = tape_size_;
}

bool JsonReader::RefuseWhole() {
  const auto refuse = [&](Code code, const char* message, const char* hint) {
    AddFault({0, 0, code, false, message, hint});
    return true;
  };
  const size_t size = static_cast<size_t>(end_ - text_);
  if (size > JsonDocument::kMaxTextSize) {
    return refuse(Code::kJsonTooLarge, "the text is larger than 2 GiB", "split the module");
  }
  const bool marked = StartsWith(text_, "\xFF\xFE") || StartsWith(text_, "\xFE\xFF");
  const auto zero = [&](size_t i) { return text_[i] == '\0'; };
  const bool every_other_zero = size >= 4 && zero(0) != zero(1) && zero(0) == zero(2) && zero(1) == zero(3);
  if (marked || every_other_zero) {
    return refuse(Code::kJsonUtf16, "the text is UTF-16, not UTF-8", "save the file as UTF-8");
  }
  if (!ReserveTape()) {
    return refuse(Code::kJsonTooLarge, "the text has more values than can be read", "split the module");
  }
  return false;
}

void JsonReader::NoteInvalidUtf8() {
  for (const char* p = FindInvalidUtf8(text_, end_); p < end_; p = FindInvalidUtf8(p, end_)) {
    const char* begin = p;
    while (p < end_ && CharacterLength(p, end_) == 0) ++p;
    Fail(Code::kJsonEncoding, begin, p, "this is not UTF-8 text", "save the file as UTF-8");
    if (errors_ >= JsonDocument::kMaxFaultsPerCode) break;
  }
  errors_ = 0;  // the text is read all the same
}

/// Every key and value follows a comma, a colon or an opening bracket, or is the first; an object or list takes two
/// words more than those in it.
bool JsonReader::ReserveTape() {
  size_t single = 0, brackets = 0;
  for (const char* p = text_; p < end_;) {
    // In bytes, which compilers count many at a time.
    uint8_t some_single = 0, some_brackets = 0;
    const char* block_end = p + std::min<std::ptrdiff_t>(end_ - p, 255);
    for (; p < block_end; ++p) {
      some_single = static_cast<uint8_t>(some_single + (*p == ',' || *p == ':' ? 1 : 0));
      some_brackets = static_cast<uint8_t>(some_brackets + (*p == '{' || *p == '[' ? 1 : 0));
    }
    single += some_single;
    brackets += some_brackets;
  }
  tape_bound_ = 1 + single + 3 * brackets;
  tape_capacity_ = tape_bound_;
  if (tape_bound_ + (kMaxErrors + 2) * kWordsPerFault >= kNone) return false;
  tape_ = static_cast<uint32_t*>(std::malloc(tape_capacity_ * sizeof(uint32_t)));
  if (tape_ == nullptr) throw std::bad_alloc();
  document_.tape_.reset(tape_);
  return true;
}

void JsonReader::ReserveMore() {
  tape_bound_ += kWordsPerFault;
  if (tape_bound_ <= tape_capacity_) return;
  const size_t capacity = tape_capacity_ + 64 * kWordsPerFault;
  void* grown = std::realloc(tape_, capacity * sizeof(uint32_t));
  if (grown == nullptr) throw std::bad_alloc();
  static_cast<void>(document_.tape_.release());
  tape_ = static_cast<uint32_t*>(grown);
  document_.tape_.reset(tape_);
  tape_capacity_ = capacity;
}

// ---- Objects and lists ----

void JsonReader::Run() {
  while (open_ != kNone) {
    if (errors_ > kMaxErrors) {
      // Whatever the limit for each kind says.
      document_.faults_.push_back(
          {Offset(p_), Offset(p_), Code::kJsonSyntax, false, "there are too many faults; the rest is not read", ""});
      Finish();
      return;
    }
    SkipSpace();
    if (expect_ == Expect::kSeparator) {
      if (*p_ == ',') {
        comma_ = p_++;
        expect_ = Expect::kNext;
        forgive_separator_ = false;
        SkipSpace();
      } else if (*p_ == close_) {
        if (!PassOverEnd()) Close(p_++, true);
        continue;
      } else {
        BadSeparator();
        continue;
      }
    }
    if (*p_ == close_) {
      if (expect_ == Expect::kNext && comma_ != nullptr) {
        Note(Code::kJsonTrailingComma, comma_, comma_ + 1, "there is a comma after the last value");
      }
      Close(p_++, true);
    } else if (p_ == end_) {
      EndOfText();
    } else if (!CloseMismatch()) {
      forgive_separator_ = false;
      close_ == '}' ? ReadMember() : ReadElement();
    }
  }
}

void JsonReader::ReadMember() {
  const char* key = p_;
  const char* key_end = nullptr;
  if (*p_ == '"') {
    RawString raw;
    key_end = ZO_TUNING::internal::ReadString(p_, &raw);
    if (key_end == nullptr || raw.escaped) key_end = ReadOddString();
  } else if (*p_ == '\'') {
    key_end = ReadOddString();
  } else if (IsNameStart(*p_)) {
    key_end = FindKeyEnd(p_, end_);
    const std::string_view name(p_, static_cast<size_t>(key_end - p_));
    if (name == "true" || name == "false" || name == "null") {
      Fail(Code::kJsonSyntax, p_, key_end,
           "a key is expected; " + std::string(name) + " has to stand in double quotes to be one");
    } else {
      Note(Code::kJsonUnquotedKey, p_, key_end, "this key has no quotes");
    }
  } else {
    BadKey();
    return;
  }
  if (key_end == nullptr) {
    Fail(Code::kJsonSyntax, key, FindInvalidEnd(key, end_), "this key has no closing quote");
    GoOnAfterLine(key);
    return;
  }
  Push(key);
  p_ = key_end;
  if (*p_ != ':') SkipSpace();
  if (*p_ == ':') {
    ++p_;
    if (*p_ == ' ') ++p_;
    SkipSpace();
    ReadValue();
    return;
  }
  BadColon(key, key_end);
}

void JsonReader::ReadElement() {
  if (IsDigit(*p_) || *p_ == '-') {
    ReadNumbers();
  } else {
    ReadValue();
  }
}

/// Elements as long as they are numbers of strict JSON, the way that large tables go.
void JsonReader::ReadNumbers() {
  const char* p = p_;
  uint32_t* tape = tape_ + tape_size_;
  for (;;) {
    const char* number_end = SkipNumber(p);
    if (number_end == nullptr) break;
    *tape++ = static_cast<uint32_t>(p - text_);
    const char* after = SkipBlanks(number_end);
    if (*after != ',') {
      tape_size_ = static_cast<size_t>(tape - tape_);
      p_ = after;
      expect_ = Expect::kSeparator;
      return;
    }
    comma_ = after;
    expect_ = Expect::kNext;
    p = SkipBlanks(after + 1);
    if (!IsDigit(*p) && *p != '-') {
      tape_size_ = static_cast<size_t>(tape - tape_);
      p_ = p;
      return;
    }
  }
  tape_size_ = static_cast<size_t>(tape - tape_);
  p_ = p;
  ReadNumber();
}

void JsonReader::ReadValue() {
  expect_ = Expect::kSeparator;
  switch (*p_) {
    case '{':
    case '[':
      Open();
      return;
    case '"':
    case '\'':
      ReadString();
      return;
    case 't':
      ReadLiteral("true", 4);
      return;
    case 'f':
      ReadLiteral("false", 5);
      return;
    case 'n':
      ReadLiteral("null", 4);
      return;
    default:
      if (IsDigit(*p_) || *p_ == '-') {
        ReadNumber();
      } else {
        BadValue();
      }
  }
}

void JsonReader::Open() {
  const char close = *p_ == '{' ? '}' : ']';
  if (close == '}' && object_depth_ >= kMaxObjectDepth && !too_deep_) {
    too_deep_ = true;
    Fail(Code::kJsonTooDeep, p_, p_ + 1, "objects are nested too deeply; 100 levels are the limit");
  }
  const char* inside = SkipBlanks(p_ + 1);
  if (*inside == close) {
    tape_[tape_size_++] = Offset(p_) | kMark;
    p_ = inside + 1;
    return;
  }
  const uint32_t index = static_cast<uint32_t>(tape_size_);
  Push(p_);
  tape_[tape_size_++] = open_;
  open_ = index;
  close_ = close;
  object_depth_ += close == '}' ? 1 : 0;
  p_ = inside;
  expect_ = Expect::kFirst;
}

void JsonReader::Close(const char* end, bool complete) {
  const bool marked = (tape_[open_] & kMark) != 0;
  tape_[open_] &= ~kMark;
  tape_[tape_size_++] = Offset(end) | (complete && !marked ? 0 : kMark);
  object_depth_ -= close_ == '}' ? 1 : 0;
  open_ = std::exchange(tape_[open_ + 1], static_cast<uint32_t>(tape_size_));
  close_ = open_ == kNone ? '\0' : CloseOf(open_);
  expect_ = Expect::kSeparator;
}

char JsonReader::CloseOf(uint32_t index) const { return text_[tape_[index] & ~kMark] == '{' ? '}' : ']'; }

void JsonReader::MarkIncomplete() {
  if (open_ != kNone) tape_[open_] |= kMark;
}

void JsonReader::Finish() {
  while (open_ != kNone) Close(p_, false);
}

// ---- Scalars ----

void JsonReader::ReadNumber() {
  expect_ = Expect::kSeparator;
  const char* begin = p_;
  const char* end = SkipNumber(p_);
  if (end != nullptr) {
    Push(begin);
    p_ = end;
    return;
  }
  end = FindNumberEnd(p_);
  const std::string_view number(begin, static_cast<size_t>(end - begin));
  const std::string_view digits = number.substr(number[0] == '-' ? 1 : 0);
  const bool fraction = number.find_first_of(".eE") != std::string_view::npos;
  double value = 0;
  const auto [parsed, error] = std::from_chars(begin, end, value);
  if (IsNameStart(*end) || parsed != end || digits.empty()) {
    BadNumber("is not a number");
  } else if (!fraction && digits.size() > 1 && digits[0] == '0') {
    BadNumber("begins with 0, which a number may not");
  } else if (error == std::errc::result_out_of_range && !Vanishes(digits)) {
    BadNumber("is too large for a double");
  } else {
    if (!IsStrictNumber(number)) {
      Note(Code::kJsonNumberForm, begin, end, "JSON does not know this form of a number");
    }
    Push(begin);
    p_ = end;
  }
}

void JsonReader::BadNumber(const char* what) {
  const char* begin = p_;
  const char* end = FindInvalidEnd(p_, end_);
  const std::string_view text(begin, static_cast<size_t>(end - begin));
  std::string hint;
  if (text.find('x') != std::string_view::npos || text.find('X') != std::string_view::npos) {
    hint = "write hexadecimal numbers as decimal ones";
  } else if (text == "-Infinity" || text == "-inf" || text == "-Inf") {
    hint = "\"-Infinity\" is accepted, with the quotes";
  } else if (text.size() > 1 && text[0] == '0' && IsDigit(text[1])) {
    hint = "octal numbers are not allowed in JSON; leave out the zeros in front";
  }
  Fail(Code::kJsonNumber, begin, end, Quoted(Excerpt(text, 40)) + ' ' + what, std::move(hint));
  Invalid(begin);
}

void JsonReader::ReadString() {
  const char* begin = p_;
  RawString raw;
  const char* end = ZO_TUNING::internal::ReadString(p_, &raw);
  if (end != nullptr && !raw.escaped) {
    Push(begin);
    p_ = end;
    return;
  }
  string_valid_ = true;
  end = ReadOddString();
  if (end != nullptr && string_valid_) {
    Push(begin);
    p_ = end;
  } else if (end != nullptr) {
    Invalid(begin);
    p_ = end;
  } else {
    Fail(Code::kJsonSyntax, begin, FindInvalidEnd(begin, end_), "this string has no closing quote");
    Invalid(begin);
    GoOnAfterLine(begin);
  }
}

/// The end of the string at hand, or null when there is none; notes what is unusual in it.
const char* JsonReader::ReadOddString() {
  const char quote = *p_;
  const char* const begin = p_;
  if (quote == '\'') Note(Code::kJsonSingleQuotes, begin, begin + 1, "texts stand in double quotes");
  const char* control = nullptr;
  const char* p = begin + 1;
  for (; p < end_ && *p != quote; ++p) {
    if (*p == '\\') {
      if (p + 1 >= end_) return nullptr;
      if (p[1] == 'u') {
        const UnicodeEscape escape = ReadUnicodeEscape(std::string_view(p, static_cast<size_t>(end_ - p)));
        if (escape.fault != nullptr) {
          string_valid_ = false;
          Fail(Code::kJsonSyntax, p, p + 2, escape.fault);
          ++p;
        } else {
          p += escape.size - 1;
        }
        continue;
      }
      if (std::strchr("\"\\/bfnrt", p[1]) == nullptr || p[1] == '\0') {
        Note(Code::kJsonEscape, p, p + 2, "JSON does not know this escape");
      }
      ++p;
    } else if (static_cast<unsigned char>(*p) < ' ' && control == nullptr) {
      control = p;
    }
  }
  if (p >= end_) return nullptr;
  if (control != nullptr) {
    Note(Code::kJsonControlCharacter, control, control + 1,
         *control == '\n' || *control == '\r' ? "a line ends within this text; is its closing quote missing?"
                                              : "there is a control character in this text");
  }
  return p + 1;
}

void JsonReader::ReadLiteral(const char* literal, size_t size) {
  if (std::memcmp(p_, literal, size) == 0 && !IsNameStart(p_[size]) && !IsDigit(p_[size])) {
    Push(p_);
    p_ += size;
  } else {
    BadValue();
  }
}

void JsonReader::BadValue() {
  const char* end = FindInvalidEnd(p_, end_);
  const std::string_view text(p_, static_cast<size_t>(end - p_));
  if (p_ == end_) {
    Fail(Code::kJsonSyntax, p_, p_, "the text ends where a value is expected");
  } else if (text == "NaN" || text == "nan" || text == "Infinity" || text == "inf" || text == "Inf") {
    Fail(Code::kJsonNumber, p_, end, Quoted(text) + " is not a number in JSON",
         text[0] == 'n' || text[0] == 'N' ? "\"NaN\" is accepted, with the quotes"
                                          : "\"Infinity\" is accepted, with the quotes");
  } else if (*p_ == '+' || *p_ == '.') {
    Fail(Code::kJsonNumber, p_, end, Quoted(Excerpt(text, 40)) + " is not a number in JSON",
         *p_ == '+' ? "leave out the '+'" : "write 0 before the point");
  } else if (IsNameStart(*p_) && IsQuote(*end)) {
    Fail(Code::kJsonSyntax, p_, end + 1, "a quote is missing before this text");
    Invalid(p_);
    GoOnAfterLine(p_);
    return;
  } else {
    const char* hint =
        IsNameStart(*p_) ? "text stands in double quotes; true, false and null in lower case" : HintAt(p_);
    Fail(Code::kJsonSyntax, p_, std::max(end, p_ + 1), "a value is expected", hint);
  }
  Invalid(p_);
}

/// Takes what stands here for a value, so that its key or its place in the list counts.
void JsonReader::Invalid(const char* begin) {
  tape_[tape_size_++] = Offset(begin) | kMark;
  p_ = FindInvalidEnd(begin, end_);
  expect_ = Expect::kSeparator;
  if (begin == p_ && p_ < end_ && (*p_ == '{' || *p_ == '[')) SkipItem();
}

// ---- Between tokens ----

inline void JsonReader::SkipSpace() {
  p_ = SkipBlanks(p_);
  if (MayBeOddSpace(*p_)) SkipOddSpace();
}

void JsonReader::SkipOddSpace() {
  for (;; p_ = SkipBlanks(p_)) {
    const char* begin = p_;
    if (*p_ == '\v' || *p_ == '\f') {
      Note(Code::kJsonControlCharacter, begin, ++p_, "there is a control character between the values");
    } else if (*p_ == '\0' && p_ < end_) {
      while (*p_ == '\0' && p_ < end_) ++p_;
      Fail(Code::kJsonZeroByte, begin, p_, "there is a zero byte between the values",
           "was the file cut or damaged when it was written?");
    } else if (*p_ == '#' || StartsWith(p_, "//") || StartsWith(p_, "/*")) {
      const std::string_view rest(p_ + 1, static_cast<size_t>(end_ - p_ - 1));
      const size_t block_end = StartsWith(p_, "/*") ? rest.find("*/", 1) : 0;
      p_ = !StartsWith(p_, "/*")                 ? FindLineEnd(p_, end_)
           : block_end == std::string_view::npos ? end_
                                                 : p_ + 1 + block_end + 2;
      Fail(Code::kJsonComment, begin, p_, "comments are not allowed in JSON");
    } else if (!SkipConflict()) {
      return;
    }
  }
}

/// The lines that a version control system leaves where two changes meet. The first version is read, the others not.
bool JsonReader::SkipConflict() {
  const auto marker = [&](const char* p) -> char {
    const char sign = *p;
    if (sign != '<' && sign != '=' && sign != '>' && sign != '|') return '\0';
    if (p != text_ && p[-1] != '\n') return '\0';
    for (int i = 1; i < 7; ++i) {
      if (p[i] != sign) return '\0';
    }
    return p[7] == '\0' || p[7] == ' ' || p[7] == '\n' || p[7] == '\r' ? sign : '\0';
  };
  const char sign = marker(p_);
  if (sign == '\0') return false;
  const char* begin = p_;
  p_ = FindLineEnd(p_, end_);
  if ((sign == '=' || sign == '|') && conflict_ends_) {
    const char* line = p_;
    while (line < end_ && marker(line + 1) != '>') line = FindLineEnd(line + 1, end_);
    conflict_ends_ = line < end_;
    if (conflict_ends_) p_ = FindLineEnd(line + 1, end_);
  }
  if (!in_conflict_) {
    Fail(Code::kJsonConflict, begin, FindLineEnd(begin, end_), "a merge conflict is not resolved",
         "choose one version, and remove the lines with the markers");
  }
  in_conflict_ = sign == '<';
  return true;
}

// ---- Faults, and going on after them ----

void JsonReader::AddFault(JsonFault fault) {
  document_.ok_ = document_.ok_ && fault.lenient;
  uint16_t& count = counts_[static_cast<size_t>(fault.code)];
  if (count == JsonDocument::kMaxFaultsPerCode) return;
  ++count;
  document_.faults_.push_back(std::move(fault));
}

void JsonReader::Note(Code code, const char* begin, const char* end, const char* message) {
  if (counts_[static_cast<size_t>(code)] == JsonDocument::kMaxFaultsPerCode) return;
  AddFault({Offset(begin), Offset(end), code, true, message, ""});
}

void JsonReader::Fail(Code code, const char* begin, const char* end, std::string message, std::string hint) {
  ++errors_;
  if (errors_ <= kMaxErrors + 1) ReserveMore();
  last_error_ = begin;
  AddFault({Offset(begin), Offset(std::min(end, end_)), code, false, std::move(message), std::move(hint)});
}

void JsonReader::EndOfText() {
  // A value or key that is missing at the end has said so.
  if (last_error_ != end_) {
    const TextPosition opened = document_.PositionOf(tape_[open_] & ~kMark);
    Fail(Code::kJsonSyntax, end_, end_, std::string("the text ends before '") + close_ + "'",
         std::string(close_ == '}' ? "the object" : "the list") + " that begins in line " +
             std::to_string(opened.line) + " has no end");
  }
  Finish();
}

void JsonReader::BadSeparator() {
  if (p_ == end_) {
    EndOfText();
    return;
  }
  if (forgive_separator_) {
    forgive_separator_ = false;
    expect_ = Expect::kNext;
    comma_ = nullptr;
    return;
  }
  if (ReopenString(false) || CloseMismatch() || PassOverQuotes() || CloseBeforeKey()) return;
  const bool object = close_ == '}';
  const bool next =
      IsQuote(*p_) || IsNameStart(*p_) || (!object && (IsDigit(*p_) || *p_ == '-' || *p_ == '{' || *p_ == '['));
  Fail(Code::kJsonSyntax, p_, p_ + 1,
       object ? "',' or '}' is expected after a value" : "',' or ']' is expected after an element",
       next ? "is a comma missing?" : HintAt(p_));
  if (next) {
    expect_ = Expect::kNext;
    comma_ = nullptr;
  } else {
    SkipItem();
  }
}

/// After a key that no colon follows.
void JsonReader::BadColon(const char* key, const char* key_end) {
  if (p_ < end_ && ReopenString(true)) return;
  const std::string_view name(key, static_cast<size_t>(key_end - key));
  if (p_ == key_end && (IsNameStart(*p_) || IsDigit(*p_) || (!IsQuote(*key) && IsQuote(*p_)))) {
    Fail(Code::kJsonSyntax, key, p_, "a quote is missing in or after the key " + Excerpt(name));
    --tape_size_;
    GoOnAfterLine(p_);
    return;
  }
  if (p_ < end_) {
    Fail(Code::kJsonSyntax, p_, p_ + 1, "':' is expected after the key " + Excerpt(name), HintAt(p_));
  } else {
    Fail(Code::kJsonSyntax, p_, p_, "the text ends after the key " + Excerpt(name));
  }
  if (*p_ == '=') {
    ++p_;
    SkipSpace();
  }
  if (IsQuote(*p_) || IsDigit(*p_) || IsNameStart(*p_) || *p_ == '-' || *p_ == '{' || *p_ == '[') {
    ReadValue();
  } else {
    Invalid(p_);
  }
}

void JsonReader::BadKey() {
  if (IsDecimalComma()) {
    const char* end = FindNumberEnd(p_);
    const char* begin = text_ + tape_[tape_size_ - 1];
    const std::string whole(begin, static_cast<size_t>(comma_ - begin));
    Fail(Code::kJsonDecimalComma, begin, end, "the comma ends the number " + whole,
         "write a point: " + whole + '.' + std::string(p_, static_cast<size_t>(end - p_)));
    p_ = end;
    expect_ = Expect::kSeparator;
    return;
  }
  Fail(Code::kJsonSyntax, p_, p_ + 1, "a key or '}' is expected", HintAt(p_));
  if (*p_ == ',') {
    expect_ = Expect::kSeparator;
  } else {
    SkipItem();
  }
}

/// Whether the member before ends as "0,5" would.
bool JsonReader::IsDecimalComma() const {
  if (IsEmptySoFar() || expect_ != Expect::kNext || comma_ == nullptr || p_ != comma_ + 1 || !IsDigit(*p_))
    return false;
  const uint32_t word = tape_[tape_size_ - 1];
  const char* number = text_ + (word & ~kMark);
  return (word & kMark) == 0 && (IsDigit(*number) || *number == '-') && FindNumberEnd(number) == comma_;
}

/// A closing bracket of the other kind: one is missing before it, or it is the wrong one.
bool JsonReader::CloseMismatch() {
  if ((*p_ != '}' && *p_ != ']') || *p_ == close_) return false;
  constexpr int kLevels = 64;  // keeps texts of nothing but brackets cheap
  uint32_t index = tape_[open_ + 1];
  for (int i = 0; i < kLevels && index != kNone && CloseOf(index) != *p_; ++i) index = tape_[index + 1];
  const bool missing = index != kNone && CloseOf(index) == *p_;
  const TextPosition opened = document_.PositionOf(tape_[open_] & ~kMark);
  const std::string what = close_ == '}' ? "object" : "list";
  const bool outermost = tape_[open_ + 1] == kNone;
  if (!missing && outermost && SkipBlanks(p_ + 1) < end_) {
    Fail(Code::kJsonSyntax, p_, p_ + 1,
         std::string("there is no '") + (*p_ == '}' ? '{' : '[') + "' for this '" + *p_ + "'");
    ++p_;
    expect_ = Expect::kSeparator;
    return true;
  }
  Fail(Code::kJsonSyntax, p_, p_ + 1,
       std::string("'") + close_ + "' is expected" + (missing ? " before this '" : ", not '") + *p_ + "'",
       "the " + what + " begins in line " + std::to_string(opened.line));
  if (missing) {
    while (open_ != index) Close(p_, false);
  } else {
    Close(p_++, false);
  }
  return true;
}

/// When the string or key read last goes over a line end, it is that which is at fault: its quote is missing, and the
/// one that ended it begins another. Goes back to the end of its first line.
bool JsonReader::ReopenString(bool key) {
  if (IsEmptySoFar()) return false;
  const uint32_t word = tape_[tape_size_ - 1];
  const char* begin = text_ + (word & ~kMark);
  if ((word & kMark) != 0 || !IsQuote(*begin)) return false;
  const char* end = FindStringEnd(begin, end_);
  const char* line_end = FindLineEnd(begin, end_);
  if (end == nullptr || line_end >= end) return false;
  std::vector<JsonFault>& faults = document_.faults_;
  while (!faults.empty() && faults.back().lenient && faults.back().offset >= Offset(begin)) {
    --counts_[static_cast<size_t>(faults.back().code)];
    faults.pop_back();
  }
  Fail(Code::kJsonSyntax, begin, line_end,
       key ? "this key has no closing quote on its line" : "this string has no closing quote on its line");
  if (key) {
    --tape_size_;
  } else {
    tape_[tape_size_ - 1] |= kMark;
  }
  GoOnAfterLine(begin);
  return true;
}

/// Whether the outermost object seems to end although more members follow: there is a bracket too many up to here.
bool JsonReader::PassOverEnd() {
  if (close_ != '}' || tape_[open_ + 1] != kNone) return false;
  const char* next = SkipBlanks(p_ + 1);
  if (*next != ',' || *SkipBlanks(next + 1) != '"') return false;
  Fail(Code::kJsonSyntax, p_, p_ + 1, "this ends the outermost object, but more follows",
       "there is one '}' too many, here or before");
  ++p_;
  return true;
}

/// When a key follows in a list, the list's bracket is missing.
bool JsonReader::CloseBeforeKey() {
  if (close_ != ']' || *p_ != ':' || IsEmptySoFar() || tape_[open_ + 1] == kNone) return false;
  const uint32_t word = tape_[tape_size_ - 1];
  const char* key = text_ + (word & ~kMark);
  if ((word & kMark) != 0 || !IsQuote(*key) || CloseOf(tape_[open_ + 1]) != '}') return false;
  const TextPosition opened = document_.PositionOf(tape_[open_] & ~kMark);
  Fail(Code::kJsonSyntax, key, FindStringEnd(key, end_), "']' is expected before this key",
       "the list begins in line " + std::to_string(opened.line));
  --tape_size_;
  Close(key, false);
  p_ = key;
  expect_ = Expect::kNext;
  comma_ = nullptr;
  return true;
}

/// When a string is followed by letters at once, one of its quotes is not meant, and nothing after it on its line can
/// be trusted.
bool JsonReader::PassOverQuotes() {
  if (IsEmptySoFar() || (!IsNameStart(*p_) && !IsDigit(*p_))) return false;
  const uint32_t word = tape_[tape_size_ - 1];
  const char* begin = text_ + (word & ~kMark);
  if ((word & kMark) != 0 || !IsQuote(*begin) || FindStringEnd(begin, end_) != p_) return false;
  Fail(Code::kJsonSyntax, begin, p_, "a quote is missing in or after this string");
  tape_[tape_size_ - 1] |= kMark;
  GoOnAfterLine(p_);
  return true;
}

/// Goes on with the next line, as if a comma ended this one.
void JsonReader::GoOnAfterLine(const char* p) {
  MarkIncomplete();
  p_ = FindLineEnd(p, end_);
  expect_ = Expect::kSeparator;
  forgive_separator_ = true;
  // What the rest of a last line would have closed is not missing.
  if (p_ == end_) last_error_ = end_;
}

/// Passes over what makes no sense here, up to the next comma or closing bracket of the same level or the line's end.
void JsonReader::SkipItem() {
  MarkIncomplete();
  expect_ = Expect::kSeparator;
  size_t depth = 0;
  for (; p_ < end_; ++p_) {
    const char c = *p_;
    if (c == '{' || c == '[') {
      ++depth;
    } else if (IsQuote(c)) {
      p_ = FindInvalidEnd(p_, end_) - 1;
    } else if (depth > 0) {
      depth -= c == '}' || c == ']' ? 1 : 0;
    } else if (c == ',' || c == '}' || c == ']') {
      return;
    } else if (c == '\n') {
      forgive_separator_ = true;
      return;
    }
  }
}

}  // namespace zotuning
