/// @file
/// The message core: vocabulary, the exception, static helpers, and the base of every builder.
///
/// A builder turns plain values into a JSON-RPC 2.0 notification for the agent. It holds no connection:
/// print the tree that it returns, send the text over your own channel, delete the tree.
#pragma once

#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>

#include "PluginSDK_export.h"

// Vocabulary shared with the agent. The constants are built when the library is loaded and destroyed at
// exit; code that runs in between may read them from any thread.

/// API versions. A builder whose version equals v2 signs its requests.
namespace ApiVersion {
PLUGINSDK_API extern const std::string v1;  ///< "v1"
PLUGINSDK_API extern const std::string v2;  ///< "v2"
}  // namespace ApiVersion

/// Method names without their version prefix; each holds its own name.
namespace AgentPluginApi {
PLUGINSDK_API extern const std::string notifyPluginUpdate;        ///< built by CUpdatePluginJson
PLUGINSDK_API extern const std::string notifyPluginCommand;       ///< parsed by CCommandPluginJson
PLUGINSDK_API extern const std::string notifyPluginCommandAck;    ///< built by CCommandAcksPluginJson
PLUGINSDK_API extern const std::string notifyPluginLocalCommand;  ///< built by CLocalCommandPluginJson
PLUGINSDK_API extern const std::string notifyPluginState;         ///< built by CStatesPluginJson
PLUGINSDK_API extern const std::string notifyPluginEvent;         ///< built by CEventsPluginJson
PLUGINSDK_API extern const std::string notifyPluginMetric;        ///< built by CMetricsPluginJson
PLUGINSDK_API extern const std::string notifyPluginAlarmUpdate;   ///< parsed by CAlarmUpdatePluginJson
PLUGINSDK_API extern const std::string notifyPluginAlert;         ///< built by CAlertsPluginJson
PLUGINSDK_API extern const std::string notifyAgentEvent;          ///< from the agent; only classified
}  // namespace AgentPluginApi

/// What CPluginUtil::GetMessageType answers, and words of the agent's connectivity event.
namespace MessageType {
PLUGINSDK_API extern const std::string api_notifyPluginCommand;      ///< "notifyPluginCommand"
PLUGINSDK_API extern const std::string api_notifyPluginAlarmUpdate;  ///< "notifyPluginAlarmUpdate"
PLUGINSDK_API extern const std::string api_notifyAgentEvent;         ///< "notifyAgentEvent"
PLUGINSDK_API extern const std::string error;   ///< "error": the text has a member of that name
PLUGINSDK_API extern const std::string others;  ///< "others": none of these, or not JSON
PLUGINSDK_API extern const std::string agentEventServerConnectivity;  ///< "serverConnectivity", in "params"
PLUGINSDK_API extern const std::string online;                        ///< "online", one of its values
PLUGINSDK_API extern const std::string offline;                       ///< "offline", the other one
}  // namespace MessageType

/// POSIX extended regular expressions, matched without regard to letter case.
namespace StringFormatter {
PLUGINSDK_API extern const std::string nameFormat;  ///< "^[a-zA-Z][a-zA-Z0-9_-]*$": names, display categories
PLUGINSDK_API extern const std::string versionFormat;  ///< "^[0-9]+[.][0-9]+[.][0-9]+$": plugin versions
PLUGINSDK_API extern const std::string otaCommand;     ///< "^OTAv[0-9]+_": how names of OTA commands begin
}  // namespace StringFormatter

/// The one exception of the message layer: a text that tells what to mend, and the number of its class.
///
/// | number | class of the broken rule |
/// |---|---|
/// | 1 | a text does not match its required format |
/// | 2 | a size limit is exceeded |
/// | 3 | an argument of a basic item is missing, or a number is too long |
/// | 4 | a required parameter of the description or of a module is missing or inconsistent |
/// | 5 | a parameter of a command or command parameter is missing or malformed |
/// | 6 | signing is required but no access key is set |
///
/// Concurrent const use only.
class PLUGINSDK_API CPluginException : public virtual std::exception {
 public:
  /// Copies the message. Applications may throw it too, with a number of the table or of their own.
  CPluginException(const std::string& message, int errorNumber);
  /// Ends the text that what() returned.
  ~CPluginException() override;

  /// The message; valid as long as the exception lives.
  const char* what() const noexcept override;
  /// The number of the table above.
  virtual int getErrorNumber() const;

 private:
  int m_errorNumber;
  std::string m_message;
};

