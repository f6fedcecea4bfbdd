/// \file
/// What a change of the schema does to bins that are on devices already, in the terms of buf's rules for breaking
/// changes.
#pragma once

#include <google/protobuf/descriptor.h>

#include <string>
#include <vector>

#include "workspace/diagnostic.h"
#include "workspace/project.h"
#include "workspace/schema_revision.h"

namespace zotuning {

struct SchemaChange {
  bool breaks;  ///< bins or the programs that read them: with one schema a bin is read otherwise than with the other
  std::string rule;  ///< for example "FIELD_SAME_TYPE"; "" for what no rule forbids
  std::string name;  ///< of the type's member in the new schema, or in the old one when it is gone: "AfLens.backlash"
  std::string text;  ///< what changed, for people
};

/// Compares everything that a bin can hold: labels, versions and the modules. Message types are paired by where they
/// are used and modules by their numbers, as in a bin, so that a type may have another name. Rules beside single
/// parameters are left out, since they do not reach a bin. False after errors.
bool CompareSchemas(const SchemaRevision& old_schema, Project& project, std::vector<SchemaChange>& changes,
                    DiagnosticSink& sink);

/// Likewise, of one message type.
void CompareTypes(const google::protobuf::Descriptor* old_type, const google::protobuf::Descriptor* new_type,
                  std::vector<SchemaChange>& changes);

}  // namespace zotuning
