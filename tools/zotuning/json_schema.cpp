#include "json_schema.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <type_traits>
#include <utility>
#include <vector>

#include "workspace/rule_text.h"
#include "workspace/type_table.h"

namespace zotuning::tool {
namespace {

using google::protobuf::EnumDescriptor;
using google::protobuf::FieldDescriptor;

constexpr const char* kReal = "^(NaN|-?Infinity|-?[0-9]+([.][0-9]+)?([eE][+-]?[0-9]+)?)$";

template <typename T>
Json Integer() {
  return {{"type", {"integer", "string"}},
          {"minimum", std::numeric_limits<T>::min()},
          {"maximum", std::numeric_limits<T>::max()},
          {"pattern", std::is_signed_v<T> ? "^-?[0-9]+$" : "^[0-9]+$"}};
}

Json EnumSchema(const EnumDescriptor* type) {
  Json choices = Json::array();
  std::set<int> numbers;
  for (int i = 0; i < type->value_count(); ++i) {
    Json choice = {{"const", type->value(i)->name()}};
    if (const std::string comment = CommentOf(type->value(i)); !comment.empty()) choice["description"] = comment;
    choices.push_back(std::move(choice));
    numbers.insert(type->value(i)->number());
  }
  choices.push_back({{"enum", numbers}});
  return {{"anyOf", std::move(choices)}};
}

Json ScalarSchema(const FieldDescriptor* field) {
  switch (field->cpp_type()) {
    case FieldDescriptor::CPPTYPE_INT32:
      return Integer<int32_t>();
    case FieldDescriptor::CPPTYPE_UINT32:
      return Integer<uint32_t>();
    case FieldDescriptor::CPPTYPE_INT64:
      return Integer<int64_t>();
    case FieldDescriptor::CPPTYPE_UINT64:
      return Integer<uint64_t>();
    case FieldDescriptor::CPPTYPE_FLOAT: {
      const auto most = static_cast<double>(std::numeric_limits<float>::max());
      return {{"type", {"number", "string"}}, {"minimum", -most}, {"maximum", most}, {"pattern", kReal}};
    }
    case FieldDescriptor::CPPTYPE_DOUBLE:
      return {{"type", {"number", "string"}}, {"pattern", kReal}};
    case FieldDescriptor::CPPTYPE_BOOL:
      return {{"type", "boolean"}};
    case FieldDescriptor::CPPTYPE_ENUM:
      return EnumSchema(field->enum_type());
    default:
      return {{"type", "string"}};
  }
}

/// The schemas of message types, without ranges.
class Definitions {
 public:
  /// A reference to the schema of a type. A type whose fields may be missing has a separate schema.
  Json Of(const TypeTable& type, bool may_lack) {
    if (type.built_in) return Json::object();
    const std::string name = type.type->full_name() + (may_lack ? ":parts" : "");
    if (made_.insert(name).second) {
      Json schema = Make(type, may_lack);
      schemas_[name] = std::move(schema);
    }
    return {{"$ref", "#/definitions/" + name}};
  }

  Json Take() { return std::move(schemas_); }

 private:
  Json Make(const TypeTable& type, bool may_lack) {
    Json properties = Json::object(), required = Json::array();
    for (const FieldEntry& field : type.fields) {
      if (!field.has_key) continue;
      properties[field.name()] = Property(field, may_lack || field.exempt);
      const bool optional = field.exempt || may_lack || type.is_rule || field.in_real_oneof;
      if (!optional || field.descriptor->is_required()) required.push_back(field.name());
    }
    Json schema = {{"type", "object"}, {"properties", std::move(properties)}, {"additionalProperties", false}};
    if (const std::string comment = CommentOf(type.type); !comment.empty()) schema["description"] = comment;
    if (!required.empty()) schema["required"] = std::move(required);
    return schema;
  }

  Json Property(const FieldEntry& field, bool may_lack) {
    Json schema;
    if (field.takes_null) {
      schema = Json::object();
    } else if (field.map) {
      const FieldEntry& value = field.message->fields[1];
      schema = {{"type", "object"}, {"additionalProperties", Property(value, may_lack)}};
    } else {
      Json single = field.message == nullptr ? ScalarSchema(field.descriptor)
                                             : Of(*field.message, may_lack || field.message->is_rule);
      schema = field.repeated ? Json{{"type", "array"}, {"items", std::move(single)}} : std::move(single);
    }
    const std::string comment = CommentOf(field.descriptor);
    if (comment.empty()) return schema;
    // Other keys beside a reference are ignored.
    if (!schema.contains("$ref")) {
      schema["description"] = comment;
      return schema;
    }
    return {{"allOf", Json::array({std::move(schema)})}, {"description", comment}};
  }

  std::set<std::string> made_;
  Json schemas_ = Json::object();
};

/// What the rules of the defaults require, by position.
class Limits {
 public:
  void Read(const JsonValue& object, const TypeTable& type) {
    for (const JsonMember member : object.members()) {
      const auto found = type.by_key.find(member.key());
      if (found == type.by_key.end()) continue;
      const FieldEntry& field = type.fields[found->second];
      if (field.message == nullptr || field.map || field.message->is_rule || field.message->is_row()) continue;
      const JsonValue value = member.value();
      if (value.is_object()) Below(fields_[field.name()]).Read(value, *field.message);
      for (const JsonValue element : value.elements()) {
        Below(Below(fields_[field.name()]).element_).Read(element, *field.message);
      }
    }
    if (type.is_parameter()) {
      ReadRule(object.Find("rule"), "rule", "value", type.fields[type.value]);
    }
    for (const ListRule& pair : type.list_rules) {
      const FieldEntry& list = type.fields[pair.list];
      ReadRule(object.Find(type.fields[pair.rule].name()), type.fields[pair.rule].name(), list.name(), list);
    }
  }

