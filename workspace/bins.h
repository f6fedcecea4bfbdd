/// \file
/// Tuning bins: opening them, and saying what is wrong with them.
#pragma once

#include <string>

#include "bin/bin_scanner.h"
#include "diagnostic.h"
#include "io/unique_file-inl.h"

namespace zotuning {

using ZO_TUNING::internal::BinFault;
using ZO_TUNING::internal::BinItem;
using ZO_TUNING::internal::BinRecord;
using ZO_TUNING::internal::BinScanner;

/// Opens a bin for reading; null after one error, also for special files.
ZO_TUNING::internal::UniqueFile OpenBin(const std::string& path, DiagnosticSink& sink);

/// Reports where the bin at `path` is damaged.
void ReportBinFault(const BinFault& fault, const std::string& path, DiagnosticSink& sink);

}  // namespace zotuning
