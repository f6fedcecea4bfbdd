// The fast path against the slow one: whatever it supports, protobuf takes as well, and the bytes and the
// field check agree.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "transcode/differential.h"
#include "transcode/example_files.h"
#include "transcode/fallback_cases.h"
#include "transcode/random_json.h"

namespace {

using google::protobuf::Descriptor;
using zotest::BothPaths;
using zotest::Random;
using zotest::TextSchema;

class DifferentialTest : public testing::Test {
 protected:
  /// Whether the fast path took the text. A few differences are enough: later texts are not tried.
  bool Compare(BothPaths& paths, const std::string& text) {
    bool encoded = false;
    if (differences_ >= 3) return encoded;
    const std::string difference = paths.Difference(text, &encoded);
    encoded_count_ += encoded ? 1 : 0;
    if (!difference.empty()) {
      ++differences_;
      ADD_FAILURE() << difference.substr(0, 1000) << '\n'
                    << text.substr(0, 1000) << '\n'
                    << paths.type()->DebugString();
    }
    return encoded;
  }

  void ExpectEncoded(BothPaths& paths, const std::string& text) {
    EXPECT_TRUE(Compare(paths, text)) << paths.type()->full_name() << ' ' << text.substr(0, 1000);
  }

  size_t encoded_count_ = 0;

 private:
  int differences_ = 0;
};

// ---- The example project ----

/// The types and files of the example project.
class ExampleTest : public DifferentialTest {
 protected:
  ExampleTest() {
    for (const auto& [type, text] : example_.texts) {
      if (paths_[type] == nullptr) paths_[type] = std::make_unique<BothPaths>(type);
      files_.emplace_back(paths_[type].get(), text);
    }
  }

  zotest::ExampleFiles example_;
  std::map<const Descriptor*, std::unique_ptr<BothPaths>> paths_;
  std::vector<std::pair<BothPaths*, std::string>> files_;
};

TEST_F(ExampleTest, FilesAndTemplatesTakeTheFastPath) {
  ASSERT_GT(files_.size(), 30U);
  for (auto& [paths, text] : files_) {
    ExpectEncoded(*paths, text);
    EXPECT_EQ(paths->Slow(text).missing, "");
  }
  google::protobuf::DynamicMessageFactory factory;
  for (auto& [type, paths] : paths_) {
    const std::unique_ptr<google::protobuf::Message> message(factory.GetPrototype(type)->New());
    std::string text;
    ZO_TUNING::MSG_TO_JSON_STR(message.get(), type, text);
    ExpectEncoded(*paths, text);
  }
}

TEST_F(ExampleTest, FilesWithFaults) {
  Random random(1);
  for (int round = 0; round < 6000; ++round) {
    auto [paths, text] = random.Pick(files_);
    if (text.size() > 6000 && !random.OneIn(10)) continue;  // small files hold most faults as well
    for (size_t i = random.Below(3); i < 3; ++i) text = zotest::Damage(text, random);
    Compare(*paths, text);
  }
  EXPECT_GT(encoded_count_, 200U);

  // Every cut of the smallest file, and odd bytes at and between all of its own.
  const auto& [paths, text] = *std::min_element(
      files_.begin(), files_.end(), [](const auto& a, const auto& b) { return a.second.size() < b.second.size(); });
  for (size_t i = 0; i < text.size(); ++i) {
    Compare(*paths, text.substr(0, i));
    Compare(*paths, text.substr(i));
    for (const char junk : {'\0', ' ', '"', '\\', ',', ':', '0', '-', '.', '}', ']', '{', '[', '\x7f', '\xff'}) {
      Compare(*paths, text.substr(0, i) + junk + text.substr(i));
      Compare(*paths, text.substr(0, i) + junk + text.substr(i + 1));
    }
  }
}

// ---- Texts ----

constexpr char kHead[] = R"(syntax = "proto3"; import "google/protobuf/struct.proto";
  enum Kind { option allow_alias = true; Kind_Zero = 0; Kind_One = 1; Kind_Uno = 1; Kind_Minus = -1; }
  message Leaf { float value = 1; int32 count = 5; })";
