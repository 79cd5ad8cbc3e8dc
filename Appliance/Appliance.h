#pragma once

/// @file
/// The sample server as one object: for the program, and for tests that want a server in their own process.

#include "Options.h"

#include <iosfwd>
#include <memory>
#include <string>

class Appliance
{
public:
    /// Opens the root, and creates it if it does not exist.
    /// @param output  receives the mails to the user; must outlive the appliance.
    /// @throws std::exception if the root or the certificate cannot be used.
    Appliance(const ApplianceParts::Options& options, std::ostream& output);
    ~Appliance();

    Appliance(const Appliance&) = delete;
    Appliance& operator=(const Appliance&) = delete;

    /// Serves until `Stop`. May be called once.
    /// @returns the port.
    /// @throws std::runtime_error if the port cannot be used.
    int Start();

    /// Ends every connection, including waiting ones, and returns when all threads have ended.
    void Stop();

    [[nodiscard]] int Port() const { return m_port; }
    /// "http://127.0.0.1:PORT", or with https.
    [[nodiscard]] std::string Url() const;

private:
    struct Parts;

    std::unique_ptr<Parts> m_parts;
    bool m_isSecure;
    int m_requestedPort;
    int m_port = 0;
};
