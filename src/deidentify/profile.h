// The basic profile of PS3.15 annex E and its options: what becomes of which attribute.
#pragma once

#include <cstdint>
#include <string_view>

#include "frame/status.h"

namespace vx {

// What a row of the table lets become of an attribute.
enum : uint8_t { kMayX = 1, kMayZ = 2, kMayD = 4, kMayU = 8 };

struct ConfidentialityRow {
  uint32_t tag;    // or the code of a VR
  uint32_t mask;   // of the tag that the row is about
  uint8_t may;     // kMay bits
  uint32_t keep;   // options that keep the attribute
  uint32_t clean;  // options that clean it
  bool patient;    // what names the patient: a pseudonym takes its place
};
struct SafePrivate {
  std::string_view creator;
  uint16_t group;
  uint8_t element;
};

// The letters of PS3.15 table E.1-1a.
enum class Action : char { Keep = 'K', Remove = 'X', Empty = 'Z', Dummy = 'D', Uid = 'U', Clean = 'C' };
// What the object's rules demand at a place.
enum class Need : uint8_t { Value, Presence, Nothing, Unknown };

// The row of a public attribute, or that of its VR; null if it may stay as it is.
const ConfidentialityRow* confidentiality_of(uint32_t tag, int32_t vr);
const ConfidentialityRow& private_confidentiality();
// What is to be done under the options chosen. Where one keeps and another one cleans, it is cleaned.
Action action_of(const ConfidentialityRow& row, uint32_t options, Need need);

// Classes, transfer syntaxes, well-known frames and instances: nobody is identified by them.
bool is_standard_uid(std::string_view uid);
bool is_public_scheme(std::string_view designator);
bool is_safe_private(std::string_view creator, uint16_t group, uint8_t element);

// The codes of CID 7050 in the order of the options; the first is that of the profile itself.
struct MethodCode {
  uint32_t option;  // 0: always
  const char* value;
  const char* meaning;
};
inline constexpr MethodCode kMethods[] = {
    {0, "113100", "Basic Application Confidentiality Profile"},
    {VX_CLEAN_PIXEL_DATA, "113101", "Clean Pixel Data Option"},
    {VX_CLEAN_GRAPHICS, "113103", "Clean Graphics Option"},
    {VX_CLEAN_STRUCTURED_CONTENT, "113104", "Clean Structured Content Option"},
    {VX_CLEAN_DESCRIPTORS, "113105", "Clean Descriptors Option"},
    {VX_RETAIN_FULL_DATES, "113106", "Retain Longitudinal Temporal Information Full Dates Option"},
    {VX_RETAIN_MODIFIED_DATES, "113107", "Retain Longitudinal Temporal Information Modified Dates Option"},
    {VX_RETAIN_PATIENT_CHARACTERISTICS, "113108", "Retain Patient Characteristics Option"},
    {VX_RETAIN_DEVICE_IDENTITY, "113109", "Retain Device Identity Option"},
    {VX_RETAIN_UIDS, "113110", "Retain UIDs Option"},
    {VX_RETAIN_SAFE_PRIVATE, "113111", "Retain Safe Private Option"},
    {VX_RETAIN_INSTITUTION_IDENTITY, "113112", "Retain Institution Identity Option"},
};

}  // namespace vx
