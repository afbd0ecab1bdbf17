/// @file
/// Masking against what reading the text costs at least when each key is looked for by itself. All
/// destinations of the log are off; making the masked copy and the line around it is part of our time.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "Comparison.h"
#include "Utl_Log.h"

namespace bench {

namespace {

constexpr std::array<std::string_view, 17> kKeys = {"accessTicket: ",
                                                    "devSpecAccessTicket: ",
                                                    "password: ",
                                                    "Password: ",
                                                    R"(\"password\": \")",
                                                    "service_ticket: ",
                                                    "serPwd=",
                                                    "x-kt-serviceTicket: ",
                                                    "X-kt-serviceTicket: ",
                                                    R"("kelCredentialHeader":)",
                                                    R"("kevCredentialHeader":)",
                                                    R"(\"kelCredentialHeader\":)",
                                                    R"(\"kevCredentialHeader\":)",
                                                    "kel_credential: ",
                                                    R"(,"partnerPassword":")",
                                                    R"("partnerPassword":)",
                                                    R"("key":)"};

std::string TextWithoutKeys(std::size_t size) {
  std::string text;
  while (text.size() < size)
    text += R"({"name":"front-camera","value":"1920x1080","unit":"pixel"},)"
            "\n";
  text.resize(size);
  return text;
}

/// A password line of 52 bytes for each key.
std::string TextWithKeys(std::size_t keys) {
  std::string text;
  for (std::size_t i = 0; i < keys; ++i) text += "user: somebody or other\npassword: a-secret-of-theirs\n";
  return text;
}

/// Every pass walks over all occurrences of its key.
void FindAll(const std::string& text) {
  for (const std::string_view key : kKeys) {
    const char* from = text.data();
    const char* const end = from + text.size();
    while (const void* found = memmem(from, static_cast<std::size_t>(end - from), key.data(), key.size())) {
      from = static_cast<const char*>(found) + key.size();
    }
    benchmark::DoNotOptimize(from);
  }
}

Subject Mask(const std::string& name, const std::string& text, double units) {
  return {name, Repeat([text] {
            Util_LogSensitiveString("", text.c_str(), "", "benchmarks/Masking", __LINE__, "Mask");
          }),
          units};
}

Subject Passes(const std::string& text, double units) {
  return {"17 passes of memmem", Repeat([text] { FindAll(text); }), units};
}

}  // namespace

std::string Family() {
  return "masking";
}

std::vector<Row> Rows() {
  UTL_LOGInit("benchmark", nullptr);
  UTL_LOGSetWriteToStdout(false);
  const std::string clean = TextWithoutKeys(64 * 1024);
  const std::string full = TextWithKeys(20000);
  const auto scaled = [](std::size_t keys) {
    return Mask(std::to_string(keys) + " keys", TextWithKeys(keys), static_cast<double>(keys));
  };
  return {
      {"64 KiB without keys", Mask("Util_LogSensitiveString", clean, 1), {{Passes(clean, 1), Aim{1.2}}}},
      {"1 MiB with 20,000 keys", Mask("Util_LogSensitiveString", full, 1), {{Passes(full, 1), Aim{1.2}}}},
      {"10x the keys, per key", scaled(2000), {{scaled(200), Aim{1.5}}}},
      {"100x the keys, per key", scaled(20000), {{scaled(200), Aim{1.5}}}},
  };
}

}  // namespace bench
