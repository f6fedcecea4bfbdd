// Tested by tests/workspace/change_set_test.cpp.

#include "workspace/change_set.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <map>
#include <set>
#include <system_error>
#include <unordered_map>

#include "workspace/files.h"
#include "workspace/git.h"
#include "workspace/text.h"

namespace zotuning {
namespace {

constexpr size_t kContext = 3;

// Texts that differ in more lines than this are treated as different in all lines between the first and the last
// difference: finding the least difference takes quadratic time and memory.
constexpr int kMaxDifference = 2000;

/// Lines with their ends; the last one may have none.
std::vector<std::string_view> SplitLines(std::string_view text) {
  std::vector<std::string_view> lines;
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find('\n', begin), text.size() - 1) + 1;
    lines.push_back(text.substr(begin, end - begin));
    begin = end;
  }
  return lines;
}

/// What happens to consecutive lines, in the order of both texts.
struct Change {
  size_t old_line;  ///< the next one of the old text
  size_t new_line;
  size_t removed;  ///< number of lines from there on
  size_t added;
};

/// The changes from `a` to `b` according to Myers, "An O(ND) difference algorithm and its variations". Appended with
/// `offset` added to their lines.
void FindChanges(const std::vector<int>& a, const std::vector<int>& b, size_t offset, std::vector<Change>& changes) {
  const int m = static_cast<int>(a.size()), n = static_cast<int>(b.size());
  // For each number of differences, the furthest line of `a` on each diagonal (line of a - line of b), from -d to d.
  std::vector<std::vector<int>> reached;
  const auto at = [](const std::vector<int>& row, int k) {
    const int d = static_cast<int>(row.size()) - 1;
    return k < -d || k > d ? -1 : row[static_cast<size_t>(k + d) / 2];
  };
  bool found = m == 0 && n == 0;
  for (int d = 0; !found && d <= std::min(m + n, kMaxDifference); ++d) {
    std::vector<int> row(static_cast<size_t>(d) + 1);
    for (int k = -d; k <= d && !found; k += 2) {
      int x = 0;
      if (d > 0) {
        const int above = at(reached.back(), k + 1), left = at(reached.back(), k - 1);
        x = k == -d || (k != d && left < above) ? above : left + 1;
      }
      while (x < m && x - k < n && a[static_cast<size_t>(x)] == b[static_cast<size_t>(x - k)]) ++x;
      row[static_cast<size_t>(k + d) / 2] = x;
      found = x >= m && x - k >= n;
    }
    reached.push_back(std::move(row));
  }
  if (!found) {
    changes.push_back({offset, offset, a.size(), b.size()});
    return;
  }
  std::vector<Change> steps;
  int x = m, y = n;
  for (int d = static_cast<int>(reached.size()) - 1; d > 0; --d) {
    const std::vector<int>& row = reached[static_cast<size_t>(d) - 1];
    const int k = x - y;
    const bool added = k == -d || (k != d && at(row, k - 1) < at(row, k + 1));
    x = added ? at(row, k + 1) : at(row, k - 1);
    y = x - (added ? k + 1 : k - 1);
    steps.push_back(
        {offset + static_cast<size_t>(x), offset + static_cast<size_t>(y), added ? 0u : 1u, added ? 1u : 0u});
  }
  for (auto step = steps.rbegin(); step != steps.rend(); ++step) {
    Change* last = changes.empty() ? nullptr : &changes.back();
    if (last != nullptr && last->old_line + last->removed == step->old_line &&
        last->new_line + last->added == step->new_line) {
      last->removed += step->removed;
      last->added += step->added;
    } else {
      changes.push_back(*step);
    }
  }
}

void AppendLine(char sign, std::string_view line, std::string* text) {
  *text += sign;
  text->append(line);
  if (line.back() != '\n') *text += "\n\\ No newline at end of file\n";
}

/// "12,3", the form of line ranges in hunks.
std::string Range(size_t first, size_t count) {
  return std::to_string(count == 0 ? first : first + 1) + (count == 1 ? "" : "," + std::to_string(count));
}

