/// \file
/// The schema of a project at a git revision.
#pragma once

#include <google/protobuf/compiler/importer.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/dynamic_message.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "schema/type_levels.h"
#include "workspace/diagnostic.h"

namespace zotuning {

/// Owns its descriptors.
class SchemaRevision {
 public:
  /// Reads the .proto files that were in `proto_dir` at `revision`. Null after errors, from git or in the files.
  static std::unique_ptr<SchemaRevision> Load(const std::string& proto_dir, const std::string& revision,
                                              DiagnosticSink& sink);

  /// From texts by file name. Null after errors, in whose file names `prefix` comes first.
  static std::unique_ptr<SchemaRevision> FromTexts(std::map<std::string, std::string> texts, const std::string& prefix,
                                                   DiagnosticSink& sink);

  /// The message type that a short name refers to, as in Schema::FindType; null if there is none, or if it is too deep
  /// for this thread's stack.
  const google::protobuf::Descriptor* FindType(const std::string& short_name) const;

  /// The message type of a full name, for its fields alone; null when there is none.
  const google::protobuf::Descriptor* FindFullName(const std::string& name) const {
    return importer_.pool()->FindMessageTypeByName(name);
  }

  /// The template of a type; "" when it cannot be printed.
  std::string Template(const google::protobuf::Descriptor* type);

 private:
  class SourceTree : public google::protobuf::compiler::SourceTree {
   public:
    explicit SourceTree(std::map<std::string, std::string> texts) : texts_(std::move(texts)) {}
    google::protobuf::io::ZeroCopyInputStream* Open(const std::string& name) override;
    const std::map<std::string, std::string>& texts() const { return texts_; }

   private:
    std::map<std::string, std::string> texts_;
  };

  class Faults : public google::protobuf::compiler::MultiFileErrorCollector {
   public:
    void AddError(const std::string& file, int line, int column, const std::string& message) override;
    std::vector<Diagnostic> found;
  };

  explicit SchemaRevision(std::map<std::string, std::string> texts);

  mutable ZO_TUNING::internal::TypeLevels levels_;
  SourceTree source_tree_;
  Faults faults_;
  google::protobuf::compiler::Importer importer_;
  google::protobuf::DynamicMessageFactory factory_;
};

}  // namespace zotuning
