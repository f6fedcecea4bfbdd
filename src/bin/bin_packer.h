/// \file
/// Packing: the JSON files of one scope into its bin.
#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "bin/bin_writer.h"
#include "io/padded_file.h"
#include "json/json_files.h"
#include "schema/labels-inl.h"
#include "schema/schema.h"
#include "schema/tuning_label.h"
#include "transcode/json_transcoder.h"
#include "transcode/module_table.h"
#include "version/version_files.h"

namespace ZO_TUNING {
namespace internal {

enum class PackStatus {
  kOk,
  kNoDataDir,     ///< the job's data folder does not exist
  kNotOpened,     ///< the bin cannot be opened; see `error`
  kNotListed,     ///< the data folder cannot be opened
  kBadLabel,      ///< the label type does not accept the values of the path; see `label`
  kNoModuleType,  ///< see `module` and `type`; the label is already in the bin
  kNoMessage,     ///< the module message could not be created; protobuf itself would abort instead
  kNotConverted,  ///< `text` does not fit the module type, or cannot be packed; see `reason`
  kFieldMissing,  ///< the JSON text does not mention `field`
  kNotWritten,    ///< a byte did not reach the bin; see `error`
};

struct [[nodiscard]] PackResult {
  PackStatus status = PackStatus::kOk;
  std::string json_path;  ///< the setting at fault; "" if it is the bin or the folder
  std::string module;     ///< the name of its module
  LabelResult label;
  TypeResult type{};
  std::string text;
  std::string reason;
  std::string field;  ///< also with kOk and FieldChecking::kReported
  int error = 0;      ///< errno
  /// Whether the text was seen to spell out every field of every object; if false, it may still do so.
  bool is_complete = false;

  bool ok() const { return status == PackStatus::kOk; }
};

/// What to do with a text that does not mention a field: reject it, pack it and return the field's name, or not check.
enum class FieldChecking { kOn, kReported, kOff };

/// One bin to be packed.
struct BinJob {
  std::string data_dir;
  std::string bin_path;
  const VersionMessages& versions;
  FieldChecking checking;
};

/// Notified of what happens on the way, as it happens.
class PackListener : public FileListener {
 public:
  /// The data folder has no JSON files: the bin gets only its version block.
  virtual void OnNoSettings() {}

  /// A setting is about to be packed.
  virtual void OnSetting([[maybe_unused]] const std::string& json_path) {}

  /// A JSON file is not named after a module of the labels; all its label values are kLabelNotSet.
  virtual void OnUnknownModule([[maybe_unused]] const std::string& module_name) {}
};

/// Packs the settings of one project into any number of bins, reusing tables and buffers.
class BinPacker {
 public:
  /// All arguments must outlive the packer. `label_type` is TuningDataLabel.
  BinPacker(Schema& schema, const Labels& labels, const google::protobuf::Descriptor* label_type)
      : schema_(schema), labels_(labels), label_type_(label_type) {}

  /// Packs one bin: version block, then a record per JSON file of the data folder. What was written before a failure
  /// remains.
  PackResult Pack(const BinJob& job, PackListener& listener);

  /// Appends the record of the JSON file at `json_path`.
  PackResult PackSetting(const std::string& json_path, FieldChecking checking, BinWriter& bin, PackListener& listener);

  /// The same for a text in memory; the kTextPadding bytes after its end must be readable and zero.
  PackResult PackText(const std::string& json_path, std::string_view text, FieldChecking checking, BinWriter& bin,
                      PackListener& listener);

 private:
  /// Writes the label; `module_type` is null after a failure.
  PackResult PackLabel(const std::string& json_path, BinWriter& bin, PackListener& listener,
                       const google::protobuf::Descriptor** module_type);
  PackResult PackModule(std::string_view text, const google::protobuf::Descriptor* module_type, FieldChecking checking,
                        BinWriter& bin);
  /// For every text that the fast path does not support: uses protobuf's own parser and a message.
  PackResult PackBySlowPath(std::string text, const google::protobuf::Descriptor* module_type, FieldChecking checking,
                            BinWriter& bin);
  const ModuleTable& TableOf(const google::protobuf::Descriptor* module_type);

  Schema& schema_;
  Labels labels_;
  const google::protobuf::Descriptor* label_type_;
  std::unordered_map<const google::protobuf::Descriptor*, std::unique_ptr<ModuleTable>> tables_;
  PaddedFile file_;
  JsonTranscoder transcoder_;
};

}  // namespace internal
}  // namespace ZO_TUNING
