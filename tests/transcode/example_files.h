/// \file
/// The example project as JSON texts with their types.
#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "schema/schema.h"
#include "support/files.h"

namespace zotest {

struct ExampleFiles {
  ZO_TUNING::internal::Schema schema{ZOTUNING_SOURCE_DIR "/examples/tuning_project/proto"};
  std::vector<std::pair<const google::protobuf::Descriptor*, std::string>> texts;  ///< of all defaults and settings

  ExampleFiles() {
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(ZOTUNING_SOURCE_DIR "/examples/tuning_project")) {
      const std::filesystem::path& path = entry.path();
      if (path.extension() != ".json" || path.parent_path().filename() == "version") continue;
      texts.emplace_back(schema.Find(path.stem().string()).type, Read(path.string()));
    }
  }
};

}  // namespace zotest
