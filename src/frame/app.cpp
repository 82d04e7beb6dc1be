#include "frame/app.h"

#include <cstring>

#include "frame/pool.h"
#include "frame/seams.h"
#include "frame/state.h"
#include "frame/text.h"

namespace vx {
namespace {

constexpr std::size_t kMostTitle = 16;

bool has_title(const void* object, const void* title) {
  return std::strcmp(static_cast<const AppObj*>(object)->Title, static_cast<const char*>(title)) == 0;
}

VX_STATUS add_application(int32_t& id, const char* title) {
  auto* app = new_object<AppObj>(Pool::AppObj);
  if (app == nullptr) return VX_SYSTEM_ERROR;
  copy_text(app->Title, sizeof app->Title, title);
  const int32_t added = state().applications.add(app);
  if (added < 0) {
    pool_free(Pool::AppObj, app);
    return VX_SYSTEM_ERROR;
  }
  app->ID = added;
  id = added;
  return kOk;
}

}  // namespace

AppObj* find_application(int32_t id) {
  return static_cast<AppObj*>(state().applications.find(id));
}

VX_STATUS register_application(int32_t* id, const char* title) {
  StateBlock& block = state();
  const Guard guard(block.applications.semaphore);
  if (!block.EchoTried) {
    block.EchoTried = true;
    int32_t echo = -1;
    if (add_application(echo, "VEXAL_ECHO") == kOk) block.EchoApplicationID = echo;
  }
  if (id == nullptr || title == nullptr) return VX_NULL_POINTER_PARM;
  *id = -1;
  const std::size_t length = std::strlen(title);
  if (length < 1 || length > kMostTitle) return VX_INVALID_LENGTH_FOR_TITLE;
  if (block.applications.find_if(has_title, title) != nullptr) return VX_ALREADY_REGISTERED;
  return add_application(*id, title);
}

VX_STATUS release_application(int32_t* id) {
  if (id == nullptr) return VX_NULL_POINTER_PARM;
  AppObj* app = find_application(*id);
  if (app == nullptr) return VX_INVALID_APPLICATION_ID;
  release_application_callbacks(*app);
  if (release_application_sessions != nullptr) release_application_sessions(*app);
  // Out of the registry first, so that of two threads only one frees the record.
  if (!state().applications.remove(*id)) return VX_INVALID_APPLICATION_ID;
  if (state().EchoApplicationID == *id) state().EchoApplicationID = -1;
  list_clear(app->Callbacks);
  list_clear(app->Sessions);
  list_clear(app->NegotiationInfo);
  pool_free(Pool::AppObj, app);
  *id = -1;
  return kOk;
}

}  // namespace vx
