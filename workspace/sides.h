/// \file
/// What can be compared: a setting, a folder, a sensor, the defaults, bins, a whole project, on disk or at a git
/// revision. Writes nothing except the schema of a revision, to a temporary folder.
#pragma once

#include <google/protobuf/message.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "transcode/module_table.h"
#include "workspace/compare.h"
#include "workspace/diagnostic.h"
#include "workspace/project.h"

namespace zotuning {

using ZO_TUNING::internal::RuleBytes;

enum class SideForm {
  kSetting,
  kFolder,   ///< of one scope; all in it may share some labels
  kScope,    ///< a sensor, or the defaults
  kProject,  ///< every scope
};

/// The names of labels that are set, and of their values, in the order of the schema.
using LabelNames = std::vector<std::pair<std::string, std::string>>;

/// "module=AfCommon mode=1"
std::string LabelText(const LabelNames& labels);

/// A setting, or the record of a bin, or a version.
struct SideEntry {
  std::string scope;
  std::string module;  ///< "" for a version
  LabelNames labels;   ///< of a version: {{"version", its name}}
  std::string path;    ///< its file, for people; for a record, the bin
  const google::protobuf::Descriptor* type = nullptr;
  size_t index = 0;  ///< for its own side only
};

/// One of the two sides of a comparison.
class Side {
 public:
  virtual ~Side() = default;

  const std::string& name() const { return name_; }  ///< as the user gave it
  SideForm form() const { return form_; }
  bool is_bin() const { return is_bin_; }
  Project& project() const { return *project_; }
  const std::vector<std::string>& scopes() const { return scopes_; }
  /// By scope and path; of a bin by record.
  const std::vector<SideEntry>& settings() const { return settings_; }
  const std::vector<SideEntry>& versions() const { return versions_; }
  /// Of a folder: the labels that its path gives.
  const LabelNames& fixed_labels() const { return fixed_labels_; }

  /// The text of an entry; empty in a bin. Valid until the next call for this side. False after an error.
  virtual bool ReadText(const SideEntry& entry, std::string_view& text, DiagnosticSink& sink) = 0;
  /// The wire bytes of the entry's message. Those from a bin have no rules. Valid until the next call for this side.
  /// False after errors.
  virtual bool ReadBytes(const SideEntry& entry, RuleBytes rules, std::string_view& bytes, DiagnosticSink& sink) = 0;
  /// The bytes of the label of a record; empty if the side is not a bin.
  virtual std::string_view LabelBytes(const SideEntry& entry) const = 0;
  /// Reports that the bytes of an entry are not a message of its type.
  virtual void ReportBadBytes(const SideEntry& entry, DiagnosticSink& sink) const = 0;

 protected:
  friend class SideOpener;
  std::string name_;
  SideForm form_ = SideForm::kProject;
  bool is_bin_ = false;
  std::shared_ptr<Project> project_;
  std::vector<std::string> scopes_;
  std::vector<SideEntry> settings_;
  std::vector<SideEntry> versions_;
  LabelNames fixed_labels_;
};

struct BinFile {
  std::string path;
  std::string name;  ///< for people
};

/// A record that nothing but its label tells of.
struct UnknownRecord {
  uint64_t offset;
  uint64_t size;
  LabelNames labels;
};

/// What two bins do not have in common. Entries of either are at most kMaxBinEntries, whatever the bins hold.
struct BinPair {
  std::unique_ptr<Side> left;
  std::unique_ptr<Side> right;
  std::FILE* left_file = nullptr;  ///< of the left bin, whose side owns it
  size_t same = 0;                 ///< versions and records with the same bytes, in whatever order
  size_t unlisted = 0;             ///< versions and records that are no entries, as there are too many
  /// Records of the left bin whose module the schema does not have; no entries either.
  std::vector<UnknownRecord> unknown;
};
constexpr size_t kMaxBinEntries = 10000;

/// Opens sides, and keeps the projects that they share.
class SideOpener {
 public:
  /// `project` is the one for names of sensors, and for bins; may be null.
  explicit SideOpener(const std::shared_ptr<Project>& project);
  ~SideOpener();

  /// Opens what `text` names; null after errors. Parts that cannot be read are reported and left out. Tried in this
  /// order: "default" and the names of sensors, a path from the current folder, a path in the project, and
  /// REVISION:FORM with one of these forms at a git revision.
  std::unique_ptr<Side> Open(const std::string& text, DiagnosticSink& sink);

  /// The defaults of the project that a side belongs to, at its revision. Null after errors.
  std::unique_ptr<Side> OpenDefaultOf(const Side& side, DiagnosticSink& sink);

  /// The setting or bin at `path`, with `bytes` as its contents, wherever they are from.
  std::unique_ptr<Side> OpenBytes(const std::string& path, std::string bytes, DiagnosticSink& sink);

  /// Opens two bins of a scope for CompareSides, each shown under its name, without what they have in common. False
  /// after errors.
  bool OpenBinPair(const BinFile& left, const BinFile& right, const std::string& scope, BinPair& pair,
                   DiagnosticSink& sink);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

/// Two paired entries, or one without a counterpart.
struct EntryComparison {
  const SideEntry* left = nullptr;
  const SideEntry* right = nullptr;
  MessageComparison comparison;  ///< if there are both
};

struct CompareSidesOptions {
  CompareOptions compare;
  /// Every byte counts, including labels: a difference that no field accounts for is one.
  bool bytes = false;
};

struct SidesComparison {
  size_t same = 0;
  size_t different = 0;  ///< entries, including those on one side only
  /// What only one schema has, or has with another kind: "AfLens.gain".
  std::vector<std::string> only_left_schema, only_right_schema;
};

/// Compares two sides; `on_difference` is called with each pair that differs: by scope, versions first, then in the
/// order of the right side, then what only the left has. False after errors; what could be compared was.
bool CompareSides(Side& left, Side& right, const CompareSidesOptions& options,
                  const std::function<void(const EntryComparison&)>& on_difference, SidesComparison& result,
                  DiagnosticSink& sink);

}  // namespace zotuning
