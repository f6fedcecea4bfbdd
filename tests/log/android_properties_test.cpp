#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "ZoTuningUtils.h"

// The process provides the properties, as Android would.
extern "C" int __system_property_get(const char* name, char* value) {
  if (std::strcmp(name, "set") == 0) return static_cast<int>(std::strlen(std::strcpy(value, "on")));
  if (std::strcmp(name, "broken") == 0) return -1;
  return 0;
}

namespace {

TEST(PropertyTest, TakesTheDefaultForWhatIsNotSet) {
  const std::string long_default(100, 'd');
  struct Row {
    const char* key;
    const char* fallback;
    int length;
    std::string value;
  };
  for (const Row& row :
       {Row{"set", "abc", 2, "on"}, Row{"set", nullptr, 2, "on"}, Row{"unset", "abc", 3, "abc"},
        Row{"unset", "", 0, ""}, Row{"unset", nullptr, 0, "left alone"}, Row{"broken", "abc", 3, "abc"},
        Row{"broken", nullptr, -1, "left alone"}, Row{"unset", long_default.c_str(), 91, long_default.substr(0, 91)}}) {
    char value[92] = "left alone";
    EXPECT_EQ(__property_get(row.key, value, row.fallback), row.length) << row.key;
    EXPECT_EQ(value, row.value) << row.key;
  }
}

}  // namespace
