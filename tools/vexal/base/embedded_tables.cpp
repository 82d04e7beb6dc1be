// The text tables of data/ inside the program, put there by the assembler.
#include "embedded.h"

#define VEXAL_EMBED(symbol, path)         \
  __asm__(                                \
      ".pushsection .rodata\n"            \
      ".global " #symbol "\n" #symbol     \
      ":\n"                               \
      ".incbin \"" path                   \
      "\"\n"                              \
      ".global " #symbol "_end\n" #symbol \
      "_end:\n"                           \
      ".byte 0\n"                         \
      ".popsection\n");                   \
  extern "C" const char symbol[];         \
  extern "C" const char symbol##_end[]

VEXAL_EMBED(vexal_dictionary_table, VEXAL_DATA_DIR "/dictionary.tsv");
VEXAL_EMBED(vexal_uid_table, VEXAL_DATA_DIR "/uids.tsv");
VEXAL_EMBED(vexal_report_templates_table, VEXAL_DATA_DIR "/reports/templates.tsv");
VEXAL_EMBED(vexal_report_groups_table, VEXAL_DATA_DIR "/reports/groups.tsv");
VEXAL_EMBED(vexal_report_codes_table, VEXAL_DATA_DIR "/reports/codes.tsv");

namespace vexal {

#define VEXAL_TABLE(name)                                                               \
  std::string_view name##_table() {                                                     \
    return {vexal_##name##_table,                                                       \
            static_cast<std::size_t>(vexal_##name##_table_end - vexal_##name##_table)}; \
  }
VEXAL_TABLE(dictionary)
VEXAL_TABLE(uid)
VEXAL_TABLE(report_templates)
VEXAL_TABLE(report_groups)
VEXAL_TABLE(report_codes)
#undef VEXAL_TABLE

}  // namespace vexal
