/// \file
/// Message types as the checks of JSON texts need them: fields by key, what must be spelled out, parameters and rules.
#pragma once

#include <google/protobuf/descriptor.h>

#include <cstddef>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zotuning {

struct TypeTable;

struct FieldEntry {
  const google::protobuf::FieldDescriptor* descriptor;
  const TypeTable* message;  ///< null if the field is not a message
  bool repeated;
  bool map;
  bool takes_null;     ///< null is a valid value: of google.protobuf.Value and NullValue
  bool key_is_name;    ///< its name as a key means this field, not another one's json_name
  bool has_key;        ///< whether any key sets it: json_names of other fields can take both of its names
  bool exempt;         ///< named "rule" or "description", which may be missing
  bool in_real_oneof;  ///< at most one of these fields may be set

  const std::string& name() const { return descriptor->name(); }
};

/// A rule of repeated structures, beside the list that it describes.
struct ListRule {
  size_t rule;
  size_t list;
};

struct TypeTable {
  static constexpr size_t kNone = static_cast<size_t>(-1);

  const google::protobuf::Descriptor* type;
  std::vector<FieldEntry> fields;
  /// Field by key, as protobuf's parser matches them: the json_name of one field comes before the name of another.
  std::unordered_map<std::string_view, size_t> by_key;
  size_t value = kNone;  ///< set for a parameter, which has both of these fields
  size_t rule = kNone;
  bool is_rule;   ///< one of the rule types, whose fields may be missing
  bool built_in;  ///< a type with a special JSON form, such as google.protobuf.Timestamp
  std::vector<ListRule> list_rules;

  bool is_parameter() const { return value != kNone && rule != kNone; }
  /// A row of a table: a list of values and nothing else.
  bool is_row() const { return fields.size() == 1 && fields[0].repeated && fields[0].message == nullptr; }
};

/// The tables of the types seen so far.
class TypeTables {
 public:
  const TypeTable& Get(const google::protobuf::Descriptor* type);

 private:
  std::unordered_map<const google::protobuf::Descriptor*, std::unique_ptr<TypeTable>> tables_;
};

}  // namespace zotuning
