// Tested by tests/workspace/compare_test.cpp.

#include "workspace/compare.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/text_format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <set>
#include <unordered_map>
#include <utility>

#include "json/rules-inl.h"
#include "workspace/json_path.h"

namespace zotuning {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;

constexpr size_t kShownBytes = 60;

/// Elements beyond this are compared one by one only on request.
constexpr size_t kFewChanges = 3;

/// What an unpaired element costs, compared with a pair, which costs up to 1: elements with nothing in common are still
/// paired, and half-equal pairs are separated if that lets two others be equal.
constexpr float kAlone = 0.75F;

/// How much work the search for insertions may take for one list: pairs of elements, and comparisons of values.
constexpr size_t kMaxAlignmentPairs = 4'000'000;
constexpr size_t kMaxAlignmentWork = 100'000'000;

// ---- Values as text ----

std::string Cut(std::string text) {
  if (text.size() <= kShownBytes) return text;
  size_t end = kShownBytes;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  return text.substr(0, end) + "...";
}

template <typename Number, typename... Form>
void AppendNumber(std::string& text, Number number, Form... form) {
  char digits[64];
  text.append(digits, std::to_chars(digits, digits + sizeof(digits), number, form...).ptr);
}

/// Appends a value to a text.
struct ToText {
  std::string& text;
  void operator()(std::monostate) const { text += "none"; }
  void operator()(bool value) const { text += value ? "true" : "false"; }
  void operator()(int64_t value) const { AppendNumber(text, value); }
  void operator()(uint64_t value) const { AppendNumber(text, value); }
  void operator()(float value) const { AppendNumber(text, value); }
  void operator()(double value) const { AppendNumber(text, value); }
  void operator()(const std::string& value) const { text.append("\"").append(Cut(value)).append("\""); }
  void operator()(const EnumName& value) const { text += value.name; }
  void operator()(const MessageSummary& value) const {
    if (value.text.empty()) {
      text += "{}";
    } else {
      text.append("{ ").append(Cut(value.text)).append(" }");
    }
  }
};

struct ToNumber {
  double* number;
  bool operator()(int64_t value) const { return Set(static_cast<double>(value)); }
  bool operator()(uint64_t value) const { return Set(static_cast<double>(value)); }
  bool operator()(float value) const { return Set(static_cast<double>(value)); }
  bool operator()(double value) const { return Set(value); }
  template <typename Other>
  bool operator()(const Other&) const {
    return false;
  }
  bool Set(double value) const {
    *number = value;
    return true;
  }
};

/// "1,024"
std::string Grouped(size_t count) {
  std::string text = std::to_string(count);
  for (size_t i = text.size(); i > 3; i -= 3) text.insert(i - 3, ",");
  return text;
}

/// "+0.02"
std::string SignedText(double number, std::chars_format format, int precision) {
  std::string text(std::signbit(number) ? "" : "+");
  AppendNumber(text, number, format, precision);
  return text;
}

/// "+1.5 %", or "" if there is no number to compare with, or the change is too small for a percentage.
std::string PercentText(double left, double right) {
  if (!std::isfinite(left) || !std::isfinite(right) || left == 0) return "";
  const double percent = (right - left) / std::fabs(left) * 100, size = std::fabs(percent);
  if (!std::isfinite(percent) || (percent != 0 && size < 0.001)) return "";
  if (percent != 0 && size < 0.1) return SignedText(percent, std::chars_format::general, 1) + " %";
  if (size >= 1e9) return SignedText(percent, std::chars_format::general, 3) + " %";
  return SignedText(percent, std::chars_format::fixed, 1) + " %";
}

/// The difference from `left` to `right`, both numbers; exact for integers of the same kind.
double DistanceOf(const FieldValue& left, const FieldValue& right) {
  const auto whole = [](auto from, auto to) {
    const auto wide = [](auto number) { return static_cast<uint64_t>(number); };
    return to < from ? -static_cast<double>(wide(from) - wide(to)) : static_cast<double>(wide(to) - wide(from));
  };
  if (left.index() == right.index()) {
    if (const int64_t* from = std::get_if<int64_t>(&left)) return whole(*from, std::get<int64_t>(right));
    if (const uint64_t* from = std::get_if<uint64_t>(&left)) return whole(*from, std::get<uint64_t>(right));
  }
  double from = 0, to = 0;
  (void)NumberOf(left, &from);
  (void)NumberOf(right, &to);
  return to - from + 0.0;  // no negative zero
}

/// "+0.02", exact for integers.
std::string DistanceText(const FieldValue& left, const FieldValue& right) {
  const double distance = DistanceOf(left, right);
  const bool whole =
      !std::holds_alternative<float>(right) && !std::holds_alternative<double>(right) && std::fabs(distance) < 9e15;
  if (whole) return SignedText(distance, std::chars_format::fixed, 0);
  return SignedText(distance, std::chars_format::general, 3);
}

// ---- Values of fields ----

bool IsNan(double number) { return std::isnan(number); }

bool SameBits(double a, double b) {
  uint64_t left, right;
  std::memcpy(&left, &a, sizeof(left));
  std::memcpy(&right, &b, sizeof(right));
  return left == right || (IsNan(a) && IsNan(b));
}

bool IsFloating(const FieldValue& value) {
  return std::holds_alternative<float>(value) || std::holds_alternative<double>(value);
}

/// Whether two values are equal; if their fields have different kinds, in the narrower one.
bool SameValue(const FieldValue& left, const FieldValue& right) {
  if (left.index() == right.index() && !IsFloating(left)) return left == right;
  double a = 0, b = 0;
  if (!NumberOf(left, &a) || !NumberOf(right, &b)) return false;
  if (std::holds_alternative<float>(left) != std::holds_alternative<float>(right) &&
      (std::holds_alternative<double>(left) || std::holds_alternative<double>(right))) {
    a = static_cast<double>(static_cast<float>(a));
    b = static_cast<double>(static_cast<float>(b));
  }
  if (IsFloating(left) && IsFloating(right)) return SameBits(a, b);
  return a == b;
}

/// What rounding to its type may have taken from a number, as a fraction of it.
double RoundingOf(const FieldValue& value) {
  if (std::holds_alternative<float>(value)) return std::numeric_limits<float>::epsilon();
  return std::holds_alternative<double>(value) ? std::numeric_limits<double>::epsilon() : 0;
}

/// Whether the difference is within the tolerance, as 1.1 - 1 is within 0.1. Infinities are not close to anything.
bool Within(double a, double b, double distance, double rounding, const Tolerance& tolerance) {
  if ((tolerance.absolute <= 0 && tolerance.relative <= 0) || !std::isfinite(distance)) return false;
  const double larger = std::max(std::fabs(a), std::fabs(b));
  return std::fabs(distance) <= std::max(tolerance.absolute, tolerance.relative * larger) + rounding * larger;
}

bool Within(const FieldValue& left, const FieldValue& right, const Tolerance& tolerance) {
  double a = 0, b = 0;
  if (!NumberOf(left, &a) || !NumberOf(right, &b)) return false;
  return Within(a, b, DistanceOf(left, right), std::max(RoundingOf(left), RoundingOf(right)), tolerance);
}

bool IsRule(const FieldDescriptor* field) {
  if (field->message_type() == nullptr) return false;
  if (ZO_TUNING::internal::FindRuleKind(field->message_type()->name()) != nullptr) return true;
  return field->name() == "rule" && ZO_TUNING::internal::IsDataType(field->containing_type()->name());
}

void ClearRules(Message& message) {
  const Reflection& reflection = *message.GetReflection();
  std::vector<const FieldDescriptor*> fields;
  reflection.ListFields(message, &fields);
  for (const FieldDescriptor* field : fields) {
    if (IsRule(field)) {
      reflection.ClearField(&message, field);
    } else if (field->message_type() != nullptr && !field->is_repeated()) {
      ClearRules(*reflection.MutableMessage(&message, field));
    } else if (field->message_type() != nullptr) {
      for (int i = 0; i < reflection.FieldSize(message, field); ++i) {
        ClearRules(*reflection.MutableRepeatedMessage(&message, field, i));
      }
    }
  }
}

/// Without rules, which would take up the space of the values.
FieldValue Summary(const Message& message) {
  const std::unique_ptr<Message> copy(message.New());
  copy->CopyFrom(message);
  ClearRules(*copy);
  google::protobuf::TextFormat::Printer printer;
  printer.SetSingleLineMode(true);
  std::string text;
  printer.PrintToString(*copy, &text);
  if (!text.empty() && text.back() == ' ') text.pop_back();
  return MessageSummary{Cut(std::move(text))};
}

FieldValue EnumValue(const google::protobuf::EnumDescriptor* type, int number) {
  const auto* value = type->FindValueByNumber(number);
  return EnumName{value == nullptr ? std::to_string(number) : value->name()};
}

FieldValue SingularValue(const Message& message, const FieldDescriptor* field) {
  const Reflection& reflection = *message.GetReflection();
  switch (field->cpp_type()) {
    case FieldDescriptor::CPPTYPE_BOOL:
      return reflection.GetBool(message, field);
    case FieldDescriptor::CPPTYPE_INT32:
      return int64_t{reflection.GetInt32(message, field)};
    case FieldDescriptor::CPPTYPE_INT64:
      return int64_t{reflection.GetInt64(message, field)};
    case FieldDescriptor::CPPTYPE_UINT32:
      return uint64_t{reflection.GetUInt32(message, field)};
    case FieldDescriptor::CPPTYPE_UINT64:
      return uint64_t{reflection.GetUInt64(message, field)};
    case FieldDescriptor::CPPTYPE_FLOAT:
      return reflection.GetFloat(message, field);
    case FieldDescriptor::CPPTYPE_DOUBLE:
      return reflection.GetDouble(message, field);
    case FieldDescriptor::CPPTYPE_ENUM:
      return EnumValue(field->enum_type(), reflection.GetEnumValue(message, field));
    case FieldDescriptor::CPPTYPE_STRING:
      return reflection.GetString(message, field);
    case FieldDescriptor::CPPTYPE_MESSAGE:
      break;
  }
  return Summary(reflection.GetMessage(message, field));
}

/// The scalars of a repeated field, read in place.
class Scalars {
 public:
  Scalars() = default;
  Scalars(const Message& message, const FieldDescriptor* field)
      : message_(&message), field_(field), type_(field->cpp_type()) {
    const Reflection& reflection = *message.GetReflection();
    size_ = static_cast<size_t>(reflection.FieldSize(message, field));
    switch (type_) {
      case FieldDescriptor::CPPTYPE_BOOL:
        Take<bool>(reflection);
        break;
      case FieldDescriptor::CPPTYPE_INT32:
      case FieldDescriptor::CPPTYPE_ENUM:
        Take<int32_t>(reflection);
        break;
      case FieldDescriptor::CPPTYPE_INT64:
        Take<int64_t>(reflection);
        break;
      case FieldDescriptor::CPPTYPE_UINT32:
        Take<uint32_t>(reflection);
        break;
      case FieldDescriptor::CPPTYPE_UINT64:
        Take<uint64_t>(reflection);
        break;
      case FieldDescriptor::CPPTYPE_FLOAT:
        Take<float>(reflection);
        break;
      case FieldDescriptor::CPPTYPE_DOUBLE:
        Take<double>(reflection);
        break;
      case FieldDescriptor::CPPTYPE_STRING:
      case FieldDescriptor::CPPTYPE_MESSAGE:
        break;
    }
  }

