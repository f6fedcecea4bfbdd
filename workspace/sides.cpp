// Tested by tests/workspace/sides_test.cpp.

#include "workspace/sides.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <unordered_map>

#include "bin/bin_folder.h"
#include "bin/bin_scanner.h"
#include "io/padded_file.h"
#include "json/json_text-inl.h"
#include "json/rules-inl.h"
#include "transcode/json_transcoder.h"
#include "workspace/bins.h"
#include "workspace/check_setting.h"
#include "workspace/files.h"
#include "workspace/git.h"
#include "workspace/record_index.h"
#include "workspace/staging_dir.h"
#include "workspace/suggest.h"

namespace zotuning {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::Message;
using ZO_TUNING::internal::HasSuffix;
using ZO_TUNING::internal::kBinSuffix;
using ZO_TUNING::internal::kJsonSuffix;
using ZO_TUNING::internal::kTextPadding;
using ZO_TUNING::internal::ModuleTable;

std::string Joined(const std::string& dir, const std::string& name) {
  return dir.empty() || dir == "." ? name : dir + "/" + name;
}

std::string FileName(const std::string& path) { return path.substr(path.rfind('/') + 1); }

/// Whether `path` is `dir` or below it; "" is above everything.
bool IsWithin(const std::string& path, const std::string& dir) {
  return dir.empty() || path == dir || (path.rfind(dir, 0) == 0 && path[dir.size()] == '/');
}

/// Shows people where a file is if the path that was read is temporary.
class RenamingSink : public DiagnosticSink {
 public:
  RenamingSink(DiagnosticSink& sink, std::string from, std::string to)
      : sink_(sink), from_(std::move(from)), to_(std::move(to)) {}
  void Add(Diagnostic diagnostic) override {
    for (std::string* text : {&diagnostic.file, &diagnostic.message, &diagnostic.hint}) {
      const size_t place = text->find(from_);
      if (place == text->npos) continue;
      const bool slash = text->compare(place + from_.size(), 1, "/") == 0;
      text->replace(place, from_.size() + (slash ? 1 : 0), to_);
    }
    sink_.Add(std::move(diagnostic));
  }

 private:
  DiagnosticSink& sink_;
  std::string from_, to_;
};

/// Holds the last file read.
struct TextBuffer {
  ZO_TUNING::internal::PaddedFile file;
  std::string text;
};

std::string DirOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == path.npos ? "" : path.substr(0, slash);
}

/// The files of a project, wherever they are. Paths are relative to the project's folder.
class ProjectFiles {
 public:
  virtual ~ProjectFiles() = default;
  virtual FileKind Kind(const std::string& path) const = 0;
  /// Appends the files below a folder as the library finds them: not below folders called "version". Ordered by path.
  virtual bool List(const std::string& dir, std::string_view suffix, std::vector<std::string>& paths,
                    DiagnosticSink& sink) const = 0;
  /// The names of the files in a folder.
  virtual bool Names(const std::string& dir, std::vector<std::string>& names, DiagnosticSink& sink) const = 0;
  /// Zero bytes follow the text, as many as a lexer may read. Valid until the buffer is used again.
  virtual bool Read(const std::string& path, TextBuffer& buffer, std::string_view& text, DiagnosticSink& sink) = 0;
  /// For people.
  virtual std::string Shown(const std::string& path) const = 0;
  /// Whether a folder exists, even without files.
  virtual bool KeepsEmptyFolders() const { return true; }
};

class DiskFiles : public ProjectFiles {
 public:
  explicit DiskFiles(std::string dir) : dir_(std::move(dir)) {}

  FileKind Kind(const std::string& path) const override { return KindOf(At(path)); }

  bool List(const std::string& dir, std::string_view suffix, std::vector<std::string>& paths,
            DiagnosticSink& sink) const override {
    std::vector<FoundFile> files;
    const bool good = ListFiles(At(dir), suffix, files, sink);
    for (const FoundFile& file : files) paths.push_back(Joined(dir, file.relative));
    return good;
  }

  bool Names(const std::string& dir, std::vector<std::string>& names, DiagnosticSink& sink) const override {
    return ListNames(At(dir), names, sink);
  }

  bool Read(const std::string& path, TextBuffer& buffer, std::string_view& text, DiagnosticSink& sink) override {
    if (!buffer.file.Read(At(path))) return ReportSystemError("read", At(path), errno, sink);
    text = buffer.file.text();
    return true;
  }

  std::string Shown(const std::string& path) const override { return DisplayPath(At(path)); }

 private:
  std::string At(const std::string& path) const { return path.empty() ? dir_ : dir_ + "/" + path; }
  std::string dir_;
};

class GitFiles : public ProjectFiles {
 public:
  using Files = std::map<std::string, GitFile>;

  /// The project is at `prefix` of the revision: "", or a path ending in "/".
  GitFiles(std::shared_ptr<GitRepository> repository, std::shared_ptr<const Files> files, std::string revision,
           std::string prefix)
      : repository_(std::move(repository)),
        files_(std::move(files)),
        revision_(std::move(revision)),
        prefix_(std::move(prefix)) {}

  FileKind Kind(const std::string& path) const override {
    const std::string full = prefix_ + path;
    const auto found = files_->find(full);
    if (found != files_->end()) return found->second.is_link ? FileKind::kDanglingLink : FileKind::kRegular;
    const std::string dir = full.empty() || full.back() == '/' ? full : full + "/";
    const auto below = files_->lower_bound(dir);
    return below != files_->end() && below->first.rfind(dir, 0) == 0 ? FileKind::kDirectory : FileKind::kMissing;
  }

  bool List(const std::string& dir, std::string_view suffix, std::vector<std::string>& paths,
            DiagnosticSink& sink) const override {
    const std::string begin = prefix_ + (dir.empty() ? "" : dir + "/");
    bool good = true;
    for (auto file = files_->lower_bound(begin); file != files_->end() && file->first.rfind(begin, 0) == 0; ++file) {
      const std::string relative = file->first.substr(begin.size());
      if (!HasSuffix(FileName(relative), suffix) || ("/" + relative).find("/version/") != std::string::npos) continue;
      const std::string path = file->first.substr(prefix_.size());
      if (file->second.is_link) {
        sink.Report(Code::kGit, "this is a link, and links are not followed at a revision", "", Shown(path));
        good = false;
        continue;
      }
      paths.push_back(path);
    }
    return good;
  }

