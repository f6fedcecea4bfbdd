// The header in a second unit of the same program, with all inline functions compiled into it.
#include "ZoTuningUtils.h"

template <typename... Functions>
bool AllPresent(Functions... functions) {
  return ((functions != nullptr) && ...);
}

bool HasInlineFunctions() {
  using namespace ZO_TUNING;
  return AllPresent(ADD_NAMESPACE_TO_CLASSNAME, MSG_TO_BIN, ADD_GITKEEP_TO_DIR, JSON_FILE_TO_STR, JSON_STR_TO_MSG,
                    MSG_TO_JSON_STR, JSON_STR_TO_FILE, MSG_INIT_FOR_JSON, MSG_PRONE_FOR_BIN, TUNING_CONFIG_TO_PATH,
                    PATH_TO_TUNING_CONFIG, PARSE_VERSION_FROM_STR, HEADER_FILE_TO_STR, CONSIST_VERSION_TO_STR,
                    STR_TO_HEADER_FILE);
}
