#include "bin_walk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "ZoTuningUtils.h"
#include "bin/bin_reader.h"
#include "files.h"
#include "library_log.h"

namespace zotuning_tool {
namespace {

using ZO_TUNING::internal::BinReader;
using ZO_TUNING::internal::ReadStatus;
using ZO_TUNING::internal::UniqueFile;

/// One walk through one file.
class Walk {
 public:
  Walk(Project& project, std::FILE* file, uint64_t bytes) : project_(project), reader_(file) {
    contents_.bytes = bytes;
  }

  void Run(const BinVisitor& visitor, int32_t version_count) {
    if (contents_.bytes < sizeof(int32_t)) {
      Fail(0, "version count", "4 bytes", Bytes(contents_.bytes));
      return;
    }
    if (version_count < 0) {
      Fail(0, "version count", "a count from 0 on", std::to_string(version_count));
      return;
    }
    version_count = reader_.ReadVersionCount();
    const auto* version_type = project_.schema().FindType("Version");
    for (int32_t i = 0; i < version_count; ++i) {
      BinItem item;
      if (!Read("version " + std::to_string(i), version_type, true, item)) return;
      ++contents_.versions;
      if (visitor.version) visitor.version(item);
    }
    const auto* label_type = project_.schema().FindType("TuningDataLabel");
    for (;;) {
      BinRecord record;
      record.index = contents_.records;
      const std::string number = std::to_string(record.index);
      if (!Read("label of record " + number, label_type, false, record.label)) return;
      if (!FindModule(record)) return;
      const auto* module_type = project_.schema().FindType(record.module_name);
      if (module_type == nullptr) {
        Fail(record.label.offset, "label of record " + number, "a module with a message type",
             record.module_name.empty()
                 ? "module number " + std::to_string(record.values.empty() ? -1 : record.values[0])
                 : Quoted(record.module_name));
        return;
      }
      if (!Read(record.module_name + " of record " + number, visitor.parse_modules ? module_type : nullptr, true,
                record.module)) {
        return;
      }
      ++contents_.records;
      if (visitor.record) visitor.record(record);
    }
  }

  BinContents& contents() { return contents_; }

 private:
  static std::string Bytes(uint64_t count) { return count == 0 ? "the bin ends" : Count(count, "byte"); }

  void Fail(uint64_t offset, std::string item, std::string expected, std::string found) {
    contents_.fault = BinFault{offset, std::move(item), std::move(expected), std::move(found)};
  }

  /// False at a fault, and where the bin ends in good order before an item that need not follow. Without a type the
  /// bytes are passed over.
  bool Read(const std::string& name, const google::protobuf::Descriptor* type, bool has_to_follow, BinItem& item) {
    item.offset = reader_.offset();
    const uint64_t left = contents_.bytes - item.offset;
    const ReadStatus length_status = reader_.ReadLength(&item.length);
    if (length_status == ReadStatus::kEnd && !has_to_follow && left == 0) return false;
    if (length_status != ReadStatus::kOk) {
      Fail(item.offset, "length of " + name, "4 bytes", Bytes(left));
      return false;
    }
    const uint64_t data_offset = reader_.offset();
    std::string_view bytes;
    if (type != nullptr) item.message = project_.schema().NewMessage(type);
    switch (type == nullptr ? reader_.ReadBytes(item.length, &bytes)
                            : reader_.ReadMessage(item.length, item.message.get())) {
      case ReadStatus::kOk:
        return true;
      case ReadStatus::kParseFailed:
        Fail(data_offset, name, "a message of type " + type->full_name(),
             Count(static_cast<size_t>(item.length), "byte") + " that are none");
        return false;
      default:
        if (item.length < 0) {
          Fail(item.offset, "length of " + name, "a length from 0 on", std::to_string(item.length));
        } else {
          Fail(data_offset, name, Count(static_cast<size_t>(item.length), "byte"),
               Bytes(contents_.bytes - data_offset));
        }
        return false;
    }
  }

  bool FindModule(BinRecord& record) {
    auto names = project_.label_names();
    const LibraryWatch watch;
    if (!ZoTuningUtils::ParseTuningLabelMsg(record.label.message.get(), record.label.message->GetDescriptor(), names,
                                            record.values)) {
      Fail(record.label.offset, "label of record " + std::to_string(record.index), "a label of this project",
           "another");
      return false;
    }
    record.module_name = project_.ModuleName(record.values);
    return true;
  }

  Project& project_;
  BinReader reader_;
  BinContents contents_;
};

}  // namespace

bool WalkBin(Project& project, const std::string& path, const BinVisitor& visitor, BinContents& contents,
             Report& report) {
  if (!RefuseSpecialFile(path, report)) return false;
  const UniqueFile file(std::fopen(path.c_str(), "rb"));
  struct stat info;
  if (file == nullptr || fstat(fileno(file.get()), &info) != 0 || !S_ISREG(info.st_mode)) {
    const bool directory = file != nullptr && S_ISDIR(info.st_mode);
    report.Error("io", "cannot read " + Shown(path) + ": " + std::strerror(directory ? EISDIR : errno), "",
                 Shown(path));
    return false;
  }
  // The reader takes a negative count for none, as reading is defined; here it is a fault.
  int32_t version_count = 0;
  if (pread(fileno(file.get()), &version_count, sizeof(version_count), 0) < 0) {
    report.Error("io", "cannot read " + Shown(path) + ": " + std::strerror(errno), "", Shown(path));
    return false;
  }
  Walk walk(project, file.get(), static_cast<uint64_t>(info.st_size));
  walk.Run(visitor, version_count);
  contents = std::move(walk.contents());
  return true;
}

bool ReadRecordAt(Project& project, const std::string& path, uint64_t offset, BinRecord& record, Report& report) {
  const UniqueFile file(std::fopen(path.c_str(), "rb"));
  if (file == nullptr || fseeko(file.get(), static_cast<off_t>(offset), SEEK_SET) != 0) {
    report.Error("io", "cannot read " + Shown(path) + ": " + std::strerror(errno), "", Shown(path));
    return false;
  }
  BinReader reader(file.get());
  const auto read = [&](const std::string& type, BinItem& item) {
    item.offset = offset + reader.offset();
    item.message = project.schema().NewMessage(project.schema().FindType(type));
    return reader.ReadLength(&item.length) == ReadStatus::kOk &&
           reader.ReadMessage(item.length, item.message.get()) == ReadStatus::kOk;
  };
  auto names = project.label_names();
  const LibraryWatch watch;
  if (read("TuningDataLabel", record.label) &&
      ZoTuningUtils::ParseTuningLabelMsg(record.label.message.get(), record.label.message->GetDescriptor(), names,
                                         record.values)) {
    record.module_name = project.ModuleName(record.values);
    if (project.schema().FindType(record.module_name) != nullptr && read(record.module_name, record.module))
      return true;
  }
  report.Error("io", "the bin changed while it was read", "", Shown(path));
  return false;
}

std::string FaultText(const BinFault& fault) {
  return "at byte " + std::to_string(fault.offset) + ", " + fault.item + ": expected " + fault.expected + ", found " +
         fault.found;
}

Json FaultJson(const BinFault& fault) {
  return {{"offset", fault.offset}, {"item", fault.item}, {"expected", fault.expected}, {"found", fault.found}};
}

}  // namespace zotuning_tool
