#include "json_locate.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

namespace zotuning_tool {
namespace {

bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsNameStart(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == '$'; }

/// Bytes of the UTF-8 character at `offset`, 0 when it is none.
size_t CharacterLength(std::string_view text, size_t offset) {
  const auto byte = [&](size_t i) -> unsigned { return static_cast<unsigned char>(text[offset + i]); };
  const unsigned first = byte(0);
  if (first < 0x80) return 1;
  const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || offset + length > text.size()) return 0;
  for (size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  const bool overlong = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xF0 && byte(1) < 0x90);
  const bool outside = (first == 0xED && byte(1) > 0x9F) || (first == 0xF4 && byte(1) > 0x8F);
  return overlong || outside ? 0 : length;
}

class Scanner {
 public:
  Scanner(std::string_view text, const std::function<void(const JsonPath&, const JsonValue&)>& visit)
      : text_(text), visit_(visit) {}

  std::optional<JsonFault> Run() {
    // Invalid UTF-8 is a fault wherever it stands, but one of the grammar before it comes first.
    const size_t invalid = FindInvalidUtf8();
    const std::string_view whole = text_;
    if (invalid != std::string_view::npos) text_ = text_.substr(0, invalid);
    Root();
    if (invalid != std::string_view::npos && (!fault_ || fault_->offset >= text_.size() || at_end_)) {
      text_ = whole;
      fault_ = JsonFault{invalid, "this is not UTF-8 text", ""};
    }
    return fault_;
  }

 private:
  struct Level {
    char close;  ///< '}' or ']'
    bool named;  ///< whether path_'s last step belongs to the value that this level is
    bool fresh = true;
  };

  size_t FindInvalidUtf8() const {
    for (size_t i = 0; i < text_.size();) {
      const size_t length = CharacterLength(text_, i);
      if (length == 0) return i;
      i += length;
    }
    return std::string_view::npos;
  }

  bool Fail(size_t offset, std::string message, std::string hint = "") {
    if (offset >= text_.size()) at_end_ = true;
    fault_ = JsonFault{offset, std::move(message), std::move(hint)};
    return false;
  }

  void SkipBlanks() {
    while (at_ < text_.size() && IsBlank(text_[at_])) ++at_;
  }

  char Next() const { return at_ < text_.size() ? text_[at_] : '\0'; }
  bool AtEnd() const { return at_ >= text_.size(); }

  std::string HintHere() const {
    const std::string_view rest = text_.substr(std::min(at_, text_.size()));
    if (rest.substr(0, 2) == "//" || rest.substr(0, 2) == "/*" || rest.substr(0, 1) == "#") {
      return "comments are not allowed in JSON";
    }
    if (rest.substr(0, 3) == "\xEF\xBB\xBF") return "save the file without a byte order mark";
    return "";
  }

  void Root() {
    SkipBlanks();
    if (AtEnd()) {
      Fail(at_, "the text is empty; an object { ... } is expected");
      return;
    }
    if (!Value(at_)) return;
    while (!levels_.empty()) {
      if (!Step()) return;
    }
    SkipBlanks();
    if (!AtEnd()) Fail(at_, "nothing may follow the end of the object", HintHere());
  }

  /// One key with its value, one element, or the end of the innermost object or list.
  bool Step() {
    Level& level = levels_.back();
    const bool object = level.close == '}';
    SkipBlanks();
    if (!level.fresh && Next() != level.close) {
      if (AtEnd()) return Fail(at_, std::string("the text ends before '") + level.close + "'");
      if (Next() != ',') {
        return Fail(at_, object ? "',' or '}' is expected after a value" : "',' or ']' is expected after an element",
                    HintHere());
      }
      ++at_;
      SkipBlanks();
    }
    level.fresh = false;
    if (AtEnd()) return Fail(at_, std::string("the text ends before '") + level.close + "'");
    if (Next() == level.close) {
      ++at_;
      Leave();
      return true;
    }
    return object ? Member() : Element();
  }

  void Leave() {
    const bool named = levels_.back().named;
    levels_.pop_back();
    if (named) path_.pop_back();
  }

  bool Member() {
    const size_t key_offset = at_;
    std::string key;
    if (!Key(key)) return false;
    SkipBlanks();
    if (Next() != ':') return Fail(at_, "':' is expected after the key " + Excerpt(key), HintHere());
    ++at_;
    SkipBlanks();
    path_.push_back({std::move(key), -1});
    const size_t depth = levels_.size();
    if (!Value(key_offset)) return false;
    if (levels_.size() == depth) {
      path_.pop_back();
    } else {
      levels_.back().named = true;
    }
    return true;
  }

  bool Element() {
    // Lists within lists read as one.
    if (!path_.empty()) ++path_.back().index;
    return Value(at_);
  }

  bool Key(std::string& key) {
    const char c = Next();
    if (c == '"' || c == '\'') {
      const size_t begin = at_ + 1;
      if (!String()) return false;
      key = Unescaped(text_.substr(begin, at_ - begin - 1));
      return true;
    }
    if (!IsNameStart(c)) return Fail(at_, "a key or '}' is expected", HintHere());
    const size_t begin = at_;
    while (!AtEnd() && (IsNameStart(Next()) || IsDigit(Next()))) ++at_;
    key = std::string(text_.substr(begin, at_ - begin));
    const bool literal = key == "true" || key == "false" || key == "null";
    return !literal || Fail(begin, "a key is expected; " + key + " has to stand in double quotes to be one");
  }

