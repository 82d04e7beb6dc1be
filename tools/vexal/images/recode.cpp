#include "recode.h"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#include "base/names.h"
#include "base/session.h"
#include "base/tag_path.h"
#include "base/uid.h"
#include "base/values.h"
#include "derivation.h"
#include "frame_crew.h"

namespace vexal {
namespace {

constexpr uint32_t kUndefined = 0xFFFFFFFF;
constexpr std::size_t kPiece = 256 * 1024;

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
};
// Transfer syntaxes that the library does not know, whose frames one of its codecs takes apart.
struct Decodable {
  const char* uid;
  VX_TRANSFER_SYNTAX decoder;
};
constexpr Decodable kDecodable[] = {
    {"1.2.840.10008.1.2.4.201", JPEG_2000},  // high throughput: other coding of the same blocks
    {"1.2.840.10008.1.2.4.202", JPEG_2000},
    {"1.2.840.10008.1.2.4.203", JPEG_2000},
};
const Coding* coding_of(VX_TRANSFER_SYNTAX syntax) {
  const auto* found = std::find_if(std::begin(kCodings), std::end(kCodings),
                                   [&](const Coding& row) { return row.syntax == syntax; });
  return found != std::end(kCodings) ? found : nullptr;
}
// What codecs look at, or say about their work.
constexpr uint32_t kImageTags[] = {0x00080008, 0x00082111, 0x00280002, 0x00280004, 0x00280006, 0x00280010,
                                   0x00280011, 0x00280100, 0x00280101, 0x00280102, 0x00280103, 0x00282110,
                                   0x00282112, 0x00282114, 0x00480006, 0x00480007};
constexpr uint32_t kDescriptionTag = 0x00082111;
constexpr uint32_t kLossyTag = 0x00282110;
constexpr uint32_t kRatioTag = 0x00282112;
constexpr uint32_t kMethodTag = 0x00282114;
// A transfer syntax that the library does not know; the frames of most segmentations fit it well.
constexpr char kDeflatedFrames[] = "1.2.840.10008.1.2.8.1";
// Tables of encapsulated data that are made for one form of it.
constexpr uint32_t kFormTags[] = {0x7FE00001, 0x7FE00002, 0x7FE00003};

uint64_t number(const std::string& text) {
  return std::strtoull(text.c_str(), nullptr, 10);
}

// The syntax whose codec takes frames apart; 0 if none does.
VX_TRANSFER_SYNTAX decoder_of(VX_TRANSFER_SYNTAX syntax) {
  if (coding_of(syntax) != nullptr) return syntax;
  const std::string uid = uid_of_syntax(syntax);
  const auto* found = std::find_if(std::begin(kDecodable), std::end(kDecodable),
                                   [&](const Decodable& row) { return uid == row.uid; });
  return found != std::end(kDecodable) ? found->decoder : 0;
}

// Why frames of this form can not be decompressed; empty if they can.
std::string decompression_fault(const FrameForm& form) {
  if (!form.decompresses() || form.decoder != 0) return "";
  const std::string uid = uid_of_syntax(form.from);
  return "its pixel data is compressed in a way that this program can not undo" +
         (uid.empty() ? "; its transfer syntax is not known" : ": " + describe_uid(uid));
}

bool is_cosine(VX_TRANSFER_SYNTAX syntax) {
  return syntax == JPEG_BASELINE || syntax == JPEG_EXTENDED_2_4;
}

// What one more lossy step says stands behind what earlier ones said (PS3.3 section C.7.6.1.1.5).
std::string behind(const std::string& before, const char* separator, const std::string& text) {
  return before.empty() ? text : before + separator + text;
}

bool has_compressed_pixels(const DicomFile& file, int32_t item) {
  if (VX_Get_Attribute_Info(item, kPixelData, nullptr, nullptr) != VX_NORMAL_COMPLETION) return false;
  if (const KeptValue* kept = file.kept(item, kPixelData); kept != nullptr) return kept->length == kUndefined;
  VX_TRANSFER_SYNTAX syntax = 0;
  return VX_Get_Message_Transfer_Syntax(item, &syntax) == VX_NORMAL_COMPLETION && !is_uncompressed(syntax);
}

// An icon without its compression, which is right in every transfer syntax (PS3.5 section A.4).
std::string decompress_icon(const DicomFile& file, int32_t item, const FrameForm& image) {
  FrameSource source;
  if (std::string problem = source.open(file, item, file.syntax()); !problem.empty()) return problem;
  FrameForm form(file.syntax(), EXPLICIT_LITTLE_ENDIAN);
  form.notes = image.notes;
  form.read(item);
  FrameWorker worker(source, form);
  Bytes pixels;
  if (std::string problem = worker.convert(0, pixels); !problem.empty()) return problem;
  for (const uint32_t tag : kImageTags) {
    const std::string text = all_text_of(worker.result(), tag);
    if (text != form.stored_text(tag)) set_all_text(item, tag, text);
  }
  VX_Delete_Attribute(item, kPixelData);
  const VX_STATUS status =
      VX_Set_Value_From_Buffer(item, kPixelData, pixels.data(), static_cast<uint32_t>(pixels.size()));
  VX_Set_Value_Representation(item, kPixelData, number(form.text(0x00280100)) > 8 ? VX_VR_OW : VX_VR_OB);
  VX_Set_Message_Transfer_Syntax(item, EXPLICIT_LITTLE_ENDIAN);
  return status == VX_NORMAL_COMPLETION ? "" : VX_Error_Message(status);
}

// Those in the items of an object, at any depth.
std::string decompress_icons(const DicomFile& file, int32_t object, const FrameForm& image, int depth) {
  uint32_t tag = 0;
  VX_VR vr = 0;
  std::vector<uint32_t> sequences;
  for (VX_STATUS status = VX_Get_First_Attribute(object, &tag, &vr, nullptr); status == VX_NORMAL_COMPLETION;
       status = VX_Get_Next_Attribute(object, &tag, &vr, nullptr)) {
    if (vr == VX_VR_SQ && depth < 128) sequences.push_back(tag);
  }
  std::string problem;
  for (const uint32_t sequence : sequences) {
    for (const int32_t item : sequence_items(object, sequence)) {
      if (has_compressed_pixels(file, item)) problem = decompress_icon(file, item, image);
      if (problem.empty()) problem = decompress_icons(file, item, image, depth + 1);
      if (!problem.empty()) return problem;
    }
  }
  return "";
}

}  // namespace

