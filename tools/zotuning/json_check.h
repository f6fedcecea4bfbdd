/// \file
/// Whether a JSON text fits its message type, told with file, line and column.
#pragma once

#include <google/protobuf/descriptor.h>

#include <string>

#include "project.h"
#include "report.h"
#include "schema_view.h"

namespace zotuning_tool {

/// Whether every field of the type has to occur in the text, as packing demands of settings.
enum class Fields { kAll, kAny };

/// Converts `text`, the content of `file`, as the library does, and reports why it does not fit `type`. True when it
/// fits.
bool CheckJson(const std::string& file, const std::string& text, const google::protobuf::Descriptor* type,
               SchemaView& schema, Fields fields, Report& report);

/// The same for the file of a setting, whose module gives the type.
bool CheckSetting(Project& project, const Setting& setting, Fields fields, Report& report);

/// The same for the version files of a scope; `count` is increased by their number.
bool CheckVersionFiles(Project& project, const std::string& scope, size_t& count, Report& report);

}  // namespace zotuning_tool