  bool Names(const std::string& dir, std::vector<std::string>& names, DiagnosticSink&) const override {
    const std::string begin = prefix_ + (dir.empty() ? "" : dir + "/");
    for (auto file = files_->lower_bound(begin); file != files_->end() && file->first.rfind(begin, 0) == 0; ++file) {
      const std::string relative = file->first.substr(begin.size());
      if (relative.find('/') == relative.npos) names.push_back(relative);
    }
    return true;
  }

  bool Read(const std::string& path, TextBuffer& buffer, std::string_view& text, DiagnosticSink& sink) override {
    const auto found = files_->find(prefix_ + path);
    if (found == files_->end()) {
      sink.Report(Code::kGit, "the revision has no such file", "", Shown(path));
      return false;
    }
    if (!repository_->Read(found->second.object, buffer.text, sink)) return false;
    const size_t size = buffer.text.size();
    buffer.text.append(kTextPadding, '\0');
    text = std::string_view(buffer.text.data(), size);
    return true;
  }

  std::string Shown(const std::string& path) const override { return revision_ + ":" + prefix_ + path; }
  bool KeepsEmptyFolders() const override { return false; }

 private:
  std::shared_ptr<GitRepository> repository_;
  std::shared_ptr<const Files> files_;
  std::string revision_, prefix_;
};

/// A project and where its files are.
struct OpenProject {
  std::shared_ptr<Project> project;
  std::shared_ptr<ProjectFiles> files;
};

LabelNames NamesOf(const Project& project, const std::vector<int>& values) {
  LabelNames labels;
  for (size_t i = 0; i < values.size() && i < project.labels().names().size(); ++i) {
    if (values[i] == kLabelNotSet) continue;
    const std::string name = project.ValueText(i, values[i]);
    labels.emplace_back(project.labels().names()[i], name.empty() ? std::to_string(values[i]) : name);
  }
  return labels;
}

std::string TextField(const Message& message, const char* name) {
  const auto* field = message.GetDescriptor()->FindFieldByName(name);
  const bool is_text =
      field != nullptr && field->type() == google::protobuf::FieldDescriptor::TYPE_STRING && !field->is_repeated();
  return is_text ? message.GetReflection()->GetString(message, field) : "";
}

SideEntry VersionEntry(const Project& project, const std::string& scope, const std::string& name,
                       const std::string& path, size_t index) {
  return {scope, "", {{"version", name}}, path, project.version_type(), index};
}

std::string VersionDir(const std::string& scope) {
  return Joined(scope == kDefaultScope ? "proto" : scope, ZO_TUNING::internal::kVersionFolder);
}

// ---- Settings in files ----

class TreeSide : public Side {
 public:
  explicit TreeSide(OpenProject opened) : files_(std::move(opened.files)) { project_ = std::move(opened.project); }

  /// Adds the settings of one scope below a folder of it.
  bool AddFolder(const std::string& scope, const std::string& dir, DiagnosticSink& sink) {
    std::vector<std::string> paths;
    bool good = files_->List(dir, kJsonSuffix, paths, sink);
    for (const std::string& path : paths) good &= AddSetting(scope, path, sink);
    return good;
  }

  bool AddSetting(const std::string& scope, const std::string& path, DiagnosticSink& sink) {
    const std::string shown = files_->Shown(path);
    const std::vector<int> values = project_->LabelsOf("/" + path);
    const std::string module = project_->ModuleName(values);
    if (module.empty()) {
      const std::string name = ModuleOfFile(path);
      sink.Report(Code::kUnknownModule, "no module " + Quoted(name) + DidYouMean(name, project_->ValueNames(0)),
                  "'zotuning modules' lists them", shown);
      return false;
    }
    const Descriptor* type = project_->RequireType(module, sink);
    if (type == nullptr) return false;
    settings_.push_back({scope, module, NamesOf(*project_, values), shown, type, paths_.size()});
    paths_.push_back(path);
    return true;
  }

  bool AddVersions(const std::string& scope, DiagnosticSink& sink) {
    const std::string dir = VersionDir(scope);
    if (files_->Kind(dir) != FileKind::kDirectory) return true;
    std::vector<std::string> paths;
    bool good = files_->List(dir, kJsonSuffix, paths, sink);
    for (const std::string& path : paths) good &= AddVersion(scope, path, sink);
    return good;
  }

  bool AddVersion(const std::string& scope, const std::string& path, DiagnosticSink& sink) {
    SideEntry entry = VersionEntry(*project_, scope, "", files_->Shown(path), paths_.size());
    paths_.push_back(path);
    std::string_view text;
    const auto message = project_->schema().NewMessage(entry.type);
    if (!files_->Read(path, buffer_, text, sink) || !ParseJson(entry.path, std::string(text), message.get(), sink)) {
      return false;
    }
    entry.labels[0].second = TextField(*message, "name");
    versions_.push_back(std::move(entry));
    return true;
  }

  /// All of a scope.
  bool AddScope(const std::string& scope, DiagnosticSink& sink) {
    scopes_.push_back(scope);
    const FileKind kind = files_->Kind(scope);
    if (kind == FileKind::kMissing && !files_->KeepsEmptyFolders()) return AddVersions(scope, sink);
    if (kind != FileKind::kDirectory) {
      sink.Report(Code::kMissingFolder, "the folder of " + Quoted(scope) + " is missing", "", files_->Shown(scope));
      return false;
    }
    const bool good = AddVersions(scope, sink);
    return AddFolder(scope, scope, sink) && good;
  }

  void Become(SideForm form, const std::string& name) {
    form_ = form;
    name_ = name;
  }

  /// One scope, and the labels of one of its folders.
  void FixLabels(const std::string& scope, const std::string& dir) {
    scopes_ = {scope};
    // Any module: the labels are read from a path of a setting.
    const std::vector<std::string> modules = project_->ValueNames(0);
    std::vector<int> values =
        modules.empty() ? std::vector<int>() : project_->LabelsOf("/" + dir + "/" + modules.back() + kJsonSuffix);
    if (!values.empty()) values[0] = kLabelNotSet;
    fixed_labels_ = NamesOf(*project_, values);
  }

  bool ReadText(const SideEntry& entry, std::string_view& text, DiagnosticSink& sink) override {
    if (held_ != entry.index) {
      held_ = SIZE_MAX;
      if (!files_->Read(paths_[entry.index], buffer_, text_, sink)) return false;
      held_ = entry.index;
    }
    text = text_;
    return true;
  }

