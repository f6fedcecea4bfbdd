#include "editor_files.h"

#include <algorithm>
#include <map>

#include "workspace/edit.h"
#include "workspace/json_document.h"

namespace zotuning::tool {
namespace {

/// The text with comments replaced by spaces, so that every offset stays the same.
std::string WithoutComments(const std::string& text) {
  std::string blank = text;
  for (size_t i = 0; i < text.size();) {
    size_t end = i + 1;
    if (text[i] == '"') {
      while (end < text.size() && text[end] != '"') end += text[end] == '\\' ? 2 : 1;
      i = end + 1;
      continue;
    }
    if (text.compare(i, 2, "//") == 0) {
      end = std::min(text.find('\n', i), text.size());
    } else if (text.compare(i, 2, "/*") == 0) {
      const size_t close = text.find("*/", i + 2);
      end = close == std::string::npos ? text.size() : close + 2;
    } else {
      i = end;
      continue;
    }
    for (; i < end; ++i) {
      if (text[i] != '\n' && text[i] != '\r') blank[i] = ' ';
    }
  }
  return blank;
}

std::string IndentOfLine(const std::string& text, size_t offset) {
  const size_t begin = offset == 0 ? 0 : text.rfind('\n', offset - 1) + 1;
  return text.substr(begin, std::min(text.find_first_not_of(" \t", begin), offset) - begin);
}

/// `json`, formatted, with its lines indented below a line with the indentation `indent`.
std::string Laid(const Json& json, const std::string& indent, const std::string& line_end) {
  std::string laid;
  for (const char c : json.dump(2, ' ', false, Json::error_handler_t::replace)) {
    laid += c == '\n' ? line_end + indent : std::string(1, c);
  }
  return laid;
}

/// Edits to a text by offset.
class Splices {
 public:
  Splices(const std::string& text, const std::string& blank)
      : text_(text), blank_(blank), line_end_(text.find("\r\n") == std::string::npos ? "\n" : "\r\n") {}

  void Replace(const JsonValue& value, const Json& json) {
    Add(value.begin(), value.end(), Laid(json, IndentOfLine(text_, value.begin()), line_end_));
  }

  /// After the last item of an object or list, which ends at `last`; for an empty one, `last` is the bracket. Items are
  /// given with their keys.
  void Append(const JsonValue& container, size_t last, const std::vector<std::pair<std::string, Json>>& items) {
    const std::string outer = IndentOfLine(text_, container.begin());
    const std::string indent = container.empty() ? outer + "  " : IndentOfLine(text_, last);
    std::string added;
    for (const auto& [key, json] : items) {
      added.append(added.empty() ? "" : ",").append(line_end_).append(indent).append(key);
      added += Laid(json, indent, line_end_);
    }
    const size_t close = container.end() - 1;
    const std::string_view tail = std::string_view(blank_).substr(last, close - last);
    const size_t comma = tail.find(',');
    if (!container.empty() && comma == std::string_view::npos) Add(last, last, ",");
    // Comments after the last item stay with it.
    size_t at = tail.rfind('\n');
    if (at == std::string_view::npos) {
      added += line_end_ + outer;
      at = tail.size();
    } else if (at > 0 && tail[at - 1] == '\r') {
      --at;
    }
    Add(last + at, last + at, added);
  }

  std::string Apply() const {
    std::string result;
    size_t at = 0;
    for (const auto& [begin, change] : changes_) {
      result.append(text_, at, begin - at).append(change.second);
      at = change.first;
    }
    return result.append(text_, at, std::string::npos);
  }

 private:
  void Add(size_t begin, size_t end, std::string text) {
    changes_.emplace(begin, std::make_pair(end, std::move(text)));
  }

  const std::string& text_;
  const std::string& blank_;
  const std::string line_end_;
  std::multimap<size_t, std::pair<size_t, std::string>> changes_;
};

}  // namespace

std::optional<std::string> MergeEntries(const std::string& text, const std::string& list_key, const std::string& id_key,
                                        const std::vector<Json>& entries, std::string* why) {
  const std::string blank = WithoutComments(text);
  const JsonDocument document(blank);
  const JsonValue root = document.root();
  if (!IsEditable(document)) {
    *why = "it holds no object";
    for (const JsonFault& fault : document.faults()) {
      if (fault.lenient) continue;
      *why = fault.message;
      break;
    }
    return std::nullopt;
  }
  const JsonValue list = root.Find(list_key);
  if (list && !list.is_array()) {
    *why = "its " + Quoted(list_key) + " is not a list";
    return std::nullopt;
  }
  Splices splices(text, blank);
  std::vector<std::pair<std::string, Json>> added;
  for (const Json& entry : entries) {
    JsonValue known;
    for (const JsonValue element : list.elements()) {
      if (element.Find(id_key).is_string() && element.Find(id_key).String() == entry[id_key]) known = element;
    }
    if (!known) {
      added.emplace_back("", entry);
    } else if (Json::parse(blank.substr(known.begin(), known.end() - known.begin()), nullptr, false) != entry) {
      splices.Replace(known, entry);
    }
  }
  if (added.empty()) return splices.Apply();
  if (list) {
    size_t last = list.begin() + 1;
    for (const JsonValue element : list.elements()) last = element.end();
    splices.Append(list, last, added);
    return splices.Apply();
  }
  Json whole = Json::array();
  for (auto& [key, entry] : added) whole.push_back(std::move(entry));
  size_t last = root.begin() + 1;
  for (const JsonMember member : root.members()) last = member.value().end();
  splices.Append(root, last, {{EncodeJsonString(list_key) + ": ", std::move(whole)}});
  return splices.Apply();
}

}  // namespace zotuning::tool
