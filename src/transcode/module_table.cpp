// Tested by tests/transcode/module_table_test.cpp and, through texts, tests/transcode/differential_test.cpp.

#include "transcode/module_table.h"

#include <algorithm>

#include "json/rules-inl.h"
#include "schema/field_check.h"
#include "transcode/wire_format.h"

namespace ZO_TUNING {
namespace internal {

namespace {

using google::protobuf::Descriptor;
using google::protobuf::EnumDescriptor;
using google::protobuf::FieldDescriptor;

// Objects and arrays together stay well below the hundred levels at which protobuf's parsers stop.
constexpr size_t kMaxLevels = 40;

// Limit for absent messages, in all tables of a module: types that contain others twice double them with each level.
constexpr size_t kMaxDefaultBytes = size_t{64} << 20;

ValueKind KindOf(const FieldDescriptor* field) {
  switch (field->type()) {
    case FieldDescriptor::TYPE_BOOL:
      return ValueKind::kBool;
    case FieldDescriptor::TYPE_INT32:
      return ValueKind::kInt32;
    case FieldDescriptor::TYPE_INT64:
      return ValueKind::kInt64;
    case FieldDescriptor::TYPE_UINT32:
      return ValueKind::kUint32;
    case FieldDescriptor::TYPE_UINT64:
      return ValueKind::kUint64;
    case FieldDescriptor::TYPE_SINT32:
      return ValueKind::kSint32;
    case FieldDescriptor::TYPE_SINT64:
      return ValueKind::kSint64;
    case FieldDescriptor::TYPE_FIXED32:
      return ValueKind::kFixed32;
    case FieldDescriptor::TYPE_FIXED64:
      return ValueKind::kFixed64;
    case FieldDescriptor::TYPE_SFIXED32:
      return ValueKind::kSfixed32;
    case FieldDescriptor::TYPE_SFIXED64:
      return ValueKind::kSfixed64;
    case FieldDescriptor::TYPE_FLOAT:
      return ValueKind::kFloat;
    case FieldDescriptor::TYPE_DOUBLE:
      return ValueKind::kDouble;
    case FieldDescriptor::TYPE_ENUM:
      return ValueKind::kEnum;
    case FieldDescriptor::TYPE_STRING:
      return ValueKind::kString;
    case FieldDescriptor::TYPE_MESSAGE:
      return ValueKind::kMessage;
    default:
      return ValueKind::kUnsupported;  // bytes are base64 in JSON; groups have different names
  }
}

WireType WireTypeOf(ValueKind kind) {
  switch (kind) {
    case ValueKind::kFixed32:
    case ValueKind::kSfixed32:
    case ValueKind::kFloat:
      return WireType::kFixed32;
    case ValueKind::kFixed64:
    case ValueKind::kSfixed64:
    case ValueKind::kDouble:
      return WireType::kFixed64;
    case ValueKind::kString:
    case ValueKind::kMessage:
      return WireType::kDelimited;
    default:
      return WireType::kVarint;
  }
}

/// Types with a special JSON form in protobuf: the well-known types and map entries.
bool HasOwnRules(const Descriptor* type) {
  return type->full_name().rfind("google.protobuf.", 0) == 0 || type->map_key() != nullptr;
}

/// The wire bytes of the fields that pruning creates, in field-number order.
std::string DefaultContent(const MessageTable& table) {
  std::vector<const FieldEntry*> materialized;
  for (const FieldEntry& field : table.fields) {
    if (field.materialized) materialized.push_back(&field);
  }
  std::sort(materialized.begin(), materialized.end(),
            [](const FieldEntry* a, const FieldEntry* b) { return a->number < b->number; });
  std::string bytes;
  for (const FieldEntry* field : materialized) bytes += field->default_bytes;
  return bytes;
}

std::string DefaultBytes(const FieldEntry& field) {
  const std::string& content = field.message->default_content;
  char length[kMaxVarintSize];
  std::string part(field.tag, field.tag_size);
  part.append(length, static_cast<size_t>(WriteVarint(content.size(), length) - length));
  return part + content;
}

}  // namespace

ModuleTable::ModuleTable(const Descriptor* type, RuleBytes rules) {
  CollectRequiredNames(type);
  const Pruning pruning = rules == RuleBytes::kPruned ? Pruning::kModule : Pruning::kNone;
  root_ = HasOwnRules(type) ? nullptr : MakeMessage(type, pruning);
}

void ModuleTable::CollectRequiredNames(const Descriptor* type) {
  RequiredFieldNames names([this](const std::string& name) {
    if (name_ids_.emplace(name, static_cast<uint32_t>(required_names_.size() + 1)).second) {
      required_names_.push_back(name);
    }
    return true;
  });
  for (int i = 0; i < type->field_count(); ++i) names.Walk(type->field(i));
}

const MessageTable* ModuleTable::MakeMessage(const Descriptor* type, Pruning pruning) {
  const auto made = messages_.find({type, pruning});
  if (made != messages_.end()) {
    return open_.size() + made->second->levels <= kMaxLevels ? made->second.get() : nullptr;
  }
  if (open_.size() >= kMaxLevels || std::find(open_.begin(), open_.end(), type) != open_.end()) return nullptr;
  if (type->real_oneof_decl_count() > 0) return nullptr;
  auto table = std::make_unique<MessageTable>();
  open_.push_back(type);
  const bool supported = FillFields(type, pruning, table.get());
  open_.pop_back();
  if (!supported) return nullptr;
  table->default_content = DefaultContent(*table);
  return (messages_[{type, pruning}] = std::move(table)).get();
}

bool ModuleTable::FillFields(const Descriptor* type, Pruning pruning, MessageTable* table) {
  for (int i = 0; i < type->field_count(); ++i) {
    FieldEntry& field = table->fields.emplace_back();
    if (!FillField(type->field(i), pruning, &field)) return false;
    table->materialized_count += field.materialized ? 1 : 0;
    table->required_count += field.required ? 1 : 0;
    if (field.message != nullptr) table->levels = std::max(table->levels, field.message->levels + 1);
    // Two fields with the same json_name: which of them a key means is up to protobuf.
    if (!table->by_key.emplace(type->field(i)->json_name(), static_cast<uint32_t>(i)).second) return false;
  }
  for (int i = 0; i < type->field_count(); ++i) {
    const uint32_t index = static_cast<uint32_t>(i);
    table->fields[index].name_is_key = table->by_key.emplace(type->field(i)->name(), index).first->second == index;
  }
  return true;
}

bool ModuleTable::FillField(const FieldDescriptor* field, Pruning pruning, FieldEntry* table) {
  if (field->is_required() || field->is_map() || field->type() == FieldDescriptor::TYPE_GROUP) return false;
  table->quoted_name = "\"" + field->name() + "\":";
  const auto name_id = name_ids_.find(field->name());
  table->name_id = name_id == name_ids_.end() ? 0 : name_id->second;
  table->number = field->number();
  table->kind = KindOf(field);
  table->repeated = field->is_repeated();
  table->packed = field->is_packed();
  table->has_presence = field->has_presence();
  const WireType wire_type = table->packed ? WireType::kDelimited : WireTypeOf(table->kind);
  table->tag_size = static_cast<uint8_t>(WriteTag(table->number, wire_type, table->tag) - table->tag);
  table->required = field->name() != "rule" && field->name() != "description";
  table->pruned = pruning == Pruning::kRule && field->name() == "rule";
  table->materialized = false;

  if (table->kind == ValueKind::kEnum) {
    table->enumeration = MakeEnum(field->enum_type());
  } else if (table->kind == ValueKind::kMessage) {
    const Descriptor* type = field->message_type();
    if (HasOwnRules(type)) return false;
    Pruning below = Pruning::kNone;
    if (pruning == Pruning::kModule && !field->is_repeated()) {
      table->pruned = IsStructArrayRule(type->name());
      table->materialized = !table->pruned;
      if (table->materialized) below = IsDataType(type->name()) ? Pruning::kRule : Pruning::kModule;
    }
    table->message = MakeMessage(type, below);
    if (table->message == nullptr) return false;
    if (table->materialized) {
      // Once in the field, and once more in the message that contains it.
      default_bytes_ += 2 * (table->tag_size + kMaxVarintSize + table->message->default_content.size());
      if (default_bytes_ > kMaxDefaultBytes) return false;
      table->default_bytes = DefaultBytes(*table);
    }
  }
  return true;
}

const EnumTable* ModuleTable::MakeEnum(const EnumDescriptor* type) {
  std::unique_ptr<EnumTable>& table = enums_[type];
  if (table == nullptr) {
    table = std::make_unique<EnumTable>();
    table->descriptor = type;
    for (int i = 0; i < type->value_count(); ++i)
      table->numbers.emplace(type->value(i)->name(), type->value(i)->number());
  }
  return table.get();
}

}  // namespace internal
}  // namespace ZO_TUNING
