// One life of the library after another, each ended with everything open.
#include <filesystem>
#include <fstream>

#include "net/peers.h"

namespace vx::test {
namespace {

int open_handles() {
  int count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
  return count;
}

class LivesTest : public NetTest {
 protected:
  static constexpr char kImage[] = VEXAL_SOURCE_DIR "/examples/data/slice.dcm";

  void open_files() {
    std::ifstream stream(kImage, std::ios::binary);
    Bytes image(std::istreambuf_iterator<char>(stream), {});
    int32_t file = -1;
    ASSERT_OK(VX_Create_Empty_File(&file, kImage));
    ASSERT_OK(VX_Open_File(app_, file, &image, give_whole));
    int32_t part = -1;  // read to a tag in the middle
    ASSERT_OK(VX_Create_Empty_File(&part, kImage));
    uint32_t offset = 0;
    ASSERT_OK(VX_Open_File_Upto_Tag(app_, part, &image, 0x00280000, &offset, give_whole));
    int32_t copy = -1;  // with its large values on files of their own
    set_text(VX_CFG_LARGE_DATA_STORE, "FILE");
    set_text(VX_CFG_TEMP_FILE_DIRECTORY, folder().path());
    ASSERT_OK(VX_Duplicate_Message(file, &copy, EXPLICIT_LITTLE_ENDIAN, nullptr, nullptr));
  }
  void open_items_and_directories() {
    int32_t message = -1;
    int32_t item = -1;
    ASSERT_OK(VX_Open_Message(&message, "STANDARD_CT", C_STORE_RQ));
    ASSERT_OK(VX_Open_Empty_Item(&item));
    ASSERT_OK(VX_Set_Value_From_Int(message, 0x00081140, item));
    ValErrObj* finding = nullptr;
    VX_Validate_Message(message, &finding, VX_All_Findings);
    int32_t directory = -1;
    int32_t record = -1;
    const std::string path = folder().path("DICOMDIR");
    if (!std::filesystem::exists(path)) {
      ASSERT_OK(VX_DDH_Create(path.c_str(), "SET", 0, &directory));
      ASSERT_OK(VX_DDH_Add_Record(directory, "PATIENT", &record));
    } else {
      ASSERT_OK(VX_DDH_Open(path.c_str(), &directory));
    }
  }
  // A message that has come in half, from either side of an association; another that was not answered.
  void open_associations() {
    make_list("Life", {{"STANDARD_CT", {EXPLICIT_LITTLE_ENDIAN}}});
    pair_ = connect("Life");
    ASSERT_GE(pair_.requester, 0);
    ASSERT_GE(pair_.acceptor, 0);
    left_.push_back(new_message("STANDARD_CT", C_STORE_RQ,
                                {{0x00001000, "1.2.3.4"}, {0x00080016, kCt}, {0x00100010, "Doe^Jane"}}));
    ASSERT_OK(VX_Send_Request_Message(pair_.requester, left_.back()));
    Read half = read(pair_.acceptor, 10, 0x00100000);
    ASSERT_OK(half.status);
    left_.push_back(std::move(half.id));
    set_int(VX_CFG_ARTIM_TIMEOUT, 1);
    int32_t refused = -1;  // a port that listens, and an association in the middle of its negotiation
    EXPECT_EQ(VX_Wait_For_Association_On_Port("Life", 0, app_, free_port(), &refused), VX_TIMEOUT);
    raw_ = RawPeer::connect(port_);
    raw_.send(kReleaseRequest);
    VX_Wait_For_Association_On_Port("Life", 5, app_, port_, &refused);
  }
  Pair pair_;
  RawPeer raw_;
  std::vector<Message> left_;  // that nobody frees
};

TEST_F(LivesTest, EverythingIsOpenAtTheEndOfEach) {
  const int handles = open_handles();
  for (int life = 0; life < 6; ++life) {
    set_text(VX_CFG_CAPTURE_FILE, folder().path("life.cap"));
    set_bool(VX_CFG_NETWORK_CAPTURE, true);
    open_associations();
    open_files();
    open_items_and_directories();
    if (HasFatalFailure()) return;
    const int32_t requester = pair_.requester;
    raw_.close();
    if (life % 2 == 0) {
      ASSERT_OK(VX_Library_Reset());
      int32_t gone = requester;
      EXPECT_EQ(VX_Abort_Association(&gone), VX_INVALID_ASSOCIATION_ID);
      ASSERT_OK(VX_Register_Application(&app_, "US"));
      open_files();
    }
    ASSERT_OK(VX_Library_Release());
    EXPECT_LE(open_handles(), handles) << life;
    SetUp();
    if (HasFatalFailure()) return;
    int32_t gone = requester;
    EXPECT_EQ(VX_Abort_Association(&gone), VX_INVALID_ASSOCIATION_ID) << life;
    int32_t message = 100;
    EXPECT_EQ(VX_Free_Message(&message), VX_INVALID_MESSAGE_ID) << life;
  }
}

}  // namespace
}  // namespace vx::test
