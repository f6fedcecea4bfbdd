/// \file
/// The public interface of libzotuning_utils: camera tuning projects on disk, and the tuning bins packed from them.
///
/// A tuning project is a directory with its own .proto schema, default JSON per module, a tree of JSON settings per
/// sensor, and version files. No part of the schema is compiled in: every operation loads the .proto files of the
/// project, works through protobuf reflection, and releases everything before it returns.
///
/// \code
///   #include "ZoTuningUtils.h"
///
///   // Packs the defaults and every sensor's settings into out/zo_tuning/*.bin.
///   if (!ZoTuningUtils::GenerateProjTuningBins("my_project", "out")) { /* the Android log says why */ }
/// \endcode
///
/// Common rules. Paths are joined with "/" and never normalised. Outputs are appended to unless a declaration says
/// "replaces". Failures are written to the Android log under the tag "ZoLOG" and never thrown: an exception from
/// protobuf or the standard library becomes one error line, and false if there is a result. Programs that include this
/// header must be built with exceptions enabled. Calls keep no state, so they may run on several threads as long as
/// they do not write the same files or share an output argument.
#pragma once

#include <google/protobuf/compiler/importer.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/message.h>

#include <sys/time.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#define ZOTUNING_EXPORT __attribute__((visibility("default")))

/// The operations of the library that are compiled into the shared object. All members are static.
class ZOTUNING_EXPORT ZoTuningUtils {
 public:
  // ---- Schema (src/schema) -------------------------------------------------------------------------------------

  /// Imports every "*.proto" entry of `dir` into `importer`, in directory order, without entering subdirectories. A
  /// directory that cannot be opened and a file that does not parse are skipped silently; their types are then absent
  /// from the importer's pool.
  static void ImportDescriptors(const char* dir, google::protobuf::compiler::Importer& importer);

  /// Finds the message type with the qualified name `class_name` ("ZO_TUNING_AF.AfCommon"). If the name contains
  /// "LinkKey", everything after the first "LinkKey" is ignored. Returns null, after one error line, if there is no
  /// such type. The descriptor belongs to `importer`.
  static const google::protobuf::Descriptor* GetDescByClassName(const google::protobuf::compiler::Importer& importer,
                                                                const char* class_name);

  // ---- Project configuration (src/schema, docs/project-directory.md) -------------------------------------------

  /// Creates the project directory root_dir/proj_name with one directory per sensor, "default" and "ProjConf.bin".
  /// `proto_dir` holds the schema and is not copied; it belongs at root_dir/proj_name/proto. Whatever exists is kept
  /// and named in a warning; only ProjConf.bin is rewritten. Nothing is created if the schema lacks a usable
  /// TuningProjConfig. Failures of mkdir are not reported.
  static void InitProjectConfig(const char* proto_dir, const char* proj_name,
                                const std::vector<std::string>& sensor_names, const char* root_dir);

  /// Sets "proj_name" and appends to "sensor_names" of `message`, a TuningProjConfig of type `descriptor`. False, after
  /// one error line, if a field is missing or has another type; fields already set keep their values.
  static bool InitProjConfigMsg(google::protobuf::Message* message, const google::protobuf::Descriptor* descriptor,
                                const char* proj_name, const std::vector<std::string>& sensor_names);

  /// Reads a project's configuration and the names of its labels. `proj_name` and `sensor_names` are replaced if
  /// ProjConf.bin can be read; `label_names` and `label_map` are extended as by GetProjectTuningLabelsMap. True even if
  /// ProjConf.bin could not be read: that is only logged. False if the project, its "proto" directory or the type
  /// TuningProjConfig is missing, or if TuningDataLabel is missing or has fields that are not labels.
  static bool GetProjectConfig(const char* proj_dir, std::string& proj_name, std::vector<std::string>& sensor_names,
                               std::vector<std::string>& label_names,
                               std::map<std::string, std::map<int, std::string>>& label_map);

