// The state machine of one association: the one function that walks the table, and the handle's life.
#pragma once

#include "connection/state_table.h"
#include "connection/upper_layer.h"

namespace vx {

// What an event brings along.
struct EventData {
  AssociationParameters* parameters = nullptr;
  const char* host = nullptr;  // of AssociateRequest
  const char* port = nullptr;
  uint8_t result = 0;  // of AssociateReject
  uint8_t source = 0;
  uint8_t reason = 0;
  const PdvToSend* pdv = nullptr;  // of PDataRequest
};

// Does what the table says. DUL_WRONG_ORDER, after a line in the log, where the table is empty.
DulStatus run_event(DUL_Association& dul, Event event, const EventData& data = {});

// The event of a PDU whose header has been read.
DulStatus process_PDU(uint8_t type, DUL_Association& dul, AssociationParameters* parameters);
// Reads a header if none is pending, and gives the type.
DulStatus VXI_nextPDUtype(DUL_Association& dul, uint8_t& type);

// Null after a line in the log.
DUL_Association* Create_Association_Handle(uint32_t maximum_pdu_length, bool acceptor, DulStatus& status);
// Closes the transport and frees the buffers; the tag is cleared.
void Destroy_Association_Handle(DUL_Association& dul);

inline void start(DulTimer& timer, int32_t timeout) {
  timer = {timeout, true};
}

}  // namespace vx