  bool ReadBytes(const SideEntry& entry, RuleBytes rules, std::string_view& bytes, DiagnosticSink& sink) override {
    std::string_view text;
    if (!ReadText(entry, text, sink)) return false;
    std::unique_ptr<ModuleTable>& table = tables_[{entry.type, rules}];
    if (table == nullptr) table = std::make_unique<ModuleTable>(entry.type, rules);
    if (!entry.module.empty() && transcoder_.Transcode(*table, text)) {
      bytes = transcoder_.wire();
      return true;
    }
    const auto message = project_->schema().NewMessage(entry.type);
    if (!ParseJson(entry.path, std::string(text), message.get(), sink)) return false;
    if (rules == RuleBytes::kPruned && !entry.module.empty())
      ZO_TUNING::internal::PruneRules(message.get(), entry.type);
    bytes_ = message->SerializePartialAsString();
    bytes = bytes_;
    return true;
  }

  std::string_view LabelBytes(const SideEntry&) const override { return {}; }

  void ReportBadBytes(const SideEntry& entry, DiagnosticSink& sink) const override {
    sink.Report(Code::kInternal, "the setting cannot be read as " + entry.type->full_name(), "", entry.path);
  }

 private:
  std::shared_ptr<ProjectFiles> files_;
  std::vector<std::string> paths_;  ///< by the index of an entry
  std::map<std::pair<const Descriptor*, RuleBytes>, std::unique_ptr<ModuleTable>> tables_;
  TextBuffer buffer_;
  size_t held_ = SIZE_MAX;  ///< index of the entry whose text is in the buffer
  std::string_view text_;
  ZO_TUNING::internal::JsonTranscoder transcoder_;
  std::string bytes_;
};

// ---- Records of bins ----

class BinSide : public Side {
 public:
  BinSide(std::shared_ptr<Project> project, SideForm form, const std::string& name) {
    project_ = std::move(project);
    form_ = form;
    name_ = name;
    is_bin_ = true;
  }

  /// Adds the bin of a scope. False after an error: what was read before the damage is there.
  bool Add(const std::string& scope, std::string bytes, const std::string& shown, DiagnosticSink& sink) {
    bins_.push_back({std::make_unique<std::string>(std::move(bytes)), nullptr, scope, shown});
    scopes_.push_back(scope);
    BinScanner scanner(*bins_.back().bytes, project_->schema(), project_->labels(), BinScanner::Modules::kSkip);
    UnknownContent unknown;
    while (scanner.Next()) {
      unknown.Look(scanner);
      if (scanner.is_version() || scanner.record().type != nullptr) AddItem(scanner);
    }
    if (scanner.fault() != nullptr) ReportBinFault(*scanner.fault(), *bins_.back().bytes, shown, sink);
    return unknown.ReportModules(*project_, shown, sink) && scanner.fault() == nullptr;
  }  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): bins_ owns the bytes

  /// Becomes the bin of a scope, to which AddItem adds the items. `file` must outlive this.
  void Open(const std::string& scope, std::FILE* file, const std::string& shown) {
    bins_.push_back({nullptr, file, scope, shown});
    scopes_.push_back(scope);
  }

  /// Adds the item at which a scanner of the last added bin is.
  void AddItem(BinScanner& scanner) {
    const size_t index = places_.size();
    const Bin& bin = bins_.back();
    const bool is_version = scanner.is_version();
    const BinItem& item = is_version ? scanner.version() : scanner.record().module;
    places_.push_back({bins_.size() - 1, item.offset + sizeof(item.length), item.length, ""});
    if (is_version) {
      versions_.push_back(VersionEntry(*project_, bin.scope, TextField(*item.message, "name"), bin.shown, index));
      return;
    }
    const BinRecord& record = scanner.record();
    std::string_view label;
    std::string buffer;
    const uint64_t label_offset = record.label.offset + sizeof(record.label.length);
    if (Read(bin, label_offset, record.label.length, buffer, label)) places_.back().label = label;
    settings_.push_back(
        {bin.scope, record.module_name, NamesOf(*project_, record.values), bin.shown, record.type, index});
  }

  size_t entries() const { return places_.size(); }

  bool ReadText(const SideEntry&, std::string_view& text, DiagnosticSink&) override {
    text = {};
    return true;
  }
  bool ReadBytes(const SideEntry& entry, RuleBytes, std::string_view& bytes, DiagnosticSink& sink) override {
    const Place& place = places_[entry.index];
    if (Read(bins_[place.bin], place.offset, place.length, buffer_, bytes)) return true;
    sink.Report(Code::kIo, "the bin changed while it was read", "", entry.path);
    return false;
  }
  std::string_view LabelBytes(const SideEntry& entry) const override { return places_[entry.index].label; }

  void ReportBadBytes(const SideEntry& entry, DiagnosticSink& sink) const override {
    const Place& place = places_[entry.index];
    const BinFault fault = {place.offset, entry.module, "a message of type " + entry.type->full_name(),
                            std::to_string(place.length) + " bytes that are not one", place.length};
    if (const Bin& bin = bins_[place.bin]; bin.bytes != nullptr) {
      ReportBinFault(fault, *bin.bytes, entry.path, sink);
    } else {
      ReportBinFault(fault, bin.file, entry.path, sink);
    }
  }

 private:
  struct Bin {
    std::unique_ptr<std::string> bytes;  ///< null if they are in `file`
    std::FILE* file;
    std::string scope, shown;
  };
  struct Place {
    size_t bin;
    uint64_t offset;  ///< of the message
    int32_t length;
    std::string label;  ///< its bytes
  };

  static bool Read(const Bin& bin, uint64_t offset, int32_t length, std::string& buffer, std::string_view& bytes) {
    const size_t size = static_cast<size_t>(length);
    if (bin.bytes != nullptr) {
      bytes = std::string_view(*bin.bytes).substr(offset, size);
      return true;
    }
    buffer.resize(size);
    bytes = buffer;
    for (size_t done = 0; done < size;) {
      const ssize_t count = pread(fileno(bin.file), &buffer[done], size - done, static_cast<off_t>(offset + done));
      if (count <= 0) return false;
      done += static_cast<size_t>(count);
    }
    return true;
  }

  std::vector<Bin> bins_;
  std::vector<Place> places_;  ///< by the index of an entry
  std::string buffer_;
};

/// A bin whose bytes stay in its file. It has the items that are added to it.
class BinFileSide : public BinSide {
 public:
  BinFileSide(std::shared_ptr<Project> project, const BinFile& bin, const std::string& scope,
              ZO_TUNING::internal::UniqueFile file)
      : BinSide(std::move(project), SideForm::kScope, bin.name), file_(std::move(file)), shown_(bin.name) {
    Open(scope, file_.get(), bin.name);
  }

