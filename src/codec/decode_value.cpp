// Values: texts and numbers whole, bulk data in pieces that grow with what has arrived.
#include <algorithm>
#include <cstring>

#include "codec/decoder.h"
#include "config/config.h"
#include "frame/byte_order.h"
#include "frame/limits.h"
#include "frame/log.h"
#include "frame/text.h"
#include "model/attributes.h"
#include "model/callbacks.h"
#include "model/convert.h"
#include "model/file_values.h"
#include "model/values.h"
#include "model/vr.h"

namespace vx {

namespace {

constexpr uint32_t kMaxSimpleLength = 0x80000000U;
constexpr uint32_t kCharacterSet = 0x00080005U;
constexpr uint32_t kNumberOfFrames = 0x00280008U;
constexpr uint32_t kMaxValueLength = 0xFFFFFFF0U;
constexpr uint32_t kMinFramePiece = 4096;  // smaller frames would cost more than they hold
constexpr uint32_t kPieceAlignment = 8;
constexpr std::size_t kSmallBlock = 1024;
constexpr std::size_t kFragmentHeader = 8;

// The text up to a NUL, and whether a backslash is in it.
std::string_view text_of(const char* bytes, std::size_t length, bool& splits) {
  constexpr std::size_t kShort = 32;  // where a search by library functions does not pay
  std::string_view text(bytes, length);
  if (length > kShort) {
    text = text.substr(0, text.find('\0'));
    splits = text.find('\\') != std::string_view::npos;
    return text;
  }
  for (std::size_t i = 0; i < length; ++i) {
    if (bytes[i] == '\0') return text.substr(0, i);
    splits = splits || bytes[i] == '\\';
  }
  return text;
}
bool all_blank(std::string_view text) {
  return text.find_first_not_of(' ') == std::string_view::npos;
}
std::string_view cut_trailing_blank(std::string_view text, bool on) {
  if (on && !text.empty() && text.back() == ' ' && !all_blank(text)) text.remove_suffix(1);
  return text;
}
std::string_view cut_nuls(std::string_view text) {
  while (!text.empty() && text.back() == '\0') text.remove_suffix(1);
  return text;
}
// Only then a backslash may be part of a character.
bool may_hold_wide_characters(int32_t vr, std::string_view text) {
  if (vr != VX_VR_LO && vr != VX_VR_PN && vr != VX_VR_SH && vr != VX_VR_UC) return false;
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return c == '\x1B' || static_cast<uint8_t>(c) >= 0x80; });
}
bool is_stored_all_the_same(VX_STATUS status) {
  return status == kOk || status == VX_INVALID_VALUE_FOR_VR || status == VX_INVALID_CHARS_IN_VALUE;
}
// Words that a big endian stream has the other way round; the value model turns numbers itself.
uint32_t word_width(int32_t vr) {
  return vr == VX_VR_OW || vr == VX_VR_OL || vr == VX_VR_OD || vr == VX_VR_OF ? vr_width(vr) : 1;
}

}  // namespace

Decoder::Outcome Decoder::read_value(Frame& frame, TagObj& attribute, const Element& element, bool from_un) {
  if (element.length == 0) {
    if (attribute.Storage == Stored::ByCallback) unbind_one(frame.object, attribute);
    return set_null(frame.object, attribute);
  }
  if (attribute.VR == VX_VR_SQ) {
    if (stops_at(frame, element.tag)) return kOk;
    const VX_STATUS status = read_sequence(frame, attribute, element.length, from_un);
    return {status, status == kOk};
  }
  return is_bulk_vr(attribute.VR) ? read_bulk(frame, attribute, element)
                                  : read_simple(frame, attribute, element);
}

// --- Texts and numbers ---

Decoder::Outcome Decoder::read_simple(Frame& frame, TagObj& attribute, const Element& element) {
  if (element.length >= kMaxSimpleLength) {
    fault("(%4.4X,%4.4X): length 0x%8.8X is not possible for VR %s", tag_group(element.tag),
          tag_element(element.tag), element.length, vr_letters(attribute.VR));
    return {VX_VALUE_TOO_LARGE, false};
  }
  const uint8_t* bytes = nullptr;
  VX_STATUS status = count_bytes(element.length);
  if (status == kOk) status = in_.take(element.length, bytes);
  if (status == kOk && is_limited() && is_text_vr(attribute.VR))
    status = count_parts(static_cast<uint64_t>(std::count(bytes, bytes + element.length, uint8_t{'\\'})));
  if (status != kOk) return {status, false};
  if (stops_at(frame, element.tag)) return kOk;
  status = set_simple(frame, attribute, bytes, element.length, encoding_.big_endian);
  if (attribute.Tag == kCharacterSet) frame.charsets.known = false;
  return status;
}

