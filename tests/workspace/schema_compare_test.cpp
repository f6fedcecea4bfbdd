// Schema changes, by their effect on bins.

#include "workspace/schema_compare.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zotest {
namespace {

using zotuning::CollectingSink;
using zotuning::SchemaChange;
using zotuning::SchemaRevision;

constexpr char kTypes[] = R"(syntax = "proto3"; package ZO_TUNING;
  message FloatRule { string description = 1; }
  message FloatData { float value = 1; FloatRule rule = 2; }
  message DoubleData { double value = 1; FloatRule rule = 2; }
  message AlsoFloat { float value = 1; }
  message StructArrayRule { string len = 1; }
  enum A { ZERO = 0; ONE = 1; }
  enum B { NIL = 0; UNIT = 1; TWO = 2; }
  enum C { NUL = 0; }
)";

std::unique_ptr<SchemaRevision> SchemaWith(const std::string& fields) {
  CollectingSink sink;
  auto schema = SchemaRevision::FromTexts({{"a.proto", kTypes + ("message M { " + fields + " }")}}, "", sink);
  for (const zotuning::Diagnostic& fault : sink.diagnostics()) ADD_FAILURE() << fields << ": " << fault.message;
  return schema;
}

/// "BREAKING_RULE", "(COMPATIBLE_RULE)"
std::string Compare(const std::string& old_fields, const std::string& new_fields) {
  const auto old_schema = SchemaWith(old_fields), new_schema = SchemaWith(new_fields);
  std::vector<SchemaChange> changes;
  zotuning::CompareTypes(old_schema->FindType("M"), new_schema->FindType("M"), changes);
  std::string text;
  for (const SchemaChange& change : changes) {
    text += (text.empty() ? "" : " ") + (change.breaks ? change.rule : "(" + change.rule + ")") + ":" + change.name;
  }
  return text;
}

TEST(SchemaCompare, TellsWhatBreaksFromWhatDoesNot) {
  const struct {
    const char* old_fields;
    const char* new_fields;
    const char* changes;
  } rows[] = {
      {"float a = 1;", "float a = 1;", ""},
      {"float a = 1;", "float a = 1; float b = 2;", "():M.b"},
      {"float a = 1; float b = 2;", "float a = 1;", "(FIELD_NO_DELETE):M.b"},
      {"float a = 1;", "float a = 2;", "FIELD_SAME_NUMBER:M.a"},
      {"float a = 1; float b = 2;", "float a = 2; float b = 1;",
       "FIELD_SAME_NUMBER:M.a FIELD_SAME_NAME:M.b FIELD_SAME_NUMBER:M.b FIELD_SAME_NAME:M.a"},
      {"float a = 1;", "float b = 1;", "(FIELD_SAME_NAME):M.b"},
      {"float a = 1;", "string b = 1;", "(FIELD_SAME_NAME):M.b FIELD_SAME_TYPE:M.b"},
      {"int32 a = 1;", "uint64 a = 1;", "(FIELD_SAME_TYPE):M.a"},
      {"int32 a = 1;", "sint32 a = 1;", "FIELD_SAME_TYPE:M.a"},
      {"float a = 1;", "double a = 1;", "FIELD_SAME_TYPE:M.a"},
      {"float a = 1;", "FloatData a = 1;", "FIELD_SAME_TYPE:M.a"},
      {"float a = 1;", "repeated float a = 1;", "FIELD_SAME_CARDINALITY:M.a"},
      {"float a = 1;", "oneof o { float a = 1; }", "FIELD_SAME_ONEOF:M.a"},
      // Types by their contents, each place separately.
      {"FloatData a = 1; FloatData b = 2;", "DoubleData a = 1; DoubleData b = 2;",
       "FIELD_SAME_TYPE:M.a FIELD_SAME_TYPE:M.b"},
      {"FloatData a = 1;", "AlsoFloat a = 1;", "(FIELD_SAME_TYPE):M.a"},
      // What packing prunes.
      {"StructArrayRule r = 1;", "StructArrayRule r = 2;", ""},
      {"A a = 1;", "B a = 1;", "(ENUM_VALUE_SAME_NAME):B.NIL (ENUM_VALUE_SAME_NAME):B.UNIT ():B.TWO"},
      {"A a = 1;", "C a = 1;", "(ENUM_VALUE_SAME_NAME):C.NUL ENUM_VALUE_NO_DELETE:A.ONE"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Compare(row.old_fields, row.new_fields), row.changes) << row.old_fields << " -> " << row.new_fields;
  }
}

}  // namespace
}  // namespace zotest
