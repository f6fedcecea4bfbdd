// zotuning show: what is in a tuning bin.

#include <algorithm>
#include <memory>

#include "bin/bin_folder.h"
#include "command_context.h"
#include "io/directory.h"
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

/// The setting's path, "" when the labels do not give exactly one.
std::string SettingOf(const Project& project, const std::string& scope, const std::vector<int>& values) {
  const std::vector<std::string> scopes = project.Scopes();
  if (std::find(scopes.begin(), scopes.end(), scope) == scopes.end()) return "";
  const std::string path = project.SettingPath(scope, values);
  return project.LabelsOf("/" + path) == values ? DisplayPath(project.dir() + "/" + path) : "";
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
  CollectingSink ignored;
  std::string json;
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
                                  {"labels", LabelJson(project, record.values)},
                                  {"values", record.values},
                                  {"setting", setting.empty() ? Json(nullptr) : Json(setting)}});
}

/// Reports the fault of a bin, if any, and adds it to `object`.
void AddFault(const BinScanner& scanner, const std::string& path, Json& object, Console& console) {
  const BinFault* fault = scanner.fault();
  object["fault"] = nullptr;
  if (fault == nullptr) return;
  object["fault"] = {
      {"offset", fault->offset}, {"item", fault->item}, {"expected", fault->expected}, {"found", fault->found}};
  ReportBinFault(*fault, path, console);
}

int ShowTable(Project& project, const std::string& path, const Options& options, Console& console) {
  const auto file = OpenBin(path, console);
  if (file == nullptr) return kFailed;
  Listing listing;
  const std::string scope = ScopeOf(path);
  listing.items = {{"OFFSET", "BYTES", "ITEM"}, {"0", "4", "version count"}};
  listing.records = {{"  RECORD", "OFFSET", "BYTES", "LABELS", "SETTING"}};
  BinScanner scanner(file.get(), project.schema(), project.labels());
  while (scanner.Next()) {
    if (scanner.is_version()) {
      AddVersion(listing, scanner.version());
    } else {
      AddRecord(listing, project, scope, scanner.record());
    }
  }
  console.Print(Printable(DisplayPath(path)) + ": " + Count(scanner.bytes(), "byte") + ", " +
                Count(scanner.versions(), "version") + ", " + Count(scanner.records(), "record") + "\n");
  if (options.offsets) {
    console.Print(Table(listing.items));
  } else {
    console.Print((listing.versions.empty() ? "" : "versions\n") + listing.versions);
    if (scanner.records() > 0) console.Print("records\n" + Table(listing.records));
  }
  Json& result = console.result();
  result = {{"file", DisplayPath(path)},
            {"bytes", scanner.bytes()},
            {"versions", std::move(listing.json_versions)},
            {"records", std::move(listing.json_records)}};
  AddFault(scanner, path, result, console);
  return kDone;
}

/// The whole bin in protobuf's text form, records by their labels: listing order says nothing, and would hide in a
/// comparison what does.
int ShowText(Project& project, const std::string& path, Console& console) {
  const auto file = OpenBin(path, console);
  if (file == nullptr) return kFailed;
  std::vector<std::pair<std::vector<int>, uint64_t>> places;
  BinScanner scanner(file.get(), project.schema(), project.labels());
  while (scanner.Next()) {
    if (scanner.is_version()) {
      console.Print("# version\n" + MessageText(*scanner.version().message) + "\n");
    } else {
      places.emplace_back(scanner.record().values, scanner.record().label.offset);
    }
  }
  std::sort(places.begin(), places.end());
  for (const auto& [values, offset] : places) {
    BinRecord record;
    if (!ZO_TUNING::internal::ReadRecordAt(file.get(), offset, project.schema(), project.labels(), record)) {
      console.Report(Code::kIo, "the bin changed while it was read", "", DisplayPath(path));
      return kFailed;
    }
    console.Print("# " + Printable(project.LabelText(values)) + "\n" + MessageText(*record.module.message) + "\n");
  }
  AddFault(scanner, path, console.result(), console);
  return kDone;
}

int ShowRecord(Project& project, const std::string& path, const Options& options, Console& console) {
  const auto file = OpenBin(path, console);
  if (file == nullptr) return kFailed;
  bool found = false;
  std::string text;
  Listing listing;
  BinScanner scanner(file.get(), project.schema(), project.labels());
  while (scanner.Next()) {
    if (scanner.is_version() || scanner.record().index != static_cast<size_t>(options.record)) continue;
    found = true;
    const google::protobuf::Message& message = *scanner.record().module.message;
    AddRecord(listing, project, ScopeOf(path), scanner.record());
    if (options.text) {
      text = MessageText(message);
    } else {
      MessageJson(message, text, console);
    }
  }
  if (found) {
    console.Print(text);
    console.result() = std::move(listing.json_records[0]);
    console.result()["message"] = options.text ? Json(text) : Json::parse(text, nullptr, false);
  }
  AddFault(scanner, path, console.result(), console);
  if (found) return kDone;
  console.Report(Code::kNoRecord,
                 "the bin has no record " + std::to_string(options.record) + "; it has " +
                     Count(scanner.records(), "record") + ", counted from 0",
                 "", DisplayPath(path));
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
    BinScanner scanner(file.get(), project.schema(), project.labels());
    while (scanner.Next()) {
    }
    rows.push_back({name, std::to_string(scanner.bytes()), std::to_string(scanner.versions()),
                    std::to_string(scanner.records()) + (scanner.fault() != nullptr ? " (damaged)" : "")});
    Json bin = {{"name", ScopeOf(path)},
                {"file", DisplayPath(path)},
                {"bytes", scanner.bytes()},
                {"versions", scanner.versions()},
                {"records", scanner.records()}};
    AddFault(scanner, path, bin, console);
    bins.push_back(std::move(bin));
  }
  console.Print(Table(rows));
  if (bins.empty()) console.Report(Code::kNoBins, "the folder holds no bin", "", DisplayPath(dir));
  console.result()["bins"] = std::move(bins);
  return kDone;
}

/// Nine digits are more records than a bin of 2 GB holds.
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
      "  git config diff.zotuning.textconv 'zotuning show --text'",
      [&context, options] { return Run(context, *options); });
  command->add_option("BIN", options->path, "The bin, or a folder of bins")->required();
  command->add_option("--record", options->record, "Only the message of this record, as JSON or --text")
      ->type_name("N")
      ->check(RecordNumber());
  command->add_flag("--text", options->text, "All messages in protobuf's text form, ordered by their labels");
  command->add_flag("--offsets", options->offsets, "The offset and size of every item");
}

}  // namespace zotuning::tool
