#pragma once

/// @file
/// A client that synchronises a folder of its own, and knows at each moment what the server must have.

#include "World.h"

#include <iostream>
#include <random>

inline constexpr ResultCode kNotFound = Result::RefusalBase + 5;
inline constexpr ResultCode kExists = Result::RefusalBase + 7;

/// Whether an operation, or a ranged download, was refused because there was no valid session.
inline bool LacksSession(ResultCode code)
{
    return code == Result::SessionInvalid || code == Result::Retry || code == Result::RefusalBase + 401;
}

enum class Ending : std::uint8_t
{
    None,
    Closed,     ///< by `CloseRequestHandle`, while it is under way.
    Cancelled,  ///< by its event, while it is under way.
    Forestalled ///< by its event, before it begins.
};

inline std::string Content(std::size_t size, unsigned salt)
{
    std::string content(size, '\0');
    for (char& byte : content)
        byte = static_cast<char>((salt = salt * 1664525 + 1013904223) >> 24U);
    return content;
}

class SimulatedClient
{
public:
    /// @param largest  the bytes of a file.
    SimulatedClient(World& world, unsigned seed, unsigned number, unsigned largest)
        : m_world(world),
          m_instance(world.instances[number % world.instances.size()]->Api()),
          m_ownsFeed(number < world.instances.size()),
          m_number(std::to_string(seed) + '-' + std::to_string(number)),
          m_home("/home/" + m_number),
          m_tree({{m_home, {.isFolder = true}}}),
          m_largest(largest),
          m_seed(seed * 100'000 + number * 1000)
    {
    }

    /// The calls so far and what they ended in.
    [[nodiscard]] const std::string& Log() const { return m_log; }

    /// Makes the client's folder if it has none, takes steps, and compares all with what the server lists.
    void Run(unsigned steps)
    {
        Must("shake hands", ShakeHands); // a login goes on after a handshake that failed, and would ask at the wrong place
        Must("log in", LogIn());
        m_world.NoteAttempt(m_home);
        Must("create " + m_home, Call(&Api::CreateFolder, ToWide(m_home)), kExists);
        for (unsigned step = 0; step < steps; ++step)
            Do(step);
        Compare();
    }

    /// Removes what the client has made.
    void Remove() { Must("remove all", Call(&Api::DeletePath, ToWide(m_home), MakeItem(0, ""))); }

    /// Compares all with the stopped server's disk.
    void CompareFiles() { m_world.CompareFiles(m_home, m_tree); }

    /// Calls whatever there is, on items that all threads share.
    void Mix(unsigned steps)
    {
        auto all = PathOperations();
        all.merge(AllTransfers(100));
        all.erase("changes"); // its owner's alone
        all["remove"] = Call(&Api::DeletePath, L"/d/b c.txt", MakeItem(0, ""));
        all["token"] = Call(&Api::SetSessionToken, L"gone");
        all["device name"] = Call(&Api::SetDeviceName, L"another");
        all["server"] = [](Api& api, Caller&) { return api.SetServer(AddressOfServer(0).c_str()); };
        for (const char* folder : {"root/d", "root/e"})
            std::filesystem::create_directory(m_world.files / folder);
        Must("shake hands", ShakeHands); // a login goes on after a handshake that failed, and would ask at the wrong place
        Must("log in", LogIn());
        for (unsigned step = 0; step < steps; ++step)
        {
            m_random.seed(m_seed + step);
            const auto& [name, run] = *std::next(all.begin(), Random(static_cast<unsigned>(all.size())));
            const bool movesFile = IsUpload(name) || IsDownload(name);
            const auto ending = name == "list" ? Ending::Closed : movesFile ? DrawEnding() : Ending::None;
            if (m_ownsFeed)
                TakeFeed();
            else
                Attempt(name, With({.content = Content(100, 1)}, run), ending, movesFile ? "/d/a.txt" : "/d");
        }
    }

private:
    /// An upload in chunks.
    struct Chunks
    {
        std::string path;
        Node file;
        Quendra::UploadId id;
        std::int64_t sent = -1; ///< bytes; -1: it is not begun.
        std::int64_t acknowledged = 0;
    };

    unsigned Random(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }

    Ending DrawEnding()
    {
        const auto ending = Random(20);
        return ending < 13 ? Ending::None : ending < 17 ? Ending::Closed : ending < 19 ? Ending::Cancelled : Ending::Forestalled;
    }

    /// Takes a step. What is drawn depends on the seed and the step's number alone, not on what has become of the steps before.
    void Do(unsigned step)
    {
        static constexpr const char* kPlaces[] = {"/a", "/b c", "/\xC3\xBC", "/d", "/d/a", "/d/x", "/e", "/e/a"};
        m_random.seed(m_seed + step);
        const auto kind = Random(26);
        const auto path = m_home + kPlaces[Random(8)];
        const auto other = m_home + kPlaces[Random(8)];
        const auto salt = Random(1U << 30U);
        // What is uploaded; its revision is the one to replace.
        const Node file = {.content = Content(Random(8) == 0 ? Random(m_largest) : Random(3000), salt),
                           .bits = 0x20U | (salt & 3U),
                           .modified = kTime + salt * 10'000LL,
                           .revision = salt % 16 == 0 ? "stale" : RevisionOf(path)};
        if (kind < 3)
            Change("create", path, After::Create(m_tree, path), Call(&Api::CreateFolder, ToWide(path)));
        else if (kind < 7)
            Change("upload", path, After::Put(m_tree, path, file), With(file, Upload(0, ToWide(path))), DrawEnding());
        else if (kind < 12)
            SendChunk(path, file, salt);
        else if (kind < 13)
            Complete(path);
        else if (kind < 14)
            CancelChunks();
        else if (kind < 17)
            Change("move to " + other + " from", path, After::Move(m_tree, path, other, salt % 2 != 0),
                   Call(&Api::RenamePath, ToWide(path), ToWide(other), salt % 2));
        else if (kind < 19)
            Change("delete", path, After::Remove(m_tree, path), Call(&Api::DeletePath, ToWide(path), MakeItem(0, RevisionOf(path))));
        else if (kind < 21)
            Change("set attributes of", path, After::SetAttributes(m_tree, path, file),
                   Call(&Api::SetPathAttributes, ToWide(path), ItemOf(file)));
        else if (kind < 23)
            ReceiveFile(path);
        else if (kind < 24)
            Compare();
        else if (kind < 25)
            TakeFeed();
        else
            Disturb(salt);
    }

    /// One call. What it gives is in `m_caller`, and `m_isCalm` says whether nothing can have made it fail.
    /// @param closes   the key by which the request is closed.
    /// @param longest  microseconds, after which it is ended.
    ResultCode Attempt(const std::string& what, const Operation& run, Ending ending = Ending::None, const std::string& closes = {},
                       unsigned longest = 5000)
    {
        const Event event;
        m_caller = Caller();
        m_caller.item = MakeItem(0, "");
        m_caller.cancel = event;
        m_caller.local = (m_world.files / m_received).wstring();
        ++m_world.requests;
        const auto before = m_world.Disturbances();
        const auto delay = std::chrono::microseconds(Random(Random(2) == 0 ? 300 : longest));
        if (ending == Ending::Forestalled)
            event.Signal();
        ResultCode code = 0;
        {
            Gate over;
            std::jthread ender;
            if (ending == Ending::Closed || ending == Ending::Cancelled)
                ender = std::jthread([&] {
                    std::this_thread::sleep_for(delay);
                    unsigned tries = 0;
                    do
                    {
                        ending == Ending::Closed ? void(m_instance.CloseRequestHandle(ToWide(closes))) : event.Signal();
                        if (++tries == 20'000)
                            std::cout << m_log << what << " does not end" << std::endl;
                    } while (!over.Wait(std::chrono::milliseconds(1)));
                });
            code = run(m_instance, m_caller);
            over.Open();
        }
        m_isCalm = m_world.IsCalmSince(before) && ending == Ending::None;
        static constexpr const char* kEndings[] = {"", ", closed", ", cancelled", ", cancelled before"};
        m_log += "  " + what + kEndings[static_cast<int>(ending)] + ": " + std::to_string(code) + "\n";
        Check(IsDocumented(code), "the code is not documented");
        Check(ending != Ending::Forestalled || code == Result::Cancelled, "the signalled event was not seen");
        return code;
    }

    /// Repeats a call until it succeeds, or is refused as it may be.
    /// @return whether it has succeeded.
    bool Must(const std::string& what, const Operation& run, ResultCode other = Result::Success)
    {
        for (const auto start = std::chrono::steady_clock::now(); std::chrono::steady_clock::now() - start < std::chrono::seconds(30);
             m_world.Await())
        {
            const auto code = Attempt(what, run);
            if (code == Result::Success || code == other)
                return code == Result::Success;
            Check(LacksSession(code) || !m_isCalm, "nothing stood in its way");
            if (LacksSession(code))
                Attempt("log in again", LogIn());
        }
        throw std::runtime_error(what + " does not succeed any more");
    }

    [[nodiscard]] std::string RevisionOf(const std::string& path) const
    {
        const Node* const known = Find(m_tree, path);
        return known != nullptr ? known->revision : "";
    }

    /// An item of a reply, with the content that it is known to have.
    static Node Seen(const IServerAttributes& item, const std::string& content)
    {
        const bool isFolder = (item.GetAttributes() & 0x10U) != 0;
        return {isFolder, content, item.GetAttributes(), item.GetLastWriteTime().GetTicks(), item.GetRevision()};
    }

    /// What the server has in the client's folder. The content of a known revision is not fetched again.
    Tree Look()
    {
        Tree seen = {{m_home, {.isFolder = true}}};
        for (std::list<std::string> folders = {m_home}; !folders.empty(); folders.pop_front())
        {
            Must("list " + folders.front(), List(ToWide(folders.front())));
            for (const Item& child : ServerItemList(std::move(m_caller.children)))
            {
                const auto path = folders.front() + '/' + ToNarrow(child->GetName());
                const bool isKnown = !RevisionOf(path).empty() && RevisionOf(path) == child->GetRevision();
                Node node = Seen(*child, isKnown ? m_tree[path].content : "");
                if (node.isFolder)
                    folders.push_back(path);
                else if (!isKnown)
                    node.content = Fetch(path);
                Check(seen.emplace(path, node).second, path + " is listed twice");
            }
        }
        return seen;
    }

    std::string Fetch(const std::string& path)
    {
        Must("fetch " + path, Receive(path));
        auto content = m_world.files.Read(m_received);
        m_world.bytes += content.size();
        return content;
    }

    static Operation Receive(const std::string& path, const std::string& revision = {})
    {
        return [=](Api& api, Caller& caller) {
            caller.item->SetRevision(revision);
            return Download(false, ToWide(path))(api, caller);
        };
    }

    /// A call that changes the tree from the one that is known to a wanted one, or is refused if there is none.
    /// @return whether it has.
    bool Change(const std::string& what, const std::string& path, const After::Changed& wanted, const Operation& run,
                Ending ending = Ending::None)
    {
        m_world.NoteAttempt(path);
        const auto code = Attempt(what + " " + path, run, ending, path);
        if (code == Result::Success)
        {
            Check(wanted.has_value(), "the server must refuse this");
            const auto before = RevisionOf(path);
            m_tree = *wanted;
            if (const auto known = m_tree.find(path); known != m_tree.end() && m_caller.given)
            {
                const Node seen = Seen(*m_caller.given, known->second.content);
                const bool isChanged = known->second.revision.empty();
                Check(known->second.Allows(seen), "the reply has other values than were sent");
                Check(!isChanged || seen.revision != before, "a change has no revision of its own");
                known->second = seen;
            }
            return true;
        }
        Check(!m_isCalm || LacksSession(code) || !wanted, "nothing stood in its way");
        const bool isRefused = code > Result::RefusalBase && Result::IsRefusal(code); // a deletion whose reply is lost ends in 20000
        if (!isRefused)
            m_world.Fence();
        Tree seen = Look();
        const auto place = Difference(m_tree, seen);
        const bool isNew = !place.empty() && !isRefused && !LacksSession(code) && wanted && Difference(*wanted, seen).empty();
        Check(place.empty() || isNew, "the server has neither the old nor the new state at " + place);
        m_tree = std::move(seen);
        return isNew;
    }

    static Item ItemOf(const Node& file)
    {
        auto item = MakeItem(static_cast<std::int64_t>(file.content.size()), file.revision);
        item->SetLastWriteTime(CAttributeTime(file.modified));
        item->SetAttributes(file.bits);
        return item;
    }

    /// An operation that is passed the file.
    Operation With(const Node& file, const Operation& run)
    {
        return [=, this](Api& api, Caller& caller) {
            caller.local = caller.signature = m_world.files.Write("sent" + m_number, file.content);
            caller.item = ItemOf(file);
            m_world.bytes += file.content.size();
            return run(api, caller);
        };
    }

    /// How much the server has of the upload; nothing if it does not know it.
    std::optional<std::int64_t> AskForChunks()
    {
        const auto& chunks = *m_chunks;
        if (chunks.sent < 0)
            return std::nullopt;
        const bool isKnown = Must("ask for the upload", Metadata(ToWide(chunks.path), chunks.id), kNotFound);
        const auto offset = isKnown ? m_caller.offset : 0;
        Check(offset >= chunks.acknowledged && offset <= chunks.sent, "the server has lost or made up bytes of an upload");
        return isKnown ? std::optional(offset) : std::nullopt;
    }

    void SendChunk(const std::string& path, const Node& file, unsigned salt)
    {
        if (!m_chunks)
            m_chunks = Chunks{path, file, {salt, 0, 0, {static_cast<std::uint8_t>(m_number.back())}}};
        auto& chunks = *m_chunks;
        const auto size = static_cast<std::int64_t>(chunks.file.content.size());
        const auto received = AskForChunks();
        const auto offset = received.value_or(0) / (salt % 8 == 0 ? 2 : 1);
        const auto length = salt % 3 == 0 ? size - offset : std::min(size - offset, size / 3 + 1);
        chunks.sent = std::max(chunks.sent, offset + length);
        const auto send = With(chunks.file, Chunk(offset, length, received ? 0 : 1, ToWide(chunks.path), chunks.id));
        if (offset + length == size)
        {
            if (Change("last chunk of", chunks.path, After::Put(m_tree, chunks.path, chunks.file), send, DrawEnding()))
                m_chunks.reset();
        }
        else if (Attempt("chunk of " + chunks.path, send, DrawEnding(), chunks.path) == Result::Success)
            chunks.acknowledged = std::max(chunks.acknowledged, offset + length);
        else
            m_world.Fence();
    }

    /// @param to  where the file is to be.
    void Complete(const std::string& to)
    {
        if (!m_chunks)
            return;
        const auto& [path, file, id, sent, acknowledged] = *m_chunks;
        const bool isWhole = AskForChunks() == static_cast<std::int64_t>(file.content.size());
        if (Change("complete as", to, isWhole ? After::Put(m_tree, to, file, to == path) : std::nullopt,
                   Call(&Api::CompleteUpload, ToWide(path), ToWide(to), id)))
            m_chunks.reset();
    }

    void CancelChunks()
    {
        if (m_chunks)
            Must("cancel the upload", Call(&Api::CancelUpload, ToWide(m_chunks->path), m_chunks->id), kNotFound);
        m_chunks.reset();
    }

    /// A download that does not come to its end is resumed.
    void ReceiveFile(const std::string& path)
    {
        const Node* const known = Find(m_tree, path);
        const bool isFile = known != nullptr && !known->isFolder;
        static_cast<void>(m_world.files.Write(m_received, ""));
        const auto code = Attempt("download " + path, Receive(path, RevisionOf(path)), DrawEnding(), path);
        Check(isFile ? !m_isCalm || code == 0 || LacksSession(code) : code != 0, "this is not what the client knows");
        if (!isFile)
            return;
        m_world.bytes += known->content.size();
        const auto skip = m_world.files.Read(m_received).size();
        if (code != Result::Success && skip < known->content.size())
            Must("fetch the rest", Range(skip, static_cast<std::int64_t>(known->content.size() - skip), ToWide(path)));
        Check(m_world.files.Read(m_received) == known->content, "not the content that was uploaded to " + path);
    }

    void Compare()
    {
        const auto place = Difference(m_tree, Look());
        Check(place.empty(), "the server has something else at " + place + " than was acknowledged");
    }

    void TakeFeed()
    {
        if (!m_ownsFeed)
            return;
        std::wstring before;
        std::wstring after;
        m_instance.GetSessionToken(before);
        Attempt("wait for changes", Call(&Api::GetChanges), Ending::Closed, "/notifs", 25'000);
        m_instance.GetSessionToken(after);
        for (const auto* action : m_caller.actions)
            if (before == after && action->Value.starts_with(L"/home/"))
                m_world.NoteAction(before, ToNarrow(action->Value));
    }

    void Disturb(unsigned salt)
    {
        m_log += "  disturb\n";
        if (salt % 4 == 0)
            m_world.Restart();
        else if (salt % 4 == 1)
            m_instance.SetSessionToken(L"gone");
        else if (salt % 4 == 2)
            m_instance.SetServer(AddressOfServer(salt / 4).c_str());
        else
            Must("log in", LogIn());
    }

    static constexpr std::int64_t kTime = 131'000'000'000'000'000;

    World& m_world;
    Api& m_instance;
    const bool m_ownsFeed;
    const std::string m_number;
    const std::string m_home;
    const std::string m_received = "received" + m_number; ///< the file that is downloaded to.
    Tree m_tree;
    const unsigned m_largest;
    const unsigned m_seed;
    std::mt19937 m_random;
    std::optional<Chunks> m_chunks;
    Caller m_caller; ///< of the last call.
    std::string m_log;
    bool m_isCalm = false;
};
