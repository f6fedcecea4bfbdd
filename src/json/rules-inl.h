/// \file
/// Rule templates and pruning: one table of the parameter kinds, and the two walks that use it. Annotations:
/// docs/rule-annotations.md.
#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace ZO_TUNING {
namespace internal {

/// Which fields of a rule a template sets besides its description.
enum class RuleForm {
  kScalar,  ///< recommend
  kArray,   ///< recommend, order, len
  kTable,   ///< recommend, row, col
  kStruct,  ///< len
};

/// One kind of parameter: its rule type, the data type that contains it, and the description in its template. Types are
/// recognised by their short names only.
struct ParameterKind {
  const char* rule_type;
  const char* data_type;  ///< null for structure arrays, whose rule is beside them
  const char* description;
  RuleForm form;
};

// The type names spell "Uint", the descriptions "UInt".
inline constexpr ParameterKind kParameterKinds[] = {
    {"BoolRule", "BoolData", "[Bool]", RuleForm::kScalar},
    {"Int32Rule", "Int32Data", "[Int32]", RuleForm::kScalar},
    {"Uint32Rule", "Uint32Data", "[UInt32]", RuleForm::kScalar},
    {"Int64Rule", "Int64Data", "[Int64]", RuleForm::kScalar},
    {"Uint64Rule", "Uint64Data", "[UInt64]", RuleForm::kScalar},
    {"DoubleRule", "DoubleData", "[Double]", RuleForm::kScalar},
    {"FloatRule", "FloatData", "[Float]", RuleForm::kScalar},
    {"BoolArrayRule", "BoolArrayData", "[BoolArr]", RuleForm::kArray},
    {"Int32ArrayRule", "Int32ArrayData", "[Int32Arr]", RuleForm::kArray},
    {"Uint32ArrayRule", "Uint32ArrayData", "[UInt32Arr]", RuleForm::kArray},
    {"Int64ArrayRule", "Int64ArrayData", "[Int64Arr]", RuleForm::kArray},
    {"Uint64ArrayRule", "Uint64ArrayData", "[UInt64Arr]", RuleForm::kArray},
    {"DoubleArrayRule", "DoubleArrayData", "[DoubleArr]", RuleForm::kArray},
    {"FloatArrayRule", "FloatArrayData", "[FloatArr]", RuleForm::kArray},
    {"BoolArrayRule_2D", "BoolArrayData_2D", "[BoolArr2D]", RuleForm::kTable},
    {"Int32ArrayRule_2D", "Int32ArrayData_2D", "[Int32Arr2D]", RuleForm::kTable},
    {"Uint32ArrayRule_2D", "Uint32ArrayData_2D", "[UInt32Arr2D]", RuleForm::kTable},
    {"Int64ArrayRule_2D", "Int64ArrayData_2D", "[Int64Arr2D]", RuleForm::kTable},
    {"Uint64ArrayRule_2D", "Uint64ArrayData_2D", "[UInt64Arr2D]", RuleForm::kTable},
    {"DoubleArrayRule_2D", "DoubleArrayData_2D", "[DoubleArr2D]", RuleForm::kTable},
    {"FloatArrayRule_2D", "FloatArrayData_2D", "[FloatArr2D]", RuleForm::kTable},
    {"StructArrayRule", nullptr, "[Repeated]", RuleForm::kStruct},
};
static_assert(std::size(kParameterKinds) == 22, "seven kinds in three forms, and structure arrays");

/// The kind whose rule type has this short name, or null.
inline const ParameterKind* FindRuleKind(const std::string& type_name) {
  const auto* found = std::find_if(std::begin(kParameterKinds), std::end(kParameterKinds),
                                   [&](const ParameterKind& kind) { return type_name == kind.rule_type; });
  return found == std::end(kParameterKinds) ? nullptr : found;
}

/// Whether a message type with this short name holds a parameter and its rule.
inline bool IsDataType(const std::string& type_name) {
  return std::any_of(std::begin(kParameterKinds), std::end(kParameterKinds), [&](const ParameterKind& kind) {
    return kind.data_type != nullptr && type_name == kind.data_type;
  });
}

/// Whether pruning removes a field of this message type completely.
inline bool IsStructArrayRule(const std::string& type_name) { return type_name == "StructArrayRule"; }

/// The message types that are open on the way down; a type that contains itself ends the walk.
class OpenTypes {
 public:
  explicit OpenTypes(const google::protobuf::Descriptor* root) : types_{root} {}
  bool Contains(const google::protobuf::Descriptor* type) const {
    return std::find(types_.begin(), types_.end(), type) != types_.end();
  }
  void Enter(const google::protobuf::Descriptor* type) { types_.push_back(type); }
  void Leave() { types_.pop_back(); }

