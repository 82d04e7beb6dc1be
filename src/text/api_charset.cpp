// Exported functions of Unicode text.
#include <algorithm>

#include "frame/log.h"
#include "frame/no_throw.h"
#include "frame/state.h"
#include "model/attributes.h"
#include "model/convert.h"
#include "model/values.h"
#include "model/vr.h"
#include "text/charset.h"
#include "text/charset_rows.h"

using namespace vx;

namespace {

// What Unicode_To_Byte writes for a character that no set has.
constexpr char kSubstitute = '\x1A';

VX_STATUS not_ready(const char* function) {
  VX_LOG_ERR(function, "Unicode library not initialized");
  return VX_CANNOT_COMPLY;
}

std::u16string_view units_of(const char16_t* text, int32_t length) {
  return length < 0 ? std::u16string_view(text) : std::u16string_view(text, static_cast<std::size_t>(length));
}

VX_STATUS hand_over(std::size_t size, int32_t available, const char* function) {
  if (available >= 0 && size <= static_cast<std::size_t>(available)) return kOk;
  VX_LOG_ERR(function, "Buffer size not enough, avail %d, need %d", available, static_cast<int>(size));
  return VX_BUFFER_TOO_SMALL;
}

// The sets of the names as the caller gave them; VX_CANNOT_COMPLY, logged.
VX_STATUS sets_to_encode(const char* const* names, int32_t count, TextCharsets& sets) {
  constexpr char kFunction[] = "VX_Unicode_To_Byte";
  if (count > TextCharsets::kMax) {
    VX_LOG_ERR(kFunction,
               "Can't support more than 6 character sets in one message, total character set is %d", count);
    return VX_CANNOT_COMPLY;
  }
  std::string_view views[TextCharsets::kMax];
  const auto used = static_cast<std::size_t>(std::max(count, 0));
  for (std::size_t i = 0; i < used; ++i) {
    views[i] = names[i] != nullptr ? names[i] : "";
    if (views[i].empty()) views[i] = used > 1 ? "ISO 2022 IR 6" : "ISO_IR 6";
    const CharsetRow* row = find_charset(views[i]);
    if (row != nullptr && used > 1) row = extended_charset(*row);
    if (row == nullptr || !charset_available(*row)) {
      VX_LOG_ERR(
          kFunction,
          used > 1 ? "Unsupported character set for code extensions: %s" : "Unsupported character set %s",
          std::string(views[i]).c_str());
      return VX_CANNOT_COMPLY;
    }
  }
  sets = text_charsets(std::span<const std::string_view>(views, used));
  return kOk;
}

VX_STATUS set_unicode(int32_t id, uint32_t tag, int32_t length, const char16_t* text, bool first) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(text);
  if (!unicode_enabled()) return not_ready("VX_Set_Value_From_UnicodeString");
  MsgObj* const object = find_object(id);
  if (object == nullptr) return VX_INVALID_MESSAGE_ID;
  TagObj* attribute = nullptr;
  VX_STATUS status = find_to_change(*object, tag, attribute);
  if (status != kOk) return status;
  if (!has_character_set(attribute->VR)) return VX_INCOMPATIBLE_VR;
  TextCharsets sets;
  status = text_charsets(*object, sets);
  if (status != kOk) {
    VX_LOG_ERR("VX_Set_Value_From_UnicodeString", "VXI_GetSpecificCharSetValue failed with status %s",
               status_text(status));
    return status;
  }
  std::string bytes;
  const TextResult result = encode_text(sets, units_of(text, length), bytes, kSubstitute);
  if (result == TextResult::NoIcu) return not_ready("VX_Set_Value_From_UnicodeString");  // gone meanwhile
  if (result == TextResult::Lost) {
    VX_LOG_WARN("VX_Set_Value_From_UnicodeString",
                "Text of attribute (%04X,%04X) has characters that are in none of its character sets",
                tag >> 16, tag & 0xFFFFU);
  }
  return set_value(*object, *attribute, VX_STRING_TYPE, bytes.c_str(), first);
}

VX_STATUS get_unicode(int32_t id, uint32_t tag, int32_t room, int32_t* length, char16_t* buffer, bool first) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(buffer);
  VX_REQUIRE_POINTER(length);
  if (room <= 0) return VX_NULL_POINTER_PARM;
  if (!unicode_enabled()) return not_ready("VX_Get_Value_To_UnicodeString");
  MsgObj* object = nullptr;
  TagObj* attribute = nullptr;
  VX_STATUS status = find_attribute(id, tag, object, attribute);
  if (status != kOk) return status;
  if (!has_character_set(attribute->VR)) return VX_INCOMPATIBLE_VR;
  TextCharsets sets;
  status = text_charsets(*object, sets);
  if (status != kOk) {
    VX_LOG_ERR("VX_Get_Value_To_UnicodeString", "VXI_GetSpecificCharSetValue failed with status: %s",
               status_text(status));
    return status;
  }
  ValueCursor cursor;
  char scratch[80];
  std::string_view bytes;
  status = move_cursor(*attribute, first, cursor);
  if (status == kOk) status = view_text(*attribute, cursor, scratch, bytes);
  if (status == VX_NULL_VALUE) {
    *length = 0;
    *buffer = u'\0';
    return kOk;
  }
  if (status != kOk) return status;
  bytes = bytes.substr(0, bytes.find('\0'));
  std::u16string wide;
  if (decode_text(sets, bytes, attribute->VR == VX_VR_PN, wide) == TextResult::NoIcu)
    return not_ready("VX_Get_Value_To_UnicodeString");
  *length = static_cast<int32_t>(wide.size());
  status = hand_over(wide.size(), room, "VX_Get_Value_To_UnicodeString");
  if (status != kOk) return status;
  std::copy(wide.begin(), wide.end(), buffer);
  if (*length < room) buffer[wide.size()] = u'\0';
  return kOk;
}

}  // namespace

