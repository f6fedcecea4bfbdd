// The data of a report page: its columns read back unchanged, and its structure. scripts/checks/report tests the page
// itself.

#include <zlib.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <sstream>

#include "support/project.h"
#include "workspace/report_columns.h"
#include "workspace/report_data.h"
#include "workspace/report_page.h"

namespace zotest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using zotuning::CollectingSink;
using zotuning::ReportColumn;
using zotuning::ReportData;
using Json = nlohmann::json;

/// Decodes the output of PackedText.
std::string Unpacked(const std::string& text) {
  const std::string digits =
      "!\"#$%'()*+,-./0123456789:;=?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`abcdefghijklmnopqrstuvwxyz{|}~";
  std::string zlib;
  uint32_t bits = 0;
  int count = 0;
  for (size_t i = 0; i < text.size(); i += 2) {
    const bool two = i + 1 < text.size();
    bits |= static_cast<uint32_t>(digits.find(text[i]) + (two ? 91 * digits.find(text[i + 1]) : 0)) << count;
    for (count += two ? 13 : 6; count >= 8; count -= 8, bits >>= 8) zlib += static_cast<char>(bits & 0xFF);
  }
  std::string bytes(1 << 20, '\0');
  uLongf size = bytes.size();
  EXPECT_EQ(uncompress(reinterpret_cast<Bytef*>(bytes.data()), &size, reinterpret_cast<const Bytef*>(zlib.data()),
                       zlib.size()),
            Z_OK);
  bytes.resize(size);
  return bytes;
}

/// Reads columns as the page does.
class ColumnBytes {
 public:
  explicit ColumnBytes(std::string bytes) : bytes_(std::move(bytes)) {}

  uint64_t Number(size_t width) {
    uint64_t number = 0;
    for (size_t k = 0; k < width; ++k) number |= uint64_t{static_cast<unsigned char>(bytes_.at(at_++))} << (8 * k);
    return number;
  }

  /// "kind/scale: values"
  std::string Column() {
    const auto form = Number(1), scale = Number(1), count = Number(4), kind = form & 0x7F;
    std::string text = std::to_string(form) + "/" + std::to_string(scale) + ":";
    if (kind == 9) {
      std::vector<size_t> sizes;
      for (uint64_t i = 0; i < count; ++i) sizes.push_back(Number(4));
      for (const size_t size : sizes) text += " " + Take(size);
      return text;
    }
    const size_t width = kind <= 4 ? kind : kind == 5 ? 4 : 8;
    if (form != kind) {
      const uint64_t low = Number(8), size = Number(1);
      const std::string packed = Take((count * size + 7) / 8);
      for (size_t i = 0; i < count; ++i) {
        uint64_t bits = 0;
        for (size_t k = 0; k < size; ++k) {
          const size_t at = i * size + k;
          bits |= uint64_t{static_cast<unsigned char>(packed[at / 8]) >> (at % 8) & 1u} << k;
        }
        text += " " + Text(kind, scale, width, low + bits);
      }
      return text;
    }
    const std::string planes = Take(width * count);
    for (size_t i = 0; i < count; ++i) {
      uint64_t bits = 0;
      for (size_t k = 0; k < width; ++k) bits |= uint64_t{static_cast<unsigned char>(planes[k * count + i])} << (8 * k);
      text += " " + Text(kind, scale, width, bits);
    }
    return text;
  }

  /// A column that is told by how far it is above a line through another one.
  std::string Beside(const std::vector<float>& other) {
    const auto form = Number(1), scale = Number(1), list = Number(4), kind = Number(1);
    const auto slope = Of<float>(static_cast<uint32_t>(Number(4)));
    const auto offset = Of<double>(Number(8));
    std::istringstream distances(Column());
    std::string head;
    distances >> head;
    std::string text = std::to_string(form) + "/" + std::to_string(list) + ":";
    for (const float number : other) {
      int64_t distance = 0;
      distances >> distance;
      const double near = static_cast<double>(slope) * static_cast<double>(number) + offset;
      if (kind < 5) {
        text += " " + Text(4, scale, 4, static_cast<uint64_t>(static_cast<int64_t>(std::floor(near)) + distance));
        continue;
      }
      // Bits of floats in their order, and back.
      const auto ordered = [](int32_t bits) { return bits < 0 ? bits ^ INT32_MAX : bits; };
      const auto place = ordered(Of<int32_t>(static_cast<float>(near))) + distance;
      text += " " + Text(kind, scale, 4, static_cast<uint32_t>(ordered(static_cast<int32_t>(place))));
    }
    return text;
  }

