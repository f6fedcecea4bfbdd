#include "support/project.h"

#include <google/protobuf/text_format.h>

#include <filesystem>

namespace zotest {

Schema::Schema(const std::string& dir) {
  tree_.MapPath("", dir);
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    if (entry.path().extension() == ".proto") importer_.Import(entry.path().filename().string());
  }
}

const google::protobuf::Descriptor* Schema::Type(const std::string& full_name) {
  const auto* type = importer_.pool()->FindMessageTypeByName(full_name);
  if (type == nullptr) throw std::logic_error("the test schema lacks " + full_name);
  return type;
}

const Message* Schema::Prototype(const std::string& full_name) { return factory_.GetPrototype(Type(full_name)); }

MessagePtr Schema::New(const std::string& full_name, const std::string& text) {
  MessagePtr message(Prototype(full_name)->New());
  EXPECT_TRUE(google::protobuf::TextFormat::ParseFromString(text, message.get())) << text;
  return message;
}

std::string Text(const Message& message) { return message.ShortDebugString(); }

const std::vector<Kind> kKinds = {
    {"Bool", "bool", "Bool"},    {"Int32", "int32", "Int32"},    {"Uint32", "uint32", "UInt32"},
    {"Int64", "int64", "Int64"}, {"Uint64", "uint64", "UInt64"}, {"Double", "double", "Double"},
    {"Float", "float", "Float"},
};

void WriteSchema(const std::string& dir) {
  // Rules declare more than their templates set, so that a test sees what stays alone.
  std::string types = R"(syntax = "proto3"; package ZO_TUNING;
    message StructArrayRule { string description = 1; string recommend = 2; string len = 3; }
  )";
  std::string every = "message EveryKind { StructArrayRule every_rule = 1;";
  int number = 2;
  for (const Kind& kind : kKinds) {
    const std::string name = kind.name;
    const std::string scalar = kind.scalar;
    types += "message " + name +
             "Rule { string description = 1; string recommend = 2; string len = 3; }"
             "message " +
             name +
             "ArrayRule {"
             "  string description = 1; string recommend = 2; int32 order = 3; string len = 4; string row = 5; }"
             "message " +
             name +
             "ArrayRule_2D {"
             "  string description = 1; string recommend = 2; string row = 3; string col = 4; string len = 5; }"
             "message " +
             name + "Data { " + scalar + " value = 1; " + name +
             "Rule rule = 2; }"
             "message " +
             name + "ArrayData { repeated " + scalar + " value = 1; " + name +
             "ArrayRule rule = 2; }"
             "message " +
             name + "ArrayData_2D { message Row { repeated " + scalar +
             " col = 1; }"
             "  repeated Row value = 1; " +
             name + "ArrayRule_2D rule = 2; }\n";
    for (const std::string form : {"Data", "ArrayData", "ArrayData_2D"}) {
      every += " " + name + form + " p" + std::to_string(number) + " = " + std::to_string(number) + ";";
      ++number;
    }
  }
  Write(dir + "/types.proto", types + every + "}");
  Write(dir + "/project.proto", R"(syntax = "proto3"; package ZO_TUNING;
    message TuningProjConfig { repeated string sensor_names = 2; string proj_name = 1; int32 revision = 3; }
    message Version { string version = 2; string name = 1; string note = 3; }
    enum Module { Module_AfCommon = 0; Module_AWGain = 1; Module_AEMeter = 2; Module_PdCalib = 3; Module_Noise = 4;
                  Module_AfLinkKeyTable = 5; Module_EveryKind = 6; Module_Ghost = 7; }
    enum Scenario { Scenario_Photo = 0; Scenario_Video = 1; }
    enum Feature0 { Feature0_None = 0; Feature0_Zoom = 1; }
    enum Function { Function_Base = 0; Function_Flash = 1; }
    enum SubFunction { SubFunction_Main = 0; SubFunction_Pre = 1; }
    enum Scene { Scene_Day = 0; Scene_Night = 1; }
    enum Filter { Filter_Off = 0; Filter_Mono = 1; }
    message TuningDataLabel {
      Module module = 8; int32 mode = 3; Scenario scenario = 1; Feature0 feature0 = 7;
      Function function = 2; SubFunction sub_function = 6; Scene scene = 5; Filter filter = 4; })");
  Write(dir + "/noise.proto", R"(syntax = "proto3"; package ZO_TUNING; import "types.proto";
    message Noise { Int64ArrayData profile = 1; })");
  Write(dir + "/af.proto", R"(syntax = "proto3"; package ZO_TUNING_AF; import "types.proto";
    message AfLimits { ZO_TUNING.FloatData near = 1; ZO_TUNING.DoubleArrayData_2D table = 2; }
    message AfStep { ZO_TUNING.Int32Data position = 1; }
    message AfCommon {
      ZO_TUNING.BoolData enable = 4; ZO_TUNING.Int32ArrayData curve = 2; AfLimits limits = 3;
      ZO_TUNING.StructArrayRule steps_rule = 1; repeated AfStep steps = 5; }
    message AfLinkKey { ZO_TUNING.Uint32Data key = 1; })");
  Write(dir + "/awb.proto", R"(syntax = "proto3"; package ZO_TUNING_AWB; import "types.proto";
    message AWGain { ZO_TUNING.DoubleData gain = 1; })");
  Write(dir + "/aec.proto", R"(syntax = "proto3"; package ZO_TUNING_AEC; import "types.proto";
    message AEMeter { ZO_TUNING.BoolArrayData_2D weight = 1; })");
  Write(dir + "/pd.proto", R"(syntax = "proto3"; package ZO_TUNING_PD; import "types.proto";
    message PdCalib { ZO_TUNING.FloatArrayData slope = 1; })");
}

const Strings kLabelNames = {"module", "mode", "scenario", "feature0", "function", "sub_function", "scene", "filter"};

LabelMap FullLabelMap() {
  return {{"module",
           {{0, "AfCommon"},
            {1, "AWGain"},
            {2, "AEMeter"},
            {3, "PdCalib"},
            {4, "Noise"},
            {5, "AfLinkKeyTable"},
            {6, "EveryKind"},
            {7, "Ghost"}}},
          {"mode", {}},
          {"scenario", {{0, "Photo"}, {1, "Video"}}},
          {"feature0", {{0, "None"}, {1, "Zoom"}}},
          {"function", {{0, "Base"}, {1, "Flash"}}},
          {"sub_function", {{0, "Main"}, {1, "Pre"}}},
          {"scene", {{0, "Day"}, {1, "Night"}}},
          {"filter", {{0, "Off"}, {1, "Mono"}}}};
}

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
  return Len(2, Len(1, Varint(1) + Varint(static_cast<uint64_t>(-2)) + Varint(300))) + Len(3, near + table) +
         Len(4, Int(1, 1)) + steps;
}

Project::Project(const Strings& sensors) {
  WriteSchema(dir + "/proto");
  MakeDirs(dir + "/proto/version");
  MakeDirs(dir + "/default");
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

std::string Project::Bin(const std::string& scope) const {
  const auto found = settings_.find(scope);
  return BinBytes(dir + "/" + (scope == "default" ? "proto" : scope) + "/version", dir + "/" + scope,
                  found == settings_.end() ? std::vector<Setting>() : found->second);
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

}  // namespace zotest
