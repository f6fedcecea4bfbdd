// A document against a message type. Tested by tests/workspace/check_json_test.cpp.

#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/util/json_util.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "schema/field_check.h"
#include "transcode/seen_fields.h"
#include "workspace/check_json.h"
#include "workspace/findings.h"
#include "workspace/old_names.h"
#include "workspace/path_frame.h"
#include "workspace/rule_check.h"
#include "workspace/scalar_check.h"
#include "workspace/suggest.h"
#include "workspace/type_table.h"

namespace zotuning {
namespace {

using google::protobuf::FieldDescriptor;
using ZO_TUNING::internal::SeenFields;

// Deeper objects already have a syntax fault.
constexpr int kMaxDepth = 100;

/// A value for use in a message, truncated to a readable length.
std::string ValueText(const JsonValue& value) {
  if (value.is_object()) return "{...}";
  if (value.is_array()) return "[...]";
  return Excerpt(value.raw(), 60);
}

/// One walk down a document, in step with the types of its objects.
class FitWalk {
 public:
  FitWalk(const JsonDocument& document, const FitOptions& options, Findings& findings)
      : document_(document), options_(options), findings_(findings) {}

  void Run(const TypeTable& type) {
    const JsonValue root = document_.root();
    if (root.is_object()) CheckObject(root, type, PathFrame(), {});
  }

 private:
  /// The context of an object.
  struct Place {
    int depth = 0;
    bool in_rule = false;   ///< below a field named "rule" or "description", for which packing does not search
    bool may_lack = false;  ///< below a rule, whatever its name: its fields may be missing
  };

  // ---- Objects ----

  void CheckObject(const JsonValue& object, const TypeTable& type, const PathFrame& at, Place place) {
    if (type.built_in) {
      CheckBuiltIn(object, type, at);
      return;
    }
    if (place.depth >= kMaxDepth) return;
    SeenFields seen(type.fields.size());
    JsonValue parameter[2];  // value and rule
    open_.push_back(&type);
    size_t next = 0;
    std::string scratch;
    for (const JsonMember member : object.members()) {
      // Texts usually have the fields in the order of the schema.
      const bool usual =
          next < type.fields.size() && type.fields[next].key_is_name && member.KeyIs(type.fields[next].name());
      const std::string_view key = usual ? type.fields[next].name() : member.key(&scratch);
      const size_t index = usual ? next : FindField(type, key);
      if (index == TypeTable::kNone) {
        AddUnknownKey(object, member, key, type, at, seen);
        continue;
      }
      next = index + 1;
      const FieldEntry& field = type.fields[index];
      const JsonValue value = member.value();
      const PathFrame here = PathFrame::Member(at, key);
      if (seen.Test(index)) AddSameField(object, member, key, type, index, here);
      // With its quotes a key without escapes is two longer.
      const bool escaped = member.raw_key().size() > key.size() + 2;
      if (options_.completeness && (escaped || (!usual && key != field.name()))) {
        CheckOtherName(member, field, here, place);
      }
      seen.Set(index);
      if (field.in_real_oneof && value.kind() != JsonKind::kNull) CheckOneof(object, member, type, index, here);
      if (index == type.value) parameter[0] = value;
      if (index == type.rule) parameter[1] = value;
      CheckField(value, field, here, Below(place, field));
    }
    CheckMissing(object, type, seen, at, place);
    open_.pop_back();
    const RuleOptions rules{options_.rules, options_.template_rules};
    if (type.is_parameter() && parameter[0] && parameter[1]) {
      CheckParameter(parameter[0], parameter[1], at, rules, findings_);
    }
    for (const ListRule& pair : type.list_rules) CheckListRuleOf(object, type, pair, at, rules);
  }

  static Place Below(const Place& place, const FieldEntry& field) {
    Place below = place;
    ++below.depth;
    below.in_rule = place.in_rule || field.exempt;
    below.may_lack = below.in_rule || place.may_lack || (field.message != nullptr && field.message->is_rule);
    return below;
  }

