#include "config/keys.h"

#include <iterator>

#include "config/record.h"
#include "frame/text.h"

namespace vx {
namespace {

constexpr const char* kSectionNames[] = {"VexalKit3",     "ASSOC_PARMS",     "DIMSE_PARMS", "DUL_PARMS",
                                         "MESSAGE_PARMS", "TRANSPORT_PARMS", "MEDIA_PARMS"};
static_assert(std::size(kSectionNames) == kSectionCount);

constexpr IntKey kIntKeys[] = {
    {"ARTIM_TIMEOUT", Section::Dul, 30},
    {"ASSOC_REPLY_TIMEOUT", Section::Dul, 15},
    {"COMPRESSION_CHROM_FACTOR", Section::Message, 32},
    {"COMPRESSION_J2K_LOSSY_QUALITY", Section::Message, 1},
    {"COMPRESSION_J2K_LOSSY_RATIO", Section::Message, 10},
    {"COMPRESSION_LUM_FACTOR", Section::Message, 32},
    {"CONNECT_TIMEOUT", Section::Dul, 15},
    {"DEFLATE_COMPRESSION_LEVEL", Section::Message, -1},
    {"DESIRED_LAST_PDU_SIZE", Section::Message, 8},
    {"FLATE_GROW_OUTPUT_BUF_SIZE", Section::Message, 1024},
    {"IGNORE_JPEG_BAD_SUFFIX", Section::Message, -1},
    {"INACTIVITY_TIMEOUT", Section::Dul, 15},
    {"LARGE_DATA_SIZE", Section::Message, 200},
    {"LIST_SQ_DEPTH_LIMIT", Section::Message, 0},
    {"LIST_VALUE_LIMIT", Section::Message, 0},
    {"LOG_FILE_LINE_LENGTH", Section::VexalKit3, 78},
    {"LOG_FILE_SIZE", Section::VexalKit3, 1000},
    {"LOG_MEMORY_SIZE", Section::VexalKit3, 1},
    {"MAX_PENDING_CONNECTIONS", Section::Transport, 5},
    {"NUM_HISTORICAL_LOG_FILES", Section::VexalKit3, 1},
    {"NUMBER_OF_CAP_FILES", Section::Transport, 1},
    {"OBOW_BUFFER_SIZE", Section::Message, 4096},
    {"RELEASE_TIMEOUT", Section::Dul, 15},
    {"TCPIP_LISTEN_PORT", Section::Transport, 104},
    {"TCPIP_RECEIVE_BUFFER_SIZE", Section::Transport, 131400},
    {"TCPIP_SEND_BUFFER_SIZE", Section::Transport, 131400},
    {"WORK_BUFFER_SIZE", Section::Message, 28672},
    {"WRITE_TIMEOUT", Section::Dul, 15},
    {"COMPRESSION_QUALITY", Section::Message, 90},
    {"COMPRESSION_THREADS", Section::Message, 0},
};

constexpr IntKey kLongKeys[] = {
    {"CALLBACK_MIN_DATA_SIZE", Section::Message, 1},
    {"CAPTURE_FILE_SIZE", Section::Transport, 0},
    {"PDU_MAXIMUM_LENGTH", Section::Assoc, 64234},
    {"PIXEL_BUFFER_SIZE", Section::Message, 131072},
};

constexpr BoolKey kBoolKeys[] = {
    {"ACCEPT_ANY_APPLICATION_TITLE", Section::Assoc, false, true},
    {"ACCEPT_ANY_CONTEXT_NAME", Section::Assoc, false, true},
    {"ACCEPT_ANY_HOSTNAME", Section::Assoc, false, true},
    {"ACCEPT_ANY_PRESENTATION_CONTEXT", Section::Assoc, false, true},
    {"ACCEPT_ANY_PROTOCOL_VERSION", Section::Assoc, false, false},
    {"ACCEPT_DIFFERENT_IC_UID", Section::Assoc, true, true},
    {"ACCEPT_DIFFERENT_VERSION", Section::Assoc, true, true},
    {"ACCEPT_MULTIPLE_PRES_CONTEXTS", Section::Assoc, true, true},
    {"ACCEPT_RELATED_GENERAL_SERVICES", Section::Assoc, false, true},
    {"ACCEPT_STORAGE_SERVICE_CONTEXTS", Section::Assoc, false, true},
    {"ALLOW_COMMA_IN_DS_FL_FD_STRINGS", Section::Message, false, true},
    {"ALLOW_INVALID_LENGTH_FOR_VR", Section::Message, false, false},
    {"ALLOW_INVALID_PRIVATE_ATTRIBUTES", Section::Message, false, true},
    {"ALLOW_INVALID_PRIVATE_CREATOR_CODES", Section::Message, false, true},
    {"ALLOW_LIBRARY_EXCEPTION_HANDLER", Section::VexalKit3, false, true},
    {"ALLOW_OUT_OF_ORDER_TAGS", Section::Message, false, false},
    {"ATT_00081190_USE_UT_VR", Section::Message, false, true},
    {"ATT_00287FE0_USE_UT_VR", Section::Message, false, true},
    {"ATT_0040E010_USE_UT_VR", Section::Message, false, true},
    {"ATT_0074100A_USE_ST_VR", Section::Message, false, true},
    {"AUTO_ECHO_SUPPORT", Section::Assoc, true, true},
    {"BLANK_FILL_LOG_FILE", Section::VexalKit3, true, true},
    {"COMBINE_DATA_WITH_HEADER", Section::Transport, false, false},
    {"COMPRESSION_ALLOW_FRAGS", Section::Message, true, true},
    {"COMPRESSION_J2K_LOSSY_USE_QUALITY", Section::Message, true, true},
    {"COMPRESSION_J2K_SIGNED_TOLERANCE", Section::Message, false, false},
    {"COMPRESSION_USE_HEADER_QUERY", Section::Message, false, true},
    {"COMPRESSION_WHEN_J2K_USE_LOSSY", Section::Message, false, true},
    {"CREATE_OFFSET_TABLE", Section::Message, true, true},
    {"DEFLATE_ALLOW_FLUSH", Section::Message, true, true},
    {"DICOMDIR_STREAM_STORAGE", Section::Media, false, true},
    {"DUPLICATE_ENCAPSULATED_ICON", Section::Message, false, true},
    {"ORVEN_OPEN_FILE", Section::Message, false, false},
    {"ELIMINATE_ITEM_REFERENCES", Section::Message, false, true},
    {"EMPTY_PRIVATE_CREATOR_CODES", Section::Message, true, true},
    {"EXPLICIT_VR_TO_UN_FOR_LENGTH_GT_64K", Section::Message, false, true},
    {"EXPORT_EMPTY_PRIVATE_CREATOR_CODES", Section::Message, true, true},
    {"EXPORT_GROUP_LENGTHS_TO_MEDIA", Section::Media, true, true},
    {"EXPORT_GROUP_LENGTHS_TO_NETWORK", Section::Message, true, true},
    {"EXPORT_PRIVATE_ATTRIBUTES_TO_MEDIA", Section::Media, true, true},
    {"EXPORT_PRIVATE_ATTRIBUTES_TO_NETWORK", Section::Message, true, true},
    {"EXPORT_UN_VR_TO_MEDIA", Section::Media, true, true},
    {"EXPORT_UN_VR_TO_NETWORK", Section::Message, true, true},
    {"EXPORT_UNDEFINED_LENGTH_SQ", Section::Message, false, true},
    {"EXPORT_UNDEFINED_LENGTH_SQ_IN_DICOMDIR", Section::Media, true, true},
    {"FORCE_DICM_IN_PREFIX", Section::Message, true, false},
    {"FORCE_JAVA_BIG_ENDIAN", Section::Message, true, true},
    {"FORCE_OPEN_EMPTY_ITEM", Section::Message, false, true},
    {"HARD_CLOSE_TCP_IP_CONNECTION", Section::Assoc, true, true},
    {"INSURE_EVEN_UID_LENGTH", Section::Dul, false, true},
    {"LIST_UN_ATTRIBUTES", Section::Message, true, true},
    {"LOG_FILE_BACKUP", Section::VexalKit3, false, true},
    {"MSG_FILE_ITEM_OBJ_TRACE", Section::Message, false, true},
    {"NETWORK_CAPTURE", Section::Transport, false, true},
    {"PRIVATE_SYNTAX_1_ENCAPSULATED", Section::Assoc, false, true},
    {"PRIVATE_SYNTAX_1_EXPLICIT_VR", Section::Assoc, true, true},
    {"PRIVATE_SYNTAX_1_LITTLE_ENDIAN", Section::Assoc, true, true},
    {"PRIVATE_SYNTAX_2_ENCAPSULATED", Section::Assoc, false, true},
    {"PRIVATE_SYNTAX_2_EXPLICIT_VR", Section::Assoc, true, true},
    {"PRIVATE_SYNTAX_2_LITTLE_ENDIAN", Section::Assoc, true, true},
    {"REJECT_INVALID_VR", Section::Message, false, true},
    {"RELEASE_SQ_ITEMS", Section::Message, false, true},
    {"REMOVE_PADDING_CHARS", Section::Message, false, true},
    {"REMOVE_SINGLE_TRAILING_SPACE", Section::Message, true, true},
    {"RETURN_COMMA_IN_DS_FL_FD_STRINGS", Section::Message, false, true},
    {"REWRITE_CAPTURE_FILES", Section::Transport, true, true},
    {"SEND_ECHO_PRIORITY", Section::Dimse, false, true},
    {"SEND_LENGTH_TO_END", Section::Dimse, false, true},
    {"SEND_MSG_ID_RESPONSE", Section::Dimse, false, true},
    {"SEND_RECOGNITION_CODE", Section::Dimse, false, true},
    {"SEND_RESPONSE_PRIORITY", Section::Dimse, false, true},
    {"SEND_SOP_CLASS_UID", Section::Dimse, true, true},
    {"SEND_SOP_INSTANCE_UID", Section::Dimse, true, true},
    {"TCPIP_DISABLE_NAGLE", Section::Transport, false, true},
    {"TOLERATE_INVALID_IN_DEFAULT_CHARSET", Section::Message, true, true},
    {"UPDATE_GROUP_0028_ON_DUPLICATE", Section::Message, false, true},
    {"USE_FREE_DATA_CALLBACK", Section::Message, false, true},
    {"ALLOW_DUPLICATE_CREATOR_CODES", Section::Message, false, false},
};

constexpr StringKey kStringKeys[] = {
    {"ACCEPT_LIST_OF_APPLICATION_TITLES", Section::Assoc, "", false},
    {"CAPTURE_FILE", Section::Transport, "./vexal.cap", true},
    {"COMPRESSION_RGB_TRANSFORM_FORMAT", Section::Message, "YBR_FULL_422", false},
    {"DECODER_TAG_FILTER", Section::Message, "", false},
    {"DEFLATED_EXPLICIT_LITTLE_ENDIAN_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.1.99", false},
    {"DICTIONARY_ACCESS", Section::Message, "MEM", false},
    {"DICTIONARY_FILE", Section::Message, "../vx3msg/vxlkit3.dct", true},
    {"EXPLICIT_BIG_ENDIAN_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.2", false},
    {"EXPLICIT_LITTLE_ENDIAN_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.1", false},
    {"IMPLEMENTATION_CLASS_UID", Section::Assoc, "", false},
    {"IMPLEMENTATION_VERSION", Section::Assoc, "", false},
    {"IMPLICIT_BIG_ENDIAN_SYNTAX", Section::Assoc, "", false},
    {"IMPLICIT_LITTLE_ENDIAN_SYNTAX", Section::Assoc, "1.2.840.10008.1.2", false},
    {"INITIATOR_NAME", Section::Dimse, "", false},
    {"IP_TYPE", Section::Transport, "AVAILABLE", false},
    {"JPEG_2000_LOSSLESS_ONLY_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.90", false},
    {"JPEG_2000_MC_LOSSLESS_ONLY_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.92", false},
    {"JPEG_2000_MC_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.93", false},
    {"JPEG_2000_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.91", false},
    {"JPEG_BASELINE_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.50", false},
    {"JPEG_EXTENDED_2_4_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.51", false},
    {"JPEG_EXTENDED_3_5_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.52", false},
    {"JPEG_EXTENDED_HIER_16_18_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.59", false},
    {"JPEG_EXTENDED_HIER_17_19_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.60", false},
    {"JPEG_FULL_PROG_HIER_24_26_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.63", false},
    {"JPEG_FULL_PROG_HIER_25_27_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.64", false},
    {"JPEG_FULL_PROG_NON_HIER_10_12_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.55", false},
    {"JPEG_FULL_PROG_NON_HIER_11_13_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.56", false},
    {"JPEG_LOSSLESS_HIER_14_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.70", false},
    {"JPEG_LOSSLESS_HIER_28_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.65", false},
    {"JPEG_LOSSLESS_HIER_29_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.66", false},
    {"JPEG_LOSSLESS_NON_HIER_14_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.57", false},
    {"JPEG_LOSSLESS_NON_HIER_15_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.58", false},
    {"JPEG_LS_LOSSLESS_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.80", false},
    {"JPEG_LS_LOSSY_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.81", false},
    {"JPEG_SPEC_HIER_20_22_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.61", false},
    {"JPEG_SPEC_HIER_21_23_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.62", false},
    {"JPEG_SPEC_NON_HIER_6_8_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.53", false},
    {"JPEG_SPEC_NON_HIER_7_9_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.54", false},
    {"JPIP_REFERENCED_DEFLATE_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.95", false},
    {"JPIP_REFERENCED_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.94", false},
    {"LARGE_DATA_STORE", Section::Message, "MEM", false},
    {"LOCAL_APPL_CONTEXT_NAME", Section::Assoc, "1.2.840.10008.3.1.1.1", false},
    {"LOG_FILE", Section::VexalKit3, "vexal.log", false},
    {"MPEG2_MPHL_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.101", false},
    {"MPEG2_MPML_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.100", false},
    {"MPEG4_AVC_H264_BDC_HP_LEVEL_4_1_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.103", false},
    {"MPEG4_AVC_H264_HP_LEVEL_4_1_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.102", false},
    {"MPEG4_AVC_H264_HP_LEVEL_4_2_2D_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.104", false},
    {"MPEG4_AVC_H264_HP_LEVEL_4_2_3D_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.105", false},
    {"MPEG4_AVC_H264_STEREO_HP_LEVEL_4_2_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.4.106", false},
    {"MSG_INFO_FILE", Section::Message, "../vx3msg/vxlkit3.msg", true},
    {"NULL_TYPE3_VALIDATION", Section::Message, "ERR", false},
    {"PEGASUS_OPCODE_PATH", Section::Message, "", true},
    {"PRIVATE_SYNTAX_1_SYNTAX", Section::Assoc, "", false},
    {"PRIVATE_SYNTAX_2_SYNTAX", Section::Assoc, "", false},
    {"RECEIVER_NAME", Section::Dimse, "", false},
    {"RLE_SYNTAX", Section::Assoc, "1.2.840.10008.1.2.5", false},
    {"TEMP_FILE_DIRECTORY", Section::Message, ".", true},
    {"UNKNOWN_VR_CODE", Section::Message, "UN", false},
    {"VEXALKIT_3_APPLICATIONS", Section::VexalKit3, "", true},
    {"VEXALKIT_3_PROFILE", Section::VexalKit3, "", true},
    {"VEXALKIT_3_SERVICES", Section::VexalKit3, "", true},
};

// Line by line as the log keys of the interface.
constexpr const char* kLogKeys[] = {"ERROR_MESSAGE", "INFO_MESSAGE", "WARNING_MESSAGE", "T1_MESSAGE",
                                    "T2_MESSAGE",    "T3_MESSAGE",   "T4_MESSAGE",      "T5_MESSAGE",
                                    "T6_MESSAGE",    "T7_MESSAGE",   "T8_MESSAGE",      "T9_MESSAGE"};

constexpr ConfigRecord make_defaults() {
  ConfigRecord record{};
  for (std::size_t i = 0; i < VX_STRING_KEY_COUNT; ++i) record.string_values[i] = kStringKeys[i].initial;
  for (std::size_t i = 0; i < VX_INT_KEY_COUNT; ++i) record.int_values[i] = kIntKeys[i].initial;
  for (std::size_t i = 0; i < VX_LONG_KEY_COUNT; ++i) record.long_values[i] = kLongKeys[i].initial;
  for (std::size_t i = 0; i < VX_BOOL_KEY_COUNT; ++i) record.bool_values[i] = kBoolKeys[i].initial ? 1 : 0;
  for (uint32_t& destination : record.log_destinations) destination = VX_LOG_OFF;
  return record;
}

}  // namespace

const char* section_name(Section section) {
  const auto index = static_cast<std::size_t>(section);
  return index < std::size(kSectionNames) ? kSectionNames[index] : "";
}

Section find_section(std::string_view name) {
  for (std::size_t i = 0; i < std::size(kSectionNames); ++i) {
    if (equals_ignoring_case(name, kSectionNames[i])) return static_cast<Section>(i);
  }
  return Section::None;
}

std::span<const IntKey, VX_INT_KEY_COUNT> int_keys() {
  return kIntKeys;
}
std::span<const IntKey, VX_LONG_KEY_COUNT> long_keys() {
  return kLongKeys;
}
std::span<const BoolKey, VX_BOOL_KEY_COUNT> bool_keys() {
  return kBoolKeys;
}
std::span<const StringKey, VX_STRING_KEY_COUNT> string_keys() {
  return kStringKeys;
}
std::span<const char* const, VX_LOG_KEY_COUNT> log_keys() {
  return kLogKeys;
}

void set_defaults(ConfigRecord& record) {
  record = make_defaults();
}

ConfigRecord& default_record() {
  static constinit ConfigRecord record = make_defaults();
  return record;
}

}  // namespace vx
