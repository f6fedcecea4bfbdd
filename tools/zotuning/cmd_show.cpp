// zotuning show: what is in a tuning bin.

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <utility>

#include "bin/bin_folder.h"
#include "command_context.h"
#include "io/directory.h"
#include "transcode/wire_format.h"
#include "workspace/bins.h"
#include "workspace/message_text.h"

namespace zotuning::tool {
namespace {

struct Options {
  std::string path;
  int record = -1;
  bool text = false;
  bool offsets = false;
};

/// The scope that a bin is named after.
std::string ScopeOf(const std::string& path) {
  const std::string file = path.substr(path.rfind('/') + 1);
  return file.substr(0, file.rfind('.'));
}

/// The setting's path, "" unless the labels give exactly one.
std::string SettingOf(const Project& project, const std::string& scope, const std::vector<int>& values) {
  const std::vector<std::string> scopes = project.Scopes();
  if (std::find(scopes.begin(), scopes.end(), scope) == scopes.end()) return "";
  const std::string path = project.SettingPath(scope, values);
  return project.LabelsOf("/" + path) == values ? DisplayPath(project.dir() + "/" + path) : "";
}

/// What the lines of a record say about its labels. Bins repeat few labels, and a path takes long to make and read
/// back.
class LabelTexts {
 public:
  struct Texts {
    std::string labels;
    std::string setting;  ///< "" unless the labels give exactly one
  };

  LabelTexts(const Project& project, const std::string& path) : project_(project), scope_(ScopeOf(path)) {}

  const Texts& Of(const std::vector<int>& values) {
    // A damaged bin must not fill the memory.
    if (known_.size() >= 10000) known_.clear();
    const auto [known, is_new] = known_.try_emplace(values);
    if (is_new) known->second = {project_.LabelText(values), SettingOf(project_, scope_, values)};
    return known->second;
  }

 private:
  const Project& project_;
  const std::string scope_;
  std::map<std::vector<int>, Texts> known_;
};

void AddItem(const BinItem& item, const std::string& name, std::vector<Cells>& rows) {
  rows.push_back({std::to_string(item.offset), "4", "length of " + name + ": " + std::to_string(item.length)});
  rows.push_back({std::to_string(item.offset + 4), std::to_string(item.length), name});
}

/// The lines of the current version or record of the scanner; those of versions have columns only with --offsets.
void AddRows(BinScanner& scanner, bool offsets, LabelTexts& texts, std::vector<Cells>& rows) {
  if (scanner.is_version()) {
    if (offsets) AddItem(scanner.version(), "version " + std::to_string(scanner.versions() - 1), rows);
    return;
  }
  const BinRecord& record = scanner.record();
  const std::string number = std::to_string(record.index);
  if (offsets) {
    AddItem(record.label, "label of record " + number, rows);
    AddItem(record.module, (record.type == nullptr ? "unknown module" : record.module_name) + " of record " + number,
            rows);
    return;
  }
  const auto& [labels, setting] = texts.Of(record.values);
  const uint64_t end = record.module.offset + 4 + static_cast<uint64_t>(record.module.length);
  rows.push_back({"  " + number, std::to_string(record.label.offset), std::to_string(end - record.label.offset), labels,
                  record.type == nullptr ? "(unknown module)"
                  : setting.empty()      ? "-"
                                         : setting});
}

/// A module in protobuf's text form, or where its bytes are.
std::string ModuleText(const BinRecord& record) {
  if (record.module.message != nullptr) return MessageText(*record.module.message);
  return "# unknown module: " + Count(static_cast<size_t>(record.module.length), "byte") + " at byte " +
         std::to_string(record.module.offset + sizeof(record.module.length)) + "\n";
}

std::string VersionLine(const google::protobuf::Message& message) {
  std::string line;
  for (const char* name : {"name", "version"}) {
    const auto* field = message.GetDescriptor()->FindFieldByName(name);
    const bool text =
        field != nullptr && field->type() == google::protobuf::FieldDescriptor::TYPE_STRING && !field->is_repeated();
    line += (line.empty() ? "  " : " ") + (text ? message.GetReflection()->GetString(message, field) : "?");
  }
  return Printable(line) + "\n";
}

Json VersionJson(const BinItem& item) {
  Json fields = Json::object();
  CollectingSink ignored;
  std::string json;
  if (MessageJson(*item.message, json, ignored)) fields = Json::parse(json, nullptr, false);
  return {{"offset", item.offset}, {"length", item.length}, {"message", fields}};
}

Json RecordJson(const Project& project, const BinRecord& record, LabelTexts& texts) {
  const std::string& setting = texts.Of(record.values).setting;
  const uint64_t end = record.module.offset + 4 + static_cast<uint64_t>(record.module.length);
  return {{"record", record.index},
          {"offset", record.label.offset},
          {"length", end - record.label.offset},
          {"label_offset", record.label.offset + 4},
          {"label_length", record.label.length},
          {"module_offset", record.module.offset + 4},
          {"module_length", record.module.length},
          {"module", record.module_name.empty() ? Json(nullptr) : Json(record.module_name)},
          {"labels", LabelJson(project, record.values)},
          {"values", record.values},
          {"setting", setting.empty() ? Json(nullptr) : Json(setting)}};
}

int ReportChanged(const std::string& path, Console& console) {
  console.Report(Code::kIo, "the bin changed while it was read", "", ShownBin(path));
  return kFailed;
}

/// A bin that is read once, item by item.
class Reading {
 public:
  Reading(std::FILE* file, Project& project)
      : file_(file),
        project_(project),
        scanner_(file, project.schema(), project.labels(), BinScanner::Modules::kCheck) {}

