#include "ports/ReplyWriter.h"
#include "tests/support/TestSupport.h"
#include "win32/Handle.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>

namespace {

std::unique_ptr<CSerialPortCommand> Packet(const std::string& text)
{
    return std::make_unique<CSerialPortCommand>(reinterpret_cast<const std::uint8_t*>(text.data()),
                                                static_cast<std::int32_t>(text.size()), true, false);
}

/// A writer on a pipe whose client has opened it and does not read.
class ReplyWriterTest : public ::testing::Test
{
protected:
    ReplyWriterTest()
        : m_path(support::PipePath(support::UniqueName(L"ReplyWriter"))),
          m_server(::CreateNamedPipeW(m_path.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED, PIPE_TYPE_MESSAGE,
                                      1, BufferSize, BufferSize, 0, nullptr)),
          m_client(::CreateFileW(m_path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                 FILE_FLAG_OVERLAPPED, nullptr))
    {
        EXPECT_TRUE(m_client);
    }

    /// What the client reads without waiting.
    std::string Read()
    {
        std::array<char, 2 * Longer> buffer{};
        DWORD length = 0;
        win32::OverlappedOperation read;
        EXPECT_TRUE(read.Read(m_client.Get(), buffer.data(), static_cast<DWORD>(buffer.size())));
        EXPECT_TRUE(read.CompletedAtStart() || support::WaitFor(read.EventHandle()));
        EXPECT_TRUE(read.Finish(m_client.Get(), length));
        return std::string(buffer.data(), length);
    }

    static constexpr DWORD BufferSize = 4096;
    static constexpr std::size_t Longer = std::size_t{2} * BufferSize; // than what the pipe keeps

    std::wstring m_path;
    win32::FileHandle m_server;
    win32::FileHandle m_client;
};

TEST_F(ReplyWriterTest, ANewClientDoesNotReplaceAPendingWrite)
{
    ReplyWriter writer;
    writer.Permit();
    const std::string message(Longer, 'x');
    ASSERT_NE(writer.Start(m_server.Get(), Packet(message)), nullptr);
    ASSERT_GT(writer.TimeLeftMs(), 0u) << "the write is to be pending";
    writer.Permit();
    EXPECT_FALSE(writer.MayWrite());
    EXPECT_EQ(Read(), message);
    EXPECT_TRUE(support::WaitFor(writer.WriteEvent()));
    EXPECT_TRUE(writer.Finish(m_server.Get()));
    EXPECT_TRUE(writer.MayWrite());
}

} // namespace
