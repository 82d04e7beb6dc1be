#include "text/xml_parse.h"

#include <libxml/parser.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <utility>

#include "config/shared_library.h"
#include "frame/log.h"
#include "text/fill.h"
#include "text/text_blocks.h"

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
  decltype(&__xmlStructuredError) error = nullptr;
  decltype(&__xmlStructuredErrorContext) error_user = nullptr;
  decltype(&__xmlGenericError) other_error = nullptr;
  bool ready = false;

  LibXml() {
    const auto at = [](auto& function) { return reinterpret_cast<void**>(&function); };
    const Symbol symbols[] = {{"xmlInitParser", at(init)},
                              {"xmlCreatePushParserCtxt", at(create)},
                              {"xmlCtxtUseOptions", at(use_options)},
                              {"xmlParseChunk", at(parse)},
                              {"xmlStopParser", at(stop)},
                              {"xmlFreeParserCtxt", at(release)},
                              {"__xmlStructuredError", at(error)},
                              {"__xmlStructuredErrorContext", at(error_user)},
                              {"__xmlGenericError", at(other_error)}};
    ready = open_shared_library("libxml2.so.2", symbols, std::size(symbols));
    if (ready) init();
  }
};

const LibXml& libxml() {
  static const LibXml library;
  return library;
}

// --- What libxml2 meets ---

struct NativeParse {
  XmlTree& tree;
  std::string& root;
  xmlParserCtxtPtr context = nullptr;
  const char* stopped = nullptr;
  int line = 0;  // of the first error
  std::string error{};

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

struct Named {
  std::string_view text;
  XmlName name;
};
constexpr Named kNames[] = {{"NativeDicomModel", XmlName::NativeDicomModel},
                            {"DicomAttribute", XmlName::Attribute},
                            {"Item", XmlName::Item},
                            {"Value", XmlName::Value},
                            {"InlineBinary", XmlName::InlineBinary},
                            {"BulkData", XmlName::BulkData},
                            {"PersonName", XmlName::PersonName},
                            {"Alphabetic", XmlName::Alphabetic},
                            {"Ideographic", XmlName::Ideographic},
                            {"Phonetic", XmlName::Phonetic},
                            {"FamilyName", XmlName::FamilyName},
                            {"GivenName", XmlName::GivenName},
                            {"MiddleName", XmlName::MiddleName},
                            {"NamePrefix", XmlName::NamePrefix},
                            {"NameSuffix", XmlName::NameSuffix}};

struct Keyed {
  std::string_view text;
  XmlField key;
};
constexpr Keyed kNativeFields[] = {{"tag", XmlField::Tag},
                                   {"vr", XmlField::Vr},
                                   {"privateCreator", XmlField::Creator},
                                   {"number", XmlField::Number}};

template <typename Row, std::size_t N>
const Row* find_row(const Row (&rows)[N], std::string_view text) {
  const Row* row =
      std::find_if(std::begin(rows), std::end(rows), [&](const Row& one) { return one.text == text; });
  return row != std::end(rows) ? row : nullptr;
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
    const Named* known = find_row(kNames, chars(name));
    if (parse.tree.depth() == 0) parse.root = chars(name);
    if (!parse.tree.open(known != nullptr ? known->name : XmlName::Other))
      return parse.stop("too many levels");
    for (int i = 0; i < count; ++i) {  // name, prefix, namespace, begin and end of the value
      const xmlChar** field = fields + static_cast<std::ptrdiff_t>(i) * 5;
      const Keyed* key = find_row(kNativeFields, chars(field[0]));
      if (key != nullptr) parse.tree.field(key->key, field_text(chars(field[3]), chars(field[4])));
    }
  });
}
void on_end(void* user, const xmlChar*, const xmlChar*, const xmlChar*) {
  guarded(user, [](NativeParse& parse) { parse.tree.close(); });
}
void on_text(void* user, const xmlChar* text, int size) {
  guarded(user, [&](NativeParse& parse) { parse.tree.text({chars(text), static_cast<std::size_t>(size)}); });
}
// Nothing of the model needs a document type, and entities are a way to grow.
void on_document_type(void* user, const xmlChar*, const xmlChar*, const xmlChar*) {
  guarded(user, [](NativeParse& parse) { parse.stop("a document type declaration"); });
}
void on_error(void* user, xmlErrorPtr error) {
  guarded(user, [&](NativeParse& parse) {
    if (error == nullptr || error->message == nullptr || !parse.error.empty()) return;
    parse.line = error->line;
    parse.error = error->message;
    while (!parse.error.empty() && std::isspace(static_cast<unsigned char>(parse.error.back())) != 0)
      parse.error.pop_back();
  });
}