  size_t size() const { return size_; }

  FieldValue At(size_t i) const {
    switch (type_) {
      case FieldDescriptor::CPPTYPE_BOOL:
        return Number<bool>(i);
      case FieldDescriptor::CPPTYPE_INT32:
        return int64_t{Number<int32_t>(i)};
      case FieldDescriptor::CPPTYPE_ENUM:
        return EnumValue(field_->enum_type(), Number<int32_t>(i));
      case FieldDescriptor::CPPTYPE_INT64:
        return Number<int64_t>(i);
      case FieldDescriptor::CPPTYPE_UINT32:
        return uint64_t{Number<uint32_t>(i)};
      case FieldDescriptor::CPPTYPE_UINT64:
        return Number<uint64_t>(i);
      case FieldDescriptor::CPPTYPE_FLOAT:
        return Number<float>(i);
      case FieldDescriptor::CPPTYPE_DOUBLE:
        return Number<double>(i);
      case FieldDescriptor::CPPTYPE_STRING:
      case FieldDescriptor::CPPTYPE_MESSAGE:
        break;
    }
    return message_->GetReflection()->GetRepeatedString(*message_, field_, static_cast<int>(i));
  }

  /// The element as a double; false if it is not a number.
  bool NumberAt(size_t i, double* number) const {
    switch (type_) {
      case FieldDescriptor::CPPTYPE_INT32:
        *number = Number<int32_t>(i);
        return true;
      case FieldDescriptor::CPPTYPE_INT64:
        *number = static_cast<double>(Number<int64_t>(i));
        return true;
      case FieldDescriptor::CPPTYPE_UINT32:
        *number = Number<uint32_t>(i);
        return true;
      case FieldDescriptor::CPPTYPE_UINT64:
        *number = static_cast<double>(Number<uint64_t>(i));
        return true;
      case FieldDescriptor::CPPTYPE_FLOAT:
        *number = static_cast<double>(Number<float>(i));
        return true;
      case FieldDescriptor::CPPTYPE_DOUBLE:
        *number = Number<double>(i);
        return true;
      default:
        return false;
    }
  }

