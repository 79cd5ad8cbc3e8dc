#pragma once

/// @file
/// The server's tree as a client knows it, and what the server makes of each change.

#include <cstdint>
#include <map>
#include <optional>
#include <string>

/// An item as a client knows it. What a change leaves open (the revision, and all of a new folder but its kind) is empty.
struct Node
{
    bool isFolder = false;
    std::string content = {};
    std::uint32_t bits = 0;
    std::int64_t modified = 0;
    std::string revision = {};

    bool operator==(const Node&) const = default;

    /// Whether the server's item is the one that is expected.
    [[nodiscard]] bool Allows(const Node& seen) const
    {
        return isFolder == seen.isFolder && content == seen.content && (bits == 0 || bits == seen.bits) &&
               (modified == 0 || modified == seen.modified) && (revision.empty() || revision == seen.revision);
    }
};

/// Items by their server path in UTF-8.
using Tree = std::map<std::string, Node>;

inline std::optional<Node> Find(const Tree& tree, const std::string& path)
{
    const auto found = tree.find(path);
    return found == tree.end() ? std::nullopt : std::optional(found->second);
}

/// Whether what the server has at a path is what is expected there.
inline bool Allows(const std::optional<Node>& expected, const std::optional<Node>& seen)
{
    return expected && seen ? expected->Allows(*seen) : !expected && !seen;
}

inline std::string ParentOf(const std::string& path)
{
    return path.substr(0, path.rfind('/'));
}

inline bool HasFolder(const Tree& tree, const std::string& path)
{
    return Find(tree, path).value_or(Node()).isFolder;
}

/// The tree after a change, as the server makes it; nothing if it must refuse.
namespace After
{
using Changed = std::optional<Tree>;

inline Changed Create(Tree tree, const std::string& path)
{
    return HasFolder(tree, ParentOf(path)) && tree.emplace(path, Node{.isFolder = true}).second ? Changed(tree) : std::nullopt;
}

/// @param revision  the one to replace; empty: any; nothing: there must be no item.
inline Changed Put(Tree tree, const std::string& path, const Node& file, const std::optional<std::string>& revision)
{
    const auto old = tree.find(path);
    if (!HasFolder(tree, ParentOf(path)) || HasFolder(tree, path) ||
        (old != tree.end() && (!revision || (!revision->empty() && *revision != old->second.revision))))
        return std::nullopt;
    tree[path] = file;
    return tree;
}

inline Changed Remove(Tree tree, const std::string& path)
{
    const bool exists = tree.erase(path) != 0;
    std::erase_if(tree, [&](const auto& each) { return each.first.starts_with(path + '/'); });
    return exists ? Changed(tree) : std::nullopt;
}

inline Changed Move(const Tree& tree, const std::string& from, const std::string& to, bool mayOverwrite)
{
    const auto source = tree.find(from);
    const auto target = tree.find(to);
    if (source == tree.end() || to.starts_with(from + '/') || !HasFolder(tree, ParentOf(to)))
        return std::nullopt;
    if (from == to)
        return tree;
    const bool isInPlace = ParentOf(from) == ParentOf(to);
    if (target != tree.end() && (!(mayOverwrite || isInPlace) || source->second.isFolder || target->second.isFolder))
        return std::nullopt;
    Tree moved = *Remove(tree, from);
    for (const auto& [path, node] : tree)
        if (path == from || path.starts_with(from + '/'))
            moved[to + path.substr(from.size())] = node;
    return moved;
}
} // namespace After
