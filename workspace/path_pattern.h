/// \file
/// Paths that select many values of settings at once: zones[*].weight, gain[3][17], codes[4:8].
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "workspace/diagnostic.h"
#include "workspace/json_document.h"
#include "workspace/json_path.h"
#include "workspace/type_table.h"

namespace zotuning {

/// A path as diagnostics print it, in which [*], [4:8], [4:] and [:8] select several elements. The ".value" of a
/// parameter and of a row may be left out. For a table in one list, whose rule has "col", [3][17] are row and column.
class PathPattern {
 public:
  /// Nothing if the text is not a path; `why` then gives the reason.
  static std::optional<PathPattern> Parse(std::string_view text, std::string* why);

  const std::string& text() const { return text_; }
  /// The name that it starts with.
  const std::string& first_name() const { return steps_.front().name; }

 private:
  friend class TypedPath;
  struct Range {
    size_t begin = 0;
    size_t end = 0;
    bool open = false;  ///< to the last one
  };
  struct Step {
    std::string name;
    Range range;
    bool is_range = false;
  };
  std::string text_;
  std::vector<Step> steps_;
};

/// A value that a path selects in a document.
struct Match {
  JsonPath path;
  JsonValue value;  ///< none if the document lacks it
  const FieldEntry* field;
  bool is_list;    ///< the list of the field, not one of its elements
  size_t columns;  ///< of a list that is a table: the values per row, else 0
  size_t line;     ///< numbers the lists, rows and objects around the matches; one is one line of a table
  /// If there is no value: the innermost existing object, and the fields that are missing in it and below.
  JsonValue parent;
  std::vector<const FieldEntry*> missing;
};

/// A path resolved for a message type.
class TypedPath {
 public:
  /// Nothing if the type does not have it; `why` then gives the reason. The type's table must outlive the path.
  static std::optional<TypedPath> Resolve(const PathPattern& pattern, const TypeTable& type, std::string* why);

  /// The field of the values, for their type.
  const FieldEntry& field() const { return *field_; }

  /// Appends the values in text order. False after an error that names `file`: a missing element, or a list that is not
  /// a list.
  bool Find(const JsonDocument& document, const std::string& file, std::vector<Match>& matches,
            DiagnosticSink& sink) const;

 private:
  using Range = PathPattern::Range;
  enum class Kind { kField, kKey, kElements, kCells };
  struct Step {
    Kind kind;
    const TypeTable* type = nullptr;  ///< the one with the field
    const FieldEntry* field = nullptr;
    std::string key;  ///< of a map
    Range first;
    Range second;
  };
  struct Walk;

  std::vector<Step> steps_;
  const FieldEntry* field_ = nullptr;
  bool is_list_ = false;
};

/// Appends the paths of the fields called `name` at any depth of a type, up to a small number.
void FindPathsTo(const TypeTable& type, std::string_view name, std::vector<std::string>& paths);

}  // namespace zotuning
