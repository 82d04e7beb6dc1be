/*
 * Lists a DICOMDIR of any size: records are read as they are reached and let go behind.
 * usage: directory DICOMDIR
 */
#include <stdio.h>
#include <vexalkit.h>

static const char* text(int32_t record, uint32_t tag, char* buffer, int32_t size) {
  buffer[0] = '\0';
  VX_Get_Value_To_String(record, tag, size, buffer);
  return buffer;
}

static VX_STATUS list(int32_t parent, int depth) {
  char type[64], name[256], file[64];
  int32_t record = 0;
  VX_STATUS status = VX_DDH_Get_First_Lower_Record(parent, &record);
  while (status == VX_NORMAL_COMPLETION && record != 0) {
    int32_t next = 0;
    /* (0004,1430) Directory Record Type, (0010,0010) Patient's Name, (0004,1500) Referenced File ID */
    printf("%*s%s %s", depth * 2, "", text(record, 0x00041430, type, sizeof type),
           text(record, 0x00100010, name, sizeof name));
    for (status = VX_Get_Value_To_String(record, 0x00041500, sizeof file, file);
         status == VX_NORMAL_COMPLETION;
         status = VX_Get_Next_Value_To_String(record, 0x00041500, sizeof file, file)) {
      printf("/%s", file);
    }
    printf("\n");
    status = list(record, depth + 1);
    if (status == VX_NORMAL_COMPLETION) status = VX_DDH_Get_Next_Record(record, &next);
    VX_DDH_Release_Record(record);
    record = next;
  }
  return status;
}

int main(int argc, char** argv) {
  int32_t directory = -1;
  VX_STATUS status;
  if (argc != 2) {
    fprintf(stderr, "usage: directory DICOMDIR\n");
    return 2;
  }
  status = VX_Library_Initialization(NULL, NULL, NULL);
  if (status == VX_NORMAL_COMPLETION) status = VX_DDH_Open(argv[1], &directory);
  if (status == VX_NORMAL_COMPLETION) {
    status = list(directory, 0);
    VX_Free_File(&directory);
  }
  if (status != VX_NORMAL_COMPLETION) fprintf(stderr, "%s: %s\n", argv[1], VX_Error_Message(status));
  VX_Library_Release();
  return status == VX_NORMAL_COMPLETION ? 0 : 1;
}