  static size_t FindField(const TypeTable& type, std::string_view key) {
    const auto found = type.by_key.find(key);
    return found == type.by_key.end() ? TypeTable::kNone : found->second;
  }

  void AddUnknownKey(const JsonValue& object, const JsonMember& member, std::string_view key, const TypeTable& type,
                     const PathFrame& at, SeenFields& seen) {
    if (findings_.Full(Severity::kError)) return;
    const std::string path = PathFrame::Member(at, key).Text();
    const std::string message =
        "unknown key " + Quoted(Excerpt(path)) + "; " + Quoted(type.type->full_name()) + " has no such field";
    std::string hint;
    std::optional<OldField> old;
    if (options_.old_names != nullptr) old = options_.old_names->Find(*type.type, std::string(key));
    if (old && !old->name_now.empty()) {
      const std::string since = old->revision == "HEAD" ? "" : " --since " + old->revision;
      hint = "the field is called " + Quoted(old->name_now) + " now; 'zotuning migrate --rename " + type.type->name() +
             "." + std::string(key) + "=" + old->name_now + since + "' renames it in all files";
      if (const size_t index = FindField(type, old->name_now); index != TypeTable::kNone) seen.Set(index);
    } else if (old) {
      hint = "the field was removed from the schema; remove the key";
    } else if (type.type->IsReservedName(std::string(key))) {
      hint = "the schema reserves this name: the field was removed or renamed; remove the key";
    } else {
      // A suggestion must not be a key that is already there.
      std::vector<std::string> names;
      for (const FieldEntry& field : type.fields) {
        if (!object.Find(field.name())) names.push_back(field.name());
      }
      const std::string nearest = Nearest(key, names);
      if (!nearest.empty()) {
        hint = "did you mean '" + nearest + "'?";
        seen.Set(type.by_key.at(nearest));
      }
    }
    findings_.Add(Code::kJsonUnknownKey, member.key_begin(), member.key_end(), path, message, hint);
  }

  void AddSameField(const JsonValue& object, const JsonMember& member, std::string_view key, const TypeTable& type,
                    size_t index, const PathFrame& at) {
    if (findings_.Full(Severity::kError)) return;
    for (const JsonMember other : object.members()) {
      const std::string other_key = other.key();
      if (FindField(type, other_key) != index) continue;
      if (other_key == key) {
        findings_.AddDuplicateKey(member, other.key_begin(), at.Text());
      } else {
        findings_.Add(Code::kJsonSameField, member.key_begin(), member.key_end(), at.Text(),
                      Quoted(at.Text()) + " is the same field as " + Quoted(other_key) + " before it",
                      "remove one of them");
      }
      return;
    }
  }

  /// The camelCase form of a name, or one with escapes, which is as good to protobuf.
  void CheckOtherName(const JsonMember& member, const FieldEntry& field, const PathFrame& at, const Place& place) {
    if (place.in_rule || field.exempt || findings_.Full(Severity::kWarning) || !TextLacks(field.name())) return;
    findings_.Add(Code::kJsonCamelCase, member.key_begin(), member.key_end(), at.Text(),
                  at.name == field.name() ? Quoted(at.Text()) + " is written with escapes"
                                          : Quoted(at.Text()) + " stands for " + Quoted(field.name()),
                  "write " + Quoted(field.name()) + ": the library's own packing searches the text for it");
  }

  void CheckOneof(const JsonValue& object, const JsonMember& member, const TypeTable& type, size_t index,
                  const PathFrame& at) {
    const auto* oneof = type.fields[index].descriptor->real_containing_oneof();
    for (const JsonMember other : object.members()) {
      if (other.key_begin() == member.key_begin()) return;
      const size_t other_index = FindField(type, other.key());
      if (other_index == TypeTable::kNone || other_index == index || other.value().kind() == JsonKind::kNull ||
          type.fields[other_index].descriptor->real_containing_oneof() != oneof) {
        continue;
      }
      findings_.Add(Code::kJsonOneof, member.key_begin(), member.key_end(), at.Text(),
                    Quoted(at.Text()) + " cannot be set beside " + Quoted(other.key()),
                    "at most one field of the oneof " + Quoted(oneof->name()) + " may be set");
      return;
    }
  }

