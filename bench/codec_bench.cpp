// Encode and decode: many small elements, many sequences, large pixel values in both byte orders.
#include <benchmark/benchmark.h>

#include <vector>

#include "support.h"

namespace {

using bench::Memory;

constexpr uint32_t kAll = 0xFFFFFFFFU;

// 200,000 elements that no dictionary knows, in five standard groups: US and LO by turns.
int32_t small_elements() {
  bench::start_library();
  int32_t id = -1;
  bench::require(VX_Open_Empty_Message(&id), "open");
  for (uint32_t i = 0; i < 200000; ++i) {
    const uint32_t tag = ((0x0020U + 2 * (i / 40000)) << 16) | (0x4000U + i % 40000);
    if (i % 2 == 0) {
      VX_Add_Nonstandard_Attribute(id, tag, VX_VR_US);
      VX_Set_Value_From_UShortInt(id, tag, static_cast<uint16_t>(i));
    } else {
      VX_Add_Nonstandard_Attribute(id, tag, VX_VR_LO);
      VX_Set_Value_From_String(id, tag, "some value");
    }
  }
  return id;
}

int32_t sequences() {
  bench::start_library();
  int32_t id = -1;
  bench::require(VX_Open_Empty_Message(&id), "open");
  for (int i = 0; i < 2000; ++i) {
    int32_t outer = -1;
    int32_t inner = -1;
    VX_Open_Empty_Item(&outer);
    VX_Open_Empty_Item(&inner);
    VX_Set_Value_From_String(inner, 0x00081150, "1.2.840.10008.5.1.4.1.1.2");
    VX_Set_Value_From_String(inner, 0x00081155, "1.2.3.4.5.6");
    VX_Set_Value_From_Int(outer, 0x00081199, inner);
    VX_Set_Value_From_String(outer, 0x0020000E, "1.2.3.4.5");
    VX_Set_Next_Value_From_Int(id, 0x00081115, outer);
  }
  return id;
}

int32_t pixels() {
  bench::start_library();
  int32_t id = -1;
  bench::require(VX_Open_Empty_Message(&id), "open");
  std::vector<char> bytes(200U << 20, 0x5A);
  bench::require(VX_Set_Value_From_Buffer(id, 0x7FE00010, bytes.data(), static_cast<uint32_t>(bytes.size())),
                 "pixels");
  return id;
}

using Maker = int32_t (*)();

void encode(benchmark::State& state, Maker make, VX_TRANSFER_SYNTAX syntax, int64_t items) {
  int32_t id = make();
  uint64_t bytes = 0;
  for (auto _ : state) {
    bytes = 0;
    bench::require(VX_Message_To_Stream(id, 0, kAll, syntax, &bytes, bench::count_bytes), "encode");
  }
  state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
  state.SetItemsProcessed(items * state.iterations());
  VX_Free_Message(&id);
}

void decode(benchmark::State& state, Maker make, VX_TRANSFER_SYNTAX syntax, int64_t items) {
  int32_t source = make();
  Memory memory;
  bench::require(VX_Message_To_Stream(source, 0, kAll, syntax, &memory, bench::write_memory), "encode");
  VX_Free_Message(&source);
  for (auto _ : state) {
    int32_t id = -1;
    bench::require(VX_Open_Empty_Message(&id), "open");
    memory.position = 0;
    uint32_t error_tag = 0;
    bench::require(VX_Stream_To_Message(id, 0, kAll, syntax, &error_tag, &memory, bench::read_memory),
                   "decode");
    state.PauseTiming();
    VX_Free_Message(&id);
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<int64_t>(memory.bytes.size()) * state.iterations());
  state.SetItemsProcessed(items * state.iterations());
}

#define BOTH(name, maker, syntax, items)                                                \
  BENCHMARK_CAPTURE(encode, name, maker, syntax, items)->Unit(benchmark::kMillisecond); \
  BENCHMARK_CAPTURE(decode, name, maker, syntax, items)->Unit(benchmark::kMillisecond)

BOTH(small_elements_explicit, small_elements, EXPLICIT_LITTLE_ENDIAN, 200000);
BOTH(small_elements_implicit, small_elements, IMPLICIT_LITTLE_ENDIAN, 200000);
BOTH(small_elements_big, small_elements, EXPLICIT_BIG_ENDIAN, 200000);
BOTH(sequences_explicit, sequences, EXPLICIT_LITTLE_ENDIAN, 4000);
BOTH(pixels_little, pixels, EXPLICIT_LITTLE_ENDIAN, 1);
BOTH(pixels_big, pixels, EXPLICIT_BIG_ENDIAN, 1);

}  // namespace
