/// \file
/// The path of a value during a walk down to it: as cheap as a pointer until it is needed. Only for the checks.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "workspace/json_path.h"

namespace zotuning {

/// A step of a path, on the stack of the walk; `up` is null for the outermost value.
struct PathFrame {
  const PathFrame* up = nullptr;
  std::string_view name;                 ///< of a member
  size_t index = JsonPath::Step::kName;  ///< of an element

  static PathFrame Member(const PathFrame& up, std::string_view name) { return {&up, name, JsonPath::Step::kName}; }
  static PathFrame Element(const PathFrame& up, size_t index) { return {&up, {}, index}; }

  std::string Text() const {
    std::vector<const PathFrame*> frames;
    for (const PathFrame* frame = this; frame->up != nullptr; frame = frame->up) frames.push_back(frame);
    JsonPath path;
    for (auto frame = frames.rbegin(); frame != frames.rend(); ++frame) {
      if ((*frame)->index == JsonPath::Step::kName) {
        path.Push(std::string((*frame)->name));
      } else {
        path.Push((*frame)->index);
      }
    }
    return path.ToString();
  }
};

}  // namespace zotuning
