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
VEXAL_EMBED(vexal_condition_table, VEXAL_CONDITIONS);

namespace vexal {

std::string_view dictionary_table() {
  return {vexal_dictionary_table,
          static_cast<std::size_t>(vexal_dictionary_table_end - vexal_dictionary_table)};
}

std::string_view uid_table() {
  return {vexal_uid_table, static_cast<std::size_t>(vexal_uid_table_end - vexal_uid_table)};
}

std::string_view condition_table() {
  return {vexal_condition_table, static_cast<std::size_t>(vexal_condition_table_end - vexal_condition_table)};
}

}  // namespace vexal
