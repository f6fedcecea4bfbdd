// The tokens of the hot road against the C library.

#include "encode/json_tokens.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "encode/random_json.h"

namespace {

using namespace ZO_TUNING::internal;
using zotest::Random;

/// `text` with the zero bytes behind it that the tokens may read.
std::string Padded(const std::string& text) { return text + std::string(64, '\0'); }

// What strtod reads of it in the C locale; the numbers below hold a "." that another locale may not know.
double Reference(std::string text) {
  const char point = std::to_string(0.5)[1];
  const size_t dot = text.find('.');
  if (dot != std::string::npos) text[dot] = point;
  return std::strtod(text.c_str(), nullptr);
}

void ExpectReal(const std::string& text) {
  const std::string padded = Padded(text);
  double real = 0;
  const char* end = ReadReal(padded.c_str(), &real);
  if (end == nullptr) return;
  const double reference = Reference(text);
  EXPECT_EQ(end - padded.c_str(), static_cast<std::ptrdiff_t>(text.size())) << text;
  EXPECT_EQ(std::memcmp(&real, &reference, sizeof(real)), 0) << text << " " << real << " " << reference;
  EXPECT_TRUE(std::isfinite(real)) << text;
}

TEST(JsonTokensTest, RealsAreRoundedAsTheCLibraryDoes) {
  for (const char* number : zotest::kNumbers) ExpectReal(number);
  Random random(3);
  const auto digits = [&](size_t count) {
    std::string text;
    for (size_t i = 0; i < count; ++i) text += "0123456789"[random.Below(10)];
    return text;
  };
  for (int round = 0; round < 200000; ++round) {
    std::string text = random.OneIn(3) ? "-" : "";
    text += "123456789"[random.Below(9)] + digits(random.Below(20));
    if (!random.OneIn(8)) text += '.' + digits(1 + random.Below(random.OneIn(10) ? 40 : 18));
    if (random.OneIn(4)) text += (random.OneIn(2) ? "e-" : "E+") + digits(1 + random.Below(3));
    ExpectReal(text);
    // Half way between two neighbours, and next to it.
    const uint64_t bits = UINT64_C(0x3ff0000000000000) + (random.Bits() >> (12 + random.Below(52)));
    double low = 0;
    std::memcpy(&low, &bits, sizeof(low));
    char half[80];
    std::snprintf(half, sizeof(half), "%.17g", low);
    text = "1." + std::string(half).substr(std::min<size_t>(std::strlen(half), 2)) + digits(random.Below(4));
    if (text.size() > 2) ExpectReal(text);
  }
}

TEST(JsonTokensTest, IntegersOfEveryLength) {
  Random random(4);
  for (int round = 0; round < 50000; ++round) {
    const uint64_t magnitude = random.Bits() >> random.Below(64);
    const std::string text = std::to_string(magnitude);
    const std::string padded = Padded((magnitude != 0 && random.OneIn(2) ? "-" : "") + text + "," + text);
    Integer integer;
    const char* end = ReadInteger(padded.c_str(), &integer);
    ASSERT_TRUE(end != nullptr || text.size() == 20) << text;
    if (end == nullptr) continue;
    EXPECT_EQ(*end, ',');
    EXPECT_EQ(integer.magnitude, magnitude);
    EXPECT_EQ(integer.negative, padded[0] == '-');
  }
  // What 64 bits do not hold.
  for (const std::string text :
       {"18446744073709551616", "19999999999999999999", "20000000000000000000", "28446744073709551616",
        "100000000000000000000", "118446744073709551616", "-0", "01", "-", "", "1.0", "1e2"}) {
    Integer integer;
    EXPECT_EQ(ReadInteger(Padded(text).c_str(), &integer), nullptr) << text;
  }
}

TEST(JsonTokensTest, StringsEndWhereTheyEnd) {
  // Every place of the end, of an escape and of a byte beyond ASCII within the words that are read at once.
  for (size_t before = 0; before < 20; ++before) {
    for (size_t behind = 0; behind < 10; ++behind) {
      for (const std::string middle : {"", "\\\"", "\\\\", "\\n", "\xc3\xb6", " ", "\x7f"}) {
        const std::string content = std::string(before, 'a') + middle + std::string(behind, '!');
        const std::string padded = Padded("\"" + content + "\"\"");
        RawString raw;
        const char* end = ReadString(padded.c_str(), &raw);
        ASSERT_EQ(end, padded.c_str() + content.size() + 2) << content;
        EXPECT_EQ(std::string(raw.begin, raw.end), content);
        EXPECT_EQ(raw.escaped, middle[0] == '\\') << content;
        EXPECT_EQ(raw.ascii, middle[0] != '\xc3') << content;
      }
      for (const char control : {'\0', '\n', '\x01', '\x1f'}) {
        RawString raw;
        const std::string text = "\"" + std::string(before, 'a') + control + std::string(behind, '"');
        EXPECT_EQ(ReadString(Padded(text).c_str(), &raw), nullptr);
        EXPECT_EQ(ReadString(Padded("\"" + std::string(before, 'a') + "\\" + control).c_str(), &raw), nullptr);
      }
    }
    RawString raw;
    EXPECT_EQ(ReadString(Padded("\"" + std::string(before, 'a')).c_str(), &raw), nullptr);
  }
}

TEST(JsonTokensTest, Utf8) {
  for (const std::string good : {"", "a", "\xc2\x80", "\xdf\xbf", "\xe0\xa0\x80", "\xed\x9f\xbf", "\xee\x80\x80",
                                 "\xef\xbf\xbf", "\xf0\x90\x80\x80", "\xf4\x8f\xbf\xbf"}) {
    EXPECT_TRUE(IsUtf8(good.data(), good.data() + good.size())) << good;
    // Cut anywhere, it is none.
    for (size_t i = 1; i < good.size(); ++i) EXPECT_FALSE(IsUtf8(good.data(), good.data() + i));
  }
  for (const std::string bad :
       {"\x80", "\xbf", "\xc0\xaf", "\xc1\xbf", "\xe0\x9f\xbf", "\xed\xa0\x80", "\xed\xbf\xbf", "\xf0\x8f\xbf\xbf",
        "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xff", "\xc3(", "\xe2\x82(", "\xe2(\xac", "\xf0\x9f\x98("}) {
    EXPECT_FALSE(IsUtf8(bad.data(), bad.data() + bad.size())) << bad;
  }
}

}  // namespace
