#include "jwt.h"

#include <jansson.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/pem.h>

#include <algorithm>
#include <sstream>

#include "base/base64.h"
#include "base/opened_library.h"

namespace vexal {
namespace {

constexpr std::size_t kLongestToken = 16384;
constexpr int64_t kLeeway = 60;  // seconds that clocks may differ
constexpr std::size_t kSmallestSecret = 32;

struct Crypto {
  decltype(&BIO_new_mem_buf) bio = nullptr;
  decltype(&BIO_free) free_bio = nullptr;
  decltype(&PEM_read_bio_PUBKEY) read_key = nullptr;
  decltype(&EVP_PKEY_free) free_key = nullptr;
  decltype(&EVP_PKEY_is_a) is_a = nullptr;
  decltype(&EVP_PKEY_get_bits) bits = nullptr;
  decltype(&EVP_PKEY_CTX_new_from_name) key_context = nullptr;
  decltype(&EVP_PKEY_CTX_free) free_key_context = nullptr;
  decltype(&EVP_PKEY_fromdata_init) from_data_init = nullptr;
  decltype(&EVP_PKEY_fromdata) from_data = nullptr;
  decltype(&EVP_MD_CTX_new) digest_context = nullptr;
  decltype(&EVP_MD_CTX_free) free_digest_context = nullptr;
  decltype(&EVP_DigestVerifyInit) verify_init = nullptr;
  decltype(&EVP_DigestVerify) verify = nullptr;
  decltype(&EVP_sha256) sha256 = nullptr;
  decltype(&HMAC) hmac = nullptr;
  decltype(&CRYPTO_memcmp) compare = nullptr;
};
Crypto g_crypto;

std::string open_crypto() {
  Crypto& c = g_crypto;
  const SoughtSymbol symbols[] = {{"BIO_new_mem_buf", c.bio},
                                  {"BIO_free", c.free_bio},
                                  {"PEM_read_bio_PUBKEY", c.read_key},
                                  {"EVP_PKEY_free", c.free_key},
                                  {"EVP_PKEY_is_a", c.is_a},
                                  {"EVP_PKEY_get_bits", c.bits},
                                  {"EVP_PKEY_CTX_new_from_name", c.key_context},
                                  {"EVP_PKEY_CTX_free", c.free_key_context},
                                  {"EVP_PKEY_fromdata_init", c.from_data_init},
                                  {"EVP_PKEY_fromdata", c.from_data},
                                  {"EVP_MD_CTX_new", c.digest_context},
                                  {"EVP_MD_CTX_free", c.free_digest_context},
                                  {"EVP_DigestVerifyInit", c.verify_init},
                                  {"EVP_DigestVerify", c.verify},
                                  {"EVP_sha256", c.sha256},
                                  {"HMAC", c.hmac},
                                  {"CRYPTO_memcmp", c.compare}};
  const std::string fault = open_library("libcrypto.so.3", symbols);
  return fault.empty() ? "" : "tokens need OpenSSL: " + fault;
}

struct Drop {
  void operator()(json_t* value) const { json_decref(value); }
};
using Document = std::unique_ptr<json_t, Drop>;

Document parse_object(std::string_view text) {
  Document document(json_loadb(text.data(), text.size(), JSON_REJECT_DUPLICATES, nullptr));
  if (!json_is_object(document.get())) document.reset();
  return document;
}

std::string text_in(const json_t* object, const char* name) {
  const char* text = json_string_value(json_object_get(object, name));
  return text != nullptr ? text : "";
}

std::string bytes_in(const json_t* object, const char* name) {
  std::string bytes;
  return from_base64(text_in(object, name), true, bytes) ? bytes : "";
}

OSSL_PARAM param(const char* name, unsigned type, std::string& bytes) {
  return {name, type, bytes.data(), bytes.size(), static_cast<std::size_t>(-1)};
}

EVP_PKEY* make_key(const char* kind, OSSL_PARAM* params) {
  const Crypto& c = g_crypto;
  EVP_PKEY* key = nullptr;
  EVP_PKEY_CTX* context = c.key_context(nullptr, kind, nullptr);
  if (context != nullptr && c.from_data_init(context) == 1)
    c.from_data(context, &key, 0x86 /* EVP_PKEY_PUBLIC_KEY */, params);
  c.free_key_context(context);
  return key;
}

EVP_PKEY* rsa_key(const json_t* row) {
  // Numbers as the machine has them: the least byte first.
  std::string modulus = bytes_in(row, "n");
  std::string exponent = bytes_in(row, "e");
  std::reverse(modulus.begin(), modulus.end());
  std::reverse(exponent.begin(), exponent.end());
  if (modulus.empty() || exponent.empty()) return nullptr;
  OSSL_PARAM params[] = {param("n", OSSL_PARAM_UNSIGNED_INTEGER, modulus),
                         param("e", OSSL_PARAM_UNSIGNED_INTEGER, exponent),
                         {nullptr, 0, nullptr, 0, 0}};
  return make_key("RSA", params);
}

EVP_PKEY* curve_key(const json_t* row) {
  constexpr std::size_t kSide = 32;
  const std::string x = bytes_in(row, "x");
  const std::string y = bytes_in(row, "y");
  if (text_in(row, "crv") != "P-256" || x.size() != kSide || y.size() != kSide) return nullptr;
  std::string group = "prime256v1";
  std::string point = "\4" + x + y;
  OSSL_PARAM params[] = {param("group", OSSL_PARAM_UTF8_STRING, group),
                         param("pub", OSSL_PARAM_OCTET_STRING, point),
                         {nullptr, 0, nullptr, 0, 0}};
  return make_key("EC", params);
}

// A signature of two numbers, as OpenSSL wants it (X.690).
std::string der_of(std::string_view signature) {
  std::string body;
  for (std::size_t half = 0; half < 2; ++half) {
    std::string_view number = signature.substr(half * signature.size() / 2, signature.size() / 2);
    while (number.size() > 1 && number[0] == 0) number.remove_prefix(1);
    const bool pad = (static_cast<unsigned char>(number[0]) & 0x80U) != 0;
    body += '\2';
    body += static_cast<char>(number.size() + (pad ? 1 : 0));
    if (pad) body += '\0';
    body += number;
  }
  return "\x30" + std::string(1, static_cast<char>(body.size())) + body;
}

bool verify_with(EVP_PKEY* key, std::string_view text, std::string_view signature) {
  const Crypto& c = g_crypto;
  EVP_MD_CTX* context = c.digest_context();
  const bool good =
      context != nullptr && c.verify_init(context, nullptr, c.sha256(), nullptr, key) == 1 &&
      c.verify(context, reinterpret_cast<const unsigned char*>(signature.data()), signature.size(),
               reinterpret_cast<const unsigned char*>(text.data()), text.size()) == 1;
  c.free_digest_context(context);
  return good;
}

bool verify_secret(const std::string& secret, std::string_view text, std::string_view signature) {
  unsigned char made[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  return g_crypto.hmac(g_crypto.sha256(), secret.data(), static_cast<int>(secret.size()),
                       reinterpret_cast<const unsigned char*>(text.data()), text.size(), made,
                       &size) != nullptr &&
         size == signature.size() && g_crypto.compare(made, signature.data(), size) == 0;
}

// Words of a claim that is a text of words or a list of them.
void add_words(const json_t* claim, std::vector<std::string>& words) {
  if (json_is_string(claim)) {
    std::istringstream text(json_string_value(claim));
    for (std::string word; text >> word;) words.push_back(word);
  }
  for (std::size_t i = 0; i < json_array_size(claim); ++i) {
    const char* word = json_string_value(json_array_get(claim, i));
    if (word != nullptr) words.emplace_back(word);
  }
}

bool is_for(const json_t* claim, const std::string& audience) {
  std::vector<std::string> words;
  if (json_is_string(claim)) return audience == json_string_value(claim);
  add_words(claim, words);
  return std::find(words.begin(), words.end(), audience) != words.end();
}

std::string read_claims(const json_t* claims, const std::string& audience, int64_t now, JwtClaims& out) {
  const json_t* expires = json_object_get(claims, "exp");
  const json_t* begins = json_object_get(claims, "nbf");
  if (!json_is_number(expires)) return "it has no time at which it ends";
  if (json_number_value(expires) + static_cast<double>(kLeeway) < static_cast<double>(now))
    return "it has expired";
  if (begins != nullptr &&
      !(json_number_value(begins) - static_cast<double>(kLeeway) <= static_cast<double>(now)))
    return "its time has not come";
  if (!audience.empty() && !is_for(json_object_get(claims, "aud"), audience))
    return "it is for another audience";
  out.subject = text_in(claims, "sub");
  for (const char* name : {"scope", "scp", "roles", "role"})
    add_words(json_object_get(claims, name), out.words);
  return "";
}

}  // namespace

struct JwtKeys::Key {
  std::string id;
  std::string algorithm;
  std::string secret;
  EVP_PKEY* key = nullptr;

