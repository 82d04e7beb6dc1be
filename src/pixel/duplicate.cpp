// VX_Duplicate_Message: a deep copy of an object, its pixels brought to another transfer syntax.
#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "codec/message_syntax.h"
#include "config/config.h"
#include "config/services.h"
#include "config/transfer_syntax.h"
#include "frame/limits.h"
#include "frame/log.h"
#include "frame/no_throw.h"
#include "frame/pool.h"
#include "frame/state.h"
#include "media/file.h"
#include "model/attributes.h"
#include "model/callbacks.h"
#include "model/convert.h"
#include "model/deferred.h"
#include "model/file_values.h"
#include "model/held.h"
#include "model/values.h"
#include "pixel/codec.h"
#include "pixel/compression.h"
#include "pixel/compression_attributes.h"
#include "pixel/encapsulated.h"
#include "pixel/frame_flow.h"
#include "pixel/image.h"
#include "pixel/recompression.h"

namespace vx {
namespace {

constexpr char kFunction[] = "VX_Duplicate_Message";
constexpr uint32_t kSyntaxTag = 0x00020010U;

struct Codecs {
  VX_COMPRESSION_CALLBACK compressor;
  VX_COMPRESSION_CALLBACK decompressor;
};

// --- The copy ---

class Duplicator {
 public:
  Duplicator(MsgObj& source, VX_TRANSFER_SYNTAX syntax, Codecs codecs, int depth)
      : source_(source), syntax_(syntax), codecs_(codecs), depth_(depth) {}

  VX_STATUS run(int32_t& target_id) {
    target_id = -1;
    if (depth_ > kMaxNesting) return VX_INVALID_VALUE_FOR_VR;
    if (VX_STATUS status = decode_all(source_); status != kOk) return status;
    VX_TRANSFER_SYNTAX own = 0;
    if (get_message_syntax(source_, own) == kOk) source_.TransferSyntax = own;
    if (!is_transfer_syntax(syntax_)) {
      VX_LOG_INF(kFunction, "Invalid transfer syntax: %d", static_cast<int>(syntax_));
      return VX_INVALID_TRANSFER_SYNTAX;
    }
    from_encapsulated_ = is_encapsulated_syntax(source_.TransferSyntax);
    to_encapsulated_ = is_encapsulated_syntax(syntax_);
    if (VX_STATUS status = check_codecs(); status != kOk) {
      VX_LOG_ERR(kFunction, "Error. %s", status_text(status));
      return status;
    }
    const Held held_source(source_, Hold::All);
    if (VX_STATUS status = open_target(target_id); status != kOk) return status;
    const Held held_target(*target_, Hold::Table);
    if (VX_STATUS status = copy_object(); status != kOk) return status;
    for (TagObj* from = source_.FirstTag; from != nullptr; from = from->Next) {
      if (from->Tag == kSyntaxTag && is_file(*target_)) continue;
      if (VX_STATUS status = copy_attribute(*from); status != kOk) return status;
    }
    return kOk;
  }

 private:
  VX_STATUS check_codecs() const {
    const bool same = source_.TransferSyntax == syntax_;
    const bool decompresses = source_.Decompressor != nullptr;
    const bool compresses = codecs_.compressor != nullptr;
    if (from_encapsulated_ && !same && !decompresses) return VX_DECOMPRESSOR_REQUIRED;
    if (to_encapsulated_ && same && compresses && !decompresses) return VX_DECOMPRESSOR_REQUIRED;
    if (to_encapsulated_ && !compresses && (!same || decompresses)) return VX_COMPRESSOR_REQUIRED;
    return kOk;
  }

  VX_STATUS open_target(int32_t& id) {
    VX_STATUS status = kOk;
    switch (source_.ObjectKind) {
      case Kind::Message:
        status = open_object(Kind::Message, kNoName, target_);
        break;
      case Kind::Item:
        status = open_item(kNoName, target_);
        break;
      case Kind::File:
        status = create_empty_file(source_.File != nullptr ? source_.File->FileName : "", target_);
        break;
      case Kind::Dicomdir:
        VX_LOG_ERR(kFunction, "Unable to duplicate DICOMDIRs!");
        return VX_INVALID_MESSAGE_ID;
      case Kind::SrItem:
        VX_LOG_ERR(kFunction, "Unable to duplicate SR objects!");
        return VX_INVALID_MESSAGE_ID;
    }
    id = target_ != nullptr ? target_->ID : -1;
    return status;
  }

