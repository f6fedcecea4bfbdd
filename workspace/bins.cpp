// Tested by tests/tools/bins_test.cpp.

#include "bins.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "files.h"
#include "io/record_reader.h"

namespace zotuning {
namespace {

using ZO_TUNING::internal::ReadStatus;
using ZO_TUNING::internal::RecordReader;
using ZO_TUNING::internal::UniqueFile;

/// What a file that is not a bin is instead, judging by its first bytes; "" if unknown.
std::string OtherKind(std::FILE* file, uint64_t size) {
  char head[64] = {};
  rewind(file);
  const size_t count = std::fread(head, 1, sizeof(head), file);
  size_t at = 0;
  while (at < count && (head[at] == ' ' || head[at] == '\t' || head[at] == '\r' || head[at] == '\n')) ++at;
  if (at < count && (head[at] == '{' || head[at] == '[') && (at + 1 == size || head[at + 1] != '\0')) {
    return "this is a JSON file, not a bin";
  }
  // A length, and a message of exactly that length; a bin with a version has another length after the first.
  rewind(file);
  int32_t length = 0;
  RecordReader reader(file);
  if (reader.ReadInt32(&length) == ReadStatus::kOk && length > 0 && static_cast<uint64_t>(length) + 4 == size) {
    return "this looks like the configuration of a project (ProjConf.bin), not like a tuning bin";
  }
  return "";
}

/// Whether the lengths in a bin lead exactly to its end, whatever the messages are.
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

}  // namespace

UniqueFile OpenBin(const std::string& path, DiagnosticSink& sink) {
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

void ReportBinFault(const BinFault& fault, const std::string& path, DiagnosticSink& sink) {
  const UniqueFile file(std::fopen(path.c_str(), "rb"));
  struct stat info;
  if (file != nullptr && fstat(fileno(file.get()), &info) == 0 && S_ISREG(info.st_mode)) {
    const auto size = static_cast<uint64_t>(info.st_size);
    if (const std::string other = OtherKind(file.get(), size); !other.empty()) {
      sink.Report(Code::kNotABin, other, "give a file that 'zotuning pack' has made", DisplayPath(path));
      return;
    }
    // Labels that belong to another project, rather than bytes that are not a message.
    const bool unknown = fault.expected.rfind("a label", 0) == 0 || fault.expected.rfind("a module", 0) == 0;
    if (unknown && IsWhole(file.get(), size)) {
      sink.Report(Code::kForeignBin,
                  "the bin was packed with another schema, or from another project: the " + fault.item + " at byte " +
                      std::to_string(fault.offset) + " should be " + fault.expected + ", and is " + fault.found,
                  "choose the project that it was packed from with -C DIR, or pack it again", DisplayPath(path));
      return;
    }
  }
  sink.Report(Code::kBinDamaged,
              "the bin is damaged at byte " + std::to_string(fault.offset) + ", " + fault.item + ": expected " +
                  fault.expected + ", found " + fault.found,
              "", DisplayPath(path));
}

}  // namespace zotuning
