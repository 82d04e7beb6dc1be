// embed: the default configuration and the dictionary as C++ source, for a program that must run without
// files.
//
// The source holds plain tables without pointers and links them into records at the first call: a program
// that finds its files pays nothing for them, not even relocations.

#include <unordered_map>

#include "bytes.h"
#include "commands.h"
#include "dictionary.h"
#include "profile.h"

namespace vxdata {
namespace {

std::string quoted(std::string_view text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') result += '\\';
    result += c;
  }
  return result += '"';
}

// Texts in one array, each stored once and ended by a NUL.
class TextPool {
 public:
  size_t place(const std::string& text) {
    const auto [at, fresh] = places_.emplace(text, size_);
    if (fresh) {
      // A line for each text: compilers limit the length of a literal, not of their concatenation.
      lines_ += "    " + quoted(text) + " \"\\0\"\n";
      size_ += text.size() + 1;
    }
    return at->second;
  }
  std::string source(const std::string& name) const {
    return "constexpr char " + name + "[] =\n" + (lines_.empty() ? "    \"\"\n" : lines_) + "    ;\n\n";
  }

 private:
  std::unordered_map<std::string, size_t> places_;
  std::string lines_;
  size_t size_ = 0;
};

std::string dictionary_source(const Dictionary& dictionary) {
  TextPool names;
  TextPool creators;
  std::string rows;
  creators.place("");
  for (const auto& entry : dictionary.entries()) {
    rows += format("    {0x%08X, %zu, %zu, %d, %d, %d},\n", entry.tag, names.place(entry.name),
                   creators.place(entry.creator), entry.vr, entry.vm.low, entry.vm.high);
  }
  return names.source("kNames") + creators.source("kCreators") +
         "struct Row {\n"
         "  uint32_t tag;\n"
         "  uint32_t name;\n"
         "  uint16_t creator;\n"
         "  uint8_t vr, low, high;\n"
         "};\n\n"
         "constexpr Row kRows[] = {\n" +
         rows +
         "};\n\n"
         "// All entries in one go: touching them page by page would cost more than filling them in.\n"
         "DictEntry* make_entries() {\n"
         "  const std::size_t size = std::size(kRows) * sizeof(DictEntry);\n"
         "  void* memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | "
         "MAP_POPULATE, -1, 0);\n"
         "  return memory == MAP_FAILED ? new DictEntry[std::size(kRows)] : "
         "static_cast<DictEntry*>(memory);\n"
         "}\n\n"
         "const DictEntry* chains[VX_DICTIONARY_CHAINS];\n"
         "DictionaryRecord dictionary;\n\n"
         "void link_dictionary() {\n"
         "  DictEntry* entry = make_entries();\n"
         "  for (const Row& row : kRows) {\n"
         "    const DictEntry*& head = chains[row.tag % VX_DICTIONARY_CHAINS];\n"
         "    *entry = {head, row.tag, row.vr, row.low, row.high, kNames + row.name,\n"
         "              row.creator == 0 ? nullptr : kCreators + row.creator};\n"
         "    head = entry++;\n"
         "  }\n"
         "  dictionary = {VX_BUILD_VERSION, chains};\n"
         "}\n\n";
}

// Settings are stored through the overload for the kind of their key, so that the compiler knows the keys and
// refuses a profile that names one that does not exist.
constexpr const char* kSetters = R"(using IntKey = decltype(VX_CFG_ARTIM_TIMEOUT);
using LongKey = decltype(VX_CFG_CALLBACK_MIN_DATA_SIZE);
using BoolKey = decltype(VX_CFG_ACCEPT_ANY_APPLICATION_TITLE);
using StringKey = decltype(VX_CFG_DICTIONARY_FILE);
using LogKey = decltype(VX_CFG_ERROR_MESSAGE);

constexpr int32_t number(std::string_view text) {
  const bool minus = text[0] == '-';
  int32_t value = 0;
  for (const char c : text.substr(minus ? 1 : 0)) value = value * 10 + (c - '0');
  return minus ? -value : value;
}
constexpr uint32_t destination(std::string_view text) {
  constexpr struct {
    std::string_view word;
    uint32_t bit;
  } kWords[] = {{"FILE", VX_LOG_TO_FILE}, {"MEMORY", VX_LOG_TO_MEMORY}, {"SCREEN", VX_LOG_TO_SCREEN}, {"OFF", VX_LOG_OFF}};
  uint32_t bits = 0;
  for (const auto& [word, bit] : kWords) {
    if (text.find(word) != text.npos) bits |= bit;
  }
  return bits;
}
void put(IntKey key, const char* text) { config.int_values[key] = number(text); }
void put(LongKey key, const char* text) { config.long_values[key] = number(text); }
void put(BoolKey key, const char* text) { config.bool_values[key] = text[0] == 'Y' ? 1U : 0U; }
void put(StringKey key, const char* text) { config.string_values[key] = text; }
void put(LogKey key, const char* text) { config.log_destinations[key] = destination(text); }

)";

// A path of the default profiles starts in the folder of vexal.ini; here that is a macro of the compilation.
std::string value_source(const std::string& value) {
  constexpr std::string_view kFolder = "$(VX3INIDIR)";
  if (value == "<none>") return "\"\"";
  if (value.rfind(kFolder, 0) == 0) return "VEXAL_SHARE_DIR " + quoted(value.substr(kFolder.size()));
  return quoted(value);
}

