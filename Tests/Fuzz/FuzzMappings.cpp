// Replies that list mappings: any bytes as a body.

#include "FuzzSupport.h"
#include "Mapping.h"

#include "QuendraHttp/QuendraHttp.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static IQuendraHttpAPI* const api = CreateInstance(L"fuzz");
    ListenToEverything();
    std::string text = Bytes(data, size);
    std::vector<CMapping*> mappings;
    Require(api->GetMappingsFromResponse({text.data(), text.size()}, mappings) == mappings.size());
    for (const CMapping* mapping : mappings)
    {
        Require(mapping->ServerPath.starts_with(L'/') && mapping->LocalPath.empty() && mapping->AllowSharing <= 1);
        delete mapping;
    }
    return 0;
}
