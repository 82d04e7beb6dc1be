/*
 * VexalKit: a DICOM toolkit behind a flat C interface.
 *
 * CONVENTIONS, which hold for every function below unless its comment says otherwise
 *
 * Status.   A function returns a VX_STATUS: VX_NORMAL_COMPLETION (1) or one of the codes from 4000 up.
 *           VX_Error_Message gives the text of a code.
 *
 * Order.    1. The library is not initialised: VX_LIBRARY_NOT_INITIALIZED, nothing is written.
 *           2. A required pointer is null: VX_NULL_POINTER_PARM.
 *           3. A handle is unknown: VX_INVALID_APPLICATION_ID, VX_INVALID_MESSAGE_ID, VX_INVALID_ITEM_ID or
 *              VX_INVALID_FILE_ID. Steps 2 and 3 may come in either order.
 *           4. The work; outputs are written only when a call gets this far. VX_SYSTEM_ERROR stands for
 *              memory that could not be had, in every function.
 *
 * Handles.  Non-negative int32_t; -1 is none. A function that yields a handle writes -1 where it can not; a
 *           function that frees writes -1 through the pointer. Messages, items and files share one number
 *           space.
 *
 * Tags.     uint32_t, the group in the high half, the element in the low half. A tag is private when its
 *           group is odd and none of 1, 3, 5, 7 and 0xFFFF.
 *
 * Strings.  NUL-terminated bytes in, copied by the library; out they are copied into the caller's buffer,
 *           whose size is in bytes and counts the NUL.
 *
 * Memory.   Nothing that the library hands out is freed by the caller, other than by the function of this
 *           interface that takes its handle.
 *
 * Threads.  Any thread may call any function, except VX_Library_Initialization, VX_Library_Reset and
 *           VX_Library_Release, which must run alone. Two threads may use different objects freely; on one
 *           object, calls that change values or move value cursors must be serialised by the caller.
 *
 * Functions of the caller run on the thread that made the call, and may call this interface. Meanwhile the
 *           object at hand can be read; a call that would change or delete the attribute that the function
 *           is called for, or, where it is called for a whole object, anything of it or of its items,
 *           answers VX_STATE_VIOLATION. An object that is freed loses its handle at once, and its memory
 *           after the call. One that gives data may answer with no bytes, but not more than 100,000 times in
 *           a row: then, as for data without a buffer, the call that asked fails.
 *
 * Log.      A failure writes its place and reason to the log at the point of failure.
 *
 * "PS3.n" in a comment names the part of the DICOM standard that a fact comes from.
 */
#ifndef VEXALKIT_H
#define VEXALKIT_H

#include <stddef.h>
#include <stdint.h>
#ifndef __cplusplus
#include <uchar.h>
#endif

#if defined(__GNUC__)
#define VX_API __attribute__((visibility("default")))
#define VX_PRINTF(format_index, first_value) __attribute__((format(printf, format_index, first_value)))
#else
#define VX_API
#define VX_PRINTF(format_index, first_value)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Version ------------------------------------------------------------------------------------------ */

#define VX_VERSION_STRING "5.3.0"
/* The version text that a ready-built ConfigRecord or DictionaryRecord carries (or a null pointer). */
#define VX_BUILD_VERSION "VexalKit, Version 5.3.0"

/* ---- Status codes ------------------------------------------------------------------------------------- */

typedef int32_t VX_STATUS;

enum {
  VX_NORMAL_COMPLETION = 1,
  VX_ALREADY_REGISTERED = 4000,
  VX_ASSOCIATION_ABORTED = 4001,
  VX_ASSOCIATION_CLOSED = 4002,
  VX_ASSOCIATION_REJECTED = 4003,
  VX_ATTRIBUTE_HAS_VALUES = 4004,
  VX_BUFFER_TOO_SMALL = 4005,
  VX_CALLBACK_CANNOT_COMPLY = 4006,
  VX_CALLBACK_DATA_SIZE_NEGATIVE = 4007,
  VX_CALLBACK_DATA_SIZE_UNEVEN = 4008,
  VX_CALLBACK_PARM_ERROR = 4009,
  VX_CALLBACK_REGISTERED = 4010,
  VX_CANNOT_COMPLY = 4011,
  VX_CANT_ACCESS_SERVICES_FILE = 4012,
  VX_CONFIG_INFO_ERROR = 4013,
  VX_CONFIG_INFO_MISSING = 4014,
  VX_DDFILE_ERROR = 4015,
  VX_DOES_NOT_VALIDATE = 4016,
  VX_EMPTY_VALUE = 4017,
  VX_END_OF_DATA = 4018,
  VX_EXT_INFO_UNAVAILABLE = 4019,
  VX_FOUND_PRIVATE_BLOCK = 4020,
  VX_FUNCTION_UNAVAILABLE = 4021,
  VX_INCOMPATIBLE_VR = 4022,
  VX_INCOMPATIBLE_VALUE = 4023,
  VX_INVALID_APPLICATION_ID = 4024,
  VX_INVALID_APPLICATION_TITLE = 4025,
  VX_INVALID_ASSOCIATION_ID = 4026,
  VX_INVALID_CHARS_IN_VALUE = 4027,
  VX_INVALID_COMMAND = 4028,
  VX_INVALID_DATA_TYPE = 4029,
  VX_END_OF_LIST = 4030,
  VX_INVALID_GROUP = 4031,
  VX_INVALID_HOST_NAME = 4032,
  VX_INVALID_ITEM_ID = 4033,
  VX_INVALID_LENGTH_FOR_TITLE = 4034,
  VX_INVALID_LENGTH_FOR_VR = 4035,
  VX_INVALID_MESSAGE_ID = 4037,
  VX_INVALID_MESSAGE_RECEIVED = 4038,
  VX_INVALID_PARAMETER_NAME = 4039,
  VX_INVALID_PORT_NUMBER = 4040,
  VX_INVALID_PRIVATE_CODE = 4041,
  VX_INVALID_SERVICE_LIST_NAME = 4042,
  VX_INVALID_TAG = 4043,
  VX_INVALID_TRANSFER_SYNTAX = 4044,
  VX_INVALID_VALUE_FOR_VR = 4045,
  VX_INVALID_VALUE_NUMBER = 4046,
  VX_INVALID_VR_CODE = 4047,
  VX_LOG_EMPTY = 4048,
  VX_MESSAGE_EMPTY = 4049,
  VX_MESSAGE_VALIDATES = 4050,
  VX_MISSING_CONFIG_PARM = 4051,
  VX_MSGFILE_ERROR = 4052,
  VX_MUST_BE_POSITIVE = 4053,
  VX_NETWORK_SHUT_DOWN = 4054,
  VX_NO_APPLICATIONS_REGISTERED = 4055,
  VX_NO_CALLBACK = 4056,
  VX_NO_CONDITION_FUNCTION = 4057,
  VX_NO_FILE_SYSTEM = 4058,
  VX_NO_INFO_REGISTERED = 4059,
  VX_NO_VEXAL_INI = 4061,
  VX_NO_MORE_ATTRIBUTES = 4062,
  VX_NO_MORE_VALUES = 4063,
  VX_NO_PROFILE = 4064,
  VX_NO_REQUEST_PENDING = 4065,
  VX_NON_SERVICE_ATTRIBUTE = 4066,
  VX_NOT_FOUND = 4067,
  VX_NOT_ONE_OF_ENUMERATED_VALUES = 4068,
  VX_NOT_ONE_OF_DEFINED_TERMS = 4069,
  VX_NULL_POINTER_PARM = 4070,
  VX_NULL_VALUE = 4071,
  VX_PROTOCOL_ERROR = 4072,
  VX_REQUIRED_ATTRIBUTE_MISSING = 4073,
  VX_REQUIRED_DATASET_MISSING = 4074,
  VX_REQUIRED_VALUE_MISSING = 4075,
  VX_STATE_VIOLATION = 4076,
  VX_SYSTEM_CALL_INTERRUPTED = 4077,
  VX_SYSTEM_ERROR = 4078,
  VX_TAG_ALREADY_EXISTS = 4079,
  VX_TEMP_FILE_ERROR = 4080,
  VX_TIMEOUT = 4081,
  VX_TOO_FEW_VALUES = 4082,
  VX_TOO_MANY_BLOCKS = 4083,
  VX_TOO_MANY_VALUES = 4084,
  VX_UNABLE_TO_CHECK_CONDITION = 4085,
  VX_UNACCEPTABLE_SERVICE = 4086,
  VX_UNEXPECTED_EOD = 4087,
  VX_UNKNOWN_ITEM = 4088,
  VX_UNKNOWN_SERVICE = 4089,
  VX_VALUE_MAY_NOT_BE_NULL = 4090,
  VX_VALUE_NOT_ALLOWED = 4091,
  VX_VALUE_OUT_OF_RANGE = 4092,
  VX_VALUE_TOO_LARGE = 4093,
  VX_VR_ALREADY_VALID = 4094,
  VX_LIBRARY_ALREADY_INITIALIZED = 4095,
  VX_LIBRARY_NOT_INITIALIZED = 4096,
  VX_INVALID_DIRECTORY_RECORD_OFFSET = 4097,
  VX_INVALID_FILE_ID = 4098,
  VX_INVALID_DICOMDIR_ID = 4099,
  VX_INVALID_ENTITY_ID = 4100,
  VX_INVALID_MRDR_ID = 4101,
  VX_UNABLE_TO_GET_ITEM_ID = 4102,
  VX_INVALID_PAD = 4103,
  VX_ENTITY_ALREADY_EXISTS = 4104,
  VX_INVALID_LOWER_DIR_RECORD = 4105,
  VX_INVALID_DIR_RECORD_TYPE = 4106,
  VX_UNKNOWN_HOST_CONNECTED = 4107,
  VX_INACTIVITY_TIMEOUT = 4108,
  VX_INVALID_SOP_CLASS_UID = 4109,
  VX_INVALID_VERSION = 4110,
  VX_OUT_OF_ORDER_TAG = 4111,
  VX_CONNECTION_FAILED = 4112,
  VX_UNKNOWN_HOST_NAME = 4113,
  VX_INVALID_FILE = 4114,
  VX_NEGOTIATION_ABORTED = 4115,
  VX_INVALID_SR_ID = 4116,
  VX_UNABLE_TO_GET_SR_ID = 4117,
  VX_DUPLICATE_NAME = 4118,
  VX_DUPLICATE_SYNTAX = 4119,
  VX_EMPTY_LIST = 4120,
  VX_MISSING_NAME = 4121,
  VX_INVALID_SERVICE_NAME = 4122,
  VX_SERVICE_IN_USE = 4123,
  VX_INVALID_SYNTAX_NAME = 4124,
  VX_SYNTAX_IN_USE = 4125,
  VX_ENCAPSULATED_NOT_FOUND = 4126,
  VX_ENCAPSULATED_TOO_SHORT = 4127,
  VX_MISSING_DELIMITER = 4128,
  VX_COMPRESSION_FAILURE = 4129,
  VX_END_OF_FRAME = 4130,
  VX_MUST_CONTINUE_BEFORE_READING = 4131,
  VX_COMPRESSOR_REQUIRED = 4132,
  VX_DECOMPRESSOR_REQUIRED = 4133,
  VX_DATA_AVAILABLE = 4134,
  VX_ZLIB_ERROR = 4135,
  VX_NOT_META_SOP = 4136,
  VX_INVALID_ENCAPSULATED_PIXEL_DATA = 4137,
  VX_MAX_OPERATIONS_EXCEEDED = 4139,
  VX_INVALID_RECORD_ID = 4140,
  VX_INVALID_VR_IN_STREAM = 4142,
  VX_NOT_SUPPORTED = 4143
};

/* ---- Value representations (PS3.5 section 6.2) -------------------------------------------------------- */

/* OV, SV and UV have no code: their elements are carried as VX_VR_UN. */
typedef int32_t VX_VR;

enum {
  VX_VR_AE = 0,
  VX_VR_AS = 1,
  VX_VR_CS = 2,
  VX_VR_DA = 3,
  VX_VR_DS = 4,
  VX_VR_DT = 5,
  VX_VR_IS = 6,
  VX_VR_LO = 7,
  VX_VR_LT = 8,
  VX_VR_PN = 9,
  VX_VR_SH = 10,
  VX_VR_ST = 11,
  VX_VR_TM = 12,
  VX_VR_UC = 13,
  VX_VR_UR = 14,
  VX_VR_UT = 15,
  VX_VR_UI = 16,
  VX_VR_SS = 17,
  VX_VR_US = 18,
  VX_VR_AT = 19,
  VX_VR_SL = 20,
  VX_VR_UL = 21,
  VX_VR_FL = 22,
  VX_VR_FD = 23,
  VX_VR_UN = 24,
  VX_VR_OB = 25,
  VX_VR_OW = 26,
  VX_VR_OL = 27,
  VX_VR_OD = 28,
  VX_VR_OF = 29,
  VX_VR_SQ = 30
};

/* ---- Native data types of the generic value calls ----------------------------------------------------- */

typedef int32_t VX_DATA_TYPE;

enum {
  VX_STRING_TYPE = 0,    /* NUL-terminated char[] */
  VX_INT_TYPE = 1,       /* int32_t */
  VX_UINT_TYPE = 2,      /* uint32_t */
  VX_SHORTINT_TYPE = 3,  /* int16_t */
  VX_USHORTINT_TYPE = 4, /* uint16_t */
  VX_LONGINT_TYPE = 5,   /* int32_t, whatever the platform's long is */
  VX_ULONGINT_TYPE = 6,  /* uint32_t */
  VX_FLOAT_TYPE = 7,     /* float */
  VX_DOUBLE_TYPE = 8,    /* double */
  VX_BUFFER_TYPE = 9     /* bytes */
};

/* ---- Transfer syntaxes (PS3.5 section 10) and byte orders --------------------------------------------- */

typedef int32_t VX_TRANSFER_SYNTAX;

enum {
  IMPLICIT_LITTLE_ENDIAN = 100,
  EXPLICIT_LITTLE_ENDIAN = 101,
  EXPLICIT_BIG_ENDIAN = 102,
  IMPLICIT_BIG_ENDIAN = 103,
  DEFLATED_EXPLICIT_LITTLE_ENDIAN = 104,
  RLE = 105,
  JPEG_BASELINE = 106,
  JPEG_EXTENDED_2_4 = 107,
  JPEG_EXTENDED_3_5 = 108,
  JPEG_SPEC_NON_HIER_6_8 = 109,
  JPEG_SPEC_NON_HIER_7_9 = 110,
  JPEG_FULL_PROG_NON_HIER_10_12 = 111,
  JPEG_FULL_PROG_NON_HIER_11_13 = 112,
  JPEG_LOSSLESS_NON_HIER_14 = 113,
  JPEG_LOSSLESS_NON_HIER_15 = 114,
  JPEG_EXTENDED_HIER_16_18 = 115,
  JPEG_EXTENDED_HIER_17_19 = 116,
  JPEG_SPEC_HIER_20_22 = 117,
  JPEG_SPEC_HIER_21_23 = 118,
  JPEG_FULL_PROG_HIER_24_26 = 119,
  JPEG_FULL_PROG_HIER_25_27 = 120,
  JPEG_LOSSLESS_HIER_28 = 121,
  JPEG_LOSSLESS_HIER_29 = 122,
  JPEG_LOSSLESS_HIER_14 = 123,
  JPEG_2000_LOSSLESS_ONLY = 124,
  JPEG_2000 = 125,
  JPEG_LS_LOSSLESS = 126,
  JPEG_LS_LOSSY = 127,
  MPEG2_MPML = 128,
  PRIVATE_SYNTAX_1 = 129,
  PRIVATE_SYNTAX_2 = 130,
  JPEG_2000_MC_LOSSLESS_ONLY = 131,
  JPEG_2000_MC = 132,
  MPEG2_MPHL = 133,
  MPEG4_AVC_H264_HP_LEVEL_4_1 = 134,
  MPEG4_AVC_H264_BDC_HP_LEVEL_4_1 = 135,
  MPEG4_AVC_H264_HP_LEVEL_4_2_2D = 136,
  MPEG4_AVC_H264_HP_LEVEL_4_2_3D = 137,
  MPEG4_AVC_H264_STEREO_HP_LEVEL_4_2 = 138,
  JPIP_REFERENCED = 139,
  JPIP_REFERENCED_DEFLATE = 140
};

typedef int32_t VX_BYTE_ORDER;

enum { VX_ORDER_LITTLE_ENDIAN = 100, VX_ORDER_BIG_ENDIAN = 101 };

/* ---- DIMSE commands (PS3.7 section E.1) --------------------------------------------------------------- */

enum {
  C_STORE_RQ = 0x0001,
  C_STORE_RSP = 0x8001,
  C_GET_RQ = 0x0010,
  C_GET_RSP = 0x8010,
  C_FIND_RQ = 0x0020,
  C_FIND_RSP = 0x8020,
  C_MOVE_RQ = 0x0021,
  C_MOVE_RSP = 0x8021,
  C_ECHO_RQ = 0x0030,
  C_ECHO_RSP = 0x8030,
  N_EVENT_REPORT_RQ = 0x0100,
  N_EVENT_REPORT_RSP = 0x8100,
  N_GET_RQ = 0x0110,
  N_GET_RSP = 0x8110,
  N_SET_RQ = 0x0120,
  N_SET_RSP = 0x8120,
  N_ACTION_RQ = 0x0130,
  N_ACTION_RSP = 0x8130,
  N_CREATE_RQ = 0x0140,
  N_CREATE_RSP = 0x8140,
  N_DELETE_RQ = 0x0150,
  N_DELETE_RSP = 0x8150,
  C_CANCEL_RQ = 0x0FFF
};

/* ---- Negotiation (PS3.7 annex D.3) -------------------------------------------------------------------- */

enum {
  VX_NO_ROLE = 0xFF,   /* no SCP/SCU role selection */
  VX_NO_WINDOW = 65535 /* no asynchronous operations window */
};

/* ---- Requests of a value callback --------------------------------------------------------------------- */

typedef int32_t VX_CALLBACK_REQUEST;

enum {
  VX_REQUEST_DATA = 300,   /* Out: *DataSize, *DataBuffer, *IsLast. The library wants the next piece. */
  VX_REQUEST_LENGTH = 301, /* Out: *DataSize, the total length in bytes; 0 is allowed. */
  VX_PROVIDE_DATA = 302,   /* In: a piece. Length 0 with *IsLast ends a value. */
  VX_PROVIDE_LENGTH = 303, /* In: the length; *DataBuffer points to the uint32_t stream offset, or is null. */
  VX_PROVIDE_LENGTH_KEPT = 304,   /* As 303, and the value will not be delivered: it stays in the stream. */
  VX_PROVIDE_OFFSET_TABLE = 305,  /* In: the item of the offset table of an encapsulated value. */
  VX_FREE_DATA = 306,             /* The library has no further use of the value. */
  VX_REQUEST_DATA_AT_OFFSET = 307 /* In: *DataSize, an offset in the stream that the value lay in (in the
                                     value, for one that the library made); out as for 300. */
};

/* ---- Configuration keys ------------------------------------------------------------------------------- */

/* A key is VX_CFG_ and the name that profiles use; data/vexalkit.pro says what each one does. */
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
  VX_CFG_WRITE_TIMEOUT = 27
};

typedef int32_t VX_LONG_KEY;

enum {
  VX_CFG_CALLBACK_MIN_DATA_SIZE = 0,
  VX_CFG_CAPTURE_FILE_SIZE = 1,
  VX_CFG_PDU_MAXIMUM_LENGTH = 2,
  VX_CFG_PIXEL_BUFFER_SIZE = 3
};

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
  VX_INT_KEY_COUNT = 28,
  VX_LONG_KEY_COUNT = 4,
  VX_BOOL_KEY_COUNT = 78,
  VX_STRING_KEY_COUNT = 63,
  VX_LOG_KEY_COUNT = 12
};

/* Log destinations, a set of bits. */
enum { VX_LOG_TO_FILE = 1, VX_LOG_TO_MEMORY = 2, VX_LOG_TO_SCREEN = 4, VX_LOG_OFF = 16 };

/* Log levels, one bit each. */
enum {
  VX_LOG_T1 = 1,
  VX_LOG_T2 = 2,
  VX_LOG_T3 = 4,
  VX_LOG_T4 = 8,
  VX_LOG_T5 = 16,
  VX_LOG_T6 = 32,
  VX_LOG_T7 = 64,
  VX_LOG_T8 = 128,
  VX_LOG_T9 = 256,
  VX_LOG_INFO = 512,
  VX_LOG_WARNING = 1024,
  VX_LOG_ERROR = 2048
};

/* ---- Records ------------------------------------------------------------------------------------------ */

/*
 * All settings of the toolkit. A program may build one at compile time and hand it over through
 * VX_Library_Initialization; the library then works in this record and never frees it. Every array is indexed
 * by the key enumerations above.
 */
typedef struct ConfigRecord {
  const char* version;                            /* VX_BUILD_VERSION, or null */
  const char* string_values[VX_STRING_KEY_COUNT]; /* never null: "" for a key without a value */
  uint32_t string_owned[VX_STRING_KEY_COUNT];     /* 1 for a text that the library allocated */
  int32_t int_values[VX_INT_KEY_COUNT];
  uint32_t log_destinations[VX_LOG_KEY_COUNT]; /* VX_LOG_TO_FILE and so on */
  uint32_t bool_values[VX_BOOL_KEY_COUNT];     /* 0 or 1 */
  int32_t long_values[VX_LONG_KEY_COUNT];
  int32_t service_count;
  const char* const* service_names;
  const char* const* service_uids;
  const uint32_t* service_commands; /* command bits, as the services profile names them */
  const int32_t* service_numbers;   /* keys into the Message Info File */
  const int32_t* service_kinds;     /* 30 base, 20 meta */
  const int32_t* sop_class_counts;
  const int32_t* const* sop_classes; /* service numbers of the members of a meta service */
  int32_t item_count;
  const char* const* item_names;
  const int32_t* item_numbers;
  const char* const* applications;    /* the applications profile, ended by a null pointer */
  const char* const* accepted_titles; /* ended by a null pointer; null when there are none */
} ConfigRecord;

