#include <algorithm>
#include <regex>

#include "codec/streams.h"
#include "frame/pool.h"
#include "objects.h"

namespace {

using namespace streams;
using support::LibraryTest;

constexpr int32_t kAll = VX_XML_INCLUDE_BULK | VX_XML_INCLUDE_PIXEL_DATA;

class Xml : public LibraryTest {
 protected:
  static std::string write(int32_t id, bool native, int32_t options,
                           VX_STATUS expected = VX_NORMAL_COMPLETION) {
    Sink sink;
    const auto function = native ? &VX_Message_To_XML_Native : &VX_Message_To_XML;
    EXPECT_EQ(function(id, &sink, options, &message_output), expected);
    EXPECT_EQ(sink.bytes.size() % 2, 0U);
    while (!sink.bytes.empty() && sink.bytes.back() == ' ') sink.bytes.pop_back();
    return sink.bytes;
  }
  static VX_STATUS read(int32_t id, bool native, std::string xml, std::size_t block = 0) {
    Source text{std::move(xml), block};
    return native ? VX_XML_Native_To_Message(id, &text, &text_input)
                  : VX_XML_To_Message(id, &text, &text_input);
  }
  static std::string text(int32_t id, uint32_t tag) {
    char buffer[200] = "";
    return VX_Get_Value_To_String(id, tag, sizeof buffer, buffer) == VX_NORMAL_COMPLETION ? buffer : "?";
  }
  // A document, "<A 00100020 LO" for an attribute of it and "<V 1>" for a value.
  static std::string native(std::string inner) {
    static const std::pair<std::regex, const char*> kShort[] = {
        {std::regex("<A (\\w{8}) (\\w\\w)"), "<DicomAttribute tag='$1' vr='$2'"},
        {std::regex("</A>"), "</DicomAttribute>"},
        {std::regex("<V (\\d+)>"), "<Value number='$1'>"},
        {std::regex("<(/?)V>"), "<$1Value>"}};
    for (const auto& [from, to] : kShort) inner = std::regex_replace(inner, from, to);
    return "<?xml version='1.0'?><NativeDicomModel>" + inner + "</NativeDicomModel>";
  }
  // The object as a stream: all that it holds.
  static std::string stream(int32_t id) { return encode_range(id, 0x00080000); }
  static void fill(int32_t id) {
    objects::edit(id,
                  "00080005=ISO_IR 100;00080008=ORIGINAL\\;00100010=M\xFCller^^A^^^x=^B=;00280009=00181063;"
                  "0072007A=-5\\7;00100020=;00081140=");
    VX_Set_Value_From_String(id, 0x00101001, "==P^Q");
    VX_Set_Next_Value_From_String(id, 0x00101001, "A&B<C^");
    VX_Set_Value_From_String(id, 0x00204000, " a<b>&\"'\\\r\n\t&lt;.");
    VX_Set_Value_From_Buffer(id, 0x7FE00010, "abcd", 4);
    VX_Add_Private_Block(id, "ACME <1>", 0x0009);
    VX_Add_Private_Attribute(id, "ACME <1>", 0x0009, 0x02, VX_VR_US);
    VX_Set_pValue_From_Int(id, "ACME <1>", 0x0009, 0x02, 3);
    // One attribute of each VR.
    for (int32_t vr = 0; vr <= VX_VR_SQ; ++vr) {
      const uint32_t tag = 0x00991000U + static_cast<uint32_t>(vr);
      VX_Add_Private_Block(id, "ACME VR", 0x0099);
      EXPECT_EQ(VX_Add_Private_Attribute(id, "ACME VR", 0x0099, tag & 0xFFU, vr), VX_NORMAL_COMPLETION);
      const auto element = static_cast<uint8_t>(tag & 0xFFU);
      if (vr == VX_VR_SQ) {
        int32_t outer = -1, inner = -1;
        VX_Open_Empty_Item(&outer);
        VX_Open_Empty_Item(&inner);
        VX_Set_Value_From_String(inner, 0x00100010, "\xC4^\xD6");
        VX_Set_Value_From_Int(outer, 0x00081140, inner);
        VX_Set_pValue_From_Int(id, "ACME VR", 0x0099, element, outer);
        continue;
      }
      const std::string bytes(120, static_cast<char>(0x80 + vr));
      if (vr == VX_VR_FL) {
        VX_Set_pValue_From_Float(id, "ACME VR", 0x0099, element, 0.1F);
      } else if (vr == VX_VR_FD) {
        VX_Set_pValue_From_Double(id, "ACME VR", 0x0099, element, 1e-310);
      } else if (vr >= VX_VR_UN) {
        VX_Set_pValue_From_Buffer(id, "ACME VR", 0x0099, element, bytes.data(), 120);
      } else {
        VX_Set_pValue_From_String(id, "ACME VR", 0x0099, element, "1");
      }
    }
  }
};

TEST_F(Xml, EveryVrComesBackInBothForms) {
  const Object message;
  fill(message);
  const std::string before = stream(message);
  for (const bool form : {false, true}) {
    for (const int32_t options :
         {0, static_cast<int32_t>(VX_XML_BASE64), static_cast<int32_t>(VX_XML_INDENT)}) {
      const std::string xml = write(message, form, kAll | options);
      for (const std::size_t block : {0U, 1U}) {
        const Object copy;
        EXPECT_EQ(read(copy, form, xml, block), VX_NORMAL_COMPLETION);
        EXPECT_EQ(stream(copy), before) << xml;
      }
      EXPECT_NE(xml.find(form ? "<Value number=\"1\">0.1</Value>" : ">0.1</Attribute>"), std::string::npos);
    }
  }
}

TEST_F(Xml, TheNativeForm) {
  const Object message;
  fill(message);
  VX_Set_Value_From_String(message, 0x00081030, "a\x0C.");
  const std::string xml = write(message, true, 0);
  for (const char* part :
       {"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<NativeDicomModel xsi:schemaLocation=\"",
        "<DicomAttribute tag=\"00080008\" vr=\"CS\" keyword=\"ImageType\"><Value "
        "number=\"1\">ORIGINAL</Value>"
        "<Value number=\"2\"/></DicomAttribute>",
        "<PersonName "
        "number=\"1\"><Alphabetic><FamilyName>M\xC3\xBCller</FamilyName><MiddleName>A</MiddleName>",
        "<Value number=\"1\">00181063</Value>", " a&lt;b&gt;&amp;&quot;&apos;\\&#13;&#10;&#09;&amp;lt;.",
        "tag=\"00090010\" vr=\"LO\" keyword=\"Private Creator Code\"",
        "keyword=\"Private\" privateCreator=\"ACME &lt;1&gt;\"><Value number=\"1\">3</Value>",
        ">a\xEF\xBF\xBD.</Value>", "<DicomAttribute tag=\"7FE00010\" vr=\"OW\" keyword=\"PixelData\"/>",
        "<DicomAttribute tag=\"00100020\" vr=\"LO\" keyword=\"PatientID\"/>"}) {
    EXPECT_NE(xml.find(part), std::string::npos) << part << "\n" << xml;
  }
  const std::string less = write(message, true, VX_XML_EXCLUDE_PRIVATE);
  EXPECT_EQ(less.find("ACME"), std::string::npos);
}

TEST_F(Xml, TheOwnForm) {
  const Object message;
  fill(message);
  const std::string bytes(60, 'x');
  VX_Set_Value_From_Buffer(message, 0x7FE00010, bytes.data(), 60);
  VX_Set_Value_From_String(message, 0x00081030, "a<\x0C");
  const std::string xml = write(message, false, kAll | VX_XML_BASE64);
  for (const char* part :
       {"<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<DcmMessage>\n<DataSet Service=\"Unknown Service\" "
        "Command=",
        "<Attribute Tag=\"00081030\" VR=\"LO\" Name=\"Study Description\" "
        "Length=\"10\">a&lt;&#12;</Attribute>\n",
        "Length=\"9\">ORIGINAL\\</Attribute>\n", "Length=\"7\">1577059</Attribute>\n",
        "PCode=\"ACME &lt;1&gt;\" Length=\"1\">3</Attribute>", "Encoding=\"Base64\" Length=\"60\">eHh4eHh4",
        "\n<Item>\n<Attribute Tag="}) {
    EXPECT_NE(xml.find(part), std::string::npos) << part << "\n" << xml;
  }
  EXPECT_NE(xml.find("\r\neHh4\r\n</Attribute>\n</DataSet>\n</DcmMessage>\n"), std::string::npos) << xml;
  const std::string hex = write(message, false, VX_XML_EXCLUDE_SEQUENCES);
  EXPECT_EQ(hex.find("7FE00010"), std::string::npos);
  EXPECT_EQ(hex.find("VR=\"SQ\""), std::string::npos);
  const Object copy;
  EXPECT_EQ(read(copy, false, xml), VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(copy, 0x00081030), "a<\x0C");
  EXPECT_EQ(read(copy, false, "<x><ATTRIBUTE pcode='A B' VR='US' tag='00111007' name=\"\">9</Attribute></x>"),
            VX_NORMAL_COMPLETION);
}

TEST_F(Xml, NativeOddities) {
  const Object message;
  EXPECT_EQ(write(message, true, 0, VX_MESSAGE_EMPTY), "");
  EXPECT_EQ(VX_Message_To_XML(message, nullptr, 0, nullptr), VX_NULL_POINTER_PARM);
  EXPECT_EQ(read(9, true, native("")), VX_INVALID_MESSAGE_ID);
  EXPECT_EQ(read(message, true, native(" \n ")), VX_NORMAL_COMPLETION);
  EXPECT_EQ(read(message, true, "<Other/>"), VX_SYSTEM_ERROR);
  EXPECT_EQ(read(message, true,
                 native("<A 00080008 CS><V 2>B</V></A><A 00111002 LO privateCreator='A&amp;B'><V>x</V></A>"
                        "<A 00990001 UN/><A 00980002 UV><V>258</V></A>"
                        "<A 00980003 OB><InlineBinary>%YW\nJj*</InlineBinary></A>"
                        "<DicomAttribute vr='LO'/><A 00100020 LO><V>late</V></A>")),
            VX_NORMAL_COMPLETION);
  const std::string again = write(message, true, kAll);
  EXPECT_NE(again.find("<Value number=\"1\"/><Value number=\"2\">B</Value>"), std::string::npos) << again;
  EXPECT_NE(again.find("privateCreator=\"A&amp;B\"><Value number=\"1\">x</Value>"), std::string::npos)
      << again;
  EXPECT_NE(again.find("<InlineBinary>AgEAAAAAAAA=</InlineBinary>"), std::string::npos) << again;
  EXPECT_NE(again.find("<InlineBinary>YWJjAA==</InlineBinary>"), std::string::npos) << again;
  EXPECT_EQ(text(message, 0x00100020), "?");
  // The first item of a document empties a sequence that is filled.
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(read(message, true, native("<A 00081140 SQ><Item/></A>")), VX_NORMAL_COMPLETION);
  }
  int32_t count = 0;
  EXPECT_EQ(VX_Get_Attribute_Info(message, 0x00081140, nullptr, &count), VX_NORMAL_COMPLETION);
  EXPECT_EQ(count, 1);
}