/// Opt-in limits for the verification of received requests. Without them any Argon2id parameters are
/// accepted and requests of version "v1" pass unverified, so whoever can write to the agent's channel can
/// make the plugin spend gigabytes of memory on one signature, or evade signing altogether. The defaults
/// admit exactly what the system's own signatures cost. Pass the limits to the constructor of
/// CCommandPluginJson or CAlarmUpdatePluginJson, or to CPluginUtil::VerifySignatureWithin.
struct VerificationLimits {
  std::uint32_t maxMemoryKiB = 64;  ///< memory of one hash, closed range
  std::uint32_t maxPasses = 16;     ///< passes over that memory, closed range
  std::uint32_t maxLanes = 8;       ///< lanes, each a thread of its own, closed range
  std::size_t maxSignatureLength =
      108;                     ///< bytes of the encoded signature; bounds salt and hash, closed range
  bool refuseUnsigned = true;  ///< refuse "v1" texts when an access key is given
};

/// Static helpers: readers of JSON members, classification of received texts, formats, random texts,
/// signatures. Safe for concurrent use, but for GenerateRandomString and what draws a salt from it:
/// those share the sequence of the C library's rand, which this library never seeds.
/// None changes its arguments' trees; a null tree or text is answered like an absent one.
class PLUGINSDK_API CPluginUtil {
 public:
  /// Reads and parses a whole file. The caller deletes the result.
  /// Null for an empty path, a file that cannot be opened (logged as a warning) and a text that is not JSON.
  /// @warning An empty or unreadable file (a directory, a pipe) ends the process with status 1 and "entire
  /// read fails" on standard error; want of memory does so with "memory alloc fails".
  static cJSON* GetJsonFromFile(std::string path);

  /// Writes `value` in decimal with a terminator and returns `buffer`, which must hold 21 bytes (the
  /// longest 64-bit number, its sign and the terminator). Null for a null buffer.
  static char* Utilityltoa(long value, char* buffer);

  /// A copy of a string member; "" when `object` is null, has no such member or it is no string. Keys
  /// compare without regard to letter case: "Method" finds "method".
  static std::string GetJSONStringFieldValue(cJSON* object, std::string key);

  /// True exactly when the member is JSON true; keys compare as above.
  static bool GetJSONBooleanFieldValue(cJSON* object, std::string key);

  /// Classifies a text received from the agent; first match wins:
  /// - not JSON: "others"
  /// - a member "error": "error"; returns that member printed (indented), and logs it at level INFO
  /// - "method" contains "notifyPluginCommand", "notifyPluginAlarmUpdate" or "notifyAgentEvent": that word.
  ///   An agent event whose "params" has "serverConnectivity" returns the printed "params".
  /// - else "others"
  /// Containment is on purpose: a version stands before the method, a signature may follow it. Nothing is
  /// verified here; CCommandPluginJson and CAlarmUpdatePluginJson do that on the same text. Without memory
  /// the text counts as not JSON, the printed member is null, or std::bad_alloc leaves.
  /// @param type receives the class; null is allowed.
  /// @return a text that the caller gives back with cJSON_free (free() unless hooks are installed), or null.
  static char* GetMessageType(const char* text, std::string* type);

  /// Whether `text` matches a POSIX extended regular expression, without regard to letter case. A pattern
  /// that does not compile (logged as "regexp comp error.") and a null text match nothing.
  /// @param logMismatch logs a warning `"<text>" doesn't match to <pattern> format.` on a mismatch.
  static bool RegExMatch(const char* text, std::string pattern, bool logMismatch);

  /// Decimal digits of the integer part of |value|: 0 below 1 and for NaN, 15 for 999999999999999, 16 for
  /// 1e15, 309 for infinity (as many as the largest finite number has).
  static int GetNumberDigitsCount(double value);

  /// `length` characters from space to "}", drawn from the clock and rand(); "" for a length below 1.
  /// Weak randomness: seed with srand() at start-up, see the security guide.
  static std::string GenerateRandomString(int length);

  /// SHA-1 of `input` as 40 lower-case hexadecimal digits. False, with `*digest` untouched, for an empty
  /// input, a null `digest` and when there is no memory.
  static bool GetSignDigest(std::string input, std::string* digest);

  /// Argon2id (version 19, 16 passes, 64 KiB, 8 lanes, 16-byte random salt, 16-byte hash) of
  /// digest + "|" + accessKey in the encoded form of 74 characters: "$argon2id$v=19$m=64,t=16,p=8$" salt
  /// "$" hash. False, with `*signature` untouched, when a text is empty or `signature` null. A hash that
  /// fails leaves an empty `*signature` and returns true.
  static bool GetSignature(std::string digest, std::string accessKey, std::string* signature);

