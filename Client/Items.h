#pragma once

/// @file
/// Items of the server as JSON and as text.

#include <json/json.h>

#include <memory>
#include <string>

class Client;
class IServerAttributes;

/// An item as JSON: unset values, and a missing item, are null.
[[nodiscard]] Json::Value ItemDocument(const std::shared_ptr<IServerAttributes>& item);

/// `{"item":ITEM}`
[[nodiscard]] Json::Value ItemResult(const std::shared_ptr<IServerAttributes>& item);

[[nodiscard]] bool IsDirectory(const IServerAttributes& item);

/// The item's size for people; `-` where it has none.
[[nodiscard]] std::string SizeText(const IServerAttributes& item);

/// `, revision 7`; empty if the item has none or is missing.
[[nodiscard]] std::string RevisionNote(const std::shared_ptr<IServerAttributes>& item);

/// The final path for a target: if the target is a folder, or has a trailing slash, the name is appended.
/// @throws OperationFailed if the kind of the target cannot be determined.
[[nodiscard]] std::wstring TargetIn(const Client& client, const std::wstring& target, const std::wstring& name);

/// A record with only a revision.
[[nodiscard]] std::shared_ptr<IServerAttributes> RevisionOnly(const std::string& revision);