  double rounding() const {
    if (type_ == FieldDescriptor::CPPTYPE_FLOAT) return RoundingOf(0.0F);
    return type_ == FieldDescriptor::CPPTYPE_DOUBLE ? RoundingOf(0.0) : 0;
  }

  bool SameType(const Scalars& other) const { return type_ == other.type_; }

  /// Whether all bytes of both are equal; false proves nothing.
  bool SameBytes(const Scalars& other) const {
    return size_ == other.size_ && data_ != nullptr && other.data_ != nullptr && width_ == other.width_ &&
           type_ == other.type_ && type_ != FieldDescriptor::CPPTYPE_ENUM &&
           std::memcmp(data_, other.data_, size_ * width_) == 0;
  }
  /// The same for one element of each.
  bool SameBytes(size_t i, const Scalars& other, size_t j) const {
    return data_ != nullptr && other.data_ != nullptr && width_ == other.width_ && type_ == other.type_ &&
           type_ != FieldDescriptor::CPPTYPE_ENUM &&
           std::memcmp(data_ + i * width_, other.data_ + j * width_, width_) == 0;
  }

 private:
  template <typename T>
  void Take(const Reflection& reflection) {
    width_ = sizeof(T);
    // What protobuf recommends instead calls a function per element.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    data_ = reinterpret_cast<const char*>(reflection.GetRepeatedField<T>(*message_, field_).data());
#pragma GCC diagnostic pop
  }
  template <typename T>
  T Number(size_t i) const {
    T number;
    std::memcpy(&number, data_ + i * sizeof(T), sizeof(T));
    return number;
  }

  const Message* message_ = nullptr;
  const FieldDescriptor* field_ = nullptr;
  FieldDescriptor::CppType type_ = FieldDescriptor::CPPTYPE_MESSAGE;
  size_t size_ = 0;
  size_t width_ = 0;
  const char* data_ = nullptr;  ///< of the elements, null for strings
};

// ---- Types ----

/// The rule beside a field of a data type that gives rows and columns; null if there is none.
const FieldDescriptor* TableRule(const FieldDescriptor* field) {
  if (!field->is_repeated() || field->name() != "value") return nullptr;
  const FieldDescriptor* rule = field->containing_type()->FindFieldByName("rule");
  if (rule == nullptr || rule->is_repeated() || rule->message_type() == nullptr) return nullptr;
  for (const char* name : {"row", "col"}) {
    const FieldDescriptor* size = rule->message_type()->FindFieldByName(name);
    if (size == nullptr || size->is_repeated() || size->cpp_type() != FieldDescriptor::CPPTYPE_STRING) return nullptr;
  }
  return rule;
}

/// The list of values in a message that is a row of a table; null if it is something else.
const FieldDescriptor* RowValues(const FieldDescriptor* field) {
  const Descriptor* type = field->message_type();
  if (type == nullptr || type->field_count() != 1 || !type->field(0)->is_repeated()) return nullptr;
  return type->field(0)->message_type() == nullptr ? type->field(0) : nullptr;
}

bool IsNumber(const FieldDescriptor* field) {
  return field->cpp_type() <= FieldDescriptor::CPPTYPE_FLOAT && field->cpp_type() >= FieldDescriptor::CPPTYPE_INT32;
}

/// Whether values of two fields can be compared at all.
bool SameKind(const FieldDescriptor* left, const FieldDescriptor* right) {
  if (left->is_repeated() != right->is_repeated() || left->is_map() != right->is_map()) return false;
  return left->cpp_type() == right->cpp_type() || (IsNumber(left) && IsNumber(right));
}

}  // namespace

std::string ValueText(const FieldValue& value) {
  std::string text;
  std::visit(ToText{text}, value);
  return text;
}

bool NumberOf(const FieldValue& value, double* number) { return std::visit(ToNumber{number}, value); }

/// The fields that two types have in common, and those that only one of them has.
class MessageComparer::TypePairs {
 public:
  struct Pair;
  struct FieldPair {
    const FieldDescriptor* left;
    const FieldDescriptor* right;
    bool is_rule;
    bool is_data;  ///< its message is a parameter with its rule
    Pair* pair = nullptr;
  };
  struct Pair {
    std::vector<FieldPair> fields;
    std::vector<const FieldDescriptor*> only_left;
    std::vector<const FieldDescriptor*> only_right;
  };

  Pair& Of(const Descriptor* left, const Descriptor* right) {
    const auto [place, fresh] = pairs_.try_emplace({left, right});
    Pair& pair = place->second;
    if (!fresh) return pair;
    for (int i = 0; i < left->field_count(); ++i) {
      const FieldDescriptor* field = left->field(i);
      const FieldDescriptor* other = left == right ? field : right->FindFieldByName(field->name());
      if (other == nullptr || !SameKind(field, other)) {
        pair.only_left.push_back(field);
        continue;
      }
      const bool data =
          field->message_type() != nullptr && ZO_TUNING::internal::IsDataType(field->message_type()->name());
      pair.fields.push_back({field, other, IsRule(field) && IsRule(other), data});
    }
    for (int i = 0; left != right && i < right->field_count(); ++i) {
      const FieldDescriptor* other = left->FindFieldByName(right->field(i)->name());
      if (other == nullptr || !SameKind(other, right->field(i))) pair.only_right.push_back(right->field(i));
    }
    return pair;
  }

  Pair& Below(FieldPair& field) {
    if (field.pair == nullptr) field.pair = &Of(field.left->message_type(), field.right->message_type());
    return *field.pair;
  }

  std::map<std::pair<const Descriptor*, const Descriptor*>, bool> same;

 private:
  std::map<std::pair<const Descriptor*, const Descriptor*>, Pair> pairs_;
};

/// One comparison of two messages.
class MessageComparer::Walk {
  using Pair = TypePairs::Pair;
  using FieldPair = TypePairs::FieldPair;

 public:
  Walk(TypePairs& types, const CompareOptions& options, std::string_view module, MessageComparison& comparison)
      : types_(types), options_(options), pattern_path_(module), comparison_(comparison) {}

  /// If `made_present`, absent messages count as empty ones, which packing creates.
  void Messages(const Message& left, const Message& right, Pair& pair, bool made_present) {
    for (FieldPair& field : pair.fields) {
      if (field.is_rule && !options_.rules) continue;
      Field(left, right, field, made_present);
    }
    for (const FieldDescriptor* field : pair.only_left) OnlyIn(left, field, DifferenceKind::kRemoved);
    for (const FieldDescriptor* field : pair.only_right) OnlyIn(right, field, DifferenceKind::kAdded);
  }

