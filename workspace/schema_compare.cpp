// Tested by tests/workspace/schema_compare_test.cpp.

#include "workspace/schema_compare.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "json/rules-inl.h"

namespace zotuning {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::EnumDescriptor;
using google::protobuf::EnumValueDescriptor;
using google::protobuf::FieldDescriptor;

/// Types with the same letter read as each other.
char WireGroup(FieldDescriptor::Type type) {
  switch (type) {
    case FieldDescriptor::TYPE_INT32:
    case FieldDescriptor::TYPE_INT64:
    case FieldDescriptor::TYPE_UINT32:
    case FieldDescriptor::TYPE_UINT64:
    case FieldDescriptor::TYPE_BOOL:
      return 'v';
    case FieldDescriptor::TYPE_SINT32:
    case FieldDescriptor::TYPE_SINT64:
      return 'z';
    case FieldDescriptor::TYPE_FIXED32:
    case FieldDescriptor::TYPE_SFIXED32:
      return '4';
    case FieldDescriptor::TYPE_FIXED64:
    case FieldDescriptor::TYPE_SFIXED64:
      return '8';
    default:
      return '\0';
  }
}

std::string KindText(const FieldDescriptor* field) {
  std::string text = field->is_repeated() ? "repeated " : "";
  if (field->message_type() != nullptr) return text + field->message_type()->name();
  if (field->enum_type() != nullptr) return text + field->enum_type()->name();
  return text + field->type_name();
}

std::string NumberText(int number) { return std::to_string(number); }

class Comparison {
 public:
  explicit Comparison(std::vector<SchemaChange>& changes) : changes_(changes) {}

  void Types(const Descriptor* old_type, const Descriptor* new_type) {
    if (!seen_.insert({old_type, new_type}).second) return;
    for (int i = 0; i < old_type->field_count(); ++i) {
      const FieldDescriptor* field = old_type->field(i);
      if (!Reaches(field)) continue;
      const FieldDescriptor* same_name = new_type->FindFieldByName(field->name());
      const FieldDescriptor* same_number = new_type->FindFieldByNumber(field->number());
      if (same_name != nullptr && same_name->number() != field->number()) {
        Add(true, "FIELD_SAME_NUMBER", same_name->containing_type()->name() + "." + field->name(),
            "was " + NumberText(field->number()) + ", is " + NumberText(same_name->number()));
      }
      if (same_number == nullptr) {
        if (same_name != nullptr) continue;
        const bool reserved = new_type->IsReservedNumber(field->number());
        Add(false, "FIELD_NO_DELETE", old_type->name() + "." + field->name(),
            reserved ? "removed" : "removed; reserve " + NumberText(field->number()) + " so that it is not reused");
        continue;
      }
      Fields(field, same_number);
    }
    for (int i = 0; i < new_type->field_count(); ++i) {
      const FieldDescriptor* field = new_type->field(i);
      if (!Reaches(field) || old_type->FindFieldByNumber(field->number()) != nullptr ||
          old_type->FindFieldByName(field->name()) != nullptr) {
        continue;
      }
      Add(false, "", new_type->name() + "." + field->name(), "added as " + NumberText(field->number()));
    }
  }

  void Enums(const EnumDescriptor* old_enum, const EnumDescriptor* new_enum) {
    if (!seen_.insert({old_enum, new_enum}).second) return;
    for (int i = 0; i < old_enum->value_count(); ++i) {
      const EnumValueDescriptor* value = old_enum->value(i);
      const EnumValueDescriptor* same_name = new_enum->FindValueByName(value->name());
      const EnumValueDescriptor* same_number = new_enum->FindValueByNumber(value->number());
      if (same_name != nullptr && same_name->number() != value->number()) {
        Add(true, "ENUM_VALUE_SAME_NUMBER", new_enum->name() + "." + value->name(),
            "was " + NumberText(value->number()) + ", is " + NumberText(same_name->number()));
      } else if (same_name == nullptr && same_number == nullptr) {
        Add(true, "ENUM_VALUE_NO_DELETE", old_enum->name() + "." + value->name(),
            NumberText(value->number()) + " no longer has a name");
      } else if (same_name == nullptr) {
        const bool taken = old_enum->FindValueByName(same_number->name()) != nullptr;
        // The other one is reported with its number.
        Add(taken, "ENUM_VALUE_SAME_NAME", new_enum->name() + "." + same_number->name(),
            "was " + value->name() + (taken ? ", whose number is used again" : ""));
      }
    }
    for (int i = 0; i < new_enum->value_count(); ++i) {
      const EnumValueDescriptor* value = new_enum->value(i);
      if (old_enum->FindValueByNumber(value->number()) != nullptr ||
          old_enum->FindValueByName(value->name()) != nullptr) {
        continue;
      }
      Add(false, "", new_enum->name() + "." + value->name(), "added as " + NumberText(value->number()));
    }
  }

