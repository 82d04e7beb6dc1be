// From an element of the stream to an attribute of the object: private blocks, VRs, duplicates.
#include <algorithm>
#include <cstring>
#include <new>

#include "codec/decoder.h"
#include "config/config.h"
#include "frame/byte_order.h"
#include "frame/limits.h"
#include "frame/lock.h"
#include "frame/log.h"
#include "frame/text.h"
#include "model/attributes.h"
#include "model/callbacks.h"
#include "model/convert.h"
#include "model/dictionary.h"
#include "model/private_blocks.h"
#include "model/seams.h"
#include "model/values.h"
#include "model/vr.h"

namespace vx {

namespace {

constexpr uint32_t kDuplicateTypes = 0x1E0;  // filter entries that keep the value which is there
constexpr uint32_t kMaxSimpleLength = 0x80000000U;

bool is_group_length(uint32_t tag) {
  return tag_element(tag) == 0;
}
bool can_bind(int32_t vr) {
  return vr >= VX_VR_OB && vr <= VX_VR_OF;
}
const char* failure_text(VX_STATUS status) {
  return status_text(status == VX_END_OF_DATA ? VX_UNEXPECTED_EOD : status);
}

}  // namespace

VX_STATUS Decoder::store_element(Frame& frame, Element element) {
  std::string_view creator;
  if (is_private(element.tag) && !map_private(frame, element, creator)) {
    log_line(VX_LOG_T8, kDecodeFunction, "Private stream tag (%4.4X,%4.4X) ignored: no creator",
             tag_group(element.tag), tag_element(element.tag));
    return skip_value(element, frame.depth);
  }
  TagObj* attribute = nullptr;
  if (VX_STATUS status = place_attribute(frame, element, creator, attribute); status != kOk) {
    fault("Error adding stream tag (%4.4X,%4.4X):", tag_group(element.tag), tag_element(element.tag));
    fault("|   \"%s\"", status_text(status));
    return status == VX_SYSTEM_ERROR ? status : skip_value(element, frame.depth);
  }
  if (attribute->ValueCount > 0) {
    warn("Tag %08x is duplicated", element.tag);
    if (filter_matches(element.tag, kDuplicateTypes)) {
      warn("Tag %08x new value is ignored due to DECODER_TAG_FILTER settings", element.tag);
      return skip_value(element, frame.depth);
    }
    warn("Tag %08x new value will be used", element.tag);
    clear_value(frame.object, *attribute, true, true);
  }
  if (VX_STATUS status = check_length(element, *attribute); status != kOk) return status;
  attribute->DecoderMark = keep_ ? element.wide : char{};
  if (keep_ && element.wide == 0 && attribute->VR == VX_VR_UN)
    attribute->DecoderMark = standard_wide_letter(element.tag);
  // Most elements are texts and numbers under the VR that they are known by.
  const bool plain = encoding_.explicit_vr ? element.vr == attribute->VR : attribute->VR < VX_VR_UN;
  const bool simple =
      plain && attribute->VR < VX_VR_UN && element.length != 0 && element.length < kMaxSimpleLength;
  const Outcome outcome =
      simple ? read_simple(frame, *attribute, element) : reconcile_and_read(frame, *attribute, element);
  if (outcome.status == kOk) return outcome.status;
  const uint16_t group = tag_group(element.tag);
  if (outcome.consumed && outcome.status != VX_SYSTEM_ERROR) {
    if (log_enabled(VX_LOG_T5)) {
      log_line(VX_LOG_T5, kDecodeFunction, "(%4.4X,%4.4X): %s", group, tag_element(element.tag),
               "Value from stream had problem:");
      log_line(VX_LOG_T5, kDecodeFunction, "|   %s", status_text(outcome.status));
    }
    return kOk;
  }
  if (!failure_logged_) {
    failure_logged_ = true;  // the sequences around it need not say so again
    fault("(%4.4X,%4.4X): %s", group, tag_element(element.tag), "Error encountered during encode:");
    fault("|   %s", failure_text(outcome.status));
    fault("|   at byte offset %llu", static_cast<unsigned long long>(in_.offset()));
  }
  return outcome.status;
}

// --- Private blocks ---

VX_STATUS Decoder::read_creator(Frame& frame, const Element& element) {
  if (keep_) return keep_creator(frame, element);
  if (element.length == kUndefinedLength) return skip_value(element, frame.depth);
  const auto kept = std::min<uint32_t>(element.length, kMaxCreatorCode);
  const uint8_t* bytes = nullptr;
  if (VX_STATUS status = in_.take(kept, bytes); status != kOk) return status;
  char text[kMaxCreatorCode];
  std::memcpy(text, bytes, kept);
  std::string_view code(text, kept);
  code = trim_right(code.substr(0, code.find('\0')));
  if (VX_STATUS status = in_.discard(element.length - kept); status != kOk) return status;
  return place_creator(frame, element.tag, code);
}

// A creator stays where it is, whatever its text, so that what it owns stays its own.
VX_STATUS Decoder::keep_creator(Frame& frame, const Element& element) {
  const bool is_text = !encoding_.explicit_vr || element.vr == VX_VR_UN || is_text_vr(element.vr);
  if (!is_text || element.length >= kMaxSimpleLength) return store_element(frame, element);
  if (VX_STATUS status = count_bytes(element.length); status != kOk) return status;
  const uint8_t* taken = nullptr;
  if (VX_STATUS status = in_.take(element.length, taken); status != kOk) return status;
  const std::string_view bytes(reinterpret_cast<const char*>(taken), element.length);
  const std::string_view code = trim_right(bytes.substr(0, bytes.find('\0')));
  warn_behind_nul(element.tag, bytes);
  TagObj* creator = find_tag(frame.object, element.tag);
  // Of two creators at one place the second is treated as if its place were taken by another object's.
  if (creator != nullptr && creator->ValueCount > 0) return place_creator(frame, element.tag, code);
  VX_STATUS status = kOk;
  if (creator == nullptr) status = new_tag(frame.object, element.tag, VX_VR_LO, 1, 255, &creator);
  if (status != kOk) return status;
  if (is_text_vr(element.vr)) creator->VR = element.vr;
  status = set_text(frame.object, *creator, code, true, &frame.charsets);
  if (status == VX_SYSTEM_ERROR || !keep_if_changed(*creator, bytes)) return VX_SYSTEM_ERROR;
  frame.creators.add(element.tag, element.tag, code);
  return kOk;
}

VX_STATUS Decoder::place_creator(Frame& frame, uint32_t tag, std::string_view code) {
  MsgObj& object = frame.object;
  const uint16_t group = tag_group(tag);
  const int length = static_cast<int>(code.size());
  uint32_t slot = 0;
  VX_STATUS status = find_private_block(object, code, group, slot);
  if (status == VX_FOUND_PRIVATE_BLOCK) {
    const bool duplicates = config_bool(VX_CFG_ALLOW_DUPLICATE_CREATOR_CODES);
    if (!duplicates && block_has_values(object, code, group)) {
      warn("Ignoring duplicate private creator code: (%4.4X,%4.4X) %.*s", group, tag_element(tag), length,
           code.data());
      return kOk;
    }
    if (duplicates && slot != tag && find_tag(object, tag) == nullptr) {
      TagObj* creator = nullptr;
      status = new_tag(object, tag, VX_VR_LO, 1, 255, &creator);
      if (status == kOk) set_text(object, *creator, code, true, &frame.charsets);
      slot = tag;
    } else {
      status = kOk;
    }
  } else {
    // At its own place, unless another creator of the object has that.
    const uint32_t place = find_tag(object, tag) == nullptr ? tag : 0;
    status = add_private_block(object, code, group, &slot, place, kDecodeFunction);
  }
  if (status != kOk) {
    warn("Unable to add private creator (%.4X,%.4x) \"%.*s\": %s (ignoring)", group, tag_element(tag), length,
         code.data(), status_text(status));
    return kOk;
  }
  frame.creators.add(tag, slot, code);
  return kOk;
}

// Brings a private element to the block that its creator has in the object. False: no creator owns it.
bool Decoder::map_private(Frame& frame, Element& element, std::string_view& creator) {
  if (tag_element(element.tag) < 0x1000) return true;
  if (const CreatorMap::Entry* entry = frame.creators.find(element.tag)) {
    creator = entry->code;
    element.tag = rebased_tag(element.tag, entry->block);
    return true;
  }
  // An item of a private sequence may leave its creators to its holder.
  if (frame.object.PrivateTag != 0) creator = creator_of(frame.object, element.tag);
  return !creator.empty() || config_bool(VX_CFG_ALLOW_INVALID_PRIVATE_ATTRIBUTES);
}

// --- The attribute and its VR ---

VX_STATUS Decoder::place_attribute(Frame& frame, const Element& element, std::string_view creator,
                                   TagObj*& out) {
  MsgObj& object = frame.object;
  const uint32_t tag = element.tag;
  if (object.LastTag != nullptr && object.LastTag->Tag >= tag) {
    out = find_tag(object, tag);
    if (out != nullptr) return kOk;
  }
  DictInfo info{};
  int32_t vr = element.vr;
  if (dictionary_lookup(tag, creator, info) == kOk) {
    vr = info.vr;
  } else if (is_group_length(tag)) {
    vr = VX_VR_UL;
  }
  return new_tag(object, tag, vr, 1, 255, &out);
}

VX_STATUS Decoder::check_length(const Element& element, const TagObj& attribute) {
  if (element.vr == VX_VR_UN && (element.wide != 0 || element.length == kUndefinedLength)) {
    return kOk;
  }
  const int32_t vr = element.vr == VX_VR_UN ? attribute.VR : element.vr;
  if (!is_numeric_vr(vr) || element.length % vr_width(vr) == 0) return kOk;
  const bool allowed = config_bool(VX_CFG_ALLOW_INVALID_LENGTH_FOR_VR);
  if (!allowed || may_tell()) {
    fault("Total attribute length (%u) not a multiple of size ", element.length);
    fault("for VR (%s): %u, tag '0x%X'", vr_letters(vr), vr_width(vr), element.tag);
  }
  return allowed ? kOk : VX_INVALID_LENGTH_FOR_VR;
}

Decoder::Outcome Decoder::reconcile_and_read(Frame& frame, TagObj& attribute, const Element& element) {
  const uint16_t group = tag_group(element.tag);
  const bool explicit_vr = encoding_.explicit_vr;
  int32_t vr = attribute.VR;
  bool from_un = false;
  if (element.vr == VX_VR_UN && element.wide == 0 && element.length == kUndefinedLength &&
      element.tag != kPixelData) {
    if (vr != VX_VR_SQ && log_enabled(VX_LOG_T8)) {
      log_line(VX_LOG_T8, kDecodeFunction,
               "(%4.4X,%4.4X): Undefined length UN attribute in stream, changing VR to SQ", group,
               tag_element(element.tag));
    }
    vr = VX_VR_SQ;
    from_un = explicit_vr;
    if (from_un) attribute.DecoderMark = kReadFromUn;
  } else if (explicit_vr && element.vr == VX_VR_UN && element.wide == 0) {
    if (vr != VX_VR_UN) return convert_un(frame, attribute, element);
  } else if (explicit_vr && element.vr != vr) {
    if (log_enabled(VX_LOG_T8)) {
      log_line(VX_LOG_T8, kDecodeFunction, "(%4.4X,%4.4X): changing VR from %s to %s encoded in stream",
               group, tag_element(element.tag), vr_letters(vr), vr_letters(element.vr));
    }
    vr = element.vr;
  }
  if (attribute.Storage == Stored::ByCallback && !can_bind(vr)) unbind_one(frame.object, attribute);
  attribute.VR = vr;
  return read_value(frame, attribute, element, from_un);
}

// A value that the sender did not know, of an attribute that the dictionary knows: its bytes are implicit
// little endian (PS3.5 section 6.2.2).
Decoder::Outcome Decoder::convert_un(Frame& frame, TagObj& attribute, const Element& element) {
  MsgObj& object = frame.object;
  if (element.length == 0) return read_value(frame, attribute, element, false);
  const bool too_long =
      !is_bulk_vr(attribute.VR) && attribute.VR != VX_VR_SQ && element.length >= kMaxSimpleLength;
  if (too_long || stops_at(frame, element.tag)) attribute.VR = VX_VR_UN;
  if (is_bulk_vr(attribute.VR)) {
    const Encoding outer = encoding_;
    encoding_.big_endian = false;
    const Outcome outcome = read_bulk(frame, attribute, element);
    encoding_ = outer;
    return outcome;
  }
  const uint8_t* bytes = nullptr;
  VX_STATUS status = count_bytes(element.length);
  if (status == kOk) status = in_.take(element.length, bytes);
  if (status != kOk) return {status, false};
  const int32_t vr = attribute.VR;
  if (vr == VX_VR_SQ) {
    ReadRequest request;
    Decoder nested(object, request, bytes, element.length);
    nested.counts_ = counts_;
    status = nested.run_value(attribute, element.length, frame.depth);
  } else {
    status = set_simple(frame, attribute, bytes, element.length, false);
    const bool stored = status == VX_INVALID_VALUE_FOR_VR || status == VX_INVALID_CHARS_IN_VALUE;
    if (stored && attribute.ValueCount > 0) status = kOk;
  }
  if (status == kOk) return status;
  warn("Unable to convert tag (%4.4X,%4.4X) from UN to %s, ignoring", tag_group(element.tag),
       tag_element(element.tag), vr_letters(vr));
  clear_value(object, attribute, false, true);
  attribute.VR = VX_VR_UN;
  return store_value(object, attribute, bytes, element.length, {});
}

VX_STATUS Decoder::run_value(TagObj& attribute, uint32_t length, int depth) {
  encoding_ = {IMPLICIT_LITTLE_ENDIAN, false, false, false};
  Frame frame{top_, depth};
  Element element;
  element.tag = tag_ = attribute.Tag;
  element.length = length;
  if (VX_STATUS status = check_length(element, attribute); status != kOk) return status;
  const Outcome outcome = read_value(frame, attribute, element, false);
  return outcome.status == VX_END_OF_DATA ? VX_UNEXPECTED_EOD : outcome.status;
}

VX_STATUS convert_from_un(MsgObj& object, TagObj& attribute, const void* bytes, uint32_t length) try {
  Guard lock(object.Semaphore);
  ReadRequest request;
  Decoder decoder(object, request, bytes, length);
  return decoder.run_value(attribute, length, 0);
} catch (const std::bad_alloc&) {
  return VX_SYSTEM_ERROR;
}

}  // namespace vx
