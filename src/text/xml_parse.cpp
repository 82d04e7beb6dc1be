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
#include "text/utf8.h"

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
  if (status != kOk) {
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
  return kOk;
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

constexpr std::string_view kBlanks = " \t\r\n";

bool is_blank(std::string_view text) {
  return text.find_first_not_of(kBlanks) == std::string_view::npos;
}

std::string in_small(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(), small);
  return out;
}

// The elements of the toolkit's own form, whose control characters no XML parser takes. Roots and sections
// have only to be closed in their order; what counts are attributes and the items in them.
class OwnScan {
 public:
  OwnScan(std::string_view text, XmlTree& tree) : all_(text), rest_(text), tree_(tree) {}

  bool scan() {
    if (rest_.starts_with("\xEF\xBB\xBF")) rest_.remove_prefix(3);
    if (valid_utf8(rest_) != rest_.size()) return refuse("is no UTF-8");
    while (true) {
      const std::size_t mark = std::min(rest_.find('<'), rest_.size());
      if (!add_text(rest_.substr(0, mark))) return false;
      rest_.remove_prefix(mark);
      if (rest_.empty()) break;
      if (!markup()) return false;
    }
    if (!open_.empty()) return refuse("ends inside an element");
    if (!root_seen_) return refuse("has no element");
    return known_root_ || attributes_ > 0 || refuse("is another document");
  }
  // Why and where a text was refused.
  const char* reason() const { return reason_; }
  std::size_t line() const {
    const std::string_view before = all_.substr(0, all_.size() - rest_.size());
    return 1 + static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
  }

 private:
  enum class Kind { Other, Attribute, Item };
  struct Open {
    std::string_view name;
    Kind kind;
    bool has_items;
  };

  bool refuse(const char* reason) {
    if (reason_ == nullptr) reason_ = reason;
    return false;
  }
  bool inside(Kind kind) const { return !open_.empty() && open_.back().kind == kind; }

  bool add_text(std::string_view text) {
    if (inside(Kind::Attribute) && !open_.back().has_items) {
      tree_.text(text);
      return true;
    }
    return is_blank(text) || refuse("has text that belongs to no attribute");
  }

  // What lies between two marks, taken with them.
  bool take_until(std::string_view end, std::size_t begin, std::string_view& content) {
    const std::size_t at = rest_.find(end, begin);
    if (at == std::string_view::npos) return refuse("ends inside markup");
    content = rest_.substr(begin, at - begin);
    rest_.remove_prefix(at + end.size());
    return true;
  }

  bool markup() {
    std::string_view content;
    if (rest_.starts_with("<!--")) return take_until("-->", 4, content);
    if (rest_.starts_with("<?")) return take_until("?>", 2, content);
    if (rest_.starts_with("<![CDATA[")) {
      if (!take_until("]]>", 9, content)) return false;
      std::string text;
      for (const char c : content) c == '&' ? text += "&amp;" : text += c;
      return add_text(text);
    }
    if (rest_.starts_with("<!")) return refuse("has a document type declaration");
    if (rest_.starts_with("</")) return take_until(">", 2, content) && end_element(content);
    // A > in quotes is one of the value.
    std::size_t end = 1;
    for (char quote = '\0'; end < rest_.size() && (quote != '\0' || rest_[end] != '>'); ++end) {
      if (quote != '\0' ? rest_[end] == quote : rest_[end] == '"' || rest_[end] == '\'')
        quote = quote == '\0' ? rest_[end] : '\0';
    }
    if (end >= rest_.size()) return refuse("ends inside markup");
    const std::string_view token = rest_.substr(1, end - 1);
    if (!start_element(token)) return false;
    rest_.remove_prefix(end + 1);
    return !token.ends_with('/') || close();
  }

  bool end_element(std::string_view name) {
    name = name.substr(0, name.find_last_not_of(kBlanks) + 1);
    const bool fits =
        !open_.empty() && (open_.back().name == name || (open_.back().kind == Kind::Attribute &&
                                                         in_small(name) == in_small(open_.back().name)));
    return fits ? close() : refuse("has a wrong end tag");
  }