 private:
  /// Extends the path during its lifetime.
  class Step {
   public:
    Step(Walk& walk, const std::string& name) : walk_(walk) {
      Remember();
      if (!walk.path_.empty() && name[0] != '[') walk.path_ += '.', walk.left_path_ += '.';
      walk.path_ += name;
      walk.left_path_ += name;
      if (!walk.options_.path_tolerances.empty()) walk.pattern_path_.append(".").append(name);
    }
    Step(Walk& walk, size_t left_index, size_t right_index) : walk_(walk) {
      Remember();
      walk.left_path_.append("[").append(std::to_string(left_index)).append("]");
      walk.path_.append("[").append(std::to_string(right_index)).append("]");
    }
    ~Step() {
      walk_.path_.resize(path_size_);
      walk_.left_path_.resize(left_path_size_);
      walk_.pattern_path_.resize(pattern_path_size_);
    }
    Step(const Step&) = delete;
    Step& operator=(const Step&) = delete;

   private:
    void Remember() {
      path_size_ = walk_.path_.size();
      left_path_size_ = walk_.left_path_.size();
      pattern_path_size_ = walk_.pattern_path_.size();
    }
    Walk& walk_;
    size_t path_size_ = 0, left_path_size_ = 0, pattern_path_size_ = 0;
  };

  Difference* Add(DifferenceKind kind, size_t count) {
    comparison_.count += count;
    if (comparison_.differences.size() >= options_.max_differences) return nullptr;
    Difference difference{kind, path_, left_path_ == path_ ? "" : left_path_, {}, {}, false, nullptr};
    comparison_.differences.push_back(std::move(difference));
    return &comparison_.differences.back();
  }

  void AddValues(FieldValue left, FieldValue right) {
    const bool none_left = std::holds_alternative<std::monostate>(left);
    const bool none_right = std::holds_alternative<std::monostate>(right);
    Difference* difference = Add(none_left    ? DifferenceKind::kAdded
                                 : none_right ? DifferenceKind::kRemoved
                                              : DifferenceKind::kChanged,
                                 1);
    if (difference == nullptr) return;
    difference->left = std::move(left);
    difference->right = std::move(right);
  }

  const Tolerance& ToleranceHere() const {
    for (size_t i = options_.path_tolerances.size(); i-- > 0;) {
      if (MatchesPattern(options_.path_tolerances[i].pattern, pattern_path_)) {
        return options_.path_tolerances[i].tolerance;
      }
    }
    return options_.tolerance;
  }

  /// A field that the other schema lacks, or has with another kind: its values.
  void OnlyIn(const Message& message, const FieldDescriptor* field, DifferenceKind kind) {
    if (IsRule(field) && !options_.rules) return;
    const Reflection& reflection = *message.GetReflection();
    const Step step(*this, field->name());
    if (field->is_repeated()) {
      const int size = reflection.FieldSize(message, field);
      if (size > 0) AddInOneSchema(MessageSummary{std::to_string(size) + " elements"}, kind);
      return;
    }
    if (!reflection.HasField(message, field)) return;
    if (field->message_type() == nullptr) return AddInOneSchema(SingularValue(message, field), kind);
    const Message& below = reflection.GetMessage(message, field);
    for (int i = 0; i < below.GetDescriptor()->field_count(); ++i) OnlyIn(below, below.GetDescriptor()->field(i), kind);
  }

  void AddInOneSchema(FieldValue value, DifferenceKind kind) {
    Difference* difference = Add(kind, 1);
    if (difference == nullptr) return;
    difference->in_one_schema = true;
    (kind == DifferenceKind::kAdded ? difference->right : difference->left) = std::move(value);
  }

  void Field(const Message& left, const Message& right, FieldPair& field, bool made_present) {
    if (field.left->is_map()) return Map(left, right, field);
    if (field.left->is_repeated()) return Repeated(left, right, field);
    const Reflection& left_reflection = *left.GetReflection();
    const Reflection& right_reflection = *right.GetReflection();
    const bool presence = field.left->has_presence() && field.right->has_presence();
    const bool in_left = !presence || left_reflection.HasField(left, field.left);
    const bool in_right = !presence || right_reflection.HasField(right, field.right);
    if (!in_left && !in_right) return;
    const bool is_message = field.left->message_type() != nullptr;
    if (is_message) {
      const bool in_oneof = field.left->real_containing_oneof() != nullptr;
      const bool below = made_present && !in_oneof;
      const Step step(*this, field.left->name());
      if ((in_left && in_right) || below || field.is_rule) {
        return Messages(left_reflection.GetMessage(left, field.left), right_reflection.GetMessage(right, field.right),
                        types_.Below(field), below && !field.is_data);
      }
      return AddValues(in_left ? SingularValue(left, field.left) : FieldValue(),
                       in_right ? SingularValue(right, field.right) : FieldValue());
    }
    FieldValue from = in_left ? SingularValue(left, field.left) : FieldValue();
    FieldValue to = in_right ? SingularValue(right, field.right) : FieldValue();
    if (SameValue(from, to)) return;
    const Step step(*this, field.left->name());
    if (!Within(from, to, ToleranceHere())) AddValues(std::move(from), std::move(to));
  }

  static std::map<std::string, const Message*> Entries(const Message& message, const FieldDescriptor* field) {
    std::map<std::string, const Message*> entries;
    const Reflection& reflection = *message.GetReflection();
    for (int i = 0; i < reflection.FieldSize(message, field); ++i) {
      const Message& entry = reflection.GetRepeatedMessage(message, field, i);
      const FieldValue key = SingularValue(entry, field->message_type()->map_key());
      const std::string* text = std::get_if<std::string>(&key);
      entries[text != nullptr ? *text : ValueText(key)] = &entry;
    }
    return entries;
  }

  void Map(const Message& left, const Message& right, FieldPair& field) {
    const auto from = Entries(left, field.left), to = Entries(right, field.right);
    const Step step(*this, field.left->name());
    std::set<std::string> keys;
    for (const auto& entries : {from, to}) {
      for (const auto& entry : entries) keys.insert(entry.first);
    }
    for (const std::string& key : keys) {
      JsonPath name;
      name.Push(key);
      const Step below(*this, name.ToString());
      const auto in_left = from.find(key), in_right = to.find(key);
      if (in_left == from.end() || in_right == to.end()) {
        AddValues(in_left == from.end() ? FieldValue() : Summary(*in_left->second),
                  in_right == to.end() ? FieldValue() : Summary(*in_right->second));
        continue;
      }
      Messages(*in_left->second, *in_right->second, types_.Below(field), false);
    }
  }

