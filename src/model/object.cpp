#include "model/object.h"

#include <atomic>
#include <cstring>
#include <new>
#include <string_view>
#include <vector>

#include "config/config.h"
#include "config/services.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "frame/state.h"
#include "model/attributes.h"
#include "model/callbacks.h"
#include "model/deferred.h"
#include "model/held.h"
#include "model/message_info.h"
#include "model/seams.h"
#include "model/values.h"

namespace vx {
namespace {

constexpr std::string_view kDirectoryService = "DICOMDIR";

struct CommandAttribute {
  uint16_t element;
  uint8_t vr;
};
// Group 0000 of every object that is opened with a template.
constexpr CommandAttribute kCommandAttributes[] = {
    {0x0000, VX_VR_UL}, {0x0002, VX_VR_UI}, {0x0003, VX_VR_UI}, {0x0100, VX_VR_US}, {0x0110, VX_VR_US},
    {0x0120, VX_VR_US}, {0x0600, VX_VR_AE}, {0x0700, VX_VR_US}, {0x0800, VX_VR_US}, {0x0900, VX_VR_US},
    {0x0901, VX_VR_AT}, {0x0902, VX_VR_LO}, {0x0903, VX_VR_US}, {0x1000, VX_VR_UI}, {0x1001, VX_VR_UI},
    {0x1002, VX_VR_US}, {0x1005, VX_VR_AT}, {0x1008, VX_VR_US}, {0x1020, VX_VR_US}, {0x1021, VX_VR_US},
    {0x1022, VX_VR_US}, {0x1023, VX_VR_US}, {0x1030, VX_VR_AE}, {0x1031, VX_VR_US}};

bool tracing() {
  return config_bool(VX_CFG_MSG_FILE_ITEM_OBJ_TRACE);
}

// Most items have no name of their own: they share the constant.
char* copy_name(const char* name) {
  return std::strcmp(name, kNoName) == 0 ? const_cast<char*>(kNoName) : duplicate_text(name);
}
void release_name(char* name) {
  if (name != kNoName) release(name);
}

void release_directory(MsgObj& object) {
  const int32_t sort = directory_sort(object);
  if (sort < kDirectoryInMemory || sort > kDirectoryRecord) {
    VX_LOG_ERR("VXI_freeMessage", "Message object has unknown directory info type (%d)", sort);
  } else if (release_directory_records != nullptr) {
    release_directory_records(object);
  }
  release(object.DirectoryInfo);
  object.DirectoryInfo = nullptr;
}

void release_contents(MsgObj& object) {
  if (object.ReportNode != nullptr && release_report_node != nullptr) release_report_node(object);
  free_all_tags(object);
  free_bindings(object);
  while (object.ValidationErrors.Head != nullptr) {
    pool_free(Pool::ValErrObj, list_remove_head(object.ValidationErrors));
  }
  release_name(object.ServiceName);
  if (object.StreamResume != nullptr) release_stream_resume(object);
  if (object.EncapsulationState != nullptr && release_encapsulation_state != nullptr) {
    release_encapsulation_state(object);
  }
  if (object.DirectoryInfo != nullptr) release_directory(object);
  if (object.File != nullptr) free_file_info(object);
}

// Objects whose end has come, on this thread. Clearing a sequence adds its items here, so that any depth of
// nesting costs no stack.
struct EndQueue {
  MsgObj* head;
  bool running;
};
thread_local EndQueue end_queue;

// Freed by functions of the caller that this thread ran, while the library worked with them.
struct Parked {
  MsgObj* head;
  uint64_t life;  // of the library: what an earlier one parked went with its pools
};
thread_local Parked parked;

void park(MsgObj& object) {
  const uint64_t life = LibraryLife.load(std::memory_order_relaxed);
  if (parked.life != life) parked = {nullptr, life};
  object.NextParked = parked.head;
  parked.head = &object;
}

// The object is out of the registry. Its compressor is of no more use and links it to the next one.
void destroy(MsgObj& object) {
  if (is_object_held(object)) return park(object);
  if (tracing()) trace_object(object, false, true);
  object.Decompressor = nullptr;
  object.Compressor = end_queue.head;
  end_queue.head = &object;
  if (end_queue.running) return;
  end_queue.running = true;
  while (end_queue.head != nullptr) {
    MsgObj* next = end_queue.head;
    end_queue.head = static_cast<MsgObj*>(next->Compressor);
    next->Compressor = nullptr;
    release_contents(*next);
    pool_free(Pool::MsgObj, next);
  }
  end_queue.running = false;
}

// Takes references to a freed item out of one attribute.
void drop_references(TagObj& attribute, const MsgObj* item) {
  ValueObj* previous = nullptr;
  for (ValueObj* value = attribute.FirstValue; value != nullptr;) {
    ValueObj* next = value->Next;
    if (value->Data == item) {
      (previous != nullptr ? previous->Next : attribute.FirstValue) = next;
      if (attribute.LastValue == value) attribute.LastValue = previous;
      free_value(value);
      --attribute.ValueCount;
      --attribute.Length;
      set_cursor(attribute, {});
    } else {
      previous = value;
    }
    value = next;
  }
}

// The IDs are taken down first: the registry's locks are never held while an object is worked on.
void eliminate_references(const MsgObj* item) {
  std::vector<int32_t> ids;
  try {
    state().messages.for_each(
        [](void* object, void* context) {
          static_cast<std::vector<int32_t>*>(context)->push_back(static_cast<MsgObj*>(object)->ID);
        },
        &ids);
  } catch (const std::bad_alloc&) {
    VX_LOG_ERR("VXI_freeItem", "No memory to look for references to an item");
  }
  for (const int32_t id : ids) {
    MsgObj* object = find_object(id);
    if (object == nullptr) continue;
    const Guard guard(object->Semaphore);
    for (TagObj* attribute = object->FirstTag; attribute != nullptr; attribute = attribute->Next) {
      if (attribute->VR == VX_VR_SQ) drop_references(*attribute, item);
    }
  }
}

// A failed opening leaves nothing; a fault of the file has one status.
VX_STATUS give_up(MsgObj*& object, VX_STATUS status) {
  state().messages.remove(object->ID);
  destroy(*object);
  object = nullptr;
  return status == VX_SYSTEM_ERROR ? VX_SYSTEM_ERROR : VX_MSGFILE_ERROR;
}

}  // namespace

const char* kind_label(Kind kind) {
  constexpr const char* kLabels[] = {"MESSAGE", "ITEM", "DICOMDIR", "FILE", "SR"};
  return kLabels[static_cast<int32_t>(kind)];
}

MsgObj* find_object(int32_t id) {
  return id < 0 ? nullptr : static_cast<MsgObj*>(state().messages.find(id));
}

VX_STATUS open_object(Kind kind, const char* name, MsgObj*& out) {
  out = nullptr;
  auto* object = new_object<MsgObj>(Pool::MsgObj);
  if (object == nullptr) return VX_SYSTEM_ERROR;
  object->ServiceName = copy_name(name);
  if (object->ServiceName == nullptr) {
    pool_free(Pool::MsgObj, object);
    return VX_SYSTEM_ERROR;
  }
  object->ObjectKind = kind;
  object->ServiceNumber = -1;
  object->Command = 65535;
  object->LargeDataStore = static_cast<Stored>(config_first_char(VX_CFG_LARGE_DATA_STORE));
  object->LargeDataSize = config_int(VX_CFG_LARGE_DATA_SIZE);
  object->TemplatePending = 1;
  object->TransferSyntax = IMPLICIT_LITTLE_ENDIAN;
  // From here on other threads may see the object.
  object->ID = state().messages.add(object);
  if (object->ID < 0) {
    release_name(object->ServiceName);
    pool_free(Pool::MsgObj, object);
    return VX_SYSTEM_ERROR;
  }
  if (tracing()) trace_object(*object, true, false);
  out = object;
  return kOk;
}

VX_STATUS add_command_attributes(MsgObj& object) {
  for (const CommandAttribute& row : kCommandAttributes) {
    const VX_STATUS status = new_tag(object, row.element, row.vr, 1, 1, nullptr);
    if (status != kOk && status != VX_TAG_ALREADY_EXISTS) return status;
  }
  return kOk;
}

VX_STATUS open_message(const char* service, uint16_t command, MsgObj*& out) {
  VX_STATUS status = open_object(Kind::Message, service, out);
  if (status != kOk) return status;
  out->Command = command;
  const SopObj* row = find_service(service);
  if (row != nullptr) out->ServiceNumber = row->number;
  status = add_command_attributes(*out);
  if (status != kOk) return give_up(out, status);
  if (row == nullptr) {
    if (std::strcmp(service, kNoName) != 0 && log_enabled(VX_LOG_T7)) {
      const char* name = command_name(command);
      log_line(VX_LOG_T7, "VX_Open_Message", "WARNING: No Service %s, Command %s in info file.", service,
               name != nullptr ? name : "");
    }
    return kOk;
  }
  status = fill_from_template(*out, 0, false);
  return status == kOk ? kOk : give_up(out, status);
}

VX_STATUS open_item(const char* name, MsgObj*& out) {
  VX_STATUS status = open_object(Kind::Item, name, out);
  if (status != kOk || std::strcmp(name, kNoName) == 0) return status;
  if (find_item_number(name) < 0) {
    if (log_enabled(VX_LOG_T7))
      log_line(VX_LOG_T7, "VX_Open_Item", "WARNING: No Item %s in info file.", name);
    return kOk;
  }
  if (config_bool(VX_CFG_FORCE_OPEN_EMPTY_ITEM)) return kOk;
  status = fill_from_template(*out, 0, false);
  return status == kOk ? kOk : give_up(out, status);
}

VX_STATUS free_object(MsgObj& object, const char* function, VX_STATUS bad_id) {
  switch (object.ObjectKind) {
    case Kind::SrItem:
      VX_LOG_ERR(function, "Object is SR_ITEM, use VX_SRH_Free_SR instead of %s", function);
      return bad_id;
    case Kind::Item:
      return free_item(object, false) == kOk ? kOk : bad_id;
    default:
      break;
  }
  if (!state().messages.remove(object.ID)) return bad_id;
  destroy(object);
  return kOk;
}

VX_STATUS free_item(MsgObj& item, bool force) {
  const int32_t references = std::atomic_ref<int32_t>(item.RefCount).load(std::memory_order_acquire);
  if (!force && references > 0) {
    if (log_enabled(VX_LOG_T1)) {
      log_line(VX_LOG_T1, nullptr, "Item %d was not freed because a message is referencing it.", item.ID);
    }
    return kOk;
  }
  // Whoever takes the ID out frees the item: a second thread finds it gone.
  if (!state().messages.remove(item.ID)) return VX_INVALID_ITEM_ID;
  if (references > 0 && config_bool(VX_CFG_ELIMINATE_ITEM_REFERENCES)) eliminate_references(&item);
  destroy(item);
  return kOk;
}

void end_parked_objects() {
  if (parked.head == nullptr || anything_held()) return;
  MsgObj* object = parked.life == LibraryLife.load(std::memory_order_relaxed) ? parked.head : nullptr;
  parked.head = nullptr;
  while (object != nullptr) {
    MsgObj* next = object->NextParked;
    destroy(*object);
    object = next;
  }
}

void empty_object(MsgObj& object) {
  const bool drop_creators = config_bool(VX_CFG_EMPTY_PRIVATE_CREATOR_CODES);
  TagObj* next = nullptr;
  for (TagObj* attribute = object.FirstTag; attribute != nullptr; attribute = next) {
    next = attribute->Next;
    if (!is_private_creator(attribute->Tag)) {
      clear_value(object, *attribute, false, true);
    } else if (drop_creators) {
      delete_attribute(object, attribute->Tag);
    }
  }
}

VX_STATUS set_object_name(MsgObj& object, const char* name) {
  char* copy = copy_name(name);
  if (copy == nullptr) return VX_SYSTEM_ERROR;
  release_name(object.ServiceName);
  object.ServiceName = copy;
  return kOk;
}

VX_STATUS set_service_command(MsgObj& object, const char* service, uint16_t command) {
  const VX_STATUS status = set_object_name(object, service);
  if (status != kOk) return status;
  object.Command = command;
  const SopObj* row = find_service(service);
  if (row != nullptr) object.ServiceNumber = row->number;
  const bool directory = std::string_view(service).starts_with(kDirectoryService);
  if (!directory && object.ObjectKind == Kind::Dicomdir) {
    if (object.DirectoryInfo != nullptr) release_directory(object);
    object.ObjectKind = Kind::File;
  } else if (directory && object.ObjectKind != Kind::Dicomdir) {
    if (object.DirectoryInfo == nullptr && create_directory_records != nullptr) {
      const VX_STATUS created = create_directory_records(object);
      if (created != kOk) return created;
    }
    object.ObjectKind = Kind::Dicomdir;
  }
  return kOk;
}

int32_t adjust_references(MsgObj& item, int32_t delta) {
  const int32_t count =
      std::atomic_ref<int32_t>(item.RefCount).fetch_add(delta, std::memory_order_acq_rel) + delta;
  if (tracing()) trace_object(item, false, false);
  return count;
}

}  // namespace vx
