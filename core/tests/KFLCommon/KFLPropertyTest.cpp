// SPDX-License-Identifier: Apache-2.0
#include <KFLCommon/KFLProperty.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace KFL::test {

namespace {

template <class T, class U>
constexpr bool kTakes = std::is_convertible_v<U, KFLOptionalProperty<T>>;

static_assert(kTakes<std::string, const char*>);
static_assert(kTakes<bool, bool>);
static_assert(!kTakes<bool, const char*>, "a text is no bool");
static_assert(!kTakes<std::string, int>);
static_assert(!kTakes<int, std::string>);
static_assert(kTakes<int, KFLOptionalProperty<int>&>);

std::string describe(const KFLOptionalProperty<std::string>& property) {
  return property.isSpecified() ? property.getValue() : "unspecified";
}

TEST(KFLProperty, ValuesSpecifyAndAccessDoesNot) {
  KFLOptionalProperty<std::string> name;
  EXPECT_EQ(describe(name), "unspecified");
  EXPECT_EQ(describe("literal"), "literal");
  name.value() = "read";
  EXPECT_EQ(describe(name), "unspecified");
  name.setSpecified(true);
  EXPECT_EQ(describe(name), "read");
  name.setSpecified(false);
  EXPECT_EQ(name.getValue(), "read") << "the value went with the bit";
  name.setValue("set");
  EXPECT_EQ(describe(name), "set");
  KFLOptionalProperty<std::string> copy = name;
  EXPECT_EQ(describe(copy), "set");
  copy.reset();
  EXPECT_EQ(describe(copy), "unspecified");
  copy = std::string("assigned");
  EXPECT_EQ(describe(copy), "assigned");
  EXPECT_EQ((KFLOptionalProperty<std::vector<int>>({1, 2}).getValue().size()), 2U);
}

TEST(KFLProperty, UnspecifiedOnesAreEqual) {
  KFLOptionalProperty<int> a(1);
  KFLOptionalProperty<int> b(2);
  EXPECT_NE(a, b);
  b.setValue(1);
  EXPECT_EQ(a, b);
  b.setSpecified(false);
  EXPECT_NE(a, b);
  a.reset();
  EXPECT_EQ(a, b);
  EXPECT_NE(KFLProperty<int>(1), KFLProperty<int>(2));
}

}  // namespace

}  // namespace KFL::test
