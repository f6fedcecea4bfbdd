// Migration: how a schema change affects defaults and settings, and that everything else is left alone.

#include "workspace/migrate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "support/project.h"

namespace zotest {
namespace {

using testing::HasSubstr;
using zotuning::CollectingSink;
using zotuning::MigrateOptions;
using zotuning::Migration;

constexpr char kSchema[] = R"(syntax = "proto3";
  package ZO_TUNING;
  message TuningProjConfig { string proj_name = 1; repeated string sensor_names = 2; }
  message Version { string name = 1; string version = 2; }
  enum Module { Module_Lens = 0; Module_Flash = 1; }
  enum Scenario { Scenario_Preview = 0; Scenario_Video = 1; }
  message TuningDataLabel { Module module = 1; int32 mode = 2; Scenario scenario = 3; }
  message FloatRule { string description = 1; string recommend = 2; }
  message FloatData { float value = 1; FloatRule rule = 2; }
  message FloatArrayRule { string description = 1; string recommend = 2; int32 order = 3; string len = 4; }
  message FloatArrayData { repeated float value = 1; FloatArrayRule rule = 2; }
  message Zone { string label = 1; FloatData weight = 2; }
  message Lens { FloatData gain = 1; repeated Zone zones = 2; float plain = 3; repeated float list = 4; }
  message Flash { FloatData power = 1; }
)";

constexpr char kDefault[] = R"({
 "gain": {"value": 1, "rule": {"description": "gain", "recommend": "0..4"}},
 "zones": [{"label": "", "weight": {"value": 9}}],
 "plain": 0,
 "list": []
})";

// Two spaces to a level, and unusually formatted numbers.
constexpr char kSetting[] = R"({
  "gain": {"value": 1.50},
  "zones": [
    {"label": "a", "weight": {"value": 1e0}},
    {"label": "b", "weight": {"value": 2}}
  ],
  "plain": 5.0,
  "list": [1, 2.0]
}
)";

const std::string kPath = "tele/mode_1/scenario_Video/Lens.json";

using Edits = std::vector<std::pair<std::string, std::string>>;

std::string Edited(std::string text, const Edits& edits) {
  for (const auto& [from, to] : edits) {
    const size_t at = text.find(from);
    EXPECT_NE(at, text.npos) << from;
    if (at != text.npos) text.replace(at, from.size(), to);
  }
  return text;
}

std::string WithCrLf(const std::string& text) {
  std::string result;
  for (const char c : text) result += c == '\n' ? "\r\n" : std::string(1, c);
  return result;
}

class MigrateTest : public testing::Test {
 protected:
  void SetUp() override {
    Write(dir_ + "/ProjConf.bin", Item(ConfigBytes("proj", {"tele"})));
    Put(kDefault, kSetting);
    Write(dir_ + "/default/Flash.json", R"({"power": {"value": 3}})");
  }

  void Put(const std::string& default_text, const std::string& setting) const {
    Write(dir_ + "/default/Lens.json", default_text);
    Write(dir_ + "/" + kPath, setting);
  }

  /// With the schema changed like this. False after errors, which are appended to errors_.
  bool Migrate(const Edits& schema, const MigrateOptions& options = {}) {
    Write(dir_ + "/proto/a.proto", Edited(kSchema, schema));
    CollectingSink sink;
    const auto project = zotuning::Project::Load(dir_, sink);
    migration_ = Migration();
    const bool good = project != nullptr && project->ok() && PlanMigration(*project, options, migration_, sink) &&
                      migration_.changes.Apply(sink);
    for (const zotuning::Diagnostic& diagnostic : sink.diagnostics()) {
      errors_ += diagnostic.message + "; " + diagnostic.hint + "\n";
    }
    return good;
  }

  std::string Setting() const { return Read(dir_ + "/" + kPath); }

  TempDir temp_;
  std::string dir_ = temp_ / "proj";
  Migration migration_;
  std::string errors_;
};

