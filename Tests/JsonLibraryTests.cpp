#include "JsonLibrary.h"
#include "ParsingSupport.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>
#include <vector>

TEST(JsonLibraryTests, ExceptionsOfTheLibraryAreTracedAndNoOthersCaught)
{
    TraceCapture capture;
    {
        const FunctionTraceScope trace("Test::Step", Unit::NativeHttp);
        CatchJsonExceptions(trace, [] { throw std::bad_alloc(); });
        CatchJsonExceptions(trace, [] { throw std::runtime_error("one"); });
        CatchJsonExceptions(trace, [] { Json::throwRuntimeError("two"); });
        CatchJsonExceptions(trace, [] { Json::throwLogicError("three"); });
        EXPECT_THROW(CatchJsonExceptions(trace, [] { throw std::invalid_argument("four"); }), std::invalid_argument);
    }
    const std::vector<std::string> expected = {
        std::string("JSON library has thrown a bad_alloc exception (") + std::bad_alloc().what() + ")!",
        "JSON library has thrown a runtime_error exception (one)!",
        "JSON library has thrown a runtime_error exception (two)!",
        "JSON library has thrown a runtime_error exception (three)!",
    };
    EXPECT_EQ(capture.Messages(EVT_ERROR), expected);
}

TEST(JsonLibraryTests, SurrogateEscapesAreMendedOnlyWhereTheyAreUnpaired)
{
    const std::pair<const char*, std::string> cases[] = {
        {R"(["\ud83d\ude00"])", "\U0001F600"},
        {R"(["\uD83D\uDE00\ud83d\ude00"])", "\U0001F600\U0001F600"},
        {R"(["\ud83d"])", "\ufffd"},
        {R"(["\ude00"])", "\ufffd"},
        {R"(["\ude00\ud83d"])", "\ufffd\ufffd"},
        {R"(["\ud83d\n\ude00"])", "\ufffd\n\ufffd"},
        {R"(["\\ud83d"])", "\\ud83d"},
        {R"(["\\\ud83d"])", "\\\ufffd"},
        {R"(["\ud7ff\ue000"])", "\ud7ff\ue000"},
    };
    for (const auto& [json, text] : cases)
        EXPECT_EQ(ParseText(json)[0].asString(), text) << json;
    for (std::string broken : {R"(["\ud83)", R"(["\)", R"(["\u)", R"(["\ud83d\u)", R"(["\ud8zz"])", "\\", "\\ud83d"})
    {
        Json::Value value;
        EXPECT_FALSE(ParseJson(AsReply(broken), Comments::Skip, value)) << broken;
    }
}
