/* Makes a small Secondary Capture image and writes it as a Part 10 file: write_file FILE. */
#include <stdio.h>
#include <vexalkit.h>

enum { kRows = 64, kColumns = 64 };

static VX_STATUS take_block(const char* name, void* user, uint32_t size, void* data, int32_t first,
                            int32_t last) {
  (void)name;
  (void)first;
  (void)last;
  return fwrite(data, 1, size, (FILE*)user) == size ? VX_NORMAL_COMPLETION : VX_CANNOT_COMPLY;
}

struct Text {
  uint32_t tag;
  const char* value;
};

static const struct Text kTexts[] = {
    {0x00080016, "1.2.840.10008.5.1.4.1.1.7"},
    {0x00080018, "2.25.281203742058117450321771942093121"},
    {0x00080020, "20240229"},
    {0x00080030, "101500"},
    {0x00080060, "OT"},
    {0x00080064, "WSD"},
    {0x00100010, "Phantom^Ramp"},
    {0x00100020, "RAMP-1"},
    {0x00100030, "19700101"},
    {0x0020000D, "2.25.281203742058117450321771942093122"},
    {0x0020000E, "2.25.281203742058117450321771942093123"},
    {0x00200010, "1"},
    {0x00200011, "1"},
    {0x00200013, "1"},
    {0x00280004, "MONOCHROME2"},
};

/* Attributes that must be there but may be empty. */
static const uint32_t kEmpty[] = {0x00080050, 0x00080090, 0x00100040, 0x00200020, 0x00200060};

struct Number {
  uint32_t tag;
  uint16_t value;
};

static const struct Number kNumbers[] = {
    {0x00280002, 1},  {0x00280010, kRows}, {0x00280011, kColumns}, {0x00280100, 16},
    {0x00280101, 12}, {0x00280102, 11},    {0x00280103, 0},
};

int main(int argc, char** argv) {
  static uint16_t pixels[kRows * kColumns];
  FILE* file = argc == 2 ? fopen(argv[1], "wb") : NULL;
  int32_t id = -1;
  size_t i;
  VX_STATUS status;
  if (file == NULL) {
    fprintf(stderr, "usage: write_file FILE\n");
    return 2;
  }
  for (i = 0; i < kRows * kColumns; ++i) pixels[i] = (uint16_t)((i % kColumns + i / kColumns) * 32);
  status = VX_Library_Initialization(NULL, NULL, NULL);
  if (status == VX_NORMAL_COMPLETION) status = VX_Create_Empty_File(&id, argv[1]);
  if (status == VX_NORMAL_COMPLETION) status = VX_Set_Message_Transfer_Syntax(id, EXPLICIT_LITTLE_ENDIAN);
  for (i = 0; status == VX_NORMAL_COMPLETION && i < sizeof kTexts / sizeof kTexts[0]; ++i) {
    status = VX_Set_Value_From_String(id, kTexts[i].tag, kTexts[i].value);
  }
  for (i = 0; status == VX_NORMAL_COMPLETION && i < sizeof kNumbers / sizeof kNumbers[0]; ++i) {
    status = VX_Set_Value_From_UShortInt(id, kNumbers[i].tag, kNumbers[i].value);
  }
  for (i = 0; status == VX_NORMAL_COMPLETION && i < sizeof kEmpty / sizeof kEmpty[0]; ++i) {
    status = VX_Set_Value_To_NULL(id, kEmpty[i]);
  }
  if (status == VX_NORMAL_COMPLETION)
    status = VX_Set_Value_From_Buffer(id, 0x7FE00010, pixels, sizeof pixels);
  if (status == VX_NORMAL_COMPLETION) status = VX_Write_File(id, 0, file, take_block);
  if (status != VX_NORMAL_COMPLETION) fprintf(stderr, "%s: %s\n", argv[1], VX_Error_Message(status));
  if (id >= 0) VX_Free_File(&id);
  VX_Library_Release();
  if (fclose(file) != 0) return 1;
  return status == VX_NORMAL_COMPLETION ? 0 : 1;
}
