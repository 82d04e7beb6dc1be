// Directories from hostile bytes: read whole, changed and written; read record by record, changed in place.
// The first byte chooses what is done.
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "real_library.h"

namespace {

struct Source {
  std::string_view bytes;
  std::size_t at = 0;
};
VX_STATUS input(const char*, void* user, uint32_t* size, void** data, int32_t, int32_t* last) {
  auto& source = *static_cast<Source*>(user);
  const std::size_t part = std::min<std::size_t>(512, source.bytes.size() - source.at);
  *data = const_cast<char*>(source.bytes.data()) + source.at;
  *size = static_cast<uint32_t>(part);
  source.at += part;
  *last = source.at == source.bytes.size() ? 1 : 0;
  return VX_NORMAL_COMPLETION;
}
VX_STATUS output(const char*, void* user, uint32_t size, void* data, int32_t, int32_t) {
  static_cast<std::string*>(user)->append(static_cast<const char*>(data), size);
  return VX_NORMAL_COMPLETION;
}

int32_t application() {
  static int32_t id = [] {
    int32_t app = -1;
    fuzz::start_real_library();
    VX_Register_Application(&app, "FUZZ");
    VX_Set_Bool_Config_Value(VX_CFG_ORVEN_OPEN_FILE, 1);
    return app;
  }();
  return id;
}

// Walks the whole tree; what is linked is a tree, so this comes to an end.
int32_t walk(int32_t dir, int32_t entity, int32_t record, int depth) {
  int32_t count = 0;
  int32_t last = 0;
  const char* name = nullptr;
  while (record != 0) {
    ++count;
    int32_t below = 0;
    int32_t first = 0;
    if (depth < 200 &&
        VX_Dir_Next_Entity(dir, record, &below, &first, &name, &last) == VX_NORMAL_COMPLETION && below != 0) {
      count += walk(dir, below, first, depth + 1);
    }
    if (VX_Dir_Next_Record(dir, entity, &record, &name, &last) != VX_NORMAL_COMPLETION) break;
  }
  return count;
}

void whole(std::string_view bytes, int way) {
  int32_t dir = -1;
  if (VX_Create_File(&dir, "fuzz", "DICOMDIR", 1) != VX_NORMAL_COMPLETION) __builtin_trap();
  VX_Set_Bool_Config_Value(VX_CFG_DICOMDIR_STREAM_STORAGE, way & 1);
  Source source{bytes};
  VX_Open_File(application(), dir, &source, &input);
  int32_t entity = 0;
  int32_t record = 0;
  int32_t last = 0;
  int32_t total = 0;
  const char* name = nullptr;
  if (VX_Dir_Root_Entity(dir, &entity, &record, &name, &last) == VX_NORMAL_COMPLETION) {
    VX_Dir_Root_Count(dir, &total);
    if (walk(dir, entity, record, 0) > total) __builtin_trap();
    int32_t added = 0;
    VX_Dir_Add_Record(dir, entity, "DIR_REC_PRIVATE", &added);
    if ((way & 2) != 0) VX_Dir_Delete_Record(dir, record);
    VX_Dir_Sort(dir);
  }
  std::string written;
  VX_Write_File(dir, 0, &written, &output);
  VX_Free_File(&dir);
}

struct Steps {
  uint32_t seed;
  std::size_t left;  // no more calls than there is room for records
};
int32_t step(int32_t record, void* user) {
  auto& steps = *static_cast<Steps*>(user);
  if (steps.left-- == 0) __builtin_trap();
  steps.seed = steps.seed * 1103515245U + 12345U;
  const uint32_t choice = steps.seed >> 16 & 15U;
  int32_t other = 0;
  if (choice < 3) VX_DDH_Release_Record(record);
  if (choice == 3 && VX_DDH_Get_Parent_Record(record, &other) == VX_NORMAL_COMPLETION)
    VX_DDH_Release_Record(other);
  if (choice == 4) VX_DDH_Delete_Record(record);
  if (choice == 5) VX_DDH_Add_Record(record, nullptr, &other);
  return choice == 6 ? 2 : choice == 7 ? 1 : 0;
}

bool write(const std::string& path, std::string_view bytes) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return false;
  std::fwrite(bytes.data(), 1, bytes.size(), file);
  return std::fclose(file) == 0;
}

// The last bytes, as many as the very last one tells, become a journal that is whole by its sum. It never
// makes the file larger than both are.
void undo_first(const std::string& path, std::string_view& bytes) {
  const auto wanted = static_cast<uint8_t>(bytes.back());
  bytes.remove_suffix(1);
  const std::size_t length = std::min<std::size_t>(bytes.size(), wanted);
  std::string journal = "VXJ1" + std::string(bytes.substr(bytes.size() - length));
  bytes.remove_suffix(length);
  const auto sum =
      static_cast<uint32_t>(crc32_z(0, reinterpret_cast<const Bytef*>(journal.data()), journal.size()));
  for (int i = 0; i < 4; ++i) journal += static_cast<char>(sum >> (8 * i));
  write(path + ".vxj", journal);
}

void in_place(std::string_view bytes, int way) {
  const std::string path = "/dev/shm/fuzz_directory." + std::to_string(getpid());
  const std::size_t most = bytes.size();
  if ((way & 0x40) != 0 && !bytes.empty()) undo_first(path, bytes);
  if (!write(path, bytes)) return;
  int32_t dir = -1;
  struct stat state {};
  const VX_STATUS opened = VX_DDH_Open(path.c_str(), &dir);
  if (stat(path.c_str(), &state) != 0 || static_cast<std::size_t>(state.st_size) > most) __builtin_trap();
  if (opened == VX_NORMAL_COMPLETION) {
    Steps steps{static_cast<uint32_t>(way), bytes.size() / 16 + 4096};
    VX_DDH_Traverse_Records(dir, &steps, &step);
    int32_t record = 0;
    VX_DDH_Add_Record(dir, "PATIENT", &record);
    VX_DDH_Update(dir);
    steps.left = bytes.size() + 4096;
    VX_DDH_Traverse_Records(dir, &steps, &step);
    VX_DDH_Update(dir);
    VX_Free_File(&dir);
  }
  unlink(path.c_str());
  unlink((path + ".vxj").c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  application();
  if (size == 0) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  (data[0] & 0x80) != 0 ? whole(bytes, data[0]) : in_place(bytes, data[0]);
  return 0;
}
