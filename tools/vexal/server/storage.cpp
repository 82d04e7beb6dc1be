#include "storage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <filesystem>

#include "base/byte_stream.h"
#include "base/embedded.h"
#include "base/hex.h"
#include "base/printable.h"
#include "base/session.h"
#include "base/tables.h"
#include "base/tags.h"
#include "base/thrown.h"
#include "images/bounded_file.h"
#include "images/recode.h"
#include "metrics.h"
#include "network/network.h"
#include "request.h"

namespace vexal {
namespace {

constexpr char kNearlyFull[] = "the disk is nearly full";
constexpr uint64_t kMostPassedOver = 64U << 20;  // of an object that is refused
constexpr uint64_t kDiskCheck = 16U << 20;       // bytes between two looks at the room that is left

// Whether objects have to be refused before the disk is full.
// Where there is plenty, nobody asks again for a moment.
bool nearly_full(const StorageOptions& options) {
  using Clock = std::chrono::steady_clock;
  constexpr uint64_t kPlenty = uint64_t{4} << 30;
  static std::atomic<Clock::rep> plenty_until{0};
  const Clock::rep now = Clock::now().time_since_epoch().count();
  if (now < plenty_until.load(std::memory_order_relaxed)) return false;
  struct statvfs disk {};
  if (options.reserve == 0 || ::statvfs(options.folder.c_str(), &disk) != 0) return false;
  const uint64_t free = uint64_t{disk.f_bavail} * disk.f_frsize;
  const uint64_t share = std::min<uint64_t>(uint64_t{disk.f_blocks} * disk.f_frsize / 100, 1U << 30);
  const uint64_t reserve = options.reserve > 0 ? static_cast<uint64_t>(options.reserve) : share;
  if (free > reserve && free - reserve > kPlenty)
    plenty_until.store(now + Clock::duration(std::chrono::milliseconds(100)).count(),
                       std::memory_order_relaxed);
  return free < reserve;
}

void count_object(const StoredObject& stored) {
  constexpr Metric kOutcomes[] = {Metric::ObjectsFailed,   Metric::ObjectsStored, Metric::ObjectsRepeated,
                                  Metric::ObjectsReplaced, Metric::ObjectsKept,   Metric::ObjectsRefused};
  count(kOutcomes[static_cast<int>(stored.outcome)]);
  count(Metric::BytesReceived, static_cast<int64_t>(stored.bytes));
}

// --mode; without it, what servers give objects: nothing to others. False after a line on standard error.
bool read_mode(const Args& args, mode_t& mode) {
  const mode_t mask = ::umask(077);
  ::umask(mask);
  mode = 0640 & ~mask;
  if (!args.has("--mode")) return true;
  const std::string text = args.get("--mode");
  char* end = nullptr;
  const unsigned long number = std::strtoul(text.c_str(), &end, 8);
  if (text.empty() || *end != '\0' || number > 0777 || (number & 0600) != 0600) {
    complain("--mode %s: give it in octal, from 0600 to 0777", text.c_str());
    return false;
  }
  mode = static_cast<mode_t>(number);
  return true;
}

// Preamble, prefix and meta group of a file (PS3.10 section 7.1); the library writes all three for a file's
// group 0002.
VX_STATUS encode_head(const StoredObject& object, VX_TRANSFER_SYNTAX syntax, const std::string& calling_title,
                      std::string& out) {
  int32_t id = -1;
  VX_STATUS status = VX_Create_Empty_File(&id, "");
  if (status != VX_NORMAL_COMPLETION) return status;
  char text[68] = "";
  const unsigned char version[2] = {0, 1};
  VX_Add_Standard_Attribute(id, tags::kFileMetaInformationGroupLength);
  VX_Set_Value_From_Buffer(id, tags::kFileMetaInformationVersion, version, 2);
  VX_Set_Value_From_String(id, tags::kMediaStorageSOPClassUID, object.sop_class.c_str());
  VX_Set_Value_From_String(id, tags::kMediaStorageSOPInstanceUID, object.instance.c_str());
  VX_Set_Value_From_String(id, tags::kTransferSyntaxUID, uid_of_syntax(syntax).c_str());
  VX_Get_String_Config_Value(VX_CFG_IMPLEMENTATION_CLASS_UID, sizeof text, text);
  VX_Set_Value_From_String(id, tags::kImplementationClassUID, text);
  VX_Get_String_Config_Value(VX_CFG_IMPLEMENTATION_VERSION, sizeof text, text);
  if (*text != '\0') VX_Set_Value_From_String(id, tags::kImplementationVersionName, text);
  if (!calling_title.empty())
    VX_Set_Value_From_String(id, tags::kSourceApplicationEntityTitle, calling_title.c_str());
  out.clear();
  status = VX_Message_To_Stream(id, tags::kFileMetaInformationGroupLength, tags::kLastOfMeta,
                                EXPLICIT_LITTLE_ENDIAN, &out, append_to_string);
  VX_Free_File(&id);
  return status;
}

}  // namespace

std::vector<std::string> storage_classes(bool with_retired) {
  std::vector<std::string> classes;
  std::string_view text = uid_table();
  std::string_view line;
  while (next_line(text, line)) {
    const std::string uid(next_cell(line));
    const std::string_view kind = next_cell(line);
    // Storage classes have "Storage" in their names (PS3.4 section B.5); directories and commitment are not
    // stored.
    const std::string_view name = next_cell(line);
    if (kind != "SOP class" || name.find("Storage") == std::string_view::npos ||
        uid.starts_with("1.2.840.10008.1."))
      continue;
    const bool retired = next_cell(line) == "retired";
    if ((with_retired || !retired) && !service_of_class(uid).empty()) classes.push_back(uid);
  }
  return classes;
}

std::vector<Proposal> storage_services(bool prefer_compressed) {
  std::vector<VX_TRANSFER_SYNTAX> plain = {EXPLICIT_LITTLE_ENDIAN, IMPLICIT_LITTLE_ENDIAN,
                                           EXPLICIT_BIG_ENDIAN, DEFLATED_EXPLICIT_LITTLE_ENDIAN};
  std::vector<VX_TRANSFER_SYNTAX> syntaxes;
  // Behind them are those of streams over a network, which hold no objects.
  for (VX_TRANSFER_SYNTAX syntax = RLE; syntax < SMPTE_ST_2110_20_PROGRESSIVE; ++syntax) {
    if (!uid_of_syntax(syntax).empty()) syntaxes.push_back(syntax);
  }
  syntaxes.insert(prefer_compressed ? syntaxes.end() : syntaxes.begin(), plain.begin(), plain.end());
  // Verification comes besides, from who accepts.
  std::vector<Proposal> proposals;
  for (const std::string& sop_class : storage_classes(true)) proposals.push_back({sop_class, syntaxes});
  return proposals;
}

bool StorageOptions::read(const Args& args, bool server) {
  folder = args.get("--dir", ".");
  if (folder.starts_with('-')) folder.insert(0, "./");  // no option of a command that gets a path in it
  tree = args.has("--tree");
  durable = args.has("--fsync");
  long most = 0;
  long free = -1;
  if (!args.number("--max-size", 1, 0x7FFFFFFFFFFFL, most) ||
      !args.number("--reserve", 0, 0x7FFFFFFFFFFFFFFL, free) || (server && !read_mode(args, mode)))
    return false;
  most_bytes = static_cast<uint64_t>(most);
  reserve = free;
  const std::string word = args.get("--duplicates", "refuse");
  if (word != "refuse" && word != "keep" && word != "replace") {
    complain("--duplicates %s: give refuse, keep or replace", word.c_str());
    return false;
  }
  duplicates = word == "keep"      ? Duplicates::Keep
               : word == "replace" ? Duplicates::Replace
                                   : Duplicates::Refuse;
  std::error_code failure;
  std::filesystem::create_directories(folder, failure);
  if (failure) {
    complain("--dir %s: %s", folder.c_str(), failure.message().c_str());
    return false;
  }
  if (!args.has("--journal")) return true;
  const std::string error = journal.open(args.get("--journal"), mode != 0 ? mode : 0640);
  if (!error.empty()) complain("--journal %s: %s", args.get("--journal").c_str(), error.c_str());
  return error.empty();
}

// ---- Who stored what ----

Journal::~Journal() {
  if (fd_ >= 0) ::close(fd_);
}

std::string Journal::open(const std::string& path, mode_t mode) {
  fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, mode);
  return fd_ >= 0 ? "" : std::strerror(errno);
}

