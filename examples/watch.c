/*
 * Opens and closes an association and prints the size of each piece that crosses the network: a capture of
 * one's own in place of the files. usage: watch HOST PORT [CALLED-TITLE]
 */
#include <stdio.h>
#include <stdlib.h>
#include <vexalkit.h>

struct Watch {
  const struct sockaddr* requester; /* lives as long as the connection */
  long bytes;
};

static int32_t take_settings(void* context, int32_t size, const char* file, int32_t files, int32_t rewrite) {
  (void)context, (void)size, (void)file, (void)files, (void)rewrite;
  return 0;
}
static void stop(void* context) {
  printf("%ld bytes in all\n", ((struct Watch*)context)->bytes);
}
static void* open_stream(void* context, const struct sockaddr* requester, const struct sockaddr* acceptor) {
  (void)acceptor;
  ((struct Watch*)context)->requester = requester;
  return context; /* what the others get as stream */
}
static void close_stream(void* context, void* stream) {
  (void)context, (void)stream;
}
static int32_t opened(void* context, void* stream, const struct sockaddr* requester,
                      const struct sockaddr* acceptor) {
  (void)context, (void)stream, (void)requester, (void)acceptor;
  printf("connected\n");
  return 0;
}
static int32_t closing(void* context, void* stream, const struct sockaddr* requester,
                       const struct sockaddr* acceptor) {
  (void)context, (void)stream, (void)requester, (void)acceptor;
  printf("closing\n");
  return 0;
}
static int32_t data(void* context, void* stream, const struct sockaddr* sender,
                    const struct sockaddr* receiver, const void* bytes, int32_t length) {
  struct Watch* watch = (struct Watch*)context;
  (void)stream, (void)receiver, (void)bytes;
  watch->bytes += length;
  printf("%s %ld bytes\n", sender == watch->requester ? "sent" : "read", (long)length);
  return 0; /* anything else ends the capture */
}

int main(int argc, char** argv) {
  static struct Watch watch;
  static const NetworkCaptureCallbacks callbacks = {&watch,       take_settings, stop,    open_stream,
                                                    close_stream, opened,        closing, data};
  static const char* const services[] = {"verification", NULL};
  int32_t application = -1;
  int32_t association = -1;
  int32_t port = argc > 2 ? atoi(argv[2]) : 0;
  VX_STATUS status;
  if (argc < 3) {
    fprintf(stderr, "usage: watch HOST PORT [CALLED-TITLE]\n");
    return 2;
  }
  status = VX_Library_Initialization(NULL, NULL, NULL);
  /* Turning it on takes the files for a start; ours replace them. */
  if (status == VX_NORMAL_COMPLETION) status = VX_Set_Bool_Config_Value(VX_CFG_NETWORK_CAPTURE, 1);
  if (status == VX_NORMAL_COMPLETION) status = VX_Register_Network_Capture_Callbacks(&callbacks);
  if (status == VX_NORMAL_COMPLETION) status = VX_Register_Application(&application, "EXAMPLE");
  if (status == VX_NORMAL_COMPLETION)
    status = VX_NewServiceFromName("verification", "STANDARD_ECHO", NULL, VX_NO_ROLE, VX_NO_ROLE);
  if (status == VX_NORMAL_COMPLETION) status = VX_NewProposedServiceList("example", services);
  if (status == VX_NORMAL_COMPLETION) {
    status = VX_Open_Association(application, &association, argc > 3 ? argv[3] : "ANY-SCP", &port, argv[1],
                                 "example");
  }
  if (status == VX_NORMAL_COMPLETION) status = VX_Close_Association(&association);
  if (status != VX_NORMAL_COMPLETION) fprintf(stderr, "%s: %s\n", argv[1], VX_Error_Message(status));
  VX_Library_Release();
  return status == VX_NORMAL_COMPLETION ? 0 : 3;
}
