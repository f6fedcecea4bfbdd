/// \file
/// What checks of one document find, in the order of its text. For the checks alone.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "workspace/diagnostic.h"
#include "workspace/json_document.h"

namespace zotuning {

class Findings {
 public:
  /// Keeps up to `max` errors and as many warnings.
  Findings(const JsonDocument& document, size_t max) : document_(document), max_(max) {}

  /// Whether the next finding of this severity would be dropped; its message then need not be made.
  bool Full(Severity severity) {
    const bool full = counts_[static_cast<size_t>(severity)] >= max_;
    dropped_ = dropped_ || full;
    return full;
  }

  /// Offsets are those of the document.
  void Add(Code code, size_t begin, size_t end, std::string path, std::string message, std::string hint = "");
  void Add(Code code, size_t begin, size_t end, std::string path, std::string message, std::string hint,
           Severity severity);

  /// For a duplicate key in an object; the first one is at the offset `first`.
  void AddDuplicateKey(const JsonMember& member, size_t first, std::string path);

  /// Passes everything on in text order.
  void Report(const std::string& file, DiagnosticSink& sink);

 private:
  struct Finding {
    size_t begin;
    size_t end;
    Diagnostic diagnostic;
  };

  const JsonDocument& document_;
  size_t max_;
  size_t counts_[2] = {0, 0};
  bool dropped_ = false;
  std::vector<Finding> findings_;
};

}  // namespace zotuning
