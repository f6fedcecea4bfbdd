/// \file
/// Whether a value that is neither an object nor a list fits a field, as protobuf's parser decides it. Only for the
/// checks.
#pragma once

#include <google/protobuf/descriptor.h>

#include <optional>
#include <string>

#include "workspace/json_document.h"

namespace zotuning {

/// Why a value does not fit, or fits only in protobuf.
struct Misfit {
  Code code = Code::kJsonMisfit;
  std::string hint;
};

/// For fields that are neither messages nor groups, and values that are neither null nor invalid.
std::optional<Misfit> CheckScalar(const google::protobuf::FieldDescriptor* field, const JsonValue& value);

/// "float", or the name of the enum or message type.
std::string TypeName(const google::protobuf::FieldDescriptor* field);

}  // namespace zotuning
