// The trace of PDUs at level T9.
#include <algorithm>
#include <cstdio>
#include <string>

#include "frame/log.h"

namespace vx {
namespace {

constexpr const char* kPduNames[] = {"Assoc_RQ",     "Assoc_AC",     "Assoc_RJ",   "PDATA-TF",
                                     "Assoc_Rel_RQ", "Assoc_Rel_RP", "Assoc_ABORT"};

struct Bytes {
  const uint8_t* data;
  uint32_t size;

  bool has(uint32_t count) const { return data != nullptr && size >= count; }
  Bytes from(uint32_t offset) const {
    return offset < size ? Bytes{data + offset, size - offset} : Bytes{data, 0};
  }
  uint32_t number() const {
    return uint32_t{data[0]} << 24 | uint32_t{data[1]} << 16 | uint32_t{data[2]} << 8 | data[3];
  }
};

// Pairs of bytes with two blanks behind each.
std::string hex(Bytes bytes, bool printable) {
  std::string text;
  for (uint32_t i = 0; i < bytes.size; ++i) {
    const uint8_t byte = bytes.data[i];
    char pair[3];
    if (printable && byte >= 0x20 && byte < 0x7F) {
      std::snprintf(pair, sizeof pair, " %c", byte);
    } else {
      std::snprintf(pair, sizeof pair, "%02x", byte);
    }
    text += pair;
    if (i % 2 == 1) text += "  ";
  }
  return text;
}

void dump(Bytes bytes, bool printable) {
  log_line(VX_LOG_T9, nullptr, "  PDU data in hex:");
  for (uint32_t offset = 0; offset < bytes.size; offset += 16) {
    Bytes row = bytes.from(offset);
    row.size = std::min<uint32_t>(row.size, 16);
    char head[32];
    std::snprintf(head, sizeof head, " Offset 0x%.04x: ", offset);
    log_raw(VX_LOG_T9, (head + hex(row, printable)).c_str());
  }
}

void trace_associate(Bytes pdu, uint32_t length) {
  if (!pdu.has(74)) return;
  const auto range = [pdu](uint32_t first, uint32_t count) { return Bytes{pdu.data + first, count}; };
  const auto title = [pdu](uint32_t first) {
    return std::string(reinterpret_cast<const char*>(pdu.data) + first, 16);
  };
  log_line(VX_LOG_T9, nullptr, "  Protocol Version: 0x%.02x 0x%.02x", pdu.data[6], pdu.data[7]);
  log_line(VX_LOG_T9, nullptr, "  Reserved Bytes (9-10): %s", hex(range(8, 2), false).c_str());
  log_line(VX_LOG_T9, nullptr, "  Called AE Title  (11-26): %s %s", hex(range(10, 16), false).c_str(),
           title(10).c_str());
  log_line(VX_LOG_T9, nullptr, "  Calling AE Title (27-42): %s %s", hex(range(26, 16), false).c_str(),
           title(26).c_str());
  log_line(VX_LOG_T9, nullptr, "  Reserved Bytes (43-58): %s", hex(range(42, 16), false).c_str());
  log_line(VX_LOG_T9, nullptr, "  Reserved Bytes (59-74): %s", hex(range(58, 16), false).c_str());
  Bytes items = pdu.from(74);
  items.size = std::min(items.size, length > 68 ? length - 68 : 0);
  dump(items, true);
}

void trace_data(Bytes pdv) {
  if (!pdv.has(6)) {
    log_line(VX_LOG_T9, nullptr, "  PDV <not received>");
    return;
  }
  log_line(VX_LOG_T9, nullptr, "  PDV length: %s (%ld bytes)", hex({pdv.data, 4}, false).c_str(),
           static_cast<long>(pdv.number()));
  log_line(VX_LOG_T9, nullptr, "  Presentation Context ID: %d (0x%.02x)", pdv.data[4], pdv.data[4]);
  log_line(VX_LOG_T9, nullptr, "  Message Control Header:  0x%.02x", pdv.data[5]);
}

}  // namespace

int log_pdu(const uint8_t* pdu, uint32_t pdu_size, const uint8_t* pdv, uint32_t pdv_size, bool received) {
  if (!log_enabled(VX_LOG_T9)) return 0;
  const Bytes bytes{pdu, pdu_size};
  if (!bytes.has(1)) return 4;
  const uint8_t type = pdu[0];
  if (type < 1 || type > std::size(kPduNames)) {
    log_line(VX_LOG_T9, nullptr, "PDU type not correctly identified [ %d ].", type);
    return 4;
  }
  log_line(VX_LOG_T9, nullptr, "PDU Type: 0x%.02x (%s) %s", type, kPduNames[type - 1],
           received ? "Received" : "Sent");
  if (!bytes.has(6)) return 0;
  const uint32_t length = bytes.from(2).number();
  log_line(VX_LOG_T9, nullptr, "  Reserved Byte: 0x%.02x", pdu[1]);
  log_line(VX_LOG_T9, nullptr, "  PDU length: %s (%ld bytes)", hex({pdu + 2, 4}, false).c_str(),
           static_cast<long>(length));
  if (type == 4) {
    trace_data(received ? Bytes{pdv, pdv_size} : bytes.from(6));
    return 0;
  }
  if (!bytes.has(10)) return 0;
  switch (type) {
    case 1:
    case 2:
      trace_associate(bytes, length);
      break;
    case 3:
      log_line(VX_LOG_T9, nullptr, "  Reserved Byte: 0x%.02x ", pdu[6]);
      log_line(VX_LOG_T9, nullptr, "  Result: 0x%.02x ", pdu[7]);
      log_line(VX_LOG_T9, nullptr, "  Source: 0x%.02x ", pdu[8]);
      log_line(VX_LOG_T9, nullptr, "  Reason: 0x%.02x ", pdu[9]);
      break;
    case 7:
      log_line(VX_LOG_T9, nullptr, "  Reserved Bytes (7-8): 0x%.02x 0x%.02x", pdu[6], pdu[7]);
      log_line(VX_LOG_T9, nullptr, "  Source: 0x%.02x", pdu[8]);
      log_line(VX_LOG_T9, nullptr, "  Reason: 0x%.02x", pdu[9]);
      break;
    default:
      log_line(VX_LOG_T9, nullptr, "  Reserved Bytes (7-10): %s", hex({pdu + 6, 4}, false).c_str());
      break;
  }
  return 0;
}

}  // namespace vx
