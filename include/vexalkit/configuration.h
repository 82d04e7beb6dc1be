/** @file
 * Settings and services. The conventions stand in vexalkit.h.
 */
#ifndef VEXALKIT_CONFIGURATION_H
#define VEXALKIT_CONFIGURATION_H

#include "base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Configuration keys -------------------------------------------------------------------------------- */

/**
 * Settings that are numbers.
 * A key of any of these groups is VX_CFG_ and the name that profiles use; the system profile vexalkit.pro,
 * installed with its defaults, says behind each line what the setting does.
 */
typedef int32_t VX_INT_KEY;

enum {
  VX_CFG_ARTIM_TIMEOUT = 0,
  VX_CFG_ASSOC_REPLY_TIMEOUT = 1,
  VX_CFG_COMPRESSION_CHROM_FACTOR = 2,
  VX_CFG_COMPRESSION_J2K_LOSSY_QUALITY = 3,
  VX_CFG_COMPRESSION_J2K_LOSSY_RATIO = 4,
  VX_CFG_COMPRESSION_LUM_FACTOR = 5,
  VX_CFG_CONNECT_TIMEOUT = 6,
  VX_CFG_DEFLATE_COMPRESSION_LEVEL = 7,
  VX_CFG_DESIRED_LAST_PDU_SIZE = 8,
  VX_CFG_FLATE_GROW_OUTPUT_BUF_SIZE = 9,
  VX_CFG_IGNORE_JPEG_BAD_SUFFIX = 10,
  VX_CFG_INACTIVITY_TIMEOUT = 11,
  VX_CFG_LARGE_DATA_SIZE = 12,
  VX_CFG_LIST_SQ_DEPTH_LIMIT = 13,
  VX_CFG_LIST_VALUE_LIMIT = 14,
  VX_CFG_LOG_FILE_LINE_LENGTH = 15,
  VX_CFG_LOG_FILE_SIZE = 16,
  VX_CFG_LOG_MEMORY_SIZE = 17,
  VX_CFG_MAX_PENDING_CONNECTIONS = 18,
  VX_CFG_NUM_HISTORICAL_LOG_FILES = 19,
  VX_CFG_NUMBER_OF_CAP_FILES = 20,
  VX_CFG_OBOW_BUFFER_SIZE = 21,
  VX_CFG_RELEASE_TIMEOUT = 22,
  VX_CFG_TCPIP_LISTEN_PORT = 23,
  VX_CFG_TCPIP_RECEIVE_BUFFER_SIZE = 24,
  VX_CFG_TCPIP_SEND_BUFFER_SIZE = 25,
  VX_CFG_WORK_BUFFER_SIZE = 26,
  VX_CFG_WRITE_TIMEOUT = 27,
  VX_CFG_COMPRESSION_QUALITY = 28,
  VX_CFG_COMPRESSION_THREADS = 29
};

/** Settings that are sizes: in bytes, CAPTURE_FILE_SIZE in kilobytes. */
typedef int32_t VX_LONG_KEY;

enum {
  VX_CFG_CALLBACK_MIN_DATA_SIZE = 0,
  VX_CFG_CAPTURE_FILE_SIZE = 1,
  VX_CFG_PDU_MAXIMUM_LENGTH = 2,
  VX_CFG_PIXEL_BUFFER_SIZE = 3
};

/** Settings that are switches. */
typedef int32_t VX_BOOL_KEY;

