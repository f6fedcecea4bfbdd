/// \file
/// Makes tuning projects of any size for the benchmarks: schema, defaults, sensors with settings, versions and
/// configuration, always the same for the same seed. The JSON looks like the library's own templates, with values like
/// those of examples/tuning_project.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zotuning_bench {

/// The shape of a project. The schema is the same for all except for the field numbers.
struct ProjectShape {
  std::string name;
  std::string description;
  size_t file_count = 0;            ///< JSON files of the defaults and settings together
  double table_scale = 1;           ///< factor on the number of elements of every large table
  bool shuffled_numbers = false;    ///< field numbers do not follow the declaration order
  bool large_modules_only = false;  ///< settings are those of modules with tables; defaults are of all modules
  bool unsupported_end = false;     ///< every file has a trailing comma before its last brace
  uint32_t seed = 1;
};

/// The measured shapes, by name: "a" to "d", "a-fallback" to "d-fallback", and "growth-N" for about N megabytes. Throws
/// std::invalid_argument for another name.
ProjectShape ShapeByName(const std::string& name);

/// Makes the project at `dir`, which must not exist. Throws std::runtime_error if something cannot be written. Returns
/// the number of bytes of JSON.
size_t GenerateProject(const ProjectShape& shape, const std::string& dir);

}  // namespace zotuning_bench
