#include <jansson.h>

#include "codec/streams.h"
#include "objects.h"

namespace {

using namespace streams;
using support::LibraryTest;

class Json : public LibraryTest {
 protected:
  static std::string write(int32_t id, int32_t options, VX_STATUS expected = VX_NORMAL_COMPLETION) {
    Sink sink;
    EXPECT_EQ(VX_Message_To_Json(id, &sink, options, &message_output), expected);
    while (!sink.bytes.empty() && sink.bytes.back() == ' ') sink.bytes.pop_back();
    return sink.bytes;
  }
  static VX_STATUS read(int32_t id, std::string json, int32_t options = 0, std::size_t block = 0) {
    Source text{std::move(json), block};
    return VX_Json_To_Message_With_Options(id, &text, options, &text_input);
  }
  // The text as jansson dumps it.
  static std::string dumped(const std::string& json) {
    json_t* value = json_loads(json.c_str(), JSON_DECODE_ANY, nullptr);
    char* text = value != nullptr ? json_dumps(value, JSON_SORT_KEYS | JSON_ENCODE_ANY) : nullptr;
    std::string out = text != nullptr ? text : "no JSON";
    std::free(text);
    json_decref(value);
    return out;
  }
  static void fill(int32_t id) {
    objects::edit(id,
                  "00080005=ISO_IR 100;00080008=ORIGINAL\\;00100010=M\xFCller^A==B;00280009=00181063;"
                  "0072007A=-5\\7;00100020=;00081140*1;00081140/00100010=\xC4");
    VX_Set_Value_From_String(id, 0x00204000, "a<b>&\"'\\\r\n\f.");
    VX_Add_Nonstandard_Attribute(id, 0x00980011, VX_VR_UN);
    VX_Set_Value_From_Buffer(id, 0x7FE00010, "abcd", 4);
    VX_Add_Private_Block(id, "ACME 1.0", 0x0009);
    VX_Add_Private_Attribute(id, "ACME 1.0", 0x0009, 0x02, VX_VR_US);
    VX_Set_pValue_From_Int(id, "ACME 1.0", 0x0009, 0x02, 3);
  }
};

constexpr int32_t kAll = VX_JSON_INCLUDE_BULK | VX_JSON_INCLUDE_PIXEL_DATA;

VX_STATUS hold_nothing(int32_t, uint32_t, void*, VX_CALLBACK_REQUEST, uint32_t* size, void** data, int32_t,
                       int32_t* last) {
  *size = 0;
  *data = nullptr;
  *last = 1;
  return VX_NORMAL_COMPLETION;
}

TEST_F(Json, ACallbackMayHoldNothing) {
  int32_t app = -1;
  ASSERT_EQ(VX_Register_Application(&app, "NOTHING"), VX_NORMAL_COMPLETION);
  const Object object;
  VX_Add_Standard_Attribute(object, 0x7FE00010);
  VX_Set_Value_From_String(object, 0x00100020, "1");
  ASSERT_EQ(VX_Register_Callback_Function(app, 0x7FE00010, nullptr, hold_nothing), VX_NORMAL_COMPLETION);
  ASSERT_EQ(VX_Set_Message_Callbacks(app, object), VX_NORMAL_COMPLETION);
  for (const int32_t options : {kAll, kAll | VX_JSON_STANDARD}) {
    EXPECT_NE(write(object, options).find("00100020"), std::string::npos) << options;
  }
}

TEST_F(Json, BothFormsAreWhatJanssonDumpsAndComeBack) {
  const Object message;
  fill(message);
  for (const int32_t form : {0, static_cast<int32_t>(VX_JSON_STANDARD)}) {
    const std::string json = write(message, kAll | form);
    EXPECT_EQ(json, dumped(json));
    for (const std::size_t block : {0U, 1U}) {
      const Object copy;
      EXPECT_EQ(read(copy, json, form, block), VX_NORMAL_COMPLETION);
      EXPECT_EQ(write(copy, kAll | form), json);
      EXPECT_EQ(text(copy, 0x00100010), "M\xFCller^A==B");
      EXPECT_EQ(text(copy, 0x00204000), "a<b>&\"'\\\r\n\f.");
    }
  }
}

TEST_F(Json, TheTwoForms) {
  const Object message;
  fill(message);
  const struct {
    int32_t options;
    std::vector<const char*> parts;
  } rows[] = {
      {0,
       {R"("00080008": {"Value": ["ORIGINAL", ""], "vr": "CS"})",
        R"("0072007A": {"Value": ["-5", "7"], "vr": "SS"})",
        "a&lt;b&gt;&amp;&quot;&apos;\\\\&#13;&#10;&#12;.",
        "{\"Alphabetic\": \"M\303\274ller^A\", \"Phonetic\": \"B\"}", R"("7FE00010": {"vr": "OW"})",
        R"("00100020": {"vr": "LO"})"}},
      {VX_JSON_STANDARD | VX_JSON_INCLUDE_PIXEL_DATA,
       {R"(["ORIGINAL", null])", R"("Value": [-5, 7])", R"(a<b>&\"'\\\r\n\f.)",
        R"({"InlineBinary": "YWJjZA==", "vr": "OW"})"}},
      {VX_JSON_EXCLUDE_PRIVATE | VX_JSON_EXCLUDE_SEQUENCES, {R"("00081140": {"vr": "SQ"})"}},
  };
  for (const auto& row : rows) {
    const std::string json = write(message, row.options);
    for (const char* part : row.parts) EXPECT_NE(json.find(part), std::string::npos) << part << "\n" << json;
    EXPECT_EQ(json.find("\"0009") == std::string::npos, (row.options & VX_JSON_EXCLUDE_PRIVATE) != 0);
  }
}

TEST_F(Json, EmptyObjectsAndRefusals) {
  const Object message;
  EXPECT_EQ(write(message, 0, VX_MESSAGE_EMPTY), "");
  EXPECT_EQ(VX_Message_To_Json(message, nullptr, 0, nullptr), VX_NULL_POINTER_PARM);
  EXPECT_EQ(read(9, "{}"), VX_INVALID_MESSAGE_ID);
  EXPECT_EQ(read(message, "{}"), VX_NORMAL_COMPLETION);
  EXPECT_EQ(read(message, "[]"), VX_SYSTEM_ERROR);
  EXPECT_EQ(read(message, R"({"00100020": {"vr": "LO")"), VX_CALLBACK_CANNOT_COMPLY);
  VX_Set_Value_From_String(message, 0x00100020, "x");
  Sink sink;
  sink.refuse_at = 0;
  EXPECT_EQ(VX_Message_To_Json(message, &sink, 0, &message_output), VX_SYSTEM_ERROR);
}

TEST_F(Json, PrivateBlocksInAnyOrderAndElsewhere) {
  const Object message;
  VX_Add_Private_Block(message, "OTHER", 0x0009);
  EXPECT_EQ(
      read(message,
           R"({"00091002": {"vr": "US", "Value": [3, "4"]}, "00090010": {"vr": "LO", "Value": ["ACME 1.0"]},
                             "00090200": {"vr": "LO", "Value": ["x"]}})"),
      VX_INVALID_TAG);
  int32_t value = 0;
  EXPECT_EQ(VX_Get_pValue_To_Int(message, "ACME 1.0", 0x0009, 0x02, &value), VX_NORMAL_COMPLETION);
  EXPECT_EQ(value, 3);
  EXPECT_EQ(VX_Get_Value_To_Int(message, 0x00091102, &value), VX_NORMAL_COMPLETION);
  EXPECT_EQ(read(message, R"({"000B1002": {"vr": "US", "Value": [3]}})"), VX_NOT_FOUND);
  // Blocks that begin at 20, in items, out of order: they come back in it.
  const Object holder;
  const std::string block =
      R"("00292003": {"vr": "US", "Value": [3]}, "00292101": {"vr": "LO", "Value": ["b"]}, )"
      R"("00290021": {"vr": "LO", "Value": ["B"]}, "00290020": {"vr": "LO", "Value": ["A"]}, )"
      R"("00292001": {"vr": "LO", "Value": ["a"]})";
  EXPECT_EQ(read(holder, "{" + block + R"(, "00081140": {"vr": "SQ", "Value": [{)" + block + "}]}}"),
            VX_NORMAL_COMPLETION);
  const std::string sorted =
      R"("00290020": {"Value": ["A"], "vr": "LO"}, "00290021": {"Value": ["B"], "vr": "LO"}, )"
      R"("00292001": {"Value": ["a"], "vr": "LO"}, "00292003": {"Value": [3], "vr": "US"}, )"
      R"("00292101": {"Value": ["b"], "vr": "LO"}})";
  EXPECT_EQ(write(holder, VX_JSON_STANDARD),
            R"({"00081140": {"Value": [{)" + sorted + R"(], "vr": "SQ"}, )" + sorted);
}

