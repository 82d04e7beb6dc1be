#include "text/xml_parse.h"

#include <libxml/parser.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>

#include "config/shared_library.h"
#include "frame/log.h"

namespace vx {

namespace {

constexpr char kNative[] = "VX_XML_Native_To_Message";
constexpr char kOwn[] = "VX_XML_To_Message";
constexpr std::size_t kParseStep = 1U << 20;

// --- libxml2, opened when it is first needed ---

struct LibXml {
  decltype(&xmlInitParser) init = nullptr;
  decltype(&xmlCreatePushParserCtxt) create = nullptr;
  decltype(&xmlCtxtUseOptions) use_options = nullptr;
  decltype(&xmlParseChunk) parse = nullptr;
  decltype(&xmlStopParser) stop = nullptr;
  decltype(&xmlFreeParserCtxt) release = nullptr;
  bool ready = false;

  LibXml() {
    const auto at = [](auto& function) { return reinterpret_cast<void**>(&function); };
    const Symbol symbols[] = {{"xmlInitParser", at(init)},
                              {"xmlCreatePushParserCtxt", at(create)},
                              {"xmlCtxtUseOptions", at(use_options)},
                              {"xmlParseChunk", at(parse)},
                              {"xmlStopParser", at(stop)},
                              {"xmlFreeParserCtxt", at(release)}};
    ready = open_shared_library("libxml2.so.2", symbols, std::size(symbols));
    if (ready) init();
  }
};

const LibXml& libxml() {
  static const LibXml library;
  return library;
}

// --- The tree, grown as the parser meets elements ---

class Builder {
 public:
  explicit Builder(XmlNode& root) : open_{&root} {}

  // False if there are too many levels.
  bool start(XmlNode node) {
    if (open_.size() > kMaxElements) return false;
    XmlNode& parent = *open_.back();
    parent.text.clear();
    parent.children.push_back(std::move(node));
    open_.push_back(&parent.children.back());
    return true;
  }
  void end() {
    if (open_.size() > 1) open_.pop_back();
  }
  void text(const char* data, std::size_t size) {
    if (open_.size() > 1 && open_.back()->children.empty()) open_.back()->text.append(data, size);
  }
  XmlNode& current() { return *open_.back(); }
  std::size_t depth() const { return open_.size() - 1; }

 private:
  std::vector<XmlNode*> open_;
};

struct NativeParse {
  Builder builder;
  xmlParserCtxtPtr context = nullptr;
  const char* stopped = nullptr;

  void stop(const char* reason) {
    if (stopped == nullptr) stopped = reason;
    libxml().stop(context);
  }
};

const char* chars(const xmlChar* text) {
  return reinterpret_cast<const char*>(text);
}

// No exception may pass through the parser.
template <typename Work>
void guarded(void* user, Work work) {
  auto& parse = *static_cast<NativeParse*>(user);
  if (parse.stopped != nullptr) return;
  try {
    work(parse);
  } catch (const std::bad_alloc&) {
    parse.stop("out of memory");
  }
}

// In values of fields the parser leaves this of "&amp;".
std::string field_text(const char* begin, const char* end) {
  static constexpr std::string_view kLeft = "&#38;";
  std::string text(begin, end);
  for (std::size_t at = 0; (at = text.find(kLeft, at)) != std::string::npos; ++at)
    text.replace(at, kLeft.size(), "&");
  return text;
}

void on_start(void* user, const xmlChar* name, const xmlChar*, const xmlChar*, int, const xmlChar**,
              int count, int, const xmlChar** fields) {
  guarded(user, [&](NativeParse& parse) {
    XmlNode node{chars(name)};
    for (int i = 0; i < count; ++i) {  // name, prefix, namespace, begin and end of the value
      const xmlChar** field = fields + static_cast<std::ptrdiff_t>(i) * 5;
      node.fields.emplace_back(chars(field[0]), field_text(chars(field[3]), chars(field[4])));
    }
    if (!parse.builder.start(std::move(node))) parse.stop("too many levels");
  });
}
void on_end(void* user, const xmlChar*, const xmlChar*, const xmlChar*) {
  guarded(user, [](NativeParse& parse) { parse.builder.end(); });
}
void on_text(void* user, const xmlChar* text, int size) {
  guarded(user, [&](NativeParse& parse) { parse.builder.text(chars(text), static_cast<std::size_t>(size)); });
}
// Nothing of the model needs a document type, and entities are a way to grow.
void on_document_type(void* user, const xmlChar*, const xmlChar*, const xmlChar*) {
  guarded(user, [](NativeParse& parse) { parse.stop("a document type declaration"); });
}
void on_error(void*, xmlErrorPtr) {}

// --- The blocks of the caller ---

struct Input {
  MsgObj& object;
  void* user;
  VX_TEXT_INPUT function;

