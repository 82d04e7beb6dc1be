// The program as people run it: every subcommand, its output, its exit status, and what it leaves on disk.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support.h"

namespace {

namespace fs = std::filesystem;

struct Outcome {
  int exit = -1;
  std::string out;  // standard output and error together, in the order written
};

Outcome run(const std::string& arguments) {
  const std::string command =
      "unset VEXAL_INI; PATH=/usr/bin:/bin " VEXAL_BINARY_DIR "/tools/vexal/vexal " + arguments + " 2>&1";
  Outcome outcome;
  std::FILE* pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) return outcome;
  char block[4096];
  std::size_t got = 0;
  while ((got = std::fread(block, 1, sizeof block, pipe)) > 0) outcome.out.append(block, got);
  const int status = ::pclose(pipe);
  outcome.exit = WIFEXITED(status) ? WEXITSTATUS(status) : 128;
  return outcome;
}

void append16(std::string& out, uint32_t v) {
  out.push_back(static_cast<char>(v));
  out.push_back(static_cast<char>(v >> 8));
}

void append_element(std::string& out, uint32_t tag, const char* vr, std::string value) {
  if (value.size() % 2 != 0) value.push_back(std::string(vr) == "UI" ? '\0' : ' ');
  append16(out, tag >> 16);
  append16(out, tag & 0xFFFFU);
  out += vr;
  const std::string kind = vr;
  if (kind == "OB" || kind == "OW" || kind == "SQ" || kind == "UT" || kind == "UV") {
    append16(out, 0);
    append16(out, static_cast<uint32_t>(value.size()) & 0xFFFFU);
    append16(out, static_cast<uint32_t>(value.size()) >> 16);
  } else {
    append16(out, static_cast<uint32_t>(value.size()));
  }
  out += value;
}

std::string number(uint32_t v) {
  std::string text;
  append16(text, v);
  return text;
}

// An explicit little endian image with a sequence, a private block and 128 KiB of pixels.
std::string sample() {
  std::string item;
  append_element(item, 0x00081150, "UI", "1.2.840.10008.5.1.4.1.1.2");
  append_element(item, 0x00081155, "UI", "1.2.3");
  std::string item_header;
  append16(item_header, 0xFFFE);
  append16(item_header, 0xE000);
  append16(item_header, static_cast<uint32_t>(item.size()));
  append16(item_header, 0);
  std::string meta;
  append_element(meta, 0x00020001, "OB", std::string("\0\1", 2));
  append_element(meta, 0x00020002, "UI", "1.2.840.10008.5.1.4.1.1.7");
  append_element(meta, 0x00020003, "UI", "1.2.3.4");
  append_element(meta, 0x00020010, "UI", "1.2.840.10008.1.2.1");
  std::string file(128, '\0');
  file += "DICM";
  append_element(file, 0x00020000, "UL", number(static_cast<uint32_t>(meta.size())) + number(0));
  file += meta;
  append_element(file, 0x00080016, "UI", "1.2.840.10008.5.1.4.1.1.7");
  append_element(file, 0x00080018, "UI", "1.2.3.4");
  append_element(file, 0x00080060, "CS", "OT");
  append_element(file, 0x00081140, "SQ", item_header + item);
  append_element(file, 0x00081200, "SQ", "");
  append_element(file, 0x00090010, "LO", "GEMS_IDEN_01");
  append_element(file, 0x00091001, "LO", "secret");
  append_element(file, 0x00100010, "PN", "Doe^John");
  append_element(file, 0x00100030, "DA", "19700101");
  append_element(file, 0x00280010, "US", number(256));
  append_element(file, 0x00280011, "US", number(256));
  std::string pixels;
  for (uint32_t i = 0; i < 65536; ++i) append16(pixels, i);
  append_element(file, 0x7FE00010, "OW", pixels);
  return file;
}

testing::AssertionResult has(const std::string& text, const std::string& part) {
  if (text.find(part) == std::string::npos)
    return testing::AssertionFailure() << part << " is not in\n" << text;
  return testing::AssertionSuccess() << part << " is in\n" << text;
}

testing::AssertionResult gives(const std::string& arguments, int exit,
                               std::initializer_list<const char*> parts) {
  const Outcome outcome = run(arguments);
  if (outcome.exit != exit)
    return testing::AssertionFailure() << arguments << ": " << outcome.exit << "\n" << outcome.out;
  for (const char* part : parts) {
    if (const auto found = has(outcome.out, part); !found) return found;
  }
  return testing::AssertionSuccess();
}

class Program : public testing::Test {
 protected:
  void SetUp() override { write("a.dcm", sample()); }
  std::string path(const std::string& name) const { return folder_.path(name); }
  void write(const std::string& name, const std::string& bytes) const { folder_.write(name, bytes); }
  std::string read(const std::string& name) const { return folder_.read(name); }
  // The listing of the data set without the lines that say where large values lie.
  std::string listing(const std::string& name) const {
    std::istringstream lines(run("dump " + path(name)).out);
    std::string kept;
    for (std::string line; std::getline(lines, line);) {
      if (!line.starts_with("(0002,") && !line.starts_with("(7FE0,")) kept += line + "\n";
    }
    return kept;
  }
  std::size_t files_in_folder() const {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(path("")), fs::directory_iterator()));
  }
  support::TempFolder folder_;
};

TEST_F(Program, DumpShowsValuesAndPlaces) {
  const Outcome all = run("dump " + path("a.dcm"));
  EXPECT_EQ(all.exit, 0) << all.out;
  for (const char* expected :
       {"(0010,0010) PN        8  PatientName", "Doe^John",
        "(0008,1140) SQ        -  ReferencedImageSequence", "1 item",
        "StudiesContainingOtherReferencedInstancesSequence  0 items",
        "    (0008,1155) UI        5  ReferencedSOPInstanceUID", "(0009,1001) LO        6  Full fidelity",
        "(0028,0010) US        2  Rows                              256",
        "(7FE0,0010) OW   131072  PixelData"}) {
    EXPECT_TRUE(has(all.out, expected));
  }
  const Outcome one =
      run("dump --tag 'ReferencedImageSequence[0].ReferencedSOPInstanceUID' --tag Rows " + path("a.dcm"));
  EXPECT_EQ(one.exit, 0);
  EXPECT_EQ(std::count(one.out.begin(), one.out.end(), '\n'), 2) << one.out;
  const Outcome json = run("dump --json " + path("a.dcm"));
  EXPECT_TRUE(has(json.out, R"({"tag":"00100010","vr":"PN","keyword":"PatientName","value":["Doe^John"]})"));
  EXPECT_TRUE(has(json.out, R"("creator":"GEMS_IDEN_01","value":["secret"])"));
  EXPECT_TRUE(has(json.out, R"("vr":"US","keyword":"Rows","value":[256])"));
}

