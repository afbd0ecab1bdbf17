#include "EncodedHash.h"

#include <argon2.h>

#include <algorithm>
#include <charconv>
#include <optional>

namespace tool {

namespace {

constexpr const char* kForm = "it is not of the form $argon2id$v=19$m=64,t=16,p=8$<salt>$<hash>";
constexpr std::string_view kBase64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

bool Take(std::string_view& text, std::string_view word) {
  if (text.substr(0, word.size()) != word) return false;
  text.remove_prefix(word.size());
  return true;
}

// libargon2 takes neither signs nor leading zeros.
bool TakeNumber(std::string_view& text, std::string_view name, std::uint32_t& value) {
  if (!Take(text, name)) return false;
  const bool hasLeadingZero = text.size() > 1 && text[0] == '0' && text[1] >= '0' && text[1] <= '9';
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  text.remove_prefix(static_cast<std::size_t>(stop - text.data()));
  return error == std::errc() && !hasLeadingZero;
}

// The number of bytes that unpadded base64 stands for.
std::optional<std::size_t> TakeBytes(std::string_view& text) {
  const std::size_t letters = std::min(text.find_first_not_of(kBase64), text.size());
  const std::size_t spareBits = letters * 6 % 8;
  const std::size_t last = letters == 0 ? 0 : kBase64.find(text[letters - 1]);
  text.remove_prefix(letters);
  if (spareBits > 4 || (last & ((std::size_t{1} << spareBits) - 1)) != 0) return std::nullopt;
  return letters * 6 / 8;
}

std::string FlawOfSizes(const EncodedHash& hash) {
  if (hash.passes < ARGON2_MIN_TIME) return "it cannot be computed: no passes";
  if (hash.lanes < ARGON2_MIN_LANES || hash.lanes > ARGON2_MAX_LANES) {
    return "it cannot be computed with " + std::to_string(hash.lanes) + " lanes";
  }
  constexpr std::uint64_t kLeastKiB = 8;  // for each lane
  if (hash.memoryKiB < kLeastKiB * hash.lanes) return "it cannot be computed: less than 8 KiB for each lane";
  if (hash.saltSize < ARGON2_MIN_SALT_LENGTH) return "it cannot be computed: its salt has less than 8 bytes";
  if (hash.hashSize < ARGON2_MIN_OUTLEN) return "it cannot be computed: its hash has less than 4 bytes";
  return "";
}

std::string ReadInto(EncodedHash& hash, std::string_view text) {
  if (!Take(text, "$argon2id$")) return kForm;
  if (text.substr(0, 2) == "v=" && (!TakeNumber(text, "v=", hash.version) || !Take(text, "$"))) return kForm;
  if (!TakeNumber(text, "m=", hash.memoryKiB) || !TakeNumber(text, ",t=", hash.passes) ||
      !TakeNumber(text, ",p=", hash.lanes) || !Take(text, "$")) {
    return kForm;
  }
  const auto salt = TakeBytes(text);
  if (salt && !Take(text, "$")) return text.empty() ? "it is cut: nothing follows its salt" : kForm;
  const auto bytes = salt ? TakeBytes(text) : std::nullopt;
  if (!bytes) return "its base64 does not end where a byte ends: cut, or changed";
  if (!text.empty()) return "something that is no base64 follows it, or stands in it";
  hash.saltSize = *salt;
  hash.hashSize = *bytes;
  return FlawOfSizes(hash);
}

}  // namespace

EncodedHash ReadEncodedHash(std::string_view text) {
  EncodedHash hash;
  hash.flaw = ReadInto(hash, text);
  return hash;
}

}  // namespace tool
