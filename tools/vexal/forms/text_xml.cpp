// vexal xml: files as XML, and XML as files.
#include <algorithm>

#include "base/commands.h"
#include "base/thrown.h"
#include "images/write_options.h"
#include "text_forms.h"

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

// The name of the root element, as far as the head of a text goes.
std::string_view root_of(std::string_view text) {
  while (true) {
    text.remove_prefix(std::min(text.find('<'), text.size()));
    const std::string_view end = text.starts_with("<!--") ? "-->" : text.starts_with("<?") ? "?>" : "";
    if (end.empty()) break;
    const std::size_t at = text.find(end);
    if (at == std::string_view::npos) return {};
    text.remove_prefix(at + end.size());
  }
  text.remove_prefix(std::min<std::size_t>(1, text.size()));
  text = text.substr(0, text.find_first_of(" \t\r\n/>"));
  return text.substr(text.find(':') + 1);  // less its prefix, if it has one
}

int run(const Args& args) {
  const bool native = args.has("--native");
  int32_t options = args.has("--hex") ? 0 : VX_XML_BASE64;
  if (!args.has("--no-bulk")) options |= VX_XML_INCLUDE_BULK | VX_XML_INCLUDE_PIXEL_DATA;
  if (args.has("--indent")) options |= VX_XML_INDENT;
  TextForm form;
  form.write = [&](int32_t id, TextSink& sink) {
    const auto write = native ? &VX_Message_To_XML_Native : &VX_Message_To_XML;
    return write(id, &sink, options, guarded<TextSink::take>);
  };
  form.read = [=](int32_t id, TextDocuments& text, std::string&) {
    const std::string_view root = root_of(text.head());
    const bool ours = root.starts_with("Dcm") || root == "DICOMDIR";
    const bool model = root == "NativeDicomModel" || (native && !ours);
    return (model ? &VX_XML_Native_To_Message : &VX_XML_To_Message)(id, &text, guarded<TextDocuments::give>);
  };
  return run_text_form(args, "xml", form);
}

}  // namespace

const Command kXml = {
    "xml",
    "[OPTION...] FILE... | --back [OPTION...] IN OUT",
    "write files as XML, or XML as a file",
    "Each file is one document. --native is the Native DICOM Model (PS3.19 section A.1), which other\n"
    "programs read; --back tells the forms apart by their root. Exit status 1 tells that something of\n"
    "a file or a text was lost or changed; each place has a line on standard error.",
    kOptions,
    run};

}  // namespace vexal
