#include "web_gate.h"

#include <crypt.h>
#include <strings.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <memory>
#include <semaphore>

#include "base/base64.h"
#include "base/opened_library.h"
#include "files/files.h"

namespace vexal {
namespace {

constexpr std::size_t kMostProved = 1024;
constexpr std::chrono::seconds kProvedFor(60);
constexpr std::size_t kLongestCredentials = 1024;
constexpr std::ptrdiff_t kHashers = 2;
std::counting_semaphore<kHashers> hashers(kHashers);  // hashing is slow by intent

constexpr struct {
  const char* word;
  unsigned right;
} kWords[] = {{"read", kMayRead}, {"write", kMayWrite}, {"delete", kMayDelete}};

unsigned right_of(std::string_view word) {
  const auto* row =
      std::find_if(std::begin(kWords), std::end(kWords), [&](const auto& r) { return word == r.word; });
  return row != std::end(kWords) ? row->right : 0;
}

decltype(&::crypt_r) g_crypt = nullptr;

bool same_text(std::string_view one, std::string_view other) {
  unsigned char difference = one.size() == other.size() ? 0 : 1;
  for (std::size_t i = 0; i < std::min(one.size(), other.size()); ++i)
    difference = static_cast<unsigned char>(difference | (one[i] ^ other[i]));
  return difference == 0;
}

bool fits_hash(const std::string& password, const std::string& hash) {
  const auto data = std::make_unique<crypt_data>();
  hashers.acquire();
  const char* made = g_crypt(password.c_str(), hash.c_str(), data.get());
  const bool fits = made != nullptr && same_text(made, hash);
  hashers.release();
  std::memset(data.get(), 0, sizeof *data);
  return fits;
}

}  // namespace

bool parse_web_rights(const std::string& text, unsigned& rights) {
  rights = 0;
  if (text == "none") return true;
  for (std::size_t start = 0; start <= text.size();) {
    const std::size_t end = std::min(text.find(',', start), text.size());
    const unsigned right = right_of(std::string_view(text).substr(start, end - start));
    if (right == 0) return false;
    rights |= right;
    start = end + 1;
  }
  return true;
}

std::string WebGate::read_users(const std::string& path) {
  const SoughtSymbol symbols[] = {{"crypt_r", g_crypt}};
  if (const std::string fault = open_library("libcrypt.so.1", symbols); !fault.empty()) return fault;
  std::string text;
  if (const std::string error = read_small_file(path, text); !error.empty()) return error;
  std::size_t number = 0;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    std::string line = text.substr(start, end - start);
    start = end + 1;
    ++number;
    if (line.ends_with('\r')) line.pop_back();
    if (line.empty() || line[0] == '#') continue;
    const std::size_t first = line.find(':');
    const std::size_t second = first == std::string::npos ? first : line.find(':', first + 1);
    User user;
    const std::string where = "line " + std::to_string(number) + ": ";
    if (second == std::string::npos || first == 0 || !parse_web_rights(line.substr(second + 1), user.rights))
      return where + "give NAME:HASH:RIGHT,...";
    user.hash = line.substr(first + 1, second - first - 1);
    if (!user.hash.starts_with("$5$") && !user.hash.starts_with("$6$") && !user.hash.starts_with("$y$"))
      return where + "its hash is none that is taken; 'openssl passwd -6' makes one";
    users_[line.substr(0, first)] = std::move(user);
  }
  return users_.empty() ? "names no user" : "";
}

bool WebGate::read(const Args& args) {
  std::string error;
  const char* option = "--web-users";
  if (args.has(option)) error = read_users(args.get(option));
  if (error.empty() && args.has("--web-keys")) {
    option = "--web-keys";
    std::string text;
    error = read_small_file(args.get(option), text);
    if (error.empty()) error = keys_.load(text);
  }
  if (!error.empty()) {
    complain("%s %s: %s", option, args.get(option).c_str(), error.c_str());
    return false;
  }
  audience_ = args.get("--web-audience");
  origins_ = args.all("--web-origin");
  if (!users_.empty() || !keys_.empty()) anonymous_ = 0;
  if (args.has("--web-rights") && !parse_web_rights(args.get("--web-rights"), anonymous_)) {
    complain("--web-rights %s: the rights are read, write and delete, parted by commas, or none",
             args.get("--web-rights").c_str());
    return false;
  }
  return true;
}

