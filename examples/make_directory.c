/*
 * Makes a DICOMDIR in memory, sorts it and writes it.
 * usage: make_directory DICOMDIR
 */
#include <stdio.h>
#include <vexalkit.h>

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

static VX_STATUS set(int32_t id, const struct Text* texts, size_t count) {
  VX_STATUS status = VX_NORMAL_COMPLETION;
  size_t i;
  for (i = 0; i < count && status == VX_NORMAL_COMPLETION; ++i)
    status = VX_Set_Value_From_String(id, texts[i].tag, texts[i].value);
  return status;
}
#define SET(id, texts) set(id, texts, sizeof(texts) / sizeof(texts)[0])

/* The image IMAGES/I<number>, as a record. */
static VX_STATUS fill_image(int32_t record, int number) {
  char name[9], instance[40], count[13];
  struct Text texts[] = {{0x00041500, "IMAGES"},
                         {0x00041510, "1.2.840.10008.5.1.4.1.1.7"},
                         {0x00041511, NULL},
                         {0x00041512, "1.2.840.10008.1.2.1"},
                         {0x00200013, NULL}};
  VX_STATUS status;
  sprintf(name, "I%d", number);
  sprintf(instance, "2.25.2812037420581174503217.%d", number);
  sprintf(count, "%d", number);
  texts[2].value = instance;
  texts[4].value = count;
  status = SET(record, texts);
  return status == VX_NORMAL_COMPLETION ? VX_Set_Next_Value_From_String(record, 0x00041500, name) : status;
}

static VX_STATUS fill(int32_t directory) {
  static const struct Text kDirectory[] = {{0x00020010, "1.2.840.10008.1.2.1"}, {0x00041130, "EXAMPLE"}};
  static const struct Text kPatient[] = {{0x00100010, "Phantom^Ramp"}, {0x00100020, "RAMP-1"}};
  static const struct Text kStudy[] = {{0x00080020, "20240229"},
                                       {0x00080030, "101500"},
                                       {0x0020000D, "2.25.281203742058117450321771942093122"},
                                       {0x00200010, "1"}};
  static const struct Text kSeries[] = {
      {0x00080060, "OT"}, {0x0020000E, "2.25.281203742058117450321771942093123"}, {0x00200011, "1"}};
  int32_t entity = 0;
  int32_t record = 0;
  int number;
  VX_STATUS status = SET(directory, kDirectory);
  /* Each entity is made with its first record; 0 stands for the root. */
  if (status == VX_NORMAL_COMPLETION)
    status = VX_Dir_Add_Entity(directory, 0, "DIR_REC_PATIENT", &entity, &record);
  if (status == VX_NORMAL_COMPLETION) status = SET(record, kPatient);
  if (status == VX_NORMAL_COMPLETION)
    status = VX_Dir_Add_Entity(directory, record, "DIR_REC_STUDY", &entity, &record);
  if (status == VX_NORMAL_COMPLETION) status = SET(record, kStudy);
  if (status == VX_NORMAL_COMPLETION)
    status = VX_Dir_Add_Entity(directory, record, "DIR_REC_SERIES", &entity, &record);
  if (status == VX_NORMAL_COMPLETION) status = SET(record, kSeries);
  if (status == VX_NORMAL_COMPLETION)
    status = VX_Dir_Add_Entity(directory, record, "DIR_REC_IMAGE", &entity, &record);
  for (number = 3; status == VX_NORMAL_COMPLETION; --number) {
    status = fill_image(record, number);
    if (status != VX_NORMAL_COMPLETION || number == 1) break;
    status = VX_Dir_Add_Record(directory, entity, "DIR_REC_IMAGE", &record);
  }
  return status == VX_NORMAL_COMPLETION ? VX_Dir_Sort(directory) : status;
}

int main(int argc, char** argv) {
  FILE* file = argc == 2 ? fopen(argv[1], "wb") : NULL;
  int32_t directory = -1;
  VX_STATUS status;
  if (file == NULL) {
    fprintf(stderr, "usage: make_directory DICOMDIR\n");
    return 2;
  }
  status = VX_Library_Initialization(NULL, NULL, NULL);
  if (status == VX_NORMAL_COMPLETION) status = VX_Create_File(&directory, argv[1], "DICOMDIR", C_STORE_RQ);
  if (status == VX_NORMAL_COMPLETION) status = fill(directory);
  if (status == VX_NORMAL_COMPLETION) status = VX_Write_File(directory, 0, file, take_block);
  if (fclose(file) != 0 && status == VX_NORMAL_COMPLETION) status = VX_CANNOT_COMPLY;
  if (directory >= 0) VX_Free_File(&directory);
  if (status != VX_NORMAL_COMPLETION) fprintf(stderr, "%s: %s\n", argv[1], VX_Error_Message(status));
  VX_Library_Release();
  return status == VX_NORMAL_COMPLETION ? 0 : 1;
}
