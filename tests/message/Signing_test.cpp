// Digests, signatures and the signed envelope.
#include <argon2.h>
#include <gtest/gtest.h>

#include <random>

#include "BasePluginObject.h"
#include "JsonHandle_internal.h"

using pluginsdk::internal::JsonPtr;
using pluginsdk::internal::JsonText;

namespace {

const std::string kDigest = "a9993e364706816aba3e25717850c26c9cd0d89d";  // of "abc", a published vector

TEST(Digest, IsLowerCaseSha1) {
  std::string digest = "before";
  EXPECT_FALSE(CPluginUtil::GetSignDigest("", &digest));
  EXPECT_EQ(digest, "before");
  EXPECT_FALSE(CPluginUtil::GetSignDigest("abc", nullptr));
  EXPECT_TRUE(CPluginUtil::GetSignDigest("abc", &digest));
  EXPECT_EQ(digest, kDigest);
  EXPECT_TRUE(CPluginUtil::GetSignDigest(std::string("a\0b", 3), &digest));
  EXPECT_EQ(digest, "4a3dec2d1f8245280855c42db0ee4239f917fdb8");
}

TEST(Signature, RefusesEmptyArguments) {
  std::string signature = "before";
  EXPECT_FALSE(CPluginUtil::GetSignature("", "key", &signature));
  EXPECT_FALSE(CPluginUtil::GetSignature("digest", "", &signature));
  EXPECT_FALSE(CPluginUtil::GetSignature("digest", "key", nullptr));
  EXPECT_EQ(signature, "before");
}

std::string DecodeSalt(const std::string& text) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  unsigned bits = 0;
  int count = 0;
  for (const char c : text) {
    bits = (bits << 6) | static_cast<unsigned>(alphabet.find(c));
    if ((count += 6) >= 8) bytes += static_cast<char>(bits >> (count -= 8));
  }
  return bytes;
}

// One thread must give what the hashing library's own threaded call gives, bit for bit.
TEST(Signature, EqualsThePlainHashCall) {
  for (int round = 0; round < 20; ++round) {
    std::string signature;
    ASSERT_TRUE(CPluginUtil::GetSignature(kDigest, "key" + std::to_string(round), &signature));
    ASSERT_EQ(signature.size(), 74U);
    const std::string salt = DecodeSalt(signature.substr(29, 22));
    const std::string password = kDigest + "|key" + std::to_string(round);
    char raw[16];
    char encoded[108];
    ASSERT_EQ(argon2_hash(16, 64, 8, password.data(), password.size(), salt.data(), salt.size(), raw,
                          sizeof raw, encoded, sizeof encoded, Argon2_id, ARGON2_VERSION_13),
              ARGON2_OK);
    EXPECT_EQ(signature, encoded);
  }
}

TEST(Signature, DiffersEachTimeAndVerifiesWithItsKeyOnly) {
  std::string first, second;
  ASSERT_TRUE(CPluginUtil::GetSignature(kDigest, "key", &first));
  ASSERT_TRUE(CPluginUtil::GetSignature(kDigest, "key", &second));
  EXPECT_NE(first, second);
  for (const std::string& signature : {first, second}) {
    EXPECT_TRUE(CPluginUtil::VerifySignature(kDigest, "key", signature));
    EXPECT_FALSE(CPluginUtil::VerifySignature(kDigest, "kez", signature));
    EXPECT_FALSE(CPluginUtil::VerifySignature("b" + kDigest.substr(1), "key", signature));
  }
}

std::string Encoded(std::uint32_t passes, std::uint32_t memory, std::uint32_t lanes, std::size_t saltSize,
                    std::size_t hashSize, argon2_type type = Argon2_id,
                    std::uint32_t version = ARGON2_VERSION_13) {
  const std::string password = kDigest + "|key";
  const std::string salt(saltSize, 's');
  std::string raw(hashSize, '\0');
  char encoded[512] = "";
  EXPECT_EQ(argon2_hash(passes, memory, lanes, password.data(), password.size(), salt.data(), saltSize,
                        raw.data(), hashSize, encoded, sizeof encoded, type, version),
            ARGON2_OK);
  return encoded;
}

