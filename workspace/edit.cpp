// Tested by tests/workspace/edit_test.cpp.

#include "workspace/edit.h"

#include <algorithm>

namespace zotuning {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;

// How far back the start of a value's line is searched for; longer lines count as a text without lines.
constexpr size_t kMaxLine = 1000;

constexpr std::string_view kIndents = " \t";

struct Span {
  size_t begin;
  size_t end;
};

/// The spans of the members (from their keys on) or elements.
std::vector<Span> SpansOf(const JsonValue& container) {
  std::vector<Span> spans;
  for (const JsonMember member : container.members()) spans.push_back({member.key_begin(), member.value().end()});
  for (const JsonValue element : container.elements()) spans.push_back({element.begin(), element.end()});
  return spans;
}

/// The part after the last line ending, or all of it.
std::string LastLine(std::string_view space) {
  size_t at = space.rfind('\n');
  if (at == std::string_view::npos) return std::string(space);
  if (at > 0 && space[at - 1] == '\r') --at;
  return std::string(space.substr(at));
}

bool HasLine(std::string_view space) { return space.find('\n') != std::string_view::npos; }

/// The indentation in whitespace with a line ending.
std::string IndentOf(std::string_view space) { return std::string(space.substr(space.rfind('\n') + 1)); }

/// The whitespace around the items of one object or list.
struct Gaps {
  std::string_view text;
  std::vector<Span> items;
  size_t open;   ///< after the opening bracket
  size_t close;  ///< of the closing bracket

  size_t Comma(size_t i) const { return text.find(',', items[i].end); }
  /// After item `i`, up to its comma.
  std::string After(size_t i) const {
    if (i + 1 == items.size()) return "";
    return std::string(text.substr(items[i].end, Comma(i) - items[i].end));
  }
  /// Before item `i`, from the comma or bracket before it.
  std::string Before(size_t i) const {
    const size_t begin = i == 0 ? open : Comma(i - 1) + 1;
    return std::string(text.substr(begin, items[i].begin - begin));
  }
  /// After the last item, including a comma if there is one.
  std::string Tail() const { return std::string(text.substr(items.back().end, close - items.back().end)); }
};

/// The spaces before the first item, before later ones, and before the closing bracket; and what is between key and
/// value.
struct Spacing {
  std::string first;
  std::string later;
  std::string tail;
  std::string colon;
};

}  // namespace

const FieldDescriptor* FieldOfKey(const Descriptor* type, std::string_view key) {
  for (int i = 0; i < type->field_count(); ++i) {
    if (type->field(i)->json_name() == key) return type->field(i);
  }
  return type->FindFieldByName(std::string(key));
}

size_t SchemaPosition(const JsonValue& object, const FieldDescriptor* field) {
  size_t position = 0, count = 0;
  int last = -1;
  std::string scratch;
  for (const JsonMember member : object.members()) {
    const FieldDescriptor* other = FieldOfKey(field->containing_type(), member.key(&scratch));
    ++count;
    if (other == nullptr || other->index() < last || other->index() >= field->index()) continue;
    last = other->index();
    position = count;
  }
  return position;
}

bool IsEditable(const JsonDocument& document) {
  return document.root().is_object() &&
         std::all_of(document.faults().begin(), document.faults().end(),
                     [](const JsonFault& fault) { return fault.lenient || fault.code == Code::kJsonByteOrderMark; });
}

/// How the document formats its lines.
class JsonEdit::Layout {
 public:
  explicit Layout(const JsonDocument& document) : text_(document.text()) {
    const JsonValue root = document.root();
    const size_t line_end = text_.find('\n');
    if (line_end != std::string_view::npos && line_end > 0 && text_[line_end - 1] == '\r') line_end_ = "\r\n";
    if (root.empty()) return;
    const std::vector<Span> items = SpansOf(root);
    const std::string_view first = text_.substr(root.begin() + 1, items[0].begin - root.begin() - 1);
    has_lines_ = HasLine(first);
    if (has_lines_) {
      std::string indent = IndentOf(first), outer;
      if (IsAtLineOf(root.begin(), &outer) && indent.compare(0, outer.size(), outer) == 0)
        indent.erase(0, outer.size());
      if (!indent.empty()) unit_ = indent;
    }
    for (const JsonMember member : root.members()) {
      colon_ = ColonOf(member);
      break;
    }
  }

