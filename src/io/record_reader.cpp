// Tested by tests/io/record_reader_test.cpp.

#include "io/record_reader.h"

#include <sys/stat.h>

#include <algorithm>

namespace ZO_TUNING {
namespace internal {

namespace {

// How much is allocated at once because a length says so, beyond what the file has delivered.
constexpr size_t kMaxStep = size_t{1} << 20;

}  // namespace

RecordReader::RecordReader(std::FILE* file) : file_(file) {
  struct stat info;
  const int descriptor = fileno(file);
  const long begin = std::ftell(file);
  // Files in /proc and the like report 0 and still deliver bytes.
  if (descriptor >= 0 && begin >= 0 && fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > begin) {
    size_ = static_cast<uint64_t>(info.st_size - begin);
  }
}

ReadStatus RecordReader::Fail(ReadStatus status) {
  used_up_ = true;
  return status;
}

size_t RecordReader::Read(void* to, size_t wanted) {
  size_t got = 0;
  if (file_ != nullptr) {
    got = std::fread(to, 1, wanted, file_);
  } else {
    got = memory_.copy(static_cast<char*>(to), wanted, static_cast<size_t>(offset_));
  }
  offset_ += got;
  return got;
}

ReadStatus RecordReader::ReadInt32(int32_t* value) {
  if (used_up_) return ReadStatus::kEnd;
  const size_t got = Read(value, sizeof(*value));
  if (got == sizeof(*value)) return ReadStatus::kOk;
  return Fail(got == 0 ? ReadStatus::kEnd : ReadStatus::kShortLength);
}

ReadStatus RecordReader::ReadBytes(int32_t length, std::string_view* bytes) {
  if (used_up_) return ReadStatus::kShortData;
  const uint64_t left = size_ == UINT64_MAX ? UINT64_MAX : size_ - std::min(size_, offset_);
  if (length < 0 || static_cast<uint64_t>(length) > left) return Fail(ReadStatus::kBadLength);
  const size_t wanted = static_cast<size_t>(length);
  if (file_ == nullptr) {
    *bytes = memory_.substr(static_cast<size_t>(offset_), wanted);
    offset_ += wanted;
    return ReadStatus::kOk;
  }
  size_t got = 0;
  while (got < wanted) {
    const size_t step = std::min(wanted - got, std::max(kMaxStep, got));
    if (buffer_.size() < got + step) buffer_.resize(got + step);
    const size_t read = Read(&buffer_[got], step);
    got += read;
    if (read < step) return Fail(ReadStatus::kShortData);
  }
  *bytes = std::string_view(buffer_.data(), wanted);
  return ReadStatus::kOk;
}

}  // namespace internal
}  // namespace ZO_TUNING