// Anything but a document of the form leaves the object alone.
TEST_F(Xml, OtherTextsAreRefused) {
  static constexpr char kGood[] =
      "<DcmItem>\n<DataSet><Attribute Tag='00100020' VR='LO' Name='a>b'>x</Attribute>"
      "<!-- > --></DataSet></DcmItem>\n";
  struct Row {
    const char* what;
    const char* by;
  };
  static constexpr Row kChanges[] = {{"</DcmItem>", ""},
                                     {"</DcmItem>", "</DcmFile>"},
                                     {"</DcmItem>", "</DcmItem> more"},
                                     {"</DcmItem>", "</DcmItem><DcmItem/>"},
                                     {"</DataSet>", ""},
                                     {"</Attribute>", "</Atribute>"},
                                     {"</Attribute>", ""},
                                     {"<DcmItem>", "words <DcmItem>"},
                                     {"<DcmItem>", ""},
                                     {"<DataSet>", "<DataSet>words"},
                                     {"<DataSet>", "<!DOCTYPE x><DataSet>"},
                                     {">x<", "><b>x</b><"},
                                     {"<DcmItem>", "<NativeDicomModel>"},
                                     {">x<", ">\xFF<"},
                                     {"Name='a>b'", "Name=a"},
                                     {"Name='a>b'", "Name"},
                                     {"<DataSet>", "< DataSet>"},
                                     {"-->", "->"}};
  const Object message;
  for (const Row& row : kChanges) {
    std::string xml = kGood;
    xml.replace(xml.find(row.what), std::string(row.what).size(), row.by);
    EXPECT_EQ(read(message, false, xml), VX_SYSTEM_ERROR) << xml;
  }
  for (const char* xml :
       {"", "  ", "words", "{\"00100020\": {\"vr\": \"LO\"}}", "<html><body>x</body></html>", "<x/>",
        "<file-format><data-set><element tag='0010,0020' vr='LO'>x</element></data-set></file-format>"}) {
    for (const bool form : {false, true}) EXPECT_EQ(read(message, form, xml), VX_SYSTEM_ERROR) << xml;
  }
  EXPECT_EQ(write(message, false, 0, VX_MESSAGE_EMPTY), "");
  EXPECT_EQ(read(message, false, std::string("\xEF\xBB\xBF<?xml version='1.0'?>") + kGood),
            VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(message, 0x00100020), "x");
  EXPECT_EQ(read(message, false, "<x><Attribute tag='00100020' vr='LO'><![CDATA[<&]]> &lt;</ATTRIBUTE></x>"),
            VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(message, 0x00100020), "<& <");
}