enum {
  VX_CFG_ACCEPT_ANY_APPLICATION_TITLE = 0,
  VX_CFG_ACCEPT_ANY_CONTEXT_NAME = 1,
  VX_CFG_ACCEPT_ANY_HOSTNAME = 2,
  VX_CFG_ACCEPT_ANY_PRESENTATION_CONTEXT = 3,
  VX_CFG_ACCEPT_ANY_PROTOCOL_VERSION = 4,
  VX_CFG_ACCEPT_DIFFERENT_IC_UID = 5,
  VX_CFG_ACCEPT_DIFFERENT_VERSION = 6,
  VX_CFG_ACCEPT_MULTIPLE_PRES_CONTEXTS = 7,
  VX_CFG_ACCEPT_RELATED_GENERAL_SERVICES = 8,
  VX_CFG_ACCEPT_STORAGE_SERVICE_CONTEXTS = 9,
  VX_CFG_ALLOW_COMMA_IN_DS_FL_FD_STRINGS = 10,
  VX_CFG_ALLOW_INVALID_LENGTH_FOR_VR = 11,
  VX_CFG_ALLOW_INVALID_PRIVATE_ATTRIBUTES = 12,
  VX_CFG_ALLOW_INVALID_PRIVATE_CREATOR_CODES = 13,
  VX_CFG_ALLOW_LIBRARY_EXCEPTION_HANDLER = 14,
  VX_CFG_ALLOW_OUT_OF_ORDER_TAGS = 15,
  VX_CFG_ATT_00081190_USE_UT_VR = 16,
  VX_CFG_ATT_00287FE0_USE_UT_VR = 17,
  VX_CFG_ATT_0040E010_USE_UT_VR = 18,
  VX_CFG_ATT_0074100A_USE_ST_VR = 19,
  VX_CFG_AUTO_ECHO_SUPPORT = 20,
  VX_CFG_BLANK_FILL_LOG_FILE = 21,
  VX_CFG_COMBINE_DATA_WITH_HEADER = 22,
  VX_CFG_COMPRESSION_ALLOW_FRAGS = 23,
  VX_CFG_COMPRESSION_J2K_LOSSY_USE_QUALITY = 24,
  VX_CFG_COMPRESSION_J2K_SIGNED_TOLERANCE = 25,
  VX_CFG_COMPRESSION_USE_HEADER_QUERY = 26,
  VX_CFG_COMPRESSION_WHEN_J2K_USE_LOSSY = 27,
  VX_CFG_CREATE_OFFSET_TABLE = 28,
  VX_CFG_DEFLATE_ALLOW_FLUSH = 29,
  VX_CFG_DICOMDIR_STREAM_STORAGE = 30,
  VX_CFG_DUPLICATE_ENCAPSULATED_ICON = 31,
  VX_CFG_ORVEN_OPEN_FILE = 32,
  VX_CFG_ELIMINATE_ITEM_REFERENCES = 33,
  VX_CFG_EMPTY_PRIVATE_CREATOR_CODES = 34,
  VX_CFG_EXPLICIT_VR_TO_UN_FOR_LENGTH_GT_64K = 35,
  VX_CFG_EXPORT_EMPTY_PRIVATE_CREATOR_CODES = 36,
  VX_CFG_EXPORT_GROUP_LENGTHS_TO_MEDIA = 37,
  VX_CFG_EXPORT_GROUP_LENGTHS_TO_NETWORK = 38,
  VX_CFG_EXPORT_PRIVATE_ATTRIBUTES_TO_MEDIA = 39,
  VX_CFG_EXPORT_PRIVATE_ATTRIBUTES_TO_NETWORK = 40,
  VX_CFG_EXPORT_UN_VR_TO_MEDIA = 41,
  VX_CFG_EXPORT_UN_VR_TO_NETWORK = 42,
  VX_CFG_EXPORT_UNDEFINED_LENGTH_SQ = 43,
  VX_CFG_EXPORT_UNDEFINED_LENGTH_SQ_IN_DICOMDIR = 44,
  VX_CFG_FORCE_DICM_IN_PREFIX = 45,
  VX_CFG_FORCE_JAVA_BIG_ENDIAN = 46,
  VX_CFG_FORCE_OPEN_EMPTY_ITEM = 47,
  VX_CFG_HARD_CLOSE_TCP_IP_CONNECTION = 48,
  VX_CFG_INSURE_EVEN_UID_LENGTH = 49,
  VX_CFG_LIST_UN_ATTRIBUTES = 50,
  VX_CFG_LOG_FILE_BACKUP = 51,
  VX_CFG_MSG_FILE_ITEM_OBJ_TRACE = 52,
  VX_CFG_NETWORK_CAPTURE = 53,
  VX_CFG_PRIVATE_SYNTAX_1_ENCAPSULATED = 54,
  VX_CFG_PRIVATE_SYNTAX_1_EXPLICIT_VR = 55,
  VX_CFG_PRIVATE_SYNTAX_1_LITTLE_ENDIAN = 56,
  VX_CFG_PRIVATE_SYNTAX_2_ENCAPSULATED = 57,
  VX_CFG_PRIVATE_SYNTAX_2_EXPLICIT_VR = 58,
  VX_CFG_PRIVATE_SYNTAX_2_LITTLE_ENDIAN = 59,
  VX_CFG_REJECT_INVALID_VR = 60,
  VX_CFG_RELEASE_SQ_ITEMS = 61,
  VX_CFG_REMOVE_PADDING_CHARS = 62,
  VX_CFG_REMOVE_SINGLE_TRAILING_SPACE = 63,
  VX_CFG_RETURN_COMMA_IN_DS_FL_FD_STRINGS = 64,
  VX_CFG_REWRITE_CAPTURE_FILES = 65,
  VX_CFG_SEND_ECHO_PRIORITY = 66,
  VX_CFG_SEND_LENGTH_TO_END = 67,
  VX_CFG_SEND_MSG_ID_RESPONSE = 68,
  VX_CFG_SEND_RECOGNITION_CODE = 69,
  VX_CFG_SEND_RESPONSE_PRIORITY = 70,
  VX_CFG_SEND_SOP_CLASS_UID = 71,
  VX_CFG_SEND_SOP_INSTANCE_UID = 72,
  VX_CFG_TCPIP_DISABLE_NAGLE = 73,
  VX_CFG_TOLERATE_INVALID_IN_DEFAULT_CHARSET = 74,
  VX_CFG_UPDATE_GROUP_0028_ON_DUPLICATE = 75,
  VX_CFG_USE_FREE_DATA_CALLBACK = 76,
  VX_CFG_ALLOW_DUPLICATE_CREATOR_CODES = 77
};

