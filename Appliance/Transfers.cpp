#include "Transfers.h"

#include "ItemForm.h"
#include "Multipart.h"

#include <algorithm>

namespace ApplianceParts
{

Reply ContentReply(FileContent content)
{
    return {200, "application/octet-stream", {}, std::move(content)};
}

Reply Download(const Request& request, const ItemPath& path, const ItemStore& items)
{
    auto content = items.Open(path, Find(request.query, "revision").value_or("")).content;
    if (const auto skip = Find(request.query, "skip"))
        content.offset = std::min(ReadNumber(*skip, "skip"), content.length);
    content.length -= content.offset;
    if (const auto count = Find(request.query, "count"))
        content.length = std::min(ReadNumber(*count, "count"), content.length);
    return ContentReply(std::move(content));
}

Reply UploadFile(const Request& request, const ItemPath& path, ItemStore& items, const StateFolder& state)
{
    const TemporaryFile temporary(state.NewTemporary());
    std::ofstream output;
    const auto upload = ReadUpload(request, [&](const Fields&) -> std::ostream& {
        output.open(temporary.Path(), std::ios::binary);
        return output;
    });
    output.close();
    if (!upload.hasFile || Find(upload.fields, "operation") != "create")
        throw ApiError(400, ErrorId::Malformed, "an upload has a file and the operation \"create\"");
    const PutCondition condition{Find(upload.fields, "revision").value_or(""), false};
    return ItemReply(items.PutFile(path, temporary.Path(), ReadChanges(upload.fields), condition));
}

} // namespace ApplianceParts
