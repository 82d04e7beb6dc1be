// A library with default settings and a few attributes, for targets that work on objects.
#pragma once

#include <cstdint>
#include <string>

#include "config/keys.h"
#include "vexalkit.h"

namespace fuzz {

inline ConfigRecord* configuration() {
  static ConfigRecord record;
  record = {};
  for (int i = 0; i < VX_INT_KEY_COUNT; ++i)
    record.int_values[i] = vx::int_keys()[static_cast<std::size_t>(i)].initial;
  for (int i = 0; i < VX_LONG_KEY_COUNT; ++i) {
    record.long_values[i] = vx::long_keys()[static_cast<std::size_t>(i)].initial;
  }
  for (int i = 0; i < VX_BOOL_KEY_COUNT; ++i) {
    record.bool_values[i] = vx::bool_keys()[static_cast<std::size_t>(i)].initial ? 1 : 0;
  }
  for (int i = 0; i < VX_STRING_KEY_COUNT; ++i) {
    record.string_values[i] = vx::string_keys()[static_cast<std::size_t>(i)].initial;
  }
  for (uint32_t& destination : record.log_destinations) destination = VX_LOG_OFF;
  record.string_values[VX_CFG_LOG_FILE] = "/dev/null";
  static const char* const name = "STANDARD_ECHO";
  static const char* const uid = "1.2.840.10008.1.1";
  static const uint32_t commands = 0;
  static const int32_t number = 1;
  static const int32_t kind = 30;
  static const int32_t none = 0;
  static const int32_t* const no_classes = nullptr;
  record.service_count = 1;
  record.service_names = &name;
  record.service_uids = &uid;
  record.service_commands = &commands;
  record.service_numbers = &number;
  record.service_kinds = &kind;
  record.sop_class_counts = &none;
  record.sop_classes = &no_classes;
  return &record;
}

inline const DictionaryRecord* dictionary() {
  static DictEntry entries[] = {
      {nullptr, 0x00020000, VX_VR_UL, 1, 1, "Group Length", nullptr},
      {nullptr, 0x00020010, VX_VR_UI, 1, 1, "Transfer Syntax UID", nullptr},
      {nullptr, 0x00080000, VX_VR_UL, 1, 1, "Group Length", nullptr},
      {nullptr, 0x00080005, VX_VR_CS, 1, 255, "Specific Character Set", nullptr},
      {nullptr, 0x00080018, VX_VR_UI, 1, 1, "SOP Instance UID", nullptr},
      {nullptr, 0x00081140, VX_VR_SQ, 1, 1, "Referenced Image Sequence", nullptr},
      {nullptr, 0x00090001, VX_VR_LO, 1, 1, "Text", "ACME"},
      {nullptr, 0x00090003, VX_VR_SQ, 1, 1, "Sequence", "ACME"},
      {nullptr, 0x00100010, VX_VR_PN, 1, 1, "Patient's Name", nullptr},
      {nullptr, 0x00101030, VX_VR_DS, 1, 1, "Patient's Weight", nullptr},
      {nullptr, 0x00280008, VX_VR_IS, 1, 1, "Number of Frames", nullptr},
      {nullptr, 0x00280009, VX_VR_AT, 1, 255, "Frame Increment Pointer", nullptr},
      {nullptr, 0x00280010, VX_VR_US, 1, 1, "Rows", nullptr},
      {nullptr, 0x0040A160, VX_VR_UT, 1, 1, "Text Value", nullptr},
      {nullptr, 0x00660016, VX_VR_OF, 1, 1, "Point Coordinates Data", nullptr},
      {nullptr, 0x7FE00010, VX_VR_OW, 1, 1, "Pixel Data", nullptr},
  };
  static const DictEntry* chains[VX_DICTIONARY_CHAINS];
  static const DictionaryRecord record{VX_BUILD_VERSION, chains};
  for (const DictEntry*& chain : chains) chain = nullptr;
  for (DictEntry& entry : entries) {
    const DictEntry*& chain = chains[entry.Tag % VX_DICTIONARY_CHAINS];
    entry.Next = chain;
    chain = &entry;
  }
  return &record;
}

// Starts the library once for the process.
inline void start_library() {
  static const VX_STATUS status = VX_Library_Initialization(&configuration, &dictionary, nullptr);
  if (status != VX_NORMAL_COMPLETION) __builtin_trap();
}

// Callbacks on a std::string: all of it at once, and everything behind what is there.
inline VX_STATUS give_text(int32_t, void* user, uint32_t* size, void** data, int32_t, int32_t* last) {
  auto& text = *static_cast<std::string*>(user);
  *data = text.data();
  *size = static_cast<uint32_t>(text.size());
  *last = 1;
  return VX_NORMAL_COMPLETION;
}
inline VX_STATUS take_text(int32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  static_cast<std::string*>(user)->append(static_cast<const char*>(data), size);
  return VX_NORMAL_COMPLETION;
}

}  // namespace fuzz
