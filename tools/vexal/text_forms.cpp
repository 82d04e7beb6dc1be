#include "text_forms.h"

#include "session.h"

namespace vexal {
namespace {

// What counts as read: values that break a rule of their VR are stored as they are.
bool is_stored(VX_STATUS status) {
  return status == VX_NORMAL_COMPLETION || status == VX_INVALID_VALUE_FOR_VR ||
         status == VX_INVALID_CHARS_IN_VALUE;
}

}  // namespace

VX_STATUS append_text(int32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  static_cast<std::string*>(user)->append(static_cast<const char*>(data), size);
  return VX_NORMAL_COMPLETION;
}

VX_STATUS give_text(int32_t, void* user, uint32_t* size, void** data, int32_t, int32_t* last) {
  return static_cast<FileSource*>(user)->next(size, data, last);
}

int file_from_text(const std::string& in, const std::string& out, const WriteOptions& write,
                   const std::function<VX_STATUS(int32_t, FileSource&)>& read) {
  CurrentFile current(in);
  FileSource source;
  std::string problem = source.open(in);
  DicomFile file;
  int32_t id = -1;
  int exit = kSuccess;
  if (problem.empty()) {
    VX_STATUS status = VX_Create_Empty_File(&id, out.c_str());
    if (status == VX_NORMAL_COMPLETION) {
      file.adopt(id);
      status = read(id, source);
    }
    if (!is_stored(status)) {
      report(in, VX_Error_Message(status));
      if (status == VX_CALLBACK_CANNOT_COMPLY || status == VX_SYSTEM_ERROR) return kUsage;
      exit = kFindings;  // what could be read is written
    }
  } else {
    report(in, problem);
    return kUsage;
  }
  VX_TRANSFER_SYNTAX syntax = 0;
  if (VX_Get_Message_Transfer_Syntax(id, &syntax) != VX_NORMAL_COMPLETION)
    file.set_syntax(EXPLICIT_LITTLE_ENDIAN);
  problem = write_file(file, out, write);
  if (problem.empty()) return exit;
  report(out, problem);
  return kUsage;
}

}  // namespace vexal
