/// \file
/// Updating the JSON files of a project to a changed schema, text-preserving.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "workspace/change_set.h"
#include "workspace/diagnostic.h"
#include "workspace/project.h"

namespace zotuning {

struct MigrateOptions {
  /// "AfLens.backlash_codes=backlash": type, by its short or full name, old and new field.
  std::vector<std::string> renames;
  /// "AfLens.backlash_codes": keys that were really removed, whatever the old schema suggests.
  std::vector<std::string> drops;
  /// "OldModule=NewModule"
  std::vector<std::string> module_renames;
  /// "scenario.Video=Movie"
  std::vector<std::string> label_renames;
  /// Replace all rules by those of the template.
  bool rules = false;
  /// The revision that the files fit. "" for that before the schema's last change, HEAD or older, where there is one.
  std::string since;
};

/// The changes to one file. Paths within it are those of its old text.
struct MigratedFile {
  std::string path;
  std::string old_path;
  std::vector<std::string> added;
  std::vector<std::string> renamed;  ///< "lens.backlash_codes -> backlash", and values of enums
  std::vector<std::string> moved;    ///< values that went into their data type, or out of it
  std::vector<std::string> dropped;
  std::vector<std::string> rules;  ///< parts of rules replaced by those of the template
};

struct Migration {
  std::vector<MigratedFile> files;  ///< those that change
  ChangeSet changes;
  bool left = false;        ///< whether there are files that match no module or label of the schema
  std::string report_path;  ///< the file with what is dropped; "" if nothing is
  bool misuse = false;      ///< options that do not apply; set with an error
};

/// The file below the project's folder that collects what migrations drop.
inline constexpr const char* kMigrationReport = "migrate.rej.json";

/// Determines what must change so that defaults and settings fit the project's schema. Missing fields are added, in
/// settings from the migrated default if that has them; keys that the schema does not have go to the report. Each
/// resulting text is checked against its type. False after errors: `migration` must then not be applied.
bool PlanMigration(Project& project, const MigrateOptions& options, Migration& migration, DiagnosticSink& sink);

}  // namespace zotuning