  Key() = default;
  ~Key() {
    if (key != nullptr) g_crypto.free_key(key);
  }
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  bool holds(std::string_view text, std::string_view signature) const {
    if (key == nullptr) return verify_secret(secret, text, signature);
    if (algorithm == "RS256") return verify_with(key, text, signature);
    return signature.size() == 64 && verify_with(key, text, der_of(signature));
  }
};

JwtKeys::JwtKeys() = default;
JwtKeys::~JwtKeys() = default;

bool JwtKeys::empty() const {
  return keys_.empty();
}

std::string JwtKeys::load(const std::string& text) {
  if (const std::string fault = open_crypto(); !fault.empty()) return fault;
  if (text.find("-----BEGIN") == std::string::npos) return load_set(text);
  const Crypto& c = g_crypto;
  auto key = std::make_unique<Key>();
  BIO* bio = c.bio(text.data(), static_cast<int>(text.size()));
  key->key = bio != nullptr ? c.read_key(bio, nullptr, nullptr, nullptr) : nullptr;
  c.free_bio(bio);
  if (key->key == nullptr) return "holds no public key in PEM";
  if (c.is_a(key->key, "RSA") == 1 && c.bits(key->key) >= 2048) key->algorithm = "RS256";
  if (c.is_a(key->key, "EC") == 1 && c.bits(key->key) == 256) key->algorithm = "ES256";
  if (key->algorithm.empty()) return "holds a key that is neither RSA of 2048 bits or more nor P-256";
  keys_.push_back(std::move(key));
  return "";
}

std::string JwtKeys::load_set(const std::string& text) {
  const Document document = parse_object(text);
  const json_t* rows = json_object_get(document.get(), "keys");
  for (std::size_t i = 0; i < json_array_size(rows); ++i) {
    const json_t* row = json_array_get(rows, i);
    const std::string kind = text_in(row, "kty");
    if (const std::string use = text_in(row, "use"); !use.empty() && use != "sig") continue;
    auto key = std::make_unique<Key>();
    key->id = text_in(row, "kid");
    key->algorithm = kind == "RSA" ? "RS256" : kind == "EC" ? "ES256" : kind == "oct" ? "HS256" : "";
    if (const std::string named = text_in(row, "alg"); !named.empty() && named != key->algorithm) continue;
    if (kind == "RSA") key->key = rsa_key(row);
    if (kind == "EC") key->key = curve_key(row);
    if (kind == "oct") key->secret = bytes_in(row, "k");
    if (key->key == nullptr && key->secret.size() < kSmallestSecret)
      return "its key " + std::to_string(i + 1) + " can not be used";
    if (kind == "RSA" && g_crypto.bits(key->key) < 2048)
      return "its key " + std::to_string(i + 1) + " is too short";
    keys_.push_back(std::move(key));
  }
  return keys_.empty() ? "holds neither a public key in PEM nor a set of keys in JSON" : "";
}

std::string JwtKeys::check(std::string_view token, const std::string& audience, int64_t now,
                           JwtClaims& claims) const {
  const std::size_t first = token.find('.');
  const std::size_t second = first == std::string_view::npos ? first : token.find('.', first + 1);
  if (token.size() > kLongestToken || second == std::string_view::npos) return "it is no signed token";
  std::string head_text;
  std::string claims_text;
  std::string signature;
  if (!from_base64(token.substr(0, first), true, head_text) ||
      !from_base64(token.substr(first + 1, second - first - 1), true, claims_text) ||
      !from_base64(token.substr(second + 1), true, signature))
    return "it is no signed token";
  const Document head = parse_object(head_text);
  const std::string algorithm = text_in(head.get(), "alg");
  const std::string id = text_in(head.get(), "kid");
  // What has to be understood is not (RFC 7515 section 4.1.11).
  if (head == nullptr || json_object_get(head.get(), "crit") != nullptr)
    return "it is no token of a known form";
  const bool holds = std::any_of(keys_.begin(), keys_.end(), [&](const std::unique_ptr<Key>& key) {
    return key->algorithm == algorithm && (id.empty() || key->id.empty() || key->id == id) &&
           key->holds(token.substr(0, second), signature);
  });
  if (!holds) return "no key vouches for it";
  const Document document = parse_object(claims_text);
  return document == nullptr ? "its claims can not be read"
                             : read_claims(document.get(), audience, now, claims);
}

}  // namespace vexal
