/// \file
/// A walk through a tuning bin that says what is where, and what is wrong with it. Format: docs/tuning-bin.md. Stricter
/// than the dumps: everything that they skip is a fault.
#pragma once

#include <google/protobuf/message.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "bin/wire_check.h"
#include "io/record_reader.h"
#include "schema/labels-inl.h"
#include "schema/schema.h"

namespace ZO_TUNING {
namespace internal {

/// Where a bin stops making sense. The texts are messages for people.
struct BinFault {
  uint64_t offset;       ///< in bytes from the start of the bin
  std::string item;      ///< "length of version 0"
  std::string expected;  ///< "4 bytes"
  std::string found;     ///< "2 bytes"
  int32_t length = -1;   ///< of bytes that are no message of their type; -1 for other faults
};

/// A length and the bytes that follow it.
struct BinItem {
  uint64_t offset = 0;  ///< of the length; the bytes start four later
  int32_t length = 0;
  std::string_view bytes;                              ///< set if parsed; valid until the scanner's next step
  std::unique_ptr<google::protobuf::Message> message;  ///< null if not parsed
};

struct BinRecord {
  size_t index = 0;
  BinItem label;  ///< its bytes are gone once the module has been read
  std::vector<int> values;
  std::string module_name;                             ///< "" when the labels have no module of that number
  const google::protobuf::Descriptor* type = nullptr;  ///< of the module; null when the schema has none
  BinItem module;
};

/// Steps through one bin; one item is in memory at a time. A module that the schema does not know is passed over by
/// its length.
///
/// \code
///   BinScanner scanner(file, schema, labels);
///   while (scanner.Next()) {
///     if (scanner.is_version()) Use(scanner.version()); else Use(scanner.record());
///   }
///   if (scanner.fault() != nullptr) Report(*scanner.fault());
/// \endcode
class BinScanner {
 public:
  enum class Modules {
    kParse,
    kCheck,  ///< the same faults without making messages, and unknown fields: memory does not grow with a module
    kSkip,   ///< any bytes will do for a module
  };

  /// `file` is a regular file, open for binary reading at its start; it, the schema and the labels remain the caller's
  /// and must outlive the scanner.
  BinScanner(std::FILE* file, Schema& schema, const Labels& labels, Modules modules = Modules::kParse);
  /// A bin in memory.
  BinScanner(std::string_view bytes, Schema& schema, const Labels& labels, Modules modules = Modules::kParse);

  /// Goes to the next version or record. False at the end of the bin and at a fault.
  [[nodiscard]] bool Next();

  /// The result of the last step; may be moved from.
  bool is_version() const { return is_version_; }
  BinItem& version() { return version_; }
  BinRecord& record() { return record_; }

  /// What the last step met in label, version and, with kCheck, module.
  const std::vector<UnknownField>& unknown_fields() const { return unknown_fields_; }

  /// Null as long as there is none.
  const BinFault* fault() const { return fault_.get(); }

  /// Bytes read so far without a fault.
  size_t versions() const { return versions_; }
  size_t records() const { return records_; }

  /// The size of the bin.
  uint64_t bytes() const { return bytes_; }

 private:
  bool Fail(uint64_t offset, std::string item, std::string expected, std::string found);
  bool ReadVersionCount();
  bool ReadLength(const std::string& name, bool has_to_follow, BinItem& item);
  bool ReadItem(const std::string& name, const google::protobuf::Descriptor* type, bool has_to_follow, BinItem& item);
  bool PassItem(const std::string& name, const google::protobuf::Descriptor* type, BinItem& item);
  bool FailMessage(const std::string& name, const google::protobuf::Descriptor* type, const BinItem& item);
  bool NextVersion();
  bool NextRecord();

  Schema& schema_;
  Labels labels_;
  Modules modules_;
  RecordReader reader_;
  uint64_t bytes_;
  const google::protobuf::Descriptor* version_type_;
  const google::protobuf::Descriptor* label_type_;
  bool is_started_ = false;
  size_t version_count_ = 0;
  size_t versions_ = 0;
  size_t records_ = 0;
  bool is_version_ = false;
  BinItem version_;
  BinRecord record_;
  std::vector<UnknownField> unknown_fields_;
  std::unique_ptr<BinFault> fault_;
  std::map<const google::protobuf::Descriptor*, bool> can_check_;  ///< of the module types met so far
};

/// Reads the record whose label's length is at `offset` of a bin, which has to be one that BinScanner reported; a
/// module that the schema does not know is left out. False when the bin is no longer the same.
[[nodiscard]] bool ReadRecordAt(std::FILE* file, uint64_t offset, Schema& schema, const Labels& labels,
                                BinRecord& record);

}  // namespace internal
}  // namespace ZO_TUNING
