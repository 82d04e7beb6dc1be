// Directories on disk: created, walked, changed and updated; updates that fail at any write; directories that
// lie.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>

#include "media/file_op.h"
#include "media/media.h"

namespace {

using namespace media;

class Handler : public MediaTest {
 protected:
  void SetUp() override {
    MediaTest::SetUp();
    path_ = folder().path("DICOMDIR");
  }
  void TearDown() override {
    vx::fail_file_change_after(0, vx::FileFault::Once);
    MediaTest::TearDown();
  }
  int32_t create() const {
    int32_t id = -1;
    EXPECT_EQ(VX_DDH_Create(path_.c_str(), "SET", 0, &id), VX_NORMAL_COMPLETION);
    return id;
  }
  int32_t open(VX_STATUS expected = VX_NORMAL_COMPLETION) const {
    int32_t id = -1;
    EXPECT_EQ(VX_DDH_Open(path_.c_str(), &id), expected);
    return id;
  }
  static int32_t add(int32_t parent, const char* type, const char* name = nullptr) {
    int32_t id = 0;
    EXPECT_EQ(VX_DDH_Add_Record(parent, type, &id), VX_NORMAL_COMPLETION)
        << (type != nullptr ? type : "null");
    if (name != nullptr) VX_Set_Value_From_String(id, 0x00100010, name);
    return id;
  }
  static int32_t first(int32_t parent) {
    int32_t id = -1;
    EXPECT_EQ(VX_DDH_Get_First_Lower_Record(parent, &id), VX_NORMAL_COMPLETION);
    return id;
  }
  static int32_t next(int32_t record) {
    int32_t id = -1;
    EXPECT_EQ(VX_DDH_Get_Next_Record(record, &id), VX_NORMAL_COMPLETION);
    return id;
  }
  // Patients A, B and C; A has a study with a series of two images.
  void build() const {
    const Object id(create());
    const int32_t a = add(id, "PATIENT", "A");
    add(id, nullptr, "B");
    const int32_t series = add(add(a, "STUDY"), nullptr);
    add(series, "1.2.840.10008.5.1.4.1.1.2", "I1");
    add(series, nullptr, "I2");
    add(id, "PATIENT", "C");
    EXPECT_EQ(VX_DDH_Update(id), VX_NORMAL_COMPLETION);
  }
  // What a handler sees, by records alone.
  static std::string tree(int32_t parent, int depth = 0) {
    std::string out;
    for (int32_t id = first(parent); id != 0 && depth < 10; id = next(id)) {
      char type[80] = "", name[80] = "";
      VX_Get_Value_To_String(id, 0x00041430, sizeof type, type);
      VX_Get_Value_To_String(id, 0x00100010, sizeof name, name);
      out += (out.empty() ? "" : ",") + std::string(type) + (*name != '\0' ? std::string(" ") + name : "");
      const std::string below = tree(id, depth + 1);
      if (!below.empty()) out += "(" + below + ")";
    }
    return out;
  }
  // What a reader of the whole file sees, which follows every offset. (0004,1202) is the last of the root.
  std::string whole() const {
    const Object id(read(bytes()));
    int32_t last = 0;
    const std::string text = whole_tree(id, &last);
    EXPECT_EQ(streams::text(id, 0x00041202), std::to_string(last));
    return text;
  }
  // A record more, and the update.
  static VX_STATUS update_with(int32_t id, const char* name) {
    add(id, "PATIENT", name);
    return VX_DDH_Update(id);
  }
  std::string bytes() const { return folder().read("DICOMDIR"); }
  bool journal_left() const { return std::filesystem::exists(path_ + ".vxj"); }
  std::string path_;
};

constexpr char kTree[] = "PATIENT A(STUDY(SERIES(IMAGE I1,IMAGE I2))),PATIENT B,PATIENT C";

TEST_F(Handler, CreatedFilledAndReadByBoth) {
  for (const bool undefined : {false, true}) {
    set_bool(VX_CFG_EXPORT_UNDEFINED_LENGTH_SQ_IN_DICOMDIR, undefined);
    build();
    EXPECT_EQ(whole(), kTree);
    const Object id(open());
    EXPECT_EQ(tree(id), kTree);
    EXPECT_GE(text(id, 0x00020003).size(), 60U);
    // A second update moves the end; only one delimiter stands there.
    add(first(first(id)), "SERIES");
    EXPECT_EQ(update_with(id, "D"), VX_NORMAL_COMPLETION);
    const char* expected = "PATIENT A(STUDY(SERIES(IMAGE I1,IMAGE I2),SERIES)),PATIENT B,PATIENT C,PATIENT D";
    EXPECT_EQ(tree(id), expected);
    EXPECT_EQ(whole(), expected);
    const std::string delimiter("\xFE\xFF\xDD\xE0\0\0\0\0", 8);
    EXPECT_EQ(bytes().find(delimiter), undefined ? bytes().size() - 8 : std::string::npos);
    const std::string before = bytes();
    EXPECT_EQ(VX_DDH_Update(id), VX_NORMAL_COMPLETION);
    EXPECT_EQ(bytes(), before) << "nothing to do";
    EXPECT_FALSE(journal_left());
    // Whole files are read and written by others.
    EXPECT_EQ(read_file(app_, id, before), VX_INVALID_FILE_ID);
    EXPECT_EQ(write_file(id, 0, VX_INVALID_FILE_ID), "");
    std::filesystem::remove(path_);
  }
}

TEST_F(Handler, TypesAndPlaces) {
  int32_t id = create();
  int32_t record = 0;
  EXPECT_EQ(first(id), 0);
  EXPECT_EQ(VX_DDH_Add_Record(id, "SERIES", &record), VX_INVALID_LOWER_DIR_RECORD);
  const int32_t other = add(add(id, "PRIVATE"), "ANYTHING");
  EXPECT_EQ(VX_DDH_Add_Record(other, "PRIVATE", &record), VX_INVALID_DIR_RECORD_TYPE);
  const int32_t series = add(add(add(id, nullptr), nullptr), nullptr);
  EXPECT_EQ(VX_DDH_Add_Record(series, "1.2.3.4", &record), VX_INVALID_LOWER_DIR_RECORD);
  const int32_t overlay = add(series, "OVERLAY");
  EXPECT_EQ(VX_DDH_Add_Record(overlay, "PRIVATE", &record), VX_INVALID_DIR_RECORD_TYPE);
  VX_DIR_RECORD_TYPE type = VX_DIR_PATIENT;
  for (const auto& [made, expected] : {std::pair{overlay, VX_DIR_UNKNOWN},
                                       {add(series, "1.2.840.10008.5.1.4.1.1.88.59"), VX_DIR_KEY_OBJECT_DOC},
                                       // Not in the table, but with pixels.
                                       {add(series, "1.2.840.10008.5.1.4.1.1.77.1.6"), VX_DIR_IMAGE}}) {
    EXPECT_EQ(VX_DDH_Get_Record_Type(made, &type), VX_NORMAL_COMPLETION);
    EXPECT_EQ(type, expected);
  }
  EXPECT_EQ(VX_DDH_Get_Parent_Record(overlay, &record), VX_NORMAL_COMPLETION);
  EXPECT_EQ(record, series);
  EXPECT_EQ(VX_DDH_Get_Record_Type(id, &type), VX_INVALID_RECORD_ID);
  EXPECT_EQ(VX_DDH_Update(overlay), VX_INVALID_DICOMDIR_ID);
  VX_Free_File(&id);
  EXPECT_EQ(VX_DDH_Get_Next_Record(series, &record), VX_INVALID_RECORD_ID);
}

TEST_F(Handler, DeletingAndReleasing) {
  build();
  struct Case {
    const char* what;
    std::function<void(int32_t)> work;
    const char* tree;
  };
  const Case cases[] = {
      {"all",
       [](int32_t id) {
         while (int32_t record = first(id)) VX_DDH_Delete_Record(record);
       },
       ""},
      {"last two and one added",
       [](int32_t id) {
         const int32_t b = next(first(id));
         VX_DDH_Delete_Record(next(b));
         VX_DDH_Delete_Record(b);
         add(id, "PATIENT", "D");
       },
       "PATIENT A(STUDY(SERIES(IMAGE I1,IMAGE I2))),PATIENT D"},
      {"all and one added",
       [](int32_t id) {
         while (int32_t record = first(id)) VX_DDH_Delete_Record(record);
         add(add(id, "PATIENT", "D"), "STUDY");
       },
       "PATIENT D(STUDY)"},
      {"image behind released ones",
       [](int32_t id) {
         const int32_t b = next(first(id));
         const int32_t c = next(b);
         VX_DDH_Release_Record(first(id));
         VX_DDH_Release_Record(b);
         VX_DDH_Delete_Record(c);
       },
       "PATIENT A(STUDY(SERIES(IMAGE I1,IMAGE I2))),PATIENT B"},
      {"added behind what was never reached",
       [](int32_t id) {
         add(first(id), "STUDY");
         VX_DDH_Release_Record(first(id));
       },
       "PATIENT A(STUDY(SERIES(IMAGE I1,IMAGE I2)),STUDY),PATIENT B,PATIENT C"},
      {"released and reached again",
       [](int32_t id) {
         for (int round = 0; round < 2; ++round) {
           for (int32_t record = first(id); record != 0;) {
             const int32_t following = next(record);
             VX_DDH_Release_Record(record);
             record = following;
           }
         }
         EXPECT_EQ(tree(id), kTree);
       },
       kTree},
  };
  const std::string good = bytes();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    folder().write("DICOMDIR", good);
    const Object id(open());
    c.work(id);
    EXPECT_EQ(bytes(), good) << "nothing is written before the update";
    EXPECT_EQ(tree(id), c.tree);
    EXPECT_EQ(VX_DDH_Update(id), VX_NORMAL_COMPLETION);
    EXPECT_EQ(tree(id), c.tree);
    EXPECT_EQ(whole(), c.tree);
    EXPECT_EQ(update_with(id, "Z"), VX_NORMAL_COMPLETION);
    EXPECT_EQ(whole(), std::string(c.tree) + (*c.tree != '\0' ? "," : "") + "PATIENT Z");
  }
}

