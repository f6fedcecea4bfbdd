// Runs one operation of the library without its log, for scripts/dev check scale:
//   run_operation [--stack KILOBYTES] OPERATION ARGUMENT...
// With --stack it runs on a thread with a stack of that size. Exits with 0 if the operation returns true, else with 1.

#include <pthread.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "ZoTuningUtils.h"

namespace {

using Arguments = std::vector<std::string>;

struct Operation {
  const char* usage;
  size_t arguments;
  bool (*run)(const Arguments&);
};

/// Settings of the module with the number 0, one for each mode below `count`.
bool MakeSettings(const std::string& project, std::string sensor, int count) {
  std::string name;
  std::vector<std::string> sensors;
  std::vector<std::string> labels;
  std::map<std::string, std::map<int, std::string>> label_map;
  if (!ZoTuningUtils::GetProjectConfig(project.c_str(), name, sensors, labels, label_map)) return false;
  std::vector<std::vector<int>> configs(static_cast<size_t>(count), std::vector<int>(labels.size(), -1));
  for (int i = 0; i < count; ++i) {
    configs[static_cast<size_t>(i)][0] = 0;
    configs[static_cast<size_t>(i)][1] = i;
  }
  return ZoTuningUtils::CreateMultipleNewTuningSetting(project.c_str(), labels, label_map, sensor, configs);
}

const std::map<std::string, Operation> kOperations = {
    {"pack",
     {"PROJECT OUT", 2,
      [](const Arguments& words) {
        return ZoTuningUtils::GenerateProjTuningBins(words[0].c_str(), words[1].c_str());
      }}},
    {"dump",
     {"PROJECT BINS", 2,
      [](const Arguments& words) { return ZoTuningUtils::DumpProjTuningBins(words[0].c_str(), words[1].c_str()); }}},
    {"template",
     {"PROJECT MODULE", 2,
      [](const Arguments& words) {
        return ZoTuningUtils::GenerateDefaultModuleData(words[0].c_str(), words[1].c_str());
      }}},
    {"new",
     {"PROJECT SENSOR COUNT", 3,
      [](const Arguments& words) { return MakeSettings(words[0], words[1], std::atoi(words[2].c_str())); }}},
};

int Usage() {
  std::fputs("usage: run_operation [--stack KILOBYTES] OPERATION ARGUMENT...\n", stderr);
  for (const auto& [name, operation] : kOperations) std::fprintf(stderr, "  %s %s\n", name.c_str(), operation.usage);
  return 2;
}

/// Calls `body` on a thread with a stack of this many kilobytes.
bool OnStack(size_t kilobytes, std::function<bool()> body) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_t thread;
  const auto start = [](void* function) -> void* {
    return (*static_cast<std::function<bool()>*>(function))() ? function : nullptr;
  };
  if (pthread_attr_setstacksize(&attributes, kilobytes * 1024) != 0 ||
      pthread_create(&thread, &attributes, start, &body) != 0) {
    std::fputs("run_operation: no thread with such a stack\n", stderr);
    std::exit(2);
  }
  void* result = nullptr;
  pthread_join(thread, &result);
  return result != nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  Arguments words(argv + 1, argv + argc);
  size_t stack = 0;
  if (words.size() > 2 && words[0] == "--stack") {
    stack = std::strtoul(words[1].c_str(), nullptr, 10);
    words.erase(words.begin(), words.begin() + 2);
  }
  const auto operation = words.empty() ? kOperations.end() : kOperations.find(words[0]);
  if (operation == kOperations.end() || words.size() != operation->second.arguments + 1) return Usage();
  words.erase(words.begin());
  const auto run = [&] { return operation->second.run(words); };
  return (stack == 0 ? run() : OnStack(stack, run)) ? 0 : 1;
}
