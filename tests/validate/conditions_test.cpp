// Conditions as a validation gives their answers: each form of rule, and each that answers in its own way.
#include "validate/conditions.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <regex>
#include <set>

#include "frame/seams.h"
#include "info_file.h"
#include "model/seams.h"
#include "objects.h"
#include "validate/condition_rules.h"

namespace {

using namespace objects;

bool is_condition(std::string_view name) {
  std::string_view rule;
  return vx::find_condition(name, rule);
}
// A name that the table lacks is as one that nothing can be told of.
int32_t evaluate(std::string_view name, int32_t object_id, uint32_t tag) {
  std::string_view rule;
  vx::find_condition(name, rule);
  return vx::evaluate_condition(rule, vx::Scope{object_id}, tag);
}

struct Case {
  const char* name;
  std::vector<std::pair<const char*, int32_t>> answers;  // to contents
};

// All names of the table, in its order.
const std::vector<std::string>& condition_names() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> all;
    for (const std::string_view table : {vx::kConditionRules, vx::kUnjudgedConditions}) {
      std::istringstream lines{std::string(table)};
      for (std::string line; std::getline(lines, line);) all.push_back(line.substr(0, line.find(':')));
    }
    return all;
  }();
  return names;
}

// Every condition has an attribute of its own in the template, which tells its answer.
uint32_t probe_of(std::string_view name) {
  const auto& names = condition_names();
  const auto at = std::find(names.begin(), names.end(), name);
  EXPECT_NE(at, names.end()) << name;
  return 0x41000001U + static_cast<uint32_t>(at - names.begin());
}

constexpr uint32_t kPixelSpacing = 0x00280030;

class Conditions : public support::LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    install("");
  }
  // The template of the messages; it knows Pixel Spacing where a type is given.
  void install(const std::string& spacing_type) {
    support::Body body;
    if (!spacing_type.empty()) body.add(kPixelSpacing, spacing_type, "LO");
    for (const std::string& name : condition_names()) body.add(probe_of(name), "1C", "LO").with(2000, name);
    vx::model_drop();
    set_text(VX_CFG_MSG_INFO_FILE,
             folder().write("test.msg", support::InfoBuilder().service(2, C_STORE_RQ, body).bytes()));
  }

  // No tag is known, so that the cases choose the VRs.
  std::string dictionary() override { return support::DictionaryFile().bytes(); }
  // Tags of other VRs than the text of most cases.
  static VX_VR vr_of(uint32_t tag) {
    static const std::map<uint32_t, VX_VR> kOthers = {
        {0x00080016, VX_VR_UI}, {0x00181083, VX_VR_IS}, {0x00186044, VX_VR_US}, {0x00280002, VX_VR_US},
        {0x00280009, VX_VR_AT}, {0x00280034, VX_VR_IS}, {0x00280101, VX_VR_US}, {0x00289001, VX_VR_UL},
        {0x00701801, VX_VR_SQ}, {0x00720306, VX_VR_US}, {0x00720308, VX_VR_US}, {0x300A0080, VX_VR_IS}};
    const auto found = kOthers.find(tag);
    return found != kOthers.end() ? found->second : VX_VR_LO;
  }

  void TearDown() override {
    vx::model_drop();
    LibraryTest::TearDown();
  }
  static int32_t fill(const std::string& content) {
    int32_t id = -1;
    EXPECT_EQ(VX_Open_Empty_Message(&id), VX_NORMAL_COMPLETION);
    EXPECT_EQ(VX_Set_Service_Command(id, "STANDARD_CT", C_STORE_RQ), VX_NORMAL_COMPLETION);
    edit(id, content, vr_of);
    return id;
  }

  // What a validation finds in one attribute.
  static std::vector<VX_STATUS> findings(int32_t id, uint32_t tag) {
    std::vector<VX_STATUS> found;
    ValErrObj* finding = nullptr;
    EXPECT_EQ(VX_Validate_Message(id, &finding, VX_All_Findings), VX_DOES_NOT_VALIDATE);
    for (; finding != nullptr; VX_Get_Next_Validate_Error(id, &finding)) {
      if (finding->Tag == tag) found.push_back(finding->Status);
    }
    return found;
  }

  // The answer shows on an attribute that has a value: required, not allowed, or it can't be told.
  static int32_t answer(int32_t id, std::string_view name) {
    const uint32_t probe = probe_of(name);
    VX_Add_Nonstandard_Attribute(id, probe, VX_VR_LO);
    EXPECT_EQ(VX_Set_Value_From_String(id, probe, "1"), VX_NORMAL_COMPLETION);
    const std::vector<VX_STATUS> found = findings(id, probe);
    if (found.empty()) return 1;
    if (found == std::vector<VX_STATUS>{VX_VALUE_NOT_ALLOWED}) return 0;
    return found == std::vector<VX_STATUS>{VX_UNABLE_TO_CHECK_CONDITION} ? 2 : -1;
  }

  void check(std::initializer_list<Case> cases) {
    for (const auto& [name, answers] : cases) {
      for (const auto& [content, expected] : answers) {
        EXPECT_EQ(answer(fill(content), name), expected) << name << " with " << content;
      }
    }
  }
};