  bool has_lines() const { return has_lines_; }
  /// Between items in one line.
  std::string Space() const { return colon_.back() == ' ' ? " " : ""; }

  std::string ColonOf(const JsonMember& member) const {
    std::string colon(text_.substr(member.key_end(), member.value().begin() - member.key_end()));
    return HasLine(colon) ? ": " : colon;
  }

  /// As the items of `container` have it, or as new ones in it are to have it.
  Spacing SpacingOf(const JsonValue& container, const Gaps& gaps) const {
    const size_t count = gaps.items.size();
    if (count > 0) {
      const std::string first = gaps.Before(0);
      std::string colon = colon_;
      for (const JsonMember member : container.members()) {
        colon = ColonOf(member);
        break;
      }
      return {first,
              count > 1        ? LastLine(gaps.Before(1))
              : HasLine(first) ? LastLine(first)
                               : Space(),
              gaps.Tail(), colon};
    }
    if (std::string outer; has_lines_ && IsAlone(container, &outer)) {
      const std::string line = line_end_ + outer + unit_;
      return {line, line, line_end_ + outer, colon_};
    }
    return {"", Space(), "", colon_};
  }

  /// Whether `offset` is in a line of bearable length, whose indentation is put into `indent`.
  bool IsAtLineOf(size_t offset, std::string* indent) const {
    size_t begin = offset;
    while (begin > 0 && text_[begin - 1] != '\n') {
      if (offset - begin == kMaxLine) return false;
      --begin;
    }
    const size_t end = std::min(text_.find_first_not_of(kIndents, begin), offset);
    *indent = std::string(text_.substr(begin, end - begin));
    return true;
  }

  /// Whether only its key is before the value on its line; `indent` as above.
  bool IsAlone(const JsonValue& value, std::string* indent) const {
    if (!IsAtLineOf(value.begin(), indent)) return false;
    size_t begin = value.begin();
    while (begin > 0 && text_[begin - 1] != '\n') --begin;
    return text_.substr(begin, value.begin() - begin).find_first_of("{[,") == std::string_view::npos;
  }

  /// `json` with its lines indented below a line with the indentation `indent`.
  std::string Shift(std::string_view json, const std::string& indent) const {
    std::string shifted;
    for (size_t at = 0; at < json.size();) {
      const size_t end = std::min(json.find('\n', at), json.size());
      shifted.append(json.substr(at, end - at));
      if (end == json.size()) break;
      at = std::min(json.find_first_not_of(' ', end + 1), json.size());
      shifted += line_end_ + indent;
      for (size_t level = end + 1; level < at; ++level) shifted += unit_;
    }
    return shifted;
  }

  /// `json` on one line.
  std::string Join(std::string_view json) const {
    std::string joined;
    for (size_t at = 0; at < json.size();) {
      const size_t end = std::min(json.find('\n', at), json.size());
      joined.append(json.substr(at, end - at));
      at = std::min(json.find_first_not_of(" \n", end), json.size());
      if (!joined.empty() && joined.back() == ',') joined += Space();
    }
    return joined;
  }

 private:
  std::string_view text_;
  std::string unit_ = " ";
  std::string line_end_ = "\n";
  std::string colon_ = ": ";
  bool has_lines_ = true;
};

void JsonEdit::Replace(const JsonValue& value, std::string json) {
  replaced_[value.begin()] = {value.end(), std::move(json)};
}

void JsonEdit::RenameKey(const JsonMember& member, std::string_view name) {
  replaced_[member.key_begin()] = {member.key_end(), EncodeJsonString(name)};
}

