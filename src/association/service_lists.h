// Named lists of services and of transfer syntaxes: what a side of an association proposes or accepts.
#pragma once

#include <cstdint>
#include <span>
#include <type_traits>

#include "config/services.h"
#include "connection/session.h"
#include "frame/app.h"
#include "frame/status.h"

namespace vx {

inline constexpr uint8_t kNoRole = 0xFF;
inline constexpr char kEchoServiceName[] = "STANDARD_ECHO";
inline constexpr char kEchoServiceList[] = "RLN_ECHO_SERVICE_LIST";
inline constexpr char kDefaultSyntaxList[] = "SRW_SYNTAX_LIST";

struct SyntaxList {
  char name[34];
  int32_t count;
  VX_TRANSFER_SYNTAX* syntaxes;  // owned; in order of preference
};
static_assert(std::is_trivially_destructible_v<SyntaxList>);

struct ServiceEntry {
  const SopObj* service;
  SyntaxList* syntaxList;
  uint8_t scuRole;
  uint8_t scpRole;
  uint8_t* extendedInfo;  // owned
  uint32_t extendedInfoLength;
  char relatedGeneralList[130];
  char serviceClassUid[68];
};

struct ServiceList {
  char name[130];
  int32_t count;
  bool hasEcho;
  ServiceEntry* entries;  // owned; in order of proposal
  uint16_t maxOperationsInvoked;
  uint16_t maxOperationsPerformed;
};
static_assert(std::is_trivially_destructible_v<ServiceList>);

inline std::span<const ServiceEntry> entries_of(const ServiceList& list) {
  return {list.entries, static_cast<std::size_t>(list.count)};
}
inline std::span<const VX_TRANSFER_SYNTAX> syntaxes_of(const SyntaxList& list) {
  return {list.syntaxes, static_cast<std::size_t>(list.count)};
}

// Extended negotiation data that an application has set for a service; owned by AppObj::NegotiationInfo and
// looked at under NegotiationSemaphore.
struct NegotiationRecord {
  int32_t serviceNumber;
  const char* serviceUid;
  uint8_t* data;  // owned
  uint32_t length;
};
static_assert(std::is_trivially_destructible_v<NegotiationRecord>);

// From memory, or from the applications profile on first use; null when it can't be had.
SyntaxList* VXI_GetSyntaxList(const char* name);
ServiceList* VXI_GetServiceNumbers(const char* name);

// The caller holds app.NegotiationSemaphore. Null if there is none.
NegotiationRecord* find_negotiation_info(AppObj& app, int32_t service_number);
void free_negotiation_info(AppObj& app);

// A section of the applications profile: its entries as key and value; a syntax of a syntax list has the key
// "". Empty iterator at the end.
struct ProfileEntry {
  const char* key;
  const char* value;
};
class ProfileSection {
 public:
  explicit ProfileSection(const char* name);
  bool found() const { return next_ != nullptr; }
  bool next(ProfileEntry& entry);

 private:
  const char* const* next_ = nullptr;
  bool syntaxes_ = false;
};

// The lists are forgotten; their memory goes with the pools.
void drop_service_lists();

}  // namespace vx
