// Tested by tests/workspace/assign_test.cpp.

#include "workspace/assign.h"

#include <utility>

#include "io/directory.h"
#include "workspace/check_json.h"
#include "workspace/edit.h"
#include "workspace/format.h"
#include "workspace/number.h"
#include "workspace/text.h"

namespace zotuning {
namespace {

using google::protobuf::FieldDescriptor;
using ZO_TUNING::internal::HasSuffix;

// How deep values are followed.
constexpr size_t kMaxDepth = 200;

/// Whether there are more levels of brackets than are followed anywhere. Those within strings count as well.
bool IsTooDeep(std::string_view json) {
  size_t depth = 0;
  for (const char c : json) {
    if (c == '{' || c == '[') ++depth;
    if ((c == '}' || c == ']') && depth > 0) --depth;
    if (depth > kMaxDepth) return true;
  }
  return false;
}

/// The type of the rows of a list; null if its elements are not rows.
const TypeTable* RowType(const FieldEntry& field) {
  const TypeTable* type = field.message;
  return type != nullptr && type->is_row() && type->value == 0 ? type : nullptr;
}

JsonValue First(const JsonValue& list) { return *list.elements().begin(); }

/// A row's list.
JsonValue RowValues(const JsonValue& row, const TypeTable& type) {
  JsonValue values = row;
  for (const JsonMember member : row.members()) {
    std::string scratch;
    if (type.by_key.count(member.key(&scratch)) != 0) values = member.value();
  }
  return values;
}

void Flatten(const JsonValue& value, std::vector<JsonValue>& scalars) {
  if (!value.is_array()) scalars.push_back(value);
  for (const JsonValue element : value.elements()) Flatten(element, scalars);
}

std::string ListOf(const std::vector<JsonValue>& values, size_t begin, size_t end) {
  std::string text = "[";
  for (size_t i = begin; i < end; ++i) text += (i == begin ? "" : ", ") + OneLine(values[i]);
  return text + "]";
}

/// `input` in the form that the match's field needs, as JSON on one line. Nothing if it has no such form; `why` then
/// gives the reason.
std::optional<std::string> ToForm(const JsonValue& input, const Match& match, std::string* why) {
  const std::string path = Quoted(match.path.ToString());
  if (!match.is_list) {
    if (match.field->message == nullptr && !input.is_scalar()) {
      *why = path + " takes one value, not " + (input.is_array() ? "a list" : "an object");
      return std::nullopt;
    }
    return OneLine(input);
  }
  if (!input.is_array()) {
    *why = path + " takes a list: [...]";
    return std::nullopt;
  }
  // A transposed table has the same number of values. Its last row may be shorter.
  size_t left = input.size();
  const auto has_width = [&](const JsonValue& row) {
    --left;
    const size_t width = row.size();
    if (match.columns == 0 || !row.is_array() || width == match.columns || (left == 0 && width < match.columns)) {
      return true;
    }
    *why = path + " has " + Count(match.columns, "column") + ", not " + std::to_string(width);
    return false;
  };
  std::vector<JsonValue> scalars;
  if (match.field->message == nullptr) {
    for (const JsonValue row : input.elements()) {
      if (!has_width(row)) return std::nullopt;
    }
    Flatten(input, scalars);
    return ListOf(scalars, 0, scalars.size());
  }
  const TypeTable* row_type = RowType(*match.field);
  if (row_type == nullptr) return OneLine(input);
  const std::string key = "{" + EncodeJsonString(row_type->fields[0].name()) + ": ";
  std::string text = "[";
  const auto add = [&](const std::string& row) { text += (text.size() == 1 ? "" : ", ") + row; };
  bool is_flat = !input.empty();
  for (const JsonValue element : input.elements()) is_flat = is_flat && element.is_scalar();
  if (is_flat) {
    Flatten(input, scalars);
    if (match.columns == 0 || scalars.size() % match.columns != 0) {
      *why = path + " is a table: a list of its rows is expected";
      return std::nullopt;
    }
    for (size_t i = 0; i < scalars.size(); i += match.columns) {
      add(key + ListOf(scalars, i, i + match.columns) + "}");
    }
    return text + "]";
  }
  for (const JsonValue row : input.elements()) {
    const JsonValue values = row.is_array() ? row : RowValues(row, *row_type);
    if (!has_width(values)) return std::nullopt;
    add(row.is_array() ? key + OneLine(row) + "}" : OneLine(row));
  }
  return text + "]";
}

/// Makes `value` mean the same as `wanted`, with as few changes as possible.
bool Merge(const JsonValue& value, const JsonValue& wanted, const FieldEntry* field, size_t columns, JsonEdit& edit) {
  if (value.is_scalar() && wanted.is_scalar()) {
    if (value.kind() != JsonKind::kNull && IsSameScalar(value, wanted, field->descriptor)) return true;
    std::string text = OneLine(wanted);
    // 64-bit integers are printed in quotes, so that other programs keep all digits.
    const FieldDescriptor::CppType type = field->descriptor->cpp_type();
    const bool wide = type == FieldDescriptor::CPPTYPE_INT64 || type == FieldDescriptor::CPPTYPE_UINT64;
    if (wide && value.is_string() && wanted.is_number()) text = '"' + text + '"';
    edit.Replace(value, std::move(text));
    return true;
  }
  if (value.is_array() && wanted.is_array() && value.size() == wanted.size()) {
    auto element = value.elements().begin();
    for (const JsonValue each : wanted.elements()) {
      if (!Merge(*element, each, field, 0, edit)) return false;
      ++element;
    }
    return true;
  }
  if (value.is_object() && wanted.is_object() && field->message != nullptr && value.size() == wanted.size()) {
    std::vector<std::pair<JsonValue, JsonValue>> pairs;
    std::vector<const FieldEntry*> fields;
    auto member = wanted.members().begin();
    for (const JsonMember each : value.members()) {
      const auto found = field->message->by_key.find(each.key());
      if (found == field->message->by_key.end() || (*member).key() != each.key()) break;
      fields.push_back(&field->message->fields[found->second]);
      pairs.emplace_back(each.value(), (*member).value());
      ++member;
    }
    if (pairs.size() == value.size()) {
      for (size_t i = 0; i < pairs.size(); ++i) {
        if (!Merge(pairs[i].first, pairs[i].second, fields[i], 0, edit)) return false;
      }
      return true;
    }
  }
  std::optional<std::string> text = FormatValue(wanted, field->descriptor, columns);
  if (!text) return false;
  edit.Replace(value, std::move(*text));
  return true;
}

/// The edits to one text.
class Assigner {
 public:
  Assigner(const JsonDocument& document, const std::string& file, DiagnosticSink& sink)
      : edit_(document), document_(document), file_(file), sink_(sink) {}

