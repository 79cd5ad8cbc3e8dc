#include "Delta.h"
#include "ItemForm.h"
#include "ItemStore.h"
#include "Multipart.h"
#include "Routes.h"
#include "Transfers.h"

#include <fstream>

namespace ApplianceParts
{

namespace
{

// The file is a signature: the reply is what turns the client's file into the item.
Reply AnswerSignature(const Call& call, const ItemPath& path, const TemporaryFile& signature, const ItemStore& items,
                      const StateFolder& state)
{
    const TemporaryFile current(state.NewTemporary());
    (void)items.Snapshot(path, Find(call.request.query, "revision").value_or(""), current.Path());
    const auto delta = std::make_shared<TemporaryFile>(state.NewTemporary());
    Delta::Make(signature.Path(), current.Path(), delta->Path());
    FileContent content;
    content.file = System::OpenFile(delta->Path());
    content.length = std::filesystem::file_size(delta->Path());
    content.owner = delta;
    return ContentReply(std::move(content));
}

// The file is a delta: the item becomes what the delta makes of it.
Reply TakeDelta(const ItemPath& path, const Fields& fields, const TemporaryFile& delta, ItemStore& items, const StateFolder& state)
{
    const TemporaryFile current(state.NewTemporary());
    const auto item = items.Snapshot(path, Find(fields, "revision").value_or(""), current.Path());
    const TemporaryFile result(state.NewTemporary());
    Delta::Apply(current.Path(), delta.Path(), result.Path());
    return ItemReply(items.PutFile(path, result.Path(), ReadChanges(fields), {item.revision, false}));
}

} // namespace

void AddDeltaRoutes(Router& router, ItemStore& items, const StateFolder& state)
{
    router.Add("POST", Place::Api, "/delta", Depth::Subtree, Access::Session, [&](const Call& call) {
        if (!Delta::IsAvailable())
            throw ApiError(501, ErrorId::Unsupported, "this build has no deltas");
        const auto path = ItemPath::FromUrl(call.rest);
        const TemporaryFile received(state.NewTemporary());
        std::ofstream output;
        const auto upload = ReadUpload(call.request, [&](const Fields&) -> std::ostream& {
            output.open(received.Path(), std::ios::binary);
            return output;
        });
        output.close();
        if (!upload.hasFile)
            throw ApiError(400, ErrorId::Malformed, "the file is missing");
        // A delta comes with the item's fields, a signature comes alone.
        return upload.fields.empty() ? AnswerSignature(call, path, received, items, state)
                                     : TakeDelta(path, upload.fields, received, items, state);
    });
}

} // namespace ApplianceParts
