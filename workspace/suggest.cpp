#include "workspace/suggest.h"

#include <algorithm>
#include <numeric>

namespace zotuning {
namespace {

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

/// Edits that turn `a` into `b`; two swapped neighbours count as one.
size_t Distance(std::string_view a, std::string_view b) {
  std::vector<size_t> before(b.size() + 1), last(b.size() + 1), row(b.size() + 1);
  std::iota(last.begin(), last.end(), size_t{0});
  for (size_t i = 1; i <= a.size(); ++i) {
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const bool same = Lower(a[i - 1]) == Lower(b[j - 1]);
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (same ? 0 : 1)});
      if (i > 1 && j > 1 && Lower(a[i - 1]) == Lower(b[j - 2]) && Lower(a[i - 2]) == Lower(b[j - 1])) {
        row[j] = std::min(row[j], before[j - 2] + 1);
      }
    }
    before.swap(last);
    last.swap(row);
  }
  return last[b.size()];
}

/// The candidate that takes the fewest edits. A third of the letters may be wrong, but never all of them.
std::string NearestByEdits(std::string_view name, const std::vector<std::string>& candidates) {
  std::string nearest;
  size_t allowed = std::min<size_t>(std::max<size_t>(1, name.size() / 3), 4);
  for (const std::string& candidate : candidates) {
    if (candidate.size() > name.size() + allowed || name.size() > candidate.size() + allowed) continue;
    const size_t distance = Distance(name, candidate);
    if (distance > allowed || distance >= name.size() || candidate == name) continue;
    if (nearest.empty() || distance < allowed) nearest = candidate;
    allowed = distance;
  }
  return nearest;
}

}  // namespace

std::string Nearest(std::string_view name, const std::vector<std::string>& candidates) {
  constexpr size_t kShortestBegin = 3;
  name = name.substr(0, 256);  // a file may contain names of any length; the search stays cheap
  std::string begun;
  size_t count = 0;
  for (const std::string& candidate : candidates) {
    if (candidate == name || std::string_view(candidate).substr(0, name.size()) != name) continue;
    begun = candidate;
    ++count;
  }
  return count == 1 && name.size() >= kShortestBegin ? begun : NearestByEdits(name, candidates);
}

std::string DidYouMean(std::string_view name, const std::vector<std::string>& candidates) {
  const std::string nearest = Nearest(name, candidates);
  return nearest.empty() ? "" : "; did you mean '" + nearest + "'?";
}

}  // namespace zotuning
