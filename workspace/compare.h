/// \file
/// What differs between two messages, by meaning: values as the types of their fields store them, lists with what was
/// inserted and removed, tables as one item. The two may come from different schemas; fields are paired by name.
#pragma once

#include <google/protobuf/message.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace zotuning {

/// The name of an enum value, or its number if it has none.
struct EnumName {
  std::string name;
  friend bool operator==(const EnumName& a, const EnumName& b) { return a.name == b.name; }
};
/// A message without its rules, in protobuf's text format on one line, truncated if long.
struct MessageSummary {
  std::string text;
  friend bool operator==(const MessageSummary& a, const MessageSummary& b) { return a.text == b.text; }
};

/// One value; std::monostate where there is none.
using FieldValue =
    std::variant<std::monostate, bool, int64_t, uint64_t, float, double, std::string, EnumName, MessageSummary>;

/// The value for people, on one line: numbers with the fewest digits that read back as the same value, strings quoted
/// and truncated if long, "none" for no value. Strings may contain any characters.
std::string ValueText(const FieldValue& value);
/// A number as a double; false for others.
bool NumberOf(const FieldValue& value, double* number);

/// How far two numbers may be apart and still count as equal: |a - b| <= absolute, or <= relative * max(|a|, |b|),
/// allowing for rounding to their type.
struct Tolerance {
  double absolute = 0;
  double relative = 0;
};

/// A tolerance for the paths that match a pattern: the module's name, a dot, and the JSON path without element indices
/// ("AfCommon.zones.weight.value"). '*' matches any text, '?' one character.
struct PathTolerance {
  std::string pattern;
  Tolerance tolerance;
};

struct CompareOptions {
  /// Whether rules count: the fields named "rule" of data types, and structure array rules.
  bool rules = false;
  Tolerance tolerance;                         ///< if no pattern matches
  std::vector<PathTolerance> path_tolerances;  ///< the last match counts
  /// How many changed elements of each list or table are kept; statistics and counts are always complete.
  size_t max_elements = SIZE_MAX;
  /// How many differences of a message are kept.
  size_t max_differences = SIZE_MAX;
};

/// Two elements of a list that are paired and differ. Indices count from 0.
struct ElementChange {
  size_t left_index;
  size_t right_index;
  FieldValue left;
  FieldValue right;
};

/// A run of elements that only one of two lists has.
struct ElementRun {
  size_t index;  ///< of the first
  size_t count;
};

/// What differs between two lists, or two tables. The elements of a table are numbered row by row.
struct ListChange {
  size_t left_size = 0;
  size_t right_size = 0;
  bool is_table = false;
  /// For a table whose rows are messages: the list in each. Empty if all rows are in one list.
  std::string row_field;
  /// The shape of a table on either side; 0 if neither its values nor its rule give it.
  size_t left_rows = 0, left_columns = 0;
  size_t right_rows = 0, right_columns = 0;
  std::vector<ElementRun> inserted;  ///< indices in the right list; for a table, rows
  std::vector<ElementRun> removed;   ///< indices in the left list; for a table, rows
  size_t changed = 0;                ///< paired elements that differ
  /// The first of them, or all on request; empty for lists of structures, whose fields are separate differences.
  std::vector<ElementChange> elements;

  /// For the changed elements, if all values of both are finite numbers.
  bool has_statistics = false;
  double left_mean = 0;
  double right_mean = 0;
  size_t largest = 0;  ///< index in the right list of the largest difference
  FieldValue largest_left, largest_right;
};

enum class DifferenceKind {
  kChanged,  ///< both have the value, and it differs
  kAdded,    ///< only the right message has it
  kRemoved,  ///< only the left message has it
  kList,     ///< see `list`
  kBytes,    ///< all named values are equal: unknown fields, or other bytes for the same value
};

/// One difference between two messages.
struct Difference {
  DifferenceKind kind;
  std::string path;       ///< the JSON path; for a list without an element index; "" with kBytes
  std::string left_path;  ///< the path in the left message, if elements before it moved it; otherwise empty
  FieldValue left;
  FieldValue right;
  /// Whether the schema of only one side has the field.
  bool in_one_schema = false;
  std::unique_ptr<ListChange> list;  ///< of kList, otherwise null
};

struct MessageComparison {
  std::vector<Difference> differences;  ///< in the order of the schema
  size_t count = 0;                     ///< of values that differ, counting every element of a list
  bool same() const { return count == 0; }
};

/// Compares messages, caching what it learns about a pair of types. The types must outlive it.
class MessageComparer {
 public:
  explicit MessageComparer(CompareOptions options = {});
  ~MessageComparer();

  /// Compares two messages of the same module or of corresponding types. `module` is for the patterns of tolerances.
  /// Absent singular messages count as empty ones where packing creates them.
  MessageComparison Compare(const google::protobuf::Message& left, const google::protobuf::Message& right,
                            std::string_view module);

  /// Whether all messages of both types have the same bytes for the same values, and the same JSON text.
  bool SameTypes(const google::protobuf::Descriptor* left, const google::protobuf::Descriptor* right);

  /// Appends what only one of two types has, or has with another kind, as "lens.gain: only in the left schema".
  void CompareTypes(const google::protobuf::Descriptor* left, const google::protobuf::Descriptor* right,
                    std::vector<std::string>& only_left, std::vector<std::string>& only_right);

  const CompareOptions& options() const { return options_; }

 private:
  class TypePairs;
  class Walk;
  CompareOptions options_;
  std::unique_ptr<TypePairs> types_;
};

/// What differs, as lines for people: "lens.macro_code.value: 800 → 812 (+1.5 %)", "zones: length 9 → 10, inserted at
/// [4]", "calibrations[0].table 32x32: 1,024 changed, mean +1.0 %, largest +0.02 at [3][17]". With `all_elements`, a
/// line follows for every element kept of a list or table. Texts may contain any characters.
std::vector<std::string> DifferenceTexts(const Difference& difference, bool all_elements);

/// The JSON path of a changed element in the right message: "gain.value[3].value[17]".
std::string ElementPath(const Difference& difference, size_t right_index);

}  // namespace zotuning
