// vexal xml: files as XML, and XML as files.
#include "commands.h"
#include "files.h"
#include "parallel.h"
#include "session.h"
#include "text_forms.h"
#include "write_options.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--native", nullptr, "the Native DICOM Model of the standard instead of the toolkit's own form"},
    {"--back", nullptr, "the other way: read XML from IN, write the DICOM file OUT"},
    {"--no-bulk", nullptr, "without pixel data and other bulk values"},
    {"--hex", nullptr, "own form: bulk values in hexadecimal instead of Base64"},
    {"--indent", nullptr, "native form: on many lines, for people"},
    {"--threads", "N", "files read at once (default: the processors)"},
    VEXAL_WRITE_OPTIONS,
};

FileResult to_xml(const std::string& path, bool native, int32_t options) {
  CurrentFile current(path);
  FileResult result;
  result.exit = kUsage;
  DicomFile file;
  VX_STATUS status = file.open(path, {});
  if (status != VX_NORMAL_COMPLETION) {
    report(path, file.problem());
    return result;
  }
  status = native ? VX_Message_To_XML_Native(file.id(), &result.output, options, append_text)
                  : VX_Message_To_XML(file.id(), &result.output, options, append_text);
  if (status != VX_NORMAL_COMPLETION) {
    result.output.clear();
    report(path, VX_Error_Message(status));
    return result;
  }
  while (!result.output.empty() && result.output.back() == ' ') result.output.pop_back();
  result.exit = kSuccess;
  return result;
}

int run(const Args& args) {
  // Without ICU, texts of other sets than UTF-8 and ISO_IR 100 come out by the values of their bytes.
  VX_Enable_Unicode_Conversion(1);
  const bool native = args.has("--native");
  WriteOptions write;
  long threads = default_threads();
  if (!write.read(args) || !args.number("--threads", 1, 256, threads)) return kUsage;
  if (args.has("--back")) {
    if (args.paths.size() != 2) {
      complain("xml --back needs a file to read and one to write; --help tells more");
      return kUsage;
    }
    return file_from_text(args.paths[0], args.paths[1], write, [&](int32_t id, FileSource& source) {
      return native ? VX_XML_Native_To_Message(id, &source, give_text)
                    : VX_XML_To_Message(id, &source, give_text);
    });
  }
  if (args.paths.empty()) {
    complain("xml needs at least one file; --help tells more");
    return kUsage;
  }
  int32_t options = args.has("--hex") ? 0 : VX_XML_BASE64;
  if (!args.has("--no-bulk")) options |= VX_XML_INCLUDE_BULK | VX_XML_INCLUDE_PIXEL_DATA;
  if (args.has("--indent")) options |= VX_XML_INDENT;
  bool failed = false;
  const std::vector<std::string> files = expand_paths(args.paths, failed);
  const int worst = for_each_file(files, static_cast<unsigned>(threads),
                                  [&](const std::string& path) { return to_xml(path, native, options); });
  return failed ? static_cast<int>(kUsage) : worst;
}

}  // namespace

const Command kXml = {
    "xml",
    "[OPTION...] FILE... | --back [OPTION...] IN OUT",
    "write files as XML, or XML as a file",
    "Each file is one document. --native is the Native DICOM Model (PS3.19 section A.1), which other\n"
    "programs read; --back needs it too where IN is in that form.",
    kOptions,
    run};

}  // namespace vexal
