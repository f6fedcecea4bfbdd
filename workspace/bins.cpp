// Tested by tests/tools/bins_test.cpp.

#include "bins.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <map>

#include "files.h"

namespace zotuning {
namespace {

using ZO_TUNING::internal::UniqueFile;

/// Where the records of a bin are, by their labels. Several with the same labels are in file order.
struct BinIndex {
  UniqueFile file;
  std::map<std::vector<int>, std::vector<uint64_t>> records;
  std::vector<std::string> versions;  ///< in one line each, sorted
};

bool ReadIndex(Project& project, const std::string& path, BinIndex& index, DiagnosticSink& sink) {
  index.file = OpenBin(path, sink);
  if (index.file == nullptr) return false;
  BinScanner scanner(index.file.get(), project.schema(), project.labels());
  while (scanner.Next()) {
    if (scanner.is_version()) {
      std::string text = MessageText(*scanner.version().message);
      std::replace(text.begin(), text.end(), '\n', ' ');
      index.versions.push_back(std::move(text));
    } else {
      index.records[scanner.record().values].push_back(scanner.record().label.offset);
    }
  }
  std::sort(index.versions.begin(), index.versions.end());
  if (scanner.fault() == nullptr) return true;
  ReportBinFault(*scanner.fault(), path, sink);
  return false;
}

/// What is in `a` and not in `b`, both sorted.
std::vector<std::string> OnlyIn(const std::vector<std::string>& a, const std::vector<std::string>& b) {
  std::vector<std::string> only;
  std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(only));
  return only;
}

bool ReadRecord(Project& project, const BinIndex& index, uint64_t offset, const std::string& path, BinRecord& record,
                DiagnosticSink& sink) {
  if (ZO_TUNING::internal::ReadRecordAt(index.file.get(), offset, project.schema(), project.labels(), record)) {
    return true;
  }
  sink.Report(Code::kIo, "the bin changed while it was read", "", DisplayPath(path));
  return false;
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
  sink.Report(Code::kBinDamaged,
              "the bin is damaged at byte " + std::to_string(fault.offset) + ", " + fault.item + ": expected " +
                  fault.expected + ", found " + fault.found,
              "", DisplayPath(path));
}

bool CompareBins(Project& project, const std::string& path, const std::string& wanted_path, size_t max_fields,
                 BinComparison& comparison, DiagnosticSink& sink) {
  using Kind = BinDifference::Kind;
  BinIndex bin, wanted;
  if (!ReadIndex(project, wanted_path, wanted, sink) || !ReadIndex(project, path, bin, sink)) return false;
  std::vector<BinDifference>& differences = comparison.differences;
  for (std::string& version : OnlyIn(wanted.versions, bin.versions)) {
    differences.push_back({Kind::kMissing, std::move(version), {}});
  }
  for (std::string& version : OnlyIn(bin.versions, wanted.versions)) {
    differences.push_back({Kind::kExtra, std::move(version), {}});
  }
  for (const auto& [values, offsets] : wanted.records) {
    const std::vector<uint64_t>& found = bin.records[values];
    for (size_t i = 0; i < std::max(offsets.size(), found.size()); ++i) {
      if (i >= found.size() || i >= offsets.size()) {
        differences.push_back({i >= found.size() ? Kind::kMissing : Kind::kExtra, "", values});
        continue;
      }
      BinRecord is, should_be;
      if (!ReadRecord(project, bin, found[i], path, is, sink) ||
          !ReadRecord(project, wanted, offsets[i], wanted_path, should_be, sink)) {
        return false;
      }
      BinDifference difference{Kind::kChanged, "", values};
      if (SameMessages(*is.module.message, *should_be.module.message, max_fields, difference.fields,
                       difference.count)) {
        ++comparison.same;
      } else {
        differences.push_back(std::move(difference));
      }
    }
  }
  for (const auto& [values, offsets] : bin.records) {
    if (wanted.records.count(values) != 0) continue;
    for (size_t i = 0; i < offsets.size(); ++i) differences.push_back({Kind::kExtra, "", values});
  }
  return true;
}

}  // namespace zotuning
