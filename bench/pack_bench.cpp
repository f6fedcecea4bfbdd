// Packs projects by the slow path, by the library and by its peers, alternately, and prints Markdown tables.
//
// A round runs every path once; the order of the paths changes from round to round. The slow path and the library run
// in this process. A peer is a separate program that keeps running: it gets the project and a folder for its output as
// arguments, prints "ready" (or "ready through PROGRAM", which it starts for every run) when its setup is done, and
// packs once for every line "run" that it reads, printing the milliseconds of wall-clock and processor time that this
// took. See bench/peers.

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "ZoTuningUtils.h"
#include "reference_packer.h"

namespace {

namespace fs = std::filesystem;
using zotuning_bench::PackByReference;

constexpr char kUsage[] =
    "usage: pack_bench [OPTION]... PROJECT...\n"
    "  --rounds N          rounds per project (11)\n"
    "  --growth            a table of the time for each megabyte instead, for projects of different sizes\n"
    "  --peer NAME=COMMAND another program to compare with, run as COMMAND PROJECT DIR; may be repeated\n";

struct Options {
  int rounds = 11;
  bool growth = false;
  std::vector<std::pair<std::string, std::string>> peers;
  std::vector<std::string> projects;
};

bool PackByLibrary(const std::string& project, const std::string& out) {
  return ZoTuningUtils::GenerateProjTuningBins(project.c_str(), out.c_str());
}

std::string ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// The peak resident size of a process so far, in megabytes; 0 if the system does not report it.
double PeakMemory(const std::string& process) {
  std::ifstream status("/proc/" + process + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.compare(0, 6, "VmHWM:") == 0) return std::strtod(line.c_str() + 6, nullptr) * 1024 / 1e6;
  }
  return 0;
}

