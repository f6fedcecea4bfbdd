// show: what is in a bin, and where a damaged one is damaged. verify: are these bins from this tree?

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "tools/tool.h"

namespace zotest {
namespace {

TEST_F(PackedTest, TheTableMatchesTheBytes) {
  const std::string bytes = Read(At(bin_));
  const Json result = Tool("show " + bin_ + " --json").json()["result"];
  size_t offset = 4;
  // Checks the length of the next item, and skips it.
  const auto expect_item = [&](const Json& length) {
    int32_t in_file = 0;
    std::memcpy(&in_file, &bytes.at(offset), sizeof(in_file));
    EXPECT_EQ(length, in_file) << offset;
    offset += 4 + static_cast<size_t>(in_file);
  };
  ASSERT_EQ(result["versions"].size(), 2u);
  for (const Json& version : result["versions"]) {
    EXPECT_EQ(version["offset"], offset);
    expect_item(version["length"]);
  }
  ASSERT_EQ(result["records"].size(), 12u);
  for (const Json& record : result["records"]) {
    EXPECT_EQ(record["offset"], offset);
    expect_item(record["label_length"]);
    expect_item(record["module_length"]);
    EXPECT_TRUE(Exists(At(record["setting"].get<std::string>()))) << record;
  }
  EXPECT_EQ(offset, bytes.size());
  EXPECT_THAT(Tool("show " + bin_ + " --offsets").out,
              HasSubstr("\n0       4      version count\n4       4      length of version 0: "));
  EXPECT_THAT(Tool("show out").out, HasSubstr("front.bin      " + std::to_string(bytes.size())));
}

TEST_F(PackedTest, ARecordPrintsInTheSchemasNames) {
  const Json records = Tool("show " + bin_ + " --json").json()["result"]["records"];
  const auto found = std::find_if(records.begin(), records.end(),
                                  [](const Json& record) { return record["setting"] == "front/AWBCommon.json"; });
  ASSERT_NE(found, records.end());
  const std::string line = "show " + bin_ + " --record " + std::to_string(found - records.begin());
  const Json printed = Json::parse(Tool(line).out), source = Json::parse(Read(At("front/AWBCommon.json")));
  const Json& speed = printed["convergence"]["speed"];
  EXPECT_EQ(speed["value"], source["convergence"]["speed"]["value"]);
  EXPECT_EQ(speed.value("rule", Json()), nullptr);
  EXPECT_EQ(Tool(line + " --json").json()["result"]["message"], printed);
  EXPECT_THAT(Tool(line + " --text").out, HasSubstr("convergence {\n  speed {\n"));
  EXPECT_THAT(Tool("show " + bin_ + " --text").out, HasSubstr("# module=AWBCommon\n"));
  Fails("show " + bin_ + " --record 12", "the bin has no record 12; it has 12 records, counted from 0");
}

TEST_F(PackedTest, GitShowsReadableDifferences) {
  if (std::system("git --version > /dev/null 2>&1") != 0) GTEST_SKIP() << "there is no git";
  Write(At(".gitattributes"), "*.bin diff=zotuning\n");
  const std::string textconv = "diff.zotuning.textconv='" ZOTUNING_TOOL "' show --text";
  for (const Strings& words : {Strings{"init", "-q"}, Strings{"add", "-f", "out", ".gitattributes"}}) {
    ASSERT_EQ(RunProgram("git", words, {dir_}).code, 0);
  }
  const std::string value = Json::parse(Read(At("front/AWBCommon.json")))["convergence"]["speed"]["value"].dump();
  Edit("front/AWBCommon.json", "\"value\": " + value, "\"value\": 0.5");
  ASSERT_EQ(Tool("pack -o out --force").code, 0);
  const Ran diff = RunProgram("git", {"-c", textconv, "--no-pager", "diff", "--", "out"}, {dir_});
  EXPECT_THAT(diff.out, HasSubstr("\n-    value: " + value + "\n+    value: 0.5\n"));
}

// Damage.

TEST_F(PackedTest, WrongNumbersAreNamed) {
  const std::string bytes = Read(At(bin_));
  const Json records = Tool("show " + bin_ + " --json").json()["result"]["records"];
  const size_t label = records[1]["offset"], module = records[1]["module_offset"].get<size_t>() - 4;
  const struct {
    size_t offset;
    std::string put;
    std::string says;
    size_t records;
  } rows[] = {
      {0, "\xFF\xFF\xFF\xFF", "at byte 0, version count: expected a count from 0 on, found -1", 0},
      {4, "\xFE\xFF\xFF\xFF", "at byte 4, length of version 0: expected a length from 0 on, found -2", 0},
      {4, "\xFF\xFF\xFF\x7F", "at byte 8, version 0: expected 2147483647 bytes, found ", 0},
      {8, "\xFF", "at byte 8, version 0: expected a message of type ZO_TUNING.Version, found ", 0},
      {label, std::string("\xFF\xFF\xFF\xFF", 4), "length of label of record 1: expected a length from 0 on", 1},
      {module, std::string("\0\0\0\x10", 4), "of record 1: expected 268435456 bytes, found ", 1},
      {module + 4, "\xFF\xFF", "of record 1: expected a message of type ZO_TUNING", 1},
  };
  for (const auto& row : rows) {
    Write(At("bad.bin"), bytes.substr(0, row.offset) + row.put + bytes.substr(row.offset + row.put.size()));
    Fails("show bad.bin", row.says);
    EXPECT_EQ(Tool("show bad.bin --json").json()["result"]["records"].size(), row.records) << row.says;
  }
  Fails("show bad.bin --record 0", "at byte ");  // what can be read is shown, and the damage reported
  Fails("show none.bin", "none.bin: error: cannot read none.bin: No such file or directory");
}

// Bins and their tree.

TEST_F(PackedTest, BinsOfTheTreeAreTheSameInAnyOrder) {
  const Ran run = Tool("verify out/zo_tuning");
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_EQ(run.out,
            "default.bin: 18 the same, 0 differences\n"
            "main_wide.bin: 15 the same, 0 differences\n"
            "front.bin: 14 the same, 0 differences\n");
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
            "default.bin: 18 the same, 0 differences\n"
            "front.bin: 11 the same, 4 differences\n"
            "--- out/zo_tuning/front.bin\n"
            "+++ the tree\n"
            "changed  version=front.tuning\n"
            "  version: \"0.7.3\" → \"0.7.4\"\n"
            "changed  module=AWBCommon\n"
            "  convergence.speed.value: " +
                value +
                " → 0.5 (+316.7 %)\n"
                "added    module=PdCommon mode=9\n"
                "removed  module=AfCommon mode=1\n");
  Fails("verify out", "out: error: the bins do not match the tree: 4 differences\n");
  const Json differences = Tool("verify out --json").json()["result"]["bins"][2]["differences"];
  EXPECT_EQ(differences[1]["differences"].dump(),
            R"([{"path":"convergence.speed.value","kind":"changed","left":)" + value + R"(,"right":0.5}])");
  EXPECT_EQ(differences[2]["kind"], "added");
  EXPECT_EQ(differences[2]["labels"], Json({{"module", "PdCommon"}, {"mode", 9}}));
}

TEST_F(PackedTest, BinsOfAnotherSchemaAreReadByTheirLengths) {
  const Json before = Tool("show " + bin_ + " --json").json()["result"]["records"];
  const std::string labels = Read(At("proto/label.proto")), awb = Read(At("proto/awb.proto"));
  Edit("proto/label.proto", "EnumTuningDataLable_Module_PdCalib = 49;", "EnumTuningDataLable_Module_PdCalib = 99;");
  const std::string foreign =
      "error: the bin was packed with another schema, or from another project: record 1 (module=49) is of a module that "
      "the schema does not have";
  Fails("show " + bin_, bin_ + ": " + foreign);
  EXPECT_THAT(Tool("show " + bin_).out, testing::ContainsRegex("module=49 +\\(unknown module\\)\n"));
  EXPECT_THAT(Tool("show out").out, HasSubstr("12 (another schema)\n"));
  const Json records = Tool("show " + bin_ + " --json").json()["result"]["records"];
  ASSERT_EQ(records.size(), before.size());
  for (size_t i = 0; i < records.size(); ++i) {
    Json expected = before[i];
    if (i == 1) {
      expected["module"] = expected["setting"] = nullptr;
      expected["labels"]["module"] = 49;
    }
    EXPECT_EQ(records[i], expected);
  }
  const std::string place = std::to_string(records[1]["module_offset"].get<int>());
  EXPECT_THAT(Tool("show " + bin_ + " --record 1").out, HasSubstr(" bytes at byte " + place));
  EXPECT_THAT(Tool("show " + bin_ + " --text").out, HasSubstr("# module=49\n# unknown module: "));
  const Ran verified = Tool("verify " + bin_);
  EXPECT_EQ(verified.code, 1);
  EXPECT_THAT(verified.out,
              AllOf(HasSubstr("front.bin: 13 the same, 2 differences\n"), HasSubstr("added    module=PdCalib\n"),
                    HasSubstr("removed  module=49 (unknown module, ")));
  EXPECT_THAT(verified.err, HasSubstr(foreign));
  Write(At("proto/label.proto"), labels);

  // A field with another number, and one of another type.
  Edit("proto/awb.proto", "ZO_TUNING.FloatData speed = 1;", "ZO_TUNING.FloatData speed = 7;");
  Edit("proto/awb.proto", "uint32 fast_start_frames = 3;", "fixed32 fast_start_frames = 3;");
  const std::string has = bin_ + ": error: record 0 (AWBCommon) has field ";
  for (const std::string& line : {"show " + bin_, "verify " + bin_}) {
    Fails(line, has + "1 in 'ZO_TUNING_AWB.AWBConvergence', which the schema does not know\n");
    Fails(line, has + "3 in 'ZO_TUNING_AWB.AWBConvergence' in another form than the schema\n");
  }
  // A message where the schema has a text.
  Edit("proto/awb.proto", "ZO_TUNING.FloatData dead_band = 2;", "string dead_band = 2;");
  Fails("show " + bin_, bin_ +
                            ": error: the bin was packed with another schema, or its bytes were changed: the AWBCommon "
                            "of record 0 at byte ");
}

TEST_F(PackedTest, BinsComeFromStandardInput) {
  const std::string bytes = Read(At(bin_));
  Ran run = Tool("show -", {"", bytes});
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_THAT(run.out, testing::StartsWith("standard input: " + std::to_string(bytes.size()) + " bytes, 2 versions"));
  EXPECT_EQ(Tool("verify - --sensor front", {"", bytes}).code, 0);
  run = Tool("verify - --sensor main_wide", {"", bytes});
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.out, HasSubstr("--- standard input\n"));
  Fails("verify -", "--sensor must say whose bin is on standard input", 2);
  EXPECT_THAT(Tool("show -", {"", "{}"}).err, HasSubstr("standard input: error: this is a JSON file, not a bin"));
}

