// Tested by tests/workspace/format_test.cpp.

#include "workspace/format.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "workspace/rule_text.h"
#include "workspace/type_table.h"

namespace zotuning {
namespace {

// Lists that end before this column are on one line; longer ones have this many values per line.
constexpr size_t kLineWidth = 100;
constexpr size_t kValuesInLine = 10;

constexpr size_t kMaxDepth = 200;

void AppendEscaped(char c, std::string* out) {
  if (c == '"') {
    *out += "\\\"";
  } else if (static_cast<unsigned char>(c) < ' ') {
    const std::string escape = EncodeJsonString(std::string_view(&c, 1));
    out->append(escape, 1, escape.size() - 2);
  } else {
    *out += c;
  }
}

/// A key or string in double quotes, without anything that is not JSON; everything else as it is written.
void AppendString(std::string_view raw, std::string* out) {
  *out += '"';
  if (raw[0] == '"' || raw[0] == '\'') raw = raw.substr(1, raw.size() - 2);
  for (size_t i = 0; i < raw.size(); ++i) {
    if (raw[i] != '\\') {
      AppendEscaped(raw[i], out);
    } else if (std::string_view("\"\\/bfnrtu").find(raw[++i]) != std::string_view::npos) {
      out->append({'\\', raw[i]});
    } else {
      AppendEscaped(raw[i] == 'v' ? '\v' : raw[i], out);
    }
  }
  *out += '"';
}

/// A number without leading zeros and with a digit after the decimal point.
void AppendNumber(std::string_view raw, std::string* out) {
  size_t at = raw[0] == '-' ? 1 : 0;
  out->append(raw.substr(0, at));
  while (raw[at] == '0' && at + 1 < raw.size() && raw[at + 1] >= '0' && raw[at + 1] <= '9') ++at;
  const size_t point = std::min(raw.find('.', at), raw.size() - 1) + 1;
  out->append(raw.substr(at, point - at));
  if (out->back() == '.' && (point == raw.size() || raw[point] < '0' || raw[point] > '9')) *out += '0';
  out->append(raw.substr(point));
}

void AppendScalar(const JsonValue& value, std::string* out) {
  if (value.is_string()) {
    AppendString(value.raw(), out);
  } else if (value.is_number()) {
    AppendNumber(value.raw(), out);
  } else {
    out->append(value.raw());
  }
}

bool HasScalarsOnly(const JsonValue& list) {
  for (const JsonValue element : list.elements()) {
    if (!element.is_scalar()) return false;
  }
  return true;
}

/// Whether a message that is a row fits on one line. One without values is formatted as the library prints it.
bool IsRow(const JsonValue& message) {
  for (const JsonMember member : message.members()) {
    const JsonValue value = member.value();
    if (!value.is_scalar() && (!value.is_array() || value.empty() || !HasScalarsOnly(value))) return false;
  }
  return true;
}

/// On one line.
void AppendRow(const JsonValue& value, size_t depth, std::string* out) {
  if (!value.is_object() && !value.is_array()) return AppendScalar(value, out);
  if (depth > kMaxDepth) {
    out->append(value.raw());
    return;
  }
  *out += value.is_object() ? '{' : '[';
  const char* comma = "";
  for (const JsonMember member : value.members()) {
    *out += std::exchange(comma, ", ");
    AppendString(member.raw_key(), out);
    *out += ": ";
    AppendRow(member.value(), depth + 1, out);
  }
  for (const JsonValue element : value.elements()) {
    *out += std::exchange(comma, ", ");
    AppendRow(element, depth + 1, out);
  }
  *out += value.is_object() ? '}' : ']';
}

class Formatter {
 public:
  explicit Formatter(std::string* out) : out_(*out) {}

  /// `type` is null if it is unknown. False if the value is nested too deeply.
  bool Object(const JsonValue& object, const TypeTable* type, size_t depth) {
    if (depth > kMaxDepth) return false;
    if (object.empty()) {
      out_ += "{}";
      return true;
    }
    struct Entry {
      size_t rank;
      JsonMember member;
      const FieldEntry* field;
    };
    std::vector<Entry> entries;
    std::string scratch;
    const bool known = type != nullptr && !type->built_in;
    for (const JsonMember member : object.members()) {
      const FieldEntry* field = nullptr;
      if (known) {
        const auto found = type->by_key.find(member.key(&scratch));
        if (found != type->by_key.end()) field = &type->fields[found->second];
      }
      entries.push_back({field == nullptr ? static_cast<size_t>(-1) : static_cast<size_t>(field->descriptor->index()),
                         member, field});
    }
    std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.rank < b.rank; });
    const size_t columns = known && type->is_parameter() ? TableColumns(object) : 0;
    out_ += '{';
    for (const Entry& entry : entries) {
      Line(depth + 1);
      AppendString(entry.member.raw_key(), &out_);
      out_ += ": ";
      const bool is_value = known && type->value != TypeTable::kNone && entry.field == &type->fields[type->value];
      if (!Value(entry.member.value(), entry.field, is_value ? columns : 0, depth + 1)) return false;
      out_ += ',';
    }
    out_.back() = '\n';
    out_.append(depth, ' ') += '}';
    return true;
  }