  /// Calls `use` with a scanner at each item. False after an error.
  bool Scan(const std::function<void(BinScanner&)>& use, DiagnosticSink& sink) {
    std::rewind(file_.get());
    BinScanner scanner(file_.get(), project_->schema(), project_->labels(), BinScanner::Modules::kSkip);
    while (scanner.Next()) use(scanner);
    if (scanner.fault() == nullptr) return true;
    ReportBinFault(*scanner.fault(), file_.get(), shown_, sink);
    return false;
  }

  std::FILE* file() const { return file_.get(); }

 private:
  ZO_TUNING::internal::UniqueFile file_;
  std::string shown_;
};

}  // namespace

std::string LabelText(const LabelNames& labels) {
  std::string text;
  for (const auto& [name, value] : labels) text.append(text.empty() ? "" : " ").append(name).append("=").append(value);
  return text;
}

// ---- Opening ----

class SideOpener::Impl {
 public:
  explicit Impl(const std::shared_ptr<Project>& project) {
    if (project == nullptr) return;
    current_ = {project, std::make_shared<DiskFiles>(project->dir())};
    current_root_ = Absolute(project->dir());
    on_disk_[current_root_] = current_;
  }

  std::unique_ptr<Side> Open(const std::string& text, DiagnosticSink& sink) {
    if (text.empty()) return NoSide(text, sink);
    if (current_.project != nullptr) {
      const std::vector<std::string> scopes = current_.project->Scopes();
      if (std::find(scopes.begin(), scopes.end(), text) != scopes.end()) return OpenForm(current_, text, text, sink);
    }
    if (KindOf(text) != FileKind::kMissing) return OpenPath(text, sink);
    if (current_.project != nullptr && current_.files->Kind(text) != FileKind::kMissing) {
      return OpenForm(current_, Normal(text), text, sink);
    }
    const size_t colon = RevisionEnd(text);
    if (colon == text.npos) return NoSide(text, sink);
    return OpenRevision(text.substr(0, colon), text.substr(colon + 1), sink);
  }

  std::unique_ptr<Side> OpenDefaultOf(const Side& side, DiagnosticSink& sink) {
    const auto is_its = [&](const auto& known) { return known.second.project.get() == &side.project(); };
    const auto on_disk = std::find_if(on_disk_.begin(), on_disk_.end(), is_its);
    if (on_disk != on_disk_.end()) return OpenForm(on_disk->second, kDefaultScope, kDefaultScope, sink);
    const auto at_revision = std::find_if(at_revision_.begin(), at_revision_.end(), is_its);
    if (at_revision == at_revision_.end()) return NoSide(kDefaultScope, sink);
    return OpenForm(at_revision->second, kDefaultScope, at_revision->second.files->Shown(kDefaultScope), sink);
  }

  std::unique_ptr<Side> OpenBytes(const std::string& path, std::string bytes, DiagnosticSink& sink) {
    class TextFile : public ProjectFiles {
     public:
      TextFile(std::string text, std::string shown) : text_(std::move(text)), shown_(std::move(shown)) {
        size_ = text_.size();
        text_.append(kTextPadding, '\0');
      }
      FileKind Kind(const std::string&) const override { return FileKind::kRegular; }
      bool List(const std::string&, std::string_view, std::vector<std::string>&, DiagnosticSink&) const override {
        return true;
      }
      bool Names(const std::string&, std::vector<std::string>&, DiagnosticSink&) const override { return true; }
      bool Read(const std::string&, TextBuffer&, std::string_view& text, DiagnosticSink&) override {
        text = std::string_view(text_.data(), size_);
        return true;
      }
      std::string Shown(const std::string&) const override { return shown_; }

     private:
      std::string text_, shown_;
      size_t size_;
    };
    if (HasSuffix(FileName(path), kBinSuffix)) {
      return OpenBinBytes(ProjectFor(path, sink).project, std::move(bytes), DisplayPath(path), ScopeOfBin(path), path,
                          sink);
    }
    OpenProject project = ProjectFor(path, sink);
    if (project.project == nullptr) return nullptr;
    const std::string relative = RelativeTo(project, path);
    project.files = std::make_shared<TextFile>(std::move(bytes), DisplayPath(path));
    return OpenForm(project, relative, path, sink);
  }

  bool OpenBinPair(const BinFile& left_bin, const BinFile& right_bin, const std::string& scope, BinPair& pair,
                   DiagnosticSink& sink) const {
    auto left = OpenBinFile(left_bin, scope, sink), right = OpenBinFile(right_bin, scope, sink);
    if (left == nullptr || right == nullptr) return false;
    RecordIndex index(right->file());
    const auto add = [&](BinFileSide& side, BinScanner& scanner) {
      const bool known = scanner.is_version() || scanner.record().type != nullptr;
      if (!known && pair.unknown.size() < kMaxBinEntries) {
        const BinItem &label = scanner.record().label, &module = scanner.record().module;
        const uint64_t end = module.offset + sizeof(module.length) + static_cast<uint64_t>(module.length);
        pair.unknown.push_back({label.offset, end - label.offset, NamesOf(side.project(), scanner.record().values)});
      } else if (known && side.entries() < kMaxBinEntries) {
        side.AddItem(scanner);
      } else {
        ++pair.unlisted;
      }
    };
    size_t place = 0;
    const bool scanned = right->Scan([&](BinScanner& scanner) { index.Add(scanner); }, sink) &&
                         left->Scan(
                             [&](BinScanner& scanner) {
                               if (index.Take(left->file(), scanner)) {
                                 ++pair.same;
                               } else {
                                 add(*left, scanner);
                               }
                             },
                             sink) &&
                         right->Scan(
                             [&](BinScanner& scanner) {
                               if (!index.is_taken(place++)) add(*right, scanner);
                             },
                             sink);
    pair.left_file = left->file();
    pair.left = std::move(left);
    pair.right = std::move(right);
    return scanned;
  }

 private:
  static std::string Absolute(const std::string& path) {
    std::error_code error;
    std::string absolute = std::filesystem::absolute(path, error).lexically_normal().string();
    while (absolute.size() > 1 && absolute.back() == '/') absolute.pop_back();
    return absolute;
  }

  /// Without "." and trailing slashes.
  static std::string Normal(const std::string& path) {
    std::string normal = std::filesystem::path(path).lexically_normal().string();
    while (!normal.empty() && normal.back() == '/') normal.pop_back();
    return normal == "." ? "" : normal;
  }

  /// The colon after a revision; one in braces belongs to a date: "HEAD@{12:30}:main_wide".
  static size_t RevisionEnd(const std::string& text) {
    bool in_braces = false;
    for (size_t i = 0; i < text.size(); ++i) {
      if (text[i] == '{' || text[i] == '}') in_braces = text[i] == '{';
      if (text[i] == ':' && !in_braces) return i;
    }
    return text.npos;
  }

