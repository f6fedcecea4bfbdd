// The fast path against the slow path: the first byte of the input selects a message type, the rest is the JSON text.
// Traps if the transcoder supports a text that protobuf rejects, or if the bytes or the missing field differ.

#include <google/protobuf/stubs/logging.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "transcode/differential.h"
#include "transcode/random_json.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t max_size);

namespace {

/// Every kind of field, similar names, unusual rules, and more fields than a word has bits.
constexpr char kNastySchema[] = R"(syntax = "proto3"; package N;
  enum Kind { option allow_alias = true; Zero = 0; Kind_One = 1; Uno = 1; Minus = -1; Most = 2147483647; Least = -2147483648; }
  message Scalars {
    bool b = 40; int32 i = 39; int64 l = 38; uint32 u = 37; uint64 ul = 36; sint32 si = 35; sint64 sl = 34; fixed32 fi = 33;
    fixed64 fl = 32; sfixed32 sfi = 31; sfixed64 sfl = 30; float f = 1; double d = 2; string s = 3; Kind k = 4;
    optional bool ob = 41; optional int64 ol = 42; optional float of = 43; optional double od = 44; optional string os = 45;
    optional Kind ok = 46; bytes y = 47; }
  message Lists {
    repeated bool b = 1; repeated int32 i = 2; repeated int64 l = 3; repeated uint32 u = 4; repeated uint64 ul = 5;
    repeated sint32 si = 6; repeated sint64 sl = 7; repeated fixed32 fi = 8; repeated fixed64 fl = 9; repeated sfixed32 sfi = 10;
    repeated sfixed64 sfl = 11; repeated float f = 536870911; repeated double d = 12; repeated string s = 13; repeated Kind k = 14;
    repeated int32 ni = 20 [packed = false]; repeated double nd = 21 [packed = false]; repeated Kind nk = 22 [packed = false];
    repeated Scalars m = 23; repeated Lists2 n = 24; }
  message Lists2 { repeated uint64 ul = 2; Scalars m = 1; }
  message Names { int32 two_words = 9; int32 other = 8 [json_name = "c"]; int32 value = 7; int32 _e = 6; int32 fG = 5; }
  message Swapped { int32 a = 9 [json_name = "b"]; int32 b = 8 [json_name = "c"]; int32 d = 4 [json_name = "d\\"]; }
  message NotAscii { int32 c_ = 5 [json_name = "\303\266"]; int32 d = 4 [json_name = "\377"]; int32 e = 3 [json_name = "x y"]; }
  message FloatData { repeated int32 rule = 9; float value = 1; }
  message BoolData { string rule = 3; message Flag { int32 rule = 1; FloatData data = 2; } Flag flag = 2; bool value = 1; }
  message StructArrayRule { FloatData f = 1; string len = 3; }
  message Level { BoolData b = 4; StructArrayRule r = 3; FloatData rule = 2; repeated StructArrayRule rr = 1; }
  message Module { Level high = 1000; FloatData f = 70; Level low = 5; repeated Level levels = 6; StructArrayRule x = 2;
                   Scalars scalars = 3; Lists lists = 4; Names names = 1; }
)";
constexpr char kNastySchema2[] = R"(syntax = "proto2"; package O; enum Kind { Five = 5; Six = 6; Minus = -6; }
  message Part { optional string rule = 2; optional float value = 1 [default = 1.5]; repeated Part2 parts = 9; }
  message Part2 { optional Kind k = 3; repeated sint64 p = 1 [packed = true]; }
  message Module { optional Kind k = 1 [default = Six]; repeated Kind r = 2; repeated Kind p = 3 [packed = true];
    optional int32 i = 4 [default = 7]; optional string s = 5 [default = "x"]; optional bool b = 6; optional double d = 7;
    repeated float f = 8; repeated Part parts = 9; optional Part part = 10; repeated uint64 u = 11; optional bytes y = 12; }
)";

