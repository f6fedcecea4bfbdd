// A schema through everything that is done with one: import, templates, printing, pruning, labels, the configuration,
// and all the way into a bin and back. An input has parts: "//// NAME" starts the .proto file of that name.
//
// How large a complete template becomes is up to the schema: types that contain each other may grow it with the
// factorial of their number. Types whose template has more than kMaxMessages messages are left out, and schemas with
// such a module are not packed; nothing else is excluded.

#include <google/protobuf/descriptor.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/message.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ZoTuningUtils.h"
#include "support.h"
#include "transcode/differential.h"
#include "transcode/random_json.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t max_size);

namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using zofuzz::CountErrors;
using zofuzz::Require;
using zofuzz::TakeLog;
using MessagePtr = std::unique_ptr<Message>;
using Strings = std::vector<std::string>;
using LabelMap = std::map<std::string, std::map<int, std::string>>;

constexpr size_t kMaxFiles = 8, kMaxTypes = 16, kMaxModules = 3;
constexpr int kMaxMessages = 500;

bool IsFileName(const std::string& name) {
  return !name.empty() && name.size() < 60 && name[0] != '.' && std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_';
  });
}

/// What a walk down from a type finds. It ends at types that are already open, and if there are too many messages.
struct Shape {
  explicit Shape(const Descriptor* type) { Enter(type); }

  int room = kMaxMessages;
  bool recursive = false;
  bool shared_names = false;  ///< whether two fields may have the same name in JSON

  bool IsSmall() const { return room >= 0; }

 private:
  void Enter(const Descriptor* type) {
    if (--room < 0) return;
    if (std::find(open_.begin(), open_.end(), type) != open_.end()) {
      recursive = true;
      return;
    }
    if (type->file()->syntax() != google::protobuf::FileDescriptor::SYNTAX_PROTO3) shared_names = true;
    open_.push_back(type);
    for (int i = 0; i < type->field_count() && room >= 0; ++i) {
      if (type->field(i)->has_json_name()) shared_names = true;
      if (type->field(i)->message_type() != nullptr) Enter(type->field(i)->message_type());
    }
    open_.pop_back();
  }

  std::vector<const Descriptor*> open_;
};

bool HasRepeatedField(const Descriptor* type) {
  for (int i = 0; i < type->field_count(); ++i) {
    if (type->field(i)->is_repeated()) return true;
  }
  return false;
}

/// One schema, loaded as the operations load it.
class Schema {
 public:
  Schema(const std::string& dir, const Strings& files) {
    tree_.MapPath("", dir);
    ZoTuningUtils::ImportDescriptors(dir.c_str(), importer_);
    for (const std::string& file : files) {
      // Asking for another file would load it.
      if (std::filesystem::path(file).extension() != ".proto") continue;
      const auto* imported = importer_.pool()->FindFileByName(file);
      for (int i = 0; imported != nullptr && i < imported->message_type_count(); ++i)
        AddType(imported->message_type(i));
    }
  }

  const std::vector<const Descriptor*>& types() const { return types_; }
  const Descriptor* Find(const std::string& name) const {
    std::string qualified;
    ZO_TUNING::ADD_NAMESPACE_TO_CLASSNAME(name, qualified);
    return ZoTuningUtils::GetDescByClassName(importer_, qualified.c_str());
  }
  MessagePtr New(const Descriptor* type) { return MessagePtr(factory_.GetPrototype(type)->New()); }

 private:
  void AddType(const Descriptor* type) {
    if (types_.size() == kMaxTypes) return;
    types_.push_back(type);
    for (int i = 0; i < type->nested_type_count(); ++i) AddType(type->nested_type(i));
  }

  google::protobuf::compiler::DiskSourceTree tree_;
  google::protobuf::compiler::Importer importer_{&tree_, nullptr};
  google::protobuf::DynamicMessageFactory factory_;
  std::vector<const Descriptor*> types_;
};

class Target {
 public:
  Target() { std::filesystem::create_directories(proto_dir_ + "/version"); }

  void Run(std::string_view input) {
    Strings files;
    for (const auto& [name, text] : zofuzz::SplitParts(input)) {
      if (!IsFileName(name) || name == "version" || files.size() == kMaxFiles) continue;
      zofuzz::Write(proto_dir_ + "/" + name, text);
      files.push_back(name);
    }
    {
      Schema schema(proto_dir_, files);
      for (const Descriptor* type : schema.types()) CheckType(schema, type);
      if (schema.Find("TuningProjConfig") && schema.Find("TuningDataLabel") && schema.Find("Version")) Pack(schema);
    }
    for (const std::string& file : files) std::filesystem::remove(proto_dir_ + "/" + file);
  }

