/// \file
/// JSON Schemas of modules, for editors.
#pragma once

#include <google/protobuf/descriptor.h>

#include <string>

#include "console.h"
#include "workspace/json_document.h"

namespace zotuning::tool {

/// The JSON Schema (draft-07) of the settings of a module: fields, types and enum names from `type`, with the comments
/// of the .proto files as descriptions; every field that packing requires is required, other keys are not allowed.
/// Ranges and sizes are those of the rules in `defaults`, none if it has no root; if a setting's own rule differs, they
/// do not apply. Numbers in quotes are valid, as in packing; other forms that packing accepts, such as a single value
/// for a list, are not.
Json ModuleSchema(const std::string& module, const google::protobuf::Descriptor* type, const JsonDocument& defaults);

}  // namespace zotuning::tool
