// The sample server: any bytes as what a client sends on one connection. "$" stands for the token of an open session. Each run has a new
// root with a folder, a file and an upload of which a part has come; nothing beside the root may change.

#include "Appliance.h"
#include "FuzzSupport.h"
#include "HttpConnection.h"
#include "JsonText.h"

#include <boost/asio/io_context.hpp>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <unistd.h>
#include <utility>

namespace
{

using namespace ApplianceParts;
namespace fs = std::filesystem;

// What the client sends, and then its end; what it gets is dropped.
class Client
{
public:
    using lowest_layer_type = Socket;
    using executor_type = Socket::executor_type;

    Client(Socket& socket, std::string_view sends) : m_socket(socket), m_sends(sends) {}

    executor_type get_executor() { return m_socket.get_executor(); }

    template <typename Buffers> std::size_t read_some(const Buffers& buffers, ErrorCode& error)
    {
        const std::size_t size = boost::asio::buffer_copy(buffers, boost::asio::buffer(m_sends));
        m_sends.remove_prefix(size);
        if (size == 0)
            error = boost::asio::error::eof;
        return size;
    }
    template <typename Buffers> std::size_t write_some(const Buffers& buffers, ErrorCode&) { return boost::asio::buffer_size(buffers); }

    // Required by Beast's stream concepts, never called.
    template <typename Buffers> std::size_t read_some(const Buffers& buffers);
    template <typename Buffers> std::size_t write_some(const Buffers& buffers);

private:
    Socket& m_socket;
    std::string_view m_sends;
};

// The token of a new session.
std::string LogIn(Appliance& server)
{
    std::string_view form = "user_id=demo&password=demo";
    const auto read = [&form] { return std::exchange(form, {}); };
    const auto reply = server.Answer({.method = "POST", .path = "/sync/1.3/sessions", .readBody = read});
    return (*ParseJsonObject(reply.text))["session_token"].asString();
}

fs::path Place()
{
    return fs::temp_directory_path() / ("quendra-fuzz-" + std::to_string(getpid()));
}

std::string Contents(const fs::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void Write(const fs::path& file, std::string_view text)
{
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const fs::path place = Place();
    static const struct Remover
    {
        ~Remover() { fs::remove_all(place); }
    } atEnd;
    static boost::asio::io_context context;
    const fs::path root = place / "root";
    fs::remove_all(place);
    Write(root / "home" / "f", "content");
    Write(root / "home" / "sub" / "g", "more");
    Write(place / "outside", "untouched");
    fs::create_symlink("../../outside", root / "home" / "link");
    fs::create_directory_symlink("..", root / "up");
    const fs::path upload = root / ".quendra-appliance" / "resume" / "0F8FAD5B-D9CB-469F-A165-70867728950E";
    Write(upload.string() + ".json", R"({"path":"/home/h","size":"20"})");
    Write(upload.string() + ".bytes", "0123456789");

    std::ostringstream mails;
    Appliance server({.root = root}, mails);
    server.Stop(); // nothing waits for changes
    const std::string token = LogIn(server);
    std::string sends = Bytes(data, size);
    for (std::size_t at = sends.find('$'); at != std::string::npos; at = sends.find('$', at + token.size()))
        sends.replace(at, 1, token);
    Socket socket((Socket::Tcp::socket(context)));
    Client client(socket, sends);
    const RequestHandler handler = [&server](const Request& request) { return server.Answer(request); };
    HttpConnection<Client>(socket, client, handler, {}).Serve();

    Require(Contents(place / "outside") == "untouched");
    for (const auto& entry : fs::directory_iterator(place))
        Require(entry.path() == root || entry.path() == place / "outside");
    Require(fs::is_symlink(fs::symlink_status(root / "up")) && fs::is_directory(root / "home"));
    Require(fs::is_empty(root / ".quendra-appliance" / "temporary"));
    return 0;
}
