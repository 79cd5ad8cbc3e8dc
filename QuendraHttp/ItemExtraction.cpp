#include "ItemExtraction.h"

#include "JsonLibrary.h"

#include "QuendraHttp/NativeHttp.h"

#include <utility>

std::uint32_t ExtractAttributes(const ResponseBuffer& response, ServerItemList& children, ServerItemList& self)
{
    const FunctionTraceScope trace("CNativeHttp::ExtractAttributes", Unit::NativeHttp);
    std::uint32_t added = 0;
    CatchJsonExceptions(trace, [&] {
        Json::Value root;
        if (!ParseJson(response, Comments::Skip, root))
            return;
        const bool isArray = root.isNull() || root.isArray();
        const auto process = isArray ? &CNativeHttp::ProcessJSONArray : &CNativeHttp::ProcessJSONDictionary;
        added += process(root, children, true);
        added += process(root, self, false);
    });
    return added;
}

std::shared_ptr<IServerAttributes> ExtractSingleItem(const ResponseBuffer& response)
{
    ServerItemList items;
    return ExtractAttributes(response, items, items) == 1 ? items.front() : nullptr;
}

ResultCode TakeSingleItem(const FunctionTraceScope& trace, const ResponseBuffer& response, const ItemTaking& taking,
                          std::shared_ptr<IServerAttributes>& attributes)
{
    auto item = ExtractSingleItem(response);
    if (!item)
    {
        trace.Error(taking.missing);
        return taking.whenMissing;
    }
    trace.Info(taking.taken);
    attributes = std::move(item);
    return Result::Success;
}
