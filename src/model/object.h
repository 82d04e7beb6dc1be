// The one object behind messages, items, files and directories, and its attributes and values.
//
// The registry owns every MsgObj. A MsgObj owns its TagObj records, their value chains, its callback records
// and what its pointers say below; it counts, and does not own, the items in its sequences.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "frame/list.h"
#include "frame/lock.h"
#include "frame/status.h"

namespace vx {

enum class Kind : int32_t { Message = 0, Item = 1, Dicomdir = 2, File = 3, SrItem = 4 };
const char* kind_label(Kind kind);  // "MESSAGE", ...

struct MsgObj;
struct TagIndex;
struct ValTagObj;
struct FileObj;

// One piece of a value; its bytes follow it in the same allocation.
struct ValueObj {
  uint32_t Length;    // bytes of Data; 1 for an item
  uint32_t Capacity;  // bytes that a piece which grows has room for; 0: just Length; kOwnPiece
  void* Data;         // the bytes, or the MsgObj of an item; null for a value without data
  ValueObj* Next;
};

// Where the value of an attribute lies. The letters are those of LARGE_DATA_STORE in the profile.
enum class Stored : char { InMemory = 'M', InFile = 'F', ByCallback = 'C' };

// What finding and reading touch comes first: in a large table each cache line counts.
struct TagObj {
  uint32_t Tag;
  int32_t VR;
  int32_t ValueCount;
  uint32_t Length;  // bytes of all values; items in a sequence; kUndefinedLength: not known
  Stored Storage;
  char DecoderMark;  // kReadFromUn, kKeptText, or the first letter of OV, SV or UV on an attribute of VR UN
  uint8_t ReadStarted;
  uint8_t ReadFinished;
  int32_t CursorNumber;  // from 1
  ValueObj* FirstValue;
  TagObj* Next;
  ValueObj OwnPiece;  // one short piece of the value, or of one kept aside; free unless marked kOwnPiece
  uint8_t OwnBytes[16];
  ValueObj* CursorValue;
  ValueObj* CursorPrevious;
  ValueObj* LastValue;
  TagObj* Previous;
  ValTagObj* Template;  // shared with the template; null if no template names the attribute
  void* AuxBuffer;      // owned
  uint16_t VMLow;
  uint16_t VMHigh;       // 255: no limit
  uint32_t ValueOffset;  // stream offset of a value that a callback holds
  union {                // owned
    FileObj* File;       // with Stored::InFile: the blocks of a value on temporary files
    ValueObj* KeptText;  // with kKeptText: the text as its stream has it
  };
};

inline constexpr uint32_t kUndefinedLength = 0xFFFFFFFFU;
inline constexpr uint32_t kOwnPiece = 0xFFFFFFFFU;  // Capacity of a piece that lies in its attribute
static_assert(offsetof(TagObj, OwnBytes) == offsetof(TagObj, OwnPiece) + sizeof(ValueObj));
inline constexpr char kReadFromUn = 0x7F;  // on a sequence
// On a text that its values would not write as it was read: other padding, bytes behind a NUL.
inline constexpr char kKeptText = 0x7E;

// Preamble, prefix and name of a file; owned by the object.
struct FileInfo {
  char Preamble[128];
  char Prefix[4];
  char* FileName;  // owned
};

struct MsgObj {
  int32_t ID;
  Kind ObjectKind;
  int32_t RefCount;   // sequence values that reference this item; atomic access through std::atomic_ref
  char* ServiceName;  // owned; kNoName when there is none
  int32_t ServiceNumber;
  uint16_t Command;  // 65535 until set
  Stored LargeDataStore;
  int32_t LargeDataSize;
  int32_t ParentID;   // holder of the sequence that last took this item; 0 for none
  int32_t EntityID;   // of a record in a directory's tree; 0 for none
  CObList Callbacks;  // of CBObj, owned
  TagObj* FirstTag;
  TagObj* LastTag;
  TagObj* RemovedTags;
  TagObj* CurrentTag;
  TagObj* NextTag;
  TagIndex* Index;  // ordered index beside the chain, once the table is large; owned
  int32_t AttributeCount;
  CObList ValidationErrors;
  CNode* ValidationCursor;
  int32_t TemplatePending;
  int32_t TemplateApplied;
  int32_t SyntaxSet;
  VX_TRANSFER_SYNTAX TransferSyntax;
  void* DirectoryInfo;  // first word tells its sort; owned
  FileInfo* File;       // of files and directories; owned
  void* ReportNode;     // an SrRecObj of src/sr, while the object is part of a report tree; owned
  void* StreamResume;   // a DecodeRest of the codec, owned
  void* Compressor;
  void* Decompressor;
  Lock Semaphore;
  void* EncapsulationState;  // owned
  int32_t FrameBytesLeft;
  int32_t FrameSize;
  uint32_t PrivateTag;
  int32_t FirstOfFrame;
  int32_t Started;
  int32_t FirstElementTest;
  MsgObj* NextParked;  // freed while the library worked with it
};
static_assert(std::is_trivially_destructible_v<MsgObj> && std::is_trivially_destructible_v<TagObj>);

// Tags.
constexpr uint16_t tag_group(uint32_t tag) {
  return static_cast<uint16_t>(tag >> 16);
}
constexpr uint16_t tag_element(uint32_t tag) {
  return static_cast<uint16_t>(tag & 0xFFFFU);
}
constexpr bool is_private_group(uint16_t group) {
  return (group & 1U) != 0 && group > 7 && group != 0xFFFF;
}
constexpr bool is_private(uint32_t tag) {
  return is_private_group(tag_group(tag));
}
constexpr bool is_private_creator(uint32_t tag) {
  return is_private(tag) && tag_element(tag) >= 0x10 && tag_element(tag) <= 0xFF;
}
constexpr bool is_repeating(uint32_t tag) {
  const uint32_t high = tag >> 24;
  return (high == 0x50 || high == 0x60) && ((tag >> 16) & 0xFFU) != 0 && !is_private(tag);
}
// The tag of the dictionary entry and the template of a repeating group.
constexpr uint32_t repeating_base(uint32_t tag) {
  return tag & 0xFF00FFFFU;
}
inline constexpr uint32_t kPixelData = 0x7FE00010U;
// Items and their delimiters, which are no attributes.
inline constexpr uint16_t kStructureGroup = 0xFFFE;

// --- Objects ---

MsgObj* find_object(int32_t id);
// Opens an object of a kind with a copy of a name. On failure out is null and nothing is left.
VX_STATUS open_object(Kind kind, const char* name, MsgObj*& out);
// VX_Open_Message and VX_Open_Item after their argument checks.
VX_STATUS open_message(const char* service, uint16_t command, MsgObj*& out);
VX_STATUS open_item(const char* name, MsgObj*& out);
// Frees by kind, as VX_Free_Message does; `function` is the exported function's name, `bad_id` its invalid-ID
// status. An item that is still referenced stays.
VX_STATUS free_object(MsgObj& object, const char* function, VX_STATUS bad_id);
// Frees an item unless a sequence references it (or force is set). Iterative: depth costs no stack.
VX_STATUS free_item(MsgObj& item, bool force);
// Ends the objects that a function of the caller freed while the library worked with them; for calls of the
// interface that open and free, whose thread has left all others behind.
void end_parked_objects();
void empty_object(MsgObj& object);
// Replaces the name; an object that can not get a copy keeps the old one (VX_SYSTEM_ERROR).
VX_STATUS set_object_name(MsgObj& object, const char* name);
VX_STATUS set_service_command(MsgObj& object, const char* service, uint16_t command);
// Adds what the object lacks of the attributes of group 0000.
VX_STATUS add_command_attributes(MsgObj& object);
// Adds delta to the reference count, with the object trace; the new count.
int32_t adjust_references(MsgObj& item, int32_t delta);
inline bool is_file(const MsgObj& object) {
  return object.ObjectKind == Kind::File || object.ObjectKind == Kind::Dicomdir;
}

}  // namespace vx
