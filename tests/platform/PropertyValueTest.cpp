#include "psdkit/platform/PropertyValue.hpp"

#include <gtest/gtest.h>

namespace psdkit {
namespace {

TEST(PropertyValueTest, ConstructionPicksTheIntendedKindAndAccessorsAnswerOnlyForIt)
{
    EXPECT_TRUE(PropertyValue().isDictionary());
    EXPECT_TRUE(PropertyValue("text").isString()) << "a literal is text, not a boolean";
    EXPECT_TRUE(PropertyValue(7u).isInteger());
    EXPECT_TRUE(PropertyValue(std::int16_t{-7}).isInteger());
    EXPECT_EQ(*PropertyValue(std::uint64_t{0xFFFFFFFFFFFFFFFF}).asInt(), -1);
    EXPECT_EQ(PropertyValue(42).asReal(), nullptr);
    EXPECT_EQ(PropertyValue(42).getIf<bool>(), nullptr);
}

TEST(PropertyValueTest, EqualityNeedsTheSameKindAndContents)
{
    EXPECT_NE(PropertyValue(1), PropertyValue(1.0));
    EXPECT_NE(PropertyValue(1), PropertyValue(true));
    EXPECT_NE(PropertyValue("norm"), PropertyValue(PSDFourCharCode("norm")));
    EXPECT_EQ(PropertyValue(PSDFourCharCode("norm")), PropertyValue(PSDFourCharCode("norm")));
    const PropertyValue nested =
        PropertyDictionary{{"a", PropertyArray{1, "x", PropertyDictionary{{"b", 2.5}}}}};
    PropertyValue changed = nested;
    EXPECT_EQ(changed, nested);
    (*changed.asDictionary())["a"].asArray()->at(2).asDictionary()->at("b") = 2.6;
    EXPECT_NE(changed, nested);
    EXPECT_EQ(nested.asDictionary()->at("a").asArray()->at(2).asDictionary()->at("b"), PropertyValue(2.5))
        << "copies are independent";
}

} // namespace
} // namespace psdkit
