#pragma once

/// @file
/// A client that synchronises a folder of its own, and knows at each moment what the server must have.

#include "World.h"

#include "QuendraHttp/ResultMeanings.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <malloc.h>
#include <numeric>
#include <random>

inline constexpr ResultCode kNotFound = Result::RefusalBase + 5;
inline constexpr std::int64_t kTime = 131'000'000'000'000'000;

/// Whether an operation, or a ranged download, was refused for want of a session.
inline bool LacksSession(ResultCode code)
{
    return code == Result::SessionInvalid || code == Result::Retry || code == Result::RefusalBase + 401;
}

enum class Ending : std::uint8_t
{
    None,
    Closed,     ///< by `CloseRequestHandle`, after the delay.
    Cancelled,  ///< by its event, after the delay.
    Forestalled ///< by its event, before it begins.
};

/// Ends the program: a call that was ended goes on and on.
inline bool StopAll(const std::string& what)
{
    std::cout << what << " does not end\n" << std::flush;
    std::abort();
}

/// What is drawn for a step, whatever becomes of it.
struct Draw
{
    unsigned kind = 0;
    std::string path;
    std::string other;
    unsigned salt = 0;
    std::size_t size = 0;
    Ending ending = Ending::None;
    std::chrono::microseconds delay{};
};

inline std::string Content(std::size_t size, unsigned salt)
{
    std::string content(size, '\0');
    for (char& byte : content)
        byte = static_cast<char>((salt = salt * 1664525 + 1013904223) >> 24U);
    return content;
}

class Client
{
public:
    /// @param largest  the bytes of a file.
    Client(World& world, unsigned seed, unsigned number, unsigned largest)
        : m_world(world),
          m_instance(world.instances[number % world.instances.size()]->Api()),
          m_ownsFeed(number < world.instances.size()),
          m_number(std::to_string(seed) + '-' + std::to_string(number)),
          m_home("/home/" + m_number),
          m_largest(largest),
          m_random(seed * 100 + number)
    {
    }

    /// Makes the client's folder if it has none, takes steps, and compares all with what the server lists.
    /// @return the failed check and what led to it; empty for none.
    std::string Run(unsigned steps)
    {
        return Guard([&] {
            LogInAtFirst();
            m_tree[ParentOf(m_home)].isFolder = true;
            while (!m_tree.contains(m_home))
                Change("create", {}, m_home, After::Create(m_tree, m_home), Call(&Api::CreateFolder, ToWide(m_home)));
            for (unsigned step = 0; step < steps; ++step)
                Do(DrawStep());
            Compare();
        });
    }

    /// Removes what the client has made.
    std::string Remove()
    {
        return Guard([&] {
            Caller caller;
            const auto remove = [&](Api& api, Caller& each) { return api.DeletePath(ToWide(m_home), each.item); };
            caller.item = MakeItem(0, "");
            static_cast<void>(Must("remove all", remove, caller));
        });
    }

    /// Compares all with the stopped server's disk.
    std::string CompareFiles()
    {
        return Guard([&] {
            m_tree.erase(ParentOf(m_home));
            m_world.CompareFiles(m_home, m_tree);
        });
    }

