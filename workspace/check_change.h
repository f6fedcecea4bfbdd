/// \file
/// Whether a changed text is still as good as it was.
#pragma once

#include <google/protobuf/descriptor.h>

#include <string>

#include "workspace/diagnostic.h"
#include "workspace/json_document.h"

namespace zotuning {

/// Reports what is wrong with `after`, a text of type `type`, that was not wrong with `before`: errors and, as errors,
/// values that their rules do not allow, unless `allow_rules`. `file` is for the diagnostics alone. True when there is
/// nothing.
bool CheckChange(const JsonDocument& before, const JsonDocument& after, const google::protobuf::Descriptor* type,
                 bool allow_rules, const std::string& file, DiagnosticSink& sink);

}  // namespace zotuning