extern "C" {

VX_STATUS VX_Enable_Unicode_Conversion(int32_t Enable) {
  return no_throw([&] { return enable_unicode(Enable != 0); });
}

VX_STATUS VX_Byte_To_Unicode(const char* Charset, const char* Bytes, int32_t Length, int32_t BufferChars,
                             int32_t* OutLength, char16_t* Buffer) {
  constexpr char kFunction[] = "VX_Byte_To_Unicode";
  if (!unicode_enabled()) return not_ready(kFunction);
  VX_REQUIRE_POINTER(Bytes);
  VX_REQUIRE_POINTER(OutLength);
  VX_REQUIRE_POINTER(Buffer);
  return no_throw([&] {
    std::string_view name = Charset != nullptr ? Charset : "";
    if (name.empty()) name = "ISO 2022 IR 6";
    std::string_view unknown;
    const TextCharsets sets = text_charsets(std::span<const std::string_view>(&name, 1), &unknown);
    if (!unknown.empty())
      VX_LOG_WARN(kFunction, "Unknown character set %s. Decoding using charset ISO_IR 100", Charset);
    const std::string_view text =
        Length < 0 ? std::string_view(Bytes) : std::string_view(Bytes, static_cast<std::size_t>(Length));
    std::u16string wide;
    if (decode_text(sets, text, false, wide) == TextResult::NoIcu) return not_ready(kFunction);
    *OutLength = static_cast<int32_t>(wide.size());
    const VX_STATUS status = hand_over(wide.size(), BufferChars, kFunction);
    if (status == kOk) std::copy(wide.begin(), wide.end(), Buffer);
    return status;
  });
}

VX_STATUS VX_Unicode_To_Byte(const char* const* Charsets, int32_t Count, const char16_t* Text, int32_t Length,
                             int32_t BufferSize, int32_t* OutLength, char* Buffer) {
  constexpr char kFunction[] = "VX_Unicode_To_Byte";
  if (!unicode_enabled()) return not_ready(kFunction);
  if (Count > 0) VX_REQUIRE_POINTER(Charsets);
  VX_REQUIRE_POINTER(Text);
  VX_REQUIRE_POINTER(OutLength);
  VX_REQUIRE_POINTER(Buffer);
  return no_throw([&] {
    TextCharsets sets;
    VX_STATUS status = sets_to_encode(Charsets, Count, sets);
    if (status != kOk) return status;
    std::string bytes;
    const TextResult result = encode_text(sets, units_of(Text, Length), bytes, kSubstitute);
    if (result == TextResult::NoIcu) return not_ready(kFunction);
    if (result == TextResult::Lost)
      VX_LOG_WARN(kFunction, "The text has characters that are in none of the character sets");
    *OutLength = static_cast<int32_t>(bytes.size());
    status = hand_over(bytes.size(), BufferSize, kFunction);
    if (status == kOk) std::copy(bytes.begin(), bytes.end(), Buffer);
    return status;
  });
}

VX_STATUS VX_Set_Value_From_UnicodeString(int32_t MsgID, uint32_t Tag, int32_t Length, const char16_t* Text) {
  return no_throw([&] { return set_unicode(MsgID, Tag, Length, Text, true); });
}

VX_STATUS VX_Set_Next_Value_From_UnicodeString(int32_t MsgID, uint32_t Tag, int32_t Length,
                                               const char16_t* Text) {
  return no_throw([&] { return set_unicode(MsgID, Tag, Length, Text, false); });
}

VX_STATUS VX_Get_Value_To_UnicodeString(int32_t MsgID, uint32_t Tag, int32_t BufferChars, int32_t* OutLength,
                                        char16_t* Buffer) {
  return no_throw([&] { return get_unicode(MsgID, Tag, BufferChars, OutLength, Buffer, true); });
}

VX_STATUS VX_Get_Next_Value_To_UnicodeString(int32_t MsgID, uint32_t Tag, int32_t BufferChars,
                                             int32_t* OutLength, char16_t* Buffer) {
  return no_throw([&] { return get_unicode(MsgID, Tag, BufferChars, OutLength, Buffer, false); });
}

}  // extern "C"
