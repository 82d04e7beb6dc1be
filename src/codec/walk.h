// The rules that the encoder and the length computation share: what is written, in which encoding, under
// which header. Both walk with one state of this kind, so that they cannot differ.
#pragma once

#include <cstdint>
#include <vector>

#include "codec/writer.h"
#include "config/transfer_syntax.h"
#include "model/object.h"

namespace vx {

// The settings that decide about an export, read once.
struct ExportRules {
  bool un;
  bool private_attributes;
  bool group_lengths;
  bool empty_creators;
  bool long_to_un;  // a value too long for a short header goes out as UN
  bool keep_form;   // a NUL behind every odd value, not of OB alone; private sequences can be told
  char un_letters[3];
  uint32_t large;
};
ExportRules export_rules(Destination destination);

// Where a walk stands. Copied for a second walk of the same object.
struct WalkState {
  ExportRules rules;
  Encoding encoding;
  Encoding next;
  bool meta_pending;
  bool no_group_lengths;
  bool keep_group_lengths;  // those with a value keep it
  bool undefined_lengths;
  const uint32_t* tag_list;
  int32_t application_id;
};

inline constexpr uint32_t kShortHeader = 8;
inline constexpr uint32_t kLongHeader = 12;
inline constexpr uint32_t kMaxShortLength = 0xFFFF;

constexpr bool is_group_length(uint32_t tag) {
  return (tag & 0xFFFFU) == 0;
}
// True if an explicit header with a 2-byte length cannot hold it.
bool outgrows_header(const Encoding& encoding, int32_t vr, uint64_t length);
uint32_t header_size(const WalkState& walk, int32_t vr, uint64_t length);

// Decides whether an attribute is written and makes it ready: the switch behind the meta group, VR of
// encapsulated Pixel Data, binding and length of a value held by a callback. `top`: the object that was asked
// for, not an item. VX_CALLBACK_CANNOT_COMPLY.
VX_STATUS admit(WalkState& walk, MsgObj& object, TagObj& attribute, bool top, bool& write);
// Pixel Data that goes out encapsulated.
bool is_encapsulated(const WalkState& walk, const MsgObj& object, const TagObj& attribute, bool top);
// Bytes of a value other than a sequence, with its pad; kUndefinedLength for a callback's undefined one.
uint64_t plain_value_length(const WalkState& walk, const MsgObj& object, const TagObj& attribute, bool top);

inline constexpr uint64_t kUnknown = ~uint64_t{0};

// The order of a walk: ascending, but in a file the meta group comes first whatever tags the data set has.
struct TagRange {
  uint32_t first;
  uint32_t last;
};
inline constexpr TagRange kMetaGroup{0x00020000U, 0x0002FFFFU};
struct WalkOrder {
  TagRange ranges[3];
  int count;
};
WalkOrder walk_order(const WalkState& walk, uint32_t first, uint32_t last);

// Measures the attributes from first to last and stores the group lengths that are going to be written.
// `lengths` (null: not wanted) gets the lengths of the defined-length sequences and items in the order of the
// walk; kUndefinedLength for one whose content has no known length. `total` is kUnknown then.
VX_STATUS measure(WalkState walk, MsgObj& object, uint32_t first, uint32_t last,
                  std::vector<uint32_t>* lengths, uint64_t& total);

}  // namespace vx
