// A tuning bin through every reader of the library, with the example project. The library must come to the result that
// the format prescribes.

#include <google/protobuf/message.h>

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ZoTuningUtils.h"
#include "bin/bin_writer.h"
#include "bin_format.h"
#include "schema/project_config.h"
#include "schema/schema.h"
#include "support.h"

namespace {

using google::protobuf::Message;
using zofuzz::CountErrors;
using zofuzz::MessagePtr;
using zofuzz::Reading;
using zofuzz::Require;

class Target {
 public:
  Target() {
    std::filesystem::create_directory(bin_dir_);
    (void)LoadProjectConfig(ZO_TUNING::internal::ProjectLayout(project_), schema_, config_);
    Require(config_.sensor_names == zofuzz::kExampleSensors, "the project's configuration is read");
  }

  void Run(std::string_view bytes) {
    zofuzz::Write(bin_, bytes);
    const Reading reading = format_.Read(bytes);
    CheckDump(reading);
    CheckVersions(reading);
    if (zofuzz::Way(bytes, 8) == 0) CheckVersionDump(reading);
    if (reading.fault < 0) CheckRewritten(reading, bytes);
  }

 private:
  void CheckDump(const Reading& reading) {
    const bool dumped = ZoTuningUtils::DumpProjTuningBins(project_.c_str(), bin_dir_.c_str());
    const bool errors = CountErrors(zofuzz::TakeLog()) > 0;
    Require(dumped == (reading.end != Reading::kNoModuleType), "a dump fails for a module without a type alone");
    Require(errors == (reading.end != Reading::kWhole), "a dump names damage, and damage alone");
  }

  /// Loads the schema again, for code that CheckVersions covers as well; done in some of the runs.
  void CheckVersionDump(const Reading& reading) {
    const bool dumped = ZoTuningUtils::DumpBinVersions(project_.c_str(), bin_dir_.c_str());
    Require(dumped == reading.versions_ok, "the dump of versions fails for a damaged block alone");
    Require((CountErrors(zofuzz::TakeLog()) > 0) != reading.versions_ok, "the dump of versions names damage");
  }

  void CheckVersions(const Reading& reading) {
    std::vector<Message*> versions;
    const Message* prototype = schema_.Prototype(schema_.FindType("Version"));
    const bool parsed = ZoTuningUtils::ParseVersionMsgFromBin(bin_, prototype, versions);
    const std::vector<MessagePtr> owned(versions.begin(), versions.end());
    Require(parsed == reading.versions_ok, "versions are read when they are whole");
    Require(versions.size() >= reading.versions.size(), "versions before the damage are read");
    for (size_t i = 0; i < reading.versions.size(); ++i) {
      const bool same = versions[i]->SerializeAsString() == reading.versions[i]->SerializeAsString();
      Require(same, "versions are read as they stand");
    }
  }

  /// What was read and is written again contains the same messages and reads as complete.
  void CheckRewritten(const Reading& reading, std::string_view bytes) {
    std::vector<Message*> versions;
    for (const MessagePtr& version : reading.versions) versions.push_back(version.get());
    ZO_TUNING::internal::BinWriter writer;
    Require(writer.Open(bin_), "the bin can be written");
    writer.WriteVersions(versions);
    std::string expected(bytes.substr(0, sizeof(int32_t)));
    for (const Message* version : versions) expected += zotest::Item(version->SerializeAsString());
    for (const MessagePtr& message : reading.messages) {
      writer.WriteMessage(*message);
      expected += zotest::Item(message->SerializeAsString());
    }
    Require(writer.Close(), "the bin is written");
    Require(zofuzz::Read(bin_) == expected, "a bin holds its messages");
    const Reading again = format_.Read(expected);
    Require(again.fault < 0 && again.messages.size() == reading.messages.size(), "what was read can be read again");
  }

  const std::string project_ = zofuzz::MakeExampleProject(zofuzz::kBinModules);
  const std::string bin_dir_ = zofuzz::ScratchDir() + "/bins";
  const std::string bin_ = bin_dir_ + "/default.bin";
  ZO_TUNING::internal::Schema schema_{project_ + "/proto"};
  ZO_TUNING::internal::ProjectConfig config_;
  zofuzz::BinFormat format_{schema_, config_.label_map};
};

}  // namespace

void zofuzz::Run(const uint8_t* data, size_t size) {
  static Target target;
  target.Run(std::string_view(reinterpret_cast<const char*>(data), size));
}

void zofuzz::Seeds(const std::string& dir) { WriteBinSeeds(dir); }

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size, unsigned seed) {
  return zofuzz::MutateItems(data, size, max_size, seed, true);
}
