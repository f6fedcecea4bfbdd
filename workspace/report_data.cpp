// Tested by tests/workspace/report_test.cpp.

#include "workspace/report_data.h"

#include <google/protobuf/descriptor.h>

#include <algorithm>
#include <charconv>
#include <map>
#include <optional>
#include <unordered_map>
#include <utility>

#include "workspace/files.h"
#include "workspace/json_document.h"
#include "workspace/report_columns.h"
#include "workspace/rule_text.h"
#include "workspace/type_table.h"

namespace zotuning {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;

/// A page is for people; if one setting has more differences, the page only gives their number.
constexpr size_t kMaxDifferences = 1000;

/// Kinds of nodes, as the page knows them.
enum NodeKind { kGroup, kList, kElement, kScalar, kArray, kTable };

std::string JsonNumber(double number) {
  char digits[40];
  return std::string(digits, std::to_chars(digits, digits + sizeof(digits), number).ptr);
}

void AppendItem(const std::string& json, std::string& list) { list += (list.empty() ? "" : ",") + json; }

/// The comment above or after a declaration, as text for JSON.
template <typename Element>
std::string Comment(const Element* element) {
  google::protobuf::SourceLocation place;
  if (element == nullptr || !element->GetSourceLocation(&place)) return "\"\"";
  std::string text = place.leading_comments;
  if (!place.trailing_comments.empty()) text += (text.empty() ? "" : "\n") + place.trailing_comments;
  std::string lines;
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find('\n', begin), text.size());
    const size_t from = std::min(text.find_first_not_of(' ', begin), end);
    lines += (begin == 0 ? "" : "\n") + text.substr(from, end - from);
    begin = end + 1;
  }
  return EncodeJsonString(lines);
}

/// Items shared by many settings, each written once.
class SharedItems {
 public:
  size_t Of(const std::string& json) {
    const auto [place, fresh] = index_.try_emplace(json, index_.size());
    if (fresh) AppendItem(json, list_);
    return place->second;
  }
  const std::string& list() const { return list_; }

 private:
  std::unordered_map<std::string, size_t> index_;
  std::string list_;
};

/// The rule beside a value.
struct Rule {
  int index = -1;         ///< -1 for none
  bool is_table = false;  ///< it gives rows and columns
  std::optional<ValueRange> range;
  std::optional<size_t> length, rows, columns;
};

/// The settings of one shape.
struct Layout {
  std::string json;
  std::vector<ReportColumn> columns;  ///< of the scalars
  size_t rows = 0;
};

/// The result of walking through one message.
struct Shape {
  struct Scalar {
    const Message* message;
    const FieldDescriptor* field;
    std::optional<ValueRange> range;
  };
  std::string nodes;  ///< JSON
  std::vector<Scalar> scalars;
  std::vector<ReportColumn> lists;  ///< lists and tables
  size_t outside = 0;
};

/// The types and rules of all settings.
class Schemas {
 public:
  int FieldIndex(const FieldDescriptor* field) {
    const auto [place, fresh] = by_field_.try_emplace(field, -1);
    if (!fresh) return place->second;
    const auto* message = field->message_type();
    const auto* enumeration = field->enum_type();
    std::string json = "{\"n\":" + EncodeJsonString(field->name()) + ",\"d\":" + Comment(field) + ",\"t\":" +
                       EncodeJsonString(message != nullptr       ? message->name()
                                        : enumeration != nullptr ? enumeration->name()
                                                                 : field->type_name());
    if (enumeration != nullptr) {
      std::string names;
      for (int i = 0; i < enumeration->value_count(); ++i) {
        AppendItem("\"" + std::to_string(enumeration->value(i)->number()) +
                       "\":" + EncodeJsonString(enumeration->value(i)->name()),
                   names);
      }
      json += ",\"e\":{" + names + "}";
    }
    return place->second = static_cast<int>(fields_.Of(json + "}"));
  }

  const TypeTable& Table(const Descriptor* type) { return tables_.Get(type); }

