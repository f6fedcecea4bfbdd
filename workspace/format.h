/// \file
/// The one canonical form of JSON files: fields in the order of the schema, lines indented as the library prints them,
/// tables one row to a line, short lists in one line; numbers as they are written.
#pragma once

#include <google/protobuf/descriptor.h>

#include <cstddef>
#include <optional>
#include <string>

#include "workspace/json_document.h"

namespace zotuning {

/// The canonical form of a text of type `type`; nothing when it is not ok(), no object, or nested beyond all sense.
/// Keys that the type does not have follow the others, keys that stand twice stay in their order, so that the text
/// means what it meant. What only protobuf's parser takes becomes strict JSON.
std::optional<std::string> FormatJson(const JsonDocument& document, const google::protobuf::Descriptor* type);

/// The canonical form of a value of `field`, null for one that is unknown, for JsonEdit: no indentation but that of its
/// inner lines. `columns` is the number of values in a row, 0 for a list that is no table. Nothing as above.
std::optional<std::string> FormatValue(const JsonValue& value, const google::protobuf::FieldDescriptor* field,
                                       size_t columns);

/// A value as strict JSON in one line. What is nested beyond all sense stays as it is.
std::string OneLine(const JsonValue& value);

/// The number of values in a row of a table: "col" of the rule beside the value in `parameter`, 0 where none is fixed.
size_t TableColumns(const JsonValue& parameter);

}  // namespace zotuning
