#include "data_sets.h"

#include "base/byte_stream.h"
#include "base/tags.h"
#include "base/thrown.h"
#include "files/files.h"

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

std::string write_part10(Message& message, const std::string& path, const Part10& head) {
  FileSink sink;
  std::string error = sink.open(path, head.mode);
  if (!error.empty()) return error;
  VX_STATUS status = VX_Message_To_File(message.id, path.c_str());
  VX_Set_Value_From_String(message.id, tags::kMediaStorageSOPClassUID, head.sop_class.c_str());
  VX_Set_Value_From_String(message.id, tags::kMediaStorageSOPInstanceUID, head.instance.c_str());
  if (status == VX_NORMAL_COMPLETION)
    status = VX_Set_Message_Transfer_Syntax(message.id, EXPLICIT_LITTLE_ENDIAN);
  if (status == VX_NORMAL_COMPLETION)
    status = VX_Write_File(message.id, 0, &sink, guarded<FileSink::file_output>);
  error = status == VX_NORMAL_COMPLETION ? sink.commit(head.durable) : VX_Error_Message(status);
  VX_Free_File(&message.id);
  return error;
}

}  // namespace vexal
