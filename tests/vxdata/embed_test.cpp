#include <gtest/gtest.h>

#include "tool.h"

namespace {

// Compiles what embed wrote and lets the records speak for themselves.
TEST(Embed, TheSourceBuildsAndHoldsTheTables) {
  if (std::system("c++ --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "no compiler at hand";
  const Workshop shop;
  shop.write("dic",
             "0008,0016\tUI\t1\tSOPClassUID\tSOP Class UID\n"
             "0010,0010\tPN\t1\tPatientName\tPatient's \"Name\" \\\n"
             "0010,0362\tLO\t1-n\tX\tSame chain as the one before\n");
  shop.write("pri", "@ ACME\n0009,xx01\tUS\t2-n\tSpeed\n");
  const Outcome made =
      shop.run("embed --dict dic,pri --ini " + kData + "vexal.ini --pro " + kData + "vexalkit.pro --srv " +
               kData + "vexalkit.srv --app " + kData + "vexalkit.app -o embedded.cpp");
  ASSERT_EQ(made.exit, 0) << made.err;
  shop.write("main.cpp", R"(#include <cstdio>
#include <initializer_list>
#include "vexalkit.h"
extern "C" ConfigRecord* vexal_embedded_config();
extern "C" const DictionaryRecord* vexal_embedded_dictionary();
int main() {
  ConfigRecord* c = vexal_embedded_config();
  c->int_values[VX_CFG_ARTIM_TIMEOUT] = 7;
  c = vexal_embedded_config();
  std::printf("%s|%d %d %d %u %u|%s|%s|%s\n", c->version, c->int_values[VX_CFG_ARTIM_TIMEOUT],
              c->int_values[VX_CFG_DEFLATE_COMPRESSION_LEVEL], c->long_values[VX_CFG_PDU_MAXIMUM_LENGTH],
              c->bool_values[VX_CFG_AUTO_ECHO_SUPPORT], c->log_destinations[VX_CFG_T6_MESSAGE],
              c->string_values[VX_CFG_DICTIONARY_FILE], c->string_values[VX_CFG_INITIATOR_NAME],
              c->string_values[VX_CFG_DECODER_TAG_FILTER]);
  for (int i = 0; i < c->service_count; ++i) {
    if (c->service_numbers[i] == 1 || c->sop_class_counts[i] == 4) {
      std::printf("%s %s %X %d %d;", c->service_names[i], c->service_uids[i], c->service_commands[i],
                  c->service_kinds[i], c->sop_classes[i] == nullptr ? 0 : c->sop_classes[i][3]);
    }
  }
  std::printf("\n%d %s %d\n", c->item_count, c->item_names[0], c->item_numbers[c->item_count - 1]);
  int texts = 0;
  while (c->applications[texts] != nullptr) ++texts;
  std::printf("%s %s %s %d\n", c->applications[0], c->applications[1], c->applications[2], texts > 100);
  const DictionaryRecord* d = vexal_embedded_dictionary();
  for (const unsigned tag : {0x00100010u, 0x00090001u}) {
    for (const DictEntry* e = d->chains[tag % VX_DICTIONARY_CHAINS]; e != nullptr; e = e->Next) {
      std::printf("%08X %d %d %d %s %s;", e->Tag, e->VR, e->VMLow, e->VMHigh, e->Name,
                  e->PrivateCode == nullptr ? "-" : e->PrivateCode);
    }
  }
  return d == vexal_embedded_dictionary() ? 0 : 1;
}
)");
  const std::string built =
      "cd '" + shop.folder() +
      "' && c++ -std=c++20 -Wall -Wextra -Wconversion -Wshadow -Werror -I" VEXAL_SOURCE_DIR
      "/include -DVEXAL_SHARE_DIR='\"/opt/x\"' main.cpp embedded.cpp -o probe && ./probe >said";
  ASSERT_EQ(std::system(built.c_str()), 0);
  // Items take the numbers from 1 on, so the last one is their count.
  const std::string profile = read_file(kData + "vexalkit.srv"), key = "NUMBER_OF_ITEMS_SUPPORTED = ";
  const size_t at = profile.find(key) + key.size();
  const std::string count = profile.substr(at, profile.find('\n', at) - at);
  EXPECT_EQ(shop.read("said"),
            "VexalKit, Version 5.3.0|30 -1 64234 1 16|/opt/x/vexalkit.dct||\n"
            "ACQUISITION_CONTEXT_SR 1.2.840.10008.5.1.4.1.1.88.71 3 30 0;"
            "BASIC_GRAYSCALE_PRINT_MANAGEMENT 1.2.840.10008.5.1.1.9 0 20 100;"
            "BASIC_COLOR_PRINT_MANAGEMENT 1.2.840.10008.5.1.1.18 0 20 100;"
            "REFERENCED_GRAYSCALE_PRINT_MANAGEMENT 1.2.840.10008.5.1.1.9.1 0 20 100;"
            "REFERENCED_COLOR_PRINT_MANAGEMENT 1.2.840.10008.5.1.1.18.1 0 20 100;\n" +
                count + " _2D_DEGREE_OF_FREEDOM " + count +
                "\n"
                "[VEXAL_SCP] PORT_NUMBER 11112 1\n"
                "00100362 7 1 255 Same chain as the one before -;00100010 9 1 1 Patient's \"Name\" \\ -;"
                "00090001 18 2 255 Speed ACME;");
}

}  // namespace
