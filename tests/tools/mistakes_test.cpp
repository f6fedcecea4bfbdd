// check: typical mistakes, each alone in a project and then all of them at once.

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <vector>

#include "tools/tool.h"

namespace zotest {
namespace {

using std::literals::operator""sv;

struct Mistake {
  std::string_view file;  ///< "" for a separate setting, a copy of the default of AfCommon
  std::string_view from;  ///< its first occurrence in the file becomes `to`; "" for the entire text
  std::string_view to;    ///< "@FILE" is the text of that file, "@schema..." starts as a schema file does
  const char* code;
  int line;  ///< 0 if the position has none
  int column;
  std::string_view at = "";  ///< the path in the file, "" for the file itself
};

const Mistake kMistakes[] = {
    // The text itself.
    {"", "\"value\": true\n },", "\"value\": true\n }", "json-syntax", 11, 2},
    {"", R"("lens": {)", R"("lens" {)", "json-syntax", 11, 9},
    {"", R"("value": true)", R"("value": )", "json-syntax", 10, 2},
    {"", "\"max_retries\": 2\n }", "\"max_retries\": 2\n ]", "json-syntax", 78, 2},
    {"", R"("label": "left")", R"("label": "left)", "json-syntax", 197, 13},
    {"", R"("label": "left")", R"("label": left)", "json-syntax", 197, 13},
    {"", R"("label": "left")", "\342\200\234label\342\200\235: \"left\"", "json-syntax", 197, 4},
    {"", "\n}", "\n}}", "json-syntax", 316, 2},
    {"", "\n}", "", "json-syntax", 316, 1},
    {"", R"("value": true)", R"("value": True)", "json-syntax", 9, 12},
    {"", R"("value": 180)", R"("value": 0xB4)", "json-number", 17, 13},
    {"", R"("value": 180)", R"("value": 0180)", "json-number", 17, 13},
    {"", R"("value": 180)", R"("value": +180)", "json-number", 17, 13},
    {"", R"("value": 0.12)", R"("value": .12)", "json-number", 68, 13},
    {"", R"("value": 0.12)", R"("value": NaN)", "json-number", 68, 13},
    {"", R"("value": 0.12)", R"("value": -Infinity)", "json-number", 68, 13},
    {"", R"("value": 0.12)", R"("value": 1e999)", "json-number", 68, 13},
    {"", R"("value": 0.12)", R"("value": 0,12)", "json-decimal-comma", 68, 13},
    {"", R"("lens")", "// moved\n \"lens\"", "json-comment", 11, 2},
    {"", R"("lens")", R"(/* moved */ "lens")", "json-comment", 11, 2},
    {"", R"("lens")", "# moved\n \"lens\"", "json-comment", 11, 2},
    {"", "\n \"scan\"", "\n<<<<<<< HEAD\n \"scan\"", "json-conflict", 48, 1},
    {"", "\n \"scan\"", "\n>>>>>>> topic\n \"scan\"", "json-conflict", 48, 1},
    {"", "", "", "json-empty", 1, 1},
    {"", "", "\n \n", "json-empty", 3, 1},
    {"", "", "[]", "json-root", 1, 1},
    {"", "", R"("AfCommon")", "json-root", 1, 1},
    {"", "{", "\357\273\277{", "json-byte-order-mark", 1, 1},
    {"", "", "\377\376{\000}\000"sv, "json-utf16", 1, 1},
    {"", "center", "c\351nter", "json-encoding", 159, 15},
    {"", R"("scan")", "\000\"scan\""sv, "json-zero-byte", 48, 2},
    {"", R"("max_retries": 2)", R"("max_retries": 2,)", "json-trailing-comma", 77, 19},
    {"", R"("center")", "'center'", "json-single-quotes", 159, 13},
    {"", R"("lens")", "lens", "json-unquoted-key", 11, 2},
    {"", "center", "cen\tter", "json-control-character", 159, 17},
    {"", "center", R"(cen\qter)", "json-escape", 159, 17},
    {"", R"("value": 0.12)", R"("value": 00.12)", "json-number-form", 68, 13},
    {"", R"("max_retries": 2)", R"("max_retries": 2, "max_retries": 3)", "json-duplicate-key", 77, 21},
    {"", R"("value": 180)", R"("value": 180, "value": 181)", "json-duplicate-key", 17, 18},
    // Keys and values.
    {"", R"("macro_code")", R"("macro_cod")", "json-unknown-key", 19, 3},
    {"", R"("lens": {)", "\"gain\": 1,\n \"lens\": {", "json-unknown-key", 11, 2},
    {"", R"("label": "upper")", R"("Label": "upper")", "json-unknown-key", 273, 4},
    {"", R"("value": 180)", R"("value": "far")", "json-misfit", 17, 13},
    {"", R"("value": 180)", R"("value": {})", "json-misfit", 17, 13},
    {"", R"("value": 180)", R"("value": [180])", "json-misfit", 17, 13},
    {"", R"("value": 180)", R"("value": true)", "json-misfit", 17, 13},
    {"", R"("value": 180)", R"("value": 180.5)", "json-misfit", 17, 13},
    {"", R"("value": true)", R"("value": 1)", "json-misfit", 9, 12},
    {"", R"("label": "upper")", R"("label": 4)", "json-misfit", 273, 13},
    {"", R"("value": 0.12)", R"("value": "Inf")", "json-misfit", 68, 13},
    {"", R"("max_retries": 2)", R"("max_retries": "two")", "json-misfit", 77, 18},
    {"", R"("parameter_revision": 1)", R"("parameter_revision": {"value": 1})", "json-misfit", 3, 24},
    {"", R"("value": 180)", R"("value": 3000000000)", "json-range", 17, 13},
    {"", R"("value": 4)", R"("value": -4)", "json-range", 31, 13},
    {"", R"("9000000")", R"("-9000000")", "json-range", 38, 13},
    {"", R"("9000000")", "18446744073709551616", "json-range", 38, 13},
    {"", R"("value": 0.12)", R"("value": 1e39)", "json-range", 68, 13},
    {"", R"("value": 0.12)", R"("value": 1e-50)", "json-range", 68, 13},
    {"", R"("value": 0.12)", R"("value": -1e-400)", "json-range", 68, 13},
    {"", R"("value": 0.12)", R"("value": "1e-50")", "json-range", 68, 13},
    {"", R"("value": 0.12)", "\"value\": \342\210\2220.12", "json-syntax", 68, 13},
    {"", "AF_SEARCH_HILL_CLIMB", "AF_SEARCH_HILL_CLIM", "json-enum", 2, 22},
    {"", "AF_SEARCH_HILL_CLIMB", "nothing of the kind", "json-enum", 2, 22},
    {"", R"("AF_SEARCH_HILL_CLIMB")", "77", "json-enum-number", 2, 22},
    {"", R"("value": 180)", R"("value": null)", "json-null", 17, 13},
    {"", R"("AF_SEARCH_HILL_CLIMB")", "null", "json-null", 2, 22},
    {"", "   197,", "   null,", "json-null", 107, 4},
    {"", R"("settle_time_ns")", R"("settleTimeNs")", "json-camel-case", 33, 3},
    {"", R"("max_retries")", R"("max\u005fretries")", "json-camel-case", 77, 3},
    {"", R"("max_retries": 2)", R"("max_retries": 2, "maxRetries": 3)", "json-same-field", 77, 21},
    {"", "\"value\": [\n   183,\n   197,\n   213,\n   234,\n   268,\n   326,\n   420,\n   587,\n   780\n  ]",
     R"("value": 183)", "json-not-a-list", 105, 12},
    {"", "   197,", "   [197],", "json-nested-list", 107, 4},
    {"", R"("value": 0.12)", R"("value": "0.12")", "json-string-for-number", 68, 13},
    {"", R"("value": true)", R"("value": "true")", "json-string-for-number", 9, 12},
    // What is missing.
    {"", R"("parameter_revision": 1,)", "", "json-missing-field", 1, 1},
    {"", " \"label\": \"upper\",\n", "", "json-missing-field", 272, 3},
    {"", ",\n  \"max_retries\": 2", "", "json-missing-field", 48, 10},
    {"", "", "{}", "json-missing-field", 1, 1},
    {"", ",\n   \"value\": 180", "", "json-missing-value", 12, 20},
    {"", ",\n    \"value\": 0.68", "", "json-missing-value", 236, 12},
    {"", R"("value": true)", "", "json-missing-value", 4, 23},
    {"", "", R"({"zones": []})", "json-empty-list", 1, 11},
    // Rules.
    {"", R"("len": "9")", R"("len": "8")", "rule-length", 86, 12},
    {"", R"("len": "4")", R"("len": "5")", "rule-length", 157, 11},
    {"", R"("row": "3")", R"("row": "4")", "rule-table", 124, 12},
    {"", "     -16\n", "     -16, -17\n", "rule-table", 146, 14},
    {"", R"("value": 780)", R"("value": 480)", "rule-range", 24, 13},
    {"", "     -16\n", "     -65\n", "rule-range", 152, 6},
    {"", R"("value": 0.12)", R"("value": 0.51)", "rule-range", 68, 13},
    {"", "   213,", "   193,", "rule-order", 108, 4},
    {"", R"("order": -1)", R"("order": 1)", "rule-order", 88, 4},
    {"", R"("0..511")", R"("511..0")", "rule-text", 15, 18},
    {"", R"("len": "9")", R"("len": "nine")", "rule-text", 84, 11},
    {"", R"("value": 0.12)", R"("value": "NaN")", "rule-not-finite", 68, 13},
    // Names and places.
    {"front/modde_3/AfCommon.json", "", "@default/AfCommon.json", "unknown-label", 0, 0, "front/modde_3"},
    {"front/mode_x/AfCommon.json", "", "@default/AfCommon.json", "unknown-label", 0, 0, "front/mode_x"},
    {"front/mode_90/scenario_Movie/AfCommon.json", "", "@default/AfCommon.json", "unknown-label", 0, 0,
     "front/mode_90/scenario_Movie"},
    {"front/mode_91/scenario_video/AfCommon.json", "", "@default/AfCommon.json", "unknown-label", 0, 0,
     "front/mode_91/scenario_video"},
    {"front/Mode_92/AfCommon.json", "", "@default/AfCommon.json", "unknown-label", 0, 0, "front/Mode_92"},
    {"front/mode_93/AfComon.json", "", "@default/AfCommon.json", "unknown-module", 0, 0},
    {"front/mode_94/afcommon.json", "", "@default/AfCommon.json", "unknown-module", 0, 0},
    {"front/mode_5/mode_6/AfCommon.json", "", "@default/AfCommon.json", "tree-nesting", 0, 0},
    {"front/scenario_Video/mode_71/AfCommon.json", "", "@default/AfCommon.json", "tree-nesting", 0, 0},
    {"front/scenario_Panorama/AfCommon.json", "", "@default/AfCommon.json", "tree-nesting", 0, 0},
    {"default/mode_3/AfCommon.json", "", "@default/AfCommon.json", "tree-nesting", 0, 0},
    {"front/mode_07/AfCommon.json", "", "@default/AfCommon.json", "tree-nesting", 0, 0},
    {"front/mode_01/AfCommon.json", "", "@default/AfCommon.json", "same-labels", 0, 0, "front/mode_1/AfCommon.json"},
    {"front/mode_95/AfCommon.JSON", "", "@default/AfCommon.json", "not-read", 0, 0},
    {"front/mode_95/AfCommon.json~", "", "@default/AfCommon.json", "not-read", 0, 0},
    {"front/mode_95/AfCommon.json.bak", "", "@default/AfCommon.json", "not-read", 0, 0},
    {"front/mode_95/AfCommon.jsn", "", "@default/AfCommon.json", "not-read", 0, 0},
    {"front/mode_96", "", "", "not-read", 0, 0},
    {"front/mode_95/version/AfCommon.json", "", "@default/AfCommon.json", "not-read", 0, 0},
    {"default/version/tuning.json", "", "{}", "not-read", 0, 0},
    {"rear/mode_0/AfCommon.json", "", "@default/AfCommon.json", "not-read", 0, 0, "rear"},
    {"AfCommon.json", "", "@default/AfCommon.json", "not-read", 0, 0},
    // Schema.
    {"proto/x1.proto", "", "@schemaimport \"typs.proto\";\n", "schema", 3, 1},
    {"proto/x2.proto", "", "@schemamessage X2 {\n  ZO_TUNING.FloatData gain = 1;\n}\n", "schema", 4, 3},
    {"proto/x3.proto", "", "@schemamessage X3 {\n  int32 gain = 1\n}\n", "schema", 5, 1},
    {"proto/x4.proto", "", "@schemamessage X4 {\n  int32 gain = 1;\n  int32 offset = 1;\n}\n", "schema", 5, 18},
    {"proto/x5.proto", "", "@schemamessage X5 {\n  Nowhere gain = 1;\n}\n", "schema", 4, 3},
    {"proto/x6.proto", "", "@schemamessage X6 {\n  int32 gain = 1;\n  int32 gain = 2;\n}\n", "schema", 5, 9},
    {"proto/x7.proto", "", "@schemamessage X7 {\n  int32 gain = 0;\n}\n", "schema", 4, 16},
    {"proto/x10.proto", "", "\377\376s\000y\000"sv, "schema", 1, 1},
    {"proto/x11.proto", "", "@schema\n<<<<<<< HEAD\n=======\n>>>>>>> topic\n", "schema", 4, 1},
    {"proto/pd.orig.proto", "", "@proto/pd.proto", "schema", 0, 0},
    {"proto/old/x8.proto", "", "@schema", "not-read", 0, 0},
    {"proto/x9.PROTO", "", "@schema", "not-read", 0, 0},
    {"proto/label.proto", "EnumTuningDataLable_Module_ToneCurve = 65;",
     "EnumTuningDataLable_Module_ToneCurve = 65; EnumTuningDataLable_Module_Flash = 66;", "schema-type", 48, 46},
    {"proto/label.proto", "EnumTuningDataLable_Scene_Night = 2;", "EnumTuningDataLable_Scene_Night = 2; Dusk = 77;",
     "schema-type", 80, 40},
    {"proto/label.proto", "EnumTuningDataLable_Function_Denoise = 2;",
     "EnumTuningDataLable_Function_Denoise = 2; EnumTuningDataLabel_Functions_Blend = 78;", "label-name", 68, 45},
    {"proto/awb.proto", "message AWBIlluminant {", "message AWBIlluminant {\n  map<string, int32> gains = 90;",
     "schema-form", 19, 3},
    // Versions.
    {"proto/version/v1.json", "", R"({"name": "v1", "version": 3})", "json-misfit", 1, 27},
    {"proto/version/v2.json", "", R"({name: "v2", "version": "1"})", "version-misread", 1, 1},
    {"proto/version/v3.json", "", R"({"name": "v3", "version": "1 \"b\""})", "version-misread", 1, 27},
    {"proto/version/v4.json", "", R"({"version": "1"})", "version-misread", 1, 1},
    {"proto/version/v5.json", "", R"({"name": "AF", "version": "1"})", "same-names", 1, 10},
    {"proto/version/v6.json", "", R"({"name": "v6", "verson": "1"})", "json-unknown-key", 1, 16},
    {"front/version/v7.json", "", R"({"name": "v7", "version": })", "json-syntax", 1, 27},
    {"front/version/v8.JSON", "", "{}", "not-read", 0, 0},
    {"src/ZoTuningVersion.h", "[3AProto]", "", "no-marker", 0, 0},
};

class MistakesTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    ASSERT_EQ(Tool("version header").code, 0);
    ASSERT_EQ(Tool("check").out, "0 errors, 0 warnings\n") << Tool("check").err;
  }

  static std::string FileOf(const Mistake& mistake) {
    if (!mistake.file.empty()) return std::string(mistake.file);
    return "front/mode_" + std::to_string(100 + (&mistake - kMistakes)) + "/AfCommon.json";
  }

  std::string TextOf(const Mistake& mistake) const {
    const std::string to(mistake.to);
    if (to.rfind("@schema", 0) == 0) return "syntax = \"proto3\";\npackage ZO_TUNING;\n" + to.substr(7);
    return to.rfind('@', 0) == 0 ? Read(At(to.substr(1))) : to;
  }

  void Make(const Mistake& mistake) const {
    const std::string file = FileOf(mistake);
    std::string text = Exists(At(file)) ? Read(At(file)) : Read(At("default/AfCommon.json"));
    const size_t at = mistake.from.empty() ? 0 : text.find(mistake.from);
    ASSERT_NE(at, text.npos) << mistake.from << " is not in " << file;
    text.replace(at, mistake.from.empty() ? text.npos : mistake.from.size(), TextOf(mistake));
    Write(At(file), text);
  }

  /// Whether the diagnostics report the mistake, with its position.
  static bool IsTold(const Mistake& mistake, const Json& diagnostics) {
    const std::string at = mistake.at.empty() ? FileOf(mistake) : std::string(mistake.at);
    return std::any_of(diagnostics.begin(), diagnostics.end(), [&](const Json& each) {
      EXPECT_NE(each["hint"], "") << each;
      return each["file"] == at && each["code"] == mistake.code &&
             (mistake.line == 0 ? each["line"].is_null()
                                : each["line"] == mistake.line && each["column"] == mistake.column);
    });
  }
};