// Cyrillic in the data set and a private attribute, Japanese in an item that says so itself.
std::string charset_sample() {
  std::string item;
  append_element(item, 0x00080005, "CS", "\\ISO 2022 IR 87");
  append_element(item, 0x00100010, "PN", "\x1B$B;3ED\x1B(B^\x1B$BB@O:\x1B(B");
  std::string header;
  append16(header, 0xFFFE);
  append16(header, 0xE000);
  append16(header, static_cast<uint32_t>(item.size()));
  append16(header, 0);
  std::string file = sample().substr(0, 128 + 4);
  append_element(file, 0x00020010, "UI", "1.2.840.10008.1.2.1");
  append_element(file, 0x00080005, "CS", "ISO_IR 144");
  append_element(file, 0x00081140, "SQ", header + item);
  append_element(file, 0x00090010, "LO", "GEMS_IDEN_01");
  append_element(file, 0x00091001, "LO", "\xBB\xEE\xDA\\plain\\\xDA\x1B[2J");
  append_element(file, 0x00100010, "PN", "\xBB\xEE\xDA^X");
  return file;
}

// Text comes out of its character sets; nothing in a file or its name can steer a terminal.
TEST_F(Program, DumpShowsTextOfEverySet) {
  const auto shows = [&](const std::string& name, const std::string& options, const std::string& text) {
    const std::string out = run("dump --quiet " + options + " '" + path(name) + "'").out;
    EXPECT_TRUE(has(out, text));
    EXPECT_FALSE(has(out, "\x1B"));
  };
  const std::string cyrillic = charset_sample();
  write("c.dcm", cyrillic);
  shows("c.dcm", "", "Люк\\plain\\к\\x1B[2J\n");
  shows("c.dcm", "", "Люк^X\n");
  shows("c.dcm", "", "    (0010,0010) PN       21  PatientName                       山田^太郎\n");
  shows("c.dcm", "--tag 'ReferencedImageSequence[0].PatientName'", "山田^太郎\n");
  shows("c.dcm", "--width 4", "Люк^...\n");
  shows("c.dcm", "--width 7", "Люк\\pla...\n");
  shows("c.dcm", "--json", "\"山田^太郎\"");
  write("a\x1B[2J.dcm", cyrillic);
  shows("a\x1B[2J.dcm", path("c.dcm"), "# " + path("a\\x1B[2J.dcm"));

  const auto broken = [&](const std::string& charset, const std::string& name, const std::string& text) {
    std::string file = cyrillic.substr(0, cyrillic.find("ISO_IR 144") - 8);
    append_element(file, 0x00080005, "CS", charset);
    append_element(file, 0x00100010, "PN", name);
    append_element(file, 0x00101040, "LO", name);
    write("b.dcm", file);
    shows("b.dcm", "--tag PatientName", text + "\n");
    shows("b.dcm", "--tag PatientAddress", text + "\n");
  };
  broken("", "\xC3\xA9 \xE9", "é \\xE9");  // UTF-8, though nothing says so
  broken("ISO_IR 192",
         "\xE2\x80\xAE x\xC2\x9B"
         "2J\xF0\x9F",
         "\\u202E x\\u009B2J\\xF0\\x9F");
  broken("ISO_IR 166", "\xE3\xA8\xFF", "ใจ\\xFF");
  broken("GB18030", "\xCD\xF5\xFF\xCD\xF5\x95\x32", "王\\xFF王\\x952");
  broken("\\ISO 2022 IR 87", "\x1B$B;3\xFF\x1B(B x\x1B$Z", "山\\xFF x\\x1B$Z");
  broken("\\ISO 2022 IR 149", "\x1B$)C\xB1\xE8\xB1", "김\\xB1");
}

TEST_F(Program, ConvertsThereAndBack) {
  const std::string before = listing("a.dcm");
  const std::string original = read("a.dcm");
  for (const char* syntax : {"implicit", "big-endian", "deflated", "1.2.840.10008.1.2.1"}) {
    const Outcome there =
        run(std::string("convert --to ") + syntax + " " + path("a.dcm") + " " + path("b.dcm"));
    ASSERT_EQ(there.exit, 0) << syntax << there.out;
    EXPECT_EQ(listing("b.dcm"), before) << syntax;
    ASSERT_EQ(run("convert --to explicit " + path("b.dcm") + " " + path("c.dcm")).exit, 0) << syntax;
    // Behind the meta group, whose writer has changed, the bytes are those of the original.
    const std::string back = read("c.dcm");
    const std::string data_set = original.substr(original.find(std::string("\x08\0\x16\0", 4)));
    ASSERT_GT(back.size(), data_set.size());
    EXPECT_TRUE(back.substr(back.size() - data_set.size()) == data_set) << syntax;
  }
  const Outcome undefined =
      run("convert --undefined-lengths --pad 1024 --to explicit " + path("a.dcm") + " " + path("u.dcm"));
  EXPECT_EQ(undefined.exit, 0) << undefined.out;
  const Outcome padded = run("convert --pad 1024 --to explicit " + path("a.dcm") + " " + path("p.dcm"));
  EXPECT_EQ(padded.exit, 0) << padded.out;
  EXPECT_EQ(fs::file_size(path("p.dcm")) % 1024, 0U);
  EXPECT_EQ(run("convert --to jpeg " + path("a.dcm") + " " + path("x.dcm")).exit, 2);
}

// Compressed without loss and back, the pixels at the end of the file are those of the original.
TEST_F(Program, ConvertsPixels) {
  const std::string slice = std::string(VEXAL_SOURCE_DIR) + "/examples/data/slice.dcm";
  fs::copy_file(slice, path("slice.dcm"));
  const std::string original = read("slice.dcm");
  const std::string pixels = original.substr(original.size() / 2);
  for (const char* syntax : {"rle", "jpeg-lossless", "jpeg-ls", "jpeg2000"}) {
    const Outcome there = run(std::string("convert --to ") + syntax + " " + slice + " " + path("b.dcm"));
    ASSERT_EQ(there.exit, 0) << syntax << there.out;
    EXPECT_LT(fs::file_size(path("b.dcm")), original.size()) << syntax;
    ASSERT_EQ(run("convert --to explicit " + path("b.dcm") + " " + path("c.dcm")).exit, 0) << syntax;
    EXPECT_TRUE(read("c.dcm").ends_with(pixels)) << syntax;
  }
  // A lossy image is another instance.
  const std::string uid = run("dump --tag SOPInstanceUID " + slice).out;
  ASSERT_EQ(run("convert --to jpeg2000-lossy " + slice + " " + path("lossy.dcm")).exit, 0);
  EXPECT_NE(run("dump --tag SOPInstanceUID " + path("lossy.dcm")).out, uid);
}

