// verify: are these bins from this tree?

#include <filesystem>

#include "tools/tool.h"

namespace zotest {
namespace {

TEST_F(PackedTest, BinsOfTheTreeAreTheSameInAnyOrder) {
  const Ran run = Tool("verify out/zo_tuning");
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_EQ(run.out,
            "default.bin: 13 records the same, 0 differences\n"
            "main_wide.bin: 13 records the same, 0 differences\n"
            "front.bin: 12 records the same, 0 differences\n");
  const std::string bytes = Read(At(bin_)), text = Tool("show " + bin_ + " --text").out;
  const Json first = Tool("show " + bin_ + " --json").json()["result"]["records"][0];
  const size_t begin = first["offset"], length = first["length"];
  Write(At(bin_), bytes.substr(0, begin) + bytes.substr(begin + length) + bytes.substr(begin, length));
  EXPECT_EQ(Tool("verify out").code, 0);
  EXPECT_EQ(Tool("show " + bin_ + " --text").out, text);
}

TEST_F(PackedTest, DifferencesAreNamedWithBothValues) {
  const std::string value = Json::parse(Read(At("front/AWBCommon.json")))["convergence"]["speed"]["value"].dump();
  Edit("front/AWBCommon.json", "\"value\": " + value, "\"value\": 0.5");
  ASSERT_EQ(Tool("new --sensor front module=PdCommon mode=9").code, 0);
  std::filesystem::remove(At("front/mode_1/AfCommon.json"));
  Edit("front/version/tuning.json", "0.7.3", "0.7.4");
  const Ran run = Tool("verify out/zo_tuning --sensor front");
  EXPECT_EQ(run.out,
            "default.bin: 13 records the same, 0 differences\n"
            "front.bin: 10 records the same, 5 differences\n"
            "  missing  version name: \"front.tuning\" version: \"0.7.4\" note: \"Portrait metering still open.\" \n"
            "  extra    version name: \"front.tuning\" version: \"0.7.3\" note: \"Portrait metering still open.\" \n"
            "  changed  module=AWBCommon\n"
            "             convergence.speed.value: bin " +
                value +
                ", tree 0.5\n"
                "  missing  module=PdCommon mode=9\n"
                "  extra    module=AfCommon mode=1\n");
  Fails("verify out", "out/zo_tuning: error: the bins are not those of the tree: 5 differences\n");
  const Json differences = Tool("verify out --json").json()["result"]["bins"][2]["differences"];
  ASSERT_EQ(differences.size(), 5u) << differences;
  EXPECT_EQ(
      differences[2],
      Json({{"kind", "changed"},
            {"labels", {{"module", "AWBCommon"}}},
            {"count", 1},
            {"differences", Json::array({{{"path", "convergence.speed.value"}, {"bin", value}, {"tree", "0.5"}}})}}));
  EXPECT_EQ(differences[3], Json({{"kind", "missing"}, {"labels", {{"module", "PdCommon"}, {"mode", 9}}}}));
}

TEST_F(PackedTest, WhatDoesNotFitIsRefused) {
  const std::string bytes = Read(At(bin_));
  Write(At("out/zo_tuning/rear.bin"), bytes);
  Fails("verify out", "out/zo_tuning/rear.bin: error: this bin belongs to no sensor");
  std::filesystem::remove(At("out/zo_tuning/rear.bin"));
  Write(At(bin_), bytes.substr(0, bytes.size() - 1));
  Fails("verify out", bin_ + ": error: the bin is damaged at byte ");
  std::filesystem::remove(At(bin_));
  Fails("verify out", bin_ + ": error: the bin of 'front' is missing");
  EXPECT_EQ(Tool("verify out --sensor main_wide").code, 0);
  Fails("verify nowhere", "cannot list the directory nowhere: No such file or directory");
  Write(At("front/AWBCommon.json"), "{\"convergence\": }");
  Fails("verify out", "front/AWBCommon.json:1:17: error: a value is expected");
}

}  // namespace
}  // namespace zotest