  Json Schema() const {
    Json schema = Json::object(), properties = Json::object(), all = Json::array();
    for (const auto& [name, below] : fields_) {
      Json limits = below->Schema();
      if (!limits.empty()) properties[name] = std::move(limits);
    }
    if (!properties.empty()) schema["properties"] = std::move(properties);
    if (element_ != nullptr) {
      Json limits = element_->Schema();
      if (!limits.empty()) schema["items"] = std::move(limits);
    }
    for (const auto& [parts, limits] : rules_) {
      for (const auto& [said, limit] : limits) {
        // A setting whose rule does not say this is assumed to agree, if the defaults agree with each other.
        Json rule = {{"properties", said}};
        Json setting = {{"properties", {{parts.first, rule}}}};
        if (limits.size() > 1) {
          setting = {{"required", Json::array({parts.first})}};
          rule["required"] = Json::array();
          for (const auto& [part, text] : said.items()) rule["required"].push_back(part);
          setting["properties"][parts.first] = std::move(rule);
        }
        all.push_back({{"if", std::move(setting)}, {"then", {{"properties", limit}}}});
      }
    }
    if (!all.empty()) schema["allOf"] = std::move(all);
    return schema;
  }

 private:
  /// The conditions, as properties of the rule, and their consequences, as properties of the object beside it.
  using Limit = std::pair<Json, Json>;

  static Limits& Below(std::unique_ptr<Limits>& slot) {
    if (slot == nullptr) slot = std::make_unique<Limits>();
    return *slot;
  }

  void Add(const std::string& rule, const std::string& parts, Json said, const std::string& value, Json limit) {
    std::vector<Limit>& limits = rules_[{rule, parts}];
    Limit added(std::move(said), {{value, std::move(limit)}});
    for (const Limit& known : limits) {
      if (known == added) return;
    }
    limits.push_back(std::move(added));
  }

  void ReadRule(const JsonValue& rule, const std::string& rule_name, const std::string& name, const FieldEntry& field) {
    const auto text = [&](const char* part) { return rule.Find(part).String(); };
    const auto size = [&](const char* part) {
      bool unclear = false;
      return ReadSize(text(part), &unclear);
    };
    const auto said = [&](const char* part) { return Json{{part, {{"const", text(part)}}}}; };
    const bool rows = field.message != nullptr && field.message->is_row();
    const bool structures = field.message != nullptr && !rows;
    RangeFault fault;
    if (const std::optional<ValueRange> range = ReadRange(text("recommend"), &fault)) {
      Json limit = {{"minimum", range->low}, {"maximum", range->high}};
      if (structures) {
        limit = Count(std::ceil(range->low), std::floor(range->high));
      } else if (field.repeated) {
        limit = {{"items", std::move(limit)}};
        if (rows) limit = {{"items", {{"properties", {{field.message->fields[0].name(), std::move(limit)}}}}}};
      }
      Add(rule_name, "recommend", said("recommend"), name, std::move(limit));
    }
    if (!field.repeated) return;
    if (const std::optional<size_t> length = size("len")) {
      Add(rule_name, "len", said("len"), name, Count(*length, *length));
    }
    const std::optional<size_t> row = size("row"), column = size("col");
    if (rows && row) Add(rule_name, "row", said("row"), name, Count(*row, *row));
    if (rows && column) {
      const Json limit = {{"properties", {{field.message->fields[0].name(), Count(*column, *column)}}}};
      Add(rule_name, "col", said("col"), name, {{"items", limit}});
    }
    if (!rows && row && column) {
      Json both = said("row");
      both.update(said("col"));
      const double count = static_cast<double>(*row) * static_cast<double>(*column);
      Add(rule_name, "row, col", std::move(both), name, Count(count, count));
    }
  }

  /// For the elements of a list. Counts that no list has are left out.
  template <typename T>
  static Json Count(T low, T high) {
    constexpr double kMost = 1e15;
    if (static_cast<double>(high) < 0 || static_cast<double>(high) > kMost) return Json::object();
    return {{"minItems", static_cast<uint64_t>(low < 0 ? 0 : low)}, {"maxItems", static_cast<uint64_t>(high)}};
  }

  std::map<std::string, std::unique_ptr<Limits>> fields_;
  std::unique_ptr<Limits> element_;
  std::map<std::pair<std::string, std::string>, std::vector<Limit>> rules_;  ///< by rule and its parts
};

}  // namespace

Json ModuleSchema(const std::string& module, const google::protobuf::Descriptor* type, const JsonDocument& defaults) {
  TypeTables types;
  const TypeTable& table = types.Get(type);
  Definitions definitions;
  Json all = Json::array({definitions.Of(table, false)});
  Limits limits;
  limits.Read(defaults.root(), table);
  Json ranges = limits.Schema();
  if (!ranges.empty()) all.push_back(std::move(ranges));
  return {{"$schema", "http://json-schema.org/draft-07/schema#"},
          {"title", module},
          {"allOf", std::move(all)},
          {"definitions", definitions.Take()}};
}

}  // namespace zotuning::tool
