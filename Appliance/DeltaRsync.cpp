// Deltas in the format of librsync's rdiff.

#include "Routes.h"
#include "System.h"

#include <librsync.h>

#include <array>

namespace ApplianceParts
{

namespace
{

constexpr unsigned kLargestBlock = 4 * 1024 * 1024;

// Calls a function with a file that is open for writing. Writing the buffered rest at the end can fail, too.
template <typename Function> void WriteFile(const std::filesystem::path& path, const std::string& step, Function function)
{
    std::FILE* const file = std::fopen(path.string().c_str(), "wb");
    const rs_result result = file == nullptr ? RS_IO_ERROR : function(file);
    if (file == nullptr || std::fclose(file) != 0 || result == RS_IO_ERROR)
        throw ApiError(507, ErrorId::StorageFailed, step + ": a file cannot be read or written");
    if (result != RS_DONE)
        throw Malformed(step + ": " + rs_strerror(result));
}

// A signature begins with its type, block size and checksum size, four bytes each. The library allocates memory by the block size, and
// aborts the process if that fails.
void CheckBlockSize(std::FILE* signature)
{
    std::array<unsigned char, 8> head{};
    if (std::fread(head.data(), 1, head.size(), signature) != head.size())
        throw Malformed("the signature ends early");
    const auto blockSize = (unsigned{head[4]} << 24U) | (unsigned{head[5]} << 16U) | (unsigned{head[6]} << 8U) | head[7];
    if (blockSize == 0 || blockSize > kLargestBlock)
        throw Malformed("the signature's blocks are too large");
    std::rewind(signature);
}

// Writes the delta from the file of the signature to the given one.
void Make(const std::filesystem::path& signature, std::FILE& file, const std::filesystem::path& delta)
{
    const auto input = System::OpenFile(signature);
    CheckBlockSize(input.get());
    WriteFile(delta, "the delta cannot be made", [&](std::FILE* output) {
        rs_signature_t* loaded = nullptr;
        rs_result result = rs_loadsig_file(input.get(), &loaded, nullptr);
        const std::unique_ptr<rs_signature_t, decltype(&rs_free_sumset)> sums(loaded, &rs_free_sumset);
        if (result == RS_DONE)
            result = rs_build_hash_table(loaded);
        return result == RS_DONE ? rs_delta_file(loaded, &file, output, nullptr) : result;
    });
}

} // namespace

Reply ExchangeDelta(const Call& call)
{
    // Errors are reported to the client, not logged by the library.
    rs_trace_set_level(RS_LOG_EMERG);
    const auto& [services, request, query, rest, session] = call;
    const auto path = ItemPath::FromUrl(rest);
    const TemporaryFile received(services.state);
    const TemporaryFile result(services.state);
    const auto [fields, hasFile] = ReadUpload(request, received.Path());
    if (!hasFile)
        throw Malformed("the file is missing");
    const bool isDelta = !fields.empty();
    const auto [item, current] = services.items.Open(path, Find(isDelta ? fields : query, "revision").value_or(""));
    if (!isDelta)
    {
        Make(received.Path(), *current.file, result.Path());
        return {.content = FileContent{System::OpenFile(result.Path()), std::filesystem::file_size(result.Path())}};
    }
    const auto delta = System::OpenFile(received.Path());
    WriteFile(result.Path(), "the delta cannot be applied",
              [&basis = *current.file, &delta](std::FILE* output) { return rs_patch_file(&basis, delta.get(), output, nullptr); });
    return ItemReply(services.items.PutFile(path, result.Path(), ReadChanges(fields), item.revision));
}

} // namespace ApplianceParts
