#pragma once

/// @file
/// The user, the devices, and the open sessions.

#include "Feed.h"
#include "Options.h"
#include "StateFolder.h"

#include <numeric>
#include <stdexcept>
#include <utility>

namespace ApplianceParts
{

struct Session
{
    std::string token;
    std::string user;
};

/// Sessions and devices outlive the process. Safe to use from several threads.
class Sessions
{
public:
    /// @param feed  keeps actions for each session, from its login or from here on.
    Sessions(const Options& options, const StateFolder& state, Feed& feed) : m_options(options), m_state(state), m_feed(feed)
    {
        auto saved = ParseJsonObject(state.Read(kFile).value_or("{}"));
        if (!saved)
            throw std::runtime_error("cannot read " + std::string(kFile) + " in the state folder");
        m_saved = std::move(*saved);
        for (const auto& each : m_saved["sessions"])
            m_feed.Open(each["token"].asString());
    }

    /// Opens a session.
    /// @throws ApiError if user, password or device token are wrong.
    [[nodiscard]] Session LogIn(const std::string& user, const std::string& password, const std::string& deviceId,
                                const std::string& deviceToken)
    {
        if (user != m_options.user || !IsSame(password, m_options.password))
            throw ApiError(401, ErrorId::LoginRefused, "the user or the password is wrong");
        CheckDeviceId(deviceId);
        const std::lock_guard guard(m_mutex);
        const auto& device = std::as_const(m_saved)["devices"][deviceId];
        if (m_options.needsDeviceToken && (device.isNull() || !IsSame(deviceToken, device.asString())))
            throw ApiError(401, ErrorId::DeviceNotRegistered, "the device is not registered, or its device token is wrong");
        auto& sessions = m_saved["sessions"];
        if (Json::Value oldest; sessions.size() == kMostSessions && sessions.removeIndex(0, &oldest))
            m_feed.Close(oldest["token"].asString());
        const auto& added = sessions.append(JsonObject({{"token", RandomHex(kTokenDigits)}, {"user", user}, {"device_id", deviceId}}));
        Save();
        m_feed.Open(added["token"].asString());
        return ToSession(added);
    }

    [[nodiscard]] std::optional<Session> Find(const std::string& token) const
    {
        const std::lock_guard guard(m_mutex);
        for (const auto& each : m_saved["sessions"])
            if (IsSame(each["token"].asString(), token))
                return ToSession(each);
        return std::nullopt;
    }

    /// Registers a device and creates its device token.
    /// @return nothing if the device is registered already.
    /// @throws ApiError if the user is unknown.
    [[nodiscard]] std::optional<std::string> Register(const std::string& user, const std::string& deviceId)
    {
        CheckUser(user);
        CheckDeviceId(deviceId);
        const std::lock_guard guard(m_mutex);
        auto& devices = m_saved["devices"];
        if (devices.isMember(deviceId))
            return std::nullopt;
        if (devices.size() >= kMostDevices)
            throw ApiError(403, ErrorId::DeviceNotRegistered, "there are too many devices");
        auto& deviceToken = devices[deviceId];
        deviceToken = RandomHex(kTokenDigits);
        Save();
        return deviceToken.asString();
    }

    /// The token of a registered device.
    /// @throws ApiError if the device is not registered.
    [[nodiscard]] std::string DeviceToken(const std::string& user, const std::string& deviceId) const
    {
        CheckUser(user);
        const std::lock_guard guard(m_mutex);
        const auto& deviceToken = m_saved["devices"][deviceId];
        if (deviceToken.isNull())
            throw ApiError(404, ErrorId::DeviceNotRegistered, "no such device is registered");
        return deviceToken.asString();
    }

    /// Removes a device: its registration, and its sessions except the given one.
    void Forget(const std::string& deviceId, const std::string& exceptToken)
    {
        const std::lock_guard guard(m_mutex);
        m_saved["devices"].removeMember(deviceId);
        Json::Value kept(Json::arrayValue);
        for (const auto& each : m_saved["sessions"])
            if (each["device_id"] != deviceId || each["token"] == exceptToken)
                kept.append(each);
            else
                m_feed.Close(each["token"].asString());
        m_saved["sessions"] = kept;
        Save();
    }

private:
    static constexpr const char* kFile = "sessions.json";
    static constexpr std::size_t kMostSessions = 1000;
    static constexpr std::size_t kMostDevices = 1000;
    static constexpr std::size_t kLongestDeviceId = 1000; ///< bytes.
    static constexpr std::size_t kTokenDigits = 32;

    // Sessions and devices are saved with their device's id.
    static void CheckDeviceId(const std::string& deviceId)
    {
        if (deviceId.size() > kLongestDeviceId)
            throw ApiError(403, ErrorId::DeviceNotRegistered, "the device's id is too long");
    }

    // Takes constant time, so that its duration does not reveal the secret.
    static bool IsSame(const std::string& left, const std::string& right)
    {
        return left.size() == right.size() &&
               std::transform_reduce(left.begin(), left.end(), right.begin(), 0, std::bit_or<>(), std::bit_xor<>()) == 0;
    }

    static Session ToSession(const Json::Value& saved) { return {saved["token"].asString(), saved["user"].asString()}; }

    void CheckUser(const std::string& user) const
    {
        if (user != m_options.user)
            throw ApiError(404, ErrorId::NotFound, "there is no such user");
    }

    void Save() const { m_state.Write(kFile, JsonLine(m_saved)); }

    const Options& m_options;
    const StateFolder& m_state;
    Feed& m_feed;
    mutable std::mutex m_mutex;
    Json::Value m_saved; ///< {"sessions":[{"token":...,"user":...,"device_id":...}],"devices":{ID:TOKEN}}; the oldest session first.
};

} // namespace ApplianceParts
