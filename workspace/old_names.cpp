// Tested by tests/tools/check_test.cpp.

#include "workspace/old_names.h"

#include "workspace/git.h"

namespace zotuning {

namespace {

// Each takes as long as loading the schema.
constexpr int kChanges = 3;

}  // namespace

std::optional<OldField> OldNames::Find(const google::protobuf::Descriptor& type, const std::string& name) {
  CollectingSink ignored;  // a project need not have a history
  if (!is_listed_) {
    is_listed_ = true;
    if (const auto repository = GitRepository::Open(proto_dir_, ignored)) {
      revisions_.push_back({"HEAD", nullptr});
      for (std::string& revision : repository->BeforeChanges(kChanges)) {
        revisions_.push_back({std::move(revision), nullptr});
      }
    }
  }
  for (Revision& revision : revisions_) {
    if (!revision.is_loaded) revision.schema = SchemaRevision::Load(proto_dir_, revision.name, ignored);
    revision.is_loaded = true;
    const auto* old_type = revision.schema == nullptr ? nullptr : revision.schema->FindFullName(type.full_name());
    const auto* old_field = old_type == nullptr ? nullptr : old_type->FindFieldByName(name);
    if (old_field == nullptr) continue;
    const auto* field = type.FindFieldByNumber(old_field->number());
    const bool is_renamed = field != nullptr && old_type->FindFieldByName(field->name()) == nullptr;
    return OldField{is_renamed ? field->name() : "", revision.name};
  }
  return std::nullopt;
}

}  // namespace zotuning
