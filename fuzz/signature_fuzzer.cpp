// CPluginUtil::VerifySignature on arbitrary signature texts: the verdict of argon2id_verify, always.
#include <argon2.h>

#include "BasePluginObject.h"
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 256) return 0;  // longer salts and hashes add time, not shapes
  const std::string signature(reinterpret_cast<const char*>(data), size);
  if (!IsAffordable(signature)) return 0;
  const std::string digest = "a9993e364706816aba3e25717850c26c9cd0d89d";
  const std::string password = digest + "|key";
  const bool expected = argon2id_verify(signature.c_str(), password.data(), password.size()) == ARGON2_OK;
  FUZZ_CHECK(CPluginUtil::VerifySignature(digest, "key", signature) == expected);
  // Limits may refuse what would be accepted, never the other way round.
  if (CPluginUtil::VerifySignatureWithin(digest, "key", signature, VerificationLimits{}))
    FUZZ_CHECK(expected);
  return 0;
}