void JsonEdit::InsertMember(const JsonValue& object, size_t position, std::string_view name, std::string json) {
  ItemsOf(object).inserted.emplace(position, Insertion{EncodeJsonString(name), std::move(json)});
}

void JsonEdit::InsertElement(const JsonValue& list, size_t position, std::string json) {
  ItemsOf(list).inserted.emplace(position, Insertion{"", std::move(json)});
}

/// The changes of one object or list: one splice for each run of removed items and of places to insert at, from the
/// kept item before to that after.
void JsonEdit::SpliceItems(const Items& changed, const Layout& layout, std::vector<Splice>& splices) const {
  const JsonValue& container = changed.container;
  const Gaps gaps{document_.text(), SpansOf(container), container.begin() + 1, container.end() - 1};
  const size_t count = gaps.items.size();

  const Spacing space = layout.SpacingOf(container, gaps);
  const auto item_text = [&](const Insertion& item, const std::string& before) {
    const std::string& lines = HasLine(before) ? before : space.first;
    return before + item.key + (item.key.empty() ? "" : space.colon) +
           (HasLine(lines) ? layout.Shift(item.json, IndentOf(lines)) : layout.Join(item.json));
  };

  // One splice for each run of removed items and of places to insert at, from the kept item before to that after.
  std::vector<size_t> kept;
  for (size_t i = 0; i < count; ++i) {
    if (changed.removed.count(i) == 0) kept.push_back(i);
  }
  auto insertion = changed.inserted.begin();
  bool something = false;  // is before the place reached
  for (size_t k = 0; k <= kept.size(); ++k) {
    const size_t begin = k == 0 ? gaps.open : gaps.items[kept[k - 1]].end;
    const size_t from = k == 0 ? 0 : kept[k - 1] + 1;
    const size_t to = k == kept.size() ? count : kept[k];
    const size_t end = k == kept.size() ? gaps.close : gaps.items[kept[k]].begin;
    std::string inserted;
    const bool after_item = something;
    while (insertion != changed.inserted.end() && (k == kept.size() || insertion->first <= to)) {
      std::string before = space.first;
      if (something) before = to >= 2 ? LastLine(gaps.Before(to - 1)) : space.later;
      if (!inserted.empty()) inserted += ',';
      inserted += item_text(insertion->second, before);
      something = true;
      ++insertion;
    }
    if (from != to || !inserted.empty()) {
      Splice splice{begin, end, ""};
      if (after_item && (!inserted.empty() || k < kept.size())) splice.text = gaps.After(kept[k - 1]) + ",";
      splice.text += inserted;
      if (k < kept.size()) {
        if (!inserted.empty()) splice.text += ',';
        splice.text += !something ? space.first : to == 0 ? space.later : gaps.Before(to);
      } else if (something) {
        splice.text += space.tail;
      }
      splices.push_back(std::move(splice));
    }
    something = true;
  }
}

std::string JsonEdit::Apply() const {
  const std::string_view text = document_.text();
  const Layout layout(document_);
  std::vector<Splice> splices;
  for (const auto& [id, changed] : items_) SpliceItems(changed, layout, splices);
  for (const auto& [begin, replacement] : replaced_) {
    std::string indent;
    const bool lines = layout.has_lines() && layout.IsAtLineOf(begin, &indent);
    splices.push_back(
        {begin, replacement.end, lines ? layout.Shift(replacement.text, indent) : layout.Join(replacement.text)});
  }

  // Of those that start at the same position, insertions come first, then the removal that includes the others.
  std::stable_sort(splices.begin(), splices.end(), [](const Splice& a, const Splice& b) {
    if (a.begin != b.begin) return a.begin < b.begin;
    return (a.begin == a.end) != (b.begin == b.end) ? a.begin == a.end : a.end > b.end;
  });
  std::string result;
  size_t at = 0;
  for (const Splice& splice : splices) {
    if (splice.begin < at) continue;  // inside a removed part
    result.append(text.substr(at, splice.begin - at));
    result += splice.text;
    at = splice.end;
  }
  return result.append(text.substr(at));
}

}  // namespace zotuning