TEST_F(PackedTest, WhatDoesNotFitIsRefused) {
  const std::string bytes = Read(At(bin_));
  Write(At("out/zo_tuning/rear.bin"), bytes);
  Fails("verify out", "out/zo_tuning/rear.bin: error: this bin belongs to no sensor");
  std::filesystem::remove(At("out/zo_tuning/rear.bin"));
  Write(At(bin_), bytes.substr(0, bytes.size() - 1));
  Fails("verify out", bin_ + ": error: the bin is damaged at byte ");
  // Files that are not bins are called what they are.
  const Rows others = {
      {Read(At("default/AfCommon.json")), "this is a JSON file, not a bin"},
      {"", "the file is empty"},
      {"version = 3\n", "this is a text file, not a bin"},
      {Read(At("ProjConf.bin")), "this looks like the configuration of a project (ProjConf.bin)"},
  };
  for (const auto& [text, says] : others) {
    Write(At(bin_), text);
    Fails("show " + bin_, says);
    Fails("verify out", says);
  }
  std::filesystem::remove(At(bin_));
  Fails("verify out", bin_ + ": error: the bin of 'front' is missing");
  EXPECT_EQ(Tool("verify out --sensor main_wide").code, 0);
  Fails("verify nowhere", "cannot list the directory nowhere: No such file or directory");
  Write(At("default/AWBCommon.json"), "{\"convergence\": }");
  Fails("verify out", "default/AWBCommon.json:1:17: error: a value is expected");
}

}  // namespace
}  // namespace zotest