  std::string Take(size_t size) {
    at_ += size;
    return bytes_.substr(at_ - size, size);
  }
  bool at_end() const { return at_ == bytes_.size(); }

 private:
  template <typename To, typename From>
  static To Of(From from) {
    static_assert(sizeof(To) == sizeof(From));
    To to;
    std::memcpy(&to, &from, sizeof(to));
    return to;
  }

  static std::string Text(uint64_t kind, uint64_t scale, size_t width, uint64_t bits) {
    char text[64];
    char* end = text;
    if (kind <= 4) {
      auto number = static_cast<int64_t>(bits << (64 - 8 * width)) >> (64 - 8 * width);
      double divisor = 1;
      for (uint64_t k = 0; k < scale; ++k) divisor *= 10;
      end = std::to_chars(text, text + sizeof(text), static_cast<double>(number) / divisor).ptr;
    } else if (kind == 5) {
      float number;
      const auto word = static_cast<uint32_t>(bits);
      std::memcpy(&number, &word, sizeof(number));
      end = std::to_chars(text, text + sizeof(text), number).ptr;
    } else if (kind == 6) {
      double number;
      std::memcpy(&number, &bits, sizeof(number));
      end = std::to_chars(text, text + sizeof(text), number).ptr;
    } else {
      return kind == 7 ? std::to_string(static_cast<int64_t>(bits)) : std::to_string(bits);
    }
    return std::string(text, end);
  }

  std::string bytes_;
  size_t at_ = 0;
};

class ReportColumnTest : public SchemaTest {
 protected:
  /// The column of the only field of a message.
  static ReportColumn ColumnOf(const google::protobuf::Message& message) {
    std::vector<const google::protobuf::FieldDescriptor*> fields;
    message.GetReflection()->ListFields(message, &fields);
    EXPECT_EQ(fields.size(), 1u);
    ReportColumn column;
    for (int i = 0; i < message.GetReflection()->FieldSize(message, fields.at(0)); ++i) {
      column.AppendElement(message, fields[0], i);
    }
    return column;
  }
};

