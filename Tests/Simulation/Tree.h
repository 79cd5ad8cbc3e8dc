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

    /// Whether the server's item is the one that is expected.
    [[nodiscard]] bool Allows(const Node& seen) const
    {
        return isFolder == seen.isFolder && content == seen.content && (bits == 0 || bits == seen.bits) &&
               (modified == 0 || modified == seen.modified) && (revision.empty() || revision == seen.revision);
    }
};

/// Items by their server path in UTF-8.
using Tree = std::map<std::string, Node>;

/// @return null if there is none.
inline const Node* Find(const Tree& tree, const std::string& path)
{
    const auto found = tree.find(path);
    return found == tree.end() ? nullptr : &found->second;
}

inline bool HasFolder(const Tree& tree, const std::string& path)
{
    const Node* const node = Find(tree, path);
    return node != nullptr && node->isFolder;
}

inline std::string ParentOf(const std::string& path)
{
    return path.substr(0, path.rfind('/'));
}

/// @return where the tree that is seen is not the one that is expected; empty: nowhere.
inline std::string Difference(const Tree& expected, const Tree& seen)
{
    for (const auto& [path, node] : expected)
        if (const Node* const found = Find(seen, path); found == nullptr || !node.Allows(*found))
            return path;
    for (const auto& [path, node] : seen)
        if (!expected.contains(path))
            return path;
    return {};
}

/// The tree after a change, as the server makes it; nothing if it must refuse.
namespace After
{
using Changed = std::optional<Tree>;

inline Changed Create(Tree tree, const std::string& path)
{
    return HasFolder(tree, ParentOf(path)) && tree.emplace(path, Node{.isFolder = true}).second ? Changed(tree) : std::nullopt;
}

/// @param file  its revision is the one to replace; empty: any.
inline Changed Put(Tree tree, const std::string& path, const Node& file, bool mayReplace = true)
{
    const Node* const old = Find(tree, path);
    const bool isRefused = old != nullptr && (old->isFolder || !mayReplace || (!file.revision.empty() && file.revision != old->revision));
    if (isRefused || !HasFolder(tree, ParentOf(path)))
        return std::nullopt;
    tree[path] = {false, file.content, file.bits, file.modified};
    return tree;
}

inline Changed SetAttributes(Tree tree, const std::string& path, const Node& values)
{
    const Node* const old = Find(tree, path);
    if (old == nullptr)
        return std::nullopt;
    tree[path] = {old->isFolder, old->content, values.bits | (old->isFolder ? 0x10U : 0U), values.modified};
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
    const Node* const source = Find(tree, from);
    const Node* const target = Find(tree, to);
    if (source == nullptr || to.starts_with(from + '/') || !HasFolder(tree, ParentOf(to)))
        return std::nullopt;
    if (from == to)
        return tree;
    const bool isInPlace = ParentOf(from) == ParentOf(to);
    if (target != nullptr && (!(mayOverwrite || isInPlace) || source->isFolder || target->isFolder))
        return std::nullopt;
    Tree moved = *Remove(tree, from);
    for (const auto& [path, node] : tree)
        if (path == from || path.starts_with(from + '/'))
            moved[to + path.substr(from.size())] = node;
    return moved;
}
} // namespace After
