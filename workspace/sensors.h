/// \file
/// The list of sensors in a project's configuration, and the folders that go with it. Each change is made whole or,
/// after an error, not at all.
#pragma once

#include <string>
#include <vector>

#include "project.h"

namespace zotuning {

/// The content of ProjConf.bin; "" after an error.
std::string ConfigText(Schema& schema, const std::string& name, const std::vector<std::string>& sensors,
                       DiagnosticSink& sink);

/// Whether a new sensor may be called `name`: a folder can be, and no level of the tree, the names of which are
/// `labels`, hides in it. Reports with `code` why not.
bool CheckSensorName(const std::string& name, const std::vector<std::string>& labels, Code code, DiagnosticSink& sink);

/// Lists a sensor and makes its folder, as a copy of that of the sensor `from` unless that is "". A folder that is
/// there is listed as it is.
bool AddSensor(Project& project, const std::string& name, const std::string& from, DiagnosticSink& sink);

/// Takes a listed sensor out of the list and removes its folder.
bool RemoveSensor(Project& project, const std::string& name, DiagnosticSink& sink);

/// Gives a listed sensor and its folder another name.
bool RenameSensor(Project& project, const std::string& name, const std::string& to, DiagnosticSink& sink);

}  // namespace zotuning
