// The exported logger: DatacenterLoggerFunction, FileCreate, GetFileName, their settings and the debug file. The
// library's own operations report through TuningLog instead. Tested by tests/log/datacenter_logger_test.cpp.

#include <android/log.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "ZoTuningUtils.h"
#include "log/debug_file.h"

int ZoDatacenterSettingDebugLevel = 0;
int ZoDatacenterSettingGroupLevel = 2;

namespace ZO_TUNING {
namespace internal {

char debug_file_path[1024] = "/data/vendor/camera/offlinelog/ZoTuningDebugLogger.log";
std::FILE* debug_file = nullptr;

}  // namespace internal
}  // namespace ZO_TUNING

namespace {

using namespace ZO_TUNING::internal;

constexpr char kLoggerTag[] = "ZoDatacenterLib";

void CloseDebugFile() {
  if (debug_file == nullptr) return;
  (void)std::fclose(debug_file);
  debug_file = nullptr;
}

bool IsEnabled(unsigned group, unsigned level) {
  switch (level) {
    case kLevelError:
    case kLevelWarning:
    case kLevelInfo:
    case kLevelVerbose:
    case kLevelTime:
      break;
    default:
      return false;
  }
  // The value of a level is the bit that enables it.
  if ((static_cast<unsigned>(ZoDatacenterSettingDebugLevel) & level) == 0) return false;
  if (level == kLevelError) return true;
  // The bit of group 1 has the value 1, that of group 2 the value 2.
  return (group == 1 || group == 2) && (static_cast<unsigned>(ZoDatacenterSettingGroupLevel) & group) != 0;
}

const char* LevelTag(unsigned level) {
  switch (level) {
    case kLevelError:
      return "[ERROR]";
    case kLevelWarning:
      return "[ WARN]";
    case kLevelInfo:
      return "[ INFO]";
    case kLevelVerbose:
      return "[ VERB]";
    case kLevelTime:
      return "[ Time]";
    default:
      return "[  UNK]";
  }
}

int AndroidPriority(unsigned level) {
  switch (level) {
    case kLevelVerbose:
      return ANDROID_LOG_VERBOSE;
    case kLevelInfo:
      return ANDROID_LOG_INFO;
    case kLevelWarning:
      return ANDROID_LOG_WARN;
    default:
      return ANDROID_LOG_ERROR;
  }
}

}  // namespace

void ZO_TUNING::internal::WriteLoggerText(unsigned level, const char* text) {
  __android_log_write(AndroidPriority(level), kLoggerTag, text);

  timeval now = {};
  tm local = {};
  int month = 1;
  if (gettimeofday(&now, nullptr) == 0 && (tzset(), localtime_r(&now.tv_sec, &local) != nullptr)) {
    month = local.tm_mon + 1;
  } else {
    now = {};
    local = {};
  }
  if (debug_file == nullptr) return;
  (void)std::fprintf(debug_file, "%02d-%02d %02d:%02d:%02d:%06d %d %d %s\n", month, local.tm_mday, local.tm_hour,
                     local.tm_min, local.tm_sec, static_cast<int>(now.tv_usec), static_cast<int>(getpid()),
                     static_cast<int>(gettid()), text);
}

void FileCreate() {
  if (ZoDatacenterSettingDebugLevel == 0) {
    CloseDebugFile();
    return;
  }
  if (debug_file != nullptr) return;
  debug_file = std::fopen(debug_file_path, "a+");
  if (debug_file == nullptr) {
    std::printf("Open Debug file Failed");
  } else {
    std::printf("fopen a FD 0x%p", static_cast<void*>(debug_file));
  }
}

// NOLINTNEXTLINE(cert-dcl50-cpp): the published signature.
void DatacenterLoggerFunction(const char* file, int line, const char* function, unsigned group, unsigned level,
                              const char* format, ...) {
  FileCreate();
  // A dropped message leaves the file open.
  if (!IsEnabled(group, level)) return;

  char message[1024];
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(message, sizeof(message), format, arguments);
  va_end(arguments);
  if (length < 0) message[0] = '\0';
  char header[250];
  (void)std::snprintf(header, sizeof(header), "%s[ZoDatacenterLib] %s:%d: %s", LevelTag(level), file, line, function);
  char text[1024];
  // Both parts together may exceed the buffer; the text is then truncated.
  if (std::snprintf(text, sizeof(text), "%s %s", header, message) < 0) text[0] = '\0';
  WriteLoggerText(level, text);
  CloseDebugFile();
}

const char* GetFileName(const char* path) {
  const char* slash = std::strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}
