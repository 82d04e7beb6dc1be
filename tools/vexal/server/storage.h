// Objects that arrive over the network become files.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "acceptor.h"
#include "audit.h"
#include "base/args.h"
#include "base/tags.h"
#include "files/files.h"
#include "files/head_scan.h"
#include "object_store.h"
#include "privacy/deidentifier.h"
#include "vexalkit.h"

namespace vexal {

// Rows of the option table of a server that stores.
#define VEXAL_STORAGE_OPTIONS                                                                             \
  {"--fsync", nullptr, "have each object on the disk before it is acknowledged"},                         \
      {"--max-size", "BYTES", "refuse larger objects; of deflated ones, the inflated bytes count"},       \
      {"--duplicates", "refuse|keep|replace",                                                             \
       "what is done with an object whose SOP Instance UID is there with other content: refuse it "       \
       "(default), keep the old one and answer with a warning, or replace the old one; the same content " \
       "again is always taken"},                                                                          \
      {"--mode", "OCTAL", "access to the files (default 0640, less what the umask takes away)"},          \
      {"--reserve", "BYTES",                                                                              \
       "refuse objects while the disk has less room than this (default: 1 % of it, 1 GiB at most)"},      \
  {                                                                                                       \
    "--journal", "FILE", "append a line for each object: when, who, what became of it, which"             \
  }

// UIDs of the classes with C-STORE that the library knows.
std::vector<std::string> storage_classes(bool with_retired);

// All of them, in every transfer syntax.
std::vector<Proposal> storage_services(bool prefer_compressed);

// What a tree of folders is made from, and audit messages.
inline constexpr uint32_t kTreeTags[] = {tags::kSOPClassUID, tags::kSOPInstanceUID, tags::kPatientID,
                                         tags::kStudyInstanceUID, tags::kSeriesInstanceUID};

// What became of one C-STORE request.
struct StoredObject {
  enum class Outcome { Failed, Stored, Repeated, Replaced, Kept, Refused };
  Outcome outcome = Outcome::Failed;
  std::string path;   // where it lies, for people; empty: it is not there
  std::string key;    // in the store of an index
  uint64_t size = 0;  // of the file in it
  std::string sop_class;
  std::string instance;
  std::string study;  // filled with `tree` only
  std::string series;
  VX_TRANSFER_SYNTAX syntax = 0;
  uint64_t bytes = 0;
};

// What finds stored objects by their SOP Instance UID: a row for each, with the key that the object has in
// its store. Rows that are entered are seen by all servers on the same index. Any thread may call at any
// time.
class ObjectIndex {
 public:
  enum class Entered { Done, Conflict, Failed };

  virtual ~ObjectIndex() = default;
  // Tags that it wants to see of each object, in ascending order, (0008,0016), (0008,0018), (0020,000D) and
  // (0020,000E) among them.
  virtual std::span<const uint32_t> wanted() const = 0;
  // The key of an instance; "" if there is none. An error text, empty on success.
  virtual std::string key_of(const std::string& instance, std::string& key) = 0;
  // Takes an object in under its key and size, in place of the row with the key `expected`, or of no row
  // where that is empty. Conflict: another row is there. Failed: `error` tells why.
  virtual Entered enter(const StoredObject& stored, const HeadScan& scan, const std::string& expected,
                        std::string& error) = 0;
  // Drops the row of an instance, if its object has this key. An error text, empty on success.
  virtual std::string drop(const std::string& instance, const std::string& key) = 0;
};

// One line for each object that a peer sent, appended to a file.
class Journal {
 public:
  Journal() = default;
  ~Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;
  std::string open(const std::string& path, mode_t mode);  // an error text, empty on success
  void write(const std::string& title, const std::string& address, const StoredObject& stored,
             uint16_t status) const;

 private:
  int fd_ = -1;
};

struct StorageOptions {
  enum class Duplicates { Refuse, Keep, Replace };

  // --dir, which is made, and --tree; for a server the rows above too. False after a line on standard error.
  bool read(const Args& args, bool server = false);
  // Objects that come are told of there, as having come to this title.
  void tell(AuditTrail& trail, const std::string& own_title) {
    audit = &trail;
    title = own_title;
  }