/* One attribute of the Data Dictionary. */
typedef struct DictEntry {
  const struct DictEntry* Next; /* next of the chain */
  uint32_t Tag;                 /* 0xGGGG00EE for a private tag */
  int32_t VR;
  uint16_t VMLow;
  uint16_t VMHigh;         /* 255: no limit */
  const char* Name;        /* at most 99 bytes */
  const char* PrivateCode; /* creator code without trailing blanks; null for a standard tag */
} DictEntry;

enum { VX_DICTIONARY_CHAINS = 850 };

/* A finished dictionary: chain n holds the entries whose Tag modulo VX_DICTIONARY_CHAINS is n. */
typedef struct DictionaryRecord {
  const char* version; /* VX_BUILD_VERSION, or null */
  const DictEntry* const* chains;
} DictionaryRecord;

/* What an enhanced log receiver gets; valid during the call only. */
typedef struct VX_LOG_RECORD {
  int32_t Type;       /* 1 error, 2 warning, 3 info, 5 to 13 for T1 to T9, 14 unknown */
  int32_t Hour;       /* 0 to 23 */
  int32_t Minute;     /* 0 to 59 */
  int32_t Second;     /* 0 to 60 */
  int32_t Hundredths; /* 0 to 99 */
  int32_t Day;        /* day of the month, from 1 */
  int32_t Month;      /* 0 to 11 */
  int32_t Year;       /* years since 1900 */
  const char* LevelText;
  const char* Prefix;
  const char* ThreadText;
  const char* TimeText;
  const char* FunctionName; /* empty when the caller gave none */
  const char* Message;
} VX_LOG_RECORD;

/* One finding of a validation; the library owns it. */
typedef struct ValErrObj {
  uint32_t Tag;
  int32_t MsgItemID;   /* the object that the finding lies in: the item's own ID inside a sequence */
  int32_t ValueNumber; /* from 1; 0 where the attribute as a whole is concerned */
  VX_STATUS Status;    /* what was found */
} ValErrObj;

/* What a validation records. */
typedef int32_t ValidationLevel;
enum { VX_Errors_Only = 1, VX_Errors_And_Warnings = 2, VX_All_Findings = 3 };

/*
 * A secure channel of the caller's making, used in place of plain reads and writes. The library copies the
 * table, not what it points to. The socket is connected and non-blocking, and stays the library's; Role is 0
 * on the side that connected and 1 on the side that accepted; time-outs are in seconds.
 */
typedef struct SS_Functions {
  /* Makes the channel. 0: it stands; anything else fails the connection. */
  int32_t (*SS_Open)(int32_t Socket, int32_t Role, void* ApplicationContext, void** SecureContext);
  /* Reads Length bytes, or fewer if no more are at hand. 0: *Count bytes came; 2: nothing came in time; else
   * failure.
   */
  int32_t (*SS_Read)(void* SecureContext, void* ApplicationContext, void* Buffer, uint32_t Length,
                     uint32_t* Count, int32_t Timeout);
  /* Writes all Length bytes. 0: done; 2: the peer took too long; else failure. */
  int32_t (*SS_Write)(void* SecureContext, void* ApplicationContext, const void* Buffer, uint32_t Length,
                      uint32_t* Count, int32_t Timeout);
  /* Called once, before the socket is closed. */
  void (*SS_Close)(void* SecureContext, void* ApplicationContext);
} SS_Functions;

struct sockaddr;

/*
 * Functions that see every byte of every connection while NETWORK_CAPTURE is on. The library keeps the
 * pointer and no copy: the table lives until another one is registered or the capture ends, and all
 * connections made meanwhile are closed. The functions are called by the threads that use the network,
 * several at once. Addresses are the platform's socket addresses, valid during the call. The last three give
 * 0; anything else switches NETWORK_CAPTURE off. Data of secure channels comes in plaintext.
 */
typedef struct NetworkCaptureCallbacks {
  void* Context; /* first argument of every function */
  /* Takes the settings, at registration and at each change of them; the size is in kilobytes, 0 for no limit.
   */
  int32_t (*Initialize)(void* Context, int32_t CaptureFileSize, const char* CaptureFile,
                        int32_t NumberOfFiles, int32_t Rewrite);
  void (*Stop)(void* Context);
  /* A connection stands; the side that connected comes first. What it gives is Stream in the others. */
  void* (*OpenStream)(void* Context, const struct sockaddr* Requester, const struct sockaddr* Acceptor);
  void (*CloseStream)(void* Context, void* Stream);
  /* Right after OpenStream, and right before CloseStream. */
  int32_t (*ConnectionOpened)(void* Context, void* Stream, const struct sockaddr* Requester,
                              const struct sockaddr* Acceptor);
  int32_t (*ConnectionClosing)(void* Context, void* Stream, const struct sockaddr* Requester,
                               const struct sockaddr* Acceptor);
  /* Each piece that was read or written. */
  int32_t (*DataSent)(void* Context, void* Stream, const struct sockaddr* Sender,
                      const struct sockaddr* Receiver, const void* Data, int32_t Length);
} NetworkCaptureCallbacks;

/* ---- Records of associations --------------------------------------------------------------------------- */

/* What VX_Get_Association_Info tells. */
typedef struct AssocInfo {
  uint32_t NumberOfProposedContexts;
  uint32_t NumberOfAcceptedContexts;
  char RemoteApplicationTitle[20];
  char RemoteHostName[66];
  int32_t Socket; /* the library's; for waiting on it only */
  char RemoteIPAddress[66];
  char LocalApplicationTitle[20];
  char RemoteImplementationClassUID[66];
  char RemoteImplementationVersion[20];
  uint32_t LocalMaximumPDUSize;
  uint32_t RemoteMaximumPDUSize; /* 0: no limit */
  uint16_t MaxOperationsInvoked; /* 1 when no window was negotiated; 0: no limit */
  uint16_t MaxOperationsPerformed;
  int32_t UserIdentityType; /* 0 none, 1 user name, 2 user name and passcode, 3 Kerberos, 4 SAML */
  uint8_t PositiveResponseRequested;
  uint8_t PositiveResponseReceived;
} AssocInfo;

typedef struct RelatedClass {
  char ServiceName[50]; /* empty for a SOP class without a service */
  char SopClassUid[66];
} RelatedClass;

/* What VX_Get_First_Acceptable_Service and its twin tell. */
typedef struct ServiceInfo {
  char ServiceName[52];
  VX_TRANSFER_SYNTAX SyntaxType; /* the accepted one */
  int32_t RoleNegotiated;        /* of this side: 0 SCU, 1 SCP, 2 both */
  int32_t PresentationContextId;
  char SopClassUid[66];
  char BaseServiceClassUid[66]; /* of common extended negotiation */
  int32_t RelatedClassCount;
  RelatedClass RelatedClasses[10];
} ServiceInfo;

typedef int32_t USER_IDENTITY_FIELD_TYPE;
enum { VX_PRIMARY_FIELD = 0, VX_SECONDARY_FIELD = 1, VX_SERVER_RESPONSE = 2 };

/* ---- Callbacks ---------------------------------------------------------------------------------------- */

/* Called once by VX_Library_Initialization and by each VX_Library_Reset. The record lives as long as the
 * library. */
typedef ConfigRecord* (*VX_CONFIG_FUNCTION)(void);
typedef const DictionaryRecord* (*VX_DICTIONARY_FUNCTION)(void);
/* Stored and never called: templates come from the Message Info File. */
typedef void* (*VX_MESSAGE_INFO_FUNCTION)(void);

/* Takes a piece of a value. The piece is valid during the call. VX_NORMAL_COMPLETION goes on. */
typedef VX_STATUS (*VX_READER_FUNCTION)(int32_t MsgID, uint32_t Tag, void* UserInfo, uint32_t DataSize,
                                        void* DataBuffer, int32_t IsFirst, int32_t IsLast);
/* Gives the next piece of a value; the buffer must stay valid until the next call. Sizes are even. */
typedef VX_STATUS (*VX_WRITER_FUNCTION)(int32_t MsgID, uint32_t Tag, int32_t IsFirst, void* UserInfo,
                                        int32_t* DataSize, void** DataBuffer, int32_t* IsLast);
/* Holds a value outside the library; see the VX_CALLBACK_REQUEST codes. */
typedef VX_STATUS (*VX_VALUE_CALLBACK)(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                       VX_CALLBACK_REQUEST Request, uint32_t* DataSize, void** DataBuffer,
                                       int32_t IsFirst, int32_t* IsLast);
typedef VX_STATUS (*VX_PRIVATE_VALUE_CALLBACK)(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                               uint8_t Element, void* UserInfo, VX_CALLBACK_REQUEST Request,
                                               uint32_t* DataSize, void** DataBuffer, int32_t IsFirst,
                                               int32_t* IsLast);
/* Takes a block of an encoded stream, of even length, valid during the call. */
typedef VX_STATUS (*VX_STREAM_OUTPUT)(int32_t MsgID, void* UserInfo, uint32_t DataSize, void* DataBuffer,
                                      int32_t IsFirst, int32_t IsLast);
/* Gives the next block of a stream, of even length; it must stay valid until the next call. */
typedef VX_STATUS (*VX_STREAM_INPUT)(int32_t MsgID, void* UserInfo, int32_t IsFirst, uint32_t* DataSize,
                                     void** DataBuffer, int32_t* IsLast);
/* Gives the next block of a text, of any length; it must stay valid until the next call. */
typedef VX_STATUS (*VX_TEXT_INPUT)(int32_t MsgID, void* UserInfo, uint32_t* DataSize, void** DataBuffer,
                                   int32_t IsFirst, int32_t* IsLast);
/* As VX_STREAM_INPUT for files; FileName is the name that the file object carries. */
typedef VX_STATUS (*VX_FILE_INPUT)(const char* FileName, void* UserInfo, uint32_t* DataSize,
                                   void** DataBuffer, int32_t IsFirst, int32_t* IsLast);
typedef VX_STATUS (*VX_FILE_OUTPUT)(const char* FileName, void* UserInfo, uint32_t DataSize, void* DataBuffer,
                                    int32_t IsFirst, int32_t IsLast);
/* Log receivers, called on the logging thread without a lock held. */
typedef void (*VX_LOG_FUNCTION)(int32_t Severity, const char* Line);
typedef void (*VX_ENHANCED_LOG_FUNCTION)(const VX_LOG_RECORD* Record);
/* Gets the code of a fault, for instance 0xC0000005, on the thread that faulted, inside a signal handler. */
typedef void (*VX_EXCEPTION_HANDLER)(uint32_t Code);
/* Told of a transfer of PDVs: EventCode 3 after a write, 4 after a read. */
typedef void (*VX_TRANSFER_FUNCTION)(int32_t EventCode, void* UserData, void* Context);
/* Takes one line of the memory log; returns 1 to go on. */
typedef int32_t (*VX_MEMORY_LOG_READER)(const char* Line, int32_t IsFirst, int32_t IsLast);

/*
 * Gives the next piece of a frame of an encapsulated value. Sizes are even; 0 with IsLast 0 asks to be called
 * again. The buffer must stay valid until the next call.
 */
typedef VX_STATUS (*VX_Set_Encapsulated_Callback)(int32_t MsgID, uint32_t Tag, int32_t IsFirst,
                                                  void* UserInfo, uint32_t* DataSize, void** DataBuffer,
                                                  int32_t* IsLast);
/*
 * Takes a piece of a frame, valid during the call. Each delivery ends with a call of size 0 and IsLast 1.
 */
typedef VX_STATUS (*VX_Get_Encapsulated_Callback)(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                                  uint32_t DataSize, void* DataBuffer, int32_t IsFirst,
                                                  int32_t IsLast);
/*
 * Compresses or decompresses one frame. *Context is the codec's own and null before a frame; IsFirst is 1 on
 * the first call of a frame, IsLast on the one that ends its input, which may have no data. *OutSize 0: no
 * output yet; *OutBuffer is the codec's and valid until the next call. A call with Release 1 ends the frame,
 * and follows a failure too: the codec frees *Context.
 */
typedef VX_STATUS (*VX_COMPRESSION_CALLBACK)(int32_t MsgID, void** Context, uint32_t DataSize,
                                             void* DataBuffer, uint32_t* OutSize, void** OutBuffer,
                                             int32_t IsFirst, int32_t IsLast, int32_t Release);

/* ---- Lifecycle ---------------------------------------------------------------------------------------- */

/*
 * Starts the library. With ConfigFunction and DictionaryFunction null, finds and reads vexal.ini, the three
 * profiles that it names and the dictionary file; otherwise the functions supply ready-built records. The ini
 * file is the one that VX_Set_VexalINI or the environment variable VEXAL_INI names; else one in the folders
 * of PATH; else /etc/vexal.ini; else the one that was installed beside the library.
 * VX_LIBRARY_ALREADY_INITIALIZED; VX_NO_VEXAL_INI: no ini file was found; VX_CONFIG_INFO_ERROR: a profile is
 * missing or wrong; VX_INVALID_VERSION: a ready-built record is of another version; VX_DDFILE_ERROR,
 * VX_MISSING_CONFIG_PARM: the dictionary could not be read, and the library stays initialised, so that
 * VX_Library_Release is the way out. Must run alone.
 */
VX_API VX_STATUS VX_Library_Initialization(VX_CONFIG_FUNCTION ConfigFunction,
                                           VX_DICTIONARY_FUNCTION DictionaryFunction,
                                           VX_MESSAGE_INFO_FUNCTION MessageInfoFunction);

/*
 * Drops every object, voids every handle and reads the configuration and the dictionary anew.
 * VX_CONFIG_INFO_ERROR, VX_INVALID_VERSION, VX_DDFILE_ERROR, VX_MISSING_CONFIG_PARM. Must run alone.
 */
VX_API VX_STATUS VX_Library_Reset(void);

/*
 * Ends the library and gives all its memory back; VX_Library_Initialization may follow. Must run alone.
 */
VX_API VX_STATUS VX_Library_Release(void);

/*
 * Names the ini file of the next initialisation; null removes the name. The name lives until the release.
 * VX_LIBRARY_ALREADY_INITIALIZED once the library runs.
 */
VX_API VX_STATUS VX_Set_VexalINI(const char* Path);

/*
 * Registers an application entity under its title of 1 to 16 bytes; ApplicationID gets its handle.
 * VX_INVALID_LENGTH_FOR_TITLE, VX_ALREADY_REGISTERED.
 */
VX_API VX_STATUS VX_Register_Application(int32_t* ApplicationID, const char* ApplicationTitle);

/*
 * Releases an application with its registered callbacks and its associations: these are closed, or aborted
 * where another thread is inside one. ApplicationID becomes -1.
 */
VX_API VX_STATUS VX_Release_Application(int32_t* ApplicationID);

/*
 * The text of a status, a constant string; "Unknown Error" for a number that is none. Works at any time.
 */
VX_API const char* VX_Error_Message(VX_STATUS Status);

/*
 * Copies the version, "5.3.0". VX_BUFFER_TOO_SMALL below 6 bytes. Works at any time.
 */
VX_API VX_STATUS VX_Get_Version_String(int32_t BufferSize, char* Buffer);

/*
 * Stores a handler for faults of the process, or none with null, and starts the exception filter if
 * ALLOW_LIBRARY_EXCEPTION_HANDLER is on. On SIGSEGV, SIGBUS, SIGILL and SIGFPE the filter writes what
 * happened to the standard error, calls the handler and goes on to the signal's former action, which as a
 * rule ends the process. Answers VX_NORMAL_COMPLETION.
 */
VX_API VX_STATUS VX_Set_Library_Exception_Handler(VX_EXCEPTION_HANDLER Handler);

/*
 * Has Function called after each transfer of presentation data values while ALLOW_LIBRARY_EXCEPTION_HANDLER
 * is on; null ends it. Context is the library's own. Answers VX_NORMAL_COMPLETION.
 */
VX_API VX_STATUS VX_Set_Exception(void* UserData, VX_TRANSFER_FUNCTION Function);

/* ---- Memory ------------------------------------------------------------------------------------------- */

/*
 * Gives completely free blocks of the pools back to the system, for at most MaxSeconds (0: no limit).
 * VX_VALUE_OUT_OF_RANGE below 0. A call during another thread's clean-up returns at once.
 */
VX_API VX_STATUS VX_Cleanup_Memory(int32_t MaxSeconds);

/*
 * TotalBytes gets the bytes of all blocks and buffers held, FreeBytes those of blocks that have a free slot,
 * plus all direct buffers. Slots that a thread keeps at hand count as free.
 */
VX_API VX_STATUS VX_Report_Memory(uint64_t* TotalBytes, uint64_t* FreeBytes);

/* ---- Log ---------------------------------------------------------------------------------------------- */

/*
 * Formats a message and logs it at one VX_LOG_ level. Returns 0; 4 for a null or empty Format, 7 before a
 * configuration exists, 2 if the log file failed, 8 if the memory log could not be allocated.
 */
VX_API int32_t VXlog(uint32_t Level, const char* Format, ...) VX_PRINTF(2, 3);

/*
 * The same with the name of a function in the line.
 */
VX_API int32_t VXlog_Function(const char* FunctionName, uint32_t Level, const char* Format, ...)
    VX_PRINTF(3, 4);

/*
 * Sets the text, of at most 10 characters, at the head of each line, without leading white space; null
 * empties it. Returns the stored text.
 */
VX_API const char* VX_Set_Log_Prefix(const char* Prefix);

/*
 * Sets the receiver of whole log lines; null takes it away. One that is named before the initialisation gets
 * the errors and warnings of the start, which then writes no log file and nothing to the screen. Reset and
 * release take it away.
 */
VX_API void VX_Register_MemoryLog_Function(VX_LOG_FUNCTION Function);

/*
 * The same for log records.
 */
VX_API void VX_Register_Enhanced_MemoryLog_Function(VX_ENHANCED_LOG_FUNCTION Function);

/*
 * Hands the memory log over, oldest line first; a non-zero Clear empties it after the last line.
 * VX_LOG_EMPTY; VX_CALLBACK_CANNOT_COMPLY as soon as Callback returns other than 1.
 */
VX_API VX_STATUS VX_MemoryLog_To_Function(int32_t Clear, VX_MEMORY_LOG_READER Callback);

/* ---- Configuration ------------------------------------------------------------------------------------ */

/*
 * Sets an integer setting; a value out of bounds is brought into them, or refused with VX_MUST_BE_POSITIVE.
 * VX_INVALID_PARAMETER_NAME for an unknown key.
 */
VX_API VX_STATUS VX_Set_Int_Config_Value(VX_INT_KEY Key, int32_t Value);

/*
 * Reads an integer setting. VX_INVALID_PARAMETER_NAME, *Value then 0.
 */
VX_API VX_STATUS VX_Get_Int_Config_Value(VX_INT_KEY Key, int32_t* Value);

/*
 * As VX_Set_Int_Config_Value, for the settings that hold byte counts.
 */
VX_API VX_STATUS VX_Set_Long_Config_Value(VX_LONG_KEY Key, int32_t Value);

/*
 * As VX_Get_Int_Config_Value, for the settings that hold byte counts.
 */
VX_API VX_STATUS VX_Get_Long_Config_Value(VX_LONG_KEY Key, int32_t* Value);

/*
 * Turns a switch on (any non-zero Value) or off. VX_INVALID_PARAMETER_NAME.
 */
VX_API VX_STATUS VX_Set_Bool_Config_Value(VX_BOOL_KEY Key, int32_t Value);

/*
 * Reads a switch as 0 or 1. VX_INVALID_PARAMETER_NAME.
 */
VX_API VX_STATUS VX_Get_Bool_Config_Value(VX_BOOL_KEY Key, int32_t* Value);

/*
 * Stores a copy of a text; "<none>", "none", "na", "n/a" and "" store the empty text.
 * VX_INVALID_PARAMETER_NAME; VX_CANNOT_COMPLY if the text is malformed for its key or could not be stored.
 */
VX_API VX_STATUS VX_Set_String_Config_Value(VX_STRING_KEY Key, const char* Value);

/*
 * Copies a text. VX_INVALID_PARAMETER_NAME; VX_BUFFER_TOO_SMALL, nothing copied.
 */
VX_API VX_STATUS VX_Get_String_Config_Value(VX_STRING_KEY Key, int32_t BufferSize, char* Buffer);

/*
 * Sets where messages of a level go, a set of VX_LOG_TO_ bits. Errors always go to the file too.
 * VX_INVALID_PARAMETER_NAME.
 */
VX_API VX_STATUS VX_Set_Log_Destination(VX_LOG_KEY Key, uint32_t Destination);

/*
 * Reads where messages of a level go. VX_INVALID_PARAMETER_NAME.
 */
VX_API VX_STATUS VX_Get_Log_Destination(VX_LOG_KEY Key, uint32_t* Destination);

/* ---- Services ----------------------------------------------------------------------------------------- */

/*
 * The name of the service with this SOP class UID. VX_INVALID_SOP_CLASS_UID, the buffer then empty;
 * VX_BUFFER_TOO_SMALL, as much as fits then copied.
 */
VX_API VX_STATUS VX_Get_VexalKit_Service(const char* Uid, char* ServiceName, int32_t BufferSize);

/*
 * The SOP class UID of a service. VX_UNKNOWN_SERVICE, VX_BUFFER_TOO_SMALL.
 */
VX_API VX_STATUS VX_Get_UID_From_VexalKit_Service(const char* ServiceName, char* Uid, int32_t BufferSize);

/* The names of the services and items of the configuration that comes with the toolkit, in alphabetical
 * order. */
extern VX_API const char* const Services[220];
extern VX_API const char* const Items[898];

/* ---- Messages and items ------------------------------------------------------------------------------- */

/*
 * Opens a message without service and command; it takes any attribute that the dictionary knows.
 */
VX_API VX_STATUS VX_Open_Empty_Message(int32_t* MsgID);

/*
 * Opens an item without a name.
 */
VX_API VX_STATUS VX_Open_Empty_Item(int32_t* ItemID);

/*
 * Opens a message with the attributes that its template names; it takes no others. A service that the
 * configuration lacks gives an unrestricted message and normal status. VX_INVALID_COMMAND; VX_MSGFILE_ERROR:
 * the template could not be read.
 */
VX_API VX_STATUS VX_Open_Message(int32_t* MsgID, const char* ServiceName, uint16_t Command);

