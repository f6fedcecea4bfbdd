/// \file
/// What is wrong with a JSON text by itself, and with one that is to be packed as a message type. Works on the
/// structure and the descriptors, without protobuf's parser. Where that parser rejects a text, there is at least one
/// error.
#pragma once

#include <google/protobuf/descriptor.h>

#include <memory>
#include <string>

#include "workspace/diagnostic.h"
#include "workspace/json_document.h"

namespace zotuning {

class OldNames;
class TypeTables;

/// What CheckFit looks for besides keys, types and ranges.
struct FitOptions {
  /// Every field of every object is present, every list of structures has an element. Packing sensors requires less,
  /// packing one chosen on standard input none of it.
  bool completeness = true;
  /// With completeness: also fields of rules and those named "rule" and "description", as warnings.
  bool complete_rules = false;
  /// `len`, `row`, `col` and `recommend` against the values beside them, NaN and infinities.
  bool rules = true;
  /// Rules that are unchanged from a template: "-1", "None".
  bool template_rules = false;
  /// Tells what unknown keys were called before; may be null.
  std::shared_ptr<OldNames> old_names;
  /// So many per file at most; a last one says that there are more.
  size_t max_diagnostics = 1000;
};

/// Reports syntax faults and a root that is not an object, in text order. `file` is only for the diagnostics.
void CheckText(const JsonDocument& document, const std::string& file, DiagnosticSink& sink);

/// Reports duplicate keys in an object: for texts without a message type, since CheckFit looks for them too.
void CheckDuplicateKeys(const JsonDocument& document, const std::string& file, DiagnosticSink& sink);

/// Checks documents against message types, caching what it learns about a type. The types must outlive it. If a text
/// has syntax faults, whatever could be read of it is checked; CheckText reports the faults.
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
