/// \file
/// What fields were called before, by the history of the schema.
#pragma once

#include <google/protobuf/descriptor.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "workspace/schema_revision.h"

namespace zotuning {

/// A field that an earlier schema has.
struct OldField {
  std::string name_now;  ///< of the field with its number and no name of then; "" when it was removed
  std::string revision;  ///< as git knows it
};

/// Looks at HEAD and before the last changes of the schema. Without git, and outside of a repository, there is nothing
/// to be found.
class OldNames {
 public:
  /// git is asked with the first Find.
  explicit OldNames(std::string proto_dir) : proto_dir_(std::move(proto_dir)) {}

  /// The field `name` of an earlier form of `type`, which does not have it now.
  std::optional<OldField> Find(const google::protobuf::Descriptor& type, const std::string& name);

 private:
  struct Revision {
    std::string name;
    std::unique_ptr<SchemaRevision> schema;  ///< null until it is looked at, and where it cannot be read
    bool is_loaded = false;
  };

  std::string proto_dir_;
  bool is_listed_ = false;
  std::vector<Revision> revisions_;  ///< newest first
};

}  // namespace zotuning