// Hashing for each request of a client would take longer than most requests.
bool WebGate::is_known(const std::string& credentials) {
  const std::lock_guard lock(mutex_);
  const auto found = proved_.find(credentials);
  return found != proved_.end() && Clock::now() < found->second;
}

bool WebGate::prove_password(const std::string& credentials, HttpRequest& request) {
  std::string text;
  if (users_.empty() || credentials.size() > kLongestCredentials || !from_base64(credentials, false, text))
    return false;
  const std::size_t colon = text.find(':');
  if (colon == std::string::npos || text.find('\0') != std::string::npos) return false;
  const auto user = users_.find(text.substr(0, colon));
  // The time that it takes does not tell whether there is such a user.
  const User& one = user != users_.end() ? user->second : users_.begin()->second;
  const bool known = user != users_.end() && is_known(credentials);
  const bool fits = known || fits_hash(text.substr(colon + 1), one.hash);
  if (user == users_.end() || !fits) return false;
  if (!known) {
    const std::lock_guard lock(mutex_);
    if (proved_.size() >= kMostProved) proved_.clear();
    proved_[credentials] = Clock::now() + kProvedFor;
  }
  request.user = user->first;
  request.rights = one.rights;
  return true;
}

bool WebGate::prove_token(const std::string& token, HttpRequest& request) const {
  JwtClaims claims;
  if (keys_.empty() || !keys_.check(token, audience_, std::time(nullptr), claims).empty()) return false;
  request.user = claims.subject;
  request.rights = 0;
  for (const std::string& word : claims.words) request.rights |= right_of(word);
  return true;
}

bool WebGate::stops(HttpRequest& request, HttpResponse& refusal) {
  request.answer_headers.emplace_back("X-Content-Type-Options", "nosniff");
  const std::string origin = request.header("Origin");
  const bool welcome = std::find(origins_.begin(), origins_.end(), origin) != origins_.end();
  if (!origins_.empty()) request.answer_headers.emplace_back("Vary", "Origin");
  if (welcome) {
    request.answer_headers.emplace_back("Access-Control-Allow-Origin", origin);
    request.answer_headers.emplace_back("Access-Control-Allow-Credentials", "true");
    request.answer_headers.emplace_back("Access-Control-Expose-Headers", "Content-Location, Warning");
  }
  if (request.method == "OPTIONS" && !request.header("Access-Control-Request-Method").empty()) {
    refusal = {};
    refusal.status = 204;
    if (!welcome) return true;
    refusal.with("Access-Control-Allow-Methods", "GET, POST, DELETE, OPTIONS");
    refusal.with("Access-Control-Allow-Headers", "Accept, Authorization, Content-Type");
    refusal.with("Access-Control-Max-Age", "600");
    return true;
  }
  request.rights = anonymous_;
  const std::string credentials = request.header("Authorization");
  if (credentials.empty() && anonymous_ != 0) return false;
  const auto behind = [&](std::string_view scheme) {
    return credentials.size() > scheme.size() &&
                   ::strncasecmp(credentials.data(), scheme.data(), scheme.size()) == 0
               ? credentials.substr(scheme.size())
               : std::string();
  };
  const std::string password = behind("Basic ");
  const std::string token = behind("Bearer ");
  if (!password.empty() && prove_password(password, request)) return false;
  if (!token.empty() && prove_token(token, request)) return false;
  refusal = HttpResponse::problem(401, "Prove who you are.");
  if (!users_.empty()) refusal.with("WWW-Authenticate", "Basic realm=\"vexal\", charset=\"UTF-8\"");
  if (!keys_.empty())
    refusal.with("WWW-Authenticate", token.empty() ? "Bearer" : "Bearer error=\"invalid_token\"");
  return true;
}

bool WebGate::allows(const HttpRequest& request, unsigned right, HttpResponse& refusal) {
  if ((request.rights & right) == right) return true;
  refusal = HttpResponse::problem(403, "You may not do that here.");
  return false;
}

}  // namespace vexal
