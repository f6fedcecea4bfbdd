// Reads valid text; json_recovery.cpp continues after faults. Tested by tests/workspace/json_document_test.cpp.

#include "workspace/json_reader.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace zotuning {
namespace {

using ZO_TUNING::internal::RawString;
using ZO_TUNING::internal::SkipBlanks;

// Protobuf's parser counts objects, not lists.
constexpr size_t kMaxObjectDepth = 100;

}  // namespace

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
    if (p_ < end_ && errors_ <= kMaxErrors) AfterEnd();
  }
  std::stable_sort(document_.faults_.begin(), document_.faults_.end(),
                   [](const JsonFault& a, const JsonFault& b) { return a.offset < b.offset; });
  if (tape_size_ < tape_capacity_) {
    // Shrinking cannot fail, and if it does, nothing is lost.
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

/// Every key and value follows a comma, a colon or an opening bracket, or is the first; an object or list takes two
/// words in addition to its contents.
bool JsonReader::ReserveTape() {
  size_t single = 0, brackets = 0;
  for (const char* p = text_; p < end_;) {
    // In bytes, which compilers can count many at a time.
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
      // Regardless of the limit for each kind.
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
           "a key is expected; " + std::string(name) + " must be in double quotes to be one");
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

/// Elements while they are strict JSON numbers, the fast way for large tables.
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
  } else if (digits[0] == '.') {
    // Whether protobuf's parser accepts it depends on the process's locale.
    BadNumber("has no digit before the point");
  } else if (!fraction && digits.size() > 1 && digits[0] == '0') {
    BadNumber("has a leading zero");
  } else if (error == std::errc::result_out_of_range && !Vanishes(digits)) {
    BadNumber("is too large for a double");
  } else {
    if (!IsStrictNumber(number)) {
      Note(Code::kJsonNumberForm, begin, end, "JSON does not have this form of number");
    }
    Push(begin);
    p_ = end;
  }
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

/// The end of the current string, or null if there is none; records what is unusual in it.
const char* JsonReader::ReadOddString() {
  const char quote = *p_;
  const char* const begin = p_;
  if (quote == '\'') Note(Code::kJsonSingleQuotes, begin, begin + 1, "strings need double quotes");
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
        Note(Code::kJsonEscape, p, p + 2, "JSON does not have this escape");
      }
      ++p;
    } else if (static_cast<unsigned char>(*p) < ' ' && control == nullptr) {
      control = p;
    }
  }
  if (p >= end_) return nullptr;
  if (control != nullptr) {
    Note(Code::kJsonControlCharacter, control, control + 1,
         *control == '\n' || *control == '\r' ? "a line ends within this string; is its closing quote missing?"
                                              : "there is a control character in this string");
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

/// Treats what is here as a value, so that its key or its position in the list counts.
void JsonReader::Invalid(const char* begin) {
  tape_[tape_size_++] = Offset(begin) | kMark;
  p_ = FindInvalidEnd(begin, end_);
  expect_ = Expect::kSeparator;
  if (begin == p_ && p_ < end_ && (*p_ == '{' || *p_ == '[')) SkipItem();
}

}  // namespace zotuning
