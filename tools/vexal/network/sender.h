// Files go out over an association, as themselves where the peer takes them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "files/files.h"
#include "network.h"
#include "privacy/deidentifier.h"

namespace vexal {

// A file with an object to send.
struct ObjectFile {
  std::string path;
  std::string sop_class;
  std::string instance;
  VX_TRANSFER_SYNTAX syntax = 0;
  bool whole = false;   // preamble, meta group and a usual start are there: the bytes can go out as they are
  bool opaque = false;  // only the UID of its syntax is known: they go out so, or not at all
  uint64_t size = 0;

  // Fills everything in from the path, and tells the library of a class or syntax that is new to it. An error
  // text, empty on success.
  std::string look_at();
};

// The contexts that files need: for each class its syntaxes one by one, so that the peer can take each as it
// is, and with `convert` the plain ones that a file can be turned into.
std::vector<Proposal> proposals_for(std::span<const ObjectFile* const> files, bool convert);

// Why a file stays where it is: the peer takes it in no syntax that it can be had in.
std::string not_taken(const ObjectFile& file);

// Sends C-STORE requests on an association of either side. Not for two threads at once.
class ObjectSender {
 public:
  // `bounded`: the files are those of strangers.
  explicit ObjectSender(bool convert, bool bounded = false) : convert_(convert), bounded_(bounded) {}

  enum class Result {
    Sent,     // an answer will come
    Refused,  // nothing went out, and the association stands
    Lost      // the association has ended, or has to
  };
  Result send(int32_t association, const std::vector<AcceptedContext>& accepted, const ObjectFile& file,
              std::string& problem);
  // What was sent last, for its answer.
  const SentRequest& request() const { return request_; }

  // What is sent is part of the C-MOVE that this title asked for (PS3.7 section 9.1.1.1).
  void set_originator(const std::string& title, uint16_t message_id) {
    originator_ = title;
    originator_id_ = message_id;
  }

  // What is sent loses what identifies the patient.
  void set_deidentifier(const Deidentifier* deidentifier) { deidentifier_ = deidentifier; }

  // Opens and reads what will be sent next; never needed, but time that would be spent waiting.
  void prepare(const ObjectFile& file);

 private:
  // The syntaxes in which a file can go out, the best first: its own, one that keeps its JPEG streams, a
  // plain one.
  std::vector<VX_TRANSFER_SYNTAX> choose(const std::vector<AcceptedContext>& accepted,
                                         const ObjectFile& file) const;
  std::string begin(const ObjectFile& file);
  bool read_block(uint64_t from);
  VX_STATUS send_bytes(int32_t association, const ObjectFile& file, std::string& problem);
  VX_STATUS send_object(int32_t association, const ObjectFile& file, VX_TRANSFER_SYNTAX syntax,
                        std::string& problem);
  VX_STATUS send_open(int32_t association, DicomFile& object, VX_TRANSFER_SYNTAX syntax);
  static VX_STATUS give(int32_t id, uint32_t tag, void* user, VX_CALLBACK_REQUEST request, uint32_t* size,
                        void** data, int32_t first, int32_t* last);

  bool convert_;
  bool bounded_;
  const Deidentifier* deidentifier_ = nullptr;
  std::string originator_;
  uint16_t originator_id_ = 0;
  SentRequest request_;
  bool sent_in_part_ = false;
  FileSource source_;  // of the file whose bytes go out, or will
  const ObjectFile* prepared_ = nullptr;
  Bytes block_;
  uint64_t start_ = 0;  // of the bytes in the block, in the file
  uint64_t end_ = 0;
};

}  // namespace vexal
