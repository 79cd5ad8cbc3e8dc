// Replies that describe items: any bytes as a body.

#include "Attributes.h"
#include "FuzzSupport.h"
#include "Replies/ItemParsing.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    ListenToEverything();
    std::string text = Bytes(data, size);
    ServerItemList children;
    ServerItemList self;
    const std::uint32_t count = ExtractAttributes({text.data(), text.size()}, children, self);
    Require(count == children.size() + self.size());
    for (const ServerItemList* list : {&children, &self})
        for (const auto& record : *list)
        {
            Require(record->HasSize());
            Require(record->GetName().empty() || record->GetName().back() != L'/');
            Require(record->IsEqual(static_cast<const IServerAttributes&>(*record->Clone())));
            Require(!record->GetCreationTime().ToString().empty());
        }
    return 0;
}
