// The projects that the benchmarks pack.

#include "generate_project.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <stdexcept>

#include "ZoTuningUtils.h"

namespace zotuning_bench {
namespace {

namespace fs = std::filesystem;

enum class Kind { kBool, kInt32, kUint32, kInt64, kUint64, kDouble, kFloat, kEnum, kString, kStructure, kElements };

/// How a value is represented in its message: by itself, or in one of the data types.
enum class Form { kReference, kData, kArray, kTable };

struct FieldModel {
  std::string name;
  Kind kind;
  Form form;
  double low;
  double high;
  int digits = 4;   ///< significant ones of a real number; 0 for all
  size_t rows = 0;  ///< of a table; elements of an array or of a repeated structure otherwise
  size_t columns = 0;
  bool scaled = false;    ///< a table whose size follows the shape
  std::string type = {};  ///< of structures, elements and enums, as spelled in the same schema file
};

struct MessageModel {
  std::string name;
  std::vector<FieldModel> fields;
};

struct EnumModel {
  std::string name;
  std::vector<std::string> values;
};

struct FileModel {
  std::string file;
  std::string package;
  std::vector<EnumModel> enums;
  std::vector<MessageModel> messages;
};

struct ModuleModel {
  std::string name;
  std::string type;
  bool large;
};

// ---- The contents of the modules ------------------------------------------------------------------------------

FieldModel Plain(const char* name, Kind kind, double low, double high) {
  return {name, kind, Form::kReference, low, high};
}
FieldModel Data(const char* name, Kind kind, double low, double high, int digits = 3) {
  return {name, kind, Form::kData, low, high, digits};
}
FieldModel Array(const char* name, Kind kind, double low, double high, size_t length, int digits = 4) {
  return {name, kind, Form::kArray, low, high, digits, length};
}
FieldModel Table(const char* name, Kind kind, double low, double high, size_t rows, size_t columns, int digits = 4) {
  return {name, kind, Form::kTable, low, high, digits, rows, columns};
}
FieldModel LargeTable(const char* name, Kind kind, double low, double high, size_t rows, size_t columns,
                      int digits = 4) {
  return {name, kind, Form::kTable, low, high, digits, rows, columns, true};
}
FieldModel Choice(const char* name, const char* type) {
  return {name, Kind::kEnum, Form::kReference, 0, 0, 0, 0, 0, false, type};
}
FieldModel Structure(const char* name, const char* type) {
  return {name, Kind::kStructure, Form::kReference, 0, 0, 0, 0, 0, false, type};
}
FieldModel Elements(const char* name, const char* type, size_t count) {
  return {name, Kind::kElements, Form::kReference, 0, 0, 0, count, 0, false, type};
}

std::vector<FileModel> MakeSchema() {
  return {
      {"af",
       "ZO_TUNING_AF",
       {{"AfSearchAlgorithm", {"AF_SEARCH_FULL_SWEEP", "AF_SEARCH_HILL_CLIMB", "AF_SEARCH_HYBRID"}},
        {"AfFilterDirection", {"AF_FILTER_HORIZONTAL", "AF_FILTER_VERTICAL"}}},
       {{"AfLens",
         {Data("infinity_code", Kind::kInt32, 0, 511), Data("macro_code", Kind::kInt32, 512, 1023),
          Data("backlash_codes", Kind::kUint32, 0, 15), Data("settle_time_ns", Kind::kUint64, 1e6, 5e7),
          Data("move_offset_ns", Kind::kInt64, -4e7, 4e7)}},
        {"AfScan",
         {Data("coarse_step", Kind::kUint32, 8, 96), Data("fine_step", Kind::kUint32, 1, 16),
          Data("peak_drop_ratio", Kind::kFloat, 0.01, 0.5), Data("min_confidence", Kind::kFloat, 0, 1),
          Plain("max_retries", Kind::kUint32, 0, 5)}},
        {"AfZone",
         {Plain("label", Kind::kString, 0, 0), Data("left", Kind::kFloat, 0, 1), Data("top", Kind::kFloat, 0, 1),
          Data("width", Kind::kFloat, 0.02, 1), Data("height", Kind::kFloat, 0.02, 1),
          Data("weight", Kind::kFloat, 0, 1)}},
        {"AfCommon",
         {Choice("search_algorithm", "AfSearchAlgorithm"), Plain("parameter_revision", Kind::kUint32, 1, 65535),
          Data("continuous_enable", Kind::kBool, 0, 1), Structure("lens", "AfLens"), Structure("scan", "AfScan"),
          Array("focus_distance_m", Kind::kFloat, 0.05, 100, 9), Array("focus_codes", Kind::kInt32, 0, 1023, 9),
          Table("posture_offset_codes", Kind::kInt32, -64, 64, 3, 6), Elements("zones", "AfZone", 9)}},
        {"AfFilterBand",
         {Choice("direction", "AfFilterDirection"), Array("taps", Kind::kInt32, -512, 511, 7),
          Data("coring_threshold", Kind::kUint32, 0, 255), Data("weight", Kind::kDouble, 0, 1)}},
        {"AfContrast",
         {Elements("bands", "AfFilterBand", 4), Array("gain_axis", Kind::kFloat, 1, 64, 7),
          Array("noise_floor", Kind::kUint32, 0, 1000, 7), Table("cell_enable", Kind::kBool, 0, 1, 5, 7),
          Array("highlight_bypass", Kind::kBool, 0, 1, 4)}},
        {"AfLinkKey",
         {Data("enable", Kind::kBool, 0, 1), Data("range_begin_mm", Kind::kUint32, 50, 100000),
          Data("range_end_mm", Kind::kUint32, 50, 100000),
          Array("distance_polynomial", Kind::kDouble, -4096, 4096, 4, 0), Data("max_age_ns", Kind::kUint64, 0, 2e8),
          Plain("clock_offset_ns", Kind::kInt64, -5e6, 5e6),
          Plain("calibration_time_us", Kind::kUint64, 1.6e15, 1.8e15)}}}},
      {"awb",
       "ZO_TUNING_AWB",
       {{"AWBIlluminantKind",
         {"AWB_ILLUMINANT_INCANDESCENT", "AWB_ILLUMINANT_COOL_FLUORESCENT", "AWB_ILLUMINANT_DAYLIGHT",
          "AWB_ILLUMINANT_SHADE"}}},
       {{"AWBIlluminant",
         {Choice("kind", "AWBIlluminantKind"), Data("cct_k", Kind::kUint32, 1800, 12000),
          Data("red_ratio", Kind::kFloat, 0.2, 2), Data("blue_ratio", Kind::kFloat, 0.2, 2),
          Data("radius", Kind::kFloat, 0.005, 0.2), Array("lux_prior", Kind::kFloat, 0, 1, 5)}},
        {"AWBConvergence",
         {Data("speed", Kind::kFloat, 0.01, 1), Data("dead_band", Kind::kFloat, 0, 0.1),
          Plain("fast_start_frames", Kind::kUint32, 0, 30)}},
        {"AWBCommon",
         {Data("face_assist", Kind::kBool, 0, 1), Structure("convergence", "AWBConvergence"),
          Elements("illuminants", "AWBIlluminant", 8), Table("grey_area", Kind::kFloat, 0.2, 2, 6, 2),
          Array("indoor_only", Kind::kBool, 0, 1, 8), Array("max_gain", Kind::kFloat, 1, 8, 3)}},
        {"AWBColorMatrixEntry",
         {Data("cct_k", Kind::kUint32, 1800, 12000), Table("matrix", Kind::kDouble, -4, 4, 3, 3, 6),
          Data("saturation", Kind::kFloat, 0, 2)}},
        {"AWBColorMatrix",
         {Elements("entries", "AWBColorMatrixEntry", 6), Array("gain_axis", Kind::kDouble, 1, 64, 5),
          Array("gain_desaturation", Kind::kDouble, 0, 1, 5)}},
        {"AWBColorLut",
         {Data("cct_k", Kind::kUint32, 1800, 12000), LargeTable("hue_shift", Kind::kFloat, -30, 30, 33, 33, 5),
          LargeTable("saturation_gain", Kind::kFloat, 0, 2, 33, 33, 3),
          LargeTable("lightness_gain", Kind::kFloat, 0.5, 1.5, 33, 33, 0)}}}},
      {"aec",
       "ZO_TUNING_AEC",
       {{"AEFlicker", {"AE_FLICKER_OFF", "AE_FLICKER_50HZ", "AE_FLICKER_60HZ", "AE_FLICKER_AUTO"}},
        {"AEMeteringMode", {"AE_METERING_AVERAGE", "AE_METERING_CENTER", "AE_METERING_SPOT", "AE_METERING_MATRIX"}}},
       {{"AEConvergence",
         {Data("speed_up", Kind::kFloat, 0.02, 1), Data("speed_down", Kind::kFloat, 0.02, 1),
          Data("tolerance_ev", Kind::kFloat, 0.02, 0.5)}},
        {"AELimits",
         {Data("min_exposure_ns", Kind::kUint64, 1000, 1e6), Data("max_exposure_ns", Kind::kUint64, 1e6, 2e9),
          Data("max_analog_gain", Kind::kFloat, 1, 64, 2), Data("max_digital_gain", Kind::kFloat, 1, 16, 2)}},
        {"AECommon",
         {Choice("flicker", "AEFlicker"), Plain("bias_steps", Kind::kInt32, -12, 12),
          Structure("convergence", "AEConvergence"), Structure("limits", "AELimits"),
          Array("lux_axis", Kind::kFloat, -4, 17, 8, 2), Array("target_luma", Kind::kFloat, 40, 400, 8),
          Array("register_latency", Kind::kUint32, 0, 4, 3), Array("flash_offset_ns", Kind::kInt64, -2e7, 2e7, 3)}},
        {"AEMetering",
         {Choice("metering_mode", "AEMeteringMode"), Table("cell_weight", Kind::kUint32, 0, 255, 13, 17),
          LargeTable("fine_weight", Kind::kUint32, 0, 1023, 33, 33), Data("face_boost", Kind::kFloat, 1, 16),
          Data("highlight_allowance", Kind::kDouble, 0, 0.2, 0), Array("histogram_levels", Kind::kInt32, 0, 1023, 4)}},
        {"AEExposureKnee",
         {Data("exposure_ns", Kind::kUint64, 1000, 2e9), Data("gain", Kind::kFloat, 1, 256),
          Data("time_first", Kind::kBool, 0, 1)}},
        {"AEExposureTable",
         {Elements("knees", "AEExposureKnee", 16), Array("flicker_free_ns", Kind::kUint64, 1e6, 1e8, 5),
          Table("program_max_ns", Kind::kUint64, 1000, 2e9, 3, 4),
          Table("bracket_offset_ns", Kind::kInt64, -1e8, 1e8, 2, 3), Plain("line_time_ns", Kind::kUint64, 1e3, 1e5)}}}},
      {"pd",
       "ZO_TUNING_PD",
       {{"PdPixelLayout", {"PD_LAYOUT_SPARSE", "PD_LAYOUT_DUAL_PIXEL", "PD_LAYOUT_SHARED_LENS"}}},
       {{"PdCorrelation",
         {Data("search_range_px", Kind::kUint32, 4, 64), Array("block_size_px", Kind::kUint32, 8, 512, 2),
          Array("smoothing_taps", Kind::kFloat, -1, 1, 5), Plain("subpixel", Kind::kBool, 0, 1)}},
        {"PdCommon",
         {Choice("pixel_layout", "PdPixelLayout"), Structure("correlation", "PdCorrelation"),
          Array("gain_axis", Kind::kFloat, 1, 64, 6), Array("min_confidence", Kind::kInt32, 0, 1024, 6),
          Data("min_valid_blocks", Kind::kInt32, 1, 48), Data("data_delay_ns", Kind::kInt64, 0, 5e7)}},
        {"PdCalib",
         {Plain("station", Kind::kString, 0, 0), Plain("calibration_time_us", Kind::kUint64, 1.6e15, 1.8e15),
          Array("serial_range", Kind::kUint64, 0, 1.8e19, 2), Table("defocus_slope", Kind::kFloat, 4, 80, 13, 17, 5),
          LargeTable("left_gain", Kind::kFloat, 0.5, 4, 33, 33, 6),
          LargeTable("right_gain", Kind::kFloat, 0.5, 4, 33, 33, 0),
          LargeTable("zero_shift_map", Kind::kDouble, -2, 2, 17, 13, 0),
          Table("pixel_pattern", Kind::kBool, 0, 1, 8, 8), Data("zero_shift_px", Kind::kDouble, -2, 2, 6)}}}},
      {"image",
       "ZO_TUNING",
       {{"ToneCurveSpace", {"TONE_CURVE_SPACE_LUMA", "TONE_CURVE_SPACE_RGB"}}},
       {{"ShadingChannel",
         {LargeTable("gain", Kind::kFloat, 1, 8, 33, 33, 4), Data("strength_at_high_gain", Kind::kFloat, 0, 1)}},
        {"LensShading",
         {Structure("red", "ShadingChannel"), Structure("green", "ShadingChannel"), Structure("blue", "ShadingChannel"),
          Array("optical_center_px", Kind::kInt32, -256, 256, 2), Data("cct_k", Kind::kUint32, 1800, 12000)}},
        {"LocalContrast",
         {Data("strength", Kind::kFloat, 0, 1), Data("radius_px", Kind::kUint32, 16, 512),
          Data("protect_skin", Kind::kBool, 0, 1)}},
        {"ToneCurve",
         {Choice("space", "ToneCurveSpace"), Array("gamma_input", Kind::kUint32, 0, 4095, 257),
          Array("gamma_output", Kind::kUint32, 0, 1023, 257), Structure("local_contrast", "LocalContrast"),
          Array("shadow_boost", Kind::kDouble, 1, 4, 33, 6), Plain("pedestal", Kind::kInt32, -256, 256)}},
        {"LocalToneMap",
         {LargeTable("luma_gain", Kind::kFloat, 0.25, 8, 65, 49, 5),
          LargeTable("level_code", Kind::kInt32, -2048, 2047, 65, 49), Data("strength", Kind::kFloat, 0, 1)}},
        {"NoiseLevel",
         {Data("gain", Kind::kFloat, 1, 256), Data("read_noise", Kind::kDouble, 0, 0.01, 0),
          Data("shot_noise", Kind::kDouble, 0, 0.1, 0), Array("band_strength", Kind::kFloat, 0, 16, 9),
          Table("chroma_weight", Kind::kFloat, 0, 4, 5, 5, 3), Data("exposure_ns", Kind::kUint64, 1000, 2e9)}},
        {"NoiseModel", {Elements("levels", "NoiseLevel", 24), Data("enable", Kind::kBool, 0, 1)}}}},
  };
}

// The modules by name; AfLinkKeyFar and AfLinkKeyNear are two settings of one type.
std::vector<ModuleModel> MakeModules() {
  return {{"AfCommon", "AfCommon", false},        {"AfContrast", "AfContrast", false},
          {"AfLinkKeyFar", "AfLinkKey", false},   {"AfLinkKeyNear", "AfLinkKey", false},
          {"AWBCommon", "AWBCommon", false},      {"AWBColorMatrix", "AWBColorMatrix", false},
          {"AWBColorLut", "AWBColorLut", true},   {"AECommon", "AECommon", false},
          {"AEMetering", "AEMetering", true},     {"AEExposureTable", "AEExposureTable", false},
          {"PdCommon", "PdCommon", false},        {"PdCalib", "PdCalib", true},
          {"LensShading", "LensShading", true},   {"ToneCurve", "ToneCurve", false},
          {"LocalToneMap", "LocalToneMap", true}, {"NoiseModel", "NoiseModel", false}};
}

// The label's levels below "module", in the order of the folders, and their values.
struct LevelModel {
  std::string name;
  std::string enum_name;
  int number;
  std::vector<std::string> values;
};

std::vector<LevelModel> MakeLevels() {
  return {{"mode", "", 1, {}},
          {"scenario", "Scenario", 2, {"Preview", "Video", "Snapshot", "Panorama"}},
          {"feature0", "Feature0", 8, {"Normal", "Hdr", "LowLight", "Stabilized"}},
          {"function", "Function", 3, {"Capture", "Merge", "Denoise"}},
          {"sub_function", "SubFunction", 7, {"Reference", "ShortFrame", "LongFrame"}},
          {"scene", "Scene", 4, {"Auto", "Portrait", "Night", "Backlight"}},
          {"filter", "Filter", 6, {"Plain", "Mono", "Warm"}}};
}

constexpr size_t kModeCount = 16;

// ---- Names of kinds --------------------------------------------------------------------------------------------

struct KindNames {
  const char* type;   ///< starts the names of the data types
  const char* proto;  ///< of the value
  const char* rule;   ///< in the description of a rule
};

const KindNames& NamesOf(Kind kind) {
  static const std::map<Kind, KindNames> names = {
      {Kind::kBool, {"Bool", "bool", "Bool"}},         {Kind::kInt32, {"Int32", "int32", "Int32"}},
      {Kind::kUint32, {"Uint32", "uint32", "UInt32"}}, {Kind::kInt64, {"Int64", "int64", "Int64"}},
      {Kind::kUint64, {"Uint64", "uint64", "UInt64"}}, {Kind::kDouble, {"Double", "double", "Double"}},
      {Kind::kFloat, {"Float", "float", "Float"}},     {Kind::kString, {"", "string", ""}}};
  return names.at(kind);
}

constexpr Kind kDataKinds[] = {Kind::kBool,   Kind::kInt32,  Kind::kUint32, Kind::kInt64,
                               Kind::kUint64, Kind::kDouble, Kind::kFloat};

void WriteFile(const fs::path& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file.write(text.data(), static_cast<std::streamsize>(text.size()));
  if (!file.flush()) throw std::runtime_error("cannot write " + path.string());
}

/// Writes a project; one object per project.
class Generator {
 public:
  Generator(const ProjectShape& shape, fs::path dir)
      : shape_(shape),
        dir_(std::move(dir)),
        random_(shape.seed),
        tree_random_(shape.seed + 1),
        schema_random_(shape.seed + 2),
        files_(MakeSchema()),
        modules_(MakeModules()) {
    for (const FileModel& file : files_) {
      for (const MessageModel& message : file.messages) messages_[message.name] = &message;
      for (const EnumModel& item : file.enums) enums_[item.name] = &item;
    }
  }

