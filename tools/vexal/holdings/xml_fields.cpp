#include "xml_fields.h"

#include <libxml/parser.h>

#include <climits>
#include <exception>
#include <vector>

#include "base/opened_library.h"

namespace vexal {
namespace {

constexpr std::size_t kMostLevels = 16;

struct LibXml {
  decltype(&xmlInitParser) init = nullptr;
  decltype(&xmlCreatePushParserCtxt) create = nullptr;
  decltype(&xmlCtxtUseOptions) use_options = nullptr;
  decltype(&xmlParseChunk) parse = nullptr;
  decltype(&xmlStopParser) stop = nullptr;
  decltype(&xmlFreeParserCtxt) release = nullptr;
};
LibXml g_xml;

struct Reading {
  const std::function<void(std::string_view, std::string_view)>& take;
  xmlParserCtxtPtr parser = nullptr;
  std::string path{};
  std::vector<std::string> texts{};
  std::string problem{};

  void end(const char* why) {
    problem = why;
    g_xml.stop(parser);
  }
};

// No exception passes through the parser.
template <typename Work>
void guarded_reading(void* user, const Work& work) {
  auto& reading = *static_cast<Reading*>(user);
  if (!reading.problem.empty()) return;
  try {
    work(reading);
  } catch (const std::exception&) {
    reading.end("no memory");
  }
}

std::string_view chars(const xmlChar* text) {
  return reinterpret_cast<const char*>(text);
}

void on_start(void* user, const xmlChar* name, const xmlChar*, const xmlChar*, int, const xmlChar**, int, int,
              const xmlChar**) {
  guarded_reading(user, [&](Reading& reading) {
    if (reading.texts.size() == kMostLevels) return reading.end("it has too many levels");
    if (!reading.path.empty()) reading.path += '/';
    reading.path += chars(name);
    reading.texts.emplace_back();
  });
}

void on_end(void* user, const xmlChar*, const xmlChar*, const xmlChar*) {
  guarded_reading(user, [](Reading& reading) {
    reading.take(reading.path, reading.texts.back());
    reading.texts.pop_back();
    const std::size_t slash = reading.path.rfind('/');
    reading.path.resize(slash == std::string::npos ? 0 : slash);
  });
}

void on_text(void* user, const xmlChar* text, int size) {
  guarded_reading(user, [&](Reading& reading) {
    if (!reading.texts.empty())
      reading.texts.back().append(chars(text).data(), static_cast<std::size_t>(size));
  });
}

void on_type(void* user, const xmlChar*, const xmlChar*, const xmlChar*) {
  guarded_reading(user, [](Reading& reading) { reading.end("it has a document type declaration"); });
}

void on_error(void*, xmlErrorPtr) {}

}  // namespace

std::string open_xml() {
  static const std::string fault = [] {
    LibXml& x = g_xml;
    const SoughtSymbol symbols[] = {{"xmlInitParser", x.init},  {"xmlCreatePushParserCtxt", x.create},
                                    {"xmlParseChunk", x.parse}, {"xmlCtxtUseOptions", x.use_options},
                                    {"xmlStopParser", x.stop},  {"xmlFreeParserCtxt", x.release}};
    const std::string text = open_library("libxml2.so.2", symbols);
    if (text.empty()) x.init();
    return text.empty() ? "" : "libxml2 is needed: " + text;
  }();
  return fault;
}

std::string read_xml(std::string_view document,
                     const std::function<void(std::string_view path, std::string_view text)>& take) {
  if (document.size() > INT_MAX) return "it is too large";
  xmlSAXHandler handler{};
  handler.initialized = XML_SAX2_MAGIC;
  handler.startElementNs = on_start;
  handler.endElementNs = on_end;
  handler.characters = on_text;
  handler.cdataBlock = on_text;
  handler.internalSubset = on_type;
  handler.serror = on_error;
  Reading reading{take};
  reading.parser = g_xml.create(&handler, &reading, nullptr, 0, nullptr);
  if (reading.parser == nullptr) return "no memory";
  g_xml.use_options(reading.parser, XML_PARSE_NONET);
  const int result = g_xml.parse(reading.parser, document.data(), static_cast<int>(document.size()), 1);
  g_xml.release(reading.parser);
  if (!reading.problem.empty()) return reading.problem;
  return result == 0 ? "" : "it is no XML";
}

}  // namespace vexal
