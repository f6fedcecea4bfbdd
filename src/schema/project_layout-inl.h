/// \file
/// The paths of a project's files. See docs/project-directory.md.
#pragma once

#include <string>
#include <utility>

namespace ZO_TUNING {
namespace internal {

/// The scope of the default data, its folder and its bin; every other scope is a sensor.
inline constexpr const char* kDefaultScope = "default";

/// The folder of version files, in the schema's folder and in that of every sensor. Never searched for settings.
inline constexpr const char* kVersionFolder = "version";

inline constexpr const char* kJsonSuffix = ".json";

inline std::string JoinPath(const std::string& dir, const std::string& name) { return dir + "/" + name; }

/// The paths of one project. Joined with "/" and not normalised; nothing is looked up on disk.
class ProjectLayout {
 public:
  explicit ProjectLayout(std::string proj_dir) : dir_(std::move(proj_dir)) {}

  const std::string& dir() const { return dir_; }
  std::string ConfigPath() const { return JoinPath(dir_, "ProjConf.bin"); }
  std::string ProtoDir() const { return JoinPath(dir_, "proto"); }

  /// The data of a scope: kDefaultScope or a sensor.
  std::string ScopeDir(const std::string& scope) const { return JoinPath(dir_, scope); }
  std::string DefaultDir() const { return ScopeDir(kDefaultScope); }
  std::string DefaultPath(const std::string& module) const { return JoinPath(DefaultDir(), module + kJsonSuffix); }

  /// The version files of a scope; those of the default scope are beside the schema.
  std::string ScopeVersionDir(const std::string& scope) const {
    return VersionDir(scope == kDefaultScope ? ProtoDir() : ScopeDir(scope));
  }
  std::string HeaderPath() const { return HeaderPath(ProtoDir()); }

  /// The version files in a schema's or a sensor's folder.
  static std::string VersionDir(const std::string& dir) { return JoinPath(dir, kVersionFolder); }

  /// The version header that belongs to a schema's folder.
  static std::string HeaderPath(const std::string& proto_dir) { return proto_dir + "/../src/ZoTuningVersion.h"; }

  /// The empty file that keeps an empty folder in version control.
  static std::string KeepPath(const std::string& dir) { return JoinPath(dir, ".gitkeep"); }

 private:
  std::string dir_;
};

}  // namespace internal
}  // namespace ZO_TUNING