  Rule RuleOf(const Message& message) {
    const Reflection& of = *message.GetReflection();
    std::string texts;
    std::map<std::string, std::string> sizes;
    const Descriptor* type = message.GetDescriptor();
    for (int i = 0; i < type->field_count(); ++i) {
      const FieldDescriptor* field = type->field(i);
      if (field->is_repeated()) continue;
      std::string text;
      if (field->cpp_type() == FieldDescriptor::CPPTYPE_STRING) text = of.GetString(message, field);
      if (field->cpp_type() == FieldDescriptor::CPPTYPE_INT32 && of.GetInt32(message, field) != 0) {
        text = std::to_string(of.GetInt32(message, field));
      }
      if (text.empty()) continue;
      AppendItem(EncodeJsonString(field->name()) + ":" + EncodeJsonString(text), texts);
      sizes[field->name()] = std::move(text);
    }
    const auto [place, fresh] = by_texts_.try_emplace(texts);
    Rule& rule = place->second;
    if (!fresh) return rule;
    RangeFault fault;  // unclear rules are left to 'check'
    bool unclear;
    rule.range = ReadRange(sizes["recommend"], &fault);
    rule.length = ReadSize(sizes["len"], &unclear);
    rule.rows = ReadSize(sizes["row"], &unclear);
    rule.columns = ReadSize(sizes["col"], &unclear);
    rule.is_table = type->FindFieldByName("row") != nullptr && type->FindFieldByName("col") != nullptr;
    if (texts.empty()) return rule;
    std::string json = "{\"t\":{" + texts + "}";
    if (rule.range) json += ",\"lo\":" + JsonNumber(rule.range->low) + ",\"hi\":" + JsonNumber(rule.range->high);
    const auto add = [&](const char* key, const std::optional<size_t>& size) {
      if (size) json += "," + std::string(key) + std::to_string(*size);
    };
    add("\"len\":", rule.length);
    add("\"row\":", rule.rows);
    add("\"col\":", rule.columns);
    rule.index = static_cast<int>(rules_.Of(json + "}"));
    return rule;
  }

  const std::string& fields() const { return fields_.list(); }
  const std::string& rules() const { return rules_.list(); }

 private:
  TypeTables tables_;
  std::unordered_map<const FieldDescriptor*, int> by_field_;
  std::unordered_map<std::string, Rule> by_texts_;
  SharedItems fields_, rules_;
};

/// Walks through one message.
class Walk {
 public:
  Walk(Schemas& schemas, Shape& shape) : schemas_(schemas), shape_(shape) {}

  void Fields(const Message& message) {
    const TypeTable& table = schemas_.Table(message.GetDescriptor());
    const Reflection& of = *message.GetReflection();
    const auto* type = message.GetDescriptor();
    for (int i = 0; i < type->field_count(); ++i) {
      const FieldDescriptor* field = type->field(i);
      if (field->message_type() != nullptr && !field->is_repeated()) {
        // Rules are shown with what they describe.
        if (schemas_.Table(field->message_type()).is_rule || !of.HasField(message, field)) continue;
      }
      if (field->has_presence() && !of.HasField(message, field)) continue;
      const size_t size = path_.size();
      path_ += (path_.empty() ? "" : ".") + field->name();
      Rule rule;
      // An element of a list may be a parameter.
      if (table.is_parameter() && field == table.fields[table.value].descriptor) {
        const FieldDescriptor* its_rule = table.fields[table.rule].descriptor;
        if (of.HasField(message, its_rule)) rule = schemas_.RuleOf(of.GetMessage(message, its_rule));
      }
      for (const ListRule& pair : table.list_rules) {
        if (table.fields[pair.list].descriptor != field) continue;
        const FieldDescriptor* its_rule = table.fields[pair.rule].descriptor;
        if (of.HasField(message, its_rule)) rule = schemas_.RuleOf(of.GetMessage(message, its_rule));
      }
      Field(message, field, field, rule);
      path_.resize(size);
    }
  }

