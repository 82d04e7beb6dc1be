// A callback of an application that holds a value.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "vexalkit.h"

namespace streams {

// What a callback was asked and told, and what it answers.
struct Holder {
  std::vector<int> requests;
  std::string data;   // given and taken
  std::string table;  // taken
  uint32_t announced = 0;
  int64_t offset = -1;
  uint32_t length = 0;
  std::size_t piece = 100, at = 0;
  bool end_early = false;
  int refuse = 0;
  std::string given;
  static constexpr uint32_t kWhatIsThere = 0xEEEEEEEEU;

  static VX_STATUS call(int32_t, uint32_t, void* user, VX_CALLBACK_REQUEST request, uint32_t* size,
                        void** data, int32_t first, int32_t* last) {
    return static_cast<Holder*>(user)->answer(request, size, data, first, last);
  }
  VX_STATUS answer(VX_CALLBACK_REQUEST request, uint32_t* size, void** bytes, int32_t first, int32_t* last) {
    if (requests.empty() || requests.back() != request) requests.push_back(request);
    if (request == refuse) return VX_CANNOT_COMPLY;
    switch (request) {
      case VX_REQUEST_LENGTH:
        *size = length != kWhatIsThere ? length : static_cast<uint32_t>(table.size() + data.size());
        break;
      case VX_REQUEST_DATA: {
        if (first != 0) at = 0;
        const std::size_t part = std::min(piece, data.size() - at);
        *size = static_cast<uint32_t>(part);
        *bytes = data.data() + at;
        at += part;
        *last = at == data.size() || end_early ? 1 : 0;
        break;
      }
      case VX_PROVIDE_LENGTH:
      case VX_PROVIDE_LENGTH_KEPT:
        announced = *size;
        if (*bytes != nullptr) offset = *static_cast<uint32_t*>(*bytes);
        break;
      case VX_PROVIDE_DATA:
        if (*size > 0) data.append(static_cast<const char*>(*bytes), *size);
        break;
      case VX_PROVIDE_OFFSET_TABLE:
        table.assign(static_cast<const char*>(*bytes), *size);
        break;
      case VX_REQUEST_DATA_AT_OFFSET:
        given = (table + data).substr(*size, piece);
        *size = static_cast<uint32_t>(given.size());
        *bytes = given.data();
        break;
      default:
        break;
    }
    return VX_NORMAL_COMPLETION;
  }
};

}  // namespace streams
