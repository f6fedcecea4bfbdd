// Tested by tests/tools/bins_test.cpp.

#include "bins.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "files.h"
#include "io/record_reader.h"
#include "text.h"

namespace zotuning {
namespace {

using ZO_TUNING::internal::CheckWire;
using ZO_TUNING::internal::ReadStatus;
using ZO_TUNING::internal::RecordReader;
using ZO_TUNING::internal::UniqueFile;

constexpr const char* kForeign = "the bin was packed with another schema, or from another project";
constexpr const char* kForeignHint = "choose the project that it was packed from with -C DIR, or pack it again";

/// What a file that is no bin is instead, as far as its first bytes tell; "" for others.
std::string OtherKind(std::FILE* file, uint64_t size) {
  char head[64] = {};
  rewind(file);
  const size_t count = std::fread(head, 1, sizeof(head), file);
  size_t at = 0;
  while (at < count && (head[at] == ' ' || head[at] == '\t' || head[at] == '\r' || head[at] == '\n')) ++at;
  if (size == 0) return "the file is empty";
  if (at < count && (head[at] == '{' || head[at] == '[') && (at + 1 == size || head[at + 1] != '\0')) {
    return "this is a JSON file, not a bin";
  }
  // The count of versions is no text.
  const auto is_text = [](char c) { return c == '\t' || c == '\r' || c == '\n' || (c >= ' ' && c <= '~'); };
  if (count >= 4 && std::all_of(head, head + count, is_text)) return "this is a text file, not a bin";
  // One length, and a message of just that length; a bin of one version at least has another length after the first.
  rewind(file);
  int32_t length = 0;
  RecordReader reader(file);
  if (reader.ReadInt32(&length) == ReadStatus::kOk && length > 0 && static_cast<uint64_t>(length) + 4 == size) {
    return "this looks like the configuration of a project (ProjConf.bin), not like a tuning bin";
  }
  return "";
}

/// Whether bytes that are no message of the type that they should be are one of another.
bool IsOtherMessage(std::FILE* file, const BinFault& fault) {
  if (fault.length < 0 || fseeko(file, static_cast<off_t>(fault.offset), SEEK_SET) != 0) return false;
  RecordReader reader(file);
  return CheckWire(reader, fault.length, nullptr) == ZO_TUNING::internal::WireVerdict::kMessage;
}

/// Whether the lengths in a bin lead to its end, whatever the messages are.
bool IsWhole(std::FILE* file, uint64_t size) {
  rewind(file);
  RecordReader reader(file);
  int32_t count = 0;
  if (reader.ReadInt32(&count) != ReadStatus::kOk || count < 0) return false;
  std::string_view bytes;
  for (uint64_t items = 0; reader.offset() < size; ++items) {
    int32_t length = 0;
    if (reader.ReadInt32(&length) != ReadStatus::kOk || reader.ReadBytes(length, &bytes) != ReadStatus::kOk)
      return false;
    // Labels and modules come in pairs.
    if (reader.offset() == size)
      return items + 1 >= static_cast<uint64_t>(count) && (items + 1 - static_cast<uint64_t>(count)) % 2 == 0;
  }
  return count == 0;
}

/// Standard input as a file, which can be read more than once.
UniqueFile OpenStandardInput(DiagnosticSink& sink) {
  UniqueFile file(std::tmpfile());
  bool good = file != nullptr;
  for (char buffer[1 << 13]; good;) {
    const ssize_t count = read(STDIN_FILENO, buffer, sizeof(buffer));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      ReportSystemError("read", "standard input", errno, sink);
      return nullptr;
    }
    if (count == 0) break;
    good = std::fwrite(buffer, 1, static_cast<size_t>(count), file.get()) == static_cast<size_t>(count);
  }
  if (!good || std::fflush(file.get()) != 0) {
    ReportSystemError("write", "a temporary file", errno, sink);
    return nullptr;
  }
  std::rewind(file.get());
  return file;
}

}  // namespace

std::string ShownBin(const std::string& path) { return path == kStandardInput ? "standard input" : DisplayPath(path); }

UniqueFile OpenBin(const std::string& path, DiagnosticSink& sink) {
  if (path == kStandardInput) return OpenStandardInput(sink);
  if (!RefuseSpecialFile(path, sink)) return nullptr;
  UniqueFile file(std::fopen(path.c_str(), "rb"));
  struct stat info;
  int error = 0;
  if (file == nullptr || fstat(fileno(file.get()), &info) != 0) {
    error = errno;
  } else if (!S_ISREG(info.st_mode)) {
    error = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
  }
  if (error == 0) return file;
  ReportSystemError("read", path, error, sink);
  return nullptr;
}