TEST_F(Program, ConvertsCharacterSets) {
  write("c.dcm", charset_sample());
  ASSERT_EQ(run("convert --quiet --charset utf-8 " + path("c.dcm") + " " + path("u.dcm")).exit, 0);
  const std::string utf8 = read("u.dcm");
  for (const char* text : {"Люк^X", "Люк\\plain\\к\x1B[2J", "山田^太郎"}) {
    EXPECT_TRUE(has(utf8, text));
  }
  const std::string all = run("dump --quiet " + path("u.dcm")).out;
  EXPECT_FALSE(has(all, "ISO 2022"));

  // There and back. Each item goes by the sets of the whole.
  EXPECT_TRUE(gives("convert --charset ISO_IR\\ 144 " + path("u.dcm") + " " + path("l.dcm"), 1,
                    {"(0010,0010) ReferencedImageSequence[0].PatientName \"山田^太郎\": not in the new sets: "
                     "太 (U+592A) 山 (U+5C71)"}));
  EXPECT_FALSE(fs::exists(path("l.dcm")));
  EXPECT_EQ(run("convert --lossy --charset ISO_IR\\ 144 " + path("u.dcm") + " " + path("l.dcm")).exit, 1);
  EXPECT_TRUE(has(read("l.dcm"), "?\?^?\?"));
  EXPECT_EQ(
      run("convert --quiet --charset 'ISO_IR 144,ISO 2022 IR 87' " + path("u.dcm") + " " + path("m.dcm"))
          .exit,
      0);
  EXPECT_TRUE(has(read("m.dcm"), "ISO 2022 IR 144\\ISO 2022 IR 87"));
  EXPECT_TRUE(has(read("m.dcm"), "\x1B$B;3ED\x1B(B^\x1B$BB@O:\x1B(B"));
  EXPECT_TRUE(has(read("m.dcm"), "\xBB\xEE\xDA^X"));

  // What is typed goes into the sets of its place.
  const std::string change =
      "modify --set PatientName=Мир --set 'ReferencedImageSequence[0].PatientName=山' ";
  ASSERT_EQ(run(change + path("c.dcm") + " " + path("t.dcm")).exit, 0);
  EXPECT_TRUE(has(read("t.dcm"), "\xBC\xD8\xE0"));
  EXPECT_TRUE(has(read("t.dcm"), "\x1B$B;3\x1B(B"));
  EXPECT_EQ(run("modify --set PatientName=山 " + path("c.dcm") + " " + path("x.dcm")).exit, 2);

  // Text that no set is named for.
  std::string bare = charset_sample();
  bare.replace(bare.find("ISO_IR 144"), 10, "ISO_IR 6  ");
  write("n.dcm", bare);
  EXPECT_EQ(run("convert --charset utf-8 " + path("n.dcm") + " " + path("x.dcm")).exit, 1);
  EXPECT_EQ(run("convert --charset nonsense " + path("n.dcm") + " " + path("x.dcm")).exit, 2);
  EXPECT_FALSE(fs::exists(path("x.dcm")));
}

TEST_F(Program, ConvertsAFolder) {
  fs::create_directories(path("in/deep"));
  write("in/one.dcm", sample());
  write("in/deep/two.dcm", sample());
  EXPECT_EQ(run("convert --to implicit " + path("in") + " " + path("out")).exit, 0);
  EXPECT_TRUE(fs::exists(path("out/one.dcm")));
  EXPECT_TRUE(fs::exists(path("out/deep/two.dcm")));
}

TEST_F(Program, ModifySetsAddsClearsAndDeletes) {
  const Outcome outcome =
      run("modify --set 'PatientName=Roe^Jane' --set 0008,0008='ORIGINAL\\PRIMARY' --add "
          "ImageType=AXIAL --delete PatientBirthDate --clear Modality --set "
          "'ReferencedImageSequence[0].ReferencedSOPInstanceUID=9.9' --set "
          "'ReferencedImageSequence[+].ReferencedSOPInstanceUID=8.8' --set '{GEMS_IDEN_01}0009,01=open' " +
          path("a.dcm") + " " + path("b.dcm"));
  ASSERT_EQ(outcome.exit, 0) << outcome.out;
  const std::string text = run("dump " + path("b.dcm")).out;
  for (const char* expected : {"Roe^Jane", "ORIGINAL\\PRIMARY\\AXIAL", "2 items", "9.9", "8.8", "open"}) {
    EXPECT_TRUE(has(text, expected));
  }
  EXPECT_FALSE(has(text, "PatientBirthDate"));
  EXPECT_TRUE(has(text, "(0008,0060) CS        0  Modality"));
  EXPECT_TRUE(has(text, "(7FE0,0010) OW   131072"));
}

// The meta group follows what names the object in the data set; a file that contradicts itself is put right,
// and told. What is asked of the meta group by name stays.
TEST_F(Program, TheMetaGroupFollowsTheDataSet) {
  ASSERT_EQ(run("modify --set MediaStorageSOPInstanceUID=7.7 --set MediaStorageSOPClassUID=7.8 " +
                path("a.dcm") + " " + path("other.dcm"))
                .exit,
            0);
  ASSERT_EQ(run("json --own " + path("other.dcm") + " > " + path("other.json")).exit, 0);
  ASSERT_EQ(run("xml " + path("other.dcm") + " > " + path("other.xml")).exit, 0);
  const std::string instance = "MediaStorageSOPInstanceUID        ";
  const std::string sop_class = "MediaStorageSOPClassUID           ";
  const std::string told =
      "(0002,0003) MediaStorageSOPInstanceUID was 7.7, but the object has 1.2.3.4: corrected";
  const struct {
    const char* command;
    const char* in;
    int exit;
    std::string line;
    std::string said;
  } cases[] = {
      {"modify --set SOPInstanceUID=1.2.3 ", "a.dcm", 0, instance + "1.2.3\n", ""},
      {"modify --set 0008,0016=1.2.4 ", "a.dcm", 0, sop_class + "1.2.4\n", ""},
      {"modify --new-uid SOPInstanceUID ", "a.dcm", 0, instance + "2.25.", ""},
      {"modify --set SOPInstanceUID=1.2.3 ", "other.dcm", 1, instance + "1.2.3\n", "(0002,0002)"},
      {"modify --set MediaStorageSOPInstanceUID=4.5 --set SOPInstanceUID=1.2.3 ", "a.dcm", 0,
       instance + "4.5\n", ""},
      {"modify --set ImplementationVersionName=MINE ", "a.dcm", 0, "ImplementationVersionName         MINE\n",
       ""},
      {"modify --set PatientID=X ", "other.dcm", 1, instance + "1.2.3.4\n", told},
      {"convert --to implicit ", "other.dcm", 1, instance + "1.2.3.4\n", told},
      {"json --own --back ", "other.json", 1, instance + "1.2.3.4\n", told},
      {"xml --back ", "other.xml", 1, instance + "1.2.3.4\n", told},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(std::string(row.command) + row.in);
    EXPECT_TRUE(gives(row.command + path(row.in) + " " + path("x.dcm"), row.exit, {row.said.c_str()}));
    const std::string dump = run("dump " + path("x.dcm")).out;
    EXPECT_TRUE(has(dump, row.line));
    EXPECT_EQ(dump.find("SourceApplicationEntityTitle"), std::string::npos) << dump;
  }
  ASSERT_EQ(run("modify --quiet --delete SOPInstanceUID " + path("a.dcm") + " " + path("x.dcm")).exit, 0);
  EXPECT_FALSE(run("dump " + path("x.dcm")).out.find("(0002,0003)") != std::string::npos);
}

TEST_F(Program, NothingTakesThePlaceOfWhatItIsMadeOf) {
  ASSERT_EQ(run("json --own " + path("a.dcm") + " > " + path("a.json")).exit, 0);
  ASSERT_EQ(run("xml " + path("a.dcm") + " > " + path("a.xml")).exit, 0);
  constexpr const char* kCommands[][2] = {{"pixel render ", "a.dcm"},
                                          {"pixel sheet ", "a.dcm"},
                                          {"pixel extract ", "a.dcm"},
                                          {"make --extract ", "a.dcm"},
                                          {"deidentify -o x --report ", "a.dcm"},
                                          {"pixel video ", "a.dcm"},
                                          {"pixel render --matrix ", "a.dcm"},
                                          {"json --own --back ", "a.json"},
                                          {"xml --back ", "a.xml"}};
  for (const auto& [command, name] : kCommands) {
    const std::string before = read(name);
    EXPECT_TRUE(gives(command + path(name) + " " + path(name), 2, {name, " is "}));
    EXPECT_TRUE(read(name) == before);
  }
}

