// Tested by tests/tools/bins_test.cpp.

#include "bins.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "files.h"

namespace zotuning {

using ZO_TUNING::internal::UniqueFile;

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
  sink.Report(Code::kBinDamaged,
              "the bin is damaged at byte " + std::to_string(fault.offset) + ", " + fault.item + ": expected " +
                  fault.expected + ", found " + fault.found,
              "", DisplayPath(path));
}

}  // namespace zotuning
