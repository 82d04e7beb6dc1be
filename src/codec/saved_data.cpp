#include "codec/saved_data.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "codec/decoder.h"
#include "codec/stream_calls.h"
#include "config/config.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "model/attributes.h"

namespace vx {

namespace {

constexpr char kFunction[] = "VX_Dir_Stream_Directory_Record";

// The growing block that an encode fills: the head of a SavedData, then the bytes.
struct Growing {
  SavedData* block = nullptr;
  uint32_t capacity = 0;
};

constexpr uint32_t kLeastBlock = 1024;

bool grow(Growing& out, uint32_t needed) {
  const uint32_t capacity = std::max(kLeastBlock, needed + needed / 2);
  auto* block = static_cast<SavedData*>(reallocate(sizeof(SavedData) + capacity, out.block));
  if (block == nullptr) {
    VX_LOG_ERR(kFunction, "Unable to allocate memory of size %lu to store streamed data",
               static_cast<unsigned long>(capacity));
    return false;
  }
  if (out.block == nullptr) block->Length = 0;
  out = {block, capacity};
  return true;
}

VX_STATUS collect(int32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  auto& out = *static_cast<Growing*>(user);
  const uint32_t used = out.block != nullptr ? out.block->Length : 0;
  if (size > 0x40000000U - used) return VX_CANNOT_COMPLY;
  if ((out.block == nullptr || used + size > out.capacity) && !grow(out, used + size))
    return VX_CANNOT_COMPLY;
  std::memcpy(out.block->bytes() + used, data, size);
  out.block->Length = used + size;
  return kOk;
}

}  // namespace

VX_STATUS save_attributes(MsgObj& object, uint32_t first) {
  if (object.DirectoryInfo != nullptr || lower_bound_tag(object, first) == nullptr) return kOk;
  Growing out;
  VX_STATUS status = message_to_stream(object, first, 0xFFFFFFFFU, EXPLICIT_LITTLE_ENDIAN, &out, collect);
  if (status != kOk) {
    VX_LOG_ERR(kFunction, "Unable to stream directory record: %s", status_text(status));
    release(out.block);
    return status;
  }
  if (out.block == nullptr || out.block->Length == 0) {
    release(out.block);
    return kOk;
  }
  // Nobody adds to it any more.
  auto* fitted = static_cast<SavedData*>(allocate_raw(sizeof(SavedData) + out.block->Length));
  if (fitted == nullptr) {
    VX_LOG_ERR(kFunction, "Unable to allocate direct memory of size %lu to store streamed data",
               static_cast<unsigned long>(out.block->Length));
    release(out.block);
    return VX_SYSTEM_ERROR;
  }
  std::memcpy(fitted, out.block, sizeof(SavedData) + out.block->Length);
  release(out.block);
  fitted->Sort = kDeferredStream;
  fitted->Syntax = EXPLICIT_LITTLE_ENDIAN;
  fitted->FirstTag = first;
  status = delete_range(object, first, 0xFFFFFFFFU);
  object.DirectoryInfo = fitted;
  return status;
}

VX_STATUS decode_deferred(MsgObj& object, uint32_t tag) try {
  Guard lock(object.Semaphore);
  const SavedData* saved = saved_data(object);
  if (saved == nullptr || tag < saved->FirstTag) return kOk;
  object.DirectoryInfo = nullptr;  // what the decoder looks for is not in it
  ReadRequest request;
  VX_STATUS status = syntax_encoding(saved->Syntax, request.encoding);
  if (status == kOk) {
    Decoder decoder(object, request, saved->bytes(), saved->Length);
    status = decoder.run();
  }
  release(const_cast<SavedData*>(saved));
  return status;
} catch (const std::bad_alloc&) {
  return VX_SYSTEM_ERROR;
}

}  // namespace vx