// Whether a process that does this is killed.
bool dies(const std::function<void()>& work) {
  const pid_t child = ::fork();
  if (child == 0) {
    work();
    ::_exit(0);
  }
  int state = 0;
  return ::waitpid(child, &state, 0) == child && WIFSIGNALED(state);
}

// Every write, cut, sync and removal fails once, or all from there on do, or the process is killed within it;
// and whoever mends the file may be killed as well.
TEST_F(Handler, AnUpdateIsWholeOrNotDone) {
  using vx::FileFault;
  const auto work = [](int32_t id) {
    VX_DDH_Delete_Record(next(first(id)));
    add(add(id, "PATIENT", "D"), "STUDY");
    add(first(first(id)), "SERIES");
  };
  const char* changed = "PATIENT A(STUDY(SERIES(IMAGE I1,IMAGE I2),SERIES)),PATIENT C,PATIENT D(STUDY)";
  for (const bool undefined : {false, true}) {
    set_bool(VX_CFG_EXPORT_UNDEFINED_LENGTH_SQ_IN_DICOMDIR, undefined);
    std::filesystem::remove(path_);
    build();
    const std::string good = bytes();
    for (const FileFault fault : {FileFault::Once, FileFault::ForGood, FileFault::Killed}) {
      int n = 0;
      for (bool done = false; !done;) {
        ++n;
        SCOPED_TRACE(testing::Message() << undefined << " " << n << " " << static_cast<int>(fault));
        ASSERT_LT(n, 100);
        folder().write("DICOMDIR", good);
        std::filesystem::remove(path_ + ".vxj");
        int32_t id = -1;
        VX_STATUS status = VX_INVALID_FILE;
        const auto update = [&] {
          id = open();
          work(id);
          vx::fail_file_change_after(n, fault);
          status = VX_DDH_Update(id);
          vx::fail_file_change_after(0, fault);
        };
        if (fault == FileFault::Killed) {
          done = !dies(update);
        } else {
          update();
          done = status == VX_NORMAL_COMPLETION;
          EXPECT_TRUE(done || status == VX_INVALID_FILE);
        }
        if (!done && fault == FileFault::Once) {
          // The same changes go through the next time.
          EXPECT_EQ(bytes(), good);
          EXPECT_EQ(VX_DDH_Update(id), VX_NORMAL_COMPLETION);
        }
        if (id >= 0) VX_Free_File(&id);
        if (done || fault == FileFault::Once) {
          EXPECT_EQ(whole(), changed);
          continue;
        }
        dies([&] {
          vx::fail_file_change_after(1 + n % 4, FileFault::Killed);
          VX_DDH_Open(path_.c_str(), &id);
        });
        EXPECT_EQ(tree(Object(open())), kTree);
        EXPECT_EQ(bytes(), good);
        EXPECT_FALSE(journal_left());
      }
      EXPECT_GT(n, 6);
    }
  }
}

