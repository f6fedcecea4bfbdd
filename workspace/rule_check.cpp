#include "workspace/rule_check.h"

#include <charconv>
#include <optional>
#include <string>
#include <string_view>

#include "transcode/json_lexer.h"
#include "workspace/rule_text.h"

namespace zotuning {
namespace {

// For one parameter; the others are counted.
constexpr size_t kMaxOutside = 10;

std::string Amount(size_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

/// One rule and its value.
class RuleCheck {
 public:
  RuleCheck(const JsonValue& rule, const PathFrame& rule_at, RuleOptions options, Findings& findings)
      : rule_(rule), rule_at_(rule_at), options_(options), findings_(findings) {
    for (const JsonMember member : rule.members()) {
      if (member.KeyIs("recommend")) recommend_ = member.value();
      if (member.KeyIs("len")) len_ = member.value();
      if (member.KeyIs("row")) row_ = member.value();
      if (member.KeyIs("col")) col_ = member.value();
      if (member.KeyIs("order")) order_ = member.value();
    }
  }

  void CheckValue(const JsonValue& value, const PathFrame& at) {
    if (options_.values) {
      const std::optional<ValueRange> range = ReadRecommended();
      outside_ = 0;
      CheckNumbers(value, at, range ? &*range : nullptr, 0);
      if (outside_ > kMaxOutside) {
        findings_.Add(Code::kRuleRange, value.begin(), value.begin() + 1, at.Text(),
                      Amount(outside_ - kMaxOutside, "more value") + " of " + Quoted(at.Text()) + " " +
                          (outside_ - kMaxOutside == 1 ? "is" : "are") + " outside of " + range->text);
      }
      CheckLength(value, at, "value");
      CheckTable(value, at);
      CheckOrder(value, at);
    }
    if (options_.templates) CheckTemplate();
  }

  void CheckList(const JsonValue& list, const PathFrame& at) {
    if (options_.values) {
      CheckLength(list, at, "element");
      const std::optional<ValueRange> range = ReadRecommended();
      const size_t size = list.size();
      const double count = static_cast<double>(size);
      if (range && list.is_array() && list.complete() && (count < range->low || count > range->high)) {
        findings_.Add(Code::kRuleRange, list.begin(), list.begin() + 1, at.Text(),
                      Quoted(at.Text()) + " has " + Amount(size, "element") + ", outside of " + range->text,
                      "its rule " + Quoted(rule_at_.Text()) + " recommends that range");
      }
    }
    if (options_.templates) CheckTemplate();
  }

 private:
  void AddUnclear(const char* part, const JsonValue& value, const std::string& hint) {
    const std::string path = PathFrame::Member(rule_at_, part).Text();
    findings_.Add(Code::kRuleText, value.begin(), value.end(), path,
                  Quoted(path) + " cannot be understood: " + Excerpt(value.raw(), 60), hint);
  }

  /// Texts other than ranges are for people.
  std::optional<ValueRange> ReadRecommended() {
    if (!recommend_.is_string()) return std::nullopt;
    RangeFault fault;
    std::optional<ValueRange> range = ReadRange(recommend_.String(), &fault);
    if (fault == RangeFault::kOrder) {
      AddUnclear("recommend", recommend_, "the first number is larger than the second");
    } else if (fault == RangeFault::kForm) {
      AddUnclear("recommend", recommend_, "LOW..HIGH is expected, for example 0..1");
    }
    return range;
  }

  /// A size; nothing if none is given.
  std::optional<size_t> ReadPart(const char* part, const JsonValue& value) {
    if (!value.is_string() && !value.is_number()) return std::nullopt;
    bool unclear = false;
    const std::optional<size_t> size =
        ReadSize(value.is_string() ? value.String() : std::string(value.raw()), &unclear);
    if (unclear) AddUnclear(part, value, "a whole number is expected, or -1 for \"not fixed yet\"");
    return size;
  }

  /// Sizes that the recommendation gives, as in "0..511, 9 elements".
  Sizes RecommendedSizes() const { return recommend_.is_string() ? ReadSizes(recommend_.String()) : Sizes(); }

  void CheckNumbers(const JsonValue& value, const PathFrame& at, const ValueRange* range, int depth) {
    constexpr int kMaxDepth = 8;
    switch (value.kind()) {
      case JsonKind::kNumber:
      case JsonKind::kString:
        if (range != nullptr || value.is_string()) CheckNumber(value, at, range);
        return;
      case JsonKind::kArray: {
        size_t index = 0;
        for (const JsonValue element : value.elements()) {
          const size_t here = index++;
          if (element.is_number() && (range == nullptr || IsInside(element, *range))) continue;
          CheckNumbers(element, PathFrame::Element(at, here), range, depth);
        }
        return;
      }
      case JsonKind::kObject:  // rows
        for (const JsonMember member : value.members()) {
          std::string scratch;
          const std::string_view key = member.key(&scratch);
          if (key == "rule" || key == "description" || depth >= kMaxDepth) continue;
          CheckNumbers(member.value(), PathFrame::Member(at, key), range, depth + 1);
        }
        return;
      default:
        return;
    }
  }

  static double NumberOf(const JsonValue& value) {
    double number = 0;
    if (ZO_TUNING::internal::ReadReal(value.text(), &number) != nullptr) return number;
    const std::string_view raw = value.raw();
    std::from_chars(raw.data(), raw.data() + raw.size(), number);
    return number;
  }

  static bool IsInside(const JsonValue& value, const ValueRange& range) {
    const double number = NumberOf(value);
    return number >= range.low && number <= range.high;
  }

  void CheckNumber(const JsonValue& value, const PathFrame& at, const ValueRange* range) {
    double number = 0;
    if (value.is_number()) {
      number = NumberOf(value);
    } else {
      std::string scratch;
      const std::string_view text = value.String(&scratch);
      if (text == "NaN" || text == "Infinity" || text == "-Infinity") {
        findings_.Add(Code::kRuleNotFinite, value.begin(), value.end(), at.Text(),
                      Quoted(at.Text()) + " is " + std::string(text));
        return;
      }
      const std::optional<double> read = ToNumber(text);
      if (!read) return;
      number = *read;
    }
    if (range == nullptr || (number >= range->low && number <= range->high)) return;
    if (++outside_ > kMaxOutside) return;
    findings_.Add(Code::kRuleRange, value.begin(), value.end(), at.Text(),
                  Quoted(at.Text()) + " is " + Excerpt(value.raw(), 40) + ", outside of " + range->text,
                  "its rule " + Quoted(rule_at_.Text()) + " recommends that range");
  }

  void CheckLength(const JsonValue& list, const PathFrame& at, const char* noun) {
    std::optional<size_t> wanted = ReadPart("len", len_);
    if (!wanted) wanted = RecommendedSizes().length;
    if (!wanted || !list.is_array() || !list.complete() || list.size() == *wanted) return;
    findings_.Add(
        Code::kRuleLength, list.begin(), list.begin() + 1, at.Text(),
        Quoted(at.Text()) + " has " + Amount(list.size(), noun) + ", its rule says " + std::to_string(*wanted),
        "correct the list or " + Quoted(PathFrame::Member(rule_at_, "len").Text()));
  }

  /// The list of numbers of a row that is an object; the row itself if it is a list.
  static JsonValue RowList(const JsonValue& row) {
    if (row.is_array()) return row;
    for (const JsonMember member : row.members()) {
      if (member.value().is_array()) return member.value();
    }
    return JsonValue();
  }

  void CheckTable(const JsonValue& table, const PathFrame& at) {
    std::optional<size_t> rows = ReadPart("row", row_), columns = ReadPart("col", col_);
    if (!rows && !columns) {
      rows = RecommendedSizes().rows;
      columns = RecommendedSizes().columns;
    }
    if (!table.is_array() || !table.complete() || (!row_ && !col_)) return;
    const size_t count = table.size();
    const bool flat = count > 0 && !RowList(*table.elements().begin());
    if (flat || count == 0) {
      CheckFlatTable(table, at, count, rows, columns);
      return;
    }
    if (rows && *rows != count) {
      AddTable(table, at,
               Quoted(at.Text()) + " has " + Amount(count, "row") + ", its rule says " + std::to_string(*rows));
    }
    // Without a number of columns, the first row gives it.
    std::optional<size_t> width = columns;
    size_t index = 0;
    for (const JsonValue row : table.elements()) {
      const PathFrame row_at = PathFrame::Element(at, index++);
      const JsonValue list = RowList(row);
      if (!list || !list.complete()) continue;
      const size_t size = list.size();
      if (!width) width = size;
      if (size == *width) continue;
      AddTable(list, row_at,
               Quoted(row_at.Text()) + " has " + Amount(size, "column") + ", " +
                   (columns ? "its rule says " : "the first row has ") + std::to_string(*width));
    }
  }

  /// Row by row.
  void CheckFlatTable(const JsonValue& table, const PathFrame& at, size_t count, std::optional<size_t> rows,
                      std::optional<size_t> columns) {
    std::string wanted;
    if (rows && columns) {
      // Compared by division, since rules may contain any number.
      const bool fits = *columns == 0 ? count == 0 : count % *columns == 0 && count / *columns == *rows;
      if (!fits) wanted = std::to_string(*rows) + " rows of " + std::to_string(*columns);
    } else if (rows || columns) {
      const size_t part = rows ? *rows : *columns;
      if (part == 0 ? count > 0 : count % part != 0) {
        wanted = rows ? Amount(*rows, "row") : "rows of " + std::to_string(*columns);
      }
    }
    if (wanted.empty()) return;
    AddTable(table, at, Quoted(at.Text()) + " has " + Amount(count, "value") + ", its rule says " + wanted);
  }

  void AddTable(const JsonValue& value, const PathFrame& at, std::string message) {
    findings_.Add(Code::kRuleTable, value.begin(), value.begin() + 1, at.Text(), std::move(message),
                  "correct the table, or 'row' and 'col' of " + Quoted(rule_at_.Text()));
  }

  /// 1: no value is smaller than the one before it; -1: none is larger. Only the first violation is reported.
  void CheckOrder(const JsonValue& list, const PathFrame& at) {
    const bool ascending = order_.is_number() && order_.raw() == "1";
    if (!list.is_array() || !(ascending || (order_.is_number() && order_.raw() == "-1"))) return;
    std::optional<double> before;
    size_t index = 0;
    for (const JsonValue element : list.elements()) {
      const PathFrame here = PathFrame::Element(at, index++);
      const std::optional<double> number = element.is_number()   ? std::optional<double>(NumberOf(element))
                                           : element.is_string() ? ToNumber(element.String())
                                                                 : std::nullopt;
      if (number && before && (ascending ? *number < *before : *number > *before)) {
        findings_.Add(Code::kRuleOrder, element.begin(), element.end(), here.Text(),
                      Quoted(here.Text()) + " is " + Excerpt(element.raw(), 40) + ", but its rule says that values " +
                          (ascending ? "ascend" : "descend"),
                      "correct the list or " + Quoted(PathFrame::Member(rule_at_, "order").Text()));
        return;
      }
      before = number;
    }
  }

  void CheckTemplate() {
    std::string parts;
    const auto look = [&](const char* name, const JsonValue& part, std::string_view of_template) {
      if (part.is_string() && part.String() == of_template) parts += (parts.empty() ? "" : ", ") + std::string(name);
    };
    look("recommend", recommend_, "None");
    look("len", len_, "-1");
    look("row", row_, "-1");
    look("col", col_, "-1");
    if (parts.empty()) return;
    findings_.Add(Code::kRuleTemplate, rule_.begin(), rule_.begin() + 1, rule_at_.Text(),
                  Quoted(rule_at_.Text()) + " is still the template's: " + parts);
  }

  JsonValue rule_;
  const PathFrame& rule_at_;
  RuleOptions options_;
  Findings& findings_;
  JsonValue recommend_, len_, row_, col_, order_;
  size_t outside_ = 0;
};

}  // namespace

void CheckParameter(const JsonValue& value, const JsonValue& rule, const PathFrame& at, RuleOptions options,
                    Findings& findings) {
  const PathFrame rule_at = PathFrame::Member(at, "rule");
  const PathFrame value_at = PathFrame::Member(at, "value");
  RuleCheck check(rule, rule_at, options, findings);
  check.CheckValue(value, value_at);
}

void CheckListRule(const JsonValue& list, const JsonValue& rule, const PathFrame& at, const PathFrame& rule_at,
                   RuleOptions options, Findings& findings) {
  RuleCheck(rule, rule_at, options, findings).CheckList(list, at);
}

}  // namespace zotuning
