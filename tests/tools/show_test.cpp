// show: what is in a bin, and where a damaged one breaks.

#include <cstdlib>
#include <filesystem>

#include "tools/tool.h"

namespace zotest {
namespace {

using testing::HasSubstr;

class ShowTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    ASSERT_EQ(Tool({"pack", "-o", "out"}).code, 0);
  }
  const std::string bin_ = "out/zo_tuning/front.bin";
};

TEST_F(ShowTest, TheTableMatchesTheBytes) {
  const std::string bytes = Read(At(bin_));
  const Json result = Tool({"show", bin_, "--json"}).json()["result"];
  EXPECT_EQ(result["bytes"], bytes.size());
  EXPECT_EQ(result["fault"], nullptr);
  ASSERT_EQ(result["versions"].size(), 2u);
  const auto length_at = [&](size_t offset) {
    return static_cast<size_t>(static_cast<unsigned char>(bytes[offset])) |
           static_cast<size_t>(static_cast<unsigned char>(bytes[offset + 1])) << 8;
  };
  size_t offset = 4;
  for (const Json& version : result["versions"]) {
    EXPECT_EQ(version["offset"], offset);
    EXPECT_EQ(version["length"], length_at(offset));
    const std::string name = version["message"]["name"];
    EXPECT_THAT(bytes.substr(offset, 4 + length_at(offset)), HasSubstr(name));
    offset += 4 + length_at(offset);
  }
  ASSERT_EQ(result["records"].size(), 12u);
  for (const Json& record : result["records"]) {
    EXPECT_EQ(record["offset"], offset);
    EXPECT_EQ(record["label_length"], length_at(offset));
    EXPECT_EQ(record["module_length"], length_at(offset + 4 + length_at(offset)));
    offset += 4 + length_at(offset);
    offset += 4 + length_at(offset);
    EXPECT_TRUE(Exists(At(record["setting"].get<std::string>()))) << record;
  }
  EXPECT_EQ(offset, bytes.size());

  const std::string offsets = Tool({"show", bin_, "--offsets"}).out;
  EXPECT_THAT(offsets, HasSubstr("\n0       4      version count\n4       4      length of version 0: "));
  EXPECT_THAT(Tool({"show", "out/zo_tuning"}).out, HasSubstr("front.bin      " + std::to_string(bytes.size())));
}

TEST_F(ShowTest, ARecordPrintsInTheSchemasNames) {
  const Json records = Tool({"show", bin_, "--json"}).json()["result"]["records"];
  for (size_t i = 0; i < records.size(); ++i) {
    if (records[i]["setting"] != "front/AWBCommon.json") continue;
    const std::string number = std::to_string(i);
    const Json printed = Json::parse(Tool({"show", bin_, "--record", number}).out);
    const Json source = Json::parse(Read(At("front/AWBCommon.json")));
    EXPECT_EQ(printed["convergence"]["speed"]["value"], source["convergence"]["speed"]["value"]);
    EXPECT_FALSE(printed["convergence"]["speed"].contains("rule") &&
                 !printed["convergence"]["speed"]["rule"].is_null());
    EXPECT_EQ(Tool({"show", bin_, "--record", number, "--json"}).json()["result"]["message"], printed);
    EXPECT_THAT(Tool({"show", bin_, "--record", number, "--text"}).out, HasSubstr("convergence {\n  speed {\n"));
    EXPECT_THAT(Tool({"show", bin_, "--text"}).out, HasSubstr("# module=AWBCommon\n"));
  }
  const Ran beyond = Tool({"show", bin_, "--record", "12"});
  EXPECT_EQ(beyond.code, 1);
  EXPECT_THAT(beyond.err, HasSubstr("the bin has no record 12; it has 12 records, counted from 0"));
}

TEST_F(ShowTest, TextDoesNotDependOnTheOrderOfRecords) {
  const std::string bytes = Read(At(bin_));
  const Json records = Tool({"show", bin_, "--json"}).json()["result"]["records"];
  std::string turned = bytes.substr(0, records[0]["offset"]);
  for (auto record = records.rbegin(); record != records.rend(); ++record) {
    turned += bytes.substr((*record)["offset"], (*record)["length"]);
  }
  ASSERT_NE(turned, bytes);
  const std::string text = Tool({"show", bin_, "--text"}).out;
  Write(At(bin_), turned);
  EXPECT_EQ(Tool({"show", bin_, "--text"}).out, text);
}

