#include "data_sets.h"

#include "base/byte_stream.h"
#include "base/tags.h"
#include "base/thrown.h"

namespace vexal {

bool encode_data_set(int32_t message, std::string& bytes) {
  return VX_Message_To_Stream(message, tags::kFirstOfDataSet, tags::kLast, EXPLICIT_LITTLE_ENDIAN, &bytes,
                              append_to_string) == VX_NORMAL_COMPLETION;
}

bool decode_data_set(int32_t object, std::string& bytes) {
  uint32_t tag = 0;
  return bytes.empty() ||
         VX_Stream_To_Message(object, tags::kFirstOfDataSet, tags::kLast, EXPLICIT_LITTLE_ENDIAN, &tag,
                              &bytes, guarded<give_string>) == VX_NORMAL_COMPLETION;
}

}  // namespace vexal