// What other programs write in the native form, and what is told of it.
TEST_F(Xml, NativeFormsOfOthers) {
  struct Row {
    const char* inner;
    const char* again;
    const char* line;  // null: nothing
  };
  static constexpr Row kRows[] = {
      // Elements of private blocks without their block, one of them a number that creators have.
      {"<A 00290010 LO><V 1>A</V></A><A 00290011 LO><V 1>B</V></A>"
       "<A 00290001 US privateCreator='B'><V 1>5</V></A>"
       "<A 00290010 OB privateCreator='B'><InlineBinary>YWI=</InlineBinary></A>",
       "<DicomAttribute tag=\"00291101\" vr=\"US\" keyword=\"Private\" privateCreator=\"B\"><Value "
       "number=\"1\">5</Value></DicomAttribute><DicomAttribute tag=\"00291110\" vr=\"OB\"",
       nullptr},
      {"<A 00290001 US privateCreator='C'><V 1>5</V></A>", "tag=\"00291001\"", nullptr},
      {"<A 00290010 UN><InlineBinary>QUNNRSA=</InlineBinary></A><A 00291001 US><V>5</V></A>",
       "privateCreator=\"ACME\"><Value number=\"1\">5<", nullptr},
      {"<A 00290010 UN><BulkData uri='x'/></A><A 00100020 LO><V>x</V></A>", ">x</Value>", "lies elsewhere"},
      {"<A 00080008 CS><V 3>C</V><V 1>A</V></A>",
       "<Value number=\"1\">A</Value><Value number=\"2\"/><Value number=\"3\">C</Value>", nullptr},
      {"<A 00080008 CS><V 1>A</V><V 1>B</V></A>", ">A</Value><Value number=\"2\">B<", "one number"},
      {"<A 00080008 CS><V 0>A</V><V 9999>B</V></A>", ">A</Value><Value number=\"2\">B<", "has the number"},
      {"<A 00100010 PN><V>A^B</V><PersonName>C^D</PersonName></A>", "<GivenName>D</GivenName>", nullptr},
      {"<A 00100010 PN><PersonName><SingleByte>A</SingleByte></PersonName></A>",
       "<DicomAttribute tag=\"00100010\"", "parts that are none"},
      {"<A 00100020 LO><Text>A</Text></A>", "<DicomAttribute tag=\"00100020\"", "none of the form"},
      {"<A 00100020 LO><V>A\\B</V></A>", ">A\\B<", "backslash"},
      {"<A 00100020 LO><InlineBinary>YWI=</InlineBinary></A>", "tag=\"00100020\"", "Failed to write"},
      {"<A 00280010 US><V>x</V></A>", "tag=\"00280010\"", "Failed to write"},
      {"<A 00080005 CS><V>ISO_IR 100</V></A><A 00100020 LO><V>ü α</V></A>", ">ü ?</Value>", "(0010,0020)"},
      {"<A 00100020 LO><V>α</V></A>", "ISO_IR 192", nullptr},
  };
  ASSERT_EQ(VX_Enable_Unicode_Conversion(1), VX_NORMAL_COMPLETION);
  for (const Row& row : kRows) {
    const Object message;
    clear_log();
    EXPECT_EQ(read(message, true, native(row.inner)), VX_NORMAL_COMPLETION) << row.inner;
    EXPECT_TRUE(row.line != nullptr
                    ? has_log(row.line)
                    : !has_log("(VX_XML_Native_To_Message) W") && !has_log("(VX_XML_Native_To_Message) E"))
        << row.inner << testing::PrintToString(log_lines());
    const std::string again = write(message, true, kAll);
    EXPECT_NE(again.find(row.again), std::string::npos) << row.inner << "\n" << again;
  }
  VX_Enable_Unicode_Conversion(0);
}