void Journal::write(const std::string& title, const std::string& address, const StoredObject& stored,
                    uint16_t status) const {
  if (fd_ < 0) return;
  constexpr const char* kWords[] = {"failed", "stored", "repeated", "replaced", "kept", "refused"};
  char head[64];
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::gmtime_r(&now, &parts);
  std::strftime(head, sizeof head, "%Y-%m-%dT%H:%M:%SZ", &parts);
  std::string line = head;
  for (const std::string& cell :
       {shown(title), address, std::string(kWords[static_cast<int>(stored.outcome)]), hex_of(status, 4),
        shown(stored.sop_class), shown(stored.instance), std::to_string(stored.bytes), shown(stored.path)})
    line += "\t" + cell;
  line += '\n';
  // One write, so that lines of several threads stay whole.
  if (::write(fd_, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
    complain("--journal: can not write: %s", std::strerror(errno));
}

// ---- Taking an object ----

std::string ObjectWriter::start(const StoredObject& stored) {
  if (nearly_full(options_)) return kNearlyFull;
  std::string head;
  if (encode_head(stored, stored.syntax, calling_title_, head) != VX_NORMAL_COMPLETION)
    return "can not make its meta group";
  std::string error = sink_.open(options_.folder + "/" + stored.instance + ".dcm", options_.mode);
  if (error.empty() && !sink_.write(head.data(), head.size())) error = "can not write";
  return error;
}

VX_STATUS ObjectWriter::take_bytes(int32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  auto& writer = *static_cast<ObjectWriter*>(user);
  MessageWatch::progress(size);
  writer.bytes_ += size;
  const uint64_t most = writer.options_.most_bytes;
  if (most != 0 && writer.bytes_ > most) {
    // The peer gets its answer if it comes to an end soon.
    if (writer.bytes_ - most > std::min(most, kMostPassedOver)) return VX_CANNOT_COMPLY;
    writer.error_ = kOverMostBytes;
  }
  if (!writer.error_.empty()) return VX_NORMAL_COMPLETION;
  if (writer.scan_.take(data, size) == HeadScan::State::TooLarge) {
    writer.error_ = "is larger inflated than is taken";
  } else if (!writer.sink_.write(data, size)) {
    writer.error_ = writer.sink_.problem();
  } else if (writer.bytes_ - writer.checked_ > kDiskCheck) {
    writer.checked_ = writer.bytes_;
    if (nearly_full(writer.options_)) writer.error_ = kNearlyFull;
  }
  return VX_NORMAL_COMPLETION;
}

// The object in the syntax that was asked for. False, and a line on standard error where that is a problem:
// it stays as it came.
bool ObjectWriter::convert(FileSink& converted, const StoredObject& stored) {
  std::string problem;
  bool there = false;  // already, or soon
  const std::string failure = sink_.place([&](const std::string& temporary, std::string&) -> std::string {
    const CurrentFile current(stored.instance);
    BoundedFile bounds;
    DicomFile file;
    RecodedPixels pixels;
    VX_STATUS status = bounds.open(file, temporary, problem);
    if (status != VX_NORMAL_COMPLETION) return "";
    if (values_were_lost()) problem = "it has a value that an object can not hold";
    there = file.syntax() == options_.syntax;
    if (there) return "";
    if (is_lossy(options_.syntax) && !keeps_jpeg_streams(file.syntax(), options_.syntax))
      problem = "only JPEG XL JPEG Recompression becomes JPEG without loss";
    if (problem.empty()) problem = file.write_fault(options_.syntax);
    if (problem.empty() && RecodedPixels::needed(file, options_.syntax))
      problem = pixels.attach(file, options_.syntax, 1, RecodedPixels::When::AsWritten);
    if (problem.empty()) problem = converted.open(sink_.path(), options_.mode);
    if (problem.empty()) status = file.set_syntax(options_.syntax);
    if (problem.empty() && status != VX_NORMAL_COMPLETION) problem = VX_Error_Message(status);
    if (problem.empty()) problem = pixels.write(file, converted, 0);
    if (problem.empty()) problem = pixels.finding();
    return "";
  });
  if (!failure.empty()) return false;  // placing it tells
  if (!problem.empty()) report(stored.instance, "is stored as it came: " + problem);
  return problem.empty() && !there;
}

// The object without what identifies the patient, under its new name. An error text, empty on success.
std::string ObjectWriter::deidentify(FileSink& changed, StoredObject& stored) {
  if (is_unknown_syntax(stored.syntax)) return "nothing but the UID is known of its transfer syntax";
  std::string problem;
  const std::string failure = sink_.place([&](const std::string& temporary, std::string&) -> std::string {
    BoundedFile bounds;
    DicomFile file;
    if (bounds.open(file, temporary, problem) != VX_NORMAL_COMPLETION) return problem;
    if (values_were_lost()) return "it has a value that an object can not hold";
    const Deidentifier& deidentifier = *options_.deidentifier;
    const VX_TRANSFER_SYNTAX syntax = options_.syntax != 0 ? options_.syntax : deidentifier.own_syntax(file);
    return deidentifier.change(
        file, {syntax, options_.folder + "/blanked"}, [&](DicomFile& object, RecodedPixels& pixels) {
          stored.instance = text_of(object.id(), tags::kSOPInstanceUID);
          std::string fault = changed.open(options_.folder + "/" + stored.instance + ".dcm", options_.mode);
          object.prepare_fragments();
          if (fault.empty()) fault = pixels.write(object, changed, 0);
          return fault.empty() ? pixels.finding() : fault;
        });
  });
  return failure;
}

// Request and data set have to name the same object: the answer counts for the one, what is found later for
// the other.
std::string ObjectWriter::disagreement(const StoredObject& stored, int32_t& answer) const {
  // How one of an unknown syntax is written can only be guessed.
  if (scan_.state() == HeadScan::State::Damaged && is_unknown_syntax(stored.syntax)) return "";
  if (scan_.state() == HeadScan::State::Damaged) {
    answer = kNotUnderstood;
    return "its data set can not be read";
  }
  answer = kNotMatching;
  const std::string instance = scan_.text(tags::kSOPInstanceUID);
  const std::string sop_class = scan_.text(tags::kSOPClassUID);
  // One that is silent contradicts nothing.
  if (!instance.empty() && instance != stored.instance)
    return "its data set has the SOP Instance UID \"" + instance + "\"";
  if (!sop_class.empty() && sop_class != stored.sop_class)
    return "its data set has the SOP Class UID \"" + sop_class + "\", the request " + stored.sop_class;
  if (!study_.empty() && scan_.text(tags::kStudyInstanceUID) != study_) return "it belongs to another study";
  answer = 0;
  return "";
}

// Gives the object its place. The status to answer with.
int32_t ObjectWriter::finish(StoredObject& stored, std::string& error) {
  int32_t answer = 0;
  scan_.end();
  error = disagreement(stored, answer);
  if (!error.empty()) return answer;
  FileSink converted;
  if (options_.deidentifier != nullptr) {
    error = deidentify(converted, stored);
    if (!error.empty()) return kNotUnderstood;
    error = place_object(converted, options_, stored);
  } else if (options_.syntax != 0 && !is_unknown_syntax(stored.syntax) && convert(converted, stored)) {
    error = place_object(converted, options_, stored, &scan_);
  } else {
    error = place_object(sink_, options_, stored, &scan_);
  }
  if (stored.outcome == StoredObject::Outcome::Refused) return kDuplicateInstance;
  if (stored.outcome == StoredObject::Outcome::Kept) return kDiscarded;
  return error.empty() ? 0 : kOutOfResources;
}

// Makes ready for the data set. The status to answer with if it is refused already; the error is noted then.
int32_t ObjectWriter::begin(StoredObject& stored) {
  bytes_ = 0;
  checked_ = 0;
  scan_.start(stored.syntax,
              options_.index != nullptr ? options_.index->wanted() : std::span<const uint32_t>(kTreeTags),
              options_.most_bytes);
  if (is_safe_name(stored.instance)) {
    error_ = start(stored);
    return kOutOfResources;
  }
  error_ = "its SOP Instance UID can not be a name: " + stored.instance;
  return kInvalidInstance;
}

// What all objects end with. `answer` is of an error; less than 0: the peer has gone.
int32_t ObjectWriter::conclude(StoredObject& stored, int32_t answer) {
  stored.bytes = bytes_;
  if (error_.empty()) answer = finish(stored, error_);
  sink_.drop();
  count_object(stored);
  if (!stored.path.empty() && audit_.on())
    audit_.add(scan_.text(tags::kStudyInstanceUID), scan_.text(tags::kPatientID), stored.sop_class);
  if (!error_.empty()) report(stored.instance, error_);
  options_.journal.write(calling_title_, address_, stored,
                         static_cast<uint16_t>(answer < 0 ? 0xFFFF : answer));
  return answer;
}

int32_t ObjectWriter::take(int32_t association, int32_t message, StoredObject& stored) {
  stored = {};
  stored.sop_class = text_of(message, tags::kAffectedSOPClassUID);
  stored.instance = text_of(message, tags::kAffectedSOPInstanceUID);
  VX_Get_Message_Transfer_Syntax(message, &stored.syntax);
  int32_t answer = begin(stored);
  // Whatever the answer will be, the data set has to be read.
  VX_STATUS status = VX_NORMAL_COMPLETION;
  {
    const MessageWatch watch;
    status = VX_Continue_Read_Message_To_Stream(association, &message, this, guarded<take_bytes>);
  }
  if (message >= 0) VX_Free_Message(&message);
  if (status != VX_NORMAL_COMPLETION) {
    if (error_ != kOverMostBytes) error_ = VX_Error_Message(status);
    answer = -1;
  }
  return conclude(stored, answer);
}

// ---- Identifiers ----

namespace {

// The data sets of requests that are no objects, decoded in memory: many times as large there as on the wire.
constexpr std::size_t kMostIdentifier = 1U << 20;
constexpr std::size_t kMostIdentifiers = 3U << 20;
std::atomic<std::size_t> identifiers{0};

struct Identifier {
  IdentifierRoom& room;
  std::string bytes;
};

VX_STATUS append_identifier(int32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  auto& identifier = *static_cast<Identifier*>(user);
  MessageWatch::progress(size);
  IdentifierRoom& room = identifier.room;
  if (size > kMostIdentifier - room.bytes) return VX_CANNOT_COMPLY;
  room.bytes += size;
  if (identifiers.fetch_add(size) + size > kMostIdentifiers) room.crowded = true;
  if (!room.crowded) identifier.bytes.append(static_cast<const char*>(data), size);
  return VX_NORMAL_COMPLETION;
}

}  // namespace

bool drop_rest(int32_t association, int32_t& message) {
  if (!has_data_set(message)) return true;
  uint64_t dropped = 0;
  const MessageWatch watch;
  return VX_Continue_Read_Message_To_Stream(
             association, &message, &dropped,
             [](int32_t, void* user, uint32_t size, void*, int32_t, int32_t) -> VX_STATUS {
               MessageWatch::progress(size);
               return (*static_cast<uint64_t*>(user) += size) <= kMostPassedOver ? VX_NORMAL_COMPLETION
                                                                                 : VX_CANNOT_COMPLY;
             }) == VX_NORMAL_COMPLETION;
}

IdentifierRoom::~IdentifierRoom() {
  identifiers -= bytes;
}

VX_STATUS read_rest(int32_t association, int32_t& message, IdentifierRoom& room) {
  if (!has_data_set(message)) return VX_NORMAL_COMPLETION;
  Identifier identifier{room, ""};
  {
    const MessageWatch watch;
    const VX_STATUS status =
        VX_Continue_Read_Message_To_Stream(association, &message, &identifier, guarded<append_identifier>);
    if (status != VX_NORMAL_COMPLETION || room.crowded) return status;
  }
  VX_TRANSFER_SYNTAX syntax = 0;
  VX_Get_Message_Transfer_Syntax(message, &syntax);
  uint32_t tag = 0;
  return VX_Stream_To_Message(message, tags::kBehindCommand, tags::kLast, syntax, &tag, &identifier.bytes,
                              guarded<give_string>);
}

}  // namespace vexal
