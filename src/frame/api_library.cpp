#include "frame/app.h"
#include "frame/library.h"
#include "frame/no_throw.h"
#include "frame/state.h"
#include "frame/text.h"

using namespace vx;

extern "C" {

VX_STATUS VX_Library_Initialization(VX_CONFIG_FUNCTION ConfigFunction,
                                    VX_DICTIONARY_FUNCTION DictionaryFunction,
                                    VX_MESSAGE_INFO_FUNCTION MessageInfoFunction) {
  return no_throw(
      [&] { return library_initialize(ConfigFunction, DictionaryFunction, MessageInfoFunction); });
}

VX_STATUS VX_Library_Reset(void) {
  return no_throw(library_reset);
}

VX_STATUS VX_Library_Release(void) {
  return no_throw(library_release);
}

VX_STATUS VX_Set_VexalINI(const char* Path) {
  return record_ini_path(Path);
}

VX_STATUS VX_Register_Application(int32_t* ApplicationID, const char* ApplicationTitle) {
  VX_REQUIRE_LIBRARY();
  return register_application(ApplicationID, ApplicationTitle);
}

VX_STATUS VX_Release_Application(int32_t* ApplicationID) {
  VX_REQUIRE_LIBRARY();
  return no_throw([&] { return release_application(ApplicationID); });
}

const char* VX_Error_Message(VX_STATUS Status) {
  return status_text(Status);
}

VX_STATUS VX_Get_Version_String(int32_t BufferSize, char* Buffer) {
  VX_REQUIRE_POINTER(Buffer);
  if (BufferSize < static_cast<int32_t>(sizeof VX_VERSION_STRING)) return VX_BUFFER_TOO_SMALL;
  copy_text(Buffer, static_cast<std::size_t>(BufferSize), VX_VERSION_STRING);
  return kOk;
}

}  // extern "C"
