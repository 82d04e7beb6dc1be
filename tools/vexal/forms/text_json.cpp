// vexal json: files as JSON, and JSON as files.
#include "base/commands.h"
#include "base/thrown.h"
#include "bulk_files.h"
#include "images/write_options.h"
#include "text_forms.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--back", nullptr,
     "the other way: read JSON from IN, write the DICOM file OUT, or files into the folder OUT"},
    {"--own", nullptr, "the toolkit's own form, which keeps everything, instead of the standard's"},
    {"--bulk", "DIR",
     "bulk values in files of DIR, named by BulkDataURI, instead of Base64; with --back from there"},
    {"--no-bulk", nullptr, "without pixel data and other bulk values"},
    {"--indent", nullptr, "on many lines, indented by 4, for people"},
    {"--threads", "N", "files read at once (default: the processors)"},
    VEXAL_WRITE_OPTIONS,
};

int run(const Args& args) {
  int32_t options = args.has("--own") ? 0 : VX_JSON_STANDARD;
  const std::string bulk = args.get("--bulk");
  if (!args.has("--no-bulk") && bulk.empty()) options |= VX_JSON_INCLUDE_BULK | VX_JSON_INCLUDE_PIXEL_DATA;
  if (args.has("--indent")) options |= VX_JSON_INDENT;
  TextForm form;
  form.end = "\n";
  form.write = [&](int32_t id, TextSink& sink) {
    return VX_Message_To_Json(id, &sink, options, guarded<TextSink::take>);
  };
  form.documents = TextDocuments::Kind::Objects;
  form.read = [&](int32_t id, TextDocuments& text, std::string& problem) {
    return bulk.empty() ? VX_Json_To_Message_With_Options(id, &text, options, guarded<TextDocuments::give>)
                        : read_with_bulk(id, text, options, bulk, problem);
  };
  if (!bulk.empty()) {
    form.finish = [&](const DicomFile& file, std::string& text) {
      return move_bulk(file, bulk, (options & VX_JSON_INDENT) != 0, text);
    };
  }
  return run_text_form(args, "json", form);
}

}  // namespace

const Command kJson = {
    "json",
    "[OPTION...] FILE... | --back [OPTION...] IN OUT",
    "write files as JSON, one line each, or JSON as a file",
    "The form is the DICOM JSON Model (PS3.18 annex F). It has no place for the meta group nor for\n"
    "compressed pixel data; what comes back from it is written in explicit VR little endian. The\n"
    "toolkit's own form (--own) keeps everything. With --back, IN may be an array of objects or one\n"
    "object a line, as archives and this program write them: then OUT is a folder, and the files are\n"
    "named by their SOP Instance UIDs. Exit status 1 tells that something of a file or a text was lost\n"
    "or changed; each place has a line on standard error.",
    kOptions,
    run};

}  // namespace vexal