 private:
  /// A value at the current path, declared by `named`.
  void Field(const Message& message, const FieldDescriptor* field, const FieldDescriptor* named, const Rule& rule) {
    const Reflection& of = *message.GetReflection();
    if (field->is_repeated()) {
      if (field->message_type() == nullptr) {
        List(message, field, named, rule);
      } else if (RowValues(field) != nullptr) {
        Rows(message, field, named, rule);
      } else {
        Structures(message, field, named, rule);
      }
    } else if (field->message_type() == nullptr) {
      Node(kScalar, named, rule);
      shape_.scalars.push_back({&message, field, rule.range});
    } else {
      Structure(of.GetMessage(message, field), named);
    }
  }

  void Structure(const Message& message, const FieldDescriptor* named) {
    const TypeTable& table = schemas_.Table(message.GetDescriptor());
    if (!table.is_parameter()) {
      Node(kGroup, named, {});
      Fields(message);
      return;
    }
    const Reflection& of = *message.GetReflection();
    const FieldDescriptor* rule_field = table.fields[table.rule].descriptor;
    const Rule rule = of.HasField(message, rule_field) ? schemas_.RuleOf(of.GetMessage(message, rule_field)) : Rule();
    const FieldDescriptor* value = table.fields[table.value].descriptor;
    if (value->is_repeated() || value->message_type() == nullptr || of.HasField(message, value)) {
      Field(message, value, named, rule);
    }
    for (const FieldEntry& other : table.fields) {
      if (other.descriptor == value || other.descriptor == rule_field) continue;
      if (other.descriptor->has_presence() && !of.HasField(message, other.descriptor)) continue;
      const size_t size = path_.size();
      path_ += "." + other.name();
      Field(message, other.descriptor, other.descriptor, {});
      path_.resize(size);
    }
  }

  void Structures(const Message& message, const FieldDescriptor* field, const FieldDescriptor* named,
                  const Rule& rule) {
    const Reflection& of = *message.GetReflection();
    const int count = of.FieldSize(message, field);
    Node(kList, named, rule, "," + std::to_string(count));
    const double number = count;
    if (rule.length && *rule.length != static_cast<size_t>(count)) ++shape_.outside;
    if (rule.range && (number < rule.range->low || number > rule.range->high)) ++shape_.outside;
    for (int i = 0; i < count; ++i) {
      const size_t size = path_.size();
      path_ += "[" + std::to_string(i) + "]";
      Node(kElement, named, {});
      Fields(of.GetRepeatedMessage(message, field, i));
      path_.resize(size);
    }
  }

  void List(const Message& message, const FieldDescriptor* field, const FieldDescriptor* named, const Rule& rule) {
    const auto size = static_cast<size_t>(message.GetReflection()->FieldSize(message, field));
    ReportColumn column;
    for (size_t i = 0; i < size; ++i) column.AppendElement(message, field, static_cast<int>(i));
    AddColumn(column, rule);
    if (!rule.is_table) {
      if (rule.length && *rule.length != size) ++shape_.outside;
      Node(kArray, named, rule, "," + std::to_string(size));
      return;
    }
    // Row by row: if the rule leaves one size open, it follows from the number of values.
    size_t columns = rule.columns.value_or(0);
    if (columns == 0 && rule.rows.value_or(0) > 0) columns = size / *rule.rows;
    const bool fits = columns > 0 && size % columns == 0 && (!rule.rows || size / columns == *rule.rows);
    if (size > 0 && !fits && (rule.rows || rule.columns)) ++shape_.outside;
    if (fits && size > 0) {
      Node(kTable, named, rule, "," + std::to_string(size / columns) + "," + std::to_string(columns));
    } else {
      Node(kArray, named, rule, "," + std::to_string(size));
    }
  }

  /// The list in a message that has nothing else; null for another type.
  static const FieldDescriptor* RowValues(const FieldDescriptor* field) {
    const Descriptor* type = field->message_type();
    const bool is_row = type->field_count() == 1 && type->field(0)->is_repeated() && !field->is_map();
    return is_row && type->field(0)->message_type() == nullptr ? type->field(0) : nullptr;
  }

