/// \file
/// What a project's operations start from: its name, sensors and labels.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "schema/schema.h"

namespace ZO_TUNING {
namespace internal {

/// The outputs of GetProjectConfig.
struct ProjectConfig {
  std::string name;
  std::vector<std::string> sensor_names;
  std::vector<std::string> label_names;
  std::map<std::string, std::map<int, std::string>> label_map;
};

/// ZoTuningUtils::GetProjectConfig, under whose name it logs, with a schema that the caller has loaded from
/// proj_dir/proto.
bool LoadProjectConfig(const std::string& proj_dir, Schema& schema, ProjectConfig& config);

}  // namespace internal
}  // namespace ZO_TUNING
