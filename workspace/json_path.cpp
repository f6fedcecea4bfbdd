// Tested by tests/workspace/json_path_test.cpp.

#include "workspace/json_path.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace zotuning {
namespace {

bool IsPlain(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '$' || c == '-';
}

/// The value in `container` that is or contains `id`, whose step is appended.
JsonValue StepTo(const JsonValue& container, uint32_t id, JsonPath* path) {
  JsonValue found;
  std::optional<JsonMember> holder;
  for (const JsonMember member : container.members()) {
    if (member.value().id() > id) break;
    holder = member;
    found = member.value();
  }
  if (holder) path->Push(holder->key());
  size_t index = 0;
  for (const JsonValue element : container.elements()) {
    if (element.id() > id) break;
    found = element;
    ++index;
  }
  if (index > 0) path->Push(index - 1);
  return found;
}

}  // namespace

std::optional<JsonPath> JsonPath::Parse(std::string_view text, std::string* why) {
  const auto fail = [&](size_t at, std::string message) {
    if (why != nullptr) *why = std::move(message) + " at character " + std::to_string(at + 1);
    return std::nullopt;
  };
  JsonPath path;
  size_t at = 0;
  while (at < text.size()) {
    if (text.substr(at, 2) == "[\"") {
      size_t end = at + 2;
      while (end < text.size() && text[end] != '"') end += text[end] == '\\' ? 2 : 1;
      if (text.substr(std::min(end, text.size()), 2) != "\"]") return fail(at, "a name in [\"...\"] does not end");
      std::string scratch;
      path.Push(std::string(DecodeJsonString(text.substr(at + 1, end - at), &scratch)));
      at = end + 2;
    } else if (text[at] == '[') {
      size_t index = 0;
      const char* digits = text.data() + at + 1;
      const auto [end, error] = std::from_chars(digits, text.data() + text.size(), index);
      if (error != std::errc() || end == text.data() + text.size() || *end != ']' || index == Step::kName) {
        return fail(at, "a number in [...] is expected");
      }
      path.Push(index);
      at = static_cast<size_t>(end - text.data()) + 1;
    } else {
      if (!path.empty()) {
        if (text[at] != '.') return fail(at, "'.' or '[' is expected");
        ++at;
      }
      const size_t begin = at;
      while (at < text.size() && IsPlain(text[at])) ++at;
      if (at == begin) return fail(at, "a name is expected");
      path.Push(std::string(text.substr(begin, at - begin)));
    }
  }
  return path;
}

JsonPath JsonPath::Of(const JsonValue& value) {
  JsonPath path;
  if (!value) return path;
  JsonValue here = value.document()->root();
  while (here && here != value) here = StepTo(here, value.id(), &path);
  return path;
}

std::string JsonPath::ToString() const {
  std::string text;
  for (const Step& step : steps_) {
    if (step.is_index()) {
      text += '[' + std::to_string(step.index) + ']';
    } else if (!step.name.empty() && std::all_of(step.name.begin(), step.name.end(), IsPlain)) {
      if (!text.empty()) text += '.';
      text += step.name;
    } else {
      text += '[' + EncodeJsonString(step.name) + ']';
    }
  }
  return text;
}

JsonValue JsonPath::Find(const JsonValue& root) const {
  JsonValue value = root;
  for (const Step& step : steps_) {
    if (!step.is_index()) {
      value = value.Find(step.name);
    } else {
      JsonValue found;
      size_t left = step.index + 1;
      for (const JsonValue element : value.elements()) {
        if (--left > 0) continue;
        found = element;
        break;
      }
      value = found;
    }
    if (!value) break;
  }
  return value;
}

}  // namespace zotuning
