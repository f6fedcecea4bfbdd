// The check of wire bytes against protobuf's own parser, on random and damaged bytes.

#include "bin/wire_check.h"

#include <google/protobuf/compiler/parser.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <random>
#include <string>

#include "io/unique_file-inl.h"

namespace {

using namespace google::protobuf;
using ZO_TUNING::internal::CanCheckWire;
using ZO_TUNING::internal::CheckWire;
using ZO_TUNING::internal::RecordReader;
using ZO_TUNING::internal::WireVerdict;

constexpr const char* kProto3 = R"(
syntax = "proto3"; package p;
enum E { A = 0; B = 1; }
message M {
  int32 i = 1; string s = 2; bytes b = 3; M m = 4; repeated M ms = 5; repeated sint32 zs = 6; repeated float fs = 7;
  double d = 8; repeated string ss = 9; map<string, M> map = 10; E e = 11; repeated E es = 12; bool o = 13;
  fixed32 f = 14; repeated fixed64 xs = 15;
})";
constexpr const char* kProto2 = R"(
syntax = "proto2"; package q;
enum E { A = 0; B = 1; }
message M {
  optional string s = 2; optional group G = 3 { optional string s = 2; optional M m = 4; repeated int32 r = 6; }
  optional M m = 4; repeated group H = 5 { optional int32 i = 1; } repeated int32 r = 6; repeated E es = 12 [packed = true];
}
message Extended { extensions 5 to 9; }
message Needs { required int32 i = 1; }
message HoldsNeeds { optional int32 i = 1; repeated Needs n = 2; })";

class WireCheckTest : public testing::Test {
 protected:
  const Descriptor* Type(const char* text, const std::string& name) {
    io::ArrayInputStream stream(text, static_cast<int>(std::char_traits<char>::length(text)));
    io::Tokenizer tokenizer(&stream, nullptr);
    FileDescriptorProto file;
    compiler::Parser().Parse(&tokenizer, &file);
    file.set_name(file.package());
    const FileDescriptor* built = pool_.FindFileByName(file.name());
    if (built == nullptr) built = pool_.BuildFile(file);
    return built->FindMessageTypeByName(name);
  }

  bool Expected(const Descriptor* type, const std::string& bytes) {
    const std::unique_ptr<Message> message(factory_.GetPrototype(type)->New());
    return message->ParseFromString(bytes);
  }

  /// Whether the check agrees with protobuf, from memory and in pieces from a file.
  void Agrees(const Descriptor* type, const std::string& bytes) {
    const WireVerdict expected = Expected(type, bytes) ? WireVerdict::kMessage : WireVerdict::kNoMessage;
    RecordReader reader{std::string_view(bytes)};
    if (CheckWire(reader, static_cast<int32_t>(bytes.size()), type) == expected) return;
    std::string hex;
    for (const char c : bytes) hex += "0123456789abcdef"[(c >> 4) & 15], hex += "0123456789abcdef"[c & 15];
    ADD_FAILURE() << type->full_name() << (expected == WireVerdict::kMessage ? " takes " : " refuses ") << hex;
  }

  size_t Below(size_t end) { return std::uniform_int_distribution<size_t>(0, end - 1)(random_); }

  std::string Varint(uint64_t value) {
    std::string text;
    for (; value >= 0x80; value >>= 7) text += static_cast<char>(value | 0x80);
    text += static_cast<char>(value);
    if (Below(40) == 0) {  // an overlong form
      text.back() = static_cast<char>(text.back() | 0x80);
      text.append(Below(9), '\x80').append(1, Below(8) == 0 ? '\x7f' : '\0');
    }
    return text;
  }

