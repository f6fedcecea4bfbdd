// Tested by tests/tools/check_test.cpp.

#include "schema_faults.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <tuple>
#include <utility>

#include "files.h"
#include "suggest.h"

namespace zotuning {
namespace {

using ZO_TUNING::internal::Schema;
using ZO_TUNING::internal::SchemaFault;

/// The text between the first pair of quotes after `after`; "" if `message` has none.
std::string QuotedAfter(const std::string& message, const std::string& after) {
  const size_t at = message.find(after);
  if (at == std::string::npos) return "";
  const size_t begin = message.find('"', at + after.size());
  const size_t end = begin == std::string::npos ? begin : message.find('"', begin + 1);
  return end == std::string::npos ? "" : message.substr(begin + 1, end - begin - 1);
}

/// Parses protobuf's own messages; those it does not recognise are passed on unchanged.
class FaultReport {
 public:
  FaultReport(const Schema& schema, const std::vector<SchemaFault>& faults, DiagnosticSink& sink)
      : schema_(schema), faults_(faults), sink_(sink) {}

  bool Run() {
    for (const SchemaFault& fault : faults_) {
      if (const std::string file = ImportOf(fault); !file.empty()) bad_imports_[fault.file].push_back(file);
      if (!TwinOf(fault).empty()) twins_.insert(fault.file);
    }
    for (const SchemaFault& fault : faults_) {
      if (!IsOtherText(fault)) Report(fault);
    }
    return good_;
  }

 private:
  static std::string ImportOf(const SchemaFault& fault) {
    return fault.message.find("was not found or had errors") == std::string::npos
               ? ""
               : QuotedAfter(fault.message, "Import ");
  }

  static std::string TwinOf(const SchemaFault& fault) {
    return QuotedAfter(fault.message, "is already defined in file");
  }

  /// Whether a file is no schema as it stands, which is told once in place of what the parser makes of it.
  bool IsOtherText(const SchemaFault& fault) {
    const auto [known, is_new] = other_texts_.emplace(fault.file, false);
    std::string text;
    CollectingSink ignored;
    if (!is_new || !ReadFile(PathOf(fault.file), text, ignored)) return known->second;
    SchemaFault first = fault;
    if (text.rfind("\xFF\xFE", 0) == 0 || text.rfind("\xFE\xFF", 0) == 0) {
      first.line = first.column = 1;
      Add(first, "the file is UTF-16 text", "save it as UTF-8");
      known->second = true;
    } else if (const size_t at = ("\n" + text).find("\n<<<<<<< "); at != text.npos) {
      first.line = 1 + static_cast<int>(std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(at), '\n'));
      first.column = 1;
      Add(first, "a merge conflict is not resolved", "choose one version, and remove the marker lines");
      known->second = true;
    }
    return known->second;
  }

  std::string PathOf(const std::string& file) const { return schema_.proto_dir() + "/" + file; }

  void Report(const SchemaFault& fault) {
    if (const std::string file = ImportOf(fault); !file.empty()) {
      ReportImport(fault, file);
    } else if (IsUndefined(fault)) {
      ReportUndefined(fault);
    } else if (const std::string other = TwinOf(fault); !other.empty()) {
      ReportTwice(fault, other);
    } else if (twins_.count(fault.file) != 0 && (fault.message.find("is already defined in") != std::string::npos ||
                                                 fault.message.rfind("Note that enum values", 0) == 0)) {
      // Protobuf's message about enum values names no file; reported with the types.
    } else if (!Exists(PathOf(fault.file)) && fault.line == 0 && IsImported(fault.file)) {
      // "File not found": reported where it is imported.
    } else {
      Add(fault, fault.message, "");
    }
  }

  bool IsImported(const std::string& file) const {
    return std::any_of(bad_imports_.begin(), bad_imports_.end(), [&](const auto& importer) {
      return std::find(importer.second.begin(), importer.second.end(), file) != importer.second.end();
    });
  }

  void ReportImport(const SchemaFault& fault, const std::string& file) {
    if (Exists(PathOf(file))) {
      Add(fault, "the import \"" + file + "\" has errors", "mend " + DisplayPath(PathOf(file)) + " first");
      return;
    }
    std::vector<std::string> files;
    for (const auto& each : schema_.files()) files.push_back(each.name);
    const std::string near = Nearest(file, files);
    Add(fault, "the import \"" + file + "\" is not there",
        near.empty() ? "remove the line, or put the file into " + DisplayPath(schema_.proto_dir())
                     : "did you mean: import \"" + near + "\";");
  }