  VX_STATUS copy_object() {
    MsgObj& target = *target_;
    target.TransferSyntax = syntax_;
    target.SyntaxSet = 1;
    if (target.ObjectKind != Kind::Item) {
      if (VX_STATUS status = set_message_syntax(target, syntax_); status != kOk) return status;
    }
    target.Compressor = reinterpret_cast<void*>(codecs_.compressor);
    target.Decompressor = reinterpret_cast<void*>(codecs_.decompressor);
    if (VX_STATUS status = set_object_name(target, source_.ServiceName); status != kOk) {
      VX_LOG_ERR(kFunction, "Unable to allocate buffer to store destination msg's Service Name");
      return status;
    }
    target.ServiceNumber = source_.ServiceNumber;
    target.Command = source_.Command;
    target.PrivateTag = source_.PrivateTag;
    if (target.File != nullptr && source_.File != nullptr) {
      std::memcpy(target.File->Preamble, source_.File->Preamble, sizeof target.File->Preamble);
      std::memcpy(target.File->Prefix, source_.File->Prefix, sizeof target.File->Prefix);
    }
    for (const CNode* node = source_.Callbacks.Head; node != nullptr; node = node->Next) {
      auto* record = new_object<CBObj>(Pool::CBObj);
      if (record == nullptr) return VX_SYSTEM_ERROR;
      *record = *static_cast<const CBObj*>(node->Data);
      if (list_add_tail(target.Callbacks, record) == nullptr) {
        pool_free(Pool::CBObj, record);
        return VX_SYSTEM_ERROR;
      }
    }
    return kOk;
  }

  VX_STATUS copy_attribute(TagObj& from) {
    MsgObj& target = *target_;
    TagObj* to = find_tag(target, from.Tag);
    if (to != nullptr) {
      clear_value(target, *to, true, true);
    } else if (VX_STATUS status = new_tag(target, from.Tag, from.VR, from.VMLow, from.VMHigh, &to);
               status != kOk) {
      return status;
    }
    to->VR = from.VR;
    to->VMLow = from.VMLow;
    to->VMHigh = from.VMHigh;
    to->Template = from.Template;
    to->DecoderMark = from.DecoderMark == kKeptText ? char{} : from.DecoderMark;
    to->Storage = from.Storage == Stored::ByCallback ? Stored::ByCallback : Stored::InMemory;
    VX_STATUS status = kOk;
    if (from.Tag == kPixelData) {
      status = copy_pixels(from, *to);
      if (status == VX_EMPTY_VALUE) status = kOk;
    } else if (from.VR == VX_VR_SQ) {
      status = copy_items(from, *to);
    } else if (from.Storage == Stored::ByCallback) {
      status = copy_from_callback(from, *to);
    } else {
      status = copy_chain(from, *to);
    }
    if (status == kOk) restore_cursor(from, *to);
    return status;
  }

  static void restore_cursor(const TagObj& from, TagObj& to) {
    ValueCursor cursor;
    cursor_first(to, cursor);
    if (from.CursorNumber > 1) cursor_nth(to, cursor, from.CursorNumber);
    set_cursor(to, cursor);
  }

  VX_STATUS copy_chain(const TagObj& from, TagObj& to) const {
    if (from.Storage == Stored::InFile) return copy_file(from, to);
    for (const ValueObj* value = from.FirstValue; value != nullptr; value = value->Next) {
      ValueObj* copy = new_piece(to, value->Length);
      if (copy == nullptr) return VX_SYSTEM_ERROR;
      if (value->Length != 0) std::memcpy(copy->Data, value->Data, value->Length);
      append_value(to, copy, 0, value->Length);
    }
    to.ValueCount = from.ValueCount;
    to.Length = from.Length;
    return kOk;
  }

  VX_STATUS copy_file(const TagObj& from, TagObj& to) const {
    if (goes_to_file(*target_, to, from.Length)) {
      if (VX_STATUS status = begin_file_value(*target_, to); status != kOk) return status;
    }
    PieceWalk walk(from);
    for (bool first = true; const ValueObj* piece = walk.next(); first = false) {
      const VX_STATUS status = piece->Length == 0 ? append_null(to)
                                                  : store_value(*target_, to, piece->Data, piece->Length,
                                                                {.first = first, .last = !walk.more()});
      if (status != kOk) return status;
    }
    return walk.status();
  }