  void Repeated(const Message& left, const Message& right, FieldPair& field) {
    if (Table(left, right, field)) return;
    if (field.left->message_type() != nullptr) {
      Structures(left, right, field);
      return;
    }
    const Scalars from(left, field.left), to(right, field.right);
    if (from.SameBytes(to)) return;
    const Step step(*this, field.left->name());
    const Tolerance tolerance = ToleranceHere();
    auto list = std::make_unique<ListChange>();
    list->left_size = from.size();
    list->right_size = to.size();
    Changes changes{*list, tolerance};
    const auto cell = [&](size_t i, size_t j) { CompareElement(from, i, to, j, i, j, changes); };
    if (from.size() == to.size()) {
      for (size_t i = 0; i < from.size(); ++i) cell(i, i);
    } else {
      // Numbers close to each other are more likely the same element than distant ones.
      const auto cost = [&](size_t i, size_t j) {
        if (SameElement(from, i, to, j, tolerance)) return 0.0F;
        double x = 0, y = 0;
        if (!from.NumberAt(i, &x) || !to.NumberAt(j, &y) || !std::isfinite(x) || !std::isfinite(y)) return 1.0F;
        if (x == y) return 0.01F;  // zeros of different sign, and numbers that a double cannot tell apart
        const double distance = std::fabs(x - y) / std::max(std::fabs(x), std::fabs(y));
        return static_cast<float>(std::clamp(distance, 0.01, 1.0));
      };
      Align(from.size(), to.size(), 1, cost, cell, *list);
    }
    AddList(std::move(list));
  }

  /// The state of a list comparison.
  struct Changes {
    ListChange& list;
    Tolerance tolerance;
    double largest = -1;  ///< largest distance of two elements so far
  };

  /// From here on doubles are not exact for integers.
  static bool IsLarge(double number) { return std::fabs(number) >= 0x1p53; }

  static bool SameElement(const Scalars& from, size_t i, const Scalars& to, size_t j, const Tolerance& tolerance) {
    if (from.SameBytes(i, to, j)) return true;
    double x = 0, y = 0;
    const bool numbers = from.NumberAt(i, &x) && to.NumberAt(j, &y);
    if (!numbers || !from.SameType(to) || IsLarge(x) || IsLarge(y) || (std::isnan(x) && std::isnan(y))) {
      const FieldValue a = from.At(i), b = to.At(j);
      return SameValue(a, b) || Within(a, b, tolerance);
    }
    return Within(x, y, y - x, std::max(from.rounding(), to.rounding()), tolerance);
  }

  void CompareElement(const Scalars& from, size_t i, const Scalars& to, size_t j, size_t left_index, size_t right_index,
                      Changes& changes) {
    if (SameElement(from, i, to, j, changes.tolerance)) return;
    double x = 0, y = 0;
    const bool numbers = from.NumberAt(i, &x) && to.NumberAt(j, &y);
    ListChange& list = changes.list;
    ++list.changed;
    const bool finite = numbers && std::isfinite(x) && std::isfinite(y);
    if (list.changed == 1) list.has_statistics = finite;
    list.has_statistics &= finite;
    if (list.has_statistics) {
      // Sums until the list is complete.
      list.left_mean += x;
      list.right_mean += y;
      const double distance = IsLarge(x) || IsLarge(y) ? DistanceOf(from.At(i), to.At(j)) : y - x;
      if (std::fabs(distance) > changes.largest) {
        changes.largest = std::fabs(distance);
        list.largest = right_index;
        list.largest_left = from.At(i);
        list.largest_right = to.At(j);
      }
    }
    if (list.elements.size() < options_.max_elements) {
      list.elements.push_back({left_index, right_index, from.At(i), to.At(j)});
    }
  }

  void AddList(std::unique_ptr<ListChange> list) {
    size_t count = list->changed;
    size_t row = 1;
    if (list->is_table) row = std::max<size_t>({list->left_columns, list->right_columns, 1});
    for (const auto* runs : {&list->inserted, &list->removed}) {
      for (const ElementRun& run : *runs) count += run.count * row;
    }
    const bool other_shape = list->left_size != list->right_size || list->left_rows != list->right_rows ||
                             list->left_columns != list->right_columns;
    if (count == 0 && other_shape) count = std::max<size_t>({list->left_size, list->right_size, 1});
    if (count == 0) return;
    if (list->has_statistics) {
      list->left_mean /= static_cast<double>(list->changed);
      list->right_mean /= static_cast<double>(list->changed);
    } else {
      list->left_mean = list->right_mean = 0;
      list->largest_left = list->largest_right = {};
      list->largest = 0;
    }
    Difference* difference = Add(DifferenceKind::kList, count);
    if (difference != nullptr) difference->list = std::move(list);
  }

  /// Pairs the elements of two lists so that as little as possible differs: the `cost` of a pair is from 0, equal, to
  /// 1; an unpaired element costs kAlone. Calls `pair` for each pair. `weight` is how many values one call of `cost`
  /// reads. If that would be too much work, elements are paired by index.
  template <typename Cost, typename PairUp>
  static void Align(size_t left_size, size_t right_size, size_t weight, const Cost& cost, const PairUp& pair,
                    ListChange& list) {
    size_t begin = 0;
    while (begin < left_size && begin < right_size && cost(begin, begin) == 0) ++begin;
    size_t left_end = left_size, right_end = right_size;
    while (left_end > begin && right_end > begin && cost(left_end - 1, right_end - 1) == 0) --left_end, --right_end;
    for (size_t i = 0; i < begin; ++i) pair(i, i);
    const size_t rows = left_end - begin, columns = right_end - begin;
    const size_t most_pairs = std::min(kMaxAlignmentPairs, kMaxAlignmentWork / std::max<size_t>(weight, 1));
    if (rows > 0 && columns > 0 && columns <= most_pairs / rows) {
      AlignMiddle(begin, rows, columns, cost, pair, list);
    } else {
      const size_t both = std::min(rows, columns);
      for (size_t i = 0; i < both; ++i) pair(begin + i, begin + i);
      for (size_t i = both; i < rows; ++i) AddPlace(begin + i, list.removed);
      for (size_t i = both; i < columns; ++i) AddPlace(begin + i, list.inserted);
    }
    for (size_t i = 0; left_end + i < left_size; ++i) pair(left_end + i, right_end + i);
  }

  static void AddPlace(size_t place, std::vector<ElementRun>& runs) {
    if (!runs.empty() && runs.back().index + runs.back().count == place) {
      ++runs.back().count;
    } else {
      runs.push_back({place, 1});
    }
  }

