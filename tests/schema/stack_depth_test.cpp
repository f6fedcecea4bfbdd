#include "schema/stack_depth.h"

#include <pthread.h>

#include <functional>

#include "schema/schema.h"
#include "support/project.h"

#include "ZoTuningUtils.h"

namespace {

using namespace zotest;

/// Runs `work` on a thread with a stack of this many kB.
void OnStack(size_t kilobytes, std::function<void()> work) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, kilobytes << 10), 0);
  pthread_t thread;
  const auto run = [](void* data) -> void* {
    (*static_cast<std::function<void()>*>(data))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  (void)pthread_attr_destroy(&attributes);
}

enum class Kind { kChain, kCycle, kNesting, kImports };

void WriteLevels(Kind kind, int levels, const std::string& dir) {
  std::string text = "syntax = \"proto3\"; package ZO_TUNING;\n";
  switch (kind) {
    case Kind::kChain:
    case Kind::kCycle:
      for (int i = 0; i < levels; ++i) {
        const std::string next = i + 1 < levels ? "T" + std::to_string(i + 1) : kind == Kind::kCycle ? "T0" : "int32";
        text += "message T" + std::to_string(i) + " { " + next + " x = 1; }\n";
      }
      break;
    case Kind::kNesting:
      for (int i = 0; i < levels; ++i) text += "message T" + std::to_string(i) + " { ";
      text += std::string(static_cast<size_t>(levels), '}');
      break;
    case Kind::kImports:
      for (int i = 1; i < levels; ++i) {
        const std::string next = i + 1 < levels ? "import \"i" + std::to_string(i + 1) + ".proto\";" : "";
        Write(dir + "/i" + std::to_string(i) + ".proto", "syntax = \"proto3\"; /* import \"a.proto\"; */" + next);
      }
      text += "import \"i1.proto\"; message T0 {}";
      break;
  }
  Write(dir + "/a.proto", text);
}

// What fits on the stack works; what does not is rejected before protobuf recurses, as a crash could not be survived.
TEST(StackDepthTest, EveryKindOfDepthIsBoundedByTheStack) {
  struct Row {
    Kind kind;
    size_t stack_kilobytes;
    int held, refused;
  };
  for (const Row& row : {
           Row{Kind::kChain, 64, 32, 400},
           Row{Kind::kChain, 1024, 500, 5000},
           Row{Kind::kChain, 8192, 5000, 60000},
           Row{Kind::kCycle, 64, 32, 400},
           Row{Kind::kCycle, 1024, 500, 5000},
           Row{Kind::kCycle, 8192, 5000, 60000},
           Row{Kind::kNesting, 64, 16, 400},
           Row{Kind::kNesting, 1024, 30, 5000},
           Row{Kind::kNesting, 8192, 30, 60000},
           Row{Kind::kImports, 64, 8, 60},
           Row{Kind::kImports, 1024, 100, 1000},
           Row{Kind::kImports, 8192, 500, 5000},
       }) {
    for (const bool is_held : {true, false}) {
      const int levels = is_held ? row.held : row.refused;
      SCOPED_TRACE(std::to_string(static_cast<int>(row.kind)) + " " + std::to_string(row.stack_kilobytes) + " " +
                   std::to_string(levels));
      const TempDir dir;
      WriteLevels(row.kind, levels, dir.str());
      OnStack(row.stack_kilobytes, [&] {
        ZO_TUNING::internal::Schema schema(dir.str());
        // The last type of a cycle is as deep as the first.
        for (const std::string& type : {std::string("T0"), "T" + std::to_string(levels - 1)}) {
          if (row.kind != Kind::kCycle && type != "T0") continue;
          const auto* found = schema.FindType(type);
          EXPECT_EQ(found != nullptr, is_held) << type;
          if (found == nullptr) continue;
          const auto message = schema.NewMessage(found);
          ZO_TUNING::MSG_PRONE_FOR_BIN(message.get(), found);
        }
      });
    }
  }
}

TEST(StackDepthTest, FoldersTakeNoStack) {
  const TempDir dir;
  std::string path = dir.str();
  for (int i = 0; i < 400; ++i) path += "/d";
  Write(path + "/a.json", "{}");
  OnStack(64, [&] {
    Strings files;
    EXPECT_TRUE(ZoTuningUtils::FindAllJsonFiles(dir.str().c_str(), files));
    EXPECT_THAT(files, ElementsAre(path + "/a.json"));
  });
}

// Import names are read as protobuf reads them: escapes, pieces, comments.
TEST(StackDepthTest, ImportsAreSeenHoweverTheyAreWritten) {
  for (const std::string import : {"import \"i1.proto\";", "import 'i' \"1.proto\";",
                                   "import public \"\\1511.prot\\x6f\";", "import /* ; */ weak // \"\n\"i1.proto\";"}) {
    const TempDir dir;
    WriteLevels(Kind::kImports, 60, dir.str());
    Write(dir / "a.proto", "syntax = \"proto3\"; package ZO_TUNING; " + import + " message T0 {}");
    OnStack(64, [&] { EXPECT_EQ(ZO_TUNING::internal::Schema(dir.str()).FindType("T0"), nullptr) << import; });
    OnStack(8192, [&] { EXPECT_NE(ZO_TUNING::internal::Schema(dir.str()).FindType("T0"), nullptr) << import; });
  }
}

}  // namespace
