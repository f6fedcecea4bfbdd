#include "support.h"

#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/stubs/strutil.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <set>
#include <streambuf>

#include "ZoTuningUtils.h"

// Only defined with a sanitizer.
extern "C" __attribute__((weak)) void __sanitizer_set_report_fd(void* descriptor);

namespace {

namespace fs = std::filesystem;

const std::string kExampleDir = ZOTUNING_SOURCE_DIR "/examples/tuning_project";

/// The original standard error; a target may capture what goes there.
int g_report_descriptor = STDERR_FILENO;

/// The current directory as it was at first, which the fuzzer's paths are relative to; a target may go elsewhere.
int g_first_dir = -1;

std::vector<std::string>& Log() {
  static auto* lines = new std::vector<std::string>;
  return *lines;
}

/// Replaces standard error's buffer in std::cerr; the texts are formatted and dropped.
class Nowhere : public std::streambuf {
 protected:
  int overflow(int c) override { return c == traits_type::eof() ? 0 : c; }
  std::streamsize xsputn(const char*, std::streamsize length) override { return length; }
};

/// The project files that this process has open.
std::vector<std::string> OpenFiles() {
  std::vector<std::string> open;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code gone;  // the directory itself
    std::string path = fs::read_symlink(entry.path(), gone).string();
    const bool ours = path.rfind(kExampleDir, 0) == 0 || path.rfind(zofuzz::ScratchDir(), 0) == 0;
    if (ours) open.push_back(std::move(path));
  }
  return open;
}

/// The project's schema, reduced to the types that the named ones need: a complete one takes most of the time of a run.
class ReducedSchema {
 public:
  explicit ReducedSchema(const std::vector<std::string>& types) {
    tree_.MapPath("", kExampleDir + "/proto");
    ZoTuningUtils::ImportDescriptors((kExampleDir + "/proto").c_str(), importer_);
    for (const std::string& type : types) {
      std::string name;
      ZO_TUNING::ADD_NAMESPACE_TO_CLASSNAME(type, name);
      Keep(importer_.pool()->FindMessageTypeByName(name));
    }
  }

  void WriteTo(const std::string& dir) {
    google::protobuf::DescriptorPool pool;
    for (const google::protobuf::FileDescriptor* file : files_) {
      google::protobuf::FileDescriptorProto whole, reduced;
      file->CopyTo(&whole);
      reduced = whole;
      reduced.clear_message_type();
      reduced.clear_enum_type();
      for (int i = 0; i < file->message_type_count(); ++i) {
        if (kept_.count(file->message_type(i)) > 0) *reduced.add_message_type() = whole.message_type(i);
      }
      for (int i = 0; i < file->enum_type_count(); ++i) {
        if (kept_.count(file->enum_type(i)) > 0) *reduced.add_enum_type() = whole.enum_type(i);
      }
      const auto* built = pool.BuildFile(reduced);
      if (built == nullptr) zofuzz::Fail("cannot reduce " + file->name());
      zotest::Write(dir + "/" + file->name(), built->DebugString());
    }
  }

 private:
  void Keep(const google::protobuf::Descriptor* type) {
    if (type == nullptr) zofuzz::Fail("the example project lacks a type");
    if (!kept_.insert(type).second) return;
    KeepFile(type->file());
    for (int i = 0; i < type->field_count(); ++i) {
      if (type->field(i)->message_type() != nullptr) Keep(type->field(i)->message_type());
      if (type->field(i)->enum_type() != nullptr) kept_.insert(type->field(i)->enum_type());
    }
  }

  /// Files come after those that they import.
  void KeepFile(const google::protobuf::FileDescriptor* file) {
    if (std::find(files_.begin(), files_.end(), file) != files_.end()) return;
    for (int i = 0; i < file->dependency_count(); ++i) KeepFile(file->dependency(i));
    files_.push_back(file);
  }

  google::protobuf::compiler::DiskSourceTree tree_;
  google::protobuf::compiler::Importer importer_{&tree_, nullptr};
  std::set<const void*> kept_;  // message and enum types
  std::vector<const google::protobuf::FileDescriptor*> files_;
};

}  // namespace