TEST_F(MigrateTest, TextsFitTheNewSchemaAndTheRestStays) {
  const std::string rule =
      "\"rule\": {\n      \"description\": \"[Float]\",\n      \"recommend\": \"None\"\n    }\n  }";
  const struct {
    const char* name;
    Edits schema;
    MigrateOptions options;
    Edits default_edits;  // made before
    Edits setting;        // what becomes of the setting
    std::string mark = "";
  } rows[] = {
      {"nothing to do", {}, {}, {}, {}},
      {"added in every element, from the default",
       {{"weight = 2;", "weight = 2; float size = 3;"}},
       {},
       {{"{\"value\": 9}", "{\"value\": 9}, \"size\": 7"}},
       {{"{\"value\": 1e0}", "{\"value\": 1e0}, \"size\": 7"}, {"{\"value\": 2}", "{\"value\": 2}, \"size\": 7"}}},
      {"added as the template has it, in the order of the schema",
       {{"message Lens {", "message Lens { FloatData speed = 9;"}},
       {},
       {},
       {{"{\n", "{\n  \"speed\": {\n    \"value\": 0,\n    " + rule + ",\n"}}},
      {"renamed wherever the type is used, before what is added after it",
       {{"FloatData weight = 2;", "FloatData share = 2; bool on = 3;"}},
       {{"Zone.weight=share"}, {}, {}, {}, false, ""},
       {},
       {{"\"weight\": {\"value\": 1e0}", "\"share\": {\"value\": 1e0}, \"on\": false"},
        {"\"weight\": {\"value\": 2}", "\"share\": {\"value\": 2}, \"on\": false"}}},
      {"renamed by the full name, and into a data type",
       {{"float plain = 3", "FloatData flat = 3"}},
       {{"ZO_TUNING.Lens.plain=flat"}, {}, {}, {}, false, ""},
       {},
       {{"\"plain\": 5.0", "\"flat\": {\n    \"value\": 5.0,\n    " + rule}}},
      {"removed", {{"float plain = 3;", ""}}, {}, {}, {{"  \"plain\": 5.0,\n", ""}}},
      {"a list becomes its data type",
       {{"repeated float list", "FloatArrayData list"}},
       {},
       {},
       {{"[1, 2.0]",
         "{\n    \"value\": [1, 2.0],\n    \"rule\": {\n      \"description\": \"[FloatArr]\",\n"
         "      \"recommend\": \"None\",\n      \"order\": 0,\n      \"len\": \"-1\"\n    }\n  }"}}},
      {"a data type becomes its value", {{"FloatData gain", "float gain"}}, {}, {}, {{"{\"value\": 1.50}", "1.50"}}},
      {"a byte order mark stays", {{"float plain = 3;", ""}}, {}, {}, {{"  \"plain\": 5.0,\n", ""}}, "\xEF\xBB\xBF"},
  };
  for (const auto& row : rows) {
    for (const bool crlf : {false, true}) {
      SCOPED_TRACE(std::string(row.name) + (crlf ? ", CRLF" : ""));
      const std::string wanted = row.mark + Edited(kSetting, row.setting);
      Put(Edited(kDefault, row.default_edits), row.mark + (crlf ? WithCrLf(kSetting) : kSetting));
      ASSERT_TRUE(Migrate(row.schema, row.options)) << errors_;
      EXPECT_EQ(Setting(), crlf ? WithCrLf(wanted) : wanted);
      const std::string default_text = Read(dir_ + "/default/Lens.json");
      ASSERT_TRUE(Migrate(row.schema, row.options)) << errors_;
      EXPECT_TRUE(migration_.changes.empty()) << migration_.changes.Diff(dir_);
      EXPECT_EQ(Read(dir_ + "/default/Lens.json"), default_text);
    }
  }
}