std::string ManyFields() {
  std::string text = "syntax = \"proto3\"; package P; message Module {";
  for (int i = 0; i < 150; ++i) text += "uint32 n" + std::to_string(i) + " = " + std::to_string(1 + i * 67 % 151) + ";";
  return text + "}";
}

class Target {
 public:
  Target() {
    google::protobuf::SetLogHandler(nullptr);
    for (const std::string& text : {std::string(kNastySchema), std::string(kNastySchema2), ManyFields()}) {
      schemas_.push_back(std::make_unique<zotest::TextSchema>(text));
      if (!schemas_.back()->errors().empty()) Fail(schemas_.back()->errors());
      AddTypes(*schemas_.back()->file());
    }
    // Types are only ever added at the end: their numbers are the first bytes of a corpus.
    const std::string proto_dir = ZOTUNING_SOURCE_DIR "/examples/tuning_project/proto";
    tree_.MapPath("", proto_dir);
    for (const char* file : {"aec.proto", "af.proto", "awb.proto", "image.proto", "pd.proto"}) {
      const auto* imported = importer_.Import(file);
      if (imported == nullptr) Fail(std::string("cannot import ") + file);
      AddTypes(*imported);
    }
    std::atexit(PrintCounts);
  }

  zotest::BothPaths& Choose(uint8_t selector) { return *paths_[selector % paths_.size()]; }

  void Run(const uint8_t* data, size_t size) {
    if (size == 0) return;
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    bool encoded = false;
    const std::string difference = Choose(data[0]).Difference(text, &encoded);
    ++executions_;
    encoded_ += encoded ? 1 : 0;
    if (!difference.empty()) Fail(Choose(data[0]).type()->full_name() + ": " + difference + "\n" + text);
  }

  /// The numbers of the types, for the corpus generator.
  void PrintTypes() const {
    for (size_t i = 0; i < paths_.size(); ++i) std::printf("%zu %s\n", i, paths_[i]->type()->name().c_str());
  }

 private:
  void AddTypes(const google::protobuf::FileDescriptor& file) {
    for (int i = 0; i < file.message_type_count(); ++i) {
      paths_.push_back(std::make_unique<zotest::BothPaths>(file.message_type(i)));
    }
  }

  [[noreturn]] static void Fail(const std::string& message) {
    std::fprintf(stderr, "find: %s\n", message.c_str());
    std::abort();
  }

  static void PrintCounts() {
    if (executions_ > 0) std::fprintf(stderr, "%zu texts, %zu of them took the fast path\n", executions_, encoded_);
  }

  static size_t executions_;
  static size_t encoded_;
  std::vector<std::unique_ptr<zotest::TextSchema>> schemas_;
  google::protobuf::compiler::DiskSourceTree tree_;
  google::protobuf::compiler::Importer importer_{&tree_, nullptr};
  std::vector<std::unique_ptr<zotest::BothPaths>> paths_;
};

size_t Target::executions_ = 0;
size_t Target::encoded_ = 0;

Target& TheTarget() {
  static Target target;
  return target;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  if (*argc > 1 && std::strcmp((*argv)[1], "--types") == 0) {
    TheTarget().PrintTypes();
    std::exit(0);
  }
  TheTarget();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  TheTarget().Run(data, size);
  return 0;
}

// Most inputs are texts that fit their type, or such texts with a fault, so that the transcoder gets far.
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size, unsigned seed) {
  zotest::Random random(seed);
  if (size < 2 || random.OneIn(3)) return LLVMFuzzerMutate(data, size, max_size);
  const uint8_t selector = random.OneIn(2) ? data[0] : static_cast<uint8_t>(random.Below(256));
  std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  if (selector != data[0] || random.OneIn(3))
    text = zotest::JsonMaker(random).Text(TheTarget().Choose(selector).type());
  for (size_t i = random.OneIn(2) ? 0 : 1 + random.Below(2); i > 0; --i) text = zotest::Damage(text, random);
  if (text.size() + 1 > max_size) return LLVMFuzzerMutate(data, size, max_size);
  data[0] = selector;
  std::memcpy(data + 1, text.data(), text.size());
  return text.size() + 1;
}
