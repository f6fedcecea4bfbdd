#include "bin_format.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/unknown_field_set.h>

#include <filesystem>

#include "ZoTuningUtils.h"

namespace zofuzz {

const std::vector<std::string> kBinModules = {"AfLinkKey", "AWBColorMatrix", "ToneCurve"};

bool HasUnknownFields(const google::protobuf::Message& message) {
  const google::protobuf::Reflection& reflection = *message.GetReflection();
  if (!reflection.GetUnknownFields(message).empty()) return true;
  std::vector<const google::protobuf::FieldDescriptor*> fields;
  reflection.ListFields(message, &fields);
  for (const google::protobuf::FieldDescriptor* field : fields) {
    if (field->cpp_type() != google::protobuf::FieldDescriptor::CPPTYPE_MESSAGE) continue;
    const int size = field->is_repeated() ? reflection.FieldSize(message, field) : 1;
    for (int i = 0; i < size; ++i) {
      if (HasUnknownFields(field->is_repeated() ? reflection.GetRepeatedMessage(message, field, i)
                                                : reflection.GetMessage(message, field))) {
        return true;
      }
    }
  }
  return false;
}

void WriteBinSeeds(const std::string& dir) {
  const std::string project = MakeExampleProject(), out = ScratchDir() + "/out";
  std::filesystem::create_directory(out);
  Require(ZoTuningUtils::GenerateProjTuningBins(project.c_str(), out.c_str()), "the example project can be packed");
  for (const auto& bin : std::filesystem::directory_iterator(out + "/zo_tuning")) {
    const std::string bytes = Read(bin.path());
    const Pieces pieces(bytes, true);
    int32_t count = 0;
    std::memcpy(&count, pieces.count.data(), sizeof(count));
    const std::string stem = dir + "/" + bin.path().stem().string();
    Pieces versions = pieces;
    versions.items.resize(static_cast<size_t>(count));
    Write(stem, versions.Join());
    for (size_t i = static_cast<size_t>(count); i + 1 < pieces.items.size(); i += 2) {
      Pieces one = versions;
      one.items.insert(one.items.end(), {pieces.items[i], pieces.items[i + 1]});
      Write(stem + "-" + std::to_string(i), one.Join());
    }
  }
}

}  // namespace zofuzz