VX_STATUS Decoder::set_simple(Frame& frame, TagObj& attribute, const uint8_t* bytes, uint32_t length,
                              bool big_endian) {
  if (is_numeric_vr(attribute.VR)) {
    return store_value(frame.object, attribute, bytes, length,
                       {.first = true, .last = true, .from_stream = true, .big_endian = big_endian});
  }
  if (keep_) return set_texts_to_keep(frame, attribute, {reinterpret_cast<const char*>(bytes), length});
  bool splits = false;
  const std::string_view text = text_of(reinterpret_cast<const char*>(bytes), length, splits);
  return set_texts(frame, attribute, text, splits);
}

VX_STATUS Decoder::set_texts(Frame& frame, TagObj& attribute, std::string_view text, bool splits) {
  MsgObj& object = frame.object;
  const bool cut = config_bool(VX_CFG_REMOVE_SINGLE_TRAILING_SPACE);
  const auto set = keep_ ? set_text_as_it_is : set_text;
  if (!splits || is_one_value_text(attribute.VR)) {
    return set(object, attribute, cut_trailing_blank(text, cut), true, &frame.charsets);
  }
  SplitMode mode = kSplitPlain;
  if (may_hold_wide_characters(attribute.VR, text)) {
    CharsetMasks masks;
    if (charset_masks(object, &frame.charsets, masks) == kOk) {
      mode = needs_escape_aware_split(masks);
    }
  }
  VX_STATUS result = kOk;
  std::size_t start = 0;
  for (bool first = true;; first = false) {
    const std::size_t end = split_point(text, start, mode);
    std::string_view piece = text.substr(start, end - start);
    if (keep_) piece = cut_nuls(piece);
    const VX_STATUS status = set(object, attribute, cut_trailing_blank(piece, cut), first, &frame.charsets);
    if (status == VX_SYSTEM_ERROR || (!keep_ && !is_stored_all_the_same(status))) return status;
    if (status != kOk) result = status;
    if (end >= text.size()) return result;
    start = end + 1;
  }
}

// Padding is none.
void Decoder::warn_behind_nul(uint32_t tag, std::string_view text) {
  const std::size_t nul = text.find('\0');
  if (nul == std::string_view::npos ||
      text.find_first_not_of(std::string_view(" \0", 2), nul) == std::string_view::npos)
    return;
  warn("(%4.4X,%4.4X): text behind a NUL", tag_group(tag), tag_element(tag));
}

// The text as before, but where characters are free, what stands behind a NUL belongs to it. What its values
// would not write again is kept beside them.
VX_STATUS Decoder::set_texts_to_keep(Frame& frame, TagObj& attribute, std::string_view bytes) {
  bool splits = false;
  std::string_view text = text_of(bytes.data(), bytes.size(), splits);
  if (text.size() != bytes.size()) {
    if (has_character_set(attribute.VR)) {
      text = cut_nuls(bytes);
      splits = text.find('\\') != std::string_view::npos;
    } else {
      warn_behind_nul(attribute.Tag, bytes);
    }
  }
  const VX_STATUS status = set_texts(frame, attribute, text, splits);
  // One value of that length is these bytes: most texts are, and commas become points in DS alone.
  const ValueObj* const value = attribute.FirstValue;
  if (!splits && attribute.VR != VX_VR_DS && value != nullptr && value->Length == bytes.size()) return status;
  if (status == VX_SYSTEM_ERROR || !keep_if_changed(attribute, bytes)) return VX_SYSTEM_ERROR;
  return status;
}

// --- Bulk values ---

