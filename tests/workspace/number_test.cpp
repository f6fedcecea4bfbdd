// Arithmetic on numbers of JSON texts.

#include "workspace/number.h"

#include <gtest/gtest.h>

#include <charconv>
#include <memory>
#include <string>

#include "json/json_text-inl.h"
#include "transcode/differential.h"
#include "transcode/random_json.h"

namespace zotest {
namespace {

using zotuning::JsonDocument;
using zotuning::Operation;

const google::protobuf::Descriptor* Numbers() {
  static const TextSchema schema(R"(syntax = "proto3"; message M { float f = 1; double d = 2; int32 i = 3; uint32 u = 4;
      int64 l = 5; uint64 ul = 6; bool b = 7; string s = 8; })");
  return schema.Type("M");
}

/// "f 0.1 * 1.05", or why it cannot be computed.
std::string Result(const std::string& field, const std::string& number, char sign, const std::string& operand) {
  const JsonDocument document("[" + number + "]");
  std::string why;
  const auto result =
      zotuning::Calculate(*document.root().elements().begin(), sign == '+' ? Operation::kAdd : Operation::kMultiply,
                          operand, sign == 'r', Numbers()->FindFieldByName(field), &why);
  return result.value_or(why);
}

TEST(Number, IsCalculatedInDecimalsAndPrintedShort) {
  const struct {
    const char* field;
    const char* number;
    char sign;
    const char* operand;
    const char* result;
  } rows[] = {
      {"d", "0.1", '*', "1.05", "0.105"},
      {"d", "0.1", '+', "0.2", "0.3"},
      {"f", "0.1", '+', "0.2", "0.3"},
      {"f", "1.1", '*', "1.1", "1.21"},
      {"f", "16777216", '+', "1", "16777216"},
      {"f", "3", '*', "0.33333333333333333333", "1"},
      {"d", "1e300", '*', "1e-310", "1e-10"},
      {"d", "123456789012345678901234567890123456789012", '*', "2", "2.4691357802469137e+41"},
      {"i", "100", '*', "1.1", "110"},
      {"i", "-7", '+', "7", "0"},
      {"i", "1e2", '+', "1.0", "101"},
      {"l", "\"9223372036854775806\"", '*', "0.5", "\"4611686018427387903\""},
      {"l", "-9223372036854775807", '+', "-1", "-9223372036854775808"},
      {"ul", "18446744073709551614", '+', "1", "18446744073709551615"},
      // Rounded.
      {"i", "10", 'r', "1.05", "11"},
      {"i", "-10", 'r', "1.05", "-11"},
      {"i", "10", 'r', "1.049", "10"},
      {"u", "1", 'r', "1e-30", "0"},
      {"i", "1000", 'r', "1.05", "1050"},
      {"d", "10", 'r', "1.05", "10.5"},
      // What does not change keeps its spelling.
      {"d", "1.50", '*', "1", "1.50"},
      {"f", "1.50", '+', "1e-20", "1.50"},
      {"f", "-0.0", '*', "2", "-0.0"},
      {"i", "0", '*', "-3", "0"},
      {"i", "4e2", '*', "1.0", "4e2"},
      // Impossible operations.
      {"i", "836", '*', "1.05",
       "the result 877.8 is not a whole number, and the field is int32; --round rounds to the nearest one"},
      {"i", "2147483647", '+', "1", "the result does not fit int32"},
      {"u", "1", '+', "-2", "the result does not fit uint32"},
      {"ul", "1", '*', "1e30", "the result does not fit uint64"},
      {"l", "1", '*', "1e999999999", "the result does not fit int64"},
      {"f", "3e38", '*', "2", "the result is beyond what a float holds"},
      {"d", "1e308", '*', "1e300", "the result is beyond what a double holds"},
      {"f", "\"NaN\"", '*', "2", "\"NaN\" cannot be used in a calculation"},
      {"b", "true", '*', "2", "only numbers can be used in a calculation"},
      {"s", "\"1\"", '*', "2", "only numbers can be used in a calculation"},
      {"f", "null", '*', "2", "only numbers can be used in a calculation"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Result(row.field, row.number, row.sign, row.operand), row.result)
        << row.field << " " << row.number << row.sign << row.operand;
  }
}

TEST(Number, ReadsBackAsTheNearestValue) {
  Random random(2);
  google::protobuf::DynamicMessageFactory factory;
  const auto parse = [&](const std::string& text) {
    std::unique_ptr<google::protobuf::Message> message(factory.GetPrototype(Numbers())->New());
    EXPECT_TRUE(ZO_TUNING::internal::ParseJson(text, message.get()).ok) << text;
    return message;
  };
  for (int i = 0; i < 20000; ++i) {
    const auto number = [&] {
      std::string text = std::to_string(random.Bits() >> (20 + random.Below(40)));
      if (random.OneIn(2)) text.insert(random.Below(text.size()), ".");
      if (text[0] == '.') text.insert(0, "0");
      const size_t zeros = text.find_first_not_of('0');
      return zeros == std::string::npos || text[zeros] == '.' || zeros == 0 ? text : text.substr(zeros);
    };
    const std::string left = number(), right = number();
    const char sign = random.OneIn(2) ? '*' : '+';
    // Not by std::stod, which only knows the locale's decimal point.
    double a = 0, b = 0;
    std::from_chars(left.data(), left.data() + left.size(), a);
    std::from_chars(right.data(), right.data() + right.size(), b);
    const double exact = sign == '*' ? a * b : a + b;
    for (const char* field : {"f", "d"}) {
      const std::string result = Result(field, left, sign, right);
      const auto message = parse("{\"" + std::string(field) + "\":" + result + "}");
      const auto* descriptor = Numbers()->FindFieldByName(field);
      if (*field == 'd') {
        // Binary arithmetic rounds three times.
        EXPECT_NEAR(message->GetReflection()->GetDouble(*message, descriptor), exact, exact * 1e-15) << left << right;
      } else {
        EXPECT_EQ(message->GetReflection()->GetFloat(*message, descriptor), static_cast<float>(exact))
            << left << sign << right << " " << result;
      }
    }
  }
}

}  // namespace
}  // namespace zotest
