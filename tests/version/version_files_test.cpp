#include <filesystem>

#include "ZoTuningUtils.h"
#include "support/project.h"

namespace {

using namespace zotest;

class VersionFilesTest : public ProjectTest {
 protected:
  bool Get(const std::string& dir) {
    const bool result = ZoTuningUtils::GetVersionMsgs(dir.c_str(), schema_.Prototype("ZO_TUNING.Version"), messages_);
    owned_.clear();
    for (Message* message : messages_) owned_.emplace_back(message);
    return result;
  }
  void Update(const std::string& name, const std::string& version) {
    EXPECT_TRUE(ZoTuningUtils::UpdateProtoVersionJsonFile(dir_.c_str(), name.c_str(), version.c_str()));
  }
  /// Which of a few equal files the listing returns first.
  std::string First() { return JsonInOrder(versions_).at(0); }

  const std::string versions_ = dir_ + "/proto/version";
  Schema schema_{dir_ + "/proto"};
  std::vector<Message*> messages_;
  std::vector<MessagePtr> owned_;  // deleted before the schema
};

TEST_F(VersionFilesTest, ReadsOneMessagePerFile) {
  const MessagePtr kept = schema_.New("ZO_TUNING.Version");
  messages_ = {kept.get()};
  EXPECT_TRUE(Get(versions_));
  EXPECT_THAT(messages_, IsEmpty());
  EXPECT_LOG(W("GetVersionMsgs", "Cannot find any version json file under dir: " + versions_));
  messages_ = {kept.get()};
  EXPECT_FALSE(Get(versions_ + "/no%s"));
  EXPECT_THAT(messages_, IsEmpty());
  EXPECT_LOG(E("FindAllJsonFiles", "Open directory failed: " + versions_ + "/no%s"),
             E("GetVersionMsgs", "Find json files failed from root: " + versions_ + "/no%s"));

  for (const std::string name : {"a", "b", "sub/c"}) Write(versions_ + "/" + name + ".json", VersionJson(name, "1.0"));
  EXPECT_TRUE(Get(versions_));
  const Strings listed = JsonInOrder(versions_);
  ASSERT_EQ(messages_.size(), 3U);
  for (size_t i = 0; i < 3; ++i) {
    const std::string name = std::filesystem::relative(listed[i], versions_).replace_extension().string();
    EXPECT_EQ(messages_[i]->SerializeAsString(), VersionBytes(name, "1.0"));
  }

  Write(listed[1], "{");
  StderrOf([&] { EXPECT_FALSE(Get(versions_)); });
  ASSERT_EQ(messages_.size(), 3U);
  EXPECT_TRUE(messages_[0] != nullptr && messages_[1] != nullptr && messages_[2] == nullptr);
  EXPECT_LOG(E("JSON_STR_TO_MSG", "Fail to parse json string {"),
             E("GetVersionMsgs", "Failed in json str -> msg. for verion json file " + listed[1]));
}

TEST_F(VersionFilesTest, UpdatesTheFirstFileOfThatName) {
  Write(versions_ + "/af.json", VersionJson("AF", "1.0"));
  Write(versions_ + "/ae.json", R"({"note": "kept ö", "name": "AE", "version": "1.0"})");
  Update("AE", "2.1 %s");
  EXPECT_EQ(Read(versions_ + "/af.json"), VersionJson("AF", "1.0"));
  EXPECT_EQ(Read(versions_ + "/ae.json"),
            "{\n \"version\": \"2.1 %s\",\n \"name\": \"AE\",\n \"note\": \"kept ö\"\n}\n");
  Write(versions_ + "/af.json", VersionJson("AE", "1.0"));
  Write(versions_ + "/ae.json", VersionJson("AE", "1.0"));
  const std::string first = First();
  Update("AE", "3");
  for (const std::string name : {"/af.json", "/ae.json"}) {
    EXPECT_EQ(Read(versions_ + name) == VersionJson("AE", "1.0"), versions_ + name != first) << name;
  }
}

TEST_F(VersionFilesTest, UpdatesNothingAndStillSucceeds) {
  const auto operation = [](const std::string& text) { return E("operator()", text); };
  const auto not_found = [](const std::string& name) {
    return E("UpdateProtoVersionJsonFile", "Cannot find version name " + name + " in proto version");
  };
  Update("AF%s", "2");
  EXPECT_LOG(W("operator()", "Cannot find any version json file under dir: " + versions_), not_found("AF%s"));
  Write(versions_ + "/a.json", VersionJson("AF", "1"));
  Write(versions_ + "/b.json", VersionJson("AF", "1"));
  Update("af", "2");
  Update("", "2");
  EXPECT_LOG(not_found("af"), not_found(""));
  Write(First(), "{]");
  StderrOf([&] { Update("AF", "2"); });
  EXPECT_LOG(E("JSON_STR_TO_MSG", "Fail to parse json string {]"),
             operation("Failed in json str -> msg. for verion json file " + First()), not_found("AF"));
  EXPECT_EQ(Read(First()), "{]");
  EXPECT_EQ(Read(JsonInOrder(versions_)[1]), VersionJson("AF", "1"));
  std::filesystem::remove_all(versions_);
  Update("AF", "2");
  EXPECT_LOG(E("FindAllJsonFiles", "Open directory failed: " + versions_),
             operation("Find json files failed from root: " + versions_), not_found("AF"));

  // Fields of the type that the operation cannot use.
  const std::string missing = "Error in finding the field descriptor of ";
  for (const auto& [fields, field] : Rows{{"string version = 2;", "name"},
                                          {"int32 name = 1; string version = 2;", "name"},
                                          {"repeated string name = 1; string version = 2;", "name"},
                                          {"string name = 1;", "version"},
                                          {"string name = 1; bytes version = 2;", "version"},
                                          {"string name = 1; repeated string version = 2;", "version"}}) {
    const std::string json = field == "name" ? "{}" : R"({"name": "AF"})";
    Write(dir_ + "/proto/project.proto", "syntax = \"proto3\"; package ZO_TUNING; message Version {" + fields + "}");
    Write(versions_ + "/a.json", json);
    Update("AF", "2");
    EXPECT_LOG(operation(missing + field), not_found("AF")) << fields;
    EXPECT_EQ(Read(versions_ + "/a.json"), json);
  }
}

TEST_F(VersionFilesTest, UpdateNeedsTheProjectItsSchemaAndItsType) {
  const auto fails = [&](const std::string& dir, const Strings& lines) {
    EXPECT_FALSE(ZoTuningUtils::UpdateProtoVersionJsonFile(dir.c_str(), "AF", "1"));
    EXPECT_EQ(TakeLog(), lines);
  };
  const std::string name = "UpdateProtoVersionJsonFile";
  const std::string dir = project_.temp / "p";
  fails(dir, {E(name, "Cannot find project dir: " + dir)});
  MakeDirs(dir);
  fails(dir, {E(name, "Cannot find project proto folder in input proj_dir: " + dir + "/proto")});
  MakeDirs(dir + "/proto");
  fails(dir, {NoType("ZO_TUNING.Version"), E(name, "Get tuning version descriptor failed")});
}

}  // namespace
