/*
 * Makes a small measurement report (TID 1500), writes it as a Part 10 file, reads it again and prints its
 * tree: report FILE.
 */
#include <stdio.h>
#include <vexalkit.h>

static const char kClass[] = "1.2.840.10008.5.1.4.1.1.88.33";
static const char kInstance[] = "2.25.281203742058117450321771942094101";
static const char kImageClass[] = "1.2.840.10008.5.1.4.1.1.2";
static const char kImage[] = "2.25.281203742058117450321771942094104";

static VX_STATUS take_block(const char* name, void* user, uint32_t size, void* data, int32_t first,
                            int32_t last) {
  (void)name;
  (void)first;
  (void)last;
  return fwrite(data, 1, size, (FILE*)user) == size ? VX_NORMAL_COMPLETION : VX_CANNOT_COMPLY;
}

static VX_STATUS next_block(const char* name, void* user, uint32_t* size, void** data, int32_t first,
                            int32_t* last) {
  static char block[65536];
  const size_t got = fread(block, 1, sizeof block, (FILE*)user);
  (void)name;
  (void)first;
  if (ferror((FILE*)user)) return VX_CANNOT_COMPLY;
  *size = (uint32_t)got;
  *data = block;
  *last = got < sizeof block ? 1 : 0;
  return VX_NORMAL_COMPLETION;
}

/* Steps whose first failure is kept: the rest are not taken. */
static VX_STATUS status = VX_NORMAL_COMPLETION;
#define STEP(call) \
  if (status == VX_NORMAL_COMPLETION) status = (call)

/* The tree: a procedure, and one lesion with its length, the line on the image, and what the length was taken
 * from. */
static void add_content(int32_t root) {
  int32_t node = 0, list = 0, group = 0, number = 0, region = 0;
  STEP(VX_SRH_Add_CODE_Child(root, SRH_HAS_CONCEPT_MOD, "121058", "DCM", "Procedure reported", "77477000",
                             "SCT", "Computed tomography", &node));
  STEP(VX_SRH_Add_CONTAINER_Child(root, SRH_CONTAINS, SRH_SEPARATE, NULL, &list));
  STEP(VX_SRH_Set_Concept_Name(list, "126010", "DCM", "Imaging Measurements"));
  STEP(VX_SRH_Add_CONTAINER_Child(list, SRH_CONTAINS, SRH_SEPARATE, "1501", &group));
  STEP(VX_SRH_Set_Concept_Name(group, "125007", "DCM", "Measurement Group"));
  STEP(VX_SRH_Add_TEXT_Child(group, SRH_HAS_OBS_CONTEXT, "112039", "DCM", "Tracking Identifier", "Lesion 1",
                             &node));
  STEP(VX_SRH_Add_UIDREF_Child(group, SRH_HAS_OBS_CONTEXT, "112040", "DCM", "Tracking Unique Identifier",
                               "2.25.281203742058117450321771942094105", &node));
  STEP(VX_SRH_Add_NUM_Child(group, SRH_CONTAINS, "410668003", "SCT", "Length", "23.5", "mm", "UCUM",
                            "millimeter", &number));
  STEP(VX_SRH_Add_SCOORD_Child(number, SRH_INFERRED_FROM, 120.0F, 88.5F, SRH_SPATIAL_POLYLINE, &region));
  STEP(VX_SRH_Set_SCOORD_Next_Data(region, 151.25F, 90.0F));
  STEP(VX_SRH_Add_IMAGE_Child(region, SRH_SELECTED_FROM, kImageClass, kImage, &node));
}

/* What a report has beside its tree. (0040,A375) lists the objects that the tree refers to. */
static void add_head(int32_t id) {
  static const struct {
    uint32_t tag;
    const char* value;
  } texts[] = {
      {0x00080016, kClass},
      {0x00080018, kInstance},
      {0x00080020, "20240229"},
      {0x00080023, "20240229"},
      {0x00080030, "101500"},
      {0x00080033, "102000"},
      {0x00080060, "SR"},
      {0x00080070, "Example"},
      {0x00100010, "Phantom^Ramp"},
      {0x00100020, "RAMP-1"},
      {0x00100030, "19700101"},
      {0x0020000D, "2.25.281203742058117450321771942094102"},
      {0x00200010, "1"},
      {0x00200011, "1"},
      {0x00200013, "1"},
      {0x0040A491, "COMPLETE"},
      {0x0040A493, "UNVERIFIED"},
      {0x0020000E, "2.25.281203742058117450321771942094103"},
  };
  static const uint32_t empty[] = {0x00080050, 0x00080090, 0x00081111, 0x00100040, 0x0040A372};
  int32_t study = -1, series = -1, object = -1;
  size_t i;
  for (i = 0; i < sizeof texts / sizeof texts[0]; ++i) {
    STEP(VX_Set_Value_From_String(id, texts[i].tag, texts[i].value));
  }
  for (i = 0; i < sizeof empty / sizeof empty[0]; ++i) STEP(VX_Set_Value_To_NULL(id, empty[i]));
  STEP(VX_Open_Empty_Item(&study));
  STEP(VX_Set_Value_From_Int(id, 0x0040A375, study));
  STEP(VX_Set_Value_From_String(study, 0x0020000D, "2.25.281203742058117450321771942094102"));
  STEP(VX_Open_Empty_Item(&series));
  STEP(VX_Set_Value_From_Int(study, 0x00081115, series));
  STEP(VX_Set_Value_From_String(series, 0x0020000E, "2.25.281203742058117450321771942094106"));
  STEP(VX_Open_Empty_Item(&object));
  STEP(VX_Set_Value_From_Int(series, 0x00081199, object));
  STEP(VX_Set_Value_From_String(object, 0x00081150, kImageClass));
  STEP(VX_Set_Value_From_String(object, 0x00081155, kImage));
}