  bool Value(const JsonValue& value, const FieldEntry* field, size_t columns, size_t depth) {
    if (value.is_array()) return List(value, field == nullptr ? nullptr : field->message, columns, depth);
    if (value.is_object()) {
      if (field != nullptr && field->map) return Map(value, field, depth);
      return Object(value, field == nullptr ? nullptr : field->message, depth);
    }
    AppendScalar(value, &out_);
    return true;
  }

 private:
  void Line(size_t depth) {
    out_ += '\n';
    out_.append(depth, ' ');
  }

  /// The keys of a map are not fields.
  bool Map(const JsonValue& map, const FieldEntry* field, size_t depth) {
    const TypeTable* entry = field->message;
    const FieldEntry* value = nullptr;
    for (const FieldEntry& each : entry->fields) {
      if (each.descriptor->number() == 2) value = &each;
    }
    if (map.empty()) {
      out_ += "{}";
      return true;
    }
    out_ += '{';
    for (const JsonMember member : map.members()) {
      Line(depth + 1);
      AppendString(member.raw_key(), &out_);
      out_ += ": ";
      if (!Value(member.value(), value, 0, depth + 1)) return false;
      out_ += ',';
    }
    out_.back() = '\n';
    out_.append(depth, ' ') += '}';
    return true;
  }

  bool List(const JsonValue& list, const TypeTable* type, size_t columns, size_t depth) {
    if (depth > kMaxDepth) return false;
    if (list.empty()) {
      out_ += "[]";
      return true;
    }
    if (HasScalarsOnly(list)) {
      Scalars(list, columns, depth);
      return true;
    }
    out_ += '[';
    for (const JsonValue element : list.elements()) {
      Line(depth + 1);
      if (element.is_scalar()) {
        AppendScalar(element, &out_);
      } else if (element.is_array() ? HasScalarsOnly(element) : type != nullptr && type->is_row() && IsRow(element)) {
        AppendRow(element, 0, &out_);
      } else if (element.is_array() ? !List(element, type, 0, depth + 1) : !Object(element, type, depth + 1)) {
        return false;
      }
      out_ += ',';
    }
    out_.back() = '\n';
    out_.append(depth, ' ') += ']';
    return true;
  }

  void Scalars(const JsonValue& list, size_t columns, size_t depth) {
    if (columns == 0) {
      const size_t begin = out_.size();
      const size_t line = out_.rfind('\n') + 1;
      AppendRow(list, 0, &out_);
      if (out_.size() - line < kLineWidth) return;
      out_.resize(begin);
      columns = (*list.elements().begin()).is_string() ? 1 : kValuesInLine;
    }
    out_ += '[';
    size_t index = 0;
    for (const JsonValue element : list.elements()) {
      if (index++ % columns == 0) {
        Line(depth + 1);
      } else {
        out_ += ' ';
      }
      AppendScalar(element, &out_);
      out_ += ',';
    }
    out_.back() = '\n';
    out_.append(depth, ' ') += ']';
  }

  std::string& out_;
};

}  // namespace

std::string OneLine(const JsonValue& value) {
  std::string text;
  AppendRow(value, 0, &text);
  return text;
}

size_t TableColumns(const JsonValue& parameter) {
  const JsonValue col = parameter.Find("rule").Find("col");
  const std::string text = col.is_number() ? std::string(col.raw()) : col.String();
  bool unclear = false;
  return ReadSize(text, &unclear).value_or(0);
}

std::optional<std::string> FormatJson(const JsonDocument& document, const google::protobuf::Descriptor* type) {
  if (!document.ok() || !document.root().is_object()) return std::nullopt;
  TypeTables tables;
  std::string text;
  if (!Formatter(&text).Object(document.root(), &tables.Get(type), 0)) return std::nullopt;
  return text + "\n";
}

std::optional<std::string> FormatValue(const JsonValue& value, const google::protobuf::FieldDescriptor* field,
                                       size_t columns) {
  TypeTables tables;
  if (field == nullptr) {
    std::string text;
    if (!Formatter(&text).Value(value, nullptr, columns, 0)) return std::nullopt;
    return text;
  }
  const TypeTable& owner = tables.Get(field->containing_type());
  std::string text;
  for (const FieldEntry& entry : owner.fields) {
    if (entry.descriptor == field && !Formatter(&text).Value(value, &entry, columns, 0)) return std::nullopt;
  }
  return text;
}

}  // namespace zotuning
