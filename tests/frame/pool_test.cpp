#include "frame/pool.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "frame/log.h"
#include "support.h"

namespace vx {
namespace {

struct Record {
  uint64_t words[9];
};

Record* new_record() {
  return new_object<Record>(Pool::TagObj);
}

bool all_zero(const void* bytes, std::size_t size) {
  const auto* at = static_cast<const unsigned char*>(bytes);
  return std::all_of(at, at + size, [](unsigned char byte) { return byte == 0; });
}

class PoolTest : public support::LibraryTest {
 protected:
  struct PoolLine {
    int free, slot;
  };
  // What VX_Report_Memory tells of each pool that has blocks, by name; "direct" has the count of buffers.
  static std::map<std::string, PoolLine> report() {
    VX_Set_Log_Destination(VX_CFG_T1_MESSAGE, VX_LOG_TO_MEMORY);
    clear_log();
    total_bytes();
    VX_Set_Log_Destination(VX_CFG_T1_MESSAGE, VX_LOG_OFF);
    std::map<std::string, PoolLine> pools;
    for (const std::string& line : log_lines()) {
      const std::size_t at = line.find(" T1: ");
      if (at == std::string::npos) continue;
      PoolLine row{};
      char name[64] = "";
      const char* text = line.c_str() + at + 5;
      if (std::sscanf(text, "%d : %d : (%*[^)]) : %63s", &row.free, &row.slot, name) == 3 && row.slot != 0) {
        pools[name] = row;
      } else if (std::sscanf(text, "%d bytes in %d direct", &row.slot, &row.free) == 2) {
        pools["direct"] = row;
      }
    }
    return pools;
  }
  static uint64_t total_bytes() {
    const support::Memory now = support::memory();
    EXPECT_LE(now.free, now.total);
    return now.total;
  }
};

TEST_F(PoolTest, ObjectsStartZeroedHoweverTheyWereLeft) {
  for (int round = 0; round < 3; ++round) {
    std::vector<Record*> records;
    for (int i = 0; i < 3000; ++i) {
      Record* record = new_record();
      ASSERT_NE(record, nullptr);
      ASSERT_TRUE(all_zero(record, sizeof *record));
      ASSERT_EQ(reinterpret_cast<uintptr_t>(record) % 16, 0U);
      std::memset(record, 0xEE, sizeof *record);
      records.push_back(record);
    }
    std::sort(records.begin(), records.end());
    ASSERT_EQ(std::adjacent_find(records.begin(), records.end()), records.end()) << "one slot given twice";
    for (Record* record : records) pool_free(Pool::TagObj, record);
  }
}

TEST_F(PoolTest, EachSizeComesFromItsClass) {
  const struct {
    std::size_t size;
    const char* pool;
  } rows[] = {{1, "b4"},         {4, "b4"},          {5, "b8"},         {20, "b20"},     {21, "b24"},
              {64, "b64"},       {65, "b256"},       {512, "b512"},     {513, "b2K"},    {2049, "b4K"},
              {4096, "b4K"},     {4097, "b8K"},      {8193, "b12K"},    {24577, "b28K"}, {28672, "b28K"},
              {28673, "direct"}, {131084, "bPixel"}, {131083, "direct"}};
  for (const auto& row : rows) {
    release(allocate(row.size));  // the block is there
    auto before = report();
    void* buffer = allocate(row.size);
    ASSERT_NE(buffer, nullptr);
    EXPECT_TRUE(all_zero(buffer, row.size)) << row.size;
    std::memset(buffer, 0xEE, row.size);
    std::string taken;
    for (const auto& [name, line] : report()) {
      if (line.free != before[name].free) taken += name;
    }
    EXPECT_EQ(taken, row.pool) << row.size;
    release(buffer);
  }
}

TEST_F(PoolTest, ReallocationKeepsWhatFits) {
  const std::size_t sizes[] = {3, 4, 9, 64, 500, 4000, 28672, 28673, 200000, 5000000, 131084, 30000, 100, 1};
  auto* buffer = static_cast<unsigned char*>(reallocate(2, nullptr));
  std::size_t held = 2;
  buffer[0] = 7;
  buffer[1] = 8;
  for (const std::size_t size : sizes) {
    buffer = static_cast<unsigned char*>(reallocate(size, buffer));
    ASSERT_NE(buffer, nullptr);
    held = std::min(held, size);
    EXPECT_EQ(buffer[0], 7) << size;
    EXPECT_EQ(buffer[held - 1], held > 1 ? 8 : 7) << size;
    std::memset(buffer, 8, size);
    buffer[0] = 7;
    held = size;
  }
  EXPECT_EQ(reallocate(SIZE_MAX - 4, buffer), nullptr);
  EXPECT_EQ(buffer[0], 7) << "a failed reallocation lost the buffer";
  release(buffer);
}

TEST_F(PoolTest, SecondFreeIsLoggedAndHarmless) {
  Record* record = new_record();
  pool_free(Pool::TagObj, record);
  pool_free(Pool::TagObj, record);
  EXPECT_EQ(count_log("Invalid TagObj free"), 1);
  Record* first = new_record();
  Record* second = new_record();
  EXPECT_NE(first, second);
  pool_free(Pool::MsgObj, first);  // not a slot of that pool
  EXPECT_EQ(count_log("Invalid MsgObj free"), 1);
  void* buffer = allocate(10);
  release(buffer);
  release(buffer);
  EXPECT_EQ(count_log("Invalid b12 free"), 1);
  pool_free(Pool::TagObj, nullptr);
  release(nullptr);
}

TEST_F(PoolTest, CleanUpGivesFreeBlocksBackAndNoOthers) {
  VX_Cleanup_Memory(0);
  const uint64_t before = total_bytes();
  std::vector<Record*> records;
  for (int i = 0; i < 5000; ++i) records.push_back(new_record());
  const uint64_t full = total_bytes();
  EXPECT_GE(full - before, 5000 * sizeof(Record));
  EXPECT_EQ(VX_Cleanup_Memory(0), VX_NORMAL_COMPLETION);
  Record* kept = records.back();
  std::memset(kept, 0xEE, sizeof *kept);
  records.pop_back();
  for (Record* record : records) pool_free(Pool::TagObj, record);
  EXPECT_EQ(total_bytes(), full) << "memory went back without being asked for";
  EXPECT_EQ(VX_Cleanup_Memory(0), VX_NORMAL_COMPLETION);
  const uint64_t one_block = total_bytes();
  EXPECT_LT(one_block, full);
  EXPECT_GT(one_block, before) << "the block of a slot in use was given back";
  EXPECT_EQ(kept->words[8], 0xEEEEEEEEEEEEEEEE);
  pool_free(Pool::TagObj, kept);
  VX_Cleanup_Memory(0);
  EXPECT_EQ(total_bytes(), before);
  EXPECT_EQ(VX_Cleanup_Memory(-1), VX_VALUE_OUT_OF_RANGE);
}

TEST_F(PoolTest, SlotsOfAnEndedThreadComeBack) {
  VX_Cleanup_Memory(0);
  const uint64_t before = total_bytes();
  std::thread([] {
    for (int i = 0; i < 100; ++i) pool_free(Pool::TagObj, new_record());
  }).join();
  EXPECT_GT(total_bytes(), before);
  VX_Cleanup_Memory(0);
  EXPECT_EQ(total_bytes(), before);
}

TEST_F(PoolTest, SlotsAtHandDieWithAReset) {
  pool_free(Pool::TagObj, new_record());  // this thread keeps some
  ASSERT_EQ(VX_Library_Reset(), VX_NORMAL_COMPLETION);
  Record* record = new_record();
  ASSERT_NE(record, nullptr);
  std::memset(record, 1, sizeof *record);
  pool_free(Pool::TagObj, record);
}

// One thread allocates, the next one frees, with clean-ups and reports in between.
TEST_F(PoolTest, ThreadsMayFreeWhatOthersAllocated) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 4000;
  std::mutex mutex;
  std::vector<std::pair<Record*, uint64_t>> handed;
  std::atomic<bool> damaged{false};
  std::atomic<int> running{kThreads};
  std::vector<std::thread> threads;
  for (uint64_t t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (uint64_t i = 0; i < kRounds; ++i) {
        Record* record = new_record();
        const uint64_t mark = t << 32 | i;
        if (!all_zero(record, sizeof *record)) damaged = true;
        record->words[0] = record->words[8] = mark;
        std::pair<Record*, uint64_t> taken{nullptr, 0};
        {
          const std::lock_guard guard(mutex);
          handed.emplace_back(record, mark);
          if (handed.size() > 200) {
            std::swap(handed[i % handed.size()], handed.back());
            taken = handed.back();
            handed.pop_back();
          }
        }
        if (taken.first == nullptr) continue;
        if (taken.first->words[0] != taken.second || taken.first->words[8] != taken.second) damaged = true;
        pool_free(Pool::TagObj, taken.first);
      }
      --running;
    });
  }
  while (running != 0) {
    cleanup_memory(0);
    total_bytes();
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_FALSE(damaged);
  for (const auto& [record, mark] : handed) pool_free(Pool::TagObj, record);
}

