#include "codec/saved_data.h"
#include "frame/no_throw.h"
#include "frame/state.h"
#include "media/directory.h"
#include "vexalkit.h"

namespace {

using vx::RecordPlace;

// Calls with the directory locked. VX_INVALID_DICOMDIR_ID.
template <typename Call>
VX_STATUS with_directory(int32_t id, Call&& call) {
  vx::MsgObj* directory = vx::find_object(id);
  if (directory == nullptr) return VX_INVALID_DICOMDIR_ID;
  const vx::Guard lock(directory->Semaphore);
  if (vx::directory_state(*directory) == nullptr) return VX_INVALID_DICOMDIR_ID;
  return vx::no_throw([&] { return call(*directory); });
}

// Where a walk hands its results; any may be null, which the callers rule out for those that count.
struct PlaceOut {
  int32_t* entity;
  int32_t* record;
  const char** name;
  int32_t* last;
};
void tell(const PlaceOut& out, const RecordPlace& place) {
  if (out.entity != nullptr) *out.entity = place.entity;
  *out.record = place.record;
  *out.name = place.name;
  *out.last = place.last ? 1 : 0;
}

template <typename Call>
VX_STATUS walk(int32_t id, const PlaceOut& out, Call&& call) {
  RecordPlace place;
  const VX_STATUS status = with_directory(id, [&](vx::MsgObj& directory) { return call(directory, place); });
  tell(out, status == vx::kOk ? place : RecordPlace{});
  return status;
}

}  // namespace

VX_STATUS VX_Dir_Root_Entity(int32_t DirID, int32_t* EntityID, int32_t* RecordID, const char** RecordName,
                             int32_t* IsLast) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(EntityID);
  VX_REQUIRE_POINTER(RecordID);
  VX_REQUIRE_POINTER(RecordName);
  VX_REQUIRE_POINTER(IsLast);
  return walk(DirID, {EntityID, RecordID, RecordName, IsLast}, vx::root_entity);
}

VX_STATUS VX_Dir_First_Record(int32_t DirID, int32_t EntityID, int32_t* RecordID, const char** RecordName,
                              int32_t* IsLast) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(RecordID);
  VX_REQUIRE_POINTER(RecordName);
  VX_REQUIRE_POINTER(IsLast);
  return walk(DirID, {nullptr, RecordID, RecordName, IsLast}, [&](vx::MsgObj& directory, RecordPlace& place) {
    return vx::begin_entity(directory, EntityID, place);
  });
}

VX_STATUS VX_Dir_Next_Record(int32_t DirID, int32_t EntityID, int32_t* RecordID, const char** RecordName,
                             int32_t* IsLast) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(RecordID);
  VX_REQUIRE_POINTER(RecordName);
  VX_REQUIRE_POINTER(IsLast);
  return walk(DirID, {nullptr, RecordID, RecordName, IsLast}, [&](vx::MsgObj& directory, RecordPlace& place) {
    return vx::next_record(directory, EntityID, place);
  });
}

VX_STATUS VX_Dir_Next_Entity(int32_t DirID, int32_t RecordID, int32_t* EntityID, int32_t* FirstRecordID,
                             const char** RecordName, int32_t* IsLast) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(EntityID);
  VX_REQUIRE_POINTER(FirstRecordID);
  VX_REQUIRE_POINTER(RecordName);
  VX_REQUIRE_POINTER(IsLast);
  return walk(DirID, {EntityID, FirstRecordID, RecordName, IsLast},
              [&](vx::MsgObj& directory, RecordPlace& place) {
                return vx::lower_entity(directory, RecordID, place);
              });
}

VX_STATUS VX_Dir_Root_Count(int32_t DirID, int32_t* Count) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Count);
  return with_directory(DirID, [&](vx::MsgObj& directory) -> VX_STATUS {
    const vx::DirectoryState& state = *vx::directory_state(directory);
    if (state.Root == nullptr) return VX_UNABLE_TO_GET_ITEM_ID;
    *Count = state.Count;
    return vx::kOk;
  });
}

