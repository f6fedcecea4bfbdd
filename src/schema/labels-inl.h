/// \file
/// The labels of a project: their names, and the names of their values.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace ZO_TUNING {
namespace internal {

/// Label name -> value number -> short name; the entry of an int32 label is empty.
using LabelMap = std::map<std::string, std::map<int, std::string>>;

/// Means "not set" among label values.
inline constexpr int kLabelNotSet = -1;

/// Look-ups in label names and value names that are owned elsewhere (see ProjectConfig::labels) and must outlive this.
/// No look-up changes anything: unknown items have the name "".
class Labels {
 public:
  Labels(const std::vector<std::string>& names, const LabelMap& value_names)
      : names_(&names), value_names_(&value_names) {}

  /// In schema order. Index 0 is the module.
  const std::vector<std::string>& names() const { return *names_; }
  const LabelMap& value_names() const { return *value_names_; }

  /// The value names by number; empty for an int32 label and for an unknown label.
  const std::map<int, std::string>& ValuesOf(const std::string& name) const {
    const auto found = value_names_->find(name);
    return found == value_names_->end() ? NoValues() : found->second;
  }
  const std::map<int, std::string>& ValuesOf(size_t index) const {
    return index < names_->size() ? ValuesOf((*names_)[index]) : NoValues();
  }

  /// "" if the value has no name, as for int32 labels.
  const std::string& ValueName(const std::string& name, int value) const { return NameIn(ValuesOf(name), value); }
  const std::string& ValueName(size_t index, int value) const { return NameIn(ValuesOf(index), value); }

  /// The name of the module that label values give; "" if there is none.
  const std::string& ModuleName(const std::vector<int>& values) const {
    return values.empty() ? NoName() : ValueName(size_t{0}, values[0]);
  }

 private:
  static const std::map<int, std::string>& NoValues() {
    static const std::map<int, std::string> none;
    return none;
  }
  static const std::string& NoName() {
    static const std::string none;
    return none;
  }
  static const std::string& NameIn(const std::map<int, std::string>& values, int value) {
    const auto found = values.find(value);
    return found == values.end() ? NoName() : found->second;
  }

  const std::vector<std::string>* names_;
  const LabelMap* value_names_;
};

}  // namespace internal
}  // namespace ZO_TUNING
