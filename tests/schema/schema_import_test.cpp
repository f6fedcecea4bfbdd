#include <sys/stat.h>

#include <algorithm>

#include "support/project.h"

#include "ZoTuningUtils.h"
#include "schema/schema.h"

namespace {

using namespace zotest;

TEST(TypeNamesTest, TheFirstTwoCharactersChooseThePackage) {
  for (const auto& [name, qualified] : Rows{{"AfCommon", "ZO_TUNING_AF.AfCommon"},
                                            {"AFCommon", "ZO_TUNING.AFCommon"},
                                            {"AWGain", "ZO_TUNING_AWB.AWGain"},
                                            {"AwGain", "ZO_TUNING.AwGain"},
                                            {"AEMeter", "ZO_TUNING_AEC.AEMeter"},
                                            {"PdCalib", "ZO_TUNING_PD.PdCalib"},
                                            {"PDCalib", "ZO_TUNING.PDCalib"},
                                            {"Af", "ZO_TUNING_AF.Af"},
                                            {"A", "ZO_TUNING.A"},
                                            {"", "ZO_TUNING."}}) {
    std::string out = "replaced";
    ZO_TUNING::ADD_NAMESPACE_TO_CLASSNAME(name, out);
    EXPECT_EQ(out, qualified);
  }
}

using SchemaImportTest = LogTest;

TEST_F(SchemaImportTest, ImportsProtoFilesAndPassesOverTheRestInSilence) {
  const TempDir dir;
  const auto file = [](const std::string& type) { return "syntax = \"proto3\"; message " + type + " {}"; };
  Write(dir / "a.proto", "syntax = \"proto3\"; import \"sub/c.proto\"; message A { C c = 1; }");
  Write(dir / "sub/c.proto", file("C"));
  Write(dir / "sub/d.proto", file("D"));
  Write(dir / "b.proto.bak", file("Bak"));
  Write(dir / "upper.PROTO", file("Upper"));
  Write(dir / "readme", file("Readme"));
  Write(dir / "broken.proto", file("Broken") + "}");
  Write(dir / "x.proto/inner.proto", file("Inner"));

  google::protobuf::compiler::DiskSourceTree tree;
  tree.MapPath("", dir.str());
  google::protobuf::compiler::Importer importer(&tree, nullptr);
  const std::string printed = StderrOf([&] {
    for (const std::string& path : {dir.str(), dir / "missing"})
      ZoTuningUtils::ImportDescriptors(path.c_str(), importer);
  });
  EXPECT_EQ(printed, "");
  EXPECT_LOG();
  for (const std::string type : {"A", "C"}) EXPECT_NE(importer.pool()->FindMessageTypeByName(type), nullptr) << type;
  for (const std::string type : {"D", "Bak", "Upper", "Readme", "Broken", "Inner"}) {
    EXPECT_EQ(importer.pool()->FindMessageTypeByName(type), nullptr) << type;
  }
}

TEST_F(SchemaImportTest, FindsTypesByNamesCutAtTheFirstLinkKey) {
  const TempDir dir;
  Write(dir / "a.proto",
        "syntax = \"proto3\"; package ZO_TUNING; message LinkKey {} message Plain {} message Linkkey {}");
  Schema schema(dir.str());
  for (const auto& [name, found] : Rows{{"Plain", "Plain"},
                                        {"LinkKey", "LinkKey"},
                                        {"LinkKeyLinkKey", "LinkKey"},
                                        {"LinkKeyTable%s", "LinkKey"},
                                        {"Linkkey", "Linkkey"},
                                        {"LinkkeyTable", ""},
                                        {"PlainLinkKey%n", ""},
                                        {"", ""}}) {
    const auto* type = ZoTuningUtils::GetDescByClassName(schema.importer(), ("ZO_TUNING." + name).c_str());
    EXPECT_EQ(type == nullptr ? "" : type->name(), found) << name;
    EXPECT_EQ(TakeLog(), found.empty() ? Strings{NoType("ZO_TUNING." + name)} : Strings()) << name;
  }
}

TEST_F(SchemaImportTest, ACollectorGetsEveryFaultOfEveryFile) {
  using ZO_TUNING::internal::SchemaFault;
  const TempDir dir;
  Write(dir / "b.proto", "syntax = \"proto3\";\npackage ZO_TUNING;\nmessage B {\n  Missing m = 1;\n  Gone g = 2;\n}\n");
  Write(dir / "a.proto", "syntax = \"proto3\";\nimport \"b.proto\";\nimport \"pipe.proto\";\nmessage A {}\n");
  Write(dir / "c.proto", "syntax = \"proto3\";\npackage ZO_TUNING;\nmessage Fine {}\n");
  ASSERT_EQ(mkfifo((dir / "pipe.proto").c_str(), 0600), 0);
  std::vector<SchemaFault> faults;
  const ZO_TUNING::internal::Schema schema(dir.str(), &faults, [](const std::string& path) {
    return path.find("pipe") == std::string::npos ? "" : "a named pipe";
  });
  Strings lines;
  for (const SchemaFault& fault : faults) {
    lines.push_back(fault.file + ":" + std::to_string(fault.line) + ":" + std::to_string(fault.column) + ": " +
                    fault.message);
  }
  EXPECT_THAT(lines, testing::IsSupersetOf({"a.proto:2:1: Import \"b.proto\" was not found or had errors.",
                                            "b.proto:4:3: \"Missing\" is not defined.",
                                            "b.proto:5:3: \"Gone\" is not defined.", "pipe.proto:0:0: a named pipe"}));
  EXPECT_TRUE(std::is_sorted(lines.begin(), lines.end()));
  EXPECT_TRUE(schema.listing().is_complete());
  Strings loaded;
  for (const auto& file : schema.files()) {
    if (file.is_loaded) loaded.push_back(file.name);
  }
  EXPECT_THAT(loaded, ElementsAre("c.proto"));
  EXPECT_NE(schema.FindType("Fine"), nullptr);
  EXPECT_EQ(schema.Find("B").status, ZO_TUNING::internal::TypeStatus::kMissing);
}

TEST_F(SchemaImportTest, TypesTooDeepForTheStackAreRefused) {
  const TempDir dir;
  constexpr int kTypes = 20000;
  std::string text = "syntax = \"proto3\"; package ZO_TUNING; message T" + std::to_string(kTypes) + " { T0 t = 1; }";
  for (int i = 0; i < kTypes; ++i) {
    const std::string next = "T" + std::to_string(i + 1);
    text += "message T" + std::to_string(i) + " {" + next + " t = 1; " + next + " u = 2; }";
  }
  text += "message Shallow { Shallow s = 1; } message Deep { D1 d = 1; }";
  for (int i = 1; i < 1000; ++i) text += "message D" + std::to_string(i) + " { D" + std::to_string(i + 1) + " d = 1; }";
  Write(dir / "proto/a.proto", text + "message D1000 {}");
  MakeDirs(dir / "default");
  ZO_TUNING::internal::Schema schema(dir / "proto");
  for (const std::string type : {"Shallow", "Deep"}) {
    const auto message = schema.NewMessage(schema.FindType(type));
    ZO_TUNING::MSG_PRONE_FOR_BIN(message.get(), message->GetDescriptor());
    EXPECT_GT(message->ByteSizeLong(), 0U);
  }
  EXPECT_LOG();
  EXPECT_EQ(schema.FindType("T7"), nullptr);
  EXPECT_EQ(schema.Find("T7").levels, 20001U);
  EXPECT_LOG();
  EXPECT_FALSE(ZoTuningUtils::GenerateDefaultModuleData(dir.str().c_str(), "T7"));
  EXPECT_LOG(StartsWith("6 GetDescByClassName: Message type ZO_TUNING.T7 holds 20001 levels of message types"),
             "6 GenerateDefaultModuleData: Get descriptor of module ZO_TUNING.T7 failed");
}

}  // namespace