TEST_F(PoolTest, InjectedFailureHitsExactlyTheNthAllocation) {
  for (const std::size_t size : {std::size_t{16}, std::size_t{100000}}) {
    for (uint64_t n = 1; n <= 5; ++n) {
      fail_allocation_after(n);
      for (uint64_t i = 1; i <= 6; ++i) {
        void* buffer = allocate(size);
        EXPECT_EQ(buffer == nullptr, i == n) << size << " " << n << " " << i;
        release(buffer);
      }
    }
  }
  fail_allocation_after(1);
  EXPECT_EQ(new_record(), nullptr);
  fail_allocation_after(1);
  fail_allocation_after(0);
  EXPECT_NE(new_record(), nullptr);
}

TEST_F(PoolTest, PixelBuffersFollowTheirSetting) {
  set_long(VX_CFG_PIXEL_BUFFER_SIZE, 262144);
  void* fits = allocate(262144 + 12);
  EXPECT_EQ(report().count("bPixel"), 1U);
  set_long(VX_CFG_PIXEL_BUFFER_SIZE, 524288);  // while a buffer of the old size is out
  void* larger = allocate(524288 + 12);
  ASSERT_NE(larger, nullptr);
  std::memset(larger, 1, 524288 + 12);
  EXPECT_EQ(report()["direct"].free, 1);
  release(larger);
  release(fits);
}

