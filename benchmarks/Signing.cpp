/// @file
/// Signatures against plain calls of the hash library and against one run of its context interface on one
/// thread, which is the least that the system's parameters can cost.
#include <argon2.h>
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <cstring>

#include "BasePluginObject.h"
#include "Comparison.h"

namespace bench {

namespace {

constexpr std::uint32_t kPasses = 16;
constexpr std::uint32_t kMemoryKiB = 64;
constexpr std::uint32_t kLanes = 8;

const std::string digest = "a9993e364706816aba3e25717850c26c9cd0d89d";
const std::string accessKey = "an access key of the usual length";
std::string password = digest + "|" + accessKey;
std::array<char, 17> salt = {"0123456789abcdef"};
using Hash = std::array<std::uint8_t, 16>;

void HashPlain() {
  Hash hash;
  char encoded[108];
  argon2_hash(kPasses, kMemoryKiB, kLanes, password.data(), password.size(), salt.data(), 16, hash.data(),
              hash.size(), encoded, sizeof encoded, Argon2_id, ARGON2_VERSION_13);
  benchmark::DoNotOptimize(encoded);
}

void HashOneThread() {
  Hash hash;
  argon2_context context = {};
  context.out = hash.data();
  context.outlen = hash.size();
  context.pwd = reinterpret_cast<std::uint8_t*>(password.data());
  context.pwdlen = static_cast<std::uint32_t>(password.size());
  context.salt = reinterpret_cast<std::uint8_t*>(salt.data());
  context.saltlen = 16;
  context.t_cost = kPasses;
  context.m_cost = kMemoryKiB;
  context.lanes = kLanes;
  context.threads = 1;
  context.version = ARGON2_VERSION_13;
  argon2id_ctx(&context);
  benchmark::DoNotOptimize(hash);
}

}  // namespace

std::string Family() {
  return "signing";
}

std::vector<Row> Rows() {
  static std::string signature;
  CPluginUtil::GetSignature(digest, accessKey, &signature);
  const Subject floor = {"argon2id_ctx, 1 thread", Repeat(HashOneThread)};
  const Subject sign = {"GetSignature", Repeat([] {
                          std::string made;
                          CPluginUtil::GetSignature(digest, accessKey, &made);
                          benchmark::DoNotOptimize(made);
                        })};
  const Subject verify = {"VerifySignature", Repeat([] {
                            bool valid = CPluginUtil::VerifySignature(digest, accessKey, signature);
                            benchmark::DoNotOptimize(valid);
                          })};
  const Subject verifyPlain = {"argon2id_verify", Repeat([] {
                                 argon2id_verify(signature.c_str(), password.data(), password.size());
                               })};
  return {
      {"sign", sign, {{floor, Aim{1.05}}, {{"argon2_hash, 8 threads", Repeat(HashPlain)}, Aim{1.0 / 15}}}},
      {"verify", verify, {{floor, Aim{1.05}}, {verifyPlain, Aim{1.0 / 15}}}},
  };
}

}  // namespace bench