  static std::string ScopeOfBin(const std::string& path) {
    const std::string file = FileName(path);
    return file.substr(0, file.rfind('.'));
  }

  std::unique_ptr<Side> NoSide(const std::string& text, DiagnosticSink& sink) const {
    std::vector<std::string> known;
    if (current_.project != nullptr) known = current_.project->Scopes();
    std::string hint = "a side is 'default', a sensor, a path, or REVISION: and one of these";
    if (text == "HEAD" || text.rfind("HEAD~", 0) == 0 || text.rfind("HEAD^", 0) == 0) {
      hint = "the project at that revision is '" + text + ":'";
    }
    sink.Report(Code::kNoSide, "there is no sensor and no file " + Quoted(text) + DidYouMean(text, known), hint);
    return nullptr;
  }

  /// The project that contains a path; otherwise the current one, or the only one that is known. Empty after an error.
  OpenProject ProjectFor(const std::string& path, DiagnosticSink& sink) {
    for (std::string dir = Absolute(path); dir.size() > 1; dir.resize(std::max<size_t>(dir.rfind('/'), 1))) {
      const auto known = on_disk_.find(dir);
      if (known != on_disk_.end()) return known->second;
      if (Exists(ProjectLayout(dir).ConfigPath())) return Load(dir, dir == Absolute(path) ? path : dir, sink);
    }
    if (current_.project != nullptr) return current_;
    // Bins elsewhere belong to the other side's project.
    if (on_disk_.size() == 1) return on_disk_.begin()->second;
    sink.Report(Code::kNoProject, "no project contains " + Quoted(path), "choose one with -C DIR");
    return {};
  }

  OpenProject Load(const std::string& root, const std::string& dir, DiagnosticSink& sink) {
    std::shared_ptr<Project> project = Project::Load(dir, sink);
    if (project == nullptr || !project->ok()) return {};
    return on_disk_[root] = {project, std::make_shared<DiskFiles>(dir)};
  }

  std::string RootOf(const OpenProject& project) const {
    for (const auto& [root, known] : on_disk_) {
      if (known.project == project.project) return root;
    }
    return current_root_;
  }

  /// The path below a project's folder; unchanged for one outside.
  std::string RelativeTo(const OpenProject& project, const std::string& path) const {
    const std::string absolute = Absolute(path), root = RootOf(project);
    if (absolute == root) return "";
    return IsWithin(absolute, root) ? absolute.substr(root.size() + 1) : path;
  }

  std::unique_ptr<Side> OpenPath(const std::string& path, DiagnosticSink& sink) {
    if (!RefuseSpecialFile(path, sink)) return nullptr;
    const OpenProject project = ProjectFor(path, sink);
    if (project.project == nullptr) return nullptr;
    const std::string absolute = Absolute(path), root = RootOf(project);
    if (IsWithin(absolute, root)) return OpenForm(project, RelativeTo(project, path), path, sink);
    // Bins may be anywhere.
    const OpenProject there = {project.project, std::make_shared<DiskFiles>(absolute.substr(0, absolute.rfind('/')))};
    std::unique_ptr<Side> side = OpenBins(there, FileName(absolute), path, sink);
    if (side != nullptr) return side;
    if (!reported_) sink.Report(Code::kNoSide, "this is neither in a project nor a bin", "", DisplayPath(path));
    return nullptr;
  }

  /// A form of the tree: the path is relative to the project, and exists.
  std::unique_ptr<Side> OpenForm(const OpenProject& project, const std::string& path, const std::string& name,
                                 DiagnosticSink& sink) {
    const std::vector<std::string> scopes = project.project->Scopes();
    if (path.empty()) {
      auto side = std::make_unique<TreeSide>(project);
      side->Become(SideForm::kProject, name);
      for (const std::string& scope : scopes) (void)side->AddScope(scope, sink);
      return side;
    }
    const FileKind kind = project.files->Kind(path);
    for (const std::string& scope : scopes) {
      const std::string dir = VersionDir(scope);
      const bool is_file = IsWithin(path, dir) && path != dir && HasSuffix(FileName(path), kJsonSuffix);
      if (path != dir && !is_file) continue;
      auto side = std::make_unique<TreeSide>(project);
      side->Become(is_file ? SideForm::kSetting : SideForm::kFolder, name);
      side->FixLabels(scope, dir);
      reported_ = !(is_file ? side->AddVersion(scope, path, sink) : side->AddVersions(scope, sink));
      return is_file && reported_ ? nullptr : std::move(side);
    }
    const std::string scope = path.substr(0, path.find('/'));
    const bool in_scope = std::find(scopes.begin(), scopes.end(), scope) != scopes.end();
    if (in_scope && path == scope) {
      auto side = std::make_unique<TreeSide>(project);
      side->Become(SideForm::kScope, name);
      (void)side->AddScope(scope, sink);
      return side;
    }
    if (in_scope && kind == FileKind::kDirectory) {
      auto side = std::make_unique<TreeSide>(project);
      side->Become(SideForm::kFolder, name);
      side->FixLabels(scope, path);
      (void)side->AddFolder(scope, path, sink);
      return side;
    }
    if (in_scope && HasSuffix(FileName(path), kJsonSuffix)) return OpenSetting(project, path, name, sink);
    std::unique_ptr<Side> side = OpenBins(project, path, name, sink);
    if (side == nullptr && !reported_) {
      sink.Report(Code::kNoSide,
                  kind == FileKind::kDirectory ? "this folder holds no bins, and belongs to no sensor"
                                               : "this is neither a setting of a sensor nor a bin",
                  "", project.files->Shown(path));
    }
    return side;
  }

  std::unique_ptr<Side> OpenSetting(const OpenProject& project, const std::string& path, const std::string& name,
                                    DiagnosticSink& sink) {
    auto side = std::make_unique<TreeSide>(project);
    side->Become(SideForm::kSetting, name);
    const std::string scope = path.substr(0, path.find('/'));
    side->FixLabels(scope, path.substr(0, path.rfind('/')));
    reported_ = !side->AddSetting(scope, path, sink);
    return reported_ ? nullptr : std::move(side);
  }

