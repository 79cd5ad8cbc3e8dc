// Tables of the documents that repeat those of the library.

#include "Patterns.h"
#include "RequestCycle/Judgement.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

namespace
{

std::string Body(const Judgement& row)
{
    if (!row.withoutBody)
        return row.refusedWithoutBody ? "a refusal is " + std::to_string(*row.refusedWithoutBody) : "no matter";
    return (row.first == JudgedFirst::Body ? "" : "200 is ") + std::to_string(*row.withoutBody);
}

std::string Refusal(const Judgement& row)
{
    switch (row.refusal)
    {
    case RefusalCode::ErrorIdOrStatus:
        return "20000 + `errorId`, else + status";
    case RefusalCode::ErrorIdAlone:
        return "20000 + `errorId`, else 20000";
    case RefusalCode::StatusAlone:
        return "20000 + status";
    default:
        return "the status";
    }
}

TEST(Documents, ShowWhatOperationsMakeOfAReply)
{
    std::string table = "| Operation | Judged first | Without a body | Refusal | Also |\n|---|---|---|---|---|\n";
    for (const Judgement* row : Judgements::kAll)
    {
        std::string also = row->checksSession ? "session check" : "";
        also += row->acceptsNoContent ? "204 is a success" : "";
        also += row->refusesFailedTransfer ? "a failed transfer is a refusal with status 0" : "";
        table += std::string("| ") + row->operation + " | " + (row->first == JudgedFirst::Body ? "body" : "status") + " | " + Body(*row) +
                 " | " + Refusal(*row) + " |" + (also.empty() ? "" : " " + also) + " |\n";
    }
    std::ifstream file(QUENDRA_SOURCE_DIR "/Docs/Rest.md");
    const std::string document{std::istreambuf_iterator<char>(file), {}};
    EXPECT_NE(document.find(table), std::string::npos) << "Docs/Rest.md should hold:\n" << table;

    int requests = 0;
    for (const auto& slot : FindAll(document, "\\| \\d+ \\| `(\\w+)` \\| ([^|]+) \\|"))
    {
        if (slot[2] == "none" || slot[1] == "Init")
            continue;
        ++requests;
        EXPECT_NE(table.find("| " + slot[1]), std::string::npos) << slot[1] << " has no row in Judgements::kAll";
    }
    EXPECT_EQ(requests, 21);
}

} // namespace