  VX_STATUS copy_from_callback(TagObj& from, TagObj& to) const {
    MsgObj& target = *target_;
    bool first = true;
    const VX_STATUS status = read_plain(source_, from, [&](void* data, uint32_t size, bool last) {
      const VX_STATUS stored = store_value(target, to, data, size, {.first = first, .last = last});
      first = false;
      return stored;
    });
    return status == VX_EMPTY_VALUE ? kOk : status;
  }

  VX_STATUS copy_items(const TagObj& from, TagObj& to) const {
    for (const ValueObj* value = from.FirstValue; value != nullptr; value = value->Next) {
      auto* item = static_cast<MsgObj*>(value->Data);
      if (item == nullptr) {
        if (VX_STATUS status = append_null(to); status != kOk) return status;
        continue;
      }
      const bool icon = to_encapsulated_ && config_bool(VX_CFG_DUPLICATE_ENCAPSULATED_ICON) &&
                        find_tag(*item, kPixelData) != nullptr;
      int32_t id = -1;
      Duplicator copy(*item, icon ? syntax_ : EXPLICIT_LITTLE_ENDIAN, icon ? codecs_ : Codecs{}, depth_ + 1);
      VX_STATUS status = copy.run(id);
      MsgObj* made = find_object(id);
      if (status == kOk && made == nullptr) status = VX_SYSTEM_ERROR;
      if (status == kOk) status = adopt_item(target_, to, made);
      if (status == kOk) {
        status = append_item(to, *made);
        if (status != kOk) adjust_references(*made, -1);
      }
      if (status != kOk) {
        if (made != nullptr) free_item(*made, true);
        return status;
      }
    }
    return kOk;
  }

  // --- Pixel Data ---

  VX_STATUS copy_pixels(TagObj& from, TagObj& to) {
    if (!from_encapsulated_ && !to_encapsulated_) {
      return from.Storage == Stored::ByCallback ? copy_from_callback(from, to) : copy_chain(from, to);
    }
    if (to_encapsulated_ && source_.TransferSyntax == syntax_ && codecs_.compressor == nullptr) {
      to.VR = VX_VR_OB;
      return from.Storage == Stored::ByCallback ? copy_from_callback(from, to) : copy_chain(from, to);
    }
    if (keeps_streams()) {
      to.VR = VX_VR_OB;
      return recompress_pixels(source_, from, *target_, to);
    }
    const std::string label =
        from_encapsulated_ ? decompressed_photometric(source_, source_.TransferSyntax) : "";
    char own[21];
    read_text(source_, kPhotometric, own, sizeof own);
    const bool to_rgb = !label.empty() && is_packed_422(own);
    // The label is right before the target's compressor looks at it; so is the order of samples.
    if (!label.empty()) {
      if (VX_STATUS status = put_text(*target_, kPhotometric, label); status != kOk) {
        VX_LOG_WARN(kFunction, "Unable to set Photometric Interpretation after decompression: %s",
                    status_text(status));
      }
    }
    if (from_encapsulated_ && !keeps_layout(source_.TransferSyntax)) clear_planar();
    if (!to_encapsulated_) return decompress_pixels(from, to, to_rgb);
    const VX_STATUS status = compress_pixels(from, to, to_rgb);
    if (status != kOk) return status;
    const bool compressed = (syntax_ >= JPEG_BASELINE && syntax_ <= MPEG2_MPML) || syntax_ > PRIVATE_SYNTAX_2;
    if (compressed && !keeps_layout(syntax_)) clear_planar();
    return kOk;
  }

  // Codecs of the application have their say; the general ones would only make what is there again.
  bool keeps_streams() const {
    return keeps_jpeg_streams(source_.TransferSyntax, syntax_) &&
           codecs_.compressor == VX_General_Compressor &&
           source_.Decompressor == reinterpret_cast<void*>(VX_General_Decompressor);
  }

  void clear_planar() {
    uint32_t planar = 0;
    TagObj* attribute = find_tag(*target_, kPlanarConfiguration);
    if (attribute == nullptr || read_number(*target_, kPlanarConfiguration, planar) != kOk || planar == 0)
      return;
    planar = 0;
    set_value(*target_, *attribute, VX_UINT_TYPE, &planar, true);
  }