class SmallPixelBufferTest : public PoolTest {
 protected:
  std::string profile_lines() override { return "PIXEL_BUFFER_SIZE = 40000\n"; }
};

// The blocks of the small buffers wait to be used again, and must not be taken for large ones.
TEST_F(SmallPixelBufferTest, BlocksOfAnotherSizeAreNotReused) {
  std::vector<Record*> records;  // as many as make the pools ask for large regions
  for (int i = 0; i < 20000; ++i) records.push_back(new_record());
  std::vector<void*> buffers;
  for (int i = 0; i < 8; ++i) buffers.push_back(allocate(40000 + 12));
  for (void* buffer : buffers) release(buffer);
  set_long(VX_CFG_PIXEL_BUFFER_SIZE, 131072);
  buffers.clear();
  for (std::size_t i = 0; i < 8; ++i) {
    buffers.push_back(allocate(131072 + 12));
    std::memset(buffers.back(), static_cast<int>(i), 131072 + 12);
  }
  for (std::size_t i = 0; i < 8; ++i) {
    const auto* bytes = static_cast<const unsigned char*>(buffers[i]);
    EXPECT_EQ(std::count(bytes, bytes + 131072 + 12, static_cast<unsigned char>(i)), 131072 + 12);
    release(buffers[i]);
  }
  for (Record* record : records) pool_free(Pool::TagObj, record);
}

class DirectAllocationTest : public PoolTest {
 protected:
  void SetUp() override {
    ::setenv("VX3_MALLOC", "1", 1);
    PoolTest::SetUp();
    ::unsetenv("VX3_MALLOC");
  }
};

TEST_F(DirectAllocationTest, LeavesThePoolsEmpty) {
  Record* record = new_record();
  void* buffer = reallocate(20, allocate(10));
  ASSERT_NE(record, nullptr);
  ASSERT_NE(buffer, nullptr);
  auto pools = report();
  EXPECT_EQ(pools.size(), 1U);
  EXPECT_GE(pools["direct"].free, 2);
  release(buffer);
  pool_free(Pool::TagObj, record);
  EXPECT_LT(report()["direct"].free, pools["direct"].free);
}

}  // namespace
}  // namespace vx
