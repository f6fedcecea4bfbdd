#include "io/record_reader.h"

#include <gtest/gtest.h>

#include "support/wire.h"

namespace {

using namespace zotest;
using namespace ZO_TUNING::internal;

ReadStatus ReadRecord(RecordReader& reader, std::string_view* bytes) {
  int32_t length = 0;
  const ReadStatus status = reader.ReadInt32(&length);
  return status == ReadStatus::kOk ? reader.ReadBytes(length, bytes) : status;
}

TEST(RecordReaderTest, TellsACleanEndFromACut) {
  struct Row {
    std::string bytes;  // after one good record
    ReadStatus in_file, in_stream;
    std::string record = "";
  };
  for (const Row& row : {Row{"", ReadStatus::kEnd, ReadStatus::kEnd},
                         Row{I32(3).substr(0, 3), ReadStatus::kShortLength, ReadStatus::kShortLength},
                         Row{I32(3) + "abcd", ReadStatus::kOk, ReadStatus::kOk, "abc"},
                         Row{I32(3) + "ab", ReadStatus::kBadLength, ReadStatus::kShortData},
                         Row{I32(-1) + "abc", ReadStatus::kBadLength, ReadStatus::kBadLength},
                         Row{I32(INT32_MAX) + "abc", ReadStatus::kBadLength, ReadStatus::kShortData}}) {
    for (const bool in_file : {true, false}) {
      SCOPED_TRACE(testing::PrintToString(row.bytes) + (in_file ? " in a file" : " in a stream of unknown size"));
      std::string content = Item("first") + row.bytes;
      const UniqueFile file(in_file ? std::tmpfile() : fmemopen(&content[0], content.size(), "rb"));
      if (in_file) {
        std::fwrite(content.data(), 1, content.size(), file.get());
        std::rewind(file.get());
      }
      RecordReader reader(file.get());
      RecordReader in_memory{std::string_view(content)};
      std::string_view bytes;
      ASSERT_EQ(ReadRecord(reader, &bytes), ReadStatus::kOk);
      EXPECT_EQ(bytes, "first");
      const ReadStatus status = in_file ? row.in_file : row.in_stream;
      ASSERT_EQ(ReadRecord(reader, &bytes), status);
      std::string_view same;
      ASSERT_EQ(ReadRecord(in_memory, &same), ReadStatus::kOk);
      EXPECT_EQ(ReadRecord(in_memory, &same), row.in_file);
      if (status == ReadStatus::kOk) {
        EXPECT_EQ(same, row.record);
        EXPECT_EQ(reader.offset(), 9 + 4 + row.record.size());
        EXPECT_EQ(bytes, row.record);
      } else {
        // The rest counts as consumed.
        int32_t length = 0;
        EXPECT_EQ(reader.ReadInt32(&length), ReadStatus::kEnd);
        EXPECT_EQ(reader.ReadBytes(0, &bytes), ReadStatus::kShortData);
      }
    }
  }
}

}  // namespace