// Several at once lose nothing of each other, and a link leads where it led.
TEST_F(Program, ChangesInPlaceComeOneAfterTheOther) {
  fs::create_symlink("a.dcm", path("link.dcm"));
  std::vector<std::jthread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&, i] {
      const std::string name = path(i % 2 == 0 ? "a.dcm" : "link.dcm");
      EXPECT_EQ(run("modify --add OtherPatientNames=X" + std::to_string(i) + " " + name).exit, 0);
    });
  }
  threads.clear();
  EXPECT_TRUE(fs::is_symlink(path("link.dcm")));
  const std::string names = run("dump --tag OtherPatientNames " + path("a.dcm")).out;
  EXPECT_EQ(std::count(names.begin(), names.end(), 'X'), 8) << names;
  EXPECT_EQ(files_in_folder(), 2U);
}

TEST_F(Program, ARefusedChangeLeavesTheFileAsItWas) {
  const std::string before = read("a.dcm");
  EXPECT_TRUE(gives("modify --set PatientBirthDate=yesterday " + path("a.dcm"), 2, {"PatientBirthDate"}));
  EXPECT_TRUE(gives("modify --set PatientNme=X " + path("a.dcm"), 2, {"PatientName"}));
  EXPECT_TRUE(read("a.dcm") == before);
  EXPECT_EQ(files_in_folder(), 1U);
  EXPECT_EQ(run("modify --set PatientBirthDate=19800101 " + path("a.dcm")).exit, 0);
  EXPECT_TRUE(has(run("dump " + path("a.dcm")).out, "19800101"));
  EXPECT_EQ(files_in_folder(), 1U);
}

// Numbers are whole and in range, tags in any of their forms, private attributes with a VR: or nothing is
// written.
TEST_F(Program, ModifyTakesWhatFitsTheVr) {
  struct Row {
    const char* set;
    const char* shown;  // null: refused
  };
  const Row rows[] = {
      {"Rows=65535", "US        2  Rows                              65535"},
      {"Rows=70000", nullptr},
      {"Rows=-1", nullptr},
      {"Rows=1.5", nullptr},
      {"Rows=0x10", nullptr},
      {"Rows=", "US        0  Rows"},
      {"{X}0029,01:SS=-32768\\32767", "-32768\\32767"},
      {"{X}0029,01:SS=40000", nullptr},
      {"{X}0029,01:SL=-2147483648", "-2147483648"},
      {"{X}0029,01:SL=2147483648", nullptr},
      {"{X}0029,01:UL=4294967295", "4294967295"},
      {"{X}0029,01:UL=4294967296", nullptr},
      {"{X}0029,01:UV=18446744073709551615\\0",
       "UV       16  -                                 18446744073709551615\\0"},
      {"{X}0029,01:UV=18446744073709551616", nullptr},
      {"{X}0029,01:SV=-9223372036854775808", "-9223372036854775808"},
      {"{X}0029,01:SV=-9223372036854775809", nullptr},
      {"{X}0029,01:OV=@FOLDER/a.dcm", "OV "},
      {"{X}0029,01:LO=text", "LO        4  -                                 text"},
      {"{X}0029,01=text", nullptr},
      {"{X}0029,01:QQ=text", nullptr},
      {"{GEMS_IDEN_01}0009,01:US=1", nullptr},
      {"{X}0029,01:SQ[0].PatientID=Q", "Q"},
      {"FileOffsetInContainer=9", "UV        8  FileOffsetInContainer             9"},
      {"FileOffsetInContainer=-9", nullptr},
      {"FrameIncrementPointer=(0018,1063)", "(0018,1063)"},
      {"FrameIncrementPointer=00181063\\0018,1065", "(0018,1063)\\(0018,1065)"},
      {"FrameIncrementPointer=FrameTime", "(0018,1063)"},
      {"FrameIncrementPointer=nonsense", nullptr},
      {"(FFFE,E000)=1", nullptr},
      {"FFFEE0DD=", nullptr},
  };
  for (const Row& row : rows) {
    std::string set = row.set;
    if (const std::size_t at = set.find("FOLDER"); at != std::string::npos) set.replace(at, 6, path(""));
    fs::remove(path("b.dcm"));
    const Outcome outcome = run("modify --set '" + set + "' " + path("a.dcm") + " " + path("b.dcm"));
    EXPECT_EQ(outcome.exit, row.shown != nullptr ? 0 : 2) << set << ": " << outcome.out;
    EXPECT_EQ(fs::exists(path("b.dcm")), row.shown != nullptr) << set;
    if (row.shown == nullptr) continue;
    const std::string text = run("dump " + path("b.dcm")).out;
    EXPECT_TRUE(has(text, row.shown)) << set;
  }
  // Their letters last, and the values add up.
  ASSERT_EQ(
      run("modify --set '{X}0029,01:SV=-1' --add '{X}0029,01=2' " + path("a.dcm") + " " + path("b.dcm")).exit,
      0);
  ASSERT_EQ(run("convert --to big-endian " + path("b.dcm") + " " + path("c.dcm")).exit, 0);
  EXPECT_TRUE(has(run("dump " + path("c.dcm")).out, "SV       16  -                                 -1\\2"));
}

TEST_F(Program, AFileThatIsReplacedHandsOnItsPermissionsAndNoMore) {
  write("target", "precious");
  struct Row {
    const char* what;
    mode_t mode;  // of what is there
    bool link;    // to it
    mode_t expected;
  };
  for (const Row& row :
       {Row{"a private file", 0600, false, 0600}, Row{"rights of its owner", 06755, false, 0755},
        Row{"a link to such a file", 06755, true, 0644}, Row{"a link to an open one", 0666, true, 0644}}) {
    const std::string there = path(row.link ? "target" : "out.dcm");
    fs::remove(path("out.dcm"));
    if (row.link) fs::create_symlink(there, path("out.dcm"));
    if (!row.link) write("out.dcm", "old");
    ASSERT_EQ(::chmod(there.c_str(), row.mode), 0);
    EXPECT_EQ(run("convert --to implicit " + path("a.dcm") + " " + path("out.dcm")).exit, 0) << row.what;
    struct stat status {};
    ASSERT_EQ(::lstat(path("out.dcm").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, row.expected) << row.what;
    EXPECT_TRUE(S_ISREG(status.st_mode)) << row.what;
    EXPECT_EQ(read("target"), "precious") << row.what;
  }
}

// An empty element of a run path is the current folder, where others may put libraries.
TEST_F(Program, LibrariesAreNotTakenFromTheCurrentFolder) {
  for (const char* file : {"tools/vexal/vexal", "tools/tls/libvexaltls.so"}) {
    std::ifstream in(std::string(VEXAL_BINARY_DIR "/") + file, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), {}};
    const std::size_t at = bytes.find(std::string("\0$ORIGIN", 8));
    ASSERT_NE(at, std::string::npos) << file;
    const std::string run_path = bytes.c_str() + at + 1;
    EXPECT_FALSE(run_path.ends_with(':')) << run_path;
    EXPECT_FALSE(has(run_path, "::")) << run_path;
  }
  EXPECT_EQ(run("--version").exit, 0);
}

