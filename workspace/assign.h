/// \file
/// New values for what paths select: given as JSON, computed, or read from a table; and values as tables.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "workspace/diagnostic.h"
#include "workspace/json_document.h"
#include "workspace/path_pattern.h"
#include "workspace/table_text.h"

namespace zotuning {

/// "PATH=VALUE", "PATH*=NUMBER" or "PATH+=NUMBER".
struct Assignment {
  enum class Kind { kSet, kMultiply, kAdd };
  PathPattern path;
  Kind kind;
  std::string value;
  bool round = false;  ///< results for integers are rounded
};

/// Nothing if the text is not an assignment; `why` then gives the reason.
std::optional<Assignment> ParseAssignment(std::string_view text, std::string* why);

/// Applies an assignment to a text of the type that `path` was resolved for. VALUE is JSON; strings and enums may be
/// bare words. A list of lists is taken as a table in either of its forms. Each value that the path selects gets the
/// same one; numbers that do not change keep their spelling, and the rest of the text stays as it is. Missing fields
/// are inserted. False after errors that name `file`.
bool Assign(const TypedPath& path, const Assignment& assignment, const std::string& file, std::string* text,
            DiagnosticSink& sink);

/// Values to be distributed over what a path selects: a JSON value, or a table whose cells are converted to the type of
/// the target field.
class TableData {
 public:
  enum class Form { kJson, kCsv, kTsv };

  /// Reads `text`, the contents of `file`. False after errors.
  bool Read(std::string text, Form form, const std::string& file, DiagnosticSink& sink);

  /// As Assign. A single value gets all of it. Otherwise each line of the table, or element of the list, goes to the
  /// values of one list, row or object that the path selects; there must be equally many of both.
  bool Assign(const TypedPath& path, const std::string& file, std::string* text, DiagnosticSink& sink) const;

 private:
  /// The data as the text of a JSON list with the value, or as a list of lists.
  bool ToJson(const FieldEntry& field, std::string* json, DiagnosticSink& sink) const;

  Form form_ = Form::kJson;
  std::string file_;
  std::string json_;
  std::vector<std::vector<Cell>> rows_;
};

/// The format given by a file's suffix or, if that is unknown, by its contents.
TableData::Form FormOf(const std::string& name, std::string_view text);

/// The values that a path selects in one document, as text for TableData::Read. False after an error that names `file`:
/// structures cannot be a table.
bool WriteMatches(const std::vector<Match>& matches, TableData::Form form, const std::string& file, std::string* text,
                  DiagnosticSink& sink);

}  // namespace zotuning
