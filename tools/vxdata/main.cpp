// vxdata: turns the text tables of this project into the binary files that the library reads.

#include <cstdio>
#include <exception>
#include <string_view>

#include "commands.h"
#include "text.h"

namespace {

constexpr const char* kHelp = R"(usage: vxdata COMMAND ...

  dict TABLE... -o FILE        compile text tables to a binary data dictionary
  undict FILE [-o TABLE]       write a binary dictionary as a text table
  msg --services PROFILE --dict TABLE[,TABLE] TEMPLATES... -o FILE
                               compile templates to a Message Info File
  unmsg --services PROFILE --dict TABLE FILE [-o TEMPLATES]
                               write a Message Info File as templates, all references resolved
  check --services PROFILE --dict TABLE[,TABLE] [--names FILE] [--conditions FILE] TEMPLATES...
                               prove the tables against each other; --names is the source of the
                               exported tables, --conditions the source of the predicate table
  report --services PROFILE --dict TABLE[,TABLE] [--conditions FILE[,FILE]] [--list classes|places]
         TEMPLATES...          count what the templates hold and list what they lack; with --conditions also
                               how many conditions of storage classes are judged: --list shows each class, or
                               each place without a predicate and in how many classes it stands
  embed --dict TABLE[,TABLE] --pro FILE --srv FILE --app FILE [--ini FILE] -o FILE
                               write the dictionary and the profiles as C++ source with the functions
                               vexal_embedded_config and vexal_embedded_dictionary
  confidentiality --safe-private TABLE --uids TABLE TABLE -o FILE
                               write what identifies a patient, what becomes of it and what does not
                               identify as C++ source
  keywords TABLE...            list attributes whose keyword in the table differs from the one
                               that the library derives from the name

Faults go to standard error as file:line: error: reason. Output files appear whole or not at all.
Exit code: 0 done, 1 faults in the data, 2 wrong usage or a file that can't be used.
)";

struct Command {
  std::string_view name;
  int (*run)(int, char**);
};

// clang-format off
constexpr Command kCommands[] = {
    {"dict", vxdata::run_dict},
    {"undict", vxdata::run_undict},
    {"msg", vxdata::run_msg},
    {"unmsg", vxdata::run_unmsg},
    {"check", vxdata::run_check},
    {"report", vxdata::run_report},
    {"embed", vxdata::run_embed},
    {"keywords", vxdata::run_keywords},
    {"confidentiality", vxdata::run_confidentiality},
};
// clang-format on

}  // namespace

int main(int argc, char** argv) {
  const std::string_view word = argc > 1 ? argv[1] : "";
  if (word == "--help" || word == "-h" || word == "help") {
    std::fputs(kHelp, stdout);
    return 0;
  }
  try {
    for (const Command& command : kCommands) {
      if (command.name == word) return command.run(argc - 2, argv + 2);
    }
    std::fprintf(stderr, "vxdata: %s; see vxdata --help\n",
                 word.empty() ? "a command is missing" : "unknown command");
  } catch (const vxdata::WrongUsage& fault) {
    std::fprintf(stderr, "vxdata %s: %s; see vxdata --help\n", argv[1], fault.text.c_str());
  } catch (const vxdata::Unusable& fault) {
    std::fprintf(stderr, "vxdata: %s\n", fault.text.c_str());
  } catch (const std::exception& fault) {
    std::fprintf(stderr, "vxdata: %s\n", fault.what());
  }
  return 2;
}