// The journal does not fit, the records do not, or only part of them does.
TEST_F(Handler, AFullDiskChangesNothing) {
  build();
  const std::string good = bytes();
  rlimit old{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &old), 0);
  ::signal(SIGXFSZ, SIG_IGN);
  for (const std::size_t room : {std::size_t{8}, good.size(), good.size() + 40}) {
    folder().write("DICOMDIR", good);
    const Object id(open());
    add(id, "PATIENT", "D");
    const rlimit tight{room, old.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &tight);
    const VX_STATUS status = VX_DDH_Update(id);
    ::setrlimit(RLIMIT_FSIZE, &old);
    EXPECT_EQ(status, VX_INVALID_FILE) << room;
    EXPECT_EQ(bytes(), good) << room;
    EXPECT_FALSE(journal_left()) << room;
    EXPECT_EQ(VX_DDH_Update(id), VX_NORMAL_COMPLETION);
    EXPECT_EQ(whole(), std::string(kTree) + ",PATIENT D");
  }
  ::signal(SIGXFSZ, SIG_DFL);
}

// A journal that is cut or lies is none; a whole one is carried out.
TEST_F(Handler, JournalsOfOthers) {
  build();
  const std::string good = bytes();
  const auto number = [](uint64_t value) {
    return Writer().u32(static_cast<uint32_t>(value)).u32(static_cast<uint32_t>(value >> 32)).str();
  };
  const auto journal = [&](uint64_t size, uint64_t offset, const std::string& old) {
    std::string text = "VXJ1" + number(size) + number(offset) + number(old.size()) + old;
    const auto sum =
        static_cast<uint32_t>(::crc32_z(0, reinterpret_cast<const Bytef*>(text.data()), text.size()));
    return text + number(sum).substr(0, 4);
  };
  const uint64_t size = good.size();
  const std::string proper = journal(size, 0, "old!");
  std::vector<std::string> none = {"",
                                   "VXJ1",
                                   journal(size, size - 3, "old!"),
                                   journal(size, ~uint64_t{0}, "old!"),
                                   journal(uint64_t{1} << 40, 0, "old!"),
                                   journal(uint64_t{1} << 40, (uint64_t{1} << 40) - 4, "old!"),
                                   proper + "x"};
  for (std::size_t length = 5; length < proper.size(); length += 3) none.push_back(proper.substr(0, length));
  for (const std::string& text : none) {
    folder().write("DICOMDIR.vxj", text);
    const Object id(open());
    EXPECT_EQ(bytes(), good);
    EXPECT_FALSE(journal_left());
  }
  folder().write("DICOMDIR", good + "half a record");
  folder().write("DICOMDIR.vxj", proper);
  const Object id(open());
  EXPECT_EQ(bytes(), "old!" + good.substr(4));
  EXPECT_FALSE(journal_left());
}