  /// Reads ProjConf.bin at `bin_path` through `message`, a TuningProjConfig of type `descriptor`, and replaces both
  /// outputs. The last of several records wins; without a record, both outputs are empty. False, after one error line,
  /// if the file cannot be opened, a record is truncated, has an impossible length or does not parse, or the schema
  /// lacks one of the two fields.
  static bool InitProjConfigMsgFromBin(google::protobuf::Message* message,
                                       const google::protobuf::Descriptor* descriptor, const char* bin_path,
                                       std::string& proj_name, std::vector<std::string>& sensor_names);

  // ---- Tuning data label (src/schema, docs/project-directory.md) -----------------------------------------------

  /// Appends the field names of the label type to `label_names`, in declaration order, and enters the short names of
  /// their enum values into `label_map` (label name -> value number -> name; the entry of an int32 label is emptied).
  /// False, after one error line, at the first field that is neither int32 nor enum (its name has already been
  /// appended) and at an enum value whose name is too short for its enum.
  static bool GetProjectTuningLabelsMap(const google::protobuf::Descriptor* descriptor,
                                        std::vector<std::string>& label_names,
                                        std::map<std::string, std::map<int, std::string>>& label_map);

  /// Sets the fields label_names[i] of the label `message` to label_values[i], for every value. False, after one error
  /// line, for a name that the type does not have, a field that is neither int32 nor enum, or fewer names than values;
  /// fields already set keep their values.
  static bool InitTuningLabelMsg(google::protobuf::Message* message, const google::protobuf::Descriptor* descriptor,
                                 std::vector<std::string>& label_names, const std::vector<int>& label_values);

  /// Replaces `label_values` with the values of the fields `label_names` of the label `message`; -1 means "not read".
  /// False, after one error line, at the first name that is missing or whose type is neither int32 nor enum; this and
  /// all later values are then -1.
  static bool ParseTuningLabelMsg(google::protobuf::Message* message, const google::protobuf::Descriptor* descriptor,
                                  std::vector<std::string>& label_names, std::vector<int>& label_values);

  // ---- JSON files and default data (src/json, docs/json-trees.md) ----------------------------------------------

  /// Appends the paths of all "*.json" entries below `dir` to `files`, in directory order, unsorted. Directories named
  /// "version" below `dir` are skipped. False only if `dir` itself cannot be opened; a subdirectory that cannot be
  /// opened is logged and skipped.
  static bool FindAllJsonFiles(const char* dir, std::vector<std::string>& files);

  /// Writes proj_dir/default/MODULE.json, the template of the message type `module` (named without its package),
  /// replacing an existing file. False if the project, its "proto" or "default" directory, or the type is missing. True
  /// even if printing or writing failed: the former is only logged, the latter not detected.
  static bool GenerateDefaultModuleData(const char* proj_dir, const char* module);

  // ---- New tuning settings (src/tree, docs/json-trees.md) ------------------------------------------------------

  /// Copies the default JSON of the module that the label "module" of `config` gives to the path that
  /// TUNING_CONFIG_TO_PATH returns, replacing an existing setting. False only if the schema lacks the module's type.
  /// True even if the default could not be read (an empty file is then written) or the copy could not be written.
  static bool CreateNewTuningSetting(const char* proj_dir, std::vector<std::string>& label_names,
                                     std::map<std::string, std::map<int, std::string>>& label_map, std::string& sensor,
                                     std::vector<int>& config);

  /// The same for each configuration in order, except that the module is always element 0 and that an existing setting
  /// is kept (logged at error priority). False at the first module without a type; the settings created before it
  /// remain, those after it are not processed.
  static bool CreateMultipleNewTuningSetting(const char* proj_dir, std::vector<std::string>& label_names,
                                             std::map<std::string, std::map<int, std::string>>& label_map,
                                             std::string& sensor, std::vector<std::vector<int>>& configs);

  /// Appends the paths of the subdirectories of `dir` to `folders`, in directory order, each truncated to 1,023 bytes.
  /// False, after one error line, if `dir` is null, missing or cannot be opened.
  static bool GetTuningRootFolder(const char* dir, std::vector<std::string>& folders);

  // ---- Versions (src/version, docs/versions.md) ----------------------------------------------------------------

