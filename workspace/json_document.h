/// \file
/// A JSON text with the position of every key and value. The grammar is that of protobuf's parser, which is wider than
/// JSON (unquoted and single-quoted keys, trailing commas, control characters in strings) and in places narrower; see
/// docs/json-trees.md. What that parser rejects is a fault; what only it accepts is recorded as a lenient fault.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "workspace/diagnostic.h"

namespace zotuning {

class JsonDocument;
class JsonMember;
class JsonValue;
template <typename Item, uint32_t kValueOffset>
class JsonRange;
using JsonMembers = JsonRange<JsonMember, 1>;
using JsonElements = JsonRange<JsonValue, 0>;

enum class JsonKind : uint8_t {
  kNone,     ///< there is no value
  kInvalid,  ///< there is a fault in place of the value; its key or position in the list counts
  kNull,
  kTrue,
  kFalse,
  kNumber,
  kString,
  kObject,
  kArray,
};

/// A value of a document: as cheap as a pointer, valid until the document is moved or destroyed. All positions are byte
/// offsets into the document's text.
class JsonValue {
 public:
  JsonValue() = default;

  JsonKind kind() const;
  bool is_object() const { return kind() == JsonKind::kObject; }
  bool is_array() const { return kind() == JsonKind::kArray; }
  bool is_string() const { return kind() == JsonKind::kString; }
  bool is_number() const { return kind() == JsonKind::kNumber; }
  bool is_scalar() const { return !is_object() && !is_array(); }
  explicit operator bool() const { return document_ != nullptr; }

  /// Of its first character.
  size_t begin() const;
  /// After its last character. For an unterminated object or list: where reading it ended.
  size_t end() const;
  /// Its first character; the text continues to the end of the document, followed by zero bytes.
  const char* text() const;
  /// Its text; strings with their quotes.
  std::string_view raw() const;

  /// For an object or list: whether all of it was read. If not, members or elements may be missing.
  bool complete() const;
  /// For an object or list: whether it is empty. Constant time, unlike size().
  bool empty() const;
  /// Number of members or elements, 0 for scalars. Takes linear time.
  size_t size() const;

  /// In text order; empty if this is not an object.
  JsonMembers members() const;
  /// In text order; empty if this is not a list.
  JsonElements elements() const;
  /// Value of the last member with this key, the one that counts; none if there is none.
  JsonValue Find(std::string_view key) const;

  /// The unescaped text of a string; `scratch` holds it if it had escapes. Empty for other kinds.
  std::string_view String(std::string* scratch) const;
  std::string String() const;

  /// The same for the same value; increases in text order.
  uint32_t id() const { return index_; }
  const JsonDocument* document() const { return document_; }
  friend bool operator==(const JsonValue& a, const JsonValue& b) {
    return a.document_ == b.document_ && a.index_ == b.index_;
  }
  friend bool operator!=(const JsonValue& a, const JsonValue& b) { return !(a == b); }

 private:
  friend class JsonDocument;
  friend class JsonMember;
  template <typename, uint32_t>
  friend class JsonRange;
  JsonValue(const JsonDocument* document, uint32_t index) : document_(document), index_(index) {}
  uint32_t Word() const;
  uint32_t ContentsBegin() const;
  uint32_t ContentsEnd() const;
  /// Index on the tape after this value.
  uint32_t Next() const;

  const JsonDocument* document_ = nullptr;
  uint32_t index_ = 0;
};

/// A key with its value.
class JsonMember {
 public:
  size_t key_begin() const;
  /// After the key and its quotes.
  size_t key_end() const;
  /// With its quotes, if it has any.
  std::string_view raw_key() const;
  /// Whether the key is `name`; faster than getting the key.
  bool KeyIs(std::string_view name) const;
  /// The unescaped text of the key; `scratch` holds it if it had escapes.
  std::string_view key(std::string* scratch) const;
  std::string key() const;
  JsonValue value() const { return JsonValue(document_, index_ + 1); }

 private:
  template <typename, uint32_t>
  friend class JsonRange;
  JsonMember(const JsonDocument* document, uint32_t index) : document_(document), index_(index) {}
  const JsonDocument* document_;
  uint32_t index_;
};

/// The members of an object or the elements of a list, for a range-based loop. A member's value is `kValueOffset` after
/// it.
template <typename Item, uint32_t kValueOffset>
class JsonRange {
 public:
  class Iterator {
   public:
    Item operator*() const { return Item(document_, index_); }
    Iterator& operator++() {
      index_ = JsonValue(document_, index_ + kValueOffset).Next();
      return *this;
    }
    bool operator!=(const Iterator& other) const { return index_ != other.index_; }

   private:
    friend class JsonRange;
    Iterator(const JsonDocument* document, uint32_t index) : document_(document), index_(index) {}
    const JsonDocument* document_;
    uint32_t index_;
  };
  Iterator begin() const { return Iterator(document_, begin_); }
  Iterator end() const { return Iterator(document_, end_); }

 private:
  friend class JsonValue;
  JsonRange(const JsonDocument* document, uint32_t begin, uint32_t end)
      : document_(document), begin_(begin), end_(end) {}
  const JsonDocument* document_;
  uint32_t begin_;
  uint32_t end_;
};

/// A syntax fault and its position.
struct JsonFault {
  size_t offset = 0;
  size_t end = 0;  ///< after the faulty text
  Code code = Code::kJsonSyntax;
  bool lenient = false;  ///< protobuf's parser accepts it, other programs reject it
  std::string message;
  std::string hint;
};

/// A position in a text, for people. Line and column count from 1, columns in characters.
struct TextPosition {
  int line = 1;
  int column = 1;
  std::string excerpt;     ///< the line around the position, truncated to the width of a screen; tabs as spaces
  int excerpt_column = 1;  ///< of the position within the excerpt
};

/// Owns a text and the index over it. Movable, which invalidates its values. Not thread-safe, since the line index is
/// made on first use.
class JsonDocument {
 public:
  /// Larger texts are rejected: they have a fault and no root.
  static constexpr size_t kMaxTextSize = (size_t{1} << 31) - 1;
  /// How many faults of each kind are kept.
  static constexpr size_t kMaxFaultsPerCode = 200;