  // ---- Completeness ----

  void CheckMissing(const JsonValue& object, const TypeTable& type, const SeenFields& seen, const PathFrame& at,
                    const Place& place) {
    for (size_t i = 0; i < type.fields.size(); ++i) {
      if (seen.Test(i)) continue;
      const FieldEntry& field = type.fields[i];
      // The field may be in a part that could not be read.
      if (!field.has_key || !object.complete()) continue;
      if (field.descriptor->is_required()) {
        AddMissing(Code::kJsonMissingField, object, field, at, "the schema says that it is required");
      } else if (!options_.completeness) {
        continue;
      } else if (field.exempt || place.may_lack || type.is_rule) {
        CheckMissingPart(object, field, at, place);
      } else if (i == type.value && type.is_parameter()) {
        AddMissing(Code::kJsonMissingValue, object, field, at, "");
      } else if (field.in_real_oneof || IsOpen(field.message)) {
        if (TextLacks(field.name())) {
          AddMissing(Code::kJsonMissingField, object, field, at,
                     "packing searches the text for its name, although it need not be set");
        }
      } else {
        AddMissing(Code::kJsonMissingField, object, field, at, "every field has to be spelled out");
      }
    }
  }

  /// For a rule or a description, which packing does not need unless it searches for the name.
  void CheckMissingPart(const JsonValue& object, const FieldEntry& field, const PathFrame& at, const Place& place) {
    if (options_.complete_rules) {
      AddMissing(Code::kRuleMissing, object, field, at, "");
    } else if (!place.in_rule && !field.exempt && field.name() != "value" && TextLacks(field.name())) {
      AddMissing(Code::kJsonMissingField, object, field, at, "packing searches the text for its name");
    }
  }

  void AddMissing(Code code, const JsonValue& object, const FieldEntry& field, const PathFrame& at, std::string hint) {
    if (findings_.Full(Info(code).severity)) return;
    const std::string path = PathFrame::Member(at, field.name()).Text();
    const std::string parameter = at.Text();
    findings_.Add(code, object.begin(), object.begin() + 1, path,
                  code == Code::kJsonMissingValue ? "the parameter " + Quoted(parameter) + " has no 'value'"
                                                  : Quoted(path) + " is missing",
                  std::move(hint));
  }

  bool IsOpen(const TypeTable* type) const {
    for (const TypeTable* open : open_) {
      if (open == type) return true;
    }
    return false;
  }

  bool TextLacks(const std::string& name) {
    const auto [slot, added] = lacks_.emplace(name, false);
    if (added) slot->second = document_.text().find(name) == std::string_view::npos;
    return slot->second;
  }

  // ---- Values ----

  void CheckField(const JsonValue& value, const FieldEntry& field, const PathFrame& at, const Place& place) {
    const JsonKind kind = value.kind();
    if (kind == JsonKind::kInvalid) return;
    if (kind == JsonKind::kNull && !field.takes_null) {
      AddNull(value, at, "its default is packed");
    } else if (field.map) {
      CheckMap(value, field, at, place);
    } else if (!field.repeated) {
      CheckSingle(value, field, at, place);
    } else if (kind == JsonKind::kArray) {
      CheckList(value, field, at, place);
    } else {
      findings_.Add(Code::kJsonNotAList, value.begin(), value.is_object() ? value.begin() + 1 : value.end(), at.Text(),
                    Quoted(at.Text()) + " is a list, and " + ValueText(value) + " stands alone",
                    "write it in brackets: [...]");
      CheckSingle(value, field, at, place);
    }
  }

