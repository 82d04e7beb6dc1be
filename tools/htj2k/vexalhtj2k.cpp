// The encoder of High-Throughput JPEG 2000 (ISO/IEC 15444-15) behind plain functions.
#include <openjph/ojph_arch.h>
#include <openjph/ojph_codestream.h>
#include <openjph/ojph_file.h>
#include <openjph/ojph_mem.h>
#include <openjph/ojph_message.h>
#include <openjph/ojph_params.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <stdexcept>

#include "pixel/htj2k_module.h"

namespace {

// The encoder prints what it has to say; here it goes to the caller, or nowhere.
class Silence final : public ojph::message_info {
 public:
  void operator()(int, const char*, int, const char*, ...) override {}
};
class NoWarning final : public ojph::message_warning {
 public:
  void operator()(int, const char*, int, const char*, ...) override {}
};
class Thrower final : public ojph::message_error {
 public:
  void operator()(int, const char*, int, const char* format, ...) override {
    char text[256];
    va_list values;
    va_start(values, format);
    std::vsnprintf(text, sizeof text, format, values);
    va_end(values);
    throw std::runtime_error(text);
  }
};

class Sink final : public ojph::outfile_base {
 public:
  Sink(VexalHtj2kSink sink, void* user) : sink_(sink), user_(user) {}
  size_t write(const void* data, size_t size) override {
    if (sink_(user_, data, size) == 0) throw std::bad_alloc();
    written_ += static_cast<ojph::si64>(size);
    return size;
  }
  ojph::si64 tell() override { return written_; }

 private:
  VexalHtj2kSink sink_;
  void* user_;
  ojph::si64 written_ = 0;
};

// One sample of each pixel of a row.
template <typename Sample>
void copy_row(const void* from, uint32_t columns, uint32_t stride, ojph::si32* to) {
  const auto* at = static_cast<const Sample*>(from);
  for (uint32_t x = 0; x < columns; ++x, at += stride) to[x] = static_cast<ojph::si32>(*at);
}
using RowCopy = void (*)(const void*, uint32_t, uint32_t, ojph::si32*);
RowCopy row_copy(const VexalHtj2kImage& image) {
  const bool is_signed = image.is_signed != 0;
  if (image.sample_bytes == 1) return is_signed ? copy_row<int8_t> : copy_row<uint8_t>;
  if (image.sample_bytes == 2) return is_signed ? copy_row<int16_t> : copy_row<uint16_t>;
  return copy_row<int32_t>;
}

void describe(const VexalHtj2kImage& image, ojph::codestream& stream) {
  ojph::param_siz size = stream.access_siz();
  size.set_image_extent(ojph::point(image.columns, image.rows));
  size.set_num_components(image.samples);
  for (uint32_t i = 0; i < image.samples; ++i)
    size.set_component(i, ojph::point(1, 1), image.precision, image.is_signed != 0);
  ojph::param_cod coding = stream.access_cod();
  coding.set_num_decomposition(image.decompositions);
  coding.set_block_dims(64, 64);
  coding.set_progression_order("RPCL");
  coding.set_color_transform(image.colour_transform != 0);
  coding.set_reversible(image.step == 0);
  if (image.step != 0) stream.access_qcd().set_irrev_quant(image.step);
  stream.set_planar(false);
}

void encode(const VexalHtj2kImage& image, const void* frame, Sink& out, VexalHtj2kSink sink, void* user) {
  ojph::codestream stream;
  describe(image, stream);
  stream.write_headers(&out);
  if (sink(user, nullptr, 0) == 0) throw std::bad_alloc();
  const RowCopy copy = row_copy(image);
  const size_t row_bytes = size_t{image.columns} * image.samples * image.sample_bytes;
  ojph::ui32 component = 0;
  ojph::line_buf* line = stream.exchange(nullptr, component);
  for (uint32_t y = 0; y < image.rows; ++y) {
    const auto* row = static_cast<const uint8_t*>(frame) + y * row_bytes;
    for (uint32_t i = 0; i < image.samples; ++i) {
      copy(row + size_t{component} * image.sample_bytes, image.columns, image.samples, line->i32);
      line = stream.exchange(line, component);
    }
  }
  stream.flush();
  stream.close();
}

// The handlers belong to the whole process; the first stream also fills the encoder's tables.
void set_up() {
  static Silence silence;
  static NoWarning no_warning;
  static Thrower thrower;
  static const bool done = [] {
    ojph::configure_info(&silence);
    ojph::configure_warning(&no_warning);
    ojph::configure_error(&thrower);
    const ojph::codestream first;
    return true;
  }();
  static_cast<void>(done);
}

}  // namespace

__attribute__((visibility("default"))) int32_t vexal_htj2k_encode(const VexalHtj2kImage* image,
                                                                  const void* frame, VexalHtj2kSink sink,
                                                                  void* user, char* problem,
                                                                  size_t problem_size) try {
  set_up();
  Sink out(sink, user);
  encode(*image, frame, out, sink, user);
  return 0;
} catch (const std::exception& error) {
  std::snprintf(problem, problem_size, "%s", error.what());
  return -1;
} catch (...) {  // of its allocator
  std::snprintf(problem, problem_size, "no memory");
  return -1;
}
