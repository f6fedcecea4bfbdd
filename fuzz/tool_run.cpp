#include "tool_run.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include "caught_output.h"
#include "support.h"

namespace fs = std::filesystem;

int ToolMain(int argument_count, char** arguments);  // the tool's main, under this name here

namespace zofuzz {
namespace {

/// Leaves the label only these modules: the schema has no types for the others.
void KeepModules(const std::string& label_proto, const std::vector<std::string>& modules) {
  std::istringstream text(Read(label_proto));
  std::string kept;
  for (std::string line; std::getline(text, line);) {
    constexpr const char* kPrefix = "_Module_";
    const size_t begin = line.find(kPrefix), end = line.find(" =");
    const std::string name = begin == line.npos || end == line.npos
                                 ? ""
                                 : line.substr(begin + std::strlen(kPrefix), end - begin - std::strlen(kPrefix));
    if (name.empty() || std::find(modules.begin(), modules.end(), name) != modules.end()) kept += line + "\n";
  }
  Write(label_proto, kept);
}

}  // namespace

ToolRun RunTool(const std::vector<std::string>& words) {
  std::vector<std::string> kept = {"zotuning"};
  kept.insert(kept.end(), words.begin(), words.end());
  std::vector<char*> arguments;
  for (std::string& word : kept) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  static const bool prepared = [] {
    // No git, no pager, and no user to ask.
    return setenv("PATH", "/nonexistent", 1) == 0 && std::freopen("/dev/null", "r", stdin) != nullptr;
  }();
  Require(prepared, "the target can prepare");
  ToolRun run;
  {
    const CaughtOutput output(STDOUT_FILENO), messages(STDERR_FILENO);
    run.code = ToolMain(static_cast<int>(kept.size()), arguments.data());
    std::fflush(stdout);
    std::fflush(stderr);
    run.out = output.Text();
    run.err = messages.Text();
  }
  Require(run.code >= 0 && run.code <= 2, "the exit code is 0, 1 or 2");
  Require(run.code == 0 || !run.out.empty() || !run.err.empty(), "a failure is told");
  const bool json = std::find(words.begin(), words.end(), "--json") != words.end() &&
                    std::find(words.begin(), words.end(), "--") == words.end();
  if (json && run.out.rfind("{\n  \"tool\"", 0) == 0) {
    const auto object = nlohmann::json::parse(run.out, nullptr, false);
    Require(object.is_object() && object.contains("result"), "what --json prints is one object");
    Require(object["ok"] == (run.code == 0), "the object says what the exit code says");
  }
  return run;
}

void MakeSmallProject(const std::string& dir, const std::vector<std::string>& modules) {
  const std::string example = MakeExampleProject(modules);
  fs::create_directories(dir + "/src");
  for (const auto& entry : fs::recursive_directory_iterator(example, fs::directory_options::follow_directory_symlink)) {
    if (!entry.is_regular_file()) continue;
    const fs::path relative = entry.path().lexically_relative(example);
    const bool is_module = std::find(modules.begin(), modules.end(), relative.stem()) != modules.end();
    const bool is_setting = relative.extension() == ".json" && relative.parent_path().filename() != "version";
    if (!is_setting || is_module) Write(dir + "/" + relative.string(), Read(entry.path()));
  }
  KeepModules(dir + "/proto/label.proto", modules);
  Write(dir + "/proto/version/af.json", R"({"name": "AF", "version": "1.0"})");
  Write(dir + "/src/ZoTuningVersion.h", "#pragma once\n// [3AProto]\n");
  fs::remove_all(example);  // the links in it lead to the example itself
}

std::string Archive(const std::string& dir) {
  std::string archive;
  for (const std::string& path : zotest::Tree(dir)) {
    archive += "//// " + path + "\n" + (path.back() == '/' ? "" : Read(dir + "/" + path) + "\n");
  }
  return archive;
}

}  // namespace zofuzz
