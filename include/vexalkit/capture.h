/** @file
 * Functions that see every byte of the network. The conventions stand in vexalkit.h.
 */
#ifndef VEXALKIT_CAPTURE_H
#define VEXALKIT_CAPTURE_H

#include "base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Types --------------------------------------------------------------------------------------------- */

struct sockaddr;

/**
 * Functions that see every byte of every connection while NETWORK_CAPTURE is on. The library keeps the
 * pointer and no copy: the table lives until another one is registered or the capture ends, and all
 * connections made meanwhile are closed. The functions are called by the threads that use the network,
 * several at once. Addresses are the platform's socket addresses, valid during the call. The last three give
 * 0; anything else switches NETWORK_CAPTURE off. Data of secure channels comes in plaintext.
 */
typedef struct NetworkCaptureCallbacks {
  void* Context; /* first argument of every function */
  /* Takes the settings, at registration and at each change of them; the size is in kilobytes, 0 for no limit.
   */
  int32_t (*Initialize)(void* Context, int32_t CaptureFileSize, const char* CaptureFile,
                        int32_t NumberOfFiles, int32_t Rewrite);
  void (*Stop)(void* Context);
  /* A connection stands; the side that connected comes first. What it gives is Stream in the others. */
  void* (*OpenStream)(void* Context, const struct sockaddr* Requester, const struct sockaddr* Acceptor);
  void (*CloseStream)(void* Context, void* Stream);
  /* Right after OpenStream, and right before CloseStream. */
  int32_t (*ConnectionOpened)(void* Context, void* Stream, const struct sockaddr* Requester,
                              const struct sockaddr* Acceptor);
  int32_t (*ConnectionClosing)(void* Context, void* Stream, const struct sockaddr* Requester,
                               const struct sockaddr* Acceptor);
  /* Each piece that was read or written. */
  int32_t (*DataSent)(void* Context, void* Stream, const struct sockaddr* Sender,
                      const struct sockaddr* Receiver, const void* Data, int32_t Length);
} NetworkCaptureCallbacks;

/* ---- Capture ------------------------------------------------------------------------------------------- */

/**
 * Puts a table of functions in place of the library's own capture, which draws each connection over IPv4 into
 * files as CAPTURE_FILE, CAPTURE_FILE_SIZE, NUMBER_OF_CAP_FILES and REWRITE_CAPTURE_FILES say; null goes back
 * to that. Initialize is called at once, and its result is not looked at. Turning NETWORK_CAPTURE on
 * registers the library's own table, so turn it on first. Any thread. VX_NULL_POINTER_PARM: a function is
 * missing.
 */
VX_API VX_STATUS VX_Register_Network_Capture_Callbacks(const NetworkCaptureCallbacks* Callbacks);

#ifdef __cplusplus
}
#endif

#endif