/** Settings that are texts: UIDs of transfer syntaxes (none: the syntax is not used), names, paths, words. */
typedef int32_t VX_STRING_KEY;

enum {
  VX_CFG_ACCEPT_LIST_OF_APPLICATION_TITLES = 0,
  VX_CFG_CAPTURE_FILE = 1,
  VX_CFG_COMPRESSION_RGB_TRANSFORM_FORMAT = 2,
  VX_CFG_DECODER_TAG_FILTER = 3,
  VX_CFG_DEFLATED_EXPLICIT_LITTLE_ENDIAN_SYNTAX = 4,
  VX_CFG_DICTIONARY_ACCESS = 5,
  VX_CFG_DICTIONARY_FILE = 6,
  VX_CFG_EXPLICIT_BIG_ENDIAN_SYNTAX = 7,
  VX_CFG_EXPLICIT_LITTLE_ENDIAN_SYNTAX = 8,
  VX_CFG_IMPLEMENTATION_CLASS_UID = 9,
  VX_CFG_IMPLEMENTATION_VERSION = 10,
  VX_CFG_IMPLICIT_BIG_ENDIAN_SYNTAX = 11,
  VX_CFG_IMPLICIT_LITTLE_ENDIAN_SYNTAX = 12,
  VX_CFG_INITIATOR_NAME = 13,
  VX_CFG_IP_TYPE = 14,
  VX_CFG_JPEG_2000_LOSSLESS_ONLY_SYNTAX = 15,
  VX_CFG_JPEG_2000_MC_LOSSLESS_ONLY_SYNTAX = 16,
  VX_CFG_JPEG_2000_MC_SYNTAX = 17,
  VX_CFG_JPEG_2000_SYNTAX = 18,
  VX_CFG_JPEG_BASELINE_SYNTAX = 19,
  VX_CFG_JPEG_EXTENDED_2_4_SYNTAX = 20,
  VX_CFG_JPEG_EXTENDED_3_5_SYNTAX = 21,
  VX_CFG_JPEG_EXTENDED_HIER_16_18_SYNTAX = 22,
  VX_CFG_JPEG_EXTENDED_HIER_17_19_SYNTAX = 23,
  VX_CFG_JPEG_FULL_PROG_HIER_24_26_SYNTAX = 24,
  VX_CFG_JPEG_FULL_PROG_HIER_25_27_SYNTAX = 25,
  VX_CFG_JPEG_FULL_PROG_NON_HIER_10_12_SYNTAX = 26,
  VX_CFG_JPEG_FULL_PROG_NON_HIER_11_13_SYNTAX = 27,
  VX_CFG_JPEG_LOSSLESS_HIER_14_SYNTAX = 28,
  VX_CFG_JPEG_LOSSLESS_HIER_28_SYNTAX = 29,
  VX_CFG_JPEG_LOSSLESS_HIER_29_SYNTAX = 30,
  VX_CFG_JPEG_LOSSLESS_NON_HIER_14_SYNTAX = 31,
  VX_CFG_JPEG_LOSSLESS_NON_HIER_15_SYNTAX = 32,
  VX_CFG_JPEG_LS_LOSSLESS_SYNTAX = 33,
  VX_CFG_JPEG_LS_LOSSY_SYNTAX = 34,
  VX_CFG_JPEG_SPEC_HIER_20_22_SYNTAX = 35,
  VX_CFG_JPEG_SPEC_HIER_21_23_SYNTAX = 36,
  VX_CFG_JPEG_SPEC_NON_HIER_6_8_SYNTAX = 37,
  VX_CFG_JPEG_SPEC_NON_HIER_7_9_SYNTAX = 38,
  VX_CFG_JPIP_REFERENCED_DEFLATE_SYNTAX = 39,
  VX_CFG_JPIP_REFERENCED_SYNTAX = 40,
  VX_CFG_LARGE_DATA_STORE = 41,
  VX_CFG_LOCAL_APPL_CONTEXT_NAME = 42,
  VX_CFG_LOG_FILE = 43,
  VX_CFG_MPEG2_MPHL_SYNTAX = 44,
  VX_CFG_MPEG2_MPML_SYNTAX = 45,
  VX_CFG_MPEG4_AVC_H264_BDC_HP_LEVEL_4_1_SYNTAX = 46,
  VX_CFG_MPEG4_AVC_H264_HP_LEVEL_4_1_SYNTAX = 47,
  VX_CFG_MPEG4_AVC_H264_HP_LEVEL_4_2_2D_SYNTAX = 48,
  VX_CFG_MPEG4_AVC_H264_HP_LEVEL_4_2_3D_SYNTAX = 49,
  VX_CFG_MPEG4_AVC_H264_STEREO_HP_LEVEL_4_2_SYNTAX = 50,
  VX_CFG_MSG_INFO_FILE = 51,
  VX_CFG_NULL_TYPE3_VALIDATION = 52,
  VX_CFG_PEGASUS_OPCODE_PATH = 53,
  VX_CFG_PRIVATE_SYNTAX_1_SYNTAX = 54,
  VX_CFG_PRIVATE_SYNTAX_2_SYNTAX = 55,
  VX_CFG_RECEIVER_NAME = 56,
  VX_CFG_RLE_SYNTAX = 57,
  VX_CFG_TEMP_FILE_DIRECTORY = 58,
  VX_CFG_UNKNOWN_VR_CODE = 59,
  VX_CFG_VEXALKIT_3_APPLICATIONS = 60,
  VX_CFG_VEXALKIT_3_PROFILE = 61,
  VX_CFG_VEXALKIT_3_SERVICES = 62
};

