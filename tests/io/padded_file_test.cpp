#include "io/padded_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <thread>

#include "support/files.h"
#include "transcode/json_transcoder.h"

namespace {

/// The text and the zero bytes after it.
void ExpectText(const ZO_TUNING::internal::PaddedFile& file, const std::string& text) {
  const size_t padded_size = text.size() + ZO_TUNING::internal::kTextPadding;
  EXPECT_EQ(file.text().size(), text.size());
  EXPECT_TRUE(std::string(file.text().data(), padded_size) == text + std::string(padded_size - text.size(), '\0'));
}

TEST(TextFileTest, ReadsFilesOfAnySizeOneAfterAnother) {
  const zotest::TempDir temp;
  ZO_TUNING::internal::PaddedFile file;
  EXPECT_FALSE(file.Read(temp / "none.json"));
  EXPECT_FALSE(file.Read(temp.str()));
  // Shorter texts after longer ones, an empty one, and sizes around that of the first buffer.
  for (const int size : {3, 0, 65535 - 64, 65536 - 64, 65536, 7, 1 << 20}) {
    std::string text(static_cast<size_t>(size), 'x');
    if (size > 2) text[2] = '\0';
    zotest::Write(temp / "a.json", text);
    ASSERT_TRUE(file.Read(temp / "a.json"));
    ExpectText(file, text);
  }
}

TEST(TextFileTest, ReadsWhatHasNoSizeThroughSignals) {
  const zotest::TempDir temp;
  ASSERT_EQ(mkfifo((temp / "pipe.json").c_str(), 0600), 0);
  struct sigaction interrupt = {};
  interrupt.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGUSR1, &interrupt, nullptr), 0);
  const std::string text(200000, 'y');
  std::thread writer([&, reader = pthread_self()] {
    std::ofstream pipe(temp / "pipe.json");  // waits for the reader
    for (int i = 0; i < 5; ++i) usleep(2000), pthread_kill(reader, SIGUSR1);
    pipe << text;
  });
  ZO_TUNING::internal::PaddedFile file;
  EXPECT_TRUE(file.Read(temp / "pipe.json"));
  writer.join();
  ExpectText(file, text);
}

TEST(TextFileTest, RefusesWhatProtobufWouldCut) {
  const zotest::TempDir temp;
  for (const off_t size : {off_t{1} << 31, (off_t{1} << 32) + 3}) {
    zotest::Write(temp / "a.json", "{}");
    ASSERT_EQ(truncate((temp / "a.json").c_str(), size), 0);  // sparse
    ZO_TUNING::internal::PaddedFile file;
    EXPECT_FALSE(file.Read(temp / "a.json"));
    EXPECT_EQ(errno, EFBIG);
  }
}

}  // namespace
