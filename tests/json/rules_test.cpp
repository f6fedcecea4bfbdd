#include "ZoTuningUtils.h"
#include "json/pruned_size.h"
#include "support/project.h"

namespace {

using namespace zotest;

class RulesTest : public SchemaTest {
 protected:
  std::string Fill(const std::string& type, const std::string& text = "") {
    const MessagePtr message = schema_->New(type, text);
    ZO_TUNING::MSG_INIT_FOR_JSON(message.get(), message->GetDescriptor());
    return Text(*message);
  }
  std::string Prune(const std::string& type, const std::string& text, int times = 1) {
    const MessagePtr message = schema_->New(type, text);
    for (int i = 0; i < times; ++i) ZO_TUNING::MSG_PRONE_FOR_BIN(message.get(), message->GetDescriptor());
    return Text(*message);
  }
};

TEST_F(RulesTest, EveryKindIsAnnotatedAndPruned) {
  WriteSchema(dir_.str());
  Schema schema(dir_.str());
  const MessagePtr message = schema.New("ZO_TUNING.EveryKind");
  ZO_TUNING::MSG_INIT_FOR_JSON(message.get(), message->GetDescriptor());
  std::string filled = R"(every_rule { description: "[Repeated]" len: "-1" })";
  std::string pruned;
  int number = 2;
  const auto add = [&](const std::string& value, const std::string& rule) {
    const std::string name = "p" + std::to_string(number++);
    filled += " " + name + " { " + value + "rule { " + rule + " } }";
    pruned += (pruned.empty() ? "" : " ") + name + " { " + value + "}";
  };
  for (const std::string& kind : kKinds) {
    const std::string shown = "description: \"[" + (kind[0] == 'U' ? "UInt" + kind.substr(4) : kind);
    add("", shown + "]\" recommend: \"None\"");
    add("", shown + "Arr]\" recommend: \"None\" len: \"-1\"");
    add("value { } ", shown + "Arr2D]\" recommend: \"None\" row: \"-1\" col: \"-1\"");
  }
  EXPECT_EQ(Text(*message), filled);
  ZO_TUNING::MSG_PRONE_FOR_BIN(message.get(), message->GetDescriptor());
  EXPECT_EQ(Text(*message), pruned);
}

// Rules are recognised by their short names only, in any package and nested; other spellings are ordinary messages.
constexpr char kOrdinary[] = R"(syntax = "proto3";
  message BoolRule { string description = 1; string recommend = 2; int32 other = 3; }
  message boolRule { string description = 1; BoolRule in = 2; }
  message BoolRules { string description = 1; }
  message Deep { message StructArrayRule { string description = 1; string len = 2; int32 other = 3; } StructArrayRule r = 1; }
  message Empty {}
  message M {
    BoolRule rule = 1; boolRule lower = 2; BoolRules plural = 3; Deep deep = 4; repeated BoolRule rules = 5;
    repeated Deep deeps = 6; int32 number = 7; repeated int32 numbers = 8; Empty empty = 9; map<string, Deep> table = 10;
    oneof choice { Deep first = 11; BoolRule second = 12; } })";

TEST_F(RulesTest, KnowsRulesByTheirNamesAndKeepsTheRest) {
  Load(kOrdinary);
  EXPECT_EQ(
      Fill("M",
           "rule { other: 5 recommend: 'mine' } deep { r { other: 6 len: '9' } } rules { recommend: 'mine' } "
           "deeps { r { len: '9' } } number: 3 numbers: 4"),
      R"(rule { description: "[Bool]" recommend: "None" other: 5 } )"
      R"(lower { in { description: "[Bool]" recommend: "None" } } plural { } )"
      R"(deep { r { description: "[Repeated]" len: "-1" other: 6 } } rules { recommend: "mine" } rules { } )"
      R"(deeps { r { len: "9" } } deeps { r { description: "[Repeated]" len: "-1" } } number: 3 numbers: 4 empty { } )"
      R"(table { key: "" value { r { description: "[Repeated]" len: "-1" } } } )"
      R"(second { description: "[Bool]" recommend: "None" })");
  EXPECT_EQ(Fill("Empty"), "");
  // A second call adds a second element.
  EXPECT_THAT(Fill("M", Fill("M")), HasSubstr("rules { } rules { }"));
}