TEST_F(Json, OneBadMemberDoesNotStopTheOthers) {
  const Object message;
  EXPECT_EQ(
      read(message, R"({"00080008": {"vr": "CS", "Value": "A"}, "00100020": {"vr": "LO", "Value": ["id"]},
                             "0010": {"vr": "LO"}, "00100040": 5, "00281050": {"vr": "DS", "Value": [0.30000000000000004]},
                             "00280010": {"vr": "US", "InlineBinary": "AQIDBA=="},
                             "00081140": {"vr": "SQ", "Value": [{}, 7]}, "00204000": {"vr": "LT", "Value": ["a\u0000b"]}})"),
      VX_INVALID_CHARS_IN_VALUE);
  EXPECT_EQ(text(message, 0x00100020), "id");
  const std::string json = write(message, VX_JSON_STANDARD);
  EXPECT_NE(json.find(R"("00280010": {"Value": [513, 1027], "vr": "US"})"), std::string::npos) << json;
  EXPECT_NE(json.find(R"("00281050": {"Value": [0.3], "vr": "DS"})"), std::string::npos) << json;
}

TEST_F(Json, NumbersKeepTheirBits) {
  const Object message;
  VX_Add_Nonstandard_Attribute(message, 0x00980003, VX_VR_FD);
  VX_Add_Nonstandard_Attribute(message, 0x00980005, VX_VR_FL);
  const double wide[] = {0.1, 1.0 / 3, 5e-324, 1.7976931348623157e308, -0.0, 9223372036854775808.0};
  const float narrow[] = {0.1F, 1.0F / 3, 1e-45F, 16777216.0F};
  for (const double v : wide) VX_Set_Next_Value_From_Double(message, 0x00980003, v);
  for (const float v : narrow) VX_Set_Next_Value_From_Float(message, 0x00980005, v);
  for (const int32_t form : {0, static_cast<int32_t>(VX_JSON_STANDARD)}) {
    const Object copy;
    EXPECT_EQ(read(copy, write(message, form), form), VX_NORMAL_COMPLETION);
    double got = 0;
    VX_Get_Value_To_Double(copy, 0x00980003, &got);
    for (const double v : wide) {
      EXPECT_EQ(std::memcmp(&got, &v, sizeof v), 0) << v;
      VX_Get_Next_Value_To_Double(copy, 0x00980003, &got);
    }
    float less = 0;
    VX_Get_Value_To_Float(copy, 0x00980005, &less);
    for (const float v : narrow) {
      EXPECT_EQ(less, v);
      VX_Get_Next_Value_To_Float(copy, 0x00980005, &less);
    }
  }
}

