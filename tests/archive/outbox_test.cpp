// Requests that wait until their nodes take them.
#include "archive/outbox.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "support.h"

namespace vexal::test {
namespace {

using Result = Delivery::Result;

// Nodes that take what they are given, or do not.
struct Nodes {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::string> got;                       // "A:1" for the instance 1 to A
  std::vector<std::pair<std::string, Result>> moods;  // of what is given next, by the same words; then Taken

  Delivery take(const Parcel& parcel) {
    const std::lock_guard lock(mutex);
    const std::string words = parcel.node + ":" + parcel.instance;
    Result result = Result::Taken;
    for (auto at = moods.begin(); at != moods.end(); ++at) {
      if (at->first != words) continue;
      result = at->second;
      moods.erase(at);
      break;
    }
    if (result == Result::Taken) got.push_back(words + parcel.data_set);
    changed.notify_all();
    return {result, "as asked"};
  }
  bool wait_for(std::size_t count) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, std::chrono::seconds(20), [&] { return got.size() >= count; });
  }
};

Parcel parcel_of(const char* node, const char* instance, std::string data_set = "") {
  return {node, "1.2", instance, 1, 0, std::move(data_set)};
}

class OutboxTest : public ::testing::Test {
 protected:
  void open(Outbox& box) { ASSERT_EQ(box.open(folder_.path("outbox.sqlite"), 0600), ""); }
  void start(Outbox& box) {
    box.start({"A", "B"}, [this](const Parcel& parcel) { return nodes_.take(parcel); });
  }
  std::vector<std::string> of(char node) {
    std::vector<std::string> some;
    for (const std::string& words : nodes_.got) {
      if (words[0] == node) some.push_back(words.substr(2));
    }
    return some;
  }

  support::TempFolder folder_;
  Nodes nodes_;
};

TEST_F(OutboxTest, EachNodeGetsItsOwnInTheirOrderThoughOneIsAway) {
  nodes_.moods = {{"A:1", Result::Later}, {"A:3", Result::Never}};
  const std::string bytes("\0\xFF'\"", 4);
  {
    Outbox box;  // what is added before a crash is there after it
    open(box);
    for (const char* instance : {"1", "2", "3"}) ASSERT_EQ(box.add(parcel_of("A", instance)), "");
    ASSERT_EQ(box.add(parcel_of("B", "1", bytes)), "");
  }
  Outbox box;
  open(box);
  start(box);
  EXPECT_EQ(box.add(parcel_of("A", "4")), "");
  ASSERT_TRUE(nodes_.wait_for(4));
  box.stop();
  EXPECT_EQ(of('A'), (std::vector<std::string>{"1", "2", "4"}));
  EXPECT_EQ(of('B'), (std::vector<std::string>{"1" + bytes}));
  EXPECT_EQ(nodes_.got[0], "B:1" + bytes) << "it waits for the other node";
}

TEST_F(OutboxTest, WhatIsHeldBackIsDeliveredOnceItIsLetGoAndNotWhenItWasTaken) {
  Outbox box;
  open(box);
  start(box);
  int64_t first = 0;
  int64_t second = 0;
  ASSERT_EQ(box.add(parcel_of("A", "1"), &first), "");
  ASSERT_EQ(box.add(parcel_of("A", "2"), &second), "");
  EXPECT_NE(first, second);
  box.finish(first, true);
  box.finish(second, false);
  ASSERT_TRUE(nodes_.wait_for(1));
  ASSERT_EQ(box.add(parcel_of("A", "3")), "");
  ASSERT_TRUE(nodes_.wait_for(2));
  EXPECT_EQ(of('A'), (std::vector<std::string>{"2", "3"}));
}

TEST_F(OutboxTest, TwoProcessesOnOneDatabaseDeliverEachParcelOnce) {
  Outbox one;
  Outbox other;
  open(one);
  open(other);
  start(one);
  start(other);
  for (int i = 0; i < 50; ++i) {
    ASSERT_EQ((i % 2 == 0 ? one : other).add(parcel_of("B", std::to_string(i).c_str())), "");
  }
  ASSERT_TRUE(nodes_.wait_for(50));
  one.stop();
  other.stop();
  std::vector<std::string> wanted;
  for (int i = 0; i < 50; ++i) wanted.push_back(std::to_string(i));
  EXPECT_EQ(of('B'), wanted);
}

TEST_F(OutboxTest, ADatabaseThatIsNoneIsTold) {
  Outbox box;
  EXPECT_NE(box.open(folder_.path("no/such/folder"), 0600), "");
}

}  // namespace
}  // namespace vexal::test
