#include "schema_view.h"

#include <algorithm>
#include <utility>

#include "ZoTuningUtils.h"
#include "files.h"
#include "library_log.h"
#include "suggest.h"

namespace zotuning_tool {

google::protobuf::io::ZeroCopyInputStream* SchemaView::SourceTree::Open(const std::string& name) {
  refused_ = KindOf(dir_ + "/" + name) == FileKind::kSpecial;
  return refused_ ? nullptr : DiskSourceTree::Open(name);
}

std::string SchemaView::SourceTree::GetLastErrorMessage() {
  return refused_ ? "this is a named pipe or a device, not a file" : DiskSourceTree::GetLastErrorMessage();
}

void SchemaView::ErrorCollector::Collect(Severity severity, const std::string& file, int line, int column,
                                         const std::string& message) {
  Diagnostic diagnostic;
  diagnostic.code = "schema";
  diagnostic.severity = severity;
  diagnostic.file = file;
  // Both count from 0 here; -1 stands for the whole file.
  diagnostic.line = line + 1;
  diagnostic.column = line < 0 ? 0 : column + 1;
  diagnostic.message = message;
  diagnostics.push_back(std::move(diagnostic));
}

void SchemaView::ErrorCollector::AddError(const std::string& file, int line, int column, const std::string& message) {
  Collect(Severity::kError, file, line, column, message);
}

void SchemaView::ErrorCollector::AddWarning(const std::string& file, int line, int column, const std::string& message) {
  Collect(Severity::kWarning, file, line, column, message);
}

SchemaView::SchemaView(const std::string& proto_dir, Report& report)
    : proto_dir_(proto_dir), source_tree_(proto_dir), importer_(&source_tree_, &errors_) {
  std::vector<FoundFile> files;
  if (!ListFiles(proto_dir, ".proto", files, report)) {
    ok_ = false;
    return;
  }
  if (files.empty()) {
    report.Error("schema", "this folder holds no .proto file", "", Shown(proto_dir));
    ok_ = false;
    return;
  }
  const LibraryWatch watch;
  ZoTuningUtils::ImportDescriptors(proto_dir.c_str(), importer_);
  for (Diagnostic& diagnostic : errors_.diagnostics) {
    const std::string path = proto_dir + "/" + diagnostic.file;
    if (IsDirectory(path)) {
      // The library passes a directory with such a name over.
      diagnostic.severity = Severity::kWarning;
      diagnostic.message = "this is a directory; its name makes it look like a schema file";
      diagnostic.line = diagnostic.column = 0;
    }
    if (diagnostic.severity == Severity::kError) ok_ = false;
    diagnostic.file = Shown(path);
    report.Add(diagnostic);
  }
  // What ImportDescriptors could not list is missing without an error.
  for (const FoundFile& file : files) {
    if (file.relative.find('/') != std::string::npos || IsDirectory(file.path)) continue;
    if (importer_.pool()->FindFileByName(file.relative) == nullptr && ok_) {
      report.Error("schema", "this file could not be loaded", "", Shown(file.path));
      ok_ = false;
    }
  }
}

std::string SchemaView::QualifiedName(const std::string& short_name) {
  std::string qualified;
  ZO_TUNING::ADD_NAMESPACE_TO_CLASSNAME(short_name, qualified);
  return qualified;
}

const google::protobuf::Descriptor* SchemaView::FindType(const std::string& short_name) const {
  const LibraryWatch watch;
  const auto* type = ZoTuningUtils::GetDescByClassName(importer_, QualifiedName(short_name).c_str());
  return type != nullptr && ZO_TUNING::internal::StackHolds(levels_.Count(type)) ? type : nullptr;
}

const google::protobuf::Descriptor* SchemaView::RequireType(const std::string& short_name, Report& report) const {
  const google::protobuf::Descriptor* type = FindType(short_name);
  if (type != nullptr) return type;
  if (importer_.pool()->FindMessageTypeByName(QualifiedName(short_name)) != nullptr) {
    report.Error("schema-type",
                 "the message type " + Quoted(QualifiedName(short_name)) + " holds too many levels of types", "",
                 Shown(proto_dir_));
    return nullptr;
  }
  std::string hint;
  // The commonest slip is the right type in another package.
  for (const char* package : {"ZO_TUNING", "ZO_TUNING_AF", "ZO_TUNING_AWB", "ZO_TUNING_AEC", "ZO_TUNING_PD"}) {
    const std::string name = std::string(package) + "." + short_name;
    if (importer_.pool()->FindMessageTypeByName(name) != nullptr)
      hint = "there is " + Quoted(name) + "; the package goes by the first two letters of the name";
  }
  report.Error("schema-type", "the schema has no message type " + Quoted(QualifiedName(short_name)),
               hint.empty() && !ok_ ? "the errors of the schema may be the reason" : hint, Shown(proto_dir_));
  return nullptr;
}

}  // namespace zotuning_tool