constexpr char kFields[] = R"(
  float f = 1; double d = 2; int32 i = 3; uint32 u = 4; int64 l = 5; uint64 ul = 6; bool b = 7; string s = 8; bytes y = 9;
  Kind e = 10; Leaf sub = 11; repeated float rf = 12; repeated Leaf rsub = 13; int32 two_words = 14; repeated string rs = 15;
  optional float of = 16; repeated Kind re = 19; repeated int64 rl = 30 [packed = false]; optional string os = 31;
  google.protobuf.NullValue n = 32; repeated google.protobuf.NullValue rn = 33;)";
TEST_F(DifferentialTest, FallbackCases) {
  const TextSchema schema(std::string(kHead) + "message Odd {" + kFields + "}");
  ASSERT_EQ(schema.errors(), "");
  BothPaths paths(schema.Type("Odd"));
  for (const auto& [text, fast] : zotest::FallbackCases()) {
    EXPECT_TRUE(Compare(paths, text) || !fast) << text;
    // In the places where the transcoder is in a different state: after other fields, and far from the text's end.
    if (text.size() > 2 && text[0] == '{') {
      Compare(paths, "{\"two_words\": 3, \"rsub\": [{\"value\": 1.5}], " + text.substr(1));
      Compare(paths, text + std::string(100, '\n'));
    }
  }
}

TEST_F(DifferentialTest, NumbersOfEveryForm) {
  std::vector<std::string> values(std::begin(zotest::kNumbers), std::end(zotest::kNumbers));
  for (const std::string number : zotest::kNumbers) values.push_back('"' + number + '"');
  values.insert(values.end(), std::begin(zotest::kOddities), std::end(zotest::kOddities));
  for (const std::string syntax : {"proto3", "proto2"}) {
    for (const std::string type : zotest::kScalarTypes) {
      const std::string unpacked = type == "string" ? "" : " [packed = false]";
      const TextSchema schema("syntax = \"" + syntax + "\"; enum Kind { Kind_One = 0; Two = 1; Minus = -5; }" +
                              "message Module { optional " + type + " optional = 3; repeated " + type +
                              " packed = 300; repeated " + type + " unpacked = 17" + unpacked + ";" +
                              (syntax == "proto3" ? type + " plain = 2; }" : "}"));
      ASSERT_EQ(schema.errors(), "");
      BothPaths paths(schema.Type("Module"));
      for (const std::string& value : values) {
        Compare(paths, "{\"optional\":" + value + " }");
        Compare(paths, "{\"packed\": [" + value + "," + value + "]}");
        Compare(paths, "{\"unpacked\": [" + value + "\n]}");
        Compare(paths, "{\"plain\": " + value + "}");
      }
    }
  }
  EXPECT_GT(encoded_count_, 2000U);
}

TEST_F(DifferentialTest, LengthsOfOneAndMoreBytes) {
  const TextSchema schema(R"(syntax = "proto3"; message Inner { string s = 1; repeated uint32 p = 2; }
                             message Module { repeated Inner m = 1; })");
  BothPaths paths(schema.Type("Module"));
  // The room that is left for a length is that of the last one; each of these needs another.
  std::string elements;
  for (const size_t size : {1, 127, 128, 3, 16383, 16384, 200, 2, 2097152, 5, 0, 300}) {
    const std::string text = "\"s\":\"" + std::string(size, 'x') + "\"}";
    std::string list;
    for (size_t i = 0; i < std::min<size_t>(size, 40000); ++i) list += i == 0 ? "1" : ",200";
    elements += ",{\"p\":[" + list + "]," + text + ",{" + text;
  }
  ExpectEncoded(paths, "{\"m\":[" + elements.substr(1) + "]}");
}

TEST_F(DifferentialTest, RandomSchemasAndTexts) {
  size_t supported_count = 0;
  for (uint64_t seed = 0; seed < 400; ++seed) {
    SCOPED_TRACE(seed);
    Random random(seed);
    const TextSchema schema(zotest::SchemaMaker(random).Text());
    if (!schema.errors().empty()) continue;
    BothPaths paths(schema.Type("Module"));
    if (!paths.has_fast_path()) continue;
    ++supported_count;
    zotest::JsonMaker maker(random);
    for (int i = 0; i < 40; ++i) {
      std::string text = maker.Text(paths.type());
      for (size_t faults = random.OneIn(2) ? 0 : 1 + random.Below(3); faults > 0; --faults)
        text = zotest::Damage(text, random);
      Compare(paths, text);
    }
  }
  EXPECT_GT(supported_count, 120U);
  EXPECT_GT(encoded_count_, 2500U);
}

}  // namespace