/// `path` as git writes it: quoted if it would be misread otherwise.
std::string DiffPath(const char* prefix, const std::string& path) {
  std::string quoted;
  bool odd = false;
  for (const char c : prefix + path) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      quoted += '\\';
      odd = true;
    }
    if (byte < 0x20 || byte == 0x7f) {
      odd = true;
      quoted += '\\';
      for (const int shift : {6, 3, 0}) quoted += static_cast<char>('0' + (byte >> shift & 7));
    } else {
      quoted += c;
    }
  }
  return odd ? '"' + quoted + '"' : quoted;
}

/// A header line with a path, ended so that git reads it correctly.
std::string Heading(const char* sign, const std::string& path) {
  return sign + path + (path.find(' ') == std::string::npos ? "" : "\t") + "\n";
}

bool IsBinary(const std::optional<std::string>& text) { return text && text->find('\0') != std::string::npos; }

/// The directory that contains `path`.
std::string FolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

/// A path, which need not exist, without links and dots in its folders; "" if the system cannot resolve it.
std::string CanonicalPath(const std::string& path) {
  std::error_code error;
  const std::filesystem::path folder = std::filesystem::weakly_canonical(FolderOf(path), error);
  return error ? "" : (folder / path.substr(path.rfind('/') + 1)).string();
}

/// Converts paths within `base` to the form git expects, relative to the root of its repository.
class DiffPaths {
 public:
  explicit DiffPaths(const std::string& base) : base_(CanonicalPath(base + "/")) {
    CollectingSink none;  // a diff is useful without a repository, too
    if (const auto repository = GitRepository::Open(base, none)) prefix_ = repository->prefix();
  }

  std::string Of(const std::string& path) const {
    const std::string whole = CanonicalPath(path);
    const bool inside = !base_.empty() && whole.compare(0, base_.size(), base_) == 0;
    return inside ? prefix_ + whole.substr(base_.size()) : DisplayPath(path);
  }

 private:
  std::string base_;  ///< ends with a slash
  std::string prefix_;
};

mode_t ModeOf(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0644;
}

/// Blocks the signals that stop the program until this is destroyed, so that a change is not stopped half way.
class HoldSignals {
 public:
  HoldSignals() {
    sigset_t stop;
    sigemptyset(&stop);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&stop, number);
    (void)pthread_sigmask(SIG_BLOCK, &stop, &before_);
  }
  ~HoldSignals() { (void)pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  HoldSignals(const HoldSignals&) = delete;
  HoldSignals& operator=(const HoldSignals&) = delete;

 private:
  sigset_t before_;
};

}  // namespace

std::string DiffLines(std::string_view old_text, std::string_view new_text) {
  const std::vector<std::string_view> old_lines = SplitLines(old_text), new_lines = SplitLines(new_text);
  size_t head = 0, tail = 0;
  const size_t shorter = std::min(old_lines.size(), new_lines.size());
  while (head < shorter && old_lines[head] == new_lines[head]) ++head;
  while (tail < shorter - head && old_lines[old_lines.size() - 1 - tail] == new_lines[new_lines.size() - 1 - tail]) {
    ++tail;
  }
  // Equal lines have the same number.
  std::unordered_map<std::string_view, int> numbers;
  const auto number = [&](const std::vector<std::string_view>& lines) {
    std::vector<int> result;
    for (size_t i = head; i < lines.size() - tail; ++i) {
      result.push_back(numbers.try_emplace(lines[i], static_cast<int>(numbers.size())).first->second);
    }
    return result;
  };
  std::vector<Change> changes;
  const std::vector<int> old_numbers = number(old_lines);
  FindChanges(old_numbers, number(new_lines), head, changes);

  std::string text;
  for (size_t i = 0; i < changes.size();) {
    // Changes whose context touches are one hunk.
    size_t last = i;
    while (last + 1 < changes.size() &&
           changes[last + 1].old_line - (changes[last].old_line + changes[last].removed) <= 2 * kContext) {
      ++last;
    }
    const size_t before = std::min(kContext, changes[i].old_line);
    const size_t old_end = std::min(changes[last].old_line + changes[last].removed + kContext, old_lines.size());
    const size_t after = old_end - (changes[last].old_line + changes[last].removed);
    const size_t old_begin = changes[i].old_line - before, new_begin = changes[i].new_line - before;
    const size_t new_end = changes[last].new_line + changes[last].added + after;
    text += "@@ -" + Range(old_begin, old_end - old_begin) + " +" + Range(new_begin, new_end - new_begin) + " @@\n";
    size_t line = old_begin;
    for (; i <= last; ++i) {
      for (; line < changes[i].old_line; ++line) AppendLine(' ', old_lines[line], &text);
      for (size_t j = 0; j < changes[i].removed; ++j) AppendLine('-', old_lines[line++], &text);
      for (size_t j = 0; j < changes[i].added; ++j) AppendLine('+', new_lines[changes[i].new_line + j], &text);
    }
    for (; line < old_end; ++line) AppendLine(' ', old_lines[line], &text);
  }
  return text;
}

