// A network capture file and the dialogues in it, from hostile bytes.
#include "../tools/vexal/network/capture_reader.h"

#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, std::size_t size) {
  if (size == 0) return 0;
  std::FILE* file = ::fmemopen(const_cast<uint8_t*>(bytes), size, "rb");
  if (file == nullptr) return 0;
  vexal::CaptureReader reader;
  if (reader.open(file)) {
    std::size_t seen = 0;
    vexal::CaptureDialogues dialogues([&](const vexal::CaptureEvent& event) { seen += event.data.size(); },
                                      true);
    vexal::CapturePacket packet;
    while (reader.next(packet)) dialogues.add(packet);
    if (seen > size) __builtin_trap();
  }
  std::fclose(file);
  return 0;
}
