// Loading a project's schema and finding its types: ImportDescriptors, GetDescByClassName and the class Schema. Tested
// by tests/schema/schema_import_test.cpp.

#include <string>
#include <vector>

#include "ZoTuningUtils.h"
#include "io/directory.h"
#include "schema/schema.h"

using namespace ZO_TUNING::internal;

void ZoTuningUtils::ImportDescriptors(const char* dir, google::protobuf::compiler::Importer& importer) try {
  std::vector<DirectoryEntry> entries;
  if (!ReadDirectory(dir, entries)) return;
  for (const DirectoryEntry& entry : entries) {
    // A file that does not parse is simply absent from the pool, and so is a directory with such a name.
    if (HasSuffix(entry.name, ".proto")) importer.Import(entry.name);
  }
} catch (...) {
  ReportException(__LINE__, __func__);
}

const google::protobuf::Descriptor* ZoTuningUtils::GetDescByClassName(
    const google::protobuf::compiler::Importer& importer, const char* class_name) try {
  static constexpr char kLinkKey[] = "LinkKey";
  std::string name = class_name;
  const size_t link_key = name.find(kLinkKey);
  if (link_key != std::string::npos) name.resize(link_key + sizeof(kLinkKey) - 1);
  const google::protobuf::Descriptor* type = importer.pool()->FindMessageTypeByName(name);
  if (type == nullptr) {
    TuningLog(kLogError, __LINE__, __func__, "Find descriptor of %s failed, please check the protos under project dir",
              class_name);
  }
  return type;
} catch (...) {
  ReportException(__LINE__, __func__);
  return nullptr;
}

namespace ZO_TUNING {
namespace internal {

Schema::Schema(const std::string& proto_dir) : importer_(&source_tree_, nullptr) {
  source_tree_.MapPath("", proto_dir);
  ZoTuningUtils::ImportDescriptors(proto_dir.c_str(), importer_);
}

const google::protobuf::Descriptor* Schema::FindType(const std::string& short_name) const {
  std::string qualified;
  ADD_NAMESPACE_TO_CLASSNAME(short_name, qualified);
  const google::protobuf::Descriptor* type = ZoTuningUtils::GetDescByClassName(importer_, qualified.c_str());
  if (type == nullptr) return nullptr;
  const size_t levels = levels_.Count(type);
  if (!StackHolds(levels)) {
    TuningLog(kLogError, __LINE__, "GetDescByClassName",
              "Message type %s holds %zu levels of message types, too many for the stack of this thread; please check "
              "the protos under project dir",
              type->full_name().c_str(), levels);
    return nullptr;
  }
  return type;
}

const google::protobuf::Message* Schema::Prototype(const google::protobuf::Descriptor* type) {
  return factory_.GetPrototype(type);
}

}  // namespace internal
}  // namespace ZO_TUNING
