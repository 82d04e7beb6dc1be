// The state of one decode; inside the codec only.
#pragma once

#include <cstdint>
#include <string_view>

#include "codec/creator_map.h"
#include "codec/reader.h"
#include "codec/stream_form.h"
#include "codec/stream_input.h"
#include "model/charset_scan.h"
#include "model/object.h"

namespace vx {

class Decoder {
 public:
  Decoder(MsgObj& top, ReadRequest& request) : top_(top), request_(request), in_(request) {}
  // Over bytes that lie ready.
  Decoder(MsgObj& top, ReadRequest& request, const void* bytes, std::size_t length)
      : top_(top), request_(request), in_(request, bytes, length) {}

  VX_STATUS run();
  // The bytes of a UN value, all of this decoder's input, into an attribute whose VR has been set.
  VX_STATUS run_value(TagObj& attribute, uint32_t length, int depth);

 private:
  enum class Extent { Top, Defined, Undefined };
  // One object that is being filled.
  struct Frame {
    MsgObj& object;
    int depth = 0;  // of sequences around it
    Extent extent = Extent::Top;
    uint64_t start = 0;
    uint64_t end = 0;  // with Extent::Defined
    bool first_test = false;
    uint32_t last_tag = 0;
    CreatorMap creators{};
    CharsetCache charsets{};
  };
  struct Element {
    uint32_t tag = 0;
    uint32_t length = 0;
    int32_t vr = VX_VR_UN;   // of the stream; UN when it names none or one without a code
    uint8_t swap_width = 0;  // bytes to turn around in a value whose VR has no code, in big endian
    char wide = 0;           // first letter of OV, SV or UV, which have no code: no UN for the dictionary
  };
  // `step` tells what an operation on the stream has come to.
  enum class Step { Element, Again, Complete, Fail };
  struct Outcome {
    VX_STATUS status = kOk;
    bool consumed = true;  // false: bytes of the value are unread, or a callback refused
    Outcome(VX_STATUS s, bool c) : status(s), consumed(c) {}
    Outcome(VX_STATUS s) : status(s) {}
  };

  // decoder.cpp: objects and elements.
  VX_STATUS read_preamble();
  VX_STATUS decode_elements(Frame& frame);
  bool stop_before_next(const Frame& frame);
  VX_STATUS begin(Frame& frame);
  VX_STATUS resume(Frame& frame);
  Step stop(Frame& frame, uint32_t tag, VX_STATUS& status);
  VX_STATUS leave_meta_at_end(Frame& frame);
  VX_STATUS leave_meta(Frame& frame);
  VX_STATUS begin_inflate();
  VX_STATUS after_meta_element(MsgObj& object, uint32_t tag);
  Step next_header(Frame& frame, Element& element, VX_STATUS& status);
  Step end_of_data(Frame& frame, VX_STATUS& status);
  Step structural_tag(Frame& frame, uint32_t tag, VX_STATUS& status);
  VX_STATUS first_element_test(const uint8_t* header, uint32_t tag);
  VX_STATUS read_length(const uint8_t* header, Element& element);
  VX_STATUS process(Frame& frame, const Element& element);

  // decode_attribute.cpp: from an element to an attribute.
  VX_STATUS store_element(Frame& frame, Element element);
  VX_STATUS read_creator(Frame& frame, const Element& element);
  VX_STATUS keep_creator(Frame& frame, const Element& element);
  VX_STATUS place_creator(Frame& frame, uint32_t tag, std::string_view code);
  bool map_private(Frame& frame, Element& element, std::string_view& creator);
  VX_STATUS place_attribute(Frame& frame, const Element& element, std::string_view creator, TagObj*& out);
  VX_STATUS check_length(const Element& element, const TagObj& attribute);
  Outcome reconcile_and_read(Frame& frame, TagObj& attribute, const Element& element);
  Outcome convert_un(Frame& frame, TagObj& attribute, const Element& element);
  bool stops_at(const Frame& frame, uint32_t tag) const {
    return frame.depth == 0 && request_.StopAtEnd && tag == request_.EndTag;
  }

