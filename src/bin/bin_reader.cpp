// Tested by tests/bin/dump_test.cpp.

#include "bin/bin_reader.h"

namespace ZO_TUNING {
namespace internal {

int32_t BinReader::ReadVersionCount() {
  int32_t count = 0;
  if (records_.ReadInt32(&count) != ReadStatus::kOk || count < 0) return 0;
  return count;
}

ReadStatus BinReader::ReadMessage(int32_t length, google::protobuf::Message* message) {
  std::string_view bytes;
  const ReadStatus status = records_.ReadBytes(length, &bytes);
  if (status != ReadStatus::kOk) return status;
  return message->ParseFromArray(bytes.data(), length) ? ReadStatus::kOk : ReadStatus::kParseFailed;
}

}  // namespace internal
}  // namespace ZO_TUNING