TEST_F(Json, DepthIsBounded) {
  const Object flat;
  EXPECT_EQ(read(flat, "{\"x\": " + std::string(1023, '[') + std::string(1023, ']') + "}"), VX_INVALID_TAG);
  EXPECT_EQ(read(flat, std::string(100000, '[')), VX_CALLBACK_CANNOT_COMPLY);
  std::string json;
  for (int i = 0; i < 600; ++i) json += R"({"00081140": {"vr": "SQ", "Value": [)";
  json += "{}";
  for (int i = 0; i < 600; ++i) json += "]}}";
  const Object message;
  EXPECT_NE(read(message, json), VX_NORMAL_COMPLETION);
}

// 2 ^ 64 and the like: what no VR can hold fails with its attribute, and nothing is cut.
TEST_F(Json, NumbersAtTheEdges) {
  struct Row {
    const char* vr;
    const char* number;
    VX_STATUS status;
    const char* again;  // in the standard's form
  };
  static constexpr Row kRows[] = {
      {"UV", "18446744073709551615", VX_NORMAL_COMPLETION, "\"//////////8=\""},
      {"UV", "18446744073709551616", VX_VALUE_OUT_OF_RANGE, nullptr},
      {"SV", "-9223372036854775808", VX_NORMAL_COMPLETION, "\"AAAAAAAAAIA=\""},
      {"SV", "\"-9223372036854775809\"", VX_VALUE_OUT_OF_RANGE, nullptr},
      {"UL", "4294967296", VX_VALUE_OUT_OF_RANGE, nullptr},
      {"UL", "9223372036854775808", VX_VALUE_OUT_OF_RANGE, nullptr},
      {"US", "1e2", VX_NORMAL_COMPLETION, "[100]"},
      {"US", "1e999", VX_VALUE_OUT_OF_RANGE, nullptr},
      {"AT", "4294967296", VX_VALUE_OUT_OF_RANGE, nullptr},
      {"FD", "1e999", VX_VALUE_OUT_OF_RANGE, nullptr},
      {"FD", "1e-999", VX_NORMAL_COMPLETION, "[0.0]"},
      {"FD", "9223372036854775808", VX_NORMAL_COMPLETION, "[9223372036854775808.0]"},
      {"FD", "\"-inf\"", VX_NORMAL_COMPLETION, "[\"-inf\"]"},
      {"FD", "\"1.5x\"", VX_INCOMPATIBLE_VALUE, nullptr},
      {"FL", "3.5e38", VX_VALUE_OUT_OF_RANGE, nullptr},
      {"DS", "1.250", VX_NORMAL_COMPLETION, "[\"1.250\"]"},
      {"DS", "0.30000000000000004", VX_NORMAL_COMPLETION, "[0.3]"},
      {"IS", "3.0", VX_NORMAL_COMPLETION, "[3]"},
  };
  for (const Row& row : kRows) {
    const Object message;
    const std::string json =
        std::string(R"({"00100020": {"vr": "LO", "Value": ["id"]}, "00980003": {"vr": ")") + row.vr +
        R"(", "Value": [)" + row.number + "]}}";
    EXPECT_EQ(read(message, json), row.status) << json;
    const std::string again = write(message, VX_JSON_STANDARD | kAll);
    EXPECT_NE(again.find("\"id\""), std::string::npos);
    EXPECT_TRUE(row.again == nullptr || again.find(row.again) != std::string::npos) << json << again;
  }
}

