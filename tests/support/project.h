/// \file
/// The test schema, a project made of it, and the bytes that its messages have on the wire.
#pragma once

#include <google/protobuf/compiler/importer.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/message.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/log.h"
#include "support/wire.h"

namespace zotest {

using LabelMap = std::map<std::string, std::map<int, std::string>>;
using Descriptor = google::protobuf::Descriptor;
using Message = google::protobuf::Message;
using MessagePtr = std::unique_ptr<Message>;

/// Loads the .proto files of a directory on its own.
class Schema {
 public:
  explicit Schema(const std::string& dir);
  const Descriptor* Type(const std::string& full_name);
  const Message* Prototype(const std::string& full_name);
  MessagePtr New(const std::string& full_name, const std::string& text = "");  ///< from protobuf text format
  google::protobuf::compiler::Importer& importer() { return importer_; }

 private:
  google::protobuf::compiler::DiskSourceTree tree_;
  google::protobuf::compiler::Importer importer_{&tree_, nullptr};
  google::protobuf::DynamicMessageFactory factory_;
};

std::string Text(const Message& message);  ///< on one line

/// The seven kinds of parameter values, as spelled in type names.
extern const Strings kKinds;

/// Writes the schema: that of support/schema, and types.proto with all rule and data types and EveryKind, a module with
/// all of them.
void WriteSchema(const std::string& dir);

/// What the schema's TuningDataLabel contains.
extern const Strings kLabelNames;
extern const LabelMap kLabelMap;

// Module numbers of the label.
enum { kAfCommon, kAWGain, kAEMeter, kPdCalib, kNoise, kAfLinkKeyTable, kEveryKind, kGhost };

std::string LabelBytes(const std::vector<int>& values);  ///< a TuningDataLabel
std::string ConfigBytes(const std::string& name, const Strings& sensors);
std::string VersionBytes(const std::string& name, const std::string& version);
std::string VersionJson(const std::string& name, const std::string& version);
std::string GainJson(const std::string& gain);  ///< an AWGain
std::string GainBytes(double gain);             ///< without its rule
extern const char* const kAfJson;               ///< an AfCommon with all kinds of nesting and all rules
std::string AfBytes();                          ///< the same, pruned

/// One tuning JSON file of a scope and the record it becomes.
struct Setting {
  std::string path;  ///< below the scope's directory
  std::string json;
  std::vector<int> label;
  std::string module_bytes;
};

/// The bytes of a bin: the version files below `version_dir`, as VersionJson or the library writes them, and the
/// `settings` below `data_dir`, in the order in which both are listed.
std::string BinBytes(const std::string& version_dir, const std::string& data_dir, const std::vector<Setting>& settings);

/// A project directory written without the library.
class Project {
 public:
  explicit Project(const Strings& sensors = {"tele"});

  /// Writes the settings below the directory of `scope`, "default" or a sensor.
  void Add(const std::string& scope, const std::vector<Setting>& settings);

  /// The bytes of the scope's bin.
  std::string Bin(const std::string& scope);

  std::string operator/(const std::string& name) const { return dir + "/" + name; }

  TempDir temp;
  std::string dir = temp / "proj";
  std::string out = temp / "out";

 private:
  std::map<std::string, std::vector<Setting>> settings_;  // by scope
};

class ProjectTest : public LogTest {
 protected:
  /// Where the bin of `scope` is packed to.
  std::string BinPath(const std::string& scope) const { return project_.out + "/zo_tuning/" + scope + ".bin"; }

  Project project_;
  const std::string& dir_ = project_.dir;
  Strings names_ = kLabelNames;
  LabelMap map_ = kLabelMap;
};

/// Tests with schemas of their own.
class SchemaTest : public LogTest {
 protected:
  /// Replaces the schema by one file.
  Schema& Load(const std::string& proto) {
    Write(dir_ / "proto/a.proto", proto);
    schema_ = std::make_unique<Schema>(dir_ / "proto");
    return *schema_;
  }

  TempDir dir_;
  std::unique_ptr<Schema> schema_;
};

}  // namespace zotest