 private:
  void CheckType(Schema& schema, const Descriptor* type) {
    CheckConfig(schema, type);
    CheckLabel(schema, type);
    const Shape shape(type);
    if (!shape.IsSmall()) return;

    const MessagePtr filled = schema.New(type), again = schema.New(type), printed = schema.New(type);
    ZO_TUNING::MSG_INIT_FOR_JSON(filled.get(), type);
    ZO_TUNING::MSG_INIT_FOR_JSON(again.get(), type);
    const std::string template_bytes = filled->SerializePartialAsString();
    Require(template_bytes == again->SerializePartialAsString(), "a type has one template");
    TakeLog();
    std::string text;
    ZO_TUNING::MSG_TO_JSON_STR(printed.get(), type, text);
    const bool is_printed = !HasLine(TakeLog(), "json generation failed");
    Require(printed->SerializePartialAsString() == template_bytes, "what is printed is the template");

    CheckPruning(filled.get());
    CheckPruning(schema.New(type).get());
    if (!is_printed) return;
    const MessagePtr parsed = schema.New(type);
    const bool is_read = ZO_TUNING::JSON_STR_TO_MSG(text, parsed.get());
    TakeLog();
    if (is_read) CheckPruning(parsed.get());
    // The plain search of the field check does not end in recursive types.
    if (shape.recursive) return;
    for (int i = 0; i < type->field_count(); ++i) {
      const bool found = zotest::FirstMissing(type->field(i), text).empty();
      Require(ZO_TUNING::CheckFieldInString(type->field(i), text) == found,
              "a field check finds what a plain search does");
    }
    zotest::BothPaths paths(type);
    const std::string difference = paths.Difference(text);
    if (!difference.empty()) zofuzz::Fail(type->full_name() + ": " + difference + "\n" + text);
    // A type with a table has no groups, no well-known types, and not too many levels.
    if (paths.has_fast_path() && !shape.shared_names) Require(is_read, "what is printed of a plain type can be read");
  }

  static bool HasLine(const Strings& lines, const char* text) {
    return std::any_of(lines.begin(), lines.end(),
                       [&](const std::string& line) { return line.find(text) != std::string::npos; });
  }

  static void CheckPruning(Message* message) {
    ZO_TUNING::MSG_PRONE_FOR_BIN(message, message->GetDescriptor());
    const std::string once = message->SerializePartialAsString();
    ZO_TUNING::MSG_PRONE_FOR_BIN(message, message->GetDescriptor());
    Require(message->SerializePartialAsString() == once, "pruning twice is pruning once");
    Require(TakeLog().empty(), "pruning reports nothing");
  }

  void CheckConfig(Schema& schema, const Descriptor* type) {
    const Strings sensors = {"s", "t"};
    const MessagePtr message = schema.New(type);
    const bool made = ZoTuningUtils::InitProjConfigMsg(message.get(), type, "demo", sensors);
    Require(CountErrors(TakeLog()) == (made ? 0 : 1), "a type that is no configuration is one error");
    if (!made) return;
    const std::string path = zofuzz::ScratchDir() + "/config.bin";
    ZO_TUNING::MSG_TO_BIN(message.get(), path.c_str());
    const MessagePtr read = schema.New(type);
    std::string name;
    Strings read_sensors;
    const bool ok = ZoTuningUtils::InitProjConfigMsgFromBin(read.get(), type, path.c_str(), name, read_sensors);
    Require(ok == message->IsInitialized(), "a configuration can be read unless its type requires more");
    if (ok) Require(name == "demo" && read_sensors == sensors, "a configuration reads as it was written");
    TakeLog();
  }

