// Version files and the version header. An input has parts: "//// file" starts a version file, "//// header" the
// previous header, "//// set" a name, "=", and the version to set.

#include <google/protobuf/message.h>
#include <google/protobuf/stubs/strutil.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ZoTuningUtils.h"
#include "schema/schema.h"
#include "support.h"

namespace {

using google::protobuf::Message;
using zofuzz::Require;
using Strings = std::vector<std::string>;

constexpr char kMarker[] = "[3AProto]";
constexpr size_t kMaxFiles = 5;

/// Whether a text can be put into JSON, in quotes, as it is.
bool IsPlain(const std::string& text) {
  return text.size() < 1024 && std::all_of(text.begin(), text.end(), [](char c) {
           return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == ' ';
         });
}

class Target {
 public:
  Target() {
    std::filesystem::create_directories(version_dir_);
    std::filesystem::create_directories(project_ + "/src");
  }

  void Run(std::string_view input) {
    std::string header, name, version;
    Strings texts;
    for (const auto& [head, text] : zofuzz::SplitParts(input)) {
      if (head == "header") header = text;
      if (head == "file" && texts.size() < kMaxFiles) texts.push_back(text);
      if (head != "set") continue;
      // The operation takes C strings.
      name = text.substr(0, text.find('=')).c_str();
      version = text.find('=') == std::string::npos ? "" : text.substr(text.find('=') + 1).c_str();
    }
    for (const std::string& text : texts) CheckScan(text);
    CheckBlock(header, texts);
    if (!zofuzz::IsChosen(input, 64)) return;
    WriteFiles(texts);
    CheckHeader(header);
    CheckMessages();
    CheckSet(name, version);
  }

 private:
  std::string FilePath(size_t i) const { return version_dir_ + "/" + std::to_string(i) + ".json"; }

  void WriteFiles(const Strings& texts) {
    for (size_t i = 0; i < kMaxFiles; ++i) std::filesystem::remove(FilePath(i));
    for (size_t i = 0; i < texts.size(); ++i) zofuzz::Write(FilePath(i), texts[i]);
    files_.clear();
    ZoTuningUtils::FindAllJsonFiles(version_dir_.c_str(), files_);
    Require(files_.size() == texts.size(), "all version files are found");
  }

  void CheckScan(const std::string& text) {
    const bool has_keys = text.find("\"name\"") != std::string::npos && text.find("\"version\"") != std::string::npos;
    Strings versions = {"before"};
    Require(ZO_TUNING::PARSE_VERSION_FROM_STR(text, versions) == has_keys, "a scan fails without the keys alone");
    Require(versions.size() == (has_keys ? 3 : 1) && versions[0] == "before", "a scan appends two values or none");
    for (size_t i = 1; i < versions.size(); ++i) {
      const std::string& value = versions[i];
      Require(value.size() <= 1023 && value.find('"') == std::string::npos, "a value ends at a quote or is cut");
      Require(text.find(value) != std::string::npos, "a value stands in the text");
    }
    zofuzz::TakeLog();
  }

  static void CheckBlock(const std::string& header, const Strings& texts) {
    Strings versions;
    for (const std::string& text : texts) ZO_TUNING::PARSE_VERSION_FROM_STR(text, versions);
    std::string block = header;
    const bool made = ZO_TUNING::CONSIST_VERSION_TO_STR(block, versions);
    Require(made == (!header.empty() && !versions.empty()), "a block needs a header and versions");
    Require(block.compare(0, header.size(), header) == 0, "a block comes after the header");
    for (const std::string& version : versions) {
      Require(!made || block.find(version, header.size()) != std::string::npos, "a block has the versions");
    }
    zofuzz::TakeLog();
  }

  void CheckHeader(const std::string& header) {
    Strings versions;
    for (const std::string& file : files_) ZO_TUNING::PARSE_VERSION_FROM_STR(zofuzz::Read(file), versions);
    zofuzz::Write(header_, header);
    std::string kept;
    Require(ZO_TUNING::HEADER_FILE_TO_STR(header_, kept), "a header can be read");
    const size_t marker = header.find(kMarker);
    Require((marker != std::string::npos) == (kept.find(kMarker) != std::string::npos), "the marker is kept");
    Require(kept == header.substr(0, kept.size()) || kept == header + "\n", "the begin of a header is kept as it is");
    Require(kept.empty() || kept.back() == '\n', "a header is kept in lines");
    if (marker == std::string::npos) {
      Require(kept.size() >= header.size(), "a header without the marker is kept whole");
    } else {
      Require(kept.find('\n', marker) == kept.size() - 1, "a header is kept up to the line of the marker");
    }

    const bool generated = ZoTuningUtils::GeneratedNewVersionHeader(schema_dir_);
    Require(generated == (!header.empty() && !versions.empty()), "a header needs a text and versions");
    const std::string first = zofuzz::Read(header_);
    std::string expected = kept;
    Require(ZO_TUNING::CONSIST_VERSION_TO_STR(expected, versions) == generated,
            "the block can be made as the header can");
    Require(first == (generated ? expected : header), "a header holds its own part and the block, or stays");
    if (!generated || marker == std::string::npos) return;
    Require(ZoTuningUtils::GeneratedNewVersionHeader(schema_dir_), "a header can be generated again");
    Require(zofuzz::Read(header_) == first, "a header that is generated again stays the same");
  }

