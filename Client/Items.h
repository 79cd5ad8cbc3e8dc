#pragma once

/// @file
/// Items of the server as documents and as text.

#include <json/json.h>

#include <memory>
#include <string>

class Client;
class IServerAttributes;

/// An item as JSON: unset values, and an item that there is none of, are null.
[[nodiscard]] Json::Value ItemDocument(const std::shared_ptr<IServerAttributes>& item);

/// `{"item":ITEM}`
[[nodiscard]] Json::Value ItemResult(const std::shared_ptr<IServerAttributes>& item);

[[nodiscard]] bool IsDirectory(const IServerAttributes& item);

/// The item's size for people; `-` where it has none.
[[nodiscard]] std::string SizeText(const IServerAttributes& item);

/// `, revision 7`; empty where the item has none or there is no item.
[[nodiscard]] std::string RevisionNote(const std::shared_ptr<IServerAttributes>& item);

/// Where something comes to that goes to a target: a folder, or a path with a slash behind it, gets the name.
/// @throws OperationFailed where it cannot be found out what the target is.
[[nodiscard]] std::wstring TargetIn(const Client& client, const std::wstring& target, const std::wstring& name);

/// A record that names nothing but a revision.
[[nodiscard]] std::shared_ptr<IServerAttributes> RevisionOnly(const std::string& revision);
