// verify: are these bins from this tree?

#include <filesystem>

#include "tools/tool.h"

namespace zotest {
namespace {

using testing::HasSubstr;

class VerifyTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    ASSERT_EQ(Tool({"pack", "-o", "out"}).code, 0);
  }

  /// The differences that are found in the bin of front.
  Json Differences() const {
    const Ran run = Tool({"verify", "out/zo_tuning", "--json"});
    EXPECT_EQ(run.code, 1);
    const Json bins = run.json()["result"]["bins"];
    for (const Json& bin : bins) {
      if (bin["name"] == "front") return bin["differences"];
    }
    return nullptr;
  }
};

TEST_F(VerifyTest, BinsOfTheTreeAreTheSameInAnyOrder) {
  const Ran run = Tool({"verify", "out/zo_tuning"});
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_EQ(run.out,
            "default.bin: 13 records the same, 0 differences\n"
            "main_wide.bin: 13 records the same, 0 differences\n"
            "front.bin: 12 records the same, 0 differences\n");
  const std::string bin = At("out/zo_tuning/front.bin"), bytes = Read(bin);
  const Json records = Tool({"show", bin, "--json"}).json()["result"]["records"];
  const size_t first = records[0]["offset"], length = records[0]["length"];
  Write(bin, bytes.substr(0, first) + bytes.substr(first + length) + bytes.substr(first, length));
  EXPECT_EQ(Tool({"verify", "out"}).code, 0);
}

TEST_F(VerifyTest, DifferencesAreNamedWithBothValues) {
  const std::string value = Json::parse(Read(At("front/AWBCommon.json")))["convergence"]["speed"]["value"].dump();
  Edit("front/AWBCommon.json", "\"value\": " + value, "\"value\": 0.5");
  ASSERT_EQ(Tool({"new", "--sensor", "front", "module=PdCommon", "mode=9"}).code, 0);
  std::filesystem::remove(At("front/mode_1/AfCommon.json"));
  Edit("front/version/tuning.json", "0.7.3", "0.7.4");
  const Json differences = Differences();
  ASSERT_EQ(differences.size(), 5u) << differences;
  EXPECT_THAT(differences[0]["version"].get<std::string>(), HasSubstr("0.7.4"));
  EXPECT_EQ(differences[1]["kind"], "extra");
  Json kinds = Json::object();
  for (size_t i = 2; i < 5; ++i) kinds[differences[i]["kind"].get<std::string>()] = differences[i];
  EXPECT_EQ(kinds["missing"]["labels"], Json({{"module", "PdCommon"}, {"mode", 9}}));
  EXPECT_EQ(kinds["extra"]["labels"], Json({{"module", "AfCommon"}, {"mode", 1}}));
  EXPECT_EQ(kinds["changed"]["differences"],
            Json::array({{{"path", "convergence.speed.value"}, {"bin", value}, {"tree", "0.5"}}}));
  const Ran text = Tool({"verify", "out/zo_tuning", "--sensor", "front"});
  EXPECT_THAT(text.out, HasSubstr("  changed  module=AWBCommon\n             convergence.speed.value: bin " + value +
                                  ", tree 0.5\n"));
  EXPECT_THAT(text.err, HasSubstr("the bins are not those of the tree: 5 differences"));
}

TEST_F(VerifyTest, FoldersThatDoNotFitAreRefused) {
  const std::string bytes = Read(At("out/zo_tuning/front.bin"));
  Write(At("out/zo_tuning/rear.bin"), bytes);
  EXPECT_THAT(Tool({"verify", "out"}).err, HasSubstr("out/zo_tuning/rear.bin: error: this bin belongs to no sensor"));
  std::filesystem::remove(At("out/zo_tuning/rear.bin"));
  Write(At("out/zo_tuning/front.bin"), bytes.substr(0, bytes.size() - 1));
  EXPECT_THAT(Tool({"verify", "out"}).err, HasSubstr("out/zo_tuning/front.bin: error: the bin is damaged at byte "));
  std::filesystem::remove(At("out/zo_tuning/front.bin"));
  const Ran missing = Tool({"verify", "out"});
  EXPECT_EQ(missing.code, 1);
  EXPECT_THAT(missing.err, HasSubstr("out/zo_tuning/front.bin: error: the bin of 'front' is missing"));
  EXPECT_EQ(Tool({"verify", "out", "--sensor", "main_wide"}).code, 0);
  EXPECT_EQ(Tool({"verify", "nowhere"}).code, 1);
}

TEST_F(VerifyTest, ATreeThatDoesNotPackIsNamed) {
  Write(At("front/AWBCommon.json"), "{\"convergence\": }");
  const Ran run = Tool({"verify", "out"});
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.err, HasSubstr("front/AWBCommon.json:1:17: error: a value is expected"));
}

}  // namespace
}  // namespace zotest
