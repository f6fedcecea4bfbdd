// Tested by tests/workspace/report_test.cpp, and in a browser by scripts/checks/report.

#include "workspace/report_page.h"

#include <google/protobuf/stubs/strutil.h>

#include <cstdlib>
#include <string_view>

namespace zotuning {
namespace {

/// A hash in the form of a security policy.
std::string PolicyHash(std::string_view hex) {
  std::string bytes, text;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes += static_cast<char>(std::strtoul(std::string(hex.substr(i, 2)).c_str(), nullptr, 16));
  }
  google::protobuf::Base64Escape(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()),
                                 &text, true);
  return "'sha256-" + text + "'";
}

void AppendBlock(const ReportData& data, size_t index, std::string& page) {
  page += "<script type=\"application/octet-stream\" id=\"d" + std::to_string(index) + "\">";
  page += data.blocks[index];
  page += "</script>\n";
}

}  // namespace

bool HasReportPage() { return *kReportAssets.script != '\0'; }

std::string ReportPage(const ReportData& data) {
  const ReportAssets& assets = kReportAssets;
  size_t size = 0;
  for (const std::string& block : data.blocks) size += block.size() + 100;
  std::string page;
  page.reserve(size + std::string_view(assets.script).size() + std::string_view(assets.style).size() + 2000);
  page += "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n";
  page += "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; script-src " +
          PolicyHash(assets.script_sha256) + "; style-src " + PolicyHash(assets.style_sha256) +
          "; base-uri 'none'; form-action 'none'\">\n";
  page += "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>Tuning report</title>\n";
  page += "<style>";
  page += assets.style;
  page += "</style>\n</head>\n<body>\n<div id=\"app\"><noscript>This report needs JavaScript.</noscript></div>\n";
  // The first screen needs only the first block.
  AppendBlock(data, 0, page);
  page += "<script>";
  page += assets.script;
  page += "</script>\n";
  for (size_t i = 1; i < data.blocks.size(); ++i) AppendBlock(data, i, page);
  page += "</body>\n</html>\n";
  return page;
}

}  // namespace zotuning