 private:
  std::vector<const google::protobuf::Descriptor*> types_;
};

/// Anything a schema lacks for a template. The walk continues after each fault.
struct TemplateFault {
  enum class Kind {
    kRepeatedType,   ///< `field` is repeated and of a type that templates do not support; it stays empty
    kRecursiveType,  ///< `type` contains itself; it is filled once on each way down
    kNoRuleField,    ///< the rule type `type` has no singular field `rule_field` of type `field_type`
  };
  Kind kind;
  const google::protobuf::Descriptor* type;
  const google::protobuf::FieldDescriptor* field;  ///< with kRepeatedType
  const char* rule_field;                          ///< with kNoRuleField
  google::protobuf::FieldDescriptor::Type field_type;
};

/// Called with each fault as it is found.
using TemplateSink = std::function<void(const TemplateFault& fault)>;

/// Turns a message into its template.
class TemplateFiller {
 public:
  TemplateFiller(const google::protobuf::Descriptor* root, const TemplateSink& sink) : sink_(sink), open_(root) {}

  void Fill(google::protobuf::Message* msg, const google::protobuf::Descriptor* desc) {
    using google::protobuf::FieldDescriptor;
    const google::protobuf::Reflection* reflection = msg->GetReflection();
    for (int i = 0; i < desc->field_count(); ++i) {
      const FieldDescriptor* field = desc->field(i);
      if (field->is_repeated()) {
        FillRepeated(msg, reflection, field);
      } else if (field->type() == FieldDescriptor::TYPE_MESSAGE) {
        google::protobuf::Message* sub = reflection->MutableMessage(msg, field);
        if (const ParameterKind* kind = FindRuleKind(field->message_type()->name())) {
          Annotate(sub, field->message_type(), *kind);
        } else {
          Descend(sub, field->message_type());
        }
      }
    }
  }

 private:
  void FillRepeated(google::protobuf::Message* msg, const google::protobuf::Reflection* reflection,
                    const google::protobuf::FieldDescriptor* field) {
    using google::protobuf::FieldDescriptor;
    switch (field->type()) {
      case FieldDescriptor::TYPE_DOUBLE:
      case FieldDescriptor::TYPE_FLOAT:
      case FieldDescriptor::TYPE_INT64:
      case FieldDescriptor::TYPE_UINT64:
      case FieldDescriptor::TYPE_INT32:
      case FieldDescriptor::TYPE_BOOL:
      case FieldDescriptor::TYPE_UINT32:
        break;
      case FieldDescriptor::TYPE_MESSAGE:
        // A repeated rule is not an annotation: its element is walked like any other message.
        Descend(reflection->AddMessage(msg, field), field->message_type());
        break;
      default:
        sink_({TemplateFault::Kind::kRepeatedType, field->containing_type(), field, nullptr, field->type()});
    }
  }

  void Descend(google::protobuf::Message* msg, const google::protobuf::Descriptor* desc) {
    if (open_.Contains(desc)) {
      if (reported_.insert(desc).second) {
        sink_({TemplateFault::Kind::kRecursiveType, desc, nullptr, nullptr, {}});
      }
      return;
    }
    open_.Enter(desc);
    Fill(msg, desc);
    open_.Leave();
  }