// What has been changed, with names, in memory alone.
struct Expected {
  std::string text;
  std::vector<Expected> below;
  std::string tree() const {
    std::string out;
    for (const Expected& each : below) {
      const std::string lower = each.tree();
      out += (out.empty() ? "" : ",") + each.text + (lower.empty() ? "" : "(" + lower + ")");
    }
    return out;
  }
};

// Each update links no more than its changes need: a reader of the whole file must see the same all the same.
TEST_F(Handler, PartlyLinkedUpdatesAgainstAFullReread) {
  constexpr const char* kTypes[] = {"PATIENT", "STUDY", "SERIES", "IMAGE"};
  std::minstd_rand random(7);
  const auto pick = [&random](std::size_t count) { return static_cast<std::size_t>(random()) % count; };
  int number = 0;
  for (int round = 0; round < 24; ++round) {
    set_bool(VX_CFG_EXPORT_UNDEFINED_LENGTH_SQ_IN_DICOMDIR, round % 2 != 0);
    std::filesystem::remove(path_);
    (void)Object(create());
    Expected root;
    for (int session = 0; session < 4; ++session) {
      const Object id(open());
      for (int change = 0; change < 12; ++change) {
        // A way down that reads no further than it must.
        std::vector<Expected*> path = {&root};
        std::vector<int32_t> ids = {id};
        std::size_t at = 0;
        while (!path.back()->below.empty() && path.size() <= std::size(kTypes) && pick(4) != 0) {
          at = pick(path.back()->below.size());
          path.push_back(&path.back()->below[at]);
          int32_t record = first(ids.back());
          for (std::size_t i = 0; i < at; ++i) record = next(record);
          ids.push_back(record);
        }
        const std::size_t action = pick(8);
        if (path.size() > 1 && action < 2) {
          EXPECT_EQ(VX_DDH_Delete_Record(ids.back()), VX_NORMAL_COMPLETION);
          auto& level = path[path.size() - 2]->below;
          level.erase(level.begin() + static_cast<std::ptrdiff_t>(at));
        } else if (path.size() > 1 && action < 4) {
          VX_DDH_Release_Record(ids.back());
        } else if (path.size() <= std::size(kTypes)) {
          const std::string name = std::to_string(++number);
          add(ids.back(), nullptr, name.c_str());
          path.back()->below.push_back({std::string(kTypes[path.size() - 1]) + " " + name, {}});
        }
        EXPECT_TRUE(pick(6) != 0 || VX_DDH_Update(id) == VX_NORMAL_COMPLETION);
      }
      ASSERT_EQ(VX_DDH_Update(id), VX_NORMAL_COMPLETION);
      ASSERT_EQ(whole(), root.tree()) << round << " " << session;
      ASSERT_EQ(tree(id), root.tree()) << round << " " << session;
    }
  }
}

