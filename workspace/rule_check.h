/// \file
/// Values against the rules beside them; docs/rule-annotations.md has the grammar. For the checks alone.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "workspace/findings.h"
#include "workspace/json_document.h"
#include "workspace/path_frame.h"

namespace zotuning {

/// What to look for.
struct RuleOptions {
  bool values;     ///< `len`, `row`, `col` and `recommend` against the value, NaN and infinities
  bool templates;  ///< rules that are still as a template has them
};

/// What a rule's `recommend` asks of numbers.
struct RuleRange {
  double low;
  double high;
};

/// Reads "LOW..HIGH"; nothing for other texts, which are for people. `fault` is set where it was meant and is wrong.
std::optional<RuleRange> ReadRuleRange(std::string_view text, const char** fault = nullptr);

/// Reads a rule's `len`, `row` or `col`; nothing where none is fixed. `fault` is set where the text is no size.
std::optional<size_t> ReadRuleSize(std::string_view text, const char** fault = nullptr);

/// `value` and `rule` of a parameter, at the path `at`. Either may be none.
void CheckParameter(const JsonValue& value, const JsonValue& rule, const PathFrame& at, RuleOptions options,
                    Findings& findings);

/// A list of structures, at the path `at`, and the rule that stands beside it, at `rule_at`.
void CheckListRule(const JsonValue& list, const JsonValue& rule, const PathFrame& at, const PathFrame& rule_at,
                   RuleOptions options, Findings& findings);

}  // namespace zotuning