  BinScanner& scanner() { return scanner_; }

  bool Next() {
    if (!scanner_.Next()) return false;
    unknown_.Look(scanner_);
    return true;
  }

  /// Reports what is wrong with the bin, and adds its fault to `object`. What the bin is, for people; "" for a good
  /// one.
  const char* AddFault(const std::string& path, Json& object, Console& console) {
    unknown_.Report(project_, path, console);
    const BinFault* fault = scanner_.fault();
    object["fault"] = nullptr;
    if (fault == nullptr) return unknown_.any() ? " (another schema)" : "";
    object["fault"] = {
        {"offset", fault->offset}, {"item", fault->item}, {"expected", fault->expected}, {"found", fault->found}};
    const Code code = ReportBinFault(*fault, file_, path, console);
    return code == Code::kBinDamaged ? " (damaged)" : code == Code::kNotABin ? " (not a bin)" : " (another schema)";
  }

 private:
  std::FILE* file_;
  Project& project_;
  BinScanner scanner_;
  UnknownContent unknown_;
};

/// Reads the bin twice, first for faults and column widths, so that only one record is in memory at a time.
int ShowTable(Project& project, const std::string& path, const Options& options, Console& console) {
  const auto file = OpenBin(path, console);
  if (file == nullptr) return kFailed;
  LabelTexts texts(project, path);
  Columns columns;
  const Cells heading =
      options.offsets ? Cells{"OFFSET", "BYTES", "ITEM"} : Cells{"  RECORD", "OFFSET", "BYTES", "LABELS", "SETTING"};
  std::vector<Cells> rows;
  columns.Measure(heading);
  if (options.offsets) columns.Measure({"0", "4", "version count"});
  Reading reading(file.get(), project);
  BinScanner& scanner = reading.scanner();
  while (reading.Next()) {
    if (console.json()) continue;
    rows.clear();
    AddRows(scanner, options.offsets, texts, rows);
    for (const Cells& row : rows) columns.Measure(row);
  }
  Json& result = console.result();
  result = {
      {"file", ShownBin(path)}, {"bytes", scanner.bytes()}, {"versions", Json::array()}, {"records", Json::array()}};
  console.Print(Printable(ShownBin(path)) + ": " + Count(scanner.bytes(), "byte") + ", " +
                Count(scanner.versions(), "version") + ", " + Count(scanner.records(), "record") + "\n");
  // The second reading, up to where the first one came.
  const auto read_again = [&](bool versions, const auto& use) {
    std::rewind(file.get());
    BinScanner again(file.get(), project.schema(), project.labels(), BinScanner::Modules::kSkip);
    const size_t end = versions ? scanner.versions() : scanner.versions() + scanner.records();
    while (again.records() + again.versions() < end) {
      if (!again.Next()) {
        ReportChanged(path, console);
        return;
      }
      use(again);
    }
  };
  if (console.json()) {
    reading.AddFault(path, result, console);
    const auto stream = [&](bool versions) {
      return [&, versions](const Console::AddElement& add) {
        read_again(versions, [&](BinScanner& again) {
          if (again.is_version() != versions) return;
          const Json element = versions ? VersionJson(again.version()) : RecordJson(project, again.record(), texts);
          add(Console::ElementText(element));
        });
      };
    };
    console.StreamResult({{"versions", stream(true)}, {"records", stream(false)}});
    return kDone;
  }
  if (options.offsets) {
    console.Print(columns.Line(heading) + columns.Line({"0", "4", "version count"}));
  } else if (scanner.versions() > 0) {
    console.Print("versions\n");
  }
  read_again(false, [&](BinScanner& again) {
    if (!options.offsets) {
      if (again.is_version()) console.Print(VersionLine(*again.version().message));
      if (!again.is_version() && again.record().index == 0) console.Print("records\n" + columns.Line(heading));
    }
    rows.clear();
    AddRows(again, options.offsets, texts, rows);
    for (const Cells& row : rows) console.Print(columns.Line(row));
  });
  reading.AddFault(path, result, console);
  return kDone;
}

/// Increasing offsets, stored as differences: a byte or two each if there are many.
class Offsets {
 public:
  void Add(uint64_t offset) {
    char bytes[ZO_TUNING::internal::kMaxVarintSize];
    bytes_.append(bytes, ZO_TUNING::internal::WriteVarint(offset - last_, bytes));
    last_ = offset;
  }

