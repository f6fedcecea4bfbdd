/// \file
/// The schema with its errors: the library is silent about them, the tool is not.
#pragma once

#include <google/protobuf/compiler/importer.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/message.h>

#include <memory>
#include <string>
#include <vector>

#include "report.h"
#include "schema/type_levels.h"

namespace zotuning_tool {

/// All .proto files of a directory, loaded by the library's own import with a collector of errors. Messages made of its
/// types die before it does.
class SchemaView {
 public:
  /// Reports every error of the schema with file, line and column. Special files are refused before anything is read.
  SchemaView(const std::string& proto_dir, Report& report);

  /// Whether the schema was loaded without an error.
  bool ok() const { return ok_; }

  /// The type that a short name stands for (package by its first characters, cut at "LinkKey"), or null in silence;
  /// null as well when it holds more levels of types than the stack does.
  const google::protobuf::Descriptor* FindType(const std::string& short_name) const;
  /// The qualified name under which FindType looks.
  static std::string QualifiedName(const std::string& short_name);

  /// FindType; reports a type that is missing, with the nearest one that there is.
  const google::protobuf::Descriptor* RequireType(const std::string& short_name, Report& report) const;

  std::unique_ptr<google::protobuf::Message> NewMessage(const google::protobuf::Descriptor* type) {
    return std::unique_ptr<google::protobuf::Message>(factory_.GetPrototype(type)->New());
  }

 private:
  /// Opens nothing that could block, whichever name an import has.
  class SourceTree : public google::protobuf::compiler::DiskSourceTree {
   public:
    explicit SourceTree(const std::string& dir) : dir_(dir) { MapPath("", dir); }
    google::protobuf::io::ZeroCopyInputStream* Open(const std::string& name) override;
    std::string GetLastErrorMessage() override;

   private:
    std::string dir_;
    bool refused_ = false;  ///< the last file
  };

  class ErrorCollector : public google::protobuf::compiler::MultiFileErrorCollector {
   public:
    void AddError(const std::string& file, int line, int column, const std::string& message) override;
    void AddWarning(const std::string& file, int line, int column, const std::string& message) override;
    std::vector<Diagnostic> diagnostics;

   private:
    void Collect(Severity severity, const std::string& file, int line, int column, const std::string& message);
  };

  std::string proto_dir_;
  bool ok_ = true;
  SourceTree source_tree_;
  ErrorCollector errors_;
  mutable ZO_TUNING::internal::TypeLevels levels_;
  google::protobuf::compiler::Importer importer_;
  google::protobuf::DynamicMessageFactory factory_;
};

}  // namespace zotuning_tool