TEST_F(ShowTest, GitShowsReadableDifferences) {
  if (std::system("git --version > /dev/null 2>&1") != 0) GTEST_SKIP() << "there is no git";
  Write(At(".gitattributes"), "*.bin diff=zotuning\n");
  const auto git = [&](const std::string& arguments) {
    return RunProgram(
        "sh",
        {"-c", "git -c user.name=t -c user.email=t -c diff.zotuning.textconv=\"'" ZOTUNING_TOOL "' show --text\" " +
                   arguments},
        {dir_, ""});
  };
  ASSERT_EQ(git("init -q . && git add out .gitattributes && git -c user.name=t -c user.email=t commit -qm bins").code,
            0);
  const std::string value = Json::parse(Read(At("front/AWBCommon.json")))["convergence"]["speed"]["value"].dump();
  Edit("front/AWBCommon.json", "\"value\": " + value, "\"value\": 0.5");
  ASSERT_EQ(Tool({"pack", "-o", "out", "--force"}).code, 0);
  const Ran diff = git("--no-pager diff -- out");
  EXPECT_EQ(diff.code, 0) << diff.err;
  EXPECT_THAT(diff.out, HasSubstr("\n-    value: " + value + "\n+    value: 0.5\n"));
}

// Damage.

TEST_F(ShowTest, EveryCutIsNamedUnlessItIsTheEndOfARecord) {
  // One small record keeps the sweep short; the cuts run through every kind of item.
  std::filesystem::remove_all(At("main_wide"));
  Write(At("main_wide/mode_1/PdCommon.json"), Read(At("default/PdCommon.json")));
  Write(At("main_wide/version/v.json"), "{\"name\": \"n\", \"version\": \"1\"}");
  ASSERT_EQ(Tool({"pack", "-o", "small"}).code, 0);
  const std::string bytes = Read(At("small/zo_tuning/main_wide.bin"));
  const Json whole = Tool({"show", "small/zo_tuning/main_wide.bin", "--json"}).json()["result"];
  const size_t record = whole["records"][0]["offset"];
  const size_t module = whole["records"][0]["module_offset"].get<size_t>() - 4;
  for (size_t cut = 0; cut < bytes.size(); cut += cut < record + 8 ? 1 : 5) {
    Write(At("cut.bin"), bytes.substr(0, cut));
    const Ran run = Tool({"show", "cut.bin", "--json"});
    const Json fault = run.json()["result"]["fault"];
    if (cut == record) {
      EXPECT_EQ(run.code, 0) << cut << run.out;
      continue;
    }
    EXPECT_EQ(run.code, 1) << cut;
    size_t item = 0;  // the begin of the length or data that the cut falls into
    for (const size_t begin : {size_t{4}, size_t{8}, record, record + 4, module, module + 4}) {
      if (begin <= cut) item = begin;
    }
    // A length whose data is cut off whole is fault of the data, which begins where the file ends.
    EXPECT_EQ(fault["offset"], cut < 4 ? 0 : item) << cut << fault;
    EXPECT_THAT(run.json()["diagnostics"][0]["message"].get<std::string>(),
                HasSubstr("at byte " + std::to_string(cut < 4 ? 0 : item) + ", "));
  }
}

TEST_F(ShowTest, WrongNumbersAreNamed) {
  const std::string bytes = Read(At(bin_));
  const Json records = Tool({"show", bin_, "--json"}).json()["result"]["records"];
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
    const Ran run = Tool({"show", "bad.bin"});
    EXPECT_EQ(run.code, 1) << row.says;
    EXPECT_THAT(run.err, HasSubstr(row.says));
    EXPECT_EQ(Tool({"show", "bad.bin", "--json"}).json()["result"]["records"].size(), row.records) << row.says;
  }
  const Ran missing = Tool({"show", "none.bin"});
  EXPECT_EQ(missing.code, 1);
  EXPECT_THAT(missing.err, HasSubstr("none.bin: error: cannot read none.bin: No such file or directory"));
}

}  // namespace
}  // namespace zotest