  void Rows(const Message& message, const FieldDescriptor* field, const FieldDescriptor* named, const Rule& rule) {
    const Reflection& of = *message.GetReflection();
    const FieldDescriptor* values = RowValues(field);
    const int rows = of.FieldSize(message, field);
    ReportColumn column;
    std::string sizes;
    size_t widest = 0;
    bool is_even = true;
    for (int i = 0; i < rows; ++i) {
      const Message& row = of.GetRepeatedMessage(message, field, i);
      const int size = row.GetReflection()->FieldSize(row, values);
      for (int k = 0; k < size; ++k) column.AppendElement(row, values, k);
      AppendItem(std::to_string(size), sizes);
      is_even &= i == 0 || widest == static_cast<size_t>(size);
      widest = std::max(widest, static_cast<size_t>(size));
    }
    AddColumn(column, rule);
    if (rule.rows && *rule.rows != static_cast<size_t>(rows)) ++shape_.outside;
    if (!is_even || (rule.columns && rows > 0 && *rule.columns != widest)) ++shape_.outside;
    Node(kTable, named, rule,
         "," + std::to_string(rows) + "," + std::to_string(widest) + (is_even ? "" : ",[" + sizes + "]"));
  }

  void AddColumn(ReportColumn column, const Rule& rule) {
    if (rule.range) shape_.outside += column.CountOutside(0, rule.range->low, rule.range->high);
    shape_.lists.push_back(std::move(column));
  }

  void Node(NodeKind kind, const FieldDescriptor* named, const Rule& rule, const std::string& sizes = "") {
    AppendItem("[" + std::to_string(kind) + "," + EncodeJsonString(path_) + "," +
                   std::to_string(schemas_.FieldIndex(named)) + "," + std::to_string(rule.index) + sizes + "]",
               shape_.nodes);
  }

  Schemas& schemas_;
  Shape& shape_;
  std::string path_;
};

/// One setting of the page.
struct Row {
  Side* side;
  const SideEntry* entry;
  std::string scope;
  const char* kind = "";  ///< "changed", "added", "removed", or "other" for what a changed one is compared with
  size_t differences = 0;
  std::string difference_json = {};
  int other = -1;  ///< the row that it is compared with
  int owner = -1;  ///< of "other": the first row that is compared with it, and stores the lists that are equal
};

std::string DifferenceJson(const MessageComparison& comparison) {
  static constexpr const char* kKinds[] = {"c", "a", "r", "l", "b"};
  std::string list;
  size_t count = 0;
  for (const Difference& difference : comparison.differences) {
    if (++count > kMaxDifferences) break;
    std::string lines;
    for (const std::string& line : DifferenceTexts(difference, false)) AppendItem(EncodeJsonString(line), lines);
    AppendItem("[" + EncodeJsonString(difference.path) + "," + EncodeJsonString(difference.left_path) + ",\"" +
                   kKinds[static_cast<size_t>(difference.kind)] + "\",[" + lines + "]]",
               list);
  }
  return "[" + list + "]";
}

class ReportMaker {
 public:
  ReportMaker(Side* against, const CompareSidesOptions& options, ReportData& data, DiagnosticSink& sink)
      : against_(against), options_(options), data_(data), sink_(sink) {}

  bool Run(const std::vector<Side*>& sides) {
    for (Side* side : sides) {
      for (const SideEntry& entry : side->settings()) {
        by_entry_[&entry] = rows_.size();
        rows_.push_back({side, &entry, entry.scope});
      }
    }
    data_.settings = rows_.size();
    if (against_ != nullptr) {
      for (Side* side : sides) good_ &= Compare(*side);
    }
    AddOthers();
    data_.blocks.assign(1, "");
    std::string settings;
    std::vector<std::string> texts(rows_.size());
    for (size_t i = 0; i < rows_.size(); ++i) {
      if (rows_[i].owner < 0) texts[i] = SettingJson(i);
      // What it is compared with comes at once, while its lists are here.
      const int other = rows_[i].other;
      if (other >= 0 && rows_[static_cast<size_t>(other)].owner == static_cast<int>(i)) {
        texts[static_cast<size_t>(other)] = SettingJson(static_cast<size_t>(other));
      }
    }
    for (const std::string& text : texts) AppendItem(text, settings);
    std::string layouts;
    for (const Layout& layout : layouts_) {
      std::string columns;
      for (const ReportColumn& column : layout.columns) column.Write(columns);
      AppendItem(
          layout.json + ",\"r\":" + std::to_string(layout.rows) + ",\"b\":" + std::to_string(AddBlock(columns)) + "}",
          layouts);
    }
    std::string scopes;
    for (const Side* side : sides) {
      for (const std::string& scope : side->scopes()) AppendItem(EncodeJsonString(scope), scopes);
    }
    data_.blocks[0] = PackedText("{\"project\":" + EncodeJsonString(sides.empty() ? "" : sides[0]->project().name()) +
                                 ",\"against\":" + (against_ == nullptr ? "null" : EncodeJsonString(against_->name())) +
                                 ",\"scopes\":[" + scopes + "],\"modules\":[" + modules_.list() + "],\"fields\":[" +
                                 schemas_.fields() + "],\"rules\":[" + schemas_.rules() + "],\"layouts\":[" + layouts +
                                 "],\"settings\":[" + settings + "],\"versions\":[" + versions_ + "]}");
    return good_;
  }

