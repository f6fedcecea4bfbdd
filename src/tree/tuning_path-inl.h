/// \file
/// Label values to the path of a setting and back. Grammar of the paths: docs/json-trees.md. Nothing here touches the
/// disk or changes the labels.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "schema/labels-inl.h"
#include "schema/project_layout-inl.h"

namespace ZO_TUNING {
namespace internal {

/// The label whose levels hold a number instead of a value name.
inline constexpr const char* kModeLabel = "mode";

/// The folders of a setting below its scope's folder, outermost first. They end at the first value that is not set.
inline std::vector<std::string> SettingFolders(const Labels& labels, const std::vector<int>& values) {
  std::vector<std::string> folders;
  const size_t levels = std::min(values.size(), labels.names().size());
  for (size_t i = 1; i < levels && values[i] != kLabelNotSet; ++i) {
    const std::string& name = labels.names()[i];
    folders.push_back(name + "_" +
                      (name == kModeLabel ? std::to_string(values[i]) : labels.ValueName(name, values[i])));
  }
  return folders;
}

/// The file name of a setting: its module, or "" if the values give none, and ".json".
inline std::string SettingFile(const Labels& labels, const std::vector<int>& values) {
  return labels.ModuleName(values) + kJsonSuffix;
}

/// The path of a setting below its scope's folder: folders and file.
inline std::string SettingPath(const Labels& labels, const std::vector<int>& values) {
  std::string path;
  for (const std::string& folder : SettingFolders(labels, values)) path += folder + "/";
  return path + SettingFile(labels, values);
}

/// A level of the tree as it is read: the folder prefix and the index of the label value that it sets.
struct TreeLevel {
  const char* prefix;
  size_t index;
};

inline constexpr size_t kModeIndex = 1;

// In the order in which the prefixes are tried: a sub-function folder contains "function_" as well.
inline constexpr TreeLevel kTreeLevels[] = {
    {"filter_", 7},   {"scene_", 6},    {"sub_function_", 5},  {"function_", 4},
    {"feature0_", 3}, {"scenario_", 2}, {"mode_", kModeIndex},
};

/// Sets values[index] to the number whose name in `names` is `name`; the highest one wins. Unchanged without a match,
/// and if there is no such value.
inline void ReadNamedValue(const std::map<int, std::string>& names, const std::string& name, size_t index,
                           std::vector<int>& values) {
  if (index >= values.size()) return;
  for (const auto& [number, value_name] : names) {
    if (value_name == name) values[index] = number;
  }
}

/// The level that a folder name gives, or null if it is not a level.
inline const TreeLevel* FindTreeLevel(const std::string& folder) {
  const auto* level = std::find_if(std::begin(kTreeLevels), std::end(kTreeLevels), [&](const TreeLevel& tried) {
    return folder.find(tried.prefix) != std::string::npos;
  });
  return level == std::end(kTreeLevels) ? nullptr : level;
}

/// The label of a level, for example "sub_function".
inline std::string LabelOf(const TreeLevel& level) {
  std::string prefix = level.prefix;
  prefix.pop_back();
  return prefix;
}

/// The result of reading a setting's path.
struct [[nodiscard]] PathResult {
  bool ok = true;           ///< false if the file is not named after a module: no value is then set
  std::string module_name;  ///< the file name without its suffix; "" for a path without a separator
};

/// Called with each label whose value names are looked up.
using LabelVisitor = std::function<void(const std::string& label)>;

/// Replaces `values` with the label values that the path of a JSON file gives: element 0 from the file name, elements 1
/// to 7 from its folders, kLabelNotSet where there is none. The folders end at the first one that is not a level.
inline PathResult ReadSettingPath(const Labels& labels, const std::string& path, std::vector<int>& values,
                                  const LabelVisitor& visit = {}) {
  PathResult result;
  values.assign(labels.names().size(), kLabelNotSet);
  constexpr const char* kSeparators = "/\\";
  std::string dir = path;
  const size_t file_separator = path.find_last_of(kSeparators);
  if (file_separator != std::string::npos) {
    result.module_name = path.substr(file_separator + 1);
    result.module_name.resize(std::min(result.module_name.rfind('.'), result.module_name.size()));
    if (!labels.names().empty()) {
      if (visit) visit(labels.names()[0]);
      ReadNamedValue(labels.ValuesOf(labels.names()[0]), result.module_name, 0, values);
    }
    if (values.empty() || values[0] == kLabelNotSet) {
      result.ok = false;
      return result;
    }
    dir = path.substr(0, file_separator);
  }
  for (size_t separator = dir.find_last_of(kSeparators); separator != std::string::npos;
       separator = dir.find_last_of(kSeparators)) {
    const std::string folder = dir.substr(separator + 1);
    const TreeLevel* level = FindTreeLevel(folder);
    if (level == nullptr) break;
    // Cut at the prefix's length, wherever the prefix was found.
    const std::string value = folder.substr(std::strlen(level->prefix));
    if (level->index != kModeIndex) {
      const std::string label = LabelOf(*level);
      if (visit) visit(label);
      ReadNamedValue(labels.ValuesOf(label), value, level->index, values);
    } else if (kModeIndex < values.size()) {
      // NOLINTNEXTLINE(cert-err34-c): a mode that is not a number is 0.
      values[kModeIndex] = std::atoi(value.c_str());
    }
    dir.resize(separator);
  }
  return result;
}

}  // namespace internal
}  // namespace ZO_TUNING