  /// Replaces `messages` with one new message per version file below `version_dir`, in directory order. The caller owns
  /// them (also after a failure, when unread slots are null) and must keep the factory of `prototype` alive meanwhile;
  /// pointers already in the list are dropped, not deleted. True with an empty list if there is no version file. False
  /// if the directory cannot be opened or a file does not parse.
  static bool GetVersionMsgs(const char* version_dir, const google::protobuf::Message* prototype,
                             std::vector<google::protobuf::Message*>& messages);

  /// Sets the version text of the first file below proj_dir/proto/version whose "name" equals `name`, and rewrites that
  /// file. False only if the project, its "proto" directory or the Version type is missing. True even if no file has
  /// the name or one could not be read, parsed or written: that is at most logged.
  static bool UpdateProtoVersionJsonFile(const char* proj_dir, const char* name, const char* version);

  /// Rewrites everything after the marker line "[3AProto]" of schema_dir/../src/ZoTuningVersion.h from the version
  /// files below schema_dir/version. False if a directory or the header is missing, the header is empty, or there is no
  /// version to write (the header is then unchanged). True even if a version file was skipped, the header could not be
  /// read (it is then emptied), or it could not be written.
  static bool GeneratedNewVersionHeader(const std::string& schema_dir);

  // ---- Tuning bins (src/bin, docs/tuning-bin.md) ---------------------------------------------------------------

  /// Packs "default.bin" and one bin per sensor into out_dir/zo_tuning, which is created and must not exist before.
  /// True only if every byte of every bin reached its file. A failure is logged and ends the call; what was written
  /// remains.
  static bool GenerateProjTuningBins(const char* proj_dir, const char* out_dir);

  /// Packs "default.bin", then reads the index of one sensor from standard input and packs that sensor's bin. Only
  /// sensors whose directory exists are counted; they are listed with their indexes on standard output. JSON files may
  /// leave out fields. Results are as for GenerateProjTuningBins.
  static bool GenerateSpecificSensorBin(const char* proj_dir, const char* out_dir);

  /// Decodes every message of every bin of the folder `bin_dir` against the project. False if the project or its schema
  /// lacks what is needed, or a bin is not named after a sensor, cannot be opened, or holds a module without a type.
  /// True even if a bin is damaged: the damage is logged and ends the walk.
  static bool DumpProjTuningBins(const char* proj_dir, const char* bin_dir);

  /// Decodes the version block of every bin of the folder `bin_dir`, "default.bin" first. False if the project or its
  /// schema lacks what is needed, if the folder cannot be listed, at the first block that cannot be decoded, and,
  /// without a message, if there is no "default.bin".
  static bool DumpBinVersions(const char* proj_dir, const char* bin_dir);

  /// Appends the names (up to the last ".") and paths of the "*.bin" entries of `dir` to the index-aligned lists, in
  /// directory order. Other entries that are not directories are named in a warning. False if `dir` cannot be opened.
  static bool FindTuningBinFiles(const char* dir, std::vector<std::string>& names, std::vector<std::string>& paths);

  /// Appends one new message per version record of the bin at `path` to `versions`; the caller owns them, also those
  /// appended before a failure. True with nothing appended for a bin without a version block. False, after one error
  /// line, for a bin that cannot be opened or whose version block is truncated or does not parse.
  static bool ParseVersionMsgFromBin(const std::string& path, const google::protobuf::Message* prototype,
                                     std::vector<google::protobuf::Message*>& versions);
};

