// Makes a project for the benchmarks: make_project SHAPE DIR

#include <cstdio>
#include <exception>

#include "generate_project.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(
        stderr, "usage: make_project SHAPE DIR\nSHAPE is a, b, c or d, the same with -fallback, or growth-MEGABYTES\n");
    return 2;
  }
  try {
    const size_t bytes = zotuning_bench::GenerateProject(zotuning_bench::ShapeByName(argv[1]), argv[2]);
    std::printf("%s: %.1f MB of JSON\n", argv[2], static_cast<double>(bytes) / 1e6);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "make_project: %s\n", error.what());
    return 1;
  }
  return 0;
}