TEST_F(ReportColumnTest, ReadsBackInTheFewestBytesThatHoldIt) {
  Schema& schema = Load(
      "syntax = \"proto3\"; enum E { A = 0; B = 1; } message M { repeated int32 i = 1; repeated uint64 u = 2; "
      "repeated int64 l = 3; repeated float f = 4; repeated double d = 5; repeated string s = 6; repeated bool b = 7; "
      "repeated E e = 8; repeated bytes y = 9; }");
  const struct {
    const char* message;
    const char* column;
  } rows[] = {
      {"i: [-128, 127]", "1/0: -128 127"},
      {"i: [-129]", "2/0: -129"},
      {"i: [32768]", "4/0: 32768"},
      {"i: [-2147483648, 2147483647]", "4/0: -2147483648 2147483647"},
      {"u: [0, 255]", "2/0: 0 255"},
      {"u: [18446744073709551615, 1]", "8/0: 18446744073709551615 1"},
      {"l: [-9223372036854775808]", "7/0: -9223372036854775808"},
      {"f: [2.256, 0.5, -3]", "2/3: 2.256 0.5 -3"},
      {"f: [16777216, 0.5]", "5/0: 16777216 0.5"},
      {"f: [0.123456789]", "4/8: 0.12345679"},
      {"f: [3e38, 0.1]", "5/0: 3e+38 0.1"},
      {"f: [-0.0]", "5/0: -0"},
      {"f: [inf, 1]", "5/0: inf 1"},
      {"d: [0.1, 1e-7]", "4/7: 0.1 1e-07"},
      {"d: [0.1234567890123]", "6/0: 0.1234567890123"},
      {"d: [1e-30]", "6/0: 1e-30"},
      {"i: [-1070, 1001, -1003, 77, 512, 3, 900, -640, 31, 5, -8]",
       "130/0: -1070 1001 -1003 77 512 3 900 -640 31 5 -8"},
      {"f: [2.256, 2.751, 2.513, 2.9, 2.001, 2.377, 2.614, 2.222, 2.845, 2.109, 2.467]",
       "130/3: 2.256 2.751 2.513 2.9 2.001 2.377 2.614 2.222 2.845 2.109 2.467"},
      {"d: [1.1234567890123, 1.9876543210987, 1.5551234512345, 1.7172737475767, 1.3141592653589, 1.2718281828459, "
       "1.6180339887498, 1.4142135623730, 1.8646464646464]",
       "134/0: 1.1234567890123 1.9876543210987 1.5551234512345 1.7172737475767 1.3141592653589 1.2718281828459 "
       "1.6180339887498 1.414213562373 1.8646464646464"},
      {"u: [18446744073709551615, 9223372036854775808, 9876543210123456789, 18000000000000000000, "
       "9999999999999999999, 11111111111111111111, 12345678901234567890, 17171717171717171717, "
       "13131313131313131313]",
       "136/0: 18446744073709551615 9223372036854775808 9876543210123456789 18000000000000000000 "
       "9999999999999999999 11111111111111111111 12345678901234567890 17171717171717171717 13131313131313131313"},
      {"i: [1, 2, 3, 4, 5, 6, 7, 8, 9, 10]", "129/0: 1 2 3 4 5 6 7 8 9 10"},
      {"i: [7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7]", "129/0: 7 7 7 7 7 7 7 7 7 7 7"},
      {"s: ['a', '', 'b c']", "9/0: a  b c"},
      {"y: ['\\000\\001\\377', 'f']", "9/0: AAH/ Zg=="},
      {"b: [true, false]", "1/0: 1 0"},
      {"e: [B]", "1/0: 1"},
  };
  for (const auto& row : rows) {
    std::string bytes;
    ColumnOf(*schema.New("M", row.message)).Write(bytes);
    EXPECT_EQ(ColumnBytes(bytes).Column(), row.column) << row.message;
  }
}

TEST_F(ReportColumnTest, NumbersNearThoseOfTheOtherSideAreToldByTheirDistance) {
  Schema& schema = Load("syntax = \"proto3\"; message M { repeated int32 i = 1; repeated float f = 2; }");
  // Text of a message with a hundred numbers of a curve that crosses zero, in so many digits.
  const auto curve = [](const char* field, double factor, double offset, int digits) {
    std::string text;
    char number[64] = {};
    for (int i = 0; i < 100; ++i) {
      const double value = 700 * std::sin(i / 9.0 + 0.3 * (i * i % 17)) * factor + offset;
      (void)std::snprintf(number, sizeof(number), "%.*f", digits, value);
      std::replace(std::begin(number), std::end(number), ',', '.');  // in locales with a decimal comma
      text += (i == 0 ? "" : ", ") + std::string(number);
    }
    return std::string(field) + ": [" + text + "]";
  };
  const struct {
    std::string other, own;
    bool is_near;
  } rows[] = {
      {curve("i", 1, 0, 0), curve("i", 1.02, 3, 0), true},
      {curve("f", 1, 0, 3), curve("f", 0.98, -0.5, 3), true},
      {curve("f", 0.001, 0, 3), curve("f", 0.00101, 0, 5), true},
      {curve("f", 1, 0, 9), curve("f", 1.0003, 0, 9), true},
      {curve("f", 1, 0, 9), curve("f", 1.01, 0, 2), true},
      {curve("f", 1, 0, 3), curve("f", 1, 0, 3) + " f: nan", false},
      {curve("f", 1, 0, 3) + " f: inf", curve("f", 1, 0, 3) + " f: 2", false},
      {curve("i", 1, 0, 0) + " i: 1", curve("i", 1, 1, 0), false},
      {"i: [1, 2, 3]", "i: [2, 3, 4]", false},
  };
  for (const auto& row : rows) {
    const MessagePtr left = schema.New("M", row.other.c_str());
    const ReportColumn own = ColumnOf(*schema.New("M", row.own.c_str()));
    std::string alone, beside;
    own.Write(alone);
    own.WriteBeside(ColumnOf(*left), 7, beside);
    if (!row.is_near) {
      EXPECT_EQ(beside, alone) << row.own;
      continue;
    }
    std::vector<float> other;
    const auto& reflection = *left->GetReflection();
    const auto* field = left->GetDescriptor()->FindFieldByName(row.other.substr(0, 1));
    for (int i = 0; i < reflection.FieldSize(*left, field); ++i) {
      other.push_back(row.other[0] == 'f' ? reflection.GetRepeatedFloat(*left, field, i)
                                          : static_cast<float>(reflection.GetRepeatedInt32(*left, field, i)));
    }
    const std::string values = ColumnBytes(alone).Column();
    EXPECT_EQ(ColumnBytes(beside).Beside(other), "11/7:" + values.substr(values.find(' '))) << row.own;
  }
}

