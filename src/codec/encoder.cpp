#include <algorithm>
#include <cctype>
#include <cstring>
#include <new>
#include <unordered_map>
#include <vector>

#include "codec/reader.h"
#include "codec/saved_data.h"
#include "codec/stream_form.h"
#include "codec/stream_output.h"
#include "codec/walk.h"
#include "codec/writer.h"
#include "config/config.h"
#include "frame/byte_order.h"
#include "frame/limits.h"
#include "frame/log.h"
#include "frame/patience.h"
#include "model/attributes.h"
#include "model/callbacks.h"
#include "model/file_values.h"
#include "model/held.h"
#include "model/values.h"
#include "model/vr.h"

namespace vx {

namespace {

constexpr char kFunction[] = "VX_Message_To_Stream";

bool is_directory_offset(uint32_t tag) {
  switch (tag) {
    case 0x00041200U:
    case 0x00041202U:
    case 0x00041400U:
    case 0x00041420U:
    case 0x00041504U:
      return true;
    default:
      return false;
  }
}

class Encoder {
 public:
  explicit Encoder(const StreamWriter& writer);
  VX_STATUS run(MsgObj& object, uint32_t first, uint32_t last);

 private:
  VX_STATUS walk(MsgObj& object, TagObj* from, uint32_t last, int depth);
  bool is_behind_plain_part(uint32_t tag) const;
  VX_STATUS preamble(const MsgObj& object);
  VX_STATUS attribute(MsgObj& object, TagObj& attribute, int depth);
  VX_STATUS header(const TagObj& attribute, uint32_t length);
  VX_STATUS structure(uint32_t tag, uint32_t length);
  VX_STATUS value(MsgObj& object, TagObj& attribute, uint64_t length);
  VX_STATUS binary(MsgObj& object, TagObj& attribute, uint64_t length, bool big_endian);
  VX_STATUS texts(const TagObj& attribute, uint64_t length);
  VX_STATUS offsets(const TagObj& attribute, bool big_endian);
  VX_STATUS tags(const TagObj& attribute, bool big_endian);
  VX_STATUS bulk(const TagObj& attribute, uint32_t width, bool pad);
  VX_STATUS block(const void* data, std::size_t size, uint32_t width);
  VX_STATUS swapped_block(const uint8_t* data, std::size_t size, uint32_t width);
  VX_STATUS end_of_value(uint32_t width, bool pad);
  VX_STATUS from_callback(MsgObj& object, TagObj& attribute, uint32_t width, bool pad);
  VX_STATUS saved(const MsgObj& object);
  VX_STATUS sequence(const TagObj& attribute, int depth);
  VX_STATUS item(MsgObj& item, int depth);
  uint32_t next_length() { return walk_.undefined_lengths ? kUndefinedLength : lengths_[next_length_++]; }

