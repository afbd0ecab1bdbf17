// Data and value items: naming rules, limits, rounding.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <iomanip>
#include <limits>
#include <random>
#include <sstream>

#include "BasePluginObject.h"
#include "JsonHandle_internal.h"

using pluginsdk::internal::JsonPtr;
using pluginsdk::internal::JsonText;

namespace {

std::string Compact(const cJSON* tree) {
  return JsonText(cJSON_PrintUnformatted(tree)).get();
}

JsonPtr TableWithHeader(std::size_t length) {
  JsonPtr table(cJSON_CreateArray());
  for (const std::string& name : {std::string("ok"), std::string(length, 'h')}) {
    cJSON* column = cJSON_CreateObject();
    cJSON_AddStringToObject(column, "name", name.c_str());
    cJSON_AddItemToArray(table.get(), column);
  }
  cJSON_AddItemToArray(table.get(), cJSON_CreateNumber(1));  // no object: passes
  return table;
}

// An object whose indented printing, {\n\t"k":\t"..."\n}, has exactly `length` bytes.
JsonPtr ObjectPrinting(std::size_t length) {
  JsonPtr object(cJSON_CreateObject());
  cJSON_AddStringToObject(object.get(), "k", std::string(length - 12, 'v').c_str());
  EXPECT_EQ(std::strlen(JsonText(cJSON_Print(object.get())).get()), length);
  return object;
}

struct Fault {
  const char* name;
  std::function<cJSON*()> build;
  int number;
  std::string message;
};

TEST(Items, EveryBrokenRuleHasItsTextAndNumber) {
  using Base = CBasePluginObject;
  const std::string name33(33, 'n');
  const std::string bad33(33, '.');
  const std::string text513(513, 't');
  const std::string header129(129, 'h');
  const JsonPtr big = ObjectPrinting(1025);
  const JsonPtr table = TableWithHeader(129);
  const auto data = [](const char* name, const char* category) {
    return [=] { return Base::CreateBaseDataItemJson(name, nullptr, nullptr, category); };
  };
  const auto number = [](double value) { return [=] { return Base::CreateBaseValueItemJson("n", value); }; };
  const Fault faults[] = {
      {"no name", data(nullptr, "bad category"), 3, "name is required parameter."},
      {"long before malformed", data(bad33.c_str(), nullptr), 2,
       "The length of \"" + bad33 + "\" exceeds the maximum name length, i.e. 32 Bytes."},
      {"long name", data(name33.c_str(), "bad category"), 2,
       "The length of \"" + name33 + "\" exceeds the maximum name length, i.e. 32 Bytes."},
      {"malformed name", data("1abc", "bad category"), 1, "Invalid name format: \"1abc\""},
      {"empty name", data("", nullptr), 1, "Invalid name format: \"\""},
      {"malformed category", data("ok", "a b"), 1, "Invalid displayCategory format: \"a b\""},
      {"no value name", [] { return Base::CreateBaseValueItemJson(nullptr, "v"); }, 3, "name is NULL"},
      {"no text", [] { return Base::CreateBaseValueItemJson("n", static_cast<const char*>(nullptr)); }, 3,
       "value is NULL"},
      {"long text quotes the value", [&] { return Base::CreateBaseValueItemJson("n", text513.c_str()); }, 2,
       "The length of \"" + text513 + "\" exceeds the maximum string length, i.e. 512 Bytes."},
      {"no tree name", [&] { return Base::CreateBaseValueItemJson(nullptr, big.get()); }, 3, "name is NULL"},
      {"no tree", [] { return Base::CreateBaseValueItemJson("n", static_cast<cJSON*>(nullptr)); }, 3,
       "value is NULL"},
      {"large tree quotes the name", [&] { return Base::CreateBaseValueItemJson("tree", big.get()); }, 2,
       "The length of \"tree\" exceeds the maximum table length, i.e. 1024 Bytes."},
      {"long header", [&] { return Base::CreateBaseValueItemJson("n", table.get()); }, 2,
       "The length of \"" + header129 + "\" exceeds the maximum header length, i.e. 128 Bytes."},
      {"no number name", [] { return Base::CreateBaseValueItemJson(nullptr, 1e20); }, 3, "name is NULL"},
      {"16 digits", number(1e15), 3, "The number 1e+15 exceeds at most fifteen digits limitation."},
      {"general notation", number(1234567890123456.0), 3,
       "The number 1.23457e+15 exceeds at most fifteen digits limitation."},
      {"minus", number(-1e15), 3, "The number -1e+15 exceeds at most fifteen digits limitation."},
      {"infinite", number(std::numeric_limits<double>::infinity()), 3,
       "The number inf exceeds at most fifteen digits limitation."},
  };
  for (const Fault& fault : faults) {
    SCOPED_TRACE(fault.name);
    try {
      const JsonPtr item(fault.build());
      ADD_FAILURE() << "nothing thrown";
    } catch (const CPluginException& e) {
      EXPECT_EQ(e.getErrorNumber(), fault.number);
      EXPECT_EQ(e.what(), fault.message);
    }
  }
}

TEST(Items, EverythingAtItsLimitPasses) {
  const std::string name(32, 'n');
  const std::string text(512, 't');
  EXPECT_EQ(
      Compact(
          JsonPtr(CBasePluginObject::CreateBaseDataItemJson(name.c_str(), nullptr, nullptr, nullptr)).get()),
      "{\"name\":\"" + name + "\"}");
  EXPECT_EQ(Compact(JsonPtr(CBasePluginObject::CreateBaseDataItemJson("A-b_9", "", "about", "Cat")).get()),
            R"({"name":"A-b_9","displayName":"","description":"about","displayCategory":"Cat"})");
  EXPECT_EQ(Compact(JsonPtr(CBasePluginObject::CreateBaseValueItemJson("any name!", text.c_str())).get()),
            "{\"name\":\"any name!\",\"value\":\"" + text + "\"}");
  const JsonPtr tree(CBasePluginObject::CreateBaseValueItemJson("n", ObjectPrinting(1024).release()));
  EXPECT_EQ(cJSON_GetArraySize(tree.get()), 2);
  const JsonPtr table(CBasePluginObject::CreateBaseValueItemJson("n", TableWithHeader(128).release()));
  EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(table.get(), "value")), 3);
  // Long "name" members count in tables only.
  JsonPtr object(cJSON_CreateObject());
  cJSON_AddStringToObject(object.get(), "name", std::string(129, 'h').c_str());
  EXPECT_NE(JsonPtr(CBasePluginObject::CreateBaseValueItemJson("n", object.release())), nullptr);
}

