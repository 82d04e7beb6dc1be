#include "frame/registry.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "frame/app.h"
#include "frame/pool.h"
#include "frame/state.h"
#include "support.h"

namespace vx {
namespace {

class RegistryTest : public support::LibraryTest {};

TEST_F(RegistryTest, MessagesAreFoundUntilTheyAreRemoved) {
  MessageRegistry& registry = state().messages;
  int objects[300];
  std::vector<int32_t> ids;
  for (int& object : objects) ids.push_back(registry.add(&object));
  EXPECT_EQ(ids.front(), 100);
  for (std::size_t i = 0; i < ids.size(); ++i) {
    EXPECT_EQ(ids[i], 100 + static_cast<int32_t>(i));
    EXPECT_EQ(registry.find(ids[i]), &objects[i]);
    // The same bucket, another ID.
    EXPECT_EQ(registry.find(ids[i] + static_cast<int32_t>(kMessageBuckets)), nullptr);
  }
  EXPECT_EQ(registry.find(-1), nullptr);
  EXPECT_TRUE(registry.remove(150));
  EXPECT_EQ(registry.find(150), nullptr);
  EXPECT_FALSE(registry.remove(150));
  EXPECT_FALSE(registry.remove(-1));
  EXPECT_TRUE(has_log("could not find hash bucket for message object to free"));
  struct Visit {
    MessageRegistry* registry;
    std::set<void*> seen;
  } visit{&registry, {}};
  registry.for_each([](void* object, void* context) { static_cast<Visit*>(context)->seen.insert(object); },
                    &visit);
  EXPECT_EQ(visit.seen.size(), 299U);
  for (const int32_t id : ids) registry.remove(id);
}

TEST_F(RegistryTest, FailedAllocationYieldsNoId) {
  int object = 0;
  fail_allocation_after(1);
  EXPECT_EQ(state().messages.add(&object), -1);
  fail_allocation_after(1);
  EXPECT_EQ(state().applications.add(&object), -1);
}

TEST_F(RegistryTest, SmallIdsWrapAndAreNotGivenTwice) {
  auto registry = std::make_unique<SmallRegistry>();
  registry->set_up(1000);
  int kept = 0, passing = 0;
  EXPECT_EQ(registry->add(&kept), 1000);
  int32_t last = 0;
  for (int i = 0; i < 30000; ++i) {
    last = registry->add(&passing);
    registry->remove(last);
  }
  EXPECT_EQ(last, 31000);
  EXPECT_EQ(registry->add(&passing), 1001) << "1000 is still in use";
  EXPECT_EQ(registry->find(1000), &kept);
  registry->remove(1000);
  registry->remove(1001);
  EXPECT_FALSE(registry->remove(1001));
  EXPECT_TRUE(has_log("(VXI_releaseAppObj) E: Internal error, could not find application object to free"));
}

TEST_F(RegistryTest, ThreadsGetIdsOfTheirOwn) {
  MessageRegistry& registry = state().messages;
  constexpr int kThreads = 4;
  constexpr int kEach = 3000;
  std::vector<std::vector<int32_t>> ids(kThreads);
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (std::size_t t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kEach; ++i) {
        ids[t].push_back(registry.add(&ids[t]));
        if (registry.find(ids[t].back()) != &ids[t]) ++wrong;
        if (i % 2 == 0) {
          if (!registry.remove(ids[t].back())) ++wrong;
          if (registry.find(ids[t].back()) != nullptr) ++wrong;
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
  std::set<int32_t> all;
  for (const auto& mine : ids) all.insert(mine.begin(), mine.end());
  EXPECT_EQ(all.size(), static_cast<std::size_t>(kThreads * kEach));
}

TEST_F(RegistryTest, ApplicationsFollowTheirRules) {
  int32_t id = 5;
  EXPECT_EQ(VX_Register_Application(nullptr, "A"), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Register_Application(&id, nullptr), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Register_Application(&id, ""), VX_INVALID_LENGTH_FOR_TITLE);
  EXPECT_EQ(id, -1);
  EXPECT_EQ(VX_Register_Application(&id, "SEVENTEEN_LETTERS"), VX_INVALID_LENGTH_FOR_TITLE);
  EXPECT_EQ(VX_Register_Application(&id, "SIXTEEN__LETTERS"), VX_NORMAL_COMPLETION);
  EXPECT_EQ(id, 1001) << "the library's own application has 1000";
  int32_t second = 5;
  EXPECT_EQ(VX_Register_Application(&second, "SIXTEEN__LETTERS"), VX_ALREADY_REGISTERED);
  EXPECT_EQ(second, -1);
  EXPECT_EQ(VX_Register_Application(&second, "VEXAL_ECHO"), VX_ALREADY_REGISTERED);
  EXPECT_EQ(VX_Register_Application(&second, "sixteen__letters"), VX_NORMAL_COMPLETION);
  EXPECT_NE(find_application(id), find_application(second));
  EXPECT_STREQ(find_application(id)->Title, "SIXTEEN__LETTERS");
  EXPECT_EQ(VX_Release_Application(nullptr), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Release_Application(&id), VX_NORMAL_COMPLETION);
  EXPECT_EQ(id, -1);
  EXPECT_EQ(VX_Release_Application(&id), VX_INVALID_APPLICATION_ID);
  EXPECT_EQ(VX_Register_Application(&id, "SIXTEEN__LETTERS"), VX_NORMAL_COMPLETION);
}

}  // namespace
}  // namespace vx
