// Tested by tests/workspace/path_pattern_test.cpp.

#include "workspace/path_pattern.h"

#include <charconv>
#include <utility>

#include "workspace/format.h"
#include "workspace/suggest.h"
#include "workspace/text.h"

namespace zotuning {
namespace {

bool IsRowType(const TypeTable& type) { return type.fields.size() == 1 && type.value == 0; }

/// Whether ".value" is implied.
bool ImpliesValue(const TypeTable* type) { return type != nullptr && (type->is_parameter() || IsRowType(*type)); }

std::vector<std::string> FieldNames(const TypeTable& type) {
  std::vector<std::string> names;
  for (const FieldEntry& field : type.fields) names.push_back(field.name());
  return names;
}

void FindPathsTo(const TypeTable& type, std::string_view name, const std::string& prefix, int depth,
                 std::vector<std::string>& paths) {
  constexpr int kMaxDepth = 10;  // of recursive types
  constexpr size_t kMaxPaths = 3;
  for (const FieldEntry& field : type.fields) {
    if (paths.size() >= kMaxPaths) return;
    if (field.name() == name) paths.push_back(prefix + field.name());
    if (field.message == nullptr || field.map || field.message->is_rule || depth == kMaxDepth) continue;
    FindPathsTo(*field.message, name, prefix + field.name() + (field.repeated ? "[*]." : "."), depth + 1, paths);
  }
}

bool ReadSize(std::string_view text, size_t* size) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *size);
  return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

std::optional<PathPattern> PathPattern::Parse(std::string_view text, std::string* why) {
  PathPattern pattern;
  pattern.text_ = std::string(text);
  // Ranges are replaced by the index of their entry, so that the rest is a plain path.
  std::vector<Range> ranges;
  std::string plain;
  for (size_t at = 0; at < text.size();) {
    if (text.substr(at, 2) == "[\"") {
      size_t end = at + 2;
      while (end < text.size() && text[end] != '"') end += text[end] == '\\' ? 2 : 1;
      plain.append(text.substr(at, end - at));
      at = end;
    } else if (const size_t end = text[at] == '[' ? text.find(']', at) : std::string_view::npos;
               end != std::string_view::npos) {
      const std::string_view inner = text.substr(at + 1, end - at - 1);
      const size_t colon = inner.find(':');
      Range range;
      range.open = inner == "*";
      bool good = range.open;
      if (colon != std::string_view::npos) {
        range.open = colon + 1 == inner.size();
        good = (colon == 0 || ReadSize(inner.substr(0, colon), &range.begin)) &&
               (range.open || ReadSize(inner.substr(colon + 1), &range.end)) && (range.open || range.begin < range.end);
      } else if (!good) {
        good = ReadSize(inner, &range.begin) && range.begin != JsonPath::Step::kName;
        range.end = range.begin + 1;
      }
      if (!good) {
        *why = "[...] holds a number from 0, '*', or a range such as 4:8, not " + Quoted(inner);
        return std::nullopt;
      }
      plain += '[' + std::to_string(ranges.size()) + ']';
      ranges.push_back(range);
      at = end + 1;
    } else {
      plain += text[at++];
    }
  }
  const std::optional<JsonPath> path = JsonPath::Parse(plain, why);
  if (!path) return std::nullopt;
  if (path->empty()) {
    *why = "a path is expected, such as gain or zones[0].weight";
    return std::nullopt;
  }
  for (const JsonPath::Step& step : path->steps()) {
    if (step.is_index()) {
      pattern.steps_.push_back({"", ranges[step.index], true});
    } else {
      pattern.steps_.push_back({step.name, {}, false});
    }
  }
  return pattern;
}

std::optional<TypedPath> TypedPath::Resolve(const PathPattern& pattern, const TypeTable& type, std::string* why) {
  TypedPath path;
  // What the steps so far lead to: a message, a map, a list, else a scalar.
  const TypeTable* message = &type;
  bool map = false, list = false;
  const auto enter = [&](const FieldEntry& field, bool element) {
    path.field_ = &field;
    map = field.map && !element;
    list = field.repeated && !map && !element;
    message = map || list ? nullptr : field.message;
  };
  const auto imply_value = [&] {
    const FieldEntry& value = message->fields[message->value];
    path.steps_.push_back({Kind::kField, message, &value, "", {}, {}});
    enter(value, false);
  };
  std::string so_far;
  const auto fail = [&](const std::string& what) {
    *why = what;
    return std::nullopt;
  };
  for (size_t i = 0; i < pattern.steps_.size(); ++i) {
    const PathPattern::Step& step = pattern.steps_[i];
    const std::string here = so_far.empty() ? type.type->name() : so_far;
    if (!step.is_range) {
      if (map) {
        path.steps_.push_back({Kind::kKey, nullptr, nullptr, step.name, {}, {}});
        for (const FieldEntry& each : path.field_->message->fields) {
          if (each.descriptor->number() != 2) continue;
          enter(each, false);
          break;
        }
      } else if (message != nullptr) {
        const auto found = message->by_key.find(step.name);
        if (found == message->by_key.end()) {
          return fail(Quoted(here) + " has no field " + Quoted(step.name) +
                      DidYouMean(step.name, FieldNames(*message)));
        }
        path.steps_.push_back({Kind::kField, message, &message->fields[found->second], "", {}, {}});
        enter(message->fields[found->second], false);
      } else {
        std::string fault = Quoted(here);
        if (list) {
          fault.append(" is a list; name an element first, as in ").append(here).append("[0] or ").append(here);
        }
        return fail(fault.append(list ? "[*]" : " has no fields"));
      }
      so_far += (so_far.empty() ? "" : ".") + step.name;
      continue;
    }
    if (ImpliesValue(message)) imply_value();
    if (!list) return fail(Quoted(here) + " is not a list");
    const bool cells = message == nullptr && path.field_->message == nullptr && i + 1 < pattern.steps_.size() &&
                       pattern.steps_[i + 1].is_range;
    path.steps_.push_back({cells ? Kind::kCells : Kind::kElements, nullptr, path.field_, "", step.range, {}});
    if (cells) path.steps_.back().second = pattern.steps_[++i].range;
    enter(*path.field_, true);
    so_far += cells ? "[0][0]" : "[0]";
  }
  if (ImpliesValue(message)) imply_value();
  path.is_list_ = list;
  return path;
}

/// The walk through one document.
struct TypedPath::Walk {
  const TypedPath& path;
  const std::string& file;
  std::vector<Match>& matches;
  DiagnosticSink& sink;
  JsonPath here;
  size_t line = 0;

