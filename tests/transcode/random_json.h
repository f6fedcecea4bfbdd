/// \file
/// Seeded generators of schemas, of JSON texts that fit a message type, and of faults in such texts.
#pragma once

#include <google/protobuf/descriptor.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace zotest {

/// The same numbers on every machine.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint64_t Bits() {
    state_ += UINT64_C(0x9e3779b97f4a7c15);
    uint64_t z = state_;
    z = (z ^ z >> 30) * UINT64_C(0xbf58476d1ce4e5b9);
    z = (z ^ z >> 27) * UINT64_C(0x94d049bb133111eb);
    return z ^ z >> 31;
  }
  size_t Below(size_t count) { return static_cast<size_t>(Bits() % count); }
  bool OneIn(size_t count) { return Below(count) == 0; }
  template <typename List>
  auto Pick(const List& list) {
    return list[Below(std::size(list))];
  }
  template <typename T>
  void Shuffle(std::vector<T>& list) {
    for (size_t i = list.size(); i > 1; --i) std::swap(list[i - 1], list[Below(i)]);
  }

 private:
  uint64_t state_;
};

/// Numbers at the limits of types, of precision, and of what JSON allows.
// clang-format off
inline constexpr const char* kNumbers[] = {
    "0", "-0", "0.0", "-0.0", "-0e0", "0e5", "1", "-1", "10", "127", "128", "300", "16384", "2147483647",
    "2147483648", "-2147483648", "-2147483649", "4294967295", "4294967296", "16777217", "9007199254740991",
    "9007199254740992", "9007199254740993", "9007199254740993.0", "9223372036854775807", "9223372036854775808",
    "-9223372036854775808", "-9223372036854775809", "9999999999999999999", "10000000000000000000",
    "18446744073709551615", "18446744073709551616", "99999999999999999999", "36893488147419103232", "1.5", "-2.25",
    "0.1", "0.30000000000000004", "123456.789", "1e2", "1E+2", "1e-2", "1.0", "2147483647.0",
    "3.4028234663852886e38", "3.4028235e38", "3.40282357e38", "3.4028236e38", "-3.4028235677973366e+38", "1e39",
    "1.17549435e-38", "1.1754942e-38", "1e-45", "7e-46", "1e-46", "-1e-46", "1e-400", "4.9e-324",
    "2.4703282292062327e-324", "2.2250738585072011e-308", "1.7976931348623157e308", "1.7976931348623159e308",
    "1e308", "1e309", "-1e400", "1e99999999999999999999", "0.3333333333333333333333333",
    "1.00000000000000011102230246251565404236316680908203125",
    "1.00000000000000011102230246251565404236316680908203124", "8.000000000000000000000000000001",
    "0.000001234567890123", "123456789012345678901234567890.5", "1e22", "1e23", "12345678901234567",
    "1234567890123456789", "9007199254740993e0"
};
// clang-format on

/// Values and pieces of text that are unsupported nearly everywhere, accepted by protobuf or not.
// clang-format off
inline constexpr const char* kOddities[] = {
    "null", "true", "false", "True", "truex", "nul", "NaN", "Infinity", "-Infinity", "\"NaN\"", "\"Infinity\"",
    "\"-Infinity\"", "\"true\"", "\"1\"", "\" 1\"", "\"-0\"", "\"+1\"", "\"01\"", "\"1.0\"", "\"1e2\"", "\"0x10\"",
    "\"18446744073709551615\"", "\"9223372036854775808\"", "\"\"", "''", "'a\"b'", "[]", "{}", "[1]", "[[]]",
    "[null]", "{\"a\":1}", "01", "-01", "00.5", "+1", ".5", "1.", "1.e2", "1e", "1e+", "-", "- 1", "0x10", "1.2.3",
    "1-2", "1_0", "1.5f", "-.5", "--1", "1e5.5", "\"\\ud83d\\ude00\"", "\"\\ud83d\"", "\"\\ude00\"", "\"\\q\"",
    "\"\\'\"", "\"\\x41\"", "\"\\u41\"", "\"\\u0000\"", "\"a\nb\"", "\"a\tb\"", "\"\x7f\"", "\"\xff\"",
    "\"\xc0\xaf\"", "\"\xed\xa0\x80\"", "\"\xe2\x82\"", "\"\xf4\x90\x80\x80\"", "\"\xef\xbf\xbf\"", "\"\\u12g4\"",
    "\"abc", "", "\"Kind_None\"", "\"kind_one\"", ",", ":", "//c\n", "/*c*/", "\v", "\f", "\r", "\xc2\xa0",
    "\xef\xbb\xbf", "}", "]"
};
// clang-format on

