#pragma once

#include "ScriptedWinHttp.h"
#include "TraceCapture.h"
#include "TransferSupport.h"
#include "Transport/WinHttpImpl.h"
#include "Transport/WinHttpImplRequest.h"

#include <memory>

/// The transport's objects over scripted platform calls.
class TransportFixture : public testing::Test
{
protected:
    TransportFixture() { Restart(); }

    /// Objects of their own, with nothing recorded.
    void Restart()
    {
        g_script = {};
        trace.Clear();
        session = std::make_shared<WinHttpSession>();
        connection = std::make_shared<WinHttpConnection>();
        request = std::make_shared<WinHttpRequest>(session);
        progress = std::make_shared<ProgressRecord>();
    }

    const TemporaryFolder folder;
    TraceCapture trace;
    std::shared_ptr<WinHttpSession> session;
    std::shared_ptr<WinHttpConnection> connection;
    std::shared_ptr<WinHttpRequest> request;
    std::shared_ptr<ProgressRecord> progress;
};