TEST(ReportTextTest, AnyBytesBecomeTextThatHtmlTakesAsItIs) {
  std::string bytes;
  for (int i = 0; i < 3000; ++i) {
    bytes += static_cast<char>(i * i >> 3);
    if (i % 100 != 0) continue;
    const std::string text = zotuning::PackedText(bytes);
    EXPECT_EQ(Unpacked(text), bytes);
    EXPECT_EQ(text.find_first_not_of("!\"#$%'()*+,-./0123456789:;=?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`"
                                     "abcdefghijklmnopqrstuvwxyz{|}~"),
              text.npos);
  }
}

class ReportTest : public ProjectTest {
 protected:
  Json Make(const std::string& shown, const std::string& against) {
    CollectingSink sink;
    zotuning::SideOpener opener(zotuning::Project::Load(dir_, sink));
    const auto side = opener.Open(shown, sink);
    const auto other = against.empty() ? nullptr : opener.Open(against, sink);
    complete_ = MakeReportData({side.get()}, other.get(), {}, data_, sink);
    for (const auto& diagnostic : sink.diagnostics()) errors_.push_back(diagnostic.file + ": " + diagnostic.message);
    return Json::parse(Unpacked(data_.blocks.at(0)));
  }

  ReportData data_;
  bool complete_ = false;
  Strings errors_;
};

TEST_F(ReportTest, HasEveryNodeWithItsRuleAndTheValuesByLayout) {
  std::string other = kAfJson;
  other.replace(other.find("0.5"), 3, "0.7");
  project_.Add("tele", {{"AfCommon.json", kAfJson, {kAfCommon}, ""},
                        {"mode_1/AfCommon.json", other, {kAfCommon, 1}, ""},
                        {"mode_1/AWGain.json", R"({"gain": {"value": 9, "rule": {"recommend": "0..8"}}})", {}, ""}});
  const Json page = Make(dir_, "");
  EXPECT_TRUE(complete_) << testing::PrintToString(errors_);
  EXPECT_EQ(page["project"], "proj");
  EXPECT_EQ(data_.settings, 3u);
  // The gain, and twice the rows of 'table', which have different lengths.
  EXPECT_EQ(data_.outside, 3u);
  ASSERT_EQ(page["settings"].size(), 3u);
  const Json &first = page["settings"][0], &second = page["settings"][2];
  EXPECT_EQ(second["l"], Json::parse(R"([["mode", "1"]])"));
  EXPECT_EQ(first["y"], second["y"]);
  const Json& layout = page["layouts"][first["y"].get<size_t>()];
  Strings nodes;
  for (const Json& node : layout["n"]) {
    std::string text = node[0].dump() + " " + node[1].get<std::string>();
    if (node[3].get<int>() >= 0) text += " " + page["rules"][node[3].get<size_t>()]["t"].dump();
    for (size_t i = 4; i < node.size(); ++i) text += " " + node[i].dump();
    nodes.push_back(text);
  }
  EXPECT_THAT(nodes, ElementsAre(R"(3 enable {"description":"[Bool]","recommend":"None"})",
                                 R"(4 curve {"len":"3","order":"1"} 3)", "0 limits", "3 limits.near",
                                 R"(5 limits.table {"row":"2"} 2 1 [1,0])",
                                 R"(1 steps {"description":"[Repeated]","len":"2"} 2)", "2 steps[0]",
                                 R"(3 steps[0].position {"recommend":"9"})", "2 steps[1]"));
  ColumnBytes scalars(Unpacked(data_.blocks.at(layout["b"].get<size_t>())));
  EXPECT_THAT((Strings{scalars.Column(), scalars.Column(), scalars.Column()}),
              ElementsAre("1/0: 1 1", "1/1: 0.5 0.7", "1/0: 7 7"));
  EXPECT_TRUE(scalars.at_end());
  // Equal lists are stored once.
  EXPECT_EQ(first["b"], second["b"]);
  ColumnBytes lists(Unpacked(data_.blocks.at(first["b"].get<size_t>())));
  EXPECT_EQ(lists.Number(4), 0u);
  EXPECT_EQ(lists.Column(), "2/0: 1 -2 300");
  EXPECT_EQ(lists.Column(), "1/1: 1.5");
}

