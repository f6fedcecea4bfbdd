/// \file
/// Values against the rules beside them; docs/rule-annotations.md has the grammar. Only for the checks.
#pragma once

#include "workspace/findings.h"
#include "workspace/json_document.h"
#include "workspace/path_frame.h"

namespace zotuning {

/// What to look for.
struct RuleOptions {
  bool values;     ///< `len`, `row`, `col` and `recommend` against the value, NaN and infinities
  bool templates;  ///< rules that are unchanged from a template
};

/// `value` and `rule` of a parameter, at the path `at`. Either may be none.
void CheckParameter(const JsonValue& value, const JsonValue& rule, const PathFrame& at, RuleOptions options,
                    Findings& findings);

/// A list of structures, at the path `at`, and the rule beside it, at `rule_at`.
void CheckListRule(const JsonValue& list, const JsonValue& rule, const PathFrame& at, const PathFrame& rule_at,
                   RuleOptions options, Findings& findings);

}  // namespace zotuning
