#include "label_arguments.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "workspace/suggest.h"

namespace zotuning::tool {
namespace {

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

/// The number of a named value of label `index`; nothing after an error.
std::optional<int> ParseValue(const Project& project, size_t index, const std::string& text, Console& console) {
  const std::string& label = project.labels().names()[index];
  const auto& values = project.labels().ValuesOf(index);
  if (values.empty()) {
    int number = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc() && end == text.data() + text.size() && number != kLabelNotSet) return number;
    console.Report(Code::kBadValue,
                   Quoted(text) + " is not a value of " + Quoted(label) + ": a whole number but -1 is expected");
    return std::nullopt;
  }
  std::optional<int> found;
  for (const auto& [number, name] : values) {
    if (name == text && !name.empty() && number != kLabelNotSet)
      found = number;  // the highest one, as a path is read back
  }
  if (!found) {
    const std::string what = index == 0 ? "no module " + Quoted(text) : Quoted(label) + " has no value " + Quoted(text);
    console.Report(index == 0 ? Code::kUnknownModule : Code::kUnknownValue,
                   what + DidYouMean(text, project.ValueNames(index)), "'zotuning labels " + label + "' lists them");
  }
  return found;
}

}  // namespace

int ReadLabelArguments(const Project& project, const std::vector<std::string>& words,
                       std::vector<std::vector<int>>& choices, Console& console) {
  const std::vector<std::string>& names = project.labels().names();
  choices.assign(names.size(), {});
  for (const std::string& word : words) {
    const size_t equals = word.find('=');
    if (equals == std::string::npos || equals == 0 || equals + 1 == word.size()) {
      console.Report(Code::kUsage, Quoted(word) + " is not of the form label=value", "for example mode=1");
      return kMisuse;
    }
    const std::string label = word.substr(0, equals);
    const size_t index = static_cast<size_t>(std::find(names.begin(), names.end(), label) - names.begin());
    if (index == names.size()) {
      console.Report(Code::kUnknownLabel, "no label " + Quoted(label) + DidYouMean(label, names),
                     "'zotuning labels' lists them");
      continue;
    }
    if (!choices[index].empty()) {
      console.Report(Code::kUsage, "the label " + Quoted(label) + " is given twice",
                     "several values stand in one list: mode=1,2");
      return kMisuse;
    }
    for (const std::string& text : SplitAtCommas(word.substr(equals + 1))) {
      const std::optional<int> value = ParseValue(project, index, text, console);
      if (!value) continue;
      if (std::find(choices[index].begin(), choices[index].end(), *value) == choices[index].end()) {
        choices[index].push_back(*value);
      }
    }
  }
  return console.ok() ? kDone : kFailed;
}

}  // namespace zotuning::tool
