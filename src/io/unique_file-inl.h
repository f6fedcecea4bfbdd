/// \file
/// The owner of an open stdio file.
#pragma once

#include <cstdio>
#include <memory>

namespace ZO_TUNING {
namespace internal {

struct FileCloser {
  void operator()(std::FILE* file) const { (void)std::fclose(file); }
};
using UniqueFile = std::unique_ptr<std::FILE, FileCloser>;

}  // namespace internal
}  // namespace ZO_TUNING
