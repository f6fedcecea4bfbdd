// Tested by tests/workspace/migrate_test.cpp.

#include "workspace/migrate.h"

#include <google/protobuf/descriptor.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string_view>

#include "io/directory.h"
#include "json/default_data.h"
#include "tree/tuning_path-inl.h"
#include "workspace/check_json.h"
#include "workspace/check_setting.h"
#include "workspace/edit.h"
#include "workspace/format.h"
#include "workspace/git.h"
#include "workspace/path_frame.h"
#include "workspace/schema_revision.h"
#include "workspace/suggest.h"
#include "workspace/text.h"
#include "workspace/type_table.h"

namespace zotuning {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::EnumDescriptor;
using google::protobuf::EnumValueDescriptor;
using google::protobuf::FieldDescriptor;
using ZO_TUNING::internal::HasSuffix;
using ZO_TUNING::internal::kJsonSuffix;

// As deep as protobuf's parser goes.
constexpr size_t kMaxDepth = 100;

/// A type and the name of a field it had.
using OldField = std::pair<const Descriptor*, std::string>;

bool Contains(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

/// The key, besides the name itself, that protobuf's parser accepts for a field of this name.
std::string CamelCase(const std::string& name) {
  std::string key;
  bool upper = false;
  for (const char c : name) {
    if (c == '_') {
      upper = true;
    } else {
      key += upper && c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
      upper = false;
    }
  }
  return key;
}

/// Whether two values are the same string or number, however they are quoted.
bool SameScalar(const JsonValue& a, const JsonValue& b) {
  const auto text = [](const JsonValue& value) {
    return value.is_string() ? value.String() : std::string(value.raw());
  };
  return a && b && !a.is_object() && !a.is_array() && !b.is_object() && !b.is_array() && text(a) == text(b);
}

/// Whether a type is what the old one was: under the same name, or under a new one that has taken its place. Numbers of
/// other types' fields and values mean nothing for it.
template <typename Type>
bool IsSuccessor(const Type* type, const Type* old_type) {
  const auto is_known = [](const google::protobuf::DescriptorPool* pool, const std::string& name) {
    return pool->FindMessageTypeByName(name) != nullptr || pool->FindEnumTypeByName(name) != nullptr;
  };
  return type->full_name() == old_type->full_name() || (!is_known(old_type->file()->pool(), type->full_name()) &&
                                                        !is_known(type->file()->pool(), old_type->full_name()));
}

/// Whether a field can hold what another one, of the same number, held: of one type, or now within a data type.
bool CanHold(const FieldDescriptor* field, const FieldDescriptor* old) {
  if (field->message_type() != nullptr && old->message_type() == nullptr) {
    const FieldDescriptor* value = field->message_type()->FindFieldByName("value");
    return value != nullptr && value->type() == old->type() && value->is_repeated() == old->is_repeated();
  }
  if (field->is_repeated() != old->is_repeated() || field->type() != old->type()) return false;
  if (field->message_type() != nullptr) return field->message_type()->name() == old->message_type()->name();
  return field->enum_type() == nullptr || field->enum_type()->name() == old->enum_type()->name();
}

/// What both schemas know, and the names that connect them.
class Names {
 public:
  Names(Project& project, const MigrateOptions& options) : project_(project), options_(options) {}

  /// False after errors.
  bool Read(bool& misuse, DiagnosticSink& sink) {
    if (!LoadOld(sink)) return false;
    modules_ = project_.ValueNames(0);
    for (const Project::Module& module : project_.Modules()) {
      if (module.type != nullptr) AddTypes(module.type);
    }
    CollectingSink faults;
    for (const std::string& text : options_.renames) ReadRename(text, misuse, faults);
    for (const std::string& text : options_.drops) ReadDrop(text, misuse, faults);
    for (const std::string& text : options_.module_renames) ReadModule(text, misuse, faults);
    for (const std::string& text : options_.label_renames) ReadLabel(text, misuse, faults);
    const bool good = faults.ok();
    for (Diagnostic& fault : faults.Take()) sink.Add(std::move(fault));
    return good;
  }

  /// The new field that an unknown key of a type was renamed to, null if none.
  const FieldDescriptor* NewField(const Descriptor* type, const std::string& key) const {
    const auto found = renames_.find({type, key});
    return found == renames_.end() ? nullptr : found->second;
  }
  bool IsDropped(const Descriptor* type, const std::string& key) const { return drops_.count({type, key}) > 0; }

  const std::string& NewModule(const std::string& name) const {
    const auto found = module_renames_.find(name);
    return found == module_renames_.end() ? name : found->second;
  }
  const std::string& OldModule(const std::string& name) const {
    for (const auto& [old_name, new_name] : module_renames_) {
      if (new_name == name) return old_name;
    }
    return name;
  }
  /// "scenario_Video" -> "scenario_Movie"
  const std::string& NewFolder(const std::string& folder) const {
    const auto found = folder_renames_.find(folder);
    return found == folder_renames_.end() ? folder : found->second;
  }
  bool renames_folders() const { return !folder_renames_.empty(); }
  const std::vector<std::string>& modules() const { return modules_; }

  /// Null if no old schema is known.
  SchemaRevision* old() const { return old_.get(); }

  /// The new name of a value with the number of this old one; "" if there is none. Index 0 is the module.
  std::string Successor(size_t label, const std::string& old_name) const {
    if (label >= old_labels_.size()) return "";
    const std::vector<std::string> names = project_.ValueNames(label);
    for (const auto& [number, name] : old_values_.at(old_labels_[label])) {
      std::string successor = project_.ValueText(label, number);
      if (name == old_name && !Contains(names, name) && !HasOldValue(label, successor)) return successor;
    }
    return "";
  }

 private:
  bool LoadOld(DiagnosticSink& sink) {
    const std::string dir = project_.layout().ProtoDir();
    if (!options_.since.empty()) {
      old_ = SchemaRevision::Load(dir, options_.since, sink);
      if (old_ == nullptr) return false;
    } else {
      // Here the old schema is a help that may be missing.
      CollectingSink faults;
      if (const auto repository = GitRepository::Open(dir, faults)) {
        old_ = SchemaRevision::Load(dir, repository->RevisionBefore("*.proto"), faults);
        if (old_ == nullptr) old_ = SchemaRevision::Load(dir, "HEAD", faults);
      }
    }
    const Descriptor* label = old_ == nullptr ? nullptr : old_->FindType("TuningDataLabel");
    if (label == nullptr || !ZO_TUNING::internal::AppendLabels(label, old_labels_, old_values_).ok()) {
      old_labels_.clear();
    }
    return true;
  }

  bool HasOldValue(size_t label, const std::string& name) const {
    if (name.empty()) return true;
    for (const auto& [number, value] : old_values_.at(old_labels_[label])) {
      if (value == name) return true;
    }
    return false;
  }

  void AddTypes(const Descriptor* type) {
    if (!types_.insert(type).second) return;
    for (int i = 0; i < type->field_count(); ++i) {
      if (type->field(i)->message_type() != nullptr) AddTypes(type->field(i)->message_type());
    }
  }

  static bool Misuse(const std::string& text, const std::string& form, bool& misuse, DiagnosticSink& sink) {
    misuse = true;
    sink.Report(Code::kUsage, Quoted(text) + " does not have the form " + form);
    return false;
  }

  static bool Split(const std::string& text, char separator, std::string& left, std::string& right) {
    const size_t at = separator == '.' ? text.rfind('.') : text.find(separator);
    if (at == text.npos || at == 0 || at + 1 == text.size()) return false;
    left = text.substr(0, at);
    right = text.substr(at + 1);
    return true;
  }

  /// By its short or full name; null after an error.
  const Descriptor* TypeNamed(const std::string& name, DiagnosticSink& sink) const {
    std::vector<const Descriptor*> found;
    std::vector<std::string> known;
    for (const Descriptor* type : types_) {
      if (type->full_name() == name) return type;
      if (type->name() == name) found.push_back(type);
      known.push_back(type->name());
    }
    if (found.size() == 1) return found[0];
    sink.Report(Code::kMigrationNames,
                found.empty() ? "no module uses a type " + Quoted(name) + DidYouMean(name, known)
                              : "several types are named " + Quoted(name),
                found.empty() ? "" : "use its full name, for example " + found[0]->full_name());
    return nullptr;
  }

  void ReadRename(const std::string& text, bool& misuse, DiagnosticSink& sink) {
    std::string old_field, field_name, type_name, old_name;
    if (!Split(text, '=', old_field, field_name) || !Split(old_field, '.', type_name, old_name)) {
      Misuse(text, "TYPE.OLD=NEW", misuse, sink);
      return;
    }
    const Descriptor* type = TypeNamed(type_name, sink);
    if (type == nullptr) return;
    const FieldDescriptor* field = type->FindFieldByName(field_name);
    if (field == nullptr) {
      std::vector<std::string> known;
      known.reserve(static_cast<size_t>(type->field_count()));
      for (int i = 0; i < type->field_count(); ++i) known.push_back(type->field(i)->name());
      sink.Report(Code::kMigrationNames,
                  Quoted(type->full_name()) + " has no field " + Quoted(field_name) + DidYouMean(field_name, known));
    } else if (FieldOfKey(type, old_name) != nullptr) {
      sink.Report(Code::kMigrationNames, Quoted(type->full_name()) + " still has a field " + Quoted(old_name));
    } else {
      renames_[{type, old_name}] = renames_[{type, CamelCase(old_name)}] = field;
    }
  }

  void ReadDrop(const std::string& text, bool& misuse, DiagnosticSink& sink) {
    std::string type_name, old_name;
    if (!Split(text, '.', type_name, old_name)) {
      Misuse(text, "TYPE.FIELD", misuse, sink);
      return;
    }
    const Descriptor* type = TypeNamed(type_name, sink);
    if (type == nullptr) return;
    if (FieldOfKey(type, old_name) != nullptr) {
      sink.Report(Code::kMigrationNames, Quoted(type->full_name()) + " still has a field " + Quoted(old_name));
    }
    drops_.insert({type, old_name});
    drops_.insert({type, CamelCase(old_name)});
  }

  /// Whether a value may be renamed: the old name is gone, the new one exists.
  static bool CheckValue(const std::string& label, const std::vector<std::string>& names, const std::string& old_name,
                         const std::string& new_name, DiagnosticSink& sink) {
    if (Contains(names, old_name)) {
      sink.Report(Code::kMigrationNames, "the label " + Quoted(label) + " still has a value " + Quoted(old_name));
    } else if (!Contains(names, new_name)) {
      sink.Report(Code::kMigrationNames,
                  "the label " + Quoted(label) + " has no value " + Quoted(new_name) + DidYouMean(new_name, names));
    } else {
      return true;
    }
    return false;
  }

  void ReadModule(const std::string& text, bool& misuse, DiagnosticSink& sink) {
    std::string old_name, new_name;
    if (!Split(text, '=', old_name, new_name)) {
      Misuse(text, "OLD=NEW", misuse, sink);
    } else if (CheckValue(project_.labels().names()[0], modules_, old_name, new_name, sink)) {
      (void)project_.RequireType(new_name, sink);
      module_renames_[old_name] = new_name;
    }
  }

  void ReadLabel(const std::string& text, bool& misuse, DiagnosticSink& sink) {
    const std::vector<std::string>& labels = project_.labels().names();
    std::string value, new_name, label, old_name;
    if (!Split(text, '=', value, new_name) || !Split(value, '.', label, old_name)) {
      Misuse(text, "LABEL.OLD=NEW", misuse, sink);
      return;
    }
    const auto found = std::find(labels.begin(), labels.end(), label);
    const size_t index = static_cast<size_t>(found - labels.begin());
    if (found == labels.end()) {
      sink.Report(Code::kMigrationNames, "no label " + Quoted(label) + DidYouMean(label, labels));
    } else if (index == 0) {
      sink.Report(Code::kMigrationNames, "a module is renamed with --rename-module");
    } else if (project_.ValueNames(index).empty() || label == ZO_TUNING::internal::kModeLabel) {
      sink.Report(Code::kMigrationNames, "the values of the label " + Quoted(label) + " are numbers");
    } else if (CheckValue(label, project_.ValueNames(index), old_name, new_name, sink)) {
      folder_renames_[label + "_" + old_name] = label + "_" + new_name;
    }
  }

  Project& project_;
  const MigrateOptions& options_;
  std::unique_ptr<SchemaRevision> old_;
  std::vector<std::string> old_labels_;
  ZO_TUNING::internal::LabelMap old_values_;
  std::vector<std::string> modules_;
  std::set<const Descriptor*> types_;
  std::map<OldField, const FieldDescriptor*> renames_;
  std::set<OldField> drops_;
  std::map<std::string, std::string> module_renames_;
  std::map<std::string, std::string> folder_renames_;
};

/// Templates by type, made on demand.
class Templates {
 public:
  Templates(Schema& schema, SchemaRevision* old) : schema_(schema), old_(old) {}

  /// Of a type of the project's schema.
  JsonValue Of(const Descriptor* type) {
    return Get(type, [&] {
      std::string text;
      const auto printed = ZO_TUNING::internal::ModuleTemplate(
          schema_, type, [](const auto&) {}, &text);
      return printed.ok ? text : std::string();
    });
  }
  /// Of a type of the old one; none for null.
  JsonValue OfOld(const Descriptor* type) {
    return type == nullptr ? JsonValue() : Get(type, [&] { return old_->Template(type); });
  }

 private:
  template <typename Make>
  JsonValue Get(const Descriptor* type, Make make) {
    std::unique_ptr<JsonDocument>& document = documents_[type];
    if (document == nullptr) document = std::make_unique<JsonDocument>(make());
    return document->root();
  }

  Schema& schema_;
  SchemaRevision* old_;
  std::map<const Descriptor*, std::unique_ptr<JsonDocument>> documents_;
};

/// What was dropped, and from where.
struct Dropped {
  std::string file;
  std::string path;
  std::string json;
};

/// A rename that the old schema suggests, with the number of places.
using Suggestions = std::map<std::pair<std::string, std::string>, size_t>;

/// Migrates the text of one file.
class TextMigration {
 public:
  TextMigration(const Names& names, Templates& templates, TypeTables& types, bool all_rules,
                const JsonDocument& document, MigratedFile& file)
      : names_(names),
        templates_(templates),
        types_(types),
        all_rules_(all_rules),
        document_(document),
        edit_(document),
        file_(file) {}

  /// The new text. `default_root` is the migrated default, none for a default itself; `old_type` may be null.
  std::string Run(const Descriptor* type, const Descriptor* old_type, const JsonValue& default_root) {
    Place place{
        &types_.Get(type), templates_.Of(type), default_root, old_type, templates_.OfOld(old_type), false, false, 0};
    Object(document_.root(), place, PathFrame{});
    return edit_.empty() ? std::string(document_.text()) : edit_.Apply();
  }

  std::vector<Dropped>& dropped() { return dropped_; }
  const Suggestions& suggestions() const { return suggestions_; }
  /// Whether structures took another form or were added, in which there may be more to do.
  bool again() const { return again_; }

 private:
  /// What an object is compared with. Values may be none.
  struct Place {
    const TypeTable* type;
    JsonValue in_template;
    JsonValue in_default;
    const Descriptor* old_type;
    JsonValue in_old_template;
    bool in_rule;   ///< within fields named "rule" or "description", in which packing requires nothing
    bool may_lack;  ///< within these or a rule type, whose fields may be missing
    size_t depth;
  };

  void Object(const JsonValue& object, const Place& place, const PathFrame& at) {
    const TypeTable& type = *place.type;
    if (place.depth > kMaxDepth || type.built_in) return;
    std::vector<size_t> field_of;  // of each member; kNone for a removed one
    std::set<size_t> present;
    for (const JsonMember member : object.members()) {
      const auto found = type.by_key.find(member.key());
      field_of.push_back(found == type.by_key.end() ? TypeTable::kNone : found->second);
      if (found != type.by_key.end()) present.insert(found->second);
    }
    size_t position = 0;
    for (const JsonMember member : object.members()) {
      const std::string key = member.key();
      const PathFrame here = PathFrame::Member(at, key);
      const size_t index = position++;
      std::string old_name = key;
      if (field_of[index] == TypeTable::kNone) {
        const FieldDescriptor* renamed = names_.NewField(type.type, key);
        const auto found = renamed == nullptr ? type.by_key.end() : type.by_key.find(renamed->name());
        if (found == type.by_key.end() || !present.insert(found->second).second) {
          Drop(object, index, member, place, here);
          continue;
        }
        field_of[index] = found->second;
        edit_.RenameKey(member, renamed->name());
        file_.renamed.push_back(here.Text() + " -> " + renamed->name());
      } else {
        old_name = OldNameOf(type.fields[field_of[index]], place);
      }
      Field(object, member.value(), type.fields[field_of[index]], old_name, place, here);
    }
    AddMissing(object, place, field_of, present, at);
  }

  static std::string OldNameOf(const FieldEntry& field, const Place& place) {
    // A file that was renamed by hand or by an earlier run: its number still leads to the old field.
    if (place.old_type == nullptr || place.old_type->FindFieldByName(field.name()) != nullptr ||
        !IsSuccessor(place.type->type, place.old_type)) {
      return field.name();
    }
    const FieldDescriptor* old = place.old_type->FindFieldByNumber(field.descriptor->number());
    const bool gone = old != nullptr && place.type->type->FindFieldByName(old->name()) == nullptr;
    return gone ? old->name() : field.name();
  }

  void Drop(const JsonValue& object, size_t index, const JsonMember& member, const Place& place,
            const PathFrame& here) {
    Suggest(object, member.key(), place);
    edit_.RemoveMember(object, index);
    Keep(member.value(), here);
  }

  /// For the report.
  void Keep(const JsonValue& value, const PathFrame& at) {
    const std::optional<std::string> json = FormatValue(value, nullptr, 0);
    file_.dropped.push_back(at.Text());
    dropped_.push_back({"", at.Text(), json ? *json : EncodeJsonString(value.raw())});
  }

  void Suggest(const JsonValue& object, const std::string& key, const Place& place) {
    const Descriptor* type = place.type->type;
    if (place.old_type == nullptr || names_.IsDropped(type, key) || names_.NewField(type, key) != nullptr ||
        !IsSuccessor(type, place.old_type)) {
      return;
    }
    const FieldDescriptor* old = FieldOfKey(place.old_type, key);
    const FieldDescriptor* field = old == nullptr ? nullptr : type->FindFieldByNumber(old->number());
    if (field == nullptr || place.old_type->FindFieldByName(field->name()) != nullptr || !CanHold(field, old)) return;
    if (object.Find(field->name()) || object.Find(field->json_name())) return;
    ++suggestions_[{type->name() + "." + old->name(), field->name()}];
  }

  static const FieldDescriptor* OldField(const std::string& old_name, const Place& place) {
    return place.old_type == nullptr ? nullptr : place.old_type->FindFieldByName(old_name);
  }

  Place Below(const FieldEntry& field, const std::string& old_name, const Place& place) {
    const FieldDescriptor* old = OldField(old_name, place);
    Place below{};
    below.type = field.message;
    below.old_type = old == nullptr ? nullptr : old->message_type();
    below.in_default = place.in_default.Find(field.name());
    below.in_rule = place.in_rule || field.exempt;
    below.may_lack = place.may_lack || field.exempt || field.message->is_rule;
    below.depth = place.depth + 1;
    // The template of a rule depends on where the rule is.
    if (field.message->is_rule && !field.repeated) {
      below.in_template = place.in_template.Find(field.name());
      below.in_old_template = place.in_old_template.Find(old_name);
    } else {
      below.in_template = templates_.Of(field.message->type);
      below.in_old_template = templates_.OfOld(below.old_type);
    }
    return below;
  }

  void Field(const JsonValue& object, const JsonValue& value, const FieldEntry& field, const std::string& old_name,
             const Place& place, const PathFrame& at) {
    if (value.kind() == JsonKind::kNull || Reshape(object, value, field, old_name, place, at)) return;
    if (field.message == nullptr) {
      const FieldDescriptor* old = OldField(old_name, place);
      if (field.name() != "value" || !place.type->is_parameter()) Unwrap(value, field, at);
      if (old != nullptr && old->enum_type() != nullptr && field.descriptor->enum_type() != nullptr) {
        EnumValues(value, field.descriptor->enum_type(), old->enum_type(), at);
      }
      return;
    }
    Place below = Below(field, old_name, place);
    if (field.map) {
      Map(value, field, below, at);
    } else if (!field.repeated || !value.is_array()) {
      Single(value, below, at);
    } else {
      const JsonValue list_default = below.in_default;
      std::vector<JsonValue> defaults;
      for (const JsonValue element : list_default.elements()) defaults.push_back(element);
      size_t index = 0;
      for (const JsonValue element : value.elements()) {
        // An element that the default does not have is most like its first one.
        below.in_default = defaults.empty() ? JsonValue() : defaults[index < defaults.size() ? index : 0];
        Single(element, below, PathFrame::Element(at, index++));
      }
    }
  }

  /// Values of an enum that have another name now. Their numbers, which are packed, stay.
  void EnumValues(const JsonValue& value, const EnumDescriptor* type, const EnumDescriptor* old_type,
                  const PathFrame& at) {
    size_t index = 0;
    for (const JsonValue element : value.elements()) {
      EnumValues(element, type, old_type, PathFrame::Element(at, index++));
    }
    if (!value.is_string() || type->FindValueByName(value.String()) != nullptr || !IsSuccessor(type, old_type)) return;
    const EnumValueDescriptor* old = old_type->FindValueByName(value.String());
    const EnumValueDescriptor* renamed = old == nullptr ? nullptr : type->FindValueByNumber(old->number());
    if (renamed == nullptr || old_type->FindValueByName(renamed->name()) != nullptr) return;
    edit_.Replace(value, EncodeJsonString(renamed->name()));
    file_.renamed.push_back(at.Text() + ": " + old->name() + " -> " + renamed->name());
  }

  void Map(const JsonValue& map, const FieldEntry& field, Place place, const PathFrame& at) {
    const TypeTable* value_type = field.message->fields.size() > 1 ? field.message->fields[1].message : nullptr;
    if (value_type == nullptr) return;
    place.type = value_type;
    place.in_template = templates_.Of(value_type->type);
    place.in_default = JsonValue();
    place.old_type = nullptr;
    place.in_old_template = JsonValue();
    for (const JsonMember member : map.members()) {
      const std::string key = member.key();
      Single(member.value(), place, PathFrame::Member(at, key));
    }
  }

  void Single(const JsonValue& value, const Place& place, const PathFrame& at) {
    if (value.is_object()) {
      if (place.type->is_rule) Rule(value, place, at);
      Object(value, place, at);
    } else if (place.type->is_parameter() && value.kind() != JsonKind::kNull) {
      Wrap(value, place, at);
    }
  }

  /// A value in place of which its data type is now expected.
  void Wrap(const JsonValue& value, const Place& place, const PathFrame& at) {
    const FieldEntry& inner = place.type->fields[place.type->value];
    // Rows of rows, and lists in place of a single value, need a decision by a person.
    if (inner.message != nullptr || (value.is_array() && !inner.repeated)) return;
    const std::optional<std::string> json = FormatValue(value, inner.descriptor, 0);
    const std::optional<std::string> parameter = FormatValue(place.in_template, nullptr, 0);
    if (!json || !parameter) return;
    const JsonDocument document(*parameter);
    const JsonValue slot = document.root().Find(inner.name());
    if (!slot) return;
    JsonEdit wrapped(document);
    wrapped.Replace(slot, inner.repeated && !value.is_array() ? "[" + *json + "]" : *json);
    Move(value, wrapped.Apply(), at);
  }

  /// Values whose field now has another form: single or in a list, in one list or in rows. False if the form is already
  /// right, or a value would be lost.
  bool Reshape(const JsonValue& object, const JsonValue& value, const FieldEntry& field, const std::string& old_name,
               const Place& place, const PathFrame& at) {
    const FieldDescriptor* old = OldField(old_name, place);
    // One value is taken for a list, too; it stays as it is where it always was one.
    const bool turned = old != nullptr && old->is_repeated() != field.repeated && value.is_array() != field.repeated;
    size_t columns = TableColumns(object);
    std::string json;
    if (turned && !field.map && (field.message != nullptr) == (old->message_type() != nullptr)) {
      json = InOrOutOfList(value, field, place);
    } else if (field.message == nullptr && field.repeated) {
      json = OneListOf(value);
    } else if (field.repeated && field.message->is_row()) {
      json = RowsOf(value, object.Find("rule"), field.message->fields[0].name(), columns);
    }
    if (json.empty()) return false;
    const JsonDocument reshaped("[" + json + "]");
    const std::optional<std::string> text = FormatValue(*reshaped.root().elements().begin(), field.descriptor, columns);
    if (!text) return false;
    Move(value, *text, at);
    return true;
  }

  /// A value as a list of it, or the other way round; an empty list becomes what the template has. "" where that cannot
  /// be.
  static std::string InOrOutOfList(const JsonValue& value, const FieldEntry& field, const Place& place) {
    if (value.size() > 1 && value.is_array()) return "";
    if (field.repeated) return value.is_object() == (field.message != nullptr) ? "[" + OneLine(value) + "]" : "";
    JsonValue only = place.in_template.Find(field.name());
    for (const JsonValue element : value.elements()) only = element;
    return only && !only.is_array() && only.is_object() == (field.message != nullptr) ? OneLine(only) : "";
  }

  /// The values of rows as one list; "" where they are none.
  static std::string OneListOf(const JsonValue& table) {
    std::vector<JsonValue> values;
    for (const JsonValue row : table.elements()) {
      const JsonValue list = row.is_object() && row.size() == 1 ? (*row.members().begin()).value() : row;
      if (!list.is_array() || !AppendScalars(list, values)) return "";
    }
    return values.empty() ? "" : ListText(values, 0, values.size());
  }

  /// One list as rows of so many columns, or as one row where it was no table before; `columns` is set then. "" where
  /// it cannot be.
  static std::string RowsOf(const JsonValue& list, const JsonValue& rule, const std::string& name, size_t& columns) {
    std::vector<JsonValue> values;
    if (!AppendScalars(list, values) || values.empty()) return "";
    if (columns == 0 && !rule.Find("col")) columns = values.size();
    if (columns == 0 || values.size() % columns != 0) return "";
    std::string json;
    for (size_t i = 0; i < values.size(); i += columns) {
      json += i == 0 ? "[{" : ", {";
      json += EncodeJsonString(name) + ": " + ListText(values, i, i + columns) + "}";
    }
    return json + "]";
  }

  /// False where an element is no scalar.
  static bool AppendScalars(const JsonValue& list, std::vector<JsonValue>& values) {
    for (const JsonValue element : list.elements()) {
      if (element.is_object() || element.is_array()) return false;
      values.push_back(element);
    }
    return true;
  }

  static std::string ListText(const std::vector<JsonValue>& values, size_t begin, size_t end) {
    std::string text = "[";
    for (size_t i = begin; i < end; ++i) text += (i == begin ? "" : ", ") + OneLine(values[i]);
    return text + "]";
  }

  /// The reverse: a data type of which only the value is now expected. The rest of it goes to the report.
  void Unwrap(const JsonValue& value, const FieldEntry& field, const PathFrame& at) {
    const JsonValue inner = value.is_object() ? value.Find("value") : JsonValue();
    if (!inner || inner.is_object() || inner.is_array() != field.repeated) return;
    for (const JsonMember member : value.members()) {
      if (!member.KeyIs("value") && !member.KeyIs("rule")) return;
    }
    const std::optional<std::string> json = FormatValue(inner, field.descriptor, 0);
    if (!json) return;
    if (const JsonValue rule = value.Find("rule")) Keep(rule, PathFrame::Member(at, "rule"));
    Move(value, *json, at);
  }

  void Move(const JsonValue& value, std::string json, const PathFrame& at) {
    edit_.Replace(value, std::move(json));
    file_.moved.push_back(at.Text());
    again_ = true;
  }

  /// Updates the parts of a rule to the template if they were still the old template's, or all of them.
  void Rule(const JsonValue& rule, const Place& place, const PathFrame& at) {
    for (const JsonMember member : rule.members()) {
      const auto found = place.type->by_key.find(member.key());
      if (found == place.type->by_key.end()) continue;
      const FieldEntry& field = place.type->fields[found->second];
      const JsonValue wanted = place.in_template.Find(field.name());
      const JsonValue value = member.value();
      if (!wanted || wanted.is_object() || wanted.is_array() || SameScalar(value, wanted)) continue;
      if (!all_rules_ && !SameScalar(value, place.in_old_template.Find(field.name()))) continue;
      const std::optional<std::string> json = FormatValue(wanted, field.descriptor, 0);
      if (!json) continue;
      const PathFrame here = PathFrame::Member(at, field.name());
      edit_.Replace(value, *json);
      file_.rules.push_back(here.Text());
    }
  }

  void AddMissing(const JsonValue& object, const Place& place, const std::vector<size_t>& field_of,
                  const std::set<size_t>& present, const PathFrame& at) {
    const TypeTable& type = *place.type;
    for (size_t i = 0; i < type.fields.size(); ++i) {
      const FieldEntry& field = type.fields[i];
      if (present.count(i) > 0 || !field.has_key || !IsWanted(field, place) || HasSibling(field, type, present))
        continue;
      JsonValue source = place.in_default.Find(field.name());
      // A parameter without a value has been packed as 0, and still is.
      const bool is_value = i == type.value && type.is_parameter();
      if (!source || source.kind() == JsonKind::kNull || is_value) source = place.in_template.Find(field.name());
      if (!source) continue;
      const std::optional<std::string> json = FormatValue(source, field.descriptor, Columns(place, is_value));
      if (!json) continue;
      edit_.InsertMember(object, PositionOf(i, field_of), field.name(), *json);
      const PathFrame here = PathFrame::Member(at, field.name());
      file_.added.push_back(here.Text());
      again_ = again_ || field.message != nullptr;
    }
  }

  static size_t Columns(const Place& place, bool is_value) { return is_value ? TableColumns(place.in_default) : 0; }

  /// As in the check of completeness; what is new in the schema is added everywhere.
  bool IsWanted(const FieldEntry& field, const Place& place) const {
    if (all_rules_) return true;
    if (place.old_type != nullptr && IsSuccessor(place.type->type, place.old_type) &&
        place.old_type->FindFieldByName(field.name()) == nullptr) {
      return true;
    }
    if (field.exempt) return false;
    if (!place.may_lack && !place.type->is_rule) return true;
    // Packing searches the text for the name, wherever it is.
    return !place.in_rule && field.name() != "value" && document_.text().find(field.name()) == std::string_view::npos;
  }

  static bool HasSibling(const FieldEntry& field, const TypeTable& type, const std::set<size_t>& present) {
    const auto* oneof = field.descriptor->real_containing_oneof();
    return oneof != nullptr && std::any_of(present.begin(), present.end(), [&](size_t i) {
             return type.fields[i].descriptor->real_containing_oneof() == oneof;
           });
  }

  /// After the members of fields declared before field `index`, with the new names of renamed ones.
  static size_t PositionOf(size_t index, const std::vector<size_t>& field_of) {
    size_t position = 0, last = 0;
    for (size_t i = 0; i < field_of.size(); ++i) {
      if (field_of[i] == TypeTable::kNone || field_of[i] < last || field_of[i] >= index) continue;
      last = field_of[i];
      position = i + 1;
    }
    return position;
  }

  const Names& names_;
  Templates& templates_;
  TypeTables& types_;
  const bool all_rules_;
  const JsonDocument& document_;
  JsonEdit edit_;
  MigratedFile& file_;
  std::vector<Dropped> dropped_;
  Suggestions suggestions_;
  bool again_ = false;
};

/// Migrates all files of a project.
class Migrator {
 public:
  Migrator(Project& project, const MigrateOptions& options, Migration& migration, DiagnosticSink& sink)
      : project_(project), options_(options), migration_(migration), sink_(sink), names_(project, options) {}

  bool Run() {
    if (!names_.Read(migration_.misuse, sink_)) return false;
    templates_ = std::make_unique<Templates>(project_.schema(), names_.old());
    // The defaults first: settings take missing fields from them.
    for (const std::string& scope : project_.Scopes()) {
      if (scope == kDefaultScope) Scope(scope);
    }
    for (const std::string& scope : project_.Scopes()) {
      if (scope != kDefaultScope) Scope(scope);
    }
    ReportLeft();
    ReportSuggestions();
    if (sink_.ok()) AddReport();
    return sink_.ok();
  }

 private:
  /// Forwards diagnostics, and remembers whether there were errors.
  class CountingSink : public DiagnosticSink {
   public:
    explicit CountingSink(DiagnosticSink& sink) : sink_(sink) {}
    void Add(Diagnostic diagnostic) override {
      ok_ &= diagnostic.severity != Severity::kError;
      sink_.Add(std::move(diagnostic));
    }
    bool ok() const { return ok_; }

   private:
    DiagnosticSink& sink_;
    bool ok_ = true;
  };

  /// The files of a removed module.
  struct Left {
    size_t count = 0;
    std::string path;  ///< of the first
  };

  void Scope(const std::string& scope) {
    const std::string dir = project_.layout().ScopeDir(scope);
    std::vector<FoundFile> files;
    if (!Exists(dir)) return;
    (void)ListFiles(dir, names_.renames_folders() ? "" : kJsonSuffix, files, sink_);
    std::set<std::string> left;  // folders, the inner ones last
    for (const FoundFile& file : files) {
      std::string relative = NewDir(file.relative);
      const bool is_setting = HasSuffix(file.relative, kJsonSuffix);
      if (is_setting) {
        relative += names_.NewModule(ModuleOfFile(file.relative)) + kJsonSuffix;
      } else {
        relative += file.relative.substr(file.relative.rfind('/') + 1);
      }
      std::string text;
      if (IsDirectory(file.path) || (!is_setting && relative == file.relative)) continue;
      const std::string path = JoinPath(dir, relative);
      if (path != file.path && !new_paths_.insert(path).second) {
        RefuseMeeting(file.path, path);
        continue;
      }
      for (size_t end = file.relative.rfind('/'); end != file.relative.npos && end != 0 && path != file.path;
           end = file.relative.rfind('/', end - 1)) {
        if (NewDir(file.relative.substr(0, end + 1)) != file.relative.substr(0, end + 1)) {
          left.insert(dir + "/" + file.relative.substr(0, end));
        }
      }
      if (!ReadFile(file.path, text, sink_)) continue;
      is_setting ? SettingFile(scope, relative, file.path, path, text) : Change(file.path, path, text, text);
    }
    for (auto folder = left.rbegin(); folder != left.rend(); ++folder) migration_.changes.RemoveIfEmpty(*folder);
  }

  /// The folders of a file, each with a "/", under their new names.
  std::string NewDir(const std::string& relative) const {
    std::string dir;
    size_t begin = 0;
    for (size_t end; (end = relative.find('/', begin)) != relative.npos; begin = end + 1) {
      dir += names_.NewFolder(relative.substr(begin, end - begin)) + "/";
    }
    return dir;
  }

  void RefuseMeeting(const std::string& old_path, const std::string& path) {
    sink_.Report(Code::kExists, "two files would become " + Quoted(DisplayPath(path)) + "; nothing is written", "",
                 DisplayPath(old_path));
  }

  void Change(const std::string& old_path, const std::string& path, const std::string& old_text,
              const std::string& text) {
    std::string there;
    if (old_path == path) {
      migration_.changes.Replace(path, old_text, text);
    } else if (!Exists(path)) {
      migration_.changes.Rename(old_path, path, old_text, text);
    } else if (ReadFile(path, there, sink_) && there == text) {
      // A run was killed before it removed what it had written under the new name.
      migration_.changes.Remove(old_path, old_text);
    } else {
      RefuseMeeting(old_path, path);
    }
  }

  void SettingFile(const std::string& scope, const std::string& relative, const std::string& old_path,
                   const std::string& path, const std::string& text) {
    WarnOfFolders(relative, old_path);
    const std::string module = ModuleOfFile(relative);
    const Descriptor* type = Contains(names_.modules(), module) ? project_.schema().FindType(module) : nullptr;
    if (type == nullptr) {
      Left& left = left_[module];
      if (left.count++ == 0) left.path = old_path;
      if (old_path != path) Change(old_path, path, text, text);
      return;
    }
    if (const JsonDocument document(text); !IsEditable(document)) {
      CheckText(document, DisplayPath(old_path), sink_);
      return;
    }
    MigratedFile file{DisplayPath(path), DisplayPath(old_path), {}, {}, {}, {}, {}};
    const Descriptor* old_type = names_.old() == nullptr ? nullptr : names_.old()->FindType(names_.OldModule(module));
    const auto found = defaults_.find(module);
    const bool is_default = scope == kDefaultScope;
    const JsonValue default_root = is_default || found == defaults_.end() ? JsonValue() : found->second->root();
    std::string new_text = text;
    std::vector<Dropped> dropped;
    bool is_open = false;
    bool again = true;
    for (size_t pass = 0; again && pass < kMaxDepth; ++pass) {
      const JsonDocument document(new_text);
      TextMigration run(names_, *templates_, types_, options_.rules, document, file);
      new_text = run.Run(type, old_type, default_root);
      again = run.again();
      for (const auto& [rename, count] : run.suggestions()) suggestions_[rename] += count;
      is_open = is_open || !run.suggestions().empty();
      for (Dropped& each : run.dropped()) {
        each.file = JoinPath(scope, relative);
        dropped.push_back(std::move(each));
      }
    }
    // As long as names are open, the text is not what it is going to be.
    const bool good =
        is_open || CheckSettingText(project_.schema(), path, WithoutMark(new_text), type, Fields::kAll, sink_);
    if (is_default && good && path == project_.layout().DefaultPath(module)) {
      defaults_[module] = std::make_unique<JsonDocument>(new_text);
    }
    if (new_text == text && path == old_path) return;
    dropped_.insert(dropped_.end(), dropped.begin(), dropped.end());
    migration_.files.push_back(std::move(file));
    Change(old_path, path, text, new_text);
  }

  /// Without the byte order mark, which is none of a migration's faults.
  static std::string WithoutMark(const std::string& text) {
    return text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? text.substr(3) : text;
  }

  /// Names folders that are no levels any longer.
  void WarnOfFolders(const std::string& relative, const std::string& path) {
    const std::vector<std::string>& labels = project_.labels().names();
    size_t begin = 0;
    for (size_t end; (end = relative.find('/', begin)) != relative.npos; begin = end + 1) {
      const std::string folder = relative.substr(begin, end - begin);
      const std::string fault = project_.FolderFault(folder);
      if (fault.empty()) continue;
      migration_.left = true;
      if (!warned_.insert(folder).second) continue;
      std::string hint;
      for (size_t label = 1; label < labels.size(); ++label) {
        if (folder.compare(0, labels[label].size() + 1, labels[label] + "_") != 0) continue;
        const std::string value = folder.substr(labels[label].size() + 1);
        const std::string successor = names_.Successor(label, value);
        if (!successor.empty()) hint = RenameHint("label " + labels[label] + "." + value, successor);
      }
      sink_.Report(Code::kMigrationLeft, fault, hint, DisplayPath(path));
    }
  }

  /// `what` is the end of the option's name and the old name: "module AfCommon".
  static std::string RenameHint(const std::string& what, const std::string& new_name) {
    return "renamed? --rename-" + what + "=" + new_name;
  }

  void ReportLeft() {
    migration_.left |= !left_.empty();
    for (const auto& [module, left] : left_) {
      const std::string successor = names_.Successor(0, module);
      sink_.Report(
          Code::kMigrationLeft,
          "there is no module " + Quoted(module) + "; " + Count(left.count, "file") + " of it left as they were",
          successor.empty() ? "" : RenameHint("module " + module, successor), DisplayPath(left.path));
    }
  }

  void ReportSuggestions() {
    for (const auto& [rename, count] : suggestions_) {
      sink_.Report(Code::kRenameSuggested,
                   Quoted(rename.first) + " is gone and " + Quoted(rename.second) + " has its number and type, in " +
                       Count(count, "place") + "; nothing is written",
                   "--rename " + rename.first + "=" + rename.second + ", or --drop " + rename.first);
    }
  }

  /// Adds what was dropped to the report, which is written before the files that lose it.
  void AddReport() {
    if (dropped_.empty()) return;
    const std::string path = project_.dir() + "/" + kMigrationReport;
    std::string old_text;
    const bool existed = Exists(path);
    if (existed && !ReadFile(path, old_text, sink_)) return;
    const JsonDocument document(existed ? old_text : "{\n \"dropped\": []\n}\n");
    const JsonValue list = document.root().Find("dropped");
    if (!IsEditable(document) || !list.is_array()) {
      sink_.Report(Code::kExists, "the dropped values cannot be added to this file: it has no list 'dropped'",
                   "move it away", DisplayPath(path));
      return;
    }
    // A run that was killed has kept values that it did not come to drop.
    std::set<std::string> known;
    for (const JsonValue entry : list.elements()) known.insert(OneLine(entry));
    JsonEdit edit(document);
    for (const Dropped& dropped : dropped_) {
      const std::string json = "{\n \"file\": " + EncodeJsonString(dropped.file) +
                               ",\n \"path\": " + EncodeJsonString(dropped.path) + ",\n \"value\": null\n}";
      const JsonDocument entry(json);
      JsonEdit with_value(entry);
      with_value.Replace(entry.root().Find("value"), dropped.json);
      const std::string text = with_value.Apply();
      if (known.insert(OneLine(JsonDocument(text).root())).second) edit.AppendElement(list, text);
    }
    migration_.report_path = DisplayPath(path);
    ChangeSet changes;
    if (existed) {
      changes.Replace(path, old_text, edit.Apply());
    } else {
      changes.Create(path, edit.Apply());
    }
    changes.Append(std::move(migration_.changes));
    migration_.changes = std::move(changes);
  }

  Project& project_;
  const MigrateOptions& options_;
  Migration& migration_;
  CountingSink sink_;
  Names names_;
  std::unique_ptr<Templates> templates_;
  TypeTables types_;
  std::map<std::string, std::unique_ptr<JsonDocument>> defaults_;  ///< migrated, by module
  std::set<std::string> new_paths_;
  std::map<std::string, Left> left_;  ///< by module
  std::set<std::string> warned_;
  Suggestions suggestions_;
  std::vector<Dropped> dropped_;
};

}  // namespace

bool PlanMigration(Project& project, const MigrateOptions& options, Migration& migration, DiagnosticSink& sink) {
  return Migrator(project, options, migration, sink).Run();
}

}  // namespace zotuning
