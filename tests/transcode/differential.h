/// \file
/// Both paths from the text of a JSON file to the bytes of its module, in memory: the fast one, and the slow one that
/// is its oracle. Used by the tests and by the fuzzer.
#pragma once

#include <google/protobuf/compiler/importer.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/stubs/strutil.h>
#include <google/protobuf/util/json_util.h>

#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "ZoTuningUtils.h"
#include "transcode/json_transcoder.h"
#include "transcode/module_table.h"

namespace zotest {

/// A schema in a string. It may import protobuf's own files.
class TextSchema : private google::protobuf::compiler::SourceTree,
                   private google::protobuf::compiler::MultiFileErrorCollector {
 public:
  explicit TextSchema(const std::string& text) : files_{{kName, text}} { file_ = importer_.Import(kName); }

  /// Why the schema did not load; empty when it did.
  const std::string& errors() const { return errors_; }
  const google::protobuf::FileDescriptor* file() const { return file_; }
  const google::protobuf::Descriptor* Type(const std::string& full_name) const {
    return importer_.pool()->FindMessageTypeByName(full_name);
  }

 private:
  static constexpr char kName[] = "schema.proto";

  google::protobuf::io::ZeroCopyInputStream* Open(const std::string& name) override {
    const auto* own = google::protobuf::DescriptorPool::generated_pool()->FindFileByName(name);
    if (own != nullptr) files_[name] = own->DebugString();
    const std::string& text = files_[name];
    return new google::protobuf::io::ArrayInputStream(text.data(), static_cast<int>(text.size()));
  }
  void AddError(const std::string& name, int line, int column, const std::string& message) override {
    errors_ += name + ":" + std::to_string(line + 1) + ":" + std::to_string(column + 1) + ": " + message + "\n";
  }

  std::map<std::string, std::string> files_;
  std::string errors_;
  google::protobuf::compiler::Importer importer_{this, this};
  const google::protobuf::FileDescriptor* file_ = nullptr;
};

/// The first name that the field check misses, searched as it is defined, without the shortcut of entering each type
/// once; empty for none. Types that contain themselves are cut off at a depth that keeps them from running on.
inline std::string FirstMissing(const google::protobuf::FieldDescriptor* field, const std::string& text,
                                int depth = 0) {
  const std::string& name = field->name();
  if (name == "rule" || name == "value" || name == "description" || depth > 40) return "";
  if (text.find(name) == std::string::npos) return name;
  if (field->type() != google::protobuf::FieldDescriptor::TYPE_MESSAGE) return "";
  std::string missing;
  for (int i = 0; i < field->message_type()->field_count() && missing.empty(); ++i) {
    missing = FirstMissing(field->message_type()->field(i), text, depth + 1);
  }
  return missing;
}

/// What one path makes of a text.
struct Outcome {
  bool ok = false;      ///< slow: protobuf takes the text; fast: it is supported
  std::string refusal;  ///< of protobuf
  std::string wire;     ///< the bytes of the bin
  std::string missing;  ///< the first name that the field check misses; empty for none
};

class BothPaths {
 public:
  explicit BothPaths(const google::protobuf::Descriptor* type) : type_(type), table_(type) {
    prototype_ = factory_.GetPrototype(type);
  }

  const google::protobuf::Descriptor* type() const { return type_; }

  /// Whether any text at all can take the fast path.
  bool has_fast_path() const { return table_.root() != nullptr; }

  Outcome Slow(const std::string& text) const {
    Outcome outcome;
    const std::unique_ptr<google::protobuf::Message> message(prototype_->New());
    google::protobuf::util::JsonParseOptions options;
    options.ignore_unknown_fields = false;
    options.case_insensitive_enum_parsing = false;
    const auto status = google::protobuf::util::JsonStringToMessage(text, message.get(), options);
    outcome.ok = status.ok();
    if (!outcome.ok) {
      outcome.refusal = std::string(status.message());
      return outcome;
    }
    ZO_TUNING::MSG_PRONE_FOR_BIN(message.get(), type_);
    message->SerializePartialToString(&outcome.wire);
    for (int i = 0; i < type_->field_count() && outcome.missing.empty(); ++i) {
      outcome.missing = FirstMissing(type_->field(i), text);
    }
    return outcome;
  }

  /// From a buffer that is exactly as large as the transcoder may expect, so that a sanitizer sees it read too far.
  Outcome Fast(const std::string& text, ZO_TUNING::internal::JsonTranscoder& transcoder) const {
    constexpr size_t kPadding = ZO_TUNING::internal::kTextPadding;
    const std::unique_ptr<char[]> buffer(new char[text.size() + kPadding]);
    std::memcpy(buffer.get(), text.data(), text.size());
    std::memset(buffer.get() + text.size(), 0, kPadding);
    const std::string_view padded(buffer.get(), text.size());
    Outcome outcome;
    outcome.ok = transcoder.Transcode(table_, padded);
    if (!outcome.ok) return outcome;
    outcome.wire = std::string(transcoder.wire());
    const std::string_view* missing = transcoder.FindMissingName(table_, padded);
    if (missing != nullptr) outcome.missing = std::string(*missing);
    return outcome;
  }

  /// Empty when both paths agree on the text: what the fast one supports, the slow one takes, with the same
  /// bytes and the same missing name. `encoded` tells whether the fast path took it.
  std::string Difference(const std::string& text, bool* encoded = nullptr) {
    const Outcome fast = Fast(text, transcoder_);
    if (encoded != nullptr) *encoded = fast.ok;
    // Nothing that earlier texts left behind may show.
    ZO_TUNING::internal::JsonTranscoder fresh;
    const Outcome again = Fast(text, fresh);
    if (again.ok != fast.ok || again.wire != fast.wire || again.missing != fast.missing) {
      return "the transcoder depends on earlier texts";
    }
    if (!fast.ok) return "";
    const Outcome slow = Slow(text);
    if (!slow.ok) return "encoded, but protobuf refuses it: " + slow.refusal;
    using google::protobuf::CEscape;
    if (slow.wire != fast.wire) return "slow '" + CEscape(slow.wire) + "', fast '" + CEscape(fast.wire) + "'";
    if (slow.missing != fast.missing) return "slow misses '" + slow.missing + "', fast '" + fast.missing + "'";
    return "";
  }

 private:
  const google::protobuf::Descriptor* type_;
  ZO_TUNING::internal::ModuleTable table_;
  google::protobuf::DynamicMessageFactory factory_;
  const google::protobuf::Message* prototype_;
  ZO_TUNING::internal::JsonTranscoder transcoder_;
};

}  // namespace zotest
