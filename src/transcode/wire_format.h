/// \file
/// The parts of the protobuf wire format that the fast path writes itself.
#pragma once

#include <cstdint>
#include <cstring>

namespace ZO_TUNING {
namespace internal {

constexpr size_t kMaxVarintSize = 10;

enum class WireType : uint32_t { kVarint = 0, kFixed64 = 1, kDelimited = 2, kFixed32 = 5 };

inline char* WriteVarint(uint64_t value, char* out) {
  while (value >= 0x80) {
    *out++ = static_cast<char>(value | 0x80);
    value >>= 7;
  }
  *out++ = static_cast<char>(value);
  return out;
}

inline size_t VarintSize(uint64_t value) {
  size_t size = 1;
  while (value >= 0x80) {
    value >>= 7;
    ++size;
  }
  return size;
}

inline char* WriteTag(int32_t number, WireType type, char* out) {
  return WriteVarint(static_cast<uint64_t>(number) << 3 | static_cast<uint64_t>(type), out);
}

/// Fixed-width values in the byte order of the host, which is little-endian on every target, as on the wire.
template <typename T>
char* WriteFixed(T value, char* out) {
  std::memcpy(out, &value, sizeof(value));
  return out + sizeof(value);
}

inline uint64_t ZigZag(int64_t value) {
  return (static_cast<uint64_t>(value) << 1) ^ static_cast<uint64_t>(value >> 63);
}

}  // namespace internal
}  // namespace ZO_TUNING
