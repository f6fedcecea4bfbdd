/// \file
/// What is wrong with a JSON text by itself, and with one that is to be packed as a message type. By structure, from
/// the descriptors; protobuf's parser is not asked. Where that parser refuses a text, there is at least one error.
#pragma once

#include <google/protobuf/descriptor.h>

#include <memory>
#include <string>

#include "workspace/diagnostic.h"
#include "workspace/json_document.h"

namespace zotuning {

class OldNames;
class TypeTables;

/// What CheckFit looks for beside keys, types and ranges.
struct FitOptions {
  /// Every field of every object is there, every list of structures has an element. Packing sensors asks for less,
  /// packing what it is asked for on standard input for nothing of it.
  bool completeness = true;
  /// With completeness: fields of rules and those named "rule" and "description" as well, as warnings.
  bool complete_rules = false;
  /// `len`, `row`, `col` and `recommend` against the values beside them, NaN and infinities.
  bool rules = true;
  /// Rules that are still as a template has them: "-1", "None".
  bool template_rules = false;
  /// Tells what unknown keys were called before; may be null.
  std::shared_ptr<OldNames> old_names;
  /// So many per file at most; a last one says that there are more.
  size_t max_diagnostics = 1000;
};

/// Reports the faults of the grammar and a root that is no object, in text order. `file` is for the diagnostics alone.
void CheckText(const JsonDocument& document, const std::string& file, DiagnosticSink& sink);

/// Reports keys that stand twice in an object: for texts without a message type, since CheckFit looks for them too.
void CheckDuplicateKeys(const JsonDocument& document, const std::string& file, DiagnosticSink& sink);

/// Checks documents against message types; what it learns about a type is kept for the next document. The types have to
/// outlive it. Where a text breaks the grammar, what could be read of it is checked; CheckText reports the rest.
class FitChecker {
 public:
  explicit FitChecker(const FitOptions& options = {});
  ~FitChecker();

  void Check(const JsonDocument& document, const google::protobuf::Descriptor* type, const std::string& file,
             DiagnosticSink& sink);

 private:
  FitOptions options_;
  std::unique_ptr<TypeTables> types_;
};

/// FitChecker for one document.
void CheckFit(const JsonDocument& document, const google::protobuf::Descriptor* type, const FitOptions& options,
              const std::string& file, DiagnosticSink& sink);

}  // namespace zotuning
