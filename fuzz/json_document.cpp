// JSON texts through the tool's documents, each in one of these ways: the places of values beside protobuf's verdict,
// the canonical form, a change of single members; and the same bytes as a table and as the words of "set". All in
// memory.

#include "workspace/json_document.h"

#include <google/protobuf/util/json_util.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support.h"
#include "transcode/differential.h"
#include "workspace/assign.h"
#include "workspace/edit.h"
#include "workspace/format.h"
#include "workspace/json_path.h"
#include "workspace/table_text.h"

namespace {

using zofuzz::Require;
using zotuning::JsonDocument;
using zotuning::JsonElements;
using zotuning::JsonFault;
using zotuning::JsonMember;
using zotuning::JsonValue;
using Strings = std::vector<std::string>;

// Deeper texts are read, and not followed by this target.
constexpr size_t kMaxText = 8192;

constexpr char kSchema[] = R"(syntax = "proto3";
  message Rule { string description = 1; int32 col = 2; } message Number { double value = 1; Rule rule = 2; }
  message Row { repeated int32 value = 1; } message Table { repeated float value = 1; Rule rule = 2; }
  message Module { string s = 1; Number n = 2; Table t = 3; repeated Row rows = 4; repeated Module more = 5;
                   map<string, Module> map = 6; repeated string names = 7; })";

const google::protobuf::Descriptor* ModuleType() {
  static const zotest::TextSchema schema(kSchema);
  return schema.Type("Module");
}

/// Keys, strings and brackets, and the numbers where `numbers` says so.
void AppendContents(const JsonValue& value, bool numbers, std::string* text) {
  if (value.is_scalar()) *text += value.is_string() ? value.String() + "\"" : std::string(numbers ? value.raw() : "0");
  if (value.is_object()) *text += '{';
  for (const JsonMember member : value.members()) {
    *text += member.key() + "\":";
    AppendContents(member.value(), numbers, text);
  }
  if (value.is_array()) *text += '[';
  for (const JsonValue element : value.elements()) AppendContents(element, numbers, text);
  *text += ',';
}

std::string Contents(const JsonDocument& document, bool numbers = true) {
  std::string text;
  AppendContents(document.root(), numbers, &text);
  return text;
}

void CheckSpans(const JsonValue& value, size_t size) {
  Require(value.begin() <= value.end() && value.end() <= size, "a value has a place in the text");
  size_t last = value.begin(), count = 0;
  const auto check_inner = [&](size_t begin, const JsonValue& inner) {
    Require(last <= begin && inner.end() <= value.end(), "what is within a value stands in it, in order");
    CheckSpans(inner, size);
    last = inner.end();
    ++count;
  };
  for (const JsonMember member : value.members()) check_inner(member.key_begin(), member.value());
  for (const JsonValue element : value.elements()) check_inner(element.begin(), element);
  Require(count == value.size() && value.empty() == (count == 0), "the size of a value is what is in it");
}

/// Whether protobuf's parser takes the grammar of the text; keys that stand twice are another matter.
bool Reads(const std::string& text) {
  static google::protobuf::DynamicMessageFactory factory;
  static const auto* const prototype = factory.GetPrototype(
      google::protobuf::DescriptorPool::generated_pool()->FindMessageTypeByName("google.protobuf.Struct"));
  const std::unique_ptr<google::protobuf::Message> any(prototype->New());
  const auto status = google::protobuf::util::JsonStringToMessage(text, any.get());
  return status.ok() || std::string(status.message()).find("Repeated map key") != std::string::npos;
}

void CheckReading(const JsonDocument& document) {
  const std::vector<JsonFault>& faults = document.faults();
  if (document.root()) CheckSpans(document.root(), document.text().size());
  size_t last = 0;
  for (const JsonFault& fault : faults) {
    Require(last <= fault.offset && fault.offset <= document.text().size(), "faults have places, in order");
    last = fault.offset;
    (void)document.PositionOf(fault.offset);
    (void)document.ValueAt(fault.offset);
  }
  const bool strict = std::all_of(faults.begin(), faults.end(), [](const JsonFault& fault) { return fault.lenient; });
  Require(document.ok() == strict, "a text is taken unless a fault is more than lenient");
  // The parser reads hexadecimal numbers with a point or exponent by accident, and "-.5" by the locale.
  const std::string_view text = document.text();
  if (text.find("0x") != text.npos || text.find("0X") != text.npos || text.find("-.") != text.npos) return;
  if (zofuzz::Way(text, 32) > 2) return;  // protobuf takes most of the time
  Require((document.ok() && document.root().is_object()) == Reads(std::string(text)), "protobuf says the same");
}

