#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "config/config.h"
#include "frame/log.h"
#include "frame/text.h"
#include "model/convert.h"
#include "model/file_values.h"
#include "model/values.h"
#include "model/vr.h"

namespace vx {
namespace {

constexpr std::size_t kMaxNumberText = 49;  // of a DS or IS that is read as a number

// A stored number in the two forms that the native types are taken from.
struct Number {
  int32_t as_long = 0;
  double as_double = 0;
};

// The low half of a 64-bit integer; 0 for what such an integer can't hold.
int32_t low_bits(double value) {
  if (!(value > -9.2e18 && value < 9.2e18)) return 0;
  return static_cast<int32_t>(static_cast<uint32_t>(static_cast<int64_t>(value)));
}

// The whole part of a decimal: that of "%f", so that a value within half a millionth of the next number is
// that number, saturated to 32 bits.
int32_t whole_part(double value) {
  if (!(value > -2147483648.0)) return std::isnan(value) ? 0 : std::numeric_limits<int32_t>::min();
  if (value >= 2147483647.0) return std::numeric_limits<int32_t>::max();
  const double whole = std::trunc(value);
  if (std::fabs(value - whole) < 0.999999) return static_cast<int32_t>(whole);
  char text[32];
  const auto end = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 6);
  return parse_int32({text, static_cast<std::size_t>(end.ptr - text)});
}

constexpr double kPowersOfTen[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                   1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
constexpr int kExactDigits = 15;  // a whole number of so many digits is exact as a double

// The usual forms, "-12", "0.5", with trailing blanks, read without the library: dividing two exact numbers
// rounds once, as strtod does. False for anything else.
bool parse_plain(std::string_view text, bool decimal, Number& number) {
  const char* at = text.data();
  const char* const end = at + text.size();
  const bool negative = at != end && *at == '-';
  if (at != end && (*at == '-' || *at == '+')) ++at;
  int64_t value = 0;
  int digits = 0;
  int decimals = -1;
  for (; at != end; ++at) {
    if (*at == '.' && decimals < 0) {
      decimals = 0;
      continue;
    }
    if (*at < '0' || *at > '9') break;
    if (++digits > kExactDigits) return false;
    value = value * 10 + (*at - '0');
    if (decimals >= 0) ++decimals;
  }
  if (digits == 0 || (at != end && *at != ' ' && *at != '\0')) return false;
  if (negative && value == 0) return false;
  const double magnitude = static_cast<double>(value) / kPowersOfTen[decimals > 0 ? decimals : 0];
  number.as_double = negative ? -magnitude : magnitude;
  if (decimal) {
    number.as_long = whole_part(number.as_double);
    return true;
  }
  if (decimals >= 0 || digits > 9) return false;
  number.as_long = static_cast<int32_t>(negative ? -value : value);
  return true;
}

VX_STATUS parse_text(std::string_view text, bool decimal, Number& number) {
  if (text.size() > kMaxNumberText) return VX_INCOMPATIBLE_VALUE;
  if (parse_plain(text, decimal, number)) return kOk;
  text = text.substr(0, text.find('\0'));
  std::string_view rest;
  number.as_double = parse_double(text, &rest);
  number.as_long = parse_int32(text);
  if ((number.as_long != 0 && number.as_double == 0) || std::isinf(number.as_double)) {
    return VX_VALUE_OUT_OF_RANGE;
  }
  if (!rest.empty() && rest.front() != ' ') return VX_INCOMPATIBLE_VALUE;
  if (decimal) number.as_long = whole_part(number.as_double);
  return kOk;
}

// The bytes of the numeric value under the cursor.
VX_STATUS numeric_bytes(const TagObj& attribute, int32_t position, const void*& bytes) {
  if (attribute.Length == 0) return position <= attribute.ValueCount ? VX_NULL_VALUE : VX_NO_MORE_VALUES;
  const uint32_t width = vr_width(attribute.VR);
  if (attribute.Length % width != 0) {
    VX_LOG_WARN("VXI_GetValue", "Total attribute length (%d) not a multiple of size ",
                static_cast<int>(attribute.Length));
    VX_LOG_WARN("VXI_GetValue", "for VR (%s): %d, The length might be truncated.", vr_letters(attribute.VR),
                static_cast<int>(width));
    if (position > 1 && config_bool(VX_CFG_ALLOW_INVALID_LENGTH_FOR_VR)) return VX_NO_MORE_VALUES;
  }
  bytes = position < 1 ? nullptr : numeric_value(attribute, position);
  return bytes == nullptr ? VX_NO_MORE_VALUES : kOk;
}

template <typename T>
T read_as(const void* bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

VX_STATUS extract_numeric(const TagObj& attribute, int32_t position, Number& number) {
  const void* bytes = nullptr;
  const VX_STATUS status = numeric_bytes(attribute, position, bytes);
  if (status != kOk) return status;
  switch (attribute.VR) {
    case VX_VR_SS:
      number.as_long = read_as<int16_t>(bytes);
      break;
    case VX_VR_US:
      number.as_long = read_as<uint16_t>(bytes);
      break;
    case VX_VR_SL:
      number.as_long = read_as<int32_t>(bytes);
      break;
    case VX_VR_FL:
      number.as_double = static_cast<double>(read_as<float>(bytes));
      number.as_long = low_bits(number.as_double);
      return kOk;
    case VX_VR_FD:
      number.as_double = read_as<double>(bytes);
      number.as_long = low_bits(number.as_double);
      return kOk;
    default:  // UL and AT
      number.as_long = read_as<int32_t>(bytes);
      number.as_double = static_cast<double>(read_as<uint32_t>(bytes));
      return kOk;
  }
  number.as_double = number.as_long;
  return kOk;
}

VX_STATUS value_at(const TagObj& attribute, const ValueCursor& cursor, const ValueObj*& value) {
  value = cursor.value;
  if (attribute.Storage == Stored::InFile) {
    if (VX_STATUS status = view_file_block(attribute, cursor.number, value); status != kOk) return status;
  }
  if (value == nullptr) return VX_NO_MORE_VALUES;
  return value->Data == nullptr ? VX_NULL_VALUE : kOk;
}

std::string_view text_of(const ValueObj& value) {
  return {static_cast<const char*>(value.Data), value.Length};
}

VX_STATUS extract(const TagObj& attribute, const ValueCursor& cursor, Number& number) {
  if (is_numeric_vr(attribute.VR)) return extract_numeric(attribute, cursor.number, number);
  const bool text = attribute.VR == VX_VR_DS || attribute.VR == VX_VR_IS;
  if (!text && attribute.VR != VX_VR_SQ) return VX_INCOMPATIBLE_VR;
  const ValueObj* value = nullptr;
  const VX_STATUS status = value_at(attribute, cursor, value);
  if (status != kOk) return status;
  if (text) return parse_text(text_of(*value), attribute.VR == VX_VR_DS, number);
  number.as_long = static_cast<const MsgObj*>(value->Data)->ID;
  number.as_double = number.as_long;
  return kOk;
}

struct Bounds {
  double low;
  double high;
};
constexpr Bounds kBounds[] = {
    {0, 0},
    {-2147483648.0, 2147483647.0},
    {0, 4294967295.0},
    {-32768.0, 32767.0},
    {0, 65535.0},
    {-2147483648.0, 2147483647.0},
    {0, 4294967295.0},
    {-3.4028234663852886e38, 3.4028234663852886e38},
    {-1.7976931348623157e308, 1.7976931348623157e308},
};
constexpr uint32_t kSizes[] = {0, 4, 4, 2, 2, 4, 4, 4, 8};

template <typename T>
void write_as(void* out, T value) {
  std::memcpy(out, &value, sizeof value);
}

VX_STATUS write_number(VX_DATA_TYPE type, const Number& number, void* out) {
  if (number.as_double < kBounds[type].low || number.as_double > kBounds[type].high) {
    return VX_VALUE_OUT_OF_RANGE;
  }
  switch (type) {
    case VX_SHORTINT_TYPE: {
      const auto value = static_cast<int16_t>(number.as_long);
      write_as(out, value);
      return value == number.as_long ? kOk : VX_VALUE_OUT_OF_RANGE;
    }
    case VX_USHORTINT_TYPE: {
      const auto value = static_cast<uint16_t>(number.as_long);
      write_as(out, value);
      return value == number.as_long ? kOk : VX_VALUE_OUT_OF_RANGE;
    }
    case VX_FLOAT_TYPE:
      write_as(out, static_cast<float>(number.as_double));
      return kOk;
    case VX_DOUBLE_TYPE:
      write_as(out, number.as_double);
      return kOk;
    default:
      write_as(out, number.as_long);
      return kOk;
  }
}

template <typename T>
std::string_view print(char (&scratch)[80], T value) {
  const auto end = std::to_chars(scratch, scratch + sizeof scratch, value);
  return {scratch, static_cast<std::size_t>(end.ptr - scratch)};
}

VX_STATUS print_numeric(const TagObj& attribute, int32_t position, char (&scratch)[80],
                        std::string_view& text) {
  const void* bytes = nullptr;
  const VX_STATUS status = numeric_bytes(attribute, position, bytes);
  if (status != kOk) return status;
  int length = 0;
  switch (attribute.VR) {
    case VX_VR_SS:
      text = print(scratch, read_as<int16_t>(bytes));
      return kOk;
    case VX_VR_US:
      text = print(scratch, read_as<uint16_t>(bytes));
      return kOk;
    case VX_VR_SL:
      text = print(scratch, read_as<int32_t>(bytes));
      return kOk;
    case VX_VR_FL:
      length = format_g(scratch, sizeof scratch, 7, static_cast<double>(read_as<float>(bytes)));
      break;
    case VX_VR_FD:
      length = format_g(scratch, sizeof scratch, 16, read_as<double>(bytes));
      break;
    default:
      text = print(scratch, read_as<uint32_t>(bytes));
      return kOk;
  }
  text = {scratch, static_cast<std::size_t>(length)};
  return kOk;
}

bool takes_commas(int32_t vr) {
  return vr == VX_VR_DS || vr == VX_VR_FL || vr == VX_VR_FD;
}

VX_STATUS copy_out(int32_t vr, std::string_view text, int32_t size, char* buffer, bool comma_setting) {
  if (size < 2) return VX_BUFFER_TOO_SMALL;
  const bool fits = copy_text(buffer, static_cast<std::size_t>(size), text);
  if (comma_setting && takes_commas(vr) && config_bool(VX_CFG_RETURN_COMMA_IN_DS_FL_FD_STRINGS)) {
    char* point = std::strchr(buffer, '.');
    if (point != nullptr) *point = ',';
  }
  return fits ? kOk : VX_BUFFER_TOO_SMALL;
}

// As get_text, with the length of the copied text.
VX_STATUS read_text(TagObj& attribute, bool first, int32_t size, char* buffer, bool comma_setting,
                    uint32_t& length) {
  length = 0;
  if (size > 0) buffer[0] = '\0';
  ValueCursor cursor;
  VX_STATUS status = move_cursor(attribute, first, cursor);
  if (status != kOk) return status;
  char scratch[80];
  std::string_view text;
  status = view_text(attribute, cursor, scratch, text);
  if (status != kOk) return status;
  status = copy_out(attribute.VR, text, size, buffer, comma_setting);
  if (status == kOk) length = static_cast<uint32_t>(text.size());
  return status;
}

}  // namespace

VX_STATUS move_cursor(TagObj& attribute, bool first, ValueCursor& cursor) {
  if (attribute.VR >= VX_VR_OB && attribute.VR <= VX_VR_OF) return VX_INCOMPATIBLE_VR;
  if (attribute.Length == 0 && attribute.ValueCount == 0) return VX_EMPTY_VALUE;
  cursor = get_cursor(attribute);
  VX_STATUS status = kOk;
  if (first) {
    cursor_first(attribute, cursor);
  } else {
    status = cursor_next(attribute, cursor);
  }
  set_cursor(attribute, cursor);
  return status;
}

VX_STATUS view_text(const TagObj& attribute, const ValueCursor& cursor, char (&scratch)[80],
                    std::string_view& text) {
  if (is_numeric_vr(attribute.VR)) return print_numeric(attribute, cursor.number, scratch, text);
  if (is_bulk_vr(attribute.VR)) return VX_INCOMPATIBLE_VR;
  const ValueObj* value = nullptr;
  const VX_STATUS status = value_at(attribute, cursor, value);
  if (status != kOk) return status;
  if (attribute.VR == VX_VR_SQ) {
    text = print(scratch, static_cast<const MsgObj*>(value->Data)->ID);
  } else {
    text = text_of(*value);
  }
  return kOk;
}

VX_STATUS get_text(TagObj& attribute, bool first, int32_t size, char* buffer, bool comma_setting) {
  uint32_t length = 0;
  return read_text(attribute, first, size, buffer, comma_setting, length);
}

VX_STATUS get_number(TagObj& attribute, bool first, VX_DATA_TYPE type, void* value) {
  ValueCursor cursor;
  VX_STATUS status = move_cursor(attribute, first, cursor);
  if (status != kOk) return status;
  Number number;
  status = extract(attribute, cursor, number);
  return status != kOk ? status : write_number(type, number, value);
}

VX_STATUS get_value(MsgObj& object, TagObj& attribute, bool first, VX_DATA_TYPE type, uint32_t size,
                    void* buffer, uint32_t& length, bool comma_setting) {
  static_cast<void>(object);
  length = 0;
  if (type == VX_BUFFER_TYPE) {
    return first ? value_to_buffer(attribute, size, buffer, length) : VX_INCOMPATIBLE_VR;
  }
  if (type > VX_STRING_TYPE && type <= VX_DOUBLE_TYPE) {
    length = kSizes[type];
    if (size < length) return VX_BUFFER_TOO_SMALL;
    return get_number(attribute, first, type, buffer);
  }
  if (type == VX_STRING_TYPE) {
    const auto room = static_cast<int32_t>(std::min<uint32_t>(size, std::numeric_limits<int32_t>::max()));
    return read_text(attribute, first, room, static_cast<char*>(buffer), comma_setting, length);
  }
  if (attribute.VR >= VX_VR_OB && attribute.VR <= VX_VR_OF) return VX_INCOMPATIBLE_VR;
  if (attribute.Length == 0 && attribute.ValueCount == 0) return VX_EMPTY_VALUE;
  return VX_INVALID_DATA_TYPE;
}

}  // namespace vx