/// Free functions. Those in upper case are inline: they are compiled into the calling program.
namespace ZO_TUNING {

// ---- Schema (src/schema) -----------------------------------------------------------------------------------------

/// Replaces `out` with `name` qualified by the package that its first two characters select: "Af" ZO_TUNING_AF, "AW"
/// ZO_TUNING_AWB, "AE" ZO_TUNING_AEC, "Pd" ZO_TUNING_PD, anything else ZO_TUNING.
inline void ADD_NAMESPACE_TO_CLASSNAME(const std::string& name, std::string& out);

/// Whether the names of `field` and of all fields below it occur in `json`, as plain text anywhere in it. Fields named
/// "rule", "value" or "description" are exempt, with everything below them. The first missing name is written to
/// standard error. The cost is one search per field of each message type, however often a type is used.
ZOTUNING_EXPORT bool CheckFieldInString(const google::protobuf::FieldDescriptor* field, const std::string& json);

/// Writes `message` to `path` as one record (int32 length, then the wire bytes), replacing the file. A file that cannot
/// be opened is logged; failed writes are not reported. See docs/project-directory.md.
inline void MSG_TO_BIN(const google::protobuf::Message* message, const char* path);

/// Creates an empty file ".gitkeep" in `dir`, or empties an existing one. Failures are not reported.
inline void ADD_GITKEEP_TO_DIR(const std::string& dir);

// ---- JSON and messages (src/json, docs/json-trees.md, docs/rule-annotations.md) ----------------------------------

/// Replaces `out` with the contents of the file at `path`. False, after one error line and with `out` unchanged, if it
/// cannot be opened.
inline bool JSON_FILE_TO_STR(const std::string& path, std::string& out);

/// Parses `json` into `msg`. Unknown keys are rejected. False if the text does not fit the type: the whole text goes to
/// the log, the reason to standard error, and the content of `msg` is unspecified.
inline bool JSON_STR_TO_MSG(const std::string& json, google::protobuf::Message* msg);

/// Fills `msg`, of type `desc`, with its rule templates (MSG_INIT_FOR_JSON) and appends its JSON to `out`: all fields,
/// under the schema's names. Use it on new messages, since every call adds an element to each repeated message field. A
/// failed print is logged.
inline void MSG_TO_JSON_STR(google::protobuf::Message* msg, const google::protobuf::Descriptor* desc, std::string& out);

/// Writes `json` to `path` unchanged, replacing the file. Failures are not reported.
inline void JSON_STR_TO_FILE(const std::string& path, const std::string& json);

/// Turns `msg`, of type `desc`, into a template in place: creates every singular submessage, adds one element to every
/// repeated message field, and sets the annotation of every rule. Other values are kept. A recursive message type is
/// filled once on each way down; that, a repeated field of an unsupported type, and a rule type without an expected
/// field are logged with one error line each.
inline void MSG_INIT_FOR_JSON(google::protobuf::Message* msg, const google::protobuf::Descriptor* desc);

/// Prunes `msg`, of type `desc`, for a bin in place: clears the rule of every data message and every StructArrayRule
/// that can be reached through singular fields. Repeated fields are not entered. Afterwards every submessage on the way
/// is present. Reports nothing.
inline void MSG_PRONE_FOR_BIN(google::protobuf::Message* msg, const google::protobuf::Descriptor* desc);

// ---- Tuning configuration and paths (src/tree, docs/json-trees.md) -----------------------------------------------

/// Replaces `path` with the path of the JSON file of the configuration `config` (label values, index-aligned with
/// `label_names`; -1 ends the path), and creates the missing level directories below the sensor's. Names that
/// `label_map` lacks read as empty and are entered into it. Reports nothing.
inline void TUNING_CONFIG_TO_PATH(const char* proj_dir, const std::string& sensor,
                                  std::vector<std::string>& label_names,
                                  std::map<std::string, std::map<int, std::string>>& label_map,
                                  const std::vector<int>& config, std::string& path);

/// Replaces `config` with the label values that the JSON file path `path` gives: element 0 from the file name, elements
/// 1 to 7 from its folders, -1 where there is none. A file name that is not a module is logged and leaves -1
/// everywhere. Labels that `label_map` lacks are entered into it.
inline void PATH_TO_TUNING_CONFIG(const std::string& path, std::vector<std::string>& label_names,
                                  std::map<std::string, std::map<int, std::string>>& label_map,
                                  std::vector<int>& config);

// ---- Version header (src/version, docs/versions.md) --------------------------------------------------------------

/// Appends the name and the version found in the text of a version file to `versions`. A plain text scan, not a JSON
/// parse: see docs/versions.md for what it misreads. Values are truncated to 1,023 bytes. False, after one error line
/// and with nothing appended, if a key is missing. The end of each value is logged at error priority; that is normal.
inline bool PARSE_VERSION_FROM_STR(std::string json, std::vector<std::string>& versions);

/// Appends the lines of the file at `path` to `text`, up to and including the first line that contains "[3AProto]".
/// False, after one error line, if it cannot be opened.
inline bool HEADER_FILE_TO_STR(std::string path, std::string& text);

/// Appends the #define block of `versions` (name, version, name, version, ...; a missing last version reads as empty)
/// to `text`. False, after one error line and with `text` unchanged, if either is empty.
inline bool CONSIST_VERSION_TO_STR(std::string& text, std::vector<std::string> versions);

/// Overwrites the existing file at `path` with `text`. WARNING: while the file is absent, the call logs, removes and
/// tests again in an endless loop, so it returns only once somebody has created the file. Always true: write failures
/// are not reported.
inline bool STR_TO_HEADER_FILE(std::string path, std::string& text);

}  // namespace ZO_TUNING

