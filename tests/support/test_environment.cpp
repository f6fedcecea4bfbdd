// The environment of a test program: the locale given by ZOTEST_LOCALE, for C and C++, and temporary files in a folder
// named by ZOTEST_TMPDIR_NAME.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <locale>
#include <string>

namespace {

namespace fs = std::filesystem;

class Surroundings : public testing::Environment {
  void SetUp() override {
    // Throws if there is no such locale; scripts/setup creates it.
    if (const char* name = std::getenv("ZOTEST_LOCALE")) std::locale::global(std::locale(name));
    if (const char* name = std::getenv("ZOTEST_TMPDIR_NAME")) {
      std::string pattern = (fs::temp_directory_path() / "zotuning-tmp-XXXXXX").string();
      root_ = mkdtemp(&pattern[0]);
      fs::permissions(root_, fs::perms(0755));
      fs::create_directory(root_ / name);
      fs::permissions(root_ / name, fs::perms(01777));
      setenv("TMPDIR", (root_ / name).c_str(), 1);
    }
  }

  void TearDown() override {
    if (!root_.empty()) fs::remove_all(root_);
  }

  fs::path root_;
};

const testing::Environment* const kSurroundings = testing::AddGlobalTestEnvironment(new Surroundings);

}  // namespace
