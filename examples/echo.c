/*
 * Asks a DICOM node whether it is there (C-ECHO).
 * usage: echo HOST PORT [CALLED-TITLE]
 */
#include <stdio.h>
#include <stdlib.h>
#include <vexalkit.h>

/* One request and its answer. */
static VX_STATUS ask(int32_t association, uint16_t* status) {
  int32_t request = -1;
  int32_t answer = -1;
  const char* service = NULL;
  uint16_t command = 0;
  VX_STATUS result = VX_Open_Empty_Message(&request);
  if (result == VX_NORMAL_COMPLETION) result = VX_Set_Service_Command(request, "STANDARD_ECHO", C_ECHO_RQ);
  if (result == VX_NORMAL_COMPLETION) result = VX_Send_Request_Message(association, request);
  if (result == VX_NORMAL_COMPLETION) result = VX_Read_Message(association, 30, &answer, &service, &command);
  if (result == VX_NORMAL_COMPLETION) result = VX_Get_Value_To_UShortInt(answer, 0x00000900, status);
  if (request >= 0) VX_Free_Message(&request);
  if (answer >= 0) VX_Free_Message(&answer);
  return result;
}

int main(int argc, char** argv) {
  static const char* const services[] = {"verification", NULL};
  int32_t application = -1;
  int32_t association = -1;
  int32_t port = argc > 2 ? atoi(argv[2]) : 0;
  uint16_t answer = 0xFFFF;
  VX_STATUS status;
  if (argc < 3) {
    fprintf(stderr, "usage: echo HOST PORT [CALLED-TITLE]\n");
    return 2;
  }
  status = VX_Library_Initialization(NULL, NULL, NULL);
  if (status == VX_NORMAL_COMPLETION) status = VX_Register_Application(&application, "EXAMPLE");
  if (status == VX_NORMAL_COMPLETION)
    status = VX_NewServiceFromName("verification", "STANDARD_ECHO", NULL, VX_NO_ROLE, VX_NO_ROLE);
  if (status == VX_NORMAL_COMPLETION) status = VX_NewProposedServiceList("example", services);
  if (status == VX_NORMAL_COMPLETION) {
    status = VX_Open_Association(application, &association, argc > 3 ? argv[3] : "ANY-SCP", &port, argv[1],
                                 "example");
  }
  if (status == VX_NORMAL_COMPLETION) {
    status = ask(association, &answer);
    /* A failure in the network has ended the association already. */
    VX_Close_Association(&association);
  }
  printf("%s:%d: %s\n", argv[1], (int)port,
         status == VX_NORMAL_COMPLETION ? "answers" : VX_Error_Message(status));
  VX_Library_Release();
  return status == VX_NORMAL_COMPLETION && answer == 0 ? 0 : 3;
}
