#include "config/transfer_syntax.h"

#include <algorithm>
#include <iterator>

#include "config/added.h"
#include "config/config.h"
#include "frame/lock.h"
#include "frame/state.h"
#include "frame/text.h"

namespace vx {
namespace {

// A private syntax takes its properties from settings.
enum Property : uint8_t { kNo, kYes, kByKey };

struct SyntaxRow {
  VX_TRANSFER_SYNTAX syntax;
  const char* name;
  VX_STRING_KEY uid;
  const char* display;
  Property explicit_vr;
  Property big_endian;
  Property encapsulated;
};

// In the order of their codes.
constexpr SyntaxRow kSyntaxes[] = {
    {IMPLICIT_LITTLE_ENDIAN, "IMPLICIT_LITTLE_ENDIAN", VX_CFG_IMPLICIT_LITTLE_ENDIAN_SYNTAX,
     "Implicit Little Endian", kNo, kNo, kNo},
    {EXPLICIT_LITTLE_ENDIAN, "EXPLICIT_LITTLE_ENDIAN", VX_CFG_EXPLICIT_LITTLE_ENDIAN_SYNTAX,
     "Explicit Little Endian", kYes, kNo, kNo},
    {EXPLICIT_BIG_ENDIAN, "EXPLICIT_BIG_ENDIAN", VX_CFG_EXPLICIT_BIG_ENDIAN_SYNTAX, "Explicit Big Endian",
     kYes, kYes, kNo},
    {IMPLICIT_BIG_ENDIAN, "IMPLICIT_BIG_ENDIAN", VX_CFG_IMPLICIT_BIG_ENDIAN_SYNTAX, "Implicit Big Endian",
     kNo, kYes, kNo},
    {DEFLATED_EXPLICIT_LITTLE_ENDIAN, "DEFLATED_EXPLICIT_LITTLE_ENDIAN",
     VX_CFG_DEFLATED_EXPLICIT_LITTLE_ENDIAN_SYNTAX, "Deflated Explicit Little Endian", kYes, kNo, kNo},
    {RLE, "RLE", VX_CFG_RLE_SYNTAX, "RLE", kYes, kNo, kYes},
    {JPEG_BASELINE, "JPEG_BASELINE", VX_CFG_JPEG_BASELINE_SYNTAX, "JPEG Baseline", kYes, kNo, kYes},
    {JPEG_EXTENDED_2_4, "JPEG_EXTENDED_2_4", VX_CFG_JPEG_EXTENDED_2_4_SYNTAX, "JPEG Extended 2 4", kYes, kNo,
     kYes},
    {JPEG_EXTENDED_3_5, "JPEG_EXTENDED_3_5", VX_CFG_JPEG_EXTENDED_3_5_SYNTAX, "JPEG Extended 3 5", kYes, kNo,
     kYes},
    {JPEG_SPEC_NON_HIER_6_8, "JPEG_SPEC_NON_HIER_6_8", VX_CFG_JPEG_SPEC_NON_HIER_6_8_SYNTAX,
     "JPEG Spec Non Hier 6 8", kYes, kNo, kYes},
    {JPEG_SPEC_NON_HIER_7_9, "JPEG_SPEC_NON_HIER_7_9", VX_CFG_JPEG_SPEC_NON_HIER_7_9_SYNTAX,
     "JPEG Spec Non Hier 7 9", kYes, kNo, kYes},
    {JPEG_FULL_PROG_NON_HIER_10_12, "JPEG_FULL_PROG_NON_HIER_10_12",
     VX_CFG_JPEG_FULL_PROG_NON_HIER_10_12_SYNTAX, "JPEG Full Progression Non Hier 10 12", kYes, kNo, kYes},
    {JPEG_FULL_PROG_NON_HIER_11_13, "JPEG_FULL_PROG_NON_HIER_11_13",
     VX_CFG_JPEG_FULL_PROG_NON_HIER_11_13_SYNTAX, "JPEG Full Progression Non Hier 11 13", kYes, kNo, kYes},
    {JPEG_LOSSLESS_NON_HIER_14, "JPEG_LOSSLESS_NON_HIER_14", VX_CFG_JPEG_LOSSLESS_NON_HIER_14_SYNTAX,
     "JPEG Lossless Non Hier 14", kYes, kNo, kYes},
    {JPEG_LOSSLESS_NON_HIER_15, "JPEG_LOSSLESS_NON_HIER_15", VX_CFG_JPEG_LOSSLESS_NON_HIER_15_SYNTAX,
     "JPEG Lossless Non Hier 15", kYes, kNo, kYes},
    {JPEG_EXTENDED_HIER_16_18, "JPEG_EXTENDED_HIER_16_18", VX_CFG_JPEG_EXTENDED_HIER_16_18_SYNTAX,
     "JPEG Extended Hier 16 18", kYes, kNo, kYes},
    {JPEG_EXTENDED_HIER_17_19, "JPEG_EXTENDED_HIER_17_19", VX_CFG_JPEG_EXTENDED_HIER_17_19_SYNTAX,
     "JPEG Extended Hier 17 19", kYes, kNo, kYes},
    {JPEG_SPEC_HIER_20_22, "JPEG_SPEC_HIER_20_22", VX_CFG_JPEG_SPEC_HIER_20_22_SYNTAX, "JPEG Spec Hier 20 22",
     kYes, kNo, kYes},
    {JPEG_SPEC_HIER_21_23, "JPEG_SPEC_HIER_21_23", VX_CFG_JPEG_SPEC_HIER_21_23_SYNTAX, "JPEG Spec Hier 21 23",
     kYes, kNo, kYes},
    {JPEG_FULL_PROG_HIER_24_26, "JPEG_FULL_PROG_HIER_24_26", VX_CFG_JPEG_FULL_PROG_HIER_24_26_SYNTAX,
     "JPEG Full Progression Hier 24 26", kYes, kNo, kYes},
    {JPEG_FULL_PROG_HIER_25_27, "JPEG_FULL_PROG_HIER_25_27", VX_CFG_JPEG_FULL_PROG_HIER_25_27_SYNTAX,
     "JPEG Full Progression Hier 25 27", kYes, kNo, kYes},
    {JPEG_LOSSLESS_HIER_28, "JPEG_LOSSLESS_HIER_28", VX_CFG_JPEG_LOSSLESS_HIER_28_SYNTAX,
     "JPEG Lossless Hier 28", kYes, kNo, kYes},
    {JPEG_LOSSLESS_HIER_29, "JPEG_LOSSLESS_HIER_29", VX_CFG_JPEG_LOSSLESS_HIER_29_SYNTAX,
     "JPEG Lossless Hier 29", kYes, kNo, kYes},
    {JPEG_LOSSLESS_HIER_14, "JPEG_LOSSLESS_HIER_14", VX_CFG_JPEG_LOSSLESS_HIER_14_SYNTAX,
     "JPEG Lossless Hier 14", kYes, kNo, kYes},
    {JPEG_2000_LOSSLESS_ONLY, "JPEG_2000_LOSSLESS_ONLY", VX_CFG_JPEG_2000_LOSSLESS_ONLY_SYNTAX,
     "JPEG 2000 Lossless Only", kYes, kNo, kYes},
    {JPEG_2000, "JPEG_2000", VX_CFG_JPEG_2000_SYNTAX, "JPEG 2000", kYes, kNo, kYes},
    {JPEG_LS_LOSSLESS, "JPEG_LS_LOSSLESS", VX_CFG_JPEG_LS_LOSSLESS_SYNTAX, "JPEG-LS Lossless", kYes, kNo,
     kYes},
    {JPEG_LS_LOSSY, "JPEG_LS_LOSSY", VX_CFG_JPEG_LS_LOSSY_SYNTAX, "JPEG-LS Lossy (Near-Lossless)", kYes, kNo,
     kYes},
    {MPEG2_MPML, "MPEG2_MPML", VX_CFG_MPEG2_MPML_SYNTAX, "MPEG2 Main Profile @ Main Level", kYes, kNo, kYes},
    {PRIVATE_SYNTAX_1, "PRIVATE_SYNTAX_1", VX_CFG_PRIVATE_SYNTAX_1_SYNTAX, "User Defined Private Syntax 1",
     kByKey, kByKey, kByKey},
    {PRIVATE_SYNTAX_2, "PRIVATE_SYNTAX_2", VX_CFG_PRIVATE_SYNTAX_2_SYNTAX, "User Defined Private Syntax 2",
     kByKey, kByKey, kByKey},
    {JPEG_2000_MC_LOSSLESS_ONLY, "JPEG_2000_MC_LOSSLESS_ONLY", VX_CFG_JPEG_2000_MC_LOSSLESS_ONLY_SYNTAX,
     "JPEG 2000 Part 2 Multi-compoent Lossless Only", kYes, kNo, kYes},
    {JPEG_2000_MC, "JPEG_2000_MC", VX_CFG_JPEG_2000_MC_SYNTAX, "JPEG 2000 Part 2 Multi-compoent", kYes, kNo,
     kYes},
    {MPEG2_MPHL, "MPEG2_MPHL", VX_CFG_MPEG2_MPHL_SYNTAX, "MPEG2 Main Profile @ High Level", kYes, kNo, kYes},
    {MPEG4_AVC_H264_HP_LEVEL_4_1, "MPEG4_AVC_H264_HP_LEVEL_4_1", VX_CFG_MPEG4_AVC_H264_HP_LEVEL_4_1_SYNTAX,
     "MPEG-4 AVC/H.264 High Profile / Level 4.1", kYes, kNo, kYes},
    {MPEG4_AVC_H264_BDC_HP_LEVEL_4_1, "MPEG4_AVC_H264_BDC_HP_LEVEL_4_1",
     VX_CFG_MPEG4_AVC_H264_BDC_HP_LEVEL_4_1_SYNTAX, "MPEG-4 AVC/H.264 BD-compatible High Profile / Level 4.1",
     kYes, kNo, kYes},
    {MPEG4_AVC_H264_HP_LEVEL_4_2_2D, "MPEG4_AVC_H264_HP_LEVEL_4_2_2D",
     VX_CFG_MPEG4_AVC_H264_HP_LEVEL_4_2_2D_SYNTAX, "MPEG-4 AVC/H.264 High Profile / Level 4.2 For 2D Video",
     kYes, kNo, kYes},
    {MPEG4_AVC_H264_HP_LEVEL_4_2_3D, "MPEG4_AVC_H264_HP_LEVEL_4_2_3D",
     VX_CFG_MPEG4_AVC_H264_HP_LEVEL_4_2_3D_SYNTAX, "MPEG-4 AVC/H.264 High Profile / Level 4.2 For 3D Video",
     kYes, kNo, kYes},
    {MPEG4_AVC_H264_STEREO_HP_LEVEL_4_2, "MPEG4_AVC_H264_STEREO_HP_LEVEL_4_2",
     VX_CFG_MPEG4_AVC_H264_STEREO_HP_LEVEL_4_2_SYNTAX, "MPEG-4 AVC/H.264 Stereo High Profile / Level 4.2",
     kYes, kNo, kYes},
    {JPIP_REFERENCED, "JPIP_REFERENCED", VX_CFG_JPIP_REFERENCED_SYNTAX, "JPIP Referenced", kYes, kNo, kYes},
    {JPIP_REFERENCED_DEFLATE, "JPIP_REFERENCED_DEFLATE", VX_CFG_JPIP_REFERENCED_DEFLATE_SYNTAX,
     "JPIP Referenced Deflate", kYes, kNo, kYes},
};

constexpr VX_TRANSFER_SYNTAX kFirst = IMPLICIT_LITTLE_ENDIAN;
constexpr VX_TRANSFER_SYNTAX kLast = JPIP_REFERENCED_DEFLATE;
static_assert(std::size(kSyntaxes) == kLast - kFirst + 1);
static_assert([] {
  for (std::size_t i = 0; i < std::size(kSyntaxes); ++i) {
    if (kSyntaxes[i].syntax != kFirst + static_cast<VX_TRANSFER_SYNTAX>(i)) return false;
  }
  return true;
}());

// Syntaxes whose UIDs no setting moves: explicit little endian, encapsulated. In the order of their codes.
struct LaterSyntaxRow {
  VX_TRANSFER_SYNTAX syntax;
  const char* name;
  std::string_view uid;
  const char* display;
};
constexpr LaterSyntaxRow kLaterSyntaxes[] = {
    {HTJ2K_LOSSLESS, "HTJ2K_LOSSLESS", "1.2.840.10008.1.2.4.201",
     "High-Throughput JPEG 2000 (Lossless Only)"},
    {HTJ2K_LOSSLESS_RPCL, "HTJ2K_LOSSLESS_RPCL", "1.2.840.10008.1.2.4.202",
     "High-Throughput JPEG 2000 with RPCL Options (Lossless Only)"},
    {HTJ2K, "HTJ2K", "1.2.840.10008.1.2.4.203", "High-Throughput JPEG 2000"},
    {JPIP_HTJ2K_REFERENCED, "JPIP_HTJ2K_REFERENCED", "1.2.840.10008.1.2.4.204", "JPIP HTJ2K Referenced"},
    {JPIP_HTJ2K_REFERENCED_DEFLATE, "JPIP_HTJ2K_REFERENCED_DEFLATE", "1.2.840.10008.1.2.4.205",
     "JPIP HTJ2K Referenced Deflate"},
    {JPEG_XL_LOSSLESS, "JPEG_XL_LOSSLESS", "1.2.840.10008.1.2.4.110", "JPEG XL Lossless"},
    {JPEG_XL_RECOMPRESSION, "JPEG_XL_RECOMPRESSION", "1.2.840.10008.1.2.4.111", "JPEG XL JPEG Recompression"},
    {JPEG_XL, "JPEG_XL", "1.2.840.10008.1.2.4.112", "JPEG XL"},
    {ENCAPSULATED_UNCOMPRESSED, "ENCAPSULATED_UNCOMPRESSED", "1.2.840.10008.1.2.1.98",
     "Encapsulated Uncompressed Explicit VR Little Endian"},
    {DEFLATED_IMAGE_FRAMES, "DEFLATED_IMAGE_FRAMES", "1.2.840.10008.1.2.8.1",
     "Deflated Image Frame Compression"},
    {HEVC_H265_MP_LEVEL_5_1, "HEVC_H265_MP_LEVEL_5_1", "1.2.840.10008.1.2.4.107",
     "HEVC/H.265 Main Profile / Level 5.1"},
    {HEVC_H265_M10P_LEVEL_5_1, "HEVC_H265_M10P_LEVEL_5_1", "1.2.840.10008.1.2.4.108",
     "HEVC/H.265 Main 10 Profile / Level 5.1"},
    {FRAGMENTABLE_MPEG2_MPML, "FRAGMENTABLE_MPEG2_MPML", "1.2.840.10008.1.2.4.100.1",
     "Fragmentable MPEG2 Main Profile / Main Level"},
    {FRAGMENTABLE_MPEG2_MPHL, "FRAGMENTABLE_MPEG2_MPHL", "1.2.840.10008.1.2.4.101.1",
     "Fragmentable MPEG2 Main Profile / High Level"},
    {FRAGMENTABLE_MPEG4_AVC_H264_HP_LEVEL_4_1, "FRAGMENTABLE_MPEG4_AVC_H264_HP_LEVEL_4_1",
     "1.2.840.10008.1.2.4.102.1", "Fragmentable MPEG-4 AVC/H.264 High Profile / Level 4.1"},
    {FRAGMENTABLE_MPEG4_AVC_H264_BDC_HP_LEVEL_4_1, "FRAGMENTABLE_MPEG4_AVC_H264_BDC_HP_LEVEL_4_1",
     "1.2.840.10008.1.2.4.103.1", "Fragmentable MPEG-4 AVC/H.264 BD-compatible High Profile / Level 4.1"},
    {FRAGMENTABLE_MPEG4_AVC_H264_HP_LEVEL_4_2_2D, "FRAGMENTABLE_MPEG4_AVC_H264_HP_LEVEL_4_2_2D",
     "1.2.840.10008.1.2.4.104.1", "Fragmentable MPEG-4 AVC/H.264 High Profile / Level 4.2 For 2D Video"},
    {FRAGMENTABLE_MPEG4_AVC_H264_HP_LEVEL_4_2_3D, "FRAGMENTABLE_MPEG4_AVC_H264_HP_LEVEL_4_2_3D",
     "1.2.840.10008.1.2.4.105.1", "Fragmentable MPEG-4 AVC/H.264 High Profile / Level 4.2 For 3D Video"},
    {FRAGMENTABLE_MPEG4_AVC_H264_STEREO_HP_LEVEL_4_2, "FRAGMENTABLE_MPEG4_AVC_H264_STEREO_HP_LEVEL_4_2",
     "1.2.840.10008.1.2.4.106.1", "Fragmentable MPEG-4 AVC/H.264 Stereo High Profile / Level 4.2"},
    {SMPTE_ST_2110_20_PROGRESSIVE, "SMPTE_ST_2110_20_PROGRESSIVE", "1.2.840.10008.1.2.7.1",
     "SMPTE ST 2110-20 Uncompressed Progressive Active Video"},
    {SMPTE_ST_2110_20_INTERLACED, "SMPTE_ST_2110_20_INTERLACED", "1.2.840.10008.1.2.7.2",
     "SMPTE ST 2110-20 Uncompressed Interlaced Active Video"},
    {SMPTE_ST_2110_30_AUDIO, "SMPTE_ST_2110_30_AUDIO", "1.2.840.10008.1.2.7.3",
     "SMPTE ST 2110-30 PCM Digital Audio"},
};
constexpr VX_TRANSFER_SYNTAX kFirstLater = HTJ2K_LOSSLESS;
static_assert([] {
  for (std::size_t i = 0; i < std::size(kLaterSyntaxes); ++i) {
    if (kLaterSyntaxes[i].syntax != kFirstLater + static_cast<VX_TRANSFER_SYNTAX>(i)) return false;
  }
  return true;
}());

// Settings may give two syntaxes one UID; the first of these has it.
constexpr VX_TRANSFER_SYNTAX kUidOrder[] = {
    IMPLICIT_LITTLE_ENDIAN,
    IMPLICIT_BIG_ENDIAN,
    EXPLICIT_LITTLE_ENDIAN,
    EXPLICIT_BIG_ENDIAN,
    DEFLATED_EXPLICIT_LITTLE_ENDIAN,
    RLE,
    JPEG_BASELINE,
    JPEG_EXTENDED_2_4,
    JPEG_EXTENDED_3_5,
    JPEG_SPEC_NON_HIER_6_8,
    JPEG_SPEC_NON_HIER_7_9,
    JPEG_FULL_PROG_NON_HIER_10_12,
    JPEG_FULL_PROG_NON_HIER_11_13,
    JPEG_LOSSLESS_NON_HIER_14,
    JPEG_LOSSLESS_NON_HIER_15,
    JPEG_EXTENDED_HIER_16_18,
    JPEG_EXTENDED_HIER_17_19,
    JPEG_SPEC_HIER_20_22,
    JPEG_SPEC_HIER_21_23,
    JPEG_FULL_PROG_HIER_24_26,
    JPEG_FULL_PROG_HIER_25_27,
    JPEG_LOSSLESS_HIER_28,
    JPEG_LOSSLESS_HIER_29,
    JPEG_LOSSLESS_HIER_14,
    JPEG_2000_LOSSLESS_ONLY,
    JPEG_2000,
    JPEG_2000_MC_LOSSLESS_ONLY,
    JPEG_2000_MC,
    JPEG_LS_LOSSLESS,
    JPEG_LS_LOSSY,
    MPEG2_MPML,
    MPEG2_MPHL,
    MPEG4_AVC_H264_HP_LEVEL_4_1,
    MPEG4_AVC_H264_BDC_HP_LEVEL_4_1,
    MPEG4_AVC_H264_HP_LEVEL_4_2_2D,
    MPEG4_AVC_H264_HP_LEVEL_4_2_3D,
    MPEG4_AVC_H264_STEREO_HP_LEVEL_4_2,
    JPIP_REFERENCED,
    JPIP_REFERENCED_DEFLATE,
    PRIVATE_SYNTAX_1,
    PRIVATE_SYNTAX_2,
};
static_assert(std::size(kUidOrder) == std::size(kSyntaxes));

struct PrivateKeys {
  VX_BOOL_KEY explicit_vr;
  VX_BOOL_KEY little_endian;
  VX_BOOL_KEY encapsulated;
};
constexpr PrivateKeys kPrivateKeys[] = {
    {VX_CFG_PRIVATE_SYNTAX_1_EXPLICIT_VR, VX_CFG_PRIVATE_SYNTAX_1_LITTLE_ENDIAN,
     VX_CFG_PRIVATE_SYNTAX_1_ENCAPSULATED},
    {VX_CFG_PRIVATE_SYNTAX_2_EXPLICIT_VR, VX_CFG_PRIVATE_SYNTAX_2_LITTLE_ENDIAN,
     VX_CFG_PRIVATE_SYNTAX_2_ENCAPSULATED},
};

const SyntaxRow* find_row(VX_TRANSFER_SYNTAX syntax) {
  return syntax >= kFirst && syntax <= kLast ? &kSyntaxes[syntax - kFirst] : nullptr;
}
const LaterSyntaxRow* find_later(VX_TRANSFER_SYNTAX syntax) {
  const int64_t index = int64_t{syntax} - kFirstLater;
  return index >= 0 && index < std::ssize(kLaterSyntaxes) ? &kLaterSyntaxes[index] : nullptr;
}
// Of a syntax whose UID is no setting; empty for others.
std::string_view fixed_uid(VX_TRANSFER_SYNTAX syntax) {
  const LaterSyntaxRow* row = find_later(syntax);
  return row != nullptr ? row->uid : added_syntax_uid(syntax);
}

}  // namespace

bool is_transfer_syntax(VX_TRANSFER_SYNTAX syntax) {
  return find_row(syntax) != nullptr || find_later(syntax) != nullptr;
}

VX_STATUS syntax_encoding(VX_TRANSFER_SYNTAX syntax, Encoding& encoding) {
  const SyntaxRow* row = find_row(syntax);
  if (row == nullptr && !fixed_uid(syntax).empty()) {
    encoding = Encoding{syntax, false, true, true};
    return kOk;
  }
  if (row == nullptr) {
    encoding = Encoding{IMPLICIT_LITTLE_ENDIAN, false, false, false};
    return VX_INVALID_TRANSFER_SYNTAX;
  }
  if (row->explicit_vr == kByKey) {
    const PrivateKeys& keys = kPrivateKeys[syntax - PRIVATE_SYNTAX_1];
    encoding = Encoding{syntax, !config_bool(keys.little_endian), config_bool(keys.explicit_vr),
                        config_bool(keys.encapsulated)};
  } else {
    encoding = Encoding{syntax, row->big_endian == kYes, row->explicit_vr == kYes, row->encapsulated == kYes};
  }
  return kOk;
}

std::size_t syntax_uid(VX_TRANSFER_SYNTAX syntax, char* buffer, std::size_t size) {
  const SyntaxRow* row = find_row(syntax);
  if (row != nullptr) return config_text(row->uid, buffer, size);
  const std::string_view uid = fixed_uid(syntax);
  copy_text(buffer, size, uid);
  return uid.size();
}

const char* syntax_display_name(VX_TRANSFER_SYNTAX syntax) {
  if (const SyntaxRow* row = find_row(syntax); row != nullptr) return row->display;
  const LaterSyntaxRow* later = find_later(syntax);
  return later != nullptr ? later->display : "";
}

VX_STATUS syntax_from_uid(std::string_view uid, VX_TRANSFER_SYNTAX& syntax) {
  constexpr std::string_view kPadding(" \0", 2);
  uid = uid.substr(0, uid.find_last_not_of(kPadding) + 1);
  syntax = IMPLICIT_LITTLE_ENDIAN;
  const Guard guard(state().charParamSemaphore);
  const ConfigRecord& record = config();
  for (const VX_TRANSFER_SYNTAX candidate : kUidOrder) {
    if (!equals_ignoring_case(uid, record.string_values[find_row(candidate)->uid])) continue;
    syntax = candidate;
    return kOk;
  }
  for (const LaterSyntaxRow& row : kLaterSyntaxes) {
    if (uid != row.uid) continue;
    syntax = row.syntax;
    return kOk;
  }
  if (const VX_TRANSFER_SYNTAX added = find_added_syntax(uid); added != 0) {
    syntax = added;
    return kOk;
  }
  return VX_INVALID_TRANSFER_SYNTAX;
}

VX_STATUS syntax_from_name(std::string_view name, VX_TRANSFER_SYNTAX& syntax) {
  for (const SyntaxRow& row : kSyntaxes) {
    if (!equals_ignoring_case(name, row.name)) continue;
    syntax = row.syntax;
    return kOk;
  }
  for (const LaterSyntaxRow& row : kLaterSyntaxes) {
    if (!equals_ignoring_case(name, row.name)) continue;
    syntax = row.syntax;
    return kOk;
  }
  syntax = 0;
  return VX_INVALID_TRANSFER_SYNTAX;
}

}  // namespace vx