  size_t Run() {
    fs::create_directories(dir_ / "proto" / "version");
    WriteSchema();
    const std::vector<std::string> sensors = {"front", "main_tele", "main_ultra", "main_wide"};
    std::string root = dir_.parent_path().string();
    if (root.empty()) root = ".";
    ZoTuningUtils::InitProjectConfig((dir_ / "proto").c_str(), dir_.filename().c_str(), sensors, root.c_str());
    if (!fs::exists(dir_ / "ProjConf.bin")) throw std::runtime_error("no configuration made in " + dir_.string());
    for (const char* part : {"aec", "af", "awb", "pd", "schema"}) {
      WriteVersion(dir_ / "proto" / "version" / (std::string(part) + ".json"), part);
    }
    for (const std::string& sensor : sensors) {
      fs::create_directories(dir_ / sensor / "version");
      WriteVersion(dir_ / sensor / "version" / "calibration.json", sensor + ".calibration");
      WriteVersion(dir_ / sensor / "version" / "tuning.json", sensor + ".tuning");
    }
    size_t bytes = 0;
    for (const ModuleModel& module : modules_) bytes += WriteModule(dir_ / "default", module);
    std::set<fs::path> used;
    size_t written = modules_.size();
    for (size_t tries = 0; written < shape_.file_count; ++tries) {
      const ModuleModel& module = modules_[tries % modules_.size()];
      if (shape_.large_modules_only && !module.large) continue;
      const fs::path folder = dir_ / sensors[tree_random_() % sensors.size()] / RandomLevels();
      if (!used.insert(folder / module.name).second) continue;
      bytes += WriteModule(folder, module);
      ++written;
    }
    return bytes;
  }

