// Replies of the change feed: any bytes as a body.

#include "FuzzSupport.h"
#include "NotificationAction.h"
#include "Replies/FeedParsing.h"

#include "QuendraHttp/NativeHttp.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    ListenToEverything();
    std::string text = Bytes(data, size);
    std::list<CNotificationAction*> actions;
    Require(GetNotificationsFromResponse({text.data(), text.size()}, actions) == actions.size());
    for (const CNotificationAction* action : actions)
    {
        Require(action->Type >= NotificationType::Unknown && action->Type <= NotificationType::Mode);
        delete action;
    }
    return 0;
}
