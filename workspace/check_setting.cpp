// Tested by tests/workspace/check_setting_test.cpp.

#include "check_setting.h"

#include <utility>

#include "check_json.h"
#include "files.h"
#include "json/json_text-inl.h"
#include "json_document.h"
#include "schema/field_check.h"

namespace zotuning {
namespace {

/// Forwards diagnostics except warnings, and counts the errors.
class ErrorsOnly : public DiagnosticSink {
 public:
  explicit ErrorsOnly(DiagnosticSink& sink) : sink_(sink) {}
  void Add(Diagnostic diagnostic) override {
    if (diagnostic.severity != Severity::kError) return;
    ++count_;
    sink_.Add(std::move(diagnostic));
  }
  size_t count() const { return count_; }

 private:
  DiagnosticSink& sink_;
  size_t count_ = 0;
};

}  // namespace

std::string MissingNameText(const std::string& name) {
  return "the name " + Quoted(name) + " does not occur in the text; packing asks for the own name of every field, " +
         "which its camelCase form is not";
}

bool ExplainText(const std::string& file, std::string text, const google::protobuf::Descriptor* type, Fields fields,
                 const std::string& refusal, DiagnosticSink& sink, const std::shared_ptr<OldNames>& old_names) {
  const JsonDocument document(std::move(text));
  ErrorsOnly errors(sink);
  const std::string shown = DisplayPath(file);
  CheckText(document, shown, errors);
  FitOptions options;
  options.completeness = fields == Fields::kAll;
  options.rules = false;
  options.old_names = old_names;
  CheckFit(document, type, options, shown, errors);
  if (errors.count() > 0) return false;
  if (refusal.empty()) return true;
  // The structure shows no fault, so protobuf's own message has to do.
  sink.Report(Code::kJsonMisfit, refusal, "", shown);
  return false;
}

bool ParseJson(const std::string& file, const std::string& text, google::protobuf::Message* message,
               DiagnosticSink& sink) {
  const auto result = ZO_TUNING::internal::ParseJson(text, message);
  return result.ok || ExplainText(file, text, message->GetDescriptor(), Fields::kAny, result.reason, sink);
}

bool CheckSettingText(Schema& schema, const std::string& file, const std::string& text,
                      const google::protobuf::Descriptor* type, Fields fields, DiagnosticSink& sink) {
  const auto message = schema.NewMessage(type);
  if (!ParseJson(file, text, message.get(), sink)) return false;
  if (fields == Fields::kAny) return true;
  const std::string* missing = ZO_TUNING::internal::FindMissingField(type, text);
  return missing == nullptr || ExplainText(file, text, type, fields, MissingNameText(*missing), sink);
}

}  // namespace zotuning