TEST_F(Conditions, PresenceByLookupTakesNullForAValue) {
  check({{"A00281052_PRESENT", {{"", 0}, {"00281052", 0}, {"00281052=", 1}, {"00281052=1", 1}}},
         {"A00281052_NOT_PRESENT", {{"", 1}, {"00281052", 1}, {"00281052=", 0}}},
         {"A0028OA02_PRESENT", {{"00280A02=FIDUCIAL", 1}}},
         {"A00880130_NOT_PRESENT", {{"", 1}, {"00880140=1.2", 0}, {"00880130=A", 0}}},
         {"A00701801_HAS_MULTIPLE_ITEMS", {{"00701801*1", 0}, {"00701801*2", 1}}}});
}

TEST_F(Conditions, PresenceByCountTakesNullForNone) {
  check({{"A00720316_PRESENT", {{"", 0}, {"00720316", 0}, {"00720316=", 0}, {"00720316=1", 1}}},
         {"A00189403_NOT_EMPTY", {{"00189403=", 0}, {"00189403=1", 1}}},
         {"A00286110_MULTIVALUED", {{"00286110=1", 0}, {"00286110=1\\2", 1}}},
         {"A300A02A2_IS_NON_NULL", {{"300A02A2=", 0}, {"300A02A2=1", 1}}},
         {"A300A00E1_IS_NULL", {{"", 0}, {"300A00E1=", 1}, {"300A00E1=LEAD", 0}}}});
}

