// Bringing a directory on disk up to date. All bytes that are going to be written are made first; then the
// file changes under an undo journal, and until it is whole new records stand in a padding element.
#include <cstring>
#include <map>
#include <new>

#include "codec/reader.h"
#include "codec/writer.h"
#include "frame/byte_order.h"
#include "frame/log.h"
#include "media/directory.h"
#include "media/file.h"
#include "media/handler.h"
#include "media/journal.h"
#include "model/attributes.h"
#include "model/deferred.h"

namespace vx {

using namespace directory_tags;

namespace {

constexpr char kFunction[] = "VX_DDH_Update";
constexpr uint64_t kLargestFile = 0xFFFFFFFEU;
constexpr uint32_t kPadding = 0xFFFCFFFCU;
constexpr uint32_t kSequenceDelimiter = 0xFFFEE0DDU;
constexpr uint32_t kItem = 0xFFFEE000U;
constexpr uint32_t kDelimiterLength = 8;

VX_STATUS append_bytes(void* user, uint32_t, uint32_t size, void* data, int32_t, int32_t) {
  static_cast<std::string*>(user)->append(static_cast<const char*>(data), size);
  return kOk;
}

class Update {
 public:
  explicit Update(DirectoryHandler& handler) : handler_(handler) {}
  VX_STATUS run();

 private:
  struct Level {
    LevelHead* head;
    RecordNode* node;
    RecordNode* previous = nullptr;  // that stays
    bool broken = false;             // a record on file behind it goes
    bool lower_done = false;
    uint32_t rest = 0;  // what the last record that goes leads to
  };
  // A field, or a value of an item, that takes its old value again if the update fails.
  struct Changed {
    uint32_t* field;
    MsgObj* object;
    uint32_t tag;
    uint32_t old;
  };

  VX_STATUS prepare_file();
  VX_STATUS find_append_offset();
  VX_STATUS plan();
  VX_STATUS plan_node(Level& level);
  VX_STATUS plan_last(const Level& root);
  VX_STATUS write_record(RecordNode& node);
  VX_STATUS set_link(LevelHead& head, RecordNode* previous, uint32_t value);
  VX_STATUS set_record_link(RecordNode& node, uint32_t tag, uint32_t value);
  VX_STATUS set_directory_link(uint32_t tag, uint32_t value);
  VX_STATUS directory_position(uint32_t tag, uint64_t& position);
  VX_STATUS check_tail();
  VX_STATUS commit();
  bool change_file(Journal& journal);
  bool append_hidden();
  bool show_appended();
  void change(uint32_t& field, uint32_t value) {
    changed_.push_back({&field, nullptr, 0, field});
    field = value;
  }
  VX_STATUS change(MsgObj& object, uint32_t tag, uint32_t value);
  void take_back();
  void drop_removed();
  uint64_t base() const { return handler_.AppendOffset; }
  bool undefined() const { return handler_.SequenceLength == kUndefinedLength; }