/*
 * Opens an item with the attributes that its template names; it takes no others. A name that the
 * configuration lacks, and any with FORCE_OPEN_EMPTY_ITEM, gives an unrestricted item and normal status.
 * VX_MSGFILE_ERROR: the template could not be read.
 */
VX_API VX_STATUS VX_Open_Item(int32_t* ItemID, const char* ItemName);

/*
 * Frees a message with its values; MsgID becomes -1. Items that no other sequence references go with it.
 */
VX_API VX_STATUS VX_Free_Message(int32_t* MsgID);

/*
 * Frees an item. One that a sequence references lives on until the last such sequence goes, with normal
 * status.
 */
VX_API VX_STATUS VX_Free_Item(int32_t* ItemID);

/*
 * Clears all values; the attributes stay, private creators apart (EMPTY_PRIVATE_CREATOR_CODES).
 */
VX_API VX_STATUS VX_Empty_Message(int32_t MsgID);

/*
 * The same for an item. VX_INVALID_ITEM_ID.
 */
VX_API VX_STATUS VX_Empty_Item(int32_t ItemID);

/*
 * Replaces service and command. Messages and files only, else VX_INVALID_MESSAGE_ID. VX_INVALID_COMMAND.
 */
VX_API VX_STATUS VX_Set_Service_Command(int32_t MsgID, const char* ServiceName, uint16_t Command);

/*
 * Gives the object's own name string, valid until the object is freed or renamed, and its command.
 */
VX_API VX_STATUS VX_Get_Message_Service(int32_t MsgID, const char** ServiceName, uint16_t* Command);

/*
 * Adds an attribute that the dictionary knows, without a value. VX_INVALID_TAG, VX_TAG_ALREADY_EXISTS.
 */
VX_API VX_STATUS VX_Add_Standard_Attribute(int32_t MsgID, uint32_t Tag);

/*
 * Adds an attribute that the dictionary does not know. VX_INVALID_TAG: it does know it; VX_INVALID_VR_CODE,
 * VX_TAG_ALREADY_EXISTS.
 */
VX_API VX_STATUS VX_Add_Nonstandard_Attribute(int32_t MsgID, uint32_t Tag, VX_VR VR);

/*
 * Takes an attribute out with its values. VX_INVALID_TAG.
 */
VX_API VX_STATUS VX_Delete_Attribute(int32_t MsgID, uint32_t Tag);

/*
 * Takes out every attribute from FirstTag to LastTag, both included; none is no fault.
 */
VX_API VX_STATUS VX_Delete_Range(int32_t MsgID, uint32_t FirstTag, uint32_t LastTag);

/*
 * Starts to walk the attributes in ascending order. Any output may be null. Count is the number of values, 1
 * for a bulk VR. VX_MESSAGE_EMPTY.
 */
VX_API VX_STATUS VX_Get_First_Attribute(int32_t MsgID, uint32_t* Tag, VX_VR* VR, int32_t* Count);

/*
 * The next attribute of the walk. VX_MESSAGE_EMPTY, VX_NO_MORE_ATTRIBUTES.
 */
VX_API VX_STATUS VX_Get_Next_Attribute(int32_t MsgID, uint32_t* Tag, VX_VR* VR, int32_t* Count);

/*
 * VR and value count of one attribute; the walk goes on behind it. VX_INVALID_TAG.
 */
VX_API VX_STATUS VX_Get_Attribute_Info(int32_t MsgID, uint32_t Tag, VX_VR* VR, int32_t* Count);

/*
 * Changes the VR of an attribute. OB, OW, OL, OD and OF become any VR, their bytes staying as they are: as
 * numbers they are cut to the size of the new VR, as text they are one value; only bytes can not turn into
 * items. US and SS become each other, or OW. UN becomes any VR: its bytes are then read as implicit little
 * endian. VX_INVALID_TAG, VX_INVALID_VR_CODE; VX_VR_ALREADY_VALID: any other change; any status of the
 * decoder for a UN value that does not fit, the value then unchanged.
 */
VX_API VX_STATUS VX_Set_Value_Representation(int32_t MsgID, uint32_t Tag, VX_VR VR);

/* ---- Values of any kind ------------------------------------------------------------------------------- */

/*
 * The number of values, 1 for a bulk VR. VX_EMPTY_VALUE: none yet; VX_NULL_VALUE: one without data; *Count is
 * then 0. VX_INVALID_TAG.
 */
VX_API VX_STATUS VX_Get_Value_Count(int32_t MsgID, uint32_t Tag, int32_t* Count);

/*
 * The length in bytes of value ValueNumber, counted from 1; for a bulk VR the whole length whatever the
 * number. VX_INVALID_TAG, VX_INVALID_VALUE_NUMBER, VX_EMPTY_VALUE, VX_NULL_VALUE, VX_CALLBACK_CANNOT_COMPLY.
 */
VX_API VX_STATUS VX_Get_Value_Length(int32_t MsgID, uint32_t Tag, int32_t ValueNumber, uint32_t* Length);

/*
 * Copies the whole value of UN, OB or OW; words are in the machine's byte order. *Length is the number of
 * bytes copied. VX_INVALID_TAG, VX_INCOMPATIBLE_VR; VX_CALLBACK_REGISTERED: a callback holds the value;
 * VX_EMPTY_VALUE, *Length is left as it was; VX_NULL_VALUE, *Length is 0 and Buffer, if it has room, starts
 * with a NUL; VX_BUFFER_TOO_SMALL: *Length is the size of the piece that did not fit, and the pieces in front
 * of it are in Buffer. VX_Get_Value_Length tells the size of the whole beforehand.
 */
VX_API VX_STATUS VX_Get_Value_To_Buffer(int32_t MsgID, uint32_t Tag, uint32_t BufferSize, void* Buffer,
                                        uint32_t* Length);

/*
 * Hands the value of a numeric or bulk VR, UR or UT to Function piece by piece, without a copy.
 * VX_INVALID_TAG, VX_INCOMPATIBLE_VR, VX_EMPTY_VALUE, VX_NULL_VALUE; VX_CALLBACK_CANNOT_COMPLY: Function or a
 * value callback refused.
 */
VX_API VX_STATUS VX_Get_Value_To_Function(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                          VX_READER_FUNCTION Function);

/*
 * Reads the first value in any native type; Length gets the bytes written. VX_BUFFER_TOO_SMALL, and as the
 * typed functions below.
 */
VX_API VX_STATUS VX_Get_Value(int32_t MsgID, uint32_t Tag, VX_DATA_TYPE DataType, uint32_t BufferSize,
                              void* Buffer, uint32_t* Length);

/*
 * Reads the next value. VX_NO_MORE_VALUES; VX_INCOMPATIBLE_VR for VX_BUFFER_TYPE.
 */
VX_API VX_STATUS VX_Get_Next_Value(int32_t MsgID, uint32_t Tag, VX_DATA_TYPE DataType, uint32_t BufferSize,
                                   void* Buffer, uint32_t* Length);

/*
 * Sets the first value, dropping all others; Value points to the native type. As the typed functions below.
 */
VX_API VX_STATUS VX_Set_Value(int32_t MsgID, uint32_t Tag, VX_DATA_TYPE DataType, const void* Value);

/*
 * Adds a value behind the last.
 */
VX_API VX_STATUS VX_Set_Next_Value(int32_t MsgID, uint32_t Tag, VX_DATA_TYPE DataType, const void* Value);

/*
 * Takes the value away; the attribute stays, and is added if it was not there. VX_INVALID_TAG.
 */
VX_API VX_STATUS VX_Set_Value_To_Empty(int32_t MsgID, uint32_t Tag);

/*
 * Gives the attribute one value without data. VX_INVALID_TAG.
 */
VX_API VX_STATUS VX_Set_Value_To_NULL(int32_t MsgID, uint32_t Tag);

/*
 * Adds a value without data behind the last; multi-valued text VRs only, else VX_INCOMPATIBLE_VR.
 */
VX_API VX_STATUS VX_Set_Next_Value_To_NULL(int32_t MsgID, uint32_t Tag);

/*
 * Replaces a bulk value by a copy of Length bytes. VX_INVALID_TAG, VX_INCOMPATIBLE_VR, VX_TOO_MANY_VALUES;
 * VX_INVALID_VALUE_FOR_VR: an odd length, other than for OB.
 */
VX_API VX_STATUS VX_Set_Value_From_Buffer(int32_t MsgID, uint32_t Tag, const void* Buffer, uint32_t Length);

/*
 * Fills the value of OB, OW, OL, OD, OF, UR or UT from the pieces that Function gives. VX_INVALID_TAG,
 * VX_INCOMPATIBLE_VR, VX_CALLBACK_CANNOT_COMPLY, VX_CALLBACK_DATA_SIZE_UNEVEN,
 * VX_CALLBACK_DATA_SIZE_NEGATIVE, VX_CALLBACK_PARM_ERROR.
 */
VX_API VX_STATUS VX_Set_Value_From_Function(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                            VX_WRITER_FUNCTION Function);

/*
 * Deletes the value under the attribute's cursor, which moves to the one before. VX_INVALID_TAG,
 * VX_INCOMPATIBLE_VR, VX_EMPTY_VALUE, VX_NULL_VALUE, VX_NO_MORE_VALUES.
 */
VX_API VX_STATUS VX_Delete_Current_Value(int32_t MsgID, uint32_t Tag);

/*
 * Reverses the bytes of each element of an OW, OL, OD or OF value in place; OB is left alone. VX_INVALID_TAG,
 * VX_INCOMPATIBLE_VR, VX_CALLBACK_REGISTERED, VX_TEMP_FILE_ERROR, VX_EMPTY_VALUE, VX_NULL_VALUE.
 */
VX_API VX_STATUS VX_Byte_Swap_OBOW(int32_t MsgID, uint32_t Tag);

/* ---- Setting values from native types ----------------------------------------------------------------- */

/*
 * Each function converts its argument to the form of the attribute's VR and stores it; an attribute that is
 * not there is added, as far as the object takes it. VX_Set_Value_From_... drops all earlier values,
 * VX_Set_Next_Value_From_... adds behind the last. For SQ the value is the ID of an item, which the sequence
 * then references.
 *
 * VX_INVALID_TAG, VX_TOO_MANY_VALUES, VX_NULL_POINTER_PARM (null text); VX_INCOMPATIBLE_VR: the VR does not
 * take this type; VX_VALUE_OUT_OF_RANGE: the number does not fit; VX_INVALID_ENCAPSULATED_PIXEL_DATA.
 * VX_INVALID_VALUE_FOR_VR and VX_INVALID_CHARS_IN_VALUE for a text that breaks the rules of its VR (PS3.5
 * section 6.2) come with the value stored all the same.
 */

/* Sets the first value from a NUL-terminated text. */
VX_API VX_STATUS VX_Set_Value_From_String(int32_t MsgID, uint32_t Tag, const char* Value);
/* Adds a value from a NUL-terminated text. */
VX_API VX_STATUS VX_Set_Next_Value_From_String(int32_t MsgID, uint32_t Tag, const char* Value);

/* Sets the first value from an int32_t. */
VX_API VX_STATUS VX_Set_Value_From_Int(int32_t MsgID, uint32_t Tag, int32_t Value);
/* Adds a value from an int32_t. */
VX_API VX_STATUS VX_Set_Next_Value_From_Int(int32_t MsgID, uint32_t Tag, int32_t Value);

/* Sets the first value from a uint32_t. */
VX_API VX_STATUS VX_Set_Value_From_UInt(int32_t MsgID, uint32_t Tag, uint32_t Value);
/* Adds a value from a uint32_t. */
VX_API VX_STATUS VX_Set_Next_Value_From_UInt(int32_t MsgID, uint32_t Tag, uint32_t Value);

/* Sets the first value from an int16_t. */
VX_API VX_STATUS VX_Set_Value_From_ShortInt(int32_t MsgID, uint32_t Tag, int16_t Value);
/* Adds a value from an int16_t. */
VX_API VX_STATUS VX_Set_Next_Value_From_ShortInt(int32_t MsgID, uint32_t Tag, int16_t Value);

/* Sets the first value from a uint16_t. */
VX_API VX_STATUS VX_Set_Value_From_UShortInt(int32_t MsgID, uint32_t Tag, uint16_t Value);
/* Adds a value from a uint16_t. */
VX_API VX_STATUS VX_Set_Next_Value_From_UShortInt(int32_t MsgID, uint32_t Tag, uint16_t Value);

/* Sets the first value from an int32_t. */
VX_API VX_STATUS VX_Set_Value_From_LongInt(int32_t MsgID, uint32_t Tag, int32_t Value);
/* Adds a value from an int32_t. */
VX_API VX_STATUS VX_Set_Next_Value_From_LongInt(int32_t MsgID, uint32_t Tag, int32_t Value);

/* Sets the first value from a uint32_t. */
VX_API VX_STATUS VX_Set_Value_From_ULongInt(int32_t MsgID, uint32_t Tag, uint32_t Value);
/* Adds a value from a uint32_t. */
VX_API VX_STATUS VX_Set_Next_Value_From_ULongInt(int32_t MsgID, uint32_t Tag, uint32_t Value);

/* Sets the first value from a float. */
VX_API VX_STATUS VX_Set_Value_From_Float(int32_t MsgID, uint32_t Tag, float Value);
/* Adds a value from a float. */
VX_API VX_STATUS VX_Set_Next_Value_From_Float(int32_t MsgID, uint32_t Tag, float Value);

/* Sets the first value from a double. */
VX_API VX_STATUS VX_Set_Value_From_Double(int32_t MsgID, uint32_t Tag, double Value);
/* Adds a value from a double. */
VX_API VX_STATUS VX_Set_Next_Value_From_Double(int32_t MsgID, uint32_t Tag, double Value);

/* ---- Reading values into native types ----------------------------------------------------------------- */

/*
 * VX_Get_Value_To_... reads the first value and puts the attribute's cursor on it, VX_Get_Next_Value_To_...
 * moves the cursor on and reads there. Numbers come from DS, IS, the numeric VRs and SQ (the item's ID);
 * texts from all but UN and the bulk VRs.
 *
 * VX_NULL_POINTER_PARM, VX_INVALID_TAG, VX_INCOMPATIBLE_VR, VX_EMPTY_VALUE, VX_NULL_VALUE, VX_NO_MORE_VALUES;
 * VX_VALUE_OUT_OF_RANGE: the number does not fit the type; VX_INCOMPATIBLE_VALUE: the text is no number;
 * VX_BUFFER_TOO_SMALL: as much of the text as fits was copied, and the cursor stays on it.
 */

/* Reads the first value as a NUL-terminated text. */
VX_API VX_STATUS VX_Get_Value_To_String(int32_t MsgID, uint32_t Tag, int32_t BufferSize, char* Buffer);
/* Reads the next value as a NUL-terminated text. */
VX_API VX_STATUS VX_Get_Next_Value_To_String(int32_t MsgID, uint32_t Tag, int32_t BufferSize, char* Buffer);

/* Reads the first value as an int32_t. */
VX_API VX_STATUS VX_Get_Value_To_Int(int32_t MsgID, uint32_t Tag, int32_t* Value);
/* Reads the next value as an int32_t. */
VX_API VX_STATUS VX_Get_Next_Value_To_Int(int32_t MsgID, uint32_t Tag, int32_t* Value);

/* Reads the first value as a uint32_t. */
VX_API VX_STATUS VX_Get_Value_To_UInt(int32_t MsgID, uint32_t Tag, uint32_t* Value);
/* Reads the next value as a uint32_t. */
VX_API VX_STATUS VX_Get_Next_Value_To_UInt(int32_t MsgID, uint32_t Tag, uint32_t* Value);

/* Reads the first value as an int16_t. */
VX_API VX_STATUS VX_Get_Value_To_ShortInt(int32_t MsgID, uint32_t Tag, int16_t* Value);
/* Reads the next value as an int16_t. */
VX_API VX_STATUS VX_Get_Next_Value_To_ShortInt(int32_t MsgID, uint32_t Tag, int16_t* Value);

/* Reads the first value as a uint16_t. */
VX_API VX_STATUS VX_Get_Value_To_UShortInt(int32_t MsgID, uint32_t Tag, uint16_t* Value);
/* Reads the next value as a uint16_t. */
VX_API VX_STATUS VX_Get_Next_Value_To_UShortInt(int32_t MsgID, uint32_t Tag, uint16_t* Value);

/* Reads the first value as an int32_t. */
VX_API VX_STATUS VX_Get_Value_To_LongInt(int32_t MsgID, uint32_t Tag, int32_t* Value);
/* Reads the next value as an int32_t. */
VX_API VX_STATUS VX_Get_Next_Value_To_LongInt(int32_t MsgID, uint32_t Tag, int32_t* Value);

/* Reads the first value as a uint32_t. */
VX_API VX_STATUS VX_Get_Value_To_ULongInt(int32_t MsgID, uint32_t Tag, uint32_t* Value);
/* Reads the next value as a uint32_t. */
VX_API VX_STATUS VX_Get_Next_Value_To_ULongInt(int32_t MsgID, uint32_t Tag, uint32_t* Value);

/* Reads the first value as a float. */
VX_API VX_STATUS VX_Get_Value_To_Float(int32_t MsgID, uint32_t Tag, float* Value);
/* Reads the next value as a float. */
VX_API VX_STATUS VX_Get_Next_Value_To_Float(int32_t MsgID, uint32_t Tag, float* Value);

/* Reads the first value as a double. */
VX_API VX_STATUS VX_Get_Value_To_Double(int32_t MsgID, uint32_t Tag, double* Value);
/* Reads the next value as a double. */
VX_API VX_STATUS VX_Get_Next_Value_To_Double(int32_t MsgID, uint32_t Tag, double* Value);

/* ---- Data dictionary ---------------------------------------------------------------------------------- */

/*
 * The name of a tag. VX_INVALID_TAG: the dictionary lacks it; VX_MISSING_CONFIG_PARM: there is no dictionary;
 * VX_BUFFER_TOO_SMALL: as much of the name as fits was copied.
 */
VX_API VX_STATUS VX_Get_Tag_Info(uint32_t Tag, char* Buffer, int32_t BufferSize);

/*
 * Name, VR and bounds of the number of values (255: no limit) of a tag. As VX_Get_Tag_Info;
 * VX_NULL_POINTER_PARM for Tag 0 too.
 */
VX_API VX_STATUS VX_Get_Tags_Dict_Info(uint32_t Tag, char* Buffer, int32_t BufferSize, VX_VR* VR,
                                       uint16_t* VMLow, uint16_t* VMHigh);

/*
 * As VX_Get_Tag_Info, for a private attribute by creator code, group and low byte of the element.
 */
VX_API VX_STATUS VX_Get_pTag_Info(const char* PrivateCode, uint16_t Group, uint8_t Element, char* Buffer,
                                  int32_t BufferSize);

/*
 * As VX_Get_Tags_Dict_Info, for a private attribute.
 */
VX_API VX_STATUS VX_Get_pTags_Dict_Info(const char* PrivateCode, uint16_t Group, uint8_t Element,
                                        char* Buffer, int32_t BufferSize, VX_VR* VR, uint16_t* VMLow,
                                        uint16_t* VMHigh);

/*
 * The keyword of a standard tag, made from its name as PS3.6 section 6 does. VX_INVALID_TAG,
 * VX_MISSING_CONFIG_PARM; VX_BUFFER_TOO_SMALL, nothing copied.
 */
VX_API VX_STATUS VX_Get_Tag_Keyword(uint32_t Tag, char* Buffer, int32_t BufferSize);

/* ---- Private attributes (PS3.5 section 7.8) ----------------------------------------------------------- */

/*
 * A private attribute is named by creator code (trailing blanks do not count), group and low byte of the
 * element; the library finds the block. VX_INVALID_GROUP: the group is not private; VX_NOT_FOUND: the object
 * has no block of this creator; VX_TOO_MANY_BLOCKS: all 240 blocks are taken. In the pValue functions a
 * missing block, and in those that set a missing attribute too, gives VX_INVALID_PRIVATE_CODE.
 */
/*
 * Adds the creator; one that is there is no fault. VX_INVALID_GROUP, VX_TOO_MANY_BLOCKS;
 * VX_INVALID_PRIVATE_CODE: a code without characters.
 */
VX_API VX_STATUS VX_Add_Private_Block(int32_t MsgID, const char* PrivateCode, uint16_t Group);

/*
 * Deletes the creator and all attributes of its block. VX_INVALID_GROUP, VX_NOT_FOUND.
 */
VX_API VX_STATUS VX_Delete_Private_Block(int32_t MsgID, const char* PrivateCode, uint16_t Group);

/*
 * Adds an attribute. One that the dictionary knows takes its VR from there and adds the block; for any other
 * the block must exist, and VR counts. VX_TAG_ALREADY_EXISTS, VX_INVALID_VR_CODE, VX_INVALID_GROUP,
 * VX_NOT_FOUND.
 */
VX_API VX_STATUS VX_Add_Private_Attribute(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                          uint8_t Element, VX_VR VR);

/*
 * Deletes one attribute. VX_INVALID_GROUP, VX_NOT_FOUND, VX_INVALID_TAG.
 */
VX_API VX_STATUS VX_Delete_Private_Attribute(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                             uint8_t Element);

/*
 * As VX_Get_Attribute_Info.
 */
VX_API VX_STATUS VX_Get_pAttribute_Info(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                        uint8_t Element, VX_VR* VR, int32_t* Count);

/*
 * As VX_Set_Value_Representation.
 */
VX_API VX_STATUS VX_Set_pValue_Representation(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                              uint8_t Element, VX_VR VR);

/* As VX_Get_Value_Count. */
VX_API VX_STATUS VX_Get_pValue_Count(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                                     int32_t* Count);
/* As VX_Get_Value_Length. */
VX_API VX_STATUS VX_Get_pValue_Length(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                                      int32_t ValueNumber, uint32_t* Length);
/* As VX_Get_Value. */
VX_API VX_STATUS VX_Get_pValue(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                               VX_DATA_TYPE DataType, uint32_t BufferSize, void* Buffer, uint32_t* Length);
/* As VX_Get_Next_Value. */
VX_API VX_STATUS VX_Get_Next_pValue(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                                    VX_DATA_TYPE DataType, uint32_t BufferSize, void* Buffer,
                                    uint32_t* Length);