  VX_STATUS decompress_pixels(TagObj& from, TagObj& to, bool to_rgb) {
    MsgObj& target = *target_;
    uint32_t bits = 0;
    read_number(source_, kBitsAllocated, bits);
    to.VR = bits > 8 ? VX_VR_OW : VX_VR_OB;
    bool first = true;
    uint64_t total = 0;
    uint64_t frame = 0;
    frame_bits(source_, frame);
    const uint64_t uneven = uneven_bits(source_);
    const uint64_t least = ((to_rgb ? frame / 2 * 3 : frame) * frame_count(source_) + 7) / 8;
    BitFrames joiner(uneven, BitFrames::kEndless);
    return read_frames(source_, from, to_rgb, [&](const void* data, uint32_t size, bool last) -> VX_STATUS {
      if (uneven != 0) {
        const std::vector<uint8_t>& joined = joiner.add(data, size, last);
        data = joined.data();
        size = static_cast<uint32_t>(joined.size());
      }
      total += size;
      if (last && total < least) {
        VX_LOG_ERR(kFunction, "Unable to duplicate, the value has less than %u frames.",
                   frame_count(source_));
        return VX_CANNOT_COMPLY;
      }
      const bool pads = last && total % 2 != 0;  // all frames together are even
      const auto store = [&](const void* bytes, uint32_t count, bool ends) {
        return store_value(target, to, bytes, count, {.first = std::exchange(first, false), .last = ends});
      };
      VX_STATUS status = size == 0 && (!last || pads) ? kOk : store(data, size, last && !pads);
      if (status == kOk && pads) status = store("", 1, true);
      return status;
    });
  }

  VX_STATUS compress_pixels(TagObj& from, TagObj& to, bool to_rgb) {
    to.VR = from.VR;
    FrameFeeder feeder(*target_, to);
    if (from.Length == 0 && from.Storage != Stored::ByCallback) return copy_chain(from, to);
    if (VX_STATUS status = feeder.begin(); status != kOk) return status;
    const uint64_t uneven = from_encapsulated_ ? 0 : uneven_bits(source_);
    uint64_t left =
        (uneven * frame_count(source_) + 7) / 8;  // bytes of all frames; what is behind them is a pad
    BitFrames cutter(BitFrames::kEndless, uneven);
    const auto feed = [&](const void* data, uint32_t size, bool last) {
      const auto part = static_cast<uint32_t>(std::min<uint64_t>(size, left));
      if (part == 0) return feeder.feed(data, size, last);
      left -= part;
      const std::vector<uint8_t>& cut = cutter.add(data, part, false);
      const bool all = part == size;
      VX_STATUS status = feeder.feed(cut.data(), static_cast<uint32_t>(cut.size()), last && all);
      if (status == kOk && !all)
        status = feeder.feed(static_cast<const uint8_t*>(data) + part, size - part, last);
      return status;
    };
    VX_STATUS status =
        from_encapsulated_ ? read_frames(source_, from, to_rgb, feed) : read_plain(source_, from, feed);
    if (status != kOk) return status;
    status = close_encapsulated(*target_, to);
    to.VR = VX_VR_OB;
    if (status == kOk && config_bool(VX_CFG_UPDATE_GROUP_0028_ON_DUPLICATE))
      write_compression_attributes(*target_);
    return status;
  }

  MsgObj& source_;
  const VX_TRANSFER_SYNTAX syntax_;
  const Codecs codecs_;
  const int depth_;
  MsgObj* target_ = nullptr;
  bool from_encapsulated_ = false;
  bool to_encapsulated_ = false;
};

}  // namespace
}  // namespace vx

VX_STATUS VX_Duplicate_Message(int32_t SourceID, int32_t* DestID, VX_TRANSFER_SYNTAX TransferSyntax,
                               VX_COMPRESSION_CALLBACK Compressor, VX_COMPRESSION_CALLBACK Decompressor) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(DestID);
  *DestID = -1;
  vx::end_parked_objects();
  vx::MsgObj* source = vx::find_object(SourceID);
  if (source == nullptr) return VX_INVALID_MESSAGE_ID;
  return vx::no_throw([&] {
    return vx::Duplicator(*source, TransferSyntax, {Compressor, Decompressor}, 0).run(*DestID);
  });
}
