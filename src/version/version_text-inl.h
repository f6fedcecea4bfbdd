/// \file
/// The plain text scan of version files, and the text of the version header. Formats: docs/versions.md.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <istream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace ZO_TUNING {
namespace internal {

/// A value longer than this less one byte is truncated.
inline constexpr size_t kVersionBufferSize = 1024;
/// In the last line of a version header that its authors own.
inline constexpr const char* kVersionMarker = "[3AProto]";

enum class ScanStatus {
  kOk,
  kNoMemory,
  kNoKey,  ///< the text has no "name" or no "version" in double quotes
};

/// A value that the scan found.
struct ScannedText {
  std::string text;
  bool is_closed = false;  ///< whether the closing double quote was found
};

struct [[nodiscard]] VersionScan {
  ScanStatus status = ScanStatus::kOk;
  ScannedText name;
  ScannedText version;
};

/// The text between the first two double quotes after `begin`, truncated to fit `buffer` and at a zero byte.
inline ScannedText ScanQuotedText(const std::string& text, size_t begin, char* buffer) {
  std::memset(buffer, 0, kVersionBufferSize);
  const size_t open = text.find('"', begin);
  if (open == std::string::npos) return {};
  const size_t close = text.find('"', open + 1);
  const size_t end = close == std::string::npos ? text.size() : close;
  const size_t length = std::min(end - open - 1, kVersionBufferSize - 1);
  std::memcpy(buffer, text.data() + open + 1, length);
  return {buffer, close != std::string::npos};
}

/// Finds the name and the version in the text of a version file. A plain text scan, not a JSON parse: see
/// docs/versions.md for what it misreads.
inline VersionScan ScanVersionText(const std::string& json) {
  static constexpr char kNameKey[] = "\"name\"";
  static constexpr char kVersionKey[] = "\"version\"";
  const size_t name_at = json.find(kNameKey);
  const size_t version_at = json.find(kVersionKey);
  const std::unique_ptr<char, decltype(&std::free)> buffer(static_cast<char*>(std::calloc(1, kVersionBufferSize)),
                                                           &std::free);
  VersionScan scan;
  if (buffer == nullptr) {
    scan.status = ScanStatus::kNoMemory;
  } else if (name_at == std::string::npos || version_at == std::string::npos) {
    scan.status = ScanStatus::kNoKey;
  } else {
    scan.name = ScanQuotedText(json, name_at + std::strlen(kNameKey), buffer.get());
    scan.version = ScanQuotedText(json, version_at + std::strlen(kVersionKey), buffer.get());
  }
  return scan;
}

/// Appends the lines of a version header up to and including the first one with the marker; every line then ends in a
/// line feed. If the stream throws, the lines read so far are complete.
inline void AppendKeptLines(std::istream& header, std::string& text) {
  for (std::string line; std::getline(header, line);) {
    text += line;
    text += '\n';
    if (line.find(kVersionMarker) != std::string::npos) break;
  }
}

/// The #define block of `versions`: name, version, name, version, ...; a missing last version reads as empty.
inline std::string VersionBlock(const std::vector<std::string>& versions) {
  std::string block;
  int pairs = 0;
  for (size_t i = 0; i < versions.size(); i += 2) {
    const std::string macro = "#define VERSION" + std::to_string(++pairs) + "_";
    block += macro + "NAME \"" + versions[i] + "\"\n";
    block += macro + "VAL \"" + (i + 1 < versions.size() ? versions[i + 1] : "") + "\"\n";
  }
  return block + "#define VERSION_NUM " + std::to_string(pairs) + "\n";
}

/// The part of a version header that its authors own; without a marker, all of it.
inline std::string KeptHeader(const std::string& header) {
  std::istringstream stream(header);
  std::string kept;
  AppendKeptLines(stream, kept);
  return kept;
}

/// The new text of the version header `header`. "" if there is nothing to write: the header is empty, or there is no
/// version.
inline std::string NewHeader(const std::string& header, const std::vector<std::string>& versions) {
  const std::string kept = KeptHeader(header);
  return kept.empty() || versions.empty() ? std::string() : kept + VersionBlock(versions);
}

}  // namespace internal
}  // namespace ZO_TUNING
