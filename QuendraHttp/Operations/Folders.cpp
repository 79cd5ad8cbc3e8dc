// Operations on one server path that transfer no file content, and the listing of a folder.

#include "Attributes.h"
#include "Operations/RevisionQuery.h"
#include "Replies/ItemParsing.h"
#include "RequestCycle/Exchange.h"
#include "ServerPath.h"
#include "TextComparison.h"
#include "TextConversion.h"

ResultCode CNativeHttp::GetPathListing(const std::wstring& path, ServerItemList& children, std::shared_ptr<IServerAttributes>& folder,
                                       const CancelEvent* cancelEvent)
{
    return RunExchange(*this, "CNativeHttp::GetPathListing", [&](Exchange& exchange) {
        const auto refuse = [&](const TraceFormat<>& message) {
            exchange.Trace().Error(message);
            return Result::InvalidParameter;
        };
        if (path.empty())
            return refuse("Empty server path!");
        if (exchange.Server().serverName.empty())
            return refuse("Called before initialized with server info!");
        return exchange.Info("Request for path listing of folder: %S", path)
            .Open(L"GET", exchange.ApiPath(L"/folders", path) + L"?type=all")
            .Track(path)
            .StopIfCancelled(cancelEvent, "Listing cancelled")
            .Perform(Judgements::kGetPathListing)
            .Then([&] {
                ServerItemList self;
                // A long listing's text is freed before its records take their memory.
                ExtractAttributes(exchange.Response(), children, self, [&] { exchange.Response().Reset(); });
                const bool isFolder = self.size() == 1;
                if (isFolder)
                {
                    exchange.Trace().Info("Extracted attributes from reply buffer");
                    exchange.Replace(folder, self.front());
                }
                else
                {
                    exchange.Trace().Error("Failed to extract attributes from reply buffer");
                }
                exchange.Trace().Info("Received directory contents for path: %S", path);
                return isFolder ? Result::Success : Result::InvalidData;
            });
    });
}

ResultCode CNativeHttp::CreateFolder(const std::wstring& path, std::shared_ptr<IServerAttributes>& attributes)
{
    return RunExchange(*this, "CNativeHttp::CreateFolder", [&](Exchange& exchange) {
        return exchange.Info("Create request for folder: %S", path)
            .Open(L"POST", exchange.ApiPath(L"/folders", ParentPath(path)))
            .Field("name", LeafName(path))
            .LastField("operation", L"create")
            .Perform(Judgements::kCreateFolder)
            .Info("Created folder: %S", path)
            .TakeItem({.taken = "Extracted created folder attributes from reply",
                       .missing = "Failed to extract attributes from response.",
                       .whenMissing = Result::AccessDenied},
                      attributes)
            .Outcome();
    });
}

ResultCode CNativeHttp::GetPathAttributes(const std::wstring& path, std::shared_ptr<IServerAttributes>& attributes)
{
    return RunExchange(*this, "CNativeHttp::GetPathAttributes", [&](Exchange& exchange) {
        return exchange.Info("Path attributes request for path: %S", path)
            .Open(L"GET", exchange.ApiPath(L"/folders", path))
            .Perform(Judgements::kGetPathAttributes)
            .TakeItem({.taken = "Extracted attributes from reply buffer", .missing = "Failed to extract attributes from reply buffer"},
                      attributes)
            .Outcome();
    });
}

ResultCode CNativeHttp::SetPathAttributes(const std::wstring& path, const std::shared_ptr<IServerAttributes>& attributes,
                                          std::shared_ptr<IServerAttributes>& newAttributes)
{
    return RunExchange(*this, "CNativeHttp::SetPathAttributes", [&, attributes](Exchange& exchange) {
        exchange.Info("Request to set attributes for path: %S", path);
        if (!attributes)
            return Result::InvalidParameter;
        return exchange.Open(L"POST", exchange.ApiPath(L"/folders", path))
            .Field("name", LeafName(path))
            .Field("operation", L"update")
            .Field("creation_time", attributes->GetCreationTime().ToString())
            .Field("modification_time", attributes->GetLastWriteTime().ToString())
            .LastField("attributes", attributes->GetAttributesString())
            .Perform(Judgements::kSetPathAttributes)
            .TakeItem({.whenMissing = Result::AccessDenied}, newAttributes)
            .Outcome();
    });
}

ResultCode CNativeHttp::DeletePath(const std::wstring& path, const std::shared_ptr<IServerAttributes>& attributes)
{
    return RunExchange(*this, "CNativeHttp::DeletePath", [&, attributes](Exchange& exchange) {
        return exchange.Info("Request to delete server path: %S", path)
            .Connect()
            .OpenRequest(L"DELETE", [&] { return exchange.ApiPath(L"/folders", path) + RevisionSuffix("?", attributes.get()); })
            .Perform(Judgements::kDeletePath)
            .Info("Successfully deleted server path: %S", path)
            .Outcome();
    });
}

ResultCode CNativeHttp::RenamePath(const std::wstring& source, const std::wstring& target, std::uint32_t overwrite,
                                   std::shared_ptr<IServerAttributes>& newAttributes)
{
    return RunExchange(*this, "CNativeHttp::RenamePath", [&](Exchange& exchange) {
        const char* const overwriteText = overwrite == 1 ? "true" : "false";
        exchange.Info("Rename request for path: %S to path: %S. Over write Target = [%s]", source, target, overwriteText)
            .Open(L"POST", exchange.ApiPath(L"/folders", source));
        const PathParts from = SplitForRename(source);
        const PathParts to = SplitForRename(target);
        if (!EqualIgnoringCase(from.directory, to.directory))
            exchange.Info("Using MOVE operation")
                .Field("path", target)
                .Field("overwrite", ToWide(overwriteText))
                .LastField("operation", L"move");
        else // A rename in the same folder always overwrites and ignores `overwrite`.
            exchange.Info("Using UPDATE operation").Field("path", to.name).Field("overwrite", L"true").LastField("operation", L"update");
        return exchange.Perform(Judgements::kRenamePath)
            .TakeItem(kUploadedItem, newAttributes)
            .Info("Successfully renamed path: %S to path: %S", source, target)
            .Outcome();
    });
}