  /// A bin or a folder of bins; null if the path is neither or, with `reported_`, after an error.
  std::unique_ptr<Side> OpenBins(const OpenProject& project, const std::string& path, const std::string& name,
                                 DiagnosticSink& sink) {
    reported_ = false;
    std::vector<std::string> paths;
    SideForm form = SideForm::kScope;
    if (project.files->Kind(path) == FileKind::kDirectory) {
      form = SideForm::kProject;
      const std::string inner = path + "/zo_tuning";
      const std::string dir = project.files->Kind(inner) == FileKind::kDirectory ? inner : path;
      std::vector<std::string> names;
      reported_ = !project.files->Names(dir, names, sink);
      for (const std::string& each : names) {
        if (HasSuffix(each, kBinSuffix)) paths.push_back(Joined(dir, each));
      }
    } else if (HasSuffix(FileName(path), kBinSuffix) && FileName(path) != "ProjConf.bin") {
      paths = {path};
    }
    if (paths.empty()) return nullptr;
    auto side = std::make_unique<BinSide>(project.project, form, name);
    bool good = true;
    for (const std::string& each : paths) {
      TextBuffer buffer;
      std::string_view bytes;
      if (project.files->Kind(each) == FileKind::kSpecial) {
        sink.Report(Code::kSpecialFile, "this is a named pipe or a device, not a file", "", project.files->Shown(each));
        good = false;
        continue;
      }
      const bool read = project.files->Read(each, buffer, bytes, sink);
      good &= read && side->Add(ScopeOfBin(each), std::string(bytes), project.files->Shown(each), sink);
    }
    reported_ = !good;
    if (form == SideForm::kScope && !good) return nullptr;
    return side;
  }

  std::unique_ptr<BinFileSide> OpenBinFile(const BinFile& bin, const std::string& scope, DiagnosticSink& sink) const {
    ZO_TUNING::internal::UniqueFile file = zotuning::OpenBin(bin.path, sink);
    if (file == nullptr) return nullptr;
    return std::make_unique<BinFileSide>(current_.project, bin, scope, std::move(file));
  }

  static std::unique_ptr<Side> OpenBinBytes(std::shared_ptr<Project> project, std::string bytes,
                                            const std::string& shown, const std::string& scope, const std::string& name,
                                            DiagnosticSink& sink) {
    if (project == nullptr) return nullptr;
    auto side = std::make_unique<BinSide>(std::move(project), SideForm::kScope, name);
    return side->Add(scope, std::move(bytes), shown, sink) ? std::move(side) : nullptr;
  }

  // ---- Revisions ----

  std::unique_ptr<Side> OpenRevision(const std::string& revision, const std::string& form, DiagnosticSink& sink) {
    const std::string name = revision + ":" + form;
    const std::string here = current_.project == nullptr ? "." : current_.project->dir();
    if (repository_ == nullptr) repository_ = GitRepository::Open(here, sink);
    if (repository_ == nullptr) return nullptr;
    std::shared_ptr<const GitFiles::Files>& files = revisions_[revision];
    if (files == nullptr) {
      GitFiles::Files listed;
      if (!repository_->List(revision, listed, sink)) {
        revisions_.erase(revision);
        return nullptr;
      }
      files = std::make_shared<const GitFiles::Files>(std::move(listed));
    }
    // A path in the project, or as in git, relative to the root of the repository, or with "./" to the current folder.
    std::string path = Normal(form);
    std::vector<std::string> places = {Normal(repository_->prefix() + path), path};
    if (form.rfind("./", 0) == 0 || form.rfind("../", 0) == 0) {
      path = std::filesystem::path(Absolute(form)).lexically_relative(Absolute(here)).string();
      places = {Normal(repository_->prefix() + path)};
    }
    for (const std::string& full : places) {
      const GitFiles all(repository_, files, revision, "");
      if (all.Kind(full) == FileKind::kMissing) continue;
      std::string root = full;
      while (!root.empty() && files->count(root + "/ProjConf.bin") == 0) {
        root = DirOf(root);
      }
      if (files->count(Joined(root, "ProjConf.bin")) == 0) continue;
      const std::string prefix = root.empty() ? "" : root + "/";
      const OpenProject project = LoadRevision(files, revision, prefix, sink);
      if (project.project == nullptr) return nullptr;
      return OpenForm(project, full.size() > prefix.size() ? full.substr(prefix.size()) : "", name, sink);
    }
    sink.Report(Code::kNoSide, "the revision " + Quoted(revision) + " has " +
                                   (path.empty() ? "no project here" : "nothing at " + Quoted(path) + " in a project"));
    return nullptr;
  }

  OpenProject LoadRevision(const std::shared_ptr<const GitFiles::Files>& files, const std::string& revision,
                           const std::string& prefix, DiagnosticSink& sink) {
    OpenProject& opened = at_revision_[{revision, prefix}];
    if (opened.project != nullptr) return opened;
    auto at_revision = std::make_shared<GitFiles>(repository_, files, revision, prefix);
    // Only the schema and the configuration are written as files, for the importer, and removed right away.
    std::error_code error;
    const std::string temp = std::filesystem::temp_directory_path(error).string();
    const auto staging = StagingDir::Make(error ? "/tmp" : temp, nullptr, sink);
    if (staging == nullptr) return {};
    const std::string dir = staging->path() + "/project";
    RenamingSink renaming(sink, dir, at_revision->Shown(""));
    bool good = true;
    TextBuffer buffer;
    for (auto file = files->lower_bound(prefix); file != files->end() && file->first.rfind(prefix, 0) == 0; ++file) {
      const std::string relative = file->first.substr(prefix.size());
      const bool wanted = relative == "ProjConf.bin" || (IsWithin(relative, "proto") && HasSuffix(relative, ".proto"));
      if (!wanted || file->second.is_link) continue;
      std::string_view text;
      const std::string path = JoinPath(dir, relative);
      good &= at_revision->Read(relative, buffer, text, renaming) && MakeDirectories(DirOf(path), renaming) &&
              ReplaceFile(path, text, renaming);
    }
    if (!good) return {};
    std::shared_ptr<Project> project = Project::Load(dir, renaming);
    if (project == nullptr || !project->ok()) return {};
    return opened = {project, std::move(at_revision)};
  }

  OpenProject current_;
  std::string current_root_;
  std::map<std::string, OpenProject> on_disk_;  ///< by absolute path
  std::shared_ptr<GitRepository> repository_;
  std::map<std::string, std::shared_ptr<const GitFiles::Files>> revisions_;
  std::map<std::pair<std::string, std::string>, OpenProject> at_revision_;
  bool reported_ = false;  ///< by whatever returned null last
};

SideOpener::SideOpener(const std::shared_ptr<Project>& project) : impl_(std::make_unique<Impl>(project)) {}

SideOpener::~SideOpener() = default;

std::unique_ptr<Side> SideOpener::Open(const std::string& text, DiagnosticSink& sink) {
  return impl_->Open(text, sink);
}

std::unique_ptr<Side> SideOpener::OpenDefaultOf(const Side& side, DiagnosticSink& sink) {
  return impl_->OpenDefaultOf(side, sink);
}

