// Damage on purpose: cuts a bin at every byte and changes every byte, and reads what is left as 'zotuning show' and the
// library's dumps do, in a bounded address space.
//
// damage_sweep PROJECT FOLDER STEP: FOLDER holds default.bin, which is damaged in place. Every damage is read by the
// tool's walk, every STEP-th by the library. STEP 0 damages nothing, and prints for each length that the bin may be cut
// to the offset that has to be named, "-1" where whole records are left.

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "ZoTuningUtils.h"
#include "workspace/bins.h"
#include "workspace/files.h"

using namespace zotuning;

namespace {

/// What reading a damaged bin may take beyond what reading the whole one has taken.
constexpr rlim_t kMemoryBound = 16 << 20;

/// Bounds the address space to what is in use and kMemoryBound.
bool BoundMemory() {
  rlim_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  const rlim_t bound = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + kMemoryBound;
  const rlimit limit{bound, bound};
  return pages > 0 && setrlimit(RLIMIT_AS, &limit) == 0;
}

long PeakKilobytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

/// What reading a bin came to.
struct Outcome {
  size_t records;
  long fault;  ///< its offset, -1 for none
};

int Run(const std::string& project_dir, const std::string& folder, size_t step) {
  CollectingSink sink;
  const auto project = Project::Load(project_dir, sink);
  const std::string path = folder + "/default.bin";
  std::string bytes;
  if (project == nullptr || !project->ok() || !ReadFile(path, bytes, sink)) return 2;

  // Where lengths and messages begin, where records end, and where a cut leaves whole ones.
  std::vector<uint64_t> begins = {0}, ends, good = {sizeof(int32_t)};
  const auto add = [&](const BinItem& item) {
    begins.insert(begins.end(), {item.offset, item.offset + sizeof(item.length)});
    return begins.back() + static_cast<uint64_t>(item.length);
  };
  {
    const auto file = OpenBin(path, sink);
    BinScanner whole(file.get(), project->schema(), project->labels());
    while (whole.Next()) {
      if (whole.is_version()) {
        good[0] = add(whole.version());
      } else {
        add(whole.record().label);
        ends.push_back(add(whole.record().module));
      }
    }
    if (whole.fault() != nullptr || ends.back() != bytes.size()) return 2;
  }
  good.insert(good.end(), ends.begin(), ends.end());
  const auto break_of = [&](uint64_t length) {
    const bool none = std::binary_search(good.begin(), good.end(), length);
    return none ? -1 : static_cast<long>(*std::prev(std::upper_bound(begins.begin(), begins.end(), length)));
  };
  for (size_t length = 0; step == 0 && length < bytes.size(); ++length) {
    std::printf("%zu %ld\n", length, break_of(length));
  }
  if (step == 0) return 0;

  size_t damages = 0, dumps = 0, wrong = 0;
  const auto read = [&] {
    if (damages++ % step == 0) {
      // The results are up to the library; it has to come back.
      ZoTuningUtils::DumpProjTuningBins(project_dir.c_str(), folder.c_str());
      ZoTuningUtils::DumpBinVersions(project_dir.c_str(), folder.c_str());
      ++dumps;
    }
    const auto bin = OpenBin(path, sink);
    BinScanner scanner(bin.get(), project->schema(), project->labels());
    while (scanner.Next()) {
    }
    Outcome outcome{scanner.records(), -1};
    if (scanner.fault() != nullptr) outcome.fault = static_cast<long>(scanner.fault()->offset);
    return outcome;
  };
  const auto expect = [&](bool right, const char* damage, size_t at) {
    if (!right && ++wrong <= 10) (void)std::fprintf(stderr, "damage_sweep: wrong after %s %zu\n", damage, at);
  };
  read();
  const long peak = PeakKilobytes();
  if (!BoundMemory()) return 2;

  for (size_t length = bytes.size(); length-- > 0;) {
    std::filesystem::resize_file(path, length);
    expect(read().fault == break_of(length), "a cut to", length);
  }
  std::ofstream(path, std::ios::binary) << bytes;
  std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
  const auto put = [&](size_t at, char byte) {
    file.seekp(static_cast<std::streamoff>(at)).put(byte).flush();
    if (!file) std::abort();
  };
  for (size_t at = 0; at < bytes.size(); ++at) {
    // What stands before the damage is read all the same.
    const auto before = static_cast<size_t>(std::upper_bound(ends.begin(), ends.end(), at) - ends.begin());
    for (const char byte : {'\0', '\xFF', static_cast<char>(bytes[at] + 1)}) {
      if (byte == bytes[at]) continue;
      put(at, byte);
      expect(read().records >= before, "a change of byte", at);
    }
    put(at, bytes[at]);
  }
  std::printf("%zu bytes cut and changed in %zu ways, %zu of them dumped too, %ld kB more memory\n", bytes.size(),
              damages - 1, dumps, PeakKilobytes() - peak);
  return wrong == 0 ? 0 : 1;
}

}  // namespace

int main(int argument_count, char** arguments) {
  return argument_count == 4 ? Run(arguments[1], arguments[2], std::strtoul(arguments[3], nullptr, 10)) : 2;
}