TEST_F(Json, TheLastOfTwoHolds) {
  const Object message;
  EXPECT_EQ(read(message, R"({"00100020": {"vr": "LO", "Value": ["a"]},
                              "0010002\u0030": {"vr": "SH", "vr": "LO", "Value": ["b"], "V\u0061lue": ["c"]},
                              "00100010": {"vr": "PN", "Value": [{"Alphabetic": "A^B", "Alphabetic": "C\/D"}]}})"),
            VX_NORMAL_COMPLETION);
  const std::string json = write(message, VX_JSON_STANDARD);
  EXPECT_EQ(json, R"({"00100010": {"Value": [{"Alphabetic": "C/D"}], "vr": "PN"}, )"
                  R"("00100020": {"Value": ["c"], "vr": "LO"}})");
}

// What is stored, and what the log has to say of it: nothing is lost or changed without a line.
TEST_F(Json, WhatIsLostIsTold) {
  struct Row {
    const char* json;
    VX_STATUS status;
    const char* again;  // in the standard's form, where the text is UTF-8
    const char* line;   // null: nothing but what is for information
  };
  static constexpr char kLatin[] = R"("00080005": {"vr": "CS", "Value": ["ISO_IR 100"]}, )";
  static const Row kRows[] = {
      // Characters that the set has not, beside some that it has.
      {R"(@"00100010": {"vr": "PN", "Value": [{"Alphabetic": "Müller 山"}]})", VX_INVALID_CHARS_IN_VALUE,
       R"("Müller ?")", "(0010,0010)"},
      {R"(@"00081140": {"vr": "SQ", "Value": [{"00100020": {"vr": "LO", "Value": ["α"]}}]})",
       VX_INVALID_CHARS_IN_VALUE, R"(["?"])", "(0010,0020)"},
      {R"("00100020": {"vr": "LO", "Value": ["α"]})", VX_NORMAL_COMPLETION,
       R"({"00080005": {"Value": ["ISO_IR 192"], "vr": "CS"}, "00100020": {"Value": ["α"], "vr": "LO"}})",
       nullptr},
      {R"("00080005": {"vr": "CS"}, "00081140": {"vr": "SQ", "Value": [{"00100020": {"vr": "LO", "Value": ["α"]}}]})",
       VX_NORMAL_COMPLETION,
       R"({"00080005": {"Value": ["ISO_IR 192"], "vr": "CS"}, "00081140": {"Value": [{"00100020")", nullptr},
      // A bad item in front of a good one.
      {R"("00081140": {"vr": "SQ", "Value": [{"00100020": {"vr": "LO", "Value": "x"}}, {}]})",
       VX_INCOMPATIBLE_VALUE, R"("Value": [{"00100020": {"vr": "LO"}}, {}])", "Failed to add item"},
      {R"("00081140": {"vr": "SQ", "Value": [5, {}]})", VX_INCOMPATIBLE_VALUE, R"([{}, {}])",
       "Failed to add item"},
      {R"("00081140": {"vr": "SQ", "Value": {}})", VX_NORMAL_COMPLETION, R"("00081140": {"vr": "SQ"})",
       "no array"},
      {R"("00100010": {"vr": "PN", "Value": [{"Alphabetic": "A\\B"}]})", VX_INVALID_CHARS_IN_VALUE,
       R"("A\\B")", "backslash"},
      {R"("00100010": {"vr": "PN", "Value": [{"Alphabetic": "A=B"}]})", VX_NORMAL_COMPLETION,
       R"("Ideographic": "B")", "more groups"},
      {R"("00100010": {"vr": "PN", "Value": [{"alphabetic": "A"}]})", VX_NORMAL_COMPLETION,
       R"({"00100010": {"vr": "PN"}})", "none of the form"},
      {R"("00100020": {"vr": "LO", "value": ["A"]})", VX_NORMAL_COMPLETION, R"("00100020": {"vr": "LO"})",
       "none of the form"},
      {R"("00100020": {"vr": "LO", "Value": [true, "B"]})", VX_NORMAL_COMPLETION, R"(["B"])", "passed over"},
      {R"("00280010": {"vr": "US", "Value": ["x"]})", VX_INVALID_VALUE_FOR_VR, R"("00280010": {)",
       "failed to add"},
      // What breaks a rule of its VR is there all the same.
      {R"("00080020": {"vr": "DA", "Value": ["yesterday"]})", VX_INVALID_CHARS_IN_VALUE, R"(["yesterday"])",
       nullptr},
      {R"("00281050": {"vr": "DS", "Value": ["0.12345678901234567"]})", VX_INVALID_VALUE_FOR_VR,
       R"(["0.12345678901234567"])", nullptr},
      {R"("00281050": {"vr": "DS", "Value": [0.12345678901234567]})", VX_NORMAL_COMPLETION,
       R"([0.12345678901235])", "rounded"},
      // A creator of VR UN is one.
      {R"("00090010": {"vr": "UN", "InlineBinary": "QUNNRSA="}, "00091002": {"vr": "US", "Value": [3]})",
       VX_NORMAL_COMPLETION, R"("00091002": {"Value": [3], "vr": "US"})", nullptr},
      {R"("00090010": {"vr": "LO", "Value": ["A"]}, "00090011": {"vr": "LO", "Value": ["A"]})",
       VX_NORMAL_COMPLETION, R"("00090010")", "another block"},
  };
  ASSERT_EQ(VX_Enable_Unicode_Conversion(1), VX_NORMAL_COMPLETION);
  for (const Row& row : kRows) {
    const Object message;
    std::string json = std::string("{") + row.json + "}";
    if (json[1] == '@') json.replace(1, 1, kLatin);
    support::LogCapture::clear();
    EXPECT_EQ(read(message, json, VX_JSON_STANDARD), row.status) << json;
    EXPECT_TRUE(row.line != nullptr
                    ? has_log(row.line)
                    : !has_log("(VX_Json_To_Message) W") && !has_log("(VX_Json_To_Message) E"))
        << json << testing::PrintToString(log_lines());
    const std::string again = write(message, VX_JSON_STANDARD | kAll);
    EXPECT_NE(again.find(row.again), std::string::npos) << json << "\n" << again;
  }
  VX_Enable_Unicode_Conversion(0);
}