  static bool IsUndefined(const SchemaFault& fault) {
    return fault.message.find("is not defined.") != std::string::npos ||
           fault.message.find("seems to be defined in") != std::string::npos;
  }

  /// The schema file that declares a type that another file names; "" if there is none.
  std::string FileOf(const std::string& type) const {
    const std::string name = type[0] == '.' ? type.substr(1) : type;
    for (const char* package :
         {"", "ZO_TUNING.", "ZO_TUNING_AF.", "ZO_TUNING_AWB.", "ZO_TUNING_AEC.", "ZO_TUNING_PD."}) {
      const auto* file = schema_.pool().FindFileContainingSymbol(package + name);
      if (file != nullptr) return file->name();
    }
    return "";
  }

  void ReportUndefined(const SchemaFault& fault) {
    const std::string type = QuotedAfter(fault.message, "");
    std::string file = QuotedAfter(fault.message, "seems to be defined in");
    if (file.empty() && !type.empty()) file = FileOf(type);
    if (const auto broken = bad_imports_.find(fault.file); broken != bad_imports_.end()) {
      // The failed import would have provided it, or may have.
      const bool unknown = std::any_of(broken->second.begin(), broken->second.end(),
                                       [&](const std::string& each) { return Exists(PathOf(each)); });
      if (unknown || !file.empty()) return;
    }
    if (file.empty() || file == fault.file) {
      Add(fault, fault.message, "declare it, correct the name, or import the file that declares it");
    } else if (told_.insert({fault.file, file}).second) {
      Add(fault, "\"" + type + "\" is not defined: the import of \"" + file + "\" is missing",
          "add the line: import \"" + file + "\";");
    }
  }

  /// Both files declare a type, and which of them is loaded depends on the file system.
  void ReportTwice(SchemaFault fault, const std::string& other) {
    if (!told_.insert({fault.file, other}).second) return;
    std::string copied = other;
    if (LooksLikeCopy(other) && !LooksLikeCopy(fault.file)) {
      copied = std::exchange(fault.file, other);
      fault.line = fault.column = 0;
    }
    if (LooksLikeCopy(fault.file)) {
      Add(fault, "this looks like a backup copy of " + Quoted(copied) + ", and it is loaded as part of the schema",
          "move it elsewhere, or remove it: every type is declared twice");
    } else {
      Add(fault, fault.message, "declare it once; if this file is a copy of " + Quoted(copied) + ", move it elsewhere");
    }
  }

  void Add(const SchemaFault& fault, std::string message, std::string hint) {
    // Files that import each other are loaded again for each of them.
    if (!added_.insert({fault.file, fault.line, fault.column, message}).second) return;
    const std::string path = PathOf(fault.file);
    Diagnostic diagnostic(Code::kSchema, std::move(message), std::move(hint), DisplayPath(path));
    diagnostic.line = fault.line;
    diagnostic.column = fault.column;
    if (fault.is_warning) diagnostic.severity = Severity::kWarning;
    if (IsDirectory(path)) {
      // The library skips a directory with such a name.
      diagnostic.severity = Severity::kWarning;
      diagnostic.message = "this is a directory; its name makes it look like a schema file";
      diagnostic.line = diagnostic.column = 0;
    }
    good_ = good_ && diagnostic.severity != Severity::kError;
    sink_.Add(std::move(diagnostic));
  }

  const Schema& schema_;
  const std::vector<SchemaFault>& faults_;
  DiagnosticSink& sink_;
  std::map<std::string, std::vector<std::string>> bad_imports_;  ///< by the file that imports them
  std::set<std::string> twins_;                                  ///< files that declare types of another file
  std::set<std::pair<std::string, std::string>> told_;           ///< the file at fault, and the other one
  std::set<std::tuple<std::string, int, int, std::string>> added_;
  std::map<std::string, bool> other_texts_;  ///< by the file
  bool good_ = true;
};

}  // namespace

bool LooksLikeCopy(const std::string& file) {
  std::string stem = file.substr(0, file.rfind('.'));
  for (char& c : stem) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  if (stem.find('.') != std::string::npos || stem.find(" (") != std::string::npos) return true;
  static constexpr std::array<const char*, 6> kWords = {"copy", "backup", "_bak", "_old", "_orig", "-old"};
  return std::any_of(kWords.begin(), kWords.end(),
                     [&](const char* word) { return stem.find(word) != std::string::npos; });
}

bool ReportSchemaFaults(const Schema& schema, const std::vector<SchemaFault>& faults, DiagnosticSink& sink) {
  return FaultReport(schema, faults, sink).Run();
}

}  // namespace zotuning
