#include "pixel/offset_table.h"

#include <algorithm>

#include "frame/byte_order.h"
#include "frame/limits.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "model/seams.h"
#include "model/values.h"
#include "pixel/codec.h"
#include "pixel/image.h"
#include "pixel/value_source.h"

namespace vx {
namespace {

constexpr char kFunction[] = "VXI_stripItems";

}  // namespace

OFFSET_TABLE_CONTEXT* encapsulation(MsgObj& object) {
  return static_cast<OFFSET_TABLE_CONTEXT*>(object.EncapsulationState);
}

OFFSET_TABLE_CONTEXT* new_encapsulation(MsgObj& object, bool keep_auxiliary) {
  OffsetTable* auxiliary = nullptr;
  uint32_t room = 0;
  bool to_rgb = false;
  if (OFFSET_TABLE_CONTEXT* old = encapsulation(object); old != nullptr) {
    if (keep_auxiliary) {
      auxiliary = old->AuxiliaryTable;
      room = old->AuxiliaryRoom;
      old->AuxiliaryTable = nullptr;
      to_rgb = old->ToRgb;
    }
    release_encapsulation_state(object);
  }
  auto* context = static_cast<OFFSET_TABLE_CONTEXT*>(allocate(sizeof(OFFSET_TABLE_CONTEXT)));
  if (context == nullptr) {
    VX_LOG_ERR(kFunction, "Failed to allocate OFFSET_TABLE_CONTEXT");
    release(auxiliary);
    return nullptr;
  }
  context->AuxiliaryTable = auxiliary;
  context->AuxiliaryRoom = room;
  context->ToRgb = to_rgb;
  object.EncapsulationState = context;
  return context;
}

void release_encapsulation_state(MsgObj& object) {
  OFFSET_TABLE_CONTEXT* context = encapsulation(object);
  if (context == nullptr) return;
  object.EncapsulationState = nullptr;
  release_decoder(object, *context);
  release(context->MainTable);
  release(context->AuxiliaryTable);
  release(context);
}

VX_STATUS release_decoder(MsgObj& object, OFFSET_TABLE_CONTEXT& context) {
  if (!context.Decoding) return kOk;
  context.Decoding = false;
  void* bytes = nullptr;
  uint32_t size = 0;
  const auto callback = reinterpret_cast<VX_COMPRESSION_CALLBACK>(object.Decompressor);
  const VX_STATUS status =
      callback != nullptr ? callback(object.ID, &context.Decoder, 0, nullptr, &size, &bytes, 0, 0, 1) : kOk;
  context.Decoder = nullptr;
  return status;
}

namespace {

// Entries must ascend from the first fragment on and stay inside the value.
bool table_fits(const OffsetTable& table, uint32_t frames, uint32_t value_length) {
  const uint32_t count = table.count();
  if (count == 0 || table.Length % 4 != 0 || table.entry(0) != 0) return false;
  if (count != frames) {
    VX_LOG_WARN(kFunction, "Offset table with %u entries, the image has %u frames", count, frames);
  }
  const uint64_t room = value_length == kUndefinedLength ? UINT64_MAX : uint64_t{value_length};
  for (uint32_t i = 1; i < count; ++i) {
    if (table.entry(i) <= table.entry(i - 1)) return false;
  }
  return uint64_t{table.entry(count - 1)} + table.Length + 2 * kItemHeader <= room;
}

// The entries arrive in steps: an announced length is believed as far as there are bytes.
VX_STATUS read_table(ValueSource& source, uint32_t length, OFFSET_TABLE_CONTEXT& context) {
  for (uint32_t done = 0; done < length || context.MainTable == nullptr;) {
    const uint32_t step = std::min<uint32_t>(length - done, kReadChunk);
    auto* grown = static_cast<OffsetTable*>(
        reallocate(sizeof(OffsetTable) + std::size_t{done} + step, context.MainTable));
    if (grown == nullptr) return VX_SYSTEM_ERROR;
    context.MainTable = grown;
    grown->Tag = kItemTag;
    grown->Length = 0;
    VX_STATUS status =
        source.copy(kItemHeader + done, step, reinterpret_cast<uint8_t*>(grown->Entries) + done);
    if (status != kOk) return status;
    done += step;
    grown->Length = done;
  }
  context.TableRoom = length;
  return kOk;
}

}  // namespace

VX_STATUS read_head(MsgObj& object, TagObj& attribute, OFFSET_TABLE_CONTEXT& context) {
  ValueSource source(object, attribute);
  uint8_t header[kItemHeader];
  if (VX_STATUS status = source.copy(0, sizeof header, header); status != kOk) return status;
  if (load_tag(header, false) != kItemTag) return VX_MISSING_DELIMITER;
  const uint32_t length = load32(header + 4, false);
  const uint32_t total = source.length();
  if (length > (total == kUndefinedLength ? UINT32_MAX / 2 : total - kItemHeader))
    return VX_ENCAPSULATED_TOO_SHORT;
  release(context.MainTable);
  context.MainTable = nullptr;
  if (VX_STATUS status = read_table(source, length, context); status != kOk) return status;
  const uint32_t frames = frame_count(object);
  context.HeadBytes = kItemHeader + length;
  context.TableUsable = frames > 1 && length != 0 && table_fits(*context.MainTable, frames, total);
  if (frames > 1 && length != 0 && !context.TableUsable) {
    VX_LOG_WARN(kFunction, "The offset table does not fit its value and is passed over");
  }
  return kOk;
}

const OffsetTable* table_in_use(const OFFSET_TABLE_CONTEXT& context, uint32_t frames) {
  if (context.TableUsable) return context.MainTable;
  const OffsetTable* made = context.AuxiliaryTable;
  return made != nullptr && frames > 1 && made->count() == frames ? made : nullptr;
}

namespace {

// Offsets of frames, as many as are wanted and one more at most.
struct FoundFrames {
  OffsetTable* table = nullptr;
  uint32_t room = 0;
  uint32_t count = 0;