 private:
  bool Compare(Side& side) {
    SidesComparison result;
    const auto add = [&](const EntryComparison& pair) {
      const SideEntry& entry = *(pair.right != nullptr ? pair.right : pair.left);
      const char* kind = pair.right == nullptr ? "removed" : pair.left == nullptr ? "added" : "changed";
      ++data_.different;
      if (entry.module.empty()) {
        AppendItem("{\"s\":" + EncodeJsonString(entry.scope) + ",\"n\":" + EncodeJsonString(entry.labels[0].second) +
                       ",\"k\":\"" + kind + "\",\"d\":" + DifferenceJson(pair.comparison) + "}",
                   versions_);
        return;
      }
      if (pair.right == nullptr) {
        const std::string scope = side.scopes().size() == 1 ? side.scopes()[0] : entry.scope;
        rows_.push_back({against_, &entry, scope, kind});
        return;
      }
      Row& row = rows_[by_entry_[pair.right]];
      row.kind = kind;
      row.differences = pair.comparison.count;
      if (pair.left == nullptr) return;
      row.difference_json = DifferenceJson(pair.comparison);
      lefts_.emplace_back(by_entry_[pair.right], pair.left);
    };
    return CompareSides(*against_, side, options_, add, result, sink_);
  }

  /// The settings of the other side that changed ones are compared with.
  void AddOthers() {
    std::unordered_map<const SideEntry*, int> added;
    for (const auto& [index, left] : lefts_) {
      const auto [place, fresh] = added.try_emplace(left, static_cast<int>(rows_.size()));
      if (fresh) rows_.push_back({against_, left, left->scope, "other"});
      rows_[index].other = place->second;
      if (fresh) rows_.back().owner = static_cast<int>(index);
    }
  }

  /// The path in the project; its location on this machine does not matter.
  static std::string ShownPath(const Row& row) {
    const std::string dir = DisplayPath(row.side->project().dir()) + "/";
    return row.entry->path.compare(0, dir.size(), dir) == 0 ? row.entry->path.substr(dir.size()) : row.entry->path;
  }

