// vexal xml: files as XML, and XML as files.
#include "commands.h"
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

int run(const Args& args) {
  const bool native = args.has("--native");
  int32_t options = args.has("--hex") ? 0 : VX_XML_BASE64;
  if (!args.has("--no-bulk")) options |= VX_XML_INCLUDE_BULK | VX_XML_INCLUDE_PIXEL_DATA;
  if (args.has("--indent")) options |= VX_XML_INDENT;
  TextForm form;
  form.write = [&](int32_t id, TextSink& sink) {
    const auto write = native ? &VX_Message_To_XML_Native : &VX_Message_To_XML;
    return write(id, &sink, options, TextSink::take);
  };
  form.read = [&](int32_t id, FileSource& source, std::string&) {
    return (native ? &VX_XML_Native_To_Message : &VX_XML_To_Message)(id, &source, give_text);
  };
  return run_text_form(args, "xml", form);
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