Decoder::Outcome Decoder::read_bulk(Frame& frame, TagObj& attribute, const Element& element) {
  MsgObj& object = frame.object;
  const uint32_t length = element.length;
  if (request_.ApplicationID != 0 && attribute.Storage != Stored::ByCallback && attribute.VR != VX_VR_UN) {
    bind_one(request_.ApplicationID, object, attribute);
  }
  if (attribute.Storage == Stored::ByCallback &&
      length < static_cast<uint32_t>(config_long(VX_CFG_CALLBACK_MIN_DATA_SIZE))) {
    unbind_one(object, attribute);
  }
  const bool bound = attribute.Storage == Stored::ByCallback;
  const bool stop = stops_at(frame, element.tag);
  const bool kept = stop || (request_.KeepValuesOut && bound);
  attribute.ValueOffset = static_cast<uint32_t>(std::min<uint64_t>(in_.offset(), kUndefinedLength));
  if (bound) {
    if (VX_STATUS status = announce(object, attribute, length, kept); status != kOk) {
      return {status, false};
    }
  }
  VX_STATUS status = kOk;
  // The announced length decides where the value lives, before a byte of it has come.
  if (!kept && element.swap_width == 0 && goes_to_file(object, attribute, length)) {
    clear_value(object, attribute, true, false);
    if (status = begin_file_value(object, attribute); status != kOk) return {status, false};
  }
  if (kept) {
    attribute.ValueCount = 1;
    attribute.Length = length;
    if (!stop) status = length == kUndefinedLength ? skip_fragments() : in_.discard(length);
  } else if (length == kUndefinedLength) {
    status = read_encapsulated(frame, attribute, element.tag);
  } else if (element.tag == kPixelData && frame.depth == 0 && encoding_.encapsulated) {
    fault("Defined length pixel data encountered in encapsulated transfer syntax");
    status = VX_INVALID_VALUE_FOR_VR;
  } else {
    Run run{.length = length};
    if (element.swap_width != 0) {
      run.width = element.swap_width;
    } else if (encoding_.big_endian) {
      run.width = word_width(attribute.VR);
    }
    run.direct = attribute.Storage == Stored::InMemory;
    if (element.tag == kPixelData) run.piece = frame_size(object, length);
    if (run.direct) status = count_bytes(length);
    if (status == kOk) status = read_run(object, attribute, run);
  }
  return {status, status == kOk};
}

// Tells the callback that holds the attribute about its value.
VX_STATUS Decoder::announce(MsgObj& object, TagObj& attribute, uint32_t length, bool kept) {
  const uint64_t offset = in_.offset();
  uint32_t narrow = static_cast<uint32_t>(offset);
  const bool fits = offset <= 0xFFFFFFFFU;
  if (!fits && kept) {
    fault("(%4.4X,%4.4X): value at offset %llu cannot be left in the stream", tag_group(attribute.Tag),
          tag_element(attribute.Tag), static_cast<unsigned long long>(offset));
    return VX_VALUE_TOO_LARGE;
  }
  void* data = fits ? &narrow : nullptr;
  uint32_t size = length;
  int32_t last = 0;
  const VX_STATUS status = call_value_callback(
      object, attribute, kept ? VX_PROVIDE_LENGTH_KEPT : VX_PROVIDE_LENGTH, &size, &data, true, &last);
  return status == kOk ? status : VX_CALLBACK_CANNOT_COMPLY;
}

// The bytes of one frame, where pieces that end with frames are worth having; else 0.
uint32_t Decoder::frame_size(MsgObj& object, uint32_t length) const {
  const TagObj* attribute = find_tag(object, kNumberOfFrames);
  if (attribute == nullptr) return 0;
  char scratch[80];
  std::string_view text;
  ValueCursor cursor;
  cursor_first(*attribute, cursor);
  if (view_text(*attribute, cursor, scratch, text) != kOk) return 0;
  const int32_t frames = parse_int32(text);
  if (frames <= 1 || length % static_cast<uint32_t>(frames) != 0) return 0;
  const uint32_t size = length / static_cast<uint32_t>(frames);
  return size >= kMinFramePiece && size % kPieceAlignment == 0 ? size : 0;
}

VX_STATUS Decoder::read_run(MsgObj& object, TagObj& attribute, const Run& run) {
  for (uint64_t done = 0; done < run.length;) {
    if (VX_STATUS status = in_.need_any(); status != kOk) return status;
    uint32_t got = 0;
    const VX_STATUS status = run.direct ? read_piece(object, attribute, run, done, got)
                                        : store_chunk(object, attribute, run, done, got);
    if (status != kOk) return status;
    done += got;
  }
  return kOk;
}

