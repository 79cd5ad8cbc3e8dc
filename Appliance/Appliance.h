#pragma once

/// @file
/// The sample server as one object: for the program, and for tests that want a server in their own process.

#include "Routes.h"

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

    /// Ends every connection, including waiting ones, and returns when all threads have ended. From here on nothing waits for changes.
    void Stop();

    /// Answers one request, also without `Start`: for a connection that the caller has. Callable from any thread. Does not throw.
    [[nodiscard]] Reply Answer(const Request& request);

    /// Plays the options' faults, which it does from the start, or none for a while. Callable from any thread.
    void PlayFaults(bool playsThem) { m_playsFaults = playsThem; }

    [[nodiscard]] int Port() const { return m_port; }
    /// "http://127.0.0.1:PORT", or with https.
    [[nodiscard]] std::string Url() const;

private:
    Services m_services;
    int m_port;
    std::atomic<bool> m_playsFaults = true;
    std::shared_ptr<void> m_server;
};

} // namespace ApplianceParts