// A null value tells the two ways of looking apart.
TEST_F(Conditions, EachNameThatCountsValues) {
  constexpr struct {
    const char* name;
    const char* tag;
    int32_t null;           // the answer for a null value; the other one for a value
    const char* with = "";  // what else it needs, with a semicolon
  } kRows[] = {
      {"A00400551_PRESENT", "00400551", 0},
      {"A0022004E_PRESENT", "0022004E", 0},
      {"A0040A162_PRESENT", "0040A162", 0},
      {"A0040A30A_PRESENT", "0040A30A", 0},
      {"A00420011_IS_PRESENT", "00420011", 0},
      {"A00686430_IS_PRESENT", "00686430", 0},
      {"A006864C0_IS_PRESENT", "006864C0", 0},
      {"A00686610_IS_PRESENT", "00686610", 0},
      {"A00720312_PRESENT", "00720312", 0},
      {"A00780050_IS_PRESENT", "00780050", 0},
      {"A20100160_IS_PRESENT", "20100160", 0},
      {"A300A0114_PRESENT", "300A0114", 0},
      {"A00404071_AND_A00404072_NOT_PRESENT", "00404071", 1},
      {"A00404071_AND_A00404074_NOT_PRESENT", "00404074", 1},
      {"A00404072_AND_A00404074_NOT_PRESENT", "00404072", 1},
      {"A0040A040_IS_TCOORD_REF_AND_DATETIME_NEEDED", "0040A132", 1, "0040A040=TCOORD;"},
      {"A0040A130_PRESENT_AND_NOT_PRESENT_A0040A132_AND_A0040A13A", "0040A132", 1, "0040A130=POINT;"},
      {"A0040A130_PRESENT_AND_NOT_PRESENT_A0040A132_AND_A0040A138", "0040A138", 1, "0040A130=POINT;"},
      {"A0040A130_PRESENT_AND_A0040A138_A0040A13A_NOT_PRESENT", "0040A138", 1, "0040A130=POINT;"},
      {"A0040A130_PRESENT_AND_A0040A132_A0040A13A_NOT_PRESENT", "0040A13A", 1, "0040A130=POINT;"},
      {"A0040A132_A0040A138_NOT_PRESENT", "0040A132", 1},
      {"A0040A132_A0040A13A_NOT_PRESENT", "0040A13A", 1},
      {"A00686430_IS_NOT_PRESENT_AND_A00686350_IS_PRESENT", "00686430", 1, "00686350=1;"},
      {"A006864C0_IS_NOT_PRESENT_AND_A006862C0_IS_PRESENT", "006864C0", 1, "006862C0=1;"},
      {"A00686550_IS_NOT_PRESENT_AND_A00686350_IS_PRESENT", "00686350", 0},
      {"A00686590_IS_NOT_PRESENT_AND_A006862C0_IS_PRESENT", "006862C0", 0},
      {"A006865A0_IS_NOT_PRESENT_AND_A00686350_IS_PRESENT", "006865A0", 1, "00686350=1;"},
      {"A006865D0_IS_NOT_PRESENT_AND_A006862C0_IS_PRESENT", "006865D0", 1, "006862C0=1;"},
      {"A006865E0_IS_NOT_PRESENT_AND_A00686350_IS_PRESENT", "006865E0", 1, "00686350=1;"},
      {"A00686610_IS_NOT_PRESENT_AND_A006862C0_IS_PRESENT", "00686610", 1, "006862C0=1;"},
      {"A00700010_AND_A00700011_NOT_PRESENT", "00700010", 1},
      {"A00700010_OR_A00700011_PRESENT", "00700011", 0},
      {"A00700230_PRESENT_OR_A00700294_IS_CUTLINE_OR_INFINITELINE", "00700230", 0, "00700294=RULER;"},
      {"A00720402_PRESENT_OR_A00720026_PRESENT_AND_A00720404_NOT_PRESENT", "00720402", 0}};
  for (const auto& row : kRows) {
    const std::string front = std::string(row.with) + row.tag;
    EXPECT_EQ(answer(fill(front + "="), row.name), row.null) << row.name;
    EXPECT_EQ(answer(fill(front + "=1"), row.name), 1 - row.null) << row.name;
  }
}

TEST_F(Conditions, GroupsAndListsOfTags) {
  check({{"A00200032_OR_A00200037_IS_PRESENT", {{"", 0}, {"00200032=1", 1}, {"00200032=;00200037=1", 1}}},
         {"A00189328_OR_A00189330_NOT_PRESENT", {{"00189328=1", 1}, {"00189328=1;00189330=1", 0}}},
         {"A00081134_A00081140_A0008114A_NOT_PRESENT", {{"", 1}, {"0008114A=1", 0}}},
         {"A00720026_AND_A00720406_PRESENT", {{"00720026=1", 0}, {"00720026=1;00720406=1", 1}}},
         {"A0040A130_PRESENT_AND_NOT_PRESENT_A0040A138_AND_A0040A13A",
          {{"0040A130=POINT", 1}, {"0040A130=POINT;0040A13A=1", 0}}},
         {"A00280121_PRESENT_AND_A7FE00010_OR_A00287FE0_PRESENT",
          {{"00280121=1", 0}, {"00287FE0=1", 0}, {"00280121=1;00287FE0=1", 1}}}});
}

