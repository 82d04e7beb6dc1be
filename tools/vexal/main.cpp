// The program vexal: one subcommand a task, all on the public interface of the library.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <string>

#include "base/args.h"
#include "base/parallel.h"
#include "base/session.h"
#include "vexalkit.h"

namespace vexal {
namespace {

void print_options(std::span<const Option> options) {
  for (const Option& option : options) {
    const std::string left =
        std::string(option.name) + (option.value != nullptr ? " " + std::string(option.value) : "");
    std::printf("  %-26s %s\n", left.c_str(), option.help);
  }
}

void print_command_help(const Command& command) {
  std::printf("usage: vexal %s %s\n\n%s\n", command.name, command.arguments, command.summary);
  if (*command.details != '\0') std::printf("\n%s\n", command.details);
  std::printf("\nOptions:\n");
  print_options(command.options);
  print_options(common_options());
}

void print_help() {
  std::printf("usage: vexal COMMAND [OPTION...] [ARGUMENT...]\n\nCommands:\n");
  for (const Command& command : commands()) std::printf("  %-10s %s\n", command.name, command.summary);
  std::printf(
      "\nvexal COMMAND --help tells more. Exit status: 0 success, 1 findings, 2 usage or input error, 3 "
      "network.\n");
}

int run_command(const Command& command, std::span<char* const> words) {
  for (const char* word : words) {
    if (std::strcmp(word, "--") == 0) break;
    if (std::strcmp(word, "--help") == 0) {
      print_command_help(command);
      return kSuccess;
    }
  }
  Args args;
  if (!args.parse(command.options, words) || !args.add_sources(command)) return kUsage;
  Session session;
  if (!session.start(args)) return kUsage;
  return command.run(args);
}

// Of what nothing has caught, where no exception may leave: a line, and no sign of a crash.
[[noreturn]] void end_at_once() {
  const char* words = "an internal fault";
  try {
    if (const std::exception_ptr thrown = std::current_exception()) std::rethrow_exception(thrown);
  } catch (const std::bad_alloc&) {
    words = kNoMemory;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vexal: %s\n", error.what());
  }
  std::fprintf(stderr, "vexal: %s\n", words);
  std::_Exit(kUsage);
}

}  // namespace

}  // namespace vexal

int main(int argc, char** argv) {
  using namespace vexal;
  std::set_terminate(end_at_once);
  std::signal(SIGXFSZ, SIG_IGN);  // a file that may not grow is a failed write, not the end
  try {
    if (argc < 2) {
      print_help();
      return kUsage;
    }
    const std::string name = argv[1];
    if (name == "--help" || name == "help" || name == "-h") {
      print_help();
      return kSuccess;
    }
    if (name == "--version") {
      std::printf("vexal %s\n", VX_VERSION_STRING);
      return kSuccess;
    }
    for (const Command& command : commands()) {
      if (name == command.name) return run_command(command, std::span<char* const>(argv + 2, argv + argc));
    }
    complain("unknown command %s; vexal --help lists the commands", name.c_str());
  } catch (const std::exception&) {
    complain("%s", words_of(std::current_exception()).c_str());
  }
  return kUsage;
}
