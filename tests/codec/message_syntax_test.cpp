#include "codec/streams.h"

namespace {

using namespace streams;
using support::LibraryTest;

class MessageSyntax : public LibraryTest {
 protected:
  static VX_STATUS get(int32_t id, VX_TRANSFER_SYNTAX& syntax) {
    return VX_Get_Message_Transfer_Syntax(id, &syntax);
  }
};

TEST_F(MessageSyntax, MessagesKeepItAndForgetIt) {
  const Object message;
  VX_TRANSFER_SYNTAX syntax = 0;
  EXPECT_EQ(get(message, syntax), VX_STATE_VIOLATION);
  EXPECT_EQ(VX_Set_Message_Transfer_Syntax(message, PRIVATE_SYNTAX_1), VX_INVALID_TRANSFER_SYNTAX);
  EXPECT_EQ(VX_Set_Message_Transfer_Syntax(message, JPEG_2000), VX_NORMAL_COMPLETION);
  EXPECT_EQ(get(message, syntax), VX_NORMAL_COMPLETION);
  EXPECT_EQ(syntax, JPEG_2000);
  EXPECT_EQ(VX_Reset_Message_Transfer_Syntax(message), VX_NORMAL_COMPLETION);
  EXPECT_EQ(get(message, syntax), VX_STATE_VIOLATION);
  EXPECT_EQ(VX_Get_Message_Transfer_Syntax(message, nullptr), VX_NULL_POINTER_PARM);
}

TEST_F(MessageSyntax, FilesHaveItInTheirMetaGroup) {
  const Object file(new_file);
  VX_TRANSFER_SYNTAX syntax = 0;
  EXPECT_EQ(get(file, syntax), VX_EMPTY_VALUE);
  EXPECT_EQ(VX_Set_Message_Transfer_Syntax(file, RLE), VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(file, 0x00020010), "1.2.840.10008.1.2.5");
  EXPECT_EQ(VX_Reset_Message_Transfer_Syntax(file), VX_NORMAL_COMPLETION);
  EXPECT_EQ(get(file, syntax), VX_NORMAL_COMPLETION);
  EXPECT_EQ(syntax, RLE);
  VX_Set_Value_From_String(file, 0x00020010, "1.2.3.4");
  EXPECT_EQ(get(file, syntax), VX_INVALID_TRANSFER_SYNTAX);
}

TEST_F(MessageSyntax, ItemsOnlyWithPixelsOrInAPrivateSequence) {
  const Object message;
  int32_t item = -1;
  VX_TRANSFER_SYNTAX syntax = 0;
  ASSERT_EQ(VX_Open_Empty_Item(&item), VX_NORMAL_COMPLETION);
  EXPECT_EQ(get(item, syntax), VX_INVALID_MESSAGE_ID);
  EXPECT_EQ(VX_Set_Message_Transfer_Syntax(item, RLE), VX_INVALID_MESSAGE_ID);
  VX_Add_Private_Block(message, "ACME 1.0", 0x0009);
  VX_Add_Private_Attribute(message, "ACME 1.0", 0x0009, 0x03, VX_VR_SQ);
  ASSERT_EQ(VX_Set_pValue_From_Int(message, "ACME 1.0", 0x0009, 0x03, item), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Set_Message_Transfer_Syntax(item, RLE), VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(item, 0x00020010), "1.2.840.10008.1.2.5");
  EXPECT_EQ(VX_Reset_Message_Transfer_Syntax(item), VX_INVALID_MESSAGE_ID);
  VX_Add_Standard_Attribute(item, 0x7FE00010);
  EXPECT_EQ(get(item, syntax), VX_STATE_VIOLATION);
}

}  // namespace
