// The digest is needed as it is, without the providers of newer interfaces.
#define OPENSSL_API_COMPAT 10101
#include <argon2.h>
#include <openssl/crypto.h>
#include <openssl/sha.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <string_view>

#include "BasePluginObject.h"
#include "JsonBuild_internal.h"

using namespace pluginsdk::internal;

namespace {

constexpr std::string_view kMarker = "?authorization=";

// The system's own signature: fixed parameters, and the text form that goes with them.
constexpr std::string_view kPrefix = "$argon2id$v=19$m=64,t=16,p=8$";
constexpr std::uint32_t kPasses = 16;
constexpr std::uint32_t kMemoryKiB = 64;
constexpr std::uint32_t kLanes = 8;
constexpr std::size_t kBlockSize = 16;                        // of the salt and of the hash, in bytes
constexpr std::size_t kBlockText = (kBlockSize * 8 + 5) / 6;  // in unpadded base64
constexpr std::size_t kSignatureSize = kPrefix.size() + kBlockText + 1 + kBlockText;
static_assert(kSignatureSize == 74);

using Block = std::array<std::uint8_t, kBlockSize>;

// digest + "|" + access key; wiped before its memory is given back, and never reallocated on the way.
class Password {
 public:
  Password(std::string_view digest, std::string_view accessKey) {
    m_text.reserve(digest.size() + 1 + accessKey.size());
    m_text.append(digest).append("|").append(accessKey);
  }
  ~Password() { OPENSSL_cleanse(m_text.data(), m_text.size()); }
  Password(const Password&) = delete;
  Password& operator=(const Password&) = delete;

  std::uint8_t* data() { return reinterpret_cast<std::uint8_t*>(m_text.data()); }
  std::size_t size() const { return m_text.size(); }

 private:
  std::string m_text;
};

// Wipes a by-value argument that holds a secret when the function that received it ends.
class WipeAtEnd {
 public:
  explicit WipeAtEnd(std::string& secret) : m_secret(secret) {}
  ~WipeAtEnd() { OPENSSL_cleanse(m_secret.data(), m_secret.size()); }
  WipeAtEnd(const WipeAtEnd&) = delete;
  WipeAtEnd& operator=(const WipeAtEnd&) = delete;

 private:
  std::string& m_secret;
};

// One run with the system's parameters. The lanes are computed one after the other: for 64 KiB, starting
// eight threads costs more than twenty times the hash itself, and the result is the same bit for bit.
bool Hash(Password& password, Block& salt, Block& hash) {
  argon2_context context = {};
  context.out = hash.data();
  context.outlen = kBlockSize;
  context.pwd = password.data();
  context.pwdlen = static_cast<std::uint32_t>(password.size());
  context.salt = salt.data();
  context.saltlen = kBlockSize;
  context.t_cost = kPasses;
  context.m_cost = kMemoryKiB;
  context.lanes = kLanes;
  context.threads = 1;
  context.version = ARGON2_VERSION_13;
  return argon2id_ctx(&context) == ARGON2_OK;
}

constexpr std::string_view kBase64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

void AppendBase64(std::string& text, const Block& block) {
  std::uint32_t bits = 0;
  int count = 0;
  for (const std::uint8_t byte : block) {
    bits = ((bits & 0xffU) << 8) | byte;  // fewer than eight bits are left of the byte before
    for (count += 8; count >= 6; count -= 6) text += kBase64[(bits >> (count - 6)) & 63U];
  }
  text += kBase64[(bits << (6 - count)) & 63U];  // two bits are left of 128
}

// False for anything but the one text that AppendBase64 makes of a block.
bool ReadBase64(std::string_view text, Block& block) {
  std::uint32_t bits = 0;
  int count = 0;
  std::size_t filled = 0;
  for (const char c : text) {
    const std::size_t value = kBase64.find(c);
    if (value == std::string_view::npos) return false;
    bits = ((bits & 0xffU) << 6) | static_cast<std::uint32_t>(value);
    count += 6;
    if (count < 8) continue;
    count -= 8;
    block[filled++] = static_cast<std::uint8_t>(bits >> count);
  }
  return (bits & ((1U << count) - 1U)) == 0;  // spare bits that are not zero spell the same bytes otherwise
}

// Splits a signature with the system's own parameters; false for every other text.
bool ReadOwnSignature(std::string_view signature, Block& salt, Block& hash) {
  if (signature.size() != kSignatureSize || signature.substr(0, kPrefix.size()) != kPrefix) return false;
  const std::string_view blocks = signature.substr(kPrefix.size());
  return blocks[kBlockText] == '$' && ReadBase64(blocks.substr(0, kBlockText), salt) &&
         ReadBase64(blocks.substr(kBlockText + 1), hash);
}

// Takes `name`, a decimal number up to `limit` and `end` off the front of `text`; false when they are not
// there.
bool TakeParameter(std::string_view& text, std::string_view name, std::uint32_t limit, char end) {
  if (text.substr(0, name.size()) != name) return false;
  text.remove_prefix(name.size());
  std::uint32_t value = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || value > limit) return false;
  text.remove_prefix(static_cast<std::size_t>(stop - text.data()));
  if (text.empty() || text.front() != end) return false;
  text.remove_prefix(1);
  return true;
}

