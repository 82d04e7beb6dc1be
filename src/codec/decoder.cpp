#include "codec/decoder.h"

#include <cctype>
#include <cstdarg>
#include <cstring>
#include <new>
#include <string>

#include "config/config.h"
#include "frame/app.h"
#include "frame/byte_order.h"
#include "frame/lock.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "model/attributes.h"
#include "model/callbacks.h"
#include "model/convert.h"
#include "model/held.h"
#include "model/seams.h"
#include "model/values.h"
#include "model/vr.h"

namespace vx {

namespace {

constexpr uint32_t kMetaLength = 0x00020000U;
constexpr uint32_t kMetaSyntax = 0x00020010U;
constexpr uint32_t kLastCommand = 0x0000FFFFU;
constexpr uint32_t kDropTypes = 0x1F;  // filter entries that drop an attribute whatever the object holds

bool is_known_vr(char first, char second) {
  return vr_from_letters(first, second) >= 0 || is_wide_vr(first, second);
}

}  // namespace

VX_STATUS decode_object(MsgObj& object, ReadRequest& request) try {
  request.ObjectID = object.ID;
  const Held held(object, Hold::Table);
  Decoder decoder(object, request);
  return decoder.run();
} catch (const std::bad_alloc&) {
  return VX_SYSTEM_ERROR;
}

VX_STATUS Decoder::run() {
  Guard lock(top_.Semaphore);
  encoding_ = next_ = request_.encoding;
  deflate_ = request_.Deflate;
  before_deflate_ = request_.BeforeDeflate;
  request_.ErrorTag = 0;
  request_.StopOffset = 0;
  if (request_.ApplicationID != 0) {
    if (AppObj* app = find_application(request_.ApplicationID)) bind_all(*app, top_);
  }
  Frame frame{top_};
  if (request_.OpenItem) frame.extent = Extent::Undefined;
  VX_STATUS status = begin(frame);
  if (status == kOk && is_file(top_)) {
    meta_pending_ = true;
    frame.first_test = true;
    in_.tolerate_odd_blocks(true);
    status = read_preamble();
  }
  if (status == kOk) status = decode_elements(frame);
  if (status == kOk && meta_pending_) status = in_.judge_odd_blocks();
  const VX_STATUS ended = in_.finish();
  if (status == kOk) status = ended;
  if (status == kOk) return status;
  request_.ErrorTag = tag_;
  if (status == VX_END_OF_DATA) status = VX_UNEXPECTED_EOD;
  // Why the input function refused is for its owner to tell.
  if (request_.LogFailure && status != VX_CALLBACK_CANNOT_COMPLY) log_failure(status);
  return status;
}

VX_STATUS Decoder::begin(Frame& frame) {
  if (request_.Rest != nullptr && *request_.Rest != nullptr) return resume(frame);
  return deflate_ && !before_deflate_ ? in_.start_inflate() : kOk;
}

// Goes on where a former decode of the same stream stopped.
VX_STATUS Decoder::resume(Frame& frame) {
  DecodeRest* rest = *request_.Rest;
  *request_.Rest = nullptr;
  frame.last_tag = rest->LastTag;
  VX_STATUS status = kOk;
  if (rest->Started) {
    frame.creators.restore({reinterpret_cast<const char*>(rest->Creators), rest->CreatorsLength});
    status = in_.resume(*rest);
  } else if (deflate_ && !before_deflate_) {
    status = in_.start_inflate();
  }
  free_decode_rest(rest);
  return status;
}

// Stops before the element whose header comes next, with all that a later decode needs.
Decoder::Step Decoder::stop(Frame& frame, uint32_t tag, VX_STATUS& status) {
  DecodeRest* rest = new_decode_rest();
  status = rest != nullptr ? in_.save(*rest) : VX_SYSTEM_ERROR;
  const std::string creators = frame.creators.save();
  if (status == kOk && !creators.empty()) {
    rest->Creators = static_cast<uint8_t*>(allocate_raw(creators.size()));
    rest->CreatorsLength = creators.size();
    if (rest->Creators == nullptr) {
      status = VX_SYSTEM_ERROR;
    } else {
      std::memcpy(rest->Creators, creators.data(), creators.size());
    }
  }
  if (status != kOk) {
    free_decode_rest(rest);
    return Step::Fail;
  }
  rest->NextTag = tag;
  rest->LastTag = frame.last_tag;
  *request_.Rest = rest;
  return Step::Complete;
}

void Decoder::warn(const char* format, ...) {
  if (!may_tell()) return;
  va_list values;
  va_start(values, format);
  log_line_v(VX_LOG_WARNING, kDecodeFunction, format, values);
  va_end(values);
}

void Decoder::fault(const char* format, ...) {
  if (counts_ != &own_counts_ && !may_tell()) return;
  va_list values;
  va_start(values, format);
  log_line_v(VX_LOG_ERROR, kDecodeFunction, format, values);
  va_end(values);
}

void Decoder::log_failure(VX_STATUS status) const {
  VX_LOG_ERR(kDecodeFunction, "(%4.4X,%4.4X): %s", tag_group(tag_), tag_element(tag_),
             "Error during VX_Stream_To_Message:");
  VX_LOG_ERR(kDecodeFunction, "|   %s", status_text(status));
}

// Preamble and prefix of PS3.10 section 7.1.
VX_STATUS Decoder::read_preamble() {
  constexpr std::size_t kSize = sizeof(FileInfo::Preamble) + sizeof(FileInfo::Prefix);
  const uint8_t* bytes = nullptr;
  if (VX_STATUS status = in_.take(kSize, bytes); status != kOk) {
    if (status == VX_END_OF_DATA) status = VX_UNEXPECTED_EOD;
    VX_LOG_ERR(kDecodeFunction, "Failure in reading the file preamble and prefix: %s", status_text(status));
    return status;
  }
  FileInfo& info = *top_.File;
  std::memcpy(info.Preamble, bytes, sizeof info.Preamble);
  std::memcpy(info.Prefix, bytes + sizeof info.Preamble, sizeof info.Prefix);
  if (std::memcmp(info.Prefix, "DICM", 4) == 0) return kOk;

  const uint8_t* p = bytes + sizeof info.Preamble;
  const char* name = info.FileName != nullptr ? info.FileName : "";
  const bool text = std::isprint(p[0]) && std::isprint(p[1]) && std::isprint(p[2]) && std::isprint(p[3]);
  if (!config_bool(VX_CFG_FORCE_DICM_IN_PREFIX)) {
    VX_LOG_ERR(kDecodeFunction,
               text ? "Invalid DICOM file prefix '%c%c%c%c' in '%s'"
                    : "Invalid DICOM file prefix '%X%X%X%X' in '%s'",
               p[0], p[1], p[2], p[3], name);
    VX_LOG_ERR(kDecodeFunction, "Failure in reading the file preamble and prefix: %s",
               status_text(VX_INVALID_FILE));
    return VX_INVALID_FILE;
  }
  log_line(VX_LOG_T8, kDecodeFunction,
           text ? "Replacing invalid DICOM file prefix '%c%c%c%c' in '%s' with 'DICM'"
                : "Replacing invalid DICOM file prefix '%X%X%X%X' in '%s' with 'DICM'",
           p[0], p[1], p[2], p[3], name);
  std::memcpy(info.Prefix, "DICM", 4);
  return kOk;
}

VX_STATUS Decoder::decode_elements(Frame& frame) {
  Guard lock(frame.object.Semaphore);
  const bool top = frame.depth == 0;
  for (;;) {
    if (top && stop_before_next(frame)) return kOk;
    if (frame.extent == Extent::Defined && in_.offset() >= frame.end) return kOk;
    VX_STATUS status = kOk;
    if (top && meta_pending_ && in_.offset() >= meta_end_) {
      status = leave_meta_at_end(frame);
      if (status != kOk) return status;
    }
    Element element;
    switch (next_header(frame, element, status)) {
      case Step::Again:
        continue;
      case Step::Complete:
      case Step::Fail:
        return status;
      case Step::Element:
        break;
    }
    if (top && element.tag > request_.EndTag) return kOk;
    status = process(frame, element);
    if (status == kOk && top && meta_pending_) {
      status = after_meta_element(frame.object, element.tag);
    }
    if (status != kOk) return status;
  }
}

bool Decoder::stop_before_next(const Frame& frame) {
  if (!request_.StopAtEnd || frame.last_tag != request_.EndTag) return false;
  request_.StopOffset = in_.offset();
  return true;
}

// --- The meta group of a file, and deflate behind it ---

// The length of the meta group is used up. Many writers have it wrong: while the next tag still belongs to
// the group, the group goes on.
VX_STATUS Decoder::leave_meta_at_end(Frame& frame) {
  const uint8_t* header = nullptr;
  const VX_STATUS status = in_.need(8, header);
  if (status == kOk && tag_group(load_tag(header, encoding_.big_endian)) == 2) {
    warn("Group length (0002,0000) is too short: group 0002 goes on at offset %llu",
         static_cast<unsigned long long>(in_.offset()));
    meta_end_ = ~uint64_t{0};
    return kOk;
  }
  if (status != kOk && status != VX_END_OF_DATA) return status;
  return leave_meta(frame);
}

VX_STATUS Decoder::leave_meta(Frame& frame) {
  meta_pending_ = false;
  frame.last_tag = kLastCommand;  // the data set has an order of its own, and no command group
  in_.tolerate_odd_blocks(false);
  if (!syntax_known_) {
    frame.first_test = encoding_.explicit_vr;  // nobody said how the data set is encoded
    return in_.judge_odd_blocks();
  }
  encoding_ = next_;
  if (!deflate_) return in_.judge_odd_blocks();
  return before_deflate_ ? begin_inflate() : kOk;
}

VX_STATUS Decoder::begin_inflate() {
  before_deflate_ = false;
  return in_.start_inflate();
}

VX_STATUS Decoder::after_meta_element(MsgObj& object, uint32_t tag) {
  if (tag != kMetaLength && tag != kMetaSyntax) return kOk;
  TagObj* attribute = find_tag(object, tag);
  if (tag == kMetaLength) {
    if (attribute == nullptr || attribute->VR != VX_VR_UL) return kOk;
    if (const void* value = numeric_value(*attribute, 1)) meta_end_ = in_.offset() + load32(value, false);
    return kOk;
  }
  char scratch[80];
  std::string_view uid;
  ValueCursor cursor;
  if (attribute != nullptr) cursor_first(*attribute, cursor);
  if (attribute == nullptr || view_text(*attribute, cursor, scratch, uid) != kOk) {
    VX_LOG_ERR(kDecodeFunction, "Unable to get transfer syntax UID from file.");
    return VX_INVALID_TRANSFER_SYNTAX;
  }
  VX_TRANSFER_SYNTAX syntax = 0;
  if (syntax_from_uid(uid, syntax) != kOk) {
    VX_LOG_ERR(kDecodeFunction, "Invalid Transfer syntax UID found in file: %.*s",
               static_cast<int>(uid.size()), uid.data());
    return VX_INVALID_TRANSFER_SYNTAX;
  }
  syntax_encoding(syntax, next_);
  syntax_known_ = true;
  deflate_ = request_.Deflate = is_deflated(syntax);
  if (deflate_) before_deflate_ = true;
  return kOk;
}

VX_STATUS Decoder::count_parts(uint64_t parts) {
  counts_->parts += parts;
  if (counts_->parts <= most_parts_) return kOk;
  fault("More than %llu elements, items and values", static_cast<unsigned long long>(most_parts_));
  return VX_VALUE_TOO_LARGE;
}

// --- Headers ---

Decoder::Step Decoder::next_header(Frame& frame, Element& element, VX_STATUS& status) {
  const uint8_t* header = nullptr;
  status = in_.need(8, header);
  if (status == VX_END_OF_DATA) return end_of_data(frame, status);
  if (status != kOk) return Step::Fail;
  if (frame.first_test) {
    frame.first_test = false;
    tag_ = load_tag(header, encoding_.big_endian);
    status = first_element_test(header, tag_);
    if (status != kOk) return Step::Fail;
  }
  const uint32_t tag = load_tag(header, encoding_.big_endian);
  const uint16_t group = tag_group(tag);
  if (frame.depth == 0) {
    if (meta_pending_ && group != 2) {
      status = leave_meta(frame);
      return status == kOk ? Step::Again : Step::Fail;
    }
    if (!meta_pending_ && deflate_ && before_deflate_ && group > 3) {
      status = begin_inflate();
      return status == kOk ? Step::Again : Step::Fail;
    }
  }
  request_.StopOffset = in_.offset();
  tag_ = tag;
  if (status = count_parts(1); status != kOk) return Step::Fail;
  if (request_.Rest != nullptr && frame.depth == 0 && tag > request_.EndTag) return stop(frame, tag, status);
  if (group == kStructureGroup) return structural_tag(frame, tag, status);
  if (tag < frame.last_tag && !config_bool(VX_CFG_ALLOW_OUT_OF_ORDER_TAGS)) {
    fault("Tags not in ascending order: (%.4x,%.4x) found after (%.4x,%.4x)", group, tag_element(tag),
          tag_group(frame.last_tag), tag_element(frame.last_tag));
    status = VX_OUT_OF_ORDER_TAG;
    return Step::Fail;
  }
  frame.last_tag = tag;
  element.tag = tag;
  in_.advance(8);
  status = read_length(header, element);
  return status == kOk ? Step::Element : Step::Fail;
}

Decoder::Step Decoder::end_of_data(Frame& frame, VX_STATUS& status) {
  request_.StopOffset = in_.offset();
  if (in_.available() > 0) {
    // A deflated data set may be shorter than a header.
    if (frame.depth == 0 && deflate_ && before_deflate_) {
      status = meta_pending_ ? leave_meta(frame) : begin_inflate();
      return status == kOk ? Step::Again : Step::Fail;
    }
    // A value of odd length leaves the stream odd, and the byte that makes it even stands at its end.
    const bool pad = frame.extent == Extent::Top && in_.available() == 1 && *in_.bytes() == 0;
    if (!pad) return Step::Fail;
  }
  switch (frame.extent) {
    case Extent::Top:
      status = kOk;
      return Step::Complete;
    case Extent::Undefined:
      fault("Missing Item Delimiter in input stream");
      break;
    case Extent::Defined:
      fault("Not all item data in input stream");
      break;
  }
  tag_ = kItemTag;
  status = VX_INVALID_VALUE_FOR_VR;
  return Step::Fail;
}

// Items and delimiters where an attribute is due.
Decoder::Step Decoder::structural_tag(Frame& frame, uint32_t tag, VX_STATUS& status) {
  if (frame.extent == Extent::Undefined && tag == kItemEnd) {
    in_.advance(8);
    return Step::Complete;
  }
  if (frame.depth == 0 && tag > request_.EndTag) {
    in_.advance(8);
    return Step::Complete;
  }
  if (tag == kItemEnd || (tag == kSequenceEnd && frame.extent != Extent::Undefined)) {
    warn("(%4.4X,%4.4X): delimiter that ends nothing, at offset %llu (ignoring)", tag_group(tag),
         tag_element(tag), static_cast<unsigned long long>(in_.offset()));
    in_.advance(8);
    return Step::Again;
  }
  fault("(%4.4X,%4.4X) encountered in stream where an attribute is expected, at offset %llu", tag_group(tag),
        tag_element(tag), static_cast<unsigned long long>(in_.offset()));
  status = VX_INVALID_VALUE_FOR_VR;
  return Step::Fail;
}

// The first element tells whether a stream that is said to be explicit is so.
VX_STATUS Decoder::first_element_test(const uint8_t* header, uint32_t tag) {
  if (!encoding_.explicit_vr || tag_group(tag) == kStructureGroup) return kOk;
  if (is_known_vr(static_cast<char>(header[4]), static_cast<char>(header[5]))) return kOk;
  if (config_bool(VX_CFG_REJECT_INVALID_VR)) {
    fault("Invalid VR (0x%.2x 0x%.2x) detected in stream.", header[4], header[5]);
    return VX_INVALID_VR_IN_STREAM;
  }
  encoding_.syntax = IMPLICIT_LITTLE_ENDIAN;
  encoding_.big_endian = false;
  encoding_.explicit_vr = false;
  return kOk;
}

// VR and length of PS3.5 section 7.1; `header` has been taken.
VX_STATUS Decoder::read_length(const uint8_t* header, Element& element) {
  const bool big = encoding_.big_endian;
  if (!encoding_.explicit_vr) {
    element.length = load32(header + 4, big);
    return kOk;
  }
  const char first = static_cast<char>(header[4]);
  const char second = static_cast<char>(header[5]);
  const int32_t vr = vr_from_letters(first, second);
  if (vr >= 0 && !has_long_header(vr)) {
    element.vr = vr;
    element.length = load16(header + 6, big);
    return kOk;
  }
  if (vr >= 0) {
    element.vr = vr;
  } else if (is_wide_vr(first, second)) {
    element.wide = first;
    element.swap_width = big ? kWideWidth : 0;
  } else if (config_bool(VX_CFG_REJECT_INVALID_VR)) {
    fault("Invalid VR (0x%.2x 0x%.2x) for attribute (%.4x,%.4x) detected in stream.", header[4], header[5],
          tag_group(element.tag), tag_element(element.tag));
    return VX_INVALID_VR_IN_STREAM;
  } else if ((first == '?' && second == '?') || (first == 'U' && second == 'K')) {
    element.length = load16(header + 6, big);
    return kOk;
  }
  if (header[6] != 0 || header[7] != 0) {
    warn("Tag (%04x,%04x) of VR %c%c reserved bytes incorrect.  Assuming encoded as 2 byte length",
         tag_group(element.tag), tag_element(element.tag), first, second);
    element.length = load16(header + 6, big);
    return kOk;
  }
  const uint8_t* length = nullptr;
  const VX_STATUS status = in_.take(4, length);
  if (status == kOk) element.length = load32(length, big);
  return status;
}

VX_STATUS Decoder::process(Frame& frame, const Element& element) {
  const bool early = frame.depth == 0 && element.tag < request_.StartTag;
  if (early || filter_matches(element.tag, kDropTypes)) return skip_value(element, frame.depth);
  if (is_private_creator(element.tag)) return read_creator(frame, element);
  return store_element(frame, element);
}

}  // namespace vx
