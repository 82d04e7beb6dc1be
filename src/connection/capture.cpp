// The table of capture functions: who is registered, what the settings and the transport tell it.
#include "connection/capture.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <memory>

#include "config/config.h"
#include "config/seams.h"
#include "frame/log.h"
#include "frame/seams.h"

namespace vx {
namespace {

std::atomic<const NetworkCaptureCallbacks*> g_registered{nullptr};
std::atomic<bool> g_warned_of_plaintext{false};

// A stream and the table that opened it: another one may be registered before the connection ends.
struct OpenCapture {
  const NetworkCaptureCallbacks* table;
  void* stream;
};

const sockaddr* plain(const sockaddr_storage& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

// The side that connected, and the other.
const sockaddr* requester(const TL_Transport& transport) {
  return plain(transport.isRequester ? transport.localAddress : transport.remoteAddressRaw);
}
const sockaddr* acceptor(const TL_Transport& transport) {
  return plain(transport.isRequester ? transport.remoteAddressRaw : transport.localAddress);
}

void initialize(const NetworkCaptureCallbacks& table, int32_t file_size, const char* file, int32_t files,
                bool rewrite) {
  table.Initialize(table.Context, file_size, file, files, rewrite ? 1 : 0);
}

void warn_of_plaintext() {
  if (g_warned_of_plaintext.exchange(true, std::memory_order_relaxed)) return;
  VX_LOG_WARN("open_secure_channel", "Network capture records secure traffic in plaintext.");
}

}  // namespace

VX_STATUS capture_register(const NetworkCaptureCallbacks* callbacks) {
  const NetworkCaptureCallbacks& table = callbacks != nullptr ? *callbacks : capture_files();
  if (table.Initialize == nullptr || table.Stop == nullptr || table.OpenStream == nullptr ||
      table.CloseStream == nullptr || table.ConnectionOpened == nullptr ||
      table.ConnectionClosing == nullptr || table.DataSent == nullptr) {
    return VX_NULL_POINTER_PARM;
  }
  g_registered.store(&table);
  g_warned_of_plaintext.store(false, std::memory_order_relaxed);
  initialize(table, config_long(VX_CFG_CAPTURE_FILE_SIZE), config_text(VX_CFG_CAPTURE_FILE).c_str(),
             config_int(VX_CFG_NUMBER_OF_CAP_FILES), config_bool(VX_CFG_REWRITE_CAPTURE_FILES));
  return kOk;
}

void capture_start() {
  if (config_bool(VX_CFG_NETWORK_CAPTURE)) capture_register(nullptr);
}

void capture_stop() {
  const NetworkCaptureCallbacks* table = g_registered.exchange(nullptr);
  if (table != nullptr) table->Stop(table->Context);
}

void capture_settings_changed(int32_t file_size, const char* file, int32_t files, bool rewrite) {
  const NetworkCaptureCallbacks* table = g_registered.load();
  if (table != nullptr) initialize(*table, file_size, file, files, rewrite);
}

bool capture_open_stream(TL_Transport& transport) {
  const NetworkCaptureCallbacks* table = g_registered.load();
  if (table == nullptr) return true;
  auto open = std::unique_ptr<OpenCapture>(new (std::nothrow) OpenCapture{table, nullptr});
  if (open == nullptr) return true;
  if (transport.secureFunctions != nullptr) warn_of_plaintext();
  open->stream = table->OpenStream(table->Context, requester(transport), acceptor(transport));
  void* stream = open->stream;
  transport.captureStream = open.release();
  return table->ConnectionOpened(table->Context, stream, requester(transport), acceptor(transport)) == 0;
}

// A connection that was made before the capture began, or under another table, goes unrecorded.
bool capture_data(TL_Transport& transport, bool sent, const void* data, uint32_t length) {
  const auto* open = static_cast<const OpenCapture*>(transport.captureStream);
  if (open == nullptr || open->table != g_registered.load()) return true;
  const sockaddr* local = plain(transport.localAddress);
  const sockaddr* remote = plain(transport.remoteAddressRaw);
  const auto* bytes = static_cast<const uint8_t*>(data);
  while (length > 0) {
    const uint32_t part = std::min<uint32_t>(length, INT_MAX);
    if (open->table->DataSent(open->table->Context, open->stream, sent ? local : remote,
                              sent ? remote : local, bytes, static_cast<int32_t>(part)) != 0) {
      return false;
    }
    bytes += part;
    length -= part;
  }
  return true;
}

bool capture_close_stream(TL_Transport& transport) {
  const std::unique_ptr<OpenCapture> open(static_cast<OpenCapture*>(transport.captureStream));
  transport.captureStream = nullptr;
  if (open == nullptr) return true;
  // A table that was replaced may be gone; the library's own never is.
  const bool registered = open->table == g_registered.load();
  if (!registered && open->table != &capture_files()) return true;
  bool fine = true;
  if (registered && config_bool(VX_CFG_NETWORK_CAPTURE)) {
    fine = open->table->ConnectionClosing(open->table->Context, open->stream, requester(transport),
                                          acceptor(transport)) == 0;
  }
  open->table->CloseStream(open->table->Context, open->stream);
  return fine;
}

}  // namespace vx
