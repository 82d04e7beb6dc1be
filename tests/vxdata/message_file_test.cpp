#include <gtest/gtest.h>

#include <map>
#include <set>

#include "tool.h"

namespace {

struct Record {
  uint32_t tag, parameter;
  std::string data;
};
using Records = std::vector<Record>;

// The file as the library walks it: two seeks and a body.
class MessageFile {
 public:
  explicit MessageFile(const std::string& bytes) : in_(bytes) {
    EXPECT_EQ(in_.number(4), 0xF003F003u);
    EXPECT_EQ(in_.number(4), 0u);
    services_ = in_.number(4);
    service_count = in_.number(2);
    commands_ = in_.number(4);
    items_ = in_.number(4);
    item_count = in_.number(2);
    bodies_ = in_.number(4);
  }

  std::map<uint32_t, Records> service(uint32_t number) {
    in_.at = services_ + 6 * (number - 1);
    EXPECT_EQ(in_.number(2), number);
    const uint32_t table = commands_ + in_.number(4);
    std::map<uint32_t, Records> result;
    for (size_t at = table;; at += 6) {
      in_.at = at;
      const uint32_t command = in_.number(2);
      if (command == 0) return result;
      result[command] = body(in_.number(4));
    }
  }

  Records item(uint32_t number) {
    in_.at = items_ + 6 * (number - 1);
    EXPECT_EQ(in_.number(2), number);
    return body(in_.number(4));
  }

  uint32_t service_count = 0, item_count = 0;

 private:
  Records body(uint32_t offset) {
    in_.at = bodies_ + offset;
    EXPECT_EQ(in_.number(4), 0xF002F002u);
    EXPECT_EQ(in_.number(4), 0u);
    Records records;
    while (in_.at < in_.size()) {
      const uint32_t tag = in_.number(4);
      const uint32_t parameter = in_.number(2);
      std::string data = in_.text(in_.number(2));
      if (tag == 0xF002F002) break;
      records.push_back({tag, parameter, data});
    }
    return records;
  }