 private:
  // Distributions of the standard library differ between implementations, so the few needed are written here.
  uint64_t Bits() { return random_(); }
  size_t Below(size_t limit) { return static_cast<size_t>(Bits() % limit); }
  double Uniform(double low, double high) { return low + (high - low) * static_cast<double>(Bits() >> 11) * 0x1p-53; }

  fs::path RandomLevels() {
    fs::path path;
    static const std::vector<LevelModel> levels = MakeLevels();
    const size_t depth = tree_random_() % (levels.size() + 1);
    for (size_t i = 0; i < depth; ++i) {
      const LevelModel& level = levels[i];
      const size_t value = tree_random_() % (level.values.empty() ? kModeCount : level.values.size());
      path /= level.name + "_" + (level.values.empty() ? std::to_string(value) : level.values[value]);
    }
    return path;
  }

  // ---- Schema ----

  /// The numbers of `count` fields.
  std::vector<int> Numbers(size_t count) {
    std::vector<int> numbers(count);
    for (size_t i = 0; i < count; ++i) numbers[i] = static_cast<int>(i) + 1;
    if (!shape_.shuffled_numbers) return numbers;
    if (count == 2) return {2, 1};
    for (size_t i = count; i > 1; --i) std::swap(numbers[i - 1], numbers[schema_random_() % i]);
    return numbers;
  }