TEST_F(Program, DamagedAndStrangeFiles) {
  const std::string whole = sample();
  write("cut.dcm", whole.substr(0, whole.size() - 70000));
  EXPECT_TRUE(gives("dump " + path("cut.dcm"), 2, {"Doe^John", "Unexpected end of stream data"}));
  EXPECT_EQ(run("convert --to implicit " + path("cut.dcm") + " " + path("out.dcm")).exit, 2);
  EXPECT_FALSE(fs::exists(path("out.dcm")));
  write("empty", "");
  write("text.txt", "This is no DICOM file at all, but a text of some length that goes on for a while.");
  EXPECT_EQ(run("dump " + path("empty")).exit, 2);
  EXPECT_EQ(run("dump " + path("text.txt")).exit, 2);
  EXPECT_EQ(run("dump " + path("nowhere.dcm")).exit, 2);
  // A bare data set, without preamble and meta group.
  write("bare", whole.substr(whole.find(std::string("\x08\0\x16\0", 4))));
  EXPECT_TRUE(gives("dump " + path("bare"), 0, {"Doe^John"}));
}

// Rules of the SOP class, findings by severity, paths into sequences, exit status.
TEST_F(Program, ValidateTellsWhatBreaksTheRules) {
  EXPECT_TRUE(gives("validate " + path("a.dcm"), 1,
                    {"    (0020,000D) StudyInstanceUID: ", "1 file validated, 1 with errors: "}));

  const std::string to = path("b.dcm");
  ASSERT_EQ(run("modify --set 'ReferencedImageSequence[0].Modality=CT' " + path("a.dcm") + " " + to).exit, 0);
  const Outcome outcome = run("validate --json --attribute ReferencedImageSequence " + to);
  EXPECT_EQ(outcome.exit, 0) << outcome.out;
  EXPECT_TRUE(has(outcome.out,
                  "{\"severity\":\"warning\",\"tag\":\"00080060\","
                  "\"path\":\"ReferencedImageSequence[0].Modality\","));
  EXPECT_FALSE(has(outcome.out, "StudyInstanceUID"));
  EXPECT_EQ(run("validate --level errors --attribute ReferencedImageSequence " + to).exit, 0);

  // A SOP class without a service is no finding.
  ASSERT_EQ(run("modify --set SOPClassUID=1.2.3 " + path("a.dcm") + " " + path("c.dcm")).exit, 0);
  EXPECT_EQ(run("validate " + path("c.dcm")).exit, 2);
  EXPECT_EQ(run("validate --level some " + to).exit, 2);
}

// Identifiers and other messages: the service by name or by what they hold, the command that fits.
TEST_F(Program, ValidateChoosesTheRulesOfAMessage) {
  const std::string query = path("query.dcm");
  const std::string changes =
      " --set QueryRetrieveLevel=STUDY --set 'StudyInstanceUID=1.2.3\\1.2.4' "
      "--delete SOPClassUID --delete PatientName ";
  ASSERT_EQ(run("modify" + changes + path("a.dcm") + " " + query).exit, 0);
  Outcome outcome = run("validate --service STUDY_ROOT_QR_FIND --level all " + query);
  EXPECT_TRUE(has(outcome.out, "STUDY_ROOT_QR_FIND C_FIND_RQ: 0 errors"));
  EXPECT_FALSE(has(outcome.out, "StudyInstanceUID"));
  outcome = run("validate --service STUDY_ROOT_QR_FIND --command C_FIND_RSP " + query);
  EXPECT_TRUE(has(outcome.out, "STUDY_ROOT_QR_FIND C_FIND_RSP: "));
  EXPECT_TRUE(has(outcome.out, "StudyInstanceUID: Too many values"));
  EXPECT_TRUE(gives("validate --service STUDY_ROOT_QR_FIND --command N_GET_RQ " + query, 2,
                    {"no rules for STUDY_ROOT_QR_FIND N_GET_RQ"}));
  EXPECT_EQ(run("validate --command NONSENSE " + query).exit, 2);

  const std::string step = path("step.dcm");
  ASSERT_EQ(
      run("modify --set SOPClassUID=1.2.840.10008.3.1.2.3.3 --set PerformedProcedureStepID=1 "
          "--set PerformedStationAETitle=A --set PerformedProcedureStepStartDate=20240131 "
          "--set PerformedProcedureStepStartTime=1010 --set PerformedProcedureStepStatus=\"IN PROGRESS\" "
          "--set 'ScheduledStepAttributesSequence[0].StudyInstanceUID=1.2.3' " +
          path("a.dcm") + " " + step)
          .exit,
      0);
  outcome = run("validate " + step);
  EXPECT_TRUE(has(outcome.out, "PERFORMED_PROCEDURE_STEP N_CREATE_RQ: "));
}

// What the standard asks for stands behind each finding.
TEST_F(Program, ValidateTellsWhatIsAskedFor) {
  std::string count;
  append_element(count, 0x00080428, "UV", std::string(8, '\1'));
  std::string file = sample();
  write("uv.dcm", file.insert(file.find(std::string("\x08\0\x40\x11", 4)), count));
  const std::string to = path("b.dcm");
  ASSERT_EQ(run("modify --set PatientSex=X --set ImageType= " + path("uv.dcm") + " " + to).exit, 0);
  const Outcome outcome = run("validate --level all " + to);
  for (const char* line :
       {"(0010,0040) PatientSex \"X\": Value not an enumerated value [M | F | O]",
        "(0028,0002) SamplesPerPixel: Required attribute not in message [type 1 of Image Pixel (C.7-11b)]",
        "(0020,000D) StudyInstanceUID: Required attribute not in message [type 1 of General Study (C.7-3)]",
        "(0008,0428) TotalNumberOfStudyRecords: VR parameter is invalid [VR UV, which is "
        "carried as UN and loses "
        "nothing]"}) {
    EXPECT_TRUE(has(outcome.out, line));
  }
  // A null value in an optional attribute is no more than a remark.
  EXPECT_GT(outcome.out.find("(0008,0008) ImageType: "), outcome.out.find("  remarks\n")) << outcome.out;
  const Outcome json = run("validate --json --attribute PatientSex " + to);
  EXPECT_TRUE(has(json.out,
                  "\"wanted\":\"M | F | O\",\"vr\":\"CS\",\"vm\":\"1\",\"type\":\"2\",\"values\":"
                  "[{\"valueNumber\":1,\"enumerated\":true,\"list\":[\"M\",\"F\",\"O\"]}]}"));
}

