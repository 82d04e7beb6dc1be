// Objects that arrive over the network become files.
#pragma once

#include <cstdint>
#include <string>

#include "acceptor.h"
#include "args.h"
#include "files.h"
#include "vexalkit.h"

namespace vexal {

// UIDs of the classes with C-STORE that the library knows.
std::vector<std::string> storage_classes(bool with_retired);

// All of them, in every transfer syntax.
std::vector<Proposal> storage_services(bool prefer_compressed);

struct StorageOptions {
  // --dir, which is made, and --tree. False after a line on standard error.
  bool read(const Args& args);

  std::string folder;
  bool durable = false;           // on the disk before it is acknowledged
  bool tree = false;              // STUDY/SERIES/INSTANCE.dcm instead of INSTANCE.dcm
  uint64_t most_bytes = 0;        // of one object; 0: no limit
  VX_TRANSFER_SYNTAX syntax = 0;  // to store in; 0: as it comes
};

// What became of one C-STORE request.
struct StoredObject {
  std::string path;  // empty: not stored
  std::string sop_class;
  std::string instance;
  std::string study;  // filled with `tree` only
  std::string series;
  uint64_t bytes = 0;
};

// Gives a file that is written to its end the final name of its object, and fills in where it is; with `tree`
// the study and the series too. An error text, empty on success.
std::string place_object(FileSink& sink, const StorageOptions& options, StoredObject& stored);

// The file side of one association's C-STORE requests. Not for two threads at once.
class ObjectWriter {
 public:
  ObjectWriter(const StorageOptions& options, std::string calling_title)
      : options_(options), calling_title_(std::move(calling_title)) {}

  // Reads the data set of the request `message` into a file and frees the message. The DIMSE status to answer
  // with; -1 if the association is lost.
  int32_t take(int32_t association, int32_t message, StoredObject& stored);

 private:
  std::string start(int32_t message, VX_TRANSFER_SYNTAX syntax, const StoredObject& stored);
  bool convert(FileSink& converted, const StoredObject& stored);
  static VX_STATUS take_bytes(int32_t id, void* user, uint32_t size, void* data, int32_t first, int32_t last);

  const StorageOptions& options_;
  std::string calling_title_;
  FileSink sink_;
  uint64_t bytes_ = 0;
  bool failed_ = false;  // the disk refused: what comes is dropped
  bool too_large_ = false;
};

// Reads the data set of a message that arrived as its command group, if there is one. On failure the message
// is gone.
VX_STATUS read_rest(int32_t association, int32_t& message);

// Answers a request with a response of its kind.
bool send_response(int32_t association, const char* service, uint16_t command, uint32_t request_id,
                   uint16_t status);

}  // namespace vexal
