#include "frame_form.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "base/names.h"
#include "base/session.h"
#include "base/tags.h"
#include "base/values.h"

namespace vexal {
namespace {

struct SyntaxName {
  const char* name;
  VX_TRANSFER_SYNTAX syntax;
};
constexpr SyntaxName kNames[] = {
    {"implicit", IMPLICIT_LITTLE_ENDIAN},
    {"implicit_little_endian", IMPLICIT_LITTLE_ENDIAN},
    {"explicit", EXPLICIT_LITTLE_ENDIAN},
    {"little-endian", EXPLICIT_LITTLE_ENDIAN},
    {"explicit_little_endian", EXPLICIT_LITTLE_ENDIAN},
    {"big-endian", EXPLICIT_BIG_ENDIAN},
    {"explicit_big_endian", EXPLICIT_BIG_ENDIAN},
    {"deflated", DEFLATED_EXPLICIT_LITTLE_ENDIAN},
    {"deflated_explicit_little_endian", DEFLATED_EXPLICIT_LITTLE_ENDIAN},
    {"rle", RLE},
    {"jpeg", JPEG_BASELINE},
    {"jpeg-12", JPEG_EXTENDED_2_4},
    {"jpeg-lossless", JPEG_LOSSLESS_HIER_14},
    {"jpeg-ls", JPEG_LS_LOSSLESS},
    {"jpeg-ls-near", JPEG_LS_LOSSY},
    {"jpeg2000", JPEG_2000_LOSSLESS_ONLY},
    {"jpeg2000-lossy", JPEG_2000},
    {"htj2k", HTJ2K_LOSSLESS},
    {"htj2k-rpcl", HTJ2K_LOSSLESS_RPCL},
    {"htj2k-lossy", HTJ2K},
    {"encapsulated", ENCAPSULATED_UNCOMPRESSED},
    {"deflated-frames", DEFLATED_IMAGE_FRAMES},
    {"jpeg-xl", JPEG_XL_LOSSLESS},
    {"jpeg-xl-recompressed", JPEG_XL_RECOMPRESSION},
    {"jpeg-xl-lossy", JPEG_XL},
};

// What the program can do with a compressed syntax. Every one that it knows can be decompressed.
struct Coding {
  VX_TRANSFER_SYNTAX syntax;
  VX_COMPRESSION_CALLBACK compressor;  // null: none
};
constexpr Coding kCodings[] = {
    {RLE, VX_General_Compressor},
    {JPEG_BASELINE, VX_General_Compressor},
    {JPEG_EXTENDED_2_4, VX_General_Compressor},
    {JPEG_SPEC_NON_HIER_6_8, nullptr},
    {JPEG_FULL_PROG_NON_HIER_10_12, nullptr},
    {JPEG_LOSSLESS_NON_HIER_14, nullptr},
    {JPEG_LOSSLESS_HIER_14, VX_General_Compressor},
    {JPEG_LS_LOSSLESS, VX_General_Compressor},
    {JPEG_LS_LOSSY, VX_General_Compressor},
    {JPEG_2000_LOSSLESS_ONLY, VX_General_Compressor},
    {JPEG_2000, VX_General_Compressor},
    {JPEG_2000_MC_LOSSLESS_ONLY, nullptr},
    {JPEG_2000_MC, nullptr},
    {HTJ2K_LOSSLESS, VX_General_Compressor},
    {HTJ2K_LOSSLESS_RPCL, VX_General_Compressor},
    {HTJ2K, VX_General_Compressor},
    {ENCAPSULATED_UNCOMPRESSED, VX_General_Compressor},
    {DEFLATED_IMAGE_FRAMES, VX_General_Compressor},
    {JPEG_XL_LOSSLESS, VX_General_Compressor},
    {JPEG_XL_RECOMPRESSION, nullptr},  // of JPEG streams only
    {JPEG_XL, VX_General_Compressor},
};
const Coding* coding_of(VX_TRANSFER_SYNTAX syntax) {
  const auto* found = std::find_if(std::begin(kCodings), std::end(kCodings),
                                   [&](const Coding& row) { return row.syntax == syntax; });
  return found != std::end(kCodings) ? found : nullptr;
}
bool is_cosine(VX_TRANSFER_SYNTAX syntax) {
  return syntax == JPEG_BASELINE || syntax == JPEG_EXTENDED_2_4 || syntax == JPEG_XL_RECOMPRESSION;
}
// Their streams of 8 bits can be kept in JPEG XL.
bool is_jpeg(VX_TRANSFER_SYNTAX syntax) {
  return syntax == JPEG_BASELINE || syntax == JPEG_EXTENDED_2_4 || syntax == JPEG_SPEC_NON_HIER_6_8 ||
         syntax == JPEG_FULL_PROG_NON_HIER_10_12;
}

std::string find_text(const FrameForm::Attributes& attributes, uint32_t tag) {
  for (const auto& [known, text] : attributes) {
    if (known == tag) return text;
  }
  return "";
}

}  // namespace

void FrameForm::Notes::take_flaws() {
  const StreamFlaws flaws = take_stream_flaws();
  if (flaws.cut_short) ++cut_short;
  if (flaws.goes_on) ++going_on;
  if (flaws.damaged) ++damaged;
}

std::string FrameForm::Notes::told() const {
  std::string text;
  const auto add = [&text](const std::string& more) { text += (text.empty() ? "" : "; ") + more; };
  const auto frames = [](uint32_t count, const char* one, const char* several) {
    return std::to_string(count) + (count == 1 ? one : several);
  };
  if (const uint32_t count = cut_short; count != 0)
    add(frames(count, " frame is", " frames are") +
        " cut short: the end of its code stream is missing, and what that had of the image was filled up");
  if (const uint32_t count = damaged; count != 0)
    add(frames(count, " frame is", " frames are") +
        " damaged: markers stand among the data of the image, part of which is wrong");
  if (const uint32_t count = going_on; count != 0)
    add(frames(count, " frame has", " frames have") +
        " bytes behind the end of its code stream, which are left out");
  if (!corrected.empty()) add("its attributes contradict its code streams, by which " + corrected);
  return text;
}

uint64_t number_in(const std::string& text) {
  return std::strtoull(text.c_str(), nullptr, 10);
}

std::string decompression_fault(const FrameForm& form) {
  if (!form.decompresses() || form.decodable) return "";
  const std::string uid = uid_of_syntax(form.from);
  return "its pixel data is compressed in a way that this program can not undo" +
         (uid.empty() ? "; its transfer syntax is not known" : ": " + describe_uid(uid));
}

bool keeps_jpeg_streams(VX_TRANSFER_SYNTAX from, VX_TRANSFER_SYNTAX to) {
  return (is_jpeg(from) && to == JPEG_XL_RECOMPRESSION) || (from == JPEG_XL_RECOMPRESSION && is_jpeg(to));
}

FrameForm::FrameForm(VX_TRANSFER_SYNTAX source, VX_TRANSFER_SYNTAX target)
    : from(source),
      to(target),
      decodable(can_decompress(source)),
      keeps_streams(keeps_jpeg_streams(source, target)),
      unwraps(holds_native_frames(source)) {}

void FrameForm::read(int32_t object, const FrameSource& source) {
  VX_Get_Attribute_Info(object, tags::kPixelData, &vr, nullptr);
  for (const uint32_t tag : kImageTags) {
    if (std::string text = all_text_of(object, tag); !text.empty()) stored.emplace_back(tag, text);
  }
  attributes = stored;
  if (decompresses() && !keeps_streams) head = describe_frame(source, from, 0);
  tile = number_in(text(tags::kTotalPixelMatrixColumns)) != 0 && (!head || fits_tile(*head));
  if (head) notes->corrected = follow_stream(from, *head, tile, attributes);
  if (!has_half_colour() || keeps_streams) return;
  // The library makes RGB of half colour that its own cosine codecs wrote. What others did comes as it is,
  // but whole; so does what is to be compressed without loss.
  char format[16] = "";
  VX_Get_String_Config_Value(VX_CFG_COMPRESSION_RGB_TRANSFORM_FORMAT, sizeof format, format);
  const bool becomes_rgb = is_cosine(from) && std::string_view(format) == "YBR_FULL_422";
  unpacks = !decompresses() && compresses() && !is_cosine(to) && !holds_native_frames(to);
  if (unpacks || (decompresses() && !becomes_rgb)) relabel("YBR_FULL");
}

std::string FrameForm::fault_of_stream(const void* data, std::size_t size) const {
  if (!head) return "";
  const std::optional<CodeStreamObj> stream = describe_stream(from, data, size);
  return stream ? fault_of_head(*stream) : "";
}

// The parts at the right and at the bottom need not be whole, but hold what the picture has there.
bool FrameForm::fits_tile(const CodeStreamObj& stream) const {
  const auto fits = [this](uint64_t own, uint32_t side_tag, uint32_t total_tag) {
    const uint64_t side = number_in(text(side_tag));
    const uint64_t rest = side == 0 ? 0 : number_in(text(total_tag)) % side;
    return own <= side && own >= (rest == 0 ? side : rest);
  };
  return fits(stream.Columns, tags::kColumns, tags::kTotalPixelMatrixColumns) &&
         fits(stream.Rows, tags::kRows, tags::kTotalPixelMatrixRows);
}

std::string FrameForm::fault_of_head(const CodeStreamObj& stream) const {
  return stream_fault(stream, *head, tile && fits_tile(stream));
}

void FrameForm::relabel(const char* photometric) {
  for (auto& [tag, text] : attributes) {
    if (tag == tags::kPhotometricInterpretation) text = photometric;
  }
}

bool FrameForm::has_half_colour() const {
  return text(tags::kPhotometricInterpretation).starts_with("YBR_FULL_422");
}

uint64_t FrameForm::image_bits() const {
  // Two pixels share their colour where that is not yet compressed (PS3.3 section C.7.6.3.1.2).
  const bool packed = !decompresses() && has_half_colour();
  const auto value = [this](uint32_t tag) { return std::min<uint64_t>(number_in(text(tag)), UINT16_MAX); };
  return value(tags::kRows) * value(tags::kColumns) * (packed ? 2 : value(tags::kSamplesPerPixel)) *
         value(tags::kBitsAllocated);
}

VX_COMPRESSION_CALLBACK FrameForm::compressor() const {
  return keeps_streams ? VX_General_Compressor : compressor_of(to);
}

bool FrameForm::loses() const {
  // JPEG XL knows no signs, and so the library compresses signed samples without loss.
  return is_lossy(to) && !keeps_streams &&
         (to != JPEG_XL || number_in(text(tags::kPixelRepresentation)) == 0);
}

std::string FrameForm::text(uint32_t tag) const {
  return find_text(attributes, tag);
}
std::string FrameForm::stored_text(uint32_t tag) const {
  return find_text(stored, tag);
}

bool find_syntax(const std::string& text, VX_TRANSFER_SYNTAX& syntax) {
  std::string name = text;
  std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
  for (const SyntaxName& row : kNames) {
    if (name != row.name) continue;
    syntax = row.syntax;
    // The syntax allows both, and the name says which.
    if (syntax == JPEG_2000) VX_Set_Bool_Config_Value(VX_CFG_COMPRESSION_WHEN_J2K_USE_LOSSY, 1);
    return true;
  }
  std::string uid = text;
  return !uid.empty() && VX_Get_Enum_From_Transfer_Syntax(uid.data(), &syntax) == VX_NORMAL_COMPLETION;
}

VX_COMPRESSION_CALLBACK compressor_of(VX_TRANSFER_SYNTAX syntax) {
  const Coding* coding = coding_of(syntax);
  return coding != nullptr ? coding->compressor : nullptr;
}

bool holds_native_frames(VX_TRANSFER_SYNTAX syntax) {
  return syntax == ENCAPSULATED_UNCOMPRESSED || syntax == DEFLATED_IMAGE_FRAMES;
}

bool can_decompress(VX_TRANSFER_SYNTAX syntax) {
  return coding_of(syntax) != nullptr;
}

bool is_lossy(VX_TRANSFER_SYNTAX syntax) {
  int32_t lossy = 0;
  VX_Get_Bool_Config_Value(VX_CFG_COMPRESSION_WHEN_J2K_USE_LOSSY, &lossy);
  int32_t quality = 0;
  VX_Get_Int_Config_Value(VX_CFG_COMPRESSION_QUALITY, &quality);
  return syntax == JPEG_BASELINE || syntax == JPEG_EXTENDED_2_4 || syntax == JPEG_LS_LOSSY ||
         syntax == HTJ2K || (syntax == JPEG_2000 && lossy != 0) || (syntax == JPEG_XL && quality < 100);
}

}  // namespace vexal
