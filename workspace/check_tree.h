/// \file
/// Checks the tree of settings by names alone: what the labels do not know, what is in the wrong place, and what
/// packing ignores although it looks like data.
#pragma once

#include <string>
#include <vector>

#include "workspace/diagnostic.h"
#include "workspace/project.h"

namespace zotuning {

/// Reports what is wrong with the paths of the settings of one scope: unknown files and folders (one message per
/// folder), folders not in the order of the labels, and settings with the same labels.
void CheckPlaces(const Project& project, const std::vector<Setting>& settings, DiagnosticSink& sink);

/// Reports what looks like data below the folder `relative` of a scope ("" for all of it) but is not packed: links to
/// folders, other suffixes, settings below a folder "version".
void CheckUnread(const Project& project, const std::string& scope, const std::string& relative, DiagnosticSink& sink);

/// Reports listed sensors without a folder, folders that look like a sensor's but are not listed, and settings beside
/// these folders.
void CheckSensorFolders(const Project& project, DiagnosticSink& sink);

}  // namespace zotuning