  // Calls `take` with each block until it says false.
  template <typename Take>
  VX_STATUS each(Take take) {
    int32_t last = 0;
    for (int32_t first = 1; last == 0; first = 0) {
      uint32_t size = 0;
      void* data = nullptr;
      VX_STATUS status = function(object.ID, user, &size, &data, first, &last);
      if (status == VX_NORMAL_COMPLETION && data == nullptr && size != 0) status = VX_NULL_POINTER_PARM;
      if (status != VX_NORMAL_COMPLETION) {
        failed_first = first != 0;
        return status;
      }
      if (size != 0 && !take(static_cast<const char*>(data), std::size_t{size})) return VX_SYSTEM_ERROR;
    }
    return VX_NORMAL_COMPLETION;
  }
  bool failed_first = false;
};

}  // namespace

VX_STATUS parse_native(MsgObj& object, void* user, VX_TEXT_INPUT callback, XmlNode& root) {
  const LibXml& xml = libxml();
  if (!xml.ready) return VX_SYSTEM_ERROR;
  xmlSAXHandler handler{};
  handler.initialized = XML_SAX2_MAGIC;
  handler.startElementNs = &on_start;
  handler.endElementNs = &on_end;
  handler.characters = &on_text;
  handler.ignorableWhitespace = &on_text;
  handler.cdataBlock = &on_text;
  handler.internalSubset = &on_document_type;
  handler.serror = &on_error;
  XmlNode document{""};
  NativeParse parse{Builder(document)};
  const std::unique_ptr<xmlParserCtxt, decltype(xml.release)> context(
      xml.create(&handler, &parse, nullptr, 0, nullptr), xml.release);
  if (context == nullptr) {
    VX_LOG_ERR(kNative, "XMLNativeToMessage xmlCreatePushParserCtxt failed to create XML parser context");
    return VX_SYSTEM_ERROR;
  }
  parse.context = context.get();
  xml.use_options(context.get(), XML_PARSE_HUGE | XML_PARSE_NONET);
  Input input{object, user, callback};
  int error = 0;
  VX_STATUS status = input.each([&](const char* data, std::size_t size) {
    for (std::size_t at = 0; at < size && error == 0 && parse.stopped == nullptr; at += kParseStep) {
      error = xml.parse(context.get(), data + at, static_cast<int>(std::min(size - at, kParseStep)), 0);
    }
    return error == 0 && parse.stopped == nullptr;
  });
  if (parse.stopped != nullptr) {
    VX_LOG_ERR(kNative, "XMLNativeToMessage failed to parse XML document");
    VX_LOG_ERR(kNative, "|   stopped: %s", parse.stopped);
    return VX_SYSTEM_ERROR;
  }
  if (error != 0) {
    VX_LOG_ERR(kNative, "XMLNativeToMessage xmlParseChunk failed with error %d", error);
    return VX_SYSTEM_ERROR;
  }
  if (status != VX_NORMAL_COMPLETION) {
    if (input.failed_first) {
      VX_LOG_ERR(kNative, "XMLNativeToMessage failed, UserFunction unable to read XML data");
    } else {
      VX_LOG_ERR(kNative, "XMLNativeToMessage UserFunction failed, error \"%s\"", status_text(status));
    }
    return status;
  }
  error = xml.parse(context.get(), nullptr, 0, 1);
  if (error != 0 || parse.stopped != nullptr || context->wellFormed == 0 || document.children.empty()) {
    VX_LOG_ERR(kNative, "XMLNativeToMessage failed with error %d", error);
    return VX_SYSTEM_ERROR;
  }
  root = std::move(document.children.front());
  return VX_NORMAL_COMPLETION;
}

std::string unescape_xml(std::string_view text) {
  static constexpr std::pair<std::string_view, char> kNames[] = {
      {"&lt;", '<'}, {"&gt;", '>'}, {"&amp;", '&'}, {"&quot;", '"'}, {"&apos;", '\''}};
  std::string plain;
  plain.reserve(text.size());
  while (!text.empty()) {
    const std::size_t mark = std::min(text.find('&'), text.size());
    plain += text.substr(0, mark);
    text.remove_prefix(mark);
    if (text.empty()) break;
    const auto* name = std::find_if(std::begin(kNames), std::end(kNames),
                                    [&](const auto& row) { return text.starts_with(row.first); });
    int code = 0;
    if (name != std::end(kNames)) {
      plain += name->second;
      text.remove_prefix(name->first.size());
    } else if (text.size() >= 5 && text[1] == '#' && text[4] == ';' &&
               std::from_chars(text.data() + 2, text.data() + 4, code).ptr == text.data() + 4 && code >= 1 &&
               code <= 31) {
      plain += static_cast<char>(code);
      text.remove_prefix(5);
    } else {
      plain += '&';
      text.remove_prefix(1);
    }
  }
  return plain;
}

namespace {

char small(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// The fields of an Attribute element: key="value" pairs.
bool read_fields(std::string_view text, XmlNode& node) {
  static constexpr std::string_view kKeys[] = {"tag", "vr", "name", "length", "encoding", "pcode"};
  static constexpr std::string_view kBlanks = " \t\r\n";
  while (true) {
    const std::size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) return true;
    text.remove_prefix(begin);
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos) return false;
    std::string key(text.substr(0, equals));
    while (!key.empty() && kBlanks.find(key.back()) != std::string_view::npos) key.pop_back();
    std::transform(key.begin(), key.end(), key.begin(), small);
    if (std::find(std::begin(kKeys), std::end(kKeys), key) == std::end(kKeys)) return false;
    text.remove_prefix(equals + 1);
    const std::size_t quote = text.find_first_not_of(kBlanks);
    if (quote == std::string_view::npos || (text[quote] != '"' && text[quote] != '\'')) return false;
    const std::size_t close = text.find(text[quote], quote + 1);
    if (close == std::string_view::npos) return false;
    node.fields.emplace_back(std::move(key), unescape_xml(text.substr(quote + 1, close - quote - 1)));
    text.remove_prefix(close + 1);
  }
}

// Sections and roots need no matching: only attributes and the items in them count.
bool scan_own(std::string_view text, XmlNode& root) {
  static constexpr std::string_view kAttribute = "attribute";
  Builder builder(root);
  while (true) {
    const std::size_t open = text.find('<');
    if (open == std::string_view::npos) return builder.depth() == 0;
    builder.text(text.data(), open);
    text.remove_prefix(open + 1);
    const std::size_t close = text.find('>');
    if (close == std::string_view::npos) return false;
    std::string_view token = text.substr(0, close);
    text.remove_prefix(close + 1);
    const bool empty = token.ends_with('/');
    if (empty) token.remove_suffix(1);
    const bool inside = builder.depth() > 0;
    if (token.starts_with("!")) {
      if (token.starts_with("!DOCTYPE")) return false;
    } else if (token.starts_with("/")) {
      const std::string_view name = token.substr(1);
      if (name != "Attribute" && name != "Item") continue;
      if (!inside || builder.current().name != name) return false;
      builder.end();
    } else if (token.size() >= kAttribute.size() &&
               std::equal(kAttribute.begin(), kAttribute.end(), token.begin(),
                          [](char a, char b) { return a == small(b); })) {
      XmlNode node{"Attribute"};
      if (!read_fields(token.substr(kAttribute.size()), node)) {
        VX_LOG_ERR(kOwn, "Invalid format of the XML attribute description.");
        return false;
      }
      if ((inside && builder.current().name != "Item") || !builder.start(std::move(node))) return false;
      if (empty) builder.end();
    } else if (token == "Item") {
      if (!inside || builder.current().name != "Attribute" || !builder.start(XmlNode{"Item"})) return false;
      if (empty) builder.end();
    }
  }
}

}  // namespace

VX_STATUS parse_own(MsgObj& object, void* user, VX_TEXT_INPUT callback, XmlNode& root) {
  Input input{object, user, callback};
  std::string text;
  const VX_STATUS status = input.each([&](const char* data, std::size_t size) {
    text.append(data, size);
    return true;
  });
  if (status != VX_NORMAL_COMPLETION) return status;
  return scan_own(text, root) ? VX_STATUS{VX_NORMAL_COMPLETION} : VX_STATUS{VX_SYSTEM_ERROR};
}

}  // namespace vx
