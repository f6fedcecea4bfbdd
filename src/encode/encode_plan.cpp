// Tested by tests/encode/encode_plan_test.cpp and, through texts, tests/encode/differential_test.cpp.

#include "encode/encode_plan.h"

#include <algorithm>

#include "encode/wire_format.h"
#include "json/rules-inl.h"
#include "schema/field_check.h"

namespace ZO_TUNING {
namespace internal {

namespace {

using google::protobuf::Descriptor;
using google::protobuf::EnumDescriptor;
using google::protobuf::FieldDescriptor;

// Objects and arrays together stay well below the hundred levels at which protobuf's parsers stop.
constexpr size_t kMaxLevels = 40;

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
      return ValueKind::kUnplanned;  // bytes are base64 in JSON; groups have names of their own
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

/// Types that protobuf reads from JSON, or writes, by rules of their own: the well-known ones and map entries.
bool HasOwnRules(const Descriptor* type) {
  return type->full_name().rfind("google.protobuf.", 0) == 0 || type->map_key() != nullptr;
}

/// The fields that pruning creates, as they stand on the wire: in field-number order.
std::string AbsentBytes(const MessagePlan& plan) {
  std::vector<const FieldPlan*> created;
  for (const FieldPlan& field : plan.fields) {
    if (field.created) created.push_back(&field);
  }
  std::sort(created.begin(), created.end(),
            [](const FieldPlan* a, const FieldPlan* b) { return a->number < b->number; });
  std::string bytes;
  for (const FieldPlan* field : created) bytes += field->absent_part;
  return bytes;
}

std::string AbsentPart(const FieldPlan& field) {
  const std::string& content = field.message->absent_bytes;
  char length[kMaxVarintSize];
  std::string part(field.tag, field.tag_size);
  part.append(length, static_cast<size_t>(WriteVarint(content.size(), length) - length));
  return part + content;
}

}  // namespace

ModulePlan::ModulePlan(const Descriptor* type) {
  CollectCheckedNames(type);
  root_ = HasOwnRules(type) ? nullptr : MakeMessage(type, Pruning::kModule);
}

void ModulePlan::CollectCheckedNames(const Descriptor* type) {
  CheckedNames names([this](const std::string& name) {
    if (name_ids_.emplace(name, static_cast<uint32_t>(checked_names_.size() + 1)).second) {
      checked_names_.push_back(name);
    }
    return true;
  });
  for (int i = 0; i < type->field_count(); ++i) names.Walk(type->field(i));
}

const MessagePlan* ModulePlan::MakeMessage(const Descriptor* type, Pruning pruning) {
  const auto made = messages_.find({type, pruning});
  if (made != messages_.end()) {
    return open_.size() + made->second->levels <= kMaxLevels ? made->second.get() : nullptr;
  }
  if (open_.size() >= kMaxLevels || std::find(open_.begin(), open_.end(), type) != open_.end()) return nullptr;
  if (type->real_oneof_decl_count() > 0) return nullptr;
  auto plan = std::make_unique<MessagePlan>();
  open_.push_back(type);
  const bool planned = FillFields(type, pruning, plan.get());
  open_.pop_back();
  if (!planned) return nullptr;
  plan->absent_bytes = AbsentBytes(*plan);
  return (messages_[{type, pruning}] = std::move(plan)).get();
}

bool ModulePlan::FillFields(const Descriptor* type, Pruning pruning, MessagePlan* plan) {
  for (int i = 0; i < type->field_count(); ++i) {
    FieldPlan& field = plan->fields.emplace_back();
    if (!FillField(type->field(i), pruning, &field)) return false;
    plan->created_count += field.created ? 1 : 0;
    if (field.message != nullptr) plan->levels = std::max(plan->levels, field.message->levels + 1);
    // Two fields of one json_name: which of them a key means is protobuf's affair.
    if (!plan->by_key.emplace(type->field(i)->json_name(), static_cast<uint32_t>(i)).second) return false;
  }
  for (int i = 0; i < type->field_count(); ++i) {
    const uint32_t index = static_cast<uint32_t>(i);
    plan->fields[index].name_is_key = plan->by_key.emplace(type->field(i)->name(), index).first->second == index;
  }
  return true;
}

bool ModulePlan::FillField(const FieldDescriptor* field, Pruning pruning, FieldPlan* plan) {
  if (field->is_required() || field->is_map() || field->type() == FieldDescriptor::TYPE_GROUP) return false;
  plan->quoted_name = "\"" + field->name() + "\":";
  const auto name_id = name_ids_.find(field->name());
  plan->name_id = name_id == name_ids_.end() ? 0 : name_id->second;
  plan->number = field->number();
  plan->kind = KindOf(field);
  plan->repeated = field->is_repeated();
  plan->packed = field->is_packed();
  plan->has_presence = field->has_presence();
  const WireType wire_type = plan->packed ? WireType::kDelimited : WireTypeOf(plan->kind);
  plan->tag_size = static_cast<uint8_t>(WriteTag(plan->number, wire_type, plan->tag) - plan->tag);
  plan->dropped = pruning == Pruning::kRule && field->name() == "rule";
  plan->created = false;

  if (plan->kind == ValueKind::kEnum) {
    plan->enumeration = MakeEnum(field->enum_type());
  } else if (plan->kind == ValueKind::kMessage) {
    const Descriptor* type = field->message_type();
    if (HasOwnRules(type)) return false;
    Pruning below = Pruning::kNone;
    if (pruning == Pruning::kModule && !field->is_repeated()) {
      plan->dropped = IsStructArrayRule(type->name());
      plan->created = !plan->dropped;
      if (plan->created) below = IsDataType(type->name()) ? Pruning::kRule : Pruning::kModule;
    }
    plan->message = MakeMessage(type, below);
    if (plan->message == nullptr) return false;
    if (plan->created) plan->absent_part = AbsentPart(*plan);
  }
  return true;
}

const EnumPlan* ModulePlan::MakeEnum(const EnumDescriptor* type) {
  std::unique_ptr<EnumPlan>& plan = enums_[type];
  if (plan == nullptr) {
    plan = std::make_unique<EnumPlan>();
    plan->descriptor = type;
    for (int i = 0; i < type->value_count(); ++i)
      plan->numbers.emplace(type->value(i)->name(), type->value(i)->number());
  }
  return plan.get();
}

}  // namespace internal
}  // namespace ZO_TUNING