FrameForm::FrameForm(VX_TRANSFER_SYNTAX source, VX_TRANSFER_SYNTAX target)
    : from(source),
      to(target),
      decoder(decoder_of(source)),
      inflates(uid_of_syntax(source) == kDeflatedFrames) {}

void FrameForm::read(int32_t object) {
  VX_Get_Attribute_Info(object, kPixelData, &vr, nullptr);
  for (const uint32_t tag : kImageTags) {
    if (std::string text = all_text_of(object, tag); !text.empty()) stored.emplace_back(tag, text);
  }
  attributes = stored;
  if (!has_half_colour()) return;
  // The library makes RGB of half colour that its own cosine codecs wrote. What others did comes as it is,
  // but whole; so does what is to be compressed without loss.
  char format[16] = "";
  VX_Get_String_Config_Value(VX_CFG_COMPRESSION_RGB_TRANSFORM_FORMAT, sizeof format, format);
  const bool becomes_rgb = is_cosine(from) && std::string_view(format) == "YBR_FULL_422";
  unpacks = is_uncompressed(from) && compresses() && !is_cosine(to);
  if (unpacks || (decompresses() && !becomes_rgb)) relabel("YBR_FULL");
}

void FrameForm::relabel(const char* photometric) {
  for (auto& [tag, text] : attributes) {
    if (tag == kPhotometric) text = photometric;
  }
}

bool FrameForm::has_half_colour() const {
  return text(kPhotometric).starts_with("YBR_FULL_422");
}

uint64_t FrameForm::image_bits() const {
  // Two pixels share their colour where that is not yet compressed (PS3.3 section C.7.6.3.1.2).
  const bool packed = !decompresses() && has_half_colour();
  const auto value = [this](uint32_t tag) { return std::min<uint64_t>(number(text(tag)), UINT16_MAX); };
  return value(0x00280010) * value(0x00280011) * (packed ? 2 : value(0x00280002)) * value(0x00280100);
}

namespace {

std::string find_text(const FrameForm::Attributes& attributes, uint32_t tag) {
  for (const auto& [known, text] : attributes) {
    if (known == tag) return text;
  }
  return "";
}

}  // namespace

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