TEST_F(Handler, WhatStandsInTheWayOfAnUpdate) {
  build();
  const std::string good = bytes();
  // Padding goes, anything else stays and refuses.
  const std::string padding = elements({{0xFFFCFFFC, "OB", std::string(20, '\0')}});
  folder().write("DICOMDIR", good + padding);
  EXPECT_EQ(update_with(Object(open()), "D"), VX_NORMAL_COMPLETION);
  EXPECT_EQ(bytes().find(padding.substr(0, 12)), std::string::npos);
  EXPECT_EQ(whole(), std::string(kTree) + ",PATIENT D");
  folder().write("DICOMDIR", good + elements({{0x00080005, "CS", "ISO_IR 100"}}));
  EXPECT_EQ(update_with(Object(open()), "D"), VX_INVALID_FILE);
  // Somebody else has changed it, or is doing so.
  folder().write("DICOMDIR", good);
  const Object other(open());
  EXPECT_EQ(update_with(Object(open()), "E"), VX_NORMAL_COMPLETION);
  const std::string after = bytes();
  EXPECT_EQ(update_with(other, "F"), VX_INVALID_FILE);
  EXPECT_EQ(bytes(), after);
  // Another file of the same bytes has taken the place, or the length has changed and the size has not.
  const Object orphan(open());
  std::filesystem::copy_file(path_, path_ + ".copy");
  std::filesystem::rename(path_ + ".copy", path_);
  EXPECT_EQ(update_with(orphan, "H"), VX_INVALID_FILE);
  EXPECT_EQ(bytes(), after);
  const Object one(open()), second(open());
  std::string longer = after;
  ++longer[longer.find(std::string("\4\0\x20\x12SQ", 6)) + 8];
  std::ofstream(path_, std::ios::in | std::ios::binary) << longer;
  EXPECT_EQ(update_with(second, "H"), VX_INVALID_FILE);
  EXPECT_EQ(bytes(), longer);
  std::ofstream(path_, std::ios::in | std::ios::binary) << after;
  vx::FileOp* locked = vx::open_file_op(path_.c_str());
  ASSERT_EQ(vx::make_writable(*locked), VX_NORMAL_COMPLETION);
  ASSERT_TRUE(vx::lock_file(*locked, true));
  EXPECT_EQ(update_with(one, "G"), VX_CALLBACK_CANNOT_COMPLY);
  vx::free_file_op(locked);
  EXPECT_EQ(VX_DDH_Update(one), VX_NORMAL_COMPLETION);
}