TEST_F(ReportTest, ShowsWhatDiffersAndLeavesOutWhatCannotBeRead) {
  std::string other = kAfJson;
  other.replace(other.find("0.5"), 3, "0.7");
  project_.Add("default", {{"AfCommon.json", other, {kAfCommon}, ""}});
  project_.Add("tele", {{"AfCommon.json", kAfJson, {kAfCommon}, ""},
                        {"AWGain.json", GainJson("2.5"), {kAWGain}, ""},
                        {"mode_1/AWGain.json", "{\"gain\": 3", {kAWGain, 1}, ""}});
  const Json page = Make("tele", "default");
  EXPECT_FALSE(complete_);
  EXPECT_THAT(errors_, testing::Contains(HasSubstr("mode_1/AWGain.json")));
  EXPECT_EQ(page["against"], "default");
  Strings found;
  for (const Json& setting : page["settings"]) {
    found.push_back(setting["s"].get<std::string>() + " " + setting.value("k", "same") + " " +
                    (setting["y"].get<int>() < 0 ? "unread" : std::to_string(setting.value("d", 0))));
  }
  EXPECT_THAT(found, ElementsAre("tele added 0", "tele changed 1", "tele added unread", "default other 0"));
  EXPECT_EQ(page["settings"][1]["o"], 3);
  EXPECT_EQ(page["settings"][3]["w"], 1);
  ColumnBytes block(Unpacked(data_.blocks.at(page["settings"][1]["b"].get<size_t>())));
  const size_t size = block.Number(4);
  EXPECT_EQ(Json::parse(block.Take(size)),
            Json::parse(R"json([["limits.near.value", "", "c", ["limits.near.value: 0.7 → 0.5 (-28.6 %)"]]])json"));
  EXPECT_EQ(block.Column(), "2/0: 1 -2 300");
  // The other side has the same list: only a reference to it.
  ColumnBytes shared(Unpacked(data_.blocks.at(page["settings"][3]["b"].get<size_t>())));
  EXPECT_EQ(shared.Number(4), 0u);
  EXPECT_EQ(shared.Take(6), std::string("\x0A\0\0\0\0\0", 6));
}

TEST_F(ReportTest, ThePageRunsWhatWasBuiltInAndNothingElse) {
  if (!zotuning::HasReportPage()) GTEST_SKIP() << "built without esbuild or uPlot";
  project_.Add("tele", {{"AWGain.json", GainJson("2.5"), {kAWGain}, ""}});
  (void)Make("tele", "");
  const std::string page = zotuning::ReportPage(data_);
  EXPECT_THAT(page, HasSubstr("content=\"default-src 'none'; script-src 'sha256-"));
  EXPECT_THAT(page, Not(HasSubstr("unsafe")));
  EXPECT_THAT(page, HasSubstr("<script type=\"application/octet-stream\" id=\"d0\">" + data_.blocks[0] + "</script>"));
}

}  // namespace
}  // namespace zotest
