#include "support/project.h"

#include "ZoTuningUtils.h"

namespace {

using namespace zotest;

TEST(TypeNamesTest, TheFirstTwoCharactersChooseThePackage) {
  for (const auto& [name, qualified] :
       std::vector<std::pair<std::string, std::string>>{{"AfCommon", "ZO_TUNING_AF.AfCommon"},
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
  testing::internal::CaptureStderr();
  ZoTuningUtils::ImportDescriptors(dir.str().c_str(), importer);
  ZoTuningUtils::ImportDescriptors((dir / "missing").c_str(), importer);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_THAT(TakeLog(), testing::IsEmpty());
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
  struct Row {
    std::string name, found;  // nothing found when empty
  };
  for (const Row& row : {Row{"ZO_TUNING.Plain", "Plain"}, Row{"ZO_TUNING.LinkKey", "LinkKey"},
                         Row{"ZO_TUNING.LinkKeyLinkKey", "LinkKey"}, Row{"ZO_TUNING.LinkKeyTable%s", "LinkKey"},
                         Row{"ZO_TUNING.Linkkey", "Linkkey"}, Row{"ZO_TUNING.LinkkeyTable", ""},
                         Row{"ZO_TUNING.PlainLinkKey%n", ""}, Row{"Plain", ""}, Row{"", ""}}) {
    const auto* type = ZoTuningUtils::GetDescByClassName(schema.importer(), row.name.c_str());
    if (row.found.empty()) {
      EXPECT_EQ(type, nullptr) << row.name;
      EXPECT_EQ(TakeLog(), Strings{E("GetDescByClassName", "Find descriptor of " + row.name +
                                                               " failed, please check the protos under project dir")});
    } else {
      ASSERT_NE(type, nullptr) << row.name;
      EXPECT_EQ(type->name(), row.found);
    }
  }
}

}  // namespace
