// The PDU codec: what is built reads back, the limits, and every cut and change of a rich PDU.
#include "net/peers.h"

namespace vx::test {
namespace {

class PduTest : public support::LibraryTest {
 protected:
  void TearDown() override {
    free_association_parameters(parameters_);
    LibraryTest::TearDown();
  }
  int32_t parse(const Bytes& bytes) {
    free_association_parameters(parameters_);
    parameters_ = new_association_parameters();
    return parse_into(bytes);
  }
  int32_t parse_into(const Bytes& bytes) {
    return parse_associate({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()}, *parameters_);
  }
  int32_t parse_user(const Bytes& sub_items) {
    return parse(
        associate(1, item(0x10, kContextName) + context(1, kCt, {kImplicit}) + item(0x50, sub_items)));
  }
  Bytes build(PduType type) const {
    std::vector<uint8_t> bytes;
    EXPECT_TRUE(Build_Associate_PDU(*parameters_, type, bytes));
    return {bytes.begin(), bytes.end()};
  }
  AssociationParameters* parameters_ = nullptr;
};

// With one of everything.
Bytes rich_request() {
  return associate(
      kAssociateRq,
      item(0x10, kContextName) + context(1, kCt, {kExplicit, kImplicit}) +
          context(3, kVerification, {kImplicit}) +
          user_information(item(0x53, be16(5) + be16(0)) + role(kCt, 1, 1) + item(0x55, "VERSION_1") +
                           item(0x56, counted(kCt) + bytes_of(1, 0, 2)) +
                           item(0x57, counted(kCt) + counted("1.2.840.10008.4.2") +
                                          counted(counted("1.2.3") + counted("1.2.3.4"))) +
                           identity(2, 1, "user", "secret")),
      "SIXTEEN_LETTERS_", "   ");
}

TEST_F(PduTest, ARequestReadsIntoItsParametersAndIsBuiltTheSame) {
  const Bytes bytes = rich_request();
  ASSERT_EQ(parse(bytes), DUL_NORMAL);
  const AssociationParameters& p = *parameters_;
  EXPECT_EQ(
      joined(p.calledTitle, p.callingTitle, p.protocolVersion, p.maximumPduLength, p.maxOperationsInvoked,
             p.maxOperationsPerformed, p.implementationClassUid, p.implementationVersion, p.contextCount,
             p.userIdentityType, p.userIdentitySecondaryLength),
      "SIXTEEN_LETTERS_,,1,16384,5,0,1.2.3.4,VERSION_1,2,2,6,");
  const PresentationContext& ct = p.contexts[0];
  EXPECT_EQ(
      joined(ct.id, ct.transferSyntaxCount, ct.transferSyntaxes[0].uid, ct.scuRole, p.contexts[1].scuRole,
             ct.extendedNegotiationLength, ct.serviceClassUid, ct.relatedClassCount, ct.relatedClasses[1]),
      joined(1, 2, kExplicit, 1, kRoleAbsent, 3, "1.2.840.10008.4.2", 2, "1.2.3.4"));
  EXPECT_EQ(ct.transferSyntaxes[0].code, EXPLICIT_LITTLE_ENDIAN);
  EXPECT_EQ(build(kAssociateRq), bytes);
}

TEST_F(PduTest, AnAnswerFillsTheProposal) {
  ASSERT_EQ(parse(rich_request()), DUL_NORMAL);
  mark_unanswered(*parameters_);
  ASSERT_EQ(parse_into(associate(2, item(0x10, kContextName) + answered(1, 0, kImplicit) +
                                        answered(99, 0, kImplicit) +
                                        item(0x50, role(kCt, 1, 0) + item(0x56, counted(kCt) + "abcdef") +
                                                       item(0x59, counted("ticket"))))),
            DUL_NORMAL);
  const PresentationContext& ct = parameters_->contexts[0];
  EXPECT_EQ(joined(ct.result, ct.acceptedTransferSyntaxCode, ct.scpRole, ct.extendedNegotiationLength,
                   parameters_->contexts[1].result, parameters_->receivedUserIdentityResponse,
                   parameters_->userIdentityResponseLength, parameters_->maxOperationsInvoked),
            joined(int{kAccepted}, IMPLICIT_LITTLE_ENDIAN, 0, 6, int{kNoAnswer}, 1, 6, kWindowAbsent));
  EXPECT_TRUE(has_log("Unexpected Pres Context ID"));
  // As an acceptor sends it: a refused context has an empty transfer syntax.
  parameters_->contexts[1].result = kAbstractSyntaxNotSupported;
  parameters_->sendUserIdentityResponse = true;
  const Bytes bytes = build(kAssociateAc);
  EXPECT_NE(bytes.find(answered(3, 3, "")), Bytes::npos);
  EXPECT_NE(bytes.find(item(0x59, counted("ticket"))), Bytes::npos);
  EXPECT_EQ(bytes.find(item(0x58, "").substr(0, 1) + "\0\0"), Bytes::npos);
}

TEST_F(PduTest, OddUidsArePaddedWhereTheyMayBe) {
  ASSERT_EQ(parse(rich_request()), DUL_NORMAL);
  set_bool(VX_CFG_INSURE_EVEN_UID_LENGTH, true);
  reset_uid_padding();
  const Bytes bytes = build(kAssociateRq);
  const Bytes padded = Bytes(kCt) + '\0';
  EXPECT_NE(bytes.find(item(0x30, padded)), Bytes::npos);
  EXPECT_NE(bytes.find(item(0x56, counted(padded) + bytes_of(1, 0, 2))), Bytes::npos);
  EXPECT_NE(bytes.find(role(kCt, 1, 1)), Bytes::npos);
  set_bool(VX_CFG_INSURE_EVEN_UID_LENGTH, false);
  EXPECT_EQ(build(kAssociateRq), bytes) << "the setting is looked at once";
  ASSERT_EQ(parse(bytes), DUL_NORMAL);
  EXPECT_STREQ(parameters_->contexts[0].abstractSyntax, kCt);
}

TEST_F(PduTest, RolesOfASharedClassGoOutOnce) {
  ASSERT_EQ(parse(associate(1, item(0x10, kContextName) + context(1, kCt, {kImplicit}) +
                                   context(3, kCt, {kExplicit}) + user_information())),
            DUL_NORMAL);
  for (PresentationContext& c : contexts_of(*parameters_)) c.scuRole = c.scpRole = 1;
  const Bytes bytes = build(kAssociateRq);
  const std::size_t first = bytes.find(role(kCt, 1, 1));
  ASSERT_NE(first, Bytes::npos);
  EXPECT_EQ(bytes.find(role(kCt, 1, 1), first + 1), Bytes::npos);
}

TEST_F(PduTest, NegotiationDataThatDoesNotFitIsRefused) {
  ASSERT_EQ(parse(rich_request()), DUL_NORMAL);
  const Bytes large(60000, 'x');
  for (PresentationContext& c : contexts_of(*parameters_)) set_extended_negotiation(c, large.data(), 60000);
  std::vector<uint8_t> bytes;
  EXPECT_FALSE(Build_Associate_PDU(*parameters_, kAssociateRq, bytes));
}

TEST_F(PduTest, WhatIsTooMuchIsCutOrRefusedAsTheLimitsSay) {
  Bytes syntaxes;
  for (int i = 0; i < 27; ++i) syntaxes += item(0x40, "1.2." + std::to_string(i));
  const Bytes many = item(0x20, bytes_of(1, 0, 0, 0) + item(0x30, kCt) + syntaxes);
  ASSERT_EQ(parse(associate(1, item(0x10, kContextName) + many + user_information())), DUL_NORMAL);
  ASSERT_EQ(parameters_->contexts[0].transferSyntaxCount, 26);
  EXPECT_STREQ(parameters_->contexts[0].transferSyntaxes[24].uid, "1.2.24");
  EXPECT_STREQ(parameters_->contexts[0].transferSyntaxes[25].uid, "1.2.26");
  Bytes contexts;
  for (int i = 0; i < 130; ++i) contexts += context(static_cast<uint8_t>(i + 1), kCt, {kImplicit});
  ASSERT_EQ(parse(associate(1, item(0x10, kContextName) + contexts)), DUL_NORMAL);
  ASSERT_EQ(parameters_->contextCount, 128);
  EXPECT_EQ(parameters_->contexts[127].id, 130);
  EXPECT_EQ(count_log("Too many Presentation Context Items"), 1);
  Bytes related;
  for (int i = 0; i < 12; ++i) related += counted("1.2.3");
  ASSERT_EQ(parse_user(item(0x57, counted(kCt) + counted("1.2") + counted(related))), DUL_NORMAL);
  EXPECT_EQ(parameters_->contexts[0].relatedClassCount, 9);
  EXPECT_EQ(parse_user(item(0x57, counted(kCt) + counted("1.2") + counted(""))), DUL_NORMAL);
  // A flood of what is passed over leaves a bounded number of lines.
  clear_log();
  Bytes unknown;
  for (int i = 0; i < 2000; ++i) unknown += item(0x7E, "");
  EXPECT_EQ(parse_user(unknown), DUL_NORMAL);
  EXPECT_LT(count_log("Ignoring unknown"), 100);
}

TEST_F(PduTest, RefusedWithTheReasonInTheLog) {
  const Bytes long_uid(65, '1');
  const struct {
    Bytes sub_items;
    const char* line;
  } cases[] = {
      {item(0x51, be32(1)) + item(0x51, be32(1)), "Maximum Length notification already received."},
      {item(0x53, be32(1)) + item(0x53, be32(1)), "Asynchronous Operations Window already received."},
      {item(0x55, "A") + item(0x55, "A"), "Implementation Version already received."},
      {identity(1, 0, "a", "") + identity(1, 0, "a", ""), "User Identity already received."},
      {item(0x52, long_uid),
       "Implementation Class UID exceeds maximum length (64): item type = 0x52, length = 65"},
      {item(0x55, Bytes(17, 'v')), "Implementation Version exceeds maximum length (16)"},
      {role(long_uid, 0, 1), "Role Selection SOP Class UID exceeds maximum length (16)"},
      {role(kCt, 2, 0), "Invalid value for SCU-role: 2"},
      {role(kCt, 0, 2), "Invalid value for SCP-role: 2"},
      {identity(1, 0, "name", "x"), "Secondary-field-length should be 0"},
      {item(0x58, bytes_of(1, 0) + counted("name") + counted("") + "!"), "incorrect length or field length"},
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
  EXPECT_EQ(parse_user(role(Bytes(40, '1'), 0, 1)), DUL_NORMAL);
  EXPECT_EQ(parse(associate(1, item(0x11, "x"))), DUL_UNKNOWN_PDU);
  EXPECT_EQ(parse(associate(1, item(0x20, bytes_of(1, 0, 0, 0) + item(0x31, "x")))), DUL_UNKNOWN_PDU);
  EXPECT_EQ(parse(associate(1, context(0, kCt, {kImplicit}))), DUL_DEFORMED_PDU);
  EXPECT_EQ(parse(pdu(1, Bytes(67, '\0'))), DUL_DEFORMED_PDU);
}

// Each cut and each change gives a status and, where it reads, parameters that can be built again.
TEST_F(PduTest, EveryCutAndEveryChangedByteIsRead) {
  const Bytes answer = associate(
      kAssociateAc,
      item(0x10, kContextName) + answered(1, 0, kImplicit) +
          user_information(role(kCt, 1, 0) + item(0x56, counted(kCt) + "ab") + item(0x59, counted("t"))));
  int read = 0;
  for (const Bytes& bytes : {rich_request(), answer}) {
    const auto type = static_cast<PduType>(bytes[0]);
    const auto attempt = [&](const Bytes& changed) {
      if (type == kAssociateAc) {
        ASSERT_EQ(parse(rich_request()), DUL_NORMAL);
        mark_unanswered(*parameters_);
      }
      const int32_t status = type == kAssociateAc ? parse_into(changed) : parse(changed);
      EXPECT_TRUE(status == DUL_NORMAL || status == DUL_DEFORMED_PDU || status == DUL_UNKNOWN_PDU) << status;
      if (status != DUL_NORMAL) return;
      ++read;
      build(type);
    };
    for (std::size_t length = 6; length <= bytes.size(); ++length) attempt(bytes.substr(0, length));
    for (std::size_t at = 6; at < bytes.size(); ++at) {
      for (const int value : {0x00, 0x01, 0x20, 0x40, 0x51, 0x58, 0x7F, 0x80, 0xFF, bytes[at] + 1}) {
        Bytes changed = bytes;
        changed[at] = static_cast<char>(value);
        attempt(changed);
      }
    }
  }
  EXPECT_GT(read, 100);
}

}  // namespace
}  // namespace vx::test