/* As VX_Get_Value_To_Buffer. */
VX_API VX_STATUS VX_Get_pValue_To_Buffer(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                         uint8_t Element, uint32_t BufferSize, void* Buffer,
                                         uint32_t* Length);
/* As VX_Get_Value_To_Function. */
VX_API VX_STATUS VX_Get_pValue_To_Function(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                           uint8_t Element, void* UserInfo, VX_READER_FUNCTION Function);
/* As VX_Set_Value. */
VX_API VX_STATUS VX_Set_pValue(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                               VX_DATA_TYPE DataType, const void* Value);
/* As VX_Set_Next_Value. */
VX_API VX_STATUS VX_Set_Next_pValue(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                                    VX_DATA_TYPE DataType, const void* Value);
/* As VX_Set_Value_From_Buffer. */
VX_API VX_STATUS VX_Set_pValue_From_Buffer(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                           uint8_t Element, const void* Buffer, uint32_t Length);
/* As VX_Set_Value_From_Function. */
VX_API VX_STATUS VX_Set_pValue_From_Function(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                             uint8_t Element, void* UserInfo, VX_WRITER_FUNCTION Function);
/* As VX_Set_Value_To_NULL. */
VX_API VX_STATUS VX_Set_pValue_To_NULL(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                       uint8_t Element);
/* As VX_Set_Next_Value_To_NULL. */
VX_API VX_STATUS VX_Set_Next_pValue_To_NULL(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                            uint8_t Element);
/* As VX_Set_Value_To_Empty. */
VX_API VX_STATUS VX_Set_pValue_To_Empty(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                        uint8_t Element);

/* As VX_Set_Value_From_String. */
VX_API VX_STATUS VX_Set_pValue_From_String(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                           uint8_t Element, const char* Value);
/* As VX_Set_Next_Value_From_String. */
VX_API VX_STATUS VX_Set_Next_pValue_From_String(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                uint8_t Element, const char* Value);
/* As VX_Set_Value_From_Int. */
VX_API VX_STATUS VX_Set_pValue_From_Int(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                        uint8_t Element, int32_t Value);
/* As VX_Set_Next_Value_From_Int. */
VX_API VX_STATUS VX_Set_Next_pValue_From_Int(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                             uint8_t Element, int32_t Value);
/* As VX_Set_Value_From_UInt. */
VX_API VX_STATUS VX_Set_pValue_From_UInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                         uint8_t Element, uint32_t Value);
/* As VX_Set_Next_Value_From_UInt. */
VX_API VX_STATUS VX_Set_Next_pValue_From_UInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                              uint8_t Element, uint32_t Value);
/* As VX_Set_Value_From_ShortInt. */
VX_API VX_STATUS VX_Set_pValue_From_ShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                             uint8_t Element, int16_t Value);
/* As VX_Set_Next_Value_From_ShortInt. */
VX_API VX_STATUS VX_Set_Next_pValue_From_ShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                  uint8_t Element, int16_t Value);
/* As VX_Set_Value_From_UShortInt. */
VX_API VX_STATUS VX_Set_pValue_From_UShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                              uint8_t Element, uint16_t Value);
/* As VX_Set_Next_Value_From_UShortInt. */
VX_API VX_STATUS VX_Set_Next_pValue_From_UShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                   uint8_t Element, uint16_t Value);
/* As VX_Set_Value_From_LongInt. */
VX_API VX_STATUS VX_Set_pValue_From_LongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                            uint8_t Element, int32_t Value);
/* As VX_Set_Next_Value_From_LongInt. */
VX_API VX_STATUS VX_Set_Next_pValue_From_LongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                 uint8_t Element, int32_t Value);
/* As VX_Set_Value_From_ULongInt. */
VX_API VX_STATUS VX_Set_pValue_From_ULongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                             uint8_t Element, uint32_t Value);
/* As VX_Set_Next_Value_From_ULongInt. */
VX_API VX_STATUS VX_Set_Next_pValue_From_ULongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                  uint8_t Element, uint32_t Value);
/* As VX_Set_Value_From_Float. */
VX_API VX_STATUS VX_Set_pValue_From_Float(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                          uint8_t Element, float Value);
/* As VX_Set_Next_Value_From_Float. */
VX_API VX_STATUS VX_Set_Next_pValue_From_Float(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                               uint8_t Element, float Value);
/* As VX_Set_Value_From_Double. */
VX_API VX_STATUS VX_Set_pValue_From_Double(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                           uint8_t Element, double Value);
/* As VX_Set_Next_Value_From_Double. */
VX_API VX_STATUS VX_Set_Next_pValue_From_Double(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                uint8_t Element, double Value);

/* As VX_Get_Value_To_String. */
VX_API VX_STATUS VX_Get_pValue_To_String(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                         uint8_t Element, int32_t BufferSize, char* Buffer);
/* As VX_Get_Next_Value_To_String. */
VX_API VX_STATUS VX_Get_Next_pValue_To_String(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                              uint8_t Element, int32_t BufferSize, char* Buffer);
/* As VX_Get_Value_To_Int. */
VX_API VX_STATUS VX_Get_pValue_To_Int(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                                      int32_t* Value);
/* As VX_Get_Next_Value_To_Int. */
VX_API VX_STATUS VX_Get_Next_pValue_To_Int(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                           uint8_t Element, int32_t* Value);
/* As VX_Get_Value_To_UInt. */
VX_API VX_STATUS VX_Get_pValue_To_UInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                       uint8_t Element, uint32_t* Value);
/* As VX_Get_Next_Value_To_UInt. */
VX_API VX_STATUS VX_Get_Next_pValue_To_UInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                            uint8_t Element, uint32_t* Value);
/* As VX_Get_Value_To_ShortInt. */
VX_API VX_STATUS VX_Get_pValue_To_ShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                           uint8_t Element, int16_t* Value);
/* As VX_Get_Next_Value_To_ShortInt. */
VX_API VX_STATUS VX_Get_Next_pValue_To_ShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                uint8_t Element, int16_t* Value);
/* As VX_Get_Value_To_UShortInt. */
VX_API VX_STATUS VX_Get_pValue_To_UShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                            uint8_t Element, uint16_t* Value);
/* As VX_Get_Next_Value_To_UShortInt. */
VX_API VX_STATUS VX_Get_Next_pValue_To_UShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                 uint8_t Element, uint16_t* Value);
/* As VX_Get_Value_To_LongInt. */
VX_API VX_STATUS VX_Get_pValue_To_LongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                          uint8_t Element, int32_t* Value);
/* As VX_Get_Next_Value_To_LongInt. */
VX_API VX_STATUS VX_Get_Next_pValue_To_LongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                               uint8_t Element, int32_t* Value);
/* As VX_Get_Value_To_ULongInt. */
VX_API VX_STATUS VX_Get_pValue_To_ULongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                           uint8_t Element, uint32_t* Value);
/* As VX_Get_Next_Value_To_ULongInt. */
VX_API VX_STATUS VX_Get_Next_pValue_To_ULongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                uint8_t Element, uint32_t* Value);
/* As VX_Get_Value_To_Float. */
VX_API VX_STATUS VX_Get_pValue_To_Float(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                        uint8_t Element, float* Value);
/* As VX_Get_Next_Value_To_Float. */
VX_API VX_STATUS VX_Get_Next_pValue_To_Float(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                             uint8_t Element, float* Value);
/* As VX_Get_Value_To_Double. */
VX_API VX_STATUS VX_Get_pValue_To_Double(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                         uint8_t Element, double* Value);
/* As VX_Get_Next_Value_To_Double. */
VX_API VX_STATUS VX_Get_Next_pValue_To_Double(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                              uint8_t Element, double* Value);

/* ---- Values held by a callback ------------------------------------------------------------------------ */

/*
 * Registers Function for a standard tag of VR OB, OW, OL, OD or OF: when this application reads a file or
 * binds its callbacks to a message, the value then lives with the function. A second call replaces function
 * and UserInfo. VX_INVALID_TAG for a private tag.
 */
VX_API VX_STATUS VX_Register_Callback_Function(int32_t ApplicationID, uint32_t Tag, void* UserInfo,
                                               VX_VALUE_CALLBACK Function);

/*
 * The same for a private attribute.
 */
VX_API VX_STATUS VX_Register_pCallback_Function(int32_t ApplicationID, const char* PrivateCode,
                                                uint16_t Group, uint8_t Element, void* UserInfo,
                                                VX_PRIVATE_VALUE_CALLBACK Function);

/*
 * Removes a registration; bound attributes stay bound. VX_INVALID_TAG: there is none.
 */
VX_API VX_STATUS VX_Release_Callback_Function(int32_t ApplicationID, uint32_t Tag);

/*
 * The same for a private attribute. VX_INVALID_TAG: there is none.
 */
VX_API VX_STATUS VX_Release_pCallback_Function(int32_t ApplicationID, const char* PrivateCode, uint16_t Group,
                                               uint8_t Element);

/*
 * Binds all registered callbacks to the attributes of a message that have no value yet.
 */
VX_API VX_STATUS VX_Set_Message_Callbacks(int32_t ApplicationID, int32_t MsgID);

/* ---- Transfer syntaxes -------------------------------------------------------------------------------- */

/*
 * The UID of a transfer syntax as the configuration has it. VX_INVALID_TRANSFER_SYNTAX, VX_BUFFER_TOO_SMALL.
 */
VX_API VX_STATUS VX_Get_Transfer_Syntax_From_Enum(VX_TRANSFER_SYNTAX Syntax, char* Uid, int32_t BufferSize);

/*
 * The transfer syntax of a UID; trailing blanks of Uid are cut in place. VX_INVALID_TRANSFER_SYNTAX, *Syntax
 * then IMPLICIT_LITTLE_ENDIAN.
 */
VX_API VX_STATUS VX_Get_Enum_From_Transfer_Syntax(char* Uid, VX_TRANSFER_SYNTAX* Syntax);

/*
 * Sets the transfer syntax of a message, of an item that holds Pixel Data, or of a file, where it is the
 * value of (0002,0010). VX_INVALID_MESSAGE_ID for other objects, VX_INVALID_TRANSFER_SYNTAX.
 */
VX_API VX_STATUS VX_Set_Message_Transfer_Syntax(int32_t MsgID, VX_TRANSFER_SYNTAX Syntax);

/*
 * Reads it. VX_STATE_VIOLATION: none was set; VX_INVALID_MESSAGE_ID, VX_INVALID_TRANSFER_SYNTAX, and for a
 * file the status of reading (0002,0010).
 */
VX_API VX_STATUS VX_Get_Message_Transfer_Syntax(int32_t MsgID, VX_TRANSFER_SYNTAX* Syntax);

/*
 * Forgets it; for a file only checks that (0002,0010) names one. As VX_Get_Message_Transfer_Syntax.
 */
VX_API VX_STATUS VX_Reset_Message_Transfer_Syntax(int32_t MsgID);

/* ---- Streams ------------------------------------------------------------------------------------------ */

/*
 * Encodes the attributes from StartTag to EndTag, both included, and hands them to Callback in blocks of even
 * length; the last call has IsLast 1. VX_INVALID_TRANSFER_SYNTAX, VX_MESSAGE_EMPTY,
 * VX_CALLBACK_CANNOT_COMPLY, VX_INVALID_LENGTH_FOR_VR: a value is too long for its length field;
 * VX_TOO_FEW_VALUES: a value callback ended early; VX_ZLIB_ERROR. The object must not change meanwhile.
 */
VX_API VX_STATUS VX_Message_To_Stream(int32_t MsgID, uint32_t StartTag, uint32_t EndTag,
                                      VX_TRANSFER_SYNTAX Syntax, void* UserInfo, VX_STREAM_OUTPUT Callback);

/*
 * Decodes a stream into the object, which keeps what it holds. Attributes below StartTag are skipped; the
 * first tag above EndTag ends the decode. On a failure ErrorTag gets the tag in hand and what was read stays.
 * VX_INVALID_TRANSFER_SYNTAX, VX_CALLBACK_CANNOT_COMPLY, VX_CALLBACK_PARM_ERROR,
 * VX_CALLBACK_DATA_SIZE_UNEVEN, VX_UNEXPECTED_EOD, VX_INVALID_VALUE_FOR_VR: broken item structure or nesting
 * beyond the limit of 128 levels; VX_OUT_OF_ORDER_TAG, VX_INVALID_VR_IN_STREAM, VX_INVALID_LENGTH_FOR_VR,
 * VX_VALUE_TOO_LARGE, VX_ZLIB_ERROR. Callback must not use the object.
 */
VX_API VX_STATUS VX_Stream_To_Message(int32_t MsgID, uint32_t StartTag, uint32_t EndTag,
                                      VX_TRANSFER_SYNTAX Syntax, uint32_t* ErrorTag, void* UserInfo,
                                      VX_STREAM_INPUT Callback);

/*
 * The same; Offset gets the offset in the stream of the element where the decode stopped, or of the end.
 */
VX_API VX_STATUS VX_Stream_To_Message_With_Offset(int32_t MsgID, uint32_t StartTag, uint32_t EndTag,
                                                  VX_TRANSFER_SYNTAX Syntax, uint32_t* ErrorTag,
                                                  uint32_t* Offset, void* UserInfo, VX_STREAM_INPUT Callback);

/*
 * The bytes that VX_Message_To_Stream would write, without deflation; 0xFFFFFFFF if a value is of undefined
 * length. VX_INVALID_TRANSFER_SYNTAX, VX_CALLBACK_CANNOT_COMPLY, VX_VALUE_TOO_LARGE: beyond 32 bits.
 */
VX_API VX_STATUS VX_Get_Stream_Length(int32_t MsgID, uint32_t StartTag, uint32_t EndTag, uint32_t* Length,
                                      VX_TRANSFER_SYNTAX Syntax);

/*
 * For programs that hand objects on as they came. With Keep not 0, decoders and encoders of all threads, from
 * their next call on,
 * - write a text whose values nobody has set since it was read byte for byte as it was read: its padding,
 * what stands behind a NUL. LO, LT, PN, SH, ST, UC and UT go on behind a NUL and may hold it, DS any text;
 * - leave private creators at their places whatever their text is;
 * - write OV, SV and UV (PS3.5 section 6.2) under their letters, in text forms too, see VX_Get_VR_Letters;
 * - write a NUL behind every value of odd length, also of UN, OW, OL, OD and OF.
 * 0, as at the start and after VX_Library_Reset: the rules of the functions above.
 */
VX_API VX_STATUS VX_Keep_Stream_Form(int32_t Keep);

/*
 * For programs that decode what strangers send: an object takes up to fifty times its bytes where it is made
 * of nothing but small parts. Decoders of the calling thread, from the next call on, give VX_VALUE_TOO_LARGE
 * for a stream with more than Most parts: elements and items of all levels, values of texts, and each 256
 * bytes of what is held in memory; a part takes 500 bytes of memory at the most. Values that go to files
 * (LARGE_DATA_STORE) or stay in theirs do not count. 0, as at the start of a thread: no limit.
 */
VX_API VX_STATUS VX_Limit_Decoder(uint32_t Most);

/*
 * The two letters of an attribute's VR and a NUL into a buffer of at least 3 bytes: those of its code, but
 * for VX_VR_UN those of OV, SV or UV where the attribute is known to have one of them. VX_INVALID_MESSAGE_ID,
 * VX_INVALID_TAG.
 */
VX_API VX_STATUS VX_Get_VR_Letters(int32_t MsgID, uint32_t Tag, char* Letters);

/*
 * Makes an attribute of VX_VR_UN one of "OV", "SV" or "UV", or "UN" again: encoders write the letters, and
 * the value in the byte order of the stream. In the object it is little endian. VX_INVALID_MESSAGE_ID,
 * VX_INVALID_TAG; VX_INVALID_VR_CODE: other letters; VX_INCOMPATIBLE_VR: an attribute of another VR.
 */
VX_API VX_STATUS VX_Set_VR_Letters(int32_t MsgID, uint32_t Tag, const char* Letters);

/* ---- Encapsulated values (PS3.5 section A.4) ------------------------------------------------------------
 */

/*
 * Starts an encapsulated value of VR OB or OW with the frame that Callback gives in pieces: through the
 * compressor of the object, if it has one, each piece becomes a fragment. The object's transfer syntax must
 * be an encapsulated one. With CREATE_OFFSET_TABLE the table grows with each frame. VX_INVALID_TAG,
 * VX_INCOMPATIBLE_VR, VX_INVALID_TRANSFER_SYNTAX, VX_CALLBACK_CANNOT_COMPLY, VX_CALLBACK_DATA_SIZE_UNEVEN,
 * VX_CALLBACK_PARM_ERROR: a null buffer; VX_VALUE_TOO_LARGE; and what the compressor answers.
 */
VX_API VX_STATUS VX_Set_Encapsulated_Value_From_Function(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                                         VX_Set_Encapsulated_Callback Callback);

/*
 * Appends the next frame. As VX_Set_Encapsulated_Value_From_Function.
 */
VX_API VX_STATUS VX_Set_Next_Encapsulated_Value_From_Function(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                                              VX_Set_Encapsulated_Callback Callback);

/*
 * Writes the delimiter behind the last frame. VX_INCOMPATIBLE_VR, VX_INVALID_TRANSFER_SYNTAX; VX_INVALID_TAG:
 * nothing was stored.
 */
VX_API VX_STATUS VX_Close_Encapsulated_Value(int32_t MsgID, uint32_t Tag);

/*
 * Delivers the first frame of an encapsulated value, through the object's decompressor if it has one.
 * VX_END_OF_FRAME: more frames follow; VX_NORMAL_COMPLETION: it was the last. Without an offset table and
 * without a decompressor all data comes in one run. VX_INVALID_TAG, VX_INCOMPATIBLE_VR,
 * VX_INVALID_TRANSFER_SYNTAX; VX_EMPTY_VALUE, also where the object does not say how large a frame is;
 * VX_NULL_VALUE; VX_ENCAPSULATED_TOO_SHORT, VX_MISSING_DELIMITER: the value is broken;
 * VX_COMPRESSION_FAILURE; VX_CALLBACK_CANNOT_COMPLY: the callback that holds the value; and what Callback
 * answers.
 */
VX_API VX_STATUS VX_Get_Encapsulated_Value_To_Function(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                                       VX_Get_Encapsulated_Callback Callback);

/*
 * Goes on behind the last delivery. VX_NO_MORE_VALUES: that was the last frame; else as
 * VX_Get_Encapsulated_Value_To_Function.
 */
VX_API VX_STATUS VX_Get_Next_Encapsulated_Value_To_Function(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                                            VX_Get_Encapsulated_Callback Callback);

/*
 * Delivers one frame of Pixel Data (7FE0,0010), native or encapsulated, by its number from 0. Where a value
 * has no offset table each fragment is a frame, or the decompressor finds where frames end.
 * VX_NO_MORE_VALUES: there is no such frame; VX_EMPTY_VALUE for a negative number; else as
 * VX_Get_Encapsulated_Value_To_Function.
 */
VX_API VX_STATUS VX_Get_Frame_To_Function(int32_t MsgID, int32_t FrameNumber, void* UserInfo,
                                          VX_Get_Encapsulated_Callback Callback);

/*
 * Delivers the offset table of Pixel Data in one piece: the bytes of its entries as a 32-bit number, then the
 * entries, little endian. VX_INVALID_TAG, VX_INCOMPATIBLE_VR; VX_EMPTY_VALUE: there is none;
 * VX_ENCAPSULATED_TOO_SHORT, VX_MISSING_DELIMITER.
 */
VX_API VX_STATUS VX_Get_Offset_Table_To_Function(int32_t MsgID, void* UserInfo,
                                                 VX_Get_Encapsulated_Callback Callback);

/* ---- Compression -------------------------------------------------------------------------------------- */

/*
 * Gives an object the functions through which frames of its Pixel Data are written and read; null for none.
 * The items of a message that hold encapsulated pixels get them too. VX_INVALID_MESSAGE_ID;
 * VX_INVALID_TRANSFER_SYNTAX: the object's syntax is not an encapsulated one.
 */
VX_API VX_STATUS VX_Register_Compression_Callbacks(int32_t MsgID, VX_COMPRESSION_CALLBACK Compressor,
                                                   VX_COMPRESSION_CALLBACK Decompressor);

/*
 * Compression callback for RLE (PS3.5 annex G): 8 and 16 bits, any number of samples up to 4, by pixel or by
 * plane. The frame comes out at the call with IsLast 1. VX_CALLBACK_CANNOT_COMPLY; VX_CANNOT_COMPLY: more
 * data than a frame.
 */
VX_API VX_STATUS VX_RLE_Compressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                                   uint32_t* OutSize, void** OutBuffer, int32_t IsFirst, int32_t IsLast,
                                   int32_t Release);

/*
 * Its counterpart. The frame comes out as soon as it is complete, an odd one with one zero byte behind it.
 */
VX_API VX_STATUS VX_RLE_Decompressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                                     uint32_t* OutSize, void** OutBuffer, int32_t IsFirst, int32_t IsLast,
                                     int32_t Release);

/*
 * Compression callback for JPEG (baseline, and extended with 8, 10 and 12 bits), JPEG Lossless (process 14,
 * selection value 1), JPEG-LS and JPEG 2000; the object's transfer syntax chooses. The frame comes out at the
 * call with IsLast 1. Settings:
 *   COMPRESSION_LUM_FACTOR, COMPRESSION_CHROM_FACTOR  entry of a JPEG table = entry of ISO/IEC 10918-1 annex
 * K
 *     * factor / 32, from 1 to 255: 32 takes the tables as they are, larger is coarser
 *   COMPRESSION_RGB_TRANSFORM_FORMAT  "YBR_FULL_422": RGB becomes that in JPEG, with half its chrominance
 *     samples; "YBR_FULL": it stays RGB, with all its samples
 *   JPEG_LS_LOSSY  is near-lossless with 10, or half the largest sample if that is less; a signed frame with
 *     samples that near to the ends of their range, where an error would turn the sign, is coded without loss
 *   COMPRESSION_WHEN_J2K_USE_LOSSY  JPEG_2000 is lossy, else lossless
 *   COMPRESSION_J2K_LOSSY_RATIO  bits allocated over bits written
 *   COMPRESSION_J2K_LOSSY_QUALITY, with COMPRESSION_J2K_LOSSY_USE_QUALITY  tenths of the bits of a pixel that
 *     are written; 0 writes as little as can be
 * Bits above Bits Stored that repeat the sign are left out and come back; others make lossless codecs keep
 * all bits allocated, and lossy ones refuse. JPEG knows no sign: in a signed image the step from -1 to 0 is
 * one over the whole range, and costs as much. VX_CALLBACK_CANNOT_COMPLY, after lines in the log.
 */
