#pragma once

/// @file
/// Transfers over real sockets: a caller's files, and what becomes of every transfer whose connection ends on the way.

#include "LibraryOverWire.h"
#include "Operations.h"
#include "TraceCapture.h"
#include "Tracing.h"
#include "TransferSupport.h"

#include <algorithm>
#include <optional>

/// Larger than what the system's socket buffers take.
inline constexpr std::uint64_t kLarge = 48 << 20;

class TransferWire : public testing::Test
{
protected:
    /// A caller whose files are there: what uploads send and what downloads write into.
    /// @param size  of a larger file, which is sparse where the file system can.
    [[nodiscard]] Caller CallerWith(const std::string& content, std::uint64_t size = 0) const
    {
        Caller caller;
        caller.signature = folder.Write("sent", content);
        caller.local = folder.Write("target", "b");
        std::filesystem::resize_file(caller.signature, std::max<std::uint64_t>(size, content.size()));
        caller.item = MakeItem(static_cast<std::int64_t>(std::filesystem::file_size(caller.signature)));
        return caller;
    }

    /// Uploads send the file "sent", downloads write the file "target".
    static ResultCode Perform(IQuendraHttpAPI& api, const std::string& name, const Operation& transfer, Caller& caller)
    {
        if (IsUpload(name))
            caller.local = caller.signature;
        return transfer(api, caller);
    }

    static constexpr std::uint64_t kAll = ~std::uint64_t{0};

    /// A connection's end.
    struct Ending
    {
        std::string where;
        std::string reply;               ///< what the server has sent by then.
        std::string expected;            ///< "code: transfers; code: transfers"
        std::optional<std::string> body; ///< what has come of a download; none: it makes no file.
        std::uint64_t reads = kAll;      ///< what the server has read of the request's body, at most.
    };

    /// Performs every transfer against a server that ends the connection: closes it, then once more with a reset.
    void ExpectCodes(const Ending& ending, bool resets) const
    {
        SCOPED_TRACE(ending.where + (resets ? ", reset" : ", closed"));
        const Library wire(AfterHandshake([&](RawConnection& connection, const std::string& head) {
            connection.Skip(std::min(ending.reads, BodyLength(head)));
            connection.Send(ending.reply);
            if (resets)
                connection.Reset();
            throw ConnectionEnded();
        }));
        std::map<ResultCode, std::string> outcomes;
        for (const auto& [name, transfer] : AllTransfers(kLarge))
        {
            SCOPED_TRACE(name);
            Caller caller = CallerWith("content", ending.reads == kAll ? 0 : kLarge);
            if (!ending.body)
                std::filesystem::remove(folder / "target");
            const TraceCapture trace;
            const ResultCode code = Perform(wire.Api(), name, transfer, caller);
            // The platforms report a lost connection differently; Wine passes the socket's own error on (10054, a reset).
            const bool isLost = code == 10054 || (code == 12152 && ending.reply.find("\r\n\r\n") == std::string::npos);
            std::string& transfers = outcomes[isLost ? Result::ConnectionBroken : code];
            transfers += (transfers.empty() ? "" : ", ") + name;

            const bool bringsItem = code == 21077 && IsUpload(name);
            EXPECT_EQ(caller.given != nullptr, bringsItem || (code == 0 && IsDownload(name)));
            EXPECT_TRUE(!bringsItem || (caller.given && caller.given->GetName() == L"new.txt"));
            EXPECT_EQ(trace.Has(EVT_ERROR, "Failed to extract attributes from response"), code == 13 && name != "metadata");
            const std::string received = (name == "range" ? "b" : "") + ending.body.value_or("");
            EXPECT_EQ(folder.Read("target"), !ending.body ? "" : IsDownload(name) ? received : "b");
            EXPECT_EQ(std::filesystem::remove(folder / "target"), ending.body.has_value()) << "one without a body to keep makes no file";
            EXPECT_TRUE(std::filesystem::remove(folder / "sent")) << "nobody holds it open";
        }
        std::string told;
        for (const auto& [code, transfers] : outcomes)
            told += (told.empty() ? "" : "; ") + std::to_string(code) + ": " + (outcomes.size() == 1 ? "all" : transfers);
        EXPECT_EQ(told, ending.expected);
    }

    const TemporaryFolder folder;
};
