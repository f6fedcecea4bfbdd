/// \file
/// The protocol-buffers wire format and the framing of a tuning bin, encoded by hand.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace zotest {

inline std::string Varint(int64_t number) {
  auto value = static_cast<uint64_t>(number);
  std::string bytes;
  for (; value >= 0x80; value >>= 7) bytes += static_cast<char>(value | 0x80);
  return bytes + static_cast<char>(value);
}
inline std::string Tag(int field, unsigned wire_type) { return Varint(int64_t{field} << 3 | wire_type); }

/// A singular int32, enum or bool field; left out at 0, as proto3 does.
inline std::string Int(int field, int64_t value) { return value == 0 ? "" : Tag(field, 0) + Varint(value); }

/// A string, bytes, message or packed field; present even if empty.
inline std::string Len(int field, const std::string& bytes) {
  return Tag(field, 2) + Varint(static_cast<int64_t>(bytes.size())) + bytes;
}

/// The bytes of a little-endian float, double or integer, as in packed fields.
template <typename T>
std::string Raw(T value) {
  std::string bytes(sizeof(value), '\0');
  std::memcpy(&bytes[0], &value, sizeof(value));
  return bytes;
}
inline std::string Float(int field, float value) { return Tag(field, 5) + Raw(value); }
inline std::string Double(int field, double value) { return Tag(field, 1) + Raw(value); }

inline std::string I32(int32_t value) { return Raw(value); }

/// One item of a bin: its length, then its bytes.
inline std::string Item(const std::string& bytes) { return I32(static_cast<int32_t>(bytes.size())) + bytes; }

}  // namespace zotest
