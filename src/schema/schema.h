/// \file
/// The schema of a project, loaded at run time.
#pragma once

#include <google/protobuf/compiler/importer.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/message.h>

#include <memory>
#include <string>

#include "schema/type_levels.h"

namespace ZO_TUNING {
namespace internal {

/// Every .proto file of one directory, and the messages made of its types. Each operation makes one on its stack;
/// nothing is kept between calls. Schema errors are silent: the types that they spoil are not found.
///
/// Descriptors and prototypes belong to the schema. Messages made from it belong to the caller and have to be deleted
/// before it goes; the order of its members takes care of the rest (factory, importer, source tree).
class Schema {
 public:
  explicit Schema(const std::string& proto_dir);
  Schema(const Schema&) = delete;
  Schema& operator=(const Schema&) = delete;

  /// The type that a short name stands for (package by its first two characters, cut at "LinkKey"). Null after the
  /// error line of GetDescByClassName, and after one of its own when the type holds so many levels of other types that
  /// this thread's stack cannot hold the calls of protobuf for all of them.
  const google::protobuf::Descriptor* FindType(const std::string& short_name) const;

  /// Never null for a descriptor of this schema.
  const google::protobuf::Message* Prototype(const google::protobuf::Descriptor* type);

  std::unique_ptr<google::protobuf::Message> NewMessage(const google::protobuf::Descriptor* type) {
    return std::unique_ptr<google::protobuf::Message>(Prototype(type)->New());
  }

 private:
  mutable TypeLevels levels_;
  google::protobuf::compiler::DiskSourceTree source_tree_;
  google::protobuf::compiler::Importer importer_;
  google::protobuf::DynamicMessageFactory factory_;
};

}  // namespace internal
}  // namespace ZO_TUNING
