/// \file
/// The page of a report: one self-contained HTML file.
#pragma once

#include <string>

#include "workspace/report_data.h"

namespace zotuning {

/// Code and style of the page, made from web/report when the tool is built. Empty if esbuild or uPlot was missing.
struct ReportAssets {
  const char* script;
  const char* style;
  const char* script_sha256;  ///< in hexadecimal digits
  const char* style_sha256;
};
extern const ReportAssets kReportAssets;

/// Whether this program was built with the page.
bool HasReportPage();

/// The page with the data in it. Its security policy allows only what was built in.
std::string ReportPage(const ReportData& data);

}  // namespace zotuning
