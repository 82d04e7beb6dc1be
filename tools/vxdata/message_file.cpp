#include "message_file.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <unordered_map>

#include "bytes.h"

namespace vxdata {
namespace {

constexpr uint32_t kSignature = 0xF003F003;
constexpr uint32_t kMarker = 0xF002F002;
constexpr size_t kPreamble = 28;
constexpr size_t kEntry = 6;       // of a directory or command table
constexpr size_t kRecordHead = 8;  // tag, parameter, length

// Parameter numbers of records; 1 to 999 are enumerated values.
constexpr unsigned kDefinedTerm = 1000;  // and value number
constexpr unsigned kCondition = 2000;
constexpr unsigned kRule = 2001;       // a condition that stands at the place
constexpr unsigned kOtherwise = 2002;  // "may": be there where the condition does not hold
constexpr unsigned kModule = 2003;     // for people; the library passes it over
constexpr unsigned kVr = 9500;
constexpr unsigned kDefault = 9600;
constexpr unsigned kCreator = 9700;
constexpr unsigned kType = 9999;

void put_record(Writer& out, uint32_t tag, unsigned parameter, std::string_view data) {
  out.u32(tag);
  out.u16(parameter);
  out.u16(static_cast<unsigned>(data.size()));
  out.text(data);
}

bool fits(const std::string& text, long long low, long long high) {
  long long value = 0;
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, value);
  return result.ec == std::errc() && result.ptr == end && value >= low && value <= high;
}

// Whether the library's conversion of a text to this VR would take it.
bool is_value_of(const std::string& text, int vr) {
  const std::string_view letters = vr_letters(vr);
  if (letters == "US") return fits(text, 0, 0xFFFF);
  if (letters == "SS") return fits(text, -0x8000, 0x7FFF);
  if (letters == "UL" || letters == "AT") return fits(text, 0, 0xFFFFFFFFLL);
  if (letters == "SL") return fits(text, -0x80000000LL, 0x7FFFFFFF);
  if (letters == "FL" || letters == "FD") {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    return !text.empty() && *end == '\0' && std::isfinite(value);
  }
  return is_text_vr(vr) && printable(text) == text;
}

void encode_attribute(Writer& out, const Attribute& attribute, const Dictionary& dictionary,
                      Problems& problems) {
  const auto fault = [&](const std::string& text) {
    problems.error(*attribute.place.file, attribute.place.line, text);
  };
  const uint32_t tag = attribute.tag;
  const DictionaryEntry* known = dictionary.find(tag, attribute.creator);
  if (known == nullptr && !attribute.vr) return fault(tag_text(tag) + " is not in the dictionary; add :VR");
  if (is_private(tag) && attribute.creator.empty()) return fault("a private attribute wants @CREATOR");
  const int vr = attribute.vr ? *attribute.vr : known->vr;
  put_record(out, tag, kType, type_text(attribute.type));
  const bool has_values = !attribute.values.empty() || !attribute.items.empty() || attribute.default_value;
  if (attribute.vr || has_values) put_record(out, tag, kVr, vr_letters(vr));
  if (!attribute.creator.empty()) put_record(out, tag, kCreator, attribute.creator);
  if (is_rule(attribute.condition)) {
    put_record(out, tag, kRule,
               std::string_view(attribute.condition).substr(1, attribute.condition.size() - 2));
  } else if (!attribute.condition.empty()) {
    put_record(out, tag, kCondition, attribute.condition);
  } else if (attribute.type == kType1C) {
    put_record(out, tag, kCondition, kMayBePresent);  // whatever the condition is, null is wrong
  }
  if (attribute.may) put_record(out, tag, kOtherwise, "may");
  if (!attribute.module.empty()) put_record(out, tag, kModule, attribute.module);
  if (!attribute.items.empty() && vr != kVrSq) fault(tag_text(tag) + " is no sequence and holds no items");
  for (const auto& item : attribute.items) put_record(out, tag, kDefinedTerm + 1, item);
  for (const ValueList& list : attribute.values) {
    for (const auto& value : list.values) {
      if (value.empty() || !is_value_of(value, vr)) {
        fault(format("\"%s\" is no value of VR %s", printable(value).c_str(),
                     std::string(vr_letters(vr)).c_str()));
      }
      put_record(out, tag, static_cast<unsigned>(list.number) + (list.enumerated ? 0 : kDefinedTerm), value);
    }
  }
  if (attribute.default_value) put_record(out, tag, kDefault, *attribute.default_value);
}

}  // namespace

