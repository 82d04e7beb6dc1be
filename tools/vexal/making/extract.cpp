// vexal make --extract: what was put into an object, byte for byte.
#include <algorithm>
#include <vector>

#include "base/attributes.h"
#include "base/session.h"
#include "base/tags.h"
#include "base/values.h"
#include "images/frame_form.h"
#include "images/frame_source.h"
#include "making.h"
#include "pictures/video_stream.h"

namespace vexal {
namespace {

constexpr char kNoDocument[] = "has no document: vexal pixel extract and vexal pixel render write its frames";

bool ends_in_zero(const ValueReader& read, uint64_t size) {
  char last = 1;
  return size != 0 && read(size - 1, &last, 1) && last == 0;
}

// A document of text, whose last byte is no zero unless it is a pad.
bool is_text(const std::string& mime) {
  constexpr const char* kTexts[] = {"application/pdf", "text/XML", "text/xml", "model/obj", "model/mtl"};
  return std::any_of(std::begin(kTexts), std::end(kTexts), [&](const char* t) { return mime == t; });
}

// The size of a document that lies in a value of even size; `told` says what could not be known.
uint64_t document_size(int32_t object, const ValueReader& read, uint64_t size, std::string& told) {
  const std::string mime = text_of(object, tags::kMIMETypeOfEncapsulatedDocument);
  if (const std::string text = text_of(object, tags::kEncapsulatedDocumentLength); !text.empty()) {
    const uint64_t length = number_in(text);
    if (length == size || length + 1 == size) return length;
    told = "Encapsulated Document Length says " + text + " bytes, and there are " + std::to_string(size) +
           ": all are written";
    return size;
  }
  if (!ends_in_zero(read, size)) return size;
  uint32_t triangles = 0;
  if (mime == "model/stl" && size > 84 && read(80, &triangles, sizeof triangles)) {
    const uint64_t length = 84 + uint64_t{50} * triangles;
    if (length == size || length + 1 == size) return length;
  }
  if (is_text(mime)) return size - 1;
  told = "its last byte may be a pad: the object does not tell the length of the document";
  return size;
}

int finish(const std::string& in, const std::string& out, const std::string& told, const std::string& error) {
  if (!error.empty()) {
    report(out, error);
    return kUsage;
  }
  if (told.empty()) return kSuccess;
  report(in, told);
  return kFindings;
}

int extract_value(const DicomFile& file, const std::string& in, const std::string& out) {
  StoredValue value;
  std::string problem = value.open(file, file.id(), tags::kEncapsulatedDocument);
  if (problem.empty() && value.size() == 0) problem = "its document is empty";
  if (!problem.empty()) {
    report(in, problem);
    return kUsage;
  }
  const ValueReader read = [&](uint64_t at, void* buffer, std::size_t length) {
    return value.read_at(at, buffer, length);
  };
  std::string told;
  const uint64_t size = document_size(file.id(), read, value.size(), told);
  return finish(in, out, told, copy_to_file(read, size, out));
}

// Code streams whose last mark tells their end.
bool ends_in_mark(VX_TRANSFER_SYNTAX syntax) {
  return (syntax >= JPEG_BASELINE && syntax <= JPEG_LS_LOSSY) ||
         (syntax >= HTJ2K_LOSSLESS && syntax <= HTJ2K);
}

// The size of a code stream in fragments, without the pad of the last.
uint64_t stream_size(int32_t object, const ValueReader& read, uint64_t size) {
  const uint64_t told = number_in(text_of(object, tags::kEncapsulatedPixelDataValueTotalLength));
  if (told != 0 && (told == size || told + 1 == size)) return told;
  unsigned char last[3] = {};
  const bool padded = size >= sizeof last && read(size - sizeof last, last, sizeof last) && last[0] == 0xFF &&
                      last[1] == 0xD9 && last[2] == 0;
  return padded ? size - 1 : size;
}

int extract_stream(const std::string& in, const std::string& out) {
  PixelImage image;
  std::string problem = image.open(in);
  const FrameDecoder* frames = image.decoder();
  if (problem.empty() && frames == nullptr) problem = kNoDocument;
  if (problem.empty() && !image.is_video() &&
      (frames->source().count() != 1 || !ends_in_mark(image.file().syntax())))
    problem = kNoDocument;
  if (!problem.empty()) {
    report(in, problem);
    return kUsage;
  }
  std::string told;
  if (!image.fragments().sound) told = "its pixel data breaks off: what is there is written";
  if (image.is_video()) {
    const MutedWarnings muted(true);
    const VideoStream video = read_video(image);
    if (told.empty()) told = video.doubt;
    return finish(in, out, told, copy_to_file(video.read, video.size, out));
  }
  const FrameSource& source = frames->source();
  const ValueReader read = [&source](uint64_t at, void* buffer, std::size_t length) {
    return source.read_stream(at, buffer, length);
  };
  const uint64_t size = stream_size(image.file().id(), read, source.stream_size());
  return finish(in, out, told, copy_to_file(read, size, out));
}

}  // namespace

int extract_document(const std::string& in, const std::string& out) {
  const CurrentFile current(in);
  if (const std::string problem = object_in_the_way(out, in); !problem.empty()) {
    report(out, problem);
    return kUsage;
  }
  DicomFile file;
  if (file.open(in, {}) != VX_NORMAL_COMPLETION) {
    report(in, file.problem());
    return kUsage;
  }
  if (has_attribute(file.id(), tags::kEncapsulatedDocument)) return extract_value(file, in, out);
  const bool picture = has_attribute(file.id(), tags::kPixelData);
  if (picture && !is_uncompressed(file.syntax())) return extract_stream(in, out);
  report(in, picture ? kNoDocument : "has no document");
  return kUsage;
}

}  // namespace vexal
