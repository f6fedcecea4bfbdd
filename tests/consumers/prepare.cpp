// Makes the list of sensors for a copy of the example project, as its README says.
#include "ZoTuningUtils.h"

int main() {
  ZoTuningUtils::InitProjectConfig("copy/tuning_project/proto", "tuning_project", {"main_wide", "front"}, "copy");
}
