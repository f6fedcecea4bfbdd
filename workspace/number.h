/// \file
/// Arithmetic on the numbers of JSON texts: decimal, so that 0.1 * 1.05 is 0.105, and exact for the field's type.
#pragma once

#include <google/protobuf/descriptor.h>

#include <optional>
#include <string>
#include <string_view>

#include "workspace/json_document.h"

namespace zotuning {

enum class Operation { kMultiply, kAdd };

/// Whether `text` is a number that Calculate accepts as its operand.
bool IsNumber(std::string_view text);

/// The number of a field after an operation, in the shortest form that reads back as the nearest value of the field's
/// type; spelled as before if it does not change. Nothing if it is not a number, or the type cannot hold the result:
/// `why` then gives the reason. With `round`, an integer is rounded to the nearest one, halves away from zero.
std::optional<std::string> Calculate(const JsonValue& number, Operation operation, std::string_view operand, bool round,
                                     const google::protobuf::FieldDescriptor* field, std::string* why);

/// Whether two scalars read as the same value of the field's type.
bool IsSameScalar(const JsonValue& left, const JsonValue& right, const google::protobuf::FieldDescriptor* field);

}  // namespace zotuning