/** Settings that say where the messages of a log level go. */
typedef int32_t VX_LOG_KEY;

enum {
  VX_CFG_ERROR_MESSAGE = 0,
  VX_CFG_INFO_MESSAGE = 1,
  VX_CFG_WARNING_MESSAGE = 2,
  VX_CFG_T1_MESSAGE = 3,
  VX_CFG_T2_MESSAGE = 4,
  VX_CFG_T3_MESSAGE = 5,
  VX_CFG_T4_MESSAGE = 6,
  VX_CFG_T5_MESSAGE = 7,
  VX_CFG_T6_MESSAGE = 8,
  VX_CFG_T7_MESSAGE = 9,
  VX_CFG_T8_MESSAGE = 10,
  VX_CFG_T9_MESSAGE = 11
};

enum {
  VX_INT_KEY_COUNT = 30,
  VX_LONG_KEY_COUNT = 4,
  VX_BOOL_KEY_COUNT = 78,
  VX_STRING_KEY_COUNT = 63,
  VX_LOG_KEY_COUNT = 12
};

/* ---- Types --------------------------------------------------------------------------------------------- */

/**
 * All settings of the toolkit.
 * A program may build one at compile time and hand it over through VX_Library_Initialization. The library
 * then works in this record, puts it back as it was at the reset or release, and never frees it: it and all
 * that it points to belong to the program. Every array of values is indexed by the keys above.
 */
