/// \file
/// Bodies of the public functions that write the files of a project directory. Contracts: ZoTuningUtils.h; formats:
/// docs/project-directory.md.
#pragma once

#include <google/protobuf/message.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <limits>
#include <memory>
#include <string>

#include "log/tuning_log-inl.h"

namespace ZO_TUNING {

inline void MSG_TO_BIN(const google::protobuf::Message* message, const char* path) try {
  struct Closer {
    void operator()(std::FILE* open_file) const { (void)std::fclose(open_file); }
  };
  const std::unique_ptr<std::FILE, Closer> file(std::fopen(path, "wb"));
  if (file == nullptr) {
    internal::TuningLog(internal::kLogError, __LINE__, __func__, "Cannot open output file %s", path);
    return;
  }
  const size_t size = message->ByteSizeLong();
  if (size <= static_cast<size_t>(std::numeric_limits<int32_t>::max())) {
    const int32_t length = static_cast<int32_t>(size);
    std::string bytes(size, '\0');
    // The partial form: protobuf builds with checks stop at an unset required field, the others write what there is.
    message->SerializePartialToArray(&bytes[0], length);
    (void)std::fwrite(&length, sizeof(length), 1, file.get());
    (void)std::fwrite(bytes.data(), 1, bytes.size(), file.get());
  }
} catch (...) {
  internal::ReportException(__LINE__, __func__);
}

inline void ADD_GITKEEP_TO_DIR(const std::string& dir) try {
  std::ofstream(dir + "/" + ".gitkeep", std::ios::out | std::ios::ate);
} catch (...) {
  internal::ReportException(__LINE__, __func__);
}

}  // namespace ZO_TUNING