/// "<0a>" stands for a byte in hexadecimal.
inline std::string WithBytes(const std::string& line) {
  std::string text;
  for (size_t i = 0; i < line.size(); ++i) {
    const bool byte = line[i] == '<' && line.find('>', i) == i + 3;
    text += byte ? static_cast<char>(std::stoi(line.substr(i + 1, 2), nullptr, 16)) : line[i];
    if (byte) i += 3;
  }
  return text;
}

/// Makes JSON texts that fit a message type, as tools write them and in every other order and layout.
class JsonMaker {
 public:
  explicit JsonMaker(Random& random) : random_(random) {}

  std::string Text(const google::protobuf::Descriptor* type) {
    dropped_one_in_ = random_.OneIn(2) ? 0 : 1 + random_.Below(8);
    layout_ = random_.Below(4);
    shuffled_ = random_.OneIn(3);
    text_.clear();
    Object(type, 0);
    if (random_.OneIn(2)) text_ += '\n';
    return std::move(text_);
  }

 private:
  using Field = google::protobuf::FieldDescriptor;

  void Blanks(size_t indent, bool line_end) {
    static constexpr const char* kBlanks[] = {"", " ", "\n", "\t", "\r\n", "  \n ", "            ", " \t \n\n      "};
    if (layout_ == 1 && line_end) text_ += '\n' + std::string(indent, ' ');
    if (layout_ == 2 && !line_end) text_ += ' ';
    if (layout_ == 3) text_ += random_.Pick(kBlanks);
  }

  void Object(const google::protobuf::Descriptor* type, size_t depth) {
    std::vector<const Field*> fields;
    for (int i = 0; i < type->field_count(); ++i) {
      if (dropped_one_in_ > 0 && random_.OneIn(dropped_one_in_)) continue;
      // Recursive types must end somewhere, and so must texts.
      if (type->field(i)->message_type() != nullptr && (depth > 6 || text_.size() > 20000)) continue;
      fields.push_back(type->field(i));
    }
    if (shuffled_) random_.Shuffle(fields);
    text_ += '{';
    for (size_t i = 0; i < fields.size(); ++i) {
      if (i > 0) text_ += ',';
      Blanks(depth + 1, true);
      text_ += '"' + (random_.OneIn(6) ? fields[i]->json_name() : fields[i]->name()) + '"';
      if (layout_ == 3) Blanks(depth, false);
      text_ += ':';
      Blanks(depth, false);
      fields[i]->is_repeated() ? List(fields[i], depth) : Single(fields[i], depth);
    }
    Blanks(depth, true);
    text_ += '}';
  }

  void List(const Field* field, size_t depth) {
    text_ += '[';
    const size_t count = random_.OneIn(6) ? 0 : random_.OneIn(40) ? 20 + random_.Below(300) : 1 + random_.Below(4);
    for (size_t i = 0; i < count && text_.size() < 50000; ++i) {
      if (i > 0) text_ += ',';
      Blanks(depth + 2, true);
      Single(field, depth + 1);
    }
    Blanks(depth + 1, true);
    text_ += ']';
  }

