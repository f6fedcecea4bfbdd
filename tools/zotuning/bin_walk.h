/// \file
/// A tuning bin, item by item, with the place of everything in it. Reads through the library's own reader.
#pragma once

#include <google/protobuf/message.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "project.h"
#include "report.h"

namespace zotuning_tool {

/// One length-prefixed message of a bin.
struct BinItem {
  uint64_t offset = 0;  ///< of its length
  int32_t length = 0;
  std::unique_ptr<google::protobuf::Message> message;
};

struct BinRecord {
  size_t index = 0;
  BinItem label;
  BinItem module;
  std::vector<int> values;
  std::string module_name;
};

/// Where a bin breaks.
struct BinFault {
  uint64_t offset = 0;
  std::string item;
  std::string expected;
  std::string found;
};

struct BinContents {
  uint64_t bytes = 0;
  size_t versions = 0;
  size_t records = 0;
  std::optional<BinFault> fault;
};

/// What to do with each item as it is read; the messages may be taken.
struct BinVisitor {
  std::function<void(BinItem&)> version = nullptr;
  std::function<void(BinRecord&)> record = nullptr;
  bool parse_modules = true;  ///< without, a module message is null, and its bytes may be anything
};

/// Reads the bin at `path` up to its end or first fault. False after an error when it cannot be opened.
bool WalkBin(Project& project, const std::string& path, const BinVisitor& visitor, BinContents& contents,
             Report& report);

/// Reads one record that a walk has met, again. False after an error.
bool ReadRecordAt(Project& project, const std::string& path, uint64_t offset, BinRecord& record, Report& report);

/// "at byte 24, length of version 1: expected 4 bytes, found 2 bytes".
std::string FaultText(const BinFault& fault);
Json FaultJson(const BinFault& fault);

}  // namespace zotuning_tool