  DirectoryHandler& handler_;
  std::string appended_;
  std::map<uint64_t, uint32_t> patches_;
  std::map<uint64_t, uint32_t> last_patches_;  // of the directory itself
  std::vector<Changed> changed_;
  std::vector<RecordNode*> removed_;
  std::vector<Level> levels_;
  uint32_t lead_ = 0;  // of the delimiter that stands where the records go
};

VX_STATUS Update::change(MsgObj& object, uint32_t tag, uint32_t value) {
  int32_t old = 0;
  get_reference(object, tag, old);
  changed_.push_back({nullptr, &object, tag, static_cast<uint32_t>(old)});
  return set_reference(object, tag, static_cast<int32_t>(value));
}

void Update::take_back() {
  for (auto at = changed_.rbegin(); at != changed_.rend(); ++at) {
    if (at->field != nullptr) {
      *at->field = at->old;
    } else {
      set_reference(*at->object, at->tag, static_cast<int32_t>(at->old));
    }
  }
  changed_.clear();
}

// --- The file, before anything changes ---

VX_STATUS Update::find_append_offset() {
  if (handler_.AppendOffset != 0) return kOk;
  uint64_t end = handler_.SequenceLengthPosition + 4;
  VX_STATUS status = kOk;
  if (undefined()) {
    status = find_sequence_end(handler_, end);
  } else {
    end += handler_.SequenceLength;
  }
  if (status == kOk && end > handler_.File->Size) status = VX_UNEXPECTED_EOD;
  if (status == kOk && end > kLargestFile) status = VX_VALUE_TOO_LARGE;
  if (status != kOk) {
    VX_LOG_ERR(kFunction, "Failed to get append offset for DICOMDIR (%s)", status_text(status));
    return status == VX_VALUE_TOO_LARGE ? status : VX_INVALID_DIRECTORY_RECORD_OFFSET;
  }
  handler_.AppendOffset = static_cast<uint32_t>(end);
  return kOk;
}

VX_STATUS Update::prepare_file() {
  FileOp& file = *handler_.File;
  VX_STATUS status = make_writable(file);
  if (status == kOk && !lock_file(file, true)) status = VX_CALLBACK_CANNOT_COMPLY;
  if (status != kOk) {
    VX_LOG_ERR(kFunction, "Failed to open DICOMDIR for updating, %s", file.Path);
    return status;
  }
  uint32_t available = 0;
  file.WindowLength = 0;
  const uint8_t* length = view_file(file, handler_.SequenceLengthPosition, 4, available);
  if (length == nullptr || available < 4 || load32(length, false) != handler_.SequenceLength ||
      !is_unchanged(file)) {
    VX_LOG_ERR(kFunction, "%s has changed since it was opened", file.Path);
    return VX_INVALID_FILE;
  }
  return find_append_offset();
}

// Behind the records only padding may stand, which goes when records come.
VX_STATUS Update::check_tail() {
  FileOp& file = *handler_.File;
  uint32_t available = 0;
  const uint8_t* bytes = view_file(file, base(), 8, available);
  const bool delimiter =
      bytes != nullptr && available == 8 && undefined() && load_tag(bytes, false) == kSequenceDelimiter;
  lead_ = delimiter ? kDelimiterLength : 0;
  const uint64_t behind = base() + lead_;
  if (behind >= file.Size) return kOk;
  const uint32_t header = handler_.encoding.explicit_vr ? 12 : 8;
  bytes = view_file(file, behind, header, available);
  if (bytes != nullptr && available == header && load_tag(bytes, false) == kPadding) {
    const uint32_t length = load32(bytes + header - 4, false);
    if (behind + header + length == file.Size) return kOk;
  }
  VX_LOG_ERR(kFunction, "%s holds something else than padding behind its records", file.Path);
  return VX_INVALID_FILE;
}

// --- What is going to be written ---

VX_STATUS Update::write_record(RecordNode& node) {
  if (node.Item == nullptr) {
    VX_LOG_ERR(kFunction, "Trying to write a record without content");
    return VX_SYSTEM_ERROR;
  }
  const uint64_t offset = base() + appended_.size();
  if (offset > kLargestFile) return VX_VALUE_TOO_LARGE;
  MsgObj& item = *node.Item;
  Guard lock(item.Semaphore);
  if (change(item, kNext, node.NextOffset) != kOk || change(item, kLower, node.LowerOffset) != kOk) {
    return VX_SYSTEM_ERROR;
  }
  const std::size_t start = appended_.size();
  appended_.resize(start + 8);
  StreamWriter writer;
  writer.MsgID = item.ID;
  writer.destination = Destination::Media;
  writer.RawCallback = append_bytes;
  writer.FileName = handler_.File->Path;
  writer.UserInfo = &appended_;
  writer.encoding = writer.next = handler_.encoding;
  writer.UndefinedLengths = undefined();
  const VX_STATUS status = encode_object(writer, item, 0, 0xFFFFFFFFU);
  if (status != kOk) return status == VX_CALLBACK_CANNOT_COMPLY ? VX_INVALID_FILE : status;
  const uint64_t length = appended_.size() - start - 8;
  if (length > kLargestFile) return VX_VALUE_TOO_LARGE;
  store_tag(appended_.data() + start, kItem, false);
  store32(appended_.data() + start + 4, static_cast<uint32_t>(length), false);
  change(node.Offset, static_cast<uint32_t>(offset));
  return kOk;
}

VX_STATUS Update::set_record_link(RecordNode& node, uint32_t tag, uint32_t value) {
  if (node.Item != nullptr) {
    if (const VX_STATUS status = change(*node.Item, tag, value); status != kOk) {
      VX_LOG_ERR(kFunction, "Failed to update record offset tag in directory record item object (0x%X), %s",
                 tag, status_text(status));
      return VX_SYSTEM_ERROR;
    }
  }
  change(tag == kNext ? node.NextOffset : node.LowerOffset, value);
  if (node.Offset == 0) return kOk;  // it will be written with it
  RecordLinks links;
  const RecordBytes bytes{handler_.File, appended_, base()};
  if (read_links(handler_, bytes, node.Offset, links) != kOk) return VX_INVALID_FILE;
  const uint64_t position = tag == kNext ? links.next_position : links.lower_position;
  if (position == 0) {
    VX_LOG_ERR(kFunction, "Tag 0x%X has no value in directory record at offset %u", tag, node.Offset);
    return VX_INVALID_FILE;
  }
  if (!appended_.empty() && position >= base()) {
    store32(appended_.data() + (position - base()), value, false);
  } else {
    patches_[position] = value;
  }
  return kOk;
}

// The position of the value of an attribute of the directory itself; 0 if the file has none.
VX_STATUS Update::directory_position(uint32_t tag, uint64_t& position) {
  position = 0;
  MsgObj* head = nullptr;
  uint32_t at = 0;
  VX_STATUS status = create_empty_file(handler_.File->Path, head);
  if (status != kOk) return status;
  status = read_up_to(*handler_.File, *head, tag - 1, at);
  free_object(*head, kFunction, VX_INVALID_FILE_ID);
  if (status != kOk) return VX_INVALID_FILE;
  uint32_t available = 0;
  const uint8_t* bytes = view_file(*handler_.File, at, 8, available);
  if (bytes == nullptr || available < 8) {
    VX_LOG_ERR(kFunction, "Failed to read offset tag 0x%X from DICOMDIR", tag);
    return VX_INVALID_FILE;
  }
  const uint32_t length = handler_.encoding.explicit_vr ? load16(bytes + 6, false) : load32(bytes + 4, false);
  const bool there = load_tag(bytes, false) == tag;
  if (!there || length == 0) {
    if (tag == kLast) return kOk;
    VX_LOG_ERR(
        kFunction,
        there ? "Tag 0x%X has no value, can not update DICOMDIR" : "Offset tag 0x%X missing from DICOMDIR",
        tag);
    return VX_INVALID_FILE;
  }
  if (length != 4) {
    VX_LOG_ERR(kFunction, "Record Offset value (0x%X) in DICOMDIR has invalid length %u", tag, length);
    return VX_INVALID_FILE;
  }
  position = uint64_t{at} + 8;
  return kOk;
}

VX_STATUS Update::set_directory_link(uint32_t tag, uint32_t value) {
  if (const VX_STATUS status = change(*handler_.Object, tag, value); status != kOk) {
    VX_LOG_ERR(kFunction, "Failed to update record offset tag in directory message object (0x%X), %s", tag,
               status_text(status));
    return VX_SYSTEM_ERROR;
  }
  change(tag == kFirst ? handler_.LowerOffset : handler_.LastRecordOffset, value);
  uint64_t position = 0;
  const VX_STATUS status = directory_position(tag, position);
  if (position != 0) last_patches_[position] = value;
  return status;
}

VX_STATUS Update::set_link(LevelHead& head, RecordNode* previous, uint32_t value) {
  if (previous == nullptr && head.Kind == kDirectoryHandler) return set_directory_link(kFirst, value);
  if (previous == nullptr) return set_record_link(static_cast<RecordNode&>(head), kLower, value);
  RecordNode* last = nullptr;
  const VX_STATUS status = last_of_gap(*previous, last);
  return status == kOk ? set_record_link(*last, kNext, value) : VX_INVALID_FILE;
}

// One node of a level, whose records below come before it.
VX_STATUS Update::plan_node(Level& level) {
  RecordNode& node = *level.node;
  if (node.Deleted) {
    if (node.Offset != 0) {
      level.broken = true;
      level.rest = node.NextOffset;
    }
    removed_.push_back(&node);
    level.node = node.Next;
    return kOk;
  }
  if (node.FirstLower != nullptr && !level.lower_done) {
    level.lower_done = true;
    levels_.push_back({&node, node.FirstLower});
    return kOk;
  }
  const bool fresh = node.Offset == 0;
  VX_STATUS status = fresh ? write_record(node) : kOk;
  if (status == kOk && (fresh || level.broken)) status = set_link(*level.head, level.previous, node.Offset);
  level.previous = &node;
  level.broken = false;
  level.lower_done = false;
  level.node = node.Next;
  return status;
}

// (0004,1202) of what is linked of the root: records that are not linked have not changed.
VX_STATUS Update::plan_last(const Level& root) {
  uint32_t last = 0;
  if (root.previous != nullptr) {
    RecordNode* node = nullptr;
    if (root.previous->NextOffset != 0) return kOk;
    if (last_of_gap(*root.previous, node) != kOk) return VX_INVALID_FILE;
    last = node->Offset;
  } else if (handler_.LowerOffset != 0) {
    return kOk;
  }
  return last != handler_.LastRecordOffset ? set_directory_link(kLast, last) : kOk;
}

VX_STATUS Update::plan() {
  levels_.push_back({&handler_, handler_.FirstLower});
  VX_STATUS status = kOk;
  while (status == kOk && !levels_.empty()) {
    Level& level = levels_.back();
    if (level.node != nullptr) {
      status = plan_node(level);
      continue;
    }
    if (level.broken) status = set_link(*level.head, level.previous, level.rest);
    if (status == kOk && levels_.size() == 1) status = plan_last(level);
    levels_.pop_back();
  }
  return status;
}

// --- The change itself ---

bool Update::append_hidden() {
  FileOp& file = *handler_.File;
  if (appended_.empty()) return true;
  std::string image = appended_;
  char head[kDelimiterLength + 12] = {};
  store_tag(head, kSequenceDelimiter, false);
  char* padding = head + lead_;
  const uint32_t header = handler_.encoding.explicit_vr ? 12 : 8;
  store_tag(padding, kPadding, false);
  if (header == 12) std::memcpy(padding + 4, "OB", 2);
  store32(padding + header - 4, static_cast<uint32_t>(image.size() - lead_ - header), false);
  image.replace(0, lead_ + header, head, lead_ + header);
  if (base() + lead_ < file.Size && !cut_file(file, base() + lead_)) return false;
  return write_file_at(file, base(), image.data(), image.size()) && sync_file(file);
}

bool Update::show_appended() {
  FileOp& file = *handler_.File;
  if (appended_.empty()) return true;
  const std::size_t head = lead_ + (handler_.encoding.explicit_vr ? 12 : 8);
  if (!write_file_at(file, base(), appended_.data(), head)) return false;
  if (undefined()) return true;
  char length[4];
  store32(length, handler_.SequenceLength + static_cast<uint32_t>(appended_.size()), false);
  if (write_file_at(file, handler_.SequenceLengthPosition, length, sizeof length)) return true;
  VX_LOG_ERR(kFunction, "Failed to write record sequence length");
  return false;
}

bool Update::change_file(Journal& journal) {
  FileOp& file = *handler_.File;
  if (!journal.begin()) return false;
  if (!append_hidden()) {
    VX_LOG_ERR(kFunction, "Failed to set file position %llu for writing directory record in %s",
               static_cast<unsigned long long>(base()), file.Path);
    return false;
  }
  if (!show_appended()) return false;
  for (const auto* patches : {&patches_, &last_patches_}) {
    for (const auto& [position, value] : *patches) {
      char bytes[4];
      store32(bytes, value, false);
      if (write_file_at(file, position, bytes, sizeof bytes)) continue;
      VX_LOG_ERR(kFunction, "Failed to update record offset at %llu in %s",
                 static_cast<unsigned long long>(position), file.Path);
      return false;
    }
  }
  return sync_file(file) && journal.end();
}

VX_STATUS Update::commit() {
  FileOp& file = *handler_.File;
  if (appended_.empty() && patches_.empty() && last_patches_.empty()) return kOk;
  const std::size_t records = appended_.size();
  if (records != 0) {
    if (const VX_STATUS status = check_tail(); status != kOk) return status;
    if (undefined()) {
      char delimiter[kDelimiterLength] = {};
      store_tag(delimiter, kSequenceDelimiter, false);
      appended_.append(delimiter, sizeof delimiter);
    }
    const bool fits = base() + appended_.size() <= kLargestFile &&
                      (undefined() || handler_.SequenceLength + uint64_t{records} <= kLargestFile);
    if (!fits) return VX_VALUE_TOO_LARGE;
  }
  Journal journal(file);
  bool kept = true;
  for (const auto* patches : {&patches_, &last_patches_}) {
    for (const auto& patch : *patches) kept = kept && journal.keep(patch.first, 4);
  }
  if (records != 0) {
    if (!undefined()) kept = kept && journal.keep(handler_.SequenceLengthPosition, 4);
    if (base() < file.Size) kept = kept && journal.keep(base(), file.Size - base());
    kept = kept && reserve_file(file, base() + appended_.size());
  }
  if (!kept) return VX_INVALID_FILE;
  if (!change_file(journal)) {
    if (!journal.undo()) VX_LOG_ERR(kFunction, "%s is left for its journal to mend", file.Path);
    return VX_INVALID_FILE;
  }
  refresh_size(file);
  handler_.AppendOffset += static_cast<uint32_t>(records);
  if (!undefined()) handler_.SequenceLength += static_cast<uint32_t>(records);
  return kOk;
}

void Update::drop_removed() {
  for (RecordNode* node : removed_) {
    LevelHead& head = *node->Parent;
    (node->Previous != nullptr ? node->Previous->Next : head.FirstLower) = node->Next;
    (node->Next != nullptr ? node->Next->Previous : head.LastLower) = node->Previous;
    free_node(node);
  }
}

VX_STATUS Update::run() {
  VX_STATUS status = prepare_file();
  if (status == kOk) status = plan();
  if (status == kOk) status = commit();
  lock_file(*handler_.File, false);
  if (status != kOk) {
    take_back();
    return status;
  }
  drop_removed();
  return kOk;
}

}  // namespace

VX_STATUS update_directory(DirectoryHandler& handler) {
  if (handler.Walks != nullptr) return VX_STATE_VIOLATION;
  if (handler.FirstLower == nullptr) return kOk;
  return Update(handler).run();
}

}  // namespace vx
