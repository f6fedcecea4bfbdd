#include "bin/bin_scanner.h"

#include "schema/project_config.h"
#include "support/project.h"

namespace {

using namespace zotest;
using namespace ZO_TUNING::internal;
using testing::EndsWith;

class BinScannerTest : public ProjectTest {
 protected:
  /// One line per item, and the fault.
  Strings Scan(const std::string& bytes, BinScanner::Modules modules = BinScanner::Modules::kParse) {
    BinScanner scanner(std::string_view(bytes), schema_, labels_, modules);
    EXPECT_EQ(scanner.bytes(), bytes.size());
    Strings lines;
    while (scanner.Next()) {
      if (scanner.is_version()) {
        lines.push_back(std::to_string(scanner.version().offset) + " version " + Text(*scanner.version().message));
        continue;
      }
      const BinRecord& record = scanner.record();
      lines.push_back(std::to_string(record.label.offset) + " " + record.module_name + " mode " +
                      std::to_string(record.values[1]) + " at " + std::to_string(record.module.offset) + ", " +
                      std::to_string(record.module.bytes.size()) + " bytes " +
                      (record.module.message == nullptr ? "not parsed" : Text(*record.module.message)));
    }
    if (const BinFault* fault = scanner.fault()) {
      lines.push_back(std::to_string(fault->offset) + " " + fault->item + ": expected " + fault->expected + ", found " +
                      fault->found);
      EXPECT_FALSE(scanner.Next());
    }
    return lines;
  }

  ZO_TUNING::internal::Schema schema_{dir_ + "/proto"};
  Labels labels_{names_, map_};
};

TEST_F(BinScannerTest, TellsWhatIsWhere) {
  // Offsets: the version at 4, the labels at 14 and 92, each of them 70 bytes, and the modules after them.
  const std::string bytes = I32(1) + Item(VersionBytes("A", "1")) + Item(LabelBytes({kAWGain, 3})) + Item("") +
                            Item(LabelBytes({kAWGain, 4})) + Item(GainBytes(1.5));
  ASSERT_EQ(LabelBytes({kAWGain, 3}).size(), 70U);
  const Strings lines = Scan(bytes);
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0], "4 version name: \"A\" version: \"1\"");
  EXPECT_THAT(lines[1], StartsWith("14 AWGain mode 3 at 88, 0 bytes"));
  EXPECT_THAT(lines[2], AllOf(StartsWith("92 AWGain mode 4 at 166, 11 bytes"), HasSubstr("1.5")));
  EXPECT_THAT(Scan(bytes, BinScanner::Modules::kSkip)[2], EndsWith("bytes not parsed"));

  const UniqueFile file(std::tmpfile());
  std::fwrite(bytes.data(), 1, bytes.size(), file.get());
  BinRecord record;
  ASSERT_TRUE(ReadRecordAt(file.get(), 92, schema_, labels_, record));
  EXPECT_EQ(record.module_name, "AWGain");
  EXPECT_THAT(Text(*record.module.message), HasSubstr("1.5"));
  EXPECT_FALSE(ReadRecordAt(file.get(), 93, schema_, labels_, record));
}

TEST_F(BinScannerTest, NamesTheFirstFault) {
  const std::string label = Item(LabelBytes({kAWGain, 3}));
  const std::string offset = std::to_string(4 + label.size());
  for (const auto& [bytes, fault] :
       Rows{{"", "0 version count: expected 4 bytes, found the bin ends"},
            {"\1", "0 version count: expected 4 bytes, found 1 byte"},
            {I32(-2), "0 version count: expected a count from 0 on, found -2"},
            {I32(1), "4 length of version 0: expected 4 bytes, found the bin ends"},
            {I32(1) + I32(-1), "4 length of version 0: expected a length from 0 on, found -1"},
            {I32(1) + I32(9) + "ab", "8 version 0: expected 9 bytes, found 2 bytes"},
            {I32(1) + Item("\xff"),
             "8 version 0: expected a message of type ZO_TUNING.Version, found 1 byte that are none"},
            {I32(0) + "abc", "4 length of label of record 0: expected 4 bytes, found 3 bytes"},
            {I32(0) + Item(LabelBytes({99})) + I32(-3),
             "87 length of module of record 0: expected a length from 0 on, found -3"},
            {I32(0) + Item(LabelBytes({kGhost})) + I32(9) + "ab",
             "91 module of record 0: expected 9 bytes, found 2 bytes"},
            {I32(0) + label, offset + " length of AWGain of record 0: expected 4 bytes, found the bin ends"}}) {
    EXPECT_THAT(Scan(bytes), ElementsAre(fault));
  }
}

}  // namespace
