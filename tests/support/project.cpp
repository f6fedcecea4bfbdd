#include "support/project.h"

#include <google/protobuf/text_format.h>

#include <cctype>
#include <filesystem>
#include <regex>

namespace zotest {

Schema::Schema(const std::string& dir) {
  tree_.MapPath("", dir);
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    if (entry.path().extension() == ".proto") importer_.Import(entry.path().filename().string());
  }
}

const Descriptor* Schema::Type(const std::string& full_name) {
  const auto* type = importer_.pool()->FindMessageTypeByName(full_name);
  if (type == nullptr) throw std::logic_error("the test schema lacks " + full_name);
  return type;
}

const Message* Schema::Prototype(const std::string& full_name) { return factory_.GetPrototype(Type(full_name)); }

MessagePtr Schema::New(const std::string& full_name, const std::string& text) {
  MessagePtr message(Prototype(full_name)->New());
  google::protobuf::TextFormat::Parser parser;
  parser.AllowPartialMessage(true);
  EXPECT_TRUE(parser.ParseFromString(text, message.get())) << text;
  return message;
}

std::string Text(const Message& message) { return message.ShortDebugString(); }

const Strings kKinds = {"Bool", "Int32", "Uint32", "Int64", "Uint64", "Double", "Float"};

namespace {

// The types of one kind. Rules declare more than their templates set, so that a test sees what stays unset.
constexpr char kKindTypes[] = R"(
  message KindRule { string description = 1; string recommend = 2; string len = 3; }
  message KindArrayRule { string description = 1; string recommend = 2; int32 order = 3; string len = 4; string row = 5; }
  message KindArrayRule_2D { string description = 1; string recommend = 2; string row = 3; string col = 4; string len = 5; }
  message KindData { scalar value = 1; KindRule rule = 2; }
  message KindArrayData { repeated scalar value = 1; KindArrayRule rule = 2; }
  message KindArrayData_2D {
    message Row { repeated scalar col = 1; } repeated Row value = 1; KindArrayRule_2D rule = 2; }
)";

}  // namespace

void WriteSchema(const std::string& dir) {
  MakeDirs(dir);
  std::filesystem::copy(ZOTUNING_SOURCE_DIR "/tests/support/schema", dir);
  std::string types = R"(syntax = "proto3"; package ZO_TUNING;
    message StructArrayRule { string description = 1; string recommend = 2; string len = 3; }
  )";
  std::string every = "message EveryKind { StructArrayRule every_rule = 1;";
  int number = 2;
  for (const std::string& kind : kKinds) {
    const std::string scalar = static_cast<char>(std::tolower(kind[0])) + kind.substr(1);
    types += std::regex_replace(std::regex_replace(kKindTypes, std::regex("Kind"), kind), std::regex("scalar"), scalar);
    for (const std::string form : {"Data", "ArrayData", "ArrayData_2D"}) {
      every += " " + kind + form + " p" + std::to_string(number) + " = " + std::to_string(number) + ";";
      ++number;
    }
  }
  Write(dir + "/types.proto", types + every + "}");
}

const Strings kLabelNames = {"module", "mode", "scenario", "feature0", "function", "sub_function", "scene", "filter"};
const std::map<int, std::string> kModules = {{0, "AfCommon"}, {1, "AWGain"},         {2, "AEMeter"},   {3, "PdCalib"},
                                             {4, "Noise"},    {5, "AfLinkKeyTable"}, {6, "EveryKind"}, {7, "Ghost"}};
const LabelMap kLabelMap = {{"module", kModules},
                            {"mode", {}},
                            {"scenario", {{0, "Photo"}, {1, "Video"}}},
                            {"feature0", {{0, "None"}, {1, "Zoom"}}},
                            {"function", {{0, "Base"}, {1, "Flash"}}},
                            {"sub_function", {{0, "Main"}, {1, "Pre"}}},
                            {"scene", {{0, "Day"}, {1, "Night"}}},
                            {"filter", {{0, "Off"}, {1, "Mono"}}}};

