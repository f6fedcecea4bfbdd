/// \file
/// The bodies of exported operations that are steps of other ones, and the lines that operations share. A body has the
/// name of its operation, under which it logs, and no border: see border-inl.h.
#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <string>
#include <vector>

#include "bin/bin_packer.h"
#include "io/directory.h"
#include "json/json_files.h"
#include "schema/project_config.h"
#include "schema/schema.h"
#include "schema/tuning_label.h"
#include "version/version_files.h"

namespace ZO_TUNING {
namespace internal {
namespace api {

// ---- Schema and configuration ----

/// The type that a short name stands for. Null after an error line of GetDescByClassName.
const google::protobuf::Descriptor* FindType(const Schema& schema, const std::string& short_name);

/// That line, when a type was not found.
void ReportType(const TypeResult& result);

/// The types of what a bin holds beside the modules.
struct BinTypes {
  const google::protobuf::Descriptor* label = nullptr;
  const google::protobuf::Descriptor* version = nullptr;
};

/// False after a line of `function` about the first type that the schema lacks; `no_label` is the one about the label.
bool FindBinTypes(const Schema& schema, const char* function, BinTypes& types,
                  const char* no_label = "Get tuning label descriptor failed");

/// The version type alone. Null after a line of `function`.
const google::protobuf::Descriptor* FindVersionType(const Schema& schema, const char* function);

/// Whether a project and its folder of schema files exist; false after a line of `function`. `no_project` begins the
/// one about the project.
bool HasProjectAndSchema(const ProjectLayout& layout, const char* function,
                         const char* no_project = "Cannot find project dir");

/// GetProjectConfig with a schema that the caller has loaded from layout.ProtoDir().
bool GetProjectConfig(const ProjectLayout& layout, Schema& schema, ProjectConfig& config);

bool ParseTuningLabelMsg(const google::protobuf::Message& message, const google::protobuf::Descriptor* descriptor,
                         const std::vector<std::string>& label_names, std::vector<int>& label_values);

/// The line of GetProjectTuningLabelsMap about a label type.
void ReportLabelType(const LabelResult& result);

/// The line of `function` about label values that did not go into a message or out of it. Returns result.ok().
bool ReportLabel(const LabelResult& result, const char* function);

/// Writes to standard error that a field is missing in a JSON text.
void ReportMissingField(const std::string& name);

// ---- Files ----

/// The line of FindAllJsonFiles about a folder that cannot be opened.
void ReportNotListed(const char* dir);

bool FindAllJsonFiles(const char* dir, std::vector<std::string>& files);

/// GetVersionMsgs into an owner.
bool GetVersionMsgs(const std::string& version_dir, const google::protobuf::Message* prototype,
                    VersionMessages& messages);

/// Logs what is passed over on the way, each under the name of the operation whose step it is.
class LogListener : public PackListener {
 public:
  void OnFolderPassedOver(const std::string& path) override;
  void OnFileNotRead(const std::string& path) override;
  void OnUnknownModule(const std::string& module_name) override;
};

}  // namespace api
}  // namespace internal
}  // namespace ZO_TUNING
