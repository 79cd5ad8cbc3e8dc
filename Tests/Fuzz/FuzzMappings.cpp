// Replies that list mappings: any bytes as a body.

#include "FuzzSupport.h"
#include "Mapping.h"

#include "QuendraHttp/NativeHttp.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    ListenToEverything();
    std::string text = Bytes(data, size);
    std::vector<CMapping*> mappings;
    std::uint32_t count = 0;
    const FunctionTraceScope trace("FuzzMappings", Unit::NativeHttp);
    CatchJsonExceptions(trace, [&] {
        Json::Value root;
        if (ParseJson({text.data(), text.size()}, Comments::Collect, root))
            count = root.isNull() || root.isArray() ? CNativeHttp::ProcessMappingJSONArray(root, mappings)
                                                    : CNativeHttp::ProcessMappingJSONDictionary(root, mappings);
    });
    Require(count == mappings.size());
    for (const CMapping* mapping : mappings)
    {
        Require(mapping->ServerPath.starts_with(L'/') && mapping->LocalPath.empty() && mapping->AllowSharing <= 1);
        delete mapping;
    }
    return 0;
}