std::string encode_body(const Body& body, const Dictionary& dictionary, Problems& problems) {
  Writer out;
  put_record(out, kMarker, 0, {});
  for (const auto& [tag, attribute] : body) encode_attribute(out, attribute, dictionary, problems);
  return out.bytes();
}

void MessageFile::add_service(int number, const std::vector<std::pair<uint16_t, std::string>>& bodies) {
  services_.push_back({number, bodies});
}

void MessageFile::add_item(int number, std::string body) {
  items_.push_back({number, std::move(body)});
}

namespace {

// The bodies, each once, and where they lie.
struct Bodies {
  Writer bytes;
  std::unordered_map<std::string, uint32_t> places;

  uint32_t place(const std::string& body) {
    const auto [at, fresh] = places.emplace(body, bytes.size());
    if (fresh) bytes.text(body);
    return at->second;
  }
};

// A directory has a row for each number from 1 on; `absent` stands for those that nothing has. The rows that
// it has.
template <typename Rows, typename PlaceOf>
unsigned put_directory(Writer& out, const Rows& rows, uint32_t absent, PlaceOf place_of) {
  int next = 1;
  for (const auto& row : rows) {
    for (; next < row.number; ++next) {
      out.u16(static_cast<unsigned>(next));
      out.u32(absent);
    }
    out.u16(static_cast<unsigned>(next++));
    out.u32(place_of(row));
  }
  return static_cast<unsigned>(next - 1);
}

}  // namespace

std::string MessageFile::to_binary() const {
  auto services = services_;
  auto items = items_;
  std::sort(services.begin(), services.end(), [](auto& a, auto& b) { return a.number < b.number; });
  std::sort(items.begin(), items.end(), [](auto& a, auto& b) { return a.number < b.number; });

  Bodies bodies;
  Writer empty;
  put_record(empty, kMarker, 0, {});
  const uint32_t empty_body = bodies.place(empty.bytes());

  Writer commands;
  commands.u16(0);  // the empty table of numbers that no service has
  Writer service_directory;
  const unsigned service_count = put_directory(service_directory, services, 0, [&](const auto& service) {
    if (service.bodies.empty()) return uint32_t{0};
    const uint32_t table = commands.size();
    for (const auto& [command, body] : service.bodies) {
      commands.u16(command);
      commands.u32(bodies.place(body));
    }
    commands.u16(0);
    return table;
  });

  Writer item_directory;
  const unsigned item_count = put_directory(item_directory, items, empty_body,
                                            [&](const auto& item) { return bodies.place(item.body); });

  Writer out;
  put_record(out, kSignature, 0, {});
  uint32_t at = kPreamble;
  out.u32(at);
  out.u16(service_count);
  out.u32(at += service_directory.size());
  out.u32(at += commands.size());
  out.u16(item_count);
  out.u32(at += item_directory.size());
  for (const auto* part : {&service_directory, &commands, &item_directory, &bodies.bytes})
    out.text(part->bytes());
  return out.bytes();
}

namespace {

// One body of a file.
class Decoder {
 public:
  Decoder(const std::string& path, std::string_view bytes, const Dictionary& dictionary)
      : path_(path), in_(bytes), dictionary_(dictionary) {}

  AttributeList run(size_t position) {
    in_.seek(position);
    if (in_.u32() != kMarker || in_.u16() != 0 || in_.u16() != 0) {
      fail(format("no message body at byte %zu", position));
    }
    AttributeList attributes;
    while (!in_.at_end()) {
      const uint32_t tag = in_.u32();
      const unsigned parameter = in_.u16();
      const std::string_view data = in_.take(in_.u16());
      if (in_.failed()) fail(format("message body at byte %zu is cut off", position));
      if (tag == kMarker) break;
      if (attributes.empty() || attributes.back().tag != tag) {
        if (!attributes.empty() && attributes.back().tag > tag)
          fail("attributes out of order: " + tag_text(tag));
        attributes.emplace_back();
        attributes.back().tag = tag;
      }
      take(attributes.back(), parameter, std::string(data));
    }
    for (Attribute& attribute : attributes) tidy(attribute);
    return attributes;
  }

