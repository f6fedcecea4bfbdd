/// \file
/// Rules of a template from the comments of the schema.
#pragma once

#include <google/protobuf/descriptor.h>

#include <string>

namespace zotuning {

/// A template of `type` whose rules say what the comments of its fields say: the range as "recommend", sizes as "len",
/// "row" and "col", and the unit after the kind in "description". The rest stays as in the plain template.
std::string WithCommentRules(const std::string& template_text, const google::protobuf::Descriptor* type);

}  // namespace zotuning