  bool close() {
    if (open_.back().kind != Kind::Other) tree_.close();
    open_.pop_back();
    return true;
  }

  bool start_element(std::string_view token) {
    static constexpr std::string_view kRoots[] = {"DcmMessage", "DcmFile", "DICOMDIR", "DcmItem"};
    if (token.ends_with('/')) token.remove_suffix(1);
    const std::string_view name = token.substr(0, token.find_first_of(kBlanks));
    if (name.empty() || (std::isalpha(static_cast<unsigned char>(name[0])) == 0 && name[0] != '_'))
      return refuse("has a < that opens no element");
    if (open_.empty()) {
      if (root_seen_) return refuse("has more than one root");
      if (name == "NativeDicomModel") return refuse("is in the native form");
      root_seen_ = true;
      known_root_ = std::find(std::begin(kRoots), std::end(kRoots), name) != std::end(kRoots);
    }
    const Kind kind = in_small(name) == "attribute" ? Kind::Attribute
                      : name == "Item"              ? Kind::Item
                                                    : Kind::Other;
    if (inside(Kind::Attribute) != (kind == Kind::Item) || (inside(Kind::Item) && kind != Kind::Attribute))
      return refuse("has an element where it does not belong");
    if (kind == Kind::Item) open_.back().has_items = true;
    const bool room =
        open_.size() < kMaxElements &&
        (kind == Kind::Other || tree_.open(kind == Kind::Item ? XmlName::Item : XmlName::Attribute));
    if (!room) return refuse("has too many levels");
    attributes_ += kind == Kind::Attribute ? 1 : 0;
    open_.push_back({name, kind, false});
    return fields(token.substr(name.size()), kind == Kind::Attribute);
  }

  // key="value" pairs; those of an Attribute are of the form.
  bool fields(std::string_view text, bool of_attribute) {
    while (!is_blank(text)) {
      const std::size_t equals = text.find('=');
      std::string name = in_small(text.substr(0, equals));
      name.erase(0, name.find_first_not_of(kBlanks));
      name.erase(name.find_last_not_of(kBlanks) + 1);
      const OwnKey* key = of_attribute ? find_row(kOwnKeys, name) : nullptr;
      text.remove_prefix(std::min(equals, text.size()));
      const std::size_t quote = text.find_first_not_of(kBlanks, 1);
      const bool quoted = quote < text.size() && (text[quote] == '"' || text[quote] == '\'');
      const std::size_t end = quoted ? text.find(text[quote], quote + 1) : std::string_view::npos;
      if (name.empty() || (of_attribute && key == nullptr) || end == std::string_view::npos) {
        if (of_attribute) VX_LOG_ERR(kOwn, "Invalid format of the XML attribute description.");
        return refuse("has an element that is none");
      }
      if (key != nullptr && key->field >= 0) {
        tree_.field(static_cast<XmlField>(key->field),
                    unescape(text.substr(quote + 1, end - quote - 1), work_));
      }
      text.remove_prefix(end + 1);
    }
    return true;
  }

  const std::string_view all_;
  std::string_view rest_;
  XmlTree& tree_;
  std::vector<Open> open_;
  std::string work_;
  const char* reason_ = nullptr;
  std::size_t attributes_ = 0;
  bool root_seen_ = false;
  bool known_root_ = false;
};

}  // namespace

VX_STATUS parse_own(MsgObj& object, void* user, VX_TEXT_INPUT callback, XmlTree& tree) {
  TextInput input(object, user, callback);
  GatheredText gathered;
  const VX_STATUS status = input.each([&](std::string_view block) {
    gathered.add(block);
    return true;
  });
  if (status != kOk) return status;
  OwnScan scan(gathered.text(), tree);
  if (scan.scan()) return kOk;
  VX_LOG_ERR(kOwn, "|   line %zu: the text %s", scan.line(), scan.reason());
  return VX_SYSTEM_ERROR;
}

}  // namespace vx