typedef struct ConfigRecord {
  const char* version;                            /* VX_BUILD_VERSION, or null */
  const char* string_values[VX_STRING_KEY_COUNT]; /* "" or null without a value */
  uint32_t string_owned[VX_STRING_KEY_COUNT];     /* the library's own mark of the texts that it allocated */
  int32_t int_values[VX_INT_KEY_COUNT];
  uint32_t log_destinations[VX_LOG_KEY_COUNT]; /* sets of VX_LOG_TO_ bits and VX_LOG_OFF */
  uint32_t bool_values[VX_BOOL_KEY_COUNT];     /* 0 or 1 */
  int32_t long_values[VX_LONG_KEY_COUNT];
  int32_t service_count; /* of the seven arrays that follow; at least 1 */
  const char* const* service_names;
  const char* const* service_uids; /* "" for none */
  /* Bits of the requests: C-STORE 0x1, C-GET 0x4, C-CANCEL 0x10, C-FIND 0x100, C-MOVE 0x400, C-ECHO 0x1000,
     N-EVENT-REPORT 0x4000, N-GET 0x10000, N-SET 0x40000, N-ACTION 0x100000, N-CREATE 0x400000, N-DELETE
     0x1000000. A response has the next higher bit. */
  const uint32_t* service_commands;
  const int32_t* service_numbers;    /* keys into the Message Info File */
  const int32_t* service_kinds;      /* 30 base, 20 meta */
  const int32_t* sop_class_counts;   /* of the lists in sop_classes; 1 for a base service */
  const int32_t* const* sop_classes; /* service numbers of the members; a base service is its own member */
  int32_t item_count;                /* of the two arrays that follow */
  const char* const* item_names;
  const int32_t* item_numbers; /* keys into the Message Info File */
  /* The applications profile, ended by a null pointer: "[NAME]" for each section, then key and value of each
     of its entries, of SYNTAX_n entries the value alone. */
  const char* const* applications;
  const char* const* accepted_titles; /* ended by a null pointer; null: ACCEPT_LIST_OF_APPLICATION_TITLES */
} ConfigRecord;

/**
 * Called once by VX_Library_Initialization and by each VX_Library_Reset.
 * @return the record, which lives until the next reset or the release.
 */
typedef ConfigRecord* (*VX_CONFIG_FUNCTION)(void);

/* ---- Configuration ------------------------------------------------------------------------------------- */

