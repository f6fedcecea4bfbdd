// __property_get, the exported reader of Android system properties. Nothing in the library calls it. Tested by
// tests/log/android_properties_test.cpp.

#include <algorithm>
#include <cstring>

#include "ZoTuningUtils.h"

#ifdef __ANDROID__
#include <sys/system_properties.h>
#else
// Outside Android there are no system properties, unless the process brings its own.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the platform's own name.
extern "C" int __system_property_get(const char* name, char* value) __attribute__((weak));
#endif

namespace {

constexpr size_t kPropertyValueMax = 92;

int ReadSystemProperty(const char* key, char* value) {
#ifndef __ANDROID__
  if (__system_property_get == nullptr) {
    value[0] = '\0';
    return 0;
  }
#endif
  return __system_property_get(key, value);
}

}  // namespace

int __property_get(const char* key, char* value, const char* default_value) {
  const int length = ReadSystemProperty(key, value);
  if (length >= 1 || default_value == nullptr) return length;
  const size_t copied = std::min(std::strlen(default_value), kPropertyValueMax - 1);
  std::memcpy(value, default_value, copied);
  value[copied] = '\0';
  return static_cast<int>(copied);
}