VX_API VX_STATUS VX_Standard_Compressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                                        uint32_t* OutSize, void** OutBuffer, int32_t IsFirst, int32_t IsLast,
                                        int32_t Release);

/*
 * Its counterpart. The frame comes out where its code stream ends, pixel by pixel, an odd one with one zero
 * byte behind it; YBR_FULL_422 as Y1 Y2 Cb Cr. IGNORE_JPEG_BAD_SUFFIX decides what a JPEG Lossless stream
 * without its end is: below 0 warned of, 0 refused, above 0 taken. VX_CALLBACK_CANNOT_COMPLY, after lines in
 * the log.
 */
VX_API VX_STATUS VX_Standard_Decompressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                                          uint32_t* OutSize, void** OutBuffer, int32_t IsFirst,
                                          int32_t IsLast, int32_t Release);

/*
 * Compresses whatever its target takes, without the checks of VX_RLE_Compressor and VX_Standard_Compressor on
 * photometric interpretations: palettes and YBR_FULL without loss, YBR_FULL also as JPEG, colour of 16 bits
 * as JPEG Lossless, JPEG-LS and JPEG 2000, 1 and 32 bits allocated as RLE. Colour keeps its label where the
 * codec does not transform it. For programs that compress images of others. VX_CALLBACK_CANNOT_COMPLY, after
 * lines in the log.
 */
VX_API VX_STATUS VX_General_Compressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                                       uint32_t* OutSize, void** OutBuffer, int32_t IsFirst, int32_t IsLast,
                                       int32_t Release);

/*
 * Decompresses whatever the codecs can, without the checks of the two decompressors above: also JPEG with
 * spectral selection and progressive JPEG, JPEG Lossless with all predictors under its older syntax, every
 * photometric interpretation, RLE with 1 and 32 bits allocated. Colour comes out as the image is labelled,
 * but YBR_ICT and YBR_RCT as RGB. Where the object has Total Pixel Matrix Columns, a stream that is smaller
 * than the frame fills it from its upper left, its last row and column repeated. For programs that show or
 * convert images of others. VX_CALLBACK_CANNOT_COMPLY, after lines in the log.
 */
VX_API VX_STATUS VX_General_Decompressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                                         uint32_t* OutSize, void** OutBuffer, int32_t IsFirst, int32_t IsLast,
                                         int32_t Release);

/*
 * Makes a deep copy of a message, an item or a file, its Pixel Data in TransferSyntax: frames go through the
 * decompressor of the source and through Compressor, one at a time. Both functions given become the copy's.
 * Without Compressor and with the same syntax the value is copied as it is. With
 * UPDATE_GROUP_0028_ON_DUPLICATE the attributes that tell of compression are brought up to date. A failure
 * leaves in *DestID what was copied so far, for the caller to free. VX_INVALID_MESSAGE_ID, also for
 * directories and structured reports; VX_INVALID_TRANSFER_SYNTAX, VX_DECOMPRESSOR_REQUIRED,
 * VX_COMPRESSOR_REQUIRED, VX_COMPRESSION_FAILURE, VX_CANNOT_COMPLY: Pixel Data is less than a frame;
 * VX_INVALID_VALUE_FOR_VR: more than 128 sequences within each other; VX_CALLBACK_CANNOT_COMPLY, and what the
 * functions answer.
 */
VX_API VX_STATUS VX_Duplicate_Message(int32_t SourceID, int32_t* DestID, VX_TRANSFER_SYNTAX TransferSyntax,
                                      VX_COMPRESSION_CALLBACK Compressor,
                                      VX_COMPRESSION_CALLBACK Decompressor);

/*
 * Releases what the codecs keep for the calling thread; a thread that used them calls it before it ends.
 */
VX_API VX_STATUS VX_Thread_Release(void);

/* ---- Service lists and negotiation data (PS3.8 section 7.1, PS3.7 annex D.3) -------------------------- */

/*
 * Names a list of transfer syntaxes, best first; the array ends with 0. VX_DUPLICATE_NAME: the name exists,
 * in memory or in the applications profile; VX_DUPLICATE_SYNTAX; VX_EMPTY_LIST; VX_SYSTEM_ERROR: a syntax
 * without a UID, a name of more than 33 bytes, or no memory.
 */
VX_API VX_STATUS VX_NewSyntaxList(const char* SyntaxListName, const VX_TRANSFER_SYNTAX* Syntaxes);

/*
 * Names a service with what it is proposed or accepted with: a syntax list (null: the four uncompressed
 * syntaxes) and the roles of this side, 0 or 1 each, or VX_NO_ROLE in both for no role selection.
 * VX_DUPLICATE_NAME; VX_INVALID_SOP_CLASS_UID: the service is not in the services profile; VX_SYSTEM_ERROR:
 * a null or too long Name (129 bytes), an unknown syntax list, or no memory.
 */
VX_API VX_STATUS VX_NewServiceFromName(const char* Name, const char* ServiceName, const char* SyntaxListName,
                                       uint8_t SCURole, uint8_t SCPRole);

/*
 * Adds the service of a storage class that the services profile does not have, for what is private or came
 * later: VX_NewServiceFromUID takes it then, VX_Get_VexalKit_Service gives the name that was made for it, and
 * C-STORE messages of it are sent and read (PS3.4 annex B). A class that has a service keeps it. Until
 * VX_Library_Reset or VX_Library_Release. VX_INVALID_SOP_CLASS_UID: no UID of up to 64 digits and dots, or
 * 65,536 have been added.
 */
VX_API VX_STATUS VX_Add_Service(const char* Uid);

/*
 * The code of a transfer syntax, also of one that this release does not know: that gets a code of its own,
 * from 1000 on, which syntax lists and the functions of transfer syntaxes take. Its data sets are handed on
 * unread, by VX_Send_Request_For_Service and VX_Continue_Read_Message_To_Stream; what decodes one takes it
 * for explicit little endian with encapsulated pixel data (PS3.5 section A.4). Until VX_Library_Reset or
 * VX_Library_Release. VX_INVALID_TRANSFER_SYNTAX, and 0: no UID of up to 64 digits and dots, or 65,536 have
 * been added.
 */
VX_API VX_STATUS VX_Add_Transfer_Syntax(const char* Uid, VX_TRANSFER_SYNTAX* Syntax);

/*
 * The same for the service with this SOP class UID.
 */
VX_API VX_STATUS VX_NewServiceFromUID(const char* Name, const char* Uid, const char* SyntaxListName,
                                      uint8_t SCURole, uint8_t SCPRole);

/*
 * The same with extended negotiation data (PS3.7 section D.3.3.5), which is copied.
 */
VX_API VX_STATUS VX_NewServiceWithExtInfoFromName(const char* Name, const char* ServiceName,
                                                  const char* SyntaxListName, uint8_t SCURole,
                                                  uint8_t SCPRole, const void* ExtInfo,
                                                  uint32_t ExtInfoLength);

/*
 * The same for the service with this SOP class UID.
 */
VX_API VX_STATUS VX_NewServiceWithExtInfoFromUID(const char* Name, const char* Uid,
                                                 const char* SyntaxListName, uint8_t SCURole, uint8_t SCPRole,
                                                 const void* ExtInfo, uint32_t ExtInfoLength);

/*
 * Names a service list, made of named services in the order of proposal; the array ends with a null pointer.
 * The list keeps copies of them. VX_DUPLICATE_NAME: the list exists, in memory or in the applications
 * profile, or a service comes twice; VX_MISSING_NAME: an unknown service; VX_SYSTEM_ERROR: an empty list or
 * name, or no memory.
 */
VX_API VX_STATUS VX_NewProposedServiceList(const char* ServiceListName, const char* const* ServiceNames);

/*
 * The same with an asynchronous operations window (PS3.7 section D.3.3.3): operations in flight that this
 * side may invoke and perform; 0 is no limit, 1 and 1 negotiate no window.
 */
VX_API VX_STATUS VX_NewProposedServiceListAsync(const char* ServiceListName, const char* const* ServiceNames,
                                                uint16_t MaxOperationsInvoked,
                                                uint16_t MaxOperationsPerformed);

/*
 * Frees a service list; no open association may use it. VX_INVALID_SERVICE_LIST_NAME; VX_SYSTEM_ERROR for
 * null.
 */
VX_API VX_STATUS VX_FreeServiceList(const char* ServiceListName);

/*
 * Frees a named service; lists made from it keep their copies. VX_INVALID_SERVICE_NAME; VX_SYSTEM_ERROR for
 * null.
 */
VX_API VX_STATUS VX_FreeService(const char* Name);

/*
 * Frees a syntax list. VX_INVALID_SYNTAX_NAME; VX_SYNTAX_IN_USE: a named service uses it; VX_SYSTEM_ERROR for
 * null.
 */
VX_API VX_STATUS VX_FreeSyntaxList(const char* SyntaxListName);

/*
 * Extended negotiation data that an application proposes, or answers with, for a service whose list has none;
 * copied, and replaced by a later call. VX_INVALID_APPLICATION_ID, VX_UNKNOWN_SERVICE, VX_SYSTEM_ERROR.
 */
VX_API VX_STATUS VX_Set_Negotiation_Info(int32_t ApplicationID, const char* ServiceName, const void* Data,
                                         uint32_t Length);

/*
 * Takes the data away again. VX_INVALID_APPLICATION_ID, VX_UNKNOWN_SERVICE, VX_NO_INFO_REGISTERED.
 */
VX_API VX_STATUS VX_Clear_Negotiation_Info(int32_t ApplicationID, const char* ServiceName);

/* ---- Listening ports ---------------------------------------------------------------------------------- */

/*
 * The socket that listens on TCPIP_LISTEN_PORT, which starts to listen if it does not yet. It stays the
 * library's: it is for waiting on it. VX_SYSTEM_ERROR: it can not listen.
 */
VX_API VX_STATUS VX_Get_Listen_Socket(int32_t* Socket);

/*
 * The socket of a port that a wait function has opened. VX_INVALID_PORT_NUMBER: there is none.
 */
VX_API VX_STATUS VX_Get_Listen_Socket_For_Port(int32_t Port, int32_t* Socket);

/*
 * Ends listening on a port; a thread that waits on it gets VX_TIMEOUT. Associations that were accepted on it
 * go on. VX_INVALID_PORT_NUMBER: the library does not listen there.
 */
VX_API VX_STATUS VX_Close_Listen_Port(int32_t Port);

/*
 * The same for the port on one local address, or on all addresses. Address may be null.
 */
VX_API VX_STATUS VX_Close_Listen_Port_On_Address(int32_t Port, const char* Address);

/* ---- Accepting associations (PS3.8 section 7.1) ------------------------------------------------------- */

/*
 * Waits for an association on the default port and makes the automatic checks: protocol version, application
 * context, called title, host name and presentation contexts, which are taken from ServiceList in its order.
 * A request that fails them is rejected, and the wait goes on; so it does after an association that is for
 * verification only, which the library serves itself unless the list holds the service. Timeout is in
 * seconds: -1 waits without end, 0 looks once. *ApplicationID is the application of the called title, or the
 * first one. The caller answers with VX_Accept_Association or VX_Reject_Association; until then the reports
 * on the association work.
 *
 * VX_NO_APPLICATIONS_REGISTERED; VX_INVALID_SERVICE_LIST_NAME; VX_TIMEOUT; VX_SYSTEM_CALL_INTERRUPTED;
 * VX_NEGOTIATION_ABORTED: a connection came and ended before its request was complete, or the port can not be
 * had. The listening port stays open between calls. Several threads may wait on one port.
 */
VX_API VX_STATUS VX_Wait_For_Association(const char* ServiceList, int32_t Timeout, int32_t* ApplicationID,
                                         int32_t* AssociationID);

/*
 * The same on a port, which is opened on first use, for one application; -1 is any.
 * VX_INVALID_APPLICATION_ID; VX_INVALID_PORT_NUMBER.
 */
VX_API VX_STATUS VX_Wait_For_Association_On_Port(const char* ServiceList, int32_t Timeout,
                                                 int32_t ApplicationID, int32_t Port, int32_t* AssociationID);

/*
 * The same on one local address. A null Address means all of them, and then a Port below 1 the default one.
 */
VX_API VX_STATUS VX_Wait_For_Association_On_Address(const char* ServiceList, int32_t Timeout,
                                                    int32_t ApplicationID, int32_t Port, const char* Address,
                                                    int32_t* AssociationID);

/*
 * The three again through a secure channel of the caller's. VX_NULL_VALUE: a slot of Functions is null.
 */
VX_API VX_STATUS VX_Wait_For_Secure_Association(const char* ServiceList, int32_t Timeout,
                                                int32_t* ApplicationID, int32_t* AssociationID,
                                                const SS_Functions* Functions, void* ApplicationContext);
VX_API VX_STATUS VX_Wait_For_Secure_Association_On_Port(const char* ServiceList, int32_t Timeout,
                                                        int32_t ApplicationID, int32_t Port,
                                                        int32_t* AssociationID, const SS_Functions* Functions,
                                                        void* ApplicationContext);
VX_API VX_STATUS VX_Wait_For_Secure_Association_On_Address(const char* ServiceList, int32_t Timeout,
                                                           int32_t ApplicationID, int32_t Port,
                                                           const char* Address, int32_t* AssociationID,
                                                           const SS_Functions* Functions,
                                                           void* ApplicationContext);

/*
 * Takes the association request from a socket that was accepted, by VX_Wait_For_Connection for instance, and
 * that is the library's from then on, whatever the result. The request must come within ARTIM_TIMEOUT. As
 * VX_Wait_For_Association, but what would make that wait go on ends the call: VX_ASSOCIATION_REJECTED: the
 * checks have rejected the request; VX_ASSOCIATION_CLOSED: it was for verification, and it is over.
 */
VX_API VX_STATUS VX_Process_Association_Request(int32_t Socket, const char* ServiceList,
                                                int32_t* ApplicationID, int32_t* AssociationID);
VX_API VX_STATUS VX_Process_Secure_Association_Request(int32_t Socket, const char* ServiceList,
                                                       int32_t* ApplicationID, int32_t* AssociationID,
                                                       const SS_Functions* Functions,
                                                       void* ApplicationContext);

/*
 * Waits for a connection on the default port, on a port, or on a port of one local address, and hands its
 * socket over: the caller's, non-blocking, with the configured options, until VX_Process_Association_Request
 * takes it. VX_TIMEOUT; VX_INVALID_PORT_NUMBER; VX_NEGOTIATION_ABORTED; VX_SYSTEM_ERROR: the port can not be
 * had.
 */
VX_API VX_STATUS VX_Wait_For_Connection(int32_t Timeout, int32_t* Socket);
VX_API VX_STATUS VX_Wait_For_Connection_On_Port(int32_t Timeout, int32_t Port, int32_t* Socket);
VX_API VX_STATUS VX_Wait_For_Connection_On_Address(int32_t Timeout, int32_t Port, const char* Address,
                                                   int32_t* Socket);

/*
 * Accepts a pending association; messages may follow, and the reports on the request are over. Extended
 * negotiation data goes back only as the application has set it. VX_NO_REQUEST_PENDING;
 * VX_ASSOCIATION_ABORTED: the answer could not be sent, and the association is gone.
 */
VX_API VX_STATUS VX_Accept_Association(int32_t AssociationID);

/*
 * The same with a positive answer to the peer's user identity; a response is for the types 3 (Kerberos), 4
 * (SAML) and 5 (JSON Web Token) and may be null with length 0 otherwise. VX_STATE_VIOLATION: the request held
 * no identity, or asked for no answer, or its type takes no response. PS3.7 section D.3.3.7.
 */
VX_API VX_STATUS VX_Accept_Association_With_Identity(int32_t AssociationID, const void* ServerResponse,
                                                     uint16_t ServerResponseLength);

/*
 * Rejects a pending association, waits for the peer to close, at most ARTIM_TIMEOUT, and frees it; the ID is
 * dead. Reasons: 1 no reason, transient; 2 calling title not recognized; 3 congestion, 4 local limit
 * exceeded, both transient; 5 called title not recognized; 6 application context not supported; 7 to 15
 * further ones of PS3.8 table 9-21, of which some only close the connection; any other: no reason.
 * VX_NO_REQUEST_PENDING.
 */
VX_API VX_STATUS VX_Reject_Association(int32_t AssociationID, int32_t Reason);

/*
 * For storage servers that keep what they do not know. With Accept not 0, the waits and process functions of
 * all threads, from the next request on, accept what the service list does not: a class with no service as if
 * by VX_Add_Service, and one with C-STORE in its commands, as the first entry of the list that has no roles,
 * in the first syntax that this entry shares with the proposal; and where a proposal shares no syntax with
 * its entry, the first one that it offers, as if by VX_Add_Transfer_Syntax. 0, as at the start and after
 * VX_Library_Reset: the list decides.
 */
VX_API VX_STATUS VX_Accept_Unknown_Contexts(int32_t Accept);

/* ---- Associations (PS3.8 section 7) ------------------------------------------------------------------- */

/*
 * Opens an association as requester: resolves the remote application, connects within CONNECT_TIMEOUT,
 * proposes the service list, and waits for the answer for ASSOC_REPLY_TIMEOUT seconds. Port, host and list
 * that are null come from the applications profile. AssociationID is -1 after a failure.
 *
 * VX_INVALID_APPLICATION_ID, VX_INVALID_PORT_NUMBER, VX_INVALID_SERVICE_LIST_NAME, VX_INVALID_HOST_NAME (more
 * than 39 bytes), VX_INVALID_APPLICATION_TITLE (1 to 16 bytes); VX_CONFIG_INFO_MISSING: the remote
 * application or the list is not configured; VX_CONFIG_INFO_ERROR: a list of more than 128 services;
 * VX_ASSOCIATION_REJECTED: by the peer, or its answer was not acceptable (the log tells);
 * VX_CONNECTION_FAILED; VX_UNKNOWN_HOST_NAME; VX_NEGOTIATION_ABORTED: anything else that ended the
 * negotiation; VX_SYSTEM_ERROR.
 */
VX_API VX_STATUS VX_Open_Association(int32_t ApplicationID, int32_t* AssociationID,
                                     const char* RemoteApplicationTitle, const int32_t* RemotePort,
                                     const char* RemoteHost, const char* ServiceList);

/*
 * The same through a secure channel, whose functions are copied. VX_NULL_VALUE: one of them is missing.
 */
VX_API VX_STATUS VX_Open_Secure_Association(int32_t ApplicationID, int32_t* AssociationID,
                                            const char* RemoteApplicationTitle, const int32_t* RemotePort,
                                            const char* RemoteHost, const char* ServiceList,
                                            const SS_Functions* Functions, void* ApplicationContext);

/*
 * The same with a user identity (PS3.7 section D.3.3.7); Functions null: a plain connection.
 * VX_CONFIG_INFO_MISSING also when the fields do not fit the type: a user name (1), a Kerberos ticket (3) or
 * a SAML assertion (4) go in the primary field alone, a passcode (2) in the secondary one.
 */
VX_API VX_STATUS VX_Open_Association_With_Identity(
    int32_t ApplicationID, int32_t* AssociationID, const char* RemoteApplicationTitle,
    const int32_t* RemotePort, const char* RemoteHost, const char* ServiceList, const SS_Functions* Functions,
    void* ApplicationContext, int32_t UserIdentityType, uint8_t PositiveResponseRequested,
    const void* PrimaryField, uint16_t PrimaryLength, const void* SecondaryField, uint16_t SecondaryLength);

/*
 * Releases an association, waiting for the answer for RELEASE_TIMEOUT seconds; AssociationID becomes -1.
 * VX_INVALID_ASSOCIATION_ID; VX_SYSTEM_ERROR: another thread is inside the association;
 * VX_ASSOCIATION_ABORTED: the release failed, and the association is gone all the same.
 */
VX_API VX_STATUS VX_Close_Association(int32_t* AssociationID);

/*
 * Aborts an association; AssociationID becomes -1. The one function that may be called while another thread
 * is inside the association: that thread's call then ends within about a second with VX_ASSOCIATION_ABORTED.
 * VX_INVALID_ASSOCIATION_ID.
 */
VX_API VX_STATUS VX_Abort_Association(int32_t* AssociationID);

/*
 * Puts a table of functions in place of the library's own capture, which draws each connection over IPv4 into
 * files as CAPTURE_FILE, CAPTURE_FILE_SIZE, NUMBER_OF_CAP_FILES and REWRITE_CAPTURE_FILES say; null goes back
 * to that. Initialize is called at once, and its result is not looked at. Turning NETWORK_CAPTURE on
 * registers the library's own table, so turn it on first. Any thread. VX_NULL_POINTER_PARM: a function is
 * missing.
 */
VX_API VX_STATUS VX_Register_Network_Capture_Callbacks(const NetworkCaptureCallbacks* Callbacks);

/*
 * Reports on an association: from the open or the wait on, until the first message is sent or the association
 * is accepted. Never blocks. VX_INVALID_ASSOCIATION_ID; VX_STATE_VIOLATION: too late.
 */
VX_API VX_STATUS VX_Get_Association_Info(int32_t AssociationID, AssocInfo* Info);

/*
 * The first accepted service of an association, in the order of proposal; as long as VX_Get_Association_Info.
 * VX_END_OF_LIST, VX_INVALID_ASSOCIATION_ID, VX_STATE_VIOLATION, VX_SYSTEM_ERROR.
 */
VX_API VX_STATUS VX_Get_First_Acceptable_Service(int32_t AssociationID, ServiceInfo* Info);

/*
 * The next one.
 */
VX_API VX_STATUS VX_Get_Next_Acceptable_Service(int32_t AssociationID, ServiceInfo* Info);

/*
 * On a pending association: replaces the extended negotiation data that is answered for a service for which
 * the peer sent some. VX_INVALID_ASSOCIATION_ID, VX_NO_REQUEST_PENDING, VX_UNKNOWN_SERVICE,
 * VX_VALUE_TOO_LARGE above 65535 bytes.
 */