std::unique_ptr<Side> SideOpener::OpenBytes(const std::string& path, std::string bytes, DiagnosticSink& sink) {
  return impl_->OpenBytes(path, std::move(bytes), sink);
}

bool SideOpener::OpenBinPair(const BinFile& left, const BinFile& right, const std::string& scope, BinPair& pair,
                             DiagnosticSink& sink) {
  return impl_->OpenBinPair(left, right, scope, pair, sink);
}

// ---- Comparing ----

namespace {

/// Pairs the entries of two sides and compares them.
class SidesComparer {
 public:
  SidesComparer(Side& left, Side& right, const CompareSidesOptions& options,
                const std::function<void(const EntryComparison&)>& on_difference, SidesComparison& result,
                DiagnosticSink& sink)
      : left_(left),
        right_(right),
        bytes_count_(options.bytes),
        comparer_(options.compare),
        on_difference_(on_difference),
        result_(result),
        sink_(sink) {}

  bool Run() {
    CompareSchemas();
    const bool both_projects = left_.form() == SideForm::kProject && right_.form() == SideForm::kProject;
    if (both_projects) {
      std::vector<std::string> scopes = right_.scopes();
      for (const std::string& scope : left_.scopes()) {
        if (std::find(scopes.begin(), scopes.end(), scope) == scopes.end()) scopes.push_back(scope);
      }
      for (const std::string& scope : scopes) CompareScopes(scope, scope);
      return good_;
    }
    for (const auto& [project, other] : {std::pair<Side&, Side&>{left_, right_}, {right_, left_}}) {
      if (project.form() != SideForm::kProject || other.scopes() != std::vector<std::string>{kDefaultScope}) continue;
      // The defaults apply to every sensor.
      for (const std::string& scope : project.scopes()) {
        if (scope == kDefaultScope) continue;
        CompareScopes(&project == &left_ ? scope : kDefaultScope, &project == &left_ ? kDefaultScope : scope);
      }
      return good_;
    }
    std::string left_scope = left_.scopes().empty() ? "" : left_.scopes().front();
    std::string right_scope = right_.scopes().empty() ? "" : right_.scopes().front();
    if (left_.form() == SideForm::kProject) left_scope = right_scope;
    if (right_.form() == SideForm::kProject) right_scope = left_scope;
    for (const auto& [side, scope] : {std::pair<Side&, std::string>{left_, left_scope}, {right_, right_scope}}) {
      const auto& scopes = side.scopes();
      if (std::find(scopes.begin(), scopes.end(), scope) != scopes.end()) continue;
      sink_.Report(Code::kNotComparable, Quoted(side.name()) + " has no sensor " + Quoted(scope));
      return false;
    }
    CompareScopes(left_scope, right_scope);
    return good_;
  }

 private:
  using Entries = std::vector<const SideEntry*>;

  void CompareSchemas() {
    Project &left = left_.project(), &right = right_.project();
    if (&left == &right) return;
    std::vector<std::string>&only_left = result_.only_left_schema, &only_right = result_.only_right_schema;
    std::map<std::string, const Descriptor*> types;
    for (const Project::Module& module : left.Modules()) types[module.name] = module.type;
    for (const Project::Module& module : right.Modules()) {
      const auto found = types.find(module.name);
      if (found == types.end()) {
        only_right.push_back("module " + module.name);
        continue;
      }
      if (found->second != nullptr && module.type != nullptr) {
        comparer_.CompareTypes(found->second, module.type, only_left, only_right);
      }
      types.erase(found);
    }
    for (const auto& [name, type] : types) only_left.push_back("module " + name);
    for (auto* lines : {&only_left, &only_right}) {
      std::sort(lines->begin(), lines->end());
      lines->erase(std::unique(lines->begin(), lines->end()), lines->end());
    }
  }

  static Entries In(const std::vector<SideEntry>& entries, const std::string& scope) {
    Entries found;
    for (const SideEntry& entry : entries) {
      if (entry.scope == scope) found.push_back(&entry);
    }
    return found;
  }

  static bool Includes(const LabelNames& labels, const LabelNames& some) {
    return std::all_of(some.begin(), some.end(), [&](const auto& label) {
      return std::find(labels.begin(), labels.end(), label) != labels.end();
    });
  }

  static std::string Key(const LabelNames& labels, const LabelNames& without) {
    std::string key;
    for (const auto& label : labels) {
      if (std::find(without.begin(), without.end(), label) != without.end()) continue;
      key += label.first + "=" + label.second + "\n";
    }
    return key;
  }

  static bool HasOnlyVersions(const Side& side) {
    return (side.form() == SideForm::kSetting || side.form() == SideForm::kFolder) && !side.versions().empty();
  }

  /// If one side is a version, or the versions of a scope.
  void CompareVersions(const std::string& left_scope, const std::string& right_scope) {
    for (const auto& [side, other] : {std::pair<Side&, Side&>{left_, right_}, {right_, left_}}) {
      if (other.form() != SideForm::kSetting || HasOnlyVersions(other)) continue;
      sink_.Report(Code::kNotComparable, Quoted(side.name()) + " is a version, " + Quoted(other.name()) + " a setting");
      good_ = false;
      return;
    }
    Entries left = In(left_.versions(), left_scope), right = In(right_.versions(), right_scope);
    const bool left_is_one = left_.form() == SideForm::kSetting, right_is_one = right_.form() == SideForm::kSetting;
    if (left_is_one && right_is_one) return Compare(left[0], right[0]);
    const auto keep = [](const LabelNames& labels, Entries& entries) {
      entries.erase(std::remove_if(entries.begin(), entries.end(),
                                   [&](const SideEntry* entry) { return entry->labels != labels; }),
                    entries.end());
    };
    if (left_is_one) keep(left[0]->labels, right);
    if (right_is_one) keep(right[0]->labels, left);
    Pair(left, right, [](const SideEntry& entry, bool) { return Key(entry.labels, {}); });
  }

