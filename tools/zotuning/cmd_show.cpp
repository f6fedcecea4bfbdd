// zotuning show: what is in a tuning bin.

#include <algorithm>
#include <memory>

#include "ZoTuningUtils.h"
#include "bin/bin_folder.h"
#include "bin_walk.h"
#include "commands.h"
#include "io/directory.h"
#include "library_log.h"
#include "message_text.h"
#include "project.h"

namespace zotuning_tool {
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

/// The setting's path, "" when the labels do not give exactly one.
std::string SettingOf(const Project& project, const std::string& scope, const std::vector<int>& values) {
  const std::vector<std::string> scopes = project.Scopes();
  if (std::find(scopes.begin(), scopes.end(), scope) == scopes.end()) return "";
  const std::string path = project.SettingPath(scope, values);
  return project.LabelsOf("/" + path) == values ? Shown(project.dir() + "/" + path) : "";
}

struct Listing {
  std::vector<std::vector<std::string>> records;
  std::vector<std::vector<std::string>> items;
  std::string versions;
  Json json_versions = Json::array();
  Json json_records = Json::array();
};

void AddItem(Listing& listing, const BinItem& item, const std::string& name) {
  listing.items.push_back({std::to_string(item.offset), "4", "length of " + name + ": " + std::to_string(item.length)});
  listing.items.push_back({std::to_string(item.offset + 4), std::to_string(item.length), name});
}

void AddVersion(Listing& listing, const BinItem& item) {
  std::string line;
  const google::protobuf::Message& message = *item.message;
  for (const char* name : {"name", "version"}) {
    const auto* field = message.GetDescriptor()->FindFieldByName(name);
    const bool text =
        field != nullptr && field->type() == google::protobuf::FieldDescriptor::TYPE_STRING && !field->is_repeated();
    line += (line.empty() ? "  " : " ") + (text ? message.GetReflection()->GetString(message, field) : "?");
  }
  AddItem(listing, item, "version " + std::to_string(listing.json_versions.size()));
  listing.versions += Printable(line) + "\n";
  Json fields = Json::object();
  Report ignored;
  std::string json;
  ignored.Begin("", true);
  if (MessageJson(message, json, ignored)) fields = Json::parse(json, nullptr, false);
  listing.json_versions.push_back({{"offset", item.offset}, {"length", item.length}, {"message", fields}});
}

void AddRecord(Listing& listing, const Project& project, const std::string& scope, const BinRecord& record) {
  const std::string number = std::to_string(record.index);
  const std::string setting = SettingOf(project, scope, record.values);
  const uint64_t end = record.module.offset + 4 + static_cast<uint64_t>(record.module.length);
  listing.records.push_back({"  " + number, std::to_string(record.label.offset),
                             std::to_string(end - record.label.offset), project.LabelText(record.values),
                             setting.empty() ? "-" : setting});
  AddItem(listing, record.label, "label of record " + number);
  AddItem(listing, record.module, record.module_name + " of record " + number);
  listing.json_records.push_back({{"record", record.index},
                                  {"offset", record.label.offset},
                                  {"length", end - record.label.offset},
                                  {"label_offset", record.label.offset + 4},
                                  {"label_length", record.label.length},
                                  {"module_offset", record.module.offset + 4},
                                  {"module_length", record.module.length},
                                  {"module", record.module_name},
                                  {"labels", project.LabelJson(record.values)},
                                  {"values", record.values},
                                  {"setting", setting.empty() ? Json(nullptr) : Json(setting)}});
}

/// Reports the fault of a bin, if any, and adds it to `object`.
void AddFault(const BinContents& contents, const std::string& path, Json& object, Report& report) {
  object["fault"] = contents.fault ? FaultJson(*contents.fault) : Json(nullptr);
  if (contents.fault) report.Error("bin-damaged", "the bin is damaged " + FaultText(*contents.fault), "", Shown(path));
}

int ShowTable(Project& project, const std::string& path, const Options& options, Report& report) {
  Listing listing;
  const std::string scope = ScopeOf(path);
  listing.items = {{"OFFSET", "BYTES", "ITEM"}, {"0", "4", ""}};
  listing.records = {{"  RECORD", "OFFSET", "BYTES", "LABELS", "SETTING"}};
  BinContents contents;
  const BinVisitor visitor{[&](BinItem& item) { AddVersion(listing, item); },
                           [&](BinRecord& record) { AddRecord(listing, project, scope, record); }};
  if (!WalkBin(project, path, visitor, contents, report)) return kFailed;
  report.Print(Printable(Shown(path)) + ": " + Count(contents.bytes, "byte") + ", " +
               Count(contents.versions, "version") + ", " + Count(contents.records, "record") + "\n");
  if (options.offsets) {
    listing.items[1][2] = "version count";
    report.Print(Table(listing.items));
  } else {
    report.Print((listing.versions.empty() ? "" : "versions\n") + listing.versions);
    if (contents.records > 0) report.Print("records\n" + Table(listing.records));
  }
  Json& result = report.result();
  result = {{"file", Shown(path)},
            {"bytes", contents.bytes},
            {"versions", std::move(listing.json_versions)},
            {"records", std::move(listing.json_records)}};
  AddFault(contents, path, result, report);
  return kDone;
}

/// The whole bin in protobuf's text form, records by their labels: listing order says nothing, and would hide in a
/// comparison what does.
int ShowText(Project& project, const std::string& path, Report& report) {
  std::vector<std::pair<std::vector<int>, uint64_t>> places;
  BinContents contents;
  const BinVisitor visitor{[&](BinItem& item) { report.Print("# version\n" + MessageText(*item.message) + "\n"); },
                           [&](BinRecord& record) { places.emplace_back(record.values, record.label.offset); }};
  if (!WalkBin(project, path, visitor, contents, report)) return kFailed;
  std::sort(places.begin(), places.end());
  for (const auto& [values, offset] : places) {
    BinRecord record;
    if (!ReadRecordAt(project, path, offset, record, report)) return kFailed;
    report.Print("# " + Printable(project.LabelText(values)) + "\n" + MessageText(*record.module.message) + "\n");
  }
  AddFault(contents, path, report.result(), report);
  return kDone;
}

int ShowRecord(Project& project, const std::string& path, const Options& options, Report& report) {
  BinContents contents;
  bool found = false;
  std::string text;
  Listing listing;
  const BinVisitor visitor{nullptr, [&](BinRecord& record) {
                             if (record.index != static_cast<size_t>(options.record)) return;
                             found = true;
                             AddRecord(listing, project, ScopeOf(path), record);
                             if (options.text) {
                               text = MessageText(*record.module.message);
                             } else {
                               MessageJson(*record.module.message, text, report);
                             }
                           }};
  if (!WalkBin(project, path, visitor, contents, report)) return kFailed;
  if (found) {
    report.Print(text);
    report.result() = std::move(listing.json_records[0]);
    report.result()["message"] = options.text ? Json(text) : Json::parse(text, nullptr, false);
  }
  AddFault(contents, path, report.result(), report);
  if (found) return kDone;
  report.Error("no-record",
               "the bin has no record " + std::to_string(options.record) + "; it has " +
                   Count(contents.records, "record") + ", counted from 0",
               "", Shown(path));
  return kFailed;
}

int ShowFolder(Project& project, const std::string& dir, Report& report) {
  std::vector<std::string> names;
  if (!ListNames(dir, names, report)) return kFailed;
  std::vector<std::vector<std::string>> rows = {{"BIN", "BYTES", "VERSIONS", "RECORDS"}};
  Json bins = Json::array();
  for (const std::string& name : names) {
    std::string path = dir;
    path.append("/").append(name);
    if (!ZO_TUNING::internal::HasSuffix(name, ZO_TUNING::internal::kBinSuffix) || IsDirectory(path)) continue;
    BinContents contents;
    if (!WalkBin(project, path, {}, contents, report)) continue;
    rows.push_back({name, std::to_string(contents.bytes), std::to_string(contents.versions),
                    std::to_string(contents.records) + (contents.fault ? " (damaged)" : "")});
    Json bin = {{"name", ScopeOf(path)},
                {"file", Shown(path)},
                {"bytes", contents.bytes},
                {"versions", contents.versions},
                {"records", contents.records}};
    AddFault(contents, path, bin, report);
    bins.push_back(std::move(bin));
  }
  report.Print(Table(rows));
  if (bins.empty()) report.Error("no-bins", "the folder holds no bin", "", Shown(dir));
  report.result()["bins"] = std::move(bins);
  return kDone;
}

/// Nine digits are more records than a bin of 2 GB holds.
CLI::Validator RecordNumber() {
  return CLI::Validator(
      [](std::string& text) {
        const bool number = !text.empty() && text.size() < 10 && text.find_first_not_of("0123456789") == text.npos;
        return number ? std::string() : Quoted(text) + " is no number of a record; they count from 0";
      },
      "");
}

int Run(Session& session, const Options& options) {
  Report& report = session.report;
  const bool folder = IsDirectory(options.path);
  if (folder && (options.text || options.offsets || options.record >= 0)) {
    report.Error("usage", "a folder is listed as a whole; give one of its bins", "", Shown(options.path));
    return kMisuse;
  }
  if (options.offsets && (options.text || options.record >= 0)) {
    report.Error("usage", "--offsets cannot stand together with --text or --record");
    return kMisuse;
  }
  const auto project = Project::Open(session.project_dir, report);
  if (project == nullptr) return kMisuse;
  if (!project->ok()) return kFailed;
  if (folder) return ShowFolder(*project, BinFolderAt(options.path), report);
  if (options.record >= 0) return ShowRecord(*project, options.path, options, report);
  if (options.text && !session.json) return ShowText(*project, options.path, report);
  return ShowTable(*project, options.path, options, report);
}

}  // namespace

void AddShow(CLI::App& app, Session& session) {
  auto options = std::make_shared<Options>();
  CLI::App* command = AddCommand(
      app, session, "show", "Show what is in a tuning bin, or which bins are in a folder",
      "A bin is read with the schema and labels of the project. Of a damaged one everything before the break is\n"
      "shown, then where it breaks; the exit code is 1.\n"
      "\n"
      "Examples:\n"
      "  zotuning show out/zo_tuning\n"
      "  zotuning show out/zo_tuning/main_wide.bin\n"
      "  zotuning show out/zo_tuning/main_wide.bin --record 3 > record.json\n"
      "  zotuning show out/zo_tuning/main_wide.bin --offsets\n"
      "  git config diff.zotuning.textconv 'zotuning show --text'",
      [&session, options] { return Run(session, *options); });
  command->add_option("BIN", options->path, "The bin, or a folder of bins")->required();
  command->add_option("--record", options->record, "Only the message of this record, as JSON or --text")
      ->type_name("N")
      ->check(RecordNumber());
  command->add_flag("--text", options->text, "All messages in protobuf's text form, ordered by their labels");
  command->add_flag("--offsets", options->offsets, "The offset and size of every item");
}

}  // namespace zotuning_tool