  void CheckList(const JsonValue& list, const FieldEntry& field, const PathFrame& at, const Place& place) {
    if (list.empty()) {
      if (list.complete() && field.message != nullptr && options_.completeness && !place.may_lack) {
        CheckEmptyList(list, field, at);
      }
      return;
    }
    size_t index = 0;
    for (const JsonValue element : list.elements()) {
      const PathFrame here = PathFrame::Element(at, index++);
      switch (element.kind()) {
        case JsonKind::kInvalid:
          break;
        case JsonKind::kNull:
          if (!field.takes_null) AddNull(element, here, "packing leaves the element out");
          break;
        case JsonKind::kArray:
          if (TakesLists(field)) {
            CheckSingle(element, field, here, place);
          } else {
            findings_.Add(Code::kJsonNestedList, element.begin(), element.begin() + 1, here.Text(),
                          Quoted(here.Text()) + " is a list inside a list", "packing joins them into one list");
            Place below = place;
            if (++below.depth < kMaxDepth) CheckList(element, field, here, below);
          }
          break;
        default:
          CheckSingle(element, field, here, place);
      }
    }
  }

  static bool TakesLists(const FieldEntry& field) {
    return field.message != nullptr && field.message->built_in &&
           (field.message->type->name() == "Value" || field.message->type->name() == "ListValue");
  }

  /// Packing searches the text for the names of all fields, even those that only an element has.
  void CheckEmptyList(const JsonValue& list, const FieldEntry& field, const PathFrame& at) {
    std::string lacking;
    bool asks = false;
    ZO_TUNING::internal::RequiredFieldNames names([&](const std::string& name) {
      if (name == field.name()) return true;
      asks = true;
      if (TextLacks(name)) lacking = name;
      return lacking.empty();
    });
    names.Walk(field.descriptor);
    if (!asks) return;
    findings_.Add(Code::kJsonEmptyList, list.begin(), list.end(), at.Text(),
                  "the list " + Quoted(at.Text()) + " has no element",
                  lacking.empty() ? "packing accepts it, since the names of its fields occur elsewhere in the text"
                                  : "packing searches the text for " + Quoted(lacking) +
                                        ", which only an element has; give the list an element",
                  lacking.empty() ? Severity::kWarning : Severity::kError);
  }

  void CheckSingle(const JsonValue& value, const FieldEntry& field, const PathFrame& at, const Place& place) {
    if (field.message == nullptr) {
      if (value.is_object() || value.is_array()) {
        AddInvalid(value, field, at, {Code::kJsonMisfit, "a single value is expected"});
      } else if (value.kind() != JsonKind::kNull) {
        if (const auto misfit = CheckScalar(field.descriptor, value)) AddInvalid(value, field, at, *misfit);
      }
    } else if (field.descriptor->type() == FieldDescriptor::TYPE_GROUP) {
      AddInvalid(value, field, at, {Code::kJsonMisfit, "groups cannot be packed from JSON; declare a message instead"});
    } else if (field.message->built_in) {
      CheckBuiltIn(value, *field.message, at);
    } else if (value.is_object()) {
      CheckObject(value, *field.message, at, place);
    } else {
      AddInvalid(value, field, at, {Code::kJsonMisfit, "an object { ... } is expected"});
    }
  }

  void CheckMap(const JsonValue& map, const FieldEntry& field, const PathFrame& at, const Place& place) {
    if (!map.is_object()) {
      AddInvalid(map, field, at, {Code::kJsonMisfit, "an object { ... } is expected, a member for each key"});
      return;
    }
    std::map<std::string, size_t> keys;
    const FieldEntry& key_field = field.message->fields[0];
    const FieldEntry& value_field = field.message->fields[1];
    for (const JsonMember member : map.members()) {
      std::string scratch;
      const std::string_view key = member.key(&scratch);
      const PathFrame here = PathFrame::Member(at, key);
      const auto [first, added] = keys.emplace(key, member.key_begin());
      if (!added) findings_.AddDuplicateKey(member, first->second, here.Text());
      if (!IsMapKey(key_field.descriptor, key)) {
        findings_.Add(Code::kJsonMisfit, member.key_begin(), member.key_end(), here.Text(),
                      "invalid key " + Quoted(Excerpt(key)) + " for the map " + Quoted(at.Text()),
                      "keys are of type " + TypeName(key_field.descriptor));
      }
      Place below = place;
      ++below.depth;
      CheckField(member.value(), value_field, here, below);
    }
  }

