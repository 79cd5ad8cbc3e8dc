#include "StateFolder.h"

#include "JsonText.h"

#include <fstream>
#include <random>
#include <system_error>

namespace ApplianceParts
{

namespace
{

constexpr const char* kTemporary = "temporary";

} // namespace

StateFolder::StateFolder(const std::filesystem::path& root) : m_folder(root / kName)
{
    std::filesystem::create_directories(m_folder / "resume");
    std::filesystem::permissions(m_folder, std::filesystem::perms::owner_all);
    // Temporary files of an earlier process.
    std::filesystem::remove_all(m_folder / kTemporary);
    std::filesystem::create_directory(m_folder / kTemporary);
}

std::filesystem::path StateFolder::NewTemporary() const
{
    return m_folder / kTemporary / RandomHex(32);
}

std::optional<std::string> StateFolder::Read(std::string_view name) const
{
    std::ifstream file(Path(name), std::ios::binary);
    if (!file)
        return std::nullopt;
    return std::string(std::istreambuf_iterator(file), {});
}

void StateFolder::Write(std::string_view name, std::string_view content) const
{
    const TemporaryFile temporary(*this);
    std::ofstream file(temporary.Path(), std::ios::binary);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    if (!file)
        throw std::system_error(std::make_error_code(std::errc::io_error), "cannot write " + std::string(name));
    std::filesystem::permissions(temporary.Path(), std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    std::filesystem::rename(temporary.Path(), Path(name));
}

void StateFolder::Append(std::string_view name, const Json::Value& line) const
{
    const std::lock_guard guard(m_mutex);
    std::ofstream file(Path(name), std::ios::binary | std::ios::app);
    if (file << JsonLine(line) << '\n' << std::flush)
        return;
    // A later line may find free space again, and must not continue this one.
    file.clear();
    file << '\n';
    throw std::system_error(std::make_error_code(std::errc::no_space_on_device), "cannot write to " + std::string(name));
}

TemporaryFile::~TemporaryFile()
{
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::string RandomHex(std::size_t digits)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::random_device source;
    std::string text(digits, '0');
    for (char& character : text)
        character = kDigits[source() % kDigits.size()];
    return text;
}

} // namespace ApplianceParts
