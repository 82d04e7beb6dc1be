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
 * Functions that see every byte of every connection while NETWORK_CAPTURE is on.
 * The library keeps the pointer and no copy: the table lives until another one is registered or the capture
 * ends, and all connections made meanwhile are closed. All seven functions are required. They are called by
 * the threads that use the network, several at once. Addresses are the platform's socket addresses, valid
 * during the call, and so are texts and data. Of connections that are open when another table is registered
 * or the capture ends, a table is told nothing more. Data of secure channels comes in plaintext.
 */
typedef struct NetworkCaptureCallbacks {
  void* Context; /* first argument of every function; the table's own, may be null */
  /* Takes the settings, at registration and at each change of them: CAPTURE_FILE_SIZE in kilobytes, 0 for no
   * limit, CAPTURE_FILE, NUMBER_OF_CAP_FILES, and Rewrite 1 or 0 for REWRITE_CAPTURE_FILES. The result is not
   * looked at.
   */
  int32_t (*Initialize)(void* Context, int32_t CaptureFileSize, const char* CaptureFile,
                        int32_t NumberOfFiles, int32_t Rewrite);
  /* The capture ends: NETWORK_CAPTURE goes off, or the library is reset or released. */
  void (*Stop)(void* Context);
  /* A connection stands; Requester is the side that connected. What it gives is Stream in the others; null
   * will do.
   */
  void* (*OpenStream)(void* Context, const struct sockaddr* Requester, const struct sockaddr* Acceptor);
  /* The connection is about to end; frees Stream. */
  void (*CloseStream)(void* Context, void* Stream);
  /* Right after OpenStream, and right before CloseStream. Of these two and of DataSent 0 is success; anything
   * else switches NETWORK_CAPTURE off.
   */
  int32_t (*ConnectionOpened)(void* Context, void* Stream, const struct sockaddr* Requester,
                              const struct sockaddr* Acceptor);
  int32_t (*ConnectionClosing)(void* Context, void* Stream, const struct sockaddr* Requester,
                               const struct sockaddr* Acceptor);
  /* Each piece that was read or written, Length bytes above 0. */
  int32_t (*DataSent)(void* Context, void* Stream, const struct sockaddr* Sender,
                      const struct sockaddr* Receiver, const void* Data, int32_t Length);
} NetworkCaptureCallbacks;

/* ---- Capture ------------------------------------------------------------------------------------------- */

/**
 * Puts a table of functions in place of the library's own capture, or goes back to that.
 * The library's own draws each connection over IPv4 into files as CAPTURE_FILE, CAPTURE_FILE_SIZE,
 * NUMBER_OF_CAP_FILES and REWRITE_CAPTURE_FILES say. Turning NETWORK_CAPTURE on registers it, so turn that on
 * first. Initialize is called at once; the former table is told nothing.
 * @param Callbacks  the table, which is not copied: see NetworkCaptureCallbacks; null: the library's own.
 * @retval VX_NULL_POINTER_PARM  a function of the table is missing.
 */
VX_API VX_STATUS VX_Register_Network_Capture_Callbacks(const NetworkCaptureCallbacks* Callbacks);

#ifdef __cplusplus
}
#endif

#endif