void ChangeSet::Replace(std::string path, std::string old_text, std::string new_text) {
  if (old_text == new_text) return;
  std::string old_path = path;
  changes_.push_back({std::move(path), std::move(old_path), std::move(old_text), std::move(new_text)});
}

void ChangeSet::Create(std::string path, std::string text) {
  std::string old_path = path;
  changes_.push_back({std::move(path), std::move(old_path), std::nullopt, std::move(text)});
}

void ChangeSet::Remove(std::string path, std::string old_text) {
  std::string old_path = path;
  changes_.push_back({std::move(path), std::move(old_path), std::move(old_text), std::nullopt});
}

void ChangeSet::Rename(std::string old_path, std::string new_path, std::string old_text, std::string new_text) {
  changes_.push_back({std::move(new_path), std::move(old_path), std::move(old_text), std::move(new_text)});
}

void ChangeSet::Append(ChangeSet other) {
  std::move(other.changes_.begin(), other.changes_.end(), std::back_inserter(changes_));
  std::move(other.emptied_.begin(), other.emptied_.end(), std::back_inserter(emptied_));
}

std::string ChangeSet::Diff(const std::string& base) const {
  const DiffPaths paths(base);
  std::string text;
  for (const FileChange& change : changes_) {
    const std::string old_path = DiffPath("a/", paths.Of(change.old_path));
    const std::string new_path = DiffPath("b/", paths.Of(change.path));
    text.append("diff --git ").append(old_path).append(" ").append(new_path).append("\n");
    const char* mode = change.old_text && (ModeOf(change.old_path) & 0100) != 0 ? "100755\n" : "100644\n";
    if (!change.old_text) text += std::string("new file mode ") + mode;
    if (!change.new_text) text += std::string("deleted file mode ") + mode;
    if (change.path != change.old_path) {
      text += "rename from " + DiffPath("", paths.Of(change.old_path)) + "\n";
      text += "rename to " + DiffPath("", paths.Of(change.path)) + "\n";
    }
    if (change.old_text == change.new_text) continue;
    if (IsBinary(change.old_text) || IsBinary(change.new_text)) {
      text.append("Binary files ").append(old_path).append(" and ").append(new_path).append(" differ\n");
      continue;
    }
    const std::string hunks = DiffLines(change.old_text.value_or(""), change.new_text.value_or(""));
    if (hunks.empty()) continue;  // an empty file
    text += Heading("--- ", change.old_text ? old_path : "/dev/null");
    text += Heading("+++ ", change.new_text ? new_path : "/dev/null") + hunks;
  }
  return text;
}

bool ChangeSet::Check(DiagnosticSink& sink) const {
  std::set<std::string_view> old_paths;
  for (const FileChange& change : changes_) {
    if (change.old_text) old_paths.insert(change.old_path);
  }
  bool good = true;
  for (const FileChange& change : changes_) {
    std::string text;
    if (change.old_text) {
      if (!ReadFile(change.old_path, text, sink)) {
        good = false;
      } else if (text != *change.old_text) {
        sink.Report(Code::kChangedMeanwhile, "this file changed while the command ran; nothing is written",
                    "run the command again", DisplayPath(change.old_path));
        good = false;
      }
    }
    if (change.new_text && old_paths.count(change.path) == 0 && Exists(change.path)) {
      sink.Report(Code::kExists, "there is a file in the way; nothing is written", "", DisplayPath(change.path));
      good = false;
    }
  }
  return good;
}

