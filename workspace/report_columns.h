/// \file
/// Values of a report as columns of bytes, compact even before compression. web/report/columns.js reads them.
///
/// column := kind:u8 scale:u8 count:u32 data
///   kind 1, 2, 4   signed integers of this many bytes, to be divided by 10 to the power of `scale`
///   kind 5, 6      float, double
///   kind 7, 8      int64, uint64
///   kind 9         texts: the bytes of each as u32, then the texts
///   kind 10        no data: the list at the place `count` of the setting that this one is compared with
///   kind 11        numbers near those of the list at the place `count` of that setting: kind:u8, slope:float,
///                  offset:double, then a column of integers: the distance of each number from slope * other + offset,
///                  where `other` is the number there as a float. For kinds 1 to 4 that line is rounded down; for
///                  kind 5 it is rounded to a float, and the distance is counted in floats.
///   kind + 128     numbers of few bits: the lowest number as u64, the bits of each as u8, then the distance of each
///                  from the lowest, packed from the lowest bit of the first byte on. For float and double, the bits of
///                  the numbers are meant.
/// Everything is little-endian. Other numbers of several bytes are split: the lowest byte of each, then the next byte
/// of each and so on, which compresses better.
#pragma once

#include <google/protobuf/message.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zotuning {

/// Values of one field: those of a scalar in many settings, or the elements of a list.
class ReportColumn {
 public:
  /// Appends the value of a non-message field, or one of its elements. All calls must be for fields of the same type.
  void Append(const google::protobuf::Message& message, const google::protobuf::FieldDescriptor* field);
  void AppendElement(const google::protobuf::Message& message, const google::protobuf::FieldDescriptor* field,
                     int index);

  size_t size() const { return texts_.size() + numbers_.size() + reals_.size(); }
  /// How many numbers from index `begin` on are outside the range, including infinities and NaN.
  size_t CountOutside(size_t begin, double low, double high) const;

  /// Appends the bytes of the column.
  void Write(std::string& bytes) const;
  /// The same, shorter where the numbers are near those of `other`, which is at a place of another setting.
  void WriteBeside(const ReportColumn& other, size_t place, std::string& bytes) const;

 private:
  enum class Type { kSigned, kUnsigned, kFloat, kDouble, kText };
  struct Numbers;
  std::optional<Numbers> Decimals() const;
  Numbers ToNumbers() const;

  Type type_ = Type::kSigned;
  std::vector<int64_t> numbers_;  ///< of kUnsigned with the same bits
  std::vector<double> reals_;
  std::vector<std::string> texts_;
};

/// Appends a column that refers to the one at an index of another setting.
void AppendReference(size_t place, std::string& bytes);

/// Appends a four-byte number.
void AppendUint32(size_t number, std::string& bytes);

/// The bytes compressed with zlib, as text: 13 bits, the lowest first, are two characters, a number in base 91; up to 6
/// bits at the end are one. The digits are the visible ASCII characters in order, without '&', '<' and '>', so the text
/// can be put into HTML as it is. A thirteenth shorter than base64.
std::string PackedText(std::string_view bytes);

}  // namespace zotuning
