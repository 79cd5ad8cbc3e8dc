// Operations on one server path that move no file content, and the listing of a folder.

#include "ApiPath.h"
#include "Attributes.h"
#include "Exchange.h"
#include "ItemExtraction.h"
#include "Operation.h"
#include "PathSplit.h"
#include "TextComparison.h"
#include "TextConversion.h"
#include "UploadReply.h"

#include "Platform/Platform.h"

ResultCode CNativeHttp::GetPathListing(const std::wstring& path, ServerItemList& children, std::shared_ptr<IServerAttributes>& folder,
                                       const CancelEvent* cancelEvent)
{
    return RunOperation("CNativeHttp::GetPathListing", [&](const FunctionTraceScope& trace) -> ResultCode {
        Exchange exchange(*this, trace);
        if (path.empty())
        {
            trace.Error("Empty server path!");
            return Result::InvalidParameter;
        }
        if (exchange.Server().serverName.empty())
        {
            trace.Error("Called before initialized with server info!");
            return Result::InvalidParameter;
        }
        trace.Info("Request for path listing of folder: %S", path);
        if (const ResultCode failed = exchange.Open(L"GET", exchange.ApiBasePath() + L"/folders" + EncodedPath(path) + L"?type=all"))
            return failed;
        exchange.Track(path);
        if (IsSignalled(cancelEvent))
        {
            trace.Error("Listing cancelled");
            return Result::Cancelled;
        }
        if (const ResultCode failed = exchange.Receive())
            return failed;
        if (const ResultCode refused = exchange.JudgeWithTokenCheck())
            return refused;

        ServerItemList self;
        ExtractAttributes(exchange.Response(), children, self);
        ResultCode result = Result::Success;
        if (self.size() == 1)
        {
            trace.Info("Extracted attributes from reply buffer");
            folder = self.front();
        }
        else
        {
            trace.Error("Failed to extract attributes from reply buffer");
            result = Result::InvalidData;
        }
        trace.Info("Received directory contents for path: %S", path);
        return result;
    });
}

ResultCode CNativeHttp::CreateFolder(const std::wstring& path, std::shared_ptr<IServerAttributes>& attributes)
{
    return RunOperation("CNativeHttp::CreateFolder", [&](const FunctionTraceScope& trace) -> ResultCode {
        trace.Info("Create request for folder: %S", path);
        Exchange exchange(*this, trace);
        if (const ResultCode failed = exchange.Open(L"POST", exchange.ApiBasePath() + L"/folders" + EncodedPath(ParentPath(path))))
            return failed;
        exchange.Field("name", LeafName(path)).LastField("operation", L"create");
        if (const ResultCode failed = exchange.Receive())
            return failed;
        if (const ResultCode refused = exchange.Judge())
            return refused;

        trace.Info("Created folder: %S", path);
        constexpr ItemTaking taking{"Extracted created folder attributes from reply", "Failed to extract attributes from response.",
                                    Result::AccessDenied};
        return TakeSingleItem(trace, exchange.Response(), taking, attributes);
    });
}

ResultCode CNativeHttp::GetPathAttributes(const std::wstring& path, std::shared_ptr<IServerAttributes>& attributes)
{
    return RunOperation("CNativeHttp::GetPathAttributes", [&](const FunctionTraceScope& trace) -> ResultCode {
        trace.Info("Path attributes request for path: %S", path);
        Exchange exchange(*this, trace);
        if (const ResultCode failed = exchange.Open(L"GET", exchange.ApiBasePath() + L"/folders" + EncodedPath(path)))
            return failed;
        if (const ResultCode failed = exchange.Receive())
            return failed;
        if (const ResultCode refused = exchange.Judge())
            return refused;

        constexpr ItemTaking taking{"Extracted attributes from reply buffer", "Failed to extract attributes from reply buffer",
                                    Result::InvalidData};
        return TakeSingleItem(trace, exchange.Response(), taking, attributes);
    });
}