/// Which text each path has before and after, and what was made on the way.
struct ChangeSet::FileStates {
  /// Texts are null where there is no file.
  struct State {
    const std::string* before = nullptr;
    const std::string* after = nullptr;
    mode_t mode_before = 0;
    mode_t mode_after = 0;  ///< of a file renamed from elsewhere, else 0
  };

  explicit FileStates(const std::vector<FileChange>& changes) {
    for (const FileChange& change : changes) {
      if (change.old_text) {
        states[change.old_path].before = &*change.old_text;
        states[change.old_path].mode_before = ModeOf(change.old_path);
      }
      if (change.new_text) states[change.path].after = &*change.new_text;
      if (change.old_path != change.path) states[change.path].mode_after = ModeOf(change.old_path);
    }
    // Nothing is removed before everything is written.
    for (const bool removed : {false, true}) {
      for (const FileChange& change : changes) {
        if (change.new_text && !removed) order.push_back(change.path);
        if (removed && states[change.old_path].after == nullptr) order.push_back(change.old_path);
      }
    }
  }

  /// Makes a path hold `text`, or nothing.
  bool Put(const std::string& path, const std::string* text, mode_t mode, DiagnosticSink& sink) {
    if (text == nullptr) return unlink(path.c_str()) == 0 || ReportSystemError("remove", path, errno, sink);
    return MakeDirectories(FolderOf(path), sink, &made) && ReplaceFile(path, *text, sink) &&
           (mode == 0 || chmod(path.c_str(), mode) == 0 || ReportSystemError("set the mode of", path, errno, sink));
  }

  /// Puts back the first `count` paths. The number of those that stayed changed, each of which is reported.
  size_t PutBack(size_t count, DiagnosticSink& sink) {
    size_t kept = 0;
    for (size_t i = count; i > 0; --i) {
      const std::string& path = order[i - 1];
      const State& state = states[path];
      CollectingSink silent;
      std::string found;
      const bool is_there = Exists(path) && ReadFile(path, found, silent);
      if (state.before == nullptr ? !Exists(path) : is_there && found == *state.before) continue;
      CollectingSink reasons;
      if (Put(path, state.before, state.mode_before, reasons)) continue;
      ++kept;
      const char* what = state.after == nullptr ? "removed" : state.before == nullptr ? "made" : "changed";
      sink.Report(Code::kPartlyWritten,
                  std::string("this file was ") + what + " and cannot be put back: " + reasons.diagnostics()[0].message,
                  "", DisplayPath(path));
    }
    for (auto dir = made.rbegin(); dir != made.rend(); ++dir) (void)rmdir(dir->c_str());
    return kept;
  }

  std::map<std::string, State> states;
  std::vector<std::string> order;  ///< in which paths are written or removed
  std::vector<std::string> made;   ///< directories
};

bool ChangeSet::Apply(DiagnosticSink& sink) const {
  const HoldSignals hold;
  if (!Check(sink)) return false;
  FileStates files(changes_);
  size_t done = 0;
  for (const std::string& path : files.order) {
    const FileStates::State& state = files.states[path];
    if (!files.Put(path, state.after, state.mode_after, sink)) break;
    ++done;
  }
  const size_t count = files.order.size();
  if (done == count) {
    for (const std::string& dir : emptied_) (void)rmdir(dir.c_str());
    return true;
  }
  // The one that failed may have been written as well.
  const size_t kept = files.PutBack(done + 1, sink);
  if (kept == 0) {
    sink.Report(Code::kPartlyWritten, done == 0
                                          ? "nothing was changed"
                                          : "nothing was changed: " + Count(done, "file") + " written before it " +
                                                (done == 1 ? "was" : "were") + " put back");
  } else {
    sink.Report(Code::kPartlyWritten,
                Count(kept, "file") + " of " + std::to_string(count) + " stayed changed; the others are as they were");
  }
  return false;
}

}  // namespace zotuning
