/// \file
/// What the fast path knows about a module type: one table per message type, built once per operation. See
/// docs/fast-path.md.
#pragma once

#include <google/protobuf/descriptor.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace ZO_TUNING {
namespace internal {

/// How a value is read from JSON and written to the wire.
enum class ValueKind : uint8_t {
  kUnsupported,  ///< a text that mentions the field falls back
  kBool,
  kInt32,
  kInt64,
  kUint32,
  kUint64,
  kSint32,
  kSint64,
  kFixed32,
  kFixed64,
  kSfixed32,
  kSfixed64,
  kFloat,
  kDouble,
  kEnum,
  kString,
  kMessage,
};

struct MessageTable;

/// The values of an enum. A number that it does not define is unsupported: closed enums treat such numbers differently.
struct EnumTable {
  std::unordered_map<std::string_view, int32_t> numbers;  ///< by name; views into the descriptor
  const google::protobuf::EnumDescriptor* descriptor;
};

struct FieldEntry {
  std::string quoted_name;  ///< `"name":`, the usual form of the key in the text
  bool name_is_key;         ///< false if the name is the json_name of another field
  uint32_t name_id;         ///< which name of the field check the key satisfies; 0 for none
  int32_t number;
  uint8_t tag_size;
  char tag[5] = {};  ///< of one value, or of the packed run
  ValueKind kind;
  bool repeated;
  bool required;  ///< a text without it is incomplete; rules and descriptions may be left out
  bool packed;
  bool has_presence;  ///< a default value is written as well
  bool pruned;        ///< read and checked, but pruned from the bin
  bool materialized;  ///< pruning makes it present when the text leaves it out
  const MessageTable* message = nullptr;
  const EnumTable* enumeration = nullptr;
  std::string default_bytes;  ///< of a materialized field: its wire bytes when the text leaves it out
  /// Size of the length prefix of the last run of bytes; the next one is most likely the same.
  mutable uint8_t length_size = 1;

  std::string_view name() const { return std::string_view(quoted_name).substr(1, quoted_name.size() - 3); }
};

struct MessageTable {
  std::vector<FieldEntry> fields;  ///< in declaration order
  /// Field index by key. A json_name wins over the name of another field.
  std::unordered_map<std::string_view, uint32_t> by_key;
  std::string default_content;    ///< what pruning creates for this message if it is absent
  size_t required_count = 0;      ///< of fields that are `required`
  size_t materialized_count = 0;  ///< of fields that are `materialized`
  size_t levels = 1;              ///< of messages, this one included
};

/// What to do with rules: packing prunes them, comparing may need them.
enum class RuleBytes { kPruned, kKept };

/// The table of one module type, and the names for its field check.
class ModuleTable {
 public:
  /// With kKept the bytes are those of the message that protobuf reads, before pruning.
  explicit ModuleTable(const google::protobuf::Descriptor* type, RuleBytes rules = RuleBytes::kPruned);
  ModuleTable(const ModuleTable&) = delete;
  ModuleTable& operator=(const ModuleTable&) = delete;

  /// Null if the type contains something the fast path does not support: required fields, oneofs, maps, groups,
  /// well-known types, itself, too many levels, or absent messages of too many bytes. All its texts then fall back.
  const MessageTable* root() const { return root_; }

  /// The names that the field check looks for, in order; their ids are their positions plus one.
  const std::vector<std::string_view>& required_names() const { return required_names_; }

 private:
  /// What pruning does to the fields of a message.
  enum class Pruning {
    kNone,    ///< below repeated fields and inside data messages: nothing
    kRule,    ///< a data message: its field "rule" is dropped
    kModule,  ///< the way down from the module: see MSG_PRONE_FOR_BIN
  };

  void CollectRequiredNames(const google::protobuf::Descriptor* type);
  bool FillFields(const google::protobuf::Descriptor* type, Pruning pruning, MessageTable* table);
  const MessageTable* MakeMessage(const google::protobuf::Descriptor* type, Pruning pruning);
  bool FillField(const google::protobuf::FieldDescriptor* field, Pruning pruning, FieldEntry* table);
  const EnumTable* MakeEnum(const google::protobuf::EnumDescriptor* type);

  const MessageTable* root_ = nullptr;
  std::vector<std::string_view> required_names_;
  std::unordered_map<std::string_view, uint32_t> name_ids_;
  std::vector<const google::protobuf::Descriptor*> open_;
  size_t default_bytes_ = 0;  ///< in all tables
  std::map<std::pair<const google::protobuf::Descriptor*, Pruning>, std::unique_ptr<MessageTable>> messages_;
  std::map<const google::protobuf::EnumDescriptor*, std::unique_ptr<EnumTable>> enums_;
};

}  // namespace internal
}  // namespace ZO_TUNING
