/// \file
/// What a report page shows, as blocks of text to be put into it: settings with their values, rules and comments, and
/// what differs from another side. web/report/data.js reads them.
///
/// Block 0 is JSON with everything but values; docs/report.md names its keys. A layout is what settings of one shape
/// have in common: a list of nodes, each with its path. The block of a layout has a column for each of its scalars,
/// with one value for each of its settings; the block of a setting has its differences (their size as u32, and JSON),
/// then a column for each list and table.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "workspace/diagnostic.h"
#include "workspace/sides.h"

namespace zotuning {

struct ReportData {
  std::vector<std::string> blocks;  ///< as PackedText makes them
  size_t settings = 0;
  size_t different = 0;  ///< settings that differ from the other side, or are on one side only
  size_t outside = 0;    ///< values that are outside their rule
};

/// Makes the data of the settings of `sides`, compared with `against` unless that is null. Settings that only the other
/// side has are included. False after errors; what could be read is in the data.
bool MakeReportData(const std::vector<Side*>& sides, Side* against, const CompareSidesOptions& options,
                    ReportData& data, DiagnosticSink& sink);

}  // namespace zotuning
