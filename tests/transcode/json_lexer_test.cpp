// Numbers of the fast path against the C library. All other tokens are tested through entire texts, in
// differential_test.cpp.

#include "transcode/json_lexer.h"

#include <gtest/gtest.h>
#include <locale.h>

#include <charconv>
#include <cstdlib>

#include "transcode/random_json.h"

namespace {

void ExpectRounded(const std::string& text) {
  const std::string padded = text + std::string(64, '\0');
  double real = 0;
  const char* end = ZO_TUNING::internal::ReadReal(padded.c_str(), &real);
  if (end == nullptr) return;
  static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", nullptr);
  const double reference = strtod_l(text.c_str(), nullptr, c_locale);
  ASSERT_EQ(end - padded.c_str(), static_cast<std::ptrdiff_t>(text.size())) << text;
  ASSERT_EQ(std::memcmp(&real, &reference, sizeof(real)), 0) << text << " " << real << " " << reference;
}

TEST(JsonTokensTest, RealsAreRoundedAsTheCLibraryDoes) {
  zotest::Random random(3);
  const auto digits = [&](size_t count) {
    std::string text;
    for (size_t i = 0; i < count; ++i) text += "0123456789"[random.Below(10)];
    return text;
  };
  for (int round = 0; round < 200000; ++round) {
    std::string text = "-123456789"[random.Below(10)] + ("1" + digits(random.Below(20)));
    if (!random.OneIn(8)) text += '.' + digits(1 + random.Below(random.OneIn(10) ? 40 : 18));
    if (random.OneIn(4)) text += (random.OneIn(2) ? "e-" : "E+") + digits(1 + random.Below(3));
    ExpectRounded(text);
    // Between two neighbouring doubles.
    const double low = 1 + static_cast<double>(random.Bits() >> (12 + random.Below(52))) / (UINT64_C(1) << 52);
    char near[80];
    const char* const near_end = std::to_chars(near, near + sizeof(near), low, std::chars_format::fixed, 17).ptr;
    ExpectRounded(std::string(static_cast<const char*>(near), near_end) + digits(random.Below(4)));
  }
}

}  // namespace
