#pragma once

/// @file
/// The session that `login` saves, so that later commands need neither server nor password.

#include "ServerAddress.h"

#include <filesystem>
#include <optional>
#include <string>

/// A session and its server. The token is sent to no other server.
struct SavedSession
{
    ServerAddress server;
    std::string token;
};

/// `QUENDRA_SESSION`, else `quendra/session.json` in the user's configuration folder; empty if the system has none.
[[nodiscard]] std::filesystem::path SessionFilePath();

/// @return nothing if there is no file.
/// @throws ProgramError for a file that cannot be read or is not a session.
[[nodiscard]] std::optional<SavedSession> LoadSession(const std::filesystem::path& file);

/// Writes the file so that only its user can read it.
/// @throws ProgramError
void SaveSession(const std::filesystem::path& file, const SavedSession& session);

/// @return whether there was a session.
/// @throws ProgramError
bool ForgetSession(const std::filesystem::path& file);
