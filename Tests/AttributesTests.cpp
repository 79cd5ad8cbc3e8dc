#include "Attributes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace
{

using Change = std::function<void(IServerAttributes&)>;

// One change for every field of a record; the four times lead. Texts come in both cases, since they compare with it.
const Change kChanges[] = {
    [](IServerAttributes& record) { record.SetCreationTime(CAttributeTime(1)); },
    [](IServerAttributes& record) { record.SetLastAccessTime(CAttributeTime(1)); },
    [](IServerAttributes& record) {
    record.SetLastWriteTime(CAttributeTime(1));
    },
    [](IServerAttributes& record) {
    record.SetChangeTime(CAttributeTime(1));
},
             [](IServerAttributes& record) { record.SetSize(-1); }, [](IServerAttributes& record) { record.SetExtendedValue(7); },
             [](IServerAttributes& record) { record.SetAttributes(0x21); }, [](IServerAttributes& record) { record.SetReadOnly(1); },
             [](IServerAttributes& record) { record.SetFolderReadOnly(1); }, [](IServerAttributes& record) { record.SetRevision("R1"); },
             [](IServerAttributes& record) { record.SetRevision("r1"); }, [](IServerAttributes& record) { record.SetName(L"NAME"); },
             [](IServerAttributes& record) { record.SetName(L"name"); },
             [](IServerAttributes& record) { record.SetAlternatePath(L"/PATH/"); },
             [](IServerAttributes& record) { record.SetAlternatePath(L"/path/"); },
             };

// What a record has: times, size, attributes, extended value, name, alternate path, and whether it and its folder are read-only.
std::string Has(const IServerAttributes& record)
{
    std::string text;
    for (const bool has : {record.HasTimes(), record.HasSize(), record.HasAttributes(), record.HasExtendedValue(), record.HasName(),
                           record.HasAlternatePath(), record.IsReadOnly(), record.IsFolderReadOnly()})
        text += has ? 'y' : 'n';
    return text;
}

} // namespace

TEST(AttributesTests, ADefaultRecordHasNothing)
{
    const CServerAttributes record;
    EXPECT_EQ(Has(record), "nnnnnnnn");
    EXPECT_EQ(record.GetSize(), 0x7FFFFFFFFFFFFFFF);
    EXPECT_EQ(record.GetSizeString(), L"9223372036854775807");
    EXPECT_EQ(record.GetSizeStringA(), "9223372036854775807");
    EXPECT_EQ(record.GetAttributesString(), L"4294967295");
    EXPECT_EQ(record.GetAttributesStringA(), "4294967295");
}

TEST(AttributesTests, EveryFieldIsComparedCopiedAndReset)
{
    CServerAttributes all;
    for (const Change& change : kChanges)
    {
        CServerAttributes one;
        change(one);
        change(all);
        for (const Change& other : kChanges)
        {
            CServerAttributes another;
            other(another);
            EXPECT_EQ(one.IsEqual(another), &change == &other);
        }
        EXPECT_FALSE(one.IsEqual(CServerAttributes()) || CServerAttributes().IsEqual(one));

        EXPECT_TRUE(CServerAttributes(one).IsEqual(one));
        CServerAttributes assigned(all);
        assigned = one;
        EXPECT_TRUE(assigned.IsEqual(one));
        EXPECT_TRUE(std::dynamic_pointer_cast<IServerAttributes>(one.Clone())->IsEqual(one));

        one.Reset();
        EXPECT_TRUE(one.IsEqual(CServerAttributes()));
    }
    EXPECT_EQ(Has(all), "yyyyyyyy");
    EXPECT_EQ(all.GetSizeString(), L"18446744073709551615");
    EXPECT_EQ(all.GetAlternatePath(), L"/path/");

    EXPECT_EQ(all.ClearTimes(), CAttributeTime());
    all.ClearSize();
    all.ClearAttributes();
    all.ClearExtendedValue();
    all.ClearAlternatePath();
    all.ClearName();
    EXPECT_EQ(Has(all), "nnnnnnyy");
    all.SetRevision("");
    all.SetReadOnly(0);
    all.SetFolderReadOnly(0);
    EXPECT_TRUE(all.IsEqual(CServerAttributes()));
}

TEST(AttributesTests, TimesAreThereWhenAllFourAre)
{
    for (std::size_t missing = 0; missing < 4; ++missing)
    {
        CServerAttributes record;
        for (std::size_t index = 0; index < 4; ++index)
            if (index != missing)
                kChanges[index](record);
        EXPECT_FALSE(record.HasTimes());
        kChanges[missing](record);
        EXPECT_TRUE(record.HasTimes());
    }
}

TEST(AttributesTests, NamesLoseTheirTrailingSlashes)
{
    for (const auto& [name, expected] :
         {std::pair{L"", L""}, {L"///", L""}, {L"/a/b/", L"/a/b"}, {L"/a//", L"/a"}, {L"a", L"a"}, {L"a/\\", L"a/\\"}, {L"//a", L"//a"}})
    {
        CServerAttributes record;
        record.SetName(name);
        EXPECT_EQ(record.GetName(), expected);
        EXPECT_EQ(record.HasName(), *expected != L'\0');
    }
}

TEST(AttributesTests, FlagsTakeTheLowestBitAndFolderReplacesAllBits)
{
    CServerAttributes record;
    for (const std::uint32_t value : {3U, 0xFFFFFFFFU, 2U, 0x80000000U})
    {
        record.SetReadOnly(value);
        EXPECT_EQ(record.IsReadOnly(), value % 2 != 0);
        record.SetFolderReadOnly(value);
        EXPECT_EQ(record.IsFolderReadOnly(), value % 2 != 0);
    }
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
    *clone = *owned;
    clone->Reset();
    EXPECT_EQ(clone->shared_from_this(), clone);
}