  void AppendMessage(const std::string& name, const std::vector<std::string>& fields, std::string& text) {
    const std::vector<int> numbers = Numbers(fields.size());
    text += "message " + name + " {\n";
    for (size_t i = 0; i < fields.size(); ++i) text += "  " + fields[i] + " = " + std::to_string(numbers[i]) + ";\n";
    text += "}\n\n";
  }

  static std::string Header(const std::string& package, bool imports) {
    return "syntax = \"proto3\";\n\npackage " + package + ";\n\n" + (imports ? "import \"types.proto\";\n\n" : "");
  }

  void WriteSchema() {
    std::string types = Header("ZO_TUNING", false);
    for (Kind kind : kDataKinds) {
      const KindNames& names = NamesOf(kind);
      const std::string type = names.type;
      const std::string value = std::string(names.proto) + " value";
      AppendMessage(type + "Rule", {"string description", "string recommend"}, types);
      AppendMessage(type + "ArrayRule", {"string description", "string recommend", "int32 order", "string len"}, types);
      AppendMessage(type + "ArrayRule_2D", {"string description", "string recommend", "string row", "string col"},
                    types);
      AppendMessage(type + "Data", {type + "Rule rule", value}, types);
      AppendMessage(type + "ArrayData", {type + "ArrayRule rule", "repeated " + value}, types);
      types += "message " + type + "Row {\n  repeated " + value + " = 1;\n}\n\n";
      AppendMessage(type + "ArrayData_2D", {type + "ArrayRule_2D rule", "repeated " + type + "Row value"}, types);
    }
    AppendMessage("StructArrayRule", {"string description", "string recommend", "string len"}, types);
    WriteFile(dir_ / "proto" / "types.proto", types);

    for (const FileModel& file : files_) {
      std::string text = Header(file.package, true);
      for (const EnumModel& item : file.enums) {
        text += "enum " + item.name + " {\n";
        for (size_t i = 0; i < item.values.size(); ++i)
          text += "  " + item.values[i] + " = " + std::to_string(i) + ";\n";
        text += "}\n\n";
      }
      for (const MessageModel& message : file.messages) {
        std::vector<std::string> fields;
        for (const FieldModel& field : message.fields) AppendDeclaration(field, fields);
        AppendMessage(message.name, fields, text);
      }
      WriteFile(dir_ / "proto" / (file.file + ".proto"), text);
    }
    WriteFile(dir_ / "proto" / "project.proto",
              Header("ZO_TUNING", false) +
                  "message TuningProjConfig {\n  string proj_name = 1;\n  repeated string sensor_names = 2;\n}\n\n"
                  "message Version {\n  string name = 1;\n  string version = 2;\n  string note = 3;\n}\n");
    WriteLabel();
  }