  template <typename Cost, typename PairUp>
  static void AlignMiddle(size_t begin, size_t rows, size_t columns, const Cost& cost, const PairUp& pair,
                          ListChange& list) {
    // best[i][j]: the least cost of the rest from i and j on.
    const size_t width = columns + 1;
    std::vector<float> costs(rows * columns);
    std::vector<float> best((rows + 1) * width);
    for (size_t i = rows + 1; i-- > 0;) {
      for (size_t j = width; j-- > 0;) {
        float& least = best[i * width + j];
        if (i == rows || j == columns) {
          least = kAlone * static_cast<float>(rows - i + columns - j);
          continue;
        }
        const float here = costs[i * columns + j] = cost(begin + i, begin + j);
        least = std::min({here + best[(i + 1) * width + j + 1], kAlone + best[(i + 1) * width + j],
                          kAlone + best[i * width + j + 1]});
      }
    }
    size_t i = 0, j = 0;
    while (i < rows || j < columns) {
      const float least = best[i * width + j];
      if (i < rows && j < columns && costs[i * columns + j] + best[(i + 1) * width + j + 1] <= least) {
        pair(begin + i, begin + j);
        ++i, ++j;
      } else if (i < rows && (j == columns || kAlone + best[(i + 1) * width + j] <= least)) {
        AddPlace(begin + i++, list.removed);
      } else {
        AddPlace(begin + j++, list.inserted);
      }
    }
  }

  // ---- Lists of structures ----

  static void Mix(uint64_t value, uint64_t& hash) {
    hash = (hash ^ value) * UINT64_C(0x9E3779B97F4A7C15) + (hash >> 29);
  }

  static uint64_t HashOf(const FieldValue& value) {
    double number = 0;
    if (NumberOf(value, &number)) return std::hash<float>()(static_cast<float>(number));
    return std::hash<std::string>()(ValueText(value));
  }

  /// Appends one hash per value below `message`, so that corresponding values of two elements can be compared.
  void LeafHashes(const Message& message, Pair& pair, bool left, std::vector<uint64_t>& leaves) {
    const Reflection& reflection = *message.GetReflection();
    for (FieldPair& each : pair.fields) {
      if (each.is_rule && !options_.rules) continue;
      const FieldDescriptor* field = left ? each.left : each.right;
      if (!field->is_repeated()) {
        const bool here = !field->has_presence() || reflection.HasField(message, field);
        if (here && field->message_type() != nullptr) {
          LeafHashes(reflection.GetMessage(message, field), types_.Below(each), left, leaves);
        } else {
          leaves.push_back(here ? HashOf(SingularValue(message, field)) : 0);
        }
        continue;
      }
      uint64_t hash = 1;
      if (field->message_type() == nullptr) {
        const Scalars scalars(message, field);
        for (size_t i = 0; i < scalars.size(); ++i) Mix(HashOf(scalars.At(i)), hash);
      } else {
        std::vector<uint64_t> below;
        for (int i = 0; i < reflection.FieldSize(message, field); ++i) {
          LeafHashes(reflection.GetRepeatedMessage(message, field, i), types_.Below(each), left, below);
        }
        for (const uint64_t leaf : below) Mix(leaf, hash);
      }
      leaves.push_back(hash);
    }
  }

  using Leaves = std::vector<std::vector<uint64_t>>;
  Leaves LeavesOf(const Message& message, const FieldDescriptor* field, Pair& pair, bool left) {
    Leaves leaves(static_cast<size_t>(message.GetReflection()->FieldSize(message, field)));
    for (size_t i = 0; i < leaves.size(); ++i) {
      LeafHashes(message.GetReflection()->GetRepeatedMessage(message, field, static_cast<int>(i)), pair, left,
                 leaves[i]);
    }
    return leaves;
  }

  void Structures(const Message& left, const Message& right, FieldPair& field) {
    const Reflection& left_reflection = *left.GetReflection();
    const Reflection& right_reflection = *right.GetReflection();
    const auto left_size = static_cast<size_t>(left_reflection.FieldSize(left, field.left));
    const auto right_size = static_cast<size_t>(right_reflection.FieldSize(right, field.right));
    if (left_size == 0 && right_size == 0) return;
    Pair& pair = types_.Below(field);
    const Step step(*this, field.left->name());
    // The line about the list comes before the lines about its elements.
    const size_t place = comparison_.differences.size();
    auto list = std::make_unique<ListChange>();
    list->left_size = left_size;
    list->right_size = right_size;
    const auto compare = [&](size_t i, size_t j) {
      const Step below(*this, i, j);
      const size_t before = comparison_.count;
      Messages(left_reflection.GetRepeatedMessage(left, field.left, static_cast<int>(i)),
               right_reflection.GetRepeatedMessage(right, field.right, static_cast<int>(j)), pair, false);
      list->changed += comparison_.count > before ? 1 : 0;
    };
    const Leaves from = LeavesOf(left, field.left, pair, true), to = LeavesOf(right, field.right, pair, false);
    const auto cost = [&](size_t i, size_t j) {
      const size_t both = std::min(from[i].size(), to[j].size()), most = std::max(from[i].size(), to[j].size());
      size_t other = most - both;
      for (size_t k = 0; k < both; ++k) other += from[i][k] != to[j][k] ? 1 : 0;
      return most == 0 ? 0.0F : static_cast<float>(other) / static_cast<float>(most);
    };
    size_t weight = 1;
    for (const Leaves* leaves : {&from, &to}) {
      for (const auto& each : *leaves) weight = std::max(weight, each.size());
    }
    Align(left_size, right_size, weight, cost, compare, *list);
    size_t alone = 0;
    for (const auto* runs : {&list->inserted, &list->removed}) {
      for (const ElementRun& run : *runs) alone += run.count;
    }
    if (alone == 0) return;
    Difference* difference = Add(DifferenceKind::kList, alone);
    if (difference == nullptr) return;
    difference->list = std::move(list);
    std::vector<Difference>& differences = comparison_.differences;
    std::rotate(differences.begin() + static_cast<std::ptrdiff_t>(place), differences.end() - 1, differences.end());
  }

  // ---- Tables ----

  /// The cells of a table, in either form.
  struct Cells {
    std::vector<Scalars> rows;  ///< a single one if all rows are in one list
    size_t row_count = 0;
    size_t columns = 0;
    bool rows_are_messages = false;
    std::string row_field;  ///< the list in a row that is a message

    const Scalars& RowOf(size_t row) const { return rows_are_messages ? rows[row] : rows[0]; }
    size_t PlaceOf(size_t row, size_t column) const { return rows_are_messages ? column : row * columns + column; }
  };