namespace zofuzz {

const std::vector<std::string> kExampleSensors = {"main_wide", "front"};

void Fail(const std::string& message) {
  dprintf(g_report_descriptor, "find: %s\n", message.c_str());
  for (const std::string& line : Log()) dprintf(g_report_descriptor, "log: %s\n", Escaped(line).c_str());
  std::abort();
}

std::string Escaped(std::string_view bytes) { return google::protobuf::CEscape(std::string(bytes)); }

const std::string& ScratchDir() {
  static const std::string* dir = [] {
    std::string name = (fs::temp_directory_path() / "zotuning-fuzz-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) Fail("cannot make " + name);
    return new std::string(name);
  }();
  return *dir;
}

std::string MakeExampleProject(std::vector<std::string> types) {
  const std::string dir = ScratchDir() + "/project", proto_dir = dir + "/proto";
  fs::remove_all(dir);
  fs::create_directory(dir);
  for (const auto& entry : fs::directory_iterator(kExampleDir)) {
    const std::string name = entry.path().filename();
    // The library never writes to a link.
    if (!entry.is_directory() || name == "src" || (name == "proto" && !types.empty())) continue;
    fs::create_directory_symlink(entry.path(), dir + "/" + name);
  }
  if (!types.empty()) {
    fs::create_directory(proto_dir);
    types.insert(types.end(), {"TuningProjConfig", "TuningDataLabel", "Version"});
    ReducedSchema(types).WriteTo(proto_dir);
  }
  ZoTuningUtils::InitProjectConfig(proto_dir.c_str(), "project", kExampleSensors, ScratchDir().c_str());
  if (CountErrors(TakeLog()) != 0 || !fs::exists(dir + "/ProjConf.bin")) Fail("cannot make the example project");
  return dir;
}

std::vector<std::pair<std::string, std::string>> SplitParts(std::string_view input) {
  constexpr std::string_view kHead = "//// ";
  std::vector<std::pair<std::string, std::string>> parts;
  while (!input.empty()) {
    std::string name;
    if (input.substr(0, kHead.size()) == kHead) {
      const size_t line_end = std::min(input.find('\n'), input.size());
      name = input.substr(kHead.size(), line_end - kHead.size());
      input.remove_prefix(std::min(line_end + 1, input.size()));
    }
    // The line break before the next header belongs to the header, so that a part can end without one.
    size_t end = input.substr(0, kHead.size()) == kHead ? 0 : input.find("\n//// ");
    parts.emplace_back(name, input.substr(0, end));
    if (end == std::string_view::npos) break;
    input.remove_prefix(end == 0 && input[0] != '\n' ? 0 : end + 1);
  }
  return parts;
}

std::vector<std::string> TakeLog() {
  std::vector<std::string> lines;
  lines.swap(Log());
  static const std::string kStopped = "Stopped by an unexpected failure";
  for (const std::string& line : lines) {
    // After the name of the function; text that is quoted further on comes from the input.
    if (line.compare(line.find("() ") + 3, kStopped.size(), kStopped) != 0) continue;
    Log() = lines;
    Fail("an exception reached the border of an operation");
  }
  return lines;
}

size_t CountErrors(const std::vector<std::string>& lines) {
  size_t errors = 0;
  for (const std::string& line : lines) errors += line[0] == '6' ? 1 : 0;
  return errors;
}

void AddLogLine(int priority, const char* text) { Log().push_back(std::to_string(priority) + " " + text); }

void EndRun() {
  static uint64_t runs = 0;
  TakeLog();
  Require(fchdir(g_first_dir) == 0, "the target can go back to where it was");
  if (++runs % 256 != 0) return;
  for (const std::string& path : OpenFiles()) Fail("left open: " + path);
}

}  // namespace zofuzz

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  g_report_descriptor = dup(STDERR_FILENO);
  g_first_dir = open(".", O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (__sanitizer_set_report_fd != nullptr)
    __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<intptr_t>(g_report_descriptor)));
  google::protobuf::SetLogHandler(nullptr);
  static auto* const nowhere = new Nowhere;  // the stream is flushed at the very end
  std::cerr.rdbuf(nowhere);
  std::atexit([] { fs::remove_all(zofuzz::ScratchDir()); });
  if (*argc == 3 && std::strcmp((*argv)[1], "--seeds") == 0) {
    zofuzz::Seeds((*argv)[2]);
    std::exit(0);
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zofuzz::Run(data, size);
  zofuzz::EndRun();
  return 0;
}