TEST(Items, DigitsAreCountedByRepeatedDivision) {
  const struct {
    double value;
    int digits;
  } rows[] = {{0, 0},
              {-0.3, 0},
              {std::nan(""), 0},
              {0.999999, 0},
              {1, 1},
              {9.99, 1},
              {10, 2},
              {-123., 3},
              {1e15, 16},
              {1e14, 15},
              {999999999999999., 15},
              {1e22, 23},
              {std::numeric_limits<double>::infinity(), 309}};
  for (const auto& row : rows)
    EXPECT_EQ(CPluginUtil::GetNumberDigitsCount(row.value), row.digits) << row.value;
}

// The way a stream would do it, which defines the result bit for bit.
double RoundThroughStream(double value) {
  static std::stringstream stream;
  stream.str({});
  stream.clear();
  stream << std::fixed << std::setprecision(2) << value;
  double rounded = value;
  stream >> rounded;
  return rounded;
}

TEST(Items, NumbersAreRoundedAsAStreamRoundsThem) {
  std::vector<double> values = {1.005,
                                2.675,
                                0.004,
                                0.005,
                                -0.001,
                                -0.0,
                                3.14159,
                                999999999999999.0,
                                899999999999999.9,
                                999999999999999.9,
                                5e-324,
                                std::nan(""),
                                -std::nan("")};
  std::mt19937_64 random(20240117);
  std::uniform_real_distribution<double> exponent(-12, 15);
  for (int i = 0; i < 2000000; ++i) {
    const double value = std::pow(10.0, exponent(random));
    values.push_back((i & 1) != 0 ? -value
                                  : std::round(value * 1000) / 1000);  // ties of the third decimal too
  }
  for (const double value : values) {
    if (CPluginUtil::GetNumberDigitsCount(value) > 15) {
      EXPECT_THROW(CBasePluginObject::CreateBaseValueItemJson("n", value), CPluginException);
      continue;
    }
    const JsonPtr item(CBasePluginObject::CreateBaseValueItemJson("n", value));
    const double ours = item->child->next->valuedouble;
    const double reference = RoundThroughStream(value);
    ASSERT_EQ(std::memcmp(&ours, &reference, sizeof ours), 0)
        << std::setprecision(17) << value << ' ' << ours;
  }
}

}  // namespace
