// Tested by tests/schema/schema_import_test.cpp.

#include "schema/schema.h"

#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <algorithm>
#include <exception>
#include <tuple>
#include <utility>

#include "schema/import_guard.h"
#include "schema/type_names-inl.h"

namespace ZO_TUNING {
namespace internal {

const google::protobuf::Descriptor* FindTypeByName(const google::protobuf::DescriptorPool& pool,
                                                   const std::string& name) {
  static constexpr char kLinkKey[] = "LinkKey";
  const size_t link_key = name.find(kLinkKey);
  if (link_key == std::string::npos) return pool.FindMessageTypeByName(name);
  return pool.FindMessageTypeByName(name.substr(0, link_key + sizeof(kLinkKey) - 1));
}

namespace {

template <typename OnRefused>
DirectoryResult ImportGuarded(const char* dir, ImportGuard& guard, google::protobuf::compiler::Importer& importer,
                              std::vector<SchemaFile>* files, OnRefused on_refused) {
  std::vector<DirectoryEntry> entries;
  const DirectoryResult listing = ReadDirectory(dir, entries);
  if (!listing.is_open) return listing;
  for (DirectoryEntry& entry : entries) {
    // A directory with such a name is tried too, and fails like a file that does not parse.
    if (!HasSuffix(entry.name, ".proto")) continue;
    const std::string refusal = guard.Refusal(entry.name);
    if (!refusal.empty()) on_refused(entry.name, refusal);
    const bool is_loaded = refusal.empty() && importer.Import(entry.name) != nullptr;
    if (files != nullptr) files->push_back({std::move(entry.name), entry.kind, is_loaded});
  }
  return listing;
}

}  // namespace

DirectoryResult ImportFiles(const char* dir, google::protobuf::compiler::Importer& importer,
                            std::vector<SchemaFile>* files) {
  ImportGuard guard(dir);
  return ImportGuarded(dir, guard, importer, files, [](const std::string&, const std::string&) {});
}

Schema::SourceTree::SourceTree(const std::string& dir, RefuseFile refuse)
    : dir_(dir), guard_(std::make_unique<ImportGuard>(dir)), refuse_(std::move(refuse)) {
  MapPath("", dir);
}

google::protobuf::io::ZeroCopyInputStream* Schema::SourceTree::Open(const std::string& name) {
  refusal_ = refuse_ ? refuse_(dir_ + "/" + name) : std::string();
  if (!refusal_.empty()) return nullptr;
  const bool is_plain = name.find_first_of("/\\") == name.npos;
  const std::string* text = guard_ != nullptr && is_plain ? guard_->Text(name) : nullptr;
  if (text == nullptr) return DiskSourceTree::Open(name);
  return new google::protobuf::io::ArrayInputStream(text->data(), static_cast<int>(text->size()));
}

std::string Schema::SourceTree::GetLastErrorMessage() {
  return refusal_.empty() ? DiskSourceTree::GetLastErrorMessage() : refusal_;
}

void Schema::FaultCollector::AddError(const std::string& file, int line, int column, const std::string& message) {
  Add(file, line, column, false, message);
}

void Schema::FaultCollector::AddWarning(const std::string& file, int line, int column, const std::string& message) {
  Add(file, line, column, true, message);
}

void Schema::FaultCollector::Add(const std::string& file, int line, int column, bool is_warning,
                                 const std::string& message) noexcept {
  try {
    // Both count from 0 here; -1 means the whole file.
    faults_.push_back({file, line + 1, line < 0 ? 0 : column + 1, is_warning, message});
  } catch (...) {
    failure_ = std::current_exception();
  }
}

void Schema::FaultCollector::Deliver(std::vector<SchemaFault>& faults) {
  if (failure_ != nullptr) std::rethrow_exception(failure_);
  std::stable_sort(faults_.begin(), faults_.end(), [](const SchemaFault& a, const SchemaFault& b) {
    return std::tie(a.file, a.line, a.column) < std::tie(b.file, b.line, b.column);
  });
  faults.insert(faults.end(), std::make_move_iterator(faults_.begin()), std::make_move_iterator(faults_.end()));
  faults_.clear();
}

Schema::Schema(const std::string& proto_dir, std::vector<SchemaFault>* faults, RefuseFile refuse)
    : source_tree_(proto_dir, std::move(refuse)), importer_(&source_tree_, faults == nullptr ? nullptr : &collector_) {
  listing_ = ImportGuarded(
      proto_dir.c_str(), source_tree_.guard(), importer_, &files_,
      [this](const std::string& file, const std::string& reason) { collector_.AddError(file, -1, -1, reason); });
  source_tree_.DropGuard();
  if (faults != nullptr) collector_.Deliver(*faults);
}

TypeResult Schema::Find(const std::string& short_name) const {
  TypeResult result{TypeStatus::kMissing, nullptr, QualifiedTypeName(short_name), {}, 0};
  const google::protobuf::Descriptor* type = FindTypeByName(*importer_.pool(), result.qualified_name);
  if (type == nullptr) return result;
  result.levels = levels_.Count(type);
  if (StackHolds(result.levels)) {
    result.status = TypeStatus::kFound;
    result.type = type;
  } else {
    result.status = TypeStatus::kTooManyLevels;
    result.full_name = type->full_name();
  }
  return result;
}

}  // namespace internal
}  // namespace ZO_TUNING