// The room of one frame serves the next, on whichever thread: frames are large, and giving it back to the
// system and taking it again costs more than a fast codec.
void prepare_recoding() {
  ::mallopt(M_MMAP_THRESHOLD, 32 << 20);
  ::mallopt(M_TRIM_THRESHOLD, 64 << 20);
  ::mallopt(M_ARENA_MAX, 1);
  prepare_temp_folder();
}

VX_COMPRESSION_CALLBACK compressor_of(VX_TRANSFER_SYNTAX syntax) {
  const Coding* coding = coding_of(syntax);
  return coding != nullptr ? coding->compressor : nullptr;
}

bool can_decompress(VX_TRANSFER_SYNTAX syntax) {
  return decoder_of(syntax) != 0;
}

bool is_lossy(VX_TRANSFER_SYNTAX syntax) {
  int32_t lossy = 0;
  VX_Get_Bool_Config_Value(VX_CFG_COMPRESSION_WHEN_J2K_USE_LOSSY, &lossy);
  return syntax == JPEG_BASELINE || syntax == JPEG_EXTENDED_2_4 || syntax == JPEG_LS_LOSSY ||
         (syntax == JPEG_2000 && lossy != 0);
}

FrameDecoder::FrameDecoder() = default;
FrameDecoder::~FrameDecoder() = default;

std::string FrameDecoder::open(const DicomFile& file) {
  form_ = FrameForm(file.syntax(), EXPLICIT_LITTLE_ENDIAN);
  if (std::string problem = source_.open(file, file.id(), form_.from); !problem.empty()) return problem;
  form_.read(file.id());
  if (form_.decompresses() && form_.has_half_colour()) form_.relabel("YBR_FULL");
  fault_ = decompression_fault(form_);
  if (fault_.empty()) worker_ = std::make_unique<FrameWorker>(source_, form_);
  return "";
}

std::string FrameDecoder::frame(uint32_t number, Bytes& bytes) try {
  if (!fault_.empty()) return fault_;
  if (number >= source_.count()) return "there is no such frame";
  if (form_.inflates) return worker_->convert(number, bytes);
  return worker_->decompress(number, &bytes, FrameWorker::append);
} catch (const std::bad_alloc&) {
  return kNoMemory;
}

std::string FrameDecoder::code_stream(uint32_t number, Bytes& bytes) const {
  return number < source_.count() ? source_.read(number, bytes) : "there is no such frame";
}

RecodedPixels::RecodedPixels() = default;

RecodedPixels::~RecodedPixels() {
  if (application_ >= 0) VX_Release_Application(&application_);
}

bool RecodedPixels::needed(const DicomFile& file, VX_TRANSFER_SYNTAX target) {
  return VX_Get_Attribute_Info(file.id(), kPixelData, nullptr, nullptr) == VX_NORMAL_COMPLETION &&
         file.syntax() != target && !(is_uncompressed(file.syntax()) && is_uncompressed(target));
}

std::string RecodedPixels::attach(DicomFile& file, VX_TRANSFER_SYNTAX target, unsigned threads,
                                  When when) try {
  VX_Set_Bool_Config_Value(VX_CFG_UPDATE_GROUP_0028_ON_DUPLICATE, 1);
  form_ = FrameForm(file.syntax(), target);
  threads_ = threads;
  path_ = file.path();
  if (std::string fault = decompression_fault(form_); !fault.empty()) return fault;
  if (form_.compresses() && compressor_of(target) == nullptr)
    return "there is no compressor for this transfer syntax";
  if (std::string problem = source_.open(file, file.id(), form_.from); !problem.empty()) return problem;
  form_.read(file.id());
  // PS3.3 section C.7.6.3.1: Columns of such an image are even. Some writers pad each row, others let pairs
  // run on.
  if (!form_.decompresses() && form_.stored_text(kPhotometric).starts_with("YBR_FULL_422") &&
      number(form_.text(0x00280011)) % 2 != 0)
    return "its pixels share their colour in pairs (YBR_FULL_422) and its number of columns is odd: where "
           "its rows end is not known";
  joins_ = !form_.compresses() && number(form_.text(0x00280100)) == 1 && form_.image_bits() % 8 != 0 &&
           source_.count() > 1;
  conveyor_ = nullptr;
  if (form_.decompresses()) {
    if (std::string problem = decompress_icons(file, file.id(), form_, 0); !problem.empty()) return problem;
  }
  if (std::string problem = convert_first(); !problem.empty()) return problem;
  late_table_ = when == When::AsWritten && fits_late_table();
  if ((form_.compresses() && !late_table_) || when == When::Ahead) {
    if (std::string problem = convert_all(); !problem.empty()) return problem;
  }
  return bring_in_line(file);
} catch (const std::bad_alloc&) {
  return kNoMemory;
}

