// A fuzz target without the fuzzer: runs it on its seeds, on its regressions, and on damaged versions of those that
// have at most ZOTUNING_DAMAGE_LIMIT bytes, or as many as the variable DAMAGE_LIMIT says: each is truncated at every
// byte, and each of its bytes is set to 0x00, to 0xFF and to its value plus one. Damage may take little more memory
// than the inputs themselves.

#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support.h"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Only the fuzzer calls the mutators.
extern "C" size_t LLVMFuzzerMutate(uint8_t*, size_t, size_t) { std::abort(); }

namespace {

constexpr rlim_t kMemoryBound = 16 << 20;

void Run(const std::string& bytes) {
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

/// Limits the address space to what is in use plus kMemoryBound.
void BoundMemory() {
  rlim_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  const rlim_t bound = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + kMemoryBound;
  const rlimit limit{bound, bound};
  if (pages == 0 || setrlimit(RLIMIT_AS, &limit) != 0) zofuzz::Fail("cannot bound the memory");
}

size_t RunDamaged(const std::string& seed) {
  size_t runs = 0;
  for (size_t length = 0; length < seed.size(); ++length, ++runs) Run(seed.substr(0, length));
  std::string changed = seed;
  for (size_t at = 0; at < seed.size(); ++at) {
    for (const char byte : {'\0', '\xFF', static_cast<char>(seed[at] + 1)}) {
      if (byte == seed[at]) continue;
      changed[at] = byte;
      Run(changed);
      ++runs;
    }
    changed[at] = seed[at];
  }
  return runs;
}

}  // namespace

int main(int, char** arguments) {
  int argument_count = 1;
  LLVMFuzzerInitialize(&argument_count, &arguments);
  const char* const given = std::getenv("DAMAGE_LIMIT");
  const size_t limit = given == nullptr ? ZOTUNING_DAMAGE_LIMIT : std::strtoul(given, nullptr, 10);

  const std::string seeds = zofuzz::ScratchDir() + "/seeds";
  zotest::MakeDirs(seeds);
  zofuzz::Seeds(seeds);
  std::vector<std::string> inputs, small;
  for (const std::string& folder : {seeds, std::string(ZOTUNING_FINDS)}) {
    if (!zotest::Exists(folder)) continue;
    for (const std::string& name : zotest::Tree(folder)) inputs.push_back(zotest::Read(folder + "/" + name));
  }
  for (const std::string& input : inputs) {
    Run(input);
    if (input.size() <= limit) small.push_back(input);
  }
  if (inputs.empty() || small.empty() != (limit == 0)) zofuzz::Fail("there are no seeds");
  BoundMemory();
  size_t damages = 0;
  for (const std::string& seed : small) damages += RunDamaged(seed);
  std::printf("%zu inputs, %zu of them damaged in %zu ways\n", inputs.size(), small.size(), damages);
}
