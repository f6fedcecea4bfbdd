#include "comparison_text.h"

#include <charconv>
#include <cmath>

#include "workspace/text.h"

namespace zotuning::tool {
namespace {

constexpr const char* kRed = "\033[31m";
constexpr const char* kGreen = "\033[32m";
constexpr const char* kYellow = "\033[33m";
constexpr const char* kBold = "\033[1m";

std::string Painted(const std::string& text, const char* paint, bool colour) {
  return colour ? paint + text + "\033[0m" : text;
}

const char* KindName(const EntryComparison& pair) {
  return pair.left == nullptr ? "added" : pair.right == nullptr ? "removed" : "changed";
}

const SideEntry& EntryOf(const EntryComparison& pair) { return pair.right != nullptr ? *pair.right : *pair.left; }

struct ToJson {
  Json operator()(std::monostate) const { return nullptr; }
  Json operator()(float value) const { return Real(value, ValueText(value)); }
  Json operator()(double value) const { return Real(value, ValueText(value)); }
  Json operator()(const EnumName& value) const { return value.name; }
  Json operator()(const MessageSummary& value) const { return value.text; }
  template <typename Other>
  Json operator()(const Other& value) const {
    return value;
  }
  /// With the digits that the type needs; what JSON has no number for is a string.
  static Json Real(double value, const std::string& text) {
    if (!std::isfinite(value)) return text;
    if (value != 0 && text.find_first_of(".e") == text.npos) return Json::parse(text, nullptr, false);
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;  // a zero with its sign, which would be lost in a whole number
  }
};

Json ValueJson(const FieldValue& value) { return std::visit(ToJson(), value); }

/// The number of an int32 label, the name for another.
Json LabelValueJson(const std::string& text) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? Json(number) : Json(text);
}

Json RunsJson(const std::vector<ElementRun>& runs) {
  Json json = Json::array();
  for (const ElementRun& run : runs) json.push_back({{"index", run.index}, {"count", run.count}});
  return json;
}

void AddList(const Difference& difference, Json& json) {
  const ListChange& list = *difference.list;
  json["left_length"] = list.left_size;
  json["right_length"] = list.right_size;
  if (list.is_table) {
    json["left_shape"] = {list.left_rows, list.left_columns};
    json["right_shape"] = {list.right_rows, list.right_columns};
  }
  json["inserted"] = RunsJson(list.inserted);
  json["removed"] = RunsJson(list.removed);
  json["changed"] = list.changed;
  if (list.has_statistics) {
    json["left_mean"] = list.left_mean;
    json["right_mean"] = list.right_mean;
    json["largest"] = {{"path", ElementPath(difference, list.largest)},
                       {"left", ValueJson(list.largest_left)},
                       {"right", ValueJson(list.largest_right)}};
  }
  Json elements = Json::array();
  for (const ElementChange& element : list.elements) {
    elements.push_back({{"path", ElementPath(difference, element.right_index)},
                        {"left_index", element.left_index},
                        {"right_index", element.right_index},
                        {"left", ValueJson(element.left)},
                        {"right", ValueJson(element.right)}});
  }
  json["elements"] = std::move(elements);
}

Json DifferenceJson(const Difference& difference) {
  static constexpr const char* kNames[] = {"changed", "added", "removed", "list", "bytes"};
  const bool table = difference.list != nullptr && difference.list->is_table;
  Json json = {{"path", difference.path}, {"kind", table ? "table" : kNames[static_cast<size_t>(difference.kind)]}};
  if (!difference.left_path.empty()) json["left_path"] = difference.left_path;
  if (difference.kind == DifferenceKind::kList) {
    AddList(difference, json);
  } else if (difference.kind != DifferenceKind::kBytes) {
    json["left"] = ValueJson(difference.left);
    json["right"] = ValueJson(difference.right);
    if (difference.in_one_schema) json["in_one_schema"] = true;
  }
  return json;
}

}  // namespace

std::string ComparisonText(const EntryComparison& pair, const ComparisonForm& form) {
  const SideEntry& entry = EntryOf(pair);
  const std::string kind = KindName(pair);
  const char* paint = pair.left == nullptr ? kGreen : pair.right == nullptr ? kRed : kYellow;
  std::string text = Painted(kind, paint, form.colour) + std::string(9 - kind.size(), ' ');
  if (form.scopes) text += Printable(entry.scope) + " ";
  text += Printable(LabelText(entry.labels));
  if (pair.left == nullptr || pair.right == nullptr) return text + "\n";
  const MessageComparison& comparison = pair.comparison;
  if (form.stat) return text + ": " + Count(comparison.count, "value") + "\n";
  text += "\n";
  size_t lines = 0, unseen = 0;
  for (const Difference& difference : comparison.differences) {
    for (const std::string& line : DifferenceTexts(difference, form.all)) {
      if (form.all || lines < kShownDifferences) {
        text.append("  ").append(Printable(line)).append("\n");
        ++lines;
      } else {
        ++unseen;
      }
    }
  }
  if (unseen > 0) text += "  and " + std::to_string(unseen) + " more; --all shows them\n";
  return text;
}

std::string HeadText(const std::string& left, const std::string& right, bool colour) {
  return Painted("--- " + Printable(left), kBold, colour) + "\n" + Painted("+++ " + Printable(right), kBold, colour) +
         "\n";
}

std::string SchemaText(const SidesComparison& comparison, const ComparisonForm& form) {
  std::string text;
  for (const std::string& what : comparison.only_left_schema) {
    text += Painted("removed", kRed, form.colour) + "  schema " + Printable(what) + "\n";
  }
  for (const std::string& what : comparison.only_right_schema) {
    text += Painted("added", kGreen, form.colour) + "    schema " + Printable(what) + "\n";
  }
  return text;
}

Json ComparisonJson(const EntryComparison& pair) {
  const SideEntry& entry = EntryOf(pair);
  Json json = {{"kind", KindName(pair)}, {"scope", entry.scope}};
  if (entry.module.empty()) {
    json["version"] = entry.labels[0].second;
  } else {
    Json labels = Json::object();
    for (const auto& [name, value] : entry.labels) labels[name] = LabelValueJson(value);
    json["labels"] = std::move(labels);
  }
  json["left"] = pair.left == nullptr ? Json(nullptr) : Json(pair.left->path);
  json["right"] = pair.right == nullptr ? Json(nullptr) : Json(pair.right->path);
  if (pair.left == nullptr || pair.right == nullptr) return json;
  json["count"] = pair.comparison.count;
  Json differences = Json::array();
  for (const Difference& difference : pair.comparison.differences) differences.push_back(DifferenceJson(difference));
  json["differences"] = std::move(differences);
  return json;
}

}  // namespace zotuning::tool