/// A child program with pipes to its input and from its output.
class Child {
 public:
  explicit Child(const std::vector<std::string>& arguments) {
    int input[2];
    int output[2];
    if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    process_ = fork();
    if (process_ == 0) {
      dup2(input[0], STDIN_FILENO);
      dup2(output[1], STDOUT_FILENO);
      std::vector<char*> words;
      words.reserve(arguments.size() + 1);
      for (const std::string& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
      words.push_back(nullptr);
      execvp(words[0], words.data());
      _exit(127);
    }
    close(input[0]);
    close(output[1]);
    input_ = input[1];
    output_.reset(fdopen(output[0], "r"));
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() {
    close(input_);
    output_.reset();
    if (process_ > 0) waitpid(process_, nullptr, 0);
  }

  bool Send(const std::string& line) {
    const std::string text = line + "\n";
    return write(input_, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  }

  /// The next line of its output, without the line ending; nothing if it has ended.
  std::optional<std::string> Receive() {
    std::string line;
    for (int c; (c = std::fgetc(output_.get())) != EOF;) {
      if (c == '\n') return line;
      line += static_cast<char>(c);
    }
    return std::nullopt;
  }

  std::string process() const { return std::to_string(process_); }

 private:
  struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  pid_t process_ = -1;
  int input_ = -1;
  std::unique_ptr<std::FILE, CloseFile> output_;
};

/// Milliseconds of one run. Processor time is more reliable on a machine that is busy with other things.
struct Times {
  double clock;
  double processor;
};

/// One way to pack a project, and its times so far.
struct PackPath {
  std::string name;
  std::function<Times()> run;           ///< packs once
  std::function<double()> peak_memory;  ///< in megabytes, negative if unknown
  std::vector<Times> times = {};

  double best() const { return Best(&Times::clock); }
  double best_processor() const { return Best(&Times::processor); }

 private:
  double Best(double Times::*time) const {
    double best = times[0].*time;
    for (const Times& taken : times) best = std::min(best, taken.*time);
    return best;
  }
};

double ProcessorTime() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

struct ProjectSize {
  size_t files = 0;
  double megabytes = 0;
  double largest = 0;  ///< file, in megabytes
};

ProjectSize Measure(const std::string& project) {
  ProjectSize size;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(project)) {
    if (entry.path().extension() != ".json" || entry.path().parent_path().filename() == "version") continue;
    const double megabytes = static_cast<double>(entry.file_size()) / 1e6;
    ++size.files;
    size.megabytes += megabytes;
    size.largest = std::max(size.largest, megabytes);
  }
  return size;
}

/// A path that is a function of this process. Its runs pack into out/0, out/1 and so on, since some file systems are
/// slow to create files where others have just been removed. Its peak memory is that of a fresh process that packs
/// once.
PackPath OwnPath(const std::string& name, bool (*pack)(const std::string&, const std::string&),
                 const std::string& project, const fs::path& out) {
  const auto run = [name, pack, project, out, count = 0]() mutable {
    const fs::path folder = out / std::to_string(count++);
    fs::create_directories(folder);
    const double processor = ProcessorTime();
    const auto begin = std::chrono::steady_clock::now();
    if (!pack(project, folder.string())) throw std::runtime_error(name + " could not pack " + project);
    return Times{std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count(),
                 ProcessorTime() - processor};
  };
  const auto peak_memory = [name, project, out] {
    const fs::path folder = out / "memory";
    fs::create_directories(folder);
    Child child({"/proc/self/exe", "--memory-of", name, project, folder.string()});
    const std::optional<std::string> answer = child.Receive();
    return answer ? std::strtod(answer->c_str(), nullptr) : 0;
  };
  return {name, run, peak_memory};
}

PackPath PeerPath(const std::string& name, const std::shared_ptr<Child>& peer, bool one_process) {
  const auto run = [name, peer] {
    const std::optional<std::string> answer = peer->Send("run") ? peer->Receive() : std::nullopt;
    if (!answer) throw std::runtime_error(name + " has ended");
    char* end = nullptr;
    const double clock = std::strtod(answer->c_str(), &end);
    return Times{clock, std::strtod(end, nullptr)};
  };
  return {name, run, [peer, one_process] { return one_process ? PeakMemory(peer->process()) : -1; }};
}

/// Starts the peers that are able to pack the project; reports on standard error which are not.
void AddPeers(const Options& options, const std::string& project, const fs::path& out, std::vector<PackPath>& paths) {
  for (const auto& [name, command] : options.peers) {
    const fs::path peer_out = out / name;
    fs::create_directories(peer_out);
    auto peer = std::make_shared<Child>(std::vector<std::string>{command, project, peer_out.string()});
    const std::optional<std::string> answer = peer->Receive();
    if (answer && answer->compare(0, 5, "ready") == 0) {
      paths.push_back(PeerPath(name, peer, answer->size() == 5));
    } else {
      std::fprintf(stderr, "pack_bench: %s is left out: %s\n", name.c_str(),
                   answer ? answer->c_str() : "not installed");
    }
  }
}

void CompareBins(const fs::path& expected, const fs::path& actual) {
  size_t count = 0;
  for (const fs::directory_entry& entry : fs::directory_iterator(expected / "zo_tuning")) {
    ++count;
    if (ReadFile(entry.path()) != ReadFile(actual / "zo_tuning" / entry.path().filename())) {
      throw std::runtime_error("the bins " + entry.path().filename().string() + " differ");
    }
  }
  const auto others = fs::directory_iterator(actual / "zo_tuning");
  if (count == 0 || static_cast<size_t>(std::distance(begin(others), end(others))) != count) {
    throw std::runtime_error("the bins are not the same ones");
  }
}

/// The times of the first path over those of `path`, round by round, in ascending order.
std::vector<double> RatiosPerRound(const PackPath& first, const PackPath& path) {
  std::vector<double> ratios;
  for (size_t i = 0; i < path.times.size(); ++i) ratios.push_back(first.times[i].clock / path.times[i].clock);
  std::sort(ratios.begin(), ratios.end());
  return ratios;
}

struct ProjectResult {
  std::string name;
  ProjectSize size;
  std::vector<PackPath> paths;  ///< the slow path, the library, the peers
};

ProjectResult BenchProject(const Options& options, const std::string& project, const fs::path& work) {
  std::vector<PackPath> paths;
  paths.push_back(OwnPath("slow path", PackByReference, project, work / "plain"));
  paths.push_back(OwnPath("library", PackByLibrary, project, work / "library"));
  AddPeers(options, project, work / "peers", paths);

  for (PackPath& path : paths) path.run();  // for the caches, and the bytes
  CompareBins(work / "plain" / "0", work / "library" / "0");
  for (int round = 0; round < options.rounds; ++round) {
    for (size_t i = 0; i < paths.size(); ++i) {
      PackPath& path = paths[(i + static_cast<size_t>(round)) % paths.size()];
      path.times.push_back(path.run());
    }
  }
  const std::string last = std::to_string(options.rounds);
  CompareBins(work / "plain" / last, work / "library" / last);
  return {fs::path(project).filename().string(), Measure(project), std::move(paths)};
}

void PrintHeader(const Options& options) {
  std::fputs(
      options.growth
          ? "| project | files | MB | largest file, MB | slow path, ms/MB | library, ms/MB | times the best above | "
            "library, processor ms/MB | peak memory of the slow path, MB | of the library, MB |\n"
            "|---|---|---|---|---|---|---|---|---|---|\n"
          : "| project | path | best, ms | MB/s | times the slow path | by round: min / median / max | by processor "
            "time | peak memory, MB |\n|---|---|---|---|---|---|---|---|\n",
      stdout);
}

/// `value` with this many decimals, or a dash if unknown.
std::string Text(double value, int decimals, bool known) {
  if (!known) return "–";
  char text[32];
  std::snprintf(text, sizeof(text), "%.*f", decimals, value);
  return text;
}

std::string MemoryText(const PackPath& path) {
  const double megabytes = path.peak_memory();
  return Text(megabytes, 1, megabytes >= 0);
}

void PrintComparison(const ProjectResult& result) {
  const PackPath& plain = result.paths[0];
  for (const PackPath& path : result.paths) {
    const std::vector<double> ratios = RatiosPerRound(plain, path);
    std::printf("| %s | %s | %.1f | %.0f | %.2f | %.2f / %.2f / %.2f | %.2f | %s |\n", result.name.c_str(),
                path.name.c_str(), path.best(), result.size.megabytes * 1000 / path.best(), plain.best() / path.best(),
                ratios.front(), ratios[ratios.size() / 2], ratios.back(),
                plain.best_processor() / path.best_processor(), MemoryText(path).c_str());
  }
}

double TimePerMegabyte(const ProjectResult& result) { return result.paths[1].best() / result.size.megabytes; }

/// `least` is the least time per megabyte in the rows above, 0 in the first.
void PrintGrowth(const ProjectResult& result, double least) {
  const PackPath& plain = result.paths[0];
  const PackPath& library = result.paths[1];
  const double megabytes = result.size.megabytes;
  const double time = TimePerMegabyte(result);
  std::printf("| %s | %zu | %.1f | %.2f | %.2f | %.3f | %s | %.3f | %s | %s |\n", result.name.c_str(),
              result.size.files, megabytes, result.size.largest, plain.best() / megabytes, time,
              Text(time / least, 2, least > 0).c_str(), library.best_processor() / megabytes, MemoryText(plain).c_str(),
              MemoryText(library).c_str());
}

/// Packs once and prints the peak memory: what OwnPath asks a fresh process for.
int PrintMemoryOf(const std::string& path, const std::string& project, const std::string& out) {
  const bool packed = path == "library" ? PackByLibrary(project, out) : PackByReference(project, out);
  std::printf("%.3f\n", PeakMemory("self"));
  return packed ? 0 : 1;
}

std::optional<Options> ParseArguments(const std::vector<std::string>& arguments) {
  Options options;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (argument == "--growth") {
      options.growth = true;
    } else if (argument == "--rounds" && i + 1 < arguments.size()) {
      options.rounds = std::atoi(arguments[++i].c_str());
    } else if (argument == "--peer" && i + 1 < arguments.size() && arguments[i + 1].find('=') != std::string::npos) {
      const std::string& peer = arguments[++i];
      const size_t end = peer.find('=');
      options.peers.emplace_back(peer.substr(0, end), peer.substr(end + 1));
    } else if (argument[0] == '-') {
      return std::nullopt;
    } else {
      options.projects.push_back(argument);
    }
  }
  if (options.projects.empty() || options.rounds < 1) return std::nullopt;
  return options;
}

/// A folder for all output, removed at the end.
class StagingDir {
 public:
  StagingDir() : path_((fs::temp_directory_path() / "pack_bench.XXXXXX").string()) {
    if (mkdtemp(&path_[0]) == nullptr) throw std::runtime_error("cannot make " + path_);
  }
  ~StagingDir() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  fs::path path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments.size() == 4 && arguments[0] == "--memory-of") {
    return PrintMemoryOf(arguments[1], arguments[2], arguments[3]);
  }
  const std::optional<Options> options = ParseArguments(arguments);
  if (!options) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  std::signal(SIGPIPE, SIG_IGN);
  try {
    const StagingDir work;
    PrintHeader(*options);
    double least = 0;
    for (const std::string& project : options->projects) {
      const ProjectResult result = BenchProject(*options, project, work.path());
      if (options->growth) {
        PrintGrowth(result, least);
        least = least == 0 ? TimePerMegabyte(result) : std::min(least, TimePerMegabyte(result));
      } else {
        PrintComparison(result);
      }
      std::fflush(stdout);
      for (const fs::directory_entry& entry : fs::directory_iterator(work.path())) fs::remove_all(entry.path());
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "pack_bench: %s\n", error.what());
    return 1;
  }
  return 0;
}