  void Annotate(google::protobuf::Message* rule, const google::protobuf::Descriptor* desc, const ParameterKind& kind) {
    SetString(rule, desc, "description", kind.description);
    if (kind.form != RuleForm::kStruct) SetString(rule, desc, "recommend", "None");
    if (kind.form == RuleForm::kArray) SetOrder(rule, desc);
    if (kind.form == RuleForm::kArray || kind.form == RuleForm::kStruct) SetString(rule, desc, "len", "-1");
    if (kind.form == RuleForm::kTable) {
      SetString(rule, desc, "row", "-1");
      SetString(rule, desc, "col", "-1");
    }
  }

  void SetString(google::protobuf::Message* rule, const google::protobuf::Descriptor* desc, const char* name,
                 const char* value) {
    const auto* field = FindRuleField(desc, name, google::protobuf::FieldDescriptor::TYPE_STRING);
    if (field != nullptr) rule->GetReflection()->SetString(rule, field, value);
  }

  void SetOrder(google::protobuf::Message* rule, const google::protobuf::Descriptor* desc) {
    const auto* field = FindRuleField(desc, "order", google::protobuf::FieldDescriptor::TYPE_INT32);
    if (field != nullptr) rule->GetReflection()->SetInt32(rule, field, 0);
  }

  const google::protobuf::FieldDescriptor* FindRuleField(const google::protobuf::Descriptor* desc, const char* name,
                                                         google::protobuf::FieldDescriptor::Type type) {
    const auto* field = desc->FindFieldByName(name);
    if (field != nullptr && !field->is_repeated() && field->type() == type) return field;
    sink_({TemplateFault::Kind::kNoRuleField, desc, nullptr, name, type});
    return nullptr;
  }

  const TemplateSink& sink_;
  OpenTypes open_;
  std::set<const google::protobuf::Descriptor*> reported_;
};

/// Prunes a message for a bin.
class RulePruner {
 public:
  explicit RulePruner(const google::protobuf::Descriptor* root) : open_(root) {}

  /// Inside itself, a type is entered where it is present, since no rule may reach a bin, but nothing is created in it
  /// (`creates` is then false), since that would never end.
  void Prune(google::protobuf::Message* msg, const google::protobuf::Descriptor* desc, bool creates = true) {
    using google::protobuf::FieldDescriptor;
    const google::protobuf::Reflection* reflection = msg->GetReflection();
    for (int i = 0; i < desc->field_count(); ++i) {
      const FieldDescriptor* field = desc->field(i);
      if (field->is_repeated() || field->type() != FieldDescriptor::TYPE_MESSAGE) continue;
      if (!creates && !reflection->HasField(*msg, field)) continue;
      const google::protobuf::Descriptor* type = field->message_type();
      google::protobuf::Message* sub = reflection->MutableMessage(msg, field);
      if (IsStructArrayRule(type->name())) {
        reflection->ClearField(msg, field);
      } else if (IsDataType(type->name())) {
        const FieldDescriptor* rule = type->FindFieldByName("rule");
        if (rule != nullptr) sub->GetReflection()->ClearField(sub, rule);
      } else {
        const bool is_first = !open_.Contains(type);
        open_.Enter(type);
        Prune(sub, type, creates && is_first);
        open_.Leave();
      }
    }
  }

 private:
  OpenTypes open_;
};

/// Turns `message`, of type `type`, into a template in place; see MSG_INIT_FOR_JSON.
inline void FillTemplate(google::protobuf::Message* message, const google::protobuf::Descriptor* type,
                         const TemplateSink& sink) {
  TemplateFiller(type, sink).Fill(message, type);
}

/// Prunes `message`, of type `type`, for a bin in place; see MSG_PRONE_FOR_BIN.
inline void PruneRules(google::protobuf::Message* message, const google::protobuf::Descriptor* type) {
  RulePruner(type).Prune(message, type);
}

}  // namespace internal
}  // namespace ZO_TUNING