  void CheckLabel(Schema& schema, const Descriptor* type) {
    Strings names;
    LabelMap map;
    const bool is_label = ZoTuningUtils::GetProjectTuningLabelsMap(type, names, map);
    Require(CountErrors(TakeLog()) == (is_label ? 0 : 1), "a type that is no label is one error");
    if (!is_label) return;
    Require(names.size() == static_cast<size_t>(type->field_count()), "each field of a label is one");
    std::vector<int> values, read;
    for (const std::string& name : names) values.push_back(map[name].empty() ? -1 : map[name].rbegin()->first);
    const MessagePtr label = schema.New(type);
    const bool set = ZoTuningUtils::InitTuningLabelMsg(label.get(), type, names, values);
    Require(set == !HasRepeatedField(type), "a label can be set unless a field of it is repeated");
    const MessagePtr copy = schema.New(type);
    Require(copy->ParsePartialFromString(label->SerializePartialAsString()), "a label can be read");
    Require(ZoTuningUtils::ParseTuningLabelMsg(copy.get(), type, names, read) == set, "a label can be read back");
    if (set && type->real_oneof_decl_count() == 0) Require(read == values, "a label reads as it was set");
    TakeLog();
  }

  /// Packs a project of a few modules, and reads the bins.
  void Pack(Schema& schema) {
    const std::string out = zofuzz::ScratchDir() + "/out";
    for (const char* made : {"/ProjConf.bin", "/default", "/s"}) std::filesystem::remove_all(project_ + made);
    std::filesystem::remove_all(out);
    std::filesystem::create_directory(out);
    ZoTuningUtils::InitProjectConfig(proto_dir_.c_str(), "project", {"s"}, zofuzz::ScratchDir().c_str());
    if (!std::filesystem::exists(project_ + "/ProjConf.bin")) return;
    std::string name, sensor = "s";
    Strings sensors, label_names;
    LabelMap label_map;
    if (!ZoTuningUtils::GetProjectConfig(project_.c_str(), name, sensors, label_names, label_map)) return;
    if (label_names.empty()) return;
    size_t modules = 0;
    const auto values = label_map[label_names[0]];
    for (auto value = values.begin(); value != values.end() && modules < kMaxModules; ++value) {
      const Descriptor* type = schema.Find(value->second);
      if (type == nullptr || type->name() != value->second || !Shape(type).IsSmall()) continue;
      CheckDefault(schema, type);
      std::vector<int> config = {value->first, 0};
      ZoTuningUtils::CreateNewTuningSetting(project_.c_str(), label_names, label_map, sensor, config);
      ++modules;
    }
    TakeLog();
    if (!ZoTuningUtils::GenerateProjTuningBins(project_.c_str(), out.c_str())) return;
    TakeLog();
    const std::string bin_dir = out + "/zo_tuning";
    const bool dumped = ZoTuningUtils::DumpProjTuningBins(project_.c_str(), bin_dir.c_str());
    Require(dumped && CountErrors(TakeLog()) == 0, "what is packed can be read");
    Require(ZoTuningUtils::DumpBinVersions(project_.c_str(), bin_dir.c_str()),
            "the versions of what is packed can be read");
  }

  void CheckDefault(Schema& schema, const Descriptor* type) {
    const MessagePtr message = schema.New(type);
    std::string text;
    ZO_TUNING::MSG_TO_JSON_STR(message.get(), type, text);
    Require(ZoTuningUtils::GenerateDefaultModuleData(project_.c_str(), type->name().c_str()), "a module has a default");
    const std::string path = project_ + "/default/" + type->name() + ".json";
    // A name may be too long for a file; the operation does not check.
    if (!std::filesystem::exists(path)) return;
    Require(zofuzz::Read(path) == text, "a default is the printed template");
  }

  const std::string project_ = zofuzz::ScratchDir() + "/project";
  const std::string proto_dir_ = project_ + "/proto";
};

#ifdef ZOTUNING_BY_GRAMMAR
// Turns it into a project.
constexpr const char* kGrammarFrame = R"(
//// b.proto
syntax = "proto3"; package ZO_TUNING;
message TuningProjConfig { string proj_name = 1; repeated string sensor_names = 2; }
message Version { string name = 1; string version = 2; }
enum M { M_None = 0; M_Module = 1; M_Part = 2; }
message TuningDataLabel { M module = 1; int32 mode = 2; })";
#endif

// What the example's schema does not have.
constexpr const char* kUnsupportedSchemas[] = {
    R"(//// a.proto
syntax = "proto2"; package ZO_TUNING; import "b.proto";
message Module { required int32 a = 1; optional group G = 2 { repeated float x = 1; } map<string, BoolData> m = 3;
  oneof o { string s = 4; BoolData d = 5; } repeated Module more = 6; optional bytes y = 7 [default = "\377"];
  extensions 100 to 199; optional K k = 8 [default = K_B]; enum K { K_A = 1; K_B = -1; } optional double n = 9 [default = nan]; }
extend Module { optional int32 e = 100; }
//// b.proto
syntax = "proto3"; package ZO_TUNING; message BoolRule { string description = 1; repeated string recommend = 2; }
message BoolData { bool value = 1; BoolRule rule = 2; message StructArrayRule { int32 len = 1; } StructArrayRule r = 3; })",
    R"(//// a.proto
