// The pieces of packing by themselves, in memory where they are not about files: piece_bench [GOOGLE BENCHMARK
// OPTION...] Bytes are those of the JSON text.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "ZoTuningUtils.h"
#include "encode/encode_plan.h"
#include "encode/json_encoder.h"
#include "encode/json_tokens.h"
#include "encode/text_file.h"
#include "generate_project.h"
#include "schema/schema.h"

namespace {

using google::protobuf::Descriptor;
using google::protobuf::Message;
using namespace ZO_TUNING::internal;

/// A generated project that lasts as long as the process, its schema, and the texts of its default modules.
class Project {
 public:
  static Project& Get() {
    static Project project;
    return project;
  }

  std::string dir() const { return root_ + "/project"; }
  Schema& schema() { return *schema_; }

  /// The text of a default module, with the bytes behind it that the scanner needs.
  std::string_view Text(const std::string& module) {
    if (!file_.Read(dir() + "/default/" + module + ".json")) std::abort();
    return file_.text();
  }

 private:
  Project() : root_((std::filesystem::temp_directory_path() / "piece_bench.XXXXXX").string()) {
    if (mkdtemp(&root_[0]) == nullptr) std::abort();
    zotuning_bench::GenerateProject(zotuning_bench::ShapeByName("a"), dir());
    schema_ = std::make_unique<Schema>(dir() + "/proto");
  }
  ~Project() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }

  std::string root_;
  std::unique_ptr<Schema> schema_;
  TextFile file_;
};

void CountBytes(benchmark::State& state, size_t bytes) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
}

// ---- One text to wire bytes ------------------------------------------------------------------------------------

void ConvertPlainly(benchmark::State& state, const std::string& module) {
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

void ConvertByEncoder(benchmark::State& state, const std::string& module) {
  Project& project = Project::Get();
  const std::string_view text = project.Text(module);
  const ModulePlan plan(project.schema().FindType(module));
  JsonEncoder encoder;
  for (auto _ : state) {
    if (!encoder.Encode(plan, text)) return state.SkipWithError("odd");
    benchmark::DoNotOptimize(encoder.wire().data());
  }
  CountBytes(state, text.size());
}

void CheckFieldsPlainly(benchmark::State& state, const std::string& module) {
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

void CheckFieldsByEncoder(benchmark::State& state, const std::string& module) {
  Project& project = Project::Get();
  const std::string_view text = project.Text(module);
  const ModulePlan plan(project.schema().FindType(module));
  JsonEncoder encoder;
  if (!encoder.Encode(plan, text)) return state.SkipWithError("odd");
  for (auto _ : state) benchmark::DoNotOptimize(encoder.FindMissingName(plan, text));
  CountBytes(state, text.size());
}

// ---- Once per operation ----------------------------------------------------------------------------------------

void LoadSchema(benchmark::State& state) {
  const std::string dir = Project::Get().dir() + "/proto";
  for (auto _ : state) {
    const Schema schema(dir);
    benchmark::DoNotOptimize(&schema);
  }
}

void MakePlan(benchmark::State& state, const std::string& module) {
  const Descriptor* type = Project::Get().schema().FindType(module);
  for (auto _ : state) {
    const ModulePlan plan(type);
    benchmark::DoNotOptimize(plan.root());
  }
}

void ListFiles(benchmark::State& state) {
  const std::string dir = Project::Get().dir() + "/main_wide";
  size_t count = 0;
  for (auto _ : state) {
    std::vector<std::string> files;
    if (!ZoTuningUtils::FindAllJsonFiles(dir.c_str(), files)) return state.SkipWithError("not listed");
    count = files.size();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(count));
}

void ReadTextFile(benchmark::State& state, const std::string& module) {
  const std::string path = Project::Get().dir() + "/default/" + module + ".json";
  TextFile file;
  for (auto _ : state) {
    if (!file.Read(path)) return state.SkipWithError("not read");
  }
  CountBytes(state, file.text().size());
}

// ---- Tokens ----------------------------------------------------------------------------------------------------

/// Reads the same token over and over by `read`, which returns whether it could.
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
      if (p == nullptr) return state.SkipWithError("odd");
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
    RegisterBenchmark(("convert/plain/" + module).c_str(), ConvertPlainly, module)->Unit(benchmark::kMicrosecond);
    RegisterBenchmark(("convert/encoder/" + module).c_str(), ConvertByEncoder, module)->Unit(benchmark::kMicrosecond);
  }
  RegisterBenchmark("check/plain/AfCommon", CheckFieldsPlainly, "AfCommon");
  RegisterBenchmark("check/encoder/AfCommon", CheckFieldsByEncoder, "AfCommon");
  RegisterBenchmark("schema/load", LoadSchema)->Unit(benchmark::kMicrosecond);
  RegisterBenchmark("schema/plan/AfCommon", MakePlan, "AfCommon")->Unit(benchmark::kMicrosecond);
  RegisterBenchmark("files/list", ListFiles)->Unit(benchmark::kMicrosecond);
  RegisterBenchmark("files/read/LensShading", ReadTextFile, "LensShading")->Unit(benchmark::kMicrosecond);
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
    std::fprintf(stderr, "piece_bench: %s\n", error.what());
    return 1;
  }
  return 0;
}
