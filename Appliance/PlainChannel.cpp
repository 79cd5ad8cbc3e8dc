#include "Channel.h"

namespace ApplianceParts
{

namespace
{

class PlainChannel final : public IChannel
{
public:
    explicit PlainChannel(System::Socket socket) : m_socket(socket) {}

    std::ptrdiff_t Read(char* buffer, std::size_t size) override { return System::Receive(m_socket, buffer, size); }
    std::ptrdiff_t Write(const char* data, std::size_t size) override { return System::Send(m_socket, data, size); }
    bool HasPending() const override { return false; }

private:
    System::Socket m_socket;
};

} // namespace

ChannelFactory PlainChannels()
{
    return [](System::Socket socket) { return std::make_unique<PlainChannel>(socket); };
}

} // namespace ApplianceParts
