// Edits to JSON texts: what is named changes, everything else stays byte for byte.

#include "workspace/edit.h"

#include <google/protobuf/descriptor.pb.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "transcode/random_json.h"
#include "workspace/json_path.h"

namespace zotest {
namespace {

using zotuning::JsonDocument;
using zotuning::JsonEdit;
using zotuning::JsonMember;
using zotuning::JsonPath;
using zotuning::JsonValue;

JsonValue At(const JsonDocument& document, const char* path) { return JsonPath::Parse(path)->Find(document.root()); }

/// The edit to a text: "PATH = JSON", "PATH ~ NEW_KEY", "PATH + POSITION [NAME] JSON", "PATH - POSITION".
std::string Edited(const std::string& text, const std::vector<std::string>& orders) {
  const JsonDocument document(text);
  EXPECT_TRUE(zotuning::IsEditable(document)) << text;
  JsonEdit edit(document);
  for (const std::string& order : orders) {
    const size_t sign = order.find(' ');
    const std::string path = order.substr(0, sign), rest = order.substr(std::min(order.size(), sign + 3));
    const JsonValue value = At(document, path == "." ? "" : path.c_str());
    EXPECT_TRUE(value) << path << " in " << text;
    if (!value) return "";
    const size_t word = rest.find(' ');
    switch (order[sign + 1]) {
      case '=':
        edit.Replace(value, rest);
        break;
      case '~': {
        const std::string key = path.substr(path.rfind('.') + 1);
        const JsonValue object = At(document, key == path ? "" : path.substr(0, path.rfind('.')).c_str());
        for (const JsonMember member : object.members()) {
          if (member.key() == key) edit.RenameKey(member, rest);
        }
        break;
      }
      case '+':
        if (value.is_array()) {
          edit.InsertElement(value, std::stoul(rest), rest.substr(word + 1));
        } else {
          const size_t json = rest.find(' ', word + 1);
          edit.InsertMember(value, std::stoul(rest), rest.substr(word + 1, json - word - 1), rest.substr(json + 1));
        }
        break;
      case '-':
        value.is_array() ? edit.RemoveElement(value, std::stoul(rest)) : edit.RemoveMember(value, std::stoul(rest));
        break;
    }
  }
  return edit.Apply();
}

TEST(JsonEdit, ChangesWhatIsNamedAlone) {
  struct Row {
    const char* text;
    std::vector<std::string> orders;
    const char* result;
  };
  const Row rows[] = {
      // Values and keys.
      {"{ 'a' :1.50,\tb:[ 1e2 ,2]\v}  ", {"b[1] = 3.0"}, "{ 'a' :1.50,\tb:[ 1e2 ,3.0]\v}  "},
      {"{'a' : 1, \"b\": 1}", {"a ~ c\"d", "b = {\"x\": [1, 2]}"}, "{\"c\\\"d\" : 1, \"b\": {\"x\": [1, 2]}}"},
      {"\xef\xbb\xbf{\"a\":1}", {"a = 2"}, "\xef\xbb\xbf{\"a\":2}"},
      // Members into one line, at the start, between others, and at the end.
      {"{\"a\":1}", {". + 0 x 0", ". + 1 y 2"}, "{\"x\":0,\"a\":1,\"y\":2}"},
      {"{ \"a\": 1, \"b\": 2 }",
       {". + 0 x 0", ". + 1 y [1,2]", ". + 9 z {\n \"k\": 1\n}"},
       "{ \"x\": 0, \"a\": 1, \"y\": [1,2], \"b\": 2, \"z\": {\"k\": 1} }"},
      {"{}", {". + 0 x 0", ". + 0 y 1"}, "{\n \"x\": 0,\n \"y\": 1\n}"},
      {"{\"l\":[],\"o\":{}}", {"l + 0 1", "l + 0 2", "o + 0 k 3"}, "{\"l\":[1,2],\"o\":{\"k\":3}}"},
      // Lines: indentation, line endings and colons as around them.
      {"{\r\n\t\"a\" : 1\r\n}\r\n",
       {". + 1 x {\n \"k\": [\n  1\n ]\n}"},
       "{\r\n\t\"a\" : 1,\r\n\t\"x\" : {\r\n\t\t\"k\": [\r\n\t\t\t1\r\n\t\t]\r\n\t}\r\n}\r\n"},
      {"{\n    \"a\": {},\n\n    \"b\": [\n        {\"c\": 1}\n    ]\n}",
       {"a + 0 x 1", "b + 1 {}", "b[0] + 1 d {\n \"e\": 2\n}", ". + 1 y 2"},
       "{\n    \"a\": {\n        \"x\": 1\n    },\n    \"y\": 2,\n\n    \"b\": [\n        {\"c\": 1, \"d\": {\"e\": 2}},\n"
       "        {}\n    ]\n}"},
      {"{\n  \"a\": 1\n}", {"a = [\n 1,\n 2\n]"}, "{\n  \"a\": [\n    1,\n    2\n  ]\n}"},
      {"{\n \"t\": [\n  1, 2,\n  3, 4\n ]\n}", {"t + 2 0", "t + 4 5"}, "{\n \"t\": [\n  1, 2, 0,\n  3, 4, 5\n ]\n}"},
      // Removals include their comma and line; no comma is left at the end.
      {"{\"a\":1, \"b\":2 , \"c\":3 }", {". - 0"}, "{\"b\":2 , \"c\":3 }"},
      {"{\"a\":1, \"b\":2 , \"c\":3 }", {". - 1"}, "{\"a\":1, \"c\":3 }"},
      {"{\"a\":1, \"b\":2 , \"c\":3 }", {". - 2"}, "{\"a\":1, \"b\":2 }"},
      {"{\n \"a\": [1, 2, 3],\n \"b\": 1\n}", {"a - 0", "a - 2", ". - 1", "a - 7"}, "{\n \"a\": [2]\n}"},
      {"{\n \"a\": [\n  1,\n  2,\n ]\n}", {"a - 0", "a - 1"}, "{\n \"a\": []\n}"},
      {"{\n \"a\": 1,\n \"b\": 2\n}", {". - 0", ". - 1"}, "{}"},
      // Many at once: in place of what is removed, and inside it.
      {"{\n \"a\": 1,\n \"b\": {\"c\": 2}\n}",
       {". - 0", ". + 0 x 7", "b.c = 3"},
       "{\n \"x\": 7,\n \"b\": {\"c\": 3}\n}"},
      {"{\n \"a\": 1,\n \"b\": {\"c\": 2}\n}",
       {". - 1", "b.c = 3", "b + 0 d 1", ". + 2 e 5"},
       "{\n \"a\": 1,\n \"e\": 5\n}"},
      {"{\"a\": {\"b\": [1]}}", {"a = 0", "a.b = 1", "a.b + 0 2"}, "{\"a\": 0}"},
      {"{\"a\": [1, 2]}", {"a - 0", "a - 1", "a + 1 8", "a + 2 9"}, "{\"a\": [8, 9]}"},
  };
  for (const Row& row : rows) EXPECT_EQ(Edited(row.text, row.orders), row.result) << row.text;
}

/// A value as a tree, with its own text if it is a scalar.
struct Tree {
  std::string scalar;
  bool list = false;
  std::vector<std::pair<std::string, Tree>> items;

