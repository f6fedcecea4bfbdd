/// \file
/// Tuning bins: opening them, and saying what is wrong with them.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "bin/bin_scanner.h"
#include "diagnostic.h"
#include "io/unique_file-inl.h"
#include "project.h"

namespace zotuning {

using ZO_TUNING::internal::BinFault;
using ZO_TUNING::internal::BinItem;
using ZO_TUNING::internal::BinRecord;
using ZO_TUNING::internal::BinScanner;

/// What stands for standard input.
constexpr const char* kStandardInput = "-";

/// Opens a bin for reading, "-" for the one on standard input; null after one error, special files among the reasons.
ZO_TUNING::internal::UniqueFile OpenBin(const std::string& path, DiagnosticSink& sink);

/// The path of a bin for people.
std::string ShownBin(const std::string& path);

/// Reports what is wrong with the bin in `file`, which is called `path`: kBinDamaged, or what the file is instead.
/// Returns the code.
Code ReportBinFault(const BinFault& fault, std::FILE* file, const std::string& path, DiagnosticSink& sink);
/// The same of a bin in memory.
Code ReportBinFault(const BinFault& fault, std::string_view bytes, const std::string& path, DiagnosticSink& sink);

/// What a bin holds that the schema does not know, collected on the way through it.
class UnknownContent {
 public:
  /// Looks at what the scanner's last step came to.
  void Look(BinScanner& scanner);

  bool any() const { return modules_ > 0 || !fields_.empty(); }

  /// Reports the modules, in one error. False when there are any.
  bool ReportModules(const Project& project, const std::string& path, DiagnosticSink& sink) const;

  /// Reports modules, and fields in one error for each number of a type. False when there are any.
  bool Report(const Project& project, const std::string& path, DiagnosticSink& sink) const;

 private:
  struct Field {
    ZO_TUNING::internal::UnknownField field;
    std::string item;  ///< the first that has it
    size_t others;
  };

  size_t modules_ = 0;
  size_t first_module_ = 0;  ///< the number of its record
  std::vector<int> first_values_;
  std::vector<Field> fields_;
};

}  // namespace zotuning