/**
 * Sets a setting that is a number.
 * LARGE_DATA_SIZE reaches objects that are opened later, other settings their next use.
 * @param Key  the setting.
 * @param Value  times are in seconds and may be any number. Others have bounds:
 * - COMPRESSION_CHROM_FACTOR, COMPRESSION_LUM_FACTOR: 0 to 255; above it 32 is stored.
 * - COMPRESSION_J2K_LOSSY_QUALITY: 0 to 10; else 1 is stored.
 * - COMPRESSION_J2K_LOSSY_RATIO: 0 to 400; else 10 is stored.
 * - COMPRESSION_QUALITY: 1 to 100; else 90 is stored.
 * - COMPRESSION_THREADS: 0 to 256; above it 256 is stored.
 * - DEFLATE_COMPRESSION_LEVEL: -1 to 9; else -1 is stored.
 * - DESIRED_LAST_PDU_SIZE: 1 or more; an odd number grows by one, above 16 it is 16.
 * - IGNORE_JPEG_BAD_SUFFIX: -1 or more; below it -1 is stored.
 * - LOG_FILE_LINE_LENGTH: 16 to 254; else the nearer one is stored. Once the log file has a line, nothing
 *   changes, with normal status and a warning in the log.
 * - TCPIP_RECEIVE_BUFFER_SIZE, TCPIP_SEND_BUFFER_SIZE: 0 or more.
 * - WORK_BUFFER_SIZE: 1024 or more, an odd number losing one; 1 to 1023: 28672 is stored.
 * - all others: 1 or more.
 * @retval VX_INVALID_PARAMETER_NAME  there is no such key.
 * @retval VX_MUST_BE_POSITIVE  Value is below the least one, and nothing is stored instead.
 */
VX_API VX_STATUS VX_Set_Int_Config_Value(VX_INT_KEY Key, int32_t Value);

/**
 * Reads a setting that is a number.
 * @param Key  the setting.
 * @param Value  [out] its value; 0 after a failure.
 * @retval VX_INVALID_PARAMETER_NAME  there is no such key.
 */
VX_API VX_STATUS VX_Get_Int_Config_Value(VX_INT_KEY Key, int32_t* Value);

/**
 * Sets a setting that is a size.
 * @param Key  the setting.
 * @param Value  in bytes, but for CAPTURE_FILE_SIZE, with these bounds:
 * - CALLBACK_MIN_DATA_SIZE: 1 or more.
 * - CAPTURE_FILE_SIZE: kilobytes, 32 to 2097151, else the nearer one is stored; 0 and below: no limit.
 * - PDU_MAXIMUM_LENGTH: 1 or more; below 4096 that is stored, an odd number grows by one.
 * - PIXEL_BUFFER_SIZE: 1 or more; below 131072 that is stored, an odd number grows by one.
 * @retval VX_INVALID_PARAMETER_NAME  there is no such key.
 * @retval VX_MUST_BE_POSITIVE  Value is below the least one, and nothing is stored instead.
 */
VX_API VX_STATUS VX_Set_Long_Config_Value(VX_LONG_KEY Key, int32_t Value);

/**
 * Reads a setting that is a size.
 * @copydetails VX_Get_Int_Config_Value
 */
VX_API VX_STATUS VX_Get_Long_Config_Value(VX_LONG_KEY Key, int32_t* Value);

/**
 * Turns a switch on or off.
 * NETWORK_CAPTURE starts or ends the capture at once.
 * @param Key  the setting.
 * @param Value  0 is off, any other number on.
 * @retval VX_INVALID_PARAMETER_NAME  there is no such key.
 */
VX_API VX_STATUS VX_Set_Bool_Config_Value(VX_BOOL_KEY Key, int32_t Value);

/**
 * Reads a switch, as 0 or 1.
 * @copydetails VX_Get_Int_Config_Value
 */
VX_API VX_STATUS VX_Get_Bool_Config_Value(VX_BOOL_KEY Key, int32_t* Value);