  static void AppendDeclaration(const FieldModel& field, std::vector<std::string>& fields) {
    if (field.kind == Kind::kElements) {
      fields.push_back("repeated " + field.type + " " + field.name);
      fields.push_back("ZO_TUNING.StructArrayRule " + field.name + "_rule");
    } else if (!field.type.empty()) {
      fields.push_back(field.type + " " + field.name);
    } else if (field.form == Form::kReference) {
      fields.push_back(std::string(NamesOf(field.kind).proto) + " " + field.name);
    } else {
      fields.push_back("ZO_TUNING." + DataType(field) + " " + field.name);
    }
  }

  static std::string DataType(const FieldModel& field) {
    const std::string type = NamesOf(field.kind).type;
    return type + (field.form == Form::kTable ? "ArrayData_2D" : field.form == Form::kArray ? "ArrayData" : "Data");
  }

  void WriteLabel() {
    const std::vector<LevelModel> levels = MakeLevels();
    const std::string prefix = "EnumTuningDataLable_";
    std::string text = Header("ZO_TUNING", false) + "message TuningDataLabel {\n  " + prefix + "Module module = 5;\n";
    for (const LevelModel& level : levels) {
      text += "  " + (level.enum_name.empty() ? "int32" : prefix + level.enum_name) + " " + level.name + " = " +
              std::to_string(level.number) + ";\n";
    }
    text += "}\n\n";
    const auto append_enum = [&](const std::string& name, const std::vector<std::string>& values) {
      text += "enum " + prefix + name + " {\n";
      for (size_t i = 0; i < values.size(); ++i) {
        text += "  " + prefix + name + "_" + values[i] + " = " + std::to_string(i) + ";\n";
      }
      text += "}\n\n";
    };
    std::vector<std::string> module_names;
    for (const ModuleModel& module : modules_) module_names.push_back(module.name);
    append_enum("Module", module_names);
    for (const LevelModel& level : levels) {
      if (!level.enum_name.empty()) append_enum(level.enum_name, level.values);
    }
    WriteFile(dir_ / "proto" / "label.proto", text);
  }

