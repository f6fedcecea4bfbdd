// A tuning bin through the forms of "zotuning show", with the example project. The tool must find the first fault where
// the format has it.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "bin_format.h"
#include "caught_output.h"
#include "schema/project_config.h"
#include "schema/schema.h"
#include "support.h"
#include "tools/zotuning/command_context.h"

namespace {

using zofuzz::CaughtOutput;
using zofuzz::Reading;
using zofuzz::Require;

class Target {
 public:
  Target() {
    std::filesystem::create_directory(bin_dir_);
    (void)LoadProjectConfig(ZO_TUNING::internal::ProjectLayout(project_), schema_, config_);
  }

  void Run(std::string_view bytes) {
    zofuzz::Write(bin_, bytes);
    const Reading reading = format_.Read(bytes);
    // Each run loads the schema, so it uses only one of the forms.
    switch (zofuzz::Way(bytes, 5)) {
      case 0:
        return CheckCode(reading, Show(false, {bin_, "--text"}).first);
      case 1:
        return CheckCode(reading, Show(false, {bin_, "--offsets"}).first);
      case 2:
        return CheckRecord(reading);
      case 3:
        return CheckCode(reading, Show(false, {bin_dir_}).first);
      default:
        return CheckJson(reading);
    }
  }

 private:
  /// The exit code and what was printed.
  std::pair<int, std::string> Show(bool json, const std::vector<std::string>& arguments) {
    zotuning::tool::CommandContext context;
    context.project_dir = project_;
    context.json = json;
    CLI::App app;
    zotuning::tool::AddShow(app, context);
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    reversed.emplace_back("show");
    app.parse(std::move(reversed));
    const CaughtOutput output(STDOUT_FILENO), messages(STDERR_FILENO);
    context.console.Begin("show", json);
    const int code = context.console.Finish(context.run());
    std::fflush(stdout);
    return {code, output.Text()};
  }

  static void CheckCode(const Reading& reading, int code) {
    Require(code == (reading.fault < 0 && !reading.is_foreign ? 0 : 1), "the exit code tells whether the bin is sound");
  }

  void CheckRecord(const Reading& reading) {
    const auto [code, text] = Show(true, {bin_, "--record", "0"});
    const bool has_record = reading.fault < 0 && reading.sound_records > 0;
    // Unknown content may be in other records.
    if (!reading.is_foreign) Require((code == 0) == has_record, "a record of a sound bin is shown");
    Require(!zotuning::tool::Json::parse(text, nullptr, false).is_discarded(), "what is printed is JSON");
  }

  void CheckJson(const Reading& reading) {
    const auto [code, text] = Show(true, {bin_});
    CheckCode(reading, code);
    const auto report = zotuning::tool::Json::parse(text, nullptr, false);
    Require(report.is_object() && report.contains("result"), "what is printed is a JSON object");
    const auto& result = report["result"];
    const auto& fault = result["fault"];
    Require(fault.is_null() == (reading.fault < 0), "the fault of a bin is named");
    if (!fault.is_null()) Require(fault["offset"].get<int64_t>() == reading.fault, "a fault is named where it is");
    Require(result["versions"].size() == reading.versions.size(), "all whole versions are shown");
    Require(result["records"].size() == reading.sound_records, "all records before the fault are shown");
  }

  const std::string project_ = zofuzz::MakeExampleProject(zofuzz::kBinModules);
  const std::string bin_dir_ = zofuzz::ScratchDir() + "/bins";
  const std::string bin_ = bin_dir_ + "/default.bin";
  ZO_TUNING::internal::Schema schema_{project_ + "/proto"};
  ZO_TUNING::internal::ProjectConfig config_;
  zofuzz::BinFormat format_{schema_, config_.label_map, true};
};

}  // namespace

void zofuzz::Run(const uint8_t* data, size_t size) {
  static Target target;
  target.Run(std::string_view(reinterpret_cast<const char*>(data), size));
}

void zofuzz::Seeds(const std::string& dir) { WriteBinSeeds(dir); }

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size, unsigned seed) {
  return zofuzz::MutateItems(data, size, max_size, seed, true);
}
