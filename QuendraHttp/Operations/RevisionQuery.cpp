#include "Operations/RevisionQuery.h"

#include "Attributes.h"
#include "TextConversion.h"
#include "Tracing.h"

namespace
{

// Fixed line number: people filter trace events by it.
constexpr int kAddRevisionLine = 171;

} // namespace

std::string AddRevision(const std::string& query, const std::string& revision)
{
    if (revision.empty())
        return {};
    TraceMessage(EVT_INFO, "CNativeHttp::AddRevision", Unit::NativeHttp, {"Revision: %s", kAddRevisionLine}, revision);
    return query + "revision=" + revision;
}

std::wstring RevisionSuffix(const char* separator, const IServerAttributes* item)
{
    return ToWide(AddRevision(separator, item != nullptr ? item->GetRevision() : std::string()));
}
