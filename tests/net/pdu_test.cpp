// The PDU codec: what is built reads back, the limits, and every cut and change of a rich PDU.
#include "net/wire.h"

namespace {

using namespace vx;
using namespace wire;

class Pdu : public support::LibraryTest {
 protected:
  void TearDown() override {
    free_association_parameters(parameters_);
    LibraryTest::TearDown();
  }
  int32_t parse(const std::string& bytes) {
    free_association_parameters(parameters_);
    parameters_ = new_association_parameters();
    return parse_into(bytes);
  }
  int32_t parse_into(const std::string& bytes) {
    return parse_associate({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()}, *parameters_);
  }
  int32_t parse_user(const std::string& sub_items) {
    return parse(
        associate(1, item(0x10, kContextName) + context(1, kCt, {kImplicit}) + item(0x50, sub_items)));
  }
  std::string build(PduType type) const {
    std::vector<uint8_t> bytes;
    EXPECT_TRUE(Build_Associate_PDU(*parameters_, type, bytes));
    return {bytes.begin(), bytes.end()};
  }
  AssociationParameters* parameters_ = nullptr;
};

std::string counted(std::string_view text) {
  return be16(text.size()) + std::string(text);
}
std::string role(std::string_view uid, int scu, int scp) {
  return item(0x54, counted(uid) + std::string{static_cast<char>(scu), static_cast<char>(scp)});
}
std::string identity(int type, int response, std::string_view first, std::string_view second) {
  return item(0x58, std::string{static_cast<char>(type), static_cast<char>(response)} + counted(first) +
                        counted(second));
}

// With one of everything.
std::string rich_request() {
  return associate(
      1,
      item(0x10, kContextName) + context(1, kCt, {kExplicit, kImplicit}) +
          context(3, kVerification, {kImplicit}) +
          user_information(item(0x53, be16(5) + be16(0)) + role(kCt, 1, 1) + item(0x55, "VERSION_1") +
                           item(0x56, counted(kCt) + std::string("\1\0\2", 3)) +
                           item(0x57, counted(kCt) + counted("1.2.840.10008.4.2") +
                                          counted(counted("1.2.3") + counted("1.2.3.4"))) +
                           identity(2, 1, "user", "secret")),
      "SIXTEEN_LETTERS_", "   ");
}

TEST_F(Pdu, ARequestReadsIntoItsParametersAndIsBuiltTheSame) {
  const std::string bytes = rich_request();
  ASSERT_EQ(parse(bytes), DUL_NORMAL);
  const AssociationParameters& p = *parameters_;
  EXPECT_STREQ(p.calledTitle, "SIXTEEN_LETTERS_");
  EXPECT_STREQ(p.callingTitle, "");
  EXPECT_EQ(p.protocolVersion, 1);
  EXPECT_EQ(p.maximumPduLength, 16384U);
  EXPECT_EQ(p.maxOperationsInvoked, 5);
  EXPECT_EQ(p.maxOperationsPerformed, 0);
  EXPECT_STREQ(p.implementationClassUid, "1.2.3.4");
  EXPECT_STREQ(p.implementationVersion, "VERSION_1");
  ASSERT_EQ(p.contextCount, 2);
  const PresentationContext& ct = p.contexts[0];
  EXPECT_EQ(ct.id, 1);
  ASSERT_EQ(ct.transferSyntaxCount, 2);
  EXPECT_EQ(ct.transferSyntaxes[0].code, EXPLICIT_LITTLE_ENDIAN);
  EXPECT_EQ(ct.scuRole, 1);
  EXPECT_EQ(p.contexts[1].scuRole, kRoleAbsent);
  EXPECT_EQ(ct.extendedNegotiationLength, 3);
  EXPECT_STREQ(ct.serviceClassUid, "1.2.840.10008.4.2");
  ASSERT_EQ(ct.relatedClassCount, 2);
  EXPECT_STREQ(ct.relatedClasses[1], "1.2.3.4");
  EXPECT_EQ(p.userIdentityType, 2);
  EXPECT_EQ(p.userIdentitySecondaryLength, 6);
  EXPECT_EQ(build(kAssociateRq), bytes);
}

TEST_F(Pdu, AnAnswerFillsTheProposal) {
  ASSERT_EQ(parse(rich_request()), DUL_NORMAL);
  mark_unanswered(*parameters_);
  const std::string taken = std::string("\1\0\0\0", 4) + item(0x40, kImplicit);
  const std::string unknown = std::string("\x63\0\0\0", 4) + item(0x40, kImplicit);
  ASSERT_EQ(parse_into(associate(2, item(0x10, kContextName) + item(0x21, taken) + item(0x21, unknown) +
                                        item(0x50, role(kCt, 1, 0) + item(0x56, counted(kCt) + "abcdef") +
                                                       item(0x59, counted("ticket"))))),
            DUL_NORMAL);
  EXPECT_EQ(parameters_->contexts[0].result, kAccepted);
  EXPECT_EQ(parameters_->contexts[0].acceptedTransferSyntaxCode, IMPLICIT_LITTLE_ENDIAN);
  EXPECT_EQ(parameters_->contexts[0].scpRole, 0);
  EXPECT_EQ(parameters_->contexts[0].extendedNegotiationLength, 6);
  EXPECT_EQ(parameters_->contexts[1].result, kNoAnswer);
  EXPECT_TRUE(parameters_->receivedUserIdentityResponse);
  EXPECT_EQ(parameters_->userIdentityResponseLength, 6);
  EXPECT_EQ(parameters_->maxOperationsInvoked, kWindowAbsent);
  EXPECT_TRUE(has_log("Unexpected Pres Context ID"));
  // As an acceptor sends it: a refused context has an empty transfer syntax.
  parameters_->contexts[1].result = kAbstractSyntaxNotSupported;
  parameters_->sendUserIdentityResponse = true;
  const std::string bytes = build(kAssociateAc);
  EXPECT_NE(bytes.find(item(0x21, std::string("\3\0\3\0", 4) + item(0x40, ""))), std::string::npos);
  EXPECT_NE(bytes.find(item(0x59, counted("ticket"))), std::string::npos);
  EXPECT_EQ(bytes.find(item(0x58, "").substr(0, 1) + "\0\0"), std::string::npos);
}

TEST_F(Pdu, OddUidsArePaddedWhereTheyMayBe) {
  ASSERT_EQ(parse(rich_request()), DUL_NORMAL);
  set_bool(VX_CFG_INSURE_EVEN_UID_LENGTH, true);
  reset_uid_padding();
  const std::string bytes = build(kAssociateRq);
  const std::string padded = std::string(kCt) + '\0';
  EXPECT_NE(bytes.find(item(0x30, padded)), std::string::npos);
  EXPECT_NE(bytes.find(item(0x56, counted(padded) + std::string("\1\0\2", 3))), std::string::npos);
  EXPECT_NE(bytes.find(role(kCt, 1, 1)), std::string::npos);
  set_bool(VX_CFG_INSURE_EVEN_UID_LENGTH, false);
  EXPECT_EQ(build(kAssociateRq), bytes) << "the setting is looked at once";
  ASSERT_EQ(parse(bytes), DUL_NORMAL);
  EXPECT_STREQ(parameters_->contexts[0].abstractSyntax, kCt);
}

TEST_F(Pdu, RolesOfASharedClassGoOutOnce) {
  ASSERT_EQ(parse(associate(1, item(0x10, kContextName) + context(1, kCt, {kImplicit}) +
                                   context(3, kCt, {kExplicit}) + user_information())),
            DUL_NORMAL);
  for (PresentationContext& c : contexts_of(*parameters_)) c.scuRole = c.scpRole = 1;
  const std::string bytes = build(kAssociateRq);
  const std::size_t first = bytes.find(role(kCt, 1, 1));
  ASSERT_NE(first, std::string::npos);
  EXPECT_EQ(bytes.find(role(kCt, 1, 1), first + 1), std::string::npos);
}

TEST_F(Pdu, NegotiationDataThatDoesNotFitIsRefused) {
  ASSERT_EQ(parse(rich_request()), DUL_NORMAL);
  const std::string large(60000, 'x');
  for (PresentationContext& c : contexts_of(*parameters_)) {
    ASSERT_TRUE(set_extended_negotiation(c, large.data(), 60000));
  }
  std::vector<uint8_t> bytes;
  EXPECT_FALSE(Build_Associate_PDU(*parameters_, kAssociateRq, bytes));
}

TEST_F(Pdu, WhatIsTooMuchIsCutOrRefusedAsTheLimitsSay) {
  std::string syntaxes;
  for (int i = 0; i < 27; ++i) syntaxes += item(0x40, "1.2." + std::to_string(i));
  const std::string many = item(0x20, std::string("\1\0\0\0", 4) + item(0x30, kCt) + syntaxes);
  ASSERT_EQ(parse(associate(1, item(0x10, kContextName) + many + user_information())), DUL_NORMAL);
  ASSERT_EQ(parameters_->contexts[0].transferSyntaxCount, 26);
  EXPECT_STREQ(parameters_->contexts[0].transferSyntaxes[24].uid, "1.2.24");
  EXPECT_STREQ(parameters_->contexts[0].transferSyntaxes[25].uid, "1.2.26");
  std::string contexts;
  for (int i = 0; i < 130; ++i) contexts += context(static_cast<uint8_t>(i + 1), kCt, {kImplicit});
  ASSERT_EQ(parse(associate(1, item(0x10, kContextName) + contexts)), DUL_NORMAL);
  ASSERT_EQ(parameters_->contextCount, 128);
  EXPECT_EQ(parameters_->contexts[127].id, 130);
  EXPECT_EQ(count_log("Too many Presentation Context Items"), 1);
  std::string related;
  for (int i = 0; i < 12; ++i) related += counted("1.2.3");
  ASSERT_EQ(parse_user(item(0x57, counted(kCt) + counted("1.2") + counted(related))), DUL_NORMAL);
  EXPECT_EQ(parameters_->contexts[0].relatedClassCount, 9);
  EXPECT_EQ(parse_user(item(0x57, counted(kCt) + counted("1.2") + counted(""))), DUL_NORMAL);
  // A flood of what is passed over leaves a bounded number of lines.
  clear_log();
  std::string unknown;
  for (int i = 0; i < 2000; ++i) unknown += item(0x7E, "");
  EXPECT_EQ(parse_user(unknown), DUL_NORMAL);
  EXPECT_LT(count_log("Ignoring unknown"), 100);
}

TEST_F(Pdu, RefusedWithTheReasonInTheLog) {
  const std::string long_uid(65, '1');
  const struct {
    std::string sub_items;
    const char* line;
  } cases[] = {
      {item(0x51, be32(1)) + item(0x51, be32(1)), "Maximum Length notification already received."},
      {item(0x53, be32(1)) + item(0x53, be32(1)), "Asynchronous Operations Window already received."},
      {item(0x55, "A") + item(0x55, "A"), "Implementation Version already received."},
      {identity(1, 0, "a", "") + identity(1, 0, "a", ""), "User Identity already received."},
      {item(0x52, long_uid),
       "Implementation Class UID exceeds maximum length (64): item type = 0x52, length = 65"},
      {item(0x55, std::string(17, 'v')), "Implementation Version exceeds maximum length (16)"},
      {role(long_uid, 0, 1), "Role Selection SOP Class UID exceeds maximum length (16)"},
      {role(kCt, 2, 0), "Invalid value for SCU-role: 2"},
      {role(kCt, 0, 2), "Invalid value for SCP-role: 2"},
      {identity(1, 0, "name", "x"), "Secondary-field-length should be 0"},
      {item(0x58, std::string("\1\0", 2) + counted("name") + counted("") + "!"),
       "incorrect length or field length"},
      {item(0x59, be16(9) + "short"), "incorrect length or server response length"},
      {item(0x56, counted(long_uid)), "Extended Negotiation SOP Class UID exceeds"},
      {item(0x57, counted(kCt) + counted(long_uid) + counted("")), "Service Class UID exceeds"},
      {item(0x57, counted(kCt) + counted("1") + counted(counted(long_uid))),
       "Related General Class UID[0] exceeds"},
      {item(0x51, "abc"), "Parsing error encountered"},
  };
  for (const auto& c : cases) {
    clear_log();
    EXPECT_EQ(parse_user(c.sub_items), DUL_DEFORMED_PDU) << c.line;
    EXPECT_TRUE(has_log(c.line)) << c.line;
  }
  EXPECT_EQ(parse_user(role(std::string(40, '1'), 0, 1)), DUL_NORMAL);
  EXPECT_EQ(parse(associate(1, item(0x11, "x"))), DUL_UNKNOWN_PDU);
  EXPECT_EQ(parse(associate(1, item(0x20, std::string("\1\0\0\0", 4) + item(0x31, "x")))), DUL_UNKNOWN_PDU);
  EXPECT_EQ(parse(associate(1, context(0, kCt, {kImplicit}))), DUL_DEFORMED_PDU);
  EXPECT_EQ(parse(pdu(1, std::string(67, '\0'))), DUL_DEFORMED_PDU);
}

// Each cut and each change gives a status and, where it reads, parameters that can be built again.
TEST_F(Pdu, EveryCutAndEveryChangedByteIsRead) {
  const std::string answer = associate(
      2, item(0x10, kContextName) + item(0x21, std::string("\1\0\0\0", 4) + item(0x40, kImplicit)) +
             user_information(role(kCt, 1, 0) + item(0x56, counted(kCt) + "ab") + item(0x59, counted("t"))));
  int read = 0;
  for (const std::string& bytes : {rich_request(), answer}) {
    const auto type = static_cast<PduType>(bytes[0]);
    const auto attempt = [&](const std::string& changed) {
      if (type == kAssociateAc) {
        ASSERT_EQ(parse(rich_request()), DUL_NORMAL);
        mark_unanswered(*parameters_);
      } else {
        free_association_parameters(parameters_);
        parameters_ = new_association_parameters();
      }
      const int32_t status = parse_into(changed);
      EXPECT_TRUE(status == DUL_NORMAL || status == DUL_DEFORMED_PDU || status == DUL_UNKNOWN_PDU) << status;
      if (status == DUL_NORMAL) {
        ++read;
        build(type);
      }
    };
    for (std::size_t length = 6; length <= bytes.size(); ++length) attempt(bytes.substr(0, length));
    for (std::size_t at = 6; at < bytes.size(); ++at) {
      for (const int value : {0x00, 0x01, 0x20, 0x40, 0x51, 0x58, 0x7F, 0x80, 0xFF}) {
        std::string changed = bytes;
        changed[at] = static_cast<char>(value);
        attempt(changed);
      }
      std::string changed = bytes;
      changed[at] = static_cast<char>(changed[at] + 1);
      attempt(changed);
    }
  }
  EXPECT_GT(read, 100);
}

}  // namespace
