#include "workspace/type_table.h"

#include <string>
#include <utility>

#include "json/rules-inl.h"

namespace zotuning {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;

bool IsBuiltIn(const Descriptor* type) {
  static constexpr const char* kNames[] = {
      "Any",        "Struct",     "Value",       "ListValue",  "Timestamp",   "Duration",  "FieldMask",   "DoubleValue",
      "FloatValue", "Int64Value", "UInt64Value", "Int32Value", "UInt32Value", "BoolValue", "StringValue", "BytesValue"};
  if (type->file()->package() != "google.protobuf") return false;
  for (const char* name : kNames) {
    if (type->name() == name) return true;
  }
  return false;
}

bool TakesNull(const FieldDescriptor* field) {
  return (field->message_type() != nullptr && field->message_type()->full_name() == "google.protobuf.Value") ||
         (field->enum_type() != nullptr && field->enum_type()->full_name() == "google.protobuf.NullValue");
}

/// Pairs each StructArrayRule with the list of structures that its name starts with, or with the only one.
std::vector<ListRule> FindListRules(const TypeTable& table) {
  std::vector<size_t> rules, lists;
  for (size_t i = 0; i < table.fields.size(); ++i) {
    const FieldEntry& field = table.fields[i];
    if (field.message == nullptr || field.map) continue;
    if (field.repeated) {
      lists.push_back(i);
    } else if (ZO_TUNING::internal::IsStructArrayRule(field.message->type->name())) {
      rules.push_back(i);
    }
  }
  std::vector<ListRule> pairs;
  for (const size_t rule : rules) {
    const std::string& name = table.fields[rule].name();
    size_t best = TypeTable::kNone, best_size = 0;
    for (const size_t list : lists) {
      const std::string& list_name = table.fields[list].name();
      if (name.compare(0, list_name.size(), list_name) != 0 || list_name.size() <= best_size) continue;
      best = list;
      best_size = list_name.size();
    }
    if (best == TypeTable::kNone && lists.size() == 1 && rules.size() == 1) best = lists[0];
    if (best != TypeTable::kNone) pairs.push_back({rule, best});
  }
  return pairs;
}

}  // namespace

const TypeTable& TypeTables::Get(const Descriptor* type) {
  std::unique_ptr<TypeTable>& slot = tables_[type];
  if (slot != nullptr) return *slot;
  slot = std::make_unique<TypeTable>();
  // Does not move when the types below are added.
  TypeTable& table = *slot;
  table.type = type;
  table.is_rule = ZO_TUNING::internal::FindRuleKind(type->name()) != nullptr;
  table.built_in = IsBuiltIn(type);
  if (table.built_in) return table;
  for (int i = 0; i < type->field_count(); ++i) {
    const FieldDescriptor* field = type->field(i);
    FieldEntry entry{};
    entry.descriptor = field;
    entry.message = field->message_type() == nullptr ? nullptr : &Get(field->message_type());
    entry.repeated = field->is_repeated();
    entry.map = field->is_map();
    entry.takes_null = TakesNull(field);
    entry.exempt = field->name() == "rule" || field->name() == "description";
    entry.in_real_oneof = field->real_containing_oneof() != nullptr;
    if (!field->is_repeated() && entry.message != nullptr && field->name() == "rule") table.rule = table.fields.size();
    if (field->name() == "value") table.value = table.fields.size();
    table.by_key.emplace(field->json_name(), table.fields.size());
    table.fields.push_back(entry);
  }
  for (size_t i = 0; i < table.fields.size(); ++i) table.by_key.emplace(table.fields[i].name(), i);
  table.by_key.erase("");
  for (const auto& [key, index] : table.by_key) {
    table.fields[index].has_key = true;
    if (key == table.fields[index].name()) table.fields[index].key_is_name = true;
  }
  table.list_rules = FindListRules(table);
  return table;
}

}  // namespace zotuning
