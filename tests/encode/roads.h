/// \file
/// Both roads from the text of a JSON file to the bytes of its module, in memory: the hot one, and the plain one that
/// is its oracle. Used by the tests and by the fuzzer.
#pragma once

#include <google/protobuf/compiler/importer.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/util/json_util.h>

#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "ZoTuningUtils.h"
#include "encode/encode_plan.h"
#include "encode/json_encoder.h"

namespace zotest {

/// A schema whose files are strings. What is missing among them and protobuf's own files does not load.
class TextSchema : private google::protobuf::compiler::SourceTree,
                   private google::protobuf::compiler::MultiFileErrorCollector {
 public:
  /// Loads "schema.proto" and whatever it imports.
  explicit TextSchema(std::map<std::string, std::string> files) : files_(std::move(files)) {
    file_ = importer_.Import("schema.proto");
  }
  explicit TextSchema(const std::string& text)
      : TextSchema(std::map<std::string, std::string>{{"schema.proto", text}}) {}

  /// Why the schema did not load; empty when it did.
  const std::string& errors() const { return errors_; }
  const google::protobuf::FileDescriptor* file() const { return file_; }
  const google::protobuf::Descriptor* Type(const std::string& full_name) const {
    return importer_.pool()->FindMessageTypeByName(full_name);
  }

 private:
  google::protobuf::io::ZeroCopyInputStream* Open(const std::string& name) override {
    auto found = files_.find(name);
    if (found == files_.end()) {
      const auto* own = google::protobuf::DescriptorPool::generated_pool()->FindFileByName(name);
      if (own == nullptr) return nullptr;
      found = files_.emplace(name, own->DebugString()).first;
    }
    return new google::protobuf::io::ArrayInputStream(found->second.data(), static_cast<int>(found->second.size()));
  }
  void AddError(const std::string& name, int line, int column, const std::string& message) override {
    errors_ += name + ":" + std::to_string(line + 1) + ":" + std::to_string(column + 1) + ": " + message + "\n";
  }

  std::map<std::string, std::string> files_;
  std::string errors_;
  google::protobuf::compiler::Importer importer_{this, this};
  const google::protobuf::FileDescriptor* file_ = nullptr;
};

/// What one road makes of a text.
struct Outcome {
  bool ok = false;      ///< plain: protobuf takes the text; hot: it is not odd
  std::string refusal;  ///< of protobuf
  std::string wire;     ///< the bytes of the bin
  std::string missing;  ///< the first name that the field check misses; empty for none
};

class Roads {
 public:
  explicit Roads(const google::protobuf::Descriptor* type) : type_(type), plan_(type) {
    prototype_ = factory_.GetPrototype(type);
  }

  const google::protobuf::Descriptor* type() const { return type_; }

  /// Whether any text at all can take the hot road.
  bool planned() const { return plan_.root() != nullptr; }

  Outcome Plain(const std::string& text) const {
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
      outcome.missing = FirstMissing(type_->field(i), text, 0);
    }
    return outcome;
  }

  /// From a buffer that is exactly as large as the encoder may expect, so that a sanitizer sees it read too far.
  Outcome Hot(const std::string& text, ZO_TUNING::internal::JsonEncoder& encoder) const {
    constexpr size_t kPadding = ZO_TUNING::internal::kTextPadding;
    const std::unique_ptr<char[]> buffer(new char[text.size() + kPadding]);
    std::memcpy(buffer.get(), text.data(), text.size());
    std::memset(buffer.get() + text.size(), 0, kPadding);
    const std::string_view padded(buffer.get(), text.size());
    Outcome outcome;
    outcome.ok = encoder.Encode(plan_, padded);
    if (!outcome.ok) return outcome;
    outcome.wire = std::string(encoder.wire());
    const std::string_view* missing = encoder.FindMissingName(plan_, padded);
    if (missing != nullptr) outcome.missing = std::string(*missing);
    return outcome;
  }

  /// Empty when both roads agree on the text: what the hot one does not call odd, the plain one takes, with the same
  /// bytes and the same missing name. `encoded` tells whether the hot road took it.
  std::string Difference(const std::string& text, bool* encoded = nullptr) {
    const Outcome hot = Hot(text, encoder_);
    if (encoded != nullptr) *encoded = hot.ok;
    // Nothing that earlier texts left behind may show.
    ZO_TUNING::internal::JsonEncoder fresh;
    const Outcome again = Hot(text, fresh);
    if (again.ok != hot.ok || again.wire != hot.wire || again.missing != hot.missing) {
      return "the encoder depends on earlier texts";
    }
    if (!hot.ok) return "";
    const Outcome plain = Plain(text);
    if (!plain.ok) return "encoded, but protobuf refuses it: " + plain.refusal;
    if (plain.wire != hot.wire) return "plain " + Hex(plain.wire) + ", hot " + Hex(hot.wire);
    if (plain.missing != hot.missing) return "plain misses '" + plain.missing + "', hot '" + hot.missing + "'";
    return "";
  }

 private:
  // The search as it is defined, without the shortcut of entering each type once. Types that contain themselves are
  // never encoded; the limit only keeps them from running on.
  static std::string FirstMissing(const google::protobuf::FieldDescriptor* field, const std::string& text, int depth) {
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

  static std::string Hex(const std::string& bytes) {
    std::string hex;
    for (const char byte : bytes) {
      for (const int shift : {4, 0}) hex += "0123456789abcdef"[static_cast<unsigned char>(byte) >> shift & 15];
    }
    return "[" + hex + "]";
  }

  const google::protobuf::Descriptor* type_;
  ZO_TUNING::internal::ModulePlan plan_;
  google::protobuf::DynamicMessageFactory factory_;
  const google::protobuf::Message* prototype_;
  ZO_TUNING::internal::JsonEncoder encoder_;
};

}  // namespace zotest
