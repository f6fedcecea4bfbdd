/// \file
/// Edits to a JSON text that leave everything else byte for byte: order, spacing, line endings, spelling of numbers.
#pragma once

#include <google/protobuf/descriptor.h>

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "workspace/json_document.h"

namespace zotuning {

/// The field that protobuf's parser finds for a key: by json_name, then by name; null if the type has none.
const google::protobuf::FieldDescriptor* FieldOfKey(const google::protobuf::Descriptor* type, std::string_view key);

/// Where a member for `field` belongs in an object of its type: after the members of the fields declared before it. For
/// JsonEdit::InsertMember.
size_t SchemaPosition(const JsonValue& object, const google::protobuf::FieldDescriptor* field);

/// Whether a text can be edited: protobuf's parser accepts its grammar (but there is no byte order mark), and its root
/// is an object.
bool IsEditable(const JsonDocument& document);

/// Collects edits to one document and makes the new text. Edits may come in any order; all positions are those of the
/// document, not of the edited text. Values and members belong to the document, which must outlive this and be
/// editable. Edits inside something that is replaced or removed are lost with it.
///
/// New values are given as `json`: strict JSON, as the library prints it or on one line. Lines are indented to their
/// new place with the document's indentation and line endings; inside an object or list on one line they are joined.
class JsonEdit {
 public:
  explicit JsonEdit(const JsonDocument& document) : document_(document) {}

  /// The last call for a value counts.
  void Replace(const JsonValue& value, std::string json);

  /// `name` is the plain text of the key.
  void RenameKey(const JsonMember& member, std::string_view name);

  /// Inserts a member before the one at `position`, an index into the document's members; after the last one if there
  /// are no more. Several at one position keep the order of the calls. `name` is the plain text of the key.
  void InsertMember(const JsonValue& object, size_t position, std::string_view name, std::string json);
  void AppendMember(const JsonValue& object, std::string_view name, std::string json) {
    InsertMember(object, static_cast<size_t>(-1), name, std::move(json));
  }
  /// At SchemaPosition, under the name of the field.
  void InsertField(const JsonValue& object, const google::protobuf::FieldDescriptor* field, std::string json) {
    InsertMember(object, SchemaPosition(object, field), field->name(), std::move(json));
  }

  /// Likewise.
  void InsertElement(const JsonValue& list, size_t position, std::string json);
  void AppendElement(const JsonValue& list, std::string json) {
    InsertElement(list, static_cast<size_t>(-1), std::move(json));
  }

  /// Removes the member of `object`, or the element of `list`, at `position`, with one comma and its line. Does nothing
  /// if there are fewer.
  void RemoveMember(const JsonValue& object, size_t position) { ItemsOf(object).removed.insert(position); }
  void RemoveElement(const JsonValue& list, size_t position) { ItemsOf(list).removed.insert(position); }

  bool empty() const { return replaced_.empty() && items_.empty(); }

  /// The text with all edits made.
  std::string Apply() const;

 private:
  struct Insertion {
    std::string key;  ///< with its quotes; "" for an element
    std::string json;
  };
  /// The edits to the members or elements of one object or list.
  struct Items {
    JsonValue container;
    std::multimap<size_t, Insertion> inserted;  ///< by position
    std::set<size_t> removed;
  };
  struct Replacement {
    size_t end;
    std::string text;
  };
  /// Text that takes the place of another.
  struct Splice {
    size_t begin;
    size_t end;
    std::string text;
  };
  class Layout;

  void SpliceItems(const Items& changed, const Layout& layout, std::vector<Splice>& splices) const;

  Items& ItemsOf(const JsonValue& container) {
    Items& items = items_[container.id()];
    items.container = container;
    return items;
  }

  const JsonDocument& document_;
  std::map<size_t, Replacement> replaced_;  ///< by offset
  std::map<uint32_t, Items> items_;         ///< by the container's id
};

}  // namespace zotuning