void on_other_error(void*, const char*, ...) {}

// Errors that libxml2 reports beside the parser, of encodings, would go to the standard error. The places for
// them belong to the thread.
class QuietLibXml {
 public:
  explicit QuietLibXml(NativeParse& parse)
      : function_(std::exchange(*libxml().error(), &on_error)),
        user_(std::exchange(*libxml().error_user(), &parse)),
        other_(std::exchange(*libxml().other_error(), &on_other_error)) {}
  ~QuietLibXml() {
    *libxml().error() = function_;
    *libxml().error_user() = user_;
    *libxml().other_error() = other_;
  }
  QuietLibXml(const QuietLibXml&) = delete;
  QuietLibXml& operator=(const QuietLibXml&) = delete;

 private:
  xmlStructuredErrorFunc function_;
  void* user_;
  xmlGenericErrorFunc other_;
};

}  // namespace

VX_STATUS parse_native(MsgObj& object, void* user, VX_TEXT_INPUT callback, XmlTree& tree, std::string& root) {
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
  NativeParse parse{tree, root};
  const QuietLibXml quiet(parse);
  const std::unique_ptr<xmlParserCtxt, decltype(xml.release)> context(
      xml.create(&handler, &parse, nullptr, 0, nullptr), xml.release);
  if (context == nullptr) {
    VX_LOG_ERR(kNative, "XMLNativeToMessage xmlCreatePushParserCtxt failed to create XML parser context");
    return VX_SYSTEM_ERROR;
  }
  parse.context = context.get();
  xml.use_options(context.get(), XML_PARSE_HUGE | XML_PARSE_NONET);
  TextInput input(object, user, callback);
  int error = 0;
  const VX_STATUS status = input.each([&](std::string_view block) {
    for (; !block.empty() && error == 0 && parse.stopped == nullptr;
         block.remove_prefix(std::min(block.size(), kParseStep))) {
      error = xml.parse(context.get(), block.data(), static_cast<int>(std::min(block.size(), kParseStep)), 0);
    }
    return error == 0 && parse.stopped == nullptr;
  });
  const auto tell = [&] {
    if (!parse.error.empty()) VX_LOG_ERR(kNative, "|   line %d: %s", parse.line, parse.error.c_str());
  };
  if (parse.stopped != nullptr) {
    VX_LOG_ERR(kNative, "XMLNativeToMessage failed to parse XML document");
    VX_LOG_ERR(kNative, "|   stopped: %s", parse.stopped);
    return VX_SYSTEM_ERROR;
  }
  if (error != 0) {
    VX_LOG_ERR(kNative, "XMLNativeToMessage xmlParseChunk failed with error %d", error);
    tell();
    return VX_SYSTEM_ERROR;
  }
  if (status != VX_NORMAL_COMPLETION) {
    if (input.failed_first()) {
      VX_LOG_ERR(kNative, "XMLNativeToMessage failed, UserFunction unable to read XML data");
    } else {
      VX_LOG_ERR(kNative, "XMLNativeToMessage UserFunction failed, error \"%s\"", status_text(status));
    }
    return status;
  }
  error = xml.parse(context.get(), nullptr, 0, 1);
  if (error != 0 || parse.stopped != nullptr || context->wellFormed == 0 || tree.document().child().none()) {
    VX_LOG_ERR(kNative, "XMLNativeToMessage failed with error %d", error);
    tell();
    return VX_SYSTEM_ERROR;
  }
  return VX_NORMAL_COMPLETION;
}

