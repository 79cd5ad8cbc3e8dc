#include "Attributes.h"
#include "CaseFile.h"
#include "Operations.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include <gtest/gtest.h>

#include <functional>

namespace
{

using Change = std::function<void(IServerAttributes&)>;

template <typename Setter, typename Value> Change Set(Setter setter, const Value& value)
{
    return [=](IServerAttributes& record) { (record.*setter)(value); };
}

using I = IServerAttributes;

// One change for each field of a record, the four times first. Texts are compared with their case, so each comes twice.
const Change kChanges[] = {
    Set(&I::SetCreationTime, CAttributeTime(1)),
    Set(&I::SetLastAccessTime, CAttributeTime(1)),
    Set(&I::SetLastWriteTime, CAttributeTime(1)),
    Set(&I::SetChangeTime, CAttributeTime(1)),
    Set(&I::SetSize, -1),
    Set(&I::SetExtendedValue, 7),
    Set(&I::SetAttributes, 0x21U),
    Set(&I::SetReadOnly, 3U),
    Set(&I::SetFolderReadOnly, 3U),
    Set(&I::SetRevision, "R1"),
    Set(&I::SetRevision, "r1"),
    Set(&I::SetName, L"NAME"),
    Set(&I::SetName, L"name"),
    Set(&I::SetAlternatePath, L"/PATH/"),
    Set(&I::SetAlternatePath, L"/path/"),
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

constexpr std::int64_t kMarch2015 = 130697652300000000; // 2015-03-02T10:20:30Z

} // namespace

TEST(AttributesTests, EveryFieldIsComparedCopiedAndReset)
{
    CServerAttributes all;
    EXPECT_EQ(Has(all), "nnnnnnnn");
    for (const Change& change : kChanges)
    {
        CServerAttributes one;
        CServerAttributes others;
        change(one);
        change(all);
        for (const Change& other : kChanges)
        {
            CServerAttributes another;
            other(another);
            EXPECT_EQ(one.IsEqual(another), &change == &other);
            if (&change != &other)
                other(others);
        }
        EXPECT_EQ(others.HasTimes(), &change >= &kChanges[4]) << "all four are there, or none is";
        EXPECT_FALSE(one.IsEqual(CServerAttributes()) || CServerAttributes().IsEqual(one));

        EXPECT_TRUE(CServerAttributes(one).IsEqual(one));
        others = one;
        EXPECT_TRUE(others.IsEqual(one));

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
    all.SetReadOnly(2); // the lowest bit counts
    all.SetFolderReadOnly(2);
    EXPECT_EQ(Has(all), "nnnnnnnn");
    EXPECT_EQ(all.GetSizeString(), L"9223372036854775807");
    EXPECT_EQ(all.GetSizeStringA(), "9223372036854775807");
    EXPECT_EQ(all.GetAttributesString(), L"4294967295");
    EXPECT_EQ(all.GetAttributesStringA(), "4294967295");
    all.SetAttributes(0x21);
    all.SetDirectory(2);
    EXPECT_EQ(all.GetAttributes(), 0x10U) << "all bits are replaced";
    all.SetDirectory(0);
    EXPECT_EQ(all.GetAttributes(), 0x80U);
}

TEST(AttributesTests, CopiesTakeTheRevisionFromTheVirtualGetterAndNoOwner)
{
    struct Override : CServerAttributes
    {
        [[nodiscard]] std::string GetRevision() const override { return "overridden"; }
    };
    CServerAttributes assigned;
    assigned = Override();
    EXPECT_EQ(assigned.GetRevision(), "overridden");
    EXPECT_EQ(CServerAttributes(Override()).GetRevision(), "overridden");

    const auto owned = std::make_shared<CServerAttributes>();
    owned->SetSize(7);
    EXPECT_EQ(CServerAttributes(*owned).weak_from_this().lock(), nullptr);
    const auto clone = std::dynamic_pointer_cast<CServerAttributes>(owned->Clone());
    EXPECT_TRUE(clone->IsEqual(*owned));
    *clone = *owned;
    clone->Reset();
    EXPECT_EQ(clone->shared_from_this(), clone);
}

TEST(AttributeTimeTests, ReadsAndWritesAsTimesJsonSays)
{
    ExpectCases(ReadCases(QUENDRA_SOURCE_DIR "/Tests/Cases/Times.json"),
                {{"read",
                  [](const Json::Value& given) {
        CAttributeTime time(kMarch2015);
        time = given[0].asString();
        return time.IsSet() ? std::to_string(time.GetTicks()) : "none";
                  }},
                 {"written", [](const Json::Value& given) { return ToNarrow(CAttributeTime(given[0].asInt64()).ToString()); }}});
    EXPECT_EQ(CAttributeTime("2015-03-02T10:20:30." + std::string(100000, '5')).GetTicks(), kMarch2015 + 5555555);
    // The C library converts a negative fraction to a large unsigned number. No server sends one; it must only not crash.
    EXPECT_TRUE(CAttributeTime("2015-03-02T10:20:30.-5Z").IsSet());
}
