/// \file
/// New values for what paths name: given as JSON, calculated, or read from a table; and values as tables.
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
  bool round = false;  ///< results for integers become the nearest ones
};

/// Nothing where the text is none; `why` says so then.
std::optional<Assignment> ParseAssignment(std::string_view text, std::string* why);

/// Makes an assignment in a text of the type that `path` was resolved for. VALUE is JSON; for a string or enum the bare
/// word will do. A list of lists is taken for a table in either of its forms. Each value that the path names gets the
/// same; numbers that stay the same stay as they are written, and so does the rest of the text. Fields that are missing
/// are inserted. False after errors that name `file`.
bool Assign(const TypedPath& path, const Assignment& assignment, const std::string& file, std::string* text,
            DiagnosticSink& sink);

/// Values to be distributed over what a path names: a JSON value, or a table, whose cells are turned into the type of
/// the field that they are meant for.
class TableData {
 public:
  enum class Form { kJson, kCsv, kTsv };

  /// Reads `text`, from `file`. False after errors.
  bool Read(std::string text, Form form, const std::string& file, DiagnosticSink& sink);

  /// As Assign. A single value gets all of it. Otherwise each line of the table, or element of the list, goes to the
  /// values of one list, row or object that the path names, and their numbers have to be the same.
  bool Assign(const TypedPath& path, const std::string& file, std::string* text, DiagnosticSink& sink) const;

 private:
  /// The data as the text of a JSON list with the value, or as a list of lists.
  bool ToJson(const FieldEntry& field, std::string* json, DiagnosticSink& sink) const;

  Form form_ = Form::kJson;
  std::string file_;
  std::string json_;
  std::vector<std::vector<Cell>> rows_;
};

/// The form that a file's name or, without a known suffix, its contents tell.
TableData::Form FormOf(const std::string& name, std::string_view text);

/// The values that a path names in one document as the text that TableData::Read takes. False after an error that names
/// `file`: structures have no form as a table.
bool WriteMatches(const std::vector<Match>& matches, TableData::Form form, const std::string& file, std::string* text,
                  DiagnosticSink& sink);

}  // namespace zotuning