  /// Fields of any number and wire type, most of them complete.
  std::string Fields(int depth) {
    static const char* const kTexts[] = {"",         "abc",          "\xc3\xa9", "\xe2\x82\xac!", "\xf0\x9f\x98\x80",
                                         "\xc0\x80", "\xed\xa0\x80", "\xff",     "\xe2\x82",      "\xf4\x90\x80\x80"};
    std::string bytes;
    for (size_t i = Below(5); i > 0; --i) {
      const uint64_t number = Below(30) == 0 ? Below(size_t{1} << 30) : 1 + Below(16),
                     type = Below(60) == 0 ? 6 : Below(6);
      bytes += Varint(number << 3 | type);
      if (type == 0) bytes += Varint(random_() >> Below(64));
      if (type == 1) bytes.append(8, 'x');
      if (type == 5) bytes.append(4, 'x');
      if (type == 3 && depth > 0) bytes += Fields(depth - 1) + Varint((number + (Below(20) == 0)) << 3 | 4);
      if (type != 2) continue;
      std::string inner = depth > 0 && Below(2) == 0 ? Fields(depth - 1) : kTexts[Below(Below(4) == 0 ? 10 : 5)];
      bytes += Varint(inner.size() + (Below(60) == 0 ? Below(4) : 0)) + inner;
    }
    return bytes;
  }

  DescriptorPool pool_;
  DynamicMessageFactory factory_{&pool_};
  std::mt19937_64 random_{20240611};
};

TEST_F(WireCheckTest, SaysWhatProtobufSays) {
  const Descriptor* const types[] = {Type(kProto3, "M"), Type(kProto2, "M")};
  SetLogHandler(nullptr);
  size_t good = 0;
  for (int i = 0; i < 60000 && !HasFailure(); ++i) {
    std::string bytes = Fields(4);
    for (const Descriptor* type : types) Agrees(type, bytes);
    good += Expected(types[0], bytes) ? 1 : 0;
    if (bytes.empty()) continue;
    bytes[Below(bytes.size())] = static_cast<char>(random_());
    if (Below(3) == 0) bytes.resize(Below(bytes.size()));
    for (const Descriptor* type : types) Agrees(type, bytes);
  }
  // Both results must occur.
  EXPECT_GT(good, 5000u);
  EXPECT_LT(good, 55000u);
}

TEST_F(WireCheckTest, NestsAsDeepAsProtobuf) {
  SetLogHandler(nullptr);
  for (const Descriptor* type : {Type(kProto3, "M"), Type(kProto2, "M")}) {
    for (const size_t depth : {99u, 100u, 101u, 102u, 5000u}) {
      std::string nested;
      for (size_t i = 0; i < depth; ++i) nested.insert(0, "\x22" + Varint(nested.size()));
      Agrees(type, nested);
      for (const char* group : {"\x1b\x1c", "\x7b\x7c"}) {  // known in one of them
        Agrees(type, std::string(depth, group[0]) + std::string(depth, group[1]));
      }
    }
  }
}

TEST_F(WireCheckTest, ReadsFilesInPieces) {
  const Descriptor* type = Type(kProto3, "M");
  // Characters across the ends of pieces, wherever those are; the tail is in the last one.
  for (const std::string& tail : {std::string(), std::string("\xe2\x82")}) {
    std::string text = "1";
    while (text.size() < 300000) text += "\xe2\x82\xac\xf0\x9f\x98\x80";
    text += tail;
    const std::string bytes = "\x12" + Varint(text.size()) + text + "\x08\x01";
    const ZO_TUNING::internal::UniqueFile file(std::tmpfile());
    ASSERT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), file.get()), bytes.size());
    for (const size_t cut : {size_t{0}, size_t{1}}) {
      std::rewind(file.get());
      ASSERT_EQ(ftruncate(fileno(file.get()), static_cast<off_t>(bytes.size() - cut)), 0);
      RecordReader reader(file.get());
      const WireVerdict verdict = CheckWire(reader, static_cast<int32_t>(bytes.size()), type);
      const WireVerdict whole = tail.empty() ? WireVerdict::kMessage : WireVerdict::kNoMessage;
      EXPECT_EQ(verdict, cut == 0 ? whole : WireVerdict::kNotRead) << cut << tail;
    }
  }
}

TEST_F(WireCheckTest, LeavesWhatItCannotJudge) {
  EXPECT_TRUE(CanCheckWire(Type(kProto3, "M")));
  EXPECT_TRUE(CanCheckWire(Type(kProto2, "M")));
  for (const char* name : {"Extended", "Needs", "HoldsNeeds"}) EXPECT_FALSE(CanCheckWire(Type(kProto2, name))) << name;
}

}  // namespace
