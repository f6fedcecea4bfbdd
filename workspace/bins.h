/// \file
/// Tuning bins: opening them, saying what is wrong with them, and comparing two of them record by record.
#pragma once

#include <string>
#include <vector>

#include "bin/bin_scanner.h"
#include "diagnostic.h"
#include "io/unique_file-inl.h"
#include "message_text.h"
#include "project.h"

namespace zotuning {

using ZO_TUNING::internal::BinFault;
using ZO_TUNING::internal::BinItem;
using ZO_TUNING::internal::BinRecord;
using ZO_TUNING::internal::BinScanner;

/// Opens a bin for reading; null after one error, special files among the reasons.
ZO_TUNING::internal::UniqueFile OpenBin(const std::string& path, DiagnosticSink& sink);

/// Reports where the bin at `path` breaks.
void ReportBinFault(const BinFault& fault, const std::string& path, DiagnosticSink& sink);

/// What one of two bins has, and the other lacks or holds otherwise.
struct BinDifference {
  enum class Kind { kMissing, kExtra, kChanged };
  Kind kind;
  std::string version;                       ///< a version in one line; "" for a record
  std::vector<int> values;                   ///< the labels of a record
  size_t count = 0;                          ///< of the fields that differ; 0 when only the bytes do
  std::vector<FieldDifference> fields = {};  ///< the first of them; left is the bin
};

struct BinComparison {
  size_t same = 0;  ///< records
  std::vector<BinDifference> differences;
};

/// Compares the bin at `path` with the one at `wanted_path`, what it should be. Records are paired by their labels,
/// whatever their order. False after an error when they cannot be compared.
bool CompareBins(Project& project, const std::string& path, const std::string& wanted_path, size_t max_fields,
                 BinComparison& comparison, DiagnosticSink& sink);

}  // namespace zotuning