TEST_F(MigrateTest, TablesTakeTheFormOfTheirType) {
  const std::string head = "FloatArrayRule rule = 2; } message Row { repeated float value = 1; }",
                    list = "repeated float list";
  const Edits flat = {{"FloatArrayRule rule = 2; }", head}, {list, "FloatArrayData list"}},
              rows = {
                  {"FloatArrayRule rule = 2; }",
                   head + " message Table { repeated Row value = 1; Rule rule = 2; } message Rule { string col = 1; }"},
                  {list, "Table list"}};
  const std::string rule =
      ", \"rule\": {\"description\": \"\", \"recommend\": \"\", \"order\": 0, \"len\": \"4\", \"col\": \"2\"}}";
  const Edits setting = {{"[1, 2.0]", "{\"value\": [1, 2.0, 3.50, 4]" + rule}};
  Put(Edited(kDefault, {{"[]", "{\"value\": []" + rule}}), Edited(kSetting, setting));
  ASSERT_TRUE(Migrate(rows)) << errors_;
  EXPECT_THAT(Setting(),
              HasSubstr("{\"value\": [\n    {\"value\": [1, 2.0]},\n    {\"value\": [3.50, 4]}\n  ], \"rule\""));
  ASSERT_TRUE(Migrate(flat)) << errors_;
  EXPECT_THAT(Setting(), HasSubstr("{\"value\": [\n    1, 2.0,\n    3.50, 4\n  ], \"rule\""));
}

TEST_F(MigrateTest, OneRunIsEnoughForATypeWithinItself) {
  const Edits schema = {{"FloatData weight = 2;", "FloatData weight = 2; repeated Zone within = 3;"}};
  ASSERT_TRUE(Migrate(schema)) << errors_;
  EXPECT_THAT(Setting(), HasSubstr("\"within\": [{"));
  ASSERT_TRUE(Migrate(schema)) << errors_;
  EXPECT_TRUE(migration_.changes.empty()) << migration_.changes.Diff(dir_);
}

TEST_F(MigrateTest, WhatIsDroppedIsKeptInTheReport) {
  ASSERT_TRUE(Migrate({{"float plain = 3;", ""}})) << errors_;
  const std::string report = dir_ + "/migrate.rej.json";
  EXPECT_THAT(Read(report), HasSubstr("\"file\": \"" + kPath + "\",\n   \"path\": \"plain\",\n   \"value\": 5.0"));
  ASSERT_TRUE(Migrate({{"float plain = 3;", ""}, {" FloatData weight = 2;", ""}})) << errors_;
  EXPECT_THAT(Read(report),
              testing::AllOf(HasSubstr("\"path\": \"plain\""), HasSubstr("\"path\": \"zones[1].weight\"")));
}

TEST_F(MigrateTest, ModulesAndLabelValuesTakeTheirFilesAlong) {
  Write(dir_ + "/tele/mode_1/scenario_Video/notes.txt", "kept");
  MigrateOptions options;
  options.module_renames = {"Lens=Optics"};
  options.label_renames = {"scenario.Video=Movie"};
  const Edits schema = {
      {"Module_Lens", "Module_Optics"}, {"message Lens", "message Optics"}, {"Scenario_Video", "Scenario_Movie"}};
  ASSERT_TRUE(Migrate(schema, options)) << errors_;
  EXPECT_EQ(Read(dir_ + "/tele/mode_1/scenario_Movie/Optics.json"), kSetting);
  EXPECT_EQ(Read(dir_ + "/tele/mode_1/scenario_Movie/notes.txt"), "kept");
  EXPECT_EQ(Read(dir_ + "/default/Optics.json"), kDefault);
  EXPECT_FALSE(Exists(dir_ + "/tele/mode_1/scenario_Video"));
  EXPECT_FALSE(Exists(dir_ + "/default/Lens.json"));
  ASSERT_TRUE(Migrate(schema, options)) << errors_;
  EXPECT_TRUE(migration_.changes.empty());
}