  bool Fail(const Match& match, std::string message) {
    Diagnostic diagnostic(Code::kBadAssignment, std::move(message), "", file_);
    const JsonValue& at = match.value ? match.value : match.parent;
    SetPosition(document_, at.begin(), at.begin() + 1, &diagnostic);
    diagnostic.path = match.path.ToString();
    sink_.Add(std::move(diagnostic));
    return false;
  }

  bool Set(const Match& match, const JsonValue& input) {
    std::string why;
    std::optional<std::string> form = ToForm(input, match, &why);
    if (!form) return Fail(match, why);
    if (!match.value) return Insert(match, *form);
    const JsonDocument wanted("[" + *form + "]");
    return Merge(match.value, First(wanted.root()), match.field, match.columns, edit_) ||
           Fail(match, "the value is nested too deeply");
  }

  bool Calculate(const Match& match, const Assignment& assignment) {
    if (!match.value) return Fail(match, "there is no " + Quoted(match.path.ToString()) + " to calculate with");
    return Calculate(match, match.value, match.field, assignment, 0);
  }

  std::string Text() const { return edit_.Apply(); }

 private:
  bool Insert(const Match& match, std::string json) {
    for (size_t i = match.missing.size(); --i > 0;) {
      json.insert(0, "{" + EncodeJsonString(match.missing[i]->name()) + ": ").append("}");
    }
    const JsonDocument wanted("[" + json + "]");
    const FieldDescriptor* field = match.missing[0]->descriptor;
    const std::optional<std::string> text = FormatValue(First(wanted.root()), field, match.columns);
    if (!text) return Fail(match, "the value is nested too deeply");
    edit_.InsertField(match.parent, field, *text);
    return true;
  }

