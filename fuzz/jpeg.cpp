// The JPEG processes of our own, on hostile bytes. What the encoders made of any samples must come back: bit
// for bit from the lossless one, as an image of the same size from the other.
#include <cstdint>
#include <cstring>
#include <vector>

#include "pixel/jpeg.h"

namespace {

using namespace vx::jpeg;

constexpr std::size_t kMostSamples = 1U << 16;

void require(bool condition) {
  if (!condition) __builtin_trap();
}

void decode_hostile(const uint8_t* data, std::size_t size) {
  Shape shape;
  if (query(data, size, shape) != kNone) return;
  const std::size_t samples = std::size_t{shape.rows} * shape.columns * shape.components;
  if (samples > kMostSamples) return;
  std::vector<uint16_t> out(samples);
  Shape wanted = shape;
  decode(data, size, wanted, true, out.data());
  wanted = shape;
  std::vector<uint8_t> narrow(samples);
  decode(data, size, wanted, false, narrow.data());
}

void search_end(const uint8_t* data, std::size_t size) {
  // A search in steps finds what one over everything finds.
  std::size_t whole_from = 0;
  const std::size_t whole = find_end(data, size, whole_from);
  std::size_t from = 0;
  std::size_t end = 0;
  for (std::size_t n = 0; n <= size && end == 0; n += 7) end = find_end(data, n, from);
  if (end == 0) end = find_end(data, size, from);
  require(end == whole);
}

void there_and_back(const uint8_t* data, std::size_t size) {
  if (size < 5) return;
  const uint32_t precision = 2 + data[0] % 15;
  const uint32_t components = 1 + data[1] % 4;
  const uint32_t columns = 1 + data[2] % 32;
  data += 3;
  size -= 3;
  const std::size_t row = std::size_t{columns} * components;
  const auto rows = static_cast<uint32_t>(size / 2 / row);
  if (rows == 0) return;
  std::vector<uint16_t> samples(rows * row);
  std::memcpy(samples.data(), data, samples.size() * 2);
  for (uint16_t& sample : samples) sample = static_cast<uint16_t>(sample & ((1U << precision) - 1));
  std::vector<uint8_t> stream;
  std::vector<uint16_t> back(samples.size());
  require(encode_lossless({rows, columns, components, precision, true, samples.data()}, stream) == kNone);
  Shape shape;
  require(query(stream.data(), stream.size(), shape) == kNone);
  require(decode(stream.data(), stream.size(), shape, true, back.data()) == kNone);
  require(shape.ends_well && back == samples);
  if (components != 1 || precision > 12) return;
  require(encode_extended12({rows, columns, 1, precision, true, samples.data()}, data[0], stream) == kNone);
  Shape again;
  require(query(stream.data(), stream.size(), again) == kNone);
  require(decode(stream.data(), stream.size(), again, true, back.data()) == kNone);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  decode_hostile(data, size);
  search_end(data, size);
  there_and_back(data, size);
  return 0;
}
