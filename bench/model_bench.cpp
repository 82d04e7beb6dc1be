// Lookup in tables of several sizes, set and get of each native type, life of templated messages.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "support.h"

namespace {

// Attribute lookup in random order, over so many tags that what one lookup brings in is gone before it serves
// again.
void lookup(benchmark::State& state) {
  bench::start_library();
  const auto count = static_cast<uint32_t>(state.range(0));
  int32_t id = -1;
  bench::require(VX_Open_Empty_Message(&id), "open");
  std::vector<uint32_t> tags(count);
  for (uint32_t i = 0; i < count; ++i) {
    tags[i] = ((0x4012U + 2 * (i / 30000)) << 16) | (0x8000U + i % 30000);
    VX_Add_Nonstandard_Attribute(id, tags[i], VX_VR_US);
    VX_Set_Value_From_UShortInt(id, tags[i], 1);
  }
  std::mt19937 random(1);
  constexpr std::size_t kOrder = 65536;
  std::vector<uint32_t> order(kOrder);
  for (uint32_t& tag : order) tag = tags[random() % count];
  std::size_t at = 0;
  for (auto _ : state) {
    uint16_t value = 0;
    VX_Get_Value_To_UShortInt(id, order[at], &value);
    benchmark::DoNotOptimize(value);
    at = (at + 1) % kOrder;
  }
  VX_Free_Message(&id);
}
BENCHMARK(lookup)->Arg(100)->Arg(10000)->Arg(100000);

// One value set and read back in its native type.
template <typename T>
void set_get(benchmark::State& state, uint32_t tag, VX_STATUS (*set)(int32_t, uint32_t, T),
             VX_STATUS (*get)(int32_t, uint32_t, T*)) {
  bench::start_library();
  int32_t id = -1;
  bench::require(VX_Open_Empty_Message(&id), "open");
  for (auto _ : state) {
    T value = 7;
    set(id, tag, value);
    get(id, tag, &value);
    benchmark::DoNotOptimize(value);
  }
  VX_Free_Message(&id);
}
BENCHMARK_CAPTURE(set_get, Int_SL, 0x00186020, VX_Set_Value_From_Int, VX_Get_Value_To_Int);
BENCHMARK_CAPTURE(set_get, UInt_UL, 0x00186018, VX_Set_Value_From_UInt, VX_Get_Value_To_UInt);
BENCHMARK_CAPTURE(set_get, ShortInt_SS, 0x00189219, VX_Set_Value_From_ShortInt, VX_Get_Value_To_ShortInt);
BENCHMARK_CAPTURE(set_get, UShortInt_US, 0x00280010, VX_Set_Value_From_UShortInt, VX_Get_Value_To_UShortInt);
BENCHMARK_CAPTURE(set_get, LongInt_IS, 0x00200013, VX_Set_Value_From_LongInt, VX_Get_Value_To_LongInt);
BENCHMARK_CAPTURE(set_get, ULongInt_DS, 0x00180050, VX_Set_Value_From_ULongInt, VX_Get_Value_To_ULongInt);
BENCHMARK_CAPTURE(set_get, Float_FL, 0x00089459, VX_Set_Value_From_Float, VX_Get_Value_To_Float);
BENCHMARK_CAPTURE(set_get, Double_FD, 0x00189073, VX_Set_Value_From_Double, VX_Get_Value_To_Double);

void set_get_string(benchmark::State& state) {
  bench::start_library();
  int32_t id = -1;
  bench::require(VX_Open_Empty_Message(&id), "open");
  char buffer[64];
  for (auto _ : state) {
    VX_Set_Value_From_String(id, 0x00100020, "PATIENT 12345");
    VX_Get_Value_To_String(id, 0x00100020, sizeof buffer, buffer);
    benchmark::DoNotOptimize(buffer);
  }
  VX_Free_Message(&id);
}
BENCHMARK(set_get_string);

void templated_messages(benchmark::State& state) {
  bench::start_library();
  for (auto _ : state) {
    for (int i = 0; i < 100000; ++i) {
      int32_t id = -1;
      bench::require(VX_Open_Message(&id, "STANDARD_CT", C_STORE_RQ), "VX_Open_Message");
      VX_Free_Message(&id);
    }
  }
  state.SetItemsProcessed(100000 * state.iterations());
}
BENCHMARK(templated_messages)->Unit(benchmark::kMillisecond);

}  // namespace
