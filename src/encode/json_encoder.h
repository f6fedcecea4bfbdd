/// \file
/// The hot road: the JSON text of one file straight to the pruned wire bytes of its module. See docs/encoding.md.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "encode/encode_plan.h"

namespace ZO_TUNING {
namespace internal {

/// Zero bytes that have to be readable behind a text, so that the scanner needs no bounds checks.
constexpr size_t kTextPadding = 64;

/// Turns texts into wire bytes, one after another, through buffers that it keeps. Strict: what it does not handle with
/// certainty makes the whole text odd, and the plain road (protobuf's own parser) has to read it. What it does encode
/// is byte for byte what the plain road gives.
class JsonEncoder {
 public:
  /// Encodes `text` (with kTextPadding zero bytes behind it) by `plan`. False when the text is odd; this says nothing
  /// about whether the plain road accepts it.
  [[nodiscard]] bool Encode(const ModulePlan& plan, std::string_view text);

  /// The bytes of the last text that was encoded, valid until the next call.
  std::string_view wire() const { return {buffer_.get(), size_}; }

  /// The first name of the field check that does not occur in `text`, or null. Only after Encode gave true for the same
  /// arguments: names met as keys are not searched again.
  const std::string_view* FindMissingName(const ModulePlan& plan, std::string_view text) const;

 private:
  friend class TextScanner;

  /// Where one field of a message stands in the output.
  struct Part {
    int32_t number;
    size_t begin;
    size_t end;
  };

  std::unique_ptr<char[]> buffer_;
  size_t capacity_ = 0;
  size_t size_ = 0;
  std::vector<uint8_t> names_seen_;  ///< by name id
  std::vector<Part> parts_;          ///< of the messages that are open, outermost first
  std::string scratch_;
};

}  // namespace internal
}  // namespace ZO_TUNING
