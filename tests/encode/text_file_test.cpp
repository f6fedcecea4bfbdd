#include "encode/text_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <thread>

#include "encode/json_encoder.h"
#include "support/files.h"

namespace {

using zotest::TempDir;

void ExpectText(const ZO_TUNING::internal::TextFile& file, const std::string& text) {
  EXPECT_TRUE(file.text() == text);
  const char* padding = file.text().data() + text.size();
  EXPECT_TRUE(std::all_of(padding, padding + ZO_TUNING::internal::kTextPadding, [](char c) { return c == '\0'; }));
}

TEST(TextFileTest, ReadsFilesOfAnySizeOneAfterAnother) {
  const TempDir temp;
  ZO_TUNING::internal::TextFile file;
  // A shorter text behind a longer one, an empty one, and sizes around that of the first buffer.
  for (const size_t size :
       {size_t{3}, size_t{0}, size_t{65535 - 64}, size_t{65536 - 64}, size_t{65536}, size_t{7}, size_t{1} << 20}) {
    std::string text(size, 'x');
    if (size > 2) text[2] = '\0';
    zotest::Write(temp / "a.json", text);
    ASSERT_TRUE(file.Read(temp / "a.json"));
    ExpectText(file, text);
  }
  EXPECT_FALSE(file.Read(temp / "none.json"));
  EXPECT_FALSE(file.Read(temp.str()));
  zotest::Write(temp / "a.json", "again");
  EXPECT_TRUE(file.Read(temp / "a.json"));
  ExpectText(file, "again");
}

TEST(TextFileTest, ReadsWhatHasNoSize) {
  const TempDir temp;
  const std::string pipe = temp / "pipe.json";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const std::string text(200000, 'y');
  std::thread writer([&] { zotest::Write(pipe, text); });
  ZO_TUNING::internal::TextFile file;
  EXPECT_TRUE(file.Read(pipe));
  writer.join();
  ExpectText(file, text);
}

}  // namespace