// The system's own signatures take a faster way; the verdict must be that of the library for every text.
TEST(Signature, VerdictsAreThoseOfTheLibrary) {
  const std::string good = Encoded(16, 64, 8, 16, 16);
  std::vector<std::string> texts = {good,
                                    "",
                                    "$",
                                    good + "x",
                                    good + "=",
                                    good.substr(0, 73),
                                    " " + good,
                                    good + std::string(1, '\0') + "tail",
                                    std::string(74, 'A')};
  for (const auto& [passes, memory, lanes, salt, hash] : {std::tuple{1U, 8U, 1U, 16U, 16U},
                                                          {16U, 64U, 8U, 8U, 16U},
                                                          {16U, 64U, 8U, 16U, 32U},
                                                          {16U, 64U, 8U, 16U, 4U},
                                                          {15U, 64U, 8U, 16U, 16U},
                                                          {16U, 128U, 8U, 16U, 16U},
                                                          {16U, 64U, 4U, 16U, 16U}}) {
    texts.push_back(Encoded(passes, memory, lanes, salt, hash));
  }
  texts.push_back(Encoded(16, 64, 8, 16, 16, Argon2_i));
  texts.push_back(Encoded(16, 64, 8, 16, 16, Argon2_id, ARGON2_VERSION_10));
  // Other spellings of the same 16 bytes: spare bits that are not zero, before and behind.
  for (const std::size_t at : {std::size_t{50}, std::size_t{73}}) {
    for (const char c : {'A', 'B', 'Q', 'g', 'h', 'w', 'x', '/', '='}) (texts.emplace_back(good))[at] = c;
  }
  std::mt19937 random(11);
  const std::string alphabet = "$ABab09+/=,vmtp-\x80";
  for (int i = 0; i < 400; ++i) {
    std::string text = good;
    text[random() % text.size()] = alphabet[random() % alphabet.size()];
    // Larger parameters than these would make the comparison itself run for minutes.
    const std::string parameters = text.substr(0, 29);
    if (parameters.find_first_of("123456789", 13) != std::string::npos && parameters != good.substr(0, 29))
      continue;
    texts.push_back(text);
  }
  const std::string password = kDigest + "|key";
  int accepted = 0;
  for (const std::string& text : texts) {
    const bool expected = argon2id_verify(text.c_str(), password.data(), password.size()) == ARGON2_OK;
    EXPECT_EQ(CPluginUtil::VerifySignature(kDigest, "key", text), expected) << testing::PrintToString(text);
    accepted += expected ? 1 : 0;
  }
  EXPECT_GE(accepted, 9);  // the good one, its form with a tail behind a zero, and seven other parameter sets
}

TEST(SignedRequest, SignsThePrintingAndReplacesTheMethodInPlace) {
  CBasePluginObject builder;
  builder.m_accessKey = "key";
  for (const bool unformatted : {true, false}) {
    const JsonPtr request(cJSON_Parse(R"({"jsonrpc":"2.0","method":"v2/x","tail":1})"));
    const auto print = unformatted ? cJSON_PrintUnformatted : cJSON_Print;
    const JsonText before(print(request.get()));
    EXPECT_EQ(builder.GetSignedRequestJson("v2/x", request.get(), unformatted), request.get());
    const std::string method = CPluginUtil::GetJSONStringFieldValue(request.get(), "method");
    ASSERT_EQ(method.substr(0, 19), "v2/x?authorization=");
    EXPECT_EQ(method.substr(19, 29), "$argon2id$v=19$m=64,t=16,p=8$");
    std::string digest;
    CPluginUtil::GetSignDigest(before.get(), &digest);
    EXPECT_TRUE(CPluginUtil::VerifySignature(digest, "key", method.substr(19)));
    std::string expected = before.get();
    expected.replace(expected.find("v2/x"), 4, method);
    EXPECT_EQ(JsonText(print(request.get())).get(), expected);
  }
}

TEST(SignedRequest, WithoutAKeyLeavesTheRequestAsItWas) {
  CBasePluginObject builder;
  const JsonPtr request(cJSON_Parse(R"({"method":"v2/x"})"));
  try {
    builder.GetSignedRequestJson("v2/x", request.get(), true);
    ADD_FAILURE() << "nothing thrown";
  } catch (const std::exception& e) {
    EXPECT_STREQ(e.what(), "AccessKey is missing.");
    EXPECT_EQ(dynamic_cast<const CPluginException&>(e).getErrorNumber(), 6);
  }
  EXPECT_STREQ(JsonText(cJSON_PrintUnformatted(request.get())).get(), R"({"method":"v2/x"})");
}

TEST(Envelope, WrapsParamsAndNothingElse) {
  CBasePluginObject builder;
  EXPECT_EQ(builder.m_version, "v1");
  const JsonPtr wrapped(builder.GetJsonrpcRequest(cJSON_CreateArray()));
  EXPECT_STREQ(JsonText(cJSON_PrintUnformatted(wrapped.get())).get(), R"({"jsonrpc":"2.0","params":[]})");
  const JsonPtr bare(builder.GetJsonrpcRequest(nullptr));
  EXPECT_STREQ(JsonText(cJSON_PrintUnformatted(bare.get())).get(), R"({"jsonrpc":"2.0"})");
}

}  // namespace