  // ---- JSON ----

  void WriteVersion(const fs::path& path, const std::string& name) {
    const std::string version =
        std::to_string(Below(4)) + "." + std::to_string(Below(20)) + "." + std::to_string(Below(100));
    WriteFile(path, "{\n \"name\": \"" + name + "\",\n \"version\": \"" + version + "\",\n \"note\": \"\"\n}\n");
  }

  size_t WriteModule(const fs::path& folder, const ModuleModel& module) {
    fs::create_directories(folder);
    json_.clear();
    AppendStructure(*messages_.at(module.type), 0);
    if (shape_.unsupported_end) json_.insert(json_.size() - 2, ",");
    json_ += '\n';
    WriteFile(folder / (module.name + ".json"), json_);
    return json_.size();
  }

  void NewLine(size_t depth) {
    json_ += '\n';
    json_.append(depth, ' ');
  }

  void Key(const std::string& name, size_t depth, bool first = false) {
    if (!first) json_ += ',';
    NewLine(depth);
    json_ += '"';
    json_ += name;
    json_ += "\": ";
  }

  /// Calls append_item for each of `count` items of an array whose brackets are at `depth`.
  template <typename AppendItem>
  void AppendList(size_t count, size_t depth, AppendItem append_item) {
    json_ += '[';
    for (size_t i = 0; i < count; ++i) {
      if (i > 0) json_ += ',';
      NewLine(depth + 1);
      append_item();
    }
    NewLine(depth);
    json_ += ']';
  }

