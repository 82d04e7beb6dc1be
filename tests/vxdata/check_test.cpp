#include <gtest/gtest.h>

#include "tool.h"

namespace {

// The source that holds the predicates' names, wherever in its folder.
std::string predicate_table() {
  const std::filesystem::path folder = VEXAL_SOURCE_DIR "/src/validate";
  if (!std::filesystem::is_directory(folder)) return "";
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (slurp(entry.path()).find("\"A00041430_IS_PRIVATE\"") != std::string::npos)
      return entry.path().string();
  }
  return "";
}

TEST(Check, TheShippedTablesPass) {
  const Workshop shop;
  std::string arguments = "check" + kTables + " --names " VEXAL_SOURCE_DIR "/src/model/name_tables.cpp ";
  if (const std::string table = predicate_table(); !table.empty()) arguments += "--conditions " + table + " ";
  const Outcome outcome = shop.run(arguments + kData + "templates/*.tsv");
  EXPECT_EQ(outcome.exit, 0) << outcome.err;
}

TEST(Check, PlantedFaultsAreFound) {
  const std::string profile =
      "[SERVICE_TABLE]\nNUMBER_OF_SERVICES_SUPPORTED = 1\nS = 0001\n"
      "[0001]\nNAME = S\nUID = 1.2\nTYPE = BASE\nCOMMAND_1 = C_STORE_RQ\n"
      "[ITEM_TABLE]\nNUMBER_OF_ITEMS_SUPPORTED = 1\nI = 0001\n";
  const std::string dictionary =
      "0008,0008\tCS\t2-n\tImageType\tImage Type\n"
      "0008,0060\tCS\t1\tModality\tModality\n"
      "0008,1140\tSQ\t1\tReferencedImageSequence\tReferenced Image Sequence\n"
      "0028,0010\tUS\t1\tRows\tRows\n";
  const std::string sound = "message\tS\tC_STORE_RQ\n0008,1140\t3\tReferencedImageSequence\t>I\nitem\tI\n";
  const std::string names =
      "const char* const Services[1] = {\"S\"};\nconst char* const Items[1] = {\"I\"};\n";
  const struct {
    const char* file;
    std::string text;
    int exit;
    const char* reason;
  } rows[] = {
      {"t", sound, 0, "0 errors, 0 warnings"},
      {"t", sound + "0028,0010\t1\tRose\n", 1, "t:4: error: the dictionary calls 0028,0010 Rows"},
      {"t", sound + "0028,0010\t1\tRows\t:SS\n", 1, "t:4: error: the dictionary gives VR US"},
      {"t", sound + "0008,0060\t1\tModality\t=ct\n", 1, "t:4: error: no code string: ct"},
      {"t", sound + "0008,0060\t1\tModality\t2=CT\n", 1, "value 2 of an attribute of VM 1"},
      {"t", sound + "0008,0008\t1\tImageType\t=A\t3=B\n", 0, "t:4: warning: value 2 has no list"},
      {"t", sound + "0028,0010\t1C\tRows\t?A00080060_IS_M*R\n", 1, "t:4: error: not the name of a condition"},
      {"t", sound + "0028,0010\t1C\tRows\t?A00090060_IS_MR\n", 1, "reads an unknown attribute 0009,0060"},
      {"t", sound + "0028,0010\t1C\tRows\t?A00080060_NOT_PRESENT\n", 0,
       "t:4: warning: 0028,0010 has a condition on 0008,0060, which I does not hold"},
      {"t", sound + "module\tlost\n", 0, "t:4: warning: lost is reached from no message"},
      {"t", "message\tS\tC_STORE_RQ\n0008,1140\t3\tReferencedImageSequence\t>I\n", 0,
       "t:2: warning: item I has no contents"},
      {"c", "{\"A00080060_IS_MR\", f},", 0, "0 errors, 0 warnings"},
      {"names", "Services[1] = {\"T\"}; Items[1] = {\"I\"};", 1, "T is not in the services profile"},
      {"names", "Services[2] = {\"S\", \"S\"}; Items[1] = {\"I\"};", 1, "S follows S"},
      {"srv", profile + "X = 0001\n", 1, "item number 1 stands twice"},
      {"srv", profile + "[0002]\nNAME = T\nUID = 1.3\nTYPE = BASE\nCOMMAND_1 = C_STORE_RQ\n", 1,
       "SERVICE_TABLE has no T = 2"},
      {"srv", profile + "[0001x]\nNAME = T\n", 1, "neither a table nor a service number"},
  };
  const Workshop shop;
  for (const auto& row : rows) {
    shop.write("srv", profile);
    shop.write("dic", dictionary);
    shop.write("t", sound);
    shop.write("c", "{\"A00080060_IS_MR\", f}, {\"A00080060_NOT_PRESENT\", f}");
    shop.write("names", names);
    shop.write(row.file, row.text);
    const Outcome outcome = shop.run("check --services srv --dict dic --names names t");
    EXPECT_EQ(outcome.exit, row.exit) << row.text << outcome.err;
    EXPECT_NE(outcome.err.find(row.reason), std::string::npos) << row.text << outcome.err;
  }
  shop.write("srv", profile);
  shop.write("t", sound + "0028,0010\t1C\tRows\t?A00080060_IS_CT\n0008,0060\t1\tModality\n");
  EXPECT_NE(shop.run("check --services srv --dict dic --conditions c t").err.find("no predicate of the name"),
            std::string::npos);
}

}  // namespace