  bool Value(size_t key_offset) {
    if (AtEnd()) return Fail(at_, "the text ends where a value is expected");
    const size_t begin = at_;
    const char c = Next();
    if (c == '{' || c == '[') {
      if (c == '[' && !levels_.empty() && levels_.back().close == ']') {
        // The elements of an inner list take the place of the list itself.
        if (!path_.empty()) --path_.back().index;
      } else {
        Visit({key_offset, begin, {}});
      }
      ++at_;
      levels_.push_back({c == '{' ? '}' : ']', false});
      return true;
    }
    const bool read = c == '"' || c == '\'' ? String() : c == '-' || IsDigit(c) ? Number() : Literal();
    if (read) Visit({key_offset, begin, text_.substr(begin, at_ - begin)});
    return read;
  }

  void Visit(const JsonValue& value) {
    if (visit_) visit_(path_, value);
  }

  bool Literal() {
    for (const std::string_view literal : {"true", "false", "null"}) {
      if (text_.substr(at_, literal.size()) == literal) {
        at_ += literal.size();
        return true;
      }
    }
    const std::string hint = HintHere();
    return Fail(at_, "a value is expected",
                hint.empty() && IsNameStart(Next()) ? "text stands in double quotes; true, false and null in lower case"
                                                    : hint);
  }

  bool Number() {
    const size_t begin = at_;
    bool fraction = false;
    for (++at_; !AtEnd(); ++at_) {
      const char c = Next();
      if (c == '.' || c == 'e' || c == 'E') fraction = true;
      if (!IsDigit(c) && c != '.' && c != 'e' && c != 'E' && c != '+' && c != '-' && c != 'x') break;
    }
    const std::string_view number = text_.substr(begin, at_ - begin);
    const std::string_view digits = number.substr(number[0] == '-' ? 1 : 0);
    if (!fraction && digits.size() > 1 && digits[0] == '0') {
      return Fail(begin, "a number may not begin with 0", "octal and hexadecimal numbers are not allowed in JSON");
    }
    double value = 0;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
    if (end != number.data() + number.size() || digits.empty()) return Fail(begin, "this is not a number");
    if (error == std::errc::result_out_of_range && !Vanishes(digits)) {
      return Fail(begin, "the number is too large for a double");
    }
    return true;
  }

  /// Whether a number that a double cannot hold is too small rather than too large.
  static bool Vanishes(std::string_view digits) {
    const size_t exponent = digits.find_first_of("eE");
    if (exponent != std::string_view::npos) return digits[exponent + 1] == '-';
    return digits[0] == '0';
  }

  bool String() {
    const size_t begin = at_;
    const char quote = text_[at_++];
    while (!AtEnd() && Next() != quote) {
      if (Next() == '\\') {
        if (at_ + 1 < text_.size() && text_[at_ + 1] == 'u') {
          if (!UnicodeEscape()) return false;
          continue;
        }
        ++at_;
      }
      ++at_;
    }
    if (at_ >= text_.size()) {
      at_end_ = true;
      return Fail(begin, "this string has no closing quote");
    }
    ++at_;
    return true;
  }

  std::optional<uint32_t> HexAt(size_t offset) const {
    if (text_.substr(offset, 2) != "\\u" || offset + 6 > text_.size()) return std::nullopt;
    uint32_t code = 0;
    const char* first = text_.data() + offset + 2;
    const auto [end, error] = std::from_chars(first, first + 4, code, 16);
    if (error != std::errc() || end != first + 4) return std::nullopt;
    return code;
  }

  bool UnicodeEscape() {
    const auto code = HexAt(at_);
    if (!code) return Fail(at_, "four hexadecimal digits are expected after \\u");
    const bool high = *code >= 0xD800 && *code < 0xDC00;
    if (*code >= 0xDC00 && *code < 0xE000) return Fail(at_, "a low surrogate stands alone");
    if (high) {
      const auto low = HexAt(at_ + 6);
      if (!low || *low < 0xDC00 || *low > 0xDFFF) return Fail(at_, "a high surrogate needs a low one after it");
      at_ += 6;
    }
    at_ += 6;
    return true;
  }

  /// Keys are field names; of escapes, only those that can stand in one matter here.
  std::string Unescaped(std::string_view raw) const {
    std::string key;
    for (size_t i = 0; i < raw.size(); ++i) {
      uint32_t code = 0;
      if (raw[i] == '\\' && i + 1 < raw.size() && raw[i + 1] != 'u') {
        key += raw[++i];
      } else if (raw[i] == '\\' && i + 6 <= raw.size() &&
                 std::from_chars(raw.data() + i + 2, raw.data() + i + 6, code, 16).ec == std::errc() && code < 0x80) {
        key += static_cast<char>(code);
        i += 5;
      } else {
        key += raw[i];
      }
    }
    return key;
  }

  std::string_view text_;
  const std::function<void(const JsonPath&, const JsonValue&)>& visit_;
  size_t at_ = 0;
  bool at_end_ = false;  ///< whether the fault is that the text ends
  std::vector<Level> levels_;
  JsonPath path_;
  std::optional<JsonFault> fault_;
};

}  // namespace

std::optional<JsonFault> ScanJson(std::string_view text,
                                  const std::function<void(const JsonPath&, const JsonValue&)>& visit) {
  return Scanner(text, visit).Run();
}

}  // namespace zotuning_tool
