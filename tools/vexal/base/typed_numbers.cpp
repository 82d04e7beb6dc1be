#include "typed_numbers.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>
#include <string_view>

#include "names.h"
#include "thrown.h"

namespace vexal {
namespace {

struct Range {
  const char* letters;
  int64_t low;
  uint64_t high;
};
constexpr Range kRanges[] = {
    {"US", 0, UINT16_MAX},        {"SS", INT16_MIN, INT16_MAX}, {"UL", 0, UINT32_MAX},
    {"SL", INT32_MIN, INT32_MAX}, {"UV", 0, UINT64_MAX},        {"SV", INT64_MIN, INT64_MAX},
};
constexpr char kTags[] = "AT";

const Range* range_row(std::string_view letters) {
  const auto* const row = std::find_if(std::begin(kRanges), std::end(kRanges),
                                       [&](const Range& r) { return letters == r.letters; });
  return row != std::end(kRanges) ? row : nullptr;
}

// The number's bits, those of two's complement if it is negative.
VX_STATUS parse_whole(std::string_view text, const Range& range, uint64_t& bits) {
  const auto is_blank = [](char c) { return c == ' '; };
  while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
  while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, bits);
  if (text.empty() || read.ec == std::errc::invalid_argument || read.ptr != end)
    return VX_INVALID_VALUE_FOR_VR;
  const uint64_t most = negative ? uint64_t{0} - static_cast<uint64_t>(range.low) : range.high;
  if (read.ec != std::errc() || bits > most) return VX_VALUE_OUT_OF_RANGE;
  if (negative) bits = uint64_t{0} - bits;
  return VX_NORMAL_COMPLETION;
}

VX_STATUS gather(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  static_cast<std::string*>(user)->append(static_cast<const char*>(data), size);
  return VX_NORMAL_COMPLETION;
}

VX_STATUS set_wide(int32_t object, uint32_t tag, const std::string& letters, uint64_t bits, bool first) {
  std::string bytes;
  if (!first) VX_Get_Value_To_Function(object, tag, &bytes, guarded<gather>);
  char number[sizeof bits];
  std::memcpy(number, &bits, sizeof bits);
  bytes.append(number, sizeof number);
  const VX_STATUS status =
      VX_Set_Value_From_Buffer(object, tag, bytes.data(), static_cast<uint32_t>(bytes.size()));
  return status == VX_NORMAL_COMPLETION ? VX_Set_VR_Letters(object, tag, letters.c_str()) : status;
}

VX_STATUS set_bits(int32_t object, uint32_t tag, uint32_t bits, bool first) {
  return first ? VX_Set_Value_From_UInt(object, tag, bits) : VX_Set_Next_Value_From_UInt(object, tag, bits);
}

}  // namespace

std::string letters_of(int32_t object, uint32_t tag) {
  char letters[3] = "";
  const bool there = VX_Get_VR_Letters(object, tag, letters) == VX_NORMAL_COMPLETION;
  if (!there || std::strcmp(letters, "UN") == 0) {
    const std::string_view known = standard_vr(tag);
    if (known == "OV" || known == "SV" || known == "UV") return std::string(known);
  }
  if (there) return letters;
  char name[128];
  VX_VR vr = VX_VR_UN;
  uint16_t low = 0;
  uint16_t high = 0;
  const VX_STATUS status = VX_Get_Tags_Dict_Info(tag, name, sizeof name, &vr, &low, &high);
  return status == VX_NORMAL_COMPLETION ? vr_letters(vr) : "";
}

bool is_wide_integer(const std::string& letters) {
  return letters == "SV" || letters == "UV";
}

bool set_number(int32_t object, uint32_t tag, const std::string& text, bool first, VX_STATUS& status) {
  const std::string letters = letters_of(object, tag);
  uint32_t pointed = 0;
  if (letters == kTags) {
    status = parse_tag(text, pointed) ? set_bits(object, tag, pointed, first) : VX_INVALID_VALUE_FOR_VR;
    return true;
  }
  const Range* range = range_row(letters);
  if (range == nullptr) return false;
  uint64_t bits = 0;
  status = parse_whole(text, *range, bits);
  if (status != VX_NORMAL_COMPLETION) return true;
  status = is_wide_integer(letters) ? set_wide(object, tag, letters, bits, first)
                                    : set_bits(object, tag, static_cast<uint32_t>(bits), first);
  return true;
}

std::string range_of(const std::string& letters) {
  if (letters == kTags) return "a tag, as (gggg,eeee), gggg,eeee, ggggeeee or a keyword";
  const Range* range = range_row(letters);
  if (range == nullptr) return "";
  return "a whole number from " + std::to_string(range->low) + " to " + std::to_string(range->high);
}

}  // namespace vexal
