#pragma once

/// @file
/// The session that `login` saves, so that later commands need neither server nor password.

#include "ServerAddress.h"

#include <filesystem>
#include <optional>
#include <string>

struct Surroundings;

/// A session and the server that it holds for. A token goes to no other server.
struct SavedSession
{
    ServerAddress server;
    std::string token;
};

/// `QUENDRA_SESSION`, else `quendra/session.json` in the user's configuration folder; empty where the system names none.
[[nodiscard]] std::filesystem::path SessionFilePath(const Surroundings& surroundings);

/// @return nothing where there is no file.
/// @throws ProgramError for a file that cannot be read or is something else.
[[nodiscard]] std::optional<SavedSession> LoadSession(const std::filesystem::path& file);

/// Writes the file so that its user alone can read it.
/// @throws ProgramError
void SaveSession(const std::filesystem::path& file, const SavedSession& session);

/// @return whether there was a session.
/// @throws ProgramError
bool ForgetSession(const std::filesystem::path& file);