  std::unique_ptr<Message> Parse(const std::string& text) {
    auto message = schema_.NewMessage(type_);
    return ZO_TUNING::JSON_STR_TO_MSG(text, message.get()) ? std::move(message) : nullptr;
  }

  std::string Text(const Message& message, const char* field) {
    return message.GetReflection()->GetString(message, type_->FindFieldByName(field));
  }

  void CheckMessages() {
    std::vector<Message*> messages;
    const bool read = ZoTuningUtils::GetVersionMsgs(version_dir_.c_str(), schema_.Prototype(type_), messages);
    const std::vector<std::unique_ptr<Message>> owned(messages.begin(), messages.end());
    Require(messages.size() == files_.size(), "there is a message per version file");
    bool all_parse = true;
    for (size_t i = 0; i < files_.size(); ++i) {
      const auto message = Parse(zofuzz::Read(files_[i]));
      all_parse = all_parse && message != nullptr;
      if (!all_parse) break;
      Require(messages[i]->SerializeAsString() == message->SerializeAsString(), "a message holds what its file says");
    }
    Require(read == all_parse, "version files are read when all parse");
  }

  void CheckSet(const std::string& name, const std::string& version) {
    Strings before;
    std::unique_ptr<Message> meant;
    size_t meant_file = files_.size();
    for (size_t i = 0; i < files_.size(); ++i) {
      before.push_back(zofuzz::Read(files_[i]));
      if (meant_file < files_.size()) continue;
      meant = Parse(before[i]);
      if (meant == nullptr || Text(*meant, "name") == name) meant_file = i;
    }
    const bool set = ZoTuningUtils::UpdateProtoVersionJsonFile(project_.c_str(), name.c_str(), version.c_str());
    Require(set, "a version is set, whatever the files say");
    for (size_t i = 0; i < files_.size(); ++i) {
      const std::string text = zofuzz::Read(files_[i]);
      if (i != meant_file || meant == nullptr) {
        Require(text == before[i], "a file that is not meant stays");
        continue;
      }
      if (!google::protobuf::internal::IsStructurallyValidUTF8(version)) continue;
      meant->GetReflection()->SetString(meant.get(), type_->FindFieldByName("version"), version);
      const auto written = Parse(text);
      Require(written != nullptr, "a version file that is written can be read");
      Require(written->SerializeAsString() == meant->SerializeAsString(), "the version is set and nothing else");
      if (!IsPlain(name) || !IsPlain(version)) continue;
      Strings scanned;
      ZO_TUNING::PARSE_VERSION_FROM_STR(text, scanned);
      Require(scanned == Strings{name, version}, "the header's scan finds what was set");
    }
  }

  const std::string project_ = zofuzz::MakeExampleProject({"Version"});
  const std::string schema_dir_ = project_ + "/proto";
  const std::string version_dir_ = schema_dir_ + "/version";
  const std::string header_ = project_ + "/src/ZoTuningVersion.h";
  ZO_TUNING::internal::Schema schema_{schema_dir_};
  const google::protobuf::Descriptor* type_ = schema_.FindType("Version");
  Strings files_;  // in the order of the directory
};

}  // namespace

void zofuzz::Run(const uint8_t* data, size_t size) {
  static Target target;
  target.Run(std::string_view(reinterpret_cast<const char*>(data), size));
}

// The example project's version files, one by one, and all of them with its header.
void zofuzz::Seeds(const std::string& dir) {
  const std::string project = ZOTUNING_SOURCE_DIR "/examples/tuning_project";
  std::string all, header = "//// header\n" + Read(project + "/src/ZoTuningVersion.h");
  for (const char* scope : {"/proto/version", "/front/version", "/main_wide/version"}) {
    for (const auto& entry : std::filesystem::directory_iterator(project + scope)) {
      if (entry.path().extension() != ".json") continue;
      const std::string part = "//// file\n" + Read(entry.path()) + "\n";
      Write(dir + "/" + std::string(scope + 1, std::strchr(scope + 1, '/')) + "-" + entry.path().stem().string(),
            part + "//// set\nAF=1.2.3\n" + header);
      all += part;
    }
  }
  Write(dir + "/all", all + header);
  const std::string one = "//// file\n{\"name\":\"A\",\"version\":\"1\"}\n//// set\nA=2\n//// header\n";
  Write(dir + "/marker", one + "// x\r\n// [3AProto] y\r\n#define OLD\n// [3AProto]\n");
  Write(dir + "/no-marker", one + "\t// [3aproto]\n\nend");
  const std::string longest(1023, 'v');
  Write(dir + "/long", "//// file\n{\"name\":\"" + longest + "w\",\"version\":\"" + longest + "\"}\n" + header);
}