  JsonDocument() : JsonDocument(std::string()) {}
  /// Reads `text`, whatever it contains. Throws only std::bad_alloc.
  explicit JsonDocument(std::string text);

  std::string_view text() const { return std::string_view(text_.data(), size_); }

  /// The outermost value, of any kind; none if there is none. If the text has faults, what could be read.
  JsonValue root() const { return tape_size_ == 0 ? JsonValue() : JsonValue(this, 0); }

  /// In text order. Reading continues after a fault with the next member or element where that is safe.
  const std::vector<JsonFault>& faults() const { return faults_; }
  /// Whether protobuf's parser accepts the grammar: all faults are lenient ones.
  bool ok() const { return ok_; }

  /// Line, column and excerpt of an offset; larger offsets count as the end of the text.
  TextPosition PositionOf(size_t offset) const;
  /// The innermost value whose text, or whose key, covers the offset; none outside the root.
  JsonValue ValueAt(size_t offset) const;

  /// Memory used by the text and its index.
  size_t memory_bytes() const;

 private:
  friend class JsonValue;
  friend class JsonMember;
  friend class JsonReader;

  struct Free {
    void operator()(uint32_t* words) const { std::free(words); }
  };
  /// Number of lines and of characters of the last line before a block of the text.
  struct LineMark {
    uint32_t line;
    uint32_t column;
  };

  static constexpr uint32_t kOffsetMask = 0x7fffffff;
  static constexpr uint32_t kMark = 0x80000000;

  const LineMark& MarkBefore(size_t offset) const;

  std::string text_;  ///< followed by zero bytes
  size_t size_ = 0;
  // The tape: a word per scalar and per key, its offset. The top bit of a word marks an invalid value, or an empty
  // object or list. Other objects and lists are three words and their contents: the offset; the index after the last
  // word; and, as the last word, the offset of the end, whose top bit says that not all of it could be read.
  std::unique_ptr<uint32_t[], Free> tape_;
  size_t tape_size_ = 0;
  std::vector<JsonFault> faults_;
  bool ok_ = true;
  mutable std::vector<LineMark> line_marks_;
};

inline uint32_t JsonValue::Word() const { return document_->tape_[index_]; }

inline size_t JsonValue::begin() const { return Word() & JsonDocument::kOffsetMask; }

inline const char* JsonValue::text() const { return document_->text_.data() + begin(); }

inline JsonKind JsonValue::kind() const {
  if (document_ == nullptr) return JsonKind::kNone;
  const uint32_t word = Word();
  const bool marked = (word & JsonDocument::kMark) != 0;
  switch (document_->text_[word & JsonDocument::kOffsetMask]) {
    case '{':
      return JsonKind::kObject;
    case '[':
      return JsonKind::kArray;
    case '"':
    case '\'':
      return marked ? JsonKind::kInvalid : JsonKind::kString;
    case 't':
      return marked ? JsonKind::kInvalid : JsonKind::kTrue;
    case 'f':
      return marked ? JsonKind::kInvalid : JsonKind::kFalse;
    case 'n':
      return marked ? JsonKind::kInvalid : JsonKind::kNull;
    default:
      return marked ? JsonKind::kInvalid : JsonKind::kNumber;
  }
}

inline uint32_t JsonValue::ContentsBegin() const { return index_ + 2; }

inline uint32_t JsonValue::Next() const {
  const uint32_t word = Word();
  const char first = document_->text_[word & JsonDocument::kOffsetMask];
  const bool has_contents = (first == '{' || first == '[') && (word & JsonDocument::kMark) == 0;
  return has_contents ? document_->tape_[index_ + 1] : index_ + 1;
}

inline bool JsonValue::empty() const {
  const uint32_t next = document_ == nullptr ? index_ + 1 : Next();
  return next == index_ + 1 || next == index_ + 3;
}

inline uint32_t JsonValue::ContentsEnd() const { return empty() ? ContentsBegin() : Next() - 1; }

inline JsonMembers JsonValue::members() const {
  if (!is_object()) return JsonMembers(document_, 0, 0);
  return JsonMembers(document_, ContentsBegin(), ContentsEnd());
}

inline JsonElements JsonValue::elements() const {
  if (!is_array()) return JsonElements(document_, 0, 0);
  return JsonElements(document_, ContentsBegin(), ContentsEnd());
}

inline size_t JsonMember::key_begin() const { return document_->tape_[index_] & JsonDocument::kOffsetMask; }

/// Sets line, column, their ends and the excerpt of a diagnostic from offsets.
void SetPosition(const JsonDocument& document, size_t begin, size_t end, Diagnostic* diagnostic);

/// The unescaped text of a key or string, given with its quotes if it has any, as protobuf's parser reads it. `scratch`
/// holds it if it had escapes.
std::string_view DecodeJsonString(std::string_view raw, std::string* scratch);

/// `text` as a strict JSON string, with its quotes.
std::string EncodeJsonString(std::string_view text);

/// A text from a file for use in a message: truncated if long, but not within a character.
std::string Excerpt(std::string_view text, size_t max_bytes = 80);

}  // namespace zotuning
