// ProjConf.bin through its readers. The format is also read here, according to docs/project-directory.md.

#include <google/protobuf/message.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ZoTuningUtils.h"
#include "length_prefixed.h"
#include "schema/schema.h"
#include "support.h"

namespace {

using google::protobuf::Message;
using zofuzz::CountErrors;
using zofuzz::Require;
using Strings = std::vector<std::string>;

struct Config {
  bool ok = true;
  std::string name;
  Strings sensors;
};

class Target {
 public:
  void Run(std::string_view bytes) {
    const Config expected = ReadByFormat(bytes);
    zofuzz::Write(path_, bytes);
    CheckRead(expected);

    // Loads the schema again, which takes most of the time; done in some of the runs.
    if (zofuzz::Way(bytes, 4) == 0) CheckProject(expected);
    if (expected.ok) CheckRewritten(expected);
  }

 private:
  std::unique_ptr<Message> NewMessage() { return schema_.NewMessage(type_); }

  Config ReadByFormat(std::string_view bytes) {
    Config config;
    const auto message = NewMessage();
    while (config.ok && bytes.size() >= sizeof(int32_t)) {
      std::string_view item;
      config.ok = zofuzz::TakeItem(bytes, &item) && message->ParseFromArray(item.data(), static_cast<int>(item.size()));
    }
    if (!config.ok) return config;
    const auto* reflection = message->GetReflection();
    config.name = reflection->GetString(*message, type_->FindFieldByName("proj_name"));
    const auto* sensors = type_->FindFieldByName("sensor_names");
    for (int i = 0; i < reflection->FieldSize(*message, sensors); ++i) {
      config.sensors.push_back(reflection->GetRepeatedString(*message, sensors, i));
    }
    return config;
  }

  void CheckRead(const Config& expected) {
    const auto message = NewMessage();
    std::string name = "before";
    Strings sensors = {"a", "b"};
    const bool read = ZoTuningUtils::InitProjConfigMsgFromBin(message.get(), type_, path_.c_str(), name, sensors);
    const size_t errors = CountErrors(zofuzz::TakeLog());
    Require(read == expected.ok && errors == (read ? 0u : 1u),
            "a damaged configuration is one error, a whole one none");
    if (read) Require(name == expected.name && sensors == expected.sensors, "a configuration replaces the outputs");
  }

  void CheckProject(const Config& expected) {
    Config whole;
    Strings label_names;
    std::map<std::string, std::map<int, std::string>> label_map;
    const bool labels =
        ZoTuningUtils::GetProjectConfig(project_.c_str(), whole.name, whole.sensors, label_names, label_map);
    Require(labels && label_names.size() == 8, "the labels are read whatever the configuration is");
    Require(whole.name == expected.name && whole.sensors == expected.sensors, "an unread configuration is empty");
    Require((CountErrors(zofuzz::TakeLog()) > 0) != expected.ok, "an unread configuration is named");
  }

  void CheckRewritten(Config config) {
    const auto message = NewMessage();
    config.name = config.name.c_str();  // a name is passed as a C string
    Require(ZoTuningUtils::InitProjConfigMsg(message.get(), type_, config.name.c_str(), config.sensors),
            "it can be made");
    ZO_TUNING::MSG_TO_BIN(message.get(), path_.c_str());
    Require(zofuzz::Read(path_) == zotest::Item(message->SerializeAsString()),
            "a configuration is written as one record");
    CheckRead(config);
  }

  const std::string project_ = zofuzz::MakeExampleProject({"TuningProjConfig"});
  const std::string path_ = project_ + "/ProjConf.bin";
  ZO_TUNING::internal::Schema schema_{project_ + "/proto"};
  const google::protobuf::Descriptor* type_ = schema_.FindType("TuningProjConfig");
};

}  // namespace

void zofuzz::Run(const uint8_t* data, size_t size) {
  static Target target;
  target.Run(std::string_view(reinterpret_cast<const char*>(data), size));
}

void zofuzz::Seeds(const std::string& dir) {
  const std::string example = Read(MakeExampleProject() + "/ProjConf.bin");
  Write(dir + "/example", example);
  Write(dir + "/twice", example + zotest::Item("") + example);
  Write(dir + "/cut", example.substr(0, example.size() - 1));
}

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size, unsigned seed) {
  return zofuzz::MutateItems(data, size, max_size, seed, false);
}
