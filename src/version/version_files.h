/// \file
/// Version files: their messages, and the version text of one of them. See docs/versions.md.
#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <memory>
#include <string>
#include <vector>

#include "json/json_files.h"
#include "json/rules-inl.h"
#include "schema/schema.h"

namespace ZO_TUNING {
namespace internal {

enum class VersionStatus {
  kOk,
  kNoFiles,       ///< none below the folder; an error only where one is needed
  kNotListed,     ///< the folder cannot be opened
  kNotConverted,  ///< the text of `path` is not a message of the type
  kNoField,       ///< the type has no text field `field`
  kNotFound,      ///< no file has the name
};

struct [[nodiscard]] VersionResult {
  VersionStatus status = VersionStatus::kOk;
  std::string path;
  std::string text;    ///< with kNotConverted: the contents of `path`
  std::string reason;  ///< with kNotConverted: protobuf's message
  const char* field = "";
  std::string print_failure;  ///< protobuf's message when a print failed; its partial output is still used
};

/// Replaces `messages` with one new message per version file below `version_dir`, in directory order. The caller owns
/// them, also after a failure, when unread slots are null; pointers already in the list are dropped.
VersionResult ReadVersionMessages(const char* version_dir, const google::protobuf::Message* prototype,
                                  std::vector<google::protobuf::Message*>& messages, FileListener& listener);

/// The version messages of one scope, owned.
class VersionMessages {
 public:
  VersionMessages() = default;
  VersionMessages(const VersionMessages&) = delete;
  VersionMessages& operator=(const VersionMessages&) = delete;
  ~VersionMessages() { Clear(); }

  /// Replaces the messages with those of the files below `version_dir`.
  VersionResult Read(const std::string& version_dir, const google::protobuf::Message* prototype,
                     FileListener& listener) {
    Clear();
    return ReadVersionMessages(version_dir.c_str(), prototype, messages_, listener);
  }

  /// Adds one made elsewhere.
  void Add(std::unique_ptr<google::protobuf::Message> message);

  const std::vector<google::protobuf::Message*>& messages() const { return messages_; }

 private:
  void Clear();

  std::vector<google::protobuf::Message*> messages_;
};

/// A field of the version type that reflection can read as a single string, or null.
const google::protobuf::FieldDescriptor* FindTextField(const google::protobuf::Descriptor* type, const char* name);

/// Appends the new text of a version file to `text`: the template of `message`, which is of the version type, with
/// another version. kNoField if the type has none.
VersionResult PrintWithVersion(google::protobuf::Message* message, const std::string& version, const TemplateSink& sink,
                               std::string* text);

/// Sets the version text of the first file below `version_dir` whose "name" is `name`, and rewrites the file; a failed
/// write is not detected. Ends at the first file that cannot be used.
VersionResult SetVersion(const std::string& version_dir, Schema& schema, const google::protobuf::Descriptor* type,
                         const std::string& name, const std::string& version, FileListener& listener,
                         const TemplateSink& sink);

}  // namespace internal
}  // namespace ZO_TUNING
