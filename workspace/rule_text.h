/// \file
/// What rules and schema comments say about a parameter in words: "0..511", "9 elements", "3 rows of 6", "17x13".
#pragma once

#include <google/protobuf/descriptor.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace zotuning {

/// A finite number, with or without spaces around it.
std::optional<double> ToNumber(std::string_view text);

struct ValueRange {
  double low;
  double high;
  std::string text;  ///< "0..511"
};

enum class RangeFault {
  kNone,
  kOrder,  ///< the first number is the larger one
  kForm,   ///< one of the two is not a number
};

/// The range at the start of a text, after "Range:" or not; what follows a space or comma is for people. Nothing if
/// there is none; `fault` tells whether one was intended.
std::optional<ValueRange> ReadRange(std::string_view text, RangeFault* fault);

/// A number of elements, rows or columns: "9" or "9 elements". Nothing for "", "None" and -1, which give none, and,
/// with `unclear` set, for other texts.
std::optional<size_t> ReadSize(std::string_view text, bool* unclear);

/// Sizes within a text.
struct Sizes {
  std::optional<size_t> length;  ///< of "9 elements"
  std::optional<size_t> rows;    ///< of "3 rows of 6" and "3x6"
  std::optional<size_t> columns;
};
Sizes ReadSizes(std::string_view text);

/// What the comment on a field says in the form "Unit: code. Range: 0..511, 9 elements."
struct CommentRule {
  std::optional<ValueRange> range;
  Sizes sizes;
  std::string unit;
};
CommentRule ReadCommentRule(const std::string& comment);

/// The comments before and after a declaration, as one line of text; "" if there are none.
template <typename Declaration>
std::string CommentOf(const Declaration* declaration) {
  google::protobuf::SourceLocation location;
  if (!declaration->GetSourceLocation(&location)) return "";
  const std::string text = location.leading_comments + " " + location.trailing_comments;
  std::string line;
  for (const char c : text) {
    const bool blank = c == ' ' || c == '\n' || c == '\t' || c == '\r';
    if (!blank) {
      line += c;
    } else if (!line.empty() && line.back() != ' ') {
      line += ' ';
    }
  }
  while (!line.empty() && line.back() == ' ') line.pop_back();
  return line;
}

}  // namespace zotuning
