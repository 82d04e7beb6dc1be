/*
 * Adds a patient with a study to a DICOMDIR in place, which is made where there is none. Nothing of it is
 * read but the records on the way, and the update is whole or not done. usage: add_patient DICOMDIR
 * PATIENT-ID NAME STUDY-UID
 */
#include <stdio.h>
#include <vexalkit.h>

int main(int argc, char** argv) {
  int32_t directory = -1;
  int32_t patient = 0;
  int32_t study = 0;
  VX_STATUS status;
  if (argc != 5) {
    fprintf(stderr, "usage: add_patient DICOMDIR PATIENT-ID NAME STUDY-UID\n");
    return 2;
  }
  status = VX_Library_Initialization(NULL, NULL, NULL);
  if (status == VX_NORMAL_COMPLETION) {
    FILE* old = fopen(argv[1], "rb");
    if (old != NULL) fclose(old);
    status =
        old != NULL ? VX_DDH_Open(argv[1], &directory) : VX_DDH_Create(argv[1], "EXAMPLE", 0, &directory);
  }
  if (status == VX_NORMAL_COMPLETION) status = VX_DDH_Add_Record(directory, "PATIENT", &patient);
  if (status == VX_NORMAL_COMPLETION) status = VX_Set_Value_From_String(patient, 0x00100020, argv[2]);
  if (status == VX_NORMAL_COMPLETION) status = VX_Set_Value_From_String(patient, 0x00100010, argv[3]);
  /* Without a type it is that of the depth: below a patient a study. */
  if (status == VX_NORMAL_COMPLETION) status = VX_DDH_Add_Record(patient, NULL, &study);
  if (status == VX_NORMAL_COMPLETION) status = VX_Set_Value_From_String(study, 0x0020000D, argv[4]);
  if (status == VX_NORMAL_COMPLETION) status = VX_DDH_Update(directory);
  if (directory >= 0) VX_Free_File(&directory);
  if (status != VX_NORMAL_COMPLETION) fprintf(stderr, "%s: %s\n", argv[1], VX_Error_Message(status));
  VX_Library_Release();
  return status == VX_NORMAL_COMPLETION ? 0 : 1;
}
