// Tested by tests/workspace/rule_text_test.cpp.

#include "workspace/rule_text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <vector>

namespace zotuning {
namespace {

std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

std::optional<size_t> ToCount(std::string_view text) {
  size_t count = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), count);
  const bool whole = result.ec == std::errc() && result.ptr == text.data() + text.size();
  return whole && !text.empty() ? std::optional<size_t>(count) : std::nullopt;
}

/// Words without the punctuation after them.
std::vector<std::string_view> WordsOf(std::string_view text) {
  std::vector<std::string_view> words;
  while (!text.empty()) {
    const size_t end = std::min(text.find(' '), text.size());
    std::string_view word = text.substr(0, end);
    while (!word.empty() && std::string_view(".,;:()").find(word.back()) != std::string_view::npos)
      word.remove_suffix(1);
    if (!word.empty()) words.push_back(word);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return words;
}

bool IsSizeWord(std::string_view word) {
  for (const std::string_view known : {"element", "value", "row", "column"}) {
    if (word == known || word == std::string(known) + "s") return true;
  }
  return false;
}

/// "17x13"
bool ReadProduct(std::string_view word, Sizes& sizes) {
  const size_t x = word.find('x');
  if (x == std::string_view::npos) return false;
  const std::optional<size_t> rows = ToCount(word.substr(0, x)), columns = ToCount(word.substr(x + 1));
  if (!rows || !columns) return false;
  sizes.rows = rows;
  sizes.columns = columns;
  return true;
}

constexpr std::string_view kRange = "Range:", kUnit = "Unit:";

}  // namespace

std::optional<double> ToNumber(std::string_view text) {
  text = Trimmed(text);
  double number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool whole = result.ec == std::errc() && result.ptr == text.data() + text.size() && std::isfinite(number);
  return whole && !text.empty() ? std::optional<double>(number) : std::nullopt;
}

std::optional<ValueRange> ReadRange(std::string_view text, RangeFault* fault) {
  *fault = RangeFault::kNone;
  text = Trimmed(text);
  if (text.substr(0, kRange.size()) == kRange) text = Trimmed(text.substr(kRange.size()));
  const size_t dots = text.find("..");
  if (dots == std::string_view::npos) return std::nullopt;
  const std::optional<double> low = ToNumber(text.substr(0, dots));
  std::string_view last = Trimmed(text.substr(dots + 2));
  last = last.substr(0, last.find_first_of(" ,;"));
  if (!last.empty() && last.back() == '.') last.remove_suffix(1);
  const std::optional<double> high = ToNumber(last);
  if (low && high && *low <= *high) {
    return ValueRange{*low, *high, std::string(Trimmed(text.substr(0, dots))) + ".." + std::string(last)};
  }
  if (low || high) *fault = low && high ? RangeFault::kOrder : RangeFault::kForm;
  return std::nullopt;
}

std::optional<size_t> ReadSize(std::string_view text, bool* unclear) {
  *unclear = false;
  text = Trimmed(text);
  if (text.empty() || text == "None") return std::nullopt;
  const std::vector<std::string_view> words = WordsOf(text);
  const bool one = words.size() == 1 || (words.size() == 2 && IsSizeWord(words[1]));
  if (one && ToNumber(words[0]) == -1.0) return std::nullopt;
  const std::optional<size_t> size = one ? ToCount(words[0]) : std::nullopt;
  *unclear = !size;
  return size;
}

Sizes ReadSizes(std::string_view text) {
  Sizes sizes;
  const std::vector<std::string_view> words = WordsOf(text);
  const auto word = [&](size_t i) { return i < words.size() ? words[i] : std::string_view(); };
  for (size_t i = 0; i < words.size(); ++i) {
    const std::optional<size_t> count = ToCount(words[i]);
    const std::string_view next = word(i + 1);
    if (count && (next == "element" || next == "elements")) {
      if (!sizes.length) sizes.length = count;
    } else if (!sizes.rows && count && (next == "row" || next == "rows") && word(i + 2) == "of" &&
               ToCount(word(i + 3))) {
      sizes.rows = count;
      sizes.columns = ToCount(word(i + 3));
    } else if (!sizes.rows && !ReadProduct(words[i], sizes) && count && next == "x") {
      ReadProduct(std::string(words[i]) + "x" + std::string(word(i + 2)), sizes);
    }
  }
  return sizes;
}

CommentRule ReadCommentRule(const std::string& comment) {
  CommentRule rule;
  const std::string_view text = comment;
  if (const size_t unit = text.find(kUnit); unit != std::string_view::npos) {
    std::string_view words = Trimmed(text.substr(unit + kUnit.size()));
    words = words.substr(0, std::min(words.find(". "), words.find(';')));
    if (!words.empty() && words.back() == '.') words.remove_suffix(1);
    rule.unit = words;
  }
  const size_t range = text.find(kRange);
  if (range != std::string_view::npos) {
    // A number in later words is not part of this range.
    RangeFault fault;
    rule.range = ReadRange(text.substr(range), &fault);
    rule.sizes = ReadSizes(text.substr(range + kRange.size()));
  }
  const Sizes anywhere = ReadSizes(text);
  if (!rule.sizes.length) rule.sizes.length = anywhere.length;
  if (!rule.sizes.rows) {
    rule.sizes.rows = anywhere.rows;
    rule.sizes.columns = anywhere.columns;
  }
  return rule;
}

}  // namespace zotuning
