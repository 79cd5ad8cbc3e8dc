#pragma once

/// @file
/// What the suites of the operations share: an operation as a value, and what it delivers.

#include "Attributes.h"
#include "ParsingSupport.h"

#include "QuendraHttp/QuendraHttp.h"

#include <functional>

using Api = IQuendraHttpAPI;

/// A caller's variables; as an argument, each stands where its type is wanted.
struct Outputs
{
    std::shared_ptr<IServerAttributes> item;
    ServerItemList children;
    Actions actions;
    Mappings mappings;
    std::wstring text;

    operator std::shared_ptr<IServerAttributes>&() { return item; }
    operator std::list<CNotificationAction*>&() { return actions; }
    operator std::vector<CMapping*>&() { return mappings; }
    operator std::wstring&() { return text; }

    /// All that was delivered, as "one, another"; of items their names.
    [[nodiscard]] std::string Told() const
    {
        std::vector<std::string> all;
        for (const CNotificationAction* action : actions)
            all.push_back(Describe(*action));
        for (const CMapping* mapping : mappings)
            all.push_back(Describe(*mapping));
        for (const auto& child : children)
            all.push_back(ToNarrow(child->GetName()));
        all.push_back(item ? ToNarrow(item->GetName()) : "");
        all.push_back(ToNarrow(text));
        std::string told;
        for (const std::string& each : all)
            told += told.empty() || each.empty() ? each : ", " + each;
        return told;
    }
};

using Operation = std::function<ResultCode(Api&, Outputs&)>;

/// An operation with its arguments; an output that it has goes last.
template <typename... Parameters, typename... Arguments>
Operation Call(ResultCode (Api::*operation)(Parameters...), const Arguments&... arguments)
{
    return [=](Api& api, Outputs& outputs) {
        if constexpr (sizeof...(Arguments) < sizeof...(Parameters))
            return (api.*operation)(arguments..., outputs);
        else
            return (api.*operation)(arguments...);
    };
}

inline Operation List(const std::wstring& path)
{
    return [=](Api& api, Outputs& outputs) { return api.GetPathListing(path, outputs.children, outputs.item, nullptr); };
}

/// Delivers the policy, and behind a bar the session's token where that is not "old" any more.
inline Operation LogIn(const VersionNumber& version = {}, const VersionNumber& platform = {})
{
    return [=](Api& api, Outputs& outputs) {
        std::uint32_t value = 0;
        const ResultCode code = api.Login(L"ann", L"p&ss", L"device-token", L"host", outputs.text, value, version, platform);
        std::wstring token;
        static_cast<void>(api.GetSessionToken(token));
        outputs.text += token == L"old" ? L"" : L"|" + token;
        return code;
    };
}

inline std::shared_ptr<IServerAttributes> MakeItem(const std::string& revision)
{
    auto item = std::make_shared<CServerAttributes>();
    item->SetRevision(revision);
    item->SetAttributes(33);
    item->SetCreationTime(CAttributeTime("2020-01-02T03:04:05.6Z"));
    return item;
}
