/// \file
/// The reader that fills a JsonDocument. Only for documents.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "workspace/json_document.h"
#include "workspace/json_tokens.h"

namespace zotuning {

/// One pass over a text. It continues after a fault where that is safe; see docs/json-trees.md for the grammar.
class JsonReader {
 public:
  explicit JsonReader(JsonDocument* document);
  void Read();

 private:
  enum class Expect : uint8_t {
    kFirst,      ///< a member or element, or the end: after an opening bracket
    kNext,       ///< the same, after a comma
    kSeparator,  ///< a comma or the end: after a value
  };
  static constexpr uint32_t kNone = 0xffffffff;
  static constexpr uint32_t kMark = JsonDocument::kMark;
  /// After this many errors the rest of a text is not read.
  static constexpr size_t kMaxErrors = 1000;
  /// A fault may put this many words onto the tape that the brackets, commas and colons of the text do not account for.
  static constexpr size_t kWordsPerFault = 8;

  bool RefuseWhole();
  void NoteInvalidUtf8();
  bool ReserveTape();
  void ReserveMore();

  // Objects and lists.
  void Run();
  void ReadMember();
  void ReadElement();
  void ReadNumbers();
  void ReadValue();
  void Open();
  void Close(const char* end, bool complete);
  char CloseOf(uint32_t index) const;
  void MarkIncomplete();
  void Finish();

  // Scalars.
  void ReadNumber();
  void BadNumber(const char* what);
  void ReadString();
  const char* ReadOddString();
  void ReadLiteral(const char* literal, size_t size);
  void BadValue();
  void Invalid(const char* begin);

  // Text between tokens, allowed or not.
  void SkipSpace() {
    p_ = ZO_TUNING::internal::SkipBlanks(p_);
    if (MayBeOddSpace(*p_)) SkipOddSpace();
  }
  void SkipOddSpace();
  bool SkipConflict();

  // Faults, and continuing after them: json_recovery.cpp.
  void AddFault(JsonFault fault);
  void Note(Code code, const char* begin, const char* end, const char* message);
  void Fail(Code code, const char* begin, const char* end, std::string message, std::string hint = "");
  void EndOfText();
  void AfterEnd();
  void BadSeparator();
  void BadColon(const char* key, const char* key_end);
  void BadKey();
  bool IsDecimalComma() const;
  bool CloseMismatch();
  bool ReopenString(bool key);
  bool PassOverQuotes();
  bool PassOverEnd();
  bool CloseBeforeKey();
  void GoOnAfterLine(const char* p);
  void SkipItem();

  /// Whether the innermost object or list is still empty on the tape.
  bool IsEmptySoFar() const { return tape_size_ == open_ + 2; }
  uint32_t Offset(const char* p) const { return static_cast<uint32_t>(p - text_); }
  void Push(const char* p) { tape_[tape_size_++] = Offset(p); }

  JsonDocument& document_;
  const char* text_;
  const char* end_;
  const char* p_;
  uint32_t* tape_ = nullptr;  ///< owned by the document
  size_t tape_size_ = 0;
  size_t tape_capacity_ = 0;
  size_t tape_bound_ = 0;  ///< words that the text can need
  uint32_t open_ = kNone;  ///< index of the innermost open object or list; its second word links to the one around it
  char close_ = '\0';      ///< the bracket that closes it
  Expect expect_ = Expect::kFirst;
  const char* comma_ = nullptr;     ///< the last one read
  bool forgive_separator_ = false;  ///< whether a comma may be missing here, since the skipped text contained it
  bool in_conflict_ = false;
  bool conflict_ends_ = true;  ///< whether a conflict end marker may follow
  bool string_valid_ = true;   ///< cleared by ReadOddString
  bool too_deep_ = false;
  size_t object_depth_ = 0;
  size_t errors_ = 0;
  const char* last_error_ = nullptr;
  uint16_t counts_[std::size(kCodes)] = {};  ///< of faults by code
};

}  // namespace zotuning