  static bool IsMapKey(const FieldDescriptor* field, std::string_view key) {
    if (field->cpp_type() == FieldDescriptor::CPPTYPE_STRING) return true;
    const JsonDocument text(EncodeJsonString(key));
    const auto misfit = CheckScalar(field, text.root());
    return !misfit || misfit->code == Code::kJsonStringForNumber;
  }

  /// Types with a special JSON form are checked by protobuf.
  void CheckBuiltIn(const JsonValue& value, const TypeTable& type, const PathFrame& at) {
    google::protobuf::DynamicMessageFactory factory;
    const std::unique_ptr<google::protobuf::Message> message(factory.GetPrototype(type.type)->New());
    const std::string_view raw = value.raw();
    if (google::protobuf::util::JsonStringToMessage({raw.data(), raw.size()}, message.get()).ok()) return;
    findings_.Add(
        Code::kJsonMisfit, value.begin(), value.end(), at.Text(),
        "invalid value " + ValueText(value) + " for " + type.type->full_name() + " field " + Quoted(at.Text()));
  }

  void AddNull(const JsonValue& value, const PathFrame& at, const char* hint) {
    if (findings_.Full(Severity::kError)) return;
    findings_.Add(Code::kJsonNull, value.begin(), value.end(), at.Text(), Quoted(at.Text()) + " is null", hint);
  }

  void AddInvalid(const JsonValue& value, const FieldEntry& field, const PathFrame& at, Misfit misfit) {
    const Severity severity = Info(misfit.code).severity;
    if (findings_.Full(severity)) return;
    const bool long_value = value.is_object() || value.is_array();
    std::string message = "invalid value ";
    if (misfit.code == Code::kJsonStringForNumber) message = "unusual value ";
    findings_.Add(misfit.code, value.begin(), long_value ? value.begin() + 1 : value.end(), at.Text(),
                  message + ValueText(value) + " for " + TypeName(field.descriptor) + " field " + Quoted(at.Text()),
                  std::move(misfit.hint));
  }

  // ---- Rules ----

  void CheckListRuleOf(const JsonValue& object, const TypeTable& type, const ListRule& pair, const PathFrame& at,
                       RuleOptions rules) {
    JsonValue rule, list;
    std::string scratch;
    for (const JsonMember member : object.members()) {
      const size_t index = FindField(type, member.key(&scratch));
      if (index == pair.rule) rule = member.value();
      if (index == pair.list) list = member.value();
    }
    if (!rule || !list) return;
    CheckListRule(list, rule, PathFrame::Member(at, type.fields[pair.list].name()),
                  PathFrame::Member(at, type.fields[pair.rule].name()), rules, findings_);
  }

  const JsonDocument& document_;
  const FitOptions& options_;
  Findings& findings_;
  std::vector<const TypeTable*> open_;
  std::map<std::string, bool> lacks_;
};

}  // namespace

FitChecker::FitChecker(const FitOptions& options) : options_(options), types_(std::make_unique<TypeTables>()) {}

FitChecker::~FitChecker() = default;

void FitChecker::Check(const JsonDocument& document, const google::protobuf::Descriptor* type, const std::string& file,
                       DiagnosticSink& sink) {
  Findings findings(document, options_.max_diagnostics);
  FitWalk(document, options_, findings).Run(types_->Get(type));
  findings.Report(file, sink);
}

}  // namespace zotuning