TEST_F(MigrateTest, AllRulesBecomeThoseOfTheTemplateWhenAsked) {
  MigrateOptions options;
  options.rules = true;
  ASSERT_TRUE(Migrate({}, options)) << errors_;
  EXPECT_THAT(Read(dir_ + "/default/Lens.json"),
              HasSubstr("{\"value\": 1, \"rule\": {\"description\": \"[Float]\", \"recommend\": \"None\"}}"));
}

TEST_F(MigrateTest, NothingIsWrittenAfterAnError) {
  const struct {
    Edits schema;
    std::vector<std::string> renames, modules, labels;
    const char* says;
  } rows[] = {
      {{{"float plain", "int32 plain"}, {"weight = 2;", "weight = 2; bool on = 3;"}}, {}, {}, {}, "plain"},
      {{}, {"Lens.plain"}, {}, {}, "does not have the form TYPE.OLD=NEW"},
      {{}, {"Lense.a=plain"}, {}, {}, "did you mean 'Lens'?"},
      {{}, {"Lens.a=plai"}, {}, {}, "has no field 'plai'; did you mean 'plain'?"},
      {{}, {"Lens.plain=gain"}, {}, {}, "still has a field 'plain'"},
      {{}, {}, {"Lens=Flash"}, {}, "still has a value 'Lens'"},
      {{}, {}, {"Old=Flush"}, {}, "has no value 'Flush'; did you mean 'Flash'?"},
      {{}, {}, {}, {"scenery.A=Video"}, "no label 'scenery'"},
      {{}, {}, {}, {"mode.1=2"}, "are numbers"},
  };
  for (const auto& row : rows) {
    errors_.clear();
    // A fraction is not an int32, and would be lost silently.
    Put(kDefault, Edited(kSetting, {{"5.0", "5.5"}}));
    MigrateOptions options;
    options.renames = row.renames;
    options.module_renames = row.modules;
    options.label_renames = row.labels;
    EXPECT_FALSE(Migrate(row.schema, options)) << row.says;
    EXPECT_THAT(errors_, HasSubstr(row.says));
    EXPECT_EQ(Setting(), Edited(kSetting, {{"5.0", "5.5"}}));
    EXPECT_EQ(Read(dir_ + "/default/Lens.json"), kDefault);
  }
}

TEST_F(MigrateTest, FilesThatWouldMeetAreRefusedUnlessAnEarlierRunMadeOne) {
  const std::string renamed = dir_ + "/tele/mode_1/scenario_Movie/Lens.json";
  Write(renamed, kDefault);
  MigrateOptions options;
  options.label_renames = {"scenario.Video=Movie"};
  EXPECT_FALSE(Migrate({{"Scenario_Video", "Scenario_Movie"}}, options));
  EXPECT_THAT(errors_, HasSubstr("two files would become"));
  EXPECT_EQ(Setting(), kSetting);
  Write(renamed, kSetting);
  EXPECT_TRUE(Migrate({{"Scenario_Video", "Scenario_Movie"}}, options));
  EXPECT_FALSE(Exists(dir_ + "/" + kPath));
}

// As after a kill: the report comes first, so that what it has is not yet dropped everywhere.
TEST_F(MigrateTest, WhatTheReportHasAlreadyIsNotAddedAgain) {
  const Edits schema = {{"float plain = 3;", ""}};
  ASSERT_TRUE(Migrate(schema)) << errors_;
  EXPECT_EQ(migration_.changes.changes()[0].path, dir_ + "/migrate.rej.json");
  const std::string report = Read(dir_ + "/migrate.rej.json");
  Put(kDefault, kSetting);
  ASSERT_TRUE(Migrate(schema)) << errors_;
  EXPECT_EQ(Read(dir_ + "/migrate.rej.json"), report);
}

}  // namespace
}  // namespace zotest
