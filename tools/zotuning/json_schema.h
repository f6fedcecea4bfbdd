/// \file
/// JSON Schemas of modules, for editors.
#pragma once

#include <google/protobuf/descriptor.h>

#include <string>

#include "console.h"
#include "workspace/json_document.h"

namespace zotuning::tool {

/// The JSON Schema (draft-07) of the settings of a module: fields, types and enum names from `type`, with the comments
/// of the .proto files as descriptions, every field required that packing asks for, no other keys. Ranges and sizes are
/// those of the rules in `defaults`, none when it has no root; where a setting's own rule says otherwise, they do not
/// apply. Values of numbers in quotes fit, as packing takes them; what packing makes of other oddities, as one value
/// for a list, does not.
Json ModuleSchema(const std::string& module, const google::protobuf::Descriptor* type, const JsonDocument& defaults);

}  // namespace zotuning::tool
