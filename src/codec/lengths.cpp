#include <cstring>
#include <new>

#include "codec/saved_data.h"
#include "codec/stream_form.h"
#include "codec/walk.h"
#include "config/config.h"
#include "frame/byte_order.h"
#include "frame/limits.h"
#include "frame/log.h"
#include "model/attributes.h"
#include "model/callbacks.h"
#include "model/convert.h"
#include "model/dictionary.h"
#include "model/held.h"
#include "model/private_blocks.h"
#include "model/values.h"
#include "model/vr.h"

namespace vx {

namespace {

constexpr char kFunction[] = "VXI_streamLength";

uint64_t add(uint64_t a, uint64_t b) {
  return a == kUnknown || b == kUnknown ? kUnknown : a + b;
}

bool in_tag_list(const uint32_t* list, uint32_t tag) {
  for (; *list != 0; ++list) {
    if (*list == tag || ((*list & 0xFFFFU) == 0 && tag_group(*list) == tag_group(tag))) return true;
  }
  return false;
}

bool creator_block_is_empty(MsgObj& object, const TagObj& creator) {
  char scratch[80];
  std::string_view code;
  ValueCursor cursor;
  cursor_first(creator, cursor);
  return view_text(creator, cursor, scratch, code) != kOk ||
         !block_has_values(object, code, tag_group(creator.Tag));
}

VX_STATUS ask_callback(const WalkState& walk, MsgObj& object, TagObj& attribute) {
  uint32_t length = 0;
  if (ask_length(object, attribute, length) != kOk) return VX_CALLBACK_CANNOT_COMPLY;
  if (length == kUndefinedLength && !walk.encoding.encapsulated) {
    VX_LOG_ERR(kFunction, "Callback returned undefined length for pixel data");
    return VX_CALLBACK_CANNOT_COMPLY;
  }
  if (length != kUndefinedLength && length % 2 != 0) {
    VX_LOG_ERR(kFunction, "Callback returned odd-numbered value length");
    return VX_CALLBACK_CANNOT_COMPLY;
  }
  attribute.Length = length;
  attribute.ValueCount = 1;
  return kOk;
}

VX_STATUS set_group_length(MsgObj& object, TagObj& attribute, uint32_t value) {
  if (attribute.VR == VX_VR_UL && attribute.Length == sizeof value) {
    const void* old = numeric_value(attribute, 1);
    if (old != nullptr && load32(old, false) == value) return kOk;
  }
  clear_value(object, attribute, false, true);
  attribute.VR = VX_VR_UL;
  const VX_STATUS status = store_value(object, attribute, &value, sizeof value, {});
  if (status == kOk) return status;
  VX_LOG_ERR(kFunction, "Error setting group length (%x): %s", attribute.Tag, status_text(status));
  return VX_SYSTEM_ERROR;
}

// Without VRs in the stream, a sequence that no dictionary knows is told by its undefined length alone.
bool needs_delimiter(const WalkState& walk, const TagObj& sequence) {
  if (!walk.rules.keep_form || walk.encoding.explicit_vr || sequence.Length == 0) return false;
  DictInfo info{};
  return tag_group(sequence.Tag) % 2 != 0 || dictionary_lookup(sequence.Tag, {}, info) != kOk;
}

// One measured walk with its nested items.
class Measurer {
 public:
  Measurer(WalkState& walk, std::vector<uint32_t>* lengths) : walk_(walk), lengths_(lengths) {}
  VX_STATUS object(MsgObj& object, TagObj* from, uint32_t last, int depth, uint64_t& total);

 private:
  // The group whose length is being summed up.
  struct Group {
    TagObj* attribute = nullptr;
    uint64_t sum = 0;
  };
  VX_STATUS attribute(MsgObj& object, TagObj& attribute, int depth, uint64_t& bytes);
  VX_STATUS sequence(const TagObj& sequence, int depth, uint64_t& bytes);
  VX_STATUS close(MsgObj& object, Group& group);

