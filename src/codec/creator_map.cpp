#include "codec/creator_map.h"

#include <algorithm>

#include "frame/byte_order.h"

namespace vx {

namespace {

constexpr uint32_t key(uint16_t group, uint8_t block) {
  return (static_cast<uint32_t>(group) << 8) | block;
}
uint32_t key(const CreatorMap::Entry& entry) {
  return key(entry.group, entry.stream_block);
}

}  // namespace

void CreatorMap::add(uint32_t stream_creator, uint32_t creator, std::string_view code) {
  Entry entry{tag_group(stream_creator), static_cast<uint8_t>(stream_creator), static_cast<uint8_t>(creator),
              std::string(code)};
  const auto at = std::lower_bound(entries_.begin(), entries_.end(), key(entry),
                                   [](const Entry& e, uint32_t wanted) { return key(e) < wanted; });
  if (at != entries_.end() && key(*at) == key(entry)) {
    *at = std::move(entry);
  } else {
    entries_.insert(at, std::move(entry));
  }
}

const CreatorMap::Entry* CreatorMap::find(uint32_t stream_tag) const {
  const uint32_t wanted = key(tag_group(stream_tag), static_cast<uint8_t>(stream_tag >> 8));
  if (last_ < entries_.size() && key(entries_[last_]) == wanted) return &entries_[last_];
  const auto at = std::lower_bound(entries_.begin(), entries_.end(), wanted,
                                   [](const Entry& e, uint32_t k) { return key(e) < k; });
  if (at == entries_.end() || key(*at) != wanted) return nullptr;
  last_ = static_cast<std::size_t>(at - entries_.begin());
  return &*at;
}

// An entry is its three numbers, the length of its code, and the code.
std::string CreatorMap::save() const {
  std::string bytes;
  for (const Entry& entry : entries_) {
    const auto length = static_cast<uint16_t>(entry.code.size());
    const char head[] = {static_cast<char>(entry.group),
                         static_cast<char>(entry.group >> 8),
                         static_cast<char>(entry.stream_block),
                         static_cast<char>(entry.block),
                         static_cast<char>(length),
                         static_cast<char>(length >> 8)};
    bytes.append(head, sizeof head).append(entry.code);
  }
  return bytes;
}

void CreatorMap::restore(std::string_view bytes) {
  constexpr std::size_t kHead = 6;
  while (bytes.size() >= kHead) {
    const std::size_t length = load16(bytes.data() + 4, false);
    entries_.push_back({load16(bytes.data(), false), static_cast<uint8_t>(bytes[2]),
                        static_cast<uint8_t>(bytes[3]), std::string(bytes.substr(kHead, length))});
    bytes.remove_prefix(std::min(bytes.size(), kHead + length));
  }
}

}  // namespace vx
