/// \file
/// How deep protobuf may recurse on this thread's stack. The one place that decides it.
#pragma once

#include <cstddef>
#include <unordered_map>
#include <vector>

namespace ZO_TUNING {
namespace internal {

/// Assumed stack use of one level, in bytes.
inline constexpr size_t kStackPerTypeLevel = 1024;  ///< message types that contain one another
inline constexpr size_t kStackPerNesting = 2048;    ///< nested brackets of a .proto file
inline constexpr size_t kStackPerImport = 4096;     ///< .proto files that import one another

/// Whether the rest of this thread's stack is enough for this many levels. 32 kB always are.
bool StackHolds(size_t levels, size_t bytes_per_level);

/// The weight of the longest chain from `first` down, itself included; the nodes of a cycle weigh together, since calls
/// can pass through all of them. Caches its counts in `counted`, and does not recurse. `successor(node, i, &next)`
/// returns the i-th successor, a null one to be skipped, or false past the last.
template <typename Node, typename Successor, typename Weight>
size_t LongestChain(Node first, std::unordered_map<Node, size_t>& counted, Successor successor, Weight weight) {
  struct Visit {
    Node node;
    size_t next;
    size_t index;
    size_t lowest;  // index that can be reached from here: below `index` inside a cycle
    size_t below;
  };
  const auto known = counted.find(first);
  if (known != counted.end()) return known->second;
  std::vector<Visit> open;
  std::vector<Node> pending;  // visited, and the cycle that they belong to is not closed yet
  std::unordered_map<Node, size_t> indices;
  const auto enter = [&](Node node) {
    const size_t index = indices.size();
    indices.emplace(node, index);
    pending.push_back(node);
    open.push_back({node, 0, index, index, 0});
  };
  enter(first);
  while (!open.empty()) {
    Visit& top = open.back();
    Node next{};
    if (successor(top.node, top.next, &next)) {
      ++top.next;
      if (next == Node{}) continue;
      const auto done = counted.find(next);
      const auto met = indices.find(next);
      if (done != counted.end()) {
        if (done->second > top.below) top.below = done->second;
      } else if (met != indices.end()) {
        if (met->second < top.lowest) top.lowest = met->second;
      } else {
        enter(next);
      }
      continue;
    }
    const Visit left = top;
    open.pop_back();
    size_t below = left.below;
    if (left.lowest == left.index) {
      size_t begin = pending.size();
      do {
        below += weight(pending[--begin]);
      } while (pending[begin] != left.node);
      for (size_t i = begin; i < pending.size(); ++i) counted[pending[i]] = below;
      pending.resize(begin);
    }
    if (open.empty()) break;
    Visit& parent = open.back();
    if (left.lowest < parent.lowest) parent.lowest = left.lowest;
    if (below > parent.below) parent.below = below;
  }
  return counted[first];
}

}  // namespace internal
}  // namespace ZO_TUNING