ResultCode CNativeHttp::SetPathAttributes(const std::wstring& path, const std::shared_ptr<IServerAttributes>& attributes,
                                          std::shared_ptr<IServerAttributes>& newAttributes)
{
    return RunOperation("CNativeHttp::SetPathAttributes", [&, attributes](const FunctionTraceScope& trace) -> ResultCode {
        trace.Info("Request to set attributes for path: %S", path);
        if (!attributes)
            return Result::InvalidParameter;
        Exchange exchange(*this, trace);
        if (const ResultCode failed = exchange.Open(L"POST", exchange.ApiBasePath() + L"/folders" + EncodedPath(path)))
            return failed;
        exchange.Field("name", LeafName(path))
            .Field("operation", L"update")
            .Field("creation_time", attributes->GetCreationTime().ToString())
            .Field("modification_time", attributes->GetLastWriteTime().ToString())
            .LastField("attributes", attributes->GetAttributesString());
        if (const ResultCode failed = exchange.Receive())
            return failed;
        if (const ResultCode refused = exchange.Judge())
            return refused;

        auto item = ExtractSingleItem(exchange.Response());
        if (!item)
            return Result::AccessDenied;
        newAttributes = std::move(item);
        return Result::Success;
    });
}

ResultCode CNativeHttp::DeletePath(const std::wstring& path, const std::shared_ptr<IServerAttributes>& attributes)
{
    return RunOperation("CNativeHttp::DeletePath", [&, attributes](const FunctionTraceScope& trace) -> ResultCode {
        trace.Info("Request to delete server path: %S", path);
        Exchange exchange(*this, trace);
        if (const ResultCode failed = exchange.Connect())
            return failed;
        const std::wstring url = exchange.ApiBasePath() + L"/folders" + EncodedPath(path) + RevisionSuffix("?", attributes.get());
        trace.Info("Request Path: %S", url);
        if (const ResultCode failed = exchange.OpenRequest(L"DELETE", url))
            return failed;
        // By contract a transfer that fails ends like a refusal without a status.
        if (exchange.Send() != Result::Success)
            return MapHttpError(0, exchange.Response());
        if (const ResultCode failed = exchange.RequireBody())
            return failed;
        exchange.LogReply();
        if (const ResultCode refused = exchange.Judge())
            return refused;
        trace.Info("Successfully deleted server path: %S", path);
        return Result::Success;
    });
}

ResultCode CNativeHttp::RenamePath(const std::wstring& source, const std::wstring& target, std::uint32_t overwrite,
                                   std::shared_ptr<IServerAttributes>& newAttributes)
{
    return RunOperation("CNativeHttp::RenamePath", [&](const FunctionTraceScope& trace) -> ResultCode {
        const char* const overwriteText = overwrite == 1 ? "true" : "false";
        trace.Info("Rename request for path: %S to path: %S. Over write Target = [%s]", source, target, overwriteText);
        Exchange exchange(*this, trace);
        if (const ResultCode failed = exchange.Open(L"POST", exchange.ApiBasePath() + L"/folders" + EncodedPath(source)))
            return failed;

        const PathParts from = SplitForRename(source);
        const PathParts to = SplitForRename(target);
        if (!EqualIgnoringCase(from.directory, to.directory))
        {
            trace.Info("Using MOVE operation");
            exchange.Field("path", target).Field("overwrite", ToWide(overwriteText)).LastField("operation", L"move");
        }
        else
        {
            // By contract a rename in place always overwrites, whatever the caller asked.
            trace.Info("Using UPDATE operation");
            exchange.Field("path", to.name).Field("overwrite", L"true").LastField("operation", L"update");
        }
        if (const ResultCode failed = exchange.Receive())
            return failed;
        if (const ResultCode refused = exchange.Judge())
            return refused;

        if (const ResultCode failed = TakeUploadedItem(trace, exchange, newAttributes))
            return failed;
        trace.Info("Extracted attributes from upload reply");
        trace.Info("Successfully renamed path: %S to path: %S", source, target);
        return Result::Success;
    });
}
