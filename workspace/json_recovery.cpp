// How to report faults of a text, and where to continue reading. Tested by tests/workspace/json_document_test.cpp.

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "workspace/json_reader.h"

namespace zotuning {

using ZO_TUNING::internal::SkipBlanks;

namespace {

/// For what people and editors put where JSON does not allow it.
const char* HintAt(const char* p) {
  if (StartsWith(p, "\xC2\xA0") || StartsWith(p, "\xE2\x80\x8B") || StartsWith(p, "\xEF\xBB\xBF")) {
    return "there is an invisible character here that is not a space in JSON";
  }
  if (StartsWith(p, "\xE2\x80\x9C") || StartsWith(p, "\xE2\x80\x9D") || StartsWith(p, "\xE2\x80\x9E") || *p == '`') {
    return "use straight double quotes";
  }
  if (StartsWith(p, "\xE2\x88\x92") || StartsWith(p, "\xE2\x80\x93")) return "use the hyphen '-' as the minus sign";
  if (*p == ';') return "parts are separated by commas";
  if (*p == '=') return "write a colon between key and value";
  if (StartsWith(p, "\xEF\xBC")) return "this is a character of double width; use the plain one";
  return "";
}

}  // namespace

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

void JsonReader::NoteInvalidUtf8() {
  for (const char* p = FindInvalidUtf8(text_, end_); p < end_; p = FindInvalidUtf8(p, end_)) {
    const char* begin = p;
    while (p < end_ && CharacterLength(p, end_) == 0) ++p;
    Fail(Code::kJsonEncoding, begin, p, "this is not UTF-8 text", "save the file as UTF-8");
    if (errors_ >= JsonDocument::kMaxFaultsPerCode) break;
  }
  errors_ = 0;  // the text is still read
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

void JsonReader::AfterEnd() {
  Fail(Code::kJsonSyntax, p_, p_ + 1, "nothing may follow the end of the object",
       *p_ == '}' || *p_ == ',' ? "is there an extra '}' before it?" : HintAt(p_));
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
    hint = "octal numbers are not allowed in JSON; remove the leading zeros";
  }
  Fail(Code::kJsonNumber, begin, end, Quoted(Excerpt(text, 40)) + ' ' + what, std::move(hint));
  Invalid(begin);
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
         *p_ == '+' ? "remove the '+'" : "write 0 before the decimal point");
  } else if (IsNameStart(*p_) && IsQuote(*end)) {
    Fail(Code::kJsonSyntax, p_, end + 1, "a quote is missing before this text");
    Invalid(p_);
    GoOnAfterLine(p_);
    return;
  } else {
    const char* hint =
        IsNameStart(*p_) ? "strings need double quotes; true, false and null are lower case" : HintAt(p_);
    Fail(Code::kJsonSyntax, p_, std::max(end, p_ + 1), "a value is expected", hint);
  }
  Invalid(p_);
}

/// The lines that a version control system leaves where two changes conflict. The first version is read, the others are
/// not.
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
         "choose one version, and remove the marker lines");
  }
  in_conflict_ = sign == '<';
  return true;
}

void JsonReader::EndOfText() {
  // A value or key that is missing at the end has already been reported.
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

/// After a key without a colon.
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
    const std::string rest(p_, static_cast<size_t>(end - p_));
    constexpr std::ptrdiff_t kGroup = 3;  // digits between the commas of a large number
    Fail(Code::kJsonDecimalComma, begin, end, "the comma ends the number " + whole,
         end - p_ == kGroup
             ? "write a decimal point, " + whole + '.' + rest + ", or the digits without a comma, " + whole + rest
             : "write a decimal point: " + whole + '.' + rest);
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
  constexpr int kLevels = 64;  // keeps texts of nothing but brackets fast
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

/// If the string or key read last goes past the end of its line, it is at fault: its quote is missing, and the one that
/// ended it starts another string. Goes back to the end of its first line.
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

/// Whether the outermost object seems to end although more members follow: there is one bracket too many before.
bool JsonReader::PassOverEnd() {
  if (close_ != '}' || tape_[open_ + 1] != kNone) return false;
  const char* next = SkipBlanks(p_ + 1);
  if (*next != ',' || *SkipBlanks(next + 1) != '"') return false;
  Fail(Code::kJsonSyntax, p_, p_ + 1, "this ends the outermost object, but more follows",
       "there is an extra '}' here or earlier");
  ++p_;
  return true;
}

/// If a key follows in a list, the list's bracket is missing.
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

/// If a string is directly followed by letters, one of its quotes is wrong, and nothing after it on its line can be
/// trusted.
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

/// Continues with the next line, as if a comma ended this one.
void JsonReader::GoOnAfterLine(const char* p) {
  MarkIncomplete();
  p_ = FindLineEnd(p, end_);
  expect_ = Expect::kSeparator;
  forgive_separator_ = true;
  // What the rest of a last line would have closed is not missing.
  if (p_ == end_) last_error_ = end_;
}

/// Skips what makes no sense here, up to the next comma or closing bracket of the same level or the end of the line.
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