  std::string SettingJson(size_t index) {
    const Row& row = rows_[index];
    const SideEntry& entry = *row.entry;
    const auto& names = row.side->project().labels().names();
    std::string labels;
    for (const auto& [name, value] : entry.labels) {
      if (!names.empty() && name == names[0]) continue;  // the module
      AppendItem("[" + EncodeJsonString(name) + "," + EncodeJsonString(value) + "]", labels);
    }
    const size_t module =
        modules_.Of("{\"n\":" + EncodeJsonString(entry.module) + ",\"t\":" + EncodeJsonString(entry.type->name()) +
                    ",\"d\":" + Comment(entry.type) + "}");
    std::string json = "{\"s\":" + EncodeJsonString(row.scope) + ",\"m\":" + std::to_string(module) + ",\"l\":[" +
                       labels + "],\"p\":" + EncodeJsonString(ShownPath(row));
    if (*row.kind != '\0') json += ",\"k\":\"" + std::string(row.kind) + "\"";
    if (row.differences > 0) json += ",\"d\":" + std::to_string(row.differences);
    if (row.other >= 0) json += ",\"o\":" + std::to_string(row.other);
    if (row.owner >= 0) json += ",\"w\":" + std::to_string(row.owner);

    std::string_view bytes;
    if (!row.side->ReadBytes(entry, RuleBytes::kKept, bytes, sink_)) {
      good_ = false;
      return json + ",\"y\":-1}";
    }
    const auto message = row.side->project().schema().NewMessage(entry.type);
    if (!message->ParsePartialFromArray(bytes.data(), static_cast<int>(bytes.size()))) {
      row.side->ReportBadBytes(entry, sink_);
      good_ = false;
      return json + ",\"y\":-1}";
    }
    Shape shape;
    Walk(schemas_, shape).Fields(*message);
    const auto [place, fresh] =
        by_json_.try_emplace("{\"m\":" + std::to_string(module) + ",\"n\":[" + shape.nodes + "]", layouts_.size());
    if (fresh) layouts_.push_back({place->first, std::vector<ReportColumn>(shape.scalars.size())});
    Layout& layout = layouts_[place->second];
    for (size_t i = 0; i < shape.scalars.size(); ++i) {
      const Shape::Scalar& scalar = shape.scalars[i];
      layout.columns[i].Append(*scalar.message, scalar.field);
      if (scalar.range) {
        shape.outside += layout.columns[i].CountOutside(layout.rows, scalar.range->low, scalar.range->high);
      }
    }
    json += ",\"y\":" + std::to_string(place->second) + ",\"r\":" + std::to_string(layout.rows++);
    if (shape.outside > 0 && row.side != against_) {
      json += ",\"x\":" + std::to_string(shape.outside);
      data_.outside += shape.outside;
    }
    std::string block;
    AppendUint32(row.difference_json.size(), block);
    block += row.difference_json;
    const bool is_owner = row.other >= 0 && rows_[static_cast<size_t>(row.other)].owner == static_cast<int>(index);
    if (is_owner) places_.clear();
    for (size_t i = 0; i < shape.lists.size(); ++i) {
      std::string list;
      shape.lists[i].Write(list);
      if (row.owner >= 0) list = SharedList(shape.lists[i], i, std::move(list));
      block += list;
      if (is_owner) places_.try_emplace(std::move(list), i);
    }
    if (is_owner) lists_ = std::move(shape.lists);
    return json + ",\"b\":" + std::to_string(AddBlock(block)) + "}";
  }

  /// The bytes of a list; where the last owner has the same, its place there, or how far it is from the list at its
  /// own place, if that is shorter.
  std::string SharedList(const ReportColumn& list, size_t place, std::string bytes) const {
    std::string shared;
    const auto same = places_.find(bytes);
    if (same != places_.end()) {
      AppendReference(same->second, shared);
    } else if (place < lists_.size()) {
      list.WriteBeside(lists_[place], place, shared);
    }
    return !shared.empty() && shared.size() < bytes.size() ? shared : bytes;
  }

  /// Identical blocks are stored once.
  size_t AddBlock(const std::string& bytes) {
    std::string text = PackedText(bytes);
    const auto [place, fresh] = by_text_.try_emplace(text, data_.blocks.size());
    if (fresh) data_.blocks.push_back(std::move(text));
    return place->second;
  }

  Side* against_;
  const CompareSidesOptions& options_;
  ReportData& data_;
  DiagnosticSink& sink_;
  bool good_ = true;
  Schemas schemas_;
  SharedItems modules_;
  std::vector<Row> rows_;
  std::unordered_map<const SideEntry*, size_t> by_entry_;
  std::vector<std::pair<size_t, const SideEntry*>> lefts_;  ///< by the row that is compared with them
  std::vector<Layout> layouts_;
  std::unordered_map<std::string, size_t> by_json_, by_text_;
  std::vector<ReportColumn> lists_;                 ///< of the last owner
  std::unordered_map<std::string, size_t> places_;  ///< of these by their bytes
  std::string versions_;
};

}  // namespace

bool MakeReportData(const std::vector<Side*>& sides, Side* against, const CompareSidesOptions& options,
                    ReportData& data, DiagnosticSink& sink) {
  return ReportMaker(against, options, data, sink).Run(sides);
}

}  // namespace zotuning
