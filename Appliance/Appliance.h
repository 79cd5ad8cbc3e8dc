#pragma once

/// @file
/// The sample server as one object: for the program, and for tests that want a server in their own process.

#include "ItemStore.h"
#include "Router.h"

#include <atomic>

namespace ApplianceParts
{

class Appliance
{
public:
    /// Opens the root, and creates it if it does not exist.
    /// @param output  receives the mails to the user; must outlive the appliance.
    /// @throws std::exception if the root cannot be used.
    Appliance(Options options, std::ostream& output);
    ~Appliance() { Stop(); }

    Appliance(const Appliance&) = delete;
    Appliance& operator=(const Appliance&) = delete;

    /// Serves until `Stop`. May be called once.
    /// @throws std::runtime_error if the port or the certificate cannot be used.
    void Start();

    /// Ends every connection, including waiting ones, and returns when all threads have ended.
    void Stop();

    /// Plays the options' faults, which it does from the start, or none for a while. Callable from any thread.
    void PlayFaults(bool playsThem) { m_playsFaults = playsThem; }

    [[nodiscard]] int Port() const { return m_port; }
    /// "http://127.0.0.1:PORT", or with https.
    [[nodiscard]] std::string Url() const;

private:
    Reply Serve(const Request& request);

    const Options m_options;
    LineWriter m_output;
    const StateFolder m_state;
    Feed m_feed;
    Sessions m_sessions;
    ItemStore m_items;
    Router m_router;
    int m_port;
    std::atomic<bool> m_playsFaults = true;
    std::shared_ptr<void> m_server;
};

} // namespace ApplianceParts
