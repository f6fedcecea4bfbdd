/// \file
/// What protobuf reports about the files of a schema, once for each cause.
#pragma once

#include <string>
#include <vector>

#include "diagnostic.h"
#include "schema/schema.h"

namespace zotuning {

/// Whether the name of a .proto file looks like that of a copy: "af.orig.proto", "af (1).proto".
bool LooksLikeCopy(const std::string& file);

/// Reports the faults of loading `schema`. Consequential faults are left out: types that a missing or broken import
/// would have provided, and all but the first of those that two files declare. False after an error.
bool ReportSchemaFaults(const ZO_TUNING::internal::Schema& schema,
                        const std::vector<ZO_TUNING::internal::SchemaFault>& faults, DiagnosticSink& sink);

}  // namespace zotuning
