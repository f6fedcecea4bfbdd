// JSON documents against the transcoder, in one process and on the same texts: document_bench [MEGABYTES]
// Speed: the median of alternating rounds. Memory: the peak resident size of a separate process for each text.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "generate_project.h"
#include "io/padded_file.h"
#include "schema/schema.h"
#include "transcode/json_transcoder.h"
#include "transcode/module_table.h"
#include "workspace/check_json.h"
#include "workspace/json_document.h"

namespace {

using namespace ZO_TUNING::internal;
using zotuning::JsonDocument;

constexpr int kRounds = 41;

double SecondsOf(const std::function<void()>& work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

double Median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
  return values[values.size() / 2];
}

void CompareSpeed(const std::string& module, const google::protobuf::Descriptor* type, const std::string& text) {
  const ModuleTable table(type);
  JsonTranscoder transcoder;
  std::string padded = text;
  padded.append(kTextPadding, '\0');
  const std::string_view view(padded.data(), text.size());
  std::vector<double> transcode, read, check;
  zotuning::FitChecker checker;
  for (int i = 0; i < kRounds; ++i) {
    transcode.push_back(SecondsOf([&] {
      if (!transcoder.Transcode(table, view)) std::abort();
    }));
    std::string copy;
    copy.reserve(padded.size());
    copy.assign(text);
    std::unique_ptr<JsonDocument> document;
    read.push_back(SecondsOf([&] { document = std::make_unique<JsonDocument>(std::move(copy)); }));
    check.push_back(SecondsOf([&] {
      zotuning::CollectingSink sink;
      CheckText(*document, module, sink);
      checker.Check(*document, type, module, sink);
    }));
  }
  const auto speed = [&](const std::vector<double>& seconds) {
    return static_cast<double>(text.size()) / Median(seconds) / 1e6;
  };
  std::printf("%-16s %9zu bytes   transcoder %6.0f MB/s   document %6.0f MB/s (%.2f)   check %6.0f MB/s (%.2f)\n",
              module.c_str(), text.size(), speed(transcode), speed(read), speed(read) / speed(transcode), speed(check),
              speed(check) / speed(transcode));
}

/// A text of about `size` bytes: `begin`, then `piece` repeatedly, then `end`.
std::string Repeated(const std::string& begin, const std::string& piece, const std::string& end, size_t size) {
  std::string text;
  text.reserve(size + begin.size() + piece.size() + end.size() + kTextPadding);
  text = begin;
  while (text.size() < size) text += piece;
  text += end;
  return text;
}

/// By how much `work` increases the resident size of a process, in KiB.
long PeakGrowth(const std::function<void()>& work) {
  int ends[2];
  if (pipe(ends) != 0) std::abort();
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const long before = usage.ru_maxrss;
    work();
    getrusage(RUSAGE_SELF, &usage);
    const long growth = usage.ru_maxrss - before;
    const bool written = write(ends[1], &growth, sizeof(growth)) == sizeof(growth);
    _exit(written ? 0 : 1);
  }
  close(ends[1]);
  long growth = -1;
  if (read(ends[0], &growth, sizeof(growth)) != sizeof(growth)) growth = -1;
  close(ends[0]);
  waitpid(child, nullptr, 0);
  return growth;
}

void MeasureMemory(const char* name, const std::string& begin, const std::string& piece, const std::string& end,
                   size_t size) {
  double seconds = 0;
  const long growth = PeakGrowth([&] {
    std::string text = Repeated(begin, piece, end, size);
    const size_t text_size = text.size();
    std::unique_ptr<JsonDocument> document;
    seconds = SecondsOf([&] { document = std::make_unique<JsonDocument>(std::move(text)); });
    std::printf("%-34s %4zu MB: %.2f s, holds %.2f times its size", name, text_size / 1000000, seconds,
                static_cast<double>(document->memory_bytes()) / static_cast<double>(text_size));
    std::fflush(stdout);
  });
  std::printf(", at most %.2f\n", static_cast<double>(growth) * 1024 / static_cast<double>(size));
}

}  // namespace

int main(int argc, char** argv) {
  const size_t size = static_cast<size_t>(argc > 1 ? std::atoi(argv[1]) : 100) * 1000000;
  MeasureMemory("1,1,1,", "{\"value\":[", "1,", "1]}", size);
  MeasureMemory("0.123,-1.5,", "{\"value\":[", "0.123,-1.5,", "1]}", size);
  MeasureMemory("one number a line", "{\"value\":[", "\n      0.0123,", "1]}", size);
  MeasureMemory("rows of objects", "{\"value\":[", "{\"value\":[1.5,2.5,3.5,4.5]},", "{}]}", size);
  MeasureMemory("parameters with rules", "{\"value\":[",
                "{\"gain\":{\"value\":1.5,\"rule\":{\"description\":\"[Float]\",\"recommend\":\"1..8\"}}},", "{}]}",
                size);

  std::string root = (std::filesystem::temp_directory_path() / "document_bench.XXXXXX").string();
  if (mkdtemp(root.data()) == nullptr) return 1;
  zotuning_bench::GenerateProject(zotuning_bench::ShapeByName("a"), root + "/project");
  {
    const Schema schema(root + "/project/proto");
    for (const std::string module : {"LensShading", "PdCalib", "NoiseModel", "AEExposureTable", "AfCommon"}) {
      std::ifstream file(root + "/project/default/" + module + ".json");
      const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
      CompareSpeed(module, schema.FindType(module), text);
    }
  }
  std::error_code ignored;
  std::filesystem::remove_all(root, ignored);
  return 0;
}
