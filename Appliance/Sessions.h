#pragma once

/// @file
/// The user, the devices, and the open sessions.

#include "Feed.h"
#include "Options.h"
#include "StateFolder.h"

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
    Sessions(const Options& options, const StateFolder& state, Feed& feed);

    /// Opens a session.
    /// @throws ApiError if user, password or device token are wrong.
    [[nodiscard]] Session LogIn(const std::string& user, const std::string& password, const std::string& deviceId,
                                const std::string& deviceToken);

    [[nodiscard]] std::optional<Session> Find(const std::string& token) const;

    /// Registers a device and creates its device token.
    /// @return nothing if the device is registered already.
    /// @throws ApiError if the user is unknown.
    [[nodiscard]] std::optional<std::string> Register(const std::string& user, const std::string& deviceId);

    /// The token of a registered device.
    /// @throws ApiError if the device is not registered.
    [[nodiscard]] std::string DeviceToken(const std::string& user, const std::string& deviceId) const;

    /// Removes a device: its registration, and its sessions except the given one.
    void Forget(const std::string& deviceId, const std::string& exceptToken);

private:
    void CheckUser(const std::string& user) const;
    void Save() const;

    const Options& m_options;
    const StateFolder& m_state;
    Feed& m_feed;
    mutable std::mutex m_mutex;
    Json::Value m_saved; ///< {"sessions":[{"token":...,"user":...,"device_id":...}],"devices":{ID:TOKEN}}; the oldest session first.
};

} // namespace ApplianceParts
