// The two settings that hold lists: the titles that an acceptor takes, and the decoder's tag filter.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "config/line.h"
#include "config/record.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "frame/state.h"
#include "frame/text.h"

namespace vx {
namespace {

constexpr std::size_t kMostTitle = 16;
constexpr std::size_t kMostFilter = 1023;
constexpr std::size_t kMostRangeStart = 19;

void* g_titles = nullptr;  // one buffer: the pointers, then the texts

std::vector<FilterEntry>& filter() {
  static auto* entries = new std::vector<FilterEntry>;
  return *entries;
}
std::atomic<bool> g_has_filter{false};

std::vector<std::string_view> split(std::string_view text, const char* separators) {
  std::vector<std::string_view> parts;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of(separators), text.size());
    const std::string_view part = trim(text.substr(0, end));
    if (!part.empty()) parts.push_back(part);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return parts;
}

bool refuse_filter(std::string_view text) {
  VX_LOG_ERR("VXI_ParseTagFilter", "Invalid format for param: %s = %s", "DECODER_TAG_FILTER",
             std::string(text).c_str());
  return false;
}

// A hexadecimal number at the start, with or without "0x"; false if there is none.
bool read_hex(std::string_view text, uint32_t& value) {
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) text.remove_prefix(2);
  uint64_t number = 0;
  std::size_t digits = 0;
  for (const char c : text) {
    const int digit = hex_digit(c);
    if (digit < 0) break;
    number = std::min<uint64_t>(number * 16 + static_cast<uint64_t>(digit), UINT32_MAX);
    ++digits;
  }
  value = static_cast<uint32_t>(number);
  return digits != 0;
}

struct EntryForm {
  const char* prefix;
  uint32_t single;
  uint32_t range;
};
// The longest prefix first.
constexpr EntryForm kEntryForms[] = {{"DUPG", 128, 256}, {"DUP", 32, 64}, {"G", 2, 4}, {"", 8, 16}};

bool read_entry(std::string_view text, FilterEntry& entry) {
  if (text == "PRIVATE") {
    entry.type = 1;
    return true;
  }
  const auto* form = std::find_if(std::begin(kEntryForms), std::end(kEntryForms),
                                  [text](const EntryForm& row) { return text.starts_with(row.prefix); });
  const std::string_view prefix = form->prefix;
  const std::size_t dash = text.find('-');
  entry.type = dash == std::string_view::npos ? form->single : form->range;
  if (dash != std::string_view::npos && dash > kMostRangeStart) return false;
  if (!read_hex(text.substr(prefix.size()), entry.low)) return false;
  entry.high = entry.low;
  if (dash == std::string_view::npos) return true;
  std::string_view end = text.substr(dash + 1);
  if (end.starts_with(prefix)) end.remove_prefix(prefix.size());
  return read_hex(end, entry.high);
}

bool read_entries(std::string_view list, std::string_view creator) {
  for (const std::string_view text : split(list, ", \t")) {
    FilterEntry entry{};
    copy_text(entry.creator, sizeof entry.creator, creator);
    if (!read_entry(text, entry)) return false;
    filter().push_back(entry);
  }
  return true;
}

bool read_groups(std::string_view rest) {
  while (!rest.empty()) {
    const std::size_t open = rest.find('[');
    if (open == std::string_view::npos) return read_entries(rest, "");
    const std::string_view creator = trim(rest.substr(0, open));
    const std::size_t close = rest.find(']', open);
    if (close == std::string_view::npos || creator.size() >= sizeof FilterEntry::creator) return false;
    if (!read_entries(rest.substr(open + 1, close - open - 1), creator)) return false;
    rest = trim(rest.substr(close + 1));
    if (rest.empty()) break;
    if (rest[0] != ',') return false;
    rest = trim(rest.substr(1));
  }
  return true;
}

bool entry_matches(const FilterEntry& entry, uint32_t tag) {
  const uint32_t group = tag >> 16;
  switch (entry.type) {
    case 1:
      return (group & 1) != 0;
    case 2:
    case 4:
    case 128:
    case 256:
      return group >= entry.low && group <= entry.high;
    default:
      return tag >= entry.low && tag <= entry.high;
  }
}

}  // namespace

bool parse_titles(std::string_view text) {
  const std::string clean = clean_line(text);
  const std::vector<std::string_view> titles = split(clean, ",;/\\");
  bool valid = true;
  for (const std::string_view title : titles) {
    if (title.size() <= kMostTitle) continue;
    VX_LOG_ERR("SetAETitles", "SetAETitles error - invalid length for [%s] title",
               std::string(title).c_str());
    valid = false;
  }
  if (!valid) return false;
  void* buffer = nullptr;
  if (!titles.empty()) {
    constexpr std::size_t kTitleBytes = kMostTitle + 1;
    buffer = allocate(titles.size() * (sizeof(const char*) + kTitleBytes) + sizeof(const char*));
    if (buffer == nullptr) return false;
    auto** pointers = static_cast<const char**>(buffer);
    auto* next = reinterpret_cast<char*>(pointers + titles.size() + 1);
    for (const std::string_view title : titles) {
      copy_text(next, kTitleBytes, title);
      *pointers++ = next;
      next += kTitleBytes;
    }
  }
  drop_titles();
  g_titles = buffer;
  config().accepted_titles = static_cast<const char**>(buffer);
  return true;
}

void drop_titles() {
  config().accepted_titles = nullptr;
  release(g_titles);
  g_titles = nullptr;
}

bool accepts_title(const char* title) {
  const Guard guard(state().charParamSemaphore);
  const char* const* accepted = config().accepted_titles;
  while (accepted != nullptr && *accepted != nullptr && std::strcmp(*accepted, title) != 0) ++accepted;
  return accepted != nullptr && *accepted != nullptr;
}

bool parse_filter(std::string_view text) {
  text = text.substr(0, kMostFilter);
  drop_filter();
  const bool valid = read_groups(trim(text));
  g_has_filter.store(!filter().empty(), std::memory_order_release);
  return valid || refuse_filter(text);
}

void drop_filter() {
  g_has_filter.store(false, std::memory_order_release);
  filter().clear();
}

bool filter_matches(uint32_t tag, uint32_t types) {
  if (!g_has_filter.load(std::memory_order_acquire)) return false;
  const Guard guard(state().charParamSemaphore);
  const std::vector<FilterEntry>& entries = filter();
  return std::any_of(entries.begin(), entries.end(), [tag, types](const FilterEntry& entry) {
    return (entry.type & types) != 0 && entry_matches(entry, tag);
  });
}

}  // namespace vx
