// Tested by tests/workspace/assign_test.cpp.

#include "workspace/table_text.h"

#include <utility>

namespace zotuning {

bool ReadTable(std::string_view text, char separator, const std::string& file, std::vector<std::vector<Cell>>& rows,
               DiagnosticSink& sink) {
  if (text.substr(0, 3) == "\xef\xbb\xbf") text.remove_prefix(3);  // spreadsheets start their files with it
  int line = 1;
  for (size_t at = 0; at < text.size();) {
    std::vector<Cell> row;
    bool quoted_any = false;
    for (bool more = true; more;) {
      Cell cell{"", line, static_cast<int>(row.size()) + 1};
      if (text.substr(at, 1) == "\"") {
        quoted_any = true;
        for (++at;; ++at) {
          if (at == text.size()) {
            Diagnostic fault(Code::kBadTable, "a quote is not closed", "", file);
            fault.line = cell.line;
            fault.column = cell.column;
            sink.Add(std::move(fault));
            return false;
          }
          if (text[at] == '"' && text.substr(at, 2) != "\"\"") break;
          at += text[at] == '"' ? 1 : 0;
          line += text[at] == '\n' ? 1 : 0;
          cell.text += text[at];
        }
        ++at;
      }
      const size_t quoted = cell.text.size();
      while (at < text.size() && text[at] != separator && text[at] != '\n') cell.text += text[at++];
      more = at < text.size() && text[at] == separator;
      if (!more && cell.text.size() > quoted && cell.text.back() == '\r') cell.text.pop_back();
      at += at < text.size() ? 1 : 0;
      row.push_back(std::move(cell));
    }
    ++line;
    if (row.size() > 1 || !row[0].text.empty() || quoted_any) rows.push_back(std::move(row));
  }
  return true;
}

void WriteRow(const std::vector<std::string>& cells, char separator, std::string* text) {
  const char* between = "";
  const char one[] = {separator, '\0'};
  for (const std::string& cell : cells) {
    *text += std::exchange(between, one);
    if (cell.find_first_of(std::string("\"\r\n") + separator) == std::string::npos && !cell.empty()) {
      *text += cell;
      continue;
    }
    *text += '"';
    for (const char c : cell) {
      if (c == '"') *text += '"';
      *text += c;
    }
    *text += '"';
  }
  *text += '\n';
}

}  // namespace zotuning