    /// Calls whatever there is, on items that all threads share.
    std::string Mix(unsigned steps)
    {
        std::vector<std::pair<std::string, Operation>> all = {
            {"/d", List(L"/d")},
            {"", LogIn()},
            {"", Call(&Api::Version)},
            {"", Call(&Api::Register, L"ann", L"host")},
            {"", Call(&Api::CreateFolder, L"/d")},
            {"", Call(&Api::GetPathAttributes, L"/d/a.txt")},
            {"", [](Api& api, Caller& caller) { return api.SetPathAttributes(L"/d/a.txt", caller.item, caller); }},
            {"", [](Api& api, Caller& caller) { return api.DeletePath(L"/d/b c.txt", caller.item); }},
            {"", Call(&Api::RenamePath, L"/d/b c.txt", L"/d/a.txt", 1U)},
            {"", Call(&Api::GetRemoteFolderMap)},
            {"", Call(&Api::AcknowledgeRemoteWipe, L"ann", L"host")},
            {"", Call(&Api::PublishSyncStats, "data")},
            {"", [](Api& api, Caller&) { return api.GenerateLink(std::make_shared<ShareRequest>()); }},
            {"", Call(&Api::SetSessionToken, L"gone")},
            {"", Call(&Api::SetDeviceName, L"another")},
            {"", [](Api& api, Caller&) { return api.SetServer(Names::New(0).c_str()); }}};
        for (const auto& [name, transfer] : AllTransfers(100))
            all.emplace_back(IsUpload(name) || IsDownload(name) ? "/d/a.txt" : "", transfer);
        return Guard([&] {
            Caller caller;
            caller.local = caller.signature = m_world.files.Write("mixed" + m_number, Content(100, 1));
            LogInAtFirst();
            for (unsigned step = 0; step < steps; ++step)
            {
                auto draw = DrawStep();
                const auto& [closes, run] = all[Random(static_cast<unsigned>(all.size()))];
                if (m_ownsFeed)
                    TakeFeed(draw);
                else
                {
                    draw.ending = closes.empty() ? Ending::None : closes == "/d" ? Ending::Closed : draw.ending;
                    static_cast<void>(Attempt("mixed", run, caller, draw, closes));
                }
                caller.item = MakeItem(100, "");
            }
        });
    }

private:
    /// An upload in chunks.
    struct Chunks
    {
        std::string path;
        Node file;
        Item item;
        std::wstring local;
        Quendra::UploadId id;
        std::string revision;
        bool isBegun = false;
        bool mayBeGone = false;
        std::int64_t acknowledged = 0; ///< bytes.
        std::int64_t sent = 0;
    };

    std::string Guard(const std::function<void()>& run) const
    {
        try
        {
            run();
            return {};
        }
        catch (const Violation& violation)
        {
            return "client " + m_number + ":\n" + m_log + "  " + violation.what() + "\n";
        }
    }

    void LogInAtFirst()
    {
        Caller caller;
        // A login goes on after a failed handshake, and would ask at the wrong place.
        const auto shakeHands = [](Api& api, Caller&) {
            std::uint32_t mode = 0;
            std::uint32_t value = 0;
            return api.Init(mode, value);
        };
        static_cast<void>(Must("shake hands", shakeHands, caller));
        static_cast<void>(Must("log in", LogIn(), caller));
    }

    unsigned Random(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }

    Draw DrawStep()
    {
        static constexpr const char* kPlaces[] = {"/a", "/b c", "/\xC3\xBC", "/d", "/d/a", "/d/x", "/e", "/e/a"};
        Draw draw{Random(26), m_home + kPlaces[Random(8)], m_home + kPlaces[Random(8)], Random(1U << 30U)};
        draw.size = Random(8) == 0 ? Random(m_largest) : Random(3000);
        const auto ending = Random(20);
        draw.ending = ending < 13 ? Ending::None : ending < 17 ? Ending::Closed : ending < 19 ? Ending::Cancelled : Ending::Forestalled;
        draw.delay = std::chrono::microseconds(Random(Random(2) == 0 ? 300 : 5000));
        return draw;
    }

