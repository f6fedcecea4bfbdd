/// \file
/// Bodies of the public functions around the version header: PARSE_VERSION_FROM_STR, HEADER_FILE_TO_STR,
/// CONSIST_VERSION_TO_STR and STR_TO_HEADER_FILE. Contracts: ZoTuningUtils.h.
#pragma once

#include <sched.h>
#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "api/border-inl.h"
#include "io/text_file-inl.h"
#include "version/version_text-inl.h"

namespace ZO_TUNING {
namespace internal {
namespace api {

inline bool PARSE_VERSION_FROM_STR(const std::string& json, std::vector<std::string>& versions) {
  const VersionScan scan = ScanVersionText(json);
  switch (scan.status) {
    case ScanStatus::kOk:
      break;
    case ScanStatus::kNoMemory:
      TuningLog(kLogError, __LINE__, __func__, "[Error] Failed to malloc buffer");
      return false;
    case ScanStatus::kNoKey:
      TuningLog(kLogError, __LINE__, __func__, "Error to find the specific string");
      return false;
  }
  for (const ScannedText* value : {&scan.name, &scan.version}) {
    // Exact text and priority; the normal end of every value.
    if (value->is_closed) TuningLog(kLogError, __LINE__, __func__, "Stop Parsing");
    versions.push_back(value->text);
  }
  return true;
}

inline bool HEADER_FILE_TO_STR(const std::string& path, std::string& text) {
  std::ifstream file(path);
  if (!file.is_open()) {
    // Exact text, though the file is a header.
    TuningLog(kLogError, __LINE__, __func__, "Fail to read json file: %s", path.c_str());
    return false;
  }
  // Otherwise the stream swallows a lack of memory.
  file.exceptions(std::ios::badbit);
  try {
    AppendKeptLines(file, text);
  } catch (const std::ios::failure&) {
    // A header that cannot be read to its end counts as far as it was read.
  }
  return true;
}

inline bool CONSIST_VERSION_TO_STR(std::string& text, const std::vector<std::string>& versions) {
  if (text.empty() || versions.empty()) {
    TuningLog(kLogError, __LINE__, __func__, "[Error] The string input OR version string is empty");
    return false;
  }
  text += VersionBlock(versions);
  return true;
}

inline bool STR_TO_HEADER_FILE(const std::string& path, const std::string& text) {
  struct stat info;
  while (stat(path.c_str(), &info) != 0) {
    // Exact text; the test contradicts it, and callers rely on that.
    TuningLog(kLogError, __LINE__, __func__, "[Warning] the file is existed, remove it automatically.");
    (void)std::remove(path.c_str());
    sched_yield();
  }
  WriteTextFile(path, text);
  return true;
}

}  // namespace api
}  // namespace internal

// The published signatures take most of these by value.
// NOLINTBEGIN(performance-unnecessary-value-param)

inline bool PARSE_VERSION_FROM_STR(std::string json, std::vector<std::string>& versions) {
  return internal::AtBorder(__LINE__, __func__, [&] { return internal::api::PARSE_VERSION_FROM_STR(json, versions); });
}

inline bool HEADER_FILE_TO_STR(std::string path, std::string& text) {
  return internal::AtBorder(__LINE__, __func__, [&] { return internal::api::HEADER_FILE_TO_STR(path, text); });
}

inline bool CONSIST_VERSION_TO_STR(std::string& text, std::vector<std::string> versions) {
  return internal::AtBorder(__LINE__, __func__, [&] { return internal::api::CONSIST_VERSION_TO_STR(text, versions); });
}

inline bool STR_TO_HEADER_FILE(std::string path, std::string& text) {
  return internal::AtBorder(__LINE__, __func__, [&] { return internal::api::STR_TO_HEADER_FILE(path, text); });
}

// NOLINTEND(performance-unnecessary-value-param)

}  // namespace ZO_TUNING
