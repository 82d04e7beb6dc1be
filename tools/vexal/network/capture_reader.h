// Reads network capture files: their packets, and the DICOM dialogues in them. Nothing in a file is trusted;
// memory grows with the data that is there.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace vexal {

struct CapturePacket {
  int64_t microseconds = 0;  // since 1970
  std::string from;          // address:port
  std::string to;
  bool begins = false;     // the SYN of the side that connected
  std::string_view frame;  // from the Ethernet header on; valid until the next one
  std::string_view data;
};

class CaptureReader {
 public:
  // False: not a capture file.
  bool open(std::FILE* file);
  // False at the end; error() tells whether it was a proper one.
  bool next(CapturePacket& packet);
  const std::string& error() const { return error_; }

 private:
  std::FILE* file_ = nullptr;
  int64_t start_ = 0;
  std::string record_;
  std::string error_;
};

// One command with its data set, or a PDU of another type.
struct CaptureEvent {
  int64_t microseconds = 0;
  std::string_view from;
  std::string_view to;
  uint8_t pdu = 0;      // PDU type
  uint32_t length = 0;  // of the PDU; of the data set for messages
  // A-ASSOCIATE-RQ and -AC:
  std::string called, calling;
  // Messages:
  uint16_t command = 0, id = 0, answers = 0;
  int32_t status = -1;
  std::string sop_class, sop_instance, syntax;
  std::string_view data;
};

class CaptureDialogues {
 public:
  using Receiver = std::function<void(const CaptureEvent&)>;
  explicit CaptureDialogues(Receiver receiver, bool keep_data)
      : receive_(std::move(receiver)), keep_data_(keep_data) {}
  void add(const CapturePacket& packet);

 private:
  struct Half {
    std::string pending;  // an incomplete PDU
    std::string command, data;
    uint64_t data_size = 0;
    bool has_command = false;
    std::map<uint8_t, std::string> accepted;  // by the acceptor: the context's transfer syntax
  };
  void take_pdu(Half& half, Half& other, CaptureEvent& event, std::string_view body);
  void take_values(Half& half, Half& other, CaptureEvent& event, std::string_view body);

  Receiver receive_;
  bool keep_data_;
  std::map<std::pair<std::string, std::string>, Half> halves_;
};

}  // namespace vexal
