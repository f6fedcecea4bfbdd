// JSON files and default data: FindAllJsonFiles and GenerateDefaultModuleData. Tested by tests/json/json_files_test.cpp
// and default_data_test.cpp.

#include "json/json_files.h"

#include <string>

#include "ZoTuningUtils.h"
#include "api/operations.h"
#include "json/default_data.h"
#include "schema/project_layout-inl.h"
#include "schema/schema.h"

using namespace ZO_TUNING::internal;

namespace ZO_TUNING {
namespace internal {
namespace api {

void ReportNotListed(const char* dir) {
  TuningLog(kLogError, __LINE__, "FindAllJsonFiles", "Open directory failed: %s", dir);
}

bool FindAllJsonFiles(const char* dir, std::vector<std::string>& files) {
  LogListener listener;
  const bool is_open = FindJsonFiles(dir, files, listener).is_open;
  if (!is_open) ReportNotListed(dir);
  return is_open;
}

void LogListener::OnFolderPassedOver(const std::string& path) { ReportNotListed(path.c_str()); }

void LogListener::OnFileNotRead(const std::string& path) { ReportNotRead(path); }

void LogListener::OnUnknownModule(const std::string& module_name) { ReportUnknownModule(module_name); }

namespace {

bool GenerateDefaultModuleData(const ProjectLayout& layout, const std::string& module) {
  const std::string default_dir = layout.DefaultDir();
  if (!HasProjectAndSchema(layout, __func__)) return false;
  if (!PathExists(default_dir)) {
    TuningLog(kLogError, __LINE__, __func__, "Cannot find project default folder under input proj_dir: %s",
              default_dir.c_str());
    return false;
  }
  Schema schema(layout.ProtoDir());
  const TypeResult found = schema.Find(module);
  if (found.type == nullptr) {
    ReportType(found);
    TuningLog(kLogError, __LINE__, __func__, "Get descriptor of module %s failed", found.qualified_name.c_str());
    return false;
  }
  std::string json;
  // True from here on, although printing or writing may have failed.
  if (!ModuleTemplate(schema, found.type, ReportTemplateFault, &json).ok) ReportNotPrinted();
  WriteTextFile(layout.DefaultPath(module), json);
  return true;
}

}  // namespace

}  // namespace api
}  // namespace internal
}  // namespace ZO_TUNING

bool ZoTuningUtils::FindAllJsonFiles(const char* dir, std::vector<std::string>& files) {
  return AtBorder(__LINE__, __func__, [&] { return api::FindAllJsonFiles(dir, files); });
}

bool ZoTuningUtils::GenerateDefaultModuleData(const char* proj_dir, const char* module) {
  return AtBorder(__LINE__, __func__, [&] { return api::GenerateDefaultModuleData(ProjectLayout(proj_dir), module); });
}