// What the codecs change in its object holds for the whole.
std::string RecodedPixels::convert_first() {
  FrameWorker worker(source_, form_);
  const std::string problem = worker.convert(0, first_frame_);
  if (!problem.empty()) return source_.count() == 1 ? problem : "frame 1: " + problem;
  for (const uint32_t tag : kImageTags) {
    if (worker.result() < 0) break;
    const std::string text = all_text_of(worker.result(), tag);
    if (tag == kMethodTag) method_ = text;
    if (tag == kDescriptionTag) description_ = text;
    if (text != form_.stored_text(tag)) changes_.emplace_back(tag, text);
  }
  form_.compresses_alone = form_.compresses() && !form_.decompresses() && !is_lossy(form_.to) &&
                           changes_.empty() && form_.image_bits() % 16 == 0;
  return "";
}

// Compressed frames go right into the file and their offsets later, if nothing in front of them depends on
// their size, all offsets will fit, and the first piece is large enough to reach the file in one block.
bool RecodedPixels::fits_late_table() const {
  int32_t buffer = 0;
  VX_Get_Int_Config_Value(VX_CFG_WORK_BUFFER_SIZE, &buffer);
  return form_.compresses() && !is_lossy(form_.to) && source_.count() > 1 &&
         first_frame_.size() > std::max(65536U, static_cast<uint32_t>(buffer)) &&
         form_.image_bits() / 8 * source_.count() < (uint64_t{1} << 31);
}

std::string RecodedPixels::convert_all() {
  frame_bytes_ = first_frame_.size();
  std::string problem = store(first_frame_, 0);
  Bytes().swap(first_frame_);
  if (problem.empty() && source_.count() > 1) {
    FrameCrew crew(source_, form_, path_, threads_);
    problem =
        crew.hand_to([this](uint32_t number, const Bytes& frame, auto&) { return store(frame, number); });
  }
  spilled_ = true;
  return problem;
}

// One more frame behind the others.
std::string RecodedPixels::store(const Bytes& frame, uint32_t number) {
  if (form_.compresses()) {
    offsets_.push_back(static_cast<uint32_t>(spill_.size()));
    if (spill_.size() > kUndefined) offsets_.clear();
  } else if (!has_right_size(frame, number)) {
    return kOtherSize;
  }
  if (!joins_) return spill_.append(frame.data(), frame.size());
  joined_.clear();
  joiner_.add(frame, form_.image_bits(), number + 1 == source_.count(), joined_);
  return spill_.append(joined_.data(), joined_.size());
}

bool RecodedPixels::has_right_size(const Bytes& frame, uint32_t number) const {
  if (joins_) return frame.size() >= (form_.image_bits() + 7) / 8;
  const uint64_t pad = number + 1 == source_.count() ? frame_bytes_ * source_.count() % 2 : 0;
  return frame.size() == frame_bytes_ + (number == 0 ? 0 : pad);
}

std::string RecodedPixels::bring_in_line(DicomFile& file) {
  const int32_t id = file.id();
  const uint64_t bits = number(form_.text(0x00280100));
  const uint64_t image_bits = form_.image_bits();
  const bool lossy = is_lossy(form_.to) && (form_.to != JPEG_LS_LOSSY || form_.notes->lost);
  if (!form_.compresses()) {
    if (!spilled_) frame_bytes_ = first_frame_.size();
    length_ = joins_ ? (image_bits * source_.count() + 7) / 8 : frame_bytes_ * source_.count();
    if (length_ > kUndefined - 2) return "its pixel data would have more than 4 GiB";
  }
  for (const auto& [tag, text] : changes_) set_all_text(id, tag, text);
  if (lossy) {
    if (std::string problem = tell_of_loss(id); !problem.empty()) return problem;
  }
  for (const uint32_t tag : kFormTags) VX_Delete_Attribute(id, tag);
  VX_Set_Value_To_Empty(id, kPixelData);
  VX_Set_Value_Representation(id, kPixelData, form_.compresses() || bits <= 8 ? VX_VR_OB : VX_VR_OW);
  static std::atomic<uint32_t> counter{0};
  VX_STATUS status =
      VX_Register_Application(&application_, ("RECODE_" + std::to_string(counter.fetch_add(1))).c_str());
  if (status == VX_NORMAL_COMPLETION)
    status = VX_Register_Callback_Function(application_, kPixelData, this, callback);
  if (status == VX_NORMAL_COMPLETION) status = VX_Set_Message_Callbacks(application_, id);
  return status == VX_NORMAL_COMPLETION ? "" : VX_Error_Message(status);
}