bool IsWithin(std::string_view signature, const VerificationLimits& limits) {
  return signature.size() <= limits.maxSignatureLength &&
         TakeParameter(signature, "$argon2id$v=19$m=", limits.maxMemoryKiB, ',') &&
         TakeParameter(signature, "t=", limits.maxPasses, ',') &&
         TakeParameter(signature, "p=", limits.maxLanes, '$');
}

std::string SignedMethod(std::string_view method, std::string_view signature) {
  std::string text;
  text.reserve(method.size() + kMarker.size() + signature.size());
  text.append(method).append(kMarker).append(signature);
  return text;
}

}  // namespace

bool CPluginUtil::GetSignDigest(std::string input, std::string* digest) {
  if (digest == nullptr || input.empty()) return false;
  std::array<unsigned char, SHA_DIGEST_LENGTH> bytes;
  // It needs memory of its own; what it leaves behind without is no digest.
  SHA_CTX state;
  if (SHA1_Init(&state) == 0 || SHA1_Update(&state, input.data(), input.size()) == 0 ||
      SHA1_Final(bytes.data(), &state) == 0) {
    return false;
  }
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes.size());
  for (const unsigned char byte : bytes) (text += kDigits[byte >> 4]) += kDigits[byte & 15U];
  *digest = std::move(text);
  return true;
}

bool CPluginUtil::GetSignature(std::string digest, std::string accessKey, std::string* signature) {
  const WipeAtEnd wipe(accessKey);
  if (digest.empty() || accessKey.empty() || signature == nullptr) return false;
  Block salt;
  Block hash;
  const std::string drawn = GenerateRandomString(kBlockSize);
  std::copy(drawn.begin(), drawn.end(), salt.begin());
  Password password(digest, accessKey);
  std::string encoded;
  if (Hash(password, salt, hash)) {
    encoded.reserve(kSignatureSize);
    encoded.append(kPrefix);
    AppendBase64(encoded, salt);
    encoded += '$';
    AppendBase64(encoded, hash);
  }
  *signature = std::move(encoded);
  return true;
}

bool CPluginUtil::VerifySignature(std::string digest, std::string accessKey, std::string signature) {
  const WipeAtEnd wipe(accessKey);
  Password password(digest, accessKey);
  Block salt;
  Block expected;
  if (!ReadOwnSignature(signature, salt, expected)) {
    return argon2id_verify(signature.c_str(), password.data(), password.size()) == ARGON2_OK;
  }
  Block hash;
  return Hash(password, salt, hash) && CRYPTO_memcmp(hash.data(), expected.data(), kBlockSize) == 0;
}

bool CPluginUtil::VerifySignatureWithin(std::string digest, std::string accessKey, std::string signature,
                                        const VerificationLimits& limits) {
  const WipeAtEnd wipe(accessKey);
  return IsWithin(signature, limits) && VerifySignature(std::move(digest), accessKey, std::move(signature));
}

std::string CBasePluginObject::GetSignedMethod(std::string method, std::string signature) {
  return SignedMethod(method, signature);
}

cJSON* CBasePluginObject::GetSignedRequestJson(std::string method, cJSON* request, bool unformatted) {
  if (m_accessKey.empty()) throw CPluginException("AccessKey is missing.", 6);
  const JsonText text = Print(request, !unformatted);
  std::string digest;
  std::string signature;
  if (!text || !GetSignDigest(text.get(), &digest) || !GetSignature(digest, m_accessKey, &signature)) {
    return request;
  }
  cJSON* const unsignedMethod = cJSON_GetObjectItem(request, "method");
  if (unsignedMethod == nullptr) return request;
  // Named in an object of its own: cJSON_ReplaceItemInObject goes on without a key when it has no memory for
  // it.
  const JsonPtr named = NewObject();
  AddString(named.get(), "method", SignedMethod(method, signature));
  cJSON_ReplaceItemViaPointer(request, unsignedMethod, cJSON_DetachItemViaPointer(named.get(), named->child));
  return request;
}
