// A project through the command-line tool: "//// PATH" starts a file of it. If check finds nothing wrong, it packs;
// what packs is verified, shown and dumped, and equals what the library packs.

#include <algorithm>
#include <cctype>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "ZoTuningUtils.h"
#include "support.h"
#include "tool_run.h"

namespace {

namespace fs = std::filesystem;
using zofuzz::Require;
using zofuzz::RunTool;

constexpr size_t kMaxFiles = 40, kMaxPath = 100;

/// Whether a path stays below the project's folder, and is not one that the tool makes.
bool IsPath(const std::string& path) {
  if (path.empty() || path.size() > kMaxPath || path.front() == '/' || path.back() == '/') return false;
  if (path[0] == '.' || path.find("/.") != path.npos || path.rfind("out", 0) == 0) return false;
  return std::all_of(path.begin(), path.end(), [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 ||
           std::string_view("/._-").find(c) != std::string_view::npos;
  });
}

class Target {
 public:
  void Run(std::string_view input) {
    fs::remove_all(dir_);
    fs::create_directories(dir_ + "/src");
    fs::current_path(dir_);
    size_t files = 0;
    for (const auto& [path, text] : zofuzz::SplitParts(input)) {
      if (!IsPath(path) || ++files > kMaxFiles) continue;
      try {
        zofuzz::Write(dir_ + "/" + path, text);
      } catch (const std::exception&) {  // a file in place of a folder
      }
    }
    switch (zofuzz::Way(input, 4)) {
      case 0:
        (void)RunTool({"check", "--json"});
        break;
      case 1:
        for (const char* command : {"tree", "modules", "labels", "sensors"}) (void)RunTool({command, "--json"});
        (void)RunTool({"version", "header"});
        (void)RunTool({"diff", "default", "front"});
        break;
      case 2:
        if (RunTool({"fmt"}).code == 0) Require(RunTool({"fmt", "--check"}).code == 0, "what is canonical stays so");
        break;
      default:
        Pack();
    }
  }

 private:
  void Pack() const {
    const bool packed = RunTool({"pack", "-o", "out"}).code == 0;
    Require(fs::exists("out") == packed, "bins are made whole or not at all");
    if (!packed) return;
    Require(RunTool({"verify", "out"}).code == 0, "what is packed is of the tree");
    Require(RunTool({"show", "out"}).code == 0, "what is packed can be shown");
    fs::create_directory("out2");
    Require(ZoTuningUtils::GenerateProjTuningBins(".", "out2"), "what the tool packs, the library packs");
    for (const auto& bin : fs::directory_iterator("out/zo_tuning")) {
      const fs::path other = "out2/zo_tuning" / bin.path().filename();
      Require(fs::exists(other) && fs::file_size(other) == bin.file_size(), "both pack the same");
    }
    Require(ZoTuningUtils::DumpProjTuningBins(".", "out2/zo_tuning"), "what is packed can be read");
  }

  const std::string dir_ = zofuzz::ScratchDir() + "/archive";
};

}  // namespace

void zofuzz::Run(const uint8_t* data, size_t size) {
  static Target target;
  target.Run(std::string_view(reinterpret_cast<const char*>(data), size));
}

void zofuzz::Seeds(const std::string& dir) {
  for (const char* module : {"AfCommon", "AWBCommon", "PdCalib"}) {
    const std::string project = ScratchDir() + "/seed-" + module;
    MakeSmallProject(project, {"AfCommon", module});
    std::string archive = Archive(project);
    // The same, by other ways.
    for (int i = 0; i < 6; ++i) Write(dir + "/" + module + std::to_string(i), archive += "\n");
    std::filesystem::remove_all(project);
  }
}
