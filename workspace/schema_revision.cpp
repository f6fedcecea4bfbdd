// Tested by tests/workspace/schema_compare_test.cpp and tests/tools/migrate_test.cpp.

#include "workspace/schema_revision.h"

#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <string_view>
#include <utility>

#include "io/directory.h"
#include "json/json_text-inl.h"
#include "schema/import_guard.h"
#include "schema/schema.h"
#include "schema/type_names-inl.h"
#include "workspace/git.h"

namespace zotuning {
namespace {

constexpr std::string_view kProtoSuffix = ".proto";

}  // namespace

google::protobuf::io::ZeroCopyInputStream* SchemaRevision::SourceTree::Open(const std::string& name) {
  const auto text = texts_.find(name);
  if (text == texts_.end()) return nullptr;
  return new google::protobuf::io::ArrayInputStream(text->second.data(), static_cast<int>(text->second.size()));
}

void SchemaRevision::Faults::AddError(const std::string& file, int line, int column, const std::string& message) {
  Diagnostic fault(Code::kSchema, message, "", file);
  fault.line = line + 1;
  fault.column = line < 0 ? 0 : column + 1;
  found.push_back(std::move(fault));
}

SchemaRevision::SchemaRevision(std::map<std::string, std::string> texts)
    : source_tree_(std::move(texts)), importer_(&source_tree_, &faults_), factory_(importer_.pool()) {}

std::unique_ptr<SchemaRevision> SchemaRevision::FromTexts(std::map<std::string, std::string> texts,
                                                          const std::string& prefix, DiagnosticSink& sink) {
  std::unique_ptr<SchemaRevision> schema(new SchemaRevision(std::move(texts)));
  ZO_TUNING::internal::ImportGuard guard("");
  for (const auto& [name, text] : schema->source_tree_.texts()) guard.Add(name, text);
  for (const auto& [name, text] : schema->source_tree_.texts()) {
    // As in a project, files in subfolders are there to be imported.
    if (name.find('/') != name.npos) continue;
    const std::string refusal = guard.Refusal(name);
    if (!refusal.empty()) schema->faults_.AddError(name, -1, -1, refusal);
    if (refusal.empty()) (void)schema->importer_.Import(name);
  }
  for (Diagnostic& fault : schema->faults_.found) {
    fault.file.insert(0, prefix);
    sink.Add(std::move(fault));
  }
  return schema->faults_.found.empty() ? std::move(schema) : nullptr;
}

std::unique_ptr<SchemaRevision> SchemaRevision::Load(const std::string& proto_dir, const std::string& revision,
                                                     DiagnosticSink& sink) {
  const auto repository = GitRepository::Open(proto_dir, sink);
  std::map<std::string, GitFile> files;
  if (repository == nullptr || !repository->List(revision, files, sink)) return nullptr;
  const std::string& prefix = repository->prefix();
  const auto shown = [&](const std::string& path) { return revision + ":" + path; };
  std::map<std::string, std::string> texts;
  for (auto file = files.lower_bound(prefix); file != files.end(); ++file) {
    const auto& [path, content] = *file;
    if (path.compare(0, prefix.size(), prefix) != 0) break;
    if (!ZO_TUNING::internal::HasSuffix(path, kProtoSuffix)) continue;
    if (content.is_link) {
      sink.Report(Code::kGit, "this is a link, and links are not followed at a revision", "", shown(path));
      return nullptr;
    }
    if (!repository->Read(content.object, texts[path.substr(prefix.size())], sink)) return nullptr;
  }
  if (texts.empty()) {
    sink.Report(Code::kGit, "the revision " + Quoted(revision) + " has no schema", "", shown(prefix));
    return nullptr;
  }
  return FromTexts(std::move(texts), shown(prefix), sink);
}

const google::protobuf::Descriptor* SchemaRevision::FindType(const std::string& short_name) const {
  const auto* type =
      ZO_TUNING::internal::FindTypeByName(*importer_.pool(), ZO_TUNING::internal::QualifiedTypeName(short_name));
  return type != nullptr && ZO_TUNING::internal::StackHolds(levels_.Count(type)) ? type : nullptr;
}

std::string SchemaRevision::Template(const google::protobuf::Descriptor* type) {
  const std::unique_ptr<google::protobuf::Message> message(factory_.GetPrototype(type)->New());
  std::string json;
  const auto printed = ZO_TUNING::internal::PrintTemplate(
      message.get(), type, [](const auto&) {}, &json);
  return printed.ok ? json : "";
}

}  // namespace zotuning