  bool Calculate(const Match& match, const JsonValue& value, const FieldEntry* field, const Assignment& assignment,
                 size_t depth) {
    const auto go_on = [&](const JsonValue& inner, const FieldEntry* of) {
      return Calculate(match, inner, of, assignment, depth + 1);
    };
    if (depth > kMaxDepth) return Fail(match, "the value is nested too deeply");
    if (value.is_array()) {
      for (const JsonValue element : value.elements()) {
        if (!go_on(element, field)) return false;
      }
      return true;
    }
    if (const TypeTable* row = RowType(*field); row != nullptr && value.is_object()) {
      return go_on(RowValues(value, *row), &row->fields[0]);
    }
    std::string why;
    const Operation operation = assignment.kind == Assignment::Kind::kAdd ? Operation::kAdd : Operation::kMultiply;
    const std::optional<std::string> text =
        zotuning::Calculate(value, operation, assignment.value, assignment.round, field->descriptor, &why);
    if (!text) {
      Match place = match;
      place.value = value;
      place.path = JsonPath::Of(value);
      return Fail(place, Quoted(place.path.ToString()) + " is " + Excerpt(value.raw(), 40) + ": " + why);
    }
    if (*text != value.raw()) edit_.Replace(value, *text);
    return true;
  }

  JsonEdit edit_;
  const JsonDocument& document_;
  const std::string& file_;
  DiagnosticSink& sink_;
};

bool RequireEditable(const JsonDocument& document, const std::string& file, DiagnosticSink& sink) {
  if (IsEditable(document)) return true;
  CollectingSink faults;
  CheckText(document, file, faults);
  for (Diagnostic& fault : faults.Take()) {
    if (fault.severity == Severity::kError) sink.Add(std::move(fault));
  }
  return false;
}

/// Consecutive matches of one line.
size_t EndOfLine(const std::vector<Match>& matches, size_t begin) {
  size_t end = begin;
  while (end < matches.size() && matches[end].line == matches[begin].line) ++end;
  return end;
}

/// The lines that a list has as a table.
size_t LinesOf(const Match& match) {
  if (RowType(*match.field) != nullptr) return match.value.size();
  return match.columns == 0 ? 1 : (match.value.size() + match.columns - 1) / match.columns;
}

/// The consecutive lines of several tables, as a list of tables; "" if the number of lines differs.
std::string SplitTables(const std::vector<Match>& matches, const JsonValue& lines) {
  std::vector<JsonValue> rows;
  for (const JsonValue row : lines.elements()) rows.push_back(row);
  std::string tables = "[";
  size_t begin = 0;
  for (const Match& match : matches) {
    const size_t end = begin + LinesOf(match);
    if (end > rows.size()) return "";
    tables += (begin == 0 ? "" : ", ") + ListOf(rows, begin, end);
    begin = end;
  }
  return begin == rows.size() ? tables + "]" : "";
}

std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

/// A cell as JSON for a non-message field; "" if it cannot be one.
std::string CellJson(const std::string& text, const FieldDescriptor* field) {
  const std::string cell(Trimmed(text));
  switch (field->cpp_type()) {
    case FieldDescriptor::CPPTYPE_STRING:
      return EncodeJsonString(text);
    case FieldDescriptor::CPPTYPE_ENUM:
      return IsNumber(cell) ? cell : cell.empty() ? "" : EncodeJsonString(cell);
    case FieldDescriptor::CPPTYPE_BOOL:
      // Spreadsheets write them in upper case.
      return cell == "true" || cell == "TRUE" ? "true" : cell == "false" || cell == "FALSE" ? "false" : "";
    case FieldDescriptor::CPPTYPE_MESSAGE:
      return "";
    default:
      if (cell == "NaN" || cell == "Infinity" || cell == "-Infinity") return '"' + cell + '"';
      return IsNumber(cell) && JsonDocument("[" + cell + "]").ok() ? cell : "";
  }
}

std::string CellText(const JsonValue& value) { return value.is_string() ? value.String() : OneLine(value); }

/// The values of matches, which are all there, as rows of cells. False after an error.
bool WriteTable(const std::vector<Match>& matches, char separator, const std::string& file, std::string* text,
                DiagnosticSink& sink) {
  for (size_t begin = 0; begin < matches.size();) {
    const size_t end = EndOfLine(matches, begin);
    std::vector<std::string> cells;
    const auto end_row = [&] {
      if (!cells.empty()) WriteRow(cells, separator, text);
      cells.clear();
    };
    for (; begin < end; ++begin) {
      const Match& match = matches[begin];
      const TypeTable* row_type = RowType(*match.field);
      std::vector<JsonValue> values;
      if (match.is_list && row_type != nullptr) {
        for (const JsonValue row : match.value.elements()) {
          values.clear();
          Flatten(RowValues(row, *row_type), values);
          for (const JsonValue& value : values) cells.push_back(CellText(value));
          end_row();
        }
        continue;
      }
      if (match.field->message != nullptr) {
        sink.Report(Code::kBadAssignment,
                    Quoted(match.path.ToString()) + " holds structures, which do not form a table",
                    "name a field, as in modes[*].name, or use --format json", file);
        return false;
      }
      Flatten(match.value, values);
      for (size_t i = 0; i < values.size(); ++i) {
        if (match.columns > 0 && i > 0 && i % match.columns == 0) end_row();
        cells.push_back(CellText(values[i]));
      }
    }
    end_row();
  }
  return true;
}

}  // namespace

std::optional<Assignment> ParseAssignment(std::string_view text, std::string* why) {
  size_t at = 0;
  while (at < text.size() && text[at] != '=') {
    if (text.substr(at, 2) == "[\"") {
      for (at += 2; at < text.size() && text[at] != '"'; ++at) at += text[at] == '\\' ? 1 : 0;
    }
    ++at;
  }
  if (at >= text.size()) {
    *why = Quoted(text) + " is not of the form PATH=VALUE";
    return std::nullopt;
  }
  const char before = at > 0 ? text[at - 1] : '\0';
  Assignment assignment;
  assignment.kind = before == '*'   ? Assignment::Kind::kMultiply
                    : before == '+' ? Assignment::Kind::kAdd
                                    : Assignment::Kind::kSet;
  assignment.value = std::string(text.substr(at + 1));
  const std::string_view path = text.substr(0, assignment.kind == Assignment::Kind::kSet ? at : at - 1);
  std::optional<PathPattern> pattern = PathPattern::Parse(path, why);
  if (!pattern) {
    *why = Quoted(path) + " is not a path: " + *why;
    return std::nullopt;
  }
  assignment.path = std::move(*pattern);
  if (assignment.kind != Assignment::Kind::kSet && !IsNumber(assignment.value)) {
    *why = Quoted(assignment.value) + " is not a number";
    return std::nullopt;
  }
  if (IsTooDeep(assignment.value)) {
    *why = "the value is nested too deeply";
    return std::nullopt;
  }
  return assignment;
}

bool Assign(const TypedPath& path, const Assignment& assignment, const std::string& file, std::string* text,
            DiagnosticSink& sink) {
  const JsonDocument document(*text);
  if (!RequireEditable(document, file, sink)) return false;
  std::vector<Match> matches;
  if (!path.Find(document, file, matches, sink)) return false;
  const FieldDescriptor* field = path.field().descriptor;
  std::string json = "[" + assignment.value + "]";
  if (assignment.kind == Assignment::Kind::kSet) {
    JsonDocument value(json);
    const bool is_json = value.ok() && value.root().size() == 1;
    const bool word = !is_json && (field->cpp_type() == FieldDescriptor::CPPTYPE_STRING ||
                                   field->cpp_type() == FieldDescriptor::CPPTYPE_ENUM);
    if (word) json = "[" + EncodeJsonString(assignment.value) + "]";
    if (!is_json && !word) {
      const std::string reason = value.ok() ? "one value is expected" : value.faults()[0].message;
      sink.Report(Code::kBadAssignment, Quoted(Excerpt(assignment.value)) + " is not JSON: " + reason);
      return false;
    }
  }
  const JsonDocument value(json);
  Assigner assigner(document, file, sink);
  for (const Match& match : matches) {
    if (assignment.kind == Assignment::Kind::kSet ? !assigner.Set(match, First(value.root()))
                                                  : !assigner.Calculate(match, assignment)) {
      return false;
    }
  }
  *text = assigner.Text();
  return true;
}

TableData::Form FormOf(const std::string& name, std::string_view text) {
  if (HasSuffix(name, ".json")) return TableData::Form::kJson;
  if (HasSuffix(name, ".csv")) return TableData::Form::kCsv;
  if (HasSuffix(name, ".tsv")) return TableData::Form::kTsv;
  const size_t first = text.find_first_not_of(" \t\r\n");
  if (first != std::string_view::npos && (text[first] == '[' || text[first] == '{')) return TableData::Form::kJson;
  return text.find('\t') == std::string_view::npos ? TableData::Form::kCsv : TableData::Form::kTsv;
}

bool TableData::Read(std::string text, Form form, const std::string& file, DiagnosticSink& sink) {
  form_ = form;
  file_ = file;
  if (form != Form::kJson) return ReadTable(text, form == Form::kCsv ? ',' : '\t', file, rows_, sink);
  const JsonDocument document(text);
  bool good = document.ok() && document.root();
  if (!good) CheckText(document, file, sink);
  if (good && IsTooDeep(text)) {
    sink.Report(Code::kJsonTooDeep, "the value is nested too deeply", "", file);
    good = false;
  }
  json_ = std::move(text);
  return good;
}

bool TableData::ToJson(const FieldEntry& field, std::string* json, DiagnosticSink& sink) const {
  if (form_ == Form::kJson) {
    *json = "[" + json_ + "]";
    return true;
  }
  const TypeTable* row_type = RowType(field);
  const FieldDescriptor* leaf = (row_type == nullptr ? field : row_type->fields[0]).descriptor;
  if (leaf->message_type() != nullptr) {
    sink.Report(Code::kBadAssignment, "structures cannot be read from a table", "name a field, as in modes[*].name",
                file_);
    return false;
  }
  *json = "[";
  for (const std::vector<Cell>& row : rows_) {
    *json += json->size() == 1 ? "[" : ", [";
    for (const Cell& cell : row) {
      const std::string value = CellJson(cell.text, leaf);
      if (value.empty()) {
        Diagnostic fault(Code::kBadTable,
                         cell.text.empty()
                             ? "this cell is empty"
                             : Quoted(Excerpt(cell.text, 40)) + " is not a value for " + leaf->type_name(),
                         cell.text.find_first_of(",;") == std::string::npos
                             ? "cell " + std::to_string(cell.column) + " of the line"
                             : "cells are separated by commas, and numbers have points",
                         file_);
        fault.line = cell.line;
        fault.column = cell.column;
        sink.Add(std::move(fault));
        return false;
      }
      *json += (cell.column == 1 ? "" : ", ") + value;
    }
    *json += ']';
  }
  *json = "[" + *json + "]]";
  return true;
}

bool TableData::Assign(const TypedPath& path, const std::string& file, std::string* text, DiagnosticSink& sink) const {
  const JsonDocument document(*text);
  if (!RequireEditable(document, file, sink)) return false;
  std::vector<Match> matches;
  if (!path.Find(document, file, matches, sink)) return false;
  if (matches.empty()) return true;
  std::string json;
  if (!ToJson(path.field(), &json, sink)) return false;
  const JsonDocument data(json);
  JsonValue input = First(data.root());
  Assigner assigner(document, file, sink);
  if (matches.size() == 1) {
    while (!matches[0].is_list && input.is_array() && input.size() == 1) input = First(input);
    if (!assigner.Set(matches[0], input)) return false;
    *text = assigner.Text();
    return true;
  }

  size_t lines = 0;
  for (size_t i = 0; i < matches.size(); i = EndOfLine(matches, i)) ++lines;
  JsonDocument tables;
  if (form_ != Form::kJson && lines == matches.size() && matches[0].is_list && input.size() != lines) {
    tables = JsonDocument(SplitTables(matches, input));
    if (tables.root()) input = tables.root();
  }
  // One line may come without the list around it.
  std::vector<JsonValue> rows;
  const bool one = lines == 1 && input.is_array() && !(input.size() == 1 && First(input).is_array());
  if (one) rows.push_back(input);
  for (const JsonValue row : input.elements()) {
    if (!one) rows.push_back(row);
  }
  if (rows.size() != lines) {
    return assigner.Fail(matches[0], "the path names values in " + Count(lines, "line") + ", and " + file_ + " has " +
                                         Count(rows.size(), "line"));
  }
  size_t line = 0;
  for (size_t begin = 0; begin < matches.size(); ++line) {
    const size_t end = EndOfLine(matches, begin);
    std::vector<JsonValue> cells;
    const bool whole = end == begin + 1 && (matches[begin].is_list || !rows[line].is_array());
    if (whole) cells.push_back(rows[line]);
    for (const JsonValue cell : rows[line].elements()) {
      if (!whole) cells.push_back(cell);
    }
    if (cells.size() != end - begin) {
      return assigner.Fail(matches[begin], "the path names " + Count(end - begin, "value") + " here, and line " +
                                               std::to_string(line + 1) + " of " + file_ + " has " +
                                               std::to_string(cells.size()));
    }
    for (const JsonValue& cell : cells) {
      if (!assigner.Set(matches[begin++], cell)) return false;
    }
  }
  *text = assigner.Text();
  return true;
}

bool WriteMatches(const std::vector<Match>& matches, TableData::Form form, const std::string& file, std::string* text,
                  DiagnosticSink& sink) {
  for (const Match& match : matches) {
    if (match.value) continue;
    sink.Report(Code::kNoMatch, "there is no " + Quoted(match.path.ToString()), "", file);
    return false;
  }
  if (form != TableData::Form::kJson) {
    return WriteTable(matches, form == TableData::Form::kCsv ? ',' : '\t', file, text, sink);
  }
  if (matches.size() == 1) {
    const Match& match = matches[0];
    *text += FormatValue(match.value, match.field->descriptor, match.columns).value_or(OneLine(match.value)) + "\n";
    return true;
  }
  std::string lines;
  size_t count = 0;
  for (size_t begin = 0; begin < matches.size(); ++count) {
    const size_t end = EndOfLine(matches, begin);
    std::vector<JsonValue> values;
    for (; begin < end; ++begin) values.push_back(matches[begin].value);
    lines += (count == 0 ? "" : ",\n ") + (values.size() == 1 ? OneLine(values[0]) : ListOf(values, 0, values.size()));
  }
  *text += count == 1 ? lines + "\n" : "[\n " + lines + "\n]\n";
  return true;
}

}  // namespace zotuning
