// DICOM files as the program opens them.
#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <mutex>

#include "absent_pixels.h"
#include "base/attributes.h"
#include "base/embedded.h"
#include "base/names.h"
#include "base/session.h"
#include "base/tables.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/thrown.h"
#include "files.h"

namespace vexal {
namespace {

// Of the root, of the last record at the root, of the next record, of those below, of a file of many records.
constexpr uint32_t kRecordReferences[] = {
    tags::kOffsetOfTheFirstDirectoryRecordOfTheRootDirectoryEntity,
    tags::kOffsetOfTheLastDirectoryRecordOfTheRootDirectoryEntity, tags::kOffsetOfTheNextDirectoryRecord,
    tags::kOffsetOfReferencedLowerLevelDirectoryEntity, tags::kMRDRDirectoryRecordOffset};

// Bulk attributes that are worth leaving in the file (PS3.6): pixels, documents, waveforms, spectra, meshes,
// overlays.
constexpr uint32_t kBulkTags[] = {0x7FE00010, 0x7FE00008, 0x7FE00009, 0x00420011, 0x54001010, 0x56000020,
                                  0x00660016, 0x00660023, 0x00660040, 0x00660041, 0x00640009, 0x00281408};

constexpr std::size_t kPiece = 256 * 1024;

uint32_t little32(const char* p) {
  uint32_t value = 0;
  std::memcpy(&value, p, sizeof value);
  return value;
}

uint32_t little16(const char* p) {
  uint16_t value = 0;
  std::memcpy(&value, p, sizeof value);
  return value;
}

bool are_vr_letters(const char* p) {
  return std::isupper(static_cast<unsigned char>(p[0])) != 0 &&
         std::isupper(static_cast<unsigned char>(p[1])) != 0;
}

uint64_t key_of(int32_t id, uint32_t tag) {
  return (static_cast<uint64_t>(static_cast<uint32_t>(id)) << 32) | tag;
}

// The UIDs of a meta group in explicit little endian.
void find_meta_uids(const char* bytes, std::size_t size, std::size_t position, FileHead& head) {
  while (position + 12 <= size && little16(bytes + position) == 2) {
    const uint32_t element = little16(bytes + position + 2);
    const char* vr = bytes + position + 4;
    const bool is_long = std::memcmp(vr, "OB", 2) == 0 || std::memcmp(vr, "UN", 2) == 0;
    const std::size_t header = is_long ? 12 : 8;
    const std::size_t length = is_long ? little32(bytes + position + 8) : little16(bytes + position + 6);
    if (length > size - position - header) break;
    std::string* uid = element == 0x0002   ? &head.sop_class_uid
                       : element == 0x0003 ? &head.sop_instance_uid
                       : element == 0x0010 ? &head.syntax_uid
                                           : nullptr;
    if (uid != nullptr) {
      uid->assign(bytes + position + header, length);
      while (!uid->empty() && (uid->back() == '\0' || uid->back() == ' ')) uid->pop_back();
    }
    position += header + length;
  }
  if (position + 4 > size || head.syntax_uid == "1.2.840.10008.1.2.1.99" ||
      head.syntax_uid == "1.2.840.10008.1.2.4.95")
    return;
  const bool big = head.syntax_uid == "1.2.840.10008.1.2.2";
  const auto half = [&](std::size_t at) {
    const uint32_t value = little16(bytes + at);
    return big ? __builtin_bswap16(static_cast<uint16_t>(value)) : value;
  };
  head.first_tag = (half(position) << 16) | half(position + 2);
}

// A bare data set starts with a low group: 0008 in nearly all files, 0000 to 0010 otherwise.
VX_TRANSFER_SYNTAX guess_data_set(const char* bytes, std::size_t size) {
  if (size < 8) return 0;
  const uint32_t little_group = little16(bytes);
  const uint32_t big_group = (static_cast<uint32_t>(static_cast<unsigned char>(bytes[0])) << 8) |
                             static_cast<unsigned char>(bytes[1]);
  const bool little = little_group <= 0x0020 && (little_group != 0 || little16(bytes + 2) == 0);
  const bool big = big_group <= 0x0020 && big_group != 0;
  const bool letters = are_vr_letters(bytes + 4);
  if (little && little_group != 0) return letters ? EXPLICIT_LITTLE_ENDIAN : IMPLICIT_LITTLE_ENDIAN;
  if (big) return letters ? EXPLICIT_BIG_ENDIAN : IMPLICIT_BIG_ENDIAN;
  return little ? (letters ? EXPLICIT_LITTLE_ENDIAN : IMPLICIT_LITTLE_ENDIAN) : 0;
}

void reverse_elements(char* data, std::size_t length, uint32_t width) {
  for (std::size_t i = 0; i + width <= length; i += width) std::reverse(data + i, data + i + width);
}

// Attributes whose VR is US or SS by Pixel Representation (PS3.5 annex A.1): those that the dictionary marks
// US/SS.
bool is_signed_by_pixels(uint32_t tag) {
  static const std::vector<uint32_t> tags = [] {
    std::vector<uint32_t> result;
    std::string_view text = dictionary_table();
    std::string_view line;
    while (next_line(text, line)) {
      const std::string_view digits = next_cell(line);
      uint32_t tag_of_line = 0;
      if (next_cell(line).starts_with("US/SS") && parse_tag(digits, tag_of_line))
        result.push_back(tag_of_line);
    }
    return result;
  }();
  return std::binary_search(tags.begin(), tags.end(), tag);
}

void make_signed(int32_t id, int depth) {
  if (depth > 128) return;
  std::vector<uint32_t> sequences;
  std::vector<uint32_t> numbers;
  for_each_attribute(id, [&](uint32_t tag, VX_VR vr, int32_t) {
    if (vr == VX_VR_SQ) sequences.push_back(tag);
    if (vr == VX_VR_US && is_signed_by_pixels(tag)) numbers.push_back(tag);
  });
  for (const uint32_t number : numbers) VX_Set_Value_Representation(id, number, VX_VR_SS);
  for (const uint32_t sequence : sequences) {
    for (const int32_t item : sequence_items(id, sequence)) make_signed(item, depth + 1);
  }
}

int32_t register_application() {
  static std::atomic<uint32_t> counter{0};
  int32_t id = -1;
  const std::string title = "VEXAL_" + std::to_string(counter.fetch_add(1));
  VX_Register_Application(&id, title.c_str());
  return id;
}

}  // namespace

void adopt_unknown_syntax(const std::string& uid, bool encapsulated) {
  static constexpr std::pair<VX_STRING_KEY, VX_BOOL_KEY> kPlaces[] = {
      {VX_CFG_PRIVATE_SYNTAX_1_SYNTAX, VX_CFG_PRIVATE_SYNTAX_1_ENCAPSULATED},
      {VX_CFG_PRIVATE_SYNTAX_2_SYNTAX, VX_CFG_PRIVATE_SYNTAX_2_ENCAPSULATED}};
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  for (const auto& [name, form] : kPlaces) {
    char taken[65] = "";
    VX_Get_String_Config_Value(name, sizeof taken, taken);
    if (*taken != '\0' && uid != taken) continue;
    VX_Set_String_Config_Value(name, uid.c_str());
    if (encapsulated) VX_Set_Bool_Config_Value(form, 1);
    return;
  }
}

bool is_record_reference(uint32_t tag) {
  return std::find(std::begin(kRecordReferences), std::end(kRecordReferences), tag) !=
         std::end(kRecordReferences);
}

std::string object_in_the_way(const std::string& path, const std::string& in) {
  FileSource there;
  char bytes[132];
  std::error_code ignored;
  const bool object = std::filesystem::is_regular_file(path, ignored) && there.open(path).empty() &&
                      there.read_at(0, bytes, sizeof bytes) == sizeof bytes &&
                      inspect_head(bytes, sizeof bytes).has_preamble;
  return object || std::filesystem::equivalent(path, in, ignored)
             ? "is there and is a DICOM object: give another name"
             : "";
}

FileHead inspect_head(const char* bytes, std::size_t size) {
  FileHead head;
  head.has_preamble = size >= 132 && std::memcmp(bytes + 128, "DICM", 4) == 0;
  if (head.has_preamble) {
    find_meta_uids(bytes, size, 132, head);
    return head;
  }
  if (size >= 8 && little16(bytes) == 2 && are_vr_letters(bytes + 4)) {
    head.meta_without_preamble = true;
    find_meta_uids(bytes, size, 0, head);
    return head;
  }
  head.data_set = guess_data_set(bytes, size);
  return head;
}

uint32_t element_width(VX_VR vr) {
  return vr == VX_VR_OW ? 2 : vr == VX_VR_OL || vr == VX_VR_OF ? 4 : vr == VX_VR_OD ? 8 : 1;
}

DicomFile::DicomFile() : application_(register_application()) {
  for (const uint32_t tag : kBulkTags)
    VX_Register_Callback_Function(application_, tag, this, guarded<value_callback>);
}

void DicomFile::free_object() {
  if (id_ >= 0) is_file_ ? VX_Free_File(&id_) : VX_Free_Message(&id_);
  id_ = -1;
}

DicomFile::~DicomFile() {
  free_object();
  VX_Release_Application(&application_);
}

const KeptValue* DicomFile::kept(int32_t id, uint32_t tag) const {
  const auto found = kept_.find(key_of(id, tag));
  return found == kept_.end() ? nullptr : &found->second;
}

void DicomFile::note_failure(VX_STATUS status, uint32_t tag, uint64_t offset) {
  problem_ =
      describe_failure(status, static_cast<int64_t>(offset - std::min(offset, source_.offset_shift())), tag);
}

VX_STATUS DicomFile::open(const std::string& path, const OpenOptions& options) {
  path_ = path;
  linked_ = false;
  kept_.clear();
  covered_.clear();
  free_object();
  values_were_lost();  // of another file
  problem_ = source_.open(path);
  if (!problem_.empty()) return VX_INVALID_FILE;
  char head_bytes[4096];
  const int64_t got = source_.read_at(0, head_bytes, sizeof head_bytes);
  if (got < 0) {
    problem_ = "can not read";
    return VX_INVALID_FILE;
  }
  const FileHead head = inspect_head(head_bytes, static_cast<std::size_t>(got));
  if (!head.has_preamble && !head.meta_without_preamble) {
    if (head.data_set == 0) {
      problem_ = got == 0 ? "is empty" : "is no DICOM file: no \"DICM\" at byte 128, no data set at byte 0";
      return VX_INVALID_FILE;
    }
    has_meta_ = false;
    // The reader of files also finds out about implicit VR by itself; only big endian needs to be told.
    if (head.data_set == EXPLICIT_BIG_ENDIAN || head.data_set == IMPLICIT_BIG_ENDIAN) {
      return open_data_set(head.data_set, options);
    }
  }
  if (!head.has_preamble) source_.pretend_preamble();
  OpenOptions effective = options;
  // Offsets in a deflated stream lead nowhere in the file.
  VX_TRANSFER_SYNTAX syntax = 0;
  std::string uid = head.syntax_uid;
  if (!uid.empty() && VX_Get_Enum_From_Transfer_Syntax(uid.data(), &syntax) != VX_NORMAL_COMPLETION) {
    adopt_unknown_syntax(uid, false);
  } else if (is_deflated(syntax)) {
    effective.keep_values_out = false;
  }
  linked_ = options.link_records && head.sop_class_uid == kDirectoryClass;
  const VX_STATUS status = open_file(effective, linked_);
  find_syntax(head.data_set);
  return status;
}

// What the file says, or for a bare data set what it looks like. Implicit VR leaves signed numbers to be told
// from unsigned ones.
void DicomFile::find_syntax(VX_TRANSFER_SYNTAX guess) {
  if (!readable()) return;
  if (VX_Get_Message_Transfer_Syntax(id_, &syntax_) != VX_NORMAL_COMPLETION) syntax_ = guess;
  uint16_t representation = 0;
  const bool implicit = syntax_ == IMPLICIT_LITTLE_ENDIAN || syntax_ == IMPLICIT_BIG_ENDIAN;
  if (implicit &&
      VX_Get_Value_To_UShortInt(id_, tags::kPixelRepresentation, &representation) == VX_NORMAL_COMPLETION &&
      representation == 1) {
    make_signed(id_, 0);
  }
}

VX_STATUS DicomFile::open_file(const OpenOptions& options, bool directory) {
  is_file_ = true;
  VX_STATUS status = directory ? VX_Create_File(&id_, path_.c_str(), "DICOMDIR", C_STORE_RQ)
                               : VX_Create_Empty_File(&id_, path_.c_str());
  if (status != VX_NORMAL_COMPLETION) {
    problem_ = VX_Error_Message(status);
    return status;
  }
  uint32_t offset = 0;
  if (options.last_tag != tags::kLast) {
    // Bulk values on the way are handed over, and dropped: but for the pixels of an icon.
    drops_values_ = true;
    VX_Release_Callback_Function(application_, tags::kPixelData);
    status = VX_Open_File_Upto_Tag(application_, id_, &source_, options.last_tag, &offset,
                                   guarded<FileSource::file_input>);
    VX_Register_Callback_Function(application_, tags::kPixelData, this, guarded<value_callback>);
    drops_values_ = false;
  } else if (options.keep_values_out) {
    status = VX_Open_File_Bypass_OBOW(application_, id_, &source_, guarded<FileSource::file_input>);
  } else {
    int32_t plain = -1;
    VX_Register_Application(&plain, ("PLAIN_" + std::to_string(application_)).c_str());
    status = VX_Open_File(plain, id_, &source_, guarded<FileSource::file_input>);
    VX_Release_Application(&plain);
  }
  if (status != VX_NORMAL_COMPLETION && problem_.empty()) problem_ = VX_Error_Message(status);
  return status;
}

VX_STATUS DicomFile::open_data_set(VX_TRANSFER_SYNTAX syntax, const OpenOptions& options) {
  is_file_ = false;
  syntax_ = syntax;
  VX_STATUS status = VX_Open_Empty_Message(&id_);
  if (status != VX_NORMAL_COMPLETION) {
    problem_ = VX_Error_Message(status);
    return status;
  }
  uint32_t error_tag = 0;
  uint32_t offset = 0;
  status = VX_Stream_To_Message_With_Offset(id_, 0, options.last_tag, syntax, &error_tag, &offset, &source_,
                                            guarded<FileSource::message_input>);
  if (status != VX_NORMAL_COMPLETION) note_failure(status, error_tag, offset);
  find_syntax(syntax);
  return status;
}

VX_STATUS DicomFile::set_syntax(VX_TRANSFER_SYNTAX syntax) {
  if (!is_file_) {
    const VX_STATUS status = VX_Message_To_File(id_, path_.c_str());
    if (status != VX_NORMAL_COMPLETION) return status;
    is_file_ = true;
  }
  return VX_Set_Message_Transfer_Syntax(id_, syntax);
}

void DicomFile::adopt(int32_t id) {
  free_object();
  kept_.clear();
  id_ = id;
  is_file_ = true;
}

uint64_t DicomFile::kept_size(const KeptValue& value) const {
  return value.length == kUndefinedLength ? look_at_fragments(value.offset).end - value.offset : value.length;
}

VX_STATUS DicomFile::become_message(const char* service, uint16_t command) {
  if (is_file_) {
    const VX_STATUS status = VX_File_To_Message(id_);
    if (status != VX_NORMAL_COMPLETION) return status;
    is_file_ = false;
  }
  return VX_Set_Service_Command(id_, service, command);
}

std::string DicomFile::write_fault(VX_TRANSFER_SYNTAX target) const {
  if (std::string fault = fault_of_absence(id_, syntax_, target); !fault.empty()) return fault;
  const KeptValue* pixels = kept(id_, tags::kPixelData);
  if (pixels != nullptr && pixels->length != kUndefinedLength && !is_uncompressed(syntax_))
    return "its pixel data is not encapsulated, as its transfer syntax demands";
  const bool fragments = std::any_of(kept_.begin(), kept_.end(),
                                     [](const auto& row) { return row.second.length == kUndefinedLength; });
  if (fragments && is_uncompressed(syntax_) && target != syntax_)
    return "its pixel data is encapsulated, which its transfer syntax has no form for";
  if (sequence_items(id_, tags::kDirectoryRecordSequence).empty()) return "";
  if (!linked_) return "has directory records, which would lie at other places, and is no DICOMDIR";
  const bool plain = is_uncompressed(target) && target != DEFLATED_EXPLICIT_LITTLE_ENDIAN;
  return plain ? "" : "is a directory, which can not be compressed: its records are found by their places";
}

VX_STATUS DicomFile::value_callback(int32_t id, uint32_t tag, void* user, VX_CALLBACK_REQUEST request,
                                    uint32_t* size, void** data, int32_t first, int32_t* last) {
  return static_cast<DicomFile*>(user)->value_request(id, tag, request, size, data, first != 0, last);
}

VX_STATUS DicomFile::value_request(int32_t id, uint32_t tag, VX_CALLBACK_REQUEST request, uint32_t* size,
                                   void** data, bool first, int32_t* last) {
  switch (request) {
    case VX_PROVIDE_LENGTH_KEPT: {
      KeptValue value;
      uint32_t offset = 0;
      if (data != nullptr && *data != nullptr) std::memcpy(&offset, *data, sizeof offset);
      value.offset = offset - std::min<uint64_t>(offset, source_.offset_shift());
      value.length = *size;
      kept_[key_of(id, tag)] = value;
      if (value.length != kUndefinedLength) source_.skip(offset, value.length);
      return VX_NORMAL_COMPLETION;
    }
    case VX_REQUEST_LENGTH: {
      const KeptValue* value = kept(id, tag);
      *size = value != nullptr ? value->length : 0;
      return VX_NORMAL_COMPLETION;
    }
    case VX_REQUEST_DATA:
      return next_piece(id, tag, size, data, first, last);
    case VX_FREE_DATA:
      return VX_NORMAL_COMPLETION;
    default:
      return drops_values_ ? VX_NORMAL_COMPLETION : VX_CANNOT_COMPLY;
  }
}

VX_STATUS DicomFile::next_piece(int32_t id, uint32_t tag, uint32_t* size, void** data, bool first,
                                int32_t* last) {
  if (first) {
    const KeptValue* value = kept(id, tag);
    if (value == nullptr) return VX_CANNOT_COMPLY;
    reader_ = {};
    reader_.id = id;
    reader_.tag = tag;
    reader_.offset = value->offset;
    reader_.end = value->offset + value->length;
    const bool encapsulated = value->length == kUndefinedLength;
    if (encapsulated) {
      const Fragments fragments = look_at_fragments(value->offset);
      reader_.end = fragments.end;
      reader_.patches = patches_of(fragments);
    }
    for (const Patch& patch : covered_) {
      if (patch.at >= value->offset && patch.at < reader_.end) reader_.patches.push_back(patch);
    }
    std::stable_sort(reader_.patches.begin(), reader_.patches.end(),
                     [](const Patch& a, const Patch& b) { return a.at < b.at; });
    VX_VR vr = VX_VR_OB;
    VX_Get_Attribute_Info(id, tag, &vr, nullptr);
    const bool big = syntax_ == EXPLICIT_BIG_ENDIAN || syntax_ == IMPLICIT_BIG_ENDIAN;
    if (big && !encapsulated) reader_.width = element_width(vr);
    if (piece_.size() < kPiece) piece_.resize(kPiece);
  }
  const auto at_end = [this] {
    return reader_.offset >= reader_.end && reader_.patch == reader_.patches.size();
  };
  uint64_t stop = reader_.end;
  if (reader_.patch < reader_.patches.size()) {
    Patch& patch = reader_.patches[reader_.patch];
    if (patch.at == reader_.offset) {
      ++reader_.patch;
      reader_.offset += patch.skip;
      *size = static_cast<uint32_t>(patch.bytes.size());
      *data = patch.bytes.data();
      *last = at_end() ? 1 : 0;
      return VX_NORMAL_COMPLETION;
    }
    stop = patch.at;
  }
  const std::size_t wanted = static_cast<std::size_t>(std::min<uint64_t>(kPiece, stop - reader_.offset));
  const int64_t got = source_.read_at(reader_.offset, piece_.data(), wanted);
  // A value that is shorter than its length said can not be written; the file is damaged or changed
  // meanwhile.
  if (got < 0 || static_cast<std::size_t>(got) != wanted) return VX_CANNOT_COMPLY;
  if (reader_.width > 1) reverse_elements(piece_.data(), wanted, reader_.width);
  reader_.offset += wanted;
  *size = static_cast<uint32_t>(wanted);
  *data = piece_.data();
  *last = at_end() ? 1 : 0;
  return VX_NORMAL_COMPLETION;
}

// Up to behind the sequence delimiter of an encapsulated value, or the end of the last whole fragment.
DicomFile::Fragments DicomFile::look_at_fragments(uint64_t offset) const {
  Fragments fragments;
  fragments.table = fragments.end = offset;
  char header[8];
  while (source_.read_at(fragments.end, header, sizeof header) == 8) {
    const uint32_t tag = (little16(header) << 16) | little16(header + 2);
    const uint32_t length = little32(header + 4);
    if (tag == tags::kSequenceDelimitationItem) {
      fragments.delimited = true;
      fragments.end += 8;
      break;
    }
    const uint64_t end = fragments.end + 8 + length;
    if (tag != tags::kItem || end > source_.size()) break;
    if (fragments.end == offset) fragments.table_length = length;
    if (length % 2 != 0) fragments.odd.emplace_back(fragments.end, length);
    fragments.end = end;
  }
  return fragments;
}

namespace {

// Offsets of fragments, each of 4 or 8 bytes, once the odd ones among those in front of them have become
// even.
template <typename Offset>
void move_offsets(std::string& table, const std::vector<uint64_t>& odd) {
  for (std::size_t at = 0; at + sizeof(Offset) <= table.size(); at += sizeof(Offset)) {
    Offset offset = 0;
    std::memcpy(&offset, table.data() + at, sizeof offset);
    offset += static_cast<Offset>(std::lower_bound(odd.begin(), odd.end(), offset) - odd.begin());
    std::memcpy(table.data() + at, &offset, sizeof offset);
  }
}

VX_STATUS append_piece(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  static_cast<std::string*>(user)->append(static_cast<const char*>(data), size);
  return VX_NORMAL_COMPLETION;
}

std::string little(uint32_t value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}

}  // namespace

// Places of the odd fragments, counted as the offset tables count them: from the first item behind the table.
std::vector<uint64_t> DicomFile::odd_offsets(const Fragments& fragments) {
  const uint64_t first = fragments.table + 8 + fragments.table_length;
  std::vector<uint64_t> odd;
  for (const auto& [header, length] : fragments.odd) {
    if (header >= first) odd.push_back(header - first);
  }
  return odd;
}

void DicomFile::cover(uint64_t offset, std::string bytes) {
  const auto length = static_cast<uint32_t>(bytes.size());
  covered_.push_back({offset, length, std::move(bytes)});
}

// Fragments are of even length (PS3.5 section A.4), and a value that its file breaks off has an end.
std::vector<Patch> DicomFile::patches_of(const Fragments& fragments) const {
  std::vector<Patch> patches;
  const std::vector<uint64_t> odd = odd_offsets(fragments);
  if (!odd.empty() && fragments.table_length % 4 == 0 && fragments.table_length != 0) {
    std::string table(fragments.table_length, '\0');
    if (source_.read_at(fragments.table + 8, table.data(), table.size()) == fragments.table_length) {
      move_offsets<uint32_t>(table, odd);
      patches.push_back({fragments.table + 8, fragments.table_length, std::move(table)});
    }
  }
  for (const auto& [header, length] : fragments.odd) {
    patches.push_back({header + 4, 4, little(length + 1)});
    patches.push_back({header + 8 + length, 0, std::string(1, '\0')});
  }
  if (!fragments.delimited) patches.push_back({fragments.end, 0, std::string("\xFE\xFF\xDD\xE0\0\0\0\0", 8)});
  return patches;
}

void DicomFile::prepare_fragments() {
  const KeptValue* value = kept(id_, tags::kPixelData);
  if (value == nullptr || value->length != kUndefinedLength ||
      VX_Get_Attribute_Info(id_, tags::kExtendedOffsetTable, nullptr, nullptr) != VX_NORMAL_COMPLETION)
    return;
  const std::vector<uint64_t> odd = odd_offsets(look_at_fragments(value->offset));
  std::string table;
  if (odd.empty() || VX_Get_Value_To_Function(id_, tags::kExtendedOffsetTable, &table,
                                              guarded<append_piece>) != VX_NORMAL_COMPLETION)
    return;
  move_offsets<uint64_t>(table, odd);
  VX_Set_Value_From_Buffer(id_, tags::kExtendedOffsetTable, table.data(),
                           static_cast<uint32_t>(table.size()));
}

bool DicomFile::read_kept(const KeptValue& value, bool (*take)(void*, const char*, std::size_t),
                          void* context) {
  uint64_t offset = value.offset;
  const uint64_t end = offset + kept_size(value);
  if (piece_.size() < kPiece) piece_.resize(kPiece);
  while (offset < end) {
    const std::size_t wanted = static_cast<std::size_t>(std::min<uint64_t>(kPiece, end - offset));
    const int64_t got = source_.read_at(offset, piece_.data(), wanted);
    if (got <= 0) return false;
    if (!take(context, piece_.data(), static_cast<std::size_t>(got))) return false;
    offset += static_cast<uint64_t>(got);
  }
  return true;
}

}  // namespace vexal
