#include "UploadReply.h"

#include "ItemExtraction.h"

ResultCode JudgeRefusedUpload(CNativeHttp& client, const FunctionTraceScope& trace, Exchange& exchange,
                              std::shared_ptr<IServerAttributes>& attributes)
{
    const std::uint32_t status = exchange.Status();
    trace.Error(kRefused, status);
    const bool hasBody = !exchange.Response().IsEmpty();
    if (hasBody)
        exchange.LogReply();
    const ResultCode code = client.MapHttpErrorWithTokenCheck(status, exchange.Response(), exchange.StartToken());
    if (code == Result::Conflict && hasBody)
    {
        if (auto current = ExtractSingleItem(exchange.Response()))
        {
            trace.Info("Extracted attributes from upload reply");
            attributes = std::move(current);
        }
    }
    return code;
}

ResultCode TakeUploadedItem(const FunctionTraceScope& trace, const Exchange& exchange, std::shared_ptr<IServerAttributes>& attributes)
{
    auto item = ExtractSingleItem(exchange.Response());
    if (!item)
    {
        trace.Error("Failed to extract attributes from response");
        return Result::InvalidData;
    }
    attributes = std::move(item);
    return Result::Success;
}