VX_API VX_STATUS VX_Set_Negotiation_Info_For_Association(int32_t AssociationID, const char* ServiceName,
                                                         const void* Data, uint32_t Length);

/*
 * The extended negotiation data of the peer for a service: a pointer into the association, valid as long as
 * VX_Get_Association_Info works. VX_INVALID_ASSOCIATION_ID, VX_UNKNOWN_SERVICE, VX_EXT_INFO_UNAVAILABLE.
 */
VX_API VX_STATUS VX_Get_Negotiation_Info(int32_t AssociationID, const char* ServiceName, const void** Data,
                                         uint32_t* Length);

/*
 * The service of the Meta SOP class under which the last request came. VX_BUFFER_TOO_SMALL,
 * VX_INVALID_ASSOCIATION_ID; VX_NOT_META_SOP; VX_NOT_FOUND: no request is open.
 */
VX_API VX_STATUS VX_Get_Meta_ServiceName(int32_t AssociationID, char* Buffer, int32_t BufferSize);

/*
 * The length of a field of the user identity, 0 if there is none; as long as VX_Get_Association_Info.
 * VX_INVALID_ASSOCIATION_ID, VX_STATE_VIOLATION; VX_SYSTEM_ERROR for another field.
 */
VX_API VX_STATUS VX_Get_User_Identity_Length(int32_t AssociationID, USER_IDENTITY_FIELD_TYPE Field,
                                             uint16_t* Length);

/*
 * Copies a field of the user identity, without a terminator. VX_BUFFER_TOO_SMALL and as above.
 */
VX_API VX_STATUS VX_Get_User_Identity_Info(int32_t AssociationID, USER_IDENTITY_FIELD_TYPE Field,
                                           void* Buffer, uint16_t BufferSize);

/* ---- Messages on an association (PS3.7) ---------------------------------------------------------------- */
/*
 * One thread at a time may be inside an association: a second one gets VX_SYSTEM_ERROR at once, with a line
 * in the log. VX_ASSOCIATION_ABORTED, VX_ASSOCIATION_CLOSED (the peer released it), VX_NETWORK_SHUT_DOWN,
 * VX_INACTIVITY_TIMEOUT, VX_INVALID_MESSAGE_RECEIVED and, from the functions that read, VX_SYSTEM_ERROR and
 * VX_CALLBACK_CANNOT_COMPLY mean that the association is gone. All give VX_INVALID_ASSOCIATION_ID, and
 * VX_STATE_VIOLATION while an association is waiting to be accepted.
 */

/*
 * Sends a request, or a C-CANCEL-RQ, on the first accepted context of the message's service that fits its
 * transfer syntax, if one is set. Fills what the command group lacks: message ID, classes, priority, data set
 * type. Blocks until the last byte is written; each write waits for WRITE_TIMEOUT at most. The message stays
 * the application's and may be sent again. VX_INVALID_MESSAGE_ID; VX_UNACCEPTABLE_SERVICE: no context fits;
 * VX_MAX_OPERATIONS_EXCEEDED: the operations window is full; VX_REQUIRED_ATTRIBUTE_MISSING; VX_SYSTEM_ERROR.
 * After these the association stands as before.
 */
VX_API VX_STATUS VX_Send_Request_Message(int32_t AssociationID, int32_t MsgID);

/*
 * The same on the context of an entry of the association's service list, for components of a Meta SOP class
 * and where several contexts would fit.
 */
VX_API VX_STATUS VX_Send_Request_Message_For_Service(int32_t AssociationID, int32_t MsgID,
                                                     const char* ServiceName);

/*
 * Sends a response with the low 16 bits of Status. (0000,0120) names the request that it answers; without a
 * value it is the oldest one that is open. A pending C-FIND, C-GET or C-MOVE response (0xFF00, 0xFF01) leaves
 * the request open. Statuses as above.
 */
VX_API VX_STATUS VX_Send_Response_Message(int32_t AssociationID, uint32_t Status, int32_t MsgID);

/*
 * Sends a C-STORE-RQ whose data set comes from the application as encoded bytes of a file (PS3.10), in the
 * transfer syntax of the context. Callback(AssociationID, tag 0xFFFFFFFF, UserInfo, ...) is asked with
 * VX_REQUEST_DATA from the start of the file until the identity of the object is known, then once with
 * VX_REQUEST_DATA_AT_OFFSET, *DataSize holding the offset to go on from, then with VX_REQUEST_DATA to the
 * end. It may not call network functions of the association. VX_UNKNOWN_SERVICE, VX_SYSTEM_ERROR, the
 * statuses of VX_Open_File and those above.
 */
VX_API VX_STATUS VX_Send_Request(int32_t AssociationID, int32_t Reserved, void* UserInfo,
                                 VX_VALUE_CALLBACK Callback);

/*
 * The same for a named service; null as VX_Send_Request.
 */
VX_API VX_STATUS VX_Send_Request_For_Service(int32_t AssociationID, const char* ServiceName, int32_t Reserved,
                                             void* UserInfo, VX_VALUE_CALLBACK Callback);

/*
 * The message ID (0000,0110) of the request that went out last on an association, for its answers: the only
 * place that tells the one that VX_Send_Request_For_Service has chosen. Never blocks.
 * VX_INVALID_ASSOCIATION_ID; VX_STATE_VIOLATION: there was none.
 */
VX_API VX_STATUS VX_Get_Sent_Message_ID(int32_t AssociationID, uint16_t* MessageID);

/*
 * Reads the next message into a new one, which the application frees. Timeout is in seconds: 0 looks once, a
 * negative one waits without a limit; within a message INACTIVITY_TIMEOUT counts. ServiceName is the
 * message's own text and lives as long as it. VX_TIMEOUT: nothing came, and the association stands.
 * VX_MUST_CONTINUE_BEFORE_READING: a message has been read in part. Verification requests are answered here
 * when AUTO_ECHO_SUPPORT is on and the service list does not hold that service; the wait then starts anew.
 */
VX_API VX_STATUS VX_Read_Message(int32_t AssociationID, int32_t Timeout, int32_t* MsgID,
                                 const char** ServiceName, uint16_t* Command);

/*
 * The same up to a tag of the data set, which is the last one read. With 0x00010000 only the command is read.
 * VX_INVALID_TAG below that.
 */
VX_API VX_STATUS VX_Read_Message_To_Tag(int32_t AssociationID, int32_t Timeout, uint32_t StopTag,
                                        int32_t* MsgID, const char** ServiceName, uint16_t* Command);

/*
 * Reads the rest of a message; when it fails, *MsgID becomes -1. VX_INVALID_MESSAGE_ID: it is not one that
 * was read in part.
 */
VX_API VX_STATUS VX_Continue_Read_Message(int32_t AssociationID, int32_t* MsgID);

/*
 * The same up to a tag. VX_INVALID_TAG: the message has been read past it.
 */
VX_API VX_STATUS VX_Continue_Read_Message_To_Tag(int32_t AssociationID, uint32_t StopTag, int32_t* MsgID);

/*
 * Hands over the rest of the data set as encoded bytes, as they came, instead of decoding it: the message
 * keeps what was read of it before, and the application frees it. Of a deflated data set that was decoded in
 * part the rest comes inflated. The blocks are of any length; IsFirst and IsLast span them all. The callback
 * returns VX_NORMAL_COMPLETION to go on, and may not call network functions of the association. If it
 * refuses, VX_CALLBACK_CANNOT_COMPLY, and if the network fails, the message is freed, *MsgID is -1 and the
 * association is gone. VX_INVALID_MESSAGE_ID: there is nothing to go on with, or the request was answered;
 * nothing has changed then.
 */
VX_API VX_STATUS VX_Continue_Read_Message_To_Stream(int32_t AssociationID, int32_t* MsgID, void* UserInfo,
                                                    VX_STREAM_OUTPUT Callback);

/*
 * Reads a C-STORE-RQ and hands over a file of it (PS3.10) without the 132 bytes at its head: the meta group,
 * then the data set as it came. FileName null makes one; it is only for the log. ServiceName is a constant of
 * the configuration. The library frees the message that stands behind it, whatever happens; its response is
 * due from the application. If the callback refuses, VX_CALLBACK_CANNOT_COMPLY: within the data set the
 * association is gone then; within the meta group it stands, and the next read passes over what is left of
 * the message. Otherwise as VX_Read_Message and VX_Continue_Read_Message_To_Stream.
 */
VX_API VX_STATUS VX_Read_To_Stream(int32_t AssociationID, int32_t Timeout, const char** ServiceName,
                                   uint16_t* Command, const char* FileName, void* UserInfo,
                                   VX_STREAM_OUTPUT Callback);

/* ---- Files (PS3.10 section 7) ------------------------------------------------------------------------- */

/*
 * Makes a file object for a service and command, filled from the template. A service name that starts with
 * "DICOMDIR" makes a directory. VX_INVALID_COMMAND, VX_MSGFILE_ERROR.
 */
VX_API VX_STATUS VX_Create_File(int32_t* FileID, const char* FileName, const char* ServiceName,
                                uint16_t Command);

/*
 * Makes a file object with the attributes of the meta group only.
 */
VX_API VX_STATUS VX_Create_Empty_File(int32_t* FileID, const char* FileName);

/*
 * Turns a message into a file, with a zero preamble and without group 0000; the ID stays.
 * VX_INVALID_MESSAGE_ID unless it is a message.
 */
VX_API VX_STATUS VX_Message_To_File(int32_t MsgID, const char* FileName);

/*
 * Turns a file into a message, without group 0002; the ID stays. VX_INVALID_FILE_ID.
 */
VX_API VX_STATUS VX_File_To_Message(int32_t FileID);

/*
 * Frees a file object; FileID becomes -1. VX_INVALID_FILE_ID.
 */
VX_API VX_STATUS VX_Free_File(int32_t* FileID);

/*
 * Clears all values. VX_INVALID_FILE_ID: unknown; VX_INVALID_MESSAGE_ID: not a file.
 */
VX_API VX_STATUS VX_Empty_File(int32_t FileID);

/*
 * Copies the name. VX_BUFFER_TOO_SMALL, VX_INVALID_FILE_ID.
 */
VX_API VX_STATUS VX_Get_Filename(int32_t FileID, char* FileName, int32_t BufferSize);

/*
 * Replaces the name. VX_INVALID_FILE_ID.
 */
VX_API VX_STATUS VX_Reset_Filename(int32_t FileID, const char* FileName);

/*
 * Copies the 128 bytes of the preamble out. VX_INVALID_FILE_ID.
 */
VX_API VX_STATUS VX_Get_File_Preamble(int32_t FileID, char* Preamble);

/*
 * Copies 128 bytes in. VX_INVALID_FILE_ID.
 */
VX_API VX_STATUS VX_Set_File_Preamble(int32_t FileID, const char* Preamble);

/*
 * The bytes that VX_Write_File would write without padding and deflation; 0xFFFFFFFF if a value is of
 * undefined length. VX_INVALID_FILE_ID, VX_INVALID_TRANSFER_SYNTAX; VX_VALUE_TOO_LARGE: beyond 32 bits;
 * *Length is then 0.
 */
VX_API VX_STATUS VX_Get_File_Length(int32_t FileID, uint32_t* Length);

/*
 * Reads a whole file from Callback into the object. The values that callbacks of the application hold go
 * there. VX_INVALID_APPLICATION_ID, VX_INVALID_FILE_ID, VX_INVALID_FILE: the prefix is not "DICM" and
 * FORCE_DICM_IN_PREFIX is off; VX_INVALID_TRANSFER_SYNTAX, and as VX_Stream_To_Message.
 */
VX_API VX_STATUS VX_Open_File(int32_t ApplicationID, int32_t FileID, void* UserInfo, VX_FILE_INPUT Callback);

/*
 * The same, but for the attributes that a callback holds the value stays in the file and its offset is
 * reported. As VX_Open_File; VX_VALUE_TOO_LARGE: an offset beyond 32 bits.
 */
VX_API VX_STATUS VX_Open_File_Bypass_OBOW(int32_t ApplicationID, int32_t FileID, void* UserInfo,
                                          VX_FILE_INPUT Callback);

/*
 * Reads up to and including Tag. Offset gets the offset in the file of the element where reading stopped. As
 * VX_Open_File.
 */
VX_API VX_STATUS VX_Open_File_Upto_Tag(int32_t ApplicationID, int32_t FileID, void* UserInfo, uint32_t Tag,
                                       uint32_t* Offset, VX_FILE_INPUT Callback);

/*
 * Reads up to Tag, whose attribute is there with its length, its value unread. As VX_Open_File.
 */
VX_API VX_STATUS VX_Open_File_Upto_Tag_Bypass_Value(int32_t ApplicationID, int32_t FileID, void* UserInfo,
                                                    uint32_t Tag, uint32_t* Offset, VX_FILE_INPUT Callback);

/*
 * Writes the file to Callback: preamble, meta group in explicit little endian, the rest in the syntax that
 * (0002,0010) names. A Pad above 0, even and at most WORK_BUFFER_SIZE, pads the length to a multiple of it
 * with (FFFC,FFFC), unless lengths are undefined or deflated. VX_INVALID_FILE_ID, VX_INVALID_PAD,
 * VX_INVALID_TRANSFER_SYNTAX, and as VX_Message_To_Stream.
 */
VX_API VX_STATUS VX_Write_File(int32_t FileID, int32_t Pad, void* UserInfo, VX_FILE_OUTPUT Callback);

/*
 * The same with the value callbacks of an application bound first and released after.
 * VX_INVALID_APPLICATION_ID.
 */
VX_API VX_STATUS VX_Write_File_By_Callback(int32_t ApplicationID, int32_t FileID, int32_t Pad, void* UserInfo,
                                           VX_FILE_OUTPUT Callback);

/* ---- Directories in memory (PS3.10 section 8, PS3.3 annex F) ------------------------------------------ */

/*
 * A directory is a file of service "DICOMDIR": VX_Create_File, then VX_Open_File or the functions below, then
 * VX_Write_File. Its records are items of (0004,1220), a tree of entities: the records at one place of it.
 * While it is in memory (0004,1200), (0004,1202), (0004,1400), (0004,1420) and (0004,1504) hold item ids;
 * they are written as offsets. Opening a directory whose offsets lead nowhere gives
 * VX_INVALID_DIRECTORY_RECORD_OFFSET, one with a record that is met twice VX_SYSTEM_ERROR; the tree then
 * holds what can be reached.
 *
 * All answer VX_INVALID_DICOMDIR_ID unless DirID is such a directory; VX_INVALID_ITEM_ID: no record of it;
 * VX_UNABLE_TO_GET_ITEM_ID: a chain of records is broken. Threads may use one directory; those that walk it
 * with VX_Dir_Next_Record need entities of their own, since each has one iterator. RecordName is the item's
 * name, such as "DIR_REC_PATIENT", and belongs to the item.
 */

/*
 * The root entity and its first record. An empty root gives RecordID 0 and IsLast 1.
 * VX_UNABLE_TO_GET_ITEM_ID: there is no root; VX_Dir_Add_Entity makes it.
 */
VX_API VX_STATUS VX_Dir_Root_Entity(int32_t DirID, int32_t* EntityID, int32_t* RecordID,
                                    const char** RecordName, int32_t* IsLast);

/*
 * The first record of an entity, from which VX_Dir_Next_Record goes on. An empty root gives RecordID 0 and
 * IsLast 1. VX_INVALID_ENTITY_ID.
 */
VX_API VX_STATUS VX_Dir_First_Record(int32_t DirID, int32_t EntityID, int32_t* RecordID,
                                     const char** RecordName, int32_t* IsLast);

/*
 * The next record of an entity. At the end RecordID is 0, IsLast 1 and RecordName null. VX_INVALID_ENTITY_ID.
 */
VX_API VX_STATUS VX_Dir_Next_Record(int32_t DirID, int32_t EntityID, int32_t* RecordID,
                                    const char** RecordName, int32_t* IsLast);

/*
 * The entity below a record and its first record; EntityID and FirstRecordID are 0 if there is none.
 */
VX_API VX_STATUS VX_Dir_Next_Entity(int32_t DirID, int32_t RecordID, int32_t* EntityID,
                                    int32_t* FirstRecordID, const char** RecordName, int32_t* IsLast);

/*
 * The number of records in the tree. VX_UNABLE_TO_GET_ITEM_ID: there is no root.
 */
VX_API VX_STATUS VX_Dir_Root_Count(int32_t DirID, int32_t* Count);

/*
 * The number of records of an entity. VX_INVALID_ENTITY_ID.
 */
VX_API VX_STATUS VX_Dir_Entity_Count(int32_t DirID, int32_t EntityID, int32_t* Count);

/*
 * The number of records from a record down, itself included.
 */
VX_API VX_STATUS VX_Dir_Item_Count(int32_t DirID, int32_t RecordID, int32_t* Count);

/*
 * Makes the entity below a record, with one record, whose type (0004,1430) comes from its name;
 * ParentRecordID 0 makes the root. VX_ENTITY_ALREADY_EXISTS: RecordID is then its first record, EntityID 0.
 * The record is there, but PS3.3 section F.4 does not have it at this place: VX_INVALID_LOWER_DIR_RECORD,
 * VX_INVALID_DIR_RECORD_TYPE. VX_MSGFILE_ERROR.
 */
VX_API VX_STATUS VX_Dir_Add_Entity(int32_t DirID, int32_t ParentRecordID, const char* RecordName,
                                   int32_t* EntityID, int32_t* RecordID);

/*
 * Appends a record to an entity. VX_INVALID_ENTITY_ID, and as VX_Dir_Add_Entity.
 */
VX_API VX_STATUS VX_Dir_Add_Record(int32_t DirID, int32_t EntityID, const char* RecordName,
                                   int32_t* RecordID);

/*
 * Deletes a record and all below. An entity that loses its last record goes, unless it is the root.
 */
VX_API VX_STATUS VX_Dir_Delete_Record(int32_t DirID, int32_t RecordID);

/*
 * Deletes all records below a record.
 */
VX_API VX_STATUS VX_Dir_Delete_Referenced_Entity(int32_t DirID, int32_t RecordID);

/*
 * Makes a multi-referenced file record, which stands outside the tree, and refers RecordID to it. It goes
 * with its last reference.
 */
VX_API VX_STATUS VX_Dir_Open_MRDR(int32_t DirID, int32_t RecordID, const char* RecordName, int32_t* MrdrID);

/*
 * Refers a record to such a record, in place of a former one. VX_INVALID_MRDR_ID.
 */
VX_API VX_STATUS VX_Dir_Reference_MRDR(int32_t DirID, int32_t RecordID, int32_t MrdrID);

/*
 * Drops the reference, if there is one.
 */
VX_API VX_STATUS VX_Dir_Remove_Ref_MRDR(int32_t DirID, int32_t RecordID);

/*
 * Sorts each entity by record type, then by the attributes that tell records of the type apart (names and ids
 * of patients, dates and times of studies, instance numbers); empty values go last. (0004,1220) then has the
 * records in the order of a walk; those that no chain reaches are dropped.
 */
VX_API VX_STATUS VX_Dir_Sort(int32_t DirID);

/*
 * Packs the attributes of a record from (0004,1505) on into the bytes of their stream, until one of them is
 * asked for: a large directory takes less memory. DICOMDIR_STREAM_STORAGE does the same while a directory is
 * read.
 */
VX_API VX_STATUS VX_Dir_Stream_Directory_Record(int32_t DirID, int32_t RecordID);

/* ---- Directories on disk ------------------------------------------------------------------------------ */

/*
 * A directory of any size, read record by record and changed in place. A RecordID is the id of a record's
 * item, with which its attributes are read; those of a new record are set. Nothing is written before
 * VX_DDH_Update. The directory is freed with VX_Free_File; the functions that read and write whole files
 * refuse it with VX_INVALID_FILE_ID.
 *
 * VX_INVALID_RECORD_ID: no record, or directory where one may stand. Reading:
 * VX_INVALID_DIRECTORY_RECORD_OFFSET: an offset leads nowhere or back to where it came from;
 * VX_UNEXPECTED_EOD. Threads may use one directory.
 */

/* What a record is, by (0004,1430). */
typedef enum {
  VX_DIR_PATIENT = 0,
  VX_DIR_STUDY = 1,
  VX_DIR_SERIES = 2,
  VX_DIR_IMAGE = 3,
  VX_DIR_RT_DOSE = 4,
  VX_DIR_RT_STRUCTURE_SET = 5,
  VX_DIR_RT_PLAN = 6,
  VX_DIR_RT_TREAT_RECORD = 7,
  VX_DIR_PRESENTATION = 8,
  VX_DIR_WAVEFORM = 9,
  VX_DIR_SR_DOCUMENT = 10,
  VX_DIR_KEY_OBJECT_DOC = 11,
  VX_DIR_SPECTROSCOPY = 12,
  VX_DIR_RAW_DATA = 13,
  VX_DIR_REGISTRATION = 14,
  VX_DIR_FIDUCIAL = 15,
  VX_DIR_HANGING_PROTOCOL = 16,
  VX_DIR_ENCAP_DOC = 17,
  VX_DIR_HL7_STRUC_DOC = 18,
  VX_DIR_VALUE_MAP = 19,
  VX_DIR_STEREOMETRIC = 20,
  VX_DIR_PALETTE = 21,
  VX_DIR_IMPLANT = 22,
  VX_DIR_IMPLANT_GROUP = 23,
  VX_DIR_IMPLANT_ASSY = 24,
  VX_DIR_MEASUREMENT = 25,
  VX_DIR_SURFACE = 26,
  VX_DIR_SURFACE_SCAN = 27,
  VX_DIR_TRACT = 28,
  VX_DIR_ASSESSMENT = 29,
  VX_DIR_PRIVATE = 30,
  VX_DIR_UNKNOWN = 31
} VX_DIR_RECORD_TYPE;

/*
 * Called for a record of a traversal. 0: go down into it, then on; 1: leave this level; 2: on without going
 * down; 3: end the whole; anything else ends it with VX_CALLBACK_CANNOT_COMPLY. It may release, delete and
 * add records, but neither update nor free the directory.
 */
typedef int32_t (*VX_DDH_TRAVERSE_CALLBACK)(int32_t RecordID, void* UserInfo);

