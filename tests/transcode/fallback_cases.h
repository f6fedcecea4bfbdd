/// \file
/// The texts of fallback_cases.txt.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "support/files.h"

namespace zotest {

struct FallbackCase {
  std::string text;
  bool fast;  ///< whether it takes the fast path
};

inline std::vector<FallbackCase> FallbackCases() {
  std::istringstream lines(Read(ZOTUNING_SOURCE_DIR "/tests/transcode/fallback_cases.txt"));
  std::vector<FallbackCase> cases;
  for (std::string line; std::getline(lines, line);) {
    if (line[0] == '#') continue;
    const bool fast = line.compare(0, 5, "fast ") == 0;
    std::string text;
    for (size_t i = fast ? 5 : 0; i < line.size(); ++i) {
      const bool byte = line[i] == '<' && line.find('>', i) == i + 3;
      text += byte ? static_cast<char>(std::stoi(line.substr(i + 1, 2), nullptr, 16)) : line[i];
      if (byte) i += 3;
    }
    cases.push_back({text, fast});
  }
  return cases;
}

}  // namespace zotest
