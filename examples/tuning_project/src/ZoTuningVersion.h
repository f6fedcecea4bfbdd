// Names and versions of this project's tuning data, for programs that are built together with it.
#pragma once

// [3AProto] Everything below this line is generated from proto/version.
#define VERSION1_NAME "AEC"
#define VERSION1_VAL "1.6.2"
#define VERSION2_NAME "AF"
#define VERSION2_VAL "2.1.0"
#define VERSION3_NAME "AWB"
#define VERSION3_VAL "1.3.0"
#define VERSION4_NAME "PD"
#define VERSION4_VAL "1.1.4"
#define VERSION5_NAME "SCHEMA"
#define VERSION5_VAL "3.0.1"
#define VERSION_NUM 5