  void AppendStructure(const MessageModel& message, size_t depth) {
    json_ += '{';
    bool first = true;
    for (const FieldModel& field : message.fields) {
      Key(field.name, depth + 1, first);
      AppendField(field, depth + 1);
      first = false;
    }
    NewLine(depth);
    json_ += '}';
  }

  void AppendField(const FieldModel& field, size_t depth) {
    switch (field.kind) {
      case Kind::kStructure:
        AppendStructure(*messages_.at(field.type), depth);
        return;
      case Kind::kElements:
        AppendList(field.rows, depth, [&] { AppendStructure(*messages_.at(field.type), depth + 1); });
        Key(field.name + "_rule", depth);
        json_ += '{';
        AppendRuleText("description", "[Repeated]", depth + 1, true);
        AppendRuleText("recommend", "None", depth + 1);
        AppendRuleText("len", std::to_string(field.rows), depth + 1);
        NewLine(depth);
        json_ += '}';
        return;
      default:
        if (field.form == Form::kReference) {
          AppendValue(field);
        } else {
          AppendData(field, depth);
        }
    }
  }

  void AppendData(const FieldModel& field, size_t depth) {
    const double factor = field.scaled ? std::sqrt(shape_.table_scale) : 1;
    const size_t rows = std::max<size_t>(2, static_cast<size_t>(static_cast<double>(field.rows) * factor));
    const size_t columns = std::max<size_t>(2, static_cast<size_t>(static_cast<double>(field.columns) * factor));
    json_ += '{';
    Key("rule", depth + 1, true);
    json_ += '{';
    const char* suffix = field.form == Form::kTable ? "Arr2D" : field.form == Form::kArray ? "Arr" : "";
    AppendRuleText("description", std::string("[") + NamesOf(field.kind).rule + suffix + "]", depth + 2, true);
    AppendRuleText("recommend", field.kind == Kind::kBool ? "None" : Range(field), depth + 2);
    if (field.form == Form::kArray) {
      Key("order", depth + 2);
      json_ += '0';
      AppendRuleText("len", std::to_string(field.rows), depth + 2);
    } else if (field.form == Form::kTable) {
      AppendRuleText("row", std::to_string(rows), depth + 2);
      AppendRuleText("col", std::to_string(columns), depth + 2);
    }
    NewLine(depth + 1);
    json_ += '}';
    Key("value", depth + 1);
    if (field.form == Form::kData) {
      AppendValue(field);
    } else if (field.form == Form::kArray) {
      AppendList(field.rows, depth + 1, [&] { AppendValue(field); });
    } else {
      AppendList(rows, depth + 1, [&] {
        json_ += '{';
        Key("value", depth + 3, true);
        AppendList(columns, depth + 3, [&] { AppendValue(field); });
        NewLine(depth + 2);
        json_ += '}';
      });
    }
    NewLine(depth);
    json_ += '}';
  }

  void AppendRuleText(const char* key, const std::string& text, size_t depth, bool first = false) {
    Key(key, depth, first);
    json_ += '"';
    json_ += text;
    json_ += '"';
  }

  static std::string Range(const FieldModel& field) { return RealText(field.low, 6) + ".." + RealText(field.high, 6); }