// Pixel data in fragments has no inline form, wherever it lies; what lies in none has. The own form gives
// back both.
TEST_F(Json, FragmentsAndIcons) {
  static const std::string kFragments(
      "OB\0\0\xFF\xFF\xFF\xFF\xFE\xFF\0\xE0\0\0\0\0\xFE\xFF\0\xE0\2\0\0\0ab\xFE\xFF\xDD\xE0\0\0\0\0", 34);
  static const std::string kPlain("OB\0\0\4\0\0\0abcd", 12);
  static const std::string kTag("\xE0\x7F\x10\0", 4);
  for (const bool compressed : {false, true}) {
    const std::string icon = kTag + (compressed ? kFragments : kPlain);
    const auto size = static_cast<char>(icon.size());
    const std::string stream = std::string("\x08\0\x40\x11SQ\0\0", 8) + static_cast<char>(size + 8) +
                               std::string("\0\0\0\xFE\xFF\0\xE0", 7) + size + std::string("\0\0\0", 3) +
                               icon + kTag + kFragments;
    const Object message;
    ASSERT_EQ(decode(message, stream, JPEG_BASELINE).status, VX_NORMAL_COMPLETION);
    VX_Set_Message_Transfer_Syntax(message, JPEG_BASELINE);
    const std::string json = write(message, VX_JSON_STANDARD | kAll);
    EXPECT_EQ(json.find("InlineBinary") == std::string::npos, compressed) << json;
    const Object copy;
    VX_Set_Message_Transfer_Syntax(copy, JPEG_BASELINE);
    EXPECT_EQ(read(copy, write(message, kAll)), VX_NORMAL_COMPLETION);
    EXPECT_EQ(encode(copy, JPEG_BASELINE), stream);
  }
}

