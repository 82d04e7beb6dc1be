#include "pixel_offsets.h"

#include <cstring>

#include "base/tags.h"
#include "base/thrown.h"

namespace vexal {
namespace {

constexpr char kNoFrames[] = "the fragments do not tell where frames begin";

bool has_extended(const PixelImage& image) {
  return VX_Get_Attribute_Info(image.file().id(), tags::kExtendedOffsetTable, nullptr, nullptr) ==
         VX_NORMAL_COMPLETION;
}

VX_STATUS append(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  if (size != 0) static_cast<std::string*>(user)->append(static_cast<const char*>(data), size);
  return VX_NORMAL_COMPLETION;
}
std::vector<uint64_t> words_of(int32_t id, uint32_t tag) {
  std::string bytes;
  VX_Get_Value_To_Function(id, tag, &bytes, guarded<append>);
  std::vector<uint64_t> words(bytes.size() / 8);
  if (!words.empty()) std::memcpy(words.data(), bytes.data(), 8 * words.size());
  return words;
}
std::string put_words(int32_t id, uint32_t tag, const std::vector<uint64_t>& words) {
  std::string bytes(8 * words.size(), '\0');
  std::memcpy(bytes.data(), words.data(), bytes.size());
  VX_Add_Nonstandard_Attribute(id, tag, VX_VR_UN);
  const VX_STATUS status =
      VX_Set_Value_From_Buffer(id, tag, bytes.data(), static_cast<uint32_t>(bytes.size()));
  return status == VX_NORMAL_COMPLETION ? "" : VX_Error_Message(status);
}

template <typename Entry>
std::string wrong_entry(const Encapsulated& value, const std::vector<Entry>& table) {
  if (table.size() != value.starts.size()) {
    return "it has " + std::to_string(table.size()) + " entries for " + std::to_string(value.starts.size()) +
           " frames";
  }
  for (std::size_t i = 0; i < table.size(); ++i) {
    const uint64_t right = value.fragments[value.starts[i]].offset;
    if (table[i] == right) continue;
    return "entry " + std::to_string(i + 1) + " is " + std::to_string(table[i]) + ", its frame begins at " +
           std::to_string(right);
  }
  return "";
}

// Beside its offsets an extended table has the length of each frame, which may or may not count the pad; a
// frame is one fragment, and there is no basic table.
std::string extended_fault(const PixelImage& image) {
  const Encapsulated& value = image.fragments();
  if (!value.table.empty()) return "an extended one stands beside it";
  if (std::string fault = wrong_entry(value, words_of(image.file().id(), tags::kExtendedOffsetTable));
      !fault.empty())
    return fault;
  const std::vector<uint64_t> lengths = words_of(image.file().id(), tags::kExtendedOffsetTableLengths);
  if (lengths.size() != value.starts.size()) {
    return "it has " + std::to_string(lengths.size()) + " lengths for " +
           std::to_string(value.starts.size()) + " frames";
  }
  for (std::size_t i = 0; i < lengths.size(); ++i) {
    if (value.end_of_frame(i) != value.starts[i] + 1)
      return "frame " + std::to_string(i + 1) + " has several fragments";
    const uint64_t right = value.fragments[value.starts[i]].length;
    if (lengths[i] != right && lengths[i] + 1 != right) {
      return "length " + std::to_string(i + 1) + " is " + std::to_string(lengths[i]) + ", its frame has " +
             std::to_string(right) + " bytes";
    }
  }
  return "";
}

// An item with the bytes of some fragments. False if they can not be read.
bool append_item(const PixelImage& image, std::size_t from, std::size_t to, std::string& bytes) {
  const std::vector<Fragment>& fragments = image.fragments().fragments;
  uint32_t length = 0;
  for (std::size_t i = from; i < to; ++i) length += fragments[i].length;
  append32(bytes, kItem);
  append32(bytes, length + length % 2);
  for (std::size_t i = from; i < to; ++i) {
    const std::size_t at = bytes.size();
    bytes.resize(at + fragments[i].length);
    if (!image.value().read_at(fragments[i].data, bytes.data() + at, fragments[i].length)) return false;
  }
  if (length % 2 != 0) bytes.push_back('\0');
  return true;
}

}  // namespace

std::string table_fault(const PixelImage& image) {
  const Encapsulated& value = image.fragments();
  const bool extended = has_extended(image);
  if (!value.sound) return "the fragments end without a delimiter";
  if (value.table.empty() && !extended) return "";
  if (value.starts.empty()) return kNoFrames;
  return extended ? extended_fault(image) : wrong_entry(value, value.table);
}

std::string table_verdict(const PixelImage& image, const std::string& fault) {
  const bool extended = has_extended(image);
  const std::string name = extended ? "extended offset table" : "offset table";
  if (!fault.empty()) return name + ": " + fault;
  if (!extended && image.fragments().table.empty()) return "no offset table";
  return name + " of " + std::to_string(image.fragments().starts.size()) + " frames is right";
}

std::string repair_table(PixelImage& image) {
  const Encapsulated& value = image.fragments();
  const bool extended = has_extended(image);
  if (value.starts.empty()) return kNoFrames;
  std::string items;
  std::vector<uint64_t> offsets;
  std::vector<uint64_t> lengths;
  for (std::size_t frame = 0; frame < value.starts.size(); ++frame) {
    offsets.push_back(items.size());
    const std::size_t end = value.end_of_frame(frame);
    const std::size_t step = extended ? end - value.starts[frame] : 1;
    for (std::size_t i = value.starts[frame]; i < end; i += step) {
      if (!append_item(image, i, i + step, items)) return "can not read";
    }
    lengths.push_back(items.size() - offsets.back() - 8);
  }
  const std::size_t entries = extended ? 0 : offsets.size();
  if (items.size() + 4 * entries + 16 > 0xFFFFFFF0U) return "its frames lie beyond 4 GiB";
  std::string bytes;
  append32(bytes, kItem);
  append32(bytes, static_cast<uint32_t>(4 * entries));
  for (std::size_t i = 0; i < entries; ++i) append32(bytes, static_cast<uint32_t>(offsets[i]));
  bytes += items;
  append32(bytes, kDelimiter);
  append32(bytes, 0);
  const int32_t id = image.file().id();
  VX_Delete_Attribute(id, tags::kPixelData);  // it may be one that stayed in its file
  const VX_STATUS status =
      VX_Set_Value_From_Buffer(id, tags::kPixelData, bytes.data(), static_cast<uint32_t>(bytes.size()));
  if (status != VX_NORMAL_COMPLETION) return VX_Error_Message(status);
  VX_Set_Value_Representation(id, tags::kPixelData, VX_VR_OB);
  if (!extended) return "";
  std::string problem = put_words(id, tags::kExtendedOffsetTable, offsets);
  return problem.empty() ? put_words(id, tags::kExtendedOffsetTableLengths, lengths) : problem;
}

}  // namespace vexal