syntax = "proto3"; package ZO_TUNING;
message TuningProjConfig { string proj_name = 1; repeated string sensor_names = 2; }
message Version { string name = 1; string version = 2; }
enum M { option allow_alias = true; M_Aa = 0; M_Bb = 1; M_Cc = 1; }
message TuningDataLabel { M module = 1; int32 mode = 2; }
message Aa { Bb b = 1; repeated sint32 s = 2; optional float f = 3 [json_name = "g"]; } message Bb { repeated Cc c = 1; }
message Cc { FloatArrayData d = 1; Aa a = 2; } message FloatArrayRule { string description = 1; int32 order = 2; }
message FloatArrayData { repeated float value = 1; FloatArrayRule rule = 2; }
service S { rpc Call(Aa) returns (stream Bb); })",
};

}  // namespace

void zofuzz::Run(const uint8_t* data, size_t size) {
  static Target target;
  const std::string_view input(reinterpret_cast<const char*>(data), size);
#ifdef ZOTUNING_BY_GRAMMAR
  zotest::Random random(std::hash<std::string_view>()(input));
  std::string text = zotest::SchemaMaker(random).Text();
  const size_t line_end = text.find('\n') + 1;
  text.insert(line_end, "package ZO_TUNING;\n");
  target.Run("//// a.proto\n" + text + kGrammarFrame);
#else
  target.Run(input);
#endif
}

// The example project's schema with one of its modules at a time.
void zofuzz::Seeds(const std::string& dir) {
  for (const char* module : {"AECommon", "AEExposureTable", "AWBColorMatrix", "AfContrast", "AfLinkKey", "LensShading",
                             "PdCalib", "PdCommon", "ToneCurve"}) {
    std::string input;
    for (const auto& entry : std::filesystem::directory_iterator(MakeExampleProject({module}) + "/proto")) {
      input += "//// " + entry.path().filename().string() + "\n" + Read(entry.path()) + "\n";
    }
    Write(dir + "/" + module, input);
  }
  for (size_t i = 0; i < std::size(kUnsupportedSchemas); ++i)
    Write(dir + "/odd-" + std::to_string(i), kUnsupportedSchemas[i]);
}

// Most mutations keep a schema loadable: a word is replaced by another, a statement is dropped, copied or moved.
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size, unsigned seed) {
  zotest::Random random(seed);
  std::string text(reinterpret_cast<const char*>(data), size);
  const auto is_word = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_'; };
  const auto word_at = [&](size_t at) {
    size_t begin = at, end = at;
    while (begin > 0 && is_word(text[begin - 1])) --begin;
    while (end < text.size() && is_word(text[end])) ++end;
    return std::make_pair(begin, end - begin);
  };
  const auto statement_at = [&](size_t at) {
    const size_t before = text.find_last_of(";{}\n", at), end = std::min(text.find_first_of(";}", at), text.size() - 1);
    const size_t begin = before == std::string::npos || before >= end ? 0 : before + 1;
    return std::make_pair(begin, end + 1 - begin);
  };
  if (size < 2 || random.OneIn(4)) return LLVMFuzzerMutate(data, size, max_size);
  if (random.OneIn(40)) text = "//// a.proto\n" + zotest::SchemaMaker(random).Text();
  for (size_t count = 1 + random.Below(3); count > 0 && text.size() > 1; --count) {
    const size_t at = random.Below(text.size()), other = random.Below(text.size());
    const bool words = random.OneIn(2);
    const auto [begin, length] = words ? word_at(at) : statement_at(at);
    const auto [other_begin, other_length] = words ? word_at(other) : statement_at(other);
    switch (random.Below(4)) {
      case 0:
        text.erase(begin, length);
        break;
      case 1:
        text.insert(begin, text.substr(other_begin, other_length));
        break;
      default:
        text.replace(begin, length, text.substr(other_begin, other_length));
    }
  }
  if (text.empty() || text.size() > max_size) return LLVMFuzzerMutate(data, size, max_size);
  std::memcpy(data, text.data(), text.size());
  return text.size();
}
