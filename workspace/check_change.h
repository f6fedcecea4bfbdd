/// \file
/// Whether a changed text is still as good as it was.
#pragma once

#include <google/protobuf/descriptor.h>

#include <string>

#include "workspace/diagnostic.h"
#include "workspace/json_document.h"

namespace zotuning {

/// Reports what is wrong with `after`, a text of type `type`, and was not wrong with `before`: errors and, as errors,
/// values that break their rules, unless `allow_rules`. `file` is only for the diagnostics. True if there is nothing to
/// report.
bool CheckChange(const JsonDocument& before, const JsonDocument& after, const google::protobuf::Descriptor* type,
                 bool allow_rules, const std::string& file, DiagnosticSink& sink);

}  // namespace zotuning