 private:
  [[noreturn]] void fail(const std::string& text) const { throw Unusable{path_ + ": " + text}; }

  void take(Attribute& attribute, unsigned parameter, const std::string& data) {
    if (parameter == kType) {
      const auto type = parse_type(data);
      if (!type) fail(tag_text(attribute.tag) + ": type " + printable(data));
      attribute.type = *type;
    } else if (parameter == kVr) {
      attribute.vr = vr_code(data);
      if (!attribute.vr) fail(tag_text(attribute.tag) + ": VR " + printable(data));
    } else if (parameter == kCondition) {
      attribute.condition = data;
    } else if (parameter == kRule) {
      attribute.condition = "(" + data + ")";
    } else if (parameter == kOtherwise) {
      attribute.may = data == "may";
    } else if (parameter == kModule) {
      attribute.module = data;
    } else if (parameter == kCreator) {
      attribute.creator = data;
    } else if (parameter == kDefault) {
      attribute.default_value = data;
    } else if (parameter >= 1 && parameter < kCondition && parameter != kDefinedTerm) {
      const bool enumerated = parameter < kDefinedTerm;
      const int number = static_cast<int>(enumerated ? parameter : parameter - kDefinedTerm);
      if (attribute.vr == kVrSq && parameter == kDefinedTerm + 1) {
        attribute.items.push_back(data);
        return;
      }
      auto& lists = attribute.values;
      if (lists.empty() || lists.back().number != number || lists.back().enumerated != enumerated) {
        lists.push_back({number, enumerated, {}});
      }
      lists.back().values.push_back(data);
    } else {
      fail(tag_text(attribute.tag) + format(": parameter %u", parameter));
    }
  }

  // The text form leaves out what the dictionary says.
  void tidy(Attribute& attribute) const {
    const DictionaryEntry* known = dictionary_.find(attribute.tag, attribute.creator);
    if (known == nullptr) return;
    attribute.keyword = known->keyword;
    const bool has_values = !attribute.values.empty() || !attribute.items.empty() || attribute.default_value;
    if (has_values && attribute.vr == known->vr) attribute.vr.reset();
  }

  const std::string& path_;
  Reader in_;
  const Dictionary& dictionary_;
};

}  // namespace

MessageDirectory::MessageDirectory(std::string path, std::string_view bytes)
    : path_(std::move(path)), bytes_(bytes) {
  Reader in(bytes_);
  if (in.u32() != kSignature || in.u16() != 0 || in.u16() != 0) fail("no Message Info File");
  const size_t services = in.u32();
  const unsigned service_count = in.u16();
  const size_t commands = in.u32();
  const size_t items = in.u32();
  const unsigned item_count = in.u16();
  const size_t bodies = in.u32();
  if (in.failed()) fail("cut off in the preamble");
  for (unsigned number = 1; number <= service_count; ++number) {
    in.seek(services + kEntry * (number - 1));
    const unsigned given = in.u16();
    size_t table = commands + in.u32();
    if (in.failed() || given != number) fail(format("service directory damaged at entry %u", number));
    for (;; table += kEntry) {
      in.seek(table);
      const auto command = static_cast<uint16_t>(in.u16());
      if (in.failed()) fail(format("commands of service %u run past the end", number));
      if (command == 0) break;
      const size_t body = bodies + in.u32();
      entries_.push_back({static_cast<int>(number), command, body});
    }
  }
  for (unsigned number = 1; number <= item_count; ++number) {
    in.seek(items + kEntry * (number - 1));
    const unsigned given = in.u16();
    const size_t body = bodies + in.u32();
    if (in.failed() || given != number) fail(format("item directory damaged at entry %u", number));
    entries_.push_back({static_cast<int>(number), 0, body});
  }
}

void MessageDirectory::fail(const std::string& text) const {
  throw Unusable{path_ + ": " + text};
}

bool MessageDirectory::has_attributes(const Entry& entry) const {
  Reader in(bytes_);
  in.seek(entry.body + kRecordHead);
  return !in.at_end() && in.u32() != kMarker;
}

AttributeList MessageDirectory::decode(const Entry& entry, const Dictionary& dictionary) const {
  return Decoder(path_, bytes_, dictionary).run(entry.body);
}

}  // namespace vxdata
