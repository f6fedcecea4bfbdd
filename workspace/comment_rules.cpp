// Tested by tests/workspace/rule_text_test.cpp.

#include "workspace/comment_rules.h"

#include "workspace/edit.h"
#include "workspace/json_document.h"
#include "workspace/rule_text.h"
#include "workspace/type_table.h"

namespace zotuning {
namespace {

using google::protobuf::Descriptor;

class CommentRules {
 public:
  explicit CommentRules(const JsonDocument& document) : edit_(document) {}

  void Object(const JsonValue& object, const TypeTable& type) {
    for (const JsonMember member : object.members()) {
      const auto found = type.by_key.find(member.key());
      if (found == type.by_key.end()) continue;
      const FieldEntry& field = type.fields[found->second];
      if (field.message == nullptr || field.map || field.message->is_rule) continue;
      const JsonValue value = member.value();
      if (value.is_object()) {
        if (field.message->is_parameter()) Rule(value.Find("rule"), CommentOf(field.descriptor));
        Object(value, *field.message);
      }
      for (const JsonValue element : value.elements()) Object(element, *field.message);
    }
    for (const ListRule& pair : type.list_rules) {
      Rule(object.Find(type.fields[pair.rule].name()), CommentOf(type.fields[pair.list].descriptor));
    }
  }

  std::string Text() const { return edit_.Apply(); }

 private:
  void Rule(const JsonValue& rule, const std::string& comment) {
    const CommentRule said = ReadCommentRule(comment);
    for (const JsonMember member : rule.members()) {
      const std::string part = member.key();
      const JsonValue value = member.value();
      if (part == "recommend" && said.range) Set(value, said.range->text);
      if (part == "len" && said.sizes.length) Set(value, std::to_string(*said.sizes.length));
      if (part == "row" && said.sizes.rows) Set(value, std::to_string(*said.sizes.rows));
      if (part == "col" && said.sizes.columns) Set(value, std::to_string(*said.sizes.columns));
      if (part == "description" && !said.unit.empty()) Set(value, value.String() + " " + said.unit);
    }
  }

  void Set(const JsonValue& value, const std::string& text) {
    if (value.is_string()) edit_.Replace(value, EncodeJsonString(text));
  }

  JsonEdit edit_;
};

}  // namespace

std::string WithCommentRules(const std::string& template_text, const Descriptor* type) {
  const JsonDocument document(template_text);
  TypeTables types;
  CommentRules rules(document);
  rules.Object(document.root(), types.Get(type));
  return rules.Text();
}

}  // namespace zotuning
