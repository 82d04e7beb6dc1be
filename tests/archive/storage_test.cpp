// Objects that arrive become files: whole, under their names, with their mode; or not at all.
#include "server/storage.h"

#include <sys/stat.h>

#include <filesystem>
#include <numeric>
#include <regex>
#include <thread>
#include <utility>

#include "../net/peers.h"
#include "base/hex.h"
#include "base/tags.h"
#include "base/values.h"
#include "holdings/folder_store.h"

namespace vexal::test {
namespace {

namespace fs = std::filesystem;
using vx::test::Bytes;
using vx::test::element;

constexpr char kCt[] = "1.2.840.10008.5.1.4.1.1.2";

// Knows one object, may refuse another, and may have taken one of another server by then.
struct OneIndex : ObjectIndex {
  std::string key;
  std::string refusal;
  std::string rival;
  std::span<const uint32_t> wanted() const override { return kTreeTags; }
  std::string key_of(const std::string&, std::string& found) override { return found = key, ""; }
  Entered enter(const StoredObject& stored, const HeadScan&, const std::string& expected,
                std::string& error) override {
    error = refusal;
    if (!error.empty()) return Entered::Failed;
    if (!rival.empty()) key = std::exchange(rival, "");
    if (expected != key) return Entered::Conflict;
    key = stored.key;
    return Entered::Done;
  }
  std::string drop(const std::string&, const std::string&) override { return ""; }
};

class StorageTest : public vx::test::NetTest {
 protected:
  // One request over a connection; without `ends`, the peer goes away in the middle of the data set. The
  // status to answer with, and the files that are there then.
  std::string store(const StorageOptions& options, const Bytes& data, bool ends) {
    std::thread peer([&] {
      auto raw = vx::test::RawPeer::connect(port_);
      raw.send(vx::test::request_for(vx::test::context(1, kCt, {vx::test::kImplicit})));
      raw.receive();
      raw.send(vx::test::data_pdu(1, vx::test::kCommand | vx::test::kLast, vx::test::store_command(kCt)) +
               vx::test::data_pdu(1, ends ? vx::test::kLast : vx::test::kData, data));
      if (ends) raw.receive();
    });
    int32_t association = -1;
    EXPECT_EQ(VX_Wait_For_Association_On_Port("objects", 20, app_, port_, &association),
              VX_NORMAL_COMPLETION);
    EXPECT_EQ(VX_Accept_Association(association), VX_NORMAL_COMPLETION);
    StoredObject stored;
    int32_t command = -1;
    const char* service = nullptr;
    uint16_t field = 0;
    EXPECT_EQ(VX_Read_Message_To_Tag(association, 10, tags::kBehindCommand, &command, &service, &field),
              VX_NORMAL_COMPLETION);
    const int32_t answer = ObjectWriter(options, "RAW").take(association, command, stored);
    VX_Abort_Association(&association);
    peer.join();
    std::vector<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(options.folder)) {
      if (!entry.is_directory())
        names.push_back(" " + std::regex_replace(entry.path().lexically_relative(options.folder).string(),
                                                 std::regex("-[0-9a-f]{16}\\."), "-*."));
    }
    std::sort(names.begin(), names.end());
    return std::accumulate(names.begin(), names.end(),
                           answer < 0 ? "lost" : hex_of(static_cast<uint32_t>(answer), 4));
  }
};

TEST_F(StorageTest, WholeOrNotAtAll) {
  using Duplicates = StorageOptions::Duplicates;
  make_list("objects", {{"STANDARD_CT", {IMPLICIT_LITTLE_ENDIAN}}});
  const Bytes ct = element(0x00080016, kCt);
  const Bytes head = ct + element(0x00080018, "1.2.3.4");
  const Bytes odd = head + Bytes("\x10\0\x20\0\3\0\0\0ODD", 11);
  const Bytes first = head + element(0x0020000D, "9.1") + element(0x0020000E, "9.1.1");
  const Bytes second = head + element(0x0020000D, "9.2") + element(0x0020000E, "9.2.1");
  const Bytes linked = head + element(0x0020000D, "9.3");
  const std::string in = folder().path("in");
  fs::create_directory(in);
  fs::create_directory_symlink(folder().path(), in + "/9.3");
  OneIndex index;
  const std::string there = " 9.1/9.1.1/1.2.3.4-*.dcm 9.1/9.1.1/1.2.3.4.dcm";
  const std::string taken = " 9.2/9.2.1/1.2.3.4-*.dcm 9.2/9.2.1/1.2.3.4.dcm";
  const std::string no_study = " no-study/no-series/1.2.3.4.dcm";
  const struct {
    const char* what;
    Bytes data;
    std::string result;
    std::string options = "";
  } rows[] = {
      {"no room", head, "A700", "full"},  // before plenty is remembered
      {"half of one", "", "lost"},
      {"an object", head, "0000 1.2.3.4.dcm"},
      {"the same again", head, "0000 1.2.3.4.dcm"},
      {"other content", odd, "0111 1.2.3.4.dcm"},
      {"is kept out", odd, "B006 1.2.3.4.dcm", "keep"},
      {"replaces", odd, "0000 1.2.3.4.dcm", "replace"},
      {"another instance", ct + element(0x00080018, "1.2.3.5"), "A900 1.2.3.4.dcm"},
      {"another class", element(0x00080016, "1.2.3"), "A900 1.2.3.4.dcm"},
      {"no data set", Bytes("\x08\0\5\0\xFF\xFF\xFF\xFF", 8) + head, "C000 1.2.3.4.dcm"},
      {"cut in a head", head + Bytes("\x20\0", 2), "C000 1.2.3.4.dcm"},
      {"cut in a value", head + element(0x0020000D, "9.1").substr(0, 9), "C000 1.2.3.4.dcm"},
      {"too large", head, "A700 1.2.3.4.dcm", "large"},
      {"a link as folder", linked, "A700 1.2.3.4.dcm", "tree"},
      {"no study", head, "0000 1.2.3.4.dcm no-study/no-series/1.2.3.4.dcm", "tree"},
      {"the index refuses", first, "A700 1.2.3.4.dcm no-study/no-series/1.2.3.4.dcm", "tree index refuses"},
      {"the index takes", first, "0000 1.2.3.4.dcm 9.1/9.1.1/1.2.3.4.dcm no-study/no-series/1.2.3.4.dcm",
       "tree index"},
      {"known elsewhere", second, "0111 1.2.3.4.dcm 9.1/9.1.1/1.2.3.4.dcm no-study/no-series/1.2.3.4.dcm",
       "tree index known"},
      {"and replaced", second, "0000 1.2.3.4.dcm 9.2/9.2.1/1.2.3.4.dcm no-study/no-series/1.2.3.4.dcm",
       "tree index known replace"},
      {"under a name that is taken", second, "0000 1.2.3.4.dcm" + taken + no_study, "tree index"},
      {"a row whose object has gone", first, "0000 1.2.3.4.dcm 9.1/9.1.1/1.2.3.4-*.dcm" + taken + no_study,
       "tree index known"},
      {"and none", first, "0000 1.2.3.4.dcm" + there + taken + no_study, "tree index"},
      {"another was faster with the same", first, "0000 1.2.3.4.dcm" + there + taken + no_study,
       "tree index rival"},
      {"with other content", second, "0111 1.2.3.4.dcm" + there + taken + no_study, "tree index rival"},
      {"which is replaced", second,
       "0000 1.2.3.4.dcm 9.1/9.1.1/1.2.3.4-*.dcm 9.2/9.2.1/1.2.3.4-*.dcm" + taken + no_study,
       "tree index rival replace"},
  };
  testing::internal::CaptureStderr();
  for (const auto& row : rows) {
    const auto has = [&](const char* word) { return row.options.find(word) != std::string::npos; };
    StorageOptions options;
    options.folder = in;
    options.mode = 0604;
    ASSERT_EQ(options.journal.open(folder().path("journal"), 0600), "");
    options.duplicates = has("keep")      ? Duplicates::Keep
                         : has("replace") ? Duplicates::Replace
                                          : Duplicates::Refuse;
    options.most_bytes = has("large") ? 40 : 0;
    options.reserve = has("full") ? INT64_MAX : -1;
    options.tree = has("tree");
    options.index = has("index") ? &index : nullptr;
    index.refusal = has("refuses") ? "index: full" : "";
    FolderStore folder_store(in, options.mode, false);
    options.store = has("index") ? &folder_store : nullptr;
    index.key = has("known") ? "9.1/9.1.1/1.2.3.4.dcm" : "";
    index.rival = has("rival") ? "9.1/9.1.1/1.2.3.4.dcm" : "";
    EXPECT_EQ(store(options, row.data.empty() ? odd : row.data, !row.data.empty()), row.result) << row.what;
  }
  // Byte by byte behind its meta group: what is odd stays so.
  EXPECT_TRUE(folder().read("in/1.2.3.4.dcm").ends_with(odd));
  DicomFile file;
  file.open(in + "/1.2.3.4.dcm", {.last_tag = tags::kLastOfMeta});
  for (const auto& [tag, text] : {std::pair{tags::kMediaStorageSOPClassUID, kCt},
                                  {tags::kMediaStorageSOPInstanceUID, "1.2.3.4"},
                                  {tags::kSourceApplicationEntityTitle, "RAW"}})
    EXPECT_EQ(text_of(file.id(), tag), text);
  struct stat status {};
  ASSERT_EQ(::stat((in + "/1.2.3.4.dcm").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0604U);
  const std::string told = testing::internal::GetCapturedStderr() + folder().read("journal");
  for (const char* line : {"is larger than --max-size allows", "the disk is nearly full",
                           "9.3 is there and no folder", "replaces other content", "\tstored\t0000\t",
                           "\trepeated\t0000\t", "\tkept\tB006\t", "\tfailed\tFFFF\t"})
    EXPECT_NE(told.find(line), std::string::npos) << line << " in " << told;
}

}  // namespace
}  // namespace vexal::test