  void Single(const Field* field, size_t depth) {
    uint64_t bits = random_.Bits() >> random_.Below(64);
    if (random_.OneIn(2)) bits = ~bits;  // small negative numbers
    switch (field->cpp_type()) {
      case Field::CPPTYPE_MESSAGE:
        return Object(field->message_type(), depth + 1);
      case Field::CPPTYPE_BOOL:
        return Add(random_.OneIn(2) ? "true" : "false");
      case Field::CPPTYPE_STRING:
        return Quoted(field->type() == Field::TYPE_BYTES ? "AQI=" : Content());
      case Field::CPPTYPE_ENUM: {
        const size_t count = static_cast<size_t>(field->enum_type()->value_count());
        const auto* value = field->enum_type()->value(static_cast<int>(random_.Below(count)));
        return random_.OneIn(3) ? Add(std::to_string(value->number())) : Quoted(value->name());
      }
      case Field::CPPTYPE_FLOAT:
      case Field::CPPTYPE_DOUBLE:
        return Add(random_.OneIn(12) ? random_.Pick(kNumbers) : Real());
      case Field::CPPTYPE_INT32:
        return Add(std::to_string(static_cast<int32_t>(bits)));
      case Field::CPPTYPE_UINT32:
        return Add(std::to_string(static_cast<uint32_t>(bits)));
      case Field::CPPTYPE_INT64:
        return Quoted(std::to_string(static_cast<int64_t>(bits)));
      case Field::CPPTYPE_UINT64:
        return random_.OneIn(2) ? Add(std::to_string(bits)) : Quoted(std::to_string(bits));
    }
  }

  std::string Real() {
    std::string digits = random_.OneIn(3) ? "-" : "";
    digits += std::to_string(random_.Bits() >> (11 + random_.Below(53)));
    if (random_.OneIn(4) && digits != "-0") return digits;
    digits += '.';
    for (size_t i = random_.OneIn(10) ? 30 : 1 + random_.Below(8); i > 0; --i)
      digits += "0123456789"[random_.Below(10)];
    return digits + (random_.OneIn(6) ? (random_.OneIn(2) ? "e-" : "E+") + std::to_string(random_.Below(50)) : "");
  }

  std::string Content() {
    // clang-format off
    static constexpr const char* kPieces[] = {
        "None", "[Float]", "0..1", "a", "-1", "\xc3\xb6", "\xe2\x82\xac", "\xf0\x9f\x98\x80", "\\n", "\\\"", "\\\\",
        "\\/", "\\u003c", "\\u00e9", "\\u20ac", "\\u007f", "a longer text without anything in it ", "\\t\\b\\f\\r"
    };
    // clang-format on
    std::string content;
    for (size_t i = random_.Below(4); i > 0; --i) content += random_.Pick(kPieces);
    return content + std::string(random_.OneIn(60) ? random_.Below(400) : 0, 'x');
  }

  void Add(const std::string& value) { text_ += value; }
  void Quoted(const std::string& value) { text_ += '"' + value + '"'; }

  Random& random_;
  std::string text_;
  size_t dropped_one_in_ = 0;  // fields; 0 for none
  size_t layout_ = 0;          // no spaces, a line per field, a space after colons, any whitespace anywhere
  bool shuffled_ = false;
};

/// One fault, or a harmless change, anywhere in a text.
inline std::string Damage(std::string text, Random& random) {
  const size_t at = random.Below(text.size() + 1);
  const size_t length = std::min(text.size() - at, random.OneIn(2) ? 1 : random.Below(30));
  const char byte = static_cast<char>(random.Below(256));
  switch (random.Below(8)) {
    case 0:
      return text.substr(0, at);
    case 1:
      return text.erase(at, length);
    case 2:
      return text.insert(at, random.Pick(kOddities));
    case 3:
      return text.replace(at, random.Below(std::min<size_t>(length, 1) + 1), 1, byte);
    case 4:
      return text.insert(random.Below(text.size() + 1), text.substr(at, length));
    case 5: {  // the key and value of one line twice, or elsewhere
      const size_t begin = text.find('"', at);
      const size_t end = begin == std::string::npos ? begin : text.find(',', begin);
      if (end == std::string::npos) return text;
      const std::string entry = text.substr(begin, end + 1 - begin);
      if (random.OneIn(2)) text.erase(begin, entry.size());
      const size_t other = text.find('"', random.Below(text.size() + 1));
      return other == std::string::npos ? text : text.insert(other, entry);
    }
    default: {  // another number or value
      const size_t begin = text.find_first_of("0123456789tf", at);
      if (begin == std::string::npos) return text;
      const size_t end = std::min(text.find_first_of(",]}\" \n", begin), text.size());
      return text.replace(begin, end - begin, random.OneIn(3) ? random.Pick(kOddities) : random.Pick(kNumbers));
    }
  }
}

