// Tested by tests/schema/stack_depth_test.cpp.

#include "schema/import_guard.h"

#include <google/protobuf/io/tokenizer.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "io/padded_file.h"
#include "schema/stack_depth.h"

namespace ZO_TUNING {
namespace internal {

namespace {

// More than any stack holds: a file that must not be parsed, and so whatever imports it.
constexpr size_t kUnheld = size_t{1} << 32;

bool IsNameChar(int c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '.';
}

}  // namespace

std::string ImportGuard::Refusal(const std::string& name) {
  const auto import = [this](const File* file, size_t i, const File** next) {
    if (i >= file->imports.size()) return false;
    *next = Look(file->imports[i]);
    return true;
  };
  const auto weight = [](const File* file) {
    return !file->is_too_large && StackHolds(file->nesting, kStackPerNesting) ? size_t{1} : kUnheld;
  };
  const size_t chain = LongestChain(Look(name), chains_, import, weight);
  if (StackHolds(chain, kStackPerImport)) return "";
  if (chain < kUnheld) {
    return "this file begins a chain of " + std::to_string(chain) + " imports, too many for the stack";
  }
  return "this file, or one that it imports, nests too deep for the stack, or has 2 GiB or more";
}

const ImportGuard::File* ImportGuard::Look(const std::string& name) {
  const auto [found, is_new] = files_.try_emplace(name);
  if (is_new && !dir_.empty()) Read(dir_ + "/" + name, found->second);
  return &found->second;  // stays where it is when others are added
}

void ImportGuard::Add(const std::string& name, std::string text) {
  File& file = files_[name];
  file.text = std::move(text);
  file.is_read = true;
  Scan(file);
}

const std::string* ImportGuard::Text(const std::string& name) {
  const File* file = Look(name);
  return file->is_read ? &file->text : nullptr;
}

void ImportGuard::Read(const std::string& path, File& file) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return;
  PaddedFile reader;
  file.is_read = reader.Read(path);
  file.is_too_large = !file.is_read && errno == EFBIG;
  if (!file.is_read) return;
  file.text = reader.text();
  Scan(file);
}

// The tokens are those of protobuf: a zero byte or, in a text, the end of the line ends what was begun.
void ImportGuard::Scan(File& file) {
  size_t at = 0;
  const auto get = [&] { return at < file.text.size() ? static_cast<unsigned char>(file.text[at++]) : EOF; };
  size_t braces = 0, brackets = 0, angles = 0;
  size_t deepest_brace = 0, deepest_bracket = 0, deepest_angle = 0;
  std::string word, import;
  bool is_import = false;
  int c = get();
  while (c != EOF) {
    if (IsNameChar(c)) {
      word.clear();
      for (; c != EOF && IsNameChar(c); c = get()) {
        if (word.size() < 7) word += static_cast<char>(c);  // enough to tell "import"
      }
      if (word == "import") {
        is_import = true;
        import.clear();
      }
      continue;
    }
    if (c == '/') {
      c = get();
      if (c == '/') {
        while (c != EOF && c != '\n' && c != '\0') c = get();
      } else if (c == '*') {
        int last = 0;
        for (c = get(); c != EOF && c != '\0' && !(last == '*' && c == '/'); c = get()) last = c;
        if (c != EOF) c = get();
      }
      continue;
    }
    if (c == '"' || c == '\'') {
      const int quote = c;
      std::string literal(1, static_cast<char>(quote));
      for (c = get(); c != EOF && c != quote && c != '\n' && c != '\0'; c = get()) {
        if (is_import) literal += static_cast<char>(c);
        if (c != '\\') continue;
        c = get();
        if (c == EOF) break;
        if (is_import) literal += static_cast<char>(c);
      }
      if (is_import) google::protobuf::io::Tokenizer::ParseStringAppend(literal, &import);
      if (c != EOF) c = get();
      continue;
    }
    switch (c) {
      case '{':
        deepest_brace = std::max(deepest_brace, ++braces);
        break;
      case '[':
        deepest_bracket = std::max(deepest_bracket, ++brackets);
        break;
      case '<':
        deepest_angle = std::max(deepest_angle, ++angles);
        break;
      case '}':
        braces -= braces > 0 ? 1 : 0;
        break;
      case ']':
        brackets -= brackets > 0 ? 1 : 0;
        break;
      case '>':
        angles -= angles > 0 ? 1 : 0;
        break;
      case ';':
        if (is_import) file.imports.push_back(import);
        is_import = false;
        break;
      default:
        break;
    }
    c = get();
  }
  if (is_import) file.imports.push_back(import);
  file.nesting = deepest_brace + deepest_bracket + deepest_angle;
}

}  // namespace internal
}  // namespace ZO_TUNING