void CheckForm(const JsonDocument& document) {
  const auto form = FormatJson(document, ModuleType());
  if (!form) return;
  Require(document.ok(), "what is broken has no canonical form");
  const JsonDocument again(*form);
  Require(again.faults().empty(), "the canonical form is strict JSON");
  Require(FormatJson(again, ModuleType()) == form, "the canonical form is its own");
  const bool strict = document.faults().empty();
  const JsonDocument line(OneLine(document.root()));
  Require(line.faults().empty(), "a line is strict JSON");
  Require(Contents(line, strict) == Contents(document, strict), "a line says the same");
}

/// Changes a member of the root, chosen by the text, or removes it, and appends one.
void CheckEdit(const JsonDocument& document) {
  if (!IsEditable(document)) return;
  std::vector<JsonMember> members;
  for (const JsonMember member : document.root().members()) members.push_back(member);
  const size_t at = members.empty() ? 0 : zofuzz::Way(document.text(), members.size());
  const bool removes = !members.empty() && document.text().size() % 2 == 0;
  zotuning::JsonEdit edit(document);
  std::string expected = "{";
  for (size_t i = 0; i < members.size(); ++i) {
    if (i == at && removes) continue;
    expected += members[i].key() + "\":";
    if (i == at)
      expected += "[1,2,,";
    else
      AppendContents(members[i].value(), true, &expected);
  }
  if (removes) edit.RemoveMember(document.root(), at);
  if (!removes && !members.empty()) edit.Replace(members[at].value(), "[\n  1,\n  2\n]");
  edit.AppendMember(document.root(), "new \"one\"", "true");
  const JsonDocument changed(edit.Apply());
  Require(IsEditable(changed), "a text that is changed can be read");
  Require(Contents(changed) == expected + "new \"one\"\":true,,", "what is not changed stays");
}

void CheckWords(std::string_view text) {
  std::string why;
  if (const auto path = zotuning::JsonPath::Parse(text, &why)) {
    const auto again = zotuning::JsonPath::Parse(path->ToString());
    Require(again.has_value() && *again == *path, "a path reads as it is printed");
  }
  if (const auto set = zotuning::ParseAssignment(text, &why)) {
    Require(text.find(set->value) != text.npos, "a value is what the word says");
    Require(zotuning::PathPattern::Parse(set->path.text(), &why).has_value(), "a path of an assignment is one");
  } else {
    Require(!why.empty(), "what is refused is told why");
  }

  zotuning::CollectingSink sink;
  std::vector<std::vector<zotuning::Cell>> rows, again;
  const bool read = ReadTable(text, ',', "t.csv", rows, sink);
  Require(read == sink.ok(), "a table that cannot be read is an error");
  std::string written;
  for (const auto& row : rows) {
    Strings cells;
    for (const zotuning::Cell& cell : row) cells.push_back(cell.text);
    zotuning::WriteRow(cells, ',', &written);
  }
  Require(ReadTable(written, ',', "t.csv", again, sink) && rows.size() == again.size(),
          "a table reads as it is written");
  for (size_t i = 0; i < rows.size(); ++i) {
    const auto same = [](const zotuning::Cell& a, const zotuning::Cell& b) { return a.text == b.text; };
    Require(std::equal(rows[i].begin(), rows[i].end(), again[i].begin(), again[i].end(), same),
            "cells read as they are written");
  }
}

}  // namespace

void zofuzz::Run(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const size_t way = Way(text, 4);
  if (way == 0) return CheckWords(text);
  const JsonDocument document{std::string(text)};
  if (size > kMaxText) return;
  if (way == 1) CheckReading(document);
  if (way == 2) CheckForm(document);
  if (way == 3) CheckEdit(document);
}

void zofuzz::Seeds(const std::string& dir) {
  const char* const texts[] = {
      R"({"s": "x\u00e9\n", "n": {"value": -1.5e+3, "rule": {"description": "d", "col": 2}}, "map": {"a": {"s": null}}})",
      "{\n  \"t\": {\n    \"value\": [1, 2,\n 3, 4],\n    \"rule\": {\"col\": 2}\n  },\n  \"rows\": [{\"value\": [1, 2]}]\n}\n",
      "{'s': 'one', names: [\"a\", 'b',], more: [{}, {\"n\": {}}, ], }",
      "{\"s\": \"1\" \"n\": {\"value\": 0,5},\n<<<<<<< a\n\"s\": \"2\",\n=======\n>>>>>>> b\n // c\n}",
      "more[*].n.value*=1.25",
      "rows[3][4:8]+=2",
      "[\"odd name\"].x[2]=[1, {\"a\": true}]",
      "1,2,\"a \"\"quoted\"\" one\"\r\n,\"\",3\n",
  };
  // The way that a text goes follows from all of it.
  for (size_t i = 0; i < std::size(texts); ++i) {
    for (size_t spaces = 0; spaces < 8; ++spaces)
      Write(dir + "/" + std::to_string(i) + "-" + std::to_string(spaces), texts[i] + std::string(spaces, ' '));
  }
}
