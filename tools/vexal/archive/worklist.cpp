#include "worklist.h"

#include <algorithm>
#include <filesystem>
#include <vector>

#include "base/attributes.h"
#include "base/session.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "files/charset.h"
#include "files/files.h"
#include "holdings/key_match.h"
#include "network/network.h"

namespace vexal {
namespace {

constexpr int kDeepest = 8;
constexpr std::size_t kLongestKey = 1024;  // a longer one matches nothing

struct Attribute {
  uint32_t tag;
  VX_VR vr;
};

// The attributes of an identifier's data set.
std::vector<Attribute> attributes_of(int32_t object) {
  std::vector<Attribute> attributes;
  for_each_attribute(object, [&](uint32_t tag, VX_VR vr, int32_t) {
    if (tag > tags::kLastOfCommand) attributes.push_back({tag, vr});
  });
  // A key without a VR of its own is matched as the dictionary has it.
  for (Attribute& attribute : attributes) {
    char name[128];
    uint16_t low = 0;
    uint16_t high = 0;
    if (attribute.vr == VX_VR_UN)
      VX_Get_Tags_Dict_Info(attribute.tag, name, sizeof name, &attribute.vr, &low, &high);
  }
  return attributes;
}

// Every key has to match; in a sequence, those of its one item together in some item of the entry.
bool matches(int32_t identifier, int32_t entry, int depth) {
  if (depth > kDeepest) return false;
  for (const auto& [tag, vr] : attributes_of(identifier)) {
    if (tag == tags::kSpecificCharacterSet) continue;
    if (vr != VX_VR_SQ) {
      const std::string key = utf8_text_of(identifier, tag);
      if (key.size() > kLongestKey || !matches_key(vr, utf8_text_of(entry, tag), key)) return false;
      continue;
    }
    const std::vector<int32_t> wanted = sequence_items(identifier, tag);
    if (wanted.empty()) continue;
    const std::vector<int32_t> items = sequence_items(entry, tag);
    const bool any_key = !items.empty() || matches(wanted[0], -1, depth + 1);
    if (!any_key) return false;
    if (!items.empty() && std::none_of(items.begin(), items.end(),
                                       [&](int32_t item) { return matches(wanted[0], item, depth + 1); })) {
      return false;
    }
  }
  return true;
}

// What the identifier asks for, from the entry.
void copy_wanted(int32_t identifier, int32_t entry, int32_t answer, int depth) {
  if (depth > kDeepest) return;
  for (const auto& [tag, vr] : attributes_of(identifier)) {
    if (vr != VX_VR_SQ) {
      set_all_text(answer, tag, all_text_of(entry, tag));
      continue;
    }
    const std::vector<int32_t> wanted = sequence_items(identifier, tag);
    VX_Set_Value_To_NULL(answer, tag);
    for (const int32_t item : sequence_items(entry, tag)) {
      if (!wanted.empty() && !matches(wanted[0], item, depth + 1)) continue;
      int32_t copy = -1;
      if (VX_Open_Empty_Item(&copy) != VX_NORMAL_COMPLETION) return;
      // Asked for as a whole, it goes as a whole.
      copy_wanted(wanted.empty() ? item : wanted[0], item, copy, depth + 1);
      VX_Set_Next_Value_From_Int(answer, tag, copy);
    }
  }
}

}  // namespace

void Worklist::find(int32_t identifier, const std::function<bool()>& stop,
                    const std::function<bool(const std::function<void(int32_t answer)>& fill)>& take) const {
  namespace fs = std::filesystem;
  std::error_code error;
  std::vector<std::string> paths;
  for (fs::directory_iterator it(folder_, error), end; it != end && !error; it.increment(error)) {
    std::error_code ignored;
    const std::string extension = it->path().extension().string();
    if (it->is_regular_file(ignored) && (extension == ".wl" || extension == ".dcm"))
      paths.push_back(it->path().string());
  }
  if (error) report(folder_, "can not be looked into: " + error.message());
  std::sort(paths.begin(), paths.end());
  for (const std::string& path : paths) {
    if (stop()) return;
    DicomFile entry;
    if (entry.open(path, {}) != VX_NORMAL_COMPLETION) {
      report(path, entry.problem());
      continue;
    }
    if (!matches(identifier, entry.id(), 0)) continue;
    const bool more = take([&](int32_t answer) {
      const std::string charset = all_text_of(entry.id(), tags::kSpecificCharacterSet);
      if (!charset.empty()) set_all_text(answer, tags::kSpecificCharacterSet, charset);
      copy_wanted(identifier, entry.id(), answer, 0);
    });
    if (!more) return;
  }
}

}  // namespace vexal
