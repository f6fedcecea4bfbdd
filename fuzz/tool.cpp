// Command lines of the tool, one per line, on a small project. Words are separated by spaces; those that could lead out
// of the project's folder are left out.

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "support.h"
#include "tool_run.h"

namespace {

namespace fs = std::filesystem;
using Words = std::vector<std::string>;

constexpr size_t kMaxLines = 4;

const char* const kLines[] = {
    "tree",
    "modules --json",
    "labels module",
    "sensors",
    "check --json",
    "check front/mode_1/AfCommon.json --strict",
    "template AfCommon --force",
    "template --all --force",
    "new --sensor front module=AWBCommon mode=9 scenario=Video --json",
    "new --sensor front module=AfCommon mode=1,2 --from sensor=main_wide mode=0 --force",
    "get lens --where module=AfCommon sensor=front,default --json",
    "set lens.macro_code+=1 --where module=AfCommon --dry-run",
    "set lens.macro_code*=1.01 --round\nfmt --check",
    "set lens.macro_code=700 --create --where sensor=front module=AfCommon mode=7",
    "fmt",
    "fmt --check default/AWBCommon.json",
    "pack -o out\nverify out\nshow out\nshow out/zo_tuning/front.bin --record 0 --json",
    "pack -o out --sensor front\nshow out/zo_tuning/front.bin --text\nverify out/zo_tuning/front.bin --json",
    "pack -o out\npack -o out --force\nshow out/zo_tuning/default.bin --offsets",
    "pack -o out\ndiff out/zo_tuning/front.bin front --all\ndiff main_wide front --json --stat",
    "diff default front/mode_1 --exit-code --rel 0.1",
    "which front module=AfCommon mode=1 scenario=Video --value lens.macro_code",
    "migrate --dry-run\nmigrate --rename AfCommon.lens=optics",
    "schema compare HEAD",
    "version list --json",
    "version set AF 9.9\nversion header --check\nversion header\nversion list",
    "init demo --proto proto --sensor a --sensor b\n-C demo template --all\n-C demo check",
    "--help",
    "-v tree --json",
    "--version",
};

/// Whether no interpretation of the word leads out of the current directory.
bool StaysInside(const std::string& word) {
  if (word.find("..") != word.npos && word.find('/') != word.npos) return false;
  if (word.find('\0') != word.npos || word == ".." || word.find('~') != word.npos) return false;
  const size_t slash = word.find('/');
  return slash == word.npos || (slash > 0 && word[0] != '-' && word.find_first_of("=,:") > slash);
}

class Target {
 public:
  Target() {
    zofuzz::MakeSmallProject(kept_, {"AfCommon", "AWBCommon"});
    fs::copy(kept_, project_, fs::copy_options::recursive);
    state_ = zofuzz::Archive(project_);
  }

  void Run(std::string_view input) {
    fs::current_path(project_);
    std::istringstream lines{std::string(input)};
    std::string line;
    for (size_t count = 0; count < kMaxLines && std::getline(lines, line); ++count) {
      std::istringstream split(line);
      Words words;
      for (std::string word; split >> word;) {
        if (StaysInside(word)) words.push_back(word);
      }
      (void)zofuzz::RunTool(words);
    }
    if (zofuzz::Archive(project_) != state_) {
      for (const auto& entry : fs::directory_iterator(project_)) {
        const std::string name = entry.path().filename();
        zofuzz::Require(name[0] != '.', "nothing is left in the project's folder");
        fs::remove_all(entry.path());
      }
      fs::copy(kept_, project_, fs::copy_options::recursive | fs::copy_options::overwrite_existing);
    }
  }

 private:
  const std::string kept_ = zofuzz::ScratchDir() + "/kept", project_ = zofuzz::ScratchDir() + "/work";
  std::string state_;
};

}  // namespace

void zofuzz::Run(const uint8_t* data, size_t size) {
  static Target target;
  target.Run(std::string_view(reinterpret_cast<const char*>(data), size));
}

void zofuzz::Seeds(const std::string& dir) {
  for (size_t i = 0; i < std::size(kLines); ++i) Write(dir + "/" + std::to_string(i), kLines[i]);
}
