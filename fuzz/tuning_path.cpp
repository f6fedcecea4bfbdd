// Paths to label values and back. The lines of an input: a sensor, a path, the values of a configuration, and then the
// labels, as "LABEL NUMBER NAME"; without any, the labels are those of the example project.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "ZoTuningUtils.h"
#include "support.h"

namespace {

using zofuzz::Require;
using Strings = std::vector<std::string>;
using LabelMap = std::map<std::string, std::map<int, std::string>>;

const Strings kPrefixes = {"mode_", "scenario_", "feature0_", "function_", "sub_function_", "scene_", "filter_"};

std::string TakeLine(std::string_view& input) {
  const size_t end = std::min(input.find('\n'), input.size());
  std::string line(input.substr(0, end));
  input.remove_prefix(std::min(end + 1, input.size()));
  return line;
}

/// Whether a folder or file may have this name without being mistaken for another.
bool IsClear(const std::string& name) {
  return name.find_first_of("/\\") == std::string::npos &&
         std::none_of(kPrefixes.begin(), kPrefixes.end(),
                      [&](const std::string& prefix) { return name.find(prefix) != std::string::npos; });
}

struct Labels {
  Strings names;
  LabelMap map;
};

class Target {
 public:
  Target() {
    const std::string project = zofuzz::MakeExampleProject({"Version"});
    std::string name;
    Strings sensors;
    Require(ZoTuningUtils::GetProjectConfig(project.c_str(), name, sensors, example_.names, example_.map), "labels");
    std::filesystem::create_directory(project_);
  }

  void Run(std::string_view input) {
    const std::string sensor = TakeLine(input), path = TakeLine(input);
    std::istringstream numbers(TakeLine(input));
    std::vector<int> config;
    for (int number = 0; numbers >> number;) config.push_back(number);
    const Labels labels = input.empty() ? example_ : ReadLabels(input);

    CheckReading(path, labels);
    if (!zofuzz::IsChosen(path, 64)) return;
    // Nothing is made outside of the scratch directory.
    if (input.find("..") != std::string_view::npos || sensor.find("..") != std::string::npos) return;
    std::error_code fails;  // a name may be too long
    std::filesystem::create_directories(project_ + "/" + sensor, fails);
    CheckWriting(sensor, config, labels);
    std::filesystem::remove_all(project_);
    std::filesystem::create_directory(project_);
  }

 private:
  Labels ReadLabels(std::string_view input) const {
    Labels labels;
    while (!input.empty()) {
      std::istringstream line(TakeLine(input));
      std::string label, name;
      int number = 0;
      line >> label >> number;
      if (line.get() == ' ') std::getline(line, name);
      if (labels.map.count(label) == 0) labels.names.push_back(label);
      labels.map[label][number] = name;
    }
    // In the expected order, if there are no others.
    const auto known = [this](const std::string& name) { return example_.map.count(name) > 0; };
    if (std::all_of(labels.names.begin(), labels.names.end(), known)) labels.names = example_.names;
    return labels;
  }

  static std::vector<int> ReadPath(const std::string& path, Labels labels) {
    std::vector<int> config = {7};
    ZO_TUNING::PATH_TO_TUNING_CONFIG(path, labels.names, labels.map, config);
    Require(config.size() == labels.names.size(), "a path gives a value per label");
    return config;
  }

  static void CheckReading(const std::string& path, const Labels& labels) {
    const std::vector<int> config = ReadPath(path, labels);
    std::string slashes = path;
    std::replace(slashes.begin(), slashes.end(), '\\', '/');
    Require(ReadPath(slashes, labels) == config, "both separators are the same");
    const std::vector<int> below = ReadPath("/sensor/" + path, labels);
    Require(ReadPath("scene_Night/sensor/" + path, labels) == below,
            "nothing counts above the first folder that is none");
    const bool no_module = below.empty() || below[0] == -1;
    const size_t errors = zofuzz::CountErrors(zofuzz::TakeLog());
    Require((errors > 0) == no_module, "a file that is no module is an error");
    if (!no_module) return;
    Require(std::all_of(below.begin(), below.end(), [](int value) { return value == -1; }),
            "without a module all is unset");
  }

