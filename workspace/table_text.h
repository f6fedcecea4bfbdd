/// \file
/// Tables as spreadsheets write and read them: CSV according to RFC 4180, or TSV with the same quoting.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "workspace/diagnostic.h"

namespace zotuning {

struct Cell {
  std::string text;
  int line;    ///< from 1
  int column;  ///< of cells, from 1
};

/// Appends the rows of `text`; empty lines are skipped. Rows may differ in length. False after an error that names
/// `file`.
bool ReadTable(std::string_view text, char separator, const std::string& file, std::vector<std::vector<Cell>>& rows,
               DiagnosticSink& sink);

/// Appends a row.
void WriteRow(const std::vector<std::string>& cells, char separator, std::string* text);

}  // namespace zotuning
