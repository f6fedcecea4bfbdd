#include <algorithm>
#include <charconv>

#include "json_locate.h"

namespace zotuning_tool {
namespace {

/// Field names and their camel-case forms are equal without underscores and letter case.
std::string Folded(std::string_view name) {
  std::string folded;
  for (const char c : name) {
    if (c != '_') folded += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return folded;
}

bool SameNames(const JsonPath& a, const JsonPath& b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](const JsonStep& x, const JsonStep& y) {
           return x.name == y.name || Folded(x.name) == Folded(y.name);
         });
}

bool SameIndexes(const JsonPath& a, const JsonPath& b) {
  return std::equal(a.begin(), a.end(), b.begin(),
                    [](const JsonStep& x, const JsonStep& y) { return std::max(x.index, 0) == std::max(y.index, 0); });
}

/// Whether two scalars read the same; numbers are printed anew in messages.
bool SameValue(std::string_view raw, std::string_view value) {
  if (raw == value) return true;
  const auto bare = [](std::string_view text) {
    return text.size() > 1 && (text[0] == '"' || text[0] == '\'') ? text.substr(1, text.size() - 2) : text;
  };
  const bool quoted = !value.empty() && value[0] == '"';
  if (quoted) return !raw.empty() && (raw[0] == '"' || raw[0] == '\'') && bare(raw) == bare(value);
  double a = 0, b = 0;
  const auto whole = [](std::string_view text, double& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
  };
  return whole(raw, a) && whole(value, b) && !(a < b) && !(b < a);
}

}  // namespace

JsonPath ParseJsonPath(std::string_view text) {
  JsonPath path;
  size_t at = 0;
  while (at < text.size()) {
    if (text.substr(at, 2) == "[\"") {
      const size_t end = std::min(text.find("\"]", at + 2), text.size());
      path.push_back({std::string(text.substr(at + 2, end - at - 2)), -1});
      at = std::min(end + 2, text.size());
    } else if (text[at] == '[') {
      const size_t end = std::min(text.find(']', at), text.size());
      int index = -1;
      std::from_chars(text.data() + at + 1, text.data() + end, index);
      if (!path.empty()) path.back().index = index;
      at = std::min(end + 1, text.size());
    } else {
      if (text[at] == '.') ++at;
      const size_t end = std::min(text.find_first_of(".[", at), text.size());
      path.push_back({std::string(text.substr(at, end - at)), -1});
      at = end;
    }
  }
  return path;
}

std::string JsonPathText(const JsonPath& path) {
  std::string text;
  for (const JsonStep& step : path) {
    if (!text.empty()) text += '.';
    text += step.name;
    if (step.index >= 0) text += "[" + std::to_string(step.index) + "]";
  }
  return text;
}

std::optional<JsonValue> FindJsonValue(std::string_view text, const JsonPath& path, std::string_view value) {
  std::optional<JsonValue> best;
  int best_rank = 0;
  ScanJson(text, [&](const JsonPath& here, const JsonValue& met) {
    if (!SameNames(here, path)) return;
    const int rank = 1 + (SameIndexes(here, path) ? 1 : 0) + (!value.empty() && SameValue(met.raw, value) ? 2 : 0);
    if (rank > best_rank) {
      best = met;
      best_rank = rank;
    }
  });
  return best;
}

std::string Excerpt(std::string_view text, size_t max_bytes) {
  if (text.size() <= max_bytes) return std::string(text);
  size_t end = max_bytes;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  return std::string(text.substr(0, end)) + "...";
}

TextPosition PositionAt(std::string_view text, size_t offset) {
  constexpr size_t kExcerptBytes = 70;
  offset = std::min(offset, text.size());
  const auto continues = [&](size_t i) { return (static_cast<unsigned char>(text[i]) & 0xC0) == 0x80; };
  const size_t before = offset == 0 ? std::string_view::npos : text.rfind('\n', offset - 1);
  const size_t line_begin = before == std::string_view::npos ? 0 : before + 1;
  const size_t line_end = std::min(text.find('\n', offset), text.size());

  TextPosition position{1, 1, "", 1};
  position.line += static_cast<int>(std::count(text.begin(), text.begin() + static_cast<ptrdiff_t>(line_begin), '\n'));
  for (size_t i = line_begin; i < offset; ++i) position.column += continues(i) ? 0 : 1;

  size_t begin = line_begin;
  if (line_end - line_begin > kExcerptBytes && offset - line_begin > kExcerptBytes / 2)
    begin = offset - kExcerptBytes / 2;
  while (begin < offset && continues(begin)) ++begin;
  size_t end = std::min(line_end, begin + kExcerptBytes);
  while (end > offset && end < line_end && continues(end)) --end;
  for (size_t i = begin; i < end; ++i) {
    // A tab takes one place, so that the mark below the line stands right.
    position.excerpt += text[i] == '\t' ? ' ' : text[i];
    if (i < offset && !continues(i)) ++position.excerpt_column;
  }
  while (!position.excerpt.empty() && position.excerpt.back() == '\r') position.excerpt.pop_back();
  return position;
}

}  // namespace zotuning_tool