  const StreamWriter& writer_;
  WalkState walk_{};
  StreamOutput out_;
  std::vector<uint32_t> lengths_;
  std::size_t next_length_ = 0;
  bool deflate_pending_ = false;
  uint8_t carry_[8];  // the start of an element that the next block completes
  uint32_t carried_ = 0;
  std::unordered_map<int32_t, int32_t> offsets_;  // of directory records, by item id
};

Encoder::Encoder(const StreamWriter& writer) : writer_(writer), out_(writer) {
  walk_.rules = export_rules(writer.destination);
  walk_.encoding = writer.encoding;
  walk_.next = writer.MetaPending ? writer.next : writer.encoding;
  walk_.meta_pending = writer.MetaPending;
  walk_.no_group_lengths = writer.NoGroupLengths;
  walk_.keep_group_lengths = writer.KeepGroupLengths;
  walk_.undefined_lengths = writer.UndefinedLengths;
  walk_.tag_list = writer.TagList;
  walk_.application_id = writer.ApplicationID;
  for (uint32_t i = 0; writer.OffsetTable != nullptr && i < writer.OffsetCount; ++i) {
    offsets_.emplace(writer.OffsetTable[2 * i], writer.OffsetTable[2 * i + 1]);
  }
}

VX_STATUS Encoder::run(MsgObj& object, uint32_t first, uint32_t last) {
  VX_STATUS status = last != 0xFFFFFFFFU ? decode_up_to(object, last) : kOk;
  if (status != kOk) return status;
  if (object.FirstTag == nullptr) return VX_MESSAGE_EMPTY;
  status = out_.open();
  if (status != kOk) return status;
  uint64_t total = 0;
  status = measure(walk_, object, first, last, &lengths_, total);
  if (status != kOk) return status;
  deflate_pending_ = writer_.Deflate && writer_.BeforeDeflate;
  if (writer_.Deflate && !writer_.BeforeDeflate) status = out_.start_deflate();
  if (status == kOk && is_file(object)) status = preamble(object);
  const WalkOrder order = walk_order(walk_, first, last);
  for (int i = 0; i < order.count && status == kOk; ++i) {
    status = walk(object, lower_bound_tag(object, order.ranges[i].first), order.ranges[i].last, 0);
  }
  if (status == kOk && last == 0xFFFFFFFFU) status = saved(object);
  return status == kOk ? out_.finish() : status;
}

// Of a stream that begins plain: the meta group of a file, or whatever is below kFirstDeflatedTag.
bool Encoder::is_behind_plain_part(uint32_t tag) const {
  return writer_.MetaPending ? tag_group(tag) != 2 : tag >= kFirstDeflatedTag;
}

VX_STATUS Encoder::preamble(const MsgObj& object) {
  const FileInfo& info = *object.File;
  if (std::memcmp(info.Prefix, "DICM", 4) != 0) {
    const auto* p = reinterpret_cast<const uint8_t*>(info.Prefix);
    const bool text = std::isprint(p[0]) && std::isprint(p[1]) && std::isprint(p[2]) && std::isprint(p[3]);
    log_line(VX_LOG_T8, kFunction,
             text ? "Warning:  Writing invalid DICOM file prefix '%c%c%c%c' in '%s'"
                  : "Warning:  Writing invalid DICOM file prefix '%X%X%X%X' in '%s'",
             p[0], p[1], p[2], p[3], info.FileName != nullptr ? info.FileName : "");
  }
  const VX_STATUS status = out_.put(info.Preamble, sizeof info.Preamble);
  return status == kOk ? out_.put(info.Prefix, sizeof info.Prefix) : status;
}

VX_STATUS Encoder::walk(MsgObj& object, TagObj* from, uint32_t last, int depth) {
  for (TagObj* a = from; a != nullptr && a->Tag <= last; a = a->Next) {
    const bool top = depth == 0;
    if (top && deflate_pending_ && is_behind_plain_part(a->Tag)) {
      deflate_pending_ = false;
      if (VX_STATUS status = out_.start_deflate(); status != kOk) return status;
    }
    bool write = false;
    VX_STATUS status = admit(walk_, object, *a, top, write);
    if (status == kOk && write) status = attribute(object, *a, depth);
    if (status != kOk) return status;
  }
  return kOk;
}

VX_STATUS Encoder::attribute(MsgObj& object, TagObj& attribute, int depth) {
  if (!is_vr(attribute.VR)) {
    VX_LOG_ERR(kFunction, "VX_Message_To_Stream: (%4.4X,%4.4X): Invalid VR code", tag_group(attribute.Tag),
               tag_element(attribute.Tag));
    return VX_SYSTEM_ERROR;
  }
  if (attribute.VR == VX_VR_SQ) return sequence(attribute, depth);
  const bool top = depth == 0;
  const uint64_t length = plain_value_length(walk_, object, attribute, top);
  const bool undefined = length == kUndefinedLength || is_encapsulated(walk_, object, attribute, top);
  if (!undefined && length > kUndefinedLength - 1) return VX_INVALID_LENGTH_FOR_VR;
  const VX_STATUS status = header(attribute, undefined ? kUndefinedLength : static_cast<uint32_t>(length));
  return status == kOk ? value(object, attribute, length) : status;
}

// PS3.5 section 7.1.
VX_STATUS Encoder::header(const TagObj& attribute, uint32_t length) {
  uint8_t* bytes = nullptr;
  if (VX_STATUS status = out_.room(kLongHeader, bytes); status != kOk) return status;
  const bool big = walk_.encoding.big_endian;
  store_tag(bytes, attribute.Tag, big);
  if (!walk_.encoding.explicit_vr) {
    store32(bytes + 4, length, big);
    out_.used(kShortHeader);
    return kOk;
  }
  char work[2];
  std::string_view letters = stream_letters(attribute, work);
  if (letters == "UN") letters = {walk_.rules.un_letters, 2};
  bool long_form = has_long_header(attribute.VR);
  if (!long_form && length > kMaxShortLength) {
    if (!walk_.rules.long_to_un) {
      VX_LOG_ERR(
          kFunction,
          "Tag 0x%8.8X has a value length that exceeds the space available to an EXPLICIT value length",
          attribute.Tag);
      return VX_INVALID_LENGTH_FOR_VR;
    }
    letters = "UN";
    long_form = true;
  }
  std::memcpy(bytes + 4, letters.data(), 2);
  if (!long_form) {
    store16(bytes + 6, static_cast<uint16_t>(length), big);
    out_.used(kShortHeader);
    return kOk;
  }
  std::memset(bytes + 6, 0, 2);
  store32(bytes + 8, length, big);
  out_.used(kLongHeader);
  return kOk;
}

// The header of an item or a delimiter.
VX_STATUS Encoder::structure(uint32_t tag, uint32_t length) {
  uint8_t* bytes = nullptr;
  if (VX_STATUS status = out_.room(kShortHeader, bytes); status != kOk) return status;
  store_tag(bytes, tag, walk_.encoding.big_endian);
  store32(bytes + 4, length, walk_.encoding.big_endian);
  out_.used(kShortHeader);
  return kOk;
}

// --- Values ---

VX_STATUS Encoder::value(MsgObj& object, TagObj& attribute, uint64_t length) {
  const int32_t vr = attribute.VR;
  // What goes out as UN is little endian whatever the stream is (PS3.5 section 6.2.2).
  const bool big = walk_.encoding.big_endian && !outgrows_header(walk_.encoding, vr, length);
  if (attribute.Storage == Stored::InMemory && attribute.Length > 0 && attribute.FirstValue == nullptr) {
    VX_LOG_ERR(kFunction, "(%4.4X,%4.4X): the value was left in its stream", tag_group(attribute.Tag),
               tag_element(attribute.Tag));
    return VX_TOO_FEW_VALUES;
  }
  if (attribute.DecoderMark == kKeptText)
    return out_.put(attribute.KeptText->Data, attribute.KeptText->Length);
  if (is_text_vr(vr)) return texts(attribute, length);
  return binary(object, attribute, length, big);
}

VX_STATUS Encoder::binary(MsgObj& object, TagObj& attribute, uint64_t length, bool big) {
  const int32_t vr = attribute.VR;
  const uint32_t width = !big                          ? 1
                         : vr != VX_VR_UN              ? vr_width(vr)
                         : wide_letter(attribute) != 0 ? kWideWidth
                                                       : 1;
  const bool pad = length == uint64_t{attribute.Length} + 1;
  if (attribute.Storage == Stored::ByCallback)
    return from_callback(object, attribute, length != kUndefinedLength ? width : 1, pad);
  if (vr == VX_VR_AT) return tags(attribute, big);
  if (is_numeric_vr(vr)) {
    const bool mapped = writer_.OffsetTable != nullptr && is_directory_offset(attribute.Tag) &&
                        (vr == VX_VR_UL || vr == VX_VR_SL);
    if (mapped) return offsets(attribute, big);
  }
  return bulk(attribute, width, pad);
}

VX_STATUS Encoder::texts(const TagObj& attribute, uint64_t length) {
  uint64_t written = 0;
  PieceWalk walk(attribute);
  while (const ValueObj* value = walk.next()) {
    VX_STATUS status = out_.put(value->Data, value->Length);
    written += value->Length;
    if (status == kOk && walk.more()) {
      status = out_.put("\\", 1);
      ++written;
    }
    if (status != kOk) return status;
  }
  if (walk.status() != kOk) return walk.status();
  if (written == length) return kOk;
  return out_.put(attribute.VR == VX_VR_UI ? "" : " ", 1);
}

// References between directory records: item ids in the object, file offsets in the stream.
VX_STATUS Encoder::offsets(const TagObj& attribute, bool big_endian) {
  for (int32_t number = 1;; ++number) {
    const void* data = numeric_value(attribute, number);
    if (data == nullptr) return kOk;
    uint32_t value = load32(data, false);
    const auto id = static_cast<int32_t>(value);
    if (const auto found = offsets_.find(id); found != offsets_.end()) {
      value = static_cast<uint32_t>(found->second);
    } else if (id != 0) {
      VX_LOG_ERR(kFunction, "Invalid item %d", id);
    }
    uint8_t* bytes = nullptr;
    if (VX_STATUS status = out_.room(sizeof value, bytes); status != kOk) return status;
    store32(bytes, value, big_endian);
    out_.used(sizeof value);
  }
}

VX_STATUS Encoder::tags(const TagObj& attribute, bool big_endian) {
  for (const ValueObj* piece = attribute.FirstValue; piece != nullptr; piece = piece->Next) {
    const auto* data = static_cast<const uint8_t*>(piece->Data);
    for (uint32_t at = 0; at + sizeof(uint32_t) <= piece->Length; at += sizeof(uint32_t)) {
      uint8_t* bytes = nullptr;
      if (VX_STATUS status = out_.room(sizeof(uint32_t), bytes); status != kOk) return status;
      store_tag(bytes, load32(data + at, false), big_endian);
      out_.used(sizeof(uint32_t));
    }
    if (const uint32_t odd = piece->Length % sizeof(uint32_t); odd != 0) {
      if (VX_STATUS status = out_.put(data + piece->Length - odd, odd); status != kOk) return status;
    }
  }
  return kOk;
}

VX_STATUS Encoder::bulk(const TagObj& attribute, uint32_t width, bool pad) {
  PieceWalk walk(attribute);
  while (const ValueObj* piece = walk.next()) {
    const VX_STATUS status = block(piece->Data, piece->Length, width);
    if (status != kOk) return status;
  }
  if (walk.status() != kOk) return walk.status();
  return end_of_value(width, pad);
}

// One block of a value; elements of `width` bytes above 1 are turned around.
VX_STATUS Encoder::block(const void* data, std::size_t size, uint32_t width) {
  if (size == 0) return kOk;
  if (width > 1) return swapped_block(static_cast<const uint8_t*>(data), size, width);
  return size >= walk_.rules.large || size > out_.free_room() ? out_.direct(data, size)
                                                              : out_.put(data, size);
}

VX_STATUS Encoder::swapped_block(const uint8_t* data, std::size_t size, uint32_t width) {
  if (carried_ != 0) {
    const auto part = static_cast<uint32_t>(std::min<std::size_t>(size, width - carried_));
    std::memcpy(carry_ + carried_, data, part);
    carried_ += part;
    data += part;
    size -= part;
    if (carried_ < width) return kOk;
    uint8_t* bytes = nullptr;
    if (VX_STATUS status = out_.room(width, bytes); status != kOk) return status;
    copy_swapped(bytes, carry_, width, width);
    out_.used(width);
    carried_ = 0;
  }
  while (size >= width) {
    uint8_t* bytes = nullptr;
    if (VX_STATUS status = out_.room(width, bytes); status != kOk) return status;
    const std::size_t fits = std::min(size, out_.free_room());
    const std::size_t part = fits - fits % width;
    copy_swapped(bytes, data, part, width);
    out_.used(part);
    data += part;
    size -= part;
  }
  carried_ = static_cast<uint32_t>(size);
  std::memcpy(carry_, data, size);
  return kOk;
}

// The pad of an odd value may complete its last element. What is no multiple of elements goes out as it is.
VX_STATUS Encoder::end_of_value(uint32_t width, bool pad) {
  const VX_STATUS status = pad ? block("", 1, width) : kOk;
  if (status != kOk) return status;
  if (width == 1 || carried_ == 0) return kOk;
  const std::size_t size = carried_;
  carried_ = 0;
  return out_.put(carry_, size);
}

VX_STATUS Encoder::from_callback(MsgObj& object, TagObj& attribute, uint32_t width, bool pad) {
  if (attribute.Length == 0) return kOk;
  const bool open_end = attribute.Length == kUndefinedLength || writer_.Deflate;
  uint64_t left = attribute.Length;
  int32_t last = 0;
  Patience patience;
  for (bool first = true; last == 0; first = false) {
    uint32_t size = 0;
    void* data = nullptr;
    VX_STATUS status = call_value_callback(object, attribute, VX_REQUEST_DATA, &size, &data, first, &last);
    if (status != kOk) {
      VX_LOG_ERR(kFunction, "Registered Callback returned %s", status_text(status));
      return VX_CALLBACK_CANNOT_COMPLY;
    }
    if (size > 0x7FFFFFFFU) {
      VX_LOG_ERR(kFunction, "Callback returned length > %d", 0x7FFFFFFF);
      return VX_CALLBACK_CANNOT_COMPLY;
    }
    if ((data == nullptr && size != 0) || (last == 0 && patience.ends(size))) {
      VX_LOG_ERR(kFunction, size != 0 ? "Callback returned no data" : "Callback returns nothing, and no end");
      return VX_CALLBACK_CANNOT_COMPLY;
    }
    if (open_end) left = size;
    if (size > left) size = static_cast<uint32_t>(left);  // the header promised no more
    status = block(data, size, width);
    if (status != kOk) return status;
    left -= size;
    if (!open_end && left == 0) break;
  }
  if (left != 0) {
    VX_LOG_ERR(kFunction, "Callback not supplying enough data, still need %llu bytes",
               static_cast<unsigned long long>(left));
    return VX_TOO_FEW_VALUES;
  }
  return end_of_value(width, pad);
}

// Data that the object keeps undecoded stand behind its attributes. The walk of the lengths has compared the
// syntaxes.
VX_STATUS Encoder::saved(const MsgObj& object) {
  const SavedData* data = saved_data(object);
  return data != nullptr ? block(data->bytes(), data->Length, 1) : kOk;
}

// --- Sequences ---

VX_STATUS Encoder::sequence(const TagObj& attribute, int depth) {
  if (depth >= kMaxNesting) return VX_INVALID_VALUE_FOR_VR;
  const uint32_t length = next_length();
  VX_STATUS status = header(attribute, length);
  for (const ValueObj* value = attribute.FirstValue; value != nullptr; value = value->Next) {
    if (status != kOk) return status;
    if (value->Data != nullptr) status = item(*static_cast<MsgObj*>(value->Data), depth + 1);
  }
  if (status != kOk || length != kUndefinedLength) return status;
  return structure(kSequenceEnd, 0);
}

VX_STATUS Encoder::item(MsgObj& item, int depth) {
  const uint32_t length = next_length();
  VX_STATUS status = structure(kItemTag, length);
  if (status == kOk) status = walk(item, item.FirstTag, 0xFFFFFFFFU, depth);
  if (status == kOk) status = saved(item);
  if (status != kOk || length != kUndefinedLength) return status;
  return structure(kItemEnd, 0);
}

}  // namespace

VX_STATUS encode_object(const StreamWriter& writer, MsgObj& object, uint32_t first, uint32_t last) try {
  const Held held(object, Hold::All);
  Encoder encoder(writer);
  return encoder.run(object, first, last);
} catch (const std::bad_alloc&) {
  return VX_SYSTEM_ERROR;
}

}  // namespace vx
