// Tested by tests/version/version_files_test.cpp.

#include "version/version_files.h"

#include <utility>

#include "io/text_file-inl.h"
#include "json/json_text-inl.h"

namespace ZO_TUNING {
namespace internal {

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

VersionResult NoField(const char* field) {
  VersionResult result;
  result.status = VersionStatus::kNoField;
  result.field = field;
  return result;
}

VersionResult FindVersionFiles(const char* version_dir, std::vector<std::string>& files, FileListener& listener) {
  VersionResult result;
  if (!FindJsonFiles(version_dir, files, listener).is_open) {
    result.status = VersionStatus::kNotListed;
  } else if (files.empty()) {
    result.status = VersionStatus::kNoFiles;
  }
  return result;
}

/// Fills `message` from the file at `path`.
VersionResult ReadVersionFile(const std::string& path, Message* message, FileListener& listener) {
  VersionResult result;
  if (!ReadTextFile(path, result.text)) listener.OnFileNotRead(path);
  JsonResult json = ParseJson(result.text, message);
  if (json.ok) return {};
  result.status = VersionStatus::kNotConverted;
  result.path = path;
  result.reason = std::move(json.reason);
  return result;
}

}  // namespace

const FieldDescriptor* FindTextField(const google::protobuf::Descriptor* type, const char* name) {
  const FieldDescriptor* field = type->FindFieldByName(name);
  const bool usable = field != nullptr && field->type() == FieldDescriptor::TYPE_STRING && !field->is_repeated();
  return usable ? field : nullptr;
}

VersionResult ReadVersionMessages(const char* version_dir, const Message* prototype, std::vector<Message*>& messages,
                                  FileListener& listener) {
  messages.clear();
  std::vector<std::string> files;
  VersionResult result = FindVersionFiles(version_dir, files, listener);
  if (result.status != VersionStatus::kOk) return result;
  messages.resize(files.size(), nullptr);
  for (size_t i = 0; i < files.size() && result.status == VersionStatus::kOk; ++i) {
    messages[i] = prototype->New();
    result = ReadVersionFile(files[i], messages[i], listener);
  }
  return result;
}

void VersionMessages::Add(std::unique_ptr<Message> message) {
  messages_.push_back(message.get());
  (void)message.release();
}

void VersionMessages::Clear() {
  for (Message* message : messages_) delete message;
  messages_.clear();
}

VersionResult PrintWithVersion(Message* message, const std::string& version, const TemplateSink& sink,
                               std::string* text) {
  const google::protobuf::Descriptor* type = message->GetDescriptor();
  const FieldDescriptor* field = FindTextField(type, "version");
  if (field == nullptr) return NoField("version");
  message->GetReflection()->SetString(message, field, version);
  VersionResult result;
  JsonResult print = PrintTemplate(message, type, sink, text);
  if (!print.ok) result.print_failure = std::move(print.reason);
  return result;
}

VersionResult SetVersion(const std::string& version_dir, Schema& schema, const google::protobuf::Descriptor* type,
                         const std::string& name, const std::string& version, FileListener& listener,
                         const TemplateSink& sink) {
  std::vector<std::string> files;
  VersionResult result = FindVersionFiles(version_dir.c_str(), files, listener);
  if (result.status != VersionStatus::kOk) return result;
  for (const std::string& file : files) {
    const std::unique_ptr<Message> message = schema.NewMessage(type);
    result = ReadVersionFile(file, message.get(), listener);
    if (result.status != VersionStatus::kOk) return result;
    const FieldDescriptor* name_field = FindTextField(type, "name");
    if (name_field == nullptr) return NoField("name");
    if (message->GetReflection()->GetString(*message, name_field) != name) continue;
    std::string rewritten;
    result = PrintWithVersion(message.get(), version, sink, &rewritten);
    if (result.status == VersionStatus::kOk) WriteTextFile(file, rewritten);
    return result;
  }
  result.status = VersionStatus::kNotFound;
  return result;
}

}  // namespace internal
}  // namespace ZO_TUNING
