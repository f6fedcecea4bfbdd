/// \file
/// The list of sensors in a project's configuration, and their folders. Each change is made completely or, after an
/// error, not at all.
#pragma once

#include <string>
#include <vector>

#include "project.h"

namespace zotuning {

/// The contents of ProjConf.bin; "" after an error.
std::string ConfigText(Schema& schema, const std::string& name, const std::vector<std::string>& sensors,
                       DiagnosticSink& sink);

/// Whether a new sensor may be called `name`: it can be a folder, and does not contain a level of the tree, whose names
/// are `labels`. Reports with `code` why not.
bool CheckSensorName(const std::string& name, const std::vector<std::string>& labels, Code code, DiagnosticSink& sink);

/// Adds a sensor to the list and creates its folder, as a copy of that of the sensor `from` unless that is "". An
/// existing folder is kept as it is.
bool AddSensor(Project& project, const std::string& name, const std::string& from, DiagnosticSink& sink);

/// Removes a sensor from the list, and its folder.
bool RemoveSensor(Project& project, const std::string& name, DiagnosticSink& sink);

/// Renames a sensor and its folder.
bool RenameSensor(Project& project, const std::string& name, const std::string& to, DiagnosticSink& sink);

}  // namespace zotuning
