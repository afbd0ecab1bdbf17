// Digests, signatures and the signed request.
#include <argon2.h>

#include <set>

#include "MessageTestSupport.h"

using namespace message_test;

namespace {

const std::string kDigest = "a9993e364706816aba3e25717850c26c9cd0d89d";  // of "abc", a published vector
const std::string kPassword = kDigest + "|key";

bool LibraryAccepts(const std::string& signature) {
  return argon2id_verify(signature.c_str(), kPassword.data(), kPassword.size()) == ARGON2_OK;
}

TEST(Signature, RefusesEmptyArguments) {
  std::string result = "before";
  EXPECT_FALSE(CPluginUtil::GetSignDigest("", &result) || CPluginUtil::GetSignDigest("abc", nullptr));
  EXPECT_FALSE(CPluginUtil::GetSignature("", "key", &result) || CPluginUtil::GetSignature("d", "", &result));
  EXPECT_FALSE(CPluginUtil::GetSignature("digest", "key", nullptr));
  EXPECT_EQ(result, "before");
}

TEST(Signature, IsTheSaltedHashOfALowerCaseSha1) {
  std::string digest;
  EXPECT_TRUE(CPluginUtil::GetSignDigest("abc", &digest));
  EXPECT_EQ(digest, kDigest);
  EXPECT_TRUE(CPluginUtil::GetSignDigest(std::string("a\0b", 3), &digest));
  EXPECT_EQ(digest, "4a3dec2d1f8245280855c42db0ee4239f917fdb8");

  std::set<std::string> signatures;
  for (int i = 0; i < 20; ++i) {
    std::string signature;
    ASSERT_TRUE(CPluginUtil::GetSignature(kDigest, "key", &signature));
    EXPECT_TRUE(signatures.insert(signature).second);
    EXPECT_EQ(signature.substr(0, 29), "$argon2id$v=19$m=64,t=16,p=8$");
    EXPECT_TRUE(signature.size() == 74 && LibraryAccepts(signature));
    EXPECT_TRUE(CPluginUtil::VerifySignature(kDigest, "key", signature));
    EXPECT_FALSE(CPluginUtil::VerifySignature(kDigest, "kez", signature));
    EXPECT_FALSE(CPluginUtil::VerifySignature("b" + kDigest.substr(1), "key", signature));
  }
}

std::string Encoded(std::uint32_t passes, std::uint32_t memory, std::uint32_t lanes, std::size_t saltSize,
                    std::size_t hashSize, argon2_type type = Argon2_id, int version = ARGON2_VERSION_13) {
  const std::string salt(saltSize, 's');
  char encoded[512] = "";
  EXPECT_EQ(
      argon2_hash(passes, memory, lanes, kPassword.data(), kPassword.size(), salt.data(), saltSize, nullptr,
                  hashSize, encoded, sizeof encoded, type, static_cast<std::uint32_t>(version)),
      ARGON2_OK);
  return encoded;
}

// The system's own signatures take a faster way; the verdict must be that of the library for every text.
TEST(Signature, VerdictsAreThoseOfTheLibrary) {
  const std::string good = Encoded(16, 64, 8, 16, 16);
  std::vector<std::string> texts = {good, good + std::string(1, '\0') + "tail"};
  const unsigned parameters[][5] = {{1, 8, 1, 16, 16},  {16, 64, 8, 8, 16},  {16, 64, 8, 16, 32},
                                    {16, 64, 8, 16, 4}, {15, 64, 8, 16, 16}, {16, 128, 8, 16, 16},
                                    {16, 64, 4, 16, 16}};
  for (const auto& [passes, memory, lanes, salt, hash] : parameters)
    texts.push_back(Encoded(passes, memory, lanes, salt, hash));
  for (const std::string& text : texts) EXPECT_TRUE(LibraryAccepts(text)) << text;

  texts.push_back(Encoded(16, 64, 8, 16, 16, Argon2_i));
  texts.push_back(Encoded(16, 64, 8, 16, 16, Argon2_id, ARGON2_VERSION_10));
  for (const char* tail : {"x", "=", " ", "$"}) texts.push_back(good + tail);
  for (const std::size_t size : {0U, 1U, 28U, 73U}) texts.push_back(good.substr(0, size));
  // At the ends of salt and hash there are other spellings of the same 16 bytes.
  for (const std::size_t at : {0U, 8U, 13U, 28U, 29U, 50U, 51U, 52U, 73U})
    for (const char c : {'A', 'B', 'Q', 'g', 'x', '=', '$', ' '}) (texts.emplace_back(good))[at] = c;
  for (const std::string& text : texts)
    EXPECT_EQ(CPluginUtil::VerifySignature(kDigest, "key", text), LibraryAccepts(text)) << text;
}

TEST(SignedRequest, KeepsTheOrderOfItsMembers) {
  CBasePluginObject builder;
  builder.m_accessKey = "key";
  const JsonPtr request = Json(R"({"method":"v2/x","tail":1})");
  EXPECT_EQ(builder.GetSignedRequestJson("v2/x", request.get(), false), request.get());
  EXPECT_TRUE(IsSigned(request.get(), false));
  EXPECT_STREQ(request->child->next->string, "tail");
}

}  // namespace