// ---- Logger and timing (src/log) ---------------------------------------------------------------------------------
// For programs that link the library; its own operations do not use them. Nothing here takes a lock.

/// Enabled levels of DatacenterLoggerFunction, as a bit mask: 1 errors, 4 warnings, 16 information, 32 verbose, 64
/// time. Initially 0; any other value also enables the debug file.
ZOTUNING_EXPORT extern int ZoDatacenterSettingDebugLevel;

/// Enabled groups of DatacenterLoggerFunction: bit 0 group 1, bit 1 group 2. Initially 2.
ZOTUNING_EXPORT extern int ZoDatacenterSettingGroupLevel;

/// Start and end of each timing slot; all zeros when unused.
ZOTUNING_EXPORT extern timeval start_t[256];
ZOTUNING_EXPORT extern timeval end_t[256];

/// A local date and time, with the bases of the standard `tm` record (month 0 to 11, year since 1900).
struct ZoTuningDateTime {
  int32_t seconds;       ///< since the epoch, truncated to 32 bits
  int32_t microseconds;  ///< within the second
  int32_t second;
  int32_t minute;
  int32_t hour;
  int32_t day_of_month;
  int32_t month;
  int32_t year;
  int32_t day_of_week;
  int32_t day_of_year;
  int32_t daylight_saving;
  int64_t utc_offset;  ///< seconds east of UTC
};

/// Writes one line to the Android log under "ZoDatacenterLib", and to the debug file, if `level` (1, 4, 16, 32 or 64)
/// and `group` (1 or 2; ignored for errors) are enabled. `file` is printed as it is. The message is truncated to 1,023
/// bytes.
ZOTUNING_EXPORT void DatacenterLoggerFunction(const char* file, int line, const char* function, unsigned group,
                                              unsigned level, const char* format, ...)
    __attribute__((format(printf, 6, 7)));

/// Closes the debug file if the debug level is 0, otherwise opens it unless it is open, and reports that on standard
/// output. The file is /data/vendor/camera/offlinelog/ZoTuningDebugLogger.log.
ZOTUNING_EXPORT void FileCreate();

/// The part of `path` after its last "/", or `path` itself.
ZOTUNING_EXPORT const char* GetFileName(const char* path);

/// Stores the current time as the start of `slot`, 0 to 255 (not checked).
ZOTUNING_EXPORT void StartTime(int slot);

/// Logs the time since StartTime(slot) in microseconds at error priority, whatever is enabled, and resets the slot.
ZOTUNING_EXPORT void EndTime(const char* file, int line, const char* function, int slot);

/// Milliseconds since the epoch.
ZOTUNING_EXPORT double now_ms();

/// Fills `record` with the current local time; left unchanged if the time is unavailable. Null is allowed.
ZOTUNING_EXPORT void GetDateTime(ZoTuningDateTime* record);

/// Reads the Android system property `key` into `value`, a buffer of 92 bytes, and returns its length. If it is unset
/// and `default_value` is not null, copies at most 91 bytes of that instead and returns their number. On systems
/// without system properties, every property is unset.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the name its callers link.
extern "C" ZOTUNING_EXPORT int __property_get(const char* key, char* value, const char* default_value);

// ---- Inline bodies; the contracts are above ----------------------------------------------------------------------

#include "api/json-inl.h"
#include "api/schema-inl.h"
#include "api/tree-inl.h"
#include "api/version-inl.h"
