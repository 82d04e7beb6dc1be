// vexal json: files as JSON, and JSON as files.
#include "commands.h"
#include "files.h"
#include "parallel.h"
#include "session.h"
#include "write_options.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--back", nullptr, "the other way: read JSON from IN, write the DICOM file OUT"},
    {"--own", nullptr, "the toolkit's own form, which keeps everything, instead of the standard's"},
    {"--no-bulk", nullptr, "without pixel data and other bulk values"},
    {"--indent", nullptr, "on many lines, indented by 4, for people"},
    {"--threads", "N", "files read at once (default: the processors)"},
    VEXAL_WRITE_OPTIONS,
};

VX_STATUS append_text(int32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  static_cast<std::string*>(user)->append(static_cast<const char*>(data), size);
  return VX_NORMAL_COMPLETION;
}

bool has_pixels(const DicomFile& file) {
  return VX_Get_Attribute_Info(file.id(), 0x7FE00010, nullptr, nullptr) == VX_NORMAL_COMPLETION;
}

bool is_encapsulated(VX_TRANSFER_SYNTAX syntax) {
  return syntax < IMPLICIT_LITTLE_ENDIAN || syntax > DEFLATED_EXPLICIT_LITTLE_ENDIAN;
}

FileResult to_json(const std::string& path, int32_t options) {
  CurrentFile current(path);
  FileResult result;
  result.exit = kUsage;
  DicomFile file;
  VX_STATUS status = file.open(path, {});
  if (status != VX_NORMAL_COMPLETION) {
    report(path, file.problem());
    return result;
  }
  status = VX_Message_To_Json(file.id(), &result.output, options, append_text);
  if (status != VX_NORMAL_COMPLETION) {
    result.output.clear();
    report(path, VX_Error_Message(status));
    return result;
  }
  while (!result.output.empty() && result.output.back() == ' ') result.output.pop_back();
  result.output += '\n';
  result.exit = kSuccess;
  // What the model has no place for is a loss that a caller has to hear of.
  if ((options & VX_JSON_STANDARD) != 0 && (options & VX_JSON_INCLUDE_PIXEL_DATA) != 0 && has_pixels(file) &&
      is_encapsulated(file.syntax())) {
    report(path, "compressed pixel data has no place in the standard's form and was left out; see --own");
    result.exit = kFindings;
  }
  return result;
}

VX_STATUS give_text(int32_t, void* user, uint32_t* size, void** data, int32_t, int32_t* last) {
  return static_cast<FileSource*>(user)->next(size, data, last);
}

// What counts as read: values that break a rule of their VR are stored as they are.
bool is_stored(VX_STATUS status) {
  return status == VX_NORMAL_COMPLETION || status == VX_INVALID_VALUE_FOR_VR ||
         status == VX_INVALID_CHARS_IN_VALUE;
}

int from_json(const std::string& in, const std::string& out, int32_t options, const WriteOptions& write) {
  CurrentFile current(in);
  FileSource source;
  std::string problem = source.open(in);
  DicomFile file;
  int32_t id = -1;
  int exit = kSuccess;
  if (problem.empty()) {
    VX_STATUS status = VX_Create_Empty_File(&id, out.c_str());
    if (status == VX_NORMAL_COMPLETION) {
      file.adopt(id);
      status = VX_Json_To_Message_With_Options(id, &source, options, give_text);
    }
    if (!is_stored(status)) {
      report(in, VX_Error_Message(status));
      if (status == VX_CALLBACK_CANNOT_COMPLY || status == VX_SYSTEM_ERROR) return kUsage;
      exit = kFindings;  // what could be read is written
    }
  } else {
    report(in, problem);
    return kUsage;
  }
  VX_TRANSFER_SYNTAX syntax = 0;
  if (VX_Get_Message_Transfer_Syntax(id, &syntax) != VX_NORMAL_COMPLETION)
    file.set_syntax(EXPLICIT_LITTLE_ENDIAN);
  problem = write_file(file, out, write);
  if (problem.empty()) return exit;
  report(out, problem);
  return kUsage;
}

int run(const Args& args) {
  int32_t options = args.has("--own") ? 0 : VX_JSON_STANDARD;
  WriteOptions write;
  long threads = default_threads();
  if (!write.read(args) || !args.number("--threads", 1, 256, threads)) return kUsage;
  if (args.has("--back")) {
    if (args.paths.size() != 2) {
      complain("json --back needs a file to read and one to write; --help tells more");
      return kUsage;
    }
    return from_json(args.paths[0], args.paths[1], options, write);
  }
  if (args.paths.empty()) {
    complain("json needs at least one file; --help tells more");
    return kUsage;
  }
  if (!args.has("--no-bulk")) options |= VX_JSON_INCLUDE_BULK | VX_JSON_INCLUDE_PIXEL_DATA;
  if (args.has("--indent")) options |= VX_JSON_INDENT;
  bool failed = false;
  const std::vector<std::string> files = expand_paths(args.paths, failed);
  const int worst = for_each_file(files, static_cast<unsigned>(threads),
                                  [&](const std::string& path) { return to_json(path, options); });
  return failed ? static_cast<int>(kUsage) : worst;
}

}  // namespace

const Command kJson = {
    "json",
    "[OPTION...] FILE... | --back [OPTION...] IN OUT",
    "write files as JSON, one line each, or JSON as a file",
    "The form is the DICOM JSON Model (PS3.18 annex F). It has no place for the meta group nor for\n"
    "compressed pixel data; what comes back from it is written in explicit VR little endian. The\n"
    "toolkit's own form (--own) keeps everything.",
    kOptions,
    run};

}  // namespace vexal
