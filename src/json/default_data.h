/// \file
/// The default data of a module: its template.
#pragma once

#include <google/protobuf/descriptor.h>

#include <string>

#include "json/json_text-inl.h"
#include "schema/schema.h"

namespace ZO_TUNING {
namespace internal {

/// Replaces `json` with the template of the module type `type`, the content of its default file. Anything the schema
/// lacks for it goes to `sink`; the text is as complete as the schema allows.
JsonResult ModuleTemplate(Schema& schema, const google::protobuf::Descriptor* type, const TemplateSink& sink,
                          std::string* json);

}  // namespace internal
}  // namespace ZO_TUNING
