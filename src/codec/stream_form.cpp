#include "codec/stream_form.h"

#include <algorithm>
#include <cstring>

#include "model/values.h"

namespace vx {

namespace {

struct WideTag {
  uint32_t tag;
  char letter;
};
// PS3.6 section 6, ascending.
constexpr WideTag kWideTags[] = {
    {0x0008040C, 'U'}, {0x0008040D, 'U'}, {0x00080428, 'U'}, {0x00080429, 'U'},
    {0x00146020, 'U'}, {0x00720081, 'O'}, {0x00720082, 'S'}, {0x00720083, 'U'},
    {0x7FE00001, 'O'}, {0x7FE00002, 'O'}, {0x7FE00003, 'U'},
};

// True if the values, written one behind the other, give these bytes, with one of padding if need be.
bool would_write(const TagObj& attribute, std::string_view bytes) {
  std::size_t at = 0;
  for (const ValueObj* value = attribute.FirstValue; value != nullptr; value = value->Next) {
    if (value->Length > bytes.size() - at) return false;
    if (value->Length != 0 && std::memcmp(bytes.data() + at, value->Data, value->Length) != 0) return false;
    at += value->Length;
    if (value->Next == nullptr) break;
    if (at == bytes.size() || bytes[at] != '\\') return false;
    ++at;
  }
  const char pad = attribute.VR == VX_VR_UI ? '\0' : ' ';
  return at == bytes.size() || (at % 2 != 0 && at + 1 == bytes.size() && bytes[at] == pad);
}

}  // namespace

char standard_wide_letter(uint32_t tag) {
  const auto* const row = std::lower_bound(std::begin(kWideTags), std::end(kWideTags), tag,
                                           [](const WideTag& a, uint32_t wanted) { return a.tag < wanted; });
  return row != std::end(kWideTags) && row->tag == tag ? row->letter : char{};
}

bool keep_if_changed(TagObj& attribute, std::string_view bytes) {
  if (attribute.Storage != Stored::InMemory || would_write(attribute, bytes)) return true;
  if (attribute.ValueCount == 0 && append_null(attribute) != kOk) return false;
  return keep_text(attribute, bytes);
}

bool says_less_than_kept(const TagObj& attribute) {
  if (attribute.DecoderMark != kKeptText) return false;
  const std::string_view kept(static_cast<const char*>(attribute.KeptText->Data), attribute.KeptText->Length);
  std::size_t at = 0;
  const auto skip = [&] {
    while (at < kept.size() && (kept[at] == ' ' || kept[at] == '\0')) ++at;
  };
  for (const ValueObj* value = attribute.FirstValue; value != nullptr; value = value->Next) {
    const std::string_view text(static_cast<const char*>(value->Data), value->Length);
    for (const char c : text) {
      if (c == ' ' || c == '\0') continue;
      skip();
      if (at == kept.size() || kept[at++] != c) return true;
    }
    skip();
    if (value->Next == nullptr) break;
    if (at == kept.size() || kept[at++] != '\\') return true;
  }
  return at != kept.size();
}

}  // namespace vx