  class Reader {
   public:
    explicit Reader(const Offsets& offsets) : bytes_(offsets.bytes_) {}
    /// To the next one; false after the last.
    bool Go() {
      if (at_ == bytes_.size()) return false;
      uint64_t step = 0;
      for (int shift = 0;; shift += 7) {
        const auto byte = static_cast<unsigned char>(bytes_[at_++]);
        step |= static_cast<uint64_t>(byte & 0x7F) << shift;
        if (byte < 0x80) break;
      }
      offset_ += step;
      return true;
    }
    uint64_t offset() const { return offset_; }

   private:
    const std::string& bytes_;
    size_t at_ = 0;
    uint64_t offset_ = 0;
  };

 private:
  std::string bytes_;
  uint64_t last_ = 0;
};

/// The bin in protobuf's text format, records ordered by their labels: directory order means nothing, and would hide
/// real differences in a comparison.
int ShowText(Project& project, const std::string& path, Console& console) {
  const auto file = OpenBin(path, console);
  if (file == nullptr) return kFailed;
  std::map<std::vector<int>, Offsets> places;
  Reading reading(file.get(), project);
  BinScanner& scanner = reading.scanner();
  while (reading.Next()) {
    if (scanner.is_version()) {
      console.Print("# version\n" + MessageText(*scanner.version().message) + "\n");
    } else {
      places[scanner.record().values].Add(scanner.record().label.offset);
    }
  }
  for (const auto& [values, offsets] : places) {
    for (Offsets::Reader next(offsets); next.Go();) {
      BinRecord record;
      if (!ZO_TUNING::internal::ReadRecordAt(file.get(), next.offset(), project.schema(), project.labels(), record)) {
        return ReportChanged(path, console);
      }
      console.Print("# " + Printable(project.LabelText(values)) + "\n" + ModuleText(record) + "\n");
    }
  }
  reading.AddFault(path, console.result(), console);
  return kDone;
}

int ShowRecord(Project& project, const std::string& path, const Options& options, Console& console) {
  const auto file = OpenBin(path, console);
  if (file == nullptr) return kFailed;
  BinRecord found;
  bool is_found = false;
  Reading reading(file.get(), project);
  BinScanner& scanner = reading.scanner();
  while (reading.Next()) {
    if (scanner.is_version() || scanner.record().index != static_cast<size_t>(options.record)) continue;
    is_found = true;
    found = std::move(scanner.record());
  }
  if (is_found) {
    BinRecord read;
    if (!ZO_TUNING::internal::ReadRecordAt(file.get(), found.label.offset, project.schema(), project.labels(), read)) {
      return ReportChanged(path, console);
    }
    std::string text;
    const bool known = read.module.message != nullptr;
    if (options.text || !known) {
      text = ModuleText(read);
    } else {
      MessageJson(*read.module.message, text, console);
    }
    console.Print(text);
    LabelTexts texts(project, path);
    console.result() = RecordJson(project, found, texts);
    console.result()["message"] = !known         ? Json(nullptr)
                                  : options.text ? Json(text)
                                                 : Json::parse(text, nullptr, false);
  }
  reading.AddFault(path, console.result(), console);
  if (is_found) return kDone;
  console.Report(Code::kNoRecord,
                 "the bin has no record " + std::to_string(options.record) + "; it has " +
                     Count(scanner.records(), "record") + ", counted from 0",
                 "", ShownBin(path));
  return kFailed;
}

int ShowFolder(Project& project, const std::string& dir, Console& console) {
  std::vector<std::string> names;
  if (!ListNames(dir, names, console)) return kFailed;
  std::vector<std::vector<std::string>> rows = {{"BIN", "BYTES", "VERSIONS", "RECORDS"}};
  Json bins = Json::array();
  for (const std::string& name : names) {
    std::string path = dir;
    path.append("/").append(name);
    if (!ZO_TUNING::internal::HasSuffix(name, ZO_TUNING::internal::kBinSuffix) || IsDirectory(path)) continue;
    const auto file = OpenBin(path, console);
    if (file == nullptr) continue;
    Reading reading(file.get(), project);
    while (reading.Next()) {
    }
    const BinScanner& scanner = reading.scanner();
    Json bin = {{"name", ScopeOf(path)},
                {"file", ShownBin(path)},
                {"bytes", scanner.bytes()},
                {"versions", scanner.versions()},
                {"records", scanner.records()}};
    const std::string kind = reading.AddFault(path, bin, console);
    rows.push_back({name, std::to_string(scanner.bytes()), std::to_string(scanner.versions()),
                    std::to_string(scanner.records()) + kind});
    bins.push_back(std::move(bin));
  }
  console.Print(Table(rows));
  if (bins.empty()) console.Report(Code::kNoBins, "the folder holds no bin", "", DisplayPath(dir));
  console.result()["bins"] = std::move(bins);
  return kDone;
}

/// Nine digits are more records than a bin of 2 GB can have.
CLI::Validator RecordNumber() {
  return CLI::Validator(
      [](std::string& text) {
        const bool number = !text.empty() && text.size() < 10 && text.find_first_not_of("0123456789") == text.npos;
        return number ? std::string() : Quoted(text) + " is not the number of a record; they count from 0";
      },
      "");
}

int Run(CommandContext& context, const Options& options) {
  Console& console = context.console;
  const bool folder = IsDirectory(options.path);
  if (folder && (options.text || options.offsets || options.record >= 0)) {
    console.Report(Code::kUsage, "a folder is listed as a whole; give one of its bins", "", DisplayPath(options.path));
    return kMisuse;
  }
  if (options.offsets && (options.text || options.record >= 0)) {
    console.Report(Code::kUsage, "--offsets cannot be combined with --text or --record");
    return kMisuse;
  }
  int code = kDone;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;
  if (folder) return ShowFolder(*project, BinFolderAt(options.path), console);
  if (options.record >= 0) return ShowRecord(*project, options.path, options, console);
  if (options.text && !context.json) return ShowText(*project, options.path, console);
  return ShowTable(*project, options.path, options, console);
}

}  // namespace

void AddShow(CLI::App& app, CommandContext& context) {
  auto options = std::make_shared<Options>();
  CLI::App* command = AddCommand(
      app, context, "show", "Show what is in a tuning bin, or which bins are in a folder",
      "A bin is read with the schema and labels of the project. Of a damaged one everything before the break is\n"
      "shown, then where it breaks; the exit code is 1.\n"
      "\n"
      "Examples:\n"
      "  zotuning show out/zo_tuning\n"
      "  zotuning show out/zo_tuning/main_wide.bin\n"
      "  zotuning show out/zo_tuning/main_wide.bin --record 3 > record.json\n"
      "  zotuning show out/zo_tuning/main_wide.bin --offsets\n"
      "  zotuning show - < out/zo_tuning/main_wide.bin\n"
      "  git config diff.zotuning.textconv 'zotuning show --text'",
      [&context, options] { return Run(context, *options); });
  command->add_option("BIN", options->path, "The bin, or a folder of bins; '-' is standard input")->required();
  command->add_option("--record", options->record, "Only the message of this record, as JSON or --text")
      ->type_name("N")
      ->check(RecordNumber());
  command->add_flag("--text", options->text, "All messages in protobuf's text form, ordered by their labels");
  command->add_flag("--offsets", options->offsets, "The offset and size of every item");
}

}  // namespace zotuning::tool