  void CompareScopes(const std::string& left_scope, const std::string& right_scope) {
    if (HasOnlyVersions(left_) || HasOnlyVersions(right_)) return CompareVersions(left_scope, right_scope);
    const auto is_whole = [](const Side& side) {
      return side.form() == SideForm::kScope || side.form() == SideForm::kProject;
    };
    if (left_scope == right_scope && is_whole(left_) && is_whole(right_)) {
      Pair(In(left_.versions(), left_scope), In(right_.versions(), right_scope),
           [](const SideEntry& entry, bool) { return Key(entry.labels, {}); });
    }
    Entries left = In(left_.settings(), left_scope), right = In(right_.settings(), right_scope);
    const SideForm left_form = left_.form(), right_form = right_.form();
    if (left_form == SideForm::kSetting && right_form == SideForm::kSetting) {
      if (left.empty() || right.empty()) return;
      if (left[0]->type->full_name() != right[0]->type->full_name()) {
        sink_.Report(Code::kNotComparable, Quoted(left_.name()) + " is a setting of " + Quoted(left[0]->module) + ", " +
                                               Quoted(right_.name()) + " one of " + Quoted(right[0]->module));
        good_ = false;
        return;
      }
      Compare(left[0], right[0]);
      return;
    }
    if ((left_scope == kDefaultScope) != (right_scope == kDefaultScope)) {
      PairWithDefaults(left, right, left_scope == kDefaultScope);
      return;
    }
    const auto restrict = [](const Side& side, Entries& entries) {
      if (side.form() != SideForm::kSetting && side.form() != SideForm::kFolder) return;
      const LabelNames fixed = side.form() == SideForm::kSetting ? side.settings().front().labels : side.fixed_labels();
      entries.erase(std::remove_if(entries.begin(), entries.end(),
                                   [&](const SideEntry* entry) {
                                     return !Includes(entry->labels, fixed) ||
                                            (side.form() == SideForm::kSetting && entry->labels.size() != fixed.size());
                                   }),
                    entries.end());
    };
    if (left_form == SideForm::kFolder && right_form == SideForm::kFolder) {
      Pair(left, right, [&](const SideEntry& entry, bool is_left) {
        return Key(entry.labels, is_left ? left_.fixed_labels() : right_.fixed_labels());
      });
      return;
    }
    restrict(left_, right);
    restrict(right_, left);
    Pair(left, right, [](const SideEntry& entry, bool) { return Key(entry.labels, {}); });
  }

  /// Every setting with the default of its module.
  void PairWithDefaults(const Entries& left, const Entries& right, bool left_is_default) {
    const Entries &defaults = left_is_default ? left : right, &settings = left_is_default ? right : left;
    const Side& default_side = left_is_default ? left_ : right_;
    std::map<std::string, const SideEntry*> by_module;
    for (const SideEntry* entry : defaults) by_module[entry->module] = entry;
    for (const SideEntry* setting : settings) {
      const auto found = by_module.find(setting->module);
      if (found == by_module.end() && default_side.form() == SideForm::kSetting) continue;
      const SideEntry* its_default = found == by_module.end() ? nullptr : found->second;
      if (left_is_default) {
        Compare(its_default, setting);
      } else {
        Compare(setting, its_default);
      }
    }
  }

  /// The entries with the same key in the order of either side, if there are several.
  template <typename KeyOf>
  void Pair(const Entries& left, const Entries& right, const KeyOf& key_of) {
    std::unordered_map<std::string, Entries> by_key;
    for (const SideEntry* entry : left) by_key[key_of(*entry, true)].push_back(entry);
    std::set<const SideEntry*> paired;
    for (const SideEntry* entry : right) {
      Entries& others = by_key[key_of(*entry, false)];
      const SideEntry* other = others.empty() ? nullptr : others.front();
      if (other != nullptr) {
        others.erase(others.begin());
        paired.insert(other);
      }
      Compare(other, entry);
    }
    for (const SideEntry* entry : left) {
      if (paired.count(entry) == 0) Compare(entry, nullptr);
    }
  }

  void Compare(const SideEntry* left, const SideEntry* right) {
    EntryComparison pair{left, right, {}};
    if (left != nullptr && right != nullptr) {
      if (!CompareEntries(*left, *right, pair.comparison)) {
        good_ = false;
        return;
      }
      if (pair.comparison.same()) {
        ++result_.same;
        return;
      }
    }
    ++result_.different;
    on_difference_(pair);
  }

  std::unique_ptr<Message> Parse(Side& side, const SideEntry& entry, std::string_view bytes) {
    auto message = side.project().schema().NewMessage(entry.type);
    if (message->ParsePartialFromArray(bytes.data(), static_cast<int>(bytes.size()))) return message;
    side.ReportBadBytes(entry, sink_);
    return nullptr;
  }

  bool CompareEntries(const SideEntry& left, const SideEntry& right, MessageComparison& comparison) {
    const bool same_types = comparer_.SameTypes(left.type, right.type);
    const bool label_differs = bytes_count_ && left_.LabelBytes(left) != right_.LabelBytes(right);
    const bool any_bin = left_.is_bin() || right_.is_bin();
    std::string_view left_bytes, right_bytes;
    bool same = false;
    if (same_types && !any_bin) {
      if (!left_.ReadText(left, left_bytes, sink_) || !right_.ReadText(right, right_bytes, sink_)) return false;
      same = left_bytes == right_bytes;
    }
    const bool packed_first = same_types && any_bin;
    if (!same && packed_first) {
      if (!left_.ReadBytes(left, RuleBytes::kPruned, left_bytes, sink_) ||
          !right_.ReadBytes(right, RuleBytes::kPruned, right_bytes, sink_)) {
        return false;
      }
      same = left_bytes == right_bytes;
    }
    if (!same) {
      const bool left_read = left_.ReadBytes(left, RuleBytes::kKept, left_bytes, sink_);
      const bool right_read = right_.ReadBytes(right, RuleBytes::kKept, right_bytes, sink_);
      if (!left_read || !right_read) return false;
      same = same_types && left_bytes == right_bytes;
    }
    if (!same) {
      const auto left_message = Parse(left_, left, left_bytes), right_message = Parse(right_, right, right_bytes);
      if (left_message == nullptr || right_message == nullptr) return false;
      comparison = comparer_.Compare(*left_message, *right_message, right.module);
      if (bytes_count_ && comparison.same()) AddBytes("", comparison);
    }
    if (label_differs) AddBytes("label", comparison);
    return true;
  }

  static void AddBytes(const std::string& path, MessageComparison& comparison) {
    comparison.differences.push_back({DifferenceKind::kBytes, path, "", {}, {}, false, nullptr});
    ++comparison.count;
  }

  Side& left_;
  Side& right_;
  bool bytes_count_;
  MessageComparer comparer_;
  const std::function<void(const EntryComparison&)>& on_difference_;
  SidesComparison& result_;
  DiagnosticSink& sink_;
  bool good_ = true;
};

}  // namespace

bool CompareSides(Side& left, Side& right, const CompareSidesOptions& options,
                  const std::function<void(const EntryComparison&)>& on_difference, SidesComparison& result,
                  DiagnosticSink& sink) {
  return SidesComparer(left, right, options, on_difference, result, sink).Run();
}

}  // namespace zotuning
