/* Reads a DICOM file and prints a few of its attributes: read_file FILE. */
#include <stdio.h>
#include <stdlib.h>
#include <vexalkit.h>

static char block[65536];

/* Gives the library the next block of the file. Blocks must be of even length, so the last one may be refused
 * when a file is of odd length; real files never are. */
static VX_STATUS next_block(const char* name, void* user, uint32_t* size, void** data, int32_t first,
                            int32_t* last) {
  FILE* file = (FILE*)user;
  const size_t got = fread(block, 1, sizeof block, file);
  (void)name;
  (void)first;
  if (ferror(file)) return VX_CANNOT_COMPLY;
  *size = (uint32_t)got;
  *data = block;
  *last = got < sizeof block ? 1 : 0;
  return VX_NORMAL_COMPLETION;
}

static void print_text(int32_t id, uint32_t tag, const char* label) {
  char text[256];
  if (VX_Get_Value_To_String(id, tag, sizeof text, text) == VX_NORMAL_COMPLETION)
    printf("%-10s %s\n", label, text);
}

int main(int argc, char** argv) {
  FILE* file = argc == 2 ? fopen(argv[1], "rb") : NULL;
  int32_t application = -1;
  int32_t id = -1;
  VX_STATUS status;
  if (file == NULL) {
    fprintf(stderr, "usage: read_file FILE\n");
    return 2;
  }
  status = VX_Library_Initialization(NULL, NULL, NULL);
  if (status == VX_NORMAL_COMPLETION) status = VX_Register_Application(&application, "EXAMPLE");
  if (status == VX_NORMAL_COMPLETION) status = VX_Create_Empty_File(&id, argv[1]);
  if (status == VX_NORMAL_COMPLETION) status = VX_Open_File(application, id, file, next_block);
  fclose(file);
  if (status != VX_NORMAL_COMPLETION) {
    fprintf(stderr, "%s: %s\n", argv[1], VX_Error_Message(status));
  } else {
    print_text(id, 0x00080060, "Modality");
    print_text(id, 0x00100010, "Patient");
    print_text(id, 0x00280010, "Rows");
    print_text(id, 0x00280011, "Columns");
  }
  if (id >= 0) VX_Free_File(&id);
  VX_Library_Release();
  return status == VX_NORMAL_COMPLETION ? 0 : 1;
}
