// Between the files that read messages.
#pragma once

#include <cstdint>
#include <string_view>

#include "dimse/dimse.h"
#include "dimse/pdv_reader.h"

namespace vx::receiving {

inline constexpr char kFunction[] = "VX_Read_Message";
inline constexpr int32_t kLongWait = 60;  // seconds, for a data set that is being read with a time-out of 0

// The values of a PdvReader as the blocks of a stream.
VX_STATUS give_pdv(int32_t, void* user, uint32_t* size, void** data, int32_t, int32_t* last);
void drop_message(MsgObj*& message);
// The session goes, with an A-ABORT if another thread wants it to.
VX_STATUS end_session(SesObj*& session, VX_STATUS status);
// Ends a read that failed: the message goes, and so does the session, unless nothing of a message had come.
// What the peer did counts for more than what it left half said.
VX_STATUS fail_read(SesObj*& session, MsgObj*& message, const PdvReader& reader, VX_STATUS fault,
                    const char* name = kFunction);
// VX_INVALID_MESSAGE_RECEIVED, after a line in the log.
VX_STATUS improper(VX_STATUS decoding);
VX_STATUS invalid(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Leaves the guard, if the session is still there.
VX_STATUS leave(SesObj* session, VX_STATUS status, int32_t& message_id);
// The message that the association is in the middle of.
VX_STATUS find_current(const SesObj& session, int32_t id, MsgObj*& message);

VX_STATUS read_text(MsgObj& message, uint32_t tag, char (&scratch)[80], std::string_view& text);

// What the command group of a received message says.
struct ReadCommand {
  uint16_t command = 0;
  bool has_data_set = false;
};
// Judges the group, and gives the message its service, its syntax and its place among the requests.
VX_STATUS judge_command(SesObj& session, MsgObj& message, uint8_t context_id, ReadCommand& read);

}  // namespace vx::receiving
