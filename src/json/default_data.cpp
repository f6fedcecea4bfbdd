// Tested by tests/json/default_data_test.cpp.

#include "json/default_data.h"

#include <memory>

namespace ZO_TUNING {
namespace internal {

JsonResult ModuleTemplate(Schema& schema, const google::protobuf::Descriptor* type, const TemplateSink& sink,
                          std::string* json) {
  json->clear();
  const std::unique_ptr<google::protobuf::Message> message = schema.NewMessage(type);
  return PrintTemplate(message.get(), type, sink, json);
}

}  // namespace internal
}  // namespace ZO_TUNING
