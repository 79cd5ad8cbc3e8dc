#include "Delta.h"
#include "Http.h"

#include <librsync.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>

namespace ApplianceParts::Delta
{

namespace
{

constexpr std::uint32_t kLargestBlock = 4 * 1024 * 1024;

struct CloseFile
{
    void operator()(std::FILE* file) const { (void)std::fclose(file); }
};

using File = std::unique_ptr<std::FILE, CloseFile>;

File Open(const std::filesystem::path& path, const char* mode)
{
    File file(std::fopen(path.string().c_str(), mode));
    if (!file)
        throw std::system_error(errno, std::generic_category(), "cannot open a file of a delta");
    return file;
}

void Judge(rs_result result, const char* what)
{
    if (result == RS_IO_ERROR)
        throw ApiError(507, ErrorId::StorageFailed, std::string(what) + ": a file cannot be read or written");
    if (result != RS_DONE)
        throw ApiError(400, ErrorId::Malformed, std::string(what) + ": " + rs_strerror(result));
}

std::uint32_t ReadNumber(std::FILE* file)
{
    std::array<unsigned char, 4> bytes{};
    if (std::fread(bytes.data(), 1, bytes.size(), file) != bytes.size())
        throw ApiError(400, ErrorId::Malformed, "the signature ends early");
    std::uint32_t number = 0;
    for (const auto byte : bytes)
        number = number << 8U | byte;
    return number;
}

// A signature begins with its type, block size and checksum size. The library allocates memory by the block size, and aborts the process if
// that fails.
void CheckBlockSize(std::FILE* signature)
{
    (void)ReadNumber(signature);
    const auto blockSize = ReadNumber(signature);
    if (blockSize == 0 || blockSize > kLargestBlock)
        throw ApiError(400, ErrorId::Malformed, "the signature's blocks are too large");
    std::rewind(signature);
}

// Writing the buffered rest can fail, too.
void Finish(File file)
{
    if (std::fclose(file.release()) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot write a file of a delta");
}

} // namespace

bool IsAvailable()
{
    // Errors are reported to the client, not logged by the library.
    static std::once_flag silenced;
    std::call_once(silenced, [] { rs_trace_set_level(RS_LOG_EMERG); });
    return true;
}

void Make(const std::filesystem::path& signature, const std::filesystem::path& file, const std::filesystem::path& delta)
{
    const auto sumFile = Open(signature, "rb");
    CheckBlockSize(sumFile.get());
    rs_signature_t* loaded = nullptr;
    const auto result = rs_loadsig_file(sumFile.get(), &loaded, nullptr);
    const std::unique_ptr<rs_signature_t, decltype(&rs_free_sumset)> sums(loaded, &rs_free_sumset);
    Judge(result, "the signature cannot be read");
    Judge(rs_build_hash_table(sums.get()), "the signature cannot be used");
    auto output = Open(delta, "wb");
    Judge(rs_delta_file(sums.get(), Open(file, "rb").get(), output.get(), nullptr), "the delta cannot be made");
    Finish(std::move(output));
}

void Apply(const std::filesystem::path& basis, const std::filesystem::path& delta, const std::filesystem::path& result)
{
    auto output = Open(result, "wb");
    Judge(rs_patch_file(Open(basis, "rb").get(), Open(delta, "rb").get(), output.get(), nullptr), "the delta cannot be applied");
    Finish(std::move(output));
}

} // namespace ApplianceParts::Delta
