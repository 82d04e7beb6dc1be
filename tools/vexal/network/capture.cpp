// vexal capture: the files of NETWORK_CAPTURE shown, converted and their objects extracted.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>

#include "base/commands.h"
#include "base/hex.h"
#include "base/printable.h"
#include "base/session.h"
#include "capture_reader.h"
#include "files/files.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"-o", "PATH", "convert: the pcap file; extract: the folder"},
    {"--phi", nullptr, "show: application titles and instance UIDs as well"},
};

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

struct Name {
  uint16_t value;
  const char* name;
};
constexpr Name kCommandNames[] = {
    {0x0001, "C-STORE"},  {0x0010, "C-GET"},          {0x0020, "C-FIND"},   {0x0021, "C-MOVE"},
    {0x0030, "C-ECHO"},   {0x0100, "N-EVENT-REPORT"}, {0x0110, "N-GET"},    {0x0120, "N-SET"},
    {0x0130, "N-ACTION"}, {0x0140, "N-CREATE"},       {0x0150, "N-DELETE"}, {0x0FFF, "C-CANCEL"},
};
constexpr Name kPduNames[] = {
    {1, "A-ASSOCIATE-RQ"}, {2, "A-ASSOCIATE-AC"}, {3, "A-ASSOCIATE-RJ"}, {4, "P-DATA-TF"},
    {5, "A-RELEASE-RQ"},   {6, "A-RELEASE-RP"},   {7, "A-ABORT"},
};

template <std::size_t Count>
const char* name_of(const Name (&names)[Count], uint32_t value) {
  for (const Name& name : names) {
    if (name.value == value) return name.name;
  }
  return "unknown";
}

void show_event(const CaptureEvent& event, bool phi) {
  const std::time_t second = event.microseconds / 1'000'000;
  std::tm parts{};
  char when[32] = "";
  if (::gmtime_r(&second, &parts) != nullptr) std::strftime(when, sizeof when, "%Y-%m-%dT%H:%M:%S", &parts);
  std::printf("%sZ %.*s > %.*s ", when, static_cast<int>(event.from.size()), event.from.data(),
              static_cast<int>(event.to.size()), event.to.data());
  if (event.pdu != 4) {
    std::printf("%s", name_of(kPduNames, event.pdu));
    if (phi && !event.called.empty()) {
      std::printf(" called=%s calling=%s", shown(event.called).c_str(), shown(event.calling).c_str());
    }
    std::printf("\n");
    return;
  }
  const bool answer = (event.command & 0x8000) != 0;
  const char* suffix = event.command == 0x0FFF ? "" : answer ? "-RSP" : "-RQ";
  std::printf("%s%s id=%u", name_of(kCommandNames, event.command & 0x7FFFU), suffix,
              static_cast<unsigned>(answer || event.command == 0x0FFF ? event.answers : event.id));
  if (answer && event.status >= 0)
    std::printf(" status=%s", hex_of(static_cast<uint16_t>(event.status), 4).c_str());
  if (!event.sop_class.empty()) std::printf(" class=%s", shown(event.sop_class).c_str());
  if (phi && !event.sop_instance.empty()) std::printf(" instance=%s", shown(event.sop_instance).c_str());
  if (event.length > 0) std::printf(" data=%u", event.length);
  std::printf("\n");
}

// Reads to the end; damage is told after what could be read.
template <typename Take>
int read_all(CaptureReader& reader, const std::string& path, Take take) {
  CapturePacket packet;
  while (reader.next(packet)) {
    if (!take(packet)) return kFindings;
  }
  if (reader.error().empty()) return kSuccess;
  complain("%s: %s", path.c_str(), reader.error().c_str());
  return kFindings;
}

int show(const Args& args, CaptureReader& reader) {
  const bool phi = args.has("--phi");
  CaptureDialogues dialogues([&](const CaptureEvent& event) { show_event(event, phi); }, false);
  return read_all(reader, args.paths[1], [&](const CapturePacket& packet) {
    dialogues.add(packet);
    return true;
  });
}

// --- Files, for the user alone: they hold patients' data ---

void put(std::string& out, uint32_t value, int width) {
  for (int i = 0; i < width; ++i) out += static_cast<char>(value >> (8 * i) & 0xFF);
}

bool fail(const std::string& path, const std::string& problem) {
  report(path, problem.empty() ? "can not write" : problem);
  return false;
}

bool write(FileSink& sink, std::string_view bytes) {
  return sink.write(bytes.data(), bytes.size()) || fail(sink.path(), sink.problem());
}

