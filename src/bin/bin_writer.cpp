// Tested by tests/bin/generate_test.cpp.

#include "bin/bin_writer.h"

#include <cerrno>
#include <cstdint>

#include "io/message_record-inl.h"

namespace ZO_TUNING {
namespace internal {

namespace {

constexpr size_t kStreamBufferSize = size_t{256} << 10;

}  // namespace

bool BinWriter::Open(const std::string& path) {
  file_.reset(std::fopen(path.c_str(), "wb"));
  if (file_ == nullptr) {
    Fail(errno);
    return false;
  }
  stream_buffer_.resize(kStreamBufferSize);
  // If the larger buffer cannot be set, the stream still works.
  (void)std::setvbuf(file_.get(), &stream_buffer_[0], _IOFBF, stream_buffer_.size());
  return true;
}

void BinWriter::WriteVersions(const std::vector<google::protobuf::Message*>& versions) {
  const int32_t count = static_cast<int32_t>(versions.size());
  Write(&count, sizeof(count));
  for (const google::protobuf::Message* version : versions) WriteMessage(*version);
}

void BinWriter::WriteMessage(const google::protobuf::Message& message) {
  const size_t size = message.ByteSizeLong();
  if (!FitsRecord(size)) return Fail(EFBIG);
  message_bytes_.resize(size);
  // With the sizes just computed; like the partial forms, it does not stop at an unset required field.
  message.SerializeWithCachedSizesToArray(reinterpret_cast<uint8_t*>(&message_bytes_[0]));
  WriteMessageBytes(message_bytes_);
}

void BinWriter::WriteMessageBytes(std::string_view bytes) {
  if (!FitsRecord(bytes.size())) return Fail(EFBIG);
  const int32_t length = static_cast<int32_t>(bytes.size());
  Write(&length, sizeof(length));
  Write(bytes.data(), bytes.size());
}

bool BinWriter::Close() {
  std::FILE* file = file_.release();
  if (file != nullptr) {
    if (std::fflush(file) != 0) Fail(errno);
    if (std::fclose(file) != 0) Fail(errno);
  }
  return ok();
}

void BinWriter::Write(const void* data, size_t size) {
  if (!ok() || size == 0) return;
  errno = 0;
  if (std::fwrite(data, 1, size, file_.get()) != size) Fail(errno);
}

void BinWriter::Fail(int error) {
  if (ok()) error_ = error == 0 ? EIO : error;
}

}  // namespace internal
}  // namespace ZO_TUNING