  WalkState& walk_;
  std::vector<uint32_t>* lengths_;
};

VX_STATUS Measurer::object(MsgObj& object, TagObj* from, uint32_t last, int depth, uint64_t& total) {
  total = 0;
  Group group;
  std::size_t kept = 0;
  bool beyond = false;  // behind the last tag a group length still counts what is left of its group
  for (TagObj* a = from; a != nullptr; a = a->Next) {
    if (group.attribute != nullptr && tag_group(group.attribute->Tag) != tag_group(a->Tag)) {
      if (VX_STATUS status = close(object, group); status != kOk) return status;
    }
    if (a->Tag > last && !beyond) {
      if (group.attribute == nullptr) break;
      beyond = true;
      if (lengths_ != nullptr) kept = lengths_->size();
    }
    if (beyond && group.attribute == nullptr) break;
    bool write = false;
    VX_STATUS status = admit(walk_, object, *a, depth == 0, write);
    if (status != kOk) return status;
    if (!write) continue;
    uint64_t bytes = kShortHeader + sizeof(uint32_t);
    if (is_group_length(a->Tag)) {
      group = {a, 0};
      total = add(total, bytes);
      continue;
    }
    status = attribute(object, *a, depth, bytes);
    if (status != kOk) return status;
    group.sum = add(group.sum, bytes);
    if (!beyond) total = add(total, bytes);
  }
  if (beyond && lengths_ != nullptr) lengths_->resize(kept);
  if (const SavedData* saved = saved_data(object); saved != nullptr && last == 0xFFFFFFFFU) {
    if (saved->Syntax != walk_.encoding.syntax) {
      VX_LOG_ERR(kFunction,
                 "Transfer syntax of saved data does not match transfer syntax to determine length for.");
      return VX_SYSTEM_ERROR;
    }
    total = add(total, saved->Length);
  }
  return close(object, group);
}

VX_STATUS Measurer::close(MsgObj& object, Group& group) {
  TagObj* attribute = group.attribute;
  group.attribute = nullptr;
  if (attribute == nullptr || (walk_.keep_group_lengths && attribute->ValueCount > 0)) return kOk;
  const uint32_t value = group.sum < kUndefinedLength ? static_cast<uint32_t>(group.sum) : kUndefinedLength;
  return set_group_length(object, *attribute, value);
}

VX_STATUS Measurer::attribute(MsgObj& object, TagObj& attribute, int depth, uint64_t& bytes) {
  if (attribute.VR != VX_VR_SQ) {
    const uint64_t length = plain_value_length(walk_, object, attribute, depth == 0);
    bytes = length == kUndefinedLength ? kUnknown : header_size(walk_, attribute.VR, length) + length;
    return kOk;
  }
  const VX_STATUS status = sequence(attribute, depth, bytes);
  bytes = add(bytes, header_size(walk_, VX_VR_SQ, 0));
  return status;
}

VX_STATUS Measurer::sequence(const TagObj& sequence, int depth, uint64_t& bytes) {
  bytes = 0;
  if (depth >= kMaxNesting) {
    VX_LOG_ERR(kFunction, "Sequences are nested in more than %d levels", kMaxNesting);
    return VX_INVALID_VALUE_FOR_VR;
  }
  const bool defined = !walk_.undefined_lengths;
  const auto slot = [this, defined]() -> std::size_t {
    if (!defined || lengths_ == nullptr) return 0;
    lengths_->push_back(0);
    return lengths_->size() - 1;
  };
  const auto fill = [this, defined](std::size_t at, uint64_t length) {
    if (defined && lengths_ != nullptr) {
      (*lengths_)[at] = length == kUnknown ? kUndefinedLength : static_cast<uint32_t>(length);
    }
    return !defined || length == kUnknown || length < kUndefinedLength;
  };
  const std::size_t own = slot();
  int number = 0;
  for (const ValueObj* value = sequence.FirstValue; value != nullptr; value = value->Next) {
    auto* item = static_cast<MsgObj*>(value->Data);
    if (item == nullptr) continue;
    ++number;
    const std::size_t of_item = slot();
    uint64_t length = 0;
    VX_STATUS status = object(*item, item->FirstTag, 0xFFFFFFFFU, depth + 1, length);
    if (status == kOk && !fill(of_item, length)) status = VX_INVALID_LENGTH_FOR_VR;
    if (status != kOk) {
      VX_LOG_ERR(kFunction, "Unable to get length for tag: %8.8X, item %d", sequence.Tag, number);
      return status;
    }
    bytes = add(bytes, add(length, !defined || length == kUnknown ? 16 : 8));
  }
  const bool delimited = !defined || bytes == kUnknown || needs_delimiter(walk_, sequence);
  if (delimited) bytes = add(bytes, 8);
  if (!fill(own, delimited ? kUnknown : bytes)) {
    VX_LOG_ERR(kFunction, "Unable to get length for tag: %8.8X, item %d", sequence.Tag, number);
    return VX_INVALID_LENGTH_FOR_VR;
  }
  return kOk;
}

}  // namespace

ExportRules export_rules(Destination destination) {
  ExportRules rules{};
  const bool media = destination == Destination::Media;
  const bool network = destination == Destination::Network;
  const auto on = [&](VX_BOOL_KEY media_key, VX_BOOL_KEY network_key) {
    return media ? config_bool(media_key) : !network || config_bool(network_key);
  };
  rules.un = on(VX_CFG_EXPORT_UN_VR_TO_MEDIA, VX_CFG_EXPORT_UN_VR_TO_NETWORK);
  rules.private_attributes =
      on(VX_CFG_EXPORT_PRIVATE_ATTRIBUTES_TO_MEDIA, VX_CFG_EXPORT_PRIVATE_ATTRIBUTES_TO_NETWORK);
  rules.group_lengths =
      config_bool(media ? VX_CFG_EXPORT_GROUP_LENGTHS_TO_MEDIA : VX_CFG_EXPORT_GROUP_LENGTHS_TO_NETWORK);
  rules.empty_creators = config_bool(VX_CFG_EXPORT_EMPTY_PRIVATE_CREATOR_CODES);
  rules.long_to_un = config_bool(VX_CFG_EXPLICIT_VR_TO_UN_FOR_LENGTH_GT_64K);
  rules.keep_form = keeps_stream_form();
  config_text(VX_CFG_UNKNOWN_VR_CODE, rules.un_letters, sizeof rules.un_letters);
  if (rules.un_letters[0] == '\0' || rules.un_letters[1] == '\0') std::memcpy(rules.un_letters, "UN", 3);
  rules.large = static_cast<uint32_t>(config_int(VX_CFG_LARGE_DATA_SIZE));
  return rules;
}

bool outgrows_header(const Encoding& encoding, int32_t vr, uint64_t length) {
  return encoding.explicit_vr && !has_long_header(vr) && length > kMaxShortLength;
}

uint32_t header_size(const WalkState& walk, int32_t vr, uint64_t length) {
  if (!walk.encoding.explicit_vr) return kShortHeader;
  const bool long_form =
      has_long_header(vr) || (walk.rules.long_to_un && outgrows_header(walk.encoding, vr, length));
  return long_form ? kLongHeader : kShortHeader;
}

bool is_encapsulated(const WalkState& walk, const MsgObj& object, const TagObj& attribute, bool top) {
  if (attribute.Tag != kPixelData) return false;
  if (top) return walk.encoding.encapsulated;
  Encoding own{};
  return object.SyntaxSet != 0 && syntax_encoding(object.TransferSyntax, own) == kOk && own.encapsulated;
}

VX_STATUS admit(WalkState& walk, MsgObj& object, TagObj& attribute, bool top, bool& write) {
  const uint32_t tag = attribute.Tag;
  const uint16_t group = tag_group(tag);
  write = false;
  if (top) {
    if (walk.tag_list != nullptr && !in_tag_list(walk.tag_list, tag)) return kOk;
    if (walk.meta_pending && group != 2) {
      walk.meta_pending = false;
      walk.encoding = walk.next;
    }
  }
  if (attribute.VR == VX_VR_UN && !walk.rules.un) return kOk;
  if (!walk.rules.private_attributes && is_private(tag)) {
    return is_group_length(tag) && attribute.ValueCount > 0 ? set_group_length(object, attribute, 0) : kOk;
  }
  if (is_group_length(tag)) {
    const bool always = group == 0 || group == 2;
    write = always || (!walk.no_group_lengths && walk.rules.group_lengths);
    return kOk;
  }
  if (is_encapsulated(walk, object, attribute, top)) attribute.VR = VX_VR_OB;
  if (attribute.VR >= VX_VR_OB && attribute.VR <= VX_VR_OF) {
    if (walk.application_id != 0 && attribute.Storage != Stored::ByCallback)
      bind_one(walk.application_id, object, attribute);
    if (attribute.Storage == Stored::ByCallback && attribute.ValueCount == 0) {
      if (VX_STATUS status = ask_callback(walk, object, attribute); status != kOk) return status;
    }
  }
  if (attribute.ValueCount == 0) return kOk;
  if (!walk.rules.empty_creators && is_private_creator(tag) && creator_block_is_empty(object, attribute)) {
    return kOk;
  }
  write = true;
  return kOk;
}

uint64_t plain_value_length(const WalkState& walk, const MsgObj& object, const TagObj& attribute, bool top) {
  if (attribute.Length == kUndefinedLength) return kUndefinedLength;
  uint64_t length = attribute.Length;
  if (attribute.DecoderMark == kKeptText) return attribute.KeptText->Length;
  if (is_text_vr(attribute.VR)) {
    if (attribute.ValueCount > 1) length += static_cast<uint64_t>(attribute.ValueCount) - 1;
    length += length % 2;
  } else if ((attribute.VR == VX_VR_OB || walk.rules.keep_form) &&
             !is_encapsulated(walk, object, attribute, top)) {
    length += length % 2;
  }
  return length;
}

VX_STATUS measure(WalkState walk, MsgObj& object, uint32_t first, uint32_t last,
                  std::vector<uint32_t>* lengths, uint64_t& total) {
  Measurer measurer(walk, lengths);
  const WalkOrder order = walk_order(walk, first, last);
  total = 0;
  for (int i = 0; i < order.count; ++i) {
    const TagRange range = order.ranges[i];
    uint64_t part = 0;
    const VX_STATUS status =
        measurer.object(object, lower_bound_tag(object, range.first), range.last, 0, part);
    if (status != kOk) return status;
    total = add(total, part);
  }
  return kOk;
}

WalkOrder walk_order(const WalkState& walk, uint32_t first, uint32_t last) {
  if (!walk.meta_pending || first >= kMetaGroup.first || last <= kMetaGroup.last) return {{{first, last}}, 1};
  return {{kMetaGroup, {first, kMetaGroup.first - 1}, {kMetaGroup.last + 1, last}}, 3};
}

VX_STATUS run_length(MsgObj& object, uint32_t first, uint32_t last, const LengthQuery& query,
                     uint64_t& length) try {
  WalkState walk{};
  walk.rules = export_rules(query.destination);
  walk.encoding = walk.next = query.encoding;
  walk.undefined_lengths = query.undefined_lengths;
  walk.application_id = query.application_id;
  const Held held(object, Hold::All);
  length = 0;
  uint64_t total = 0;
  VX_STATUS status = last != 0xFFFFFFFFU ? decode_up_to(object, last) : kOk;
  if (status == kOk) status = measure(walk, object, first, last, nullptr, total);
  if (status == kOk) length = total == kUnknown ? uint64_t{kUndefinedLength} : total;
  return status;
} catch (const std::bad_alloc&) {
  return VX_SYSTEM_ERROR;
}

}  // namespace vx