TEST_F(Conditions, TextsCompareByPrefix) {
  check({{"A00080008_IS_ORIGINAL",
          {{"", 2},
           {"00080008=", 2},
           {"00080008=ORIGINAL\\PRIMARY", 1},
           {"00080008=ORIGINALS", 1},
           {"00080008=ORIGIN", 0},
           {"00080008=DERIVED\\ORIGINAL", 0},
           {"00080008=ORIGINAL AND TOO LONG", 2}}},
         {"A00080008_IS_ORIGINAL_OR_MIXED", {{"00080008=MIXED", 1}}},
         {"A00700294_IS_RULER_OR_AXIS_OR_CROSSHAIR", {{"00700294=CROSSHAIR", 1}}},
         {"A00189037_IS_NOT_NONE_OR_REALTIME",
          {{"00189037=REALTIME", 0}, {"00189037=PROSPECTIVE", 1}, {"", 2}}},
         {"A00720050_IS_FD", {{"00720050=FD", 1}, {"00720050=FL", 0}}},
         {"A30040005_IS_RIGID_OR_NON_RIGID",
          {{"30040005=RIGID", 1}, {"30040005=RIGIDS", 0}, {"30040005=NON_RIGID", 1}}},
         {"A00180015_IS_PAIRED_STRUCTURE", {{"00180015=KNEE", 1}, {"00180015=CHEST", 0}}},
         {"A00080016_ENHANCED_XA", {{"00080016=1.2.840.10008.5.1.4.1.1.12.1.1", 1}}},
         {"A00080016_NOT_LEGACY_CONVERTED_ENHANCED_PET",
          {{"00080016=1.2.840.10008.5.1.4.1.1.128.1", 0}, {"00080016=1.2.840.10008.5.1.4.1.1.128", 1}}},
         {"A300A0432_IS SYM_SQUARE_OR_SYM_CIRCULAR", {{"300A0432=SYM_CIRCULAR", 1}}}});
}

TEST_F(Conditions, OtherValuesThanTheFirst) {
  check({{"A00080008_VAL3_IS_PORTAL",
          {{"00080008=A\\B\\PORTAL", 1}, {"00080008=A\\PORTAL\\C", 0}, {"00080008=A\\B", 2}, {"", 2}}},
         {"A00080008_VAL3_IS_STEREO_L_OR_STEREO_R", {{"00080008=A\\B\\STEREO R", 1}}},
         {"A00541000_VAL2_IS_REPROJECTION", {{"00541000=STATIC\\REPROJECTION", 1}}},
         {"A00080008_VAL_4_IS_TRANSMISSION_AND_VAL_3_IS_NOT_RATEDxGATEDxTOMO",
          {{"00080008=A\\B\\TOMO\\TRANSMISSION", 0}, {"00080008=A\\B\\STATIC\\TRANSMISSION", 1}}},
         {"A00180020_HAS_VALUES_IR", {{"00180020=SE\\IR", 1}, {"00180020=SE\\EP", 0}, {"", 0}}},
         {"A00180022_WHICH_INCLUDE_HEART_GATING", {{"00180022=FC\\PPG", 1}, {"00180022=FC", 0}}}});
}

TEST_F(Conditions, NumbersAndTags) {
  check({{"A00186044_IS_1", {{"", 0}, {"00186044=1", 1}}},
         {"A00186044_IS_0_OR_1", {{"00186044=0", 1}, {"00186044=2", 0}}},
         {"A00280002_GREATER_THAN_1", {{"", 2}, {"00280002=1", 0}, {"00280002=3", 1}}},
         {"A00289001_GREAT_1", {{"", 0}, {"00289001=2", 1}}},
         {"A300A0080_IS_NON_ZERO", {{"300A0080=", 0}, {"300A0080=0", 0}, {"300A0080=-1", 1}}},
         {"A00280009_POINTS_TO_FRAME_TIME",
          {{"", 2}, {"00280009=00181063", 1}, {"00280009=00181065\\00181063", 0}}},
         {"A00280009_CONTAINS_TAG_FOR_PHASE_VECTOR",
          {{"", 2}, {"00280009=00540010\\00540030", 1}, {"00280009=00540010\\00540020", 0}}},
         {"A00280009_CONTAINS_TAG_A00540070", {{"00280009=00540070", 1}}}});
}