  std::string Text() const {
    if (!scalar.empty()) return scalar;
    std::string text;
    for (const auto& [key, value] : items) text += (text.empty() ? "" : ",") + key + ":" + value.Text();
    return (list ? "[" : "{") + text + "}";
  }
};

Tree TreeOf(const JsonValue& value) {
  Tree tree;
  tree.list = value.is_array();
  if (!value.is_object() && !value.is_array()) tree.scalar = std::string(value.raw());
  for (const JsonMember member : value.members()) tree.items.emplace_back(member.key(), TreeOf(member.value()));
  for (const JsonValue element : value.elements()) tree.items.emplace_back("", TreeOf(element));
  return tree;
}

/// Picks edits for `value` and its contents, and makes them in `tree`.
void ChangeAtRandom(const JsonValue& value, Random& random, JsonEdit* edit, Tree* tree) {
  size_t i = 0;
  const auto change = [&](const JsonValue& inner) {
    if (inner.is_object() || inner.is_array()) {
      ChangeAtRandom(inner, random, edit, &tree->items[i].second);
    } else if (random.OneIn(5)) {
      edit->Replace(inner, "77");
      tree->items[i].second.scalar = "77";
    }
    ++i;
  };
  for (const JsonMember member : value.members()) {
    if (random.OneIn(8)) {
      edit->RenameKey(member, "renamed");
      tree->items[i].first = "renamed";
    }
    change(member.value());
  }
  for (const JsonValue element : value.elements()) change(element);
  std::vector<std::pair<std::string, Tree>> items;
  for (size_t position = 0; position <= tree->items.size(); ++position) {
    for (size_t count = random.OneIn(6) ? 1 + random.Below(2) : 0; count > 0; --count) {
      const std::string json = "{\n \"k\": [\n  1,\n  2\n ]\n}";
      value.is_array() ? edit->InsertElement(value, position, json) : edit->InsertMember(value, position, "new", json);
      items.emplace_back(value.is_array() ? "" : "new", TreeOf(JsonDocument(json).root()));
    }
    if (position == tree->items.size()) break;
    if (random.OneIn(6)) {
      value.is_array() ? edit->RemoveElement(value, position) : edit->RemoveMember(value, position);
    } else {
      items.push_back(tree->items[position]);
    }
  }
  tree->items = std::move(items);
}

TEST(JsonEdit, ManyChangesOfAnyTextComeToWhatTheyShould) {
  Random random(11);
  const auto* type = google::protobuf::DescriptorProto::descriptor();
  int changed_texts = 0;
  for (int round = 0; round < 300; ++round) {
    const std::string text = JsonMaker(random).Text(type);
    const JsonDocument document(text);
    if (!zotuning::IsEditable(document)) continue;  // some numbers do not fit any type
    JsonEdit edit(document);
    ASSERT_EQ(edit.Apply(), text);
    Tree tree = TreeOf(document.root());
    ChangeAtRandom(document.root(), random, &edit, &tree);
    const JsonDocument changed(edit.Apply());
    ASSERT_TRUE(changed.ok() && changed.faults().size() == document.faults().size())
        << TreeOf(changed.root()).Text() << "\n"
        << tree.Text();
    ASSERT_TRUE(TreeOf(changed.root()).Text() == tree.Text()) << text << "\n" << changed.text();
    ++changed_texts;
  }
  EXPECT_GT(changed_texts, 100);
}

TEST(JsonEdit, FieldsGoWhereTheSchemaHasThem) {
  const auto* type = google::protobuf::FieldDescriptorProto::descriptor();
  struct Row {
    const char* text;
    const char* field;
    const char* result;
  };
  const Row rows[] = {
      {"{\"name\":1,\"label\":2,\"options\":3}", "number", "{\"name\":1,\"number\":0,\"label\":2,\"options\":3}"},
      {"{\"label\":2}", "name", "{\"name\":0,\"label\":2}"},
      {"{\"typeName\":2,\"unknown\":1}", "json_name", "{\"typeName\":2,\"json_name\":0,\"unknown\":1}"},
      {"{\"options\":2,\"name\":1}", "number", "{\"options\":2,\"name\":1,\"number\":0}"},
  };
  for (const Row& row : rows) {
    const JsonDocument document(row.text);
    JsonEdit edit(document);
    edit.InsertField(document.root(), type->FindFieldByName(row.field), "0");
    EXPECT_EQ(edit.Apply(), row.result);
  }
}

}  // namespace
}  // namespace zotest