static void write_report(const char* path) {
  FILE* file = fopen(path, "wb");
  int32_t id = -1;
  if (file == NULL) {
    status = VX_CANNOT_COMPLY;
    return;
  }
  STEP(VX_SRH_Create_SR("STANDARD_COMPREHENSIVE_SR", "1500", SRH_SEPARATE, "126000", "DCM",
                        "Imaging Measurement Report", &id));
  if (status == VX_NORMAL_COMPLETION) add_content(id);
  STEP(VX_SR_To_Message(id)); /* the message and its items stay; only the tree beside them goes */
  if (status == VX_NORMAL_COMPLETION) add_head(id);
  STEP(VX_Message_To_File(id, path));
  STEP(VX_Set_Value_From_String(id, 0x00020002, kClass));
  STEP(VX_Set_Value_From_String(id, 0x00020003, kInstance));
  STEP(VX_Set_Value_From_String(id, 0x00020010, "1.2.840.10008.1.2.1"));
  STEP(VX_Write_File(id, 0, file, take_block));
  if (fclose(file) != 0) STEP(VX_CANNOT_COMPLY);
  if (id >= 0) VX_Free_File(&id);
}

static void print_value(int32_t node, int32_t type) {
  char value[256] = "", unit[64] = "", scheme[64], meaning[64];
  int32_t count = 0, kind = 0;
  float x = 0, y = 0;
  if (type == SRH_TEXT) VX_SRH_Get_TEXT_Data(node, value, sizeof value);
  if (type == SRH_UIDREF) VX_SRH_Get_UIDREF_Data(node, value, sizeof value);
  if (type == SRH_CODE)
    VX_SRH_Get_CODE_Data(node, unit, sizeof unit, scheme, sizeof scheme, value, sizeof value);
  if (type == SRH_NUM) {
    VX_SRH_Get_NUM_Data(node, value, sizeof value, &count, unit, sizeof unit, scheme, sizeof scheme, meaning,
                        sizeof meaning);
    printf(" = %s %s", value, unit);
  } else if (type == SRH_SCOORD) {
    VX_STATUS more = VX_SRH_Get_SCOORD_First_Data(node, &x, &y, &count, &kind);
    for (; more == VX_NORMAL_COMPLETION; more = VX_SRH_Get_SCOORD_Next_Data(node, &x, &y))
      printf(" (%g, %g)", x, y);
  } else if (type == SRH_IMAGE) {
    VX_SRH_Get_IMAGE_Data(node, unit, sizeof unit, value, sizeof value, &count);
    printf(" of %s", value);
  } else if (value[0] != '\0') {
    printf(" = %s", value);
  }
  printf("\n");
}

static void print_tree(int32_t node, int depth) {
  char location[81], code[64], scheme[64], meaning[128];
  int32_t child = 0, relationship = 0, type = 0, last = 0;
  VX_STATUS step = VX_SRH_Get_First_Child(node, &child, &relationship, &type, &last);
  for (; step == VX_NORMAL_COMPLETION && child != 0;
       step = VX_SRH_Get_Next_Child(node, &child, &relationship, &type, &last)) {
    VX_SR_Get_Location(child, sizeof location, location);
    if (VX_SRH_Get_Concept_Name(child, code, sizeof code, scheme, sizeof scheme, meaning, sizeof meaning) !=
        VX_NORMAL_COMPLETION)
      sprintf(meaning, "(type %d)", (int)type);
    printf("%*s%s %s", depth * 2, "", location, meaning);
    print_value(child, type);
    print_tree(child, depth + 1);
  }
}

static void read_report(const char* path) {
  FILE* file = fopen(path, "rb");
  int32_t application = -1, id = -1;
  if (file == NULL) {
    status = VX_CANNOT_COMPLY;
    return;
  }
  STEP(VX_Register_Application(&application, "EXAMPLE"));
  STEP(VX_Create_Empty_File(&id, path));
  STEP(VX_Open_File(application, id, file, next_block));
  fclose(file);
  STEP(VX_File_To_Message(id));
  STEP(VX_Message_To_SR(id));
  if (status != VX_NORMAL_COMPLETION) return;
  print_tree(id, 0);
  VX_SRH_Free_SR(id);
}

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: report FILE\n");
    return 2;
  }
  status = VX_Library_Initialization(NULL, NULL, NULL);
  if (status == VX_NORMAL_COMPLETION) write_report(argv[1]);
  if (status == VX_NORMAL_COMPLETION) read_report(argv[1]);
  if (status != VX_NORMAL_COMPLETION) fprintf(stderr, "%s: %s\n", argv[1], VX_Error_Message(status));
  VX_Library_Release();
  return status == VX_NORMAL_COMPLETION ? 0 : 1;
}
