// Validation beside the decoding of the same object, and the first message of a class.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <string>

#include "ct_image.h"
#include "support.h"

namespace {

void set_values(int32_t id, uint32_t tag, const std::string& values) {
  std::size_t start = 0;
  for (bool first = true; start != std::string::npos; first = false) {
    const std::size_t end = values.find('\\', start);
    const std::string value = values.substr(start, end == std::string::npos ? end : end - start);
    (first ? VX_Set_Value_From_String : VX_Set_Next_Value_From_String)(id, tag, value.c_str());
    start = end == std::string::npos ? end : end + 1;
  }
}

// Optional attributes of the class, until the object has `wanted`.
void add_more(int32_t id, std::size_t wanted) {
  int32_t source = -1;
  bench::require(VX_Open_Message(&source, "STANDARD_CT", C_STORE_RQ), "VX_Open_Message");
  std::size_t count = std::size(bench::kCtImage);
  uint32_t tag = 0;
  VX_VR vr = 0;
  VX_STATUS status = VX_Get_First_Attribute(source, &tag, &vr, nullptr);
  for (; status == VX_NORMAL_COMPLETION && count < wanted;
       status = VX_Get_Next_Attribute(source, &tag, &vr, nullptr)) {
    if (tag < 0x00080000 || VX_Get_Attribute_Info(id, tag, nullptr, nullptr) == VX_NORMAL_COMPLETION)
      continue;
    if (vr != VX_VR_LO && vr != VX_VR_SH && vr != VX_VR_PN && vr != VX_VR_DS && vr != VX_VR_IS &&
        vr != VX_VR_LT && vr != VX_VR_ST && vr != VX_VR_FD) {
      continue;
    }
    set_values(id, tag, "12");
    ++count;
  }
  VX_Free_Message(&source);
}

bench::Memory image(std::size_t attributes) {
  bench::start_library();
  int32_t id = -1;
  bench::require(VX_Open_Empty_Message(&id), "open");
  for (const auto& row : bench::kCtImage) set_values(id, row.tag, row.value);
  add_more(id, attributes);
  bench::Memory memory;
  bench::require(
      VX_Message_To_Stream(id, 0x00080000, 0xFFFFFFFF, EXPLICIT_LITTLE_ENDIAN, &memory, bench::write_memory),
      "VX_Message_To_Stream");
  VX_Free_Message(&id);
  return memory;
}

int32_t decode(bench::Memory& memory) {
  int32_t id = -1;
  uint32_t error_tag = 0;
  memory.position = 0;
  bench::require(VX_Open_Empty_Message(&id), "open");
  bench::require(VX_Stream_To_Message(id, 0x00080000, 0xFFFFFFFF, EXPLICIT_LITTLE_ENDIAN, &error_tag, &memory,
                                      bench::read_memory),
                 "VX_Stream_To_Message");
  return id;
}

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

void decode_image(benchmark::State& state) {
  bench::Memory memory = image(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    const auto start = Clock::now();
    int32_t id = decode(memory);
    state.SetIterationTime(seconds_since(start));
    VX_Free_Message(&id);
  }
}
BENCHMARK(decode_image)->Arg(0)->Arg(200)->UseManualTime()->Unit(benchmark::kMicrosecond);

// What has just been decoded, as a receiver checks it; all the work of a first validation is in it.
void validate_image(benchmark::State& state) {
  bench::Memory memory = image(static_cast<std::size_t>(state.range(0)));
  int64_t findings = 0;
  for (auto _ : state) {
    int32_t id = decode(memory);
    bench::require(VX_Set_Service_Command(id, "STANDARD_CT", C_STORE_RQ), "VX_Set_Service_Command");
    ValErrObj* finding = nullptr;
    const auto start = Clock::now();
    VX_Validate_Message(id, &finding, VX_Errors_And_Warnings);
    state.SetIterationTime(seconds_since(start));
    for (findings = 0; finding != nullptr; ++findings) VX_Get_Next_Validate_Error(id, &finding);
    VX_Free_Message(&id);
  }
  state.counters["findings"] = static_cast<double>(findings);
}
BENCHMARK(validate_image)->Arg(0)->Arg(200)->UseManualTime()->Unit(benchmark::kMicrosecond);

void validate_again(benchmark::State& state) {
  bench::Memory memory = image(static_cast<std::size_t>(state.range(0)));
  int32_t id = decode(memory);
  bench::require(VX_Set_Service_Command(id, "STANDARD_CT", C_STORE_RQ), "VX_Set_Service_Command");
  for (auto _ : state) {
    ValErrObj* finding = nullptr;
    VX_Validate_Message(id, &finding, VX_Errors_And_Warnings);
    benchmark::DoNotOptimize(finding);
  }
  VX_Free_Message(&id);
}
BENCHMARK(validate_again)->Arg(0)->Arg(200)->Unit(benchmark::kMicrosecond);

// The storage class whose message has the most attributes.
const char* largest_class() {
  bench::start_library();
  const char* largest = nullptr;
  int32_t most = 0;
  for (const char* service : Services) {
    int32_t id = -1;
    if (VX_Open_Message(&id, service, C_STORE_RQ) != VX_NORMAL_COMPLETION) continue;
    int32_t count = 0;
    uint32_t tag = 0;
    VX_STATUS status = VX_Get_First_Attribute(id, &tag, nullptr, nullptr);
    for (; status == VX_NORMAL_COMPLETION; ++count)
      status = VX_Get_Next_Attribute(id, &tag, nullptr, nullptr);
    VX_Free_Message(&id);
    if (count > most) largest = service;
    most = std::max(most, count);
  }
  return largest;
}

// A library that starts anew has read no template.
void first_message(benchmark::State& state) {
  const char* service = largest_class();
  state.SetLabel(service);
  for (auto _ : state) {
    bench::restart_library();
    int32_t id = -1;
    const auto start = Clock::now();
    bench::require(VX_Open_Message(&id, service, C_STORE_RQ), "VX_Open_Message");
    state.SetIterationTime(seconds_since(start));
    VX_Free_Message(&id);
  }
}
BENCHMARK(first_message)->UseManualTime()->Iterations(50)->Unit(benchmark::kMicrosecond);

}  // namespace