// Every form both ways, with each allocation failing once: a status, and nothing is lost or held.
TEST_F(Xml, MemoryRunsOut) {
  const Object message;
  fill(message);
  using Write = VX_STATUS (*)(int32_t, void*, int32_t, VX_STREAM_OUTPUT);
  using Read = VX_STATUS (*)(int32_t, void*, VX_TEXT_INPUT);
  static constexpr std::pair<Write, Read> kForms[] = {{&VX_Message_To_XML, &VX_XML_To_Message},
                                                      {&VX_Message_To_XML_Native, &VX_XML_Native_To_Message},
                                                      {&VX_Message_To_Json, &VX_Json_To_Message}};
  for (const auto& [writer, reader] : kForms) {
    Sink whole;
    ASSERT_EQ(writer(message, &whole, kAll, &message_output), VX_NORMAL_COMPLETION);
    VX_STATUS status = VX_SYSTEM_ERROR;
    uint64_t n = 1;
    for (; status != VX_NORMAL_COMPLETION && n < 100; ++n) {
      Sink sink;
      vx::fail_allocation_after(n);
      status = writer(message, &sink, kAll, &message_output);
      vx::fail_allocation_after(0);
      EXPECT_TRUE(sink.bytes.empty() || status == VX_NORMAL_COMPLETION);
    }
    EXPECT_GT(n, 1U);
    const std::string before = stream(message);
    std::string after;
    Source all{whole.bytes};
    const Object filled;
    const VX_STATUS usual =
        reader(filled, &all, &text_input);  // JSON tells of values that are stored as they are
    EXPECT_EQ(stream(filled), before);
    for (n = 1; after != before && n < 1000; ++n) {
      const Object copy;
      Source text{whole.bytes};
      vx::fail_allocation_after(n);
      status = reader(copy, &text, &text_input);
      vx::fail_allocation_after(0);
      after = stream(copy);
    }
    EXPECT_EQ(status, usual);
    EXPECT_GT(n, 3U);
  }
}