// Files that lack something: what can be done without is, the rest stops an update before it changes
// anything.
TEST_F(Handler, FilesThatLackElements) {
  struct Case {
    const char* what;
    uint32_t tag;   // takes another number, so that nothing moves
    bool last;      // the last of its kind, not the first
    int32_t depth;  // of the parent that a record is added to
    VX_STATUS open, update;
  };
  constexpr VX_STATUS kOk = VX_NORMAL_COMPLETION;
  const Case cases[] = {
      {"last of the root", 0x00041202, false, 0, kOk, kOk},
      {"first of the root", 0x00041200, false, 0, VX_INVALID_FILE, kOk},
      {"next of the last patient", 0x00041400, true, 0, kOk, VX_INVALID_FILE},
      {"lower of the last patient", 0x00041420, true, 1, kOk, VX_INVALID_FILE},
      {"in use", 0x00041410, true, 0, kOk, kOk},
  };
  build();
  const std::string good = bytes();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::string bad = good;
    const std::string tag = Writer().tag(c.tag);
    ++bad[(c.last ? bad.rfind(tag) : bad.find(tag)) + 2];
    folder().write("DICOMDIR", bad);
    const Object id(open(c.open));
    if (id < 0) continue;
    int32_t parent = id;
    for (int32_t record = c.depth > 0 ? first(id) : 0; record != 0; record = next(record)) parent = record;
    add(parent, nullptr, "D");
    const std::string expected = tree(id);
    EXPECT_EQ(VX_DDH_Update(id), c.update);
    EXPECT_EQ(bytes() == bad, c.update != kOk);
    EXPECT_FALSE(journal_left());
    EXPECT_EQ(tree(id), expected);
    EXPECT_EQ(tree(Object(open())), c.update == kOk ? expected : kTree);
  }
  // Without its delimiter a sequence ends with the file.
  set_bool(VX_CFG_EXPORT_UNDEFINED_LENGTH_SQ_IN_DICOMDIR, true);
  std::filesystem::remove(path_);
  build();
  folder().write("DICOMDIR", bytes().substr(0, bytes().size() - 8));
  EXPECT_EQ(update_with(Object(open()), "D"), kOk);
  EXPECT_EQ(whole(), std::string(kTree) + ",PATIENT D");
  EXPECT_TRUE(has_log("No Sequence Delimiter Element found in DICOMDIR"));
  // A last record behind the end of the file leads nowhere: nothing is reserved up to there.
  std::string astray = bytes();
  astray.replace(astray.find(std::string("\4\0\2\x12", 4)) + 8, 4, "\xF0\xFF\xFF\xE8");
  folder().write("DICOMDIR", astray);
  EXPECT_EQ(update_with(Object(open()), "E"), VX_INVALID_DIRECTORY_RECORD_OFFSET);
  EXPECT_EQ(bytes(), astray);
}

// Offsets have 32 bits: a directory that would grow beyond them stays as it is.
TEST_F(Handler, NoGrowthBeyondFourGibibytes) {
  build();
  std::string head = bytes();
  constexpr uint64_t kSize = 0xFFFFFFD0U;
  const std::size_t length = head.find(std::string("\4\0\x20\x12SQ", 6)) + 8;
  vx::store32(head.data() + length, static_cast<uint32_t>(kSize - length - 4), false);
  folder().write("DICOMDIR", head);
  std::filesystem::resize_file(path_, kSize);
  const Object id(open());
  EXPECT_EQ(update_with(id, "D"), VX_VALUE_TOO_LARGE);
  EXPECT_EQ(std::filesystem::file_size(path_), kSize);
  EXPECT_FALSE(journal_left());
  // What needs no room can be done.
  VX_DDH_Delete_Record(next(next(next(first(id)))));
  VX_DDH_Delete_Record(first(id));
  EXPECT_EQ(VX_DDH_Update(id), VX_NORMAL_COMPLETION);
  EXPECT_EQ(tree(id), "PATIENT B,PATIENT C");
  EXPECT_EQ(std::filesystem::file_size(path_), kSize);
}

int32_t count_record(int32_t, void* user) {
  ++*static_cast<int*>(user);
  return 0;
}