  Bytes in_;
  uint32_t services_ = 0, commands_ = 0, items_ = 0, bodies_ = 0;
};

// What the library would refuse or trip over while it reads a body.
void expect_readable(const Records& records, const std::string& where) {
  uint32_t tag = 0;
  bool has_type = true, has_vr = false;
  for (const Record& record : records) {
    ASSERT_GE(record.tag, tag) << where;
    if (record.tag != tag) {
      ASSERT_TRUE(has_type) << where << std::hex << " " << tag;
      has_type = has_vr = false;
      tag = record.tag;
      ASSERT_GT(tag >> 16, 2u) << where;
    }
    if (record.parameter == 9999) {
      has_type = true;
      EXPECT_EQ(std::set<std::string>({"1", "1C", "2", "2C", "3"}).count(record.data), 1u) << record.data;
    } else if (record.parameter == 9500) {
      has_vr = true;
      EXPECT_EQ(record.data.size(), 2u);
      EXPECT_NE(record.data, "UN");
    } else {
      EXPECT_FALSE(record.data.empty()) << where;
      EXPECT_TRUE(record.parameter <= 2003 || record.parameter == 9600 || record.parameter == 9700);
      EXPECT_TRUE(record.parameter / 10 == 200 || record.parameter == 9700 || has_vr)
          << where << std::hex << tag;
    }
  }
  EXPECT_TRUE(has_type) << where;
}

std::string find(const Records& records, uint32_t tag, uint32_t parameter) {
  for (const Record& record : records) {
    if (record.tag == tag && record.parameter == parameter) return record.data;
  }
  return "-";
}

TEST(MessageFile, EveryBodyOfTheShippedFileCanBeRead) {
  MessageFile file(read_file(kShare + "vexalkit.msg"));
  EXPECT_GE(file.service_count, 220u);
  EXPECT_GE(file.item_count, 898u);
  size_t filled = 0;
  for (uint32_t number = 1; number <= file.service_count; ++number) {
    for (const auto& [command, records] : file.service(number)) {
      expect_readable(records, "service " + std::to_string(number));
      filled += records.empty() ? 0 : 1;
    }
  }
  for (uint32_t number = 1; number <= file.item_count; ++number) {
    expect_readable(file.item(number), "item " + std::to_string(number));
  }
  EXPECT_GT(filled, 300u);
}

TEST(MessageFile, ShippedContentsAgreeWithTheStandard) {
  // Numbers of STANDARD_CT, STANDARD_ECHO, STUDY_ROOT_QR_MOVE as the services profile gives them.
  std::map<std::string, uint32_t> numbers;
  std::ifstream profile(kData + "vexalkit.srv");
  for (std::string key, equals, value; profile >> key;) {
    if (key[0] == '[' || key[0] == '#') {
      std::getline(profile, value);
    } else if (profile >> equals >> value && equals == "=" &&
               value.find_first_not_of("0123456789") == value.npos) {
      numbers.emplace(key, static_cast<uint32_t>(std::stoul(value)));
    }
  }
  MessageFile file(read_file(kShare + "vexalkit.msg"));
  const struct {
    const char* service;
    uint32_t command, tag, parameter;
    const char* data;
  } rows[] = {
      {"STANDARD_CT", 1, 0x00080060, 9999, "1"},
      {"STANDARD_CT", 1, 0x00080016, 1, "1.2.840.10008.5.1.4.1.1.2"},
      {"STANDARD_CT", 1, 0x00200032, 9999, "1"},
      {"STANDARD_CT", 1, 0x00281052, 9999, "1"},
      {"STANDARD_CT", 1, 0x00100010, 9999, "2"},
      {"STANDARD_CT", 1, 0x00180010, 9999, "2C"},  // the contrast module is not mandatory
      {"STANDARD_CT", 1, 0x0020000D, 9999, "1"},
      {"STANDARD_MR", 1, 0x00180020, 9999, "1"},
      {"STANDARD_SEC_CAPTURE", 1, 0x00080060, 9999, "3"},  // relaxes what other objects require
      {"STANDARD_SEC_CAPTURE", 1, 0x00080064, 9999, "1"},
      {"STANDARD_RT_PLAN", 1, 0x300A000C, 9999, "1"},
      {"STANDARD_BASIC_TEXT_SR", 1, 0x0040A491, 9999, "1"},
      {"ENHANCED_CT_IMAGE", 1, 0x52009230, 1001, "FUNC_GROUP_ENHANCED_CT_FRAME"},
      {"STUDY_ROOT_QR_MOVE", 0x21, 0x00080052, 9999, "1"},
      {"STUDY_ROOT_QR_MOVE", 0x21, 0x0020000E, 2000, "A00080052_SERIES_QUERY_OR_BELOW"},
      {"MODALITY_WORKLIST_FIND", 0x20, 0x00400100, 1001, "SCHEDULED_PROCEDURE_STEP_MWL_CFIND_RQ"},
      {"STANDARD_ECHO", 0x30, 0x00080016, 9999, "-"},
  };
  for (const auto& row : rows) {
    ASSERT_EQ(numbers.count(row.service), 1u) << row.service;
    const auto bodies = file.service(numbers[row.service]);
    ASSERT_EQ(bodies.count(row.command), 1u) << row.service;
    EXPECT_EQ(find(bodies.at(row.command), row.tag, row.parameter), row.data)
        << row.service << std::hex << row.tag;
  }
  EXPECT_EQ(find(file.item(numbers["MEASURED_VALUE"]), 0x004008EA, 1001), "MEASURING_UNITS");
  EXPECT_EQ(find(file.item(numbers["DIR_REC_PATIENT"]), 0x00100020, 9999), "1");
}

TEST(MessageFile, DecompilingAndCompilingGivesTheSameBytes) {
  const Workshop shop;
  ASSERT_EQ(shop.run("unmsg" + kTables + kShare + "vexalkit.msg -o text").exit, 0);
  ASSERT_EQ(shop.run("msg" + kTables + "text -o again").exit, 0);
  EXPECT_EQ(shop.read("again"), read_file(kShare + "vexalkit.msg"));
}

constexpr const char* kProfile =
    "[SERVICE_TABLE]\nNUMBER_OF_SERVICES_SUPPORTED = 1\nS = 0003\n"
    "[0003]\nNAME = S\nUID = 1.2\nTYPE = BASE\nCOMMAND_1 = C_STORE_RQ\nCOMMAND_2 = C_STORE_RSP\n"
    "[ITEM_TABLE]\nNUMBER_OF_ITEMS_SUPPORTED = 2\nI = 0002\nJ = 0005\n";
constexpr const char* kDictionary =
    "0008,0008\tCS\t2-n\tImageType\tImage Type\n"
    "0008,0060\tCS\t1\tModality\tModality\n"
    "0008,1140\tSQ\t1\tReferencedImageSequence\tReferenced Image Sequence\n"
    "0028,0010\tUS\t1\tRows\tRows\n";

TEST(MessageFile, UnusedNumbersHaveEntriesWithoutContents) {
  const Workshop shop;
  shop.write("srv", kProfile);
  shop.write("dic", kDictionary);
  shop.write("tpl", "message\tS\tC_STORE_RQ\n0028,0010\t1\tRows\t=512\nitem\tJ\n0008,0060\t2\tModality\n");
  ASSERT_EQ(shop.run("msg --services srv --dict dic tpl -o out").exit, 0);
  MessageFile file(shop.read("out"));
  EXPECT_EQ(file.service_count, 3u);
  EXPECT_EQ(file.item_count, 5u);
  EXPECT_TRUE(file.service(1).empty());
  EXPECT_TRUE(file.service(2).empty());
  auto bodies = file.service(3);
  EXPECT_EQ(bodies.size(), 2u);
  EXPECT_TRUE(bodies[0x8001].empty());
  EXPECT_EQ(find(bodies[1], 0x00280010, 1), "512");
  EXPECT_EQ(find(bodies[1], 0x00280010, 9500), "US");
  EXPECT_TRUE(file.item(4).empty());
  EXPECT_EQ(find(file.item(5), 0x00080060, 9999), "2");
}

TEST(MessageFile, DamagedFilesEndInAnError) {
  const Workshop shop;
  shop.write("srv", kProfile);
  shop.write("dic", kDictionary);
  shop.write("tpl",
             "message\tS\tC_STORE_RQ\n0028,0010\t1\tRows\t=512\nitem\tJ\n0008,0060\t2\tModality\t~A|B\n");
  ASSERT_EQ(shop.run("msg --services srv --dict dic tpl -o out").exit, 0);
  const std::string whole = shop.read("out");
  // Every cut within the preamble and directories, samples behind them; a process each is not free.
  constexpr size_t kDirectories = 28 + 18;
  std::vector<std::string> cuts;
  std::vector<std::string> flips;
  for (size_t at = 0; at < whole.size(); at += at < kDirectories ? 1 : 5) cuts.push_back(whole.substr(0, at));
  for (size_t at = 0; at < whole.size(); at += at < kDirectories ? 2 : 9) {
    flips.push_back(whole);
    flips.back()[at] = static_cast<char>(flips.back()[at] ^ 0x5A);
  }
  const std::string command = "unmsg --services srv --dict dic input";
  const std::vector<int> cut_exits = shop.exits(command, cuts);
  ASSERT_EQ(cut_exits.size(), cuts.size());
  for (size_t i = 0; i < cuts.size(); ++i) {
    const bool between_bodies = cut_exits[i] == 0 && i >= kDirectories;
    EXPECT_TRUE(cut_exits[i] == 2 || between_bodies) << cuts[i].size() << " bytes gave " << cut_exits[i];
  }
  const std::vector<int> flip_exits = shop.exits(command, flips);
  ASSERT_EQ(flip_exits.size(), flips.size());
  for (const int exit : flip_exits) EXPECT_TRUE(exit == 0 || exit == 2) << exit;
}

}  // namespace