// In the object of a lossy copy, which is another instance.
std::string RecodedPixels::tell_of_loss(int32_t id) const {
  constexpr std::size_t kMostDescription = 1024;
  const bool near = form_.to == JPEG_LS_LOSSY;
  char ratio[48];
  const double size = static_cast<double>(head().size() + spill_.size());
  std::snprintf(ratio, sizeof ratio, "%.2f",
                static_cast<double>(form_.image_bits() / 8 * source_.count()) / size);
  set_all_text(id, kLossyTag, "01");
  set_all_text(id, kMethodTag, behind(form_.stored_text(kMethodTag), "\\", near ? "ISO_14495_1" : method_));
  set_all_text(id, kRatioTag, behind(form_.stored_text(kRatioTag), "\\", ratio));
  const std::string description = behind(form_.stored_text(kDescriptionTag), "; ", description_);
  if (!near && description.size() <= kMostDescription) set_all_text(id, kDescriptionTag, description);
  if (!add_derivation(id, form_.decompresses())) return "can not add what it was made from";
  const std::string uid = new_uid();
  set_all_text(id, 0x00080018, uid);
  set_all_text(id, 0x00020003, uid);
  return "";
}

std::string RecodedPixels::finding() const {
  if (const uint32_t cut = form_.notes->cut_short; cut != 0) return tell_of_cuts(cut);
  if (source_.surplus() == 0) return "";
  return std::to_string(source_.surplus()) + " bytes behind its last frame are left out";
}

std::string tell_of_cuts(uint32_t frames) {
  return std::to_string(frames) + (frames == 1 ? " frame is" : " frames are") +
         " cut short: the end of its code stream is missing, and what that had of the image was filled up";
}

VX_STATUS RecodedPixels::callback(int32_t, uint32_t, void* user, VX_CALLBACK_REQUEST request, uint32_t* size,
                                  void** data, int32_t first, int32_t* last) {
  auto& pixels = *static_cast<RecodedPixels*>(user);
  switch (request) {
    case VX_REQUEST_LENGTH:
      *size =
          pixels.form_.compresses() ? kUndefined : static_cast<uint32_t>(pixels.length_ + pixels.length_ % 2);
      return VX_NORMAL_COMPLETION;
    case VX_REQUEST_DATA: {
      bool ended = false;
      if (!pixels.next_piece(first != 0, ended)) return VX_CANNOT_COMPLY;
      *size = static_cast<uint32_t>(pixels.piece_.size());
      *data = pixels.piece_.data();
      *last = ended ? 1 : 0;
      return VX_NORMAL_COMPLETION;
    }
    case VX_FREE_DATA:
      return VX_NORMAL_COMPLETION;
    default:
      return VX_CANNOT_COMPLY;
  }
}

// What stands in front of the frames: the offset table, where it can tell their places.
std::string RecodedPixels::head() const {
  std::string item;
  if (!form_.compresses()) return item;
  int32_t wanted = 0;
  VX_Get_Bool_Config_Value(VX_CFG_CREATE_OFFSET_TABLE, &wanted);
  const bool fits = wanted != 0 && offsets_.size() == source_.count();
  append32(item, kItem);
  append32(item, fits ? static_cast<uint32_t>(4 * offsets_.size()) : 0);
  if (fits) item.append(reinterpret_cast<const char*>(offsets_.data()), 4 * offsets_.size());
  return item;
}

