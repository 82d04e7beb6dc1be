#include "text/bulk_text.h"

#include <algorithm>
#include <bit>

#include "codec/stream_form.h"
#include "config/transfer_syntax.h"
#include "frame/byte_order.h"
#include "frame/no_throw.h"
#include "frame/text.h"
#include "model/seams.h"
#include "model/values.h"
#include "model/vr.h"
#include "text/base64.h"

namespace vx {

namespace {

// A value that lies in one piece is handed on in steps, so that its text need not lie in one.
constexpr std::size_t kStep = 48U * 1024U;

// Calls `take` with the pieces of the value.
template <typename Take>
VX_STATUS each_piece(MsgObj& object, TagObj& attribute, Take take) {
  const auto in_order = [&](const void* data, std::size_t size) {
    if constexpr (std::endian::native == std::endian::big) {
      std::string swapped(size, '\0');
      copy_swapped(swapped.data(), data, size, vr_width(attribute.VR));
      return take(swapped.data(), size);
    } else {
      return take(static_cast<const char*>(data), size);
    }
  };
  VX_STATUS status = kOk;
  if (attribute.Storage == Stored::InMemory) {
    for (const ValueObj* piece = attribute.FirstValue; piece != nullptr; piece = piece->Next) {
      const auto* bytes = static_cast<const char*>(piece->Data);
      const std::size_t size = bytes != nullptr ? piece->Length : 0;
      for (std::size_t at = 0; at < size && status == kOk; at += kStep)
        status = in_order(bytes + at, std::min(kStep, size - at));
    }
    return status;
  }
  const auto reader = [](int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
    if (size == 0) return VX_STATUS{kOk};
    return no_throw([&] { return (*static_cast<decltype(in_order)*>(user))(data, size); });
  };
  auto work = in_order;
  status = value_to_function(object, attribute, &work, reader);
  // Nothing, or a callback that holds nothing.
  const bool empty =
      status == VX_NULL_VALUE || (status == VX_EMPTY_VALUE && attribute.Storage == Stored::ByCallback);
  return empty ? VX_STATUS{kOk} : status;
}

}  // namespace

bool wide_integers(const TagObj& attribute, std::string& bytes) {
  const char letter = wide_letter(attribute);
  if ((letter != 'S' && letter != 'U') || attribute.Storage != Stored::InMemory ||
      attribute.Length % kWideWidth != 0)
    return false;
  bytes.clear();
  for (const ValueObj* piece = attribute.FirstValue; piece != nullptr; piece = piece->Next) {
    if (piece->Data != nullptr) bytes.append(static_cast<const char*>(piece->Data), piece->Length);
  }
  return !bytes.empty();
}

std::string_view wide_text(const TagObj& attribute, const char* bytes, NumberText& text) {
  const uint64_t number = load32(bytes, false) | uint64_t{load32(bytes + 4, false)} << 32;
  const char* end = wide_letter(attribute) == 'S'
                        ? std::to_chars(text, text + kNumberText, static_cast<int64_t>(number)).ptr
                        : std::to_chars(text, text + kNumberText, number).ptr;
  return {text, static_cast<std::size_t>(end - text)};
}

bool are_fragments(std::string_view head, std::string_view tail) {
  return head.starts_with(std::string_view("\xFE\xFF\x00\xE0", 4)) &&
         tail.ends_with(std::string_view("\xFE\xFF\xDD\xE0\0\0\0\0", 8));
}

bool is_in_fragments(MsgObj& object, const TagObj& attribute) {
  if (attribute.Tag != kPixelData) return false;
  VX_TRANSFER_SYNTAX syntax = 0;
  Encoding encoding{};
  if (get_message_syntax(object, syntax) == kOk && syntax_encoding(syntax, encoding) == kOk &&
      encoding.encapsulated)
    return true;
  if (attribute.Storage == Stored::ByCallback) return attribute.Length == kUndefinedLength;
  const auto bytes = [](const ValueObj* piece) {
    return piece != nullptr && piece->Data != nullptr
               ? std::string_view(static_cast<const char*>(piece->Data), piece->Length)
               : std::string_view();
  };
  return attribute.Storage == Stored::InMemory &&
         are_fragments(bytes(attribute.FirstValue), bytes(attribute.LastValue));
}

VX_STATUS add_base64(MsgObj& object, TagObj& attribute, TextOutput& output) {
  Base64Writer base64(output.text());
  const VX_STATUS status = each_piece(object, attribute, [&](const char* data, std::size_t size) {
    base64.add(data, size);
    return output.pause();
  });
  base64.finish();
  return status;
}

VX_STATUS add_base64_lines(MsgObj& object, TagObj& attribute, TextOutput& output, std::size_t& length) {
  Base64Writer base64(output.text(), true);
  const VX_STATUS status = each_piece(object, attribute, [&](const char* data, std::size_t size) {
    base64.add(data, size);
    length += size;
    return output.pause();
  });
  base64.finish();
  return status;
}

VX_STATUS add_hex(MsgObj& object, TagObj& attribute, TextOutput& output, std::size_t& length) {
  return each_piece(object, attribute, [&](const char* data, std::size_t size) {
    std::string& out = output.text();
    for (std::size_t i = 0; i < size; ++i) {
      const auto byte = static_cast<uint8_t>(data[i]);
      if (length++ != 0) out += ' ';
      out += kHexDigits[byte >> 4];
      out += kHexDigits[byte & 15U];
    }
    return output.pause();
  });
}

}  // namespace vx
