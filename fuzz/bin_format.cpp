#include "bin_format.h"

#include <filesystem>

#include "ZoTuningUtils.h"

namespace zofuzz {

const std::vector<std::string> kBinModules = {"AfLinkKey", "AWBColorMatrix", "ToneCurve"};

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
