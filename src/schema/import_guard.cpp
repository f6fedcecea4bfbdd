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

/// Reads the imports and the nesting of a schema file. The tokens are those of protobuf: a zero byte or, in a string,
/// the end of the line ends what was begun.
class ImportScanner {
 public:
  /// Appends to `imports`, as they are written.
  ImportScanner(const std::string& text, std::vector<std::string>& imports) : text_(text), imports_(imports) { Next(); }

  /// The most brackets that are open at once, those of each kind counted by themselves.
  size_t Scan() {
    while (c_ != EOF) {
      if (IsNameChar(c_)) {
        ReadName();
      } else if (c_ == '/') {
        SkipComment();
      } else if (c_ == '"' || c_ == '\'') {
        ReadString();
      } else {
        ReadSymbol();
      }
    }
    EndStatement();
    return braces_.deepest + brackets_.deepest + angles_.deepest;
  }

 private:
  struct Nesting {
    size_t open = 0;
    size_t deepest = 0;
    void Open() { deepest = std::max(deepest, ++open); }
    void Close() { open -= open > 0 ? 1 : 0; }
  };

  void Next() { c_ = at_ < text_.size() ? static_cast<unsigned char>(text_[at_++]) : EOF; }

  void ReadName() {
    std::string word;
    for (; c_ != EOF && IsNameChar(c_); Next()) {
      if (word.size() < 7) word += static_cast<char>(c_);  // enough to tell "import"
    }
    if (word != "import") return;
    is_import_ = true;
    import_.clear();
  }

  void SkipComment() {
    Next();
    if (c_ == '/') {
      while (c_ != EOF && c_ != '\n' && c_ != '\0') Next();
    } else if (c_ == '*') {
      int last = 0;
      for (Next(); c_ != EOF && c_ != '\0' && !(last == '*' && c_ == '/'); Next()) last = c_;
      Next();
    }
  }

  void ReadString() {
    const int quote = c_;
    std::string literal(1, static_cast<char>(quote));
    for (Next(); c_ != EOF && c_ != quote && c_ != '\n' && c_ != '\0'; Next()) {
      if (is_import_) literal += static_cast<char>(c_);
      if (c_ != '\\') continue;
      Next();
      if (c_ == EOF) break;
      if (is_import_) literal += static_cast<char>(c_);
    }
    if (is_import_) google::protobuf::io::Tokenizer::ParseStringAppend(literal, &import_);
    Next();
  }

  void ReadSymbol() {
    switch (c_) {
      case '{':
        braces_.Open();
        break;
      case '[':
        brackets_.Open();
        break;
      case '<':
        angles_.Open();
        break;
      case '}':
        braces_.Close();
        break;
      case ']':
        brackets_.Close();
        break;
      case '>':
        angles_.Close();
        break;
      case ';':
        EndStatement();
        break;
      default:
        break;
    }
    Next();
  }

  void EndStatement() {
    if (is_import_) imports_.push_back(import_);
    is_import_ = false;
  }

  const std::string& text_;
  std::vector<std::string>& imports_;
  size_t at_ = 0;
  int c_ = EOF;  // the character looked at; EOF again and again at the end
  Nesting braces_, brackets_, angles_;
  bool is_import_ = false;
  std::string import_;
};

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

void ImportGuard::Scan(File& file) {
  ImportScanner scanner(file.text, file.imports);
  file.nesting = scanner.Scan();
}

}  // namespace internal
}  // namespace ZO_TUNING