TEST_F(RulesTest, ReportsRepeatedFieldsOfOtherTypes) {
  Load(
      R"(syntax = "proto2"; message M { repeated fixed64 a = 1; repeated fixed32 b = 2; repeated string c = 3; repeated group D = 4 {}
    repeated bytes e = 5; enum E { X = 0; } repeated E f = 6; repeated sfixed32 g = 7; repeated sfixed64 h = 8;
    repeated sint32 i = 9; repeated sint64 j = 10; repeated double k = 11; repeated float l = 12; repeated int64 m = 13;
    repeated uint64 n = 14; repeated int32 o = 15; repeated bool p = 16; repeated uint32 q = 17;
    optional group R = 18 { optional M m = 1; } })");
  EXPECT_EQ(Fill("M"), "");
  Strings lines;
  for (const int type : {6, 7, 9, 10, 12, 14, 15, 16, 17, 18}) {
    lines.push_back(E("MSG_INIT_FOR_JSON", "Unknown repeated data type: " + std::to_string(type)));
  }
  EXPECT_EQ(TakeLog(), lines);
}

TEST_F(RulesTest, HostileRuleTypesLoseOnlyTheirOddFields) {
  const std::pair<std::string, std::string> fields[] = {{"description", "description: \"[Int32Arr]\""},
                                                        {"recommend", "recommend: \"None\""},
                                                        {"order", "order: 0"},
                                                        {"len", "len: \"-1\""}};
  for (const auto& [odd, ignored] : fields) {
    for (const std::string declared :
         {"", "optional sint32", "optional bytes", "repeated string", "repeated int32", "optional Int32ArrayRule"}) {
      std::string rule, filled;
      for (const auto& [name, set] : fields) {
        const std::string usual = name == "order" ? "optional int32" : "optional string";
        const std::string& type = name == odd ? declared : usual;
        if (!type.empty()) rule += type + " " + name + " = " + std::to_string(1 + rule.size()) + "; ";
        if (name != odd) filled += set + " ";
      }
      Load("syntax = \"proto2\"; message Int32ArrayRule { " + rule +
           "} message M { optional Int32ArrayRule rule = 1; }");
      EXPECT_EQ(Fill("M"), "rule { " + filled + "}") << rule;
      EXPECT_LOG(AllOf(StartsWith("6 MSG_INIT_FOR_JSON: "), HasSubstr("Int32ArrayRule"), HasSubstr(odd)));
    }
  }
}

TEST_F(RulesTest, WalksEndAtTypesThatContainThemselves) {
  Load(R"(syntax = "proto3";
    message BoolRule { string description = 1; string recommend = 2; BoolRule inner = 3; }
    message BoolData { bool value = 1; BoolRule rule = 2; BoolData more = 3; }
    message Self { Self self = 1; repeated Self many = 2; BoolData data = 3; }
    message Left { Right right = 1; BoolData data = 2; } message Right { repeated Left lefts = 1; Left left = 2; })");
  const std::string rule = R"(rule { description: "[Bool]" recommend: "None" } more { })";
  EXPECT_EQ(Fill("Self"), "self { } many { } data { " + rule + " }");
  EXPECT_LOG(AllOf(StartsWith("6 MSG_INIT_FOR_JSON: "), HasSubstr("Self")), HasSubstr("BoolData"));
  EXPECT_EQ(Fill("Left"), "right { lefts { } left { } } data { " + rule + " }");
  EXPECT_LOG(HasSubstr("Left"), HasSubstr("BoolData"));

  EXPECT_EQ(Prune("Self", "many { data { rule { } } } data { value: true rule { } more { rule { } } }"),
            "self { } many { data { rule { } } } data { value: true more { rule { } } }");
  EXPECT_EQ(Prune("Left", "right { left { right { } data { rule { } } } }"),
            "right { left { right { } data { } } } data { }");
  EXPECT_LOG();
}