namespace {

char small(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

struct OwnKey {
  std::string_view text;
  int field;  // an XmlField; -1 for what the text itself tells
};
constexpr OwnKey kOwnKeys[] = {{"tag", static_cast<int>(XmlField::Tag)},
                               {"vr", static_cast<int>(XmlField::Vr)},
                               {"name", -1},
                               {"length", -1},
                               {"encoding", static_cast<int>(XmlField::Encoding)},
                               {"pcode", static_cast<int>(XmlField::Creator)}};

// The fields of an Attribute element: key="value" pairs.
bool read_fields(std::string_view text, XmlTree& tree) {
  static constexpr std::string_view kBlanks = " \t\r\n";
  std::string work;
  while (true) {
    const std::size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) return true;
    text.remove_prefix(begin);
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos) return false;
    std::string name(text.substr(0, equals));
    while (!name.empty() && kBlanks.find(name.back()) != std::string_view::npos) name.pop_back();
    std::transform(name.begin(), name.end(), name.begin(), small);
    const OwnKey* key = find_row(kOwnKeys, name);
    if (key == nullptr) return false;
    text.remove_prefix(equals + 1);
    const std::size_t quote = text.find_first_not_of(kBlanks);
    if (quote == std::string_view::npos || (text[quote] != '"' && text[quote] != '\'')) return false;
    const std::size_t close = text.find(text[quote], quote + 1);
    if (close == std::string_view::npos) return false;
    if (key->field >= 0) {
      const std::string_view value = text.substr(quote + 1, close - quote - 1);
      tree.field(static_cast<XmlField>(key->field), unescape(value, work));
    }
    text.remove_prefix(close + 1);
  }
}

bool opens_attribute(std::string_view token) {
  static constexpr std::string_view kAttribute = "attribute";
  return token.size() >= kAttribute.size() && std::equal(kAttribute.begin(), kAttribute.end(), token.begin(),
                                                         [](char a, char b) { return a == small(b); });
}

// Sections and roots need no matching: only attributes and the items in them count.
bool scan_own(std::string_view text, XmlTree& tree) {
  while (true) {
    const std::size_t open = text.find('<');
    if (open == std::string_view::npos) return tree.depth() == 0;
    tree.text(text.substr(0, open));
    text.remove_prefix(open + 1);
    const std::size_t close = text.find('>');
    if (close == std::string_view::npos) return false;
    std::string_view token = text.substr(0, close);
    text.remove_prefix(close + 1);
    const bool empty = token.ends_with('/');
    if (empty) token.remove_suffix(1);
    const bool inside = tree.depth() > 0;
    if (token.starts_with("!")) {
      if (token.starts_with("!DOCTYPE")) return false;
    } else if (token == "/Attribute" || token == "/Item") {
      if (!inside || tree.current() != (token == "/Item" ? XmlName::Item : XmlName::Attribute)) return false;
      tree.close();
    } else if (opens_attribute(token)) {
      if ((inside && tree.current() != XmlName::Item) || !tree.open(XmlName::Attribute)) return false;
      if (!read_fields(token.substr(std::string_view("attribute").size()), tree)) {
        VX_LOG_ERR(kOwn, "Invalid format of the XML attribute description.");
        return false;
      }
      if (empty) tree.close();
    } else if (token == "Item") {
      if (!inside || tree.current() != XmlName::Attribute || !tree.open(XmlName::Item)) return false;
      if (empty) tree.close();
    }
  }
}

}  // namespace

VX_STATUS parse_own(MsgObj& object, void* user, VX_TEXT_INPUT callback, XmlTree& tree) {
  TextInput input(object, user, callback);
  GatheredText gathered;
  const VX_STATUS status = input.each([&](std::string_view block) {
    gathered.add(block);
    return true;
  });
  if (status != VX_NORMAL_COMPLETION) return status;
  return scan_own(gathered.text(), tree) ? VX_STATUS{VX_NORMAL_COMPLETION} : VX_STATUS{VX_SYSTEM_ERROR};
}

}  // namespace vx
