// A second unit, with the public header first: it does not build if the header lacks or duplicates something. The list
// of exports pins the types of the other functions, this unit those of the inline ones.

#include "ZoTuningUtils.h"

#include <type_traits>

namespace {

using google::protobuf::Descriptor;
using google::protobuf::Message;
using String = std::string;
using Strings = std::vector<std::string>;
using Map = std::map<std::string, std::map<int, std::string>>;
using Ints = std::vector<int>;

#define EXPECT_TYPE(function, ...) static_assert(std::is_same_v<decltype(&function), __VA_ARGS__>)

EXPECT_TYPE(ZO_TUNING::ADD_NAMESPACE_TO_CLASSNAME, void (*)(const String&, String&));
EXPECT_TYPE(ZO_TUNING::MSG_TO_BIN, void (*)(const Message*, const char*));
EXPECT_TYPE(ZO_TUNING::ADD_GITKEEP_TO_DIR, void (*)(const String&));
EXPECT_TYPE(ZO_TUNING::JSON_FILE_TO_STR, bool (*)(const String&, String&));
EXPECT_TYPE(ZO_TUNING::JSON_STR_TO_MSG, bool (*)(const String&, Message*));
EXPECT_TYPE(ZO_TUNING::MSG_TO_JSON_STR, void (*)(Message*, const Descriptor*, String&));
EXPECT_TYPE(ZO_TUNING::JSON_STR_TO_FILE, void (*)(const String&, const String&));
EXPECT_TYPE(ZO_TUNING::MSG_INIT_FOR_JSON, void (*)(Message*, const Descriptor*));
EXPECT_TYPE(ZO_TUNING::MSG_PRONE_FOR_BIN, void (*)(Message*, const Descriptor*));
EXPECT_TYPE(ZO_TUNING::TUNING_CONFIG_TO_PATH,
            void (*)(const char*, const String&, Strings&, Map&, const Ints&, String&));
EXPECT_TYPE(ZO_TUNING::PATH_TO_TUNING_CONFIG, void (*)(const String&, Strings&, Map&, Ints&));
EXPECT_TYPE(ZO_TUNING::PARSE_VERSION_FROM_STR, bool (*)(String, Strings&));
EXPECT_TYPE(ZO_TUNING::HEADER_FILE_TO_STR, bool (*)(String, String&));
EXPECT_TYPE(ZO_TUNING::CONSIST_VERSION_TO_STR, bool (*)(String&, Strings));
EXPECT_TYPE(ZO_TUNING::STR_TO_HEADER_FILE, bool (*)(String, String&));
static_assert(sizeof(start_t) == 256 * 16 && sizeof(end_t) == 256 * 16 && sizeof(ZoTuningDateTime) == 56);

}  // namespace
