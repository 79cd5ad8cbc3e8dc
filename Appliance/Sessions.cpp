#include "Sessions.h"

#include "Http.h"

#include <algorithm>
#include <stdexcept>

namespace ApplianceParts
{

namespace
{

constexpr const char* kFile = "sessions.json";
constexpr std::size_t kMostSessions = 1000;
constexpr std::size_t kTokenDigits = 32;

// Takes constant time, so that its duration does not reveal the secret.
bool IsSame(const std::string& left, const std::string& right)
{
    unsigned difference = left.size() == right.size() ? 0 : 1;
    for (std::size_t index = 0; index < std::min(left.size(), right.size()); ++index)
        difference |= static_cast<unsigned>(static_cast<unsigned char>(left[index]) ^ static_cast<unsigned char>(right[index]));
    return difference == 0;
}

} // namespace

Sessions::Sessions(const Options& options, const StateFolder& state)
    : m_user(options.user), m_password(options.password), m_mode(options.mode), m_state(state)
{
    Load();
}

Session Sessions::LogIn(const std::string& user, const std::string& password, const std::string& deviceId, const std::string& deviceToken)
{
    if (user != m_user || !IsSame(password, m_password))
        throw ApiError(401, ErrorId::LoginRefused, "the user or the password is wrong");
    const std::lock_guard guard(m_mutex);
    if (NeedsDeviceToken())
    {
        const auto device = m_deviceTokens.find(deviceId);
        if (device == m_deviceTokens.end() || !IsSame(deviceToken, device->second))
            throw ApiError(401, ErrorId::DeviceNotRegistered, "the device is not registered, or its device token is wrong");
    }
    if (m_sessions.size() == kMostSessions)
        m_sessions.pop_front();
    m_sessions.push_back({RandomHex(kTokenDigits), user, deviceId});
    Save();
    return m_sessions.back();
}

std::optional<Session> Sessions::Find(const std::string& token) const
{
    const std::lock_guard guard(m_mutex);
    const auto found = std::find_if(m_sessions.begin(), m_sessions.end(), [&](const Session& each) { return IsSame(each.token, token); });
    return found == m_sessions.end() ? std::nullopt : std::optional(*found);
}

std::vector<Session> Sessions::All() const
{
    const std::lock_guard guard(m_mutex);
    return {m_sessions.begin(), m_sessions.end()};
}

std::optional<std::string> Sessions::Register(const std::string& user, const std::string& deviceId)
{
    CheckUser(user);
    const std::lock_guard guard(m_mutex);
    const auto [device, isNew] = m_deviceTokens.try_emplace(deviceId);
    if (!isNew)
        return std::nullopt;
    device->second = RandomHex(kTokenDigits);
    Save();
    return device->second;
}

std::string Sessions::DeviceToken(const std::string& user, const std::string& deviceId) const
{
    CheckUser(user);
    const std::lock_guard guard(m_mutex);
    const auto device = m_deviceTokens.find(deviceId);
    if (device == m_deviceTokens.end())
        throw ApiError(404, ErrorId::DeviceNotRegistered, "no such device is registered");
    return device->second;
}

void Sessions::Forget(const std::string& deviceId, const std::string& exceptToken)
{
    const std::lock_guard guard(m_mutex);
    m_deviceTokens.erase(deviceId);
    std::erase_if(m_sessions, [&](const Session& each) { return each.deviceId == deviceId && each.token != exceptToken; });
    Save();
}

void Sessions::CheckUser(const std::string& user) const
{
    if (user != m_user)
        throw ApiError(404, ErrorId::NotFound, "there is no such user");
}

void Sessions::Load()
{
    const auto text = m_state.Read(kFile);
    if (!text)
        return;
    const auto value = ParseObject(*text);
    if (!value)
        throw std::runtime_error("cannot read " + std::string(kFile) + " in the state folder");
    for (const auto& each : (*value)["sessions"])
        m_sessions.push_back({each["token"].asString(), each["user"].asString(), each["device_id"].asString()});
    const auto& devices = (*value)["devices"];
    for (const auto& id : devices.getMemberNames())
        m_deviceTokens[id] = devices[id].asString();
}

void Sessions::Save() const
{
    Json::Value sessions(Json::arrayValue);
    for (const auto& each : m_sessions)
        sessions.append(JsonObject({{"token", each.token}, {"user", each.user}, {"device_id", each.deviceId}}));
    Json::Value devices(Json::objectValue);
    for (const auto& [id, token] : m_deviceTokens)
        devices[id] = token;
    m_state.Write(kFile, ToText(JsonObject({{"sessions", sessions}, {"devices", devices}})));
}

} // namespace ApplianceParts