/*
 * Makes an empty directory on disk, in place of a former file of the name, and opens it. FileSetID may be
 * null. SourceID, 0 for none, names a file whose groups 0002 and 0004 go into it but for records.
 * VX_INVALID_MESSAGE_ID; VX_CALLBACK_CANNOT_COMPLY: the file can not be written; and as VX_DDH_Open.
 */
VX_API VX_STATUS VX_DDH_Create(const char* FileName, const char* FileSetID, int32_t SourceID, int32_t* DirID);

/*
 * Opens a directory; an update that was cut off is undone first. VX_CALLBACK_CANNOT_COMPLY: there is no such
 * file; VX_INVALID_FILE: not a directory in little endian; VX_INVALID_TRANSFER_SYNTAX; and as VX_Open_File.
 */
VX_API VX_STATUS VX_DDH_Open(const char* FileName, int32_t* DirID);

/*
 * Brings the file up to date: new records go to its end, offsets change in place. It is whole or not done;
 * after a failure the changes wait for the next call. VX_INVALID_DICOMDIR_ID; VX_CALLBACK_CANNOT_COMPLY: the
 * file can not be written, or another program updates it; VX_INVALID_FILE: it has changed since it was
 * opened, holds more than padding behind the records, or the write failed; VX_VALUE_TOO_LARGE: it would reach
 * beyond 4 GiB; VX_INVALID_DIRECTORY_RECORD_OFFSET; VX_STATE_VIOLATION: called in a traversal.
 */
VX_API VX_STATUS VX_DDH_Update(int32_t DirID);

/*
 * Adds a record at the end of the level below ParentID, a record or the directory. Type is a text of
 * (0004,1430), the SOP class UID of what the record refers to, or null for what stands at that depth.
 * VX_INVALID_LOWER_DIR_RECORD; VX_INVALID_DIR_RECORD_TYPE: nothing may lie below such a parent.
 */
VX_API VX_STATUS VX_DDH_Add_Record(int32_t ParentID, const char* Type, int32_t* RecordID);

/*
 * Marks a record for removal at the next update and forgets what is below it; its id is dead.
 */
VX_API VX_STATUS VX_DDH_Delete_Record(int32_t RecordID);

/*
 * Lets a record and all below go from memory: their ids are dead, the records are read again when they are
 * reached. What waits for an update stays.
 */
VX_API VX_STATUS VX_DDH_Release_Record(int32_t RecordID);

/*
 * The first record below ParentID, a record or the directory; 0 if there is none.
 */
VX_API VX_STATUS VX_DDH_Get_First_Lower_Record(int32_t ParentID, int32_t* RecordID);

/*
 * The next record of the level; 0 at the end.
 */
VX_API VX_STATUS VX_DDH_Get_Next_Record(int32_t RecordID, int32_t* NextID);

/*
 * The record above; 0 at the root.
 */
VX_API VX_STATUS VX_DDH_Get_Parent_Record(int32_t RecordID, int32_t* ParentID);

/*
 * The type of a record; VX_DIR_UNKNOWN for a text that has no number.
 */
VX_API VX_STATUS VX_DDH_Get_Record_Type(int32_t RecordID, VX_DIR_RECORD_TYPE* Type);

/*
 * Calls back for each record below StartID, a record or the directory, from the first one down.
 */
VX_API VX_STATUS VX_DDH_Traverse_Records(int32_t StartID, void* UserInfo, VX_DDH_TRAVERSE_CALLBACK Callback);

/*
 * Copies attributes from (0004,1421) on from one object to another, from file to file all but those that lead
 * to records. TagList, ended by 0, names what is copied, a tag with element 0000 its whole group; null: all.
 * VX_INVALID_MESSAGE_ID, VX_SYSTEM_ERROR.
 */
VX_API VX_STATUS VX_DDH_Copy_Values(int32_t SourceID, int32_t DestID, const uint32_t* TagList);

/* ---- Validation --------------------------------------------------------------------------------------- */

/*
 * Checks a message, an item or a file, with all items below, against the template of its service and command
 * or item type (VX_Set_Service_Command). VX_MESSAGE_VALIDATES: there is nothing to report, *ErrInfo is null.
 * VX_DOES_NOT_VALIDATE: *ErrInfo is the first finding. Findings stay the library's and valid until the object
 * is validated again or freed; those of items stand in the list of the object that was asked for. An item
 * without a type takes the first one that its sequence allows. No other thread may change the object
 * meanwhile.
 *
 * A finding's status is one of, as an error: VX_REQUIRED_ATTRIBUTE_MISSING, VX_REQUIRED_VALUE_MISSING,
 * VX_VALUE_MAY_NOT_BE_NULL, VX_VALUE_NOT_ALLOWED, VX_TOO_FEW_VALUES (for an optional attribute as
 * NULL_TYPE3_VALIDATION says), VX_TOO_MANY_VALUES, VX_INVALID_VR_CODE, VX_INVALID_VALUE_FOR_VR,
 * VX_INVALID_CHARS_IN_VALUE, VX_NOT_ONE_OF_ENUMERATED_VALUES, VX_NOT_ONE_OF_DEFINED_TERMS (an item of a type
 * that its sequence does not take); as a warning: VX_NON_SERVICE_ATTRIBUTE, VX_NOT_ONE_OF_DEFINED_TERMS (a
 * value); else: VX_NO_CONDITION_FUNCTION, VX_UNABLE_TO_CHECK_CONDITION.
 *
 * VX_INVALID_MESSAGE_ID; VX_MSGFILE_ERROR: the object has no service and command or item type, or the
 * template could not be read; VX_NOT_FOUND: the template names a private block that the object lacks;
 * VX_SYSTEM_ERROR: VX_Get_Next_Validate_Error then gives what was found so far.
 */
VX_API VX_STATUS VX_Validate_Message(int32_t MsgID, ValErrObj** ErrInfo, ValidationLevel Level);

/*
 * The same for a file.
 */
VX_API VX_STATUS VX_Validate_File(int32_t FileID, ValErrObj** ErrInfo, ValidationLevel Level);

/*
 * The same for one attribute and what lies below it. An attribute that is absent is added without a value.
 * VX_INVALID_TAG: it can not be, or lies in group 0, 1 or 2; else as VX_Validate_Message.
 */
VX_API VX_STATUS VX_Validate_Attribute(int32_t MsgID, uint32_t Tag, ValErrObj** ErrInfo,
                                       ValidationLevel Level);

/*
 * The next finding of the last validation of this object. VX_END_OF_LIST, *ErrInfo then null: all were handed
 * out, or the object was never validated. VX_INVALID_MESSAGE_ID.
 */
VX_API VX_STATUS VX_Get_Next_Validate_Error(int32_t MsgID, ValErrObj** ErrInfo);

/* ---- Structured reports: the tree (PS3.3 section C.17.3) ---------------------------------------------- */

/*
 * A report is a message whose content lies in nested items of (0040,A730). Beside it stands a tree of nodes,
 * one for the message (the root) and one for each item; a node has the id of its message or item. All content
 * stays in the attributes. While an object is part of a tree, it is none for calls that ask for a message or
 * an item by kind; VX_SR_To_Message gives the message back, for example to write it.
 *
 * VX_INVALID_SR_ID: the id is no node. Threads may use one tree; those that walk the children of one node
 * share its cursor.
 */

/*
 * Makes a message the root of a new tree; RootID is MsgID. VX_INVALID_MESSAGE_ID: no message, or part of a
 * tree already.
 */
VX_API VX_STATUS VX_SR_Add_Root(int32_t MsgID, int32_t* RootID);

/*
 * Adds an item as the last child, and as the last item of the parent's (0040,A730). VX_INVALID_SR_ID,
 * VX_INVALID_ITEM_ID: no item, or part of a tree already; else what setting the sequence gives.
 */
VX_API VX_STATUS VX_SR_Add_Child(int32_t ParentID, int32_t ChildID);

/*
 * The root of a node's tree. The walk over the root's children starts over. VX_INVALID_SR_ID.
 */
VX_API VX_STATUS VX_SR_Get_Root(int32_t NodeID, int32_t* RootID);

/*
 * The first child, from which VX_SR_Get_Next_Child goes on. A node without children gives ChildID 0 and
 * IsLast 1, and VX_NORMAL_COMPLETION. VX_INVALID_SR_ID.
 */
VX_API VX_STATUS VX_SR_Get_First_Child(int32_t NodeID, int32_t* ChildID, int32_t* IsLast);

/*
 * The next child; at the end ChildID is 0 and IsLast 1, with VX_NORMAL_COMPLETION. VX_INVALID_MESSAGE_ID: no
 * node.
 */
VX_API VX_STATUS VX_SR_Get_Next_Child(int32_t NodeID, int32_t* ChildID, int32_t* IsLast);

/*
 * The number of children. VX_UNABLE_TO_GET_SR_ID: no node; VX_INVALID_SR_ID: a node that could not be linked.
 */
VX_API VX_STATUS VX_SR_Get_Child_Count(int32_t NodeID, int32_t* Count);

/*
 * The place of a node, such as "1.2.1": the root is "1". It changes when a left sibling goes. Cut to
 * BufferSize, which needs no more than 81 bytes; empty for a place that takes more than 80 characters.
 * VX_INVALID_SR_ID.
 */
VX_API VX_STATUS VX_SR_Get_Location(int32_t NodeID, uint32_t BufferSize, char* Location);

/*
 * Takes a node and all below it out of the tree, and its item out of the parent's (0040,A730). The item with
 * all that it holds stays, and is the caller's to free with VX_Free_Item. VX_INVALID_SR_ID;
 * VX_INVALID_MESSAGE_ID: the root.
 */
VX_API VX_STATUS VX_SR_Delete_Child(int32_t NodeID);

/*
 * Drops the tree that a node belongs to. The message and its items stay as they are. VX_INVALID_SR_ID.
 */
VX_API VX_STATUS VX_SR_To_Message(int32_t RootID);

/*
 * Builds the tree of a message with content, such as one that was read. Items that belong to another tree end
 * the row of their siblings. VX_INVALID_MESSAGE_ID.
 */
VX_API VX_STATUS VX_Message_To_SR(int32_t MsgID);

/*
 * Drops a tree and frees its message with all items. VX_INVALID_SR_ID: not the root of a tree.
 */
VX_API VX_STATUS VX_SRH_Free_SR(int32_t RootID);

/* ---- Structured reports: content (PS3.3 section C.17.3) ----------------------------------------------- */

/*
 * What all of these have in common: a status of the call that sets or reads an attribute is handed on as it
 * is, such as VX_INVALID_VALUE_FOR_VR for a text that is stored all the same, or VX_INVALID_TAG and
 * VX_EMPTY_VALUE for content that a node does not have. Concepts and units are triplets of code, coding
 * scheme and meaning. Text goes in and out in the report's character set. Sizes of buffers are in bytes with
 * the closing NUL. None frees what it is given. Threads may use one report, but not one node.
 */

/* Types of nodes. */
enum SRH_NODE_TYPE {
  SRH_TEXT = 0,
  SRH_CODE = 1,
  SRH_NUM = 2,
  SRH_DATETIME = 3,
  SRH_DATE = 4,
  SRH_TIME = 5,
  SRH_UIDREF = 6,
  SRH_PNAME = 7,
  SRH_SCOORD = 8,
  SRH_TCOORD_D = 9,  /* by date and time */
  SRH_TCOORD_O = 10, /* by offsets in seconds */
  SRH_TCOORD_R = 11, /* by numbers of samples */
  SRH_COMPOSITE = 12,
  SRH_IMAGE = 13,
  SRH_WAVEFORM = 14,
  SRH_CONTAINER = 15,
  SRH_REFERENCE = 16, /* leads to another node of the report */
  SRH_SCOORD3D = 17
};

/* How a node belongs to its parent, (0040,A010). */
enum SRH_RELATIONSHIP {
  SRH_CONTAINS = 0,
  SRH_HAS_OBS_CONTEXT = 1,
  SRH_HAS_ACQ_CONTEXT = 2,
  SRH_HAS_CONCEPT_MOD = 3,
  SRH_HAS_PROPERTIES = 4,
  SRH_INFERRED_FROM = 5,
  SRH_SELECTED_FROM = 6
};

/* Graphic Type, (0070,0023). */
enum SRH_SPATIAL_TYPE {
  SRH_SPATIAL_POINT = 0,
  SRH_SPATIAL_MULTIPOINT = 1,
  SRH_SPATIAL_POLYLINE = 2,
  SRH_SPATIAL_CIRCLE = 3,
  SRH_SPATIAL_ELLIPSE = 4,
  SRH_SPATIAL_POLYGON = 5,
  SRH_SPATIAL_ELLIPSOID = 6
};

/* Temporal Range Type, (0040,A130). */
enum SRH_TEMPORAL_TYPE {
  SRH_TEMPORAL_POINT = 0,
  SRH_TEMPORAL_MULTIPOINT = 1,
  SRH_TEMPORAL_SEGMENT = 2,
  SRH_TEMPORAL_MULTISEGMENT = 3,
  SRH_TEMPORAL_BEGIN = 4,
  SRH_TEMPORAL_END = 5
};

/* Continuity Of Content, (0040,A050). */
enum SRH_CONTINUITY { SRH_SEPARATE = 0, SRH_CONTINUOUS = 1 };

/* A point in space. */
typedef struct SRH_XYZ {
  float X;
  float Y;
  float Z;
} SRH_XYZ;

/*
 * A new report: a message of a service such as "STANDARD_COMPREHENSIVE_SR", as the root of a tree and a
 * container with the concept as its title. TemplateID may be null. VX_SRH_Free_SR frees it. RootID is 0 after
 * a failure.
 */
VX_API VX_STATUS VX_SRH_Create_SR(const char* ServiceName, const char* TemplateID, int32_t Continuity,
                                  const char* ConceptCode, const char* ConceptScheme,
                                  const char* ConceptMeaning, int32_t* RootID);

/*
 * An item with a text. It is free: VX_SRH_Add_Child links it, VX_Free_Item frees it. ConceptCode null: no
 * concept name. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_TEXT_Node(const char* ConceptCode, const char* ConceptScheme,
                                         const char* ConceptMeaning, const char* Text, int32_t* NodeID);

/*
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_TEXT_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                       const char* ConceptScheme, const char* ConceptMeaning,
                                       const char* Text, int32_t* NodeID);

/*
 * An item with a code; none of its three texts may be null. It is free: VX_SRH_Add_Child links it,
 * VX_Free_Item frees it. ConceptCode null: no concept name. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_CODE_Node(const char* ConceptCode, const char* ConceptScheme,
                                         const char* ConceptMeaning, const char* CodeValue,
                                         const char* CodingScheme, const char* CodeMeaning, int32_t* NodeID);

/*
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_CODE_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                       const char* ConceptScheme, const char* ConceptMeaning,
                                       const char* CodeValue, const char* CodingScheme,
                                       const char* CodeMeaning, int32_t* NodeID);

/*
 * An item with a number with its unit. A null Value makes an empty measurement, without units; with a Value,
 * a null text of the unit is VX_NULL_POINTER_PARM. It is free: VX_SRH_Add_Child links it, VX_Free_Item frees
 * it. ConceptCode null: no concept name. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_NUM_Node(const char* ConceptCode, const char* ConceptScheme,
                                        const char* ConceptMeaning, const char* Value, const char* UnitCode,
                                        const char* UnitScheme, const char* UnitMeaning, int32_t* NodeID);

/*
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_NUM_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                      const char* ConceptScheme, const char* ConceptMeaning,
                                      const char* Value, const char* UnitCode, const char* UnitScheme,
                                      const char* UnitMeaning, int32_t* NodeID);

/*
 * An item with a date with a time, as VR DT. It is free: VX_SRH_Add_Child links it, VX_Free_Item frees it.
 * ConceptCode null: no concept name. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_DATETIME_Node(const char* ConceptCode, const char* ConceptScheme,
                                             const char* ConceptMeaning, const char* Value, int32_t* NodeID);

/*
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_DATETIME_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                           const char* ConceptScheme, const char* ConceptMeaning,
                                           const char* Value, int32_t* NodeID);

/*
 * An item with a date, as VR DA. It is free: VX_SRH_Add_Child links it, VX_Free_Item frees it. ConceptCode
 * null: no concept name. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_DATE_Node(const char* ConceptCode, const char* ConceptScheme,
                                         const char* ConceptMeaning, const char* Value, int32_t* NodeID);

/*
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_DATE_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                       const char* ConceptScheme, const char* ConceptMeaning,
                                       const char* Value, int32_t* NodeID);

/*
 * An item with a time, as VR TM. It is free: VX_SRH_Add_Child links it, VX_Free_Item frees it. ConceptCode
 * null: no concept name. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_TIME_Node(const char* ConceptCode, const char* ConceptScheme,
                                         const char* ConceptMeaning, const char* Value, int32_t* NodeID);

/*
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_TIME_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                       const char* ConceptScheme, const char* ConceptMeaning,
                                       const char* Value, int32_t* NodeID);

/*
 * An item with a UID. It is free: VX_SRH_Add_Child links it, VX_Free_Item frees it. ConceptCode null: no
 * concept name. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_UIDREF_Node(const char* ConceptCode, const char* ConceptScheme,
                                           const char* ConceptMeaning, const char* Value, int32_t* NodeID);

/*
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_UIDREF_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                         const char* ConceptScheme, const char* ConceptMeaning,
                                         const char* Value, int32_t* NodeID);

/*
 * An item with a name of a person, as VR PN. It is free: VX_SRH_Add_Child links it, VX_Free_Item frees it.
 * ConceptCode null: no concept name. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_PNAME_Node(const char* ConceptCode, const char* ConceptScheme,
                                          const char* ConceptMeaning, const char* Value, int32_t* NodeID);

/*
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_PNAME_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                        const char* ConceptScheme, const char* ConceptMeaning,
                                        const char* Value, int32_t* NodeID);

/*
 * An item with a region of an image, with its first point: column and row. SpatialType is
 * one of SRH_SPATIAL_TYPE. It is free: VX_SRH_Add_Child links it, VX_Free_Item frees it. NodeID is 0 where no
 * item was made.
 */
VX_API VX_STATUS VX_SRH_Create_SCOORD_Node(float X, float Y, int32_t SpatialType, int32_t* NodeID);

/*
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_SCOORD_Child(int32_t ParentID, int32_t Relationship, float X, float Y,
                                         int32_t SpatialType, int32_t* NodeID);

/*
 * An item with a region in space, with its first point in millimetres. FrameOfReferenceUID may be null. It is
 * free: VX_SRH_Add_Child links it, VX_Free_Item frees it. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_SCOORD3D_Node(const char* FrameOfReferenceUID, SRH_XYZ Point,
                                             int32_t SpatialType, int32_t* NodeID);

/*
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_SCOORD3D_Child(int32_t ParentID, int32_t Relationship,
                                           const char* FrameOfReferenceUID, SRH_XYZ Point,
                                           int32_t SpatialType, int32_t* NodeID);

/*
 * An item with a time by the number of a sample, from 1. TemporalType is one of
 * SRH_TEMPORAL_TYPE. It is free: VX_SRH_Add_Child links it, VX_Free_Item frees it. NodeID is 0 where no item
 * was made.
 */
VX_API VX_STATUS VX_SRH_Create_TCOORD_R_Node(uint32_t Position, int32_t TemporalType, int32_t* NodeID);

/*
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_TCOORD_R_Child(int32_t ParentID, int32_t Relationship, uint32_t Position,
                                           int32_t TemporalType, int32_t* NodeID);

/*
 * An item with a time by its offset in seconds, as VR DS. It is free: VX_SRH_Add_Child links it, VX_Free_Item
 * frees it. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_TCOORD_O_Node(const char* Offset, int32_t TemporalType, int32_t* NodeID);

/*
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_TCOORD_O_Child(int32_t ParentID, int32_t Relationship, const char* Offset,
                                           int32_t TemporalType, int32_t* NodeID);

/*
 * An item with a time as VR DT has it. It is free: VX_SRH_Add_Child links it, VX_Free_Item frees it. NodeID
 * is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_TCOORD_D_Node(const char* DateTime, int32_t TemporalType, int32_t* NodeID);

/*
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_TCOORD_D_Child(int32_t ParentID, int32_t Relationship, const char* DateTime,
                                           int32_t TemporalType, int32_t* NodeID);

/*
 * An item with a reference to an object; neither UID may be null. It is free: VX_SRH_Add_Child links it,
 * VX_Free_Item frees it. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_COMPOSITE_Node(const char* SopClassUID, const char* SopInstanceUID,
                                              int32_t* NodeID);

/*
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_COMPOSITE_Child(int32_t ParentID, int32_t Relationship, const char* SopClassUID,
                                            const char* SopInstanceUID, int32_t* NodeID);

/*
 * An item with a reference to an image. A null UID makes a node without a reference. It is free:
 * VX_SRH_Add_Child links it, VX_Free_Item frees it. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_IMAGE_Node(const char* SopClassUID, const char* SopInstanceUID,
                                          int32_t* NodeID);

/*
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_IMAGE_Child(int32_t ParentID, int32_t Relationship, const char* SopClassUID,
                                        const char* SopInstanceUID, int32_t* NodeID);

/*
 * An item with a reference to a waveform. A null UID makes a node without a reference. It is free:
 * VX_SRH_Add_Child links it, VX_Free_Item frees it. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_WAVEFORM_Node(const char* SopClassUID, const char* SopInstanceUID,
                                             int32_t* NodeID);

/*
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_WAVEFORM_Child(int32_t ParentID, int32_t Relationship, const char* SopClassUID,
                                           const char* SopInstanceUID, int32_t* NodeID);

/*
 * An item with a heading. Continuity is one of SRH_CONTINUITY; TemplateID, such as "1500", may be null. It is
 * free: VX_SRH_Add_Child links it, VX_Free_Item frees it. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_CONTAINER_Node(int32_t Continuity, const char* TemplateID, int32_t* NodeID);

/*
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_CONTAINER_Child(int32_t ParentID, int32_t Relationship, int32_t Continuity,
                                            const char* TemplateID, int32_t* NodeID);

/*
 * Links a free item as the last child of a node. VX_VALUE_NOT_ALLOWED, VX_INVALID_SR_ID, VX_INVALID_ITEM_ID.
 */