TEST_F(MistakesTest, EachAlone) {
  for (const Mistake& mistake : kMistakes) {
    const std::string file = FileOf(mistake);
    const bool existed = Exists(At(file));
    const std::string before = existed ? Read(At(file)) : "";
    Make(mistake);
    const Json told = Tool("check --json").json()["diagnostics"];
    EXPECT_TRUE(IsTold(mistake, told)) << file << " " << mistake.code << ": " << mistake.to << "\n" << told.dump(1);
    if (existed) {
      Write(At(file), before);
      continue;
    }
    // Including the folders that were created for it.
    std::filesystem::path made = At(file);
    for (; made != dir_; made = made.parent_path()) {
      std::filesystem::remove(made);
      if (!std::filesystem::is_empty(made.parent_path())) break;
    }
  }
  EXPECT_EQ(Tool("check").out, "0 errors, 0 warnings\n");
}

TEST_F(MistakesTest, AllAtOnce) {
  for (const Mistake& mistake : kMistakes) Make(mistake);
  const Ran run = Tool("check --json");
  EXPECT_EQ(run.code, 1);
  const Json told = run.json()["diagnostics"];
  for (const Mistake& mistake : kMistakes) {
    EXPECT_TRUE(IsTold(mistake, told)) << FileOf(mistake) << " " << mistake.code << ": " << mistake.to;
  }
  const auto before = [](const Json& a, const Json& b) {
    return std::make_tuple(a["file"], a["line"]) < std::make_tuple(b["file"], b["line"]);
  };
  EXPECT_TRUE(std::is_sorted(told.begin(), told.end(), before));
  // A single file reports only its own faults.
  const Json one = Tool("check " + FileOf(kMistakes[0]) + " --json").json()["diagnostics"];
  EXPECT_TRUE(IsTold(kMistakes[0], one));
  for (const Json& each : one) {
    EXPECT_TRUE(each["file"] == FileOf(kMistakes[0]) || each["code"] == "schema" || each["code"] == "schema-type")
        << each;
  }
}

}  // namespace
}  // namespace zotest