/**
 * Sets a setting that is a text.
 * A setting that takes one of a few words falls back to its default word, with a warning in the log;
 * NULL_TYPE3_VALIDATION does so silently. LARGE_DATA_STORE reaches objects that are opened later.
 * @param Key  the setting.
 * @param Value  the text, copied. The words none, na, n/a, each in any case, none in angle brackets, and the
 *   empty text all store the empty text. IMPLEMENTATION_VERSION is cut to 16 bytes, with a warning.
 * @retval VX_INVALID_PARAMETER_NAME  there is no such key.
 * @retval VX_CANNOT_COMPLY  ACCEPT_LIST_OF_APPLICATION_TITLES or DECODER_TAG_FILTER is malformed: the former
 *   text stays, and a filter is in force as far as it could be read. Or there is no memory, and the text is
 *   empty now.
 */
VX_API VX_STATUS VX_Set_String_Config_Value(VX_STRING_KEY Key, const char* Value);

/**
 * Reads a setting that is a text.
 * @param Key  the setting.
 * @param BufferSize  bytes of Buffer, its NUL counted.
 * @param Buffer  [out] the text; untouched after a failure.
 * @retval VX_INVALID_PARAMETER_NAME  there is no such key.
 * @retval VX_BUFFER_TOO_SMALL  nothing was copied.
 */
VX_API VX_STATUS VX_Get_String_Config_Value(VX_STRING_KEY Key, int32_t BufferSize, char* Buffer);

/**
 * Sets where messages of a level go.
 * @param Key  the level.
 * @param Destination  a set of VX_LOG_TO_ bits, or VX_LOG_OFF, which holds messages back whatever other bits
 *   are set. Errors always go to the file, and can not be turned off.
 * @retval VX_INVALID_PARAMETER_NAME  there is no such key.
 */
VX_API VX_STATUS VX_Set_Log_Destination(VX_LOG_KEY Key, uint32_t Destination);

/**
 * Reads where messages of a level go.
 * @param Key  the level.
 * @param Destination  [out] a set of VX_LOG_TO_ bits and VX_LOG_OFF; 0 after a failure.
 * @retval VX_INVALID_PARAMETER_NAME  there is no such key.
 */
VX_API VX_STATUS VX_Get_Log_Destination(VX_LOG_KEY Key, uint32_t* Destination);

/* ---- Services ------------------------------------------------------------------------------------------ */

/**
 * Gives the name of the service with a SOP class UID.
 * @param Uid  the UID, without padding.
 * @param ServiceName  [out] the name; empty if there is none.
 * @param BufferSize  bytes of ServiceName, its NUL counted; nothing is written where it is below 1.
 * @retval VX_INVALID_SOP_CLASS_UID  no service has this UID.
 * @retval VX_BUFFER_TOO_SMALL  as much of the name as fits was copied, with a NUL.
 */
VX_API VX_STATUS VX_Get_VexalKit_Service(const char* Uid, char* ServiceName, int32_t BufferSize);

/**
 * Gives the SOP class UID of a service.
 * @param ServiceName  a name that the services profile has, for instance STANDARD_CT; upper and lower case
 *   differ.
 * @param Uid  [out] the UID; untouched where there is no such service.
 * @param BufferSize  bytes of Uid, its NUL counted; nothing is written where it is below 1.
 * @retval VX_UNKNOWN_SERVICE  there is no such service.
 * @retval VX_BUFFER_TOO_SMALL  as much of the UID as fits was copied, with a NUL.
 */
VX_API VX_STATUS VX_Get_UID_From_VexalKit_Service(const char* ServiceName, char* Uid, int32_t BufferSize);

/** The names of the services of the configuration that comes with the toolkit, in alphabetical order. */
extern VX_API const char* const Services[220];
/** The names of its items, in alphabetical order. */
extern VX_API const char* const Items[898];

#ifdef __cplusplus
}
#endif

#endif