std::string LabelBytes(const std::vector<int>& values) {
  const auto value = [&](size_t index) { return index < values.size() ? values[index] : -1; };
  // By field number; the fields are numbered out of order.
  return Int(1, value(2)) + Int(2, value(4)) + Int(3, value(1)) + Int(4, value(7)) + Int(5, value(6)) +
         Int(6, value(5)) + Int(7, value(3)) + Int(8, value(0));
}

std::string ConfigBytes(const std::string& name, const Strings& sensors) {
  std::string bytes = Len(1, name);
  for (const std::string& sensor : sensors) bytes += Len(2, sensor);
  return bytes;
}

std::string VersionBytes(const std::string& name, const std::string& version) {
  return (name.empty() ? "" : Len(1, name)) + (version.empty() ? "" : Len(2, version));
}

std::string VersionJson(const std::string& name, const std::string& version) {
  return "{\"name\": \"" + name + "\", \"version\": \"" + version + "\"}";
}

std::string GainJson(const std::string& gain) {
  return R"({"gain": {"value": )" + gain + R"(, "rule": {"description": "[Double]", "recommend": "1.0"}}})";
}

std::string GainBytes(double gain) { return Len(1, Double(1, gain)); }

const char* const kAfJson = R"({
  "enable": {"value": true, "rule": {"description": "[Bool]", "recommend": "None"}},
  "curve": {"value": [1, -2, 300], "rule": {"len": "3", "order": 1}},
  "limits": {"near": {"value": 0.5}, "table": {"value": [{"col": [1.5]}, {"col": []}], "rule": {"row": "2"}}},
  "steps_rule": {"description": "[Repeated]", "len": "2"},
  "steps": [{"position": {"value": 7, "rule": {"recommend": "9"}}}, {}]
})";

std::string AfBytes() {
  const std::string near = Len(1, Float(1, 0.5F));
  const std::string table = Len(2, Len(1, Len(1, Raw(1.5))) + Len(1, ""));
  // Elements of repeated fields keep their rules.
  const std::string steps = Len(5, Len(1, Int(1, 7) + Len(2, Len(2, "9")))) + Len(5, "");
  return Len(2, Len(1, Varint(1) + Varint(-2) + Varint(300))) + Len(3, near + table) + Len(4, Int(1, 1)) + steps;
}

std::string BinBytes(const std::string& version_dir, const std::string& data_dir,
                     const std::vector<Setting>& settings) {
  const Strings versions = JsonInOrder(version_dir);
  std::string bytes = I32(static_cast<int32_t>(versions.size()));
  for (const std::string& path : versions) {
    const std::string json = Read(path);
    const auto quoted = [&](const std::string& before) {
      const size_t begin = json.find(before) + before.size();
      return json.substr(begin, json.find('"', begin) - begin);
    };
    bytes += Item(VersionBytes(quoted("\"name\": \""), quoted("\"version\": \"")));
  }
  std::map<std::string, const Setting*> by_path;
  for (const Setting& setting : settings) by_path[data_dir + "/" + setting.path] = &setting;
  for (const std::string& path : JsonInOrder(data_dir)) {
    bytes += Item(LabelBytes(by_path.at(path)->label)) + Item(by_path.at(path)->module_bytes);
  }
  return bytes;
}

Project::Project(const Strings& sensors) {
  WriteSchema(dir + "/proto");
  for (const std::string made : {"/proto/version", "/default"}) MakeDirs(dir + made);
  for (const std::string& sensor : sensors) MakeDirs(dir + "/" + sensor + "/version");
  MakeDirs(out);
  Write(dir + "/ProjConf.bin", Item(ConfigBytes("proj", sensors)));
}

void Project::Add(const std::string& scope, const std::vector<Setting>& settings) {
  for (const Setting& setting : settings) {
    Write(dir + "/" + scope + "/" + setting.path, setting.json);
    settings_[scope].push_back(setting);
  }
}

std::string Project::Bin(const std::string& scope) {
  return BinBytes(dir + "/" + (scope == "default" ? "proto" : scope) + "/version", dir + "/" + scope, settings_[scope]);
}

}  // namespace zotest