  static size_t SizeFromRule(const Message& rule, const char* name) {
    const FieldDescriptor* field = rule.GetDescriptor()->FindFieldByName(name);
    const std::string text = rule.GetReflection()->GetString(rule, field);
    size_t size = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), size);
    return error == std::errc() && end == text.data() + text.size() ? size : 0;
  }

  /// False if the field is not a table, or has rows of different lengths.
  static bool ReadCells(const Message& message, const FieldDescriptor* field, Cells& cells) {
    const FieldDescriptor* rule = TableRule(field);
    if (rule == nullptr) return false;
    const Reflection& reflection = *message.GetReflection();
    if (field->message_type() == nullptr) {
      cells.rows.emplace_back(message, field);
      const Message& its_rule = reflection.GetMessage(message, rule);
      const size_t rows = SizeFromRule(its_rule, "row"), columns = SizeFromRule(its_rule, "col");
      const size_t size = cells.rows[0].size();
      if (rows == 0 || columns == 0 || columns > size || size % columns != 0 || size / columns != rows) return true;
      cells.row_count = rows;
      cells.columns = columns;
      return true;
    }
    const FieldDescriptor* values = RowValues(field);
    if (values == nullptr) return false;
    cells.rows_are_messages = true;
    cells.row_field = values->name();
    cells.row_count = static_cast<size_t>(reflection.FieldSize(message, field));
    for (size_t i = 0; i < cells.row_count; ++i) {
      cells.rows.emplace_back(reflection.GetRepeatedMessage(message, field, static_cast<int>(i)), values);
      if (i > 0 && cells.rows[i].size() != cells.rows[0].size()) return false;
    }
    cells.columns = cells.rows.empty() ? 0 : cells.rows[0].size();
    return true;
  }

  static bool SameCells(const Cells& from, const Cells& to) {
    if (from.rows.size() != to.rows.size()) return false;
    for (size_t i = 0; i < from.rows.size(); ++i) {
      if (!from.rows[i].SameBytes(to.rows[i])) return false;
    }
    return true;
  }

  /// A table without a shape of its own, as in a bin, takes the columns of the other one, if they fit.
  static void BorrowShape(Cells& cells, const Cells& other) {
    if (cells.columns != 0 || other.columns == 0) return;
    const size_t size = cells.rows_are_messages ? cells.row_count : cells.rows[0].size();
    if (size != 0 && (cells.rows_are_messages || size % other.columns != 0)) return;
    cells.row_count = size / other.columns;
    cells.columns = other.columns;
  }

  /// Compares a field as a table; false if it is not a table on both sides.
  bool Table(const Message& left, const Message& right, const FieldPair& field) {
    if ((field.left->message_type() == nullptr) != (field.right->message_type() == nullptr)) return false;
    Cells from, to;
    if (!ReadCells(left, field.left, from) || !ReadCells(right, field.right, to)) return false;
    if (SameCells(from, to) && from.rows.size() == to.rows.size()) return true;
    BorrowShape(from, to);
    BorrowShape(to, from);
    if (from.columns == 0 || to.columns == 0) return false;  // nothing gives its shape
    const Step step(*this, field.left->name());
    const Tolerance tolerance = ToleranceHere();
    auto list = std::make_unique<ListChange>();
    list->is_table = true;
    list->row_field = to.row_field;
    list->left_rows = from.row_count;
    list->left_columns = from.columns;
    list->right_rows = to.row_count;
    list->right_columns = to.columns;
    list->left_size = from.row_count * from.columns;
    list->right_size = to.row_count * to.columns;
    Changes changes{*list, tolerance};
    const auto compare_rows = [&](size_t i, size_t j) {
      for (size_t column = 0; column < to.columns; ++column) {
        CompareElement(from.RowOf(i), from.PlaceOf(i, column), to.RowOf(j), to.PlaceOf(j, column),
                       i * from.columns + column, j * to.columns + column, changes);
      }
    };
    if (from.columns == to.columns && from.row_count == to.row_count) {
      for (size_t i = 0; i < from.row_count; ++i) compare_rows(i, i);
    } else if (from.columns == to.columns) {
      const auto cost = [&](size_t i, size_t j) {
        size_t other = 0;
        for (size_t column = 0; column < to.columns; ++column) {
          const bool same =
              SameElement(from.RowOf(i), from.PlaceOf(i, column), to.RowOf(j), to.PlaceOf(j, column), tolerance);
          other += same ? 0 : 1;
        }
        return static_cast<float>(other) / static_cast<float>(to.columns);
      };
      Align(from.row_count, to.row_count, to.columns, cost, compare_rows, *list);
    }
    AddList(std::move(list));
    return true;
  }

  static bool MatchesPattern(std::string_view pattern, std::string_view text) {
    // Goes back to the last '*' if the rest does not match.
    size_t p = 0, t = 0, star = pattern.npos, star_text = 0;
    while (t < text.size()) {
      if (p < pattern.size() && pattern[p] == '*') {
        star = p++;
        star_text = t;
      } else if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == text[t])) {
        ++p, ++t;
      } else if (star != pattern.npos) {
        p = star + 1;
        t = ++star_text;
      } else {
        return false;
      }
    }
    while (p < pattern.size() && pattern[p] == '*') ++p;
    return p == pattern.size();
  }

  TypePairs& types_;
  const CompareOptions& options_;
  std::string path_, left_path_;
  std::string pattern_path_;  ///< extended only if there are patterns
  MessageComparison& comparison_;
};

MessageComparer::MessageComparer(CompareOptions options)
    : options_(std::move(options)), types_(std::make_unique<TypePairs>()) {}

MessageComparer::~MessageComparer() = default;

MessageComparison MessageComparer::Compare(const Message& left, const Message& right, std::string_view module) {
  MessageComparison comparison;
  Walk walk(*types_, options_, module, comparison);
  walk.Messages(left, right, types_->Of(left.GetDescriptor(), right.GetDescriptor()), true);
  return comparison;
}

bool MessageComparer::SameTypes(const Descriptor* left, const Descriptor* right) {
  if (left == right) return true;
  const auto [place, fresh] = types_->same.try_emplace({left, right}, true);
  if (!fresh) return place->second;
  const auto same_field = [](const FieldDescriptor* a, const FieldDescriptor* b) {
    if (a->name() != b->name() || a->number() != b->number() || a->type() != b->type() || a->label() != b->label() ||
        a->json_name() != b->json_name() || a->is_packed() != b->is_packed() ||
        a->has_presence() != b->has_presence() ||
        (a->real_containing_oneof() == nullptr) != (b->real_containing_oneof() == nullptr)) {
      return false;
    }
    if (a->enum_type() != nullptr) return a->enum_type()->DebugString() == b->enum_type()->DebugString();
    return a->message_type() == nullptr || a->message_type()->name() == b->message_type()->name();
  };
  std::set<std::pair<const Descriptor*, const Descriptor*>> seen = {{left, right}};
  std::vector<std::pair<const Descriptor*, const Descriptor*>> open = {{left, right}};
  while (!open.empty()) {
    const auto [a, b] = open.back();
    open.pop_back();
    bool same = a->field_count() == b->field_count();
    for (int i = 0; same && i < a->field_count(); ++i) {
      same = same_field(a->field(i), b->field(i));
      if (!same || a->field(i)->message_type() == nullptr) continue;
      const std::pair below = {a->field(i)->message_type(), b->field(i)->message_type()};
      if (seen.insert(below).second) open.push_back(below);
    }
    if (!same) return types_->same[{left, right}] = false;
  }
  return true;
}