TEST_F(Conditions, ClausesStopAtTheFirstThatDecides) {
  constexpr char kPalette[] = "A00280004_IS_PALETTE_COLOR_OR_ARGB";
  constexpr char kTiled[] = "A00720304_IS_TILED_AND_A00720306_OR_00720308_GREATER_THAN_1";
  constexpr char kThree[] =
      "A00080008_VAL1_IS_ORIGINAL_AND_A00080068_IS_FOR_PRESENTATION_OR_A00080008_VAL1_IS_DERIVED";
  check({{"A00120062_IS_YES_AND_A00120063_NOT_PRESENT",
          {{"00120062=YES", 1}, {"00120062=NO", 0}, {"", 2}, {"00120063=A", 0}}},
         {"A00280004_IS_MONOCHROME2_AND_A00280101_GT_1",
          {{"00280004=MONOCHROME2", 2}, {"00280004=RGB", 0}, {"00280004=MONOCHROME2;00280101=8", 1}}},
         {"A00280004_IS_NOT_MONOCHROME2_OR_A00480120_IS_PRESENT",
          {{"00480120=1", 1}, {"", 2}, {"00280004=MONOCHROME2", 0}}},
         {"A00080016_ENHANCED_PET_OR_A00189621_PRESENT",
          {{"00189621=1", 2},
           {"00080016=1.2.840.10008.5.1.4.1.1.130", 1},
           {"00080016=1.2;00189621=", 1},
           {"00080016=1.2", 0}}},
         {kPalette,
          {{"00089205=COLOR", 2},
           {"00280004=ARGB", 1},
           {"00280004=RGB;00089205=MIXED", 1},
           {"00280004=RGB", 0}}},
         {kTiled, {{"00720304=CINE", 0}, {"00720304=TILED", 2}, {"00720304=TILED;00720306=1;00720308=2", 1}}},
         {kThree,
          {{"00080008=DERIVED", 1},
           {"00080008=ORIGINAL", 2},
           {"00080008=ORIGINAL;00080068=FOR PROCESSING", 0}}},
         {"A00720304_IS_CINE_AND_AA00720330_NOT_PRESENT", {{"00720304=CINE;00720330=A", 0}}}});
}

// What only the rules of templates use.
TEST_F(Conditions, ItemsAndPrivateTags) {
  const struct {
    const char* rule;
    const char* content;
    int32_t expected;
  } rows[] = {{"00701801>00080100 is A", "00701801*2;00701801/00080100=A", 2},
              {"00701801*>00080100 is A", "00701801*2;00701801/00080100=A", 1},
              {"00701801*>00080100? is A", "00701801*1;00701801/00080100=A;00701801*1", 1},
              {"00701801*>00080100 is A", "00701801*2;00701801/00080100=B", 2},
              {"00701801*>00080100? is A", "00701801*2;00701801/00080100=B", 0},
              {"00701801*>00080100 is A", "", 2},
              {"00701801*>00701801*>00080100 present",
               "00701801*2;00701801/00701801*2;00701801/00701801/00080100=A", 1},
              {"00280009 private", "00280009=00181063\\00291001", 1},
              {"00280009 private", "00280009=00181063", 0},
              {"00280009 private", "", 2}};
  for (const auto& row : rows) {
    EXPECT_EQ(vx::evaluate_condition(row.rule, vx::Scope{fill(row.content)}, 0), row.expected)
        << row.rule << " with " << row.content;
  }
}

TEST_F(Conditions, QueryLevels) {
  const char* const levels[] = {"STUDY_LEVEL_MOVE_OR_ABOVE", "SERIES_LEVEL_MOVE_OR_ABOVE",
                                "IMAGE_LEVEL_MOVE_OR_ABOVE", "A00080052_STUDY_OR_BELOW",
                                "A00080052_SERIES_QUERY_OR_BELOW"};
  const struct {
    const char* content;
    int32_t expected[5];
  } rows[] = {{"", {2, 2, 2, 2, 2}},
              {"00080052=PATIENT", {1, 1, 1, 0, 0}},
              {"00080052=STUDY", {1, 1, 1, 1, 0}},
              {"00080052=SERIES", {0, 1, 1, 1, 1}},
              {"00080052=IMAGE", {0, 0, 1, 1, 1}},
              {"00080052=WORKLIST", {0, 0, 0, 0, 0}}};
  for (const auto& row : rows) {
    for (int level = 0; level < 5; ++level) check({{levels[level], {{row.content, row.expected[level]}}}});
  }
}

