#include "text/fill.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <iterator>
#include <limits>

#include "codec/stream_form.h"
#include "config/transfer_syntax.h"
#include "frame/log.h"
#include "model/attributes.h"
#include "model/convert.h"
#include "model/private_blocks.h"
#include "model/seams.h"
#include "model/values.h"
#include "model/vr.h"
#include "text/base64.h"
#include "text/bulk_text.h"

namespace vx {

namespace {

constexpr uint32_t block_of_creator(uint32_t tag) {
  return (tag & 0xFFFF0000U) | ((tag & 0xFFU) << 8);
}

// A number that a type can not hold is nothing if it is too small, and out of range if it is too large.
template <typename T>
bool read_real(std::string_view text, T& value) {
  const char* end = text.data() + text.size();
  auto read = std::from_chars(text.data(), end, value);
  if (text.empty() || read.ec == std::errc::invalid_argument || read.ptr != end) return false;
  if (read.ec == std::errc{}) return true;
  long double wide = 0;
  read = std::from_chars(text.data(), end, wide);
  const std::size_t exponent = text.find_first_of("eE");
  const bool tiny = read.ec == std::errc{} ? std::abs(wide) < 1
                                           : exponent != std::string_view::npos && text[exponent + 1] == '-';
  value = tiny ? T{0} : std::numeric_limits<T>::infinity();
  return true;
}

// An icon in fragments goes out as such in the syntax of the object that holds it.
void keep_fragments(FillTarget& item) {
  FillTarget* top = &item;
  while (top->holder != nullptr) top = top->holder;
  VX_TRANSFER_SYNTAX syntax = 0;
  Encoding encoding{};
  if (get_message_syntax(top->object, syntax) != kOk || syntax_encoding(syntax, encoding) != kOk ||
      !encoding.encapsulated)
    return;
  item.object.SyntaxSet = 1;
  item.object.TransferSyntax = syntax;
}

}  // namespace

void FillTarget::note_creator(uint32_t tag, std::string code) {
  const auto again = std::find_if(creators.begin(), creators.end(), [&](const auto& row) {
    return tag_group(row.first) == tag_group(tag) && row.second == code;
  });
  if (again != creators.end() && again->first != block_of_creator(tag)) {
    VX_LOG_WARN(function, "(%04X,%04X) names the creator of another block; the two become one",
                tag_group(tag), tag_element(tag));
  }
  creators.emplace_back(block_of_creator(tag), std::move(code));
}

std::string FillTarget::creator(uint32_t tag) const {
  const auto known = std::find_if(creators.rbegin(), creators.rend(),
                                  [&](const auto& row) { return row.first == (tag & 0xFFFFFF00U); });
  return known != creators.rend() ? known->second : std::string(creator_of(object, tag));
}

void FillTarget::filled(const TagObj& attribute) {
  if (attribute.Tag != kSpecificCharacterSet) return;
  if (utf8_untold) VX_LOG_WARN(function, "(0008,0005) stands behind text that it speaks of");
  set = text_set_of(object, set);
  charsets.known = false;
}

void FillTarget::note_utf8() {
  FillTarget* place = this;
  while (place->holder != nullptr && find_tag(place->object, kSpecificCharacterSet) == nullptr)
    place = place->holder;
  place->utf8_untold = true;
}

std::string_view FillTarget::encoded(uint32_t tag, std::string_view utf8, std::string& work, bool& whole) {
  if (is_ascii(utf8)) return utf8;
  const auto beyond = [](char c) { return static_cast<uint8_t>(c) >= 0x80; };
  if (set.kind == TextSet::Kind::None && std::any_of(utf8.begin(), utf8.end(), beyond)) note_utf8();
  bool all = true;
  const std::string_view text = from_utf8(utf8, set, work, all);
  if (all) return text;
  whole = false;
  VX_LOG_WARN(function, "(%04X,%04X) has characters that are not in its character set; ? stands for them",
              tag_group(tag), tag_element(tag));
  return text;
}

VX_STATUS FillTarget::finish() {
  if (!utf8_untold || set.kind != TextSet::Kind::None) return kOk;
  TagObj* attribute = find_tag(object, kSpecificCharacterSet);
  VX_STATUS status = kOk;
  if (attribute == nullptr) status = add_standard_attribute(object, kSpecificCharacterSet, &attribute);
  if (status == kOk) status = set_text(object, *attribute, "ISO_IR 192", true, nullptr);
  if (status != kOk) return status;
  VX_LOG_INF(function, "(0008,0005) says ISO_IR 192 now, for text beyond ASCII under no character set");
  return status;
}

bool is_stored(VX_STATUS status, int32_t vr) {
  return status == kOk ||
         (is_text_vr(vr) && (status == VX_INVALID_CHARS_IN_VALUE || status == VX_INVALID_VALUE_FOR_VR));
}

int32_t vr_of_document(std::string_view letters) {
  if (letters == "OV" || is_wide_integer(letters)) return VX_VR_UN;
  return letters.size() == 2 ? vr_from_letters(letters[0], letters[1]) : -1;
}

VX_STATUS append_wide_integer(std::string_view letters, std::string_view text, std::string& bytes) {
  uint64_t number = 0;
  const char* end = text.data() + text.size();
  std::from_chars_result read{};
  if (letters == "SV") {
    int64_t value = 0;
    read = std::from_chars(text.data(), end, value);
    number = static_cast<uint64_t>(value);
  } else {
    read = std::from_chars(text.data(), end, number);
  }
  if (text.empty() || read.ec == std::errc::invalid_argument || read.ptr != end) return VX_INCOMPATIBLE_VALUE;
  if (read.ec != std::errc{}) return VX_VALUE_OUT_OF_RANGE;
  for (unsigned shift = 0; shift < 64; shift += 8) bytes += static_cast<char>((number >> shift) & 0xFFU);
  return kOk;
}

void take_vr(FillTarget& target, TagObj& attribute, int32_t vr, std::string_view letters) {
  if (vr >= 0 && attribute.VR != vr) {
    clear_value(target.object, attribute, false, true);
    attribute.VR = vr;
  }
  if (attribute.VR != VX_VR_UN || !keeps_stream_form()) return;
  const bool wide = letters.size() == 2 && is_wide_vr(letters[0], letters[1]);
  attribute.DecoderMark = wide ? letters[0] : standard_wide_letter(attribute.Tag);
}

VX_STATUS fill_null(FillTarget& target, TagObj& attribute, bool first) {
  return first ? set_null(target.object, attribute) : set_next_null(attribute);
}

VX_STATUS fill_text(FillTarget& target, TagObj& attribute, std::string_view utf8, bool first,
                    std::string& work) {
  bool whole = true;
  const std::string_view text = target.encoded(attribute.Tag, utf8, work, whole);
  if (text.empty()) return fill_null(target, attribute, first);
  if (!is_one_value_text(attribute.VR) && utf8.find('\\') != std::string_view::npos) {
    whole = false;
    VX_LOG_WARN(target.function, "(%04X,%04X) has a backslash in one value, which makes several of it",
                tag_group(attribute.Tag), tag_element(attribute.Tag));
  }
  CharsetCache* charsets = attribute.Tag > kSpecificCharacterSet ? &target.charsets : nullptr;
  const auto set = keeps_stream_form() ? set_text_as_it_is : set_text;
  const VX_STATUS status = set(target.object, attribute, text, first, charsets);
  return status == kOk && !whole ? VX_STATUS{VX_INVALID_CHARS_IN_VALUE} : status;
}

VX_STATUS fill_tag(FillTarget& target, TagObj& attribute, std::string_view digits, int base, bool first) {
  std::string plain(digits);
  std::erase(plain, ',');
  uint32_t tag = 0;
  if (!read_number(std::string_view(plain), tag, base)) return VX_INCOMPATIBLE_VALUE;
  return set_value(target.object, attribute, VX_UINT_TYPE, &tag, first);
}

VX_STATUS fill_real(FillTarget& target, TagObj& attribute, std::string_view text, bool first) {
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  float narrow = 0;
  double wide = 0;
  const bool single = attribute.VR == VX_VR_FL;
  if (!(single ? read_real(text, narrow) : read_real(text, wide))) return VX_INCOMPATIBLE_VALUE;
  if (std::isinf(single ? narrow : wide) && text.find_first_of("0123456789") != std::string_view::npos)
    return VX_VALUE_OUT_OF_RANGE;
  return single ? set_value(target.object, attribute, VX_FLOAT_TYPE, &narrow, first)
                : set_value(target.object, attribute, VX_DOUBLE_TYPE, &wide, first);
}

std::string bytes_of_base64(const FillTarget& target, uint32_t tag, std::string_view base64) {
  bool clean = true;
  std::string bytes = decode_base64(base64, clean);
  if (!clean) {
    VX_LOG_WARN(target.function, "Characters that are no Base64 were passed over in attribute 0x%8.8X", tag);
  }
  return bytes;
}

VX_STATUS fill_bytes(FillTarget& target, TagObj& attribute, std::string& bytes) {
  const std::size_t width = vr_width(attribute.VR);
  if (std::endian::native == std::endian::big && width > 1) {
    bytes.resize(bytes.size() / width * width);
    copy_swapped(bytes.data(), bytes.data(), bytes.size(), vr_width(attribute.VR));
  }
  if (bytes.empty()) return set_null(target.object, attribute);
  if (bytes.size() % 2 != 0) bytes += '\0';
  if (bytes.size() >= kUndefinedLength) return VX_VALUE_TOO_LARGE;
  const bool fragments =
      attribute.Tag == kPixelData && target.holder != nullptr && are_fragments(bytes, bytes);
  const VX_STATUS status =
      value_from_buffer(target.object, attribute, bytes.data(), static_cast<uint32_t>(bytes.size()));
  if (status != kOk) {
    VX_LOG_ERR(target.function, "Failed to set value for attribute 0x%8.8X, error \"%s\"", attribute.Tag,
               status_text(status));
  } else if (fragments) {
    keep_fragments(target);
  }
  return status;
}

std::string_view creator_of_bytes(std::string_view bytes) {
  return bytes.substr(0, bytes.find_last_not_of(std::string_view(" \0", 2)) + 1);
}

std::string_view unescape(std::string_view text, std::string& work) {
  static constexpr std::pair<std::string_view, char> kNames[] = {
      {"&lt;", '<'}, {"&gt;", '>'}, {"&amp;", '&'}, {"&quot;", '"'}, {"&apos;", '\''}};
  if (text.find('&') == std::string_view::npos) return text;
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
    } else if (text.size() >= 5 && text[1] == '#' && text[4] == ';' && read_number(text.substr(2, 2), code) &&
               code >= 1 && code <= 31) {
      plain += static_cast<char>(code);
      text.remove_prefix(5);
    } else {
      plain += '&';
      text.remove_prefix(1);
    }
  }
  work = std::move(plain);
  return work;
}

}  // namespace vx