  void AppendValue(const FieldModel& field) {
    switch (field.kind) {
      case Kind::kBool:
        json_ += (Bits() >> 40) % 3 == 0 ? "false" : "true";
        break;
      case Kind::kInt32:
      case Kind::kUint32:
        AppendInteger(static_cast<int64_t>(std::floor(Uniform(field.low, field.high + 1))));
        break;
      case Kind::kInt64:
        json_ += '"';
        AppendInteger(static_cast<int64_t>(std::floor(Uniform(field.low, field.high))));
        json_ += '"';
        break;
      case Kind::kUint64:
        json_ += '"';
        json_ += std::to_string(static_cast<uint64_t>(Uniform(field.low, field.high)));
        json_ += '"';
        break;
      case Kind::kFloat:
        AppendFloat(field);
        break;
      case Kind::kDouble:
        AppendDouble(field);
        break;
      case Kind::kEnum: {
        const EnumModel& item = *enums_.at(field.type);
        json_ += '"';
        json_ += item.values[Below(item.values.size())];
        json_ += '"';
        break;
      }
      case Kind::kString:
        json_ += "\"line " + std::to_string(Below(20)) + ", station " + std::to_string(Below(400)) + "\"";
        break;
      case Kind::kStructure:
      case Kind::kElements:
        break;
    }
  }

  void AppendInteger(int64_t value) {
    char text[24];
    json_.append(text, std::to_chars(text, text + sizeof(text), value).ptr);
  }

  static std::string RealText(double value, int digits) {
    char text[40];
    return {text, std::to_chars(text, text + sizeof(text), value, std::chars_format::general, digits).ptr};
  }

  // The texts are those that protobuf prints: the usual number of digits, or two or three more if these do not read
  // back as the same number.
  void AppendFloat(const FieldModel& field) {
    const double value = Uniform(field.low, field.high);
    if (field.digits > 0) {
      json_ += RealText(value, field.digits);
      return;
    }
    const float exact = static_cast<float>(value);
    const std::string text = RealText(static_cast<double>(exact), 6);
    json_ += std::strtof(text.c_str(), nullptr) == exact ? text : RealText(static_cast<double>(exact), 9);
  }

  void AppendDouble(const FieldModel& field) {
    const double value = Uniform(field.low, field.high);
    if (field.digits > 0) {
      json_ += RealText(value, field.digits);
      return;
    }
    const std::string text = RealText(value, 15);
    json_ += std::strtod(text.c_str(), nullptr) == value ? text : RealText(value, 17);
  }

  const ProjectShape& shape_;
  fs::path dir_;
  // Three sources, so that neither the values nor the tree depend on the field numbers or the table sizes.
  std::mt19937_64 random_;
  std::mt19937_64 tree_random_;
  std::mt19937_64 schema_random_;
  std::vector<FileModel> files_;
  std::vector<ModuleModel> modules_;
  std::map<std::string, const MessageModel*> messages_;
  std::map<std::string, const EnumModel*> enums_;
  std::string json_;
};

}  // namespace

ProjectShape ShapeByName(const std::string& name) {
  const std::string fallback = "-fallback";
  if (name.size() > fallback.size() && name.compare(name.size() - fallback.size(), fallback.size(), fallback) == 0) {
    ProjectShape shape = ShapeByName(name.substr(0, name.size() - fallback.size()));
    shape.name = name;
    shape.description += ", every file falls back at its end";
    shape.unsupported_end = true;
    return shape;
  }
  if (name == "a") return {name, "151 files, 9 MB", 151, 4.05};
  if (name == "b") return {name, "as a, field numbers not in declaration order", 151, 4.05, true};
  if (name == "c") return {name, "1,505 files, 37 MB", 1505, 1.4};
  if (name == "d") return {name, "23 files, 24 MB", 23, 49, false, true};
  const std::string growth = "growth-";
  if (name.compare(0, growth.size(), growth) == 0) {
    char* end = nullptr;
    const unsigned long megabytes = std::strtoul(name.c_str() + growth.size(), &end, 10);
    if (*end == '\0' && megabytes > 0) {
      return {name, std::to_string(megabytes) + " MB", static_cast<size_t>(16.8 * static_cast<double>(megabytes)),
              4.05};
    }
  }
  throw std::invalid_argument("no shape named " + name);
}

size_t GenerateProject(const ProjectShape& shape, const std::string& dir) {
  const fs::path path = fs::path(dir).lexically_normal();
  if (fs::exists(path)) throw std::runtime_error(dir + " exists already");
  return Generator(shape, path).Run();
}

}  // namespace zotuning_bench