  /// Whether `signature`, an Argon2id encoded hash, was made of digest + "|" + accessKey. Its own
  /// parameters and salt are used. Never throws on bad input; false for anything malformed.
  static bool VerifySignature(std::string digest, std::string accessKey, std::string signature);

  /// Like VerifySignature, but a signature that asks for more than `limits` allows, or that does not begin in
  /// the form "$argon2id$v=19$m=<decimal>,t=<decimal>,p=<decimal>$", is refused before anything is computed.
  static bool VerifySignatureWithin(std::string digest, std::string accessKey, std::string signature,
                                    const VerificationLimits& limits);
};

/// Base of every builder: who sends, in which API version, signed with which key. One thread at a time;
/// distinct builders may be used concurrently. Builders are deleted as their own type: the destructor is
/// not virtual.
///
/// Ownership, for this class and all builders: an argument tree belongs to the caller until the function
/// that attaches it returns; then the result owns it. A returned tree is the caller's. What each function
/// says of exceptions aside, std::bad_alloc leaves when memory runs out, and then argument trees are still
/// the caller's and nothing half-built is handed out.
class PLUGINSDK_API CBasePluginObject : public CPluginUtil {
 public:
  std::string m_appGUID;     ///< GUID of the plugin application; "appGUID" of every report
  std::string m_accessKey;   ///< secret shared with the agent; needed under "v2" only
  std::string m_version;     ///< API version, "v1" at first; put before the method whatever it holds
  std::string m_moduleName;  ///< module on whose behalf reports are sent

  /// Version "v1"; the other members empty.
  CBasePluginObject();

  /// {"jsonrpc":"2.0","params":params}. Owns `params`; a null one is left out. Null when the envelope
  /// cannot be allocated, `params` stays the caller's then. Builders override it to make their whole request.
  virtual cJSON* GetJsonrpcRequest(cJSON* params);

  /// version + "/" + api, such as "v1/notifyPluginState". Nothing is checked.
  static std::string GetAgentPluginApi(std::string version, std::string api);

  /// Signs `request`, whose "method" must be present: the digest of its printing (compact when
  /// `unformatted`, else indented) is signed with m_accessKey, and "method" is replaced in its place by
  /// GetSignedMethod(method, signature). Returns `request`, which stays the caller's. It goes out unsigned
  /// when no digest or signature can be made.
  /// @throws CPluginException "AccessKey is missing." (6); the request is left as it was.
  cJSON* GetSignedRequestJson(std::string method, cJSON* request, bool unformatted);

  /// method + "?authorization=" + signature.
  static std::string GetSignedMethod(std::string method, std::string signature);

  /// {"name", "displayName", "description", "displayCategory"}; a null text is left out.
  /// @throws CPluginException, first failing check first:
  /// - name null: "name is required parameter." (3)
  /// - name above 32 bytes: `The length of "<name>" exceeds the maximum name length, i.e. 32 Bytes.` (2)
  /// - name against nameFormat: `Invalid name format: "<name>"` (1)
  /// - category against nameFormat: `Invalid displayCategory format: "<displayCategory>"` (1)
  static cJSON* CreateBaseDataItemJson(const char* name, const char* displayName, const char* description,
                                       const char* displayCategory);

  /// {"name", "value"} with a text of at most 512 bytes. The name is not checked against any format.
  /// @throws CPluginException "name is NULL" (3), "value is NULL" (3),
  /// `The length of "<value>" exceeds the maximum string length, i.e. 512 Bytes.` (2)
  static cJSON* CreateBaseValueItemJson(const char* name, const char* value);

  /// {"name", "value"} with any JSON value of at most 1024 bytes in indented printing; in an array (a table)
  /// the "name" of each element has at most 128 bytes. Owns `value` on return; after an exception it is
  /// still the caller's.
  /// @throws CPluginException "name is NULL" (3), "value is NULL" (3),
  /// `The length of "<name>" exceeds the maximum table length, i.e. 1024 Bytes.` (2),
  /// `The length of "<header>" exceeds the maximum header length, i.e. 128 Bytes.` (2)
  static cJSON* CreateBaseValueItemJson(const char* name, cJSON* value);

  /// {"name", "value"} with a number, rounded to two decimals (3.14159 becomes 3.14); NaN is reported as 0.
  /// @throws CPluginException "name is NULL" (3), and for more than fifteen integer digits
  /// "The number <%g of value> exceeds at most fifteen digits limitation." (3)
  static cJSON* CreateBaseValueItemJson(const char* name, double value);
};
