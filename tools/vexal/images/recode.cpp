#include "recode.h"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <new>

#include "base/attributes.h"
#include "base/session.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/thrown.h"
#include "base/uid.h"
#include "base/values.h"
#include "derivation.h"
#include "frame_crew.h"

namespace vexal {
namespace {

constexpr std::size_t kPiece = 256 * 1024;

// Tables of encapsulated data that are made for one form of it.
constexpr uint32_t kFormTags[] = {tags::kExtendedOffsetTable, tags::kExtendedOffsetTableLengths,
                                  tags::kEncapsulatedPixelDataValueTotalLength};

// Values of pixels beside Pixel Data.
constexpr uint32_t kPixelValueTags[] = {tags::kSmallestImagePixelValue,    tags::kLargestImagePixelValue,
                                        tags::kSmallestPixelValueInSeries, tags::kLargestPixelValueInSeries,
                                        tags::kPixelPaddingValue,          tags::kPixelPaddingRangeLimit};

// What one more lossy step says stands behind what earlier ones said (PS3.3 section C.7.6.1.1.5).
std::string behind(const std::string& before, const char* separator, const std::string& text) {
  return before.empty() ? text : before + separator + text;
}

bool has_compressed_pixels(const DicomFile& file, int32_t item) {
  if (VX_Get_Attribute_Info(item, tags::kPixelData, nullptr, nullptr) != VX_NORMAL_COMPLETION) return false;
  if (const KeptValue* kept = file.kept(item, tags::kPixelData); kept != nullptr)
    return kept->length == kUndefinedLength;
  VX_TRANSFER_SYNTAX syntax = 0;
  return VX_Get_Message_Transfer_Syntax(item, &syntax) == VX_NORMAL_COMPLETION && !is_uncompressed(syntax);
}

// What the codecs, or the head of a code stream, say of an image, into its object.
void change_image(int32_t id, uint32_t tag, const std::string& text) {
  if (text.empty()) {
    VX_Delete_Attribute(id, tag);
    return;
  }
  set_all_text(id, tag, text);
  if (tag != tags::kPixelRepresentation) return;
  // Values of pixels have the sign of pixels (PS3.5 section 8.2).
  for (const uint32_t value : kPixelValueTags) {
    VX_VR vr = VX_VR_UN;
    if (VX_Get_Attribute_Info(id, value, &vr, nullptr) == VX_NORMAL_COMPLETION && vr == VX_VR_US)
      VX_Set_Value_Representation(id, value, VX_VR_SS);
  }
}

// An icon without its compression, which is right in every transfer syntax (PS3.5 section A.4).
std::string decompress_icon(const DicomFile& file, int32_t item, const FrameForm& image) {
  FrameSource source;
  if (std::string problem = source.open(file, item, file.syntax()); !problem.empty()) return problem;
  FrameForm form(file.syntax(), EXPLICIT_LITTLE_ENDIAN);
  form.notes = image.notes;
  form.read(item, source);
  FrameWorker worker(source, form);
  Bytes pixels;
  if (std::string problem = worker.convert(0, pixels); !problem.empty()) return problem;
  for (const uint32_t tag : kImageTags) {
    const std::string text = all_text_of(worker.result(), tag);
    if (text != form.stored_text(tag)) change_image(item, tag, text);
  }
  VX_Delete_Attribute(item, tags::kPixelData);
  const VX_STATUS status =
      VX_Set_Value_From_Buffer(item, tags::kPixelData, pixels.data(), static_cast<uint32_t>(pixels.size()));
  VX_Set_Value_Representation(item, tags::kPixelData,
                              number_in(form.text(tags::kBitsAllocated)) > 8 ? VX_VR_OW : VX_VR_OB);
  VX_Set_Message_Transfer_Syntax(item, EXPLICIT_LITTLE_ENDIAN);
  return status == VX_NORMAL_COMPLETION ? "" : VX_Error_Message(status);
}

// Those in the items of an object, at any depth.
std::string decompress_icons(const DicomFile& file, int32_t object, const FrameForm& image, int depth) {
  if (depth >= 128) return "";
  std::string problem;
  for (const uint32_t sequence : sequences_of(object)) {
    for (const int32_t item : sequence_items(object, sequence)) {
      if (has_compressed_pixels(file, item)) problem = decompress_icon(file, item, image);
      if (problem.empty()) problem = decompress_icons(file, item, image, depth + 1);
      if (!problem.empty()) return problem;
    }
  }
  return "";
}

// A piece of more bytes reaches the file in one block.
uint64_t largest_buffer() {
  int32_t buffer = 0;
  VX_Get_Int_Config_Value(VX_CFG_WORK_BUFFER_SIZE, &buffer);
  return static_cast<uint64_t>(std::max(65536, buffer));
}

}  // namespace

// The room of one frame serves the next, on whichever thread: frames are large, and giving it back to the
// system and taking it again costs more than a fast codec.
void prepare_recoding() {
  ::mallopt(M_MMAP_THRESHOLD, 32 << 20);
  ::mallopt(M_TRIM_THRESHOLD, 64 << 20);
  ::mallopt(M_ARENA_MAX, 1);
  prepare_temp_folder();
}

FrameDecoder::FrameDecoder() = default;
FrameDecoder::~FrameDecoder() = default;

std::string FrameDecoder::open(const DicomFile& file) {
  form_ = FrameForm(file.syntax(), EXPLICIT_LITTLE_ENDIAN);
  if (std::string problem = source_.open(file, file.id(), form_.from); !problem.empty()) return problem;
  form_.read(file.id(), source_);
  if (form_.decompresses() && form_.has_half_colour()) form_.relabel("YBR_FULL");
  fault_ = decompression_fault(form_);
  return "";
}

std::string FrameDecoder::frame(uint32_t number, Bytes& bytes) try {
  if (!fault_.empty()) return fault_;
  if (number >= source_.count()) return "there is no such frame";
  std::unique_ptr<FrameWorker> worker;
  {
    const std::lock_guard lock(mutex_);
    if (!idle_.empty()) {
      worker = std::move(idle_.back());
      idle_.pop_back();
    }
  }
  if (worker == nullptr) worker = std::make_unique<FrameWorker>(source_, form_);
  std::string problem = form_.unwraps ? worker->convert(number, bytes)
                                      : worker->decompress(number, &bytes, guarded<FrameWorker::append>);
  const std::lock_guard lock(mutex_);
  idle_.push_back(std::move(worker));
  return problem;
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
  return has_attribute(file.id(), tags::kPixelData) && file.syntax() != target &&
         !(is_uncompressed(file.syntax()) && is_uncompressed(target));
}

std::string RecodedPixels::attach(DicomFile& file, VX_TRANSFER_SYNTAX target, unsigned threads,
                                  When when) try {
  VX_Set_Bool_Config_Value(VX_CFG_UPDATE_GROUP_0028_ON_DUPLICATE, 1);
  form_ = FrameForm(file.syntax(), target);
  threads_ = threads;
  path_ = file.path();
  if (std::string fault = decompression_fault(form_); !fault.empty()) return fault;
  if (form_.compresses() && form_.compressor() == nullptr) {
    return target == JPEG_XL_RECOMPRESSION
               ? "this transfer syntax keeps JPEG streams, and the pixel data of the file is none"
               : "there is no compressor for this transfer syntax";
  }
  if (std::string problem = source_.open(file, file.id(), form_.from); !problem.empty()) return problem;
  form_.read(file.id(), source_);
  // PS3.3 section C.7.6.3.1: Columns of such an image are even. Some writers pad each row, others let pairs
  // run on.
  if (!form_.decompresses() &&
      form_.stored_text(tags::kPhotometricInterpretation).starts_with("YBR_FULL_422") &&
      number_in(form_.text(tags::kColumns)) % 2 != 0)
    return "its pixels share their colour in pairs (YBR_FULL_422) and its number of columns is odd: where "
           "its rows end is not known";
  joins_ = !form_.compresses() && number_in(form_.text(tags::kBitsAllocated)) == 1 &&
           form_.image_bits() % 8 != 0 && source_.count() > 1;
  conveyor_ = nullptr;
  if (form_.decompresses()) {
    if (std::string problem = decompress_icons(file, file.id(), form_, 0); !problem.empty()) return problem;
  }
  late_frame_ = when == When::AsWritten && fits_late_frame();
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
  const std::string problem = late_frame_ ? worker.describe() : worker.convert(0, first_frame_);
  if (!problem.empty()) return source_.count() == 1 ? problem : "frame 1: " + problem;
  for (const uint32_t tag : kImageTags) {
    if (worker.result() < 0) break;
    const std::string text = all_text_of(worker.result(), tag);
    if (tag == tags::kLossyImageCompressionMethod) method_ = text;
    if (tag == tags::kDerivationDescription) description_ = text;
    if (text != form_.stored_text(tag)) changes_.emplace_back(tag, text);
  }
  form_.compresses_alone = form_.compresses() && !form_.decompresses() && !form_.loses() &&
                           changes_.empty() && form_.image_bits() % 16 == 0;
  return "";
}

// Compressed frames go right into the file and their offsets later, if nothing in front of them depends on
// their size, all offsets will fit, and the first piece is large enough to reach the file in one block.
bool RecodedPixels::fits_late_table() const {
  return form_.compresses() && !form_.loses() && source_.count() > 1 &&
         first_frame_.size() > largest_buffer() &&
         form_.image_bits() / 8 * source_.count() < (uint64_t{1} << 31);
}

// Where a frame is alone and its bytes stay as they are, what decodes it writes it to its place: it is
// nowhere else in memory.
bool RecodedPixels::fits_late_frame() const {
  return source_.count() == 1 && form_.decodes_alone() && form_.image_bits() % 16 == 0 &&
         form_.image_bits() / 8 > largest_buffer() &&
         (form_.to == IMPLICIT_LITTLE_ENDIAN || form_.to == EXPLICIT_LITTLE_ENDIAN);
}

std::string RecodedPixels::place_late_frame(FileSink& sink) {
  Bytes().swap(piece_);
  if (!sink.flush()) return sink.problem();
  FrameWorker worker(source_, form_);
  std::string problem = worker.place(0, sink, 0, frame_bytes_);
  if (!problem.empty() && sink.problem().empty()) problem_ = problem;
  return problem;
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
    if (spill_.size() > kUndefinedLength) offsets_.clear();
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
  const uint64_t bits = number_in(form_.text(tags::kBitsAllocated));
  const uint64_t image_bits = form_.image_bits();
  const bool lossy = form_.loses() && (form_.to != JPEG_LS_LOSSY || form_.notes->lost);
  if (!form_.compresses()) {
    if (!spilled_) frame_bytes_ = late_frame_ ? image_bits / 8 : first_frame_.size();
    length_ = joins_ ? (image_bits * source_.count() + 7) / 8 : frame_bytes_ * source_.count();
    if (length_ > kUndefinedLength - 2) return "its pixel data would have more than 4 GiB";
  }
  for (const auto& [tag, text] : changes_) change_image(id, tag, text);
  if (lossy) {
    if (std::string problem = tell_of_loss(id); !problem.empty()) return problem;
  }
  for (const uint32_t tag : kFormTags) VX_Delete_Attribute(id, tag);
  VX_Set_Value_To_Empty(id, tags::kPixelData);
  VX_Set_Value_Representation(id, tags::kPixelData, form_.compresses() || bits <= 8 ? VX_VR_OB : VX_VR_OW);
  static std::atomic<uint32_t> counter{0};
  VX_STATUS status =
      VX_Register_Application(&application_, ("RECODE_" + std::to_string(counter.fetch_add(1))).c_str());
  if (status == VX_NORMAL_COMPLETION)
    status = VX_Register_Callback_Function(application_, tags::kPixelData, this, guarded<callback>);
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
  set_all_text(id, tags::kLossyImageCompression, "01");
  set_all_text(
      id, tags::kLossyImageCompressionMethod,
      behind(form_.stored_text(tags::kLossyImageCompressionMethod), "\\", near ? "ISO_14495_1" : method_));
  set_all_text(id, tags::kLossyImageCompressionRatio,
               behind(form_.stored_text(tags::kLossyImageCompressionRatio), "\\", ratio));
  const std::string description = behind(form_.stored_text(tags::kDerivationDescription), "; ", description_);
  if (!near && description.size() <= kMostDescription)
    set_all_text(id, tags::kDerivationDescription, description);
  if (!add_derivation(id, form_.decompresses())) return "can not add what it was made from";
  const std::string uid = new_uid();
  set_all_text(id, tags::kSOPInstanceUID, uid);
  set_all_text(id, tags::kMediaStorageSOPInstanceUID, uid);
  return "";
}

std::string RecodedPixels::finding() const {
  if (std::string told = form_.notes->told(); !told.empty()) return told;
  if (source_.surplus() == 0) return "";
  return std::to_string(source_.surplus()) + " bytes behind its last frame are left out";
}

VX_STATUS RecodedPixels::callback(int32_t, uint32_t, void* user, VX_CALLBACK_REQUEST request, uint32_t* size,
                                  void** data, int32_t first, int32_t* last) {
  auto& pixels = *static_cast<RecodedPixels*>(user);
  switch (request) {
    case VX_REQUEST_LENGTH:
      *size = pixels.form_.compresses() ? kUndefinedLength
                                        : static_cast<uint32_t>(pixels.length_ + pixels.length_ % 2);
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
  if (late_frame_ && sink_ != nullptr) {
    piece_.resize(static_cast<std::size_t>(frame_bytes_));
    sink_->watch(piece_.data());
    sink_->leave_out(piece_.data());
    placed_ = true;
  }
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
  const VX_STATUS status = VX_Write_File(file.id(), pad, &sink, guarded<FileSink::file_output>);
  sink_ = nullptr;
  if (!problem_.empty()) return problem_;
  if (status == VX_NORMAL_COMPLETION) {
    // Its bytes are there, wherever the library would have put what it got in their place.
    if (placed_ && sink.skipped() != length_ - (late_frame_ ? 0 : frame_bytes_))
      return "its frames lie elsewhere";
    if (late_frame_) return place_late_frame(sink);
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
