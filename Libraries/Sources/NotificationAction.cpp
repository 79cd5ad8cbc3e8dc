#include "NotificationAction.h"

#include "TextComparison.h"

#include <array>

NotificationType NotificationTypeFromString(std::wstring_view text)
{
    struct Name
    {
        std::wstring_view text;
        NotificationType type;
    };
    constexpr std::array<Name, 9> kNames = {{{L"create", NotificationType::Create},
                                             {L"upload", NotificationType::Upload},
                                             {L"move", NotificationType::Move},
                                             {L"copy", NotificationType::Copy},
                                             {L"rename", NotificationType::Rename},
                                             {L"delete", NotificationType::Delete},
                                             {L"policy", NotificationType::Policy},
                                             {L"update", NotificationType::Update},
                                             {L"mode", NotificationType::Mode}}};
    for (const Name& name : kNames)
        if (EqualIgnoringCase(text, name.text))
            return name.type;
    return NotificationType::Unknown;
}
