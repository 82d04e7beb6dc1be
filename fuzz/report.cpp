// Report trees on hostile data sets: whatever was decoded becomes a tree, every node is read, and the data
// are the same afterwards.
#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "library.h"
#include "vexalkit.h"

namespace {

VX_STATUS input(int32_t, void* user, int32_t, uint32_t* size, void** data, int32_t* last) {
  auto& bytes = *static_cast<std::string_view*>(user);
  *data = const_cast<char*>(bytes.data());
  *size = static_cast<uint32_t>(bytes.size());
  *last = 1;
  return VX_NORMAL_COMPLETION;
}
VX_STATUS output(int32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  static_cast<std::string*>(user)->append(static_cast<const char*>(data), size);
  return VX_NORMAL_COMPLETION;
}
void require(bool condition) {
  if (!condition) __builtin_trap();
}
std::string encode(int32_t id) {
  std::string bytes;
  VX_Message_To_Stream(id, 0, 0xFFFFFFFFU, EXPLICIT_LITTLE_ENDIAN, &bytes, &output);
  return bytes;
}

void read_node(int32_t id) {
  char a[65];
  char b[65];
  char c[65];
  int32_t count = 0;
  int32_t type = 0;
  char* frame = nullptr;
  SRH_XYZ point{};
  int32_t numbers[4];
  VX_SRH_Get_NodeType(id, &type);
  VX_SRH_Get_Concept_Name(id, a, 65, b, 65, c, 65);
  VX_SRH_Get_TEXT_Data(id, a, 65);
  VX_SRH_Get_CODE_Data(id, a, 65, b, 65, c, 65);
  VX_SRH_Get_NUM_Data(id, a, 65, &count, a, 65, b, 65, c, 65);
  VX_SRH_Get_SCOORD3D_First_Data(id, &frame, &point, &count, &type);
  VX_SRH_Get_SCOORD_Next_Data(id, &point.X, &point.Y);
  VX_SRH_Get_TCOORD_D_First_Data(id, a, 65, &count, &type);
  VX_SRH_Get_IMAGE_Data(id, a, 65, b, 65, &count);
  VX_SRH_Get_IMAGE_Frames(id, numbers, 4);
  VX_SRH_Get_CONTAINER_Data(id, &type, a, 65);
  VX_SRH_Get_Reference(id, &count);
  VX_SR_Get_Location(id, 65, a);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz::start_library();
  std::string_view bytes(reinterpret_cast<const char*>(data), size & ~std::size_t{1});
  int32_t id = -1;
  uint32_t tag = 0;
  require(VX_Open_Empty_Message(&id) == VX_NORMAL_COMPLETION);
  VX_Stream_To_Message(id, 0, 0xFFFFFFFFU, EXPLICIT_LITTLE_ENDIAN, &tag, &bytes, &input);
  const std::string before = encode(id);
  require(VX_Message_To_SR(id) == VX_NORMAL_COMPLETION);
  std::vector<int32_t> open = {id};
  int32_t last_leaf = id;
  while (!open.empty()) {
    const int32_t node = open.back();
    open.pop_back();
    read_node(node);
    last_leaf = node;
    int32_t child = 0;
    int32_t last = 0;
    VX_SR_Get_First_Child(node, &child, &last);
    for (; child != 0; VX_SR_Get_Next_Child(node, &child, &last)) open.push_back(child);
  }
  require(VX_SR_To_Message(id) == VX_NORMAL_COMPLETION);
  require(encode(id) == before);
  require(VX_Message_To_SR(id) == VX_NORMAL_COMPLETION);
  // A reference to a leaf; the leaf goes, comes back below the root and goes for good.
  int32_t target = 0;
  int32_t reference = 0;
  if (VX_SRH_Add_Reference(id, SRH_CONTAINS, last_leaf) == VX_NORMAL_COMPLETION &&
      VX_Get_Value_To_Int(id, 0x0040A730, &reference) == VX_NORMAL_COMPLETION) {
    VX_SRH_Get_Reference(reference, &target);
  }
  if (last_leaf != id && VX_SR_Delete_Child(last_leaf) == VX_NORMAL_COMPLETION) {
    if (VX_SR_Add_Child(id, last_leaf) == VX_NORMAL_COMPLETION)
      require(VX_SR_Delete_Child(last_leaf) == VX_NORMAL_COMPLETION);
    VX_Free_Item(&last_leaf);
  }
  require(VX_SRH_Free_SR(id) == VX_NORMAL_COMPLETION);
  return 0;
}
