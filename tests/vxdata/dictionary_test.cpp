#include <gtest/gtest.h>

#include <map>

#include "tool.h"

namespace {

struct Entry {
  uint32_t vr, low, high;
  std::string name;
};

bool private_tag(uint32_t tag) {
  const uint32_t group = tag >> 16;
  return group % 2 == 1 && group > 7 && group != 0xFFFF;
}

// The rules that the library's reader enforces, and what it would then know.
std::map<std::pair<uint32_t, std::string>, Entry> read_dictionary(const std::string& path) {
  Bytes in(read_file(path));
  std::map<std::pair<uint32_t, std::string>, Entry> entries;
  uint32_t previous = 0;
  std::string previous_code;
  for (bool first = true; in.at < in.size(); first = false) {
    const uint32_t tag = in.number(4);
    Entry entry{in.number(2), in.number(1), in.number(1), in.to_nul()};
    if (first) {
      EXPECT_EQ(tag, 0xF006F006u);
      continue;
    }
    std::string code;
    if (private_tag(tag)) {
      code = in.text(513);
      code.resize(code.find('\0'));
      EXPECT_TRUE(tag > previous || code != previous_code) << std::hex << tag << " " << code;
      EXPECT_FALSE(code.empty());
      EXPECT_NE(code.back(), ' ');
      EXPECT_EQ(tag & 0xFF00, 0u);
      previous_code = code;
    } else {
      EXPECT_TRUE(entries.empty() || tag > previous) << std::hex << tag;
    }
    previous = tag;
    EXPECT_LE(entry.vr, 30u);
    EXPECT_LE(entry.low, entry.high);
    EXPECT_LE(entry.name.size(), 99u);
    EXPECT_TRUE(entries.emplace(std::pair(tag, code), entry).second) << std::hex << tag << " " << code;
  }
  return entries;
}

TEST(Dictionary, ShippedFileIsWhatTheReaderAsksFor) {
  const auto entries = read_dictionary(kShare + "vexalkit.dct");
  size_t publics = 0;
  for (const auto& [key, entry] : entries) publics += key.second.empty() ? 1 : 0;
  EXPECT_EQ(publics, 5268u);

  const struct {
    uint32_t tag;
    const char* code;
    Entry entry;
  } rows[] = {
      {0x00080008, "", {2, 2, 255, "Image Type"}},
      {0x00100010, "", {9, 1, 1, "Patient's Name"}},
      {0x00280106, "", {18, 1, 1, "Smallest Image Pixel Value"}},
      {0x00283006, "", {18, 1, 255, "LUT Data"}},
      {0x60003000, "", {26, 1, 1, "Overlay Data"}},
      {0x7FE00001, "", {24, 1, 1, "Extended Offset Table"}},
      {0x7FE00010, "", {26, 1, 1, "Pixel Data"}},
      {0x00290008, "SIEMENS CSA HEADER", {2, 1, 1, "CSA Image Header Type"}},
  };
  for (const auto& row : rows) {
    const auto at = entries.find({row.tag, row.code});
    ASSERT_NE(at, entries.end()) << std::hex << row.tag;
    EXPECT_EQ(at->second.vr, row.entry.vr) << row.entry.name;
    EXPECT_EQ(at->second.low, row.entry.low) << row.entry.name;
    EXPECT_EQ(at->second.high, row.entry.high) << row.entry.name;
    EXPECT_EQ(at->second.name, row.entry.name);
  }
}

TEST(Dictionary, TheFullFileHoldsTheDefaultOne) {
  const auto full = read_dictionary(kShare + "vexalkit-full.dct");
  const auto small = read_dictionary(kShare + "vexalkit.dct");
  EXPECT_GT(full.size(), small.size());
  for (const auto& [key, entry] : small) {
    const auto at = full.find(key);
    ASSERT_NE(at, full.end()) << key.second;
    EXPECT_EQ(at->second.name, entry.name);
  }
}

TEST(Dictionary, DecompilingAndCompilingGivesTheSameBytes) {
  const Workshop shop;
  for (const char* name : {"vexalkit.dct", "vexalkit-full.dct"}) {
    ASSERT_EQ(shop.run("undict " + kShare + name + " -o table").exit, 0);
    ASSERT_EQ(shop.run("dict table -o again").exit, 0);
    EXPECT_EQ(shop.read("again"), read_file(kShare + name));
  }
}

TEST(Dictionary, RecordsOfSeveralTablesAreMergedInOrder) {
  const Workshop shop;
  shop.write("a",
             "0008,0016\tUI\t1\tSOPClassUID\tSOP Class UID\n0010,0010\tPN\t1\tPatientName\tPatient's Name\n");
  shop.write("b", "@ B\n0009,xx01\tLO\t1\tb\n@ A\n0009,xx01\tUS\t2-n\ta\n0009,xx02\tUN\t1\t-\n");
  ASSERT_EQ(shop.run("dict b a -o out").exit, 0);
  Bytes in(shop.read("out"));
  in.number(4 + 4);
  in.to_nul();
  std::string order;
  while (in.at < in.size()) {
    const uint32_t tag = in.number(4);
    in.number(4);
    order += in.to_nul();
    if (private_tag(tag)) order += "@" + in.text(513).substr(0, 1);
    order += ",";
  }
  EXPECT_EQ(order, "SOP Class UID,a@A,b@B,Unknown@A,Patient's Name,");
}

TEST(Dictionary, FaultsNameTheirLine) {
  const std::string good = "# comment\n\n0008,0016\tUI\t1\tSOPClassUID\tSOP Class UID\n";
  const struct {
    const char* line;
    const char* reason;
  } rows[] = {
      {"0008,0018\tUI\t1\tK", "expected tag, VR, VM"},
      {"0008,001\tUI\t1\tK\tName", "not the tag of a public attribute"},
      {"0009,0018\tUI\t1\tK\tName", "not the tag of a public attribute"},
      {"0008,0018\tQQ\t1\tK\tName", "unknown VR: QQ"},
      {"0008,0018\tUI\tn\tK\tName", "VM not understood: n"},
      {"0008,0018\tUI\t3-2\tK\tName", "VM not understood: 3-2"},
      {"0008,0005\tCS\t1\tK\tName", "tags must rise"},
      {"0008,0016\tUI\t1\tK\tName", "tags must rise"},
      {"0008,0018\tUI\t1\tK\tName\tretried", "may only say \"retired\""},
      {"0008,0018\tUI\t1\tK\tN\xC3\xA4me", "outside the default repertoire"},
      {"0008,0018\tUI\t1\tK\t"
       "0123456789012345678901234567890123456789012345678901234567890123456789012345678901234567890123456789",
       "at most 99 fit"},
  };
  const Workshop shop;
  shop.write("out", "old");
  for (const auto& row : rows) {
    shop.write("table", good + row.line + "\n");
    const Outcome outcome = shop.run("dict table -o out");
    EXPECT_EQ(outcome.exit, 1) << row.line;
    EXPECT_EQ(outcome.err.rfind("table:4: error: ", 0), 0u) << outcome.err;
    EXPECT_NE(outcome.err.find(row.reason), std::string::npos) << outcome.err;
  }
  shop.write("table", "@ ACME\n0009,xx01\tUS\t1\ta\n@ ACME\n0009,xx01\tUS\t1\tb\n");
  EXPECT_NE(shop.run("dict table -o out").err.find("table:4: error: 0009,0001 of ACME has an entry already"),
            std::string::npos);
  EXPECT_EQ(shop.read("out"), "old") << "a faulty table replaced a good file";
}

TEST(Confidentiality, FaultsNameTheirLine) {
  const std::string good = "0008,0050\tZ\tA\nprivate\tX\t-\nscheme DCM\n";
  const struct {
    const char* line;
    const char* reason;
  } rows[] = {
      {"0008,0051", "not a tag, an action"},
      {"0008,0051\tX/Q\tA", "not a tag, an action"},
      {"0008,0051\tZZ\tA", "not a tag, an action"},
      {"0008,005\tX\tA", "not a tag"},
      {"0009,xx51\tX\tA", "not a tag"},
      {"0008,0050\tX\tA", "the tag has a row already"},
      {"also 0008,0050\tX\tA", "the tag has a row already"},
      {"0008,0051\tX\tA\tretain-uids=Q", "unknown option retain-uids=Q"},
      {"vr QQ\tX\t-", "no such VR"},
  };
  const Workshop shop;
  shop.write("safe", "@ ACME\n0009,xx01\tSpeed\n");
  shop.write("uids", "1.2.3\tSOP class\tA\n");
  const std::string command = "confidentiality --safe-private safe --uids uids table -o out";
  shop.write("table", good);
  EXPECT_EQ(shop.run(command).exit, 0);
  const std::string made = shop.read("out");
  for (const char* part :
       {"{0x00080050, 0xFFFFFFFF, kMayZ, 0, 0, false}", "{\"ACME\", 0x0009, 0x01}", "\"1.2.3\""})
    EXPECT_NE(made.find(part), std::string::npos) << part;
  for (const auto& row : rows) {
    shop.write("table", good + row.line + "\n");
    const Outcome outcome = shop.run(command);
    EXPECT_EQ(outcome.exit, 1) << row.line;
    EXPECT_NE(outcome.err.find(std::string("table:4: error: ") + row.reason), std::string::npos)
        << outcome.err;
  }
  shop.write("table", good);
  shop.write("safe", "0009,xx01\tSpeed\n");
  EXPECT_NE(shop.run(command).err.find("safe:1: error: not a private attribute"), std::string::npos);
  EXPECT_EQ(shop.read("out"), made);
}

TEST(Dictionary, DamagedFilesEndInAnError) {
  const Workshop shop;
  shop.write("t", "0008,0016\tUI\t1\tK\tN\n@ ACME\n0009,xx01\tUS\t1\ta\n");
  ASSERT_EQ(shop.run("dict t -o whole").exit, 0);
  const std::string whole = shop.read("whole");
  const size_t first = whole.find('\0', 8) + 1;
  const size_t second = first + 10;
  std::vector<std::string> cuts;
  for (size_t length = 1; length < whole.size(); length += length < 60 ? 1 : 97)
    cuts.push_back(whole.substr(0, length));
  const std::vector<int> exits = shop.exits("undict input", cuts);
  ASSERT_EQ(exits.size(), cuts.size());
  for (size_t i = 0; i < cuts.size(); ++i) {
    EXPECT_EQ(exits[i], cuts[i].size() == first || cuts[i].size() == second ? 0 : 2) << cuts[i].size();
  }
  shop.write("cut", "\xF0\x03\xF0\x03");
  EXPECT_EQ(shop.run("undict cut").exit, 2);
  std::string fixed("\xF0\x05\xF0\x05\0\0\0\0", 8);
  fixed += std::string("signature").append(55, '\0') + std::string("\0\x10\0\x20\0\7\1\1", 8) +
           std::string("Patient ID").append(54, '\0');
  shop.write("old", fixed);
  EXPECT_EQ(shop.run("undict old").out, "0010,0020\tLO\t1\t-\tPatient ID\n");
}

TEST(Dictionary, KeywordsListsOnlyThoseThatDiffer) {
  const Workshop shop;
  shop.write("t",
             "0000,0800\tUS\t1\tCommandDataSetType\tData Set Type\n"
             "0010,0010\tPN\t1\tPatientName\tPatient's Name\n"
             "0018,1003\tLO\t1\tThreeDThing\t3D Thing\n"
             "0018,1153\tIS\t1\tExposureInuAs\tExposure in uAs\n"
             "0028,0010\tUS\t1\tLines\tRows\n");
  EXPECT_EQ(shop.run("keywords t").out, "0028,0010\tLines\tRows\tRows\n");
}

}  // namespace
