#include "Mapping.h"
#include "ParsingSupport.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include "QuendraHttp/NativeHttp.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace
{

// Owns what a parser appends, as its callers do.
class Mappings
{
public:
    std::uint32_t Read(const std::string& json) { return CNativeHttp::ProcessMappingJSONDictionary(ParseText(json), m_mappings); }
    std::uint32_t ReadArray(const std::string& json) { return CNativeHttp::ProcessMappingJSONArray(ParseText(json), m_mappings); }

    Mappings() = default;
    ~Mappings()
    {
        for (const CMapping* mapping : m_mappings)
            delete mapping;
    }
    Mappings(const Mappings&) = delete;
    Mappings& operator=(const Mappings&) = delete;

    // Server path, description, local path, permissions; mode, status, type, sharing.
    [[nodiscard]] std::vector<std::string> Describe() const
    {
        std::vector<std::string> texts;
        for (const CMapping* mapping : m_mappings)
            texts.push_back("'" + ToNarrow(mapping->ServerPath) + "' '" + ToNarrow(mapping->Description) + "' '" +
                            ToNarrow(mapping->LocalPath) + "' '" + ToNarrow(mapping->Permissions) + "' " +
                            std::to_string(static_cast<std::uint32_t>(mapping->Mode)) + ' ' +
                            std::to_string(static_cast<std::uint32_t>(mapping->Status)) + ' ' +
                            std::to_string(static_cast<std::uint32_t>(mapping->Type)) + ' ' + std::to_string(mapping->AllowSharing));
        return texts;
    }

private:
    std::vector<CMapping*> m_mappings;
};

using Texts = std::vector<std::string>;

} // namespace

TEST(MappingParsingTests, Entries)
{
    const struct
    {
        const char* json;
        const char* mapping;
    } cases[] = {
        {R"({"name":"Docs","mode":"automatic","status":"timeout","type":"SMB","folder_permissions":"readonly","permissions":"WRITE"})",
         "'/Docs' '' '' 'ROOT_READONLY' 2 1 0 0"},
        {R"({"name":"D\u00fc","description":"\ud83d\ude00","permissions":"write","allow_sharing":true,"type":"WebDAV","mode":"Offline"})",
         "'/D\u00fc' '\U0001F600' '' 'write' 3 2 1 1"},
        {R"({"name":"a","folder_permissions":"WRITE","permissions":"READ","status":"OK","type":"ftp","mode":"manual"})",
         "'/a' '' '' 'READ' 1 2 2 0"},
        {R"({"name":"a","status":"offline","mode":"off\u0131line"})", "'/a' '' '' '' 1 1 2 0"},
        {R"({"name":"a","status":"Inaccessible","allow_sharing":1})", "'/a' '' '' '' 1 1 2 1"},
        {R"({"name":"a","status":"BAD_credentials","allow_sharing":null})", "'/a' '' '' '' 1 1 2 0"},
        {R"({"name":5,"description":true,"allow_sharing":0.5})", "'/5' 'true' '' '' 1 2 2 1"},
        {"{}", "'/' '' '' '' 1 2 2 0"},
    };
    for (const auto& each : cases)
    {
        Mappings mappings;
        EXPECT_EQ(mappings.Read(each.json), 1U) << each.json;
        EXPECT_EQ(mappings.Describe(), Texts{each.mapping}) << each.json;
    }
}

TEST(MappingParsingTests, Containers)
{
    const std::string a = "'/a' '' '' '' 1 2 2 0";
    const std::string b = "'/b' '' '' '' 1 2 2 0";
    const struct
    {
        const char* json;
        Texts mappings;
        std::size_t errors;
    } cases[] = {
        {R"({"contents":[{"name":"a"},{"name":"b"}]})", {a, b}, 0},
        {R"({"contents":{"name":"a"}})", {a}, 0},
        {R"({"contents":{"contents":[{"name":"a"}]}})", {a}, 0},
        {R"({"contents":[],"name":"a"})", {}, 0},
        {R"({"contents":null,"name":"a"})", {}, 0},
        // An element that cannot be read adds nothing.
        {R"({"contents":[{"name":"a"},5,[],{"name":"c","allow_sharing":"yes"},{"name":{"x":1}},{"name":"b"}]})", {a, b}, 4},
        {R"({"contents":"text"})", {}, 1},
    };
    for (const auto& each : cases)
    {
        TraceCapture trace;
        Mappings mappings;
        EXPECT_EQ(mappings.Read(each.json), each.mappings.size()) << each.json;
        EXPECT_EQ(mappings.Describe(), each.mappings) << each.json;
        EXPECT_EQ(trace.Messages(EVT_ERROR).size(), each.errors) << each.json << trace;
        for (const std::string& message : trace.Messages(EVT_ERROR))
            EXPECT_TRUE(message.starts_with("JSON library has thrown a runtime_error exception (")) << message;
    }
    Mappings mappings;
    EXPECT_EQ(mappings.ReadArray(R"([{"name":"a"},{"contents":[{"name":"b"},{"name":"c"}]}])"), 3U);
}