TEST_F(RulesTest, PruningKeepsAllButRulesOfSingularFields) {
  Load(R"(syntax = "proto3";
    message BoolRule { string description = 1; }
    message StructArrayRule { string description = 1; }
    message BoolData { bool value = 1; BoolRule rule = 2; int32 more = 3; }
    message BoolArrayData { repeated bool value = 1; }
    message Int32Data { int32 value = 1; repeated string rule = 2; }
    message Step { BoolData data = 1; StructArrayRule rule = 2; }
    message Box { Step step = 1; BoolRule rule = 2; }
    message M { BoolData data = 1; Box box = 2; StructArrayRule rule = 3; repeated Step steps = 4; BoolArrayData bare = 5;
                string text = 6; Int32Data listed = 7; })");
  for (const auto& [before, after] : Rows{
           {"", "data { } box { step { data { } } rule { } } bare { } listed { }"},
           {"data { value: true rule { description: 'x' } more: 2 } box { step { rule { } } rule { description: 'x' } }"
            " rule { description: 'x' } steps { data { rule { } } rule { } } bare { value: true } text: 'x'"
            " listed { value: 1 rule: 'x' }",
            "data { value: true more: 2 } box { step { data { } } rule { description: \"x\" } }"
            " steps { data { rule { } } rule { } } bare { value: true } text: \"x\" listed { value: 1 }"}}) {
    EXPECT_EQ(Prune("M", before), after);
    EXPECT_EQ(Prune("M", before, 2), after);
  }
}

TEST_F(RulesTest, ATypeWithinItselfIsEnteredAndNothingIsCreatedInIt) {
  Load(R"(syntax = "proto3"; message StructArrayRule { string len = 1; } message Leaf {}
    message Node { StructArrayRule r = 1; Node n = 2; Leaf leaf = 3; })");
  EXPECT_EQ(Prune("Node", ""), "n { } leaf { }");
  for (const int times : {1, 2}) {
    EXPECT_EQ(Prune("Node", "r { len: '1' } n { r { len: '2' } n { r { len: '3' } } }", times), "n { n { } } leaf { }");
  }
}

TEST_F(RulesTest, WhatPruningComesToIsKnownBeforehand) {
  std::string text = "syntax = \"proto3\"; message C { repeated C c = 1; }";
  for (int i = 0; i < 60; ++i) {
    const std::string at = std::to_string(i), next = std::to_string(i + 1);
    text += "message D" + at + " { D" + next + " a = 1; D" + next + " b = 2; }";
    text += "message K" + at + " { K" + next + " a = 1; repeated K" + next + " b = 2; }";
  }
  // Twelve types that all contain one another would be created in 12! ways.
  for (int i = 0; i < 12; ++i) {
    text += "message A" + std::to_string(i) + " { ";
    for (int k = 0; k < 12; ++k)
      text += "A" + std::to_string(k) + " f" + std::to_string(k) + " = " + std::to_string(k + 1) + "; ";
    text += "}";
  }
  Load(text + "message D60 {} message K60 {}");
  struct Row {
    std::string type;
    bool fits;
  };
  for (const Row& row : {Row{"D50", true}, Row{"D0", false}, Row{"K0", true}, Row{"A0", false}, Row{"C", true}}) {
    const MessagePtr message = schema_->New(row.type);
    EXPECT_EQ(ZO_TUNING::internal::PruningFits(*message, message->GetDescriptor()), row.fits) << row.type;
  }
  for (const int below : {100, 101}) {
    const MessagePtr root = schema_->New("C");
    Message* message = root.get();
    const auto* field = message->GetDescriptor()->field(0);
    for (int i = 0; i < below; ++i) message = message->GetReflection()->AddMessage(message, field);
    const MessagePtr copy(root->New());
    EXPECT_EQ(ZO_TUNING::internal::CanBeRead(*root), below == 100);
    EXPECT_EQ(copy->ParseFromString(root->SerializeAsString()), below == 100);
  }
}

}  // namespace