inline constexpr const char* kScalarTypes[] = {"bool",     "int32",  "int64",   "uint32",  "uint64",
                                               "sint32",   "sint64", "fixed32", "fixed64", "sfixed32",
                                               "sfixed64", "float",  "double",  "string",  "Kind"};

/// A small schema "Module" with nearly everything: mostly what the fast path supports. Some do not load.
class SchemaMaker {
 public:
  explicit SchemaMaker(Random& random) : random_(random) {}

  std::string Text() {
    proto3_ = !random_.OneIn(3);
    text_ = proto3_ ? "syntax = \"proto3\";\n" : "syntax = \"proto2\";\n";
    // The first value of an open enum is 0.
    text_ += "enum Kind { option allow_alias = true; Zero = " + std::string(proto3_ ? "0" : "5") +
             "; Kind_One = 1; Uno = 1; Minus = -1; Most = 2147483647; Least = -2147483648; Nil = 0; }\n";
    types_ = {"Part", "FloatData", "BoolArrayData", "StructArrayRule", "FloatRule", "Uint64ArrayData_2D", "Inner"};
    random_.Shuffle(types_);
    types_.resize(1 + random_.Below(4));
    types_.insert(types_.begin(), "Module");
    for (size_t i = 0; i < types_.size(); ++i) AddMessage(i);
    return text_;
  }

 private:
  void AddMessage(size_t index) {
    names_ = {"rule",      "value",  "description", "gain", "gain_axis", "a",  "Big", "x1",
              "two_words", "swap_a", "swap_b",      "len",  "is_",       "_u", "f",   "tableOfGains"};
    random_.Shuffle(names_);
    names_.resize(random_.Below(9));
    for (size_t i = random_.OneIn(14) ? 60 + random_.Below(80) : 0; i > 0; --i)
      names_.push_back("n" + std::to_string(i));
    std::vector<int> numbers;
    int number = random_.OneIn(2) ? 0 : 1 << random_.Below(29);
    for (size_t i = 0; i < names_.size(); ++i) {
      number += random_.OneIn(3) ? 1 + static_cast<int>(random_.Below(200)) : 1;
      if (number >= 19000 && number <= 19999) number = 20000;  // reserved
      numbers.push_back(number);
    }
    if (random_.OneIn(2)) random_.Shuffle(numbers);
    text_ += "message " + types_[index] + " {\n";
    for (size_t i = 0; i < names_.size(); ++i) AddField(index, names_[i], numbers[i]);
    text_ += "}\n";
  }

  void AddField(size_t index, const std::string& name, int number) {
    std::string type = random_.Pick(kScalarTypes);
    const size_t below = types_.size() - index - 1;
    const bool scalar = below == 0 || random_.OneIn(2);
    if (!scalar) type = types_[index + 1 + random_.Below(below)];
    if (random_.OneIn(60)) type = "bytes";
    if (random_.OneIn(100)) type = "map<string, " + type + ">";
    const bool repeated = random_.OneIn(3) && type[0] != 'm';
    const std::string label = repeated ? "repeated " : proto3_ && !random_.OneIn(4) ? "" : "optional ";
    std::string options;
    const bool packable = repeated && scalar && type != "string" && type != "bytes";
    if (packable && random_.OneIn(2)) options = random_.OneIn(2) ? ", packed = true" : ", packed = false";
    if (!proto3_ && label == "optional " && type == "int32" && random_.OneIn(2)) options = ", default = 7";
    if (random_.OneIn(7)) {
      // clang-format off
      static constexpr const char* kJsonNames[] = {
          "rule", "value", "gain", "swap_a", "swap_b", "a", "other name", "@type", "", "1", "[x]", "a.b", "\\377",
          "\\303\\266", "a\\\"b"};
      // clang-format on
      const std::string json_name = random_.OneIn(3) ? random_.Pick(names_) : random_.Pick(kJsonNames);
      options += ", json_name = \"" + json_name + "\"";
    }
    text_ += "  " + (type[0] == 'm' ? "" : label) + type + " " + name + " = " + std::to_string(number) +
             (options.empty() ? "" : " [" + options.substr(2) + "]") + ";\n";
  }

  Random& random_;
  bool proto3_ = true;
  std::string text_;
  std::vector<std::string> types_;
  std::vector<std::string> names_;  // of the fields of the current type
};

}  // namespace zotest