// What no template can say: values against each other, against the dictionary, against what is there.
TEST_F(Program, ValidateComparesValues) {
  const auto with = [](uint32_t tag, const char* vr, const std::string& value) {
    std::string element;
    append_element(element, tag, vr, value);
    return element;
  };
  const std::string whole = sample();
  const std::string head = whole.substr(0, whole.find(std::string("\x08\0\x60\0", 4)));
  const std::string pixels = with(0x00280002, "US", number(1)) + with(0x00280004, "CS", "MONOCHROME2") +
                             with(0x00280010, "US", number(2)) + with(0x00280011, "US", number(2)) +
                             with(0x00280100, "US", number(8)) + with(0x00280101, "US", number(8)) +
                             with(0x00280102, "US", number(7));
  const std::string table = number(4) + number(0) + number(16);
  const std::string empty_item("\xFE\xFF\0\xE0\0\0\0\0", 8);
  const std::string capture("1.2.840.10008.5.1.4.1.1.7\0", 26);
  constexpr char kMap[] = "1.2.840.10008.5.1.4.1.1.30";
  std::string many = "x";
  for (int i = 1; i < 30000; ++i) many += "\\x";
  const struct {
    const char* what;
    std::string body;
    const char* line;  // of the report
    const char* other_class = nullptr;
  } rows[] = {
      {"date", with(0x00080020, "DA", "2012-01-01"),
       "\"2012-01-01\": Invalid value for this tag's VR [a date is"},
      {"day", with(0x00080020, "DA", "20230230"), "[a date is YYYYMMDD]"},
      {"VR", with(0x00181030, "SH", "head"), "ProtocolName: VR parameter is invalid [VR LO, not SH]"},
      {"root of a UID", with(0x0020000D, "UI", "3.1.2"), "[the first component of a UID is 0, 1 or 2]"},
      {"zeros in a UID", with(0x0020000D, "UI", "1.2.003"), "[a component of a UID has no leading zeros]"},
      {"one UID twice", with(0x0020000D, "UI", "1.2.3.4"),
       "[the same UID as in (0020,000D) StudyInstanceUID]"},
      {"text", with(0x0008103E, "LO", "K\xF6ln"),
       "[without Specific Character Set (0008,0005) text is ASCII]"},
      {"pixels", pixels + with(0x7FE00010, "OB", "123456"), "[6 bytes, not the 4 of its description]"},
      {"high bit", pixels.substr(0, pixels.size() - 2) + number(6) + with(0x7FE00010, "OB", "1234"),
       "Bits Stored, 7]"},
      {"table", with(0x00281101, "US", table) + with(0x00281201, "OW", "123456"), "[6 bytes for 4 entries]"},
      {"items", with(0x00081120, "SQ", empty_item + empty_item), "[2 items where there is one]"},
      {"an empty item", with(0x00082112, "SQ", empty_item),
       "SourceImageSequence[0].ReferencedSOPClassUID: Required attribute not in message"},
      {"frames", with(0x00280008, "IS", "2 "), "[images of this class have one frame]"},
      {"samples", with(0x00280002, "US", number(3)) + pixels.substr(10) + with(0x7FE00010, "OB", "1234"),
       "SamplesPerPixel \"3\": Value not an enumerated value [1]"},
      {"spacing", with(0x00280030, "DS", "1\\0 "), "[is above 0]"},
      {"ratio", with(0x00280034, "IS", "2\\2 "), "[a ratio of 1:1 is not given]"},
      {"ways", with(0x00200020, "CS", "L\\L "), "[rows and columns point the same way]"},
      {"a slide's ways", with(0x00480102, "DS", "1\\0\\0\\0\\2\\0 "), "[direction cosines have length 1]"},
      {"a palette's bits", with(0x00281101, "US", number(4) + number(0) + number(12)), "[8 | 16]"},
      {"a table's bits", with(0x00283002, "US", number(4) + number(0) + number(7)), "[8 to 16]"},
      {"one item", with(0x00700402, "SQ", empty_item), "[one item where there are two or more]"},
      {"an original map", with(0x00080008, "CS", "ORIGINAL\\PRIMARY "), "not an enumerated value [DERIVED]",
       kMap},
      {"a map's kind", with(0x00080008, "CS", "DERIVED\\PRIMARY"), "[4 values in this class]", kMap},
      {"a mask of bytes", pixels + with(0x00620001, "CS", "BINARY"),
       "BitsAllocated \"8\": Value not an enumerated value [1]"},
      {"a map's numbers", with(0x00281052, "DS", "1 "),
       "RescaleIntercept \"1\": Value not an enumerated value [0]", kMap},
      {"species", with(0x00102201, "LO", "Canis lupus "),
       "PatientBreedCodeSequence: Required attribute not in"},
      {"role", with(0x00102298, "CS", "OWNER "), "[type 1C of Patient (C.7-1), only if Responsible Person"},
      {"kind of image", with(0x00080008, "CS", "COPIED\\PRIMARY"),
       "not an enumerated value [ORIGINAL | DERIVED | MIXED]"},
      {"order", with(0x00100020, "LO", "id") + with(0x00080060, "CS", "OT"),
       "  errors\n    (0008,0060) Modality: A tag was encoded"},
      {"many of a kind", with(0x00180022, "CS", many), "value for this VR [VR CS] (the first of 30000)\n"},
      {"the meta group", "",
       "MediaStorageSOPInstanceUID: Tag's value incompatible with function call [the data set has 1.2.3.5]"},
  };
  for (const auto& row : rows) {
    std::string file = head + row.body;
    if (row.body.empty()) file.replace(file.rfind("1.2.3.4"), 7, "1.2.3.5");
    for (std::size_t at = 0;
         row.other_class != nullptr && (at = file.find(capture, at)) != std::string::npos;)
      file.replace(at, capture.size(), row.other_class);
    write("v.dcm", file);
    const Outcome outcome = run("validate --level errors " + path("v.dcm"));
    EXPECT_EQ(outcome.exit, 1) << row.what << outcome.out;
    EXPECT_TRUE(has(outcome.out, row.line)) << row.what;
  }
  // What is right is no finding, and an item that no rule is known for is none either.
  write("v.dcm", head + pixels + with(0x00720300, "SQ", empty_item) + with(0x7FE00010, "OB", "1234"));
  const Outcome right = run("validate " + path("v.dcm"));
  EXPECT_FALSE(has(right.out, "PixelData"));
  EXPECT_FALSE(has(right.out, "no item type"));
}

TEST_F(Program, TemplateShowsWhatAClassDemands) {
  Outcome outcome = run("template STANDARD_CT");
  EXPECT_EQ(outcome.exit, 0);
  EXPECT_TRUE(has(outcome.out, "STANDARD_CT C_STORE_RQ 1.2.840.10008.5.1.4.1.1.2\n"));
  const auto line = [&outcome](const std::string& start) {
    const std::size_t at = outcome.out.find("\n" + start);
    return at == std::string::npos ? "" : outcome.out.substr(at + 1, outcome.out.find('\n', at + 1) - at - 1);
  };
  EXPECT_TRUE(std::regex_match(line("(0010,0040)"),
                               std::regex(R"(\(0010,0040\)  2 +CS  1 +PatientSex +M \| F \| O)")))
      << line("(0010,0040)");
  EXPECT_FALSE(has(outcome.out, "ReferencedImageSequence."));
  outcome = run("template 1.2.840.10008.5.1.4.1.1.2 --depth 1");
  EXPECT_NE(line("(0008,1155)").find("Sequence.ReferencedSOPInstanceUID"), std::string::npos)
      << line("(0008,1155)");
  // An item holds items of its own kind; the way down ends all the same.
  EXPECT_EQ(run("template SR_CONTENT --depth 9").exit, 0);
  outcome = run("template --json STUDY_ROOT_QR_FIND");
  EXPECT_EQ(
      outcome.out.find("{\"service\":\"STUDY_ROOT_QR_FIND\",\"command\":\"C_FIND_RQ\",\"uid\":\"1.2.840"),
      0U);
  EXPECT_TRUE(
      has(outcome.out,
          "{\"tag\":\"00080052\",\"path\":\"QueryRetrieveLevel\",\"vr\":\"CS\",\"vm\":\"1\",\"type\":\"1\""));
  EXPECT_TRUE(gives("template STUDY_ROOT_QR_FIND N_GET_RQ", 1, {"it has: C_FIND_RQ"}));
  EXPECT_TRUE(gives("template STANDRD_CT", 1, {"near: STANDARD_CT"}));
  // With a profile of the user's the names come from there.
  EXPECT_TRUE(gives("template --config " VEXAL_BINARY_DIR "/share/vexalkit/vexal.ini STANDARD_CT", 0,
                    {"PatientSex"}));
  EXPECT_EQ(run("template").exit, 2);
}