// What most answer with 0 and 2 in the two states, these don't; and what they read isn't always in the name.
TEST_F(Conditions, AnswersOfTheirOwn) {
  check({{"A00041430_IS_PRIVATE", {{"", 0}}},
         {"A00181508_IS_DYNAMIC", {{"", 0}, {"00181500=DYNAMIC", 1}}},
         {"A00700100_IS_MAGNIFY", {{"", 0}}},
         {"A00700100_IS_TRUE_SIZE", {{"", 0}, {"00700100=TRUE SIZE", 1}}},
         {"A00720510_IS_3D_RENDERING", {{"", 0}}},
         {"A00720510_IS_MPR_OR_3D_RENDERING", {{"", 0}}},
         {"A00720510_IS_SLAB_OR_MPR", {{"", 0}}},
         {"A300A00CE_IS_CONTINUATION", {{"", 0}}},
         {"A300A0348_IS_WHL_MODWEIGHTS", {{"", 0}}},
         {"A00080064_IS_DF", {{"00080064=DF", 1}, {"00080064=WSD", 2}, {"", 2}}},
         {"A00181508_IS_CARM", {{"00181508=COLUMN", 2}}},
         {"A00181508_IS_CARM_AND_A00189474_YES",
          {{"00181508=CARM;00189474=NO", 2}, {"00181508=CARM;00189474=YES", 1}}},
         {"A00181508_IS_COLUMN", {{"00181508=CARM", 2}}},
         {"A00220039_IS_TRANSVERSE", {{"00220039=LINEAR", 2}}},
         {"A00286101_IS_AVG_SUB", {{"00286101=TID", 2}}},
         {"A00286101_IS_REV_TID", {{"00286101=TID", 2}}},
         {"A00286101_IS_TID_OR_REV_TID", {{"00286101=NONE", 2}, {"00286101=REV_TID", 1}}},
         {"MASK_OPERATION_IS_TID", {{"00286101=TID", 1}, {"00286101=NONE", 2}}},
         {"PRIVATE_DIRECTORY_RECORD", {{"00041430=PRIVATE", 1}, {"00041430=STUDY", 2}}},
         {"CONTENT_IS_REFERENCED", {{"", 2}, {"0040A010=CONTAINS", 0}, {"0040A010=HAS OBS CONTEXT", 2}}},
         {"A00089007_IS_ORIGINAL_AND_A00089206_IS_NOT_DISTORTED", {{"00089007=ORIGINAL;00189206=VOLUME", 1}}},
         {"A00620008_IS_NOT_MANUAL", {{"300A0308=MANUAL", 0}, {"00620008=AUTOMATIC", 2}}}});
  constexpr char kMotion[] = "A00189170_NOT_NONE_OR_REALTIME_AND_A00209250_NOT_PRESENT_OR_TIME_OR_BOTH";
  check({{kMotion,
          {{"", 2},
           {"00189170=NONE", 0},
           {"00189170=GATING", 1},
           {"00189170=GATING;00720038=1;00209250=AMPLITUDE", 0},
           {"00189170=GATING;00720038=1;00209250=BOTH", 1}}}});
}

// Absent: 0 and 2 look alike, but 2 would show on the attribute without a value.
TEST_F(Conditions, OwnAttribute) {
  for (const char* name :
       {"A00209250_NOT_TIME", "DIMENSIONS_ARE_DESCRIBED_BY_INTERVAL_SPACING", "OVERLAY_DATA_IN_GROUP",
        "PIXEL_COMPONENT_CALIBRATION_EXISTS", "LOSSY_COMPRESSION_PERFORMED"}) {
    const uint32_t own = probe_of(name);
    const int32_t id = fill("00209250=TIME");
    using Found = std::vector<VX_STATUS>;
    EXPECT_EQ(findings(id, own), Found{}) << name;
    VX_Add_Nonstandard_Attribute(id, own, VX_VR_LO);
    EXPECT_EQ(findings(id, own), Found{}) << name;
    VX_Set_Value_To_NULL(id, own);
    EXPECT_EQ(findings(id, own), Found{VX_VALUE_MAY_NOT_BE_NULL}) << name;
    VX_Set_Value_From_String(id, own, "1");
    EXPECT_EQ(findings(id, own), Found{}) << name;
  }
}

