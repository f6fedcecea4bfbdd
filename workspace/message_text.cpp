#include "message_text.h"

#include <google/protobuf/text_format.h>
#include <google/protobuf/util/field_comparator.h>
#include <google/protobuf/util/json_util.h>
#include <google/protobuf/util/message_differencer.h>

#include <exception>

namespace zotuning {
namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::TextFormat;
using google::protobuf::util::MessageDifferencer;

constexpr size_t kShownBytes = 60;

std::string FieldPathText(const std::vector<MessageDifferencer::SpecificField>& path, bool right) {
  std::string text;
  for (const MessageDifferencer::SpecificField& step : path) {
    if (step.field == nullptr) continue;
    if (!text.empty()) text += '.';
    text += step.field->name();
    const int index = right ? step.new_index : step.index;
    if (step.field->is_repeated() && index >= 0) text += "[" + std::to_string(index) + "]";
  }
  return text;
}

/// The value of a field for one line; of a list the element that the path names.
std::string ValueText(const Message& parent, const MessageDifferencer::SpecificField& step, bool right) {
  const FieldDescriptor* field = step.field;
  if (field == nullptr) return "";
  const int index = right ? step.new_index : step.index;
  if (field->is_repeated() && index < 0) return "";
  TextFormat::Printer printer;
  printer.SetSingleLineMode(true);
  std::string text;
  printer.PrintFieldValueToString(parent, field, field->is_repeated() ? index : -1, &text);
  if (field->message_type() != nullptr) text = "{ " + text + "}";
  return text.size() > kShownBytes ? text.substr(0, kShownBytes) + "..." : text;
}

class Collector : public MessageDifferencer::Reporter {
  using Path = std::vector<MessageDifferencer::SpecificField>;

 public:
  Collector(size_t limit, std::vector<FieldDifference>& differences, size_t& count)
      : limit_(limit), differences_(differences), count_(count) {}

  void ReportAdded(const Message& left, const Message& right, const Path& path) override {
    Add(left, false, right, true, path);
  }
  void ReportDeleted(const Message& left, const Message& right, const Path& path) override {
    Add(left, true, right, false, path);
  }
  void ReportModified(const Message& left, const Message& right, const Path& path) override {
    // A message counts as modified after the fields in it, which say it all.
    if (path.back().field == nullptr || path.back().field->message_type() == nullptr) {
      Add(left, true, right, true, path);
    }
  }

 private:
  /// The messages are those that hold the last field of the path, or lack it.
  void Add(const Message& left, bool in_left, const Message& right, bool in_right, const Path& path) {
    ++count_;
    if (differences_.size() >= limit_ || path.empty()) return;
    // A field that cannot be absent has its default where it is not written down.
    const FieldDescriptor* field = path.back().field;
    const bool always = field != nullptr && !field->is_repeated() && !field->has_presence();
    differences_.push_back({FieldPathText(path, !in_left), in_left || always ? ValueText(left, path.back(), false) : "",
                            in_right || always ? ValueText(right, path.back(), true) : ""});
  }

  size_t limit_;
  std::vector<FieldDifference>& differences_;
  size_t& count_;
};

}  // namespace

bool MessageJson(const Message& message, std::string& text, DiagnosticSink& sink) {
  google::protobuf::util::JsonPrintOptions options;
  options.add_whitespace = true;
  options.always_print_primitive_fields = true;
  options.preserve_proto_field_names = true;
  std::string reason;
  try {
    const auto status = google::protobuf::util::MessageToJsonString(message, &text, options);
    if (status.ok()) return true;
    reason = std::string(status.message());
  } catch (const std::exception& error) {
    reason = error.what();
  }
  sink.Report(Code::kPrint, "the message cannot be printed as JSON: " + reason,
              "--text prints it in protobuf's text form");
  return false;
}

std::string MessageText(const Message& message) {
  std::string text;
  TextFormat::PrintToString(message, &text);
  return text;
}

bool SameMessages(const Message& left, const Message& right, size_t limit, std::vector<FieldDifference>& differences,
                  size_t& count) {
  count = 0;
  if (left.SerializePartialAsString() == right.SerializePartialAsString()) return true;
  Collector collector(limit, differences, count);
  google::protobuf::util::DefaultFieldComparator comparator;
  comparator.set_treat_nan_as_equal(true);
  MessageDifferencer differencer;
  differencer.set_field_comparator(&comparator);
  differencer.ReportDifferencesTo(&collector);
  differencer.Compare(left, right);
  return false;
}

}  // namespace zotuning
