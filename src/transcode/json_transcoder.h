/// \file
/// The fast path: from the JSON text of one file straight to the pruned wire bytes of its module. See
/// docs/fast-path.md.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "io/padded_file.h"
#include "transcode/module_table.h"

namespace ZO_TUNING {
namespace internal {

/// Turns texts into wire bytes, one after another, reusing its buffers. Strict: if a text has anything that it cannot
/// handle with certainty, the whole text falls back to the slow path (protobuf's own parser). What it does transcode is
/// byte for byte what the slow path writes.
class JsonTranscoder {
 public:
  /// Transcodes `text` (followed by kTextPadding zero bytes) using `table`. False if the text is unsupported; this says
  /// nothing about whether the slow path accepts it.
  [[nodiscard]] bool Transcode(const ModuleTable& table, std::string_view text);

  /// The bytes of the last transcoded text, valid until the next call.
  std::string_view wire() const { return {buffer_.get(), size_}; }

  /// Whether every object of the last text spelled out all its fields, and every list of objects had an element. Rules
  /// and descriptions do not count.
  bool complete() const { return complete_; }

  /// The first name of the field check that does not occur in `text`, or null. Only after Transcode returned true for
  /// the same arguments: names read as keys are not searched for again.
  const std::string_view* FindMissingName(const ModuleTable& table, std::string_view text) const;

 private:
  friend class TextTranscoder;

  /// Where one field of a message is in the output.
  struct FieldSpan {
    int32_t number;
    size_t begin;
    size_t end;
  };

  std::unique_ptr<char[]> buffer_;
  size_t capacity_ = 0;
  size_t size_ = 0;
  bool complete_ = true;
  std::vector<uint8_t> names_seen_;  ///< by name id
  std::vector<FieldSpan> spans_;     ///< of the open messages, outermost first
  std::string scratch_;
};

}  // namespace internal
}  // namespace ZO_TUNING
