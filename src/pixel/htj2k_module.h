// What the library asks of libvexalhtj2k, the module beside it that stands on a library of C++ classes: plain
// functions, so that neither its exceptions nor its runtime come in here.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {

struct VexalHtj2kImage {
  uint32_t rows;
  uint32_t columns;
  uint32_t samples;       // of a pixel
  uint32_t sample_bytes;  // 1, 2 or 4
  uint32_t precision;     // bits of a sample
  int32_t is_signed;
  int32_t colour_transform;  // 1: of three samples, as RGB
  uint32_t decompositions;
  float step;  // of quantisation, as a part of the range of the samples; 0: without loss
};

// Takes what is written, in order; 0 ends the work.
using VexalHtj2kSink = int32_t (*)(void* user, const void* data, size_t size);

// The head of the stream and then, behind a call of the sink with no data, its tile: a code stream of one
// tile in one part, by resolution first. `frame` is pixel by pixel, in the order of the machine. Returns 0,
// or -1 with the reason in `problem`. Any number of threads may call it at once.
int32_t vexal_htj2k_encode(const VexalHtj2kImage* image, const void* frame, VexalHtj2kSink sink, void* user,
                           char* problem, size_t problem_size);
using VexalHtj2kEncode = decltype(&vexal_htj2k_encode);

}  // extern "C"
