#include <gtest/gtest.h>

#include "tool.h"

namespace {

constexpr const char* kProfile =
    "[SERVICE_TABLE]\nNUMBER_OF_SERVICES_SUPPORTED = 1\nS = 0001\n"
    "[0001]\nNAME = S\nUID = 1.2\nTYPE = BASE\nCOMMAND_1 = C_STORE_RQ\nCOMMAND_2 = C_ECHO_RQ\n"
    "[ITEM_TABLE]\nNUMBER_OF_ITEMS_SUPPORTED = 2\nI = 0001\nJ = 0002\n";
constexpr const char* kDictionary =
    "0008,0008\tCS\t2-n\tImageType\tImage Type\n"
    "0008,0060\tCS\t1\tModality\tModality\n"
    "0008,1140\tSQ\t1\tReferencedImageSequence\tReferenced Image Sequence\n"
    "0028,0010\tUS\t1\tRows\tRows\n"
    "0028,1050\tDS\t1-n\tWindowCenter\tWindow Center\n"
    "7FE0,0001\tUN/OV\t1\tExtendedOffsetTable\tExtended Offset Table\n";

class Templates : public testing::Test {
 protected:
  void SetUp() override {
    shop.write("srv", kProfile);
    shop.write("dic", kDictionary);
  }
  Outcome run(const std::string& command, const std::string& text) {
    shop.write("t", text);
    return shop.run(command + " --services srv --dict dic t" + (command == "msg" ? " -o out" : ""));
  }
  // The message S C_STORE_RQ that a text comes to.
  std::string resolve(const std::string& text) {
    const Outcome outcome = run("msg", text);
    if (outcome.exit != 0) return outcome.err;
    const std::string all = shop.run("unmsg --services srv --dict dic out").out;
    const std::string head = "message\tS\tC_STORE_RQ\n";
    return all.rfind(head, 0) == 0 ? all.substr(head.size(), all.find("\n\n") + 1 - head.size()) : all;
  }
  Workshop shop;
};

TEST_F(Templates, ModulesAreMergedByTheRulesOfUsage) {
  const std::string message = "message\tS\tC_STORE_RQ\n";
  const std::string one = "module\ta\n0008,0060\t1\tModality\n0028,0010\t2\tRows\n";
  const std::string allowed = "\t?LOSSY_COMPRESSION_PERFORMED\n";  // may be missing or there, not null
  const struct {
    const char* what;
    std::string text, expected;
  } rows[] = {
      {"mandatory", one + message + "use\ta\tM\n", "0008,0060\t1\tModality\n0028,0010\t2\tRows\n"},
      {"up to the user", one + message + "use\ta\tU\n",
       "0008,0060\t1C\tModality" + allowed + "0028,0010\t2C\tRows" + allowed},
      {"conditional", one + message + "use\ta\tC\t?A00080008_IS_X\n",
       "0008,0060\t1C\tModality\t?A00080008_IS_X\n0028,0010\t2C\tRows\t?A00080008_IS_X\n"},
      {"conditional, not known when", one + message + "use\ta\tC\n",
       "0008,0060\t1C\tModality" + allowed + "0028,0010\t2C\tRows" + allowed},
      {"own condition in an optional module",
       "module\ta\n0008,0060\t1\tModality\n0028,0010\t1C\tRows\t?A00080060_IS_MR\n" + message + "use\ta\tU\n",
       "0008,0060\t1C\tModality" + allowed + "0028,0010\t1C\tRows\t?A00080060_IS_MR\n"},
      {"a condition that would hold without the module",
       "module\ta\n0008,0060\t1\tModality\n0028,0010\t1C\tRows\t?A00080060_NOT_PRESENT\n" + message +
           "use\ta\tU\n",
       "0008,0060\t1C\tModality" + allowed + "0028,0010\t1C\tRows" + allowed},
      {"the stricter type wins", one + message + "use\ta\tM\n0008,0060\t2\tModality\n0028,0010\t3\tRows\n",
       "0008,0060\t1\tModality\n0028,0010\t2\tRows\n"},
      {"a module that need not be there demands no values of what is there anyway",
       one + message + "0008,0060\t2\tModality\nuse\ta\tU\n0028,0010\t3\tRows\n",
       "0008,0060\t2\tModality\n0028,0010\t3\tRows\n"},
      {"2 is stricter than 1C",
       "module\ta\n0028,0010\t1C\tRows\n" + message + "use\ta\tM\n0028,0010\t2\tRows\n",
       "0028,0010\t2\tRows\n"},
      {"a condition must not forbid what another module allows",
       "module\ta\n0028,0010\t1C\tRows\t?A00080060_IS_MR\n" + message + "use\ta\tM\n0028,0010\t3\tRows\n",
       "0028,0010\t1C\tRows\t?A00080060_IS_MR\t+\n"},
      {"what holds without the condition, and a rule in place of a name",
       "define\tMR\t00080060 is MR\n" + message + "0028,0010\t1C\tRows\t?(@MR & 00080008 present)\t+\n",
       "0028,0010\t1C\tRows\t?(00080060 is MR & 00080008 present)\t+\n"},
      {"an optional module that is known to be there", one + message + "use\ta\tU\t?(00080060 present)\n",
       "0008,0060\t1C\tModality\t?(00080060 present)\t+\n0028,0010\t2C\tRows\t?(00080060 present)\t+\n"},
      {"a module that need not be there allows more values, not fewer",
       "module\ta\n0008,0060\t3\tModality\t=A|B\n" + message + "0008,0060\t3\tModality\t=C|A\nuse\ta\tU\n",
       "0008,0060\t3\tModality\t=C|A|B\n"},
      {"a condition that nothing tells", "module\ta\n0028,0010\t1C\tRows\n" + message + "use\ta\tM\n",
       "0028,0010\t1C\tRows" + allowed},
      {"a condition that both modules share",
       "module\ta\n0028,0010\t1C\tRows\t?A00080060_IS_MR\n" + message +
           "use\ta\tM\n0028,0010\t1C\tRows\t?A00080060_IS_MR\n",
       "0028,0010\t1C\tRows\t?A00080060_IS_MR\n"},
      {"overruled", one + "module\tb\n0008,0060\t3!\tModality\n" + message + "use\tb\tM\nuse\ta\tM\n",
       "0008,0060\t3\tModality\n0028,0010\t2\tRows\n"},
      {"later lists replace earlier ones of the same value",
       "module\ta\n0008,0008\t1\tImageType\t=A|B\t2=C\n" + message +
           "use\ta\tM\n0008,0008\t1\tImageType\t2=D\t3~E\n",
       "0008,0008\t1\tImageType\t=A|B\t2=D\t3~E\n"},
      {"the more specialised item comes first",
       "module\ta\n0008,1140\t3\tReferencedImageSequence\t>I\n" + message +
           "use\ta\tM\n0008,1140\t3\tReferencedImageSequence\t>J\nitem\tI\nitem\tJ\n",
       "0008,1140\t3\tReferencedImageSequence\t>J|I\n"},
      {"values with the separator in them", message + "0008,0060\t3\tModality\t=A\\|B|C\\\\D\n",
       "0008,0060\t3\tModality\t=A\\|B|C\\\\D\n"},
      {"macros within macros",
       "macro\tx\ninclude\ty\nmacro\ty\n0028,0010\t2\tRows\n" + message + "include\tx\n",
       "0028,0010\t2\tRows\n"},
      {"lines of a site's own",
       one + message + "use\ta\tM\nextend\ta\n0028,0010\t3!\tRows\n" +
           "extend\tS\tC_STORE_RQ\n0029,1010\t1\t-\t:LO\t@ACME\n",
       "0008,0060\t1\tModality\n0028,0010\t3\tRows\n0029,1010\t1\t-\t:LO\t@ACME\n"},
      {"VR, creator and default of an attribute that the dictionary lacks",
       message + "0029,1010\t3\t-\t:LO\t@ACME\t*<null>\n", "0029,1010\t3\t-\t:LO\t@ACME\t*<null>\n"},
  };
  for (const auto& row : rows) EXPECT_EQ(resolve(row.text), row.expected) << row.what;
}

TEST_F(Templates, FaultsNameTheirLine) {
  const struct {
    const char* line;
    const char* reason;
  } rows[] = {
      {"0008,0060\t4\tModality", "type is 1, 1C, 2, 2C or 3"},
      {"0008,006\t1\tModality", "neither a tag nor a known word"},
      {"0008,0060\t1", "wants tag, type and keyword"},
      {"0008,0060\t1\tModality\t?A00080008_IS_X", "only types 1C and 2C"},
      {"0008,0060\t1C\tModality\t?X\t?Y", "a second condition"},
      {"0008,0060\t1C\tModality\t+", "+ without a condition"},
      {"0008,0060\t1C\tModality\t?(@X & @Y)", "@X is not defined"},
      {"define\tX", "define wants a name and a rule"},
      {"0008,0060\t1\tModality\tCT", "option not understood: CT"},
      {"0008,0060\t1\tModality\t", "an empty column"},
      {"0008,0060\t1\tModality\t=", "option without a text"},
      {"0008,0060\t1\tModality\t:UN", "VR not possible"},
      {"0008,0060\t1\tModality\t>I", "is no sequence"},
      {"0028,0010\t1\tRows", "stands already in line 2"},
      {"0008,1140\t1\tReferencedImageSequence\t>K", "no item of the name K"},
      {"0028,0011\t1\tColumns", "is not in the dictionary"},
      {"0028,1050\t3\tWindowCenter\t=x\ninclude\tnothing", "no block of the name nothing"},
      {"include", "wants the name of a block"},
      {"extend\tnothing", "no block of the name nothing"},
      {"extend\tS\tC_ECHO_RQ", "no block of the name S"},
      {"use\ta\tX", "usage is M, C or U"},
      {"message\tT\tC_STORE_RQ", "no service of the name T"},
      {"message\tS\tC_STORE_RQ", "has contents already"},
      {"message\tS\tC_FIND_RQ", "has no command C_FIND_RQ"},
      {"message\tS\tC_FOO_RQ", "unknown command C_FOO_RQ"},
      {"item\tK", "no item of the name K"},
      {"macro\tloop\ninclude\tloop\nmessage\tS\tC_ECHO_RQ\ninclude\tloop", "loop contains itself"},
      {"0028,0010\t1\tRows\t=70000", "is no value of VR US"},
      {"7FE0,0001\t1\tExtendedOffsetTable\t=1", "is no value of VR UN"},
  };
  for (const auto& row : rows) {
    const bool rows_again = std::string(row.line).rfind("0028,0010\t1\tRows\t", 0) == 0;
    const std::string first = rows_again ? "0008,0060\t3\tModality\n" : "0028,0010\t1\tRows\n";
    const Outcome outcome = run("msg", "message\tS\tC_STORE_RQ\n" + first + row.line + "\n");
    EXPECT_EQ(outcome.exit, 1) << row.line;
    EXPECT_EQ(outcome.err.rfind("t:", 0), 0u) << outcome.err;
    EXPECT_GE(outcome.err[2], '3') << outcome.err;
    EXPECT_NE(outcome.err.find(row.reason), std::string::npos) << row.line << "\n" << outcome.err;
    EXPECT_FALSE(shop.has("out"));
  }
}

TEST_F(Templates, UsageFaultsAreNotFaultsOfTheData) {
  shop.write("t", "message\tS\tC_STORE_RQ\n");
  for (const char* arguments :
       {"", "frobnicate", "msg t", "msg --services srv --dict dic t", "msg --services srv --dict dic t -o",
        "msg --services srv --dict dic --what x t -o out", "msg --services none --dict dic t -o out",
        "msg --services srv --dict dic none -o out", "msg --services srv --dict dic t -o no/such/folder",
        "unmsg --services srv --dict dic t", "undict"}) {
    const Outcome outcome = shop.run(arguments);
    EXPECT_EQ(outcome.exit, 2) << arguments;
    EXPECT_EQ(outcome.err.rfind("vxdata", 0), 0u) << outcome.err;
  }
  EXPECT_EQ(shop.run("--help").exit, 0);
}

}  // namespace
