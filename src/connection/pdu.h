// The PDUs of the upper layer (PS3.8 section 9.3) and what both sides negotiate through them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "frame/status.h"

namespace vx {

enum PduType : uint8_t {
  kAssociateRq = 1,
  kAssociateAc = 2,
  kAssociateRj = 3,
  kPDataTf = 4,
  kReleaseRq = 5,
  kReleaseRp = 6,
  kAbort = 7
};

// Of an A-ASSOCIATE-RJ (PS3.8 section 9.3.4). Each source has reasons of its own.
enum RejectResult : uint8_t { kRejectedPermanently = 1, kRejectedTransiently = 2 };
enum RejectSource : uint8_t { kRejectedByUser = 1, kRejectedByAcse = 2, kRejectedByPresentation = 3 };
enum UserRejectReason : uint8_t {
  kNoReasonGiven = 1,
  kContextNameNotSupported = 2,
  kCallingTitleUnknown = 3,
  kCalledTitleUnknown = 7
};
enum AcseRejectReason : uint8_t { kProtocolNotSupported = 2 };

// Of an A-ABORT (PS3.8 section 9.3.8).
enum AbortSource : uint8_t { kAbortByUser = 0, kAbortByProvider = 2 };
enum AbortReason : uint8_t { kAbortNoReason = 0, kAbortUnexpectedPdu = 2 };

// Of a presentation context in an A-ASSOCIATE-AC (PS3.8 section 9.3.3.2).
enum ContextResult : uint8_t {
  kAccepted = 0,
  kUserRejection = 1,
  kProviderRejection = 2,
  kAbstractSyntaxNotSupported = 3,
  kTransferSyntaxNotSupported = 4,
  kNoAnswer = 0xDD  // ours: the peer did not mention it
};

// Of a user identity (PS3.7 section D.3.3.7).
enum IdentityType : uint8_t {
  kNoIdentity = 0,
  kUserName = 1,
  kNameAndPasscode = 2,
  kKerberosTicket = 3,
  kSamlAssertion = 4,
  kJsonWebToken = 5
};

// The message control header of a presentation data value (PS3.8 annex E).
inline constexpr uint8_t kCommandBit = 1;
inline constexpr uint8_t kLastBit = 2;

inline constexpr std::size_t kPduHeader = 6;
inline constexpr std::size_t kShortPdu = 10;
inline constexpr std::size_t kPdvHeader = 12;  // of a P-DATA-TF with one PDV
inline constexpr std::size_t kUid = 68;        // room for a UID, of which 64 come from the wire
inline constexpr int kMostContexts = 128;
inline constexpr int kMostSyntaxes = 26;       // of one context
inline constexpr int kMostRelatedClasses = 9;  // of one context, received
inline constexpr uint16_t kWindowAbsent = 65535;
inline constexpr uint8_t kRoleAbsent = 0xFF;

struct TransferSyntaxEntry {
  char uid[kUid];
  VX_TRANSFER_SYNTAX code;
};

struct PresentationContext {
  uint8_t id;  // 0 marks an unused record and is never sent
  char abstractSyntax[kUid];
  int32_t transferSyntaxCount;
  TransferSyntaxEntry* transferSyntaxes;  // owned; proposed, in order
  uint8_t result;                         // a ContextResult, or what else the peer sent
  char acceptedTransferSyntax[kUid];
  VX_TRANSFER_SYNTAX acceptedTransferSyntaxCode;
  uint16_t extendedNegotiationLength;  // in use
  uint16_t extendedNegotiationCapacity;
  uint8_t* extendedNegotiation;  // owned, may be null
  bool negotiationInfoSet;       // the application replaced the data for this association
  uint8_t scuRole;               // 0 or 1; kRoleAbsent without a role item
  uint8_t scpRole;
  char serviceClassUid[kUid];  // of common extended negotiation; empty for none
  int32_t relatedClassCount;
  char (*relatedClasses)[kUid];  // owned
};
static_assert(std::is_trivially_destructible_v<PresentationContext>);

struct AssociationParameters {
  char calledTitle[20];
  char callingTitle[20];
  char applicationContextName[kUid];
  uint16_t protocolVersion;  // from the peer; always sent as 1
  int32_t contextCount;
  PresentationContext* contexts;  // owned; in proposal order
  uint32_t maximumPduLength;      // sent; after a parse the peer's
  char implementationClassUid[kUid];
  char remoteImplementationClassUid[kUid];
  char implementationVersion[20];
  char remoteImplementationVersion[20];
  uint16_t maxOperationsInvoked;  // kWindowAbsent: not sent
  uint16_t maxOperationsPerformed;
  uint16_t rejectResult;
  uint16_t rejectSource;
  uint16_t rejectReason;
  char callingHostName[48];
  char callingAddress[72];
  char calledHostName[40];
  char calledPort[8];
  int32_t userIdentityType;  // an IdentityType, or what else was asked for
  uint8_t userIdentityResponseRequested;
  uint8_t* userIdentityPrimary;  // owned
  uint16_t userIdentityPrimaryLength;
  uint8_t* userIdentitySecondary;  // owned
  uint16_t userIdentitySecondaryLength;
  uint8_t* userIdentityResponse;  // owned
  uint16_t userIdentityResponseLength;
  bool sendUserIdentityResponse;
  bool receivedUserIdentityResponse;
  int32_t nextAcceptableService;
};
static_assert(std::is_trivially_destructible_v<AssociationParameters>);

inline std::span<PresentationContext> contexts_of(const AssociationParameters& parameters) {
  return {parameters.contexts, static_cast<std::size_t>(parameters.contextCount)};
}

// With the window absent; null if there is no memory.
AssociationParameters* new_association_parameters();
void free_association_parameters(AssociationParameters* parameters);
// Makes room for `count` zeroed contexts with roles absent; the former ones are freed.
bool set_context_count(AssociationParameters& parameters, int32_t count);
// Room for the transfer syntaxes of a context, zeroed.
bool set_syntax_count(PresentationContext& context, int32_t count);
// A copy of `length` bytes of extended negotiation data; null and 0 take the data away.
bool set_extended_negotiation(PresentationContext& context, const void* data, uint16_t length);
// A copy of the server's answer to a user identity.
bool set_identity_response(AssociationParameters& parameters, const void* data, uint16_t length);
// Room for related general SOP classes, zeroed.
bool set_related_count(PresentationContext& context, int32_t count);

// --- Building ---

// The wire form of an A-ASSOCIATE-RQ or -AC. False, after a line in the log, if an item
// outgrows its length field.
bool Build_Associate_PDU(const AssociationParameters& parameters, PduType type, std::vector<uint8_t>& pdu);
// One of the four short PDUs; the bytes of the last three fields.
void build_short_pdu(uint8_t (&pdu)[kShortPdu], PduType type, uint8_t b7 = 0, uint8_t b8 = 0, uint8_t b9 = 0);
// The header of a P-DATA-TF with one PDV, in the 12 bytes in front of its value.
void build_pdv_header(uint8_t* header, uint32_t value_length, uint8_t context_id, bool is_data, bool is_last);

// --- Parsing ---

// An A-ASSOCIATE-RQ or -AC, header included, into the parameters. For an A-ASSOCIATE-AC they hold the
// proposal, whose contexts have been marked as unanswered. `pdu` holds exactly what was received; DUL_NORMAL,
// DUL_DEFORMED_PDU, DUL_UNKNOWN_PDU, DUL_NO_MEMORY of upper_layer.h.
int32_t parse_associate(std::span<const uint8_t> pdu, AssociationParameters& parameters);
// Before an A-ASSOCIATE-AC is parsed: no context is answered.
void mark_unanswered(AssociationParameters& parameters);

// Forgets what INSURE_EVEN_UID_LENGTH was when first looked at.
void reset_uid_padding();

}  // namespace vx
