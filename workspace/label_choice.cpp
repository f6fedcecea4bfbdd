// Tested through the tool's commands new, get and set.

#include "workspace/label_choice.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <optional>
#include <utility>

#include "workspace/check_setting.h"
#include "workspace/files.h"
#include "workspace/suggest.h"

namespace zotuning {
namespace {

constexpr const char* kSensorWord = "sensor";

std::vector<std::string> SplitAtCommas(const std::string& text) {
  std::vector<std::string> parts;
  size_t begin = 0;
  for (size_t end = text.find(','); end != std::string::npos; end = text.find(',', begin)) {
    parts.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  parts.push_back(text.substr(begin));
  return parts;
}

template <typename T>
void AddOnce(std::vector<T>& list, T value) {
  if (std::find(list.begin(), list.end(), value) == list.end()) list.push_back(std::move(value));
}

/// The number of a named value of label `index`; nothing after an error.
std::optional<int> ParseValue(const Project& project, size_t index, const std::string& text, DiagnosticSink& sink) {
  const std::string& label = project.labels().names()[index];
  const auto& values = project.labels().ValuesOf(index);
  if (values.empty()) {
    int number = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc() && end == text.data() + text.size() && number != kLabelNotSet) return number;
    sink.Report(Code::kBadValue,
                Quoted(text) + " is not a value of " + Quoted(label) + ": a whole number other than -1 is expected");
    return std::nullopt;
  }
  std::optional<int> found;
  for (const auto& [number, name] : values) {
    if (name == text && !name.empty() && number != kLabelNotSet)
      found = number;  // the highest one, as when reading a path
  }
  if (!found) {
    const std::string what = index == 0 ? "no module " + Quoted(text) : Quoted(label) + " has no value " + Quoted(text);
    sink.Report(index == 0 ? Code::kUnknownModule : Code::kUnknownValue,
                what + DidYouMean(text, project.ValueNames(index)), "'zotuning labels " + label + "' lists them");
  }
  return found;
}

}  // namespace

bool LabelChoice::Takes(const Setting& setting) const {
  if (!scopes.empty() && std::find(scopes.begin(), scopes.end(), setting.scope) == scopes.end()) return false;
  for (size_t i = 0; i < values.size(); ++i) {
    if (values[i].empty()) continue;
    const int value = i < setting.values.size() ? setting.values[i] : kLabelNotSet;
    if (std::find(values[i].begin(), values[i].end(), value) == values[i].end()) return false;
  }
  return true;
}

std::vector<std::vector<int>> LabelChoice::Combine() const {
  std::vector<std::vector<int>> combined = {{}};
  for (const std::vector<int>& choices : values) {
    std::vector<std::vector<int>> longer;
    for (const std::vector<int>& begun : combined) {
      for (const int value : choices.empty() ? std::vector<int>{kLabelNotSet} : choices) {
        longer.push_back(begun);
        longer.back().push_back(value);
      }
    }
    combined = std::move(longer);
  }
  return combined;
}

ChoiceResult ParseLabelChoice(const Project& project, const std::vector<std::string>& words, bool scopes,
                              LabelChoice& choice, DiagnosticSink& sink) {
  const std::vector<std::string>& names = project.labels().names();
  choice.scopes.clear();
  choice.values.assign(names.size(), {});
  bool known = true;
  for (const std::string& word : words) {
    const size_t equals = word.find('=');
    const bool empty = equals + 1 == word.size();
    if (equals == std::string::npos || equals == 0 || (empty && !scopes)) {
      sink.Report(Code::kUsage, Quoted(word) + " is not of the form label=value", "for example mode=1");
      return ChoiceResult::kMisuse;
    }
    const std::string label = word.substr(0, equals);
    const size_t index = static_cast<size_t>(std::find(names.begin(), names.end(), label) - names.begin());
    const bool scope = scopes && label == kSensorWord && index == names.size();
    if (index == names.size() && !scope) {
      sink.Report(Code::kUnknownLabel, "no label " + Quoted(label) + DidYouMean(label, names),
                  "'zotuning labels' lists them");
      known = false;
      continue;
    }
    if (scope ? !choice.scopes.empty() : !choice.values[index].empty()) {
      sink.Report(Code::kUsage, "the label " + Quoted(label) + " is given twice",
                  "several values go into one list: mode=1,2");
      return ChoiceResult::kMisuse;
    }
    if (empty && (scope || index == 0)) {
      sink.Report(Code::kUsage, "the label " + Quoted(label) + " is given without a value");
      return ChoiceResult::kMisuse;
    }
    for (const std::string& text : SplitAtCommas(word.substr(equals + 1))) {
      if (scope) {
        if (text != kDefaultScope && !project.RequireSensor(text, sink)) known = false;
        AddOnce(choice.scopes, text);
      } else if (empty) {
        choice.values[index].push_back(kLabelNotSet);
      } else {
        const std::optional<int> value = ParseValue(project, index, text, sink);
        if (value) AddOnce(choice.values[index], *value);
        known &= value.has_value();
      }
    }
  }
  return known ? ChoiceResult::kOk : ChoiceResult::kUnknown;
}

bool CheckLevels(const Project& project, const LabelChoice& choice, DiagnosticSink& sink) {
  const std::vector<std::string>& names = project.labels().names();
  if (choice.values[0].empty()) {
    sink.Report(
        Code::kUsage, "the label " + Quoted(names[0]) + " is missing",
        "for example " + names[0] + "=" + (project.ValueNames(0).empty() ? "NAME" : project.ValueNames(0).back()));
    return false;
  }
  // A path ends at the first label that is not set.
  size_t first_unset = 1;
  while (first_unset < names.size() && !choice.values[first_unset].empty()) ++first_unset;
  for (size_t i = first_unset; i < names.size(); ++i) {
    if (choice.values[i].empty()) continue;
    sink.Report(Code::kUsage, Quoted(names[i]) + " needs " + Quoted(names[first_unset]) + " as well",
                "the levels of the tree follow each other in the order of 'zotuning labels'");
    return false;
  }
  return true;
}

bool PlanSettings(Project& project, const std::string& scope, const std::vector<std::vector<int>>& values,
                  const CopySource& source, std::vector<NewSetting>& plan, DiagnosticSink& sink) {
  if (const std::string dir = project.layout().ScopeDir(scope); !IsDirectory(dir)) {
    sink.Report(Code::kMissingFolder, "the folder of the sensor " + Quoted(scope) + " is missing", "",
                DisplayPath(dir));
    return false;
  }
  bool good = true;
  std::map<std::string, std::string> texts;  // by module
  for (const std::vector<int>& each : values) {
    const std::string module = project.ModuleName(each);
    const auto* type = project.RequireType(module, sink);
    if (type == nullptr) {
      good = false;
      continue;
    }
    const auto [text, fresh] = texts.try_emplace(module);
    if (fresh) {
      const std::string from = source ? source(module) : project.layout().DefaultPath(module);
      if (!source && !Exists(from)) {
        sink.Report(Code::kMissingDefault, "the module " + Quoted(module) + " has no default yet",
                    "'zotuning template " + module + "' makes it", DisplayPath(from));
        good = false;
      } else {
        good &= !from.empty() && RefuseSpecialFile(from, sink) && ReadFile(from, text->second, sink) &&
                CheckSettingText(project.schema(), from, text->second, type, Fields::kAll, sink);
      }
    }
    const std::string path = project.dir() + "/" + project.SettingPath(scope, each);
    // The names of values and sensors may look like other levels of the tree when the path is read back.
    const std::vector<int> read_back = project.LabelsOf(path);
    if (read_back != each) {
      sink.Report(Code::kAmbiguousPath,
                  "the labels " + project.LabelText(each) + " would read back as " + project.LabelText(read_back),
                  "a name in the path looks like a different level", DisplayPath(path));
      good = false;
    }
    plan.push_back({each, path, text->second});
  }
  return good;
}

}  // namespace zotuning
