#include "model/tag_index.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <type_traits>

#include "frame/pool.h"

namespace vx {
namespace {

constexpr std::size_t kLine = 64;       // of the cache
constexpr std::size_t kAlignment = 16;  // of every buffer
// The count and the tags fill two lines.
constexpr uint32_t kBlockSize = 31;
constexpr uint32_t kNoTag = 0xFFFFFFFF;

struct alignas(kLine) Block {
  uint32_t count;
  uint32_t tags[kBlockSize];  // ascending; kNoTag from `count` on
  TagObj* attributes[kBlockSize];
  void* buffer;  // that the block lies in
};
static_assert(sizeof(Block) == 6 * kLine && std::is_trivially_destructible_v<Block>);

// Elements of a sorted array below `value`, without branches that depend on the data.
inline uint32_t count_below(const uint32_t* values, uint32_t count, uint32_t value) {
  uint32_t base = 0;
  while (count > 1) {
    const uint32_t half = count / 2;
    base += values[base + half - 1] < value ? half : 0;
    count -= half;
  }
  return base + (count == 1 && values[base] < value ? 1U : 0U);
}

// Tags of a block below `tag`. Every place is compared, which the compiler does several at a time.
uint32_t place_of(const Block& block, uint32_t tag) {
  uint32_t below = 0;
  for (uint32_t i = 0; i < kBlockSize; ++i) below += block.tags[i] < tag ? 1U : 0U;
  return below;
}

template <typename T>
void open_gap(T* array, uint32_t count, uint32_t at) {
  std::memmove(array + at + 1, array + at, (count - at) * sizeof(T));
}
template <typename T>
void close_gap(T* array, uint32_t count, uint32_t at) {
  std::memmove(array + at, array + at + 1, (count - at - 1) * sizeof(T));
}

Block* new_block() {
  void* buffer = allocate_raw(sizeof(Block) + kLine - kAlignment);
  if (buffer == nullptr) return nullptr;
  auto* block = reinterpret_cast<Block*>((reinterpret_cast<uintptr_t>(buffer) + kLine - 1) & ~(kLine - 1));
  block->buffer = buffer;
  block->count = 0;
  std::fill_n(block->tags, kBlockSize, kNoTag);
  return block;
}

void block_insert(Block& block, uint32_t at, TagObj& attribute) {
  open_gap(block.tags, block.count, at);
  open_gap(block.attributes, block.count, at);
  block.tags[at] = attribute.Tag;
  block.attributes[at] = &attribute;
  ++block.count;
}

}  // namespace

struct TagIndex {
  uint32_t count;
  uint32_t capacity;
  uint32_t* firsts;  // owned; behind them each kStride-th of them once more
  Block** blocks;    // owned, with the blocks
};
static_assert(std::is_trivially_destructible_v<TagIndex>);

namespace {

// The first tags of large tables lie on many lines. The way to the few that matter is marked out in an array
// that stays close.
constexpr uint32_t kStride = 64;

uint32_t* marks_of(const TagIndex& index) {
  return index.firsts + index.capacity;
}
void set_marks(TagIndex& index, uint32_t from) {
  uint32_t* marks = marks_of(index);
  for (uint32_t at = from / kStride * kStride; at < index.count; at += kStride)
    marks[at / kStride] = index.firsts[at];
}

bool reserve_blocks(TagIndex& index, uint32_t wanted) {
  if (wanted <= index.capacity) return true;
  const uint32_t capacity = std::max({wanted, index.capacity * 2, 16U});
  void* firsts = reallocate((capacity + capacity / kStride + 1) * sizeof(uint32_t), index.firsts);
  if (firsts == nullptr) return false;
  index.firsts = static_cast<uint32_t*>(firsts);
  void* blocks = reallocate(capacity * sizeof(Block*), index.blocks);
  if (blocks == nullptr) return false;
  index.blocks = static_cast<Block**>(blocks);
  index.capacity = capacity;
  set_marks(index, 0);
  return true;
}

// A new empty block in front of block `at`.
Block* add_block(TagIndex& index, uint32_t at) {
  if (!reserve_blocks(index, index.count + 1)) return nullptr;
  Block* block = new_block();
  if (block == nullptr) return nullptr;
  open_gap(index.firsts, index.count, at);
  open_gap(index.blocks, index.count, at);
  index.blocks[at] = block;
  ++index.count;
  return block;
}

// The block that a tag belongs to: the last one whose first tag is not above it.
uint32_t block_of(const TagIndex& index, uint32_t tag) {
  const uint32_t marks = (index.count + kStride - 1) / kStride;
  const uint32_t passed = count_below(marks_of(index), marks, tag);
  const uint32_t start = passed == 0 ? 0 : (passed - 1) * kStride;
  const uint32_t* firsts = index.firsts + start;
  for (std::size_t line = 0; line < kStride; line += kLine / sizeof(uint32_t))
    __builtin_prefetch(firsts + line);
  const uint32_t below = start + count_below(firsts, std::min(kStride, index.count - start), tag);
  if (below < index.count && index.firsts[below] == tag) return below;
  return below == 0 ? 0 : below - 1;
}

}  // namespace

TagIndex* build_index(TagObj* first) {
  auto* index = static_cast<TagIndex*>(allocate(sizeof(TagIndex)));
  if (index == nullptr) return nullptr;
  Block* block = nullptr;
  for (TagObj* attribute = first; attribute != nullptr; attribute = attribute->Next) {
    if (block == nullptr || block->count == kBlockSize) {
      block = add_block(*index, index->count);
      if (block == nullptr) {
        free_index(index);
        return nullptr;
      }
      index->firsts[index->count - 1] = attribute->Tag;
      set_marks(*index, index->count - 1);
    }
    block->tags[block->count] = attribute->Tag;
    block->attributes[block->count] = attribute;
    ++block->count;
  }
  return index;
}

void free_index(TagIndex* index) {
  if (index == nullptr) return;
  for (uint32_t i = 0; i < index->count; ++i) release(index->blocks[i]->buffer);
  release(index->blocks);
  release(index->firsts);
  release(index);
}

TagPlace index_lower_bound(const TagIndex& index, uint32_t tag) {
  if (index.count == 0) return {nullptr, false};
  const uint32_t at = block_of(index, tag);
  const Block& block = *index.blocks[at];
  // The lines of the block come in together, not one by one as the search meets them.
  for (std::size_t line = kLine; line < sizeof(Block); line += kLine) {
    __builtin_prefetch(reinterpret_cast<const char*>(&block) + line);
  }
  const uint32_t place = place_of(block, tag);
  if (place == block.count)
    return {at + 1 < index.count ? index.blocks[at + 1]->attributes[0] : nullptr, false};
  TagObj* found = block.attributes[place];
  // What finding and reading touch may lie on two lines.
  __builtin_prefetch(found);
  __builtin_prefetch(found->OwnBytes);
  return {found, block.tags[place] == tag};
}

bool index_insert(TagIndex& index, TagObj& attribute) {
  const uint32_t tag = attribute.Tag;
  bool moved = index.count == 0;  // the first tags of blocks
  if (moved && add_block(index, 0) == nullptr) return false;
  uint32_t at = moved ? 0 : block_of(index, tag);
  Block* block = index.blocks[at];
  uint32_t place = place_of(*block, tag);
  if (block->count == kBlockSize) {
    moved = true;
    Block* right = add_block(index, at + 1);
    if (right == nullptr) return false;
    // A table that grows at its end gets full blocks; anywhere else the block is halved.
    const bool at_end = place == kBlockSize && at + 2 == index.count;
    const uint32_t keep = at_end ? kBlockSize : kBlockSize / 2;
    right->count = kBlockSize - keep;
    std::memcpy(right->tags, block->tags + keep, right->count * sizeof(uint32_t));
    std::memcpy(right->attributes, block->attributes + keep, right->count * sizeof(TagObj*));
    std::fill_n(block->tags + keep, right->count, kNoTag);
    block->count = keep;
    index.firsts[at + 1] = right->count == 0 ? tag : right->tags[0];
    if (place > keep || at_end) {
      place -= keep;
      block = right;
      ++at;
    }
  }
  block_insert(*block, place, attribute);
  if (moved || index.firsts[at] != block->tags[0]) {
    index.firsts[at] = block->tags[0];
    set_marks(index, at);
  }
  return true;
}

void index_erase(TagIndex& index, uint32_t tag) {
  if (index.count == 0) return;
  const uint32_t at = block_of(index, tag);
  Block& block = *index.blocks[at];
  const uint32_t place = place_of(block, tag);
  if (place == block.count || block.tags[place] != tag) return;
  close_gap(block.tags, block.count, place);
  close_gap(block.attributes, block.count, place);
  block.tags[--block.count] = kNoTag;
  // A first tag that has gone still parts this block from the one in front.
  if (block.count != 0) return;
  release(block.buffer);
  close_gap(index.firsts, index.count, at);
  close_gap(index.blocks, index.count, at);
  --index.count;
  set_marks(index, at);
}

}  // namespace vx