  void CheckWriting(const std::string& sensor, const std::vector<int>& config, const Labels& labels) const {
    Labels given = labels;
    std::string path = "before", again;
    ZO_TUNING::TUNING_CONFIG_TO_PATH(project_.c_str(), sensor, given.names, given.map, config, path);
    const std::string begin = project_ + "/" + sensor + "/";
    Require(path.size() >= begin.size() + 5 && path.compare(0, begin.size(), begin) == 0, "a path is below its sensor");
    Require(path.substr(path.size() - 5) == ".json", "a path is that of a JSON file");
    ZO_TUNING::TUNING_CONFIG_TO_PATH(project_.c_str(), sensor, given.names, given.map, config, again);
    Require(again == path, "a configuration has one path");
    const std::vector<int> back = ReadPath(path, labels);
    zofuzz::TakeLog();
    if (!CanRoundTrip(sensor, config, labels)) return;
    std::vector<int> expected(labels.names.size(), -1);
    const auto end = config[0] == -1 ? config.begin() : std::find(config.begin() + 1, config.end(), -1);
    std::copy(config.begin(), end, expected.begin());
    Require(back == expected, "a path reads as the configuration that it was made of");
    const std::string folder = path.substr(0, path.rfind('/'));
    // Linux has limits for names.
    if (folder.size() < 255 && path.find('\0') == std::string::npos) {
      Require(std::filesystem::is_directory(folder), "the folders of a path are made");
    }
  }

  /// Whether the names are such that the path can be read back.
  bool CanRoundTrip(const std::string& sensor, const std::vector<int>& config, const Labels& labels) const {
    if (labels.names != example_.names || !IsClear(sensor) || config.empty()) return false;
    if (config.size() > labels.names.size() || config[0] == -1) return false;
    for (size_t i = 0; i < config.size() && (i == 0 || config[i] != -1); ++i) {
      if (labels.names[i] == "mode") continue;
      const auto names = labels.map.find(labels.names[i]);
      if (names == labels.map.end() || names->second.count(config[i]) == 0) return false;
      const std::string& name = names->second.at(config[i]);
      const bool only = std::count_if(names->second.begin(), names->second.end(),
                                      [&](const auto& value) { return value.second == name; }) == 1;
      if (!only || !IsClear(name)) return false;
    }
    return true;
  }

  const std::string project_ = zofuzz::ScratchDir() + "/settings";
  Labels example_;
};

}  // namespace

void zofuzz::Run(const uint8_t* data, size_t size) {
  static Target target;
  target.Run(std::string_view(reinterpret_cast<const char*>(data), size));
}

// The paths of the example project's settings with the values they give, and its labels.
void zofuzz::Seeds(const std::string& dir) {
  const std::string project = MakeExampleProject();
  std::string name, lines;
  Strings sensors, files, label_names;
  LabelMap label_map;
  ZoTuningUtils::GetProjectConfig(project.c_str(), name, sensors, label_names, label_map);
  for (const auto& [label, values] : label_map) {
    for (const auto& [number, value] : values) lines += label + " " + std::to_string(number) + " " + value + "\n";
  }
  for (const std::string& sensor : sensors) ZoTuningUtils::FindAllJsonFiles((project + "/" + sensor).c_str(), files);
  for (size_t i = 0; i < files.size(); ++i) {
    std::vector<int> config;
    ZO_TUNING::PATH_TO_TUNING_CONFIG(files[i], label_names, label_map, config);
    std::string values;
    for (const int value : config) values += std::to_string(value) + " ";
    const std::string relative = files[i].substr(project.size() + 1);
    const std::string text = relative.substr(0, relative.find('/')) + "\n" + relative + "\n" + values + "\n";
    Write(dir + "/" + std::to_string(i), text);
    if (i % 20 == 0) Write(dir + "/" + std::to_string(i) + "-labels", text + lines);
  }
}