  bool add(uint64_t offset, uint32_t wanted) {
    return count++ > wanted || append_offset(table, room, static_cast<uint32_t>(offset));
  }
};

// If a fragment begins a code stream of JPEG, JPEG-LS or JPEG 2000, and if it ends one. A stream of JPEG XL
// has no mark at its end: it goes on to the next beginning.
void read_marks(ValueSource& source, uint32_t at, uint32_t length, bool is_xl, bool& begins, bool& ends) {
  uint8_t first[12] = {};
  uint8_t last[3] = {};
  source.copy(at, std::min<uint32_t>(length, sizeof first), first);
  if (is_xl) {
    begins = is_jpegxl(first, sizeof first);
    ends = true;
    return;
  }
  begins = length >= 2 && first[0] == 0xFF && (first[1] == 0xD8 || first[1] == 0x4F);
  ends = length >= 3 && source.copy(at + length - 3, 3, last) == kOk;
  const uint8_t* end = last[2] == 0 ? last : last + 1;  // a pad may stand behind it
  ends = ends && end[0] == 0xFF && end[1] == 0xD9;
}

// True if the frame begins and ends with a fragment where the table says so.
bool table_holds(MsgObj& object, TagObj& attribute, const OFFSET_TABLE_CONTEXT& context, uint32_t frame) {
  const OffsetTable& table = *context.MainTable;
  if (attribute.Storage == Stored::ByCallback || frame >= table.count()) return true;
  ValueSource source(object, attribute);
  source.begin_at(context.Piece, context.PieceStart);
  const bool last = frame + 1 == table.count();
  const uint64_t end = uint64_t{context.HeadBytes} + (last ? 0 : table.entry(frame + 1));
  uint64_t position = uint64_t{context.HeadBytes} + table.entry(frame);
  // Of the last frame the head tells: what follows is its own.
  for (bool first = true; first || (!last && position < end); first = false) {
    uint8_t header[kItemHeader];
    if (position + kItemHeader > source.length() ||
        source.copy(static_cast<uint32_t>(position), sizeof header, header) != kOk ||
        load_tag(header, false) != kItemTag) {
      return false;
    }
    position += kItemHeader + uint64_t{load32(header + 4, false)};
  }
  return last || position == end;
}

}  // namespace

VX_STATUS find_fragments(MsgObj& object, TagObj& attribute, OFFSET_TABLE_CONTEXT& context) {
  const uint32_t frames = frame_count(object);
  if (frames == 1 || attribute.Storage == Stored::ByCallback || table_in_use(context, frames) != nullptr)
    return kOk;
  ValueSource source(object, attribute);
  FoundFrames fragments;
  FoundFrames streams;
  VX_TRANSFER_SYNTAX syntax = 0;
  const bool is_xl = encapsulated_syntax(object, syntax) == kOk && codec_for(syntax) == &kJpegXlCodec;
  bool ended = true;
  VX_STATUS status = kOk;
  for (uint64_t position = context.HeadBytes; position + kItemHeader <= source.length();) {
    uint8_t header[kItemHeader];
    status = source.copy(static_cast<uint32_t>(position), sizeof header, header);
    if (status != kOk || load_tag(header, false) != kItemTag) break;
    const uint32_t length = load32(header + 4, false);
    const uint64_t offset = position - context.HeadBytes;
    position += kItemHeader;
    const bool follows_end = ended;
    bool begins = false;
    if (position + length <= source.length())
      read_marks(source, static_cast<uint32_t>(position), length, is_xl, begins, ended);
    if (!fragments.add(offset, frames) || (begins && follows_end && !streams.add(offset, frames))) {
      status = VX_SYSTEM_ERROR;
      break;
    }
    position += length;
  }
  // Where the fragments outnumber the frames, only the code streams in them can tell.
  FoundFrames& found = fragments.count == frames ? fragments : streams;
  if (status == kOk && found.count == frames && found.table->entry(0) == 0) {
    release(context.AuxiliaryTable);
    context.AuxiliaryTable = found.table;
    context.AuxiliaryRoom = found.room;
    found.table = nullptr;
  }
  release(fragments.table);
  release(streams.table);
  return status == VX_SYSTEM_ERROR ? status : kOk;
}

VX_STATUS settle_table(MsgObj& object, TagObj& attribute, OFFSET_TABLE_CONTEXT& context, uint32_t frame) {
  if (!context.TableUsable || table_holds(object, attribute, context, frame)) return kOk;
  VX_LOG_WARN(kFunction, "The offset table does not fit its value and is passed over");
  context.TableUsable = false;
  return find_fragments(object, attribute, context);
}

}  // namespace vx
