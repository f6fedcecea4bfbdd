/// \file
/// What a schema change does to bins that are already on devices, in the terms of buf's breaking-change rules.
#pragma once

#include <google/protobuf/descriptor.h>

#include <string>
#include <vector>

#include "workspace/diagnostic.h"
#include "workspace/project.h"
#include "workspace/schema_revision.h"

namespace zotuning {

struct SchemaChange {
  bool breaks;       ///< bins are read differently with one schema than with the other
  std::string rule;  ///< for example "FIELD_SAME_TYPE"; "" if no rule forbids it
  std::string name;  ///< of the member in the new schema, or in the old one if it is gone: "AfLens.backlash"
  std::string text;  ///< what changed, for people
};

/// Compares everything that a bin can contain: labels, versions and the modules. Message types are paired by where they
/// are used and modules by their numbers, as in a bin, so a type may have another name. Rules beside singular
/// parameters are left out, since they do not reach a bin. False after errors.
bool CompareSchemas(const SchemaRevision& old_schema, Project& project, std::vector<SchemaChange>& changes,
                    DiagnosticSink& sink);

/// The same for one message type.
void CompareTypes(const google::protobuf::Descriptor* old_type, const google::protobuf::Descriptor* new_type,
                  std::vector<SchemaChange>& changes);

}  // namespace zotuning