// One piece of the value, filled where it lies. Its size follows what has arrived, not what was announced.
VX_STATUS Decoder::read_piece(MsgObj& object, TagObj& attribute, const Run& run, uint64_t done,
                              uint32_t& got) {
  const uint64_t left = run.length - done;
  const auto largest = 100 * static_cast<uint64_t>(pixel_buffer_size());
  uint64_t size = std::min(std::max<uint64_t>({kReadChunk, done, in_.available()}), largest);
  if (run.piece != 0) size = std::min(size, run.piece - done % run.piece);
  if (size >= left) {
    size = left;
  } else {
    size -= size % kPieceAlignment;
  }
  const bool first = run.first && done == 0;
  if ((first ? 0 : attribute.Length) + size > kMaxValueLength) return VX_VALUE_TOO_LARGE;
  void* bytes = nullptr;
  VX_STATUS status = reserve_value(object, attribute, static_cast<uint32_t>(size), first, bytes);
  if (status != kOk) return status;
  status = fill_piece(static_cast<uint8_t*>(bytes), static_cast<uint32_t>(size), run.width, got);
  if (got < size) {
    attribute.LastValue->Length = got;
    attribute.Length -= static_cast<uint32_t>(size) - got;
  }
  return status;
}

VX_STATUS Decoder::fill_piece(uint8_t* bytes, uint32_t length, uint32_t width, uint32_t& got) {
  while (got < length) {
    if (VX_STATUS status = in_.need_any(); status != kOk) return status;
    auto part = static_cast<uint32_t>(std::min<std::size_t>(in_.available(), length - got));
    if (width == 1) {
      std::memcpy(bytes + got, in_.bytes(), part);
    } else {
      if (part < width) {  // an element that spans blocks, or the odd end of the value
        part = std::min(width, length - got);
        const uint8_t* whole = nullptr;
        const VX_STATUS status = in_.need(part, whole);
        if (status == VX_END_OF_DATA) {
          part = static_cast<uint32_t>(in_.available());
        } else if (status != kOk) {
          return status;
        }
      }
      if (part >= width) part -= part % width;
      if (part % width == 0) {
        copy_swapped(bytes + got, in_.bytes(), part, width);
      } else {
        std::memcpy(bytes + got, in_.bytes(), part);
      }
    }
    in_.advance(part);
    got += part;
  }
  return kOk;
}

// One piece for a value that does not lie in memory, or may go elsewhere.
VX_STATUS Decoder::store_chunk(MsgObj& object, TagObj& attribute, const Run& run, uint64_t done,
                               uint32_t& got) {
  const uint64_t left = run.length - done;
  std::size_t chunk = in_.available();
  if (chunk < kSmallBlock) chunk = std::max<std::size_t>(chunk, work_buffer_size());
  chunk = static_cast<std::size_t>(std::min<uint64_t>(chunk, left));
  const uint8_t* bytes = nullptr;
  const VX_STATUS ended = in_.need(chunk, bytes);
  if (ended == VX_END_OF_DATA) {
    chunk = in_.available();
    bytes = in_.bytes();
  } else if (ended != kOk) {
    return ended;
  }
  bool swap = run.width > 1;
  if (swap && chunk >= run.width) {
    chunk -= chunk % run.width;
  } else if (swap && (ended == VX_END_OF_DATA || left < run.width)) {
    swap = false;  // the odd end of the value
  }
  if ((run.first && done == 0 ? 0 : attribute.Length) + static_cast<uint64_t>(chunk) > kMaxValueLength) {
    return VX_VALUE_TOO_LARGE;
  }
  const StoreFlags flags{.first = run.first && done == 0,
                         .last = run.last && done + chunk == run.length,
                         .from_stream = true,
                         .big_endian = swap};
  const VX_STATUS status = store_value(object, attribute, bytes, static_cast<uint32_t>(chunk), flags);
  if (status != kOk) {
    return attribute.Storage == Stored::ByCallback && status != VX_SYSTEM_ERROR ? VX_CALLBACK_CANNOT_COMPLY
                                                                                : status;
  }
  in_.advance(chunk);
  got = static_cast<uint32_t>(chunk);
  return kOk;
}