  std::string folder;             // of the objects, or of what becomes objects of the store
  bool durable = false;           // on the disk before it is acknowledged
  bool tree = false;              // STUDY/SERIES/INSTANCE.dcm instead of INSTANCE.dcm
  uint64_t most_bytes = 0;        // of one object; 0: no limit
  VX_TRANSFER_SYNTAX syntax = 0;  // to store in; 0: as it comes
  Duplicates duplicates = Duplicates::Refuse;
  mode_t mode = 0;       // of the files; 0: as the system makes files
  int64_t reserve = -1;  // bytes of the disk that stay free; -1: a share of it
  const Deidentifier* deidentifier =
      nullptr;                   // objects are stored without what identifies the patient, or not at all
  ObjectIndex* index = nullptr;  // and `store`: both or none
  ObjectStore* store = nullptr;
  AuditTrail* audit = nullptr;
  std::string title;
  Journal journal;
};

// Gives a file that is written to its end the final name of its object, and fills in where it is; with `tree`
// the study and the series too. With an index, the object is whole in its store and has its row by then. What
// is there already is dealt with as the options say. `scan` has seen the data set; without one, the file is
// looked at where that is needed. An error text, empty if the object is there.
std::string place_object(FileSink& sink, const StorageOptions& options, StoredObject& stored,
                         const HeadScan* scan = nullptr);

// The file side of one peer's objects, of C-STORE requests and of DICOM files. Not for two threads at once.
class ObjectWriter {
 public:
  ObjectWriter(const StorageOptions& options, std::string calling_title, std::string address = "")
      : options_(options),
        calling_title_(std::move(calling_title)),
        address_(std::move(address)),
        audit_(options.audit, {calling_title_, address_, audit_roles::kSource, true},
               {options.title, "", audit_roles::kDestination, false}) {}

  // Reads the data set of the request `message` into a file and frees the message. The DIMSE status to answer
  // with; -1 if the association is lost.
  int32_t take(int32_t association, int32_t message, StoredObject& stored);

  // The same for a DICOM file that comes piece by piece, from its preamble on. end_file() gives the status.
  void begin_file();
  void take_file(std::string_view piece);
  int32_t end_file(StoredObject& stored);
  // Objects of another study are refused from here on; "": of none.
  void set_study(std::string study) { study_ = std::move(study); }

 private:
  int32_t begin(StoredObject& stored);
  int32_t conclude(StoredObject& stored, int32_t answer);
  void open_data_set(std::size_t size);
  std::string start(const StoredObject& stored);
  int32_t finish(StoredObject& stored, std::string& error);
  bool convert(FileSink& converted, const StoredObject& stored);
  std::string deidentify(FileSink& changed, StoredObject& stored);
  std::string disagreement(const StoredObject& stored, int32_t& answer) const;
  static VX_STATUS take_bytes(int32_t id, void* user, uint32_t size, void* data, int32_t first, int32_t last);

  static constexpr char kOverMostBytes[] = "is larger than --max-size allows";

  const StorageOptions& options_;
  std::string calling_title_;
  std::string address_;
  TransferAudit audit_;
  FileSink sink_;
  HeadScan scan_;
  std::string error_;  // what comes is dropped
  uint64_t bytes_ = 0;
  uint64_t checked_ = 0;  // bytes that had come when the disk was looked at
  std::string study_;
  // Of a file:
  StoredObject of_file_;
  int32_t answer_ = 0;
  std::string head_;  // preamble and meta group, as long as they come
  bool in_data_set_ = false;
};

// What the data set of one request takes of the room that all of them share while they are in memory.
struct IdentifierRoom {
  IdentifierRoom() = default;
  ~IdentifierRoom();
  IdentifierRoom(const IdentifierRoom&) = delete;
  IdentifierRoom& operator=(const IdentifierRoom&) = delete;

  std::size_t bytes = 0;
  bool crowded = false;  // there was none left: the data set was passed over
};

// Reads the data set of a message that arrived as its command group, if there is one and there is room for
// it. On failure the message may be gone. The room is taken as long as `room` lives.
VX_STATUS read_rest(int32_t association, int32_t& message, IdentifierRoom& room);
// Passes the data set over, if there is one. False if the association is lost, or there is no end to it.
bool drop_rest(int32_t association, int32_t& message);

}  // namespace vexal
