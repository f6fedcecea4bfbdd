/// \file
/// The schema of a project, loaded at run time.
#pragma once

#include <google/protobuf/compiler/importer.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/message.h>

#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "io/directory.h"
#include "schema/import_guard.h"
#include "schema/type_levels.h"

namespace ZO_TUNING {
namespace internal {

/// What protobuf reports about a position in a .proto file.
struct SchemaFault {
  std::string file;  ///< relative to the schema's folder
  int line;          ///< from 1; 0 if the fault is not in a particular line
  int column;        ///< from 1, in bytes; 0 as for the line
  bool is_warning;
  std::string message;
};

/// Called before a .proto file is opened: returns the reason to reject it, or "" to open it.
using RefuseFile = std::function<std::string(const std::string& path)>;

/// A "*.proto" entry of the schema's folder.
struct SchemaFile {
  std::string name;
  EntryKind kind;
  bool is_loaded;  ///< whether its types are in the pool
};

enum class TypeStatus {
  kFound,
  kMissing,
  kTooManyLevels,  ///< it has more levels of message types than fit on this thread's stack
};

struct [[nodiscard]] TypeResult {
  TypeStatus status;
  const google::protobuf::Descriptor* type;  ///< null unless found
  std::string qualified_name;                ///< the name looked up, not yet truncated after "LinkKey"
  std::string full_name;                     ///< of the type itself, with kTooManyLevels
  size_t levels;                             ///< of message types from this one down; 0 when missing
};

/// The type with the qualified name `name`, truncated after the first "LinkKey"; null if there is none.
const google::protobuf::Descriptor* FindTypeByName(const google::protobuf::DescriptorPool& pool,
                                                   const std::string& name);

/// Imports every "*.proto" entry of `dir` in directory order, and appends the result of each to `files` unless that is
/// null. A file that cannot be loaded is absent from the pool.
DirectoryResult ImportFiles(const char* dir, google::protobuf::compiler::Importer& importer,
                            std::vector<SchemaFile>* files);

/// Every .proto file of one directory, and the messages made of its types. Without a collector, schema errors are
/// silent: the types affected are not found.
///
/// Descriptors and prototypes belong to the schema. Messages made from it belong to the caller and must be deleted
/// before it; the order of its members takes care of the rest (factory, importer, source tree).
class Schema {
 public:
  /// Loads the files. With `faults`, everything that protobuf reports about any of them is appended to it, with file,
  /// line and column. With `refuse`, no file that it rejects is opened, whether found in the folder or imported by
  /// another; the reason becomes a fault.
  explicit Schema(const std::string& proto_dir, std::vector<SchemaFault>* faults = nullptr, RefuseFile refuse = {});
  Schema(const Schema&) = delete;
  Schema& operator=(const Schema&) = delete;

  /// The type that a short name refers to (package by its first two characters, truncated after "LinkKey").
  TypeResult Find(const std::string& short_name) const;

  /// The same, or null.
  const google::protobuf::Descriptor* FindType(const std::string& short_name) const { return Find(short_name).type; }

  /// Never null for a descriptor of this schema.
  const google::protobuf::Message* Prototype(const google::protobuf::Descriptor* type) {
    return factory_.GetPrototype(type);
  }

  std::unique_ptr<google::protobuf::Message> NewMessage(const google::protobuf::Descriptor* type) {
    return std::unique_ptr<google::protobuf::Message>(Prototype(type)->New());
  }

  const google::protobuf::DescriptorPool& pool() const { return *importer_.pool(); }
  const std::string& proto_dir() const { return source_tree_.dir(); }

  /// Whether the folder could be read, and the result of each "*.proto" entry, in directory order.
  const DirectoryResult& listing() const { return listing_; }
  const std::vector<SchemaFile>& files() const { return files_; }

 private:
  class SourceTree : public google::protobuf::compiler::DiskSourceTree {
   public:
    SourceTree(const std::string& dir, RefuseFile refuse);
    /// Files of the folder itself are read once, and passed to protobuf as they were inspected.
    google::protobuf::io::ZeroCopyInputStream* Open(const std::string& name) override;
    std::string GetLastErrorMessage() override;
    const std::string& dir() const { return dir_; }
    ImportGuard& guard() { return *guard_; }
    void DropGuard() { guard_.reset(); }

   private:
    std::string dir_;
    std::unique_ptr<ImportGuard> guard_;  ///< until everything is imported
    RefuseFile refuse_;
    std::string refusal_;  ///< for the last file asked about
  };

  /// Holds back an exception until the import is over: protobuf is not exception-safe.
  class FaultCollector : public google::protobuf::compiler::MultiFileErrorCollector {
   public:
    void AddError(const std::string& file, int line, int column, const std::string& message) override;
    void AddWarning(const std::string& file, int line, int column, const std::string& message) override;
    /// Appends what was collected to `faults`, or throws what stopped the collecting.
    void Deliver(std::vector<SchemaFault>& faults);

   private:
    void Add(const std::string& file, int line, int column, bool is_warning, const std::string& message) noexcept;

    std::vector<SchemaFault> faults_;
    std::exception_ptr failure_;
  };

  mutable TypeLevels levels_;
  SourceTree source_tree_;
  FaultCollector collector_;
  google::protobuf::compiler::Importer importer_;
  google::protobuf::DynamicMessageFactory factory_;
  DirectoryResult listing_;
  std::vector<SchemaFile> files_;
};

}  // namespace internal
}  // namespace ZO_TUNING