// --- Encapsulated values (PS3.5 section A.4) ---

// Kept as they lie in the stream: the item of the offset table as a piece of its own, the fragments with
// their headers, the delimiter.
VX_STATUS Decoder::read_encapsulated(Frame& frame, TagObj& attribute, uint32_t tag) {
  MsgObj& object = frame.object;
  if (frame.depth > 0) {
    object.SyntaxSet = 1;
    object.TransferSyntax = encoding_.syntax;
  }
  if (!encoding_.encapsulated) {
    warn("Undefined length pixel data encountered in non-encapsulated transfer syntax");
  }
  if (tag != kPixelData) {
    warn("Undefined length attribute (%.4X,%.4X) encountered in message that should not be undefined",
         tag_group(tag), tag_element(tag));
  }
  bool first = true;
  for (;;) {
    uint32_t length = 0;
    bool ended = false;
    VX_STATUS status = next_fragment(length, ended);
    if (status != kOk) return status;
    if (ended) break;
    status = read_fragment(object, attribute, length, first);
    if (status != kOk) return status;
    first = false;
  }
  uint8_t delimiter[kFragmentHeader] = {};
  store_tag(delimiter, kSequenceEnd, false);
  const VX_STATUS status = store_value(object, attribute, delimiter, sizeof delimiter,
                                       {.first = first, .last = true, .from_stream = true});
  return status == kOk || attribute.Storage != Stored::ByCallback ? status : VX_CALLBACK_CANNOT_COMPLY;
}

// Looks at the next item header, which stays; a delimiter is taken.
VX_STATUS Decoder::next_fragment(uint32_t& length, bool& ended) {
  const uint8_t* header = nullptr;
  const VX_STATUS status = in_.need(kFragmentHeader, header);
  if (status == VX_END_OF_DATA && in_.available() == 0) {
    warn("(%4.4X,%4.4X): End of file encountered before sequence delimiter encountered", tag_group(tag_),
         tag_element(tag_));
    ended = true;
    return kOk;
  }
  if (status != kOk) return status;
  const uint32_t tag = load_tag(header, encoding_.big_endian);
  length = load32(header + 4, encoding_.big_endian);
  if (tag == kSequenceEnd) {
    in_.advance(kFragmentHeader);
    ended = true;
    return kOk;
  }
  if (tag == kItemTag && length != kUndefinedLength) return kOk;
  fault("Expecting item tag or sequence delimiter in stream, encountered (%.4X,%.4X)", tag_group(tag),
        tag_element(tag));
  return VX_INVALID_VALUE_FOR_VR;
}

VX_STATUS Decoder::read_fragment(MsgObj& object, TagObj& attribute, uint32_t length, bool first) {
  const bool bound = attribute.Storage == Stored::ByCallback;
  const auto refused = [bound](VX_STATUS status) {
    return bound && status != VX_SYSTEM_ERROR ? VX_CALLBACK_CANNOT_COMPLY : status;
  };
  Run run{.length = kFragmentHeader + uint64_t{length}, .first = first, .last = false};
  run.direct = attribute.Storage == Stored::InMemory;
  if (encoding_.big_endian) {  // headers are kept in little endian
    uint8_t header[kFragmentHeader];
    store_tag(header, kItemTag, false);
    store32(header + 4, length, false);
    in_.advance(kFragmentHeader);
    const VX_STATUS status = store_value(object, attribute, header, sizeof header,
                                         {.first = first, .last = false, .from_stream = true});
    if (status != kOk) return refused(status);
    run.length = length;
    run.first = false;
  } else if (first) {
    if (run.length > kMaxValueLength) return VX_VALUE_TOO_LARGE;
    const uint8_t* bytes = nullptr;
    VX_STATUS status = in_.take(static_cast<std::size_t>(run.length), bytes);
    if (status != kOk) return status;
    status = store_value(object, attribute, bytes, static_cast<uint32_t>(run.length),
                         {.first = true, .last = false, .from_stream = true});
    return status == kOk ? status : refused(status);
  }
  return read_run(object, attribute, run);
}

}  // namespace vx