TEST_F(Conditions, TemplateRatesPixelSpacing) {
  constexpr char kPlane[] = "IMAGE_PART_OF_SERIES_WHICH_DOES_NOT_REQUIRE_IMAGE_PLANE_MODULE";
  constexpr char kAspect[] = "A00280034_NOT_1_TO_1_AND_IMAGE_PLANE_MODULE_NOT_APPLICABLE_TO_IMAGE";
  check({{kPlane, {{"", 1}, {"00280030=1", 0}}},
         {kAspect,
          {{"", 2},
           {"00280034=1", 2},
           {"00280034=1\\1", 0},
           {"00280034=1\\2", 1},
           {"00280030=1;00280034=1\\2", 0}}}});
  for (const char* type : {"1", "1C", "2", "2C", "3"}) {
    install(type);
    const int32_t optional = type[0] == '3' ? 1 : 0;
    check({{kPlane, {{"00280030=1;00280034=4\\3", optional}}},
           {kAspect, {{"00280030=1;00280034=4\\3", optional}}}});
  }
}

TEST_F(Conditions, NothingChangesInTheObject) {
  const int32_t id = fill("00080008=A\\B\\PORTAL");
  EXPECT_EQ(answer(id, "A00080008_VAL3_IS_PORTAL"), 1);
  int32_t count = 0;
  EXPECT_EQ(VX_Get_Value_Count(id, 0x00080008, &count), VX_NORMAL_COMPLETION);
  EXPECT_EQ(count, 3);
  EXPECT_EQ(VX_Get_Attribute_Info(id, 0x00281052, nullptr, nullptr), VX_INVALID_TAG);
}

// Every row, of the rules and of the names without one.
TEST_F(Conditions, EveryNameIsFound) {
  const std::regex form(
      R"(((own|[0-9A-F]{8}([,/][0-9A-F]{8})*)(:[2-4*])?\??)"
      R"(( (present|absent|plural|counted|uncounted|multivalued|null|optional|uneven))"
      R"(| (is|not) [A-Z0-9_./$][A-Z0-9_./$ ]*| (=|>|<>) [0-9/]+| (points|lists) [0-9A-F]{8})( [&|] |$))+)");
  std::set<std::string> names;
  const int32_t empty = fill("");
  for (const std::string_view table : {vx::kConditionRules, vx::kUnjudgedConditions}) {
    const bool judged = table == vx::kConditionRules;
    std::istringstream lines{std::string(table)};
    std::string previous;
    for (std::string line; std::getline(lines, line);) {
      const std::string name = line.substr(0, line.find(':'));
      EXPECT_TRUE(is_condition(name)) << name;
      EXPECT_TRUE(names.insert(name).second) << name;
      EXPECT_LT(previous, name);
      previous = name;
      if (judged) {
        const std::string rule = line.substr(name.size() + 2);
        const std::size_t arrow = rule.find(" -> ");
        EXPECT_TRUE(std::regex_match(rule.substr(0, arrow), form)) << line;
        EXPECT_GE(evaluate(name, empty, 0), 0) << name;
      } else {
        EXPECT_EQ(evaluate(name, empty, 0), vx::kConditionUnknown) << name;
      }
      EXPECT_FALSE(is_condition(name + "_")) << name;
    }
  }
  EXPECT_EQ(names.size(), 786U);
  EXPECT_TRUE(log_lines().empty());  // an attribute that isn't there is no news
  EXPECT_TRUE(is_condition("A00181700_IS_CIRCULAR"));
  for (const char* name : {"", "A", "ZZZ", "A00080008_IS_ORIGINA", ": own present", "\n"}) {
    EXPECT_FALSE(is_condition(name)) << name;
    EXPECT_EQ(evaluate(name, empty, 0), vx::kConditionUnknown) << name;
  }
}

// What the templates ask for has a row.
TEST_F(Conditions, TemplatesNameOnlyKnownConditions) {
  int found = 0;
  for (const char* file : {"modules.tsv", "macros.tsv", "items.tsv", "messages.tsv"}) {
    std::ifstream lines(std::string(VEXAL_SOURCE_DIR "/data/templates/") + file);
    for (std::string line; std::getline(lines, line);) {
      for (const std::string& field : split(line, '\t')) {
        if (field.size() < 2 || field[0] != '?' || field[1] == '(' || line[0] == '#') continue;
        EXPECT_TRUE(is_condition(field.substr(1))) << file << ": " << field;
        ++found;
      }
    }
  }
  EXPECT_GT(found, 0);
}

}  // namespace