  bool Fail(const JsonValue& value, std::string message) {
    Diagnostic diagnostic(Code::kNoMatch, std::move(message), "", file);
    if (value) SetPosition(*value.document(), value.begin(), value.end(), &diagnostic);
    diagnostic.path = here.ToString();
    sink.Add(std::move(diagnostic));
    return false;
  }

  void Add(const JsonValue& value, size_t columns) {
    matches.push_back({here, value, path.field_, path.is_list_, path.is_list_ ? columns : 0, line, {}, {}});
  }

  /// The elements of `range`; there are `count` elements, called `what` in messages.
  bool IsWithin(const JsonValue& value, const Range& range, size_t count, const char* what) {
    const size_t needed = range.open ? range.begin + (range.begin > 0 ? 1 : 0) : range.end;
    return needed <= count || Fail(value, Quoted(here.ToString()) + " has " + Count(count, what));
  }

  /// `columns` is that of the parameter around a list.
  bool Go(size_t at, const JsonValue& value, size_t columns) {
    if (at == path.steps_.size()) {
      Add(value, columns);
      return true;
    }
    const Step& step = path.steps_[at];
    switch (step.kind) {
      case Kind::kField:
      case Kind::kKey:
        return GoToMember(at, value);
      case Kind::kElements:
      case Kind::kCells:
        break;
    }
    if (!value.is_array()) return Fail(value, Quoted(here.ToString()) + " is not a list here");
    const std::vector<JsonValue> elements = ElementsOf(value);
    if (step.kind == Kind::kElements) {
      if (!IsWithin(value, step.first, elements.size(), "element")) return false;
      const bool last = at + 1 == path.steps_.size();
      if (last) ++line;
      for (size_t i = step.first.begin; i < (step.first.open ? elements.size() : step.first.end); ++i) {
        here.Push(i);
        if (!Go(at + 1, elements[i], 0)) return false;
        here.Pop();
      }
      return true;
    }
    if (columns == 0) {
      return Fail(value,
                  Quoted(here.ToString()) + " is one list, and its rule does not say with \"col\" how long a row is");
    }
    const size_t rows = (elements.size() + columns - 1) / columns;
    if (!IsWithin(value, step.first, rows, "row") || !IsWithin(value, step.second, columns, "column")) return false;
    for (size_t row = step.first.begin; row < (step.first.open ? rows : step.first.end); ++row) {
      ++line;
      for (size_t column = step.second.begin; column < (step.second.open ? columns : step.second.end); ++column) {
        const size_t i = row * columns + column;
        if (i >= elements.size()) break;
        here.Push(i);
        if (!Go(at + 1, elements[i], 0)) return false;
        here.Pop();
      }
    }
    return true;
  }

