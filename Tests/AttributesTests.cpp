#include "Attributes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace
{

using Change = std::function<void(IServerAttributes&)>;

// One change for every field of a record.
const Change kChanges[] = {
    [](IServerAttributes& record) { record.SetRevision("r1"); },
    [](IServerAttributes& record) { record.SetCreationTime(CAttributeTime(1)); },
    [](IServerAttributes& record) { record.SetLastAccessTime(CAttributeTime(1)); },
    [](IServerAttributes& record) { record.SetLastWriteTime(CAttributeTime(1)); },
    [](IServerAttributes& record) { record.SetChangeTime(CAttributeTime(1)); },
    [](IServerAttributes& record) { record.SetSize(-1); },
    [](IServerAttributes& record) { record.SetExtendedValue(7); },
    [](IServerAttributes& record) { record.SetAttributes(0x21); },
    [](IServerAttributes& record) { record.SetName(L"name"); },
    [](IServerAttributes& record) { record.SetAlternatePath(L"/path/"); },
    [](IServerAttributes& record) { record.SetReadOnly(1); },
    [](IServerAttributes& record) { record.SetFolderReadOnly(1); },
};

} // namespace

TEST(AttributesTests, ADefaultRecordHasNothing)
{
    const CServerAttributes record;
    EXPECT_FALSE(record.HasTimes() || record.HasSize() || record.HasAttributes() || record.HasExtendedValue() || record.HasName() ||
                 record.HasAlternatePath() || record.IsReadOnly() || record.IsFolderReadOnly());
    EXPECT_EQ(record.GetSize(), 0x7FFFFFFFFFFFFFFF);
    EXPECT_EQ(record.GetSizeString(), L"9223372036854775807");
    EXPECT_EQ(record.GetSizeStringA(), "9223372036854775807");
    EXPECT_EQ(record.GetAttributesString(), L"4294967295");
    EXPECT_EQ(record.GetAttributesStringA(), "4294967295");
}

TEST(AttributesTests, EveryFieldIsComparedCopiedAndReset)
{
    const CServerAttributes unset;
    CServerAttributes all;
    for (const Change& change : kChanges)
    {
        CServerAttributes one;
        change(one);
        change(all);
        EXPECT_FALSE(one.IsEqual(unset));
        EXPECT_FALSE(unset.IsEqual(one));

        const CServerAttributes copy(one);
        EXPECT_TRUE(copy.IsEqual(one));
        CServerAttributes assigned(all);
        assigned = one;
        EXPECT_TRUE(assigned.IsEqual(one));
        const auto clone = std::dynamic_pointer_cast<IServerAttributes>(one.Clone());
        ASSERT_NE(clone, nullptr);
        EXPECT_TRUE(clone->IsEqual(one));

        one.Reset();
        EXPECT_TRUE(one.IsEqual(unset));
    }
    EXPECT_TRUE(all.HasTimes() && all.HasSize() && all.HasAttributes() && all.HasExtendedValue() && all.HasName() &&
                all.HasAlternatePath() && all.IsReadOnly() && all.IsFolderReadOnly());
    EXPECT_EQ(all.GetSizeString(), L"18446744073709551615");
    EXPECT_EQ(all.GetAlternatePath(), L"/path/");

    EXPECT_EQ(all.ClearTimes(), CAttributeTime());
    all.ClearSize();
    all.ClearAttributes();
    all.ClearExtendedValue();
    all.ClearAlternatePath();
    all.ClearName();
    all.SetRevision("");
    all.SetReadOnly(0);
    all.SetFolderReadOnly(0);
    EXPECT_TRUE(all.IsEqual(unset));
}

TEST(AttributesTests, TextsCompareWithTheirCase)
{
    const auto differ = [](const Change& left, const Change& right) {
        CServerAttributes one;
        CServerAttributes other;
        left(one);
        right(other);
        return !one.IsEqual(other);
    };
    EXPECT_TRUE(differ([](auto& record) { record.SetRevision("a"); }, [](auto& record) { record.SetRevision("A"); }));
    EXPECT_TRUE(differ([](auto& record) { record.SetName(L"a"); }, [](auto& record) { record.SetName(L"A"); }));
    EXPECT_TRUE(differ([](auto& record) { record.SetAlternatePath(L"a"); }, [](auto& record) { record.SetAlternatePath(L"A"); }));
}

TEST(AttributesTests, TimesAreThereWhenAllFourAre)
{
    for (std::size_t missing = 1; missing <= 4; ++missing)
    {
        CServerAttributes record;
        for (std::size_t index = 1; index <= 4; ++index)
            if (index != missing)
                kChanges[index](record);
        EXPECT_FALSE(record.HasTimes());
        kChanges[missing](record);
        EXPECT_TRUE(record.HasTimes());
    }
}

TEST(AttributesTests, NamesLoseTheirTrailingSlashes)
{
    const struct
    {
        const wchar_t* name;
        const wchar_t* expected;
    } cases[] = {{L"", L""},   {L"/", L""},       {L"///", L""},      {L"/a/b/", L"/a/b"}, {L"/a//", L"/a"},
                 {L"a", L"a"}, {L"/x///", L"/x"}, {L"a/\\", L"a/\\"}, {L"a\\", L"a\\"},    {L"//a", L"//a"}};
    for (const auto& each : cases)
    {
        CServerAttributes record;
        record.SetName(each.name);
        EXPECT_EQ(record.GetName(), each.expected);
        EXPECT_EQ(record.HasName(), *each.expected != L'\0');
    }
}

TEST(AttributesTests, FlagsTakeTheLowestBitAndFolderReplacesAllBits)
{
    CServerAttributes record;
    record.SetReadOnly(3);
    record.SetFolderReadOnly(0xFFFFFFFF);
    EXPECT_TRUE(record.IsReadOnly() && record.IsFolderReadOnly());
    record.SetReadOnly(2);
    EXPECT_FALSE(record.IsReadOnly());
    EXPECT_TRUE(record.IsFolderReadOnly());
    record.SetFolderReadOnly(0x80000000);
    EXPECT_FALSE(record.IsFolderReadOnly());

    record.SetAttributes(0x21);
    record.SetDirectory(2);
    EXPECT_EQ(record.GetAttributes(), 0x10U);
    record.SetDirectory(0);
    EXPECT_EQ(record.GetAttributes(), 0x80U);
}

TEST(AttributesTests, CopiesTakeTheRevisionFromTheVirtualGetterAndNoOwner)
{
    class Override : public CServerAttributes
    {
    public:
        [[nodiscard]] std::string GetRevision() const override { return "overridden"; }
    };
    const Override source;
    EXPECT_EQ(CServerAttributes(source).GetRevision(), "overridden");
    CServerAttributes assigned;
    assigned = source;
    EXPECT_EQ(assigned.GetRevision(), "overridden");

    const auto owned = std::make_shared<CServerAttributes>();
    EXPECT_EQ(CServerAttributes(*owned).weak_from_this().lock(), nullptr);
    const auto clone = std::dynamic_pointer_cast<CServerAttributes>(owned->Clone());
    EXPECT_EQ(clone->shared_from_this(), clone);
    *clone = *owned;
    clone->Reset();
    EXPECT_EQ(clone->shared_from_this(), clone);
}