void MessageComparer::CompareTypes(const Descriptor* left, const Descriptor* right, std::vector<std::string>& only_left,
                                   std::vector<std::string>& only_right) {
  std::set<std::pair<const Descriptor*, const Descriptor*>> seen = {{left, right}};
  std::vector<std::pair<const Descriptor*, const Descriptor*>> open = {{left, right}};
  while (!open.empty()) {
    const auto [a, b] = open.back();
    open.pop_back();
    TypePairs::Pair& pair = types_->Of(a, b);
    for (const FieldDescriptor* field : pair.only_left) only_left.push_back(a->name() + "." + field->name());
    for (const FieldDescriptor* field : pair.only_right) only_right.push_back(b->name() + "." + field->name());
    for (const TypePairs::FieldPair& field : pair.fields) {
      if (field.left->message_type() == nullptr) continue;
      const std::pair below = {field.left->message_type(), field.right->message_type()};
      if (seen.insert(below).second) open.push_back(below);
    }
  }
}

// ---- Words ----

namespace {

std::string PlaceText(const ListChange& list, size_t right_index) {
  if (!list.is_table) return "[" + std::to_string(right_index) + "]";
  return "[" + std::to_string(right_index / list.right_columns) + "][" +
         std::to_string(right_index % list.right_columns) + "]";
}

/// "[4]", "[4] to [6]", "[1], [3]"
std::string RunsText(const std::vector<ElementRun>& runs) {
  constexpr size_t kShownRuns = 4;
  std::string text;
  for (size_t i = 0; i < runs.size() && i < kShownRuns; ++i) {
    text += (i == 0 ? "[" : ", [") + std::to_string(runs[i].index) + "]";
    if (runs[i].count > 1) text += " to [" + std::to_string(runs[i].index + runs[i].count - 1) + "]";
  }
  if (runs.size() > kShownRuns) text += " and " + std::to_string(runs.size() - kShownRuns) + " more places";
  return text;
}

std::string ShapeText(size_t rows, size_t columns) { return std::to_string(rows) + "x" + std::to_string(columns); }

/// "inserted at [4], removed at [7]" appended to `text`, which may be empty.
void AppendPart(const std::string& part, std::string& text) {
  if (part.empty()) return;
  text += (text.empty() ? "" : ", ") + part;
}

std::string ListText(const Difference& difference) {
  const ListChange& list = *difference.list;
  std::string path = difference.path, text;
  if (list.is_table) {
    constexpr std::string_view kValue = ".value";
    if (path.size() > kValue.size() && path.compare(path.size() - kValue.size(), kValue.size(), kValue) == 0) {
      path.resize(path.size() - kValue.size());
    }
    path += " " + ShapeText(list.left_rows, list.left_columns);
    if (list.left_rows != list.right_rows || list.left_columns != list.right_columns) {
      path += " → " + ShapeText(list.right_rows, list.right_columns);
    }
  } else if (list.left_size != list.right_size) {
    AppendPart("length " + std::to_string(list.left_size) + " → " + std::to_string(list.right_size), text);
  }
  const std::string rows = list.is_table ? "rows " : "";
  if (!list.inserted.empty()) AppendPart(rows + "inserted at " + RunsText(list.inserted), text);
  if (!list.removed.empty()) AppendPart(rows + "removed at " + RunsText(list.removed), text);
  // The fields of changed structures have lines of their own.
  if (list.changed > 0 && !(list.elements.empty() && !list.has_statistics && !list.is_table)) {
    const bool of_all = list.is_table || !list.inserted.empty() || !list.removed.empty();
    AppendPart(Grouped(list.changed) + (of_all ? "" : " of " + Grouped(list.right_size)) + " changed", text);
    if (list.has_statistics) {
      const std::string percent = PercentText(list.left_mean, list.right_mean);
      const double moved = list.right_mean - list.left_mean;
      AppendPart("mean " + (percent.empty() ? SignedText(moved, std::chars_format::general, 3) : percent), text);
      AppendPart(
          "largest " + DistanceText(list.largest_left, list.largest_right) + " at " + PlaceText(list, list.largest),
          text);
    }
  }
  return text.empty() ? path : path + ": " + text;
}

/// Appends ": 800 → 812 (+1.5 %)".
void AppendChange(const FieldValue& left, const FieldValue& right, std::string& text) {
  text += ": ";
  std::visit(ToText{text}, left);
  text += " → ";
  std::visit(ToText{text}, right);
  double from = 0, to = 0;
  if (!NumberOf(left, &from) || !NumberOf(right, &to) || from == to) return;
  const std::string percent = PercentText(from, to);
  if (!percent.empty()) text.append(" (").append(percent).append(")");
}

}  // namespace

std::string ElementPath(const Difference& difference, size_t right_index) {
  const ListChange& list = *difference.list;
  std::string path;
  path.reserve(difference.path.size() + list.row_field.size() + 80);  // for the change that may come after it
  path.append(difference.path).append("[");
  if (!list.row_field.empty()) {
    AppendNumber(path, right_index / list.right_columns);
    path.append("].").append(list.row_field).append("[");
    right_index %= list.right_columns;
  }
  AppendNumber(path, right_index);
  return path += ']';
}

std::vector<std::string> DifferenceTexts(const Difference& difference, bool all_elements) {
  switch (difference.kind) {
    case DifferenceKind::kBytes:
      return {"in bytes only: " +
              (difference.path.empty() ? "fields that the schema lacks, or another form of a value" : difference.path)};
    case DifferenceKind::kChanged:
    case DifferenceKind::kAdded:
    case DifferenceKind::kRemoved: {
      std::string text = difference.path;
      AppendChange(difference.left, difference.right, text);
      return {text + (difference.in_one_schema ? " (not in the other schema)" : "")};
    }
    case DifferenceKind::kList:
      break;
  }
  const ListChange& list = *difference.list;
  std::vector<std::string> lines;
  const bool few = list.changed > 0 && list.changed <= kFewChanges && list.changed == list.elements.size() &&
                   list.inserted.empty() && list.removed.empty();
  if (!few || list.is_table) lines.push_back(ListText(difference));
  if (few ? list.is_table && !all_elements : !all_elements) return lines;
  lines.reserve(lines.size() + list.elements.size());
  for (const ElementChange& element : list.elements) {
    AppendChange(element.left, element.right, lines.emplace_back(ElementPath(difference, element.right_index)));
  }
  return lines;
}

}  // namespace zotuning