TEST_F(Program, LookupAndConfig) {
  EXPECT_TRUE(has(run("lookup PatientName").out, "(0010,0010) PN  VM 1  PatientName"));
  EXPECT_TRUE(has(run("lookup 00280010").out, "Rows"));
  EXPECT_TRUE(has(run("lookup 1.2.840.10008.1.2.1").out, "Explicit VR Little Endian"));
  EXPECT_TRUE(has(run("lookup STANDARD_CT").out, "1.2.840.10008.5.1.4.1.1.2"));
  EXPECT_TRUE(has(run("lookup BEAM_ITEM").out, "item BEAM_ITEM"));
  EXPECT_TRUE(gives("lookup PatientNam", 1, {"PatientName"}));
  EXPECT_TRUE(gives("config LARGE_DATA_SIZE", 0, {"LARGE_DATA_SIZE = 200", "built into the program"}));
  EXPECT_TRUE(
      gives("config --config " VEXAL_BINARY_DIR "/share/vexalkit/vexal.ini LARGE_DATA_SIZE", 0, {"= 200"}));
  EXPECT_EQ(run("config --config /nowhere/vexal.ini").exit, 2);
}

// A configuration of a site: its faults in one line each, with file and line; and no log file, whatever it
// says.
TEST_F(Program, ConfigurationsSayWhereTheirValuesStand) {
  fs::copy(VEXAL_BINARY_DIR "/share/vexalkit", path("site"));
  const auto change = [&](const std::string& name, const std::string& from, const std::string& to) {
    std::string text = read("site/" + name);
    const std::size_t at = text.find(from);
    ASSERT_NE(at, std::string::npos) << from;
    write("site/" + name, text.replace(at, from.size(), to));
  };
  const auto config = [&](const std::string& what) {
    return run("config --config " + path("site/vexal.ini") + " " + what);
  };
  const fs::path before = fs::current_path();
  fs::current_path(path(""));
  write("vexal.log", "of somebody else");
  change("vexal.ini", "INFO_MESSAGE = OFF", "INFO_MESSAGE = FILE,SCREEN");
  Outcome outcome = config("LARGE_DATA_SIZE");
  EXPECT_EQ(outcome.exit, 0);
  EXPECT_TRUE(
      std::regex_search(outcome.out, std::regex("LARGE_DATA_SIZE = 200  # .*/site/vexalkit\\.pro:[0-9]+\n")))
      << outcome.out;
  change("vexalkit.pro",
         "LARGE_DATA_SIZE = ", "LARGE_DATA_SIZE = 0\nNO_SUCH_KEY = 1\nOBOW_BUFFER_SIZE = many\n# ");
  outcome = config("LARGE_DATA_SIZE");
  EXPECT_EQ(outcome.exit, 0);
  for (const char* line :
       {":[0-9]+: warning: Invalid LARGE_DATA_SIZE value: 0\\. Must be positive: Defaulting to 200",
        ":[0-9]+: warning: Ignoring invalid option NO_SUCH_KEY in",
        ":[0-9]+: warning: Invalid: \"OBOW_BUFFER_SIZE = many\" - Using Default"}) {
    EXPECT_TRUE(std::regex_search(outcome.out, std::regex(std::string("/site/vexalkit\\.pro") + line)))
        << line << "\n"
        << outcome.out;
  }
  EXPECT_EQ(config("--quiet LARGE_DATA_SIZE").out.find("warning"), std::string::npos);
  change("vexal.ini", "vexalkit.srv", "none.srv");
  outcome = config("");
  EXPECT_EQ(outcome.exit, 2);
  EXPECT_TRUE(has(outcome.out, "site/none.srv"));
  EXPECT_EQ(std::count(outcome.out.begin(), outcome.out.end(), '\n'), 1) << outcome.out;
  fs::current_path(before);
  EXPECT_EQ(read("vexal.log"), "of somebody else");
}

TEST_F(Program, HelpAndUsage) {
  for (const char* command : {"dump", "convert", "modify", "validate", "template", "lookup", "config", "echo",
                              "store", "receive", "find", "get", "move", "mpps", "commit", "serve"}) {
    const std::string usage = std::string("usage: vexal ") + command;
    EXPECT_TRUE(gives(std::string(command) + " --help", 0, {usage.c_str()}));
    EXPECT_EQ(run(std::string(command) + " --nonsense").exit, 2);
  }
  EXPECT_EQ(run("").exit, 2);
  EXPECT_EQ(run("nonsense").exit, 2);
}

