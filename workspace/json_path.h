/// \file
/// Paths of JSON values: zones[2].weight.value, ["odd name"].x
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "workspace/json_document.h"

namespace zotuning {

/// The path from the outermost value to another. An empty path is the outermost value itself.
class JsonPath {
 public:
  /// A key, or the index of an element from 0.
  struct Step {
    static constexpr size_t kName = static_cast<size_t>(-1);
    std::string name;
    size_t index = kName;
    bool is_index() const { return index != kName; }
    friend bool operator==(const Step& a, const Step& b) { return a.index == b.index && a.name == b.name; }
  };

  /// Parses the output of ToString. Nothing if the text is not a path; `why`, if given, then says why.
  static std::optional<JsonPath> Parse(std::string_view text, std::string* why = nullptr);
  /// Of a value in a document.
  static JsonPath Of(const JsonValue& value);

  void Push(std::string name) { steps_.push_back({std::move(name), Step::kName}); }
  void Push(size_t index) { steps_.push_back({"", index}); }
  void Pop() { steps_.pop_back(); }
  const std::vector<Step>& steps() const { return steps_; }
  bool empty() const { return steps_.empty(); }

  /// "" for the outermost value. Names that are not made of letters, digits, '_', '$' and '-' are written as ["name"].
  std::string ToString() const;

  /// The value at this path below `root`, none if there is none. Keys match exactly; of duplicates the last.
  JsonValue Find(const JsonValue& root) const;

  friend bool operator==(const JsonPath& a, const JsonPath& b) { return a.steps_ == b.steps_; }

 private:
  std::vector<Step> steps_;
};

}  // namespace zotuning
