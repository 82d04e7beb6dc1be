// vexal json: files as JSON, and JSON as files.
#include <jansson.h>

#include <cstdlib>
#include <filesystem>

#include "commands.h"
#include "files.h"
#include "parallel.h"
#include "session.h"
#include "text_forms.h"
#include "write_options.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--back", nullptr, "the other way: read JSON from IN, write the DICOM file OUT"},
    {"--own", nullptr, "the toolkit's own form, which keeps everything, instead of the standard's"},
    {"--bulk", "DIR", "bulk values in files of DIR, named by BulkDataURI, instead of Base64"},
    {"--no-bulk", nullptr, "without pixel data and other bulk values"},
    {"--indent", nullptr, "on many lines, indented by 4, for people"},
    {"--threads", "N", "files read at once (default: the processors)"},
    VEXAL_WRITE_OPTIONS,
};

bool has_pixels(const DicomFile& file) {
  return VX_Get_Attribute_Info(file.id(), 0x7FE00010, nullptr, nullptr) == VX_NORMAL_COMPLETION;
}

bool is_encapsulated(VX_TRANSFER_SYNTAX syntax) {
  return syntax < IMPLICIT_LITTLE_ENDIAN || syntax > DEFLATED_EXPLICIT_LITTLE_ENDIAN;
}

VX_STATUS to_sink(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  return static_cast<FileSink*>(user)->write(data, size) ? VX_NORMAL_COMPLETION : VX_CANNOT_COMPLY;
}

// Bulk values of one object go into files named by their place; the members that have none get a BulkDataURI.
std::string write_bulk(int32_t id, json_t* object, const std::string& stem) {
  const char* key = nullptr;
  json_t* member = nullptr;
  json_object_foreach(object, key, member) {
    const std::string_view vr = json_string_value(json_object_get(member, "vr"));
    const auto tag = static_cast<uint32_t>(std::strtoul(key, nullptr, 16));
    if (vr == "SQ") {
      const json_t* items = json_object_get(member, "Value");
      int32_t item = -1;
      for (std::size_t i = 0; i < json_array_size(items); ++i) {
        const VX_STATUS status =
            i == 0 ? VX_Get_Value_To_Int(id, tag, &item) : VX_Get_Next_Value_To_Int(id, tag, &item);
        if (status != VX_NORMAL_COMPLETION) return VX_Error_Message(status);
        const std::string place = stem + "." + key + "." + std::to_string(i + 1);
        std::string problem = write_bulk(item, json_array_get(items, i), place);
        if (!problem.empty()) return problem;
      }
      continue;
    }
    const bool bulk = vr == "OB" || vr == "OW" || vr == "OL" || vr == "OD" || vr == "OF";
    int32_t count = 0;
    if (!bulk || VX_Get_Attribute_Info(id, tag, nullptr, &count) != VX_NORMAL_COMPLETION || count == 0)
      continue;
    FileSink sink;
    const std::string path = stem + "." + key + ".bin";
    std::string problem = sink.open(path);
    if (!problem.empty()) return path + ": " + problem;
    const VX_STATUS status = VX_Get_Value_To_Function(id, tag, &sink, to_sink);
    if (status == VX_NULL_VALUE) continue;
    problem = status == VX_NORMAL_COMPLETION ? sink.commit() : VX_Error_Message(status);
    if (!problem.empty()) return path + ": " + problem;
    json_object_set_new(member, "BulkDataURI", json_string(path.c_str()));
  }
  return "";
}

// The text again, with its bulk values in files.
std::string move_bulk(const DicomFile& file, const std::string& folder, int32_t options, std::string& text) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  char uid[80] = "";
  VX_Get_Value_To_String(file.id(), 0x00080018, sizeof uid, uid);
  std::string name = uid;
  if (name.empty() || name.find_first_not_of("0123456789.") != std::string::npos)
    name = std::filesystem::path(file.path()).filename().string();
  json_t* document = json_loadb(text.data(), text.size(), 0, nullptr);
  if (document == nullptr) return "can not take its text apart";
  std::string problem = write_bulk(file.id(), document, folder + "/" + name);
  char* again = json_dumps(document, JSON_SORT_KEYS | ((options & VX_JSON_INDENT) != 0 ? JSON_INDENT(4) : 0));
  if (again != nullptr) text = again;
  if (again == nullptr) problem = "out of memory";
  std::free(again);
  json_decref(document);
  return problem;
}

FileResult to_json(const std::string& path, int32_t options, const std::string& bulk) {
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
  if (!bulk.empty()) {
    const std::string problem = move_bulk(file, bulk, options, result.output);
    if (!problem.empty()) {
      result.output.clear();
      report(path, problem);
      return result;
    }
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

int run(const Args& args) {
  // Without ICU, texts of other sets than UTF-8 and ISO_IR 100 come out by the values of their bytes.
  VX_Enable_Unicode_Conversion(1);
  int32_t options = args.has("--own") ? 0 : VX_JSON_STANDARD;
  WriteOptions write;
  long threads = default_threads();
  if (!write.read(args) || !args.number("--threads", 1, 256, threads)) return kUsage;
  if (args.has("--back")) {
    if (args.paths.size() != 2) {
      complain("json --back needs a file to read and one to write; --help tells more");
      return kUsage;
    }
    return file_from_text(args.paths[0], args.paths[1], write, [&](int32_t id, FileSource& source) {
      return VX_Json_To_Message_With_Options(id, &source, options, give_text);
    });
  }
  if (args.paths.empty()) {
    complain("json needs at least one file; --help tells more");
    return kUsage;
  }
  const std::string bulk = args.get("--bulk");
  if (!args.has("--no-bulk") && bulk.empty()) options |= VX_JSON_INCLUDE_BULK | VX_JSON_INCLUDE_PIXEL_DATA;
  if (args.has("--indent")) options |= VX_JSON_INDENT;
  bool failed = false;
  const std::vector<std::string> files = expand_paths(args.paths, failed);
  const int worst = for_each_file(files, static_cast<unsigned>(threads),
                                  [&](const std::string& path) { return to_json(path, options, bulk); });
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