// Every start of a text is refused as a whole; what the parser takes is what jansson takes, but for numbers
// of any size and keys with NUL.
TEST_F(Json, CutAndChangedTexts) {
  const Object message;
  fill(message);
  std::string json = write(message, kAll | VX_JSON_STANDARD);
  json.insert(1, R"("x": [1.5e-3, -0, 0.1E+7, true, false, null, "\u00e4\ud83d\ude00\b", "\"Ä€", {}, []], )");
  std::size_t taken = 0;
  for (std::size_t i = 0; i < json.size(); ++i) {
    const Object cut;
    EXPECT_EQ(read(cut, json.substr(0, i)), VX_CALLBACK_CANNOT_COMPLY);
    EXPECT_EQ(write(cut, 0, VX_MESSAGE_EMPTY), "");
    for (const int bits : {5, 0x80, 0x20, 0x1F}) {
      std::string changed = json;
      changed[i] = static_cast<char>(changed[i] ^ bits);
      json_error_t error;
      json_t* peer = json_loadb(changed.data(), changed.size(), JSON_DECODE_ANY | JSON_ALLOW_NUL, &error);
      const Object other;
      const bool refused = read(other, changed, VX_JSON_STANDARD) == VX_CALLBACK_CANNOT_COMPLY;
      if (peer != nullptr || json_error_code(&error) != json_error_numeric_overflow) {
        EXPECT_EQ(refused, peer == nullptr) << error.text << "\n" << changed;
      }
      taken += refused ? 0 : 1;
      json_decref(peer);
    }
  }
  EXPECT_GT(taken, json.size() / 2);
}

}  // namespace
