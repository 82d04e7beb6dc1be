#include "stored_object.h"

#include <unistd.h>

#include "base/object_values.h"
#include "base/session.h"
#include "base/tags.h"
#include "base/uid.h"
#include "files/temp_folder.h"
#include "images/recode.h"
#include "work_room.h"

namespace vexal {
namespace {

// Of a frame as the object describes it.
uint64_t described_frame(int32_t id) {
  const uint64_t bits = uint64_t{number_of(id, tags::kRows)} * number_of(id, tags::kColumns) *
                        number_of(id, tags::kSamplesPerPixel, 1) * number_of(id, tags::kBitsAllocated, 8);
  return bits / 8;
}

// Writes the object in another syntax to `path`. An error text, empty on success.
std::string write_as(const std::string& from, VX_TRANSFER_SYNTAX syntax, const std::string& path) {
  const CurrentFile current(from);
  std::string problem;
  BoundedFile bounds;
  DicomFile file;
  RecodedPixels pixels;
  if (bounds.open(file, from, problem) != VX_NORMAL_COMPLETION) return problem;
  if (values_were_lost()) return "it has a value that an object can not hold";
  problem = file.write_fault(syntax);
  if (!problem.empty()) return problem;
  const bool recodes = RecodedPixels::needed(file, syntax);
  const uint64_t frame = described_frame(file.id());
  if (recodes && frame > WorkRoom::kMost) return "its frames are too large to be converted here";
  const WorkRoom room(recodes ? 3 * frame : 1);
  FileSink sink;
  if (recodes) problem = pixels.attach(file, syntax, 1, RecodedPixels::When::Ahead);
  if (problem.empty()) problem = sink.open(path, FileSink::kPrivateMode);
  if (problem.empty()) {
    const VX_STATUS status = file.set_syntax(syntax);
    if (status != VX_NORMAL_COMPLETION) problem = VX_Error_Message(status);
  }
  if (problem.empty() && !recodes) file.prepare_fragments();
  if (problem.empty()) problem = pixels.write(file, sink, 0);
  if (problem.empty()) problem = pixels.finding();
  return problem.empty() ? sink.commit() : problem;
}

// A file that goes when this does.
struct Temporary {
  std::string path = temp_folder_path() + "/web-" + new_uid();
  Temporary() = default;
  ~Temporary() { ::unlink(path.c_str()); }
  Temporary(const Temporary&) = delete;
  Temporary& operator=(const Temporary&) = delete;
};

bool has_prefix(const FileSource& source) {
  char head[132];
  return source.read_at(0, head, sizeof head) == sizeof head && std::memcmp(head + 128, "DICM", 4) == 0;
}

}  // namespace

HttpBody body_of_file(const std::shared_ptr<FileSource>& source) {
  HttpBody body;
  body.length = source->size();
  body.read = [source, at = uint64_t{0}](char* buffer, std::size_t size) mutable -> int64_t {
    const auto count = static_cast<std::size_t>(std::min<uint64_t>(size, source->size() - at));
    const int64_t got = source->read_at(at, buffer, count);
    if (got < 0 || (got == 0 && count != 0)) return -1;
    at += static_cast<uint64_t>(got);
    return got;
  };
  return body;
}

bool can_become(VX_TRANSFER_SYNTAX stored, VX_TRANSFER_SYNTAX wanted) {
  if (stored == wanted) return true;
  if (is_unknown_syntax(stored) || is_unknown_syntax(wanted)) return false;
  return (is_uncompressed(stored) || can_decompress(stored)) &&
         (is_uncompressed(wanted) || compressor_of(wanted) != nullptr);
}

std::string object_body(Holdings& holdings, const ObjectFile& object, VX_TRANSFER_SYNTAX wanted,
                        HttpBody& body) {
  LocalObject local;
  std::string problem = holdings.fetch(object, local);
  if (!problem.empty()) return problem;
  const auto source = std::make_shared<FileSource>();
  if (wanted == 0 || wanted == object.syntax) {
    problem = source->open(local.file().path);
    if (!problem.empty()) return problem;
    if (has_prefix(*source)) {
      body = body_of_file(source);
      return "";
    }
    source->close();
  }
  const Temporary copy;
  problem = write_as(local.file().path, wanted == 0 ? object.syntax : wanted, copy.path);
  if (problem.empty()) problem = source->open(copy.path);
  if (problem.empty()) body = body_of_file(source);
  return problem;
}

std::string OpenImage::open(Holdings& holdings, const ObjectFile& object, VX_TRANSFER_SYNTAX wanted) {
  image_.reset();
  bounds_ = std::make_unique<BoundedFile>();
  local_ = std::make_unique<LocalObject>();
  std::string problem = holdings.fetch(object, *local_);
  if (!problem.empty()) return problem;
  const CurrentFile current(object.path);
  std::string path = local_->file().path;
  const Temporary copy;
  if (wanted != 0 && wanted != object.syntax) {
    problem = write_as(path, wanted, copy.path);
    if (!problem.empty()) return problem;
    path = copy.path;
  }
  problem = bounds_->open(path, [&] {
    image_ = std::make_unique<PixelImage>();
    return image_->open(path);
  });
  if (problem.empty() && frame_bytes() > WorkRoom::kMost) problem = "its frames are too large";
  return problem;
}

uint64_t OpenImage::frame_bytes() const {
  const ImageDescription& image = image_->description();
  return uint64_t{image.rows} * image.columns * image.samples * ((image.allocated + 7) / 8);
}

}  // namespace vexal