VX_API VX_STATUS VX_SRH_Add_Child(int32_t ParentID, int32_t Relationship, int32_t* NodeID);

/*
 * Adds a reference to another node of the report as the last item of the parent's (0040,A730). It names the
 * place that the target has now among the items, and gets no node until the report is read anew.
 * VX_VALUE_NOT_ALLOWED, VX_INVALID_SR_ID.
 */
VX_API VX_STATUS VX_SRH_Add_Reference(int32_t ParentID, int32_t Relationship, int32_t TargetID);

/*
 * Sets the concept name of a node. VX_INVALID_MESSAGE_ID; VX_NULL_POINTER_PARM for a null text.
 */
VX_API VX_STATUS VX_SRH_Set_Concept_Name(int32_t NodeID, const char* ConceptCode, const char* ConceptScheme,
                                         const char* ConceptMeaning);

/*
 * Sets (0040,A301), why a number has no value or what is special about it.
 */
VX_API VX_STATUS VX_SRH_Set_NUM_Qualifier(int32_t NodeID, const char* Code, const char* Scheme,
                                          const char* Meaning);

/*
 * Sets the frames, from 1, that an image reference means. VX_VALUE_NOT_ALLOWED: Count below 1.
 */
VX_API VX_STATUS VX_SRH_Set_IMAGE_Frames(int32_t NodeID, const int32_t* Frames, int32_t Count);

/*
 * Sets the channels that a waveform reference means: pairs of group and channel. VX_VALUE_NOT_ALLOWED: Count
 * below 1.
 */
VX_API VX_STATUS VX_SRH_Set_WAVEFORM_Channels(int32_t NodeID, const uint16_t* Channels, int32_t Count);

/*
 * Appends a point. VX_INVALID_DATA_TYPE: the node is no SRH_SCOORD.
 */
VX_API VX_STATUS VX_SRH_Set_SCOORD_Next_Data(int32_t NodeID, float X, float Y);

/*
 * Appends a point. VX_INVALID_DATA_TYPE: the node is no SRH_SCOORD3D.
 */
VX_API VX_STATUS VX_SRH_Set_SCOORD3D_Next_Data(int32_t NodeID, SRH_XYZ Point);

/*
 * Appends a value. VX_INVALID_DATA_TYPE: the node is no SRH_TCOORD_R.
 */
VX_API VX_STATUS VX_SRH_Set_TCOORD_R_Next_Data(int32_t NodeID, uint32_t Position);

/*
 * Appends a value. VX_INVALID_DATA_TYPE: the node is no SRH_TCOORD_O.
 */
VX_API VX_STATUS VX_SRH_Set_TCOORD_O_Next_Data(int32_t NodeID, const char* Offset);

/*
 * Appends a value. VX_INVALID_DATA_TYPE: the node is no SRH_TCOORD_D.
 */
VX_API VX_STATUS VX_SRH_Set_TCOORD_D_Next_Data(int32_t NodeID, const char* DateTime);

/*
 * The type of a node, one of SRH_NODE_TYPE. VX_INCOMPATIBLE_VALUE: a value type that is not known, or a
 * TCOORD without values.
 */
VX_API VX_STATUS VX_SRH_Get_NodeType(int32_t NodeID, int32_t* NodeType);

/*
 * The first child, as VX_SR_Get_First_Child, with its relationship and type; these are -1 where there is no
 * child or where they are not known. The status then tells why, while ChildID and IsLast hold all the same.
 */
VX_API VX_STATUS VX_SRH_Get_First_Child(int32_t NodeID, int32_t* ChildID, int32_t* Relationship,
                                        int32_t* NodeType, int32_t* IsLast);

/*
 * The next child, as VX_SR_Get_Next_Child, with its relationship and type; these are -1 where there is no
 * child or where they are not known. The status then tells why, while ChildID and IsLast hold all the same.
 */
VX_API VX_STATUS VX_SRH_Get_Next_Child(int32_t NodeID, int32_t* ChildID, int32_t* Relationship,
                                       int32_t* NodeType, int32_t* IsLast);

/*
 * The concept name of a node. A part that can not be read is an empty text.
 */
VX_API VX_STATUS VX_SRH_Get_Concept_Name(int32_t NodeID, char* Code, int32_t CodeSize, char* Scheme,
                                         int32_t SchemeSize, char* Meaning, int32_t MeaningSize);

/*
 * The text of a node. VX_BUFFER_TOO_SMALL: the text is cut.
 */
VX_API VX_STATUS VX_SRH_Get_TEXT_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/*
 * The date and time of a node. VX_BUFFER_TOO_SMALL: the text is cut.
 */
VX_API VX_STATUS VX_SRH_Get_DATETIME_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/*
 * The date of a node. VX_BUFFER_TOO_SMALL: the text is cut.
 */
VX_API VX_STATUS VX_SRH_Get_DATE_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/*
 * The time of a node. VX_BUFFER_TOO_SMALL: the text is cut.
 */
VX_API VX_STATUS VX_SRH_Get_TIME_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/*
 * The UID of a node. VX_BUFFER_TOO_SMALL: the text is cut.
 */
VX_API VX_STATUS VX_SRH_Get_UIDREF_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/*
 * The name of a node. VX_BUFFER_TOO_SMALL: the text is cut.
 */
VX_API VX_STATUS VX_SRH_Get_PNAME_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/*
 * The code of a node. A part that can not be read is an empty text.
 */
VX_API VX_STATUS VX_SRH_Get_CODE_Data(int32_t NodeID, char* CodeValue, int32_t CodeValueSize,
                                      char* CodingScheme, int32_t CodingSchemeSize, char* CodeMeaning,
                                      int32_t CodeMeaningSize);

/*
 * The first value of a number, how many it has, and its unit. A null value is an empty text. VX_EMPTY_VALUE:
 * no measured value.
 */
VX_API VX_STATUS VX_SRH_Get_NUM_Data(int32_t NodeID, char* Value, int32_t ValueSize, int32_t* Count,
                                     char* UnitCode, int32_t UnitCodeSize, char* UnitScheme,
                                     int32_t UnitSchemeSize, char* UnitMeaning, int32_t UnitMeaningSize);

/*
 * The next value of a number that has several. VX_NO_MORE_VALUES.
 */
VX_API VX_STATUS VX_SRH_Get_NUM_Next_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/*
 * The qualifier of a number.
 */
VX_API VX_STATUS VX_SRH_Get_NUM_Qualifier(int32_t NodeID, char* Code, int32_t CodeSize, char* Scheme,
                                          int32_t SchemeSize, char* Meaning, int32_t MeaningSize);

/*
 * The first point of a region, the number of points and the kind of region, one of SRH_SPATIAL_TYPE.
 */
VX_API VX_STATUS VX_SRH_Get_SCOORD_First_Data(int32_t NodeID, float* X, float* Y, int32_t* Count,
                                              int32_t* SpatialType);

/*
 * The next point of a region. VX_NO_MORE_VALUES.
 */
VX_API VX_STATUS VX_SRH_Get_SCOORD_Next_Data(int32_t NodeID, float* X, float* Y);

/*
 * The first point of a region in space, the number of points and the kind of region. FrameOfReferenceUID
 * points to 64 bytes that belong to the node and last until the next such call on it or its end; null if it
 * has none.
 */
VX_API VX_STATUS VX_SRH_Get_SCOORD3D_First_Data(int32_t NodeID, char** FrameOfReferenceUID, SRH_XYZ* Point,
                                                int32_t* Count, int32_t* SpatialType);

/*
 * The next point of a region in space. VX_NO_MORE_VALUES.
 */
VX_API VX_STATUS VX_SRH_Get_SCOORD3D_Next_Data(int32_t NodeID, SRH_XYZ* Point);

/*
 * The first value, how many there are, and their kind, one of SRH_TEMPORAL_TYPE.
 */
VX_API VX_STATUS VX_SRH_Get_TCOORD_R_First_Data(int32_t NodeID, uint32_t* Position, int32_t* Count,
                                                int32_t* TemporalType);

/*
 * The next value. VX_NO_MORE_VALUES.
 */
VX_API VX_STATUS VX_SRH_Get_TCOORD_R_Next_Data(int32_t NodeID, uint32_t* Position);

/*
 * The first value, how many there are, and their kind, one of SRH_TEMPORAL_TYPE.
 */
VX_API VX_STATUS VX_SRH_Get_TCOORD_O_First_Data(int32_t NodeID, char* Value, int32_t ValueSize,
                                                int32_t* Count, int32_t* TemporalType);

/*
 * The next value. VX_NO_MORE_VALUES.
 */
VX_API VX_STATUS VX_SRH_Get_TCOORD_O_Next_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/*
 * The first value, how many there are, and their kind, one of SRH_TEMPORAL_TYPE.
 */
VX_API VX_STATUS VX_SRH_Get_TCOORD_D_First_Data(int32_t NodeID, char* Value, int32_t ValueSize,
                                                int32_t* Count, int32_t* TemporalType);

/*
 * The next value. VX_NO_MORE_VALUES.
 */
VX_API VX_STATUS VX_SRH_Get_TCOORD_D_Next_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/*
 * The UIDs of the object that is referred to. One that can not be read is an empty text.
 */
VX_API VX_STATUS VX_SRH_Get_COMPOSITE_Data(int32_t NodeID, char* SopClassUID, int32_t SopClassUIDSize,
                                           char* SopInstanceUID, int32_t SopInstanceUIDSize);

/*
 * The same with the number of frames, 0 when there are none.
 */
VX_API VX_STATUS VX_SRH_Get_IMAGE_Data(int32_t NodeID, char* SopClassUID, int32_t SopClassUIDSize,
                                       char* SopInstanceUID, int32_t SopInstanceUIDSize, int32_t* Count);

/*
 * All frames of a reference. VX_BUFFER_TOO_SMALL: Capacity is below their number.
 */
VX_API VX_STATUS VX_SRH_Get_IMAGE_Frames(int32_t NodeID, int32_t* Frames, int32_t Capacity);

/*
 * The same with the number of channels, 0 when there are none.
 */
VX_API VX_STATUS VX_SRH_Get_WAVEFORM_Data(int32_t NodeID, char* SopClassUID, int32_t SopClassUIDSize,
                                          char* SopInstanceUID, int32_t SopInstanceUIDSize, int32_t* Count);

/*
 * All channels of a reference. VX_BUFFER_TOO_SMALL: Capacity is below their number.
 */
VX_API VX_STATUS VX_SRH_Get_WAVEFORM_Channels(int32_t NodeID, uint16_t* Channels, int32_t Capacity);

/*
 * The continuity and the template of a container, an empty text where none is named.
 */
VX_API VX_STATUS VX_SRH_Get_CONTAINER_Data(int32_t NodeID, int32_t* Continuity, char* TemplateID,
                                           int32_t TemplateIDSize);

/*
 * The node that a reference leads to, by the place of each step among the items. TargetID is 0 after a
 * failure. VX_EMPTY_VALUE: no reference; VX_VALUE_OUT_OF_RANGE: there is no such node.
 */
VX_API VX_STATUS VX_SRH_Get_Reference(int32_t NodeID, int32_t* TargetID);
/* ---- JSON (PS3.18 annex F) ---------------------------------------------------------------------------- */

/*
 * Options of VX_Message_To_Json; VX_JSON_STANDARD also of the reader.
 */
typedef enum {
  VX_JSON_INCLUDE_BULK = 1,       /* values of OB, OW, OL, OD and OF other than Pixel Data */
  VX_JSON_INCLUDE_PIXEL_DATA = 2, /* the value of (7FE0,0010) */
  VX_JSON_EXCLUDE_SEQUENCES = 4,  /* sequences without their items */
  VX_JSON_EXCLUDE_PRIVATE = 8,    /* no private attributes, nor their creators */
  VX_JSON_INDENT = 16,            /* by 4; stays on for all later calls of the process */
  VX_JSON_STANDARD = 32           /* the DICOM JSON Model to the letter, see below */
} VX_JSON_OPTION;

/*
 * Writes an object as one JSON object to Callback, in blocks, the last one padded with a blank to an even
 * sum. Nothing is written unless all can be. Group lengths are left out. By default the form is the toolkit's
 * own: numbers are strings, a null value among others is an empty string, and <, >, &, quotes and control
 * characters in texts are written as XML references. With VX_JSON_STANDARD numbers are JSON numbers (IS and
 * DS where the number reads back as the same text), null values are null, texts are as they are, groups 0000
 * and 0002 are left out, and so is encapsulated Pixel Data, which has no inline form. Text is UTF-8; without
 * VX_Enable_Unicode_Conversion, bytes of other character sets than ISO_IR 192 become the code points of the
 * same value. UN is always written. Only where values are held by callbacks or on temporary files does the
 * text lie in memory as a whole before it goes out.
 * VX_INVALID_MESSAGE_ID; VX_MESSAGE_EMPTY; VX_SYSTEM_ERROR: Callback refused, or no memory;
 * VX_INVALID_VALUE_FOR_VR: sequences nested beyond 128 levels; VX_CALLBACK_CANNOT_COMPLY: a value that a
 * callback holds could not be read. The object must not change meanwhile.
 */
VX_API VX_STATUS VX_Message_To_Json(int32_t MsgID, void* UserInfo, int32_t Options,
                                    VX_STREAM_OUTPUT Callback);

/*
 * Adds the attributes of a JSON object in the toolkit's own form to an object, which keeps what it holds; an
 * attribute that is there gets the new value and the VR of the document. Private blocks are found or added by
 * their creators; of two members with one key the last holds, with a warning. The text is read as a whole and
 * found good before the object is touched; brackets may be nested 1024 deep, sequences 128. A number is taken
 * as it is written, of SV and UV too, which are stored as UN. One bad member does not stop the others: the
 * log tells its place, and the status is that of the last bad one, also VX_INVALID_VALUE_FOR_VR and
 * VX_INVALID_CHARS_IN_VALUE for values that were stored all the same. VX_INVALID_MESSAGE_ID;
 * VX_CALLBACK_CANNOT_COMPLY: Callback failed, or the text is no JSON (the log has the place);
 * VX_SYSTEM_ERROR: it is no object; VX_INVALID_TAG; VX_INVALID_VR_IN_STREAM; VX_REQUIRED_VALUE_MISSING: a
 * private creator without a code; VX_NOT_FOUND: a private attribute without a creator; VX_INCOMPATIBLE_VALUE;
 * VX_VALUE_OUT_OF_RANGE. Text goes into the object's character sets; what these can not hold is `?`, with a
 * warning and VX_INVALID_CHARS_IN_VALUE, as is a backslash in one value. Text beyond ASCII in an object
 * without (0008,0005) is UTF-8, and (0008,0005) becomes ISO_IR 192. All else that is not taken as it stands
 * has a warning. Callback must not use the object.
 */
VX_API VX_STATUS VX_Json_To_Message(int32_t MsgID, void* UserInfo, VX_TEXT_INPUT Callback);

/*
 * The same with Options: with VX_JSON_STANDARD the document is in the standard's form, and texts are taken as
 * they stand. As VX_Json_To_Message.
 */
VX_API VX_STATUS VX_Json_To_Message_With_Options(int32_t MsgID, void* UserInfo, int32_t Options,
                                                 VX_TEXT_INPUT Callback);

/* ---- XML ---------------------------------------------------------------------------------------------- */

/*
 * Options of the XML writers.
 */
typedef enum {
  VX_XML_INCLUDE_BULK = 1,       /* values of OB, OW, OL, OD and OF other than Pixel Data */
  VX_XML_INCLUDE_PIXEL_DATA = 2, /* the value of (7FE0,0010) */
  VX_XML_EXCLUDE_SEQUENCES = 4,  /* native form: sequences without their items; else no sequences */
  VX_XML_EXCLUDE_PRIVATE = 8,    /* no private attributes, nor their creators */
  VX_XML_BASE64 = 16,            /* toolkit's form: bulk values in Base64, not in hexadecimal */
  VX_XML_INDENT = 32             /* native form: on many lines */
} VX_XML_OPTION;

/*
 * Writes an object as XML of the toolkit's own form to Callback, in blocks, the last one padded with a blank
 * to an even sum. Nothing is written unless all can be. The root tells the kind (DcmMessage, DcmFile,
 * DICOMDIR, DcmItem); below it stand one section for the meta group of a File and one for the data set, with
 * an Attribute element for each attribute. Group lengths and groups below 0008 are left out (of a File and a
 * DICOMDIR those below 0004). Text is UTF-8, UN is always written. VX_INVALID_MESSAGE_ID; VX_MESSAGE_EMPTY;
 * VX_SYSTEM_ERROR: Callback refused, or no memory; VX_INVALID_VALUE_FOR_VR: sequences nested beyond 128
 * levels; VX_CALLBACK_CANNOT_COMPLY: a value that a callback holds could not be read. The object must not
 * change meanwhile.
 */
VX_API VX_STATUS VX_Message_To_XML(int32_t MsgID, void* UserInfo, int32_t Options, VX_STREAM_OUTPUT Callback);

/*
 * The same in the form of the Native DICOM Model (PS3.19 section A.1). Control characters that XML can not
 * hold become U+FFFD, with a warning.
 */
VX_API VX_STATUS VX_Message_To_XML_Native(int32_t MsgID, void* UserInfo, int32_t Options,
                                          VX_STREAM_OUTPUT Callback);

/*
 * Adds the attributes of a document in the toolkit's own form to an object, which keeps what it holds; an
 * attribute that is there gets the new value and the VR of the document. Callback is asked for the document
 * once, in blocks. Values that break a rule of their VR are stored all the same; other bad attributes are
 * passed over with a line in the log. Character sets are as for VX_Json_To_Message. VX_INVALID_MESSAGE_ID;
 * the status of a Callback that fails; VX_SYSTEM_ERROR: the text is no well-formed XML, has a document type
 * declaration, is nested beyond 128 levels of sequences or is another document, and the object is as it was;
 * or libxml2 can not be opened. Callback must not use the object.
 */
VX_API VX_STATUS VX_XML_To_Message(int32_t MsgID, void* UserInfo, VX_TEXT_INPUT Callback);

/*
 * The same for a document in the form of the Native DICOM Model (PS3.19 section A.1). An attribute without a
 * tag ends the reading; what stands before it is kept. Values are taken in the order of their numbers. An
 * element of a private block may be named without the block, as (gggg,00ee). Values that lie elsewhere
 * (BulkData) are not fetched, with a warning.
 */
VX_API VX_STATUS VX_XML_Native_To_Message(int32_t MsgID, void* UserInfo, VX_TEXT_INPUT Callback);

/* ---- Listing ------------------------------------------------------------------------------------------ */

/*
 * Lists an object to a file, or to the standard output with a null name or one that can not be opened. Does
 * nothing before initialisation. The caller must hold the object to itself.
 */
VX_API void VX_List_Message(int32_t MsgID, const char* FileName);

/*
 * The same for an item.
 */
VX_API void VX_List_Item(int32_t ItemID, const char* FileName);

/*
 * The same for a file.
 */
VX_API void VX_List_File(int32_t FileID, const char* FileName);

/* ---- Unicode ------------------------------------------------------------------------------------------ */

/*
 * Text in the character sets of (0008,0005) to UTF-16 and back (PS3.3 section C.12.1.1.2, PS3.5 section 6.1).
 * ICU stands behind it, and is loaded on request only: while it is not, all functions but the first give
 * VX_CANNOT_COMPLY. Lengths and BufferChars count UTF-16 code units. VX_BUFFER_TOO_SMALL: OutLength tells
 * what the buffer must hold. Any thread may call any of these at any time; unloading waits for conversions.
 */

/*
 * Non-zero loads ICU, zero unloads it. VX_CANNOT_COMPLY: no version of ICU is to be had. Needs no initialised
 * library.
 */
VX_API VX_STATUS VX_Enable_Unicode_Conversion(int32_t Enable);

/*
 * Decodes text. Charset is one defined term of (0008,0005), null or empty for the default repertoire; an
 * unknown one is read as ISO_IR 100, with a warning. Under a set with code extensions, escape sequences are
 * followed. Length -1: up to the NUL. U+FFFD stands for bytes that are no character; no NUL is added. Needs
 * no initialised library.
 */
VX_API VX_STATUS VX_Byte_To_Unicode(const char* Charset, const char* Bytes, int32_t Length,
                                    int32_t BufferChars, int32_t* OutLength, char16_t* Buffer);
/*
 * Encodes text under up to six sets, the first of them in force at the start, at the end and at delimiters.
 * Length -1: up to the NUL. The byte 1A stands for a character that is in none of them, with a warning in the
 * log; no NUL is added. VX_CANNOT_COMPLY: a set is not known, or takes no part in code extensions where there
 * are several. Needs no initialised library.
 */
VX_API VX_STATUS VX_Unicode_To_Byte(const char* const* Charsets, int32_t Count, const char16_t* Text,
                                    int32_t Length, int32_t BufferSize, int32_t* OutLength, char* Buffer);

/*
 * Sets the first value of an attribute of VR LO, LT, PN, SH, ST, UC or UT from UTF-16, in the character sets
 * of the object or of its holders. Length -1: up to the NUL. VX_INCOMPATIBLE_VR; else as
 * VX_Set_Value_From_String.
 */
VX_API VX_STATUS VX_Set_Value_From_UnicodeString(int32_t MsgID, uint32_t Tag, int32_t Length,
                                                 const char16_t* Text);
/* As VX_Set_Value_From_UnicodeString, for the next value. */
VX_API VX_STATUS VX_Set_Next_Value_From_UnicodeString(int32_t MsgID, uint32_t Tag, int32_t Length,
                                                      const char16_t* Text);
/*
 * Reads the first value as UTF-16, with a NUL behind it where there is room. A null value has length 0.
 * VX_INCOMPATIBLE_VR, VX_EMPTY_VALUE; else as VX_Get_Value_To_String.
 */
VX_API VX_STATUS VX_Get_Value_To_UnicodeString(int32_t MsgID, uint32_t Tag, int32_t BufferChars,
                                               int32_t* OutLength, char16_t* Buffer);
/* As VX_Get_Value_To_UnicodeString, for the next value. */
VX_API VX_STATUS VX_Get_Next_Value_To_UnicodeString(int32_t MsgID, uint32_t Tag, int32_t BufferChars,
                                                    int32_t* OutLength, char16_t* Buffer);

#ifdef __cplusplus
}
#endif

#endif