VX_STATUS VX_Dir_Entity_Count(int32_t DirID, int32_t EntityID, int32_t* Count) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Count);
  return with_directory(DirID, [&](vx::MsgObj& directory) -> VX_STATUS {
    const vx::EntityObj* entity = vx::find_entity(*vx::directory_state(directory), EntityID);
    if (entity == nullptr) return VX_INVALID_ENTITY_ID;
    *Count = entity->RecordCount;
    return vx::kOk;
  });
}

VX_STATUS VX_Dir_Item_Count(int32_t DirID, int32_t RecordID, int32_t* Count) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Count);
  return with_directory(DirID,
                        [&](vx::MsgObj& directory) { return vx::count_below(directory, RecordID, *Count); });
}

VX_STATUS VX_Dir_Add_Entity(int32_t DirID, int32_t ParentRecordID, const char* RecordName, int32_t* EntityID,
                            int32_t* RecordID) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(RecordName);
  VX_REQUIRE_POINTER(EntityID);
  VX_REQUIRE_POINTER(RecordID);
  return with_directory(DirID, [&](vx::MsgObj& directory) {
    return vx::add_entity(directory, ParentRecordID, RecordName, *EntityID, *RecordID);
  });
}

VX_STATUS VX_Dir_Add_Record(int32_t DirID, int32_t EntityID, const char* RecordName, int32_t* RecordID) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(RecordName);
  VX_REQUIRE_POINTER(RecordID);
  return with_directory(DirID, [&](vx::MsgObj& directory) {
    return vx::add_record(directory, EntityID, RecordName, *RecordID);
  });
}

VX_STATUS VX_Dir_Delete_Record(int32_t DirID, int32_t RecordID) {
  VX_REQUIRE_LIBRARY();
  return with_directory(DirID, [&](vx::MsgObj& directory) { return vx::delete_record(directory, RecordID); });
}

VX_STATUS VX_Dir_Delete_Referenced_Entity(int32_t DirID, int32_t RecordID) {
  VX_REQUIRE_LIBRARY();
  return with_directory(DirID,
                        [&](vx::MsgObj& directory) { return vx::delete_lower_records(directory, RecordID); });
}

VX_STATUS VX_Dir_Open_MRDR(int32_t DirID, int32_t RecordID, const char* RecordName, int32_t* MrdrID) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(RecordName);
  VX_REQUIRE_POINTER(MrdrID);
  return with_directory(
      DirID, [&](vx::MsgObj& directory) { return vx::open_mrdr(directory, RecordID, RecordName, *MrdrID); });
}

VX_STATUS VX_Dir_Reference_MRDR(int32_t DirID, int32_t RecordID, int32_t MrdrID) {
  VX_REQUIRE_LIBRARY();
  return with_directory(
      DirID, [&](vx::MsgObj& directory) { return vx::reference_mrdr(directory, RecordID, MrdrID); });
}

VX_STATUS VX_Dir_Remove_Ref_MRDR(int32_t DirID, int32_t RecordID) {
  VX_REQUIRE_LIBRARY();
  return with_directory(
      DirID, [&](vx::MsgObj& directory) { return vx::remove_mrdr_reference(directory, RecordID); });
}

VX_STATUS VX_Dir_Sort(int32_t DirID) {
  VX_REQUIRE_LIBRARY();
  return with_directory(DirID, vx::sort_directory);
}

VX_STATUS VX_Dir_Stream_Directory_Record(int32_t DirID, int32_t RecordID) {
  VX_REQUIRE_LIBRARY();
  return with_directory(DirID, [&](vx::MsgObj& directory) -> VX_STATUS {
    vx::MsgObj* record = nullptr;
    const VX_STATUS status = vx::find_record(directory, RecordID, false, record);
    return status == vx::kOk ? vx::save_attributes(*record, vx::kFirstRecordKey) : status;
  });
}
