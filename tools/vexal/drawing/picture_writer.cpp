#include <strings.h>

#include <string_view>

#include "picture_format.h"

namespace vexal {
namespace {

struct Suffix {
  std::string_view text;
  std::unique_ptr<PictureFormat> (*make)();
};
constexpr Suffix kSuffixes[] = {
    {".jpg", make_jpeg}, {".jpeg", make_jpeg}, {".tif", make_tiff}, {".tiff", make_tiff}};

std::unique_ptr<PictureFormat> format_of(const std::string& path) {
  for (const Suffix& suffix : kSuffixes) {
    const std::size_t length = suffix.text.size();
    if (path.size() > length && ::strcasecmp(path.c_str() + path.size() - length, suffix.text.data()) == 0)
      return suffix.make();
  }
  return make_png();
}

}  // namespace

PictureWriter::PictureWriter() = default;
PictureWriter::~PictureWriter() = default;

std::string PictureWriter::open(const std::string& path, const PictureForm& form) {
  format_.reset();
  form_ = form;
  written_ = 0;
  sink_ = std::make_unique<FileSink>();
  problem_ = sink_->open(path);
  if (!problem_.empty()) return problem_;
  format_ = format_of(path);
  problem_ = format_->begin(*sink_, form);
  return problem_;
}

std::string PictureWriter::rows(const uint8_t* bytes, uint32_t count) {
  if (!problem_.empty()) return problem_;
  if (count > form_.height - written_) return problem_ = "the picture has fewer rows";
  written_ += count;
  if (!format_->rows(bytes, count)) {
    problem_ = sink_->problem();
    if (problem_.empty()) problem_ = "the picture can not be written";
  }
  return problem_;
}

std::string PictureWriter::commit() {
  if (!problem_.empty()) return problem_;
  if (written_ != form_.height) return problem_ = "rows of the picture are missing";
  if (!format_->end()) {
    problem_ = sink_->problem();
    return problem_.empty() ? problem_ = "the picture can not be written" : problem_;
  }
  return problem_ = sink_->commit();
}

std::string write_picture(const Picture& picture, const std::string& path, int quality) {
  PictureWriter writer;
  PictureForm form;
  form.width = picture.width;
  form.height = picture.height;
  form.samples = picture.samples;
  form.bits = picture.bits;
  form.across = picture.across;
  form.down = picture.down;
  form.quality = quality;
  writer.open(path, form);
  writer.rows(picture.bytes.data(), picture.height);
  return writer.commit();
}

}  // namespace vexal
