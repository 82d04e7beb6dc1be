// Sequences and their items, and values that are passed over.
#include <algorithm>

#include "codec/decoder.h"
#include "codec/saved_data.h"
#include "config/config.h"
#include "config/services.h"
#include "frame/byte_order.h"
#include "frame/limits.h"
#include "frame/log.h"
#include "model/values.h"
#include "model/vr.h"

namespace vx {

namespace {

// The encoding that holds outside comes back when a sequence ends, however it ends.
class EncodingScope {
 public:
  explicit EncodingScope(Encoding& encoding) : encoding_(encoding), outer_(encoding) {}
  ~EncodingScope() { encoding_ = outer_; }
  EncodingScope(const EncodingScope&) = delete;
  EncodingScope& operator=(const EncodingScope&) = delete;

 private:
  Encoding& encoding_;
  const Encoding outer_;
};

}  // namespace

VX_STATUS Decoder::not_an_item(uint32_t tag) {
  fault("Item tag (FFFE,E000) expected, (%.4X,%.4X) encountered in stream", tag_group(tag), tag_element(tag));
  return VX_INVALID_VALUE_FOR_VR;
}

bool Decoder::too_deep(int depth) {
  if (depth <= kMaxNesting) return false;
  fault("Sequences are nested in more than %d levels", kMaxNesting);
  return true;
}

// Takes the header of the next item, or of the delimiter. Inside a UN value both are little endian even where
// the stream is not (PS3.5 section 6.2.2).
VX_STATUS Decoder::next_item(bool from_un, uint32_t& tag, uint32_t& length) {
  const uint8_t* header = nullptr;
  if (VX_STATUS status = in_.take(8, header); status != kOk) return status;
  tag = load_tag(header, encoding_.big_endian);
  if (from_un && encoding_.big_endian && tag_group(tag) == 0xFEFF) {
    encoding_ = {IMPLICIT_LITTLE_ENDIAN, false, false, encoding_.encapsulated};
    tag = load_tag(header, false);
  }
  length = load32(header + 4, encoding_.big_endian);
  return kOk;
}

VX_STATUS Decoder::read_sequence(Frame& frame, TagObj& attribute, uint32_t length, bool from_un) {
  if (too_deep(frame.depth + 1)) return VX_INVALID_VALUE_FOR_VR;
  const EncodingScope scope(encoding_);
  const bool undefined = length == kUndefinedLength;
  uint64_t remaining = length;
  bool any = false;
  const bool records =
      request_.Directory != nullptr && frame.depth == 0 && attribute.Tag == kDirectoryRecords;
  if (records) {
    request_.Directory->met = true;
    request_.Directory->records.clear();  // of a sequence that this one takes the place of
  }
  while (undefined || remaining > 0) {
    if (!undefined && remaining < 8) {
      fault("(%4.4X,%4.4X): sequence length leaves %u bytes that are no item", tag_group(attribute.Tag),
            tag_element(attribute.Tag), static_cast<uint32_t>(remaining));
      return VX_INVALID_VALUE_FOR_VR;
    }
    const uint64_t start = in_.offset();
    uint32_t tag = 0;
    uint32_t item_length = 0;
    VX_STATUS status = next_item(from_un, tag, item_length);
    if (status != kOk) return status;
    if (undefined && tag == kSequenceEnd) break;
    if (tag != kItemTag) return not_an_item(tag);
    status = count_parts(1);
    if (status == kOk) status = read_item(frame, attribute, item_length, from_un);
    if (status == kOk && records) status = note_record(start, attribute);
    if (status != kOk) return status;
    any = true;
    if (undefined) continue;
    const uint64_t used = in_.offset() - start;
    if (used > remaining) {
      fault("(%4.4X,%4.4X): an item goes on behind the end of its sequence, at offset %llu",
            tag_group(attribute.Tag), tag_element(attribute.Tag),
            static_cast<unsigned long long>(in_.offset()));
      return VX_INVALID_VALUE_FOR_VR;
    }
    remaining -= used;
  }
  return any ? kOk : set_null(frame.object, attribute);
}

VX_STATUS Decoder::note_record(uint64_t offset, const TagObj& attribute) {
  auto* record = static_cast<MsgObj*>(attribute.LastValue->Data);
  request_.Directory->records.push_back({offset, record});
  return request_.Directory->save_records ? save_attributes(*record, kFirstRecordKey) : kOk;
}

VX_STATUS Decoder::read_item(Frame& frame, TagObj& attribute, uint32_t length, bool from_un) {
  MsgObj* item = nullptr;
  VX_STATUS status = open_object(Kind::Item, kNoName, item);
  if (status != kOk) return status;
  status = adopt_item(&frame.object, attribute, item);
  if (status == kOk) status = append_item(attribute, *item);
  if (status != kOk) {
    free_item(*item, true);
    return status;
  }
  if (from_un) item->FirstElementTest = 1;
  if (length == 0) return status;

  Frame inner{*item, frame.depth + 1};
  inner.extent = length == kUndefinedLength ? Extent::Undefined : Extent::Defined;
  inner.start = in_.offset();
  inner.end = inner.start + length;
  inner.first_test = from_un;
  if (frame.charsets.known) inner.charsets = frame.charsets;  // until the item brings its own
  status = decode_elements(inner);
  if (status == kOk && inner.extent == Extent::Defined && in_.offset() > inner.end) {
    warn("(%4.4X,%4.4X): an item of %u bytes holds %llu", tag_group(attribute.Tag),
         tag_element(attribute.Tag), length, static_cast<unsigned long long>(in_.offset() - inner.start));
  }
  return status;
}

// --- What is passed over ---

VX_STATUS Decoder::skip_value(const Element& element, int depth) {
  const bool undefined = element.length == kUndefinedLength;
  if (undefined && element.vr == VX_VR_UN && element.wide == 0 && element.tag != kPixelData) {
    return skip_sequence(depth, encoding_.explicit_vr);
  }
  if (element.vr == VX_VR_SQ && undefined) return skip_sequence(depth, false);
  if (!is_bulk_vr(element.vr) && element.vr != VX_VR_SQ && element.length >= 0x80000000U) {
    fault("(%4.4X,%4.4X): length 0x%8.8X is not possible for VR %s", tag_group(element.tag),
          tag_element(element.tag), element.length, vr_letters(element.vr));
    return VX_VALUE_TOO_LARGE;
  }
  return undefined ? skip_fragments() : in_.discard(element.length);
}

VX_STATUS Decoder::skip_fragments() {
  for (;;) {
    uint32_t length = 0;
    bool ended = false;
    VX_STATUS status = next_fragment(length, ended);
    if (status == kOk && !ended) status = in_.discard(8 + uint64_t{length});
    if (status != kOk || ended) return status;
  }
}

// Of undefined length: a defined one is passed over whole.
VX_STATUS Decoder::skip_sequence(int depth, bool from_un) {
  if (too_deep(depth + 1)) return VX_INVALID_VALUE_FOR_VR;
  const EncodingScope scope(encoding_);
  for (;;) {
    uint32_t tag = 0;
    uint32_t length = 0;
    VX_STATUS status = next_item(from_un, tag, length);
    if (status != kOk) return status;
    if (tag == kSequenceEnd) return kOk;
    if (tag != kItemTag) return not_an_item(tag);
    status = length == kUndefinedLength ? skip_item(depth + 1, from_un) : in_.discard(length);
    if (status != kOk) return status;
  }
}

VX_STATUS Decoder::skip_item(int depth, bool first_test) {
  for (;; first_test = false) {
    const uint8_t* header = nullptr;
    VX_STATUS status = in_.need(8, header);
    if (status == VX_END_OF_DATA && in_.available() == 0) {
      fault("Missing Item Delimiter in input stream");
      return VX_INVALID_VALUE_FOR_VR;
    }
    if (status != kOk) return status;
    Element element;
    element.tag = load_tag(header, encoding_.big_endian);
    if (first_test) status = first_element_test(header, element.tag);
    if (status != kOk) return status;
    in_.advance(8);
    if (element.tag == kItemEnd) return kOk;
    if (tag_group(element.tag) == 0xFFFE) return not_an_item(element.tag);
    element.tag = load_tag(header, encoding_.big_endian);
    status = read_length(header, element);
    if (status == kOk) status = skip_value(element, depth);
    if (status != kOk) return status;
  }
}

}  // namespace vx
