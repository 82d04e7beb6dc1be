// The life of objects: opening, items and who frees them, nesting, and a session in which each allocation
// fails in turn.
#include "model/object.h"

#include <pthread.h>

#include <cstdlib>
#include <set>
#include <string>

#include "frame/pool.h"
#include "model/message_info.h"
#include "model/values.h"
#include "value_fixture.h"

namespace {

constexpr uint32_t kSequence = 0x00081140;
constexpr uint32_t kOtherSequence = 0x00081115;

class Objects : public support::ModelTest {
 protected:
  static bool lives(int32_t id) { return vx::find_object(id) != nullptr; }
  static VX_STATUS hold(int32_t holder, int32_t held, uint32_t tag = kSequence) {
    return VX_Set_Next_Value_From_Int(holder, tag, held);
  }
  static int32_t references(int32_t id) { return vx::find_object(id)->RefCount; }
};

TEST_F(Objects, OpeningAndItsRefusals) {
  EXPECT_EQ(VX_Open_Message(&id, "STANDARD_CT", 0x0002), VX_INVALID_COMMAND);
  EXPECT_EQ(id, -1);
  EXPECT_EQ(VX_Open_Message(&id, nullptr, C_STORE_RQ), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Open_Message(nullptr, "STANDARD_CT", C_STORE_RQ), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Open_Item(&id, nullptr), VX_NULL_POINTER_PARM);
  const auto service = [this] {
    const char* name = nullptr;
    uint16_t command = 0;
    const VX_STATUS status = VX_Get_Message_Service(id, &name, &command);
    return status == VX_NORMAL_COMPLETION ? name + (" " + std::to_string(command)) : std::to_string(status);
  };
  // A service that nobody knows: an open message with the command group.
  ASSERT_EQ(VX_Open_Message(&id, "NO_SUCH_SERVICE", C_STORE_RQ), VX_NORMAL_COMPLETION);
  EXPECT_EQ(object().AttributeCount, 24);
  EXPECT_EQ(VX_Set_Value_To_NULL(id, 0x00100010), VX_NORMAL_COMPLETION);
  EXPECT_EQ(service(), "NO_SUCH_SERVICE " + std::to_string(C_STORE_RQ));
  EXPECT_EQ(VX_Set_Service_Command(id, "ANOTHER", 3), VX_INVALID_COMMAND);
  EXPECT_EQ(VX_Set_Service_Command(id, nullptr, 3), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Set_Service_Command(id, "ANOTHER", C_ECHO_RSP), VX_NORMAL_COMPLETION);
  EXPECT_EQ(service(), "ANOTHER " + std::to_string(C_ECHO_RSP));
  id = item();
  EXPECT_EQ(service(), std::to_string(VX_INVALID_MESSAGE_ID));
  ASSERT_EQ(VX_Open_Item(&id, "NO SUCH ITEM"), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Set_Value_To_NULL(id, 0x00100010), VX_NORMAL_COMPLETION);
}

TEST_F(Objects, ATemplateClosesTheTableAndSurvivesEmptying) {
  ASSERT_EQ(VX_Open_Message(&id, "STANDARD_CT", C_STORE_RQ), VX_NORMAL_COMPLETION);
  const int32_t count_before = object().AttributeCount;
  EXPECT_GT(count_before, 50);
  EXPECT_EQ(VX_Set_Value_To_NULL(id, 0x00540011), VX_INVALID_TAG);
  EXPECT_EQ(VX_Set_Value_From_String(id, 0x00100010, "A^B"), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Empty_Message(id), VX_NORMAL_COMPLETION);
  EXPECT_EQ(object().AttributeCount, count_before);
  EXPECT_EQ(count(0x00100010), -VX_EMPTY_VALUE);
  const vx::ValTagObj* rules = find(0x00080060)->Template;
  ASSERT_NE(rules, nullptr);
  EXPECT_EQ(VX_Delete_Attribute(id, 0x00080060), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Set_Value_To_NULL(id, 0x00080060), VX_INVALID_TAG);
  EXPECT_EQ(VX_Add_Standard_Attribute(id, 0x00080060), VX_NORMAL_COMPLETION);
  EXPECT_EQ(find(0x00080060)->Template, rules);
}

TEST_F(Objects, EmptyingDropsCreatorsAsTheSiteSays) {
  for (const bool drop : {false, true}) {
    set_bool(VX_CFG_EMPTY_PRIVATE_CREATOR_CODES, drop);
    VX_Add_Private_Block(id, "ME", 9);
    VX_Add_Private_Attribute(id, "ME", 9, 1, VX_VR_LO);
    EXPECT_EQ(VX_Empty_Message(id), VX_NORMAL_COMPLETION);
    EXPECT_EQ(count(0x00090010), drop ? -VX_INVALID_TAG : 1);
    EXPECT_EQ(count(0x00091001), -VX_EMPTY_VALUE);
  }
}

TEST_F(Objects, TheLastReferenceFreesAnItem) {
  int32_t one = message(), two = message(), held = item();
  const int32_t number = held;
  ASSERT_EQ(hold(one, held), VX_NORMAL_COMPLETION);
  ASSERT_EQ(hold(two, held), VX_NORMAL_COMPLETION);
  ASSERT_EQ(hold(two, held, kOtherSequence), VX_NORMAL_COMPLETION);
  EXPECT_EQ(references(held), 3);
  EXPECT_EQ(vx::find_object(held)->ParentID, two);
  EXPECT_EQ(VX_Free_Item(&held), VX_NORMAL_COMPLETION);
  EXPECT_EQ(held, -1);
  EXPECT_TRUE(lives(number)) << "still referenced";
  EXPECT_EQ(VX_Free_Message(&two), VX_NORMAL_COMPLETION);
  EXPECT_TRUE(lives(number));
  EXPECT_EQ(references(number), 1);
  EXPECT_EQ(VX_Delete_Attribute(one, kSequence), VX_NORMAL_COMPLETION);
  EXPECT_FALSE(lives(number));
}

TEST_F(Objects, ReplacingASequenceFreesItsItemsAsTheSiteSays) {
  using Replace = VX_STATUS (*)(int32_t);
  for (const Replace replace :
       {Replace([](int32_t m) { return VX_Set_Value_To_Empty(m, kSequence); }),
        Replace([](int32_t m) { return VX_Set_Value_To_NULL(m, kSequence); }),
        Replace([](int32_t m) { return VX_Set_Value_From_Int(m, kSequence, item()); })}) {
    for (const bool release : {false, true}) {
      set_bool(VX_CFG_RELEASE_SQ_ITEMS, release);
      id = message();
      const int32_t first = item(), second = item();
      ASSERT_EQ(hold(id, first), VX_NORMAL_COMPLETION);
      ASSERT_EQ(hold(id, second), VX_NORMAL_COMPLETION);
      EXPECT_EQ(replace(id), VX_NORMAL_COMPLETION);
      EXPECT_EQ(lives(first), !release);
      EXPECT_TRUE(release || references(first) == 0);
      EXPECT_EQ(VX_Free_Message(&id), VX_NORMAL_COMPLETION);
      EXPECT_EQ(lives(second), !release);
    }
  }
}

TEST_F(Objects, DeletingOneValueOfASequenceFreesItsItem) {
  const int32_t items[] = {item(), item(), item()};
  for (const int32_t held : items) ASSERT_EQ(hold(id, held), VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(kSequence), std::to_string(items[0]));
  EXPECT_EQ(next_text(kSequence), std::to_string(items[1]));
  EXPECT_EQ(VX_Delete_Current_Value(id, kSequence), VX_NORMAL_COMPLETION);
  EXPECT_FALSE(lives(items[1]));
  int32_t got = 0;
  EXPECT_EQ(VX_Get_Next_Value_To_Int(id, kSequence, &got), VX_NORMAL_COMPLETION);
  EXPECT_EQ(got, items[2]);
  EXPECT_EQ(count(kSequence), 2);
}

TEST_F(Objects, AForcedFreeTakesTheReferencesAlong) {
  set_bool(VX_CFG_ELIMINATE_ITEM_REFERENCES, true);
  const int32_t messages[] = {message(), message()}, held = item(), other = item();
  for (const int32_t one : messages) {
    for (const int32_t each : {held, other, held}) ASSERT_EQ(hold(one, each), VX_NORMAL_COMPLETION);
  }
  EXPECT_EQ(vx::free_item(*vx::find_object(held), true), VX_NORMAL_COMPLETION);
  for (const int32_t one : messages) {
    id = one;
    EXPECT_EQ(count(kSequence), 1);
    EXPECT_EQ(text(kSequence), std::to_string(other));
  }
}

TEST_F(Objects, AnItemCanNotHoldItself) {
  const int32_t a = item(), b = item(), c = item();
  ASSERT_EQ(hold(id, a), VX_NORMAL_COMPLETION);
  EXPECT_EQ(hold(a, a), VX_INVALID_VALUE_FOR_VR);
  ASSERT_EQ(hold(a, b), VX_NORMAL_COMPLETION);
  EXPECT_EQ(hold(b, a), VX_INVALID_VALUE_FOR_VR);
  ASSERT_EQ(hold(b, c, kOtherSequence), VX_NORMAL_COMPLETION);
  EXPECT_EQ(hold(c, a), VX_INVALID_VALUE_FOR_VR);
  EXPECT_EQ(hold(c, b), VX_INVALID_VALUE_FOR_VR);
  EXPECT_EQ(hold(a, id), VX_INVALID_VALUE_FOR_VR) << "a message is no item";
  // The same item twice is no cycle.
  EXPECT_EQ(hold(a, c), VX_NORMAL_COMPLETION);
  EXPECT_EQ(hold(id, c), VX_NORMAL_COMPLETION);
  EXPECT_EQ(references(c), 3);
  EXPECT_EQ(references(a), 1) << "a refusal takes no reference";
}

TEST_F(Objects, FreeingADeepNestCostsNoStack) {
  // A recursion would need more than this stack for so many levels.
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, std::size_t{256} << 10);
  pthread_t thread;
  const auto work = [](void*) -> void* {
    constexpr int kLevels = 20000;
    int32_t top = message();
    int32_t holder = top;
    for (int i = 0; i < kLevels; ++i) {
      const int32_t inner = item();
      EXPECT_EQ(hold(holder, inner), VX_NORMAL_COMPLETION);
      holder = inner;
    }
    EXPECT_EQ(VX_Free_Message(&top), VX_NORMAL_COMPLETION);
    EXPECT_FALSE(lives(holder));
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, work, nullptr), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

TEST_F(Objects, ReportItemsAreNotFreedHere) {
  id = item();
  vx::find_object(id)->ObjectKind = vx::Kind::SrItem;
  EXPECT_EQ(VX_Free_Message(&id), VX_INVALID_MESSAGE_ID);
  EXPECT_EQ(VX_Free_Item(&id), VX_INVALID_ITEM_ID);
  EXPECT_TRUE(lives(id));
  vx::find_object(id)->ObjectKind = vx::Kind::Item;
  EXPECT_EQ(VX_Free_Message(&id), VX_NORMAL_COMPLETION) << "the kind decides, not the function";
  int32_t unknown = 123456;
  EXPECT_EQ(VX_Free_Message(&unknown), VX_INVALID_MESSAGE_ID);
  EXPECT_EQ(unknown, 123456);
  EXPECT_EQ(VX_Free_Item(&unknown), VX_INVALID_ITEM_ID);
}

// --- Each allocation fails in turn ---

VX_STATUS hold_nothing(int32_t, uint32_t, void*, VX_CALLBACK_REQUEST, uint32_t* size, void**, int32_t,
                       int32_t*) {
  *size = 0;
  return VX_NORMAL_COMPLETION;
}

VX_STATUS give_bytes(int32_t, uint32_t, int32_t first, void*, int32_t* size, void** data, int32_t* last) {
  static char bytes[300] = "piece";
  *size = sizeof bytes;
  *data = bytes;
  *last = first != 0 ? 0 : 1;
  return VX_NORMAL_COMPLETION;
}

// Does a bit of everything; all statuses but success and want of memory (and what follows from it) are
// faults.
void session(int32_t app) {
  const auto expect = [](VX_STATUS status) {
    static const std::set<VX_STATUS> kFine = {
        VX_NORMAL_COMPLETION,    VX_SYSTEM_ERROR,         VX_INVALID_TAG,
        VX_INVALID_MESSAGE_ID,   VX_EMPTY_VALUE,          VX_NOT_FOUND,
        VX_NULL_VALUE,           VX_INVALID_PRIVATE_CODE, VX_MSGFILE_ERROR,
        VX_INVALID_VALUE_FOR_VR, VX_INVALID_ITEM_ID,      VX_MESSAGE_EMPTY};
    EXPECT_EQ(kFine.count(status), 1U) << status << " " << VX_Error_Message(status);
  };
  int32_t id = -1, templated = -1, item = -1, inner = -1;
  expect(VX_Open_Empty_Message(&id));
  expect(VX_Open_Message(&templated, "STANDARD_CT", C_STORE_RQ));
  expect(VX_Set_Value_From_String(templated, 0x00100010, "A^B"));
  expect(VX_Delete_Range(templated, 0x00080000, 0x0008FFFF));
  expect(VX_Add_Standard_Attribute(templated, 0x00080060));
  expect(VX_Set_Service_Command(templated, "A RATHER LONG SERVICE NAME", C_STORE_RSP));
  expect(VX_Set_Value_From_String(id, 0x00080008, "ORIGINAL"));
  expect(VX_Set_Next_Value_From_String(id, 0x00080008, "A TEXT OF MORE THAN FORTY CHARACTERS, THAT IS"));
  expect(VX_Set_Next_Value_To_NULL(id, 0x00080008));
  for (int i = 0; i < 30; ++i) expect(VX_Set_Next_Value_From_Int(id, 0x00283002, i));
  for (uint32_t tag = 0x00111001; tag < 0x00111080; tag += 3) {
    const VX_STATUS status = VX_Add_Nonstandard_Attribute(id, tag, VX_VR_UN);
    EXPECT_TRUE(status != VX_TAG_ALREADY_EXISTS);
    if (status == VX_NORMAL_COMPLETION) expect(VX_Set_Value_From_Buffer(id, tag, "\1\0\2\0", 4));
  }
  expect(VX_Set_Value_To_NULL(id, 0x00080020));  // far from the cursor: the index is made here
  vx::TagObj* unknown = id < 0 ? nullptr : vx::find_tag(*vx::find_object(id), 0x00111001);
  if (unknown != nullptr) {
    expect(vx::store_value(*vx::find_object(id), *unknown, "\3\0", 2, {.first = false}));
    expect(VX_Set_Value_Representation(id, 0x00111001, VX_VR_US));
  }
  expect(VX_Set_Value_From_Function(id, 0x7FE00010, nullptr, give_bytes));
  expect(VX_Byte_Swap_OBOW(id, 0x7FE00010));
  expect(VX_Add_Private_Block(id, "ME", 9));
  expect(VX_Add_Private_Attribute(id, "ME", 9, 1, VX_VR_OB));
  expect(VX_Set_Message_Callbacks(app, id));
  vx::TagObj* bound = id < 0 ? nullptr : vx::find_tag(*vx::find_object(id), 0x00091001);
  if (bound != nullptr && bound->Storage == vx::Stored::ByCallback) {
    bound->VR = VX_VR_OW;
    expect(
        vx::store_value(*vx::find_object(id), *bound, "wxyz", 4, {.from_stream = true, .big_endian = true}));
  }
  expect(VX_Open_Item(&item, "SOME ITEM NAME"));
  expect(VX_Open_Empty_Item(&inner));
  if (inner >= 0) expect(VX_Set_Value_From_Int(item, kSequence, inner));
  if (inner >= 0) expect(VX_Free_Item(&inner));
  if (item >= 0) expect(VX_Set_Value_From_Int(id, kSequence, item));
  if (item >= 0) expect(VX_Free_Item(&item));
  expect(VX_Delete_Private_Block(id, "ME", 9));
  // Objects that could be opened can be freed, whatever failed since.
  if (id >= 0) {
    EXPECT_EQ(VX_Free_Message(&id), VX_NORMAL_COMPLETION);
  }
  if (templated >= 0) {
    EXPECT_EQ(VX_Free_Message(&templated), VX_NORMAL_COMPLETION);
  }
}

class FailingAllocation : public support::LibraryTest {
 protected:
  // With every buffer straight from the heap the memory in use is known to the byte.
  void SetUp() override {
    setenv("VX3_MALLOC", "1", 1);
    ASSERT_EQ(begin_with_full_data(), VX_NORMAL_COMPLETION);
  }
  void TearDown() override {
    vx::fail_allocation_after(0);
    LibraryTest::TearDown();
    unsetenv("VX3_MALLOC");
  }
};

TEST_F(FailingAllocation, NeitherCrashesNorLeaks) {
  int32_t app = -1;
  ASSERT_EQ(VX_Register_Application(&app, "FAILING"), VX_NORMAL_COMPLETION);
  ASSERT_EQ(VX_Register_pCallback_Function(
                app, "ME", 9, 1, nullptr,
                [](int32_t id, const char*, uint16_t, uint8_t, void* user, VX_CALLBACK_REQUEST request,
                   uint32_t* size, void** data, int32_t first,
                   int32_t* last) { return hold_nothing(id, 0, user, request, size, data, first, last); }),
            VX_NORMAL_COMPLETION);
  session(app);
  const uint64_t before = support::memory().total;
  for (uint64_t n = 1;; ++n) {
    ASSERT_LT(n, 20000U);
    vx::fail_allocation_after(n);
    session(app);
    void* probe = vx::allocate(8);
    vx::release(probe);
    ASSERT_EQ(support::memory().total, before) << "allocation " << n;
    if (probe == nullptr) break;  // the session needs fewer allocations than this
  }
}

}  // namespace
