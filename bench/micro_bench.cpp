// The parts of packing by themselves, in memory unless they are about files: micro_bench [GOOGLE BENCHMARK OPTION...]
// Bytes are those of the JSON text.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ZoTuningUtils.h"
#include "generate_project.h"
#include "io/padded_file.h"
#include "schema/schema.h"
#include "transcode/json_lexer.h"
#include "transcode/json_transcoder.h"
#include "transcode/module_table.h"

namespace {

using google::protobuf::Descriptor;
using google::protobuf::Message;
using namespace ZO_TUNING::internal;

/// A generated project that exists as long as the process, its schema, and the texts of its default modules.
class Project {
 public:
  static Project& Get() {
    static Project project;
    return project;
  }

  std::string dir() const { return root_ + "/project"; }
  Schema& schema() { return *schema_; }

  /// A new folder.
  std::string NewFolder() {
    std::string folder = root_ + "/" + std::to_string(folder_count_++);
    std::filesystem::create_directory(folder);
    return folder;
  }

  /// The text of a default module, followed by the padding that the lexer needs.
  std::string_view Text(const std::string& module) {
    if (!file_.Read(dir() + "/default/" + module + ".json")) std::abort();
    return file_.text();
  }

 private:
  Project() : root_((std::filesystem::temp_directory_path() / "micro_bench.XXXXXX").string()) {
    if (mkdtemp(&root_[0]) == nullptr) std::abort();
    zotuning_bench::GenerateProject(zotuning_bench::ShapeByName("a"), dir());
    schema_ = std::make_unique<Schema>(dir() + "/proto");
  }
  ~Project() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }

  std::string root_;
  size_t folder_count_ = 0;
  std::unique_ptr<Schema> schema_;
  PaddedFile file_;
};

void CountBytes(benchmark::State& state, size_t bytes) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
}

// ---- One text to wire bytes ------------------------------------------------------------------------------------

void ConvertByReference(benchmark::State& state, const std::string& module) {
  Project& project = Project::Get();
  const std::string text(project.Text(module));
  const Descriptor* type = project.schema().FindType(module);
  std::string wire;
  for (auto _ : state) {
    const std::unique_ptr<Message> message = project.schema().NewMessage(type);
    if (!ZO_TUNING::JSON_STR_TO_MSG(text, message.get())) return state.SkipWithError("refused");
    ZO_TUNING::MSG_PRONE_FOR_BIN(message.get(), type);
    wire.resize(message->ByteSizeLong());
    benchmark::DoNotOptimize(message->SerializeToArray(&wire[0], static_cast<int>(wire.size())));
  }
  CountBytes(state, text.size());
}

void ConvertByTranscoder(benchmark::State& state, const std::string& module) {
  Project& project = Project::Get();
  const std::string_view text = project.Text(module);
  const ModuleTable table(project.schema().FindType(module));
  JsonTranscoder transcoder;
  for (auto _ : state) {
    if (!transcoder.Transcode(table, text)) return state.SkipWithError("falls back");
    benchmark::DoNotOptimize(transcoder.wire().data());
  }
  CountBytes(state, text.size());
}

void CheckFieldsByReference(benchmark::State& state, const std::string& module) {
  Project& project = Project::Get();
  const std::string text(project.Text(module));
  const Descriptor* type = project.schema().FindType(module);
  for (auto _ : state) {
    for (int i = 0; i < type->field_count(); ++i) {
      benchmark::DoNotOptimize(ZO_TUNING::CheckFieldInString(type->field(i), text));
    }
  }
  CountBytes(state, text.size());
}

void CheckFieldsByTranscoder(benchmark::State& state, const std::string& module) {
  Project& project = Project::Get();
  const std::string_view text = project.Text(module);
  const ModuleTable table(project.schema().FindType(module));
  JsonTranscoder transcoder;
  if (!transcoder.Transcode(table, text)) return state.SkipWithError("falls back");
  for (auto _ : state) benchmark::DoNotOptimize(transcoder.FindMissingName(table, text));
  CountBytes(state, text.size());
}

// ---- The steps of packing the whole project --------------------------------------------------------------------

std::vector<std::string> ListScopes() {
  std::vector<std::string> files;
  for (const char* scope : {"default", "front", "main_tele", "main_ultra", "main_wide"}) {
    if (!ZoTuningUtils::FindAllJsonFiles((Project::Get().dir() + "/" + scope).c_str(), files)) std::abort();
  }
  return files;
}

void PackWhole(benchmark::State& state) {
  Project& project = Project::Get();
  for (auto _ : state) {
    state.PauseTiming();
    const std::string out = project.NewFolder();
    state.ResumeTiming();
    if (!ZoTuningUtils::GenerateProjTuningBins(project.dir().c_str(), out.c_str())) {
      return state.SkipWithError("not packed");
    }
  }
}

void LoadSchema(benchmark::State& state) {
  const std::string dir = Project::Get().dir() + "/proto";
  for (auto _ : state) {
    const Schema schema(dir);
    benchmark::DoNotOptimize(&schema);
  }
}

void ListFiles(benchmark::State& state) {
  Project::Get();
  for (auto _ : state) benchmark::DoNotOptimize(ListScopes());
}