TEST_F(Handler, Traversing) {
  build();
  int32_t id = open();
  struct State {
    std::string seen;
    std::string script;  // one answer a record; "r" releases the parent's parent, "x" the record itself
  };
  const auto visit = [](int32_t record, void* user) {
    auto& state = *static_cast<State*>(user);
    state.seen += text(record, 0x00041430)[0];
    const char answer = state.script.empty() ? '0' : state.script[0];
    if (!state.script.empty()) state.script.erase(0, 1);
    int32_t parent = 0;
    if (answer == 'x') VX_DDH_Release_Record(record);
    if (answer == 'r' && VX_DDH_Get_Parent_Record(record, &parent) == VX_NORMAL_COMPLETION) {
      VX_DDH_Get_Parent_Record(parent, &parent);
      VX_DDH_Release_Record(parent);
    }
    return answer >= '0' && answer <= '9' ? answer - '0' : 0;
  };
  const struct {
    const char* script;
    const char* seen;
    VX_STATUS status = VX_NORMAL_COMPLETION;
  } rows[] = {{"", "PSSIIPP"},
              {"2", "PPP"},
              {"0001", "PSSIPP"},  // out of the images
              {"1", "P"},
              {"003", "PSS"},
              {"7", "P", VX_CALLBACK_CANNOT_COMPLY},
              {"xxxxxxx", "PSSIIPP"},
              {"000r", "PSSIPP"},  // the study is let go from below: on behind it
              {"", "PSSIIPP"}};
  for (const auto& row : rows) {
    State state{"", row.script};
    EXPECT_EQ(VX_DDH_Traverse_Records(id, &state, visit), row.status) << row.script;
    EXPECT_EQ(state.seen, row.seen) << row.script;
  }
  const auto update = [](int32_t, void* user) {
    EXPECT_EQ(VX_DDH_Update(*static_cast<int32_t*>(user)), VX_STATE_VIOLATION);
    return 3;
  };
  EXPECT_EQ(VX_DDH_Traverse_Records(id, &id, update), VX_NORMAL_COMPLETION);
  VX_Free_File(&id);
}

TEST_F(Handler, OffsetsThatLeadAstray) {
  build();
  // In the file: images, series, study, A, B, C.
  const Forged good(bytes());
  ASSERT_EQ(good.size(), 7U);
  const struct {
    const char* what;
    std::size_t record;
    uint32_t tag, value;
  } cases[] = {
      {"loop of one", 6, 0x00041400, good.offset(6)},  {"loop of two", 6, 0x00041400, good.offset(5)},
      {"below itself", 4, 0x00041420, good.offset(4)}, {"up to the patient", 1, 0x00041420, good.offset(4)},
      {"odd", 6, 0x00041400, good.offset(5) + 1},      {"into the head", 6, 0x00041400, 132},
      {"between", 6, 0x00041400, good.offset(5) + 8},  {"behind the end", 6, 0x00041420, 0xFFFFFFFE},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Forged bad = good;
    bad.set(c.record, c.tag, c.value);
    folder().write("DICOMDIR", bad.bytes());
    const Object id(open());
    int count = 0;
    EXPECT_EQ(VX_DDH_Traverse_Records(id, &count, &count_record), VX_INVALID_DIRECTORY_RECORD_OFFSET);
    EXPECT_LT(count, 20);
    int32_t record = 0;
    EXPECT_TRUE(c.tag != 0x00041400 ||
                VX_DDH_Add_Record(id, "PATIENT", &record) == VX_INVALID_DIRECTORY_RECORD_OFFSET);
    EXPECT_EQ(VX_DDH_Update(id), VX_NORMAL_COMPLETION);
  }
  // Many ways to the same records: the second of a level takes what the first one leads to.
  std::filesystem::remove(path_);
  {
    const Object id(create());
    int32_t parent = id;
    for (int level = 0; level < 30; ++level) {
      const int32_t left = add(parent, "PRIVATE");
      add(parent, "PRIVATE");
      parent = left;
    }
    EXPECT_EQ(VX_DDH_Update(id), VX_NORMAL_COMPLETION);
  }
  Forged many(bytes());
  for (std::size_t record = 0; record < many.size(); ++record) {
    const uint32_t sibling = many.get(record, 0x00041400);
    if (sibling != 0) many.set(many.record_at(sibling), 0x00041420, many.get(record, 0x00041420));
  }
  folder().write("DICOMDIR", many.bytes());
  int count = 0;
  EXPECT_EQ(VX_DDH_Traverse_Records(Object(open()), &count, &count_record),
            VX_INVALID_DIRECTORY_RECORD_OFFSET);
  EXPECT_LT(count, 1000);
}

