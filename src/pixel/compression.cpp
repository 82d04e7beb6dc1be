#include "pixel/compression.h"

#include <unordered_set>
#include <vector>

#include "config/transfer_syntax.h"
#include "frame/no_throw.h"
#include "frame/state.h"
#include "model/attributes.h"
#include "pixel/image.h"

namespace vx {

VX_STATUS CodecRun::call(const void* data, uint32_t size, bool last, const void*& out, uint32_t& out_size) {
  const int32_t first = started_ ? 0 : 1;
  started_ = true;
  last_data_ = const_cast<void*>(data);
  last_size_ = size;
  void* bytes = nullptr;
  uint32_t count = 0;
  const VX_STATUS status =
      callback_(object_.ID, &context_, size, last_data_, &count, &bytes, first, last ? 1 : 0, 0);
  out = bytes;
  out_size = bytes != nullptr ? count : 0;
  if (status != kOk) abandon();
  return status;
}

VX_STATUS CodecRun::finish() {
  if (!started_) return kOk;
  void* bytes = nullptr;
  uint32_t count = 0;
  const VX_STATUS status = callback_(object_.ID, &context_, last_size_, last_data_, &count, &bytes, 0, 0, 1);
  if (status != kOk) {
    abandon();
  } else {
    started_ = false;
  }
  return status;
}

void CodecRun::abandon() {
  if (!started_) return;
  started_ = false;
  void* bytes = nullptr;
  uint32_t count = 0;
  callback_(object_.ID, &context_, 0, nullptr, &count, &bytes, 0, 0, 1);
  context_ = nullptr;
}

namespace {

// The items below an object that hold encapsulated pixels of their own, icons for the most part.
void register_in_items(const MsgObj& object, void* compressor, void* decompressor) {
  std::unordered_set<const MsgObj*> seen;
  std::vector<const MsgObj*> work{&object};
  while (!work.empty()) {
    const MsgObj* holder = work.back();
    work.pop_back();
    for (const TagObj* attribute = holder->FirstTag; attribute != nullptr; attribute = attribute->Next) {
      if (attribute->VR != VX_VR_SQ) continue;
      for (const ValueObj* value = attribute->FirstValue; value != nullptr; value = value->Next) {
        auto* item = static_cast<MsgObj*>(value->Data);
        if (item == nullptr || item->FirstTag == nullptr || !seen.insert(item).second) continue;
        work.push_back(item);
        if (item->SyntaxSet == 0 || !is_encapsulated_syntax(item->TransferSyntax)) continue;
        if (find_tag(*item, kPixelData) == nullptr) continue;
        item->Compressor = compressor;
        item->Decompressor = decompressor;
      }
    }
  }
}

}  // namespace
}  // namespace vx

VX_STATUS VX_Register_Compression_Callbacks(int32_t MsgID, VX_COMPRESSION_CALLBACK Compressor,
                                            VX_COMPRESSION_CALLBACK Decompressor) {
  VX_REQUIRE_LIBRARY();
  vx::MsgObj* object = vx::find_object(MsgID);
  if (object == nullptr) return VX_INVALID_MESSAGE_ID;
  VX_TRANSFER_SYNTAX syntax = 0;
  if (VX_STATUS status = vx::encapsulated_syntax(*object, syntax); status != vx::kOk) return status;
  object->Compressor = reinterpret_cast<void*>(Compressor);
  object->Decompressor = reinterpret_cast<void*>(Decompressor);
  if (object->ObjectKind != vx::Kind::Message) return vx::kOk;
  return vx::no_throw([&] {
    vx::register_in_items(*object, object->Compressor, object->Decompressor);
    return vx::kOk;
  });
}
