/// \file
/// The output of a command: results on standard output, messages on standard error, or both in one JSON object.
#pragma once

#include <nlohmann/json.hpp>

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "workspace/diagnostic.h"
#include "workspace/text.h"

namespace zotuning::tool {

using Json = nlohmann::ordered_json;

/// Exit codes of every command.
constexpr int kDone = 0;
constexpr int kFailed = 1;  ///< the job failed, or found faults
constexpr int kMisuse = 2;

/// Collects what a command reports and prints it in the requested form.
class Console : public DiagnosticSink {
 public:
  /// Call before anything is reported. With `json`, everything waits for Finish, which prints one object.
  void Begin(std::string command, bool json);

  void Add(Diagnostic diagnostic) override;

  /// Result text for people; ignored with --json, where `result` has the same information.
  void Print(std::string_view text);
  Json& result() { return result_; }

  /// The text of an element of a list in `result`, much smaller than the Json.
  static std::string ElementText(const Json& element);
  /// Receives the texts of the elements of a list one by one.
  using AddElement = std::function<void(std::string_view)>;
  /// Members of `result` by name, each with what adds the elements of that list.
  using Streams = std::map<std::string, std::function<void(const AddElement&)>>;
  /// With --json: prints the object now, and each of these lists as it is made, so that none is in memory whole. What
  /// is reported after this goes to standard error. `done` is false where the command's exit code will not be 0.
  void StreamResult(const Streams& streams, bool done = true);

  bool json() const { return json_; }
  /// Whether no error has been reported.
  bool ok() const { return errors_ == 0; }
  size_t errors() const { return errors_; }

  /// Prints the JSON object, if requested, and returns the exit code: `code`, but never 0 after an error.
  int Finish(int code);

 private:
  /// Writes to standard output; an empty text flushes it.
  void WriteOut(std::string_view text);
  void PrintObject(bool done, const Streams& streams);

  std::string command_;
  bool json_ = false;
  bool printed_ = false;  ///< whether the JSON object has been printed
  int output_error_ = 0;  ///< errno of the first failed write to standard output
  size_t errors_ = 0;
  std::vector<Diagnostic> diagnostics_;
  Json result_ = Json::object();
};

/// `text` with everything that controls a terminal or hides in it as \xNN or \u{NNNN}: control characters (C1 ones
/// too), and invisible formatting characters, such as changes of direction. Line feeds and tabs are kept if
/// `keep_lines`.
std::string Printable(std::string_view text, bool keep_lines = false);

/// Whether `descriptor` is a terminal that may be coloured (NO_COLOR and TERM=dumb forbid it).
bool MayColour(int descriptor);

using Cells = std::vector<std::string>;

/// Columns of equal width, separated by two spaces, for rows that are made twice: for Measure, and for Line.
class Columns {
 public:
  void Measure(const Cells& row);
  std::string Line(const Cells& row) const;

 private:
  std::vector<size_t> widths_;
};

/// Rows in columns; the first row is the heading.
std::string Table(const std::vector<Cells>& rows);

}  // namespace zotuning::tool
