// Packing in the workspace: the same bytes as the library, every file opened once, and every change noticed.

#include "workspace/pack.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <filesystem>
#include <map>

#include "ZoTuningUtils.h"
#include "support/project.h"

namespace zotest {
namespace {

namespace fs = std::filesystem;
using zotuning::CollectingSink;
using zotuning::Project;
using zotuning::ScopeInputs;

/// Counts how often the files below a directory are opened.
class OpenCounter {
 public:
  explicit OpenCounter(const std::string& dir) : queue_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(dir)) {
      if (!entry.is_regular_file()) continue;
      const std::string path = entry.path();
      names_[inotify_add_watch(queue_, path.c_str(), IN_OPEN)] = path.substr(dir.size() + 1);
    }
  }
  ~OpenCounter() { close(queue_); }

  std::map<std::string, int> Take() {
    std::map<std::string, int> counts;
    alignas(inotify_event) char buffer[1 << 14];
    for (ssize_t got; (got = read(queue_, buffer, sizeof(buffer))) > 0;) {
      for (ssize_t at = 0; at < got;) {
        const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
        ++counts[names_[event->wd]];
        at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      }
    }
    return counts;
  }

 private:
  int queue_;
  std::map<int, std::string> names_;
};

class PackTest : public ProjectTest {
 protected:
  void SetUp() override {
    project_.Add("default", {{"AWGain.json", GainJson("1.5"), {kAWGain}, GainBytes(1.5)}});
    project_.Add("tele", {{"mode_1/AWGain.json", GainJson("2.5"), {kAWGain, 1}, GainBytes(2.5)},
                          {"AfCommon.json", kAfJson, {kAfCommon}, AfBytes()}});
    Write(dir_ + "/proto/version/a.json", VersionJson("a", "1"));
    Write(dir_ + "/tele/version/t.json", VersionJson("t", "2"));
    MakeDirs(out_);
  }

  bool Pack(zotuning::PackOptions options = {false}) {  // AfCommon of the tests leaves out fields
    const auto project = Project::Load(dir_, sink_);
    if (project == nullptr || !project->ok()) return false;
    std::vector<ScopeInputs> inputs;
    std::vector<zotuning::PackedBin> bins;
    return ListInputs(*project, project->Scopes(), inputs, sink_) &&
           PackBins(*project, inputs, options, out_, "shown", bins, sink_);
  }

  std::string out_ = project_.temp / "staging";
  CollectingSink sink_;
};

TEST_F(PackTest, OpensEveryFileOnceAndPacksTheBytesOfTheLibrary) {
  OpenCounter opens(dir_);
  ASSERT_TRUE(Pack()) << sink_.diagnostics().at(0).message;
  for (const auto& [file, count] : opens.Take()) EXPECT_EQ(count, 1) << file;
  OpenCounter again(dir_);
  ASSERT_TRUE(ZoTuningUtils::GenerateProjTuningBins(dir_.c_str(), project_.temp.str().c_str()));
  const auto read = again.Take();
  EXPECT_GE(read.size(), 10u);  // the counter works
  EXPECT_EQ(Read(out_ + "/default.bin"), Read(project_.temp / "zo_tuning/default.bin"));
  EXPECT_EQ(Read(out_ + "/tele.bin").size(), Read(project_.temp / "zo_tuning/tele.bin").size());
}

TEST_F(PackTest, NoticesFilesThatChangeMeanwhile) {
  zotuning::PackOptions options{false};
  options.on_bin = [&](const std::string& name) {
    if (name == "tele") Write(dir_ + "/default/AWGain.json", GainJson("7.25"));
  };
  EXPECT_FALSE(Pack(options));
  ASSERT_EQ(sink_.errors(), 1u);
  EXPECT_EQ(sink_.diagnostics()[0].code, zotuning::Code::kChangedMeanwhile);
}

TEST_F(PackTest, TellsEveryFaultOfEveryFile) {
  Write(dir_ + "/default/AWGain.json", "{\"gain\": }");
  Write(dir_ + "/tele/mode_1/AWGain.json", "{}");
  Write(dir_ + "/tele/AfCommon.json", "{\"nothing\": 1}");
  EXPECT_FALSE(Pack({true}));
  std::map<std::string, int> files;
  for (const auto& diagnostic : sink_.diagnostics()) ++files[diagnostic.file.substr(dir_.size() + 1)];
  EXPECT_EQ(files.size(), 3u);
}

}  // namespace
}  // namespace zotest