    void Do(const Draw& draw)
    {
        const auto kind = draw.kind;
        const auto path = ToWide(draw.path);
        const auto item = MakeItem(0, Find(m_tree, draw.path).value_or(Node()).revision);
        if (kind < 3)
            Change("create", {}, draw.path, After::Create(m_tree, draw.path), Call(&Api::CreateFolder, path));
        else if (kind < 7)
            SendFile(draw);
        else if (kind < 12)
            SendChunk(draw);
        else if (kind < 13)
            Complete(draw);
        else if (kind < 14)
            CancelChunks();
        else if (kind < 17)
            Change("move to " + draw.other, {}, draw.path, After::Move(m_tree, draw.path, draw.other, draw.salt % 2 != 0),
                   Call(&Api::RenamePath, path, ToWide(draw.other), draw.salt % 2), draw.other);
        else if (kind < 19)
            Change("delete", {}, draw.path, After::Remove(m_tree, draw.path),
                   [&](Api& api, Caller&) { return api.DeletePath(path, item); });
        else if (kind < 21)
            SetAttributes(draw);
        else if (kind < 23)
            ReceiveFile(draw);
        else if (kind < 24)
            Compare();
        else if (kind < 25)
            TakeFeed(draw);
        else
            Disturb(draw);
    }

    /// One call. `m_isCalm` then says whether nothing can have made it fail.
    ResultCode Attempt(const std::string& what, const Operation& run, Caller& caller, const Draw& draw = {}, const std::string& closes = {})
    {
        const Event event;
        caller.cancel = event;
        ++m_world.requests;
        const auto before = m_world.Disturbances();
        ResultCode code = 0;
        if (draw.ending == Ending::Forestalled)
            event.Signal();
        {
            Gate over;
            std::jthread ender;
            if (draw.ending == Ending::Closed || draw.ending == Ending::Cancelled)
                ender = std::jthread([&, start = std::chrono::steady_clock::now()] {
                    while (std::chrono::steady_clock::now() - start < draw.delay)
                        continue;
                    unsigned tries = 0;
                    do
                        draw.ending == Ending::Closed ? void(m_instance.CloseRequestHandle(ToWide(closes))) : event.Signal();
                    while (!over.Wait(std::chrono::milliseconds(1)) && (++tries < 20'000 || StopAll(what)));
                });
            code = run(m_instance, caller);
            over.Open();
        }
        m_isCalm = m_world.IsCalmSince(before) && draw.ending == Ending::None;
        static constexpr const char* kEndings[] = {"", ", closed", ", cancelled", ", cancelled before"};
        m_log += "  " + what + kEndings[static_cast<int>(draw.ending)] + ": " + std::to_string(code) + "\n";
        Check(!Result::MeaningOf(code).empty(), "the code is not documented");
        Check(draw.ending != Ending::Forestalled || code == Result::Cancelled, "the signalled event was not seen");
        return code;
    }

    /// Repeats a call until it succeeds, or is refused as it may be.
    ResultCode Must(const std::string& what, const Operation& run, Caller& caller, ResultCode other = Result::Success)
    {
        for (const auto start = std::chrono::steady_clock::now(); std::chrono::steady_clock::now() - start < std::chrono::seconds(30);
             m_world.Await())
        {
            caller.children.clear();
            const auto code = Attempt(what, run, caller);
            if (code == Result::Success || code == other)
                return code;
            const bool lacksSession = LacksSession(code);
            Check(lacksSession || !m_isCalm, "nothing stood in its way");
            Caller another;
            if (lacksSession)
                static_cast<void>(Attempt("log in again", LogIn(), another));
        }
        throw Violation(what + " does not succeed any more");
    }

    Node Seen(const IServerAttributes& item)
    {
        const bool isFolder = (item.GetAttributes() & 0x10U) != 0;
        return {isFolder, {}, item.GetAttributes(), item.GetLastWriteTime().GetTicks(), item.GetRevision()};
    }

    /// What the server has at a path.
    std::optional<Node> Look(const std::string& path)
    {
        Caller caller;
        if (Must("look at " + path, Call(&Api::GetPathAttributes, ToWide(path)), caller, kNotFound) != Result::Success)
            return std::nullopt;
        Node seen = Seen(*caller.given);
        if (!seen.isFolder)
            seen.content = Fetch(path);
        return seen;
    }

    std::string Fetch(const std::string& path)
    {
        Caller caller;
        caller.local = (m_world.files / ("fetched" + m_number)).wstring();
        static_cast<void>(Must("fetch " + path, Receive(path, nullptr), caller));
        auto content = m_world.files.Read("fetched" + m_number);
        m_world.bytes += content.size();
        return content;
    }

    Operation Receive(const std::string& path, const Item& item)
    {
        return [=](Api& api, Caller& caller) {
            return api.DownloadFile(ToWide(path), caller.local, item, caller.given, L"", caller.cancel, caller.progress);
        };
    }

    /// A call that changes the tree from the one that is known to a wanted one, or is refused if there is none.
    /// @return whether it has.
    bool Change(const std::string& what, const Draw& draw, const std::string& path, const After::Changed& wanted, const Operation& run,
                const std::string& target = {})
    {
        Caller caller;
        m_world.NoteAttempt(path);
        m_code = Attempt(what + " " + path, run, caller, draw, path);
        if (m_code == Result::Success)
        {
            Check(wanted.has_value(), "the server must refuse this");
            m_tree = *wanted;
            if (const auto known = m_tree.find(target.empty() ? path : target); known != m_tree.end() && caller.given)
            {
                Node seen = Seen(*caller.given);
                seen.content = known->second.content;
                Check(known->second.Allows(seen), "the reply has other values than were sent");
                known->second = seen;
            }
            return true;
        }
        const bool lacksSession = LacksSession(m_code);
        const bool isRefused = m_code > Result::RefusalBase && (m_code & 0x80000000U) == 0;
        Check(!m_isCalm || lacksSession || !wanted, "nothing stood in its way");
        if (!isRefused)
            m_world.Fence();
        Tree news = wanted.value_or(m_tree);
        Tree all = m_tree;
        all.insert(news.begin(), news.end());
        bool isOld = true;
        bool isNew = wanted.has_value() && !isRefused && !lacksSession;
        for (const auto& [each, node] : all)
            if (Find(m_tree, each) != Find(news, each))
            {
                const auto seen = Look(each);
                isOld = isOld && Allows(Find(m_tree, each), seen);
                isNew = isNew && Allows(Find(news, each), seen);
                if (seen)
                    news[each] = *seen;
            }
        Check(isOld || isNew, "the server has neither the old nor the new state");
        if (!isOld)
            m_tree = std::move(news);
        return !isOld;
    }

    /// A file to send: what it is on the server, and what the caller of an upload passes.
    std::tuple<Node, Item, std::wstring> Prepare(const Draw& draw, const std::string& name)
    {
        const auto revision = Find(m_tree, draw.path).value_or(Node()).revision;
        Node file{.content = Content(draw.size, draw.salt), .bits = 0x20U | (draw.salt & 3U), .modified = kTime + draw.salt * 10'000LL};
        const auto item = MakeItem(static_cast<std::int64_t>(draw.size), draw.salt % 16 == 0 ? "stale" : revision);
        item->SetLastWriteTime(CAttributeTime(file.modified));
        item->SetAttributes(file.bits);
        m_world.bytes += draw.size;
        return {file, item, m_world.files.Write(name + m_number, file.content)};
    }

    void SendFile(const Draw& draw)
    {
        const auto [file, item, local] = Prepare(draw, "sent");
        Change("upload", draw, draw.path, After::Put(m_tree, draw.path, file, item->GetRevision()),
               ReplacingItem([&, &local = local, &item = item](Api& api, Caller& caller) {
                   caller.item = item;
                   const std::uint32_t delta = 0;
                   return api.UploadFile(local, ToWide(draw.path), caller.item, &delta, caller.cancel, caller.progress);
               }));
    }

    /// How much the server has of the upload; nothing if it does not know it.
    std::optional<std::int64_t> AskForChunks()
    {
        std::int64_t offset = -1;
        Caller caller;
        const auto ask = [&](Api& api, Caller&) {
            std::uint32_t locked = 0;
            return api.GetResumableUploadMetadata(ToWide(m_chunks->path), m_chunks->id, &offset, &locked);
        };
        if (Must("ask for the upload", ask, caller, kNotFound) != Result::Success)
        {
            Check(m_chunks->acknowledged == 0 || m_chunks->mayBeGone, "the server has lost an upload");
            return std::nullopt;
        }
        Check(offset >= m_chunks->acknowledged && offset <= m_chunks->sent, "the server has lost or made up bytes of an upload");
        return offset;
    }

    void SendChunk(const Draw& draw)
    {
        if (!m_chunks)
        {
            const auto [file, item, local] = Prepare(draw, "chunks");
            m_chunks = Chunks{draw.path, file, item, local, {draw.salt, 0, 0, {}}, item->GetRevision()};
            m_chunks->id.Data4[0] = static_cast<std::uint8_t>(m_number.back());
        }
        auto& chunks = *m_chunks;
        const auto size = static_cast<std::int64_t>(chunks.file.content.size());
        const auto received = chunks.isBegun ? AskForChunks() : std::nullopt;
        const bool begins = !received;
        chunks.acknowledged = begins ? 0 : chunks.acknowledged;
        const auto offset = begins ? 0 : draw.salt % 8 == 0 ? *received / 2 : *received;
        const auto length = draw.salt % 3 == 0 ? size - offset : std::min(size - offset, size / 3 + 1);
        const bool ends = offset + length == size;
        chunks.isBegun = true;
        chunks.sent = std::max(chunks.sent, offset + length);
        const auto send = ReplacingItem([&](Api& api, Caller& caller) {
            auto bytes = length;
            caller.item = chunks.item;
            return api.ResumableUpload(chunks.local, ToWide(chunks.path), caller.item, chunks.id, &offset, &bytes, begins ? 1 : 0,
                                       caller.cancel, caller.progress);
        });
        if (ends)
        {
            if (Change("last chunk of", draw, chunks.path, After::Put(m_tree, chunks.path, chunks.file, chunks.revision), send))
                m_chunks.reset();
            return;
        }
        Caller caller;
        if (Attempt("chunk of " + chunks.path, send, caller, draw, chunks.path) == Result::Success)
            chunks.acknowledged = std::max(chunks.acknowledged, offset + length);
        else
            m_world.Fence();
    }

    void Complete(const Draw& draw)
    {
        if (!m_chunks || !m_chunks->isBegun)
            return;
        const auto received = AskForChunks();
        const bool isWhole = received == static_cast<std::int64_t>(m_chunks->file.content.size());
        const auto revision = draw.path == m_chunks->path ? std::optional(m_chunks->revision) : std::nullopt;
        const auto wanted = isWhole ? After::Put(m_tree, draw.path, m_chunks->file, revision) : std::nullopt;
        if (Change("complete as", {}, draw.path, wanted,
                   Call(&Api::CompleteUpload, ToWide(m_chunks->path), ToWide(draw.path), m_chunks->id)))
            m_chunks.reset();
    }

    void CancelChunks()
    {
        if (!m_chunks)
            return;
        m_chunks->mayBeGone = true;
        Caller caller;
        const auto path = ToWide(m_chunks->path);
        if (Attempt("cancel the upload", Call(&Api::CancelUpload, path, m_chunks->id), caller) == Result::Success)
            m_chunks.reset();
        else
            m_world.Fence();
    }

    void SetAttributes(const Draw& draw)
    {
        auto wanted = m_tree.contains(draw.path) ? std::optional(m_tree) : std::nullopt;
        const auto [file, item, local] = Prepare(draw, "unused");
        if (wanted)
        {
            auto& node = (*wanted)[draw.path];
            node = {node.isFolder, node.content, file.bits | (node.isFolder ? 0x10U : 0U), file.modified};
        }
        Change("set attributes of", {}, draw.path, wanted,
               [&, &item = item](Api& api, Caller& caller) { return api.SetPathAttributes(ToWide(draw.path), item, caller.given); });
    }

    /// A download that does not come to its end is resumed.
    void ReceiveFile(const Draw& draw)
    {
        const auto known = m_tree.find(draw.path);
        const bool isFile = known != m_tree.end() && !known->second.isFolder;
        const auto name = "received" + m_number;
        Caller caller;
        caller.local = m_world.files.Write(name, "");
        const auto item = MakeItem(0, isFile ? known->second.revision : "");
        const auto code = Attempt("download " + draw.path, Receive(draw.path, item), caller, draw, draw.path);
        Check(isFile ? !m_isCalm || code == 0 || LacksSession(code) : code != 0, "this is not what the client knows");
        if (!isFile)
            return;
        const auto& content = known->second.content;
        m_world.bytes += content.size();
        const std::uint64_t skip = m_world.files.Read(name).size();
        const auto rest = static_cast<std::int64_t>(content.size() - skip);
        if (code != Result::Success && rest > 0)
            static_cast<void>(Must(
                "fetch the rest",
                [&](Api& api, Caller& more) {
                return api.DownloadData(ToWide(draw.path), caller.local, item, more.given, &skip, &rest, more.cancel, more.progress);
                },
                caller));
        Check(m_world.files.Read(name) == content, "not the content that was uploaded to " + draw.path);
    }

    /// Compares all listings with the tree.
    void Compare()
    {
        for (const auto& each : m_tree)
        {
            const std::string& folder = each.first;
            if (!each.second.isFolder || !folder.starts_with(m_home))
                continue;
            Caller caller;
            static_cast<void>(Must("list " + folder, List(ToWide(folder)), caller));
            const auto children = std::ranges::count_if(m_tree, [&](const auto& item) { return ParentOf(item.first) == folder; });
            Check(static_cast<std::size_t>(children) == caller.children.size(), "the listing has other items");
            for (const Item& child : caller.children)
            {
                const auto known = m_tree.find(folder + '/' + ToNarrow(child->GetName()));
                Check(known != m_tree.end(), "there is an item that nobody made");
                Node seen = Seen(*child);
                seen.content = known->second.content;
                Check(known->second.Allows(seen), known->first + " has other values than were acknowledged");
            }
        }
    }

    void TakeFeed(Draw draw)
    {
        if (!m_ownsFeed)
            return;
        draw.ending = Ending::Closed;
        draw.delay *= 5;
        std::wstring before;
        std::wstring after;
        Caller caller;
        m_instance.GetSessionToken(before);
        static_cast<void>(Attempt("wait for changes", Call(&Api::GetChanges), caller, draw, "/notifs"));
        m_instance.GetSessionToken(after);
        for (const auto* action : caller.actions)
            if (before == after && action->Value.starts_with(L"/home/"))
                m_world.NoteAction(before, ToNarrow(action->Value));
    }

    void Disturb(const Draw& draw)
    {
        m_log += "  disturb\n";
        if (draw.salt % 4 == 0)
            m_world.Restart();
        else if (draw.salt % 4 == 1)
            m_instance.SetSessionToken(L"gone");
        else if (draw.salt % 4 == 2)
            m_instance.SetServer(Names::New(draw.salt / 4 % 3).c_str());
        else
        {
            Caller caller;
            static_cast<void>(Must("log in", LogIn(), caller));
        }
    }

    World& m_world;
    Api& m_instance;
    const bool m_ownsFeed;
    const std::string m_number;
    const std::string m_home;
    const unsigned m_largest;
    std::mt19937 m_random;
    Tree m_tree;
    std::optional<Chunks> m_chunks;
    std::string m_log;
    ResultCode m_code = Result::Success;
    bool m_isCalm = false;
};
