// Tested by tests/workspace/json_document_test.cpp.

#include "workspace/json_document.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

#include "io/padded_file.h"
#include "transcode/json_lexer.h"
#include "workspace/json_reader.h"

namespace zotuning {
namespace {

using ZO_TUNING::internal::kTextPadding;

// Distance between line marks.
constexpr size_t kBlockSize = size_t{1} << 16;

bool IsContinuation(char c) { return (static_cast<unsigned char>(c) & 0xc0) == 0x80; }

void AppendUtf8(uint32_t code, std::string* out) {
  const auto tail = [&](int shift) { out->push_back(static_cast<char>(0x80 | (code >> shift & 0x3f))); };
  if (code < 0x80) {
    out->push_back(static_cast<char>(code));
  } else if (code < 0x800) {
    out->push_back(static_cast<char>(0xc0 | code >> 6));
    tail(0);
  } else if (code < 0x10000) {
    out->push_back(static_cast<char>(0xe0 | code >> 12));
    tail(6);
    tail(0);
  } else {
    out->push_back(static_cast<char>(0xf0 | code >> 18));
    tail(12);
    tail(6);
    tail(0);
  }
}

std::string Padded(std::string text) {
  const size_t spare = text.capacity() - text.size();
  if (spare < kTextPadding || spare > kTextPadding + text.size() / 4) {
    // Growing a string in place would double it, and some are that large.
    std::string copy;
    copy.reserve(text.size() + kTextPadding);
    copy.append(text);
    text = std::move(copy);
  }
  text.append(kTextPadding, '\0');
  return text;
}

}  // namespace

// ---- JsonValue ----

size_t JsonValue::end() const {
  const char* text = document_->text_.data();
  const char* text_end = text + document_->size_;
  const char* p = text + begin();
  const uint32_t word = Word();
  if (*p == '{' || *p == '[') {
    const char close = *p == '{' ? '}' : ']';
    if ((word & JsonDocument::kMark) != 0) {
      return static_cast<size_t>(ZO_TUNING::internal::SkipBlanks(p + 1) + 1 - text);
    }
    const size_t end = document_->tape_[Next() - 1] & JsonDocument::kOffsetMask;
    return text[end] == close ? end + 1 : end;
  }
  if ((word & JsonDocument::kMark) != 0) return static_cast<size_t>(FindInvalidEnd(p, text_end) - text);
  switch (*p) {
    case '"':
    case '\'':
      return static_cast<size_t>(FindStringEnd(p, text_end) - text);
    case 't':
    case 'n':
      return begin() + 4;
    case 'f':
      return begin() + 5;
    default:
      return static_cast<size_t>(FindNumberEnd(p) - text);
  }
}

std::string_view JsonValue::raw() const {
  const size_t first = begin();
  return document_->text().substr(first, end() - first);
}

bool JsonValue::complete() const {
  if ((!is_object() && !is_array()) || (Word() & JsonDocument::kMark) != 0) return true;
  return (document_->tape_[Next() - 1] & JsonDocument::kMark) == 0;
}

size_t JsonValue::size() const {
  size_t count = 0;
  const uint32_t step = is_object() ? 1 : 0;
  if (empty()) return 0;
  const uint32_t end = ContentsEnd();
  for (uint32_t i = ContentsBegin(); i != end; i = JsonValue(document_, i + step).Next()) ++count;
  return count;
}

JsonValue JsonValue::Find(std::string_view key) const {
  JsonValue found;
  for (const JsonMember member : members()) {
    if (member.KeyIs(key)) found = member.value();
  }
  return found;
}

std::string_view JsonValue::String(std::string* scratch) const {
  return is_string() ? DecodeJsonString(raw(), scratch) : std::string_view();
}

std::string JsonValue::String() const {
  std::string scratch;
  return std::string(String(&scratch));
}

// ---- JsonMember ----

size_t JsonMember::key_end() const {
  const char* text = document_->text_.data();
  return static_cast<size_t>(FindKeyEnd(text + key_begin(), text + document_->size_) - text);
}

std::string_view JsonMember::raw_key() const {
  const size_t first = key_begin();
  return document_->text().substr(first, key_end() - first);
}

bool JsonMember::KeyIs(std::string_view name) const {
  const char* text = document_->text_.data() + key_begin();
  if (*text != '"') return key() == name;
  for (size_t i = 0; i <= name.size(); ++i) {
    const char c = *++text;
    const bool last = i == name.size();
    // Escapes can stand for any character.
    if (c == '\\') return key() == name;
    if (c != (last ? '"' : name[i]) || (c == '"' && !last)) return false;
  }
  return true;
}

std::string_view JsonMember::key(std::string* scratch) const { return DecodeJsonString(raw_key(), scratch); }

std::string JsonMember::key() const {
  std::string scratch;
  return std::string(key(&scratch));
}

// ---- JsonDocument ----

JsonDocument::JsonDocument(std::string text) : size_(text.size()) {
  text_ = Padded(std::move(text));
  JsonReader(this).Read();
}

size_t JsonDocument::memory_bytes() const {
  size_t faults = faults_.capacity() * sizeof(JsonFault);
  for (const JsonFault& fault : faults_) faults += fault.message.capacity() + fault.hint.capacity();
  return text_.capacity() + tape_size_ * sizeof(tape_[0]) + line_marks_.capacity() * sizeof(LineMark) + faults;
}

const JsonDocument::LineMark& JsonDocument::MarkBefore(size_t offset) const {
  if (line_marks_.empty()) {
    line_marks_.reserve(size_ / kBlockSize + 1);
    LineMark mark{1, 1};
    for (size_t i = 0; i < size_; ++i) {
      if (i % kBlockSize == 0) line_marks_.push_back(mark);
      if (text_[i] == '\n') {
        ++mark.line;
        mark.column = 1;
      } else if (!IsContinuation(text_[i])) {
        ++mark.column;
      }
    }
    if (size_ % kBlockSize == 0) line_marks_.push_back(mark);
  }
  return line_marks_[offset / kBlockSize];
}

TextPosition JsonDocument::PositionOf(size_t offset) const {
  constexpr size_t kExcerptBytes = 70;
  offset = std::min(offset, size_);
  LineMark mark = MarkBefore(offset);
  for (size_t i = offset / kBlockSize * kBlockSize; i < offset; ++i) {
    if (text_[i] == '\n') {
      ++mark.line;
      mark.column = 1;
    } else if (!IsContinuation(text_[i])) {
      ++mark.column;
    }
  }
  TextPosition position;
  position.line = static_cast<int>(mark.line);
  position.column = static_cast<int>(mark.column);

  // Lines can be as long as the file: search no further than the excerpt needs.
  size_t begin = offset;
  while (begin > 0 && offset - begin <= kExcerptBytes && text_[begin - 1] != '\n') --begin;
  size_t line_end = offset;
  while (line_end < size_ && line_end - begin <= kExcerptBytes && text_[line_end] != '\n') ++line_end;
  if (line_end - begin > kExcerptBytes && offset - begin > kExcerptBytes / 2) begin = offset - kExcerptBytes / 2;
  while (begin < offset && IsContinuation(text_[begin])) ++begin;
  line_end = offset;
  while (line_end < size_ && line_end - begin <= kExcerptBytes && text_[line_end] != '\n') ++line_end;
  size_t end = std::min(line_end, begin + kExcerptBytes);
  while (end > offset && end < line_end && IsContinuation(text_[end])) --end;
  for (size_t i = begin; i < end; ++i) {
    // A tab takes one column, so that the mark below the line is in the right place.
    position.excerpt += text_[i] == '\t' ? ' ' : text_[i];
    if (i < offset && !IsContinuation(text_[i])) ++position.excerpt_column;
  }
  while (!position.excerpt.empty() && position.excerpt.back() == '\r') position.excerpt.pop_back();
  return position;
}

JsonValue JsonDocument::ValueAt(size_t offset) const {
  JsonValue value = root();
  if (!value || offset < value.begin() || offset >= value.end()) return JsonValue();
  for (;;) {
    JsonValue inner;
    for (const JsonMember member : value.members()) {
      if (member.key_begin() > offset) break;
      if (offset < member.value().end()) inner = member.value();
    }
    for (const JsonValue element : value.elements()) {
      if (element.begin() > offset) break;
      if (offset < element.end()) inner = element;
    }
    if (!inner) return value;
    value = inner;
  }
}

// ---- Texts ----

void SetPosition(const JsonDocument& document, size_t begin, size_t end, Diagnostic* diagnostic) {
  TextPosition position = document.PositionOf(begin);
  diagnostic->line = position.line;
  diagnostic->column = position.column;
  diagnostic->excerpt = std::move(position.excerpt);
  diagnostic->excerpt_column = position.excerpt_column;
  const TextPosition end_position = document.PositionOf(std::max(begin, end));
  diagnostic->end_line = end_position.line;
  diagnostic->end_column = end_position.column;
}

std::string_view DecodeJsonString(std::string_view raw, std::string* scratch) {
  if (!raw.empty() && (raw[0] == '"' || raw[0] == '\'')) {
    const bool closed = raw.size() > 1 && raw.back() == raw[0];
    raw = raw.substr(1, raw.size() - (closed ? 2 : 1));
  }
  size_t i = raw.find('\\');
  if (i == std::string_view::npos) return raw;
  scratch->assign(raw.substr(0, i));
  while (i < raw.size()) {
    if (raw[i] != '\\' || i + 1 == raw.size()) {
      scratch->push_back(raw[i++]);
      continue;
    }
    if (raw[i + 1] == 'u') {
      const auto escape = ReadUnicodeEscape(raw.substr(i));
      if (!escape.fault) {
        AppendUtf8(escape.code, scratch);
        i += escape.size;
        continue;
      }
    }
    // Other characters after a backslash stand for themselves.
    static constexpr std::string_view kNames = "bfnrtv";
    const size_t known = kNames.find(raw[i + 1]);
    scratch->push_back(known == std::string_view::npos ? raw[i + 1] : "\b\f\n\r\t\v"[known]);
    i += 2;
  }
  return *scratch;
}

std::string EncodeJsonString(std::string_view text) {
  std::string json = "\"";
  for (const char c : text) {
    static constexpr char kSpecial[] = "\"\\\b\f\n\r\t";
    const char* special = c == '\0' ? nullptr : std::strchr(kSpecial, c);
    if (special != nullptr) {
      json += '\\';
      json += "\"\\bfnrt"[special - kSpecial];
    } else if (static_cast<unsigned char>(c) < ' ') {
      static constexpr char kHex[] = "0123456789abcdef";
      json += "\\u00";
      json += kHex[c >> 4];
      json += kHex[c & 15];
    } else {
      json += c;
    }
  }
  return json + '"';
}

std::string Excerpt(std::string_view text, size_t max_bytes) {
  if (text.size() <= max_bytes) return std::string(text);
  size_t end = max_bytes;
  while (end > 0 && IsContinuation(text[end])) --end;
  return std::string(text.substr(0, end)) + "...";
}

}  // namespace zotuning