bool RecodedPixels::next_piece(bool first, bool& ended) {
  if (first) {
    given_ = 0;
    frame_ = 0;
    conveyor_ = nullptr;
    placed_ = false;
    joiner_ = {};
  }
  if (spilled_) return next_of_spill(first, ended);
  const uint32_t number = frame_++;
  ended = frame_ == source_.count();
  if (number == 1 && can_place()) return place_others(ended);
  if (placed_) return true;  // the piece stands for one more frame
  if (number == 0 && !first_frame_.empty()) {
    piece_.swap(first_frame_);
    Bytes().swap(first_frame_);
  } else {
    if (conveyor_ == nullptr)
      conveyor_ = std::make_unique<FrameConveyor>(source_, form_, number, threads_, path_);
    problem_ = conveyor_->next(piece_);
    if (problem_.empty() && !form_.compresses() && !has_right_size(piece_, number)) problem_ = kOtherSize;
    if (!problem_.empty()) return false;
  }
  if (joins_) {
    joined_.clear();
    joiner_.add(piece_, form_.image_bits(), ended, joined_);
    piece_.swap(joined_);
    if (piece_.empty() && !ended) return next_piece(false, ended);  // a frame of a few bits
    if (ended && length_ % 2 != 0) piece_.append("", 1);
    return true;
  }
  if (form_.compresses()) note_item(number);
  if (number == 0 && sink_ != nullptr) sink_->watch(piece_.data());
  return true;
}

// The offset table stands in front of the first item.
void RecodedPixels::note_item(uint32_t number) {
  if (number == 0) offsets_.assign(source_.count(), 0);
  offsets_[number] = static_cast<uint32_t>(given_);
  given_ += piece_.size();
  if (number != 0) return;
  const std::string table = head();
  Bytes both;
  both.append(table.data(), table.size());
  both.append(piece_.data(), piece_.size());
  piece_.swap(both);
}

// The library hands on large pieces as they are if they do not begin or end in the middle of two bytes.
bool RecodedPixels::can_place() const {
  return sink_ != nullptr && sink_->found_watched() && (form_.compresses() || frame_bytes_ % 2 == 0);
}

// The first frame has gone right into the file, so that the places of the others are known: each thread
// writes its own. What the library gets of raw ones just counts; items need not even be counted.
bool RecodedPixels::place_others(bool& ended) {
  if (!sink_->flush()) return false;
  FrameCrew crew(source_, form_, path_, threads_);
  const uint64_t first_end = piece_.size();
  const uint64_t head_size = first_end - given_;
  uint64_t end = first_end;
  std::string problem;
  if (form_.compresses()) {
    problem = crew.hand_to([&](uint32_t number, const Bytes& item, std::unique_lock<std::mutex>& lock) {
      const uint64_t at = end;
      end += item.size();
      offsets_[number] = static_cast<uint32_t>(at - head_size);
      lock.unlock();
      std::string failure = sink_->patch(at, item.data(), item.size());
      lock.lock();
      return failure;
    });
    ended = true;
    piece_.clear();
  } else {
    problem = crew.place_raw(*sink_, frame_bytes_);
    sink_->leave_out(piece_.data());
    placed_ = true;
  }
  if (!problem.empty()) {
    if (sink_->problem().empty()) problem_ = problem;
    return false;
  }
  return placed_ || sink_->skip(end - first_end);
}

std::string RecodedPixels::write(const DicomFile& file, FileSink& sink, int32_t pad) {
  sink_ = &sink;
  const VX_STATUS status = VX_Write_File(file.id(), pad, &sink, FileSink::file_output);
  sink_ = nullptr;
  if (!problem_.empty()) return problem_;
  if (status == VX_NORMAL_COMPLETION) {
    // Its bytes are there, wherever the library would have put what it got in their place.
    if (placed_ && sink.skipped() != length_ - frame_bytes_) return "its frames lie elsewhere";
    if (!late_table_) return "";
    const std::string table = head();
    return sink.flush() ? sink.patch(0, table.data(), table.size()) : sink.problem();
  }
  const std::string problem = sink.problem();
  return problem.empty() ? std::string("can not write it: ") + VX_Error_Message(status) : problem;
}

bool RecodedPixels::next_of_spill(bool first, bool& ended) {
  const std::string table = first ? head() : "";
  piece_.clear();
  piece_.append(table.data(), table.size());
  const auto size = static_cast<std::size_t>(std::min<uint64_t>(kPiece, spill_.size() - given_));
  piece_.resize(table.size() + size);
  if (!spill_.read_at(given_, piece_.data() + table.size(), size)) {
    problem_ = "can not read what was laid down for it";
    return false;
  }
  given_ += size;
  ended = given_ == spill_.size();
  return true;
}

}  // namespace vexal