 private:
  /// What pruning removes does not count: rules beside singular parameters, and those of lists.
  static bool Reaches(const FieldDescriptor* field) {
    if (field->message_type() == nullptr || field->is_repeated()) return true;
    return ZO_TUNING::internal::FindRuleKind(field->message_type()->name()) == nullptr;
  }

  /// Two fields with the same number.
  void Fields(const FieldDescriptor* old_field, const FieldDescriptor* field) {
    const std::string name = field->containing_type()->name() + "." + field->name();
    const std::string kinds = "was " + KindText(old_field) + ", is " + KindText(field);
    if (old_field->name() != field->name()) {
      // A field that had another number before has taken the place of this one.
      const bool moved = old_field->containing_type()->FindFieldByName(field->name()) != nullptr ||
                         field->containing_type()->FindFieldByName(old_field->name()) != nullptr;
      Add(moved, "FIELD_SAME_NAME", name,
          NumberText(field->number()) + " was " + old_field->name() +
              (moved ? "; the number is used again" : "; a field that means something else needs its own number"));
    }
    if (old_field->is_repeated() != field->is_repeated()) {
      Add(true, "FIELD_SAME_CARDINALITY", name, kinds);
      return;
    }
    const bool in_oneof = field->real_containing_oneof() != nullptr;
    if (in_oneof != (old_field->real_containing_oneof() != nullptr)) {
      Add(true, "FIELD_SAME_ONEOF", name, in_oneof ? "was outside of a oneof" : "was in a oneof");
    }
    if (old_field->type() == field->type()) {
      if (field->message_type() != nullptr) Messages(old_field, field, name, kinds);
      if (field->enum_type() != nullptr) Enums(old_field->enum_type(), field->enum_type());
      return;
    }
    const char group = WireGroup(field->type());
    const bool alike = group != '\0' && group == WireGroup(old_field->type());
    Add(!alike, "FIELD_SAME_TYPE", name, kinds + (alike ? "; the same on the wire within its range" : ""));
  }

  /// A type under another name counts as a change of that field, wherever else both are used.
  void Messages(const FieldDescriptor* old_field, const FieldDescriptor* field, const std::string& name,
                const std::string& kinds) {
    const Descriptor* old_type = old_field->message_type();
    const Descriptor* type = field->message_type();
    if (old_type->full_name() == type->full_name()) {
      Types(old_type, type);
      return;
    }
    std::vector<SchemaChange> within;
    Comparison comparison(within);
    comparison.seen_ = seen_;
    comparison.Types(old_type, type);
    const bool breaks = std::any_of(within.begin(), within.end(), [](const SchemaChange& each) { return each.breaks; });
    Add(breaks, "FIELD_SAME_TYPE", name, kinds + (breaks ? "" : "; bins of the one can be read as the other"));
  }

  void Add(bool breaks, const char* rule, std::string name, std::string text) {
    changes_.push_back({breaks, rule, std::move(name), std::move(text)});
  }

  std::vector<SchemaChange>& changes_;
  std::set<std::pair<const void*, const void*>> seen_;
};

}  // namespace

void CompareTypes(const Descriptor* old_type, const Descriptor* new_type, std::vector<SchemaChange>& changes) {
  Comparison(changes).Types(old_type, new_type);
}

bool CompareSchemas(const SchemaRevision& old_schema, Project& project, std::vector<SchemaChange>& changes,
                    DiagnosticSink& sink) {
  const Descriptor* old_label = old_schema.FindType("TuningDataLabel");
  std::vector<std::string> labels;
  ZO_TUNING::internal::LabelMap values;
  if (old_label == nullptr || !ZO_TUNING::internal::AppendLabels(old_label, labels, values).ok() || labels.empty()) {
    sink.Report(Code::kSchemaType, "the older schema has no usable message type 'TuningDataLabel'");
    return false;
  }
  Comparison comparison(changes);
  comparison.Types(old_label, project.label_type());
  if (const Descriptor* old_version = old_schema.FindType("Version")) {
    comparison.Types(old_version, project.version_type());
  }
  for (const auto& [number, name] : values[labels[0]]) {
    const std::string new_name = project.ValueText(0, number);
    const Descriptor* old_type = old_schema.FindType(name);
    const Descriptor* new_type = new_name.empty() ? nullptr : project.schema().FindType(new_name);
    if (old_type == nullptr) continue;
    if (new_type != nullptr) {
      comparison.Types(old_type, new_type);
    } else if (!new_name.empty()) {
      changes.push_back({true, "MESSAGE_NO_DELETE", old_type->name(), "the module no longer has a type"});
    }
  }
  std::stable_sort(changes.begin(), changes.end(),
                   [](const SchemaChange& a, const SchemaChange& b) { return a.breaks > b.breaks; });
  return true;
}

}  // namespace zotuning
