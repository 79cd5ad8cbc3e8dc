// A multipart body is the same in whatever pieces it arrives.

#include "Http.h"
#include "TransferSupport.h"

#include <gtest/gtest.h>

namespace
{
TEST(MultipartTest, PartsAreTheSameHoweverTheBodyArrives)
{
    const TemporaryFolder folder;
    const std::string lookalikes = "\r\n--{B\r\n--{B]\r\n\r\n-\r\n--{\r";
    std::string body;
    for (const auto& [parameters, content] :
         std::vector<std::pair<std::string, std::string>>{{"\"empty\"", ""}, {"\"a\"", "1\r\n2"}, {"\"file\"; filename=\"x\"", lookalikes}})
        body.append("--{B}\r\nContent-Disposition: form-data; name=").append(parameters + "\r\n\r\n").append(content + "\r\n");
    body += "--{B}--\r\n";
    for (std::size_t size = 1; size < 50; ++size)
    {
        ApplianceParts::Request request;
        request.header = [](std::string_view) { return std::optional<std::string>("Multipart/form-data ; boundary={B}"); };
        request.readBody = [&, rest = std::string_view(body)]() mutable {
            const auto piece = rest.substr(0, size);
            rest.remove_prefix(piece.size());
            return piece;
        };
        const auto upload = ApplianceParts::ReadUpload(request, folder / "f");
        ASSERT_EQ(upload.fields, (ApplianceParts::Fields{{"empty", ""}, {"a", "1\r\n2"}})) << size;
        ASSERT_EQ(folder.Read("f"), lookalikes) << size;
    }
}
} // namespace