std::string settings_source(const std::vector<std::string>& paths) {
  std::string text =
      "void set_values() {\n"
      "  for (const char*& value : config.string_values) value = \"\";\n"
      "  for (uint32_t& value : config.log_destinations) value = VX_LOG_OFF;\n";
  for (const auto& path : paths) {
    for (const ProfileEntry& entry : read_profile(path)) {
      text += "  put(VX_CFG_" + entry.key + ", " + value_source(entry.value) + ");\n";
    }
  }
  return text + "}\n\n";
}

template <class List, class Text>
std::string table(const char* head, const List& list, Text&& text) {
  std::string source = std::string(head) + "[] = {\n";
  for (const auto& one : list) source += "    " + text(one) + ",\n";
  return source + "};\n";
}

std::string services_source(const Profile& profile) {
  const auto& services = profile.services();
  std::string members;
  for (const Service& service : services) {
    if (service.members.empty()) continue;
    members += format("constexpr int32_t kMembers%d[] = {", service.number);
    for (const int member : service.members) members += std::to_string(member) + ", ";
    members += "};\n";
  }
  return members +
         table("const char* const kServiceNames", services, [](const Service& s) { return quoted(s.name); }) +
         table("const char* const kServiceUids", services, [](const Service& s) { return quoted(s.uid); }) +
         table("constexpr uint32_t kServiceCommands", services,
               [](const Service& s) {
                 uint32_t bits = 0;
                 for (const uint16_t command : s.commands) bits |= command_bit(command);
                 return format("0x%X", bits);
               }) +
         table("constexpr int32_t kServiceNumbers", services,
               [](const Service& s) { return std::to_string(s.number); }) +
         table("constexpr int32_t kServiceKinds", services,
               [](const Service& s) { return std::string(s.meta ? "20" : "30"); }) +
         table(
             "constexpr int32_t kMemberCounts", services,
             [](const Service& s) { return s.meta ? std::to_string(s.members.size()) : std::string("1"); }) +
         table("const int32_t* const kMembers", services,
               [](const Service& s) {
                 return s.members.empty() ? std::string("nullptr") : format("kMembers%d", s.number);
               }) +
         table("const char* const kItemNames", profile.items(),
               [](const Item& i) { return quoted(i.name); }) +
         table("constexpr int32_t kItemNumbers", profile.items(),
               [](const Item& i) { return std::to_string(i.number); }) +
         "\n";
}

// Section marks, keys and values in a row; of a transfer syntax in a list only the name.
std::string applications_source(const std::string& path) {
  std::vector<std::string> texts;
  std::string section;
  for (const ProfileEntry& entry : read_profile(path)) {
    if (entry.section != section) texts.push_back("[" + (section = entry.section) + "]");
    const bool syntax = entry.key.rfind("SYNTAX_", 0) == 0 && entry.key.rfind("SYNTAX_LIST_", 0) != 0;
    if (!syntax) texts.push_back(entry.key);
    texts.push_back(entry.value);
  }
  return table("const char* const kApplicationTable", texts, [](const std::string& t) { return quoted(t); }) +
         "\n";
}

constexpr const char* kHead = R"(// Made from the tables under data/ by vxdata embed; not for editing.

#include <sys/mman.h>

#include <cstddef>
#include <iterator>
#include <string_view>

#include "vexalkit.h"

#ifndef VEXAL_SHARE_DIR
#define VEXAL_SHARE_DIR "."
#endif

namespace {

)";

constexpr const char* kTail = R"(void set_tables() {
  config.version = VX_BUILD_VERSION;
  config.service_count = static_cast<int32_t>(std::size(kServiceNames));
  config.service_names = kServiceNames;
  config.service_uids = kServiceUids;
  config.service_commands = kServiceCommands;
  config.service_numbers = kServiceNumbers;
  config.service_kinds = kServiceKinds;
  config.sop_class_counts = kMemberCounts;
  config.sop_classes = kMembers;
  config.item_count = static_cast<int32_t>(std::size(kItemNames));
  config.item_names = kItemNames;
  config.item_numbers = kItemNumbers;
  config.applications = kApplicationTable;
  config.accepted_titles = nullptr;
}

}  // namespace

// A reset of the library asks again, and wants the defaults again.
extern "C" ConfigRecord* vexal_embedded_config() {
  config = ConfigRecord{};
  set_values();
  set_tables();
  return &config;
}

extern "C" const DictionaryRecord* vexal_embedded_dictionary() {
  static const bool linked = (link_dictionary(), true);
  return linked ? &dictionary : nullptr;
}
)";

}  // namespace

int run_embed(int argc, char** argv) {
  const Arguments arguments(argc, argv, {"--dict", "--ini", "--pro", "--srv", "--app", "-o"});
  const std::string output = arguments.required("-o");
  Problems problems;
  Dictionary dictionary;
  for (const auto& path : split(arguments.required("--dict"), ',')) dictionary.read_text(path, problems);
  dictionary.sort(problems);
  Profile profile;
  profile.read(arguments.required("--srv"), problems);
  if (problems.errors() != 0) return 1;
  std::vector<std::string> settings = {arguments.required("--pro")};
  if (const std::string ini = arguments.option("--ini"); !ini.empty()) settings.push_back(ini);
  std::string applications = applications_source(arguments.required("--app"));
  // The table of applications ends with a null pointer.
  applications.insert(applications.rfind("};"), "    nullptr,\n");
  write_file(output, kHead + dictionary_source(dictionary) + "ConfigRecord config;\n\n" + kSetters +
                         settings_source(settings) + services_source(profile) + applications + kTail);
  return 0;
}

}  // namespace vxdata
