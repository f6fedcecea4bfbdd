/// \file
/// The canonical form of JSON files: fields in the order of the schema, lines indented as the library prints them,
/// tables one row to a line, short lists on one line; numbers as they are written.
#pragma once

#include <google/protobuf/descriptor.h>

#include <cstddef>
#include <optional>
#include <string>

#include "workspace/json_document.h"

namespace zotuning {

/// The canonical form of a text of type `type`; nothing if it is not ok(), not an object, or nested too deeply. Unknown
/// keys come last and duplicate keys keep their order, so that the text keeps its meaning. What only protobuf's parser
/// accepts becomes strict JSON.
std::optional<std::string> FormatJson(const JsonDocument& document, const google::protobuf::Descriptor* type);

/// The canonical form of a value of `field` (null if unknown) for JsonEdit: only its inner lines are indented.
/// `columns` is the number of values in a row, 0 for a list that is not a table. Nothing as above.
std::optional<std::string> FormatValue(const JsonValue& value, const google::protobuf::FieldDescriptor* field,
                                       size_t columns);

/// A value as strict JSON on one line. If nested too deeply, it stays as it is.
std::string OneLine(const JsonValue& value);

/// The number of values in a row of a table: "col" of the rule beside the value in `parameter`, 0 if it gives none.
size_t TableColumns(const JsonValue& parameter);

}  // namespace zotuning