void ReadFiles(benchmark::State& state) {
  const std::vector<std::string> paths = ListScopes();
  PaddedFile file;
  size_t bytes = 0;
  for (auto _ : state) {
    bytes = 0;
    for (const std::string& path : paths) {
      if (!file.Read(path)) return state.SkipWithError("not read");
      bytes += file.text().size();
    }
  }
  CountBytes(state, bytes);
}

/// Tables and conversion of all files, whose texts are in memory.
void ConvertFiles(benchmark::State& state) {
  struct Text {
    const Descriptor* type;
    PaddedFile file;
  };
  std::vector<Text> texts;
  size_t bytes = 0;
  for (const std::string& path : ListScopes()) {
    Text text;
    text.type = Project::Get().schema().FindType(std::filesystem::path(path).stem().string());
    if (!text.file.Read(path)) return state.SkipWithError("not read");
    bytes += text.file.text().size();
    texts.push_back(std::move(text));
  }
  for (auto _ : state) {
    std::map<const Descriptor*, std::unique_ptr<ModuleTable>> tables;
    JsonTranscoder transcoder;
    for (const Text& text : texts) {
      std::unique_ptr<ModuleTable>& table = tables[text.type];
      if (table == nullptr) table = std::make_unique<ModuleTable>(text.type);
      if (!transcoder.Transcode(*table, text.file.text())) return state.SkipWithError("falls back");
      benchmark::DoNotOptimize(transcoder.FindMissingName(*table, text.file.text()));
    }
  }
  CountBytes(state, bytes);
}

// ---- Tokens ----------------------------------------------------------------------------------------------------

/// Reads the same token repeatedly with `read`, which returns whether it succeeded.
template <typename Read>
void ScanTokens(benchmark::State& state, const std::string& token, Read read) {
  constexpr size_t kCount = 1000;
  std::string text;
  for (size_t i = 0; i < kCount; ++i) text += token + ",\n      ";
  const size_t size = text.size();
  text.append(kTextPadding, '\0');
  for (auto _ : state) {
    const char* p = text.data();
    for (size_t i = 0; i < kCount; ++i) {
      p = read(p);
      if (p == nullptr) return state.SkipWithError("falls back");
      p = SkipBlanks(p + 1);
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kCount));
  CountBytes(state, size);
}

void ScanReal(benchmark::State& state, const std::string& token) {
  ScanTokens(state, token, [](const char* p) {
    double value = 0;
    p = ReadReal(p, &value);
    benchmark::DoNotOptimize(value);
    return p;
  });
}

void ScanInteger(benchmark::State& state, const std::string& token) {
  ScanTokens(state, token, [](const char* p) {
    Integer value{};
    p = ReadInteger(p, &value);
    benchmark::DoNotOptimize(value);
    return p;
  });
}

void ScanString(benchmark::State& state, const std::string& token) {
  ScanTokens(state, token, [](const char* p) {
    RawString value{};
    p = ReadString(p, &value);
    benchmark::DoNotOptimize(value);
    return p;
  });
}

void RegisterAll() {
  using benchmark::RegisterBenchmark;
  // Tables of short and of long numbers, structures with rules, and 64-bit integers in quotes.
  for (const std::string module : {"LensShading", "PdCalib", "NoiseModel", "AEExposureTable", "AfCommon"}) {
    RegisterBenchmark(("convert/plain/" + module).c_str(), ConvertByReference, module)->Unit(benchmark::kMicrosecond);
    RegisterBenchmark(("convert/transcoder/" + module).c_str(), ConvertByTranscoder, module)
        ->Unit(benchmark::kMicrosecond);
  }
  RegisterBenchmark("check/plain/AfCommon", CheckFieldsByReference, "AfCommon");
  RegisterBenchmark("check/transcoder/AfCommon", CheckFieldsByTranscoder, "AfCommon");
  RegisterBenchmark("steps/all", PackWhole)->Unit(benchmark::kMillisecond);
  RegisterBenchmark("steps/schema", LoadSchema)->Unit(benchmark::kMillisecond);
  RegisterBenchmark("steps/list", ListFiles)->Unit(benchmark::kMillisecond);
  RegisterBenchmark("steps/read", ReadFiles)->Unit(benchmark::kMillisecond);
  RegisterBenchmark("steps/convert", ConvertFiles)->Unit(benchmark::kMillisecond);
  for (const std::string token : {"1.921", "-0.0436", "1.40129852", "0.0043212345678912345", "1.5e-05"}) {
    RegisterBenchmark(("real/" + token).c_str(), ScanReal, token);
  }
  for (const std::string token : {"0", "412", "18446744073709551615", "-20000000"}) {
    RegisterBenchmark(("integer/" + token).c_str(), ScanInteger, token);
  }
  for (const std::string token : {"\"-1\"", "\"description\"", "\"line 3, second lot, station 12 of plant 4\""}) {
    RegisterBenchmark(("string/" + std::to_string(token.size() - 2) + " bytes").c_str(), ScanString, token);
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    RegisterAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::RunSpecifiedBenchmarks();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "micro_bench: %s\n", error.what());
    return 1;
  }
  return 0;
}
