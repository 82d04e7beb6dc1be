// vexal receive: a storage server that writes what it gets into a folder.
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <map>

#include "acceptor.h"
#include "base/commands.h"
#include "base/session.h"
#include "base/tags.h"
#include "images/bounded_file.h"
#include "images/recode.h"
#include "network/network.h"
#include "request.h"
#include "storage.h"

extern char** environ;

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--dir", "DIR", "folder for the files (default: this one)"},
    {"--tree", nullptr, "folders by study and series below it"},
    {"--to", "SYNTAX",
     "store in this transfer syntax, where an object can be turned into it without "
     "loss: " VEXAL_SYNTAX_NAMES},
    {"--prefer-compressed", nullptr, "choose a compressed transfer syntax where the peer offers one"},
    {"--any", nullptr,
     "take also what this release does not know: private and later storage classes, in whatever transfer "
     "syntax is offered"},
    {"--on-object", "COMMAND",
     "run by the shell for each object, with VEXAL_FILE, VEXAL_INSTANCE, VEXAL_CALLER set"},
    {"--on-study", "COMMAND",
     "run for each study when its association ends, with VEXAL_STUDY, VEXAL_DIR set; needs --tree"},
    {"--deidentify", nullptr,
     "store without what identifies the patient, or refuse; the options that follow tell how"},
    VEXAL_DEIDENTIFY_OPTIONS,
    VEXAL_STORAGE_OPTIONS,
    VEXAL_ACCEPTOR_OPTIONS,
    VEXAL_SERVICE_OPTIONS,
};

// Requests that a peer may send ahead of the answers, which come in their order.
constexpr uint16_t kWindow = 64;

// Runs a command by the shell and waits for it.
void run_command(const std::string& command, const std::vector<std::string>& settings) {
  std::vector<std::string> texts = settings;
  for (char** entry = environ; *entry != nullptr; ++entry) texts.emplace_back(*entry);
  std::vector<char*> environment;
  for (std::string& text : texts) environment.push_back(text.data());
  environment.push_back(nullptr);
  std::string shell = "sh";
  std::string option = "-c";
  std::string line = command;
  char* words[] = {shell.data(), option.data(), line.data(), nullptr};
  pid_t child = 0;
  if (::posix_spawn(&child, "/bin/sh", nullptr, nullptr, words, environment.data()) != 0) {
    complain("can not run: %s", command.c_str());
    return;
  }
  int result = 0;
  while (::waitpid(child, &result, 0) < 0 && errno == EINTR) {
  }
  if (result != 0)
    complain("exit status %d from: %s", WIFEXITED(result) ? WEXITSTATUS(result) : -1, command.c_str());
}

class Receiver {
 public:
  Receiver(const Acceptor& acceptor, const StorageOptions& storage, std::string on_object,
           std::string on_study)
      : acceptor_(acceptor),
        storage_(storage),
        on_object_(std::move(on_object)),
        on_study_(std::move(on_study)) {}

  void serve(int32_t association, const Caller& caller) const {
    ObjectWriter writer(storage_, caller.calling_title, caller.address);
    std::map<std::string, std::string> studies;  // to their folders
    acceptor_.serve_messages(association, [&](int32_t id, int32_t message, const char* service,
                                              uint16_t command) {
      const std::string name = service;
      uint32_t request = 0;
      VX_Get_Value_To_UInt(message, tags::kMessageID, &request);
      if (command != C_STORE_RQ || (caller.rights & kMayStore) == 0) {
        Message owner;
        owner.id = message;
        if (!drop_rest(id, owner.id)) return false;
        // A cancel has no answer, and anything else was not negotiated.
        return command == C_STORE_RQ ? send_response(id, name.c_str(), C_STORE_RSP, request, kNotAuthorized)
                                     : command == C_CANCEL_RQ;
      }
      StoredObject stored;
      const int32_t answer = writer.take(id, message, stored);
      if (answer < 0 || !send_response(id, name.c_str(), C_STORE_RSP, request, static_cast<uint16_t>(answer)))
        return false;
      if (!stored.path.empty()) tell(stored, caller, studies);
      return true;
    });
    for (const auto& [study, folder] : studies)
      run_command(on_study_, {"VEXAL_STUDY=" + study, "VEXAL_DIR=" + folder});
  }

 private:
  void tell(const StoredObject& stored, const Caller& caller,
            std::map<std::string, std::string>& studies) const {
    if (!on_object_.empty()) {
      run_command(on_object_, {"VEXAL_FILE=" + stored.path, "VEXAL_INSTANCE=" + stored.instance,
                               "VEXAL_CALLER=" + caller.calling_title});
    }
    if (!on_study_.empty()) studies.emplace(stored.study, storage_.folder + "/" + stored.study);
  }

  const Acceptor& acceptor_;
  const StorageOptions& storage_;
  std::string on_object_;
  std::string on_study_;
};

int run(const Args& args) {
  Acceptor acceptor;
  if (!acceptor.read(args)) return kUsage;
  StorageOptions storage;
  if (!storage.read(args, true)) return kUsage;
  storage.tell(acceptor.audit(), acceptor.title());
  if (args.has("--to")) {
    // JPEG takes what JPEG XL has of it; that its streams may hold comments keeps it from who de-identifies.
    const bool good =
        find_syntax(args.get("--to"), storage.syntax) &&
        (!is_lossy(storage.syntax) ||
         (keeps_jpeg_streams(JPEG_XL_RECOMPRESSION, storage.syntax) && !args.has("--deidentify")));
    if (!good) {
      complain("--to %s: give a transfer syntax that loses nothing; --help lists the names",
               args.get("--to").c_str());
      return kUsage;
    }
  }
  std::unique_ptr<Deidentifier> deidentifier;
  if (!Deidentifier::read_if_asked(args, deidentifier)) return kUsage;
  storage.deidentifier = deidentifier.get();
  if (storage.syntax != 0 || deidentifier != nullptr) prepare_bounded_files();
  if (args.has("--on-study") && !storage.tree) {
    complain("--on-study needs --tree");
    return kUsage;
  }
  ServiceListName list;
  std::vector<std::string> unknown;
  std::vector<Proposal> services = storage_services(args.has("--prefer-compressed"));
  services.push_back(verification_service());
  if (!list.make(services, kWindow, unknown)) {
    complain("the storage services can not be offered");
    return kUsage;
  }
  if (args.has("--any")) VX_Accept_Unknown_Contexts(1);
  acceptor.warn_if_open("store");
  const Receiver receiver(acceptor, storage, args.get("--on-object"), args.get("--on-study"));
  return acceptor.run(
      list.name(), [&](int32_t association, const Caller& caller) { receiver.serve(association, caller); });
}

}  // namespace

const Command kReceive = {
    "receive",
    "PORT [OPTION...]",
    "take objects from the network into a folder (storage SCP)",
    "Each object is written under a temporary name as it arrives, whatever its size, and gets its\n"
    "own name, SOPInstanceUID.dcm, when it is complete; only then is it acknowledged. The data set\n"
    "is kept byte for byte, or converted with --to; what can not be converted stays as it came.\n"
    "An object that is there with other content is refused, unless --duplicates says otherwise.\n"
    "INT and TERM end the program after the messages under way. docs/operating.md tells all limits.",
    kOptions,
    run};

}  // namespace vexal