// What libxml2 has to say goes to the log, with its line, and nowhere else.
TEST_F(Xml, BrokenEncodings) {
  const Object message;
  testing::internal::CaptureStderr();
  for (const std::string& xml :
       {std::string("<?xml version='1.0' encoding='UTF-8'?>\n<NativeDicomModel>\xFF\xFEx</NativeDicomModel>"),
        std::string("<?xml version='1.0' encoding='no-such'?>\n<NativeDicomModel>\xE4</NativeDicomModel>"),
        std::string(
            "<?xml version='1.0' encoding='EUC-JP'?>\n<NativeDicomModel>\xE4\x20\xFF</NativeDicomModel>"),
        std::string("\xFF\xFE<\0N\xD8\0\xD8", 8)}) {
    support::LogCapture::clear();
    for (const std::size_t block : {0U, 3U})
      EXPECT_EQ(read(message, true, xml, block), VX_SYSTEM_ERROR) << xml;
    const auto lines = log_lines();
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
      return line.find("|   line ") != std::string::npos;
    })) << xml;
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(write(message, true, 0, VX_MESSAGE_EMPTY), "");
}

TEST_F(Xml, HostileDocumentsLeaveTheObjectAlone) {
  const Object message;
  const std::string id = "<DicomAttribute tag='00100020' vr='LO'><Value>&e;</Value></DicomAttribute>";
  const auto nested = [](int levels, bool form) {
    std::string xml = form ? "<NativeDicomModel>" : "<DcmMessage>";
    for (int i = 0; i < levels; ++i)
      xml +=
          form ? "<DicomAttribute tag='00081140' vr='SQ'><Item>" : "<Attribute tag='00081140' VR='SQ'><Item>";
    for (int i = 0; i < levels; ++i) xml += form ? "</Item></DicomAttribute>" : "</Item></Attribute>";
    return xml + (form ? "</NativeDicomModel>" : "</DcmMessage>");
  };
  for (const std::string& xml :
       {"<!DOCTYPE NativeDicomModel [<!ENTITY e 'x'>]>" + native(id).substr(21),
        "<!DOCTYPE x SYSTEM 'file:///etc/passwd'>" + native("").substr(21), native(id), std::string("x"),
        std::string(), nested(5000, true), nested(131, true)}) {
    EXPECT_EQ(read(message, true, xml), VX_SYSTEM_ERROR) << xml.substr(0, 200);
  }
  EXPECT_EQ(read(message, false, nested(5000, false)), VX_SYSTEM_ERROR);
  EXPECT_EQ(read(message, false, "<x><Attribute Foo='1'>9</Attribute></x>"), VX_SYSTEM_ERROR);
  const Object full;
  fill(full);
  for (const bool form : {false, true}) {
    const std::string xml = write(full, form, kAll);
    for (std::size_t size = 0; size <= xml.rfind('>'); size += form ? 7 : 3) {
      const Object copy;
      const VX_STATUS status = read(copy, form, xml.substr(0, size));
      EXPECT_EQ(status, VX_SYSTEM_ERROR) << size;
      EXPECT_NE(VX_Get_Attribute_Info(copy, 0x00080005, nullptr, nullptr), VX_NORMAL_COMPLETION);
    }
  }
  EXPECT_EQ(write(message, true, 0, VX_MESSAGE_EMPTY), "");
  EXPECT_EQ(read(message, true, nested(128, true)), VX_NORMAL_COMPLETION);
  EXPECT_EQ(read(message, false, nested(128, false)), VX_NORMAL_COMPLETION);
}

}  // namespace
