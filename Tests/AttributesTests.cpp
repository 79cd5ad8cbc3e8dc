#include "Attributes.h"
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

// One change for every field of a record; the four times lead. Texts come in both cases, since they compare with it.
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

TEST(AttributeTimeTests, ReadsServerTexts)
{
    const std::pair<std::string, std::int64_t> cases[] = {
        // The fraction: always in ticks, whatever its length.
        {"2015-03-02T10:20:30.1234567Z", kMarch2015 + 1234567},
        {"2015-03-02T10:20:30.Z", kMarch2015},
        {"2015-03-02T10:20:30.123456789Z", kMarch2015 + 1234567},
        // The end of the text.
        {"2015-03-02T10:20:30.5", kMarch2015 + 5000000},
        {"2015-03-02T10:20:30.5ZZ", kMarch2015 + 5000000},
        {"2015-03-02T10:20:30.5+01:00", kMarch2015 + 5}, // anything else there ends the digits, and is not understood
        {std::string("2015-03-02T10:20:30.5Z\0junk", 27), kMarch2015 + 5000000},
        // Edges of the scale and of the calendar.
        {"1601-01-01T00:00:00.0000001Z", 1},
        {"1969-12-31T23:59:59.9999999Z", 116444735999999999},
        {"2000-02-29T12:00:00.0Z", 125962992000000000},
        {"9999-12-31T23:59:59.9999999Z", 2650467743999999999},
        {"30827-12-31T23:59:59.9999999Z", 9223149887999999999},
        // Impossible dates count as the start of the scale; of the fraction, what is below the millisecond stays.
        {"2015-13-02T10:20:30.5Z", 0},
        {"2015-02-30T10:20:30.1234567Z", 4567},
        {"2015-03-02T24:20:30.5Z", 0},
        {"2015-03-02T10:60:30.5Z", 0},
        {"2015-03-02T10:20:60.5Z", 0},
        {"1600-12-31T10:20:30.5Z", 0},
        // Numbers as the C library reads them: any width, white space before them, signs.
        {"2015-3-2T10:20:30.5Z", kMarch2015 + 5000000},
        {" \t\n2015- 03-\v02T\f10: 20:\r30. 5Z", kMarch2015 + 5000000},
        {"+2015-+3-+2T+10:+20:+30.+5Z", kMarch2015 + 500000}, // the fraction's sign is one of its seven characters
        {"-2015-03-02T10:20:30.5Z", 0},
        // Calendar fields have 16 bits.
        {"67551-03-02T10:20:30.5Z", kMarch2015 + 5000000},
        {"99999999999999999999999999999999-03-02T10:20:30.5Z", 0},
        {"2015-03-02T10:20:30." + std::string(100000, '5'), kMarch2015 + 5555555},
    };
    TraceCapture trace;
    for (const auto& [text, ticks] : cases)
        EXPECT_EQ(CAttributeTime(text).GetTicks(), ticks) << text.substr(0, 100);
    EXPECT_EQ(trace.Messages(EVT_ERROR), std::vector<std::string>());
}

TEST(AttributeTimeTests, TracesATextThatIsNoTime)
{
    for (const std::string text : {"", "Z", "2015-03-02", "yesterday", "\xff\xfe",
                                   "2015-03-02T10:20:30Z", // no fraction
                                   "2015/03-02T10:20:30.1234567Z", "2015-03/02T10:20:30.1234567Z", "2015-03-02t10:20:30.1234567Z",
                                   "2015-03-02T10.20:30.1234567Z", "2015-03-02T10:20.30.1234567Z", "2015-03-02T10:20:30,1234567Z",
                                   "2015 -03-02T10:20:30.5Z", "2015-03-02T10:20:.5Z", "2015-03-02T10:20:30Z.5", "2015-03-02T10:20:30.x",
                                   "2015-03-02T10:20:30.+Zx", "2015-0x3-02T10:20:30.5Z", "- 2015-03-02T10:20:30.5Z"})
    {
        TraceCapture trace;
        CAttributeTime time(kMarch2015);
        time = text;
        EXPECT_EQ(time.GetTicks(), CAttributeTime::kUnset) << text;
        EXPECT_EQ(trace.Messages(EVT_ERROR), std::vector<std::string>{"Error: [" + text + "] is not a valid time"});
    }
    // A negative fraction wraps like the C library's unsigned conversion does: nobody sends it, but nothing may break.
    EXPECT_TRUE(CAttributeTime("2015-03-02T10:20:30.-5Z").IsSet());
}

TEST(AttributeTimeTests, WritesTimes)
{
    const std::pair<std::int64_t, const wchar_t*> cases[] = {
        {CAttributeTime::kUnset, L"INVALID"},
        {0, L"1601-01-01T00:00:00.000Z"},
        {kMarch2015 + 1239999, L"2015-03-02T10:20:30.123Z"},
        {116444735999999999, L"1969-12-31T23:59:59.999Z"},
        {125962992000000000, L"2000-02-29T12:00:00.000Z"},
        {-1, L"0000-00-00T00:00:00.000Z"}, // below the scale there is no date
        {9223149887999999999, L"30827-12-31T23:59:59.999Z"},
    };
    for (const auto& [ticks, text] : cases)
        EXPECT_EQ(CAttributeTime(ticks).ToString(), text);
}