Code ReportBinFault(const BinFault& fault, std::FILE* file, const std::string& path, DiagnosticSink& sink) {
  const off_t end = file != nullptr && fseeko(file, 0, SEEK_END) == 0 ? ftello(file) : -1;
  if (end >= 0) {
    const auto size = static_cast<uint64_t>(end);
    if (const std::string other = OtherKind(file, size); !other.empty()) {
      sink.Report(Code::kNotABin, other, "name a file that 'zotuning pack' has made", ShownBin(path));
      return Code::kNotABin;
    }
    // Messages that mean something elsewhere, and not bytes that are not one.
    const bool is_message = IsOtherMessage(file, fault);
    if ((is_message || fault.expected.rfind("a label", 0) == 0) && IsWhole(file, size)) {
      sink.Report(
          Code::kForeignBin,
          std::string(is_message ? "the bin was packed with another schema, or its bytes were changed" : kForeign) +
              ": the " + fault.item + " at byte " + std::to_string(fault.offset) + " should be " + fault.expected +
              ", and is " + fault.found,
          kForeignHint, ShownBin(path));
      return Code::kForeignBin;
    }
  }
  sink.Report(Code::kBinDamaged,
              "the bin is damaged at byte " + std::to_string(fault.offset) + ", " + fault.item + ": expected " +
                  fault.expected + ", found " + fault.found,
              "", ShownBin(path));
  return Code::kBinDamaged;
}

Code ReportBinFault(const BinFault& fault, std::string_view bytes, const std::string& path, DiagnosticSink& sink) {
  std::string copy(bytes);
  copy.resize(std::max<size_t>(copy.size(), 1));  // fmemopen takes no empty buffer
  const UniqueFile file(fmemopen(copy.data(), copy.size(), "rb"));
  return ReportBinFault(fault, file.get(), path, sink);
}

void UnknownContent::Look(BinScanner& scanner) {
  const bool is_version = scanner.is_version();
  if (!is_version && scanner.record().type == nullptr) {
    if (++modules_ == 1) {
      first_module_ = scanner.record().index;
      first_values_ = scanner.record().values;
    }
  }
  for (const auto& unknown : scanner.unknown_fields()) {
    const auto known = std::find_if(fields_.begin(), fields_.end(), [&](const Field& f) { return f.field == unknown; });
    if (known != fields_.end()) {
      ++known->others;
    } else if (fields_.size() < ZO_TUNING::internal::kMaxUnknownFields) {
      std::string item = is_version ? "version " + std::to_string(scanner.versions() - 1)
                                    : "record " + std::to_string(scanner.record().index);
      if (!is_version && !scanner.record().module_name.empty()) item += " (" + scanner.record().module_name + ")";
      fields_.push_back({unknown, std::move(item), 0});
    }
  }
}

bool UnknownContent::ReportModules(const Project& project, const std::string& path, DiagnosticSink& sink) const {
  if (modules_ == 0) return true;
  std::string message = std::string(kForeign) + ": record " + std::to_string(first_module_) + " (" +
                        project.LabelText(first_values_) + ")";
  if (modules_ > 1) message += " and " + Count(modules_ - 1, "other record");
  sink.Report(Code::kForeignBin,
              message + (modules_ > 1 ? " are of modules that the schema does not have"
                                      : " is of a module that the schema does not have"),
              kForeignHint, ShownBin(path));
  return false;
}

bool UnknownContent::Report(const Project& project, const std::string& path, DiagnosticSink& sink) const {
  (void)ReportModules(project, path, sink);
  for (const auto& [unknown, item, others] : fields_) {
    const bool is_known = unknown.type->FindFieldByNumber(static_cast<int>(unknown.number)) != nullptr;
    sink.Report(Code::kUnknownField,
                item + " has field " + std::to_string(unknown.number) + " in " + Quoted(unknown.type->full_name()) +
                    (is_known ? " in another form than the schema" : ", which the schema does not know") +
                    (others == 0 ? "" : "; so " + std::string(others == 1 ? "has " : "have ") + Count(others, "other")),
                "the field was removed, renumbered or given another type since the bin was packed; choose the schema "
                "that it was packed with by -C DIR, or pack it again",
                ShownBin(path));
  }
  return !any();
}

}  // namespace zotuning