  // decode_value.cpp: values.
  Outcome read_value(Frame& frame, TagObj& attribute, const Element& element, bool from_un);
  Outcome read_simple(Frame& frame, TagObj& attribute, const Element& element);
  VX_STATUS set_simple(Frame& frame, TagObj& attribute, const uint8_t* bytes, uint32_t length,
                       bool big_endian);
  VX_STATUS set_texts(Frame& frame, TagObj& attribute, std::string_view text, bool splits);
  VX_STATUS set_texts_to_keep(Frame& frame, TagObj& attribute, std::string_view bytes);
  Outcome read_bulk(Frame& frame, TagObj& attribute, const Element& element);
  VX_STATUS announce(MsgObj& object, TagObj& attribute, uint32_t length, bool kept);
  struct Run {  // a run of bytes of a bulk value
    uint64_t length;
    uint32_t width = 1;  // bytes of one element that is to be turned around; 1: none
    uint32_t piece = 0;  // preferred size of a piece; 0: any
    bool first = true;
    bool last = true;
    bool direct = true;  // into memory without a copy between
  };
  VX_STATUS read_run(MsgObj& object, TagObj& attribute, const Run& run);
  VX_STATUS read_piece(MsgObj& object, TagObj& attribute, const Run& run, uint64_t done, uint32_t& got);
  VX_STATUS fill_piece(uint8_t* bytes, uint32_t length, uint32_t width, uint32_t& got);
  VX_STATUS store_chunk(MsgObj& object, TagObj& attribute, const Run& run, uint64_t done, uint32_t& got);
  VX_STATUS read_encapsulated(Frame& frame, TagObj& attribute, uint32_t tag);
  VX_STATUS read_fragment(MsgObj& object, TagObj& attribute, uint32_t length, bool first);
  VX_STATUS next_fragment(uint32_t& length, bool& ended);
  uint32_t frame_size(MsgObj& object, uint32_t length) const;

  // decode_sequence.cpp: items, and what is passed over.
  VX_STATUS read_sequence(Frame& frame, TagObj& attribute, uint32_t length, bool from_un);
  VX_STATUS note_record(uint64_t offset, const TagObj& attribute);
  VX_STATUS read_item(Frame& frame, TagObj& attribute, uint32_t length, bool from_un);
  VX_STATUS next_item(bool from_un, uint32_t& tag, uint32_t& length);
  VX_STATUS skip_value(const Element& element, int depth);
  VX_STATUS skip_fragments();
  VX_STATUS skip_sequence(int depth, bool from_un);
  VX_STATUS skip_item(int depth, bool first_test);

  VX_STATUS not_an_item(uint32_t tag);
  bool too_deep(int depth);

  void log_failure(VX_STATUS status) const;
  // Lines of the log. A stream can be made to cause any number of them: those about what is passed over are
  // counted, and so is every line of a decoder inside another.
  void warn_behind_nul(uint32_t tag, std::string_view text);
  void warn(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void fault(const char* format, ...) __attribute__((format(printf, 2, 3)));
  // Counts what will be held; VX_VALUE_TOO_LARGE, after a line in the log, where that is too much.
  VX_STATUS count_parts(uint64_t parts);
  VX_STATUS count_bytes(uint64_t bytes) { return count_parts(bytes / kBytesOfPart); }
  bool is_limited() const { return most_parts_ != ~uint64_t{0}; }
  bool may_tell() { return ++counts_->told <= kMaxTold; }

  MsgObj& top_;
  ReadRequest& request_;
  StreamInput in_;
  Encoding encoding_{};
  Encoding next_{};  // of the data set of a file
  bool syntax_known_ = false;
  bool meta_pending_ = false;
  uint64_t meta_end_ = ~uint64_t{0};
  bool keep_ = keeps_stream_form();
  bool deflate_ = false;
  bool before_deflate_ = false;
  uint32_t tag_ = 0;  // the tag in hand
  bool failure_logged_ = false;
  static constexpr int64_t kMaxTold = 1000;
  // Shared with the decoders of values inside.
  struct Counts {
    int64_t told = 0;
    uint64_t parts = 0;  // what VX_Limit_Decoder counts
  };
  Counts own_counts_;
  Counts* counts_ = &own_counts_;
  const uint64_t most_parts_ = most_decoded_parts();
  static constexpr uint64_t kBytesOfPart = 256;
};

inline constexpr char kDecodeFunction[] = "VXI_decode";

}  // namespace vx