TEST_F(Program, JsonAndBack) {
  const std::string a = path("a.dcm");
  for (const std::string form : {"", "--own "}) {
    const std::string json = path("j.json");
    ASSERT_EQ(run("json " + form + a + " > " + json).exit, 0);
    const std::string text = run("json " + form + a).out;
    EXPECT_TRUE(has(text, "\"00081155\": {\"Value\": [\"1.2.3\"], \"vr\": \"UI\"}"));
    EXPECT_EQ(run("json --back " + form + json + " " + path("j.dcm")).exit, 0);
    const std::string again = run("json " + form + path("j.dcm")).out;
    EXPECT_EQ(again.substr(again.find("\"0008")), text.substr(text.find("\"0008")));
  }
  EXPECT_EQ(run("json " + a + " " + a).out, run("json " + a).out + run("json " + a).out);
  EXPECT_FALSE(has(run("json --no-bulk " + a).out, "InlineBinary"));
  const std::string apart = run("json --bulk " + path("bulk") + " " + a).out;
  EXPECT_FALSE(has(apart, "InlineBinary"));
  const std::size_t uri = apart.find(path("bulk/"));
  ASSERT_NE(uri, std::string::npos) << apart;
  EXPECT_EQ(fs::file_size(apart.substr(uri, apart.find('"', uri) - uri)), 131072U);
  // Bulk values come back from their folder and from nowhere else.
  for (const std::string form : {"", "--own "}) {
    const std::string bulk = form + "--bulk " + path("bulk") + " ";
    ASSERT_EQ(run("json " + bulk + a + " > " + path("j.json")).exit, 0);
    EXPECT_EQ(run("json --back " + bulk + path("j.json") + " " + path("j.dcm")).exit, 0);
    EXPECT_EQ(run("json " + path("j.dcm")).out, run("json " + a).out);
  }
  // Another object of the same UID, in another file, keeps what is its own.
  const std::string other = sample();
  write("other.dcm", other.substr(0, other.size() - 2) + "XY");
  ASSERT_EQ(run("json --bulk " + path("bulk") + " " + path("other.dcm") + " > " + path("o.json")).exit, 0);
  for (const auto& [text, file] : {std::pair{"j.json", "a.dcm"}, std::pair{"o.json", "other.dcm"}}) {
    EXPECT_EQ(run("json --back --bulk " + path("bulk") + " " + path(text) + " " + path("j.dcm")).exit, 0);
    EXPECT_EQ(run("json " + path("j.dcm")).out, run("json " + path(file)).out) << file;
  }
  write("bulk/sub.bin", "abc");
  write("out.bin", "abc");
  fs::create_symlink(path("out.bin"), path("bulk/link.bin"));
  for (const auto& [target, exit] :
       std::initializer_list<std::pair<std::string, int>>{{"sub.bin", 0},
                                                          {"./s%75b.bin", 0},
                                                          {path("bulk/sub.bin"), 0},
                                                          {"file://" + path("bulk/sub.bin"), 0},
                                                          {"link.bin", 2},
                                                          {"../out.bin", 2},
                                                          {"%2e./out.bin", 2},
                                                          {"file://" + path("out.bin"), 2},
                                                          {"file:///etc/passwd", 2},
                                                          {"http://localhost/x", 2},
                                                          {"none.bin", 2},
                                                          {".", 2}}) {
    write("uri.json",
          R"({"00091001": {"vr": "OB", "BulkDataURI": ")" + target +
              R"("}, "00090010": {"vr": "LO", "Value": ["A"]}, "00420011": {"vr": "UN", "BulkDataURI": ")" +
              target + "\"}}");
    fs::remove(path("u.dcm"));
    EXPECT_EQ(run("json --back --bulk " + path("bulk") + " " + path("uri.json") + " " + path("u.dcm")).exit,
              exit)
        << target;
    EXPECT_EQ(fs::exists(path("u.dcm")), exit == 0);
    if (exit != 0) continue;
    const std::string json = run("json " + path("u.dcm")).out;
    EXPECT_TRUE(has(json, R"("00091001": {"InlineBinary": "YWJjAA==")"));
    EXPECT_TRUE(has(json, R"("00420011": {"InlineBinary": "YWJjAA==")"));
  }
  write("bad.json", "{\"00100020\": {\"vr\": ");
  EXPECT_EQ(run("json --back " + path("bad.json") + " " + path("x.dcm")).exit, 2);
  EXPECT_FALSE(fs::exists(path("x.dcm")));
  write("part.json", R"({"00100020": {"vr": "LO", "Value": ["A"]}, "00100010": {"vr": "XX"}})");
  EXPECT_EQ(run("json --back " + path("part.json") + " " + path("x.dcm")).exit, 1);
  EXPECT_EQ(run("json").exit, 2);
}

TEST_F(Program, XmlAndBack) {
  const std::string a = path("a.dcm");
  for (const std::string form : {"", "--hex ", "--native ", "--native --indent "}) {
    const std::string xml = path("x.xml");
    ASSERT_EQ(run("xml " + form + a + " > " + xml).exit, 0);
    const std::string text = run("xml " + form + a).out;
    EXPECT_TRUE(has(text, ">1.2.3</"));
    EXPECT_EQ(run("xml --back " + form + xml + " " + path("x.dcm")).exit, 0);
    const std::string again = run("xml " + form + path("x.dcm")).out;
    EXPECT_EQ(again.substr(again.find("\"0008")), text.substr(text.find("\"0008")));
  }
  EXPECT_FALSE(has(run("xml --native --no-bulk " + a).out, "InlineBinary"));
  write("bad.xml", "<NativeDicomModel><DicomAttribute tag='00100020' vr='LO'>");
  EXPECT_EQ(run("xml --native --back " + path("bad.xml") + " " + path("y.dcm")).exit, 2);
  EXPECT_FALSE(fs::exists(path("y.dcm")));
  EXPECT_EQ(run("xml").exit, 2);
}

// The network subcommands without a peer: 2 for what can not be meant, 3 where nobody answers. Nobody listens
// on port 1.
TEST_F(Program, NetworkUsage) {
  struct Row {
    std::string arguments;
    int exit;
    const char* text;
  };
  const std::string file = path("a.dcm");
  const std::string there = " 127.0.0.1 1 --timeout 2 --quiet ";
  const Row rows[] = {
      {"echo localhost", 2, "give the HOST and the PORT"},
      {"echo localhost 0", 2, "a port is a number from 1 to 65535"},
      {"echo localhost 104x", 2, "a port is a number from 1 to 65535"},
      {"echo localhost 1 --aet waytoolongatitleforthis", 2, "a title has 1 to 16 characters"},
      {"echo localhost 1 --count 0", 2, "not a number from 1"},
      {"echo localhost 1 --timeout soon", 2, "not a number from 1"},
      {"echo localhost 1 --tls-cert x", 2, "needs --tls"},
      {"echo localhost 1 --tls --tls-ca /nowhere.pem", 2, "/nowhere.pem: No such file"},
      {"echo" + there, 3, "Connection refused"},
      {"store localhost 1", 2, "name the files or folders"},
      {"store localhost 1 /nowhere", 2, "there is nothing to send"},
      {"store localhost 1 --window 0 " + file, 2, "not a number from 1 to 65534"},
      {"store" + there + file, 3, "0 of 1 stored"},
      {"store" + there + "--json " + file, 3, "\"stored\":false"},
      {"receive", 2, "give the PORT"},
      {"receive 99999", 2, "a port is a number from 1 to 65535"},
      {"receive 11112 --max-associations 0", 2, "not a number from 1"},
      {"receive 11112 --on-study x", 2, "--on-study needs --tree"},
      {"receive 11112 --dir /proc/nowhere", 2, "No such file"},
      {"receive 11112 --address 203.0.113.1", 3, "can not listen"},
      {"receive 11112 --tls", 2, "--tls-cert"},
      {"find localhost 1 --level nonsense", 2, "--level nonsense"},
      {"find localhost 1 -k Nonsense=1", 2, "no attribute is called Nonsense"},
      {"find" + there, 3, "Connection refused"},
      {"get localhost 1 --level study", 2, "name what is wanted with -k"},
      {"get" + there + "-k StudyInstanceUID=1.2", 3, "Connection refused"},
      {"move localhost 1 -k StudyInstanceUID=1.2", 2, "--to"},
      {"move" + there + "--to X -k StudyInstanceUID=1.2", 3, "Connection refused"},
      {"mpps localhost 1", 2, "say what to do"},
      {"mpps localhost 1 nonsense", 2, "say what to do"},
      {"mpps localhost 1 complete", 2, "--uid"},
      {"mpps" + there + "create", 3, "Connection refused"},
      {"commit localhost 1", 2, "name the files or folders"},
      {"commit" + there + file, 3, "Connection refused"},
      {"serve 11112 --node X", 2, "give TITLE=HOST:PORT"},
      {"serve 11112 --dir /proc/nowhere", 2, "No such file"},
      {"serve 11112 --worklist /nowhere --dir " + path("archive"), 2, "is no folder"},
  };
  for (const Row& row : rows) EXPECT_TRUE(gives(row.arguments, row.exit, {row.text}));
}

}  // namespace
