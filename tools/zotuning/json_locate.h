/// \file
/// Positions in JSON text: where it breaks, and where the value or key of a path stands. Reads the grammar that the
/// library's parser accepts, which is wider than JSON (unquoted and single-quoted keys, trailing commas, control
/// characters in strings) and in places narrower; see docs/json-trees.md.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zotuning_tool {

/// Where a text breaks the grammar, and how.
struct JsonFault {
  size_t offset = 0;
  std::string message;
  std::string hint;
};

/// One step of a path: a key, and the element when its value is a list.
struct JsonStep {
  std::string name;
  int index = -1;
};
using JsonPath = std::vector<JsonStep>;

/// A value met on the way through a text.
struct JsonValue {
  size_t key_offset;     ///< of the key before it; of the value itself where there is none
  size_t offset;         ///< of its first character
  std::string_view raw;  ///< its text, for scalars only
};

/// Calls `visit` with the path and place of every value, in text order; of an object or list before what is in it.
/// Ends at the first fault and returns it. The depth is bounded by memory alone.
std::optional<JsonFault> ScanJson(std::string_view text,
                                  const std::function<void(const JsonPath&, const JsonValue&)>& visit = nullptr);

/// Reads "a.b[2].c"; a name with other characters stands as ["name"].
JsonPath ParseJsonPath(std::string_view text);
std::string JsonPathText(const JsonPath& path);

/// Finds the value of `path` in `text`. Keys match field names as the library's parser matches them (the camel-case
/// form as well). Among several (duplicate keys, lists with nulls) the one whose text is `value` wins, when given.
std::optional<JsonValue> FindJsonValue(std::string_view text, const JsonPath& path, std::string_view value = "");

/// A text from a file within a message: cut when it is long, not within a character.
std::string Excerpt(std::string_view text, size_t max_bytes = 80);

/// Line and column of an offset, both from 1; columns count characters.
struct TextPosition {
  int line;
  int column;
  std::string excerpt;  ///< the line around the offset, cut to the width of a screen
  int excerpt_column;   ///< of the offset within the excerpt, from 1
};
TextPosition PositionAt(std::string_view text, size_t offset);

}  // namespace zotuning_tool
