#include <gtest/gtest.h>

#include "tool.h"

namespace {

TEST(Check, TheShippedTablesPass) {
  const Workshop shop;
  const std::string arguments =
      "check" + kTables +
      " --names " VEXAL_SOURCE_DIR "/src/model/name_tables.cpp --conditions " VEXAL_SOURCE_DIR
      "/src/validate/condition_rules.cpp," VEXAL_SOURCE_DIR "/src/validate/condition_names.cpp ";
  const Outcome outcome = shop.run(arguments + kData + "templates/*.tsv");
  EXPECT_EQ(outcome.exit, 0) << outcome.err;
}

TEST(Check, PlantedFaultsAreFound) {
  const std::string profile =
      "[SERVICE_TABLE]\nNUMBER_OF_SERVICES_SUPPORTED = 1\nS = 0001\n"
      "[0001]\nNAME = S\nUID = 1.2\nTYPE = BASE\nCOMMAND_1 = C_STORE_RQ\nCOMMAND_2 = C_FIND_RQ\nCOMMAND_3 = "
      "C_FIND_RSP\n"
      "[ITEM_TABLE]\nNUMBER_OF_ITEMS_SUPPORTED = 1\nI = 0001\n";
  const std::string dictionary =
      "0008,0008\tCS\t2-n\tImageType\tImage Type\n"
      "0008,0060\tCS\t1\tModality\tModality\n"
      "0008,1140\tSQ\t1\tReferencedImageSequence\tReferenced Image Sequence\n"
      "0018,0020\tCS\t1-n\tScanningSequence\tScanning Sequence\n"
      "0028,0010\tUS\t1\tRows\tRows\n"
      "0028,0011\tUS\t1\tColumns\tColumns\n"
      "0028,1050\tDS\t1\tWindowCenter\tWindow Center\n";
  const std::string sound =
      "message\tS\tC_STORE_RQ\n0008,1140\t3\tReferencedImageSequence\t>I\nitem\tI\n"
      "0028,0011\t3\tColumns\n";
  const std::string names =
      "const char* const Services[1] = {\"S\"};\nconst char* const Items[1] = {\"I\"};\n";
  const std::string conditions =
      "x = R\"(A00080060_IS_MR: 00080060 is MR\nA00080060_NOT_PRESENT: 00080060 absent\n"
      "A00090060_IS_MR: 00090060 is MR\nA00180020_IS_SE: 00180020 is SE\nMULTIFRAME_IMAGE\n)\";";
  const struct {
    const char* file;
    std::string text;
    int exit;
    const char* reason;
  } rows[] = {
      {"t", sound, 0, "0 errors, 0 warnings"},
      {"t", sound + "0028,0010\t1\tRose\n", 1, "t:5: error: the dictionary calls 0028,0010 Rows"},
      {"t", sound + "0028,0010\t1\tRows\t:SS\n", 1, "t:5: error: the dictionary gives VR US"},
      {"t", sound + "0008,0060\t1\tModality\t=ct\n", 1, "t:5: error: no code string: ct"},
      {"t", sound + "0008,0060\t1\tModality\t2=CT\n", 1, "value 2 of an attribute of VM 1"},
      {"t", sound + "0008,0008\t1\tImageType\t=A\t3=B\n", 1, "t:5: error: the last list decides"},
      {"t", sound + "0028,1050\t1\tWindowCenter\t=1\n", 1, "t:5: error: a list of values of VR DS"},
      {"t", sound + "0018,0020\t3\tScanningSequence\n0028,0010\t1C\tRows\t?A00180020_IS_SE\n", 1,
       "t:6: error: A00180020_IS_SE looks at the first of several values of 0018,0020"},
      {"t", sound + "0008,0060\t3\tModality\t~MR|MRS\n0028,0010\t1C\tRows\t?A00080060_IS_MR\n", 1,
       "t:6: error: A00080060_IS_MR also holds for MRS"},
      {"t", sound + "0008,0060\t3\tModality\n0028,0010\t1C\tRows\t?A00080060_IS_CT\n", 1,
       "t:6: error: no predicate of the name A00080060_IS_CT"},
      {"t", sound + "0028,0010\t1C\tRows\t?MULTIFRAME_IMAGE\n", 0, "0 errors, 0 warnings"},
      {"t", sound + "0028,0010\t1C\tRows\t!nothing tells\n", 0, "0 errors, 0 warnings"},
      {"t", sound + "0028,0010\t1C\tRows\n", 1, "t:5: error: a conditional type has a condition, or"},
      {"t", sound + "0028,0010\t1\tRows\t!nothing tells\n", 1, "t:5: error: why there is no condition"},
      {"t", sound + "0008,0008\t1\tImageType\t=A\t3~B\n", 0, "t:5: warning: value 2 has no list"},
      {"t", sound + "0028,0010\t1C\tRows\t?A00080060_IS_M*R\n", 1, "t:5: error: not the name of a condition"},
      {"t", sound + "0028,0010\t1C\tRows\t?A00090060_IS_MR\n", 1, "reads an unknown attribute 0009,0060"},
      {"t", sound + "0028,0010\t1C\tRows\t?A00080060_NOT_PRESENT\n", 1,
       "t:5: error: 0028,0010 has a condition on 0008,0060, which I does not hold"},
      {"t", sound + "message\tS\tC_FIND_RQ\n0008,0060\t1\tModality\n", 1,
       "t:6: error: a query demands 0008,0060"},
      {"t", sound + "message\tS\tC_FIND_RSP\n0008,0060\t2\tModality\n", 1,
       "t:6: error: a response demands 0008,0060"},
      {"t", sound + "module\tlost\n", 0, "t:5: warning: lost is reached from no message"},
      {"t", "message\tS\tC_STORE_RQ\n0008,1140\t3\tReferencedImageSequence\t>I\n", 1,
       "t:2: error: item I has no contents"},
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
    shop.write("c", conditions);
    shop.write("names", names);
    shop.write(row.file, row.text);
    const Outcome outcome = shop.run("check --services srv --dict dic --names names --conditions c t");
    EXPECT_EQ(outcome.exit, row.exit) << row.text << outcome.err;
    EXPECT_NE(outcome.err.find(row.reason), std::string::npos) << row.text << outcome.err;
  }
}

// A place for each kind, one of them in two classes; a type 1 of an optional module is no condition.
TEST(Report, ConditionsOfStorageClassesAreCounted) {
  const Workshop shop;
  shop.write("srv",
             "[SERVICE_TABLE]\nNUMBER_OF_SERVICES_SUPPORTED = 3\nS = 0001\nT = 0002\nD = 0003\n"
             "[0001]\nNAME = S\nUID = 1.2\nTYPE = BASE\nCOMMAND_1 = C_STORE_RQ\nCOMMAND_2 = C_FIND_RQ\n"
             "[0002]\nNAME = T\nUID = 1.3\nTYPE = BASE\nCOMMAND_1 = C_STORE_RQ\n"
             "[0003]\nNAME = D\nUID = 1.2.840.10008.1.3.10\nTYPE = BASE\nCOMMAND_1 = C_STORE_RQ\n"
             "[ITEM_TABLE]\nNUMBER_OF_ITEMS_SUPPORTED = 1\nI = 0001\n");
  shop.write("dic",
             "0008,0060\tCS\t1\tModality\tModality\n0008,1140\tSQ\t1\tReferencedImageSequence\tR\n"
             "0028,0002\tUS\t1\tSamplesPerPixel\tSamples\n0028,0008\tIS\t1\tNumberOfFrames\tNumber\n"
             "0028,0010\tUS\t1\tRows\tRows\n0028,0011\tUS\t1\tColumns\tColumns\n");
  shop.write("c",
             "x = R\"(A00280008_PRESENT: 00280008 present\nLOSSY_COMPRESSION_PERFORMED: own present\n"
             "MULTIFRAME_IMAGE\n)\";");
  shop.write(
      "t",
      "module\tm\n0028,0002\t1\tSamplesPerPixel\n"
      "message\tS\tC_STORE_RQ\nuse\tm\tU\n0008,0060\t1C\tModality\t?A00280008_PRESENT\n"
      "0008,1140\t3\tReferencedImageSequence\t>I\n0028,0008\t2C\tNumberOfFrames\t!nothing tells\n"
      "0028,0010\t1C\tRows\t?LOSSY_COMPRESSION_PERFORMED\n"
      "item\tI\n0008,1140\t3\tReferencedImageSequence\t>I\n0028,0011\t1C\tColumns\t?(00280010 present)\n"
      "message\tT\tC_STORE_RQ\n0008,1140\t3\tReferencedImageSequence\t>I\n"
      "message\tS\tC_FIND_RQ\n0028,0010\t1C\tRows\t?MULTIFRAME_IMAGE\n"
      "message\tD\tC_STORE_RQ\n0028,0010\t1C\tRows\t?MULTIFRAME_IMAGE\n");
  const struct {
    const char* list;
    const char* line;
  } rows[] = {{"classes",
               "once a class: 5 of type 1C or 2C, 3 judged (60.0 %), 1 with a reason why not (20.0 %), 1 "
               "open (20.0 %); 1 of optional modules\n"},
              {"classes", "\nT: 1 of type 1C or 2C, 1 judged (100.0 %), 0 with"},
              {"places", "\n1\treason\tt:7\t0028,0008\tNumberOfFrames\tnothing tells\n"},
              {"places", "\n1\topen\tt:8\t0028,0010\tRows\tLOSSY_COMPRESSION_PERFORMED\n"},
              {"places", "\n1\tlowered\tt:2\t"}};
  for (const auto& row : rows) {
    const Outcome outcome =
        shop.run(std::string("report --services srv --dict dic --conditions c --list ") + row.list + " t");
    EXPECT_NE(outcome.out.find(row.line), std::string::npos) << row.line << outcome.out << outcome.err;
  }
  EXPECT_EQ(shop.run("report --services srv --dict dic --list names t").exit, 2);
}

}  // namespace
