// A second unit with the public header, first in it: whatever it leaves out or defines twice does not build. It holds
// the public functions to their types.

#include "ZoTuningUtils.h"

#include <type_traits>

namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::compiler::Importer;
using Z = ZoTuningUtils;
using String = std::string;
using Strings = std::vector<std::string>;
using Map = std::map<std::string, std::map<int, std::string>>;
using Ints = std::vector<int>;
using Messages = std::vector<Message*>;

#define EXPECT_TYPE(function, ...) static_assert(std::is_same_v<decltype(&function), __VA_ARGS__>)

EXPECT_TYPE(Z::ImportDescriptors, void (*)(const char*, Importer&));
EXPECT_TYPE(Z::GetDescByClassName, const Descriptor* (*)(const Importer&, const char*));
EXPECT_TYPE(Z::InitProjectConfig, void (*)(const char*, const char*, const Strings&, const char*));
EXPECT_TYPE(Z::InitProjConfigMsg, bool (*)(Message*, const Descriptor*, const char*, const Strings&));
EXPECT_TYPE(Z::GetProjectConfig, bool (*)(const char*, String&, Strings&, Strings&, Map&));
EXPECT_TYPE(Z::InitProjConfigMsgFromBin, bool (*)(Message*, const Descriptor*, const char*, String&, Strings&));
EXPECT_TYPE(Z::GetProjectTuningLabelsMap, bool (*)(const Descriptor*, Strings&, Map&));
EXPECT_TYPE(Z::InitTuningLabelMsg, bool (*)(Message*, const Descriptor*, Strings&, const Ints&));
EXPECT_TYPE(Z::ParseTuningLabelMsg, bool (*)(Message*, const Descriptor*, Strings&, Ints&));
EXPECT_TYPE(Z::FindAllJsonFiles, bool (*)(const char*, Strings&));
EXPECT_TYPE(Z::GenerateDefaultModuleData, bool (*)(const char*, const char*));
EXPECT_TYPE(Z::CreateNewTuningSetting, bool (*)(const char*, Strings&, Map&, String&, Ints&));
EXPECT_TYPE(Z::CreateMultipleNewTuningSetting, bool (*)(const char*, Strings&, Map&, String&, std::vector<Ints>&));
EXPECT_TYPE(Z::GetTuningRootFolder, bool (*)(const char*, Strings&));
EXPECT_TYPE(Z::GetVersionMsgs, bool (*)(const char*, const Message*, Messages&));
EXPECT_TYPE(Z::UpdateProtoVersionJsonFile, bool (*)(const char*, const char*, const char*));
EXPECT_TYPE(Z::GeneratedNewVersionHeader, bool (*)(const String&));
EXPECT_TYPE(Z::GenerateProjTuningBins, bool (*)(const char*, const char*));
EXPECT_TYPE(Z::GenerateSpecificSensorBin, bool (*)(const char*, const char*));
EXPECT_TYPE(Z::DumpProjTuningBins, bool (*)(const char*, const char*));
EXPECT_TYPE(Z::DumpBinVersions, bool (*)(const char*, const char*));
EXPECT_TYPE(Z::FindTuningBinFiles, bool (*)(const char*, Strings&, Strings&));
EXPECT_TYPE(Z::ParseVersionMsgFromBin, bool (*)(const String&, const Message*, Messages&));
EXPECT_TYPE(ZO_TUNING::ADD_NAMESPACE_TO_CLASSNAME, void (*)(const String&, String&));
EXPECT_TYPE(ZO_TUNING::CheckFieldInString, bool (*)(const FieldDescriptor*, const String&));
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
[[maybe_unused]] constexpr void (*kLogger)(const char*, int, const char*, unsigned, unsigned, const char*,
                                           ...) = &DatacenterLoggerFunction;
EXPECT_TYPE(FileCreate, void (*)());
EXPECT_TYPE(GetFileName, const char* (*)(const char*));
EXPECT_TYPE(StartTime, void (*)(int));
EXPECT_TYPE(EndTime, void (*)(const char*, int, const char*, int));
EXPECT_TYPE(now_ms, double (*)());
EXPECT_TYPE(GetDateTime, void (*)(ZoTuningDateTime*));
EXPECT_TYPE(__property_get, int (*)(const char*, char*, const char*));
static_assert(sizeof(start_t) == 256 * 16 && sizeof(end_t) == 256 * 16 && sizeof(ZoTuningDateTime) == 56);

}  // namespace