int convert(const Args& args, CaptureReader& reader) {
  const std::string path = args.get("-o");
  FileSink sink;
  std::string problem = sink.open(path, FileSink::kPrivateMode);
  if (!problem.empty()) {
    fail(path, problem);
    return kFindings;
  }
  std::string head;
  put(head, 0xA1B2C3D4, 4);
  put(head, 2, 2);
  put(head, 4, 2);
  put(head, 0, 4);
  put(head, 0, 4);
  put(head, 65535, 4);
  put(head, 1, 4);  // Ethernet
  bool written = write(sink, head);
  const int result = read_all(reader, args.paths[1], [&](const CapturePacket& packet) {
    std::string record;
    put(record, static_cast<uint32_t>(packet.microseconds / 1'000'000), 4);
    put(record, static_cast<uint32_t>(packet.microseconds % 1'000'000), 4);
    put(record, static_cast<uint32_t>(packet.frame.size()), 4);
    put(record, static_cast<uint32_t>(packet.frame.size()), 4);
    written = written && write(sink, record) && write(sink, packet.frame);
    return written;
  });
  if (!written) return kFindings;
  problem = sink.commit();
  return problem.empty() || fail(path, problem) ? result : kFindings;
}

// --- Stored objects ---

bool is_uid(const std::string& text) {
  return !text.empty() && text.size() <= 64 && text[0] != '.' &&
         text.find_first_not_of("0123456789.") == std::string::npos;
}

std::string meta_element(uint8_t number, std::string value) {
  if (value.size() % 2 != 0) value += '\0';
  std::string element("\2\0", 2);
  element += static_cast<char>(number);
  element += '\0';
  element += "UI";
  element += static_cast<char>(value.size());
  element += static_cast<char>(value.size() >> 8);
  return element + value;
}

bool write_object(FileSink& sink, const CaptureEvent& event) {
  std::string meta("\2\0\1\0OB\0\0\2\0\0\0\0\1", 14);
  meta += meta_element(0x02, event.sop_class) + meta_element(0x03, event.sop_instance) +
          meta_element(0x10, event.syntax) + meta_element(0x12, "2.25.151234567890123456789");
  std::string head = std::string(128, '\0') + "DICM" + std::string("\2\0\0\0UL\4\0", 8);
  put(head, static_cast<uint32_t>(meta.size()), 4);
  return write(sink, head + meta) && write(sink, event.data);
}

// The objects of a capture as files of a folder.
class Extraction {
 public:
  explicit Extraction(std::string folder) : folder_(std::move(folder)) {}

  // Requests of one UID may differ: each has a file of its own.
  bool take(const CaptureEvent& event) {
    if (!is_uid(event.sop_instance) || !is_uid(event.sop_class) || !is_uid(event.syntax)) {
      complain("an object without proper UIDs is left out");
      return false;
    }
    const std::string path = folder_ + "/" + event.sop_instance + ".dcm";
    FileSink sink;
    std::string problem = sink.open(path, FileSink::kPrivateMode);
    if (!problem.empty()) return fail(path, problem);
    if (!write_object(sink, event)) return false;
    problem = sink.commit_beside(++numbers_[event.sop_instance]);
    return problem.empty() || fail(path, problem);
  }

 private:
  std::string folder_;
  std::map<std::string, unsigned> numbers_;  // by instance: of its last file
};

int extract(const Args& args, CaptureReader& reader) {
  const std::string folder = args.get("-o");
  if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
    fail(folder, std::strerror(errno));
    return kFindings;
  }
  Extraction extraction(folder);
  bool fine = true;
  CaptureDialogues dialogues(
      [&](const CaptureEvent& event) {
        if (event.pdu == 4 && event.command == 1) fine = extraction.take(event) && fine;
      },
      true);
  const int result = read_all(reader, args.paths[1], [&](const CapturePacket& packet) {
    dialogues.add(packet);
    return true;
  });
  return fine ? result : kFindings;
}

struct Action {
  const char* name;
  bool writes;
  int (*run)(const Args& args, CaptureReader& reader);
};
constexpr Action kActions[] = {{"show", false, show}, {"convert", true, convert}, {"extract", true, extract}};

int run(const Args& args) {
  const Action* action = nullptr;
  for (const Action& each : kActions) {
    if (!args.paths.empty() && args.paths[0] == each.name) action = &each;
  }
  if (action == nullptr || args.paths.size() != 2 || (action->writes && !args.has("-o"))) {
    complain("capture needs show, convert or extract, one capture file, and -o unless it shows");
    return kUsage;
  }
  const File file(std::fopen(args.paths[1].c_str(), "rbe"), std::fclose);
  if (file == nullptr) {
    complain("%s: %s", args.paths[1].c_str(), std::strerror(errno));
    return kFindings;
  }
  CaptureReader reader;
  if (reader.open(file.get())) return action->run(args, reader);
  complain("%s is not a capture file", args.paths[1].c_str());
  return kFindings;
}

}  // namespace

const Command kCapture = {
    "capture",
    "ACTION FILE [OPTION...]",
    "show network capture files, convert them, extract what was stored",
    "show     a line for each message and each PDU that is none\n"
    "convert  makes a pcap file for network analysers; -o names it\n"
    "extract  writes each object of a C-STORE request to a file in the folder of -o: UID.dcm, and\n"
    "         UID-2.dcm and so on for further ones of the same UID\n"
    "Titles and instance UIDs are shown with --phi only. A pcap file and the objects hold\n"
    "all that crossed the network, patients' data included.",
    kOptions,
    run};

}  // namespace vexal
