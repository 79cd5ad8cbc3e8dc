// Replies of the change feed: any bytes as a body.

#include "FuzzSupport.h"
#include "NotificationAction.h"

#include "QuendraHttp/NativeHttp.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    ListenToEverything();
    std::string text = Bytes(data, size);
    std::list<CNotificationAction*> actions;
    std::uint32_t count = 0;
    const FunctionTraceScope trace("FuzzNotifications", Unit::NativeHttp);
    CatchJsonExceptions(trace, [&] {
        Json::Value root;
        if (ParseJson({text.data(), text.size()}, Comments::Collect, root))
            count = root.isNull() || root.isArray() ? CNativeHttp::ProcessNotificationJSONArray(root, actions)
                                                    : CNativeHttp::ProcessNotificationJSONDictionary(root, actions);
    });
    Require(count == actions.size());
    for (const CNotificationAction* action : actions)
    {
        Require(action->Type >= NotificationType::Unknown && action->Type <= NotificationType::Mode);
        delete action;
    }
    return 0;
}
