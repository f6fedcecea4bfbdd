/// \file
/// Inspects .proto files before protobuf's parser, which recurses through nesting and imports without a limit.
#pragma once

#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace ZO_TUNING {
namespace internal {

/// Inspects the files of one schema folder, each at most once.
class ImportGuard {
 public:
  /// If the folder is "", only files that are added are known.
  explicit ImportGuard(std::string dir) : dir_(std::move(dir)) {}

  void Add(const std::string& name, std::string text);

  /// Why the file and everything it imports must not be imported on this thread's stack; "" if it may be. A file that
  /// cannot be read imports nothing here: protobuf reports it itself.
  std::string Refusal(const std::string& name);

  /// The text of an inspected file; null if it could not be read. Valid as long as the guard.
  const std::string* Text(const std::string& name);

 private:
  struct File {
    std::string text;
    bool is_read = false;
    bool is_too_large = false;
    size_t nesting = 0;  ///< brackets that are open at once
    std::vector<std::string> imports;
  };

  const File* Look(const std::string& name);
  static void Read(const std::string& path, File& file);
  static void Scan(File& file);

  std::string dir_;
  std::unordered_map<std::string, File> files_;
  std::unordered_map<const File*, size_t> chains_;
};

}  // namespace internal
}  // namespace ZO_TUNING
