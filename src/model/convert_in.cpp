#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "config/config.h"
#include "config/transfer_syntax.h"
#include "frame/log.h"
#include "frame/text.h"
#include "model/attributes.h"
#include "model/convert.h"
#include "model/values.h"
#include "model/vr.h"

namespace vx {
namespace {

constexpr char kFunction[] = "VXI_Set_Value";
constexpr std::size_t kMaxNumberText = 256;
constexpr std::size_t kMaxDs = 16;

// Largest and smallest magnitudes of a float.
constexpr double kFloatMax = 3.4028234663852886e38;
constexpr double kFloatMin = 1.1754943508222875e-38;

// A native value in the form of a VR. A double as IS may take 310 characters.
struct Converted {
  char bytes[352];
  uint32_t length = 0;
  int32_t item = 0;

  template <typename T>
  VX_STATUS put(T value) {
    std::memcpy(bytes, &value, sizeof value);
    length = sizeof value;
    return kOk;
  }
  template <typename T>
  VX_STATUS print(T value) {
    const auto result = std::to_chars(bytes, bytes + sizeof bytes, value);
    length = static_cast<uint32_t>(result.ptr - bytes);
    return kOk;
  }
};

template <typename T>
bool fits(int64_t value) {
  return value >= std::numeric_limits<T>::min() && value <= std::numeric_limits<T>::max();
}

// int32_t and uint32_t; `checked` for the long types, which refuse what 16 bits can't hold.
VX_STATUS convert_int(int32_t vr, int64_t value, bool checked, Converted& out) {
  const auto bits = static_cast<uint32_t>(value);
  const auto as_signed = static_cast<int32_t>(bits);
  switch (vr) {
    case VX_VR_DS:
    case VX_VR_IS:
      return out.print(value);
    case VX_VR_FD:
      return out.put(static_cast<double>(as_signed));
    case VX_VR_FL:
      return out.put(static_cast<float>(as_signed));
    case VX_VR_SL:
    case VX_VR_UL:
    case VX_VR_AT:
      return out.put(bits);
    case VX_VR_SS:
      if (checked && !fits<int16_t>(value)) return VX_VALUE_OUT_OF_RANGE;
      return out.put(static_cast<uint16_t>(bits));
    case VX_VR_US:
      if (checked && !fits<uint16_t>(value)) return VX_VALUE_OUT_OF_RANGE;
      return out.put(static_cast<uint16_t>(bits));
    case VX_VR_SQ:
      out.item = as_signed;
      return kOk;
    default:
      return VX_INCOMPATIBLE_VR;
  }
}

VX_STATUS convert_short(int32_t vr, uint16_t bits, bool is_signed, Converted& out) {
  const auto value = static_cast<int16_t>(bits);
  switch (vr) {
    case VX_VR_DS:
    case VX_VR_IS:
      return is_signed ? out.print(value) : out.print(bits);
    case VX_VR_FD:
      return out.put(static_cast<double>(value));
    case VX_VR_FL:
      return out.put(static_cast<float>(value));
    case VX_VR_SL:
      return out.put(static_cast<int32_t>(value));
    case VX_VR_UL:
      return out.put(static_cast<uint32_t>(bits));
    case VX_VR_SS:
    case VX_VR_US:
      return out.put(bits);
    case VX_VR_SQ:
      out.item = value;
      return kOk;
    default:
      return VX_INCOMPATIBLE_VR;
  }
}

VX_STATUS print_ds(double value, bool from_float, Converted& out) {
  // The least precise of the tries always fits.
  const int last = from_float ? 1 : 8;
  int length = 0;
  for (int precision = from_float ? 6 : 14; precision >= last; --precision) {
    length = format_g(out.bytes, sizeof out.bytes, precision, value);
    if (length >= 0 && static_cast<std::size_t>(length) <= kMaxDs) break;
  }
  out.length = static_cast<uint32_t>(length);
  return kOk;
}

float narrow(double value) {
  if (value > kFloatMax) return std::numeric_limits<float>::infinity();
  if (value < -kFloatMax) return -std::numeric_limits<float>::infinity();
  return static_cast<float>(value);
}

// The value as a whole number of type T, or out of range.
template <typename T>
VX_STATUS put_whole(double value, Converted& out) {
  constexpr double kLow = std::numeric_limits<T>::min();
  constexpr double kHigh = std::numeric_limits<T>::max();
  if (!(value >= kLow && value <= kHigh) || value != std::trunc(value)) return VX_VALUE_OUT_OF_RANGE;
  return out.put(static_cast<T>(value));
}

VX_STATUS convert_double(int32_t vr, double value, bool from_float, Converted& out) {
  switch (vr) {
    case VX_VR_DS:
      return print_ds(value, from_float, out);
    case VX_VR_IS: {
      const auto end =
          std::to_chars(out.bytes, out.bytes + sizeof out.bytes, value, std::chars_format::fixed, 0);
      out.length = static_cast<uint32_t>(end.ptr - out.bytes);
      return kOk;
    }
    case VX_VR_FD:
      return out.put(value);
    case VX_VR_FL:
      return out.put(narrow(value));
    case VX_VR_SL:
      return put_whole<int32_t>(value, out);
    case VX_VR_UL:
      return put_whole<uint32_t>(value, out);
    case VX_VR_SS:
      return put_whole<int16_t>(value, out);
    case VX_VR_US:
      return put_whole<uint16_t>(value, out);
    case VX_VR_SQ:
      if (!(value >= -2147483648.0 && value <= 2147483647.0)) return VX_VALUE_OUT_OF_RANGE;
      out.item = static_cast<int32_t>(value);
      return kOk;
    default:
      return VX_INCOMPATIBLE_VR;
  }
}

VX_STATUS convert_floating_text(int32_t vr, std::string_view text, Converted& out) {
  std::string_view rest;
  const double value = parse_double(text, &rest);
  if ((value == 0 && parse_int32(text) != 0) || std::isinf(value)) return VX_VALUE_OUT_OF_RANGE;
  if (!rest.empty()) return VX_INVALID_VALUE_FOR_VR;
  if (vr == VX_VR_FD) return out.put(value);
  const double magnitude = std::fabs(value);
  if (value == 0) return out.put(0.0F);
  if (magnitude > kFloatMax || magnitude < kFloatMin) return VX_VALUE_OUT_OF_RANGE;
  return out.put(static_cast<float>(value));
}

// Text to the VRs that are not text.
VX_STATUS convert_text(int32_t vr, std::string_view text, Converted& out) {
  switch (vr) {
    case VX_VR_SS:
    case VX_VR_US:
    case VX_VR_AT:
    case VX_VR_SL:
    case VX_VR_UL: {
      std::string_view rest;
      const uint32_t value = parse_uint32(text, &rest);
      if (!rest.empty()) return VX_INVALID_VALUE_FOR_VR;
      if (vr == VX_VR_SS || vr == VX_VR_US) return out.put(static_cast<uint16_t>(value));
      return out.put(value);
    }
    case VX_VR_FL:
    case VX_VR_FD:
      return convert_floating_text(vr, text, out);
    case VX_VR_SQ:
      out.item = parse_int32(text);
      return kOk;
    default:
      return VX_INCOMPATIBLE_VR;
  }
}

template <typename T>
T read_as(const void* value) {
  T result;
  std::memcpy(&result, value, sizeof result);
  return result;
}

VX_STATUS convert_native(int32_t vr, VX_DATA_TYPE type, const void* value, Converted& out) {
  switch (type) {
    case VX_INT_TYPE:
    case VX_LONGINT_TYPE:
      return convert_int(vr, read_as<int32_t>(value), type == VX_LONGINT_TYPE, out);
    case VX_UINT_TYPE:
    case VX_ULONGINT_TYPE:
      return convert_int(vr, read_as<uint32_t>(value), type == VX_ULONGINT_TYPE, out);
    case VX_SHORTINT_TYPE:
    case VX_USHORTINT_TYPE:
      return convert_short(vr, read_as<uint16_t>(value), type == VX_SHORTINT_TYPE, out);
    case VX_FLOAT_TYPE:
      return convert_double(vr, static_cast<double>(read_as<float>(value)), true, out);
    default:
      return convert_double(vr, read_as<double>(value), false, out);
  }
}

void log_failure(VX_DATA_TYPE type, uint32_t tag) {
  constexpr const char* kNames[] = {"String", "Int",  "Int",          "Short",       "Short",
                                    "Long",   "Long", "Float/Double", "Float/Double"};
  VX_LOG_ERR(kFunction, "Failed to convert %s to VR for tag 0x%8.8lX", kNames[type],
             static_cast<unsigned long>(tag));
}

// Commas in a text that goes to DS, FL or FD: points in the copy, or none at all.
VX_STATUS replace_commas(std::string_view& text, char (&copy)[kMaxNumberText]) {
  if (text.size() > kMaxNumberText) return VX_INVALID_VALUE_FOR_VR;
  if (text.find(',') == std::string_view::npos) return kOk;
  if (!config_bool(VX_CFG_ALLOW_COMMA_IN_DS_FL_FD_STRINGS)) return VX_INVALID_VALUE_FOR_VR;
  for (std::size_t i = 0; i < text.size(); ++i) copy[i] = text[i] == ',' ? '.' : text[i];
  text = {copy, text.size()};
  return kOk;
}

// Drops the old values when this one is to be the first, or has to be.
void begin_value(MsgObj& object, TagObj& attribute, bool& first) {
  const int32_t vr = attribute.VR;
  if (attribute.ValueCount == 0) first = true;
  if (attribute.Length == 0 && (is_numeric_vr(vr) || vr == VX_VR_SQ || is_one_value_text(vr))) first = true;
  if (!first) return;
  if (attribute.FirstValue == nullptr && attribute.Storage == Stored::InMemory && attribute.Length == 0) {
    attribute.ValueCount = 0;  // nothing to release, the common case of a decode
    attribute.CursorNumber = 0;
    attribute.CursorValue = nullptr;
    attribute.CursorPrevious = nullptr;
    return;
  }
  clear_value(object, attribute, false, config_bool(VX_CFG_RELEASE_SQ_ITEMS));
}

VX_STATUS store(MsgObj& object, TagObj& attribute, std::string_view bytes, bool first) {
  StoreFlags flags;
  flags.first = first;
  return store_value(object, attribute, bytes.data(), static_cast<uint32_t>(bytes.size()), flags);
}

bool is_encapsulated(const MsgObj& object) {
  Encoding encoding{};
  return syntax_encoding(object.TransferSyntax, encoding) == kOk && encoding.encapsulated;
}

VX_STATUS store_item(MsgObj& object, TagObj& attribute, VX_DATA_TYPE type, int32_t id) {
  MsgObj* item = find_object(id);
  if (item == nullptr || item->ObjectKind != Kind::Item) {
    log_failure(type, attribute.Tag);
    return VX_INVALID_VALUE_FOR_VR;
  }
  const TagObj* pixels = lower_bound_tag(*item, kPixelData);
  if (pixels != nullptr && pixels->Tag == kPixelData && is_encapsulated(*item) && !is_encapsulated(object)) {
    VX_LOG_ERR(kFunction, "Trying to set encapsulated pixel data (7FE0,0010) to a non-encapsulated message");
    return VX_INVALID_ENCAPSULATED_PIXEL_DATA;
  }
  VX_STATUS status = adopt_item(&object, attribute, item);
  if (status != kOk) {
    log_failure(type, attribute.Tag);
    return status;
  }
  status = append_item(attribute, *item);
  if (status != kOk) adjust_references(*item, -1);
  return status;
}

VX_STATUS store_converted(MsgObj& object, TagObj& attribute, VX_DATA_TYPE type, const Converted& converted,
                          bool first) {
  if (attribute.VR == VX_VR_SQ) return store_item(object, attribute, type, converted.item);
  const std::string_view bytes(converted.bytes, converted.length);
  const VX_STATUS checked = check_value(object, attribute.Tag, attribute.VR, bytes, nullptr);
  const VX_STATUS stored = store(object, attribute, bytes, first);
  return stored != kOk ? stored : checked;
}

// Padding that REMOVE_PADDING_CHARS takes off; a text of blanks only stays.
std::string_view remove_padding(int32_t vr, std::string_view text) {
  const std::string_view right = trim_right(text);
  if (right.empty()) return text;
  return vr == VX_VR_ST || vr == VX_VR_LT || vr == VX_VR_UT ? right : trim_left(right);
}

}  // namespace

VX_STATUS set_value(MsgObj& object, TagObj& attribute, VX_DATA_TYPE type, const void* value, bool first) {
  if (attribute.ValueCount == std::numeric_limits<int32_t>::max()) return VX_TOO_MANY_VALUES;
  if (value == nullptr) return VX_NULL_POINTER_PARM;
  if (is_bulk_vr(attribute.VR)) return VX_INCOMPATIBLE_VR;
  if (type == VX_STRING_TYPE) {
    return set_text(object, attribute, static_cast<const char*>(value), first, nullptr);
  }
  if (type < VX_STRING_TYPE || type > VX_DOUBLE_TYPE) {
    VX_LOG_ERR(kFunction, "Convert data type %d to VR failed - %s", type, status_text(VX_INVALID_DATA_TYPE));
    return VX_INVALID_DATA_TYPE;
  }
  begin_value(object, attribute, first);
  Converted converted;
  const VX_STATUS status = convert_native(attribute.VR, type, value, converted);
  if (status != kOk) {
    log_failure(type, attribute.Tag);
    return status;
  }
  return store_converted(object, attribute, type, converted, first);
}

namespace {

VX_STATUS put_text(MsgObj& object, TagObj& attribute, std::string_view text, bool first,
                   CharsetCache* charsets, bool as_it_is) {
  const int32_t vr = attribute.VR;
  if (attribute.ValueCount == std::numeric_limits<int32_t>::max()) return VX_TOO_MANY_VALUES;
  if (is_bulk_vr(vr)) return VX_INCOMPATIBLE_VR;
  char copy[kMaxNumberText];
  if (vr == VX_VR_DS || vr == VX_VR_FL || vr == VX_VR_FD) {
    const VX_STATUS status = replace_commas(text, copy);
    if (status != kOk && !(as_it_is && vr == VX_VR_DS)) return status;
  }
  begin_value(object, attribute, first);
  if (text.empty()) return is_text_vr(vr) ? append_null(attribute) : VX_INVALID_VALUE_FOR_VR;
  if (!is_text_vr(vr)) {
    Converted converted;
    const VX_STATUS status = convert_text(vr, text, converted);
    if (status != kOk) {
      log_failure(VX_STRING_TYPE, attribute.Tag);
      return status;
    }
    return store_converted(object, attribute, VX_STRING_TYPE, converted, first);
  }
  if (config_bool(VX_CFG_REMOVE_PADDING_CHARS)) text = remove_padding(vr, text);
  if (charsets != nullptr && attribute.Tag == 0x00080005) charsets->known = false;
  const VX_STATUS checked = check_value(object, attribute.Tag, vr, text, charsets);
  const VX_STATUS stored = store(object, attribute, text, first);
  return stored != kOk ? stored : checked;
}

}  // namespace

VX_STATUS set_text(MsgObj& object, TagObj& attribute, std::string_view text, bool first,
                   CharsetCache* charsets) {
  return put_text(object, attribute, text, first, charsets, false);
}

VX_STATUS set_text_as_it_is(MsgObj& object, TagObj& attribute, std::string_view text, bool first,
                            CharsetCache* charsets) {
  return put_text(object, attribute, text, first, charsets, true);
}

VX_STATUS convert_text_to_binary(int32_t vr, std::string_view text, void* buffer, uint32_t& length) {
  if (vr == VX_VR_SQ) return VX_INVALID_VALUE_FOR_VR;
  char copy[kMaxNumberText];
  if (vr == VX_VR_FL || vr == VX_VR_FD) {
    const VX_STATUS status = replace_commas(text, copy);
    if (status != kOk) return status;
  }
  Converted converted;
  const VX_STATUS status = convert_text(vr, text, converted);
  if (status != kOk) return status;
  std::memcpy(buffer, converted.bytes, converted.length);
  length = converted.length;
  return kOk;
}

}  // namespace vx
