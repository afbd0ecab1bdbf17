// Data and value items: limits, the order of the checks, rounding. The guide's test has every text in full.
#include <cmath>
#include <cstring>
#include <iomanip>
#include <limits>
#include <random>

#include "MessageTestSupport.h"

using namespace message_test;

namespace {

std::string Data(const std::string& name, const char* category) {
  return Thrown([&] { return Base::CreateBaseDataItemJson(name.c_str(), nullptr, nullptr, category); });
}

template <typename T>
std::string Value(const char* name, T value) {
  return Thrown([&] { return Base::CreateBaseValueItemJson(name, value); });
}

// The tree is the caller's when there is no item.
std::string Tree(const std::string& text) {
  JsonPtr tree = Json(text);
  const std::string thrown = Value("n", tree.get());
  if (thrown == "nothing") tree.release();
  return thrown;
}

TEST(Items, HaveLimitsThatAreCheckedInOrder) {
  const auto letters = [](std::size_t length) { return std::string(length, 'n'); };
  EXPECT_EQ(Data(letters(32), nullptr), "nothing");
  EXPECT_EQ(Data(letters(33), "a b").substr(0, 20), "2 The length of \"nnn");
  EXPECT_EQ(Data(std::string(33, '.'), nullptr).substr(0, 20), "2 The length of \"...");
  EXPECT_EQ(Data("1abc", "a b"), "1 Invalid name format: \"1abc\"");
  EXPECT_EQ(Data("", nullptr), "1 Invalid name format: \"\"");
  EXPECT_EQ(Data("A-b_9", ""), "1 Invalid displayCategory format: \"\"");
  EXPECT_EQ(Printed(JsonPtr(Base::CreateBaseDataItemJson("A-b_9", "", "about", "Cat")).get()),
            R"({"name":"A-b_9","displayName":"","description":"about","displayCategory":"Cat"})");

  EXPECT_EQ(Value("any name!", letters(512).c_str()), "nothing");
  EXPECT_EQ(Value("n", letters(513).c_str()).substr(0, 20), "2 The length of \"nnn");
  EXPECT_EQ(Value(nullptr, letters(513).c_str()), "3 name is NULL");
  EXPECT_EQ(Value("n", static_cast<const char*>(nullptr)), "3 value is NULL");

  // {\n\t"k":\t"..."\n}: twelve bytes beside the text. Long names count in tables only.
  EXPECT_EQ(Tree(R"({"k":")" + letters(1024 - 12) + "\"}"), "nothing");
  EXPECT_EQ(Tree(R"({"k":")" + letters(1025 - 12) + "\"}").substr(0, 20), "2 The length of \"n\" ");
  EXPECT_EQ(Tree(R"([{"name":"x"},1,{"name":")" + letters(128) + "\"}]"), "nothing");
  EXPECT_EQ(Tree(R"([{"name":"x"},1,{"name":")" + letters(129) + "\"}]").substr(0, 20),
            "2 The length of \"nnn");
  EXPECT_EQ(Tree(R"({"name":")" + letters(129) + "\"}"), "nothing");

  EXPECT_EQ(Value("n", 999999999999999.9), "nothing");
  EXPECT_EQ(Value(nullptr, 1e20), "3 name is NULL");
  EXPECT_EQ(CPluginUtil::GetNumberDigitsCount(0.999999), 0);
  EXPECT_EQ(CPluginUtil::GetNumberDigitsCount(1e15), 16);
  const std::string tail = " exceeds at most fifteen digits limitation.";
  EXPECT_EQ(Value("n", -1234567890123456.0), "3 The number -1.23457e+15" + tail);
  EXPECT_EQ(Value("n", std::numeric_limits<double>::infinity()), "3 The number inf" + tail);
}

// The way a stream would do it defines the result bit for bit.
TEST(Items, NumbersAreRoundedAsAStreamRoundsThem) {
  std::vector<double> values = {1.005, 2.675,  0.004,        0.005,        -0.001,
                                -0.0,  5e-324, std::nan(""), -std::nan("")};
  values.insert(values.end(), {999999999999999.0, 899999999999999.9, 999999999999999.9});
  std::mt19937_64 random(20240117);
  std::uniform_real_distribution<double> exponent(-12, 14.99);
  for (int i = 0; i < 2000000; ++i) {
    const double value = std::pow(10.0, exponent(random));
    values.push_back((i & 1) != 0 ? -value
                                  : std::round(value * 1000) / 1000);  // ties of the third decimal too
  }
  for (const double value : values) {
    const JsonPtr item(Base::CreateBaseValueItemJson("n", value));
    const double ours = item->child->next->valuedouble;
    std::stringstream stream;
    stream << std::fixed << std::setprecision(2) << value;
    double reference = value;
    stream >> reference;
    ASSERT_EQ(std::memcmp(&ours, &reference, sizeof ours), 0) << stream.str() << ' ' << ours;
  }
}

}  // namespace
