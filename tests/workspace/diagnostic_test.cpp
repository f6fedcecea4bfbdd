#include "workspace/diagnostic.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "workspace/suggest.h"

namespace zotest {
namespace {

using zotuning::Code;
using zotuning::CodeInfo;
using zotuning::DidYouMean;
using zotuning::Nearest;

TEST(Codes, HaveNamesAndTexts) {
  std::set<std::string> names;
  for (const CodeInfo& info : zotuning::kCodes) {
    const std::string name = info.name;
    EXPECT_TRUE(names.insert(name).second) << name;
    EXPECT_EQ(name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-"), std::string::npos) << name;
    EXPECT_EQ(zotuning::FindCode(name), &info);
    EXPECT_EQ(&zotuning::Info(info.code), &info) << name;
    const std::string summary = info.summary, why = info.why, mend = info.mend;
    EXPECT_TRUE(!summary.empty() && summary.back() != '.') << name;
    EXPECT_TRUE(!why.empty() && why.back() == '.') << name;
    EXPECT_TRUE(!mend.empty() && mend.back() == '.') << name;
    EXPECT_NE(std::string(info.example), "") << name;
  }
  EXPECT_EQ(zotuning::FindCode("json-sintax"), nullptr);
}

TEST(Suggest, NearestName) {
  const std::vector<std::string> names = {"AfCommon", "AfContrast", "AECommon", "gain", "is"};
  const struct {
    const char* name;
    const char* nearest;
  } rows[] = {
      {"AfComon", "AfCommon"},
      {"afcommon", "AfCommon"},
      {"AfCont", "AfContrast"},
      {"AfCmomon", "AfCommon"},
      {"gian", "gain"},
      {"x", ""},
      {"gain", ""},
      {"completely else", ""},
  };
  for (const auto& row : rows) EXPECT_EQ(Nearest(row.name, names), row.nearest) << row.name;
  EXPECT_EQ(DidYouMean("gian", names), "; did you mean 'gain'?");
  EXPECT_EQ(DidYouMean("gain", names), "");
}

}  // namespace
}  // namespace zotest