TEST_F(Handler, AThousandLevels) {
  {
    const Object id(create());
    int32_t parent = id;
    for (int level = 0; level < 1000; ++level) parent = add(parent, "PRIVATE");
    EXPECT_EQ(VX_DDH_Update(id), VX_NORMAL_COMPLETION);
  }
  int count = 0;
  EXPECT_EQ(VX_DDH_Traverse_Records(Object(open()), &count, &count_record), VX_NORMAL_COMPLETION);
  EXPECT_EQ(count, 1000);
}

TEST_F(Handler, FilesThatAreNone) {
  int32_t id = -1;
  EXPECT_EQ(VX_DDH_Open(folder().path("nothing").c_str(), &id), VX_CALLBACK_CANNOT_COMPLY);
  EXPECT_EQ(VX_DDH_Open(folder().path().c_str(), &id), VX_CALLBACK_CANNOT_COMPLY);
  build();
  const std::string good = bytes();
  // Cut anywhere it opens to a status, never to more than there is.
  for (std::size_t length = 0; length < good.size(); length += 7) {
    folder().write("DICOMDIR", good.substr(0, length));
    id = -1;
    if (VX_DDH_Open(path_.c_str(), &id) != VX_NORMAL_COMPLETION) {
      EXPECT_EQ(id, -1);
      continue;
    }
    int count = 0;
    VX_DDH_Traverse_Records(id, &count, &count_record);
    EXPECT_LE(count, 7);
    int32_t record = 0;
    if (VX_DDH_Add_Record(id, "PATIENT", &record) == VX_NORMAL_COMPLETION) {
      EXPECT_NE(VX_DDH_Update(id), VX_NORMAL_COMPLETION) << length;
    }
    VX_Free_File(&id);
  }
  EXPECT_EQ(VX_DDH_Create(folder().path("no/folder").c_str(), nullptr, 0, &id), VX_CALLBACK_CANNOT_COMPLY);
  EXPECT_EQ(VX_DDH_Create(path_.c_str(), nullptr, 424242, &id), VX_INVALID_MESSAGE_ID);
  EXPECT_EQ(bytes(), good.substr(0, bytes().size())) << "the old file stays";
}

TEST_F(Handler, CopyingValues) {
  const Object file(new_file), message, target(new_file);
  for (const auto& [tag, value] : {std::pair{0x00020010U, "1.2.840.10008.1.2"},
                                   {0x00020003U, "1.2.3"},
                                   {0x00041130U, "OLD"},
                                   {0x00041141U, "README"},
                                   {0x00100010U, "Doe"},
                                   {0x00100020U, "7"}}) {
    VX_Set_Value_From_String(file, tag, value);
  }
  const uint32_t list[] = {0x00100000, 0}, one[] = {0x00100020, 0};
  EXPECT_EQ(VX_DDH_Copy_Values(file, message, list), VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(message, 0x00100010), "Doe");
  EXPECT_FALSE(has(message, 0x00020003));
  EXPECT_EQ(VX_DDH_Copy_Values(message, target, one), VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(target, 0x00100020), "7");
  EXPECT_FALSE(has(target, 0x00100010));
  EXPECT_EQ(VX_DDH_Copy_Values(file, target, nullptr), VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(target, 0x00100010), "Doe");
  EXPECT_EQ(text(target, 0x00020010), "1.2.840.10008.1.2");
  EXPECT_EQ(VX_DDH_Copy_Values(file, 4711, nullptr), VX_INVALID_MESSAGE_ID);
  // A new directory takes over the head of another.
  int32_t id = -1;
  ASSERT_EQ(VX_DDH_Create(path_.c_str(), "NEW", file, &id), VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(id, 0x00041141), "README");
  EXPECT_EQ(text(id, 0x00041130), "NEW");
  EXPECT_EQ(text(id, 0x00020003), "1.2.3");
  EXPECT_EQ(text(id, 0x00020010), "1.2.840.10008.1.2.1");
  EXPECT_FALSE(has(id, 0x00100010));
}

}  // namespace
