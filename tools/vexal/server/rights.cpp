#include "rights.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "network/network.h"

namespace vexal {
namespace {

struct RightWord {
  const char* word;
  unsigned right;
};
constexpr RightWord kWords[] = {{"store", kMayStore}, {"query", kMayQuery}, {"retrieve", kMayRetrieve}};

// "store,query"; 0 if it is no such list.
unsigned parse_rights(const std::string& text) {
  unsigned rights = 0;
  for (std::size_t start = 0; start <= text.size();) {
    const std::size_t end = std::min(text.find(',', start), text.size());
    const std::string word = text.substr(start, end - start);
    const auto* row = std::find_if(std::begin(kWords), std::end(kWords),
                                   [&](const RightWord& r) { return word == r.word; });
    if (row == std::end(kWords)) return 0;
    rights |= row->right;
    start = end + 1;
  }
  return rights;
}

bool same_bits(const AddressBytes& one, const AddressBytes& other, unsigned bits) {
  const unsigned whole = bits / 8;
  if (std::memcmp(one.data(), other.data(), whole) != 0) return false;
  const unsigned rest = bits % 8;
  return rest == 0 || ((one[whole] ^ other[whole]) >> (8 - rest)) == 0;
}

}  // namespace

bool parse_address(const std::string& text, AddressBytes& bytes) {
  bytes = {};
  if (inet_pton(AF_INET6, text.c_str(), bytes.data()) == 1) return true;
  bytes = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
  return inet_pton(AF_INET, text.c_str(), bytes.data() + 12) == 1;
}

AddressBytes peer_address(int socket) {
  sockaddr_storage name{};
  socklen_t size = sizeof name;
  AddressBytes bytes{};
  if (::getpeername(socket, reinterpret_cast<sockaddr*>(&name), &size) != 0) return bytes;
  if (name.ss_family == AF_INET6) {
    std::memcpy(bytes.data(), &reinterpret_cast<const sockaddr_in6&>(name).sin6_addr, 16);
  } else if (name.ss_family == AF_INET) {
    bytes = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
    std::memcpy(bytes.data() + 12, &reinterpret_cast<const sockaddr_in&>(name).sin_addr, 4);
  }
  return bytes;
}

// TITLE@ADDRESS/BITS=RIGHTS, read from its end.
std::string AccessRules::parse(std::string text, Rule& rule) {
  if (const std::size_t equals = text.rfind('='); equals != std::string::npos) {
    rule.rights = parse_rights(text.substr(equals + 1));
    if (rule.rights == 0) return "the rights are store, query and retrieve, parted by commas";
    text.resize(equals);
  }
  if (const std::size_t at = text.rfind('@'); at != std::string::npos) {
    std::string address = text.substr(at + 1);
    const std::size_t slash = address.find('/');
    const std::string bits = slash == std::string::npos ? "" : address.substr(slash + 1);
    address.resize(std::min(slash, address.size()));
    if (!parse_address(address, rule.address)) return "what stands behind @ is no address";
    const bool short_form = address.find(':') == std::string::npos;
    const unsigned most = short_form ? 32 : 128;
    char* end = nullptr;
    const unsigned long number = bits.empty() ? most : std::strtoul(bits.c_str(), &end, 10);
    if (slash != std::string::npos && (bits.empty() || *end != '\0' || number > most))
      return "what stands behind / is no number of bits";
    rule.bits = static_cast<unsigned>(number) + (short_form ? 96 : 0);
    rule.by_address = true;
    text.resize(at);
  }
  rule.title = text;
  if (text.empty() ? rule.by_address : is_title(text)) return "";
  return "give a title, an address behind @, or both";
}

bool AccessRules::read(const Args& args) {
  for (const std::string& text : args.all("--allow")) {
    Rule rule;
    const std::string error = parse(text, rule);
    if (!error.empty()) {
      complain("--allow %s: %s", text.c_str(), error.c_str());
      return false;
    }
    rules_.push_back(rule);
  }
  return true;
}

unsigned AccessRules::rights_of(const std::string& title, const std::string& address) const {
  if (rules_.empty()) return kAllRights;
  AddressBytes bytes{};
  const bool known = parse_address(address, bytes);
  unsigned rights = 0;
  for (const Rule& rule : rules_) {
    if (!rule.title.empty() && rule.title != title) continue;
    if (rule.by_address && (!known || !same_bits(bytes, rule.address, rule.bits))) continue;
    rights |= rule.rights;
  }
  return rights;
}

}  // namespace vexal