  static std::vector<JsonValue> ElementsOf(const JsonValue& list) {
    std::vector<JsonValue> elements;
    for (const JsonValue element : list.elements()) elements.push_back(element);
    return elements;
  }

  bool GoToMember(size_t at, const JsonValue& object) {
    const Step& step = path.steps_[at];
    if (!object.is_object()) return Fail(object, Quoted(here.ToString()) + " is not an object here");
    JsonValue found;
    std::string key, scratch;
    for (const JsonMember member : object.members()) {
      const std::string_view name = member.key(&scratch);
      if (step.kind == Kind::kField) {
        const auto entry = step.type->by_key.find(name);
        if (entry == step.type->by_key.end() || &step.type->fields[entry->second] != step.field) continue;
      } else if (name != step.key) {
        continue;
      }
      // The last one of several single values counts; what messages and lists hold is put together.
      if (found && !(found.is_scalar() && member.value().is_scalar())) {
        return Fail(member.value(), Quoted(std::string(name)) + " is there more than once");
      }
      found = member.value();
      key = std::string(name);
    }
    const bool last = at + 1 == path.steps_.size();
    if (last) ++line;
    if (!found) return Miss(at, object);
    const bool is_value =
        step.kind == Kind::kField && step.type->is_parameter() && step.field == &step.type->fields[step.type->value];
    here.Push(std::move(key));
    const bool good = Go(at + 1, found, is_value ? TableColumns(object) : 0);
    if (good) here.Pop();
    return good;
  }

  /// The rest of the path does not exist: a match without a value if it consists only of fields.
  bool Miss(size_t at, const JsonValue& object) {
    std::vector<const FieldEntry*> missing;
    JsonPath whole = here;
    for (size_t i = at; i < path.steps_.size(); ++i) {
      if (path.steps_[i].kind != Kind::kField) {
        return Fail(object,
                    "there is no " +
                        Quoted(path.steps_[at].field == nullptr ? path.steps_[at].key : path.steps_[at].field->name()) +
                        " in " + (here.empty() ? "this setting" : Quoted(here.ToString())));
      }
      missing.push_back(path.steps_[i].field);
      whole.Push(path.steps_[i].field->name());
    }
    matches.push_back({whole, JsonValue(), path.field_, path.is_list_, 0, line, object, std::move(missing)});
    return true;
  }
};

void FindPathsTo(const TypeTable& type, std::string_view name, std::vector<std::string>& paths) {
  FindPathsTo(type, name, "", 0, paths);
}

bool TypedPath::Find(const JsonDocument& document, const std::string& file, std::vector<Match>& matches,
                     DiagnosticSink& sink) const {
  Walk walk{*this, file, matches, sink, {}, 0};
  return walk.Go(0, document.root(), 0);
}

}  // namespace zotuning
