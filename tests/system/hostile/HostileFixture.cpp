#include "tests/system/hostile/HostileFixture.h"

#include "tests/support/UniqueName.h"
#include "tests/system/ServedPort.h"
#include "tests/system/hostile/InstrumentScript.h"

#include <fstream>
#include <stdexcept>

namespace hostile {

namespace {

constexpr DWORD AllToFile = 0x003F0000;
constexpr int RoundTrips = 40;

/// A case that fails takes it with it, and the next one begins with another.
std::unique_ptr<Setting> s_setting;

class OrderlyEnd : public testing::Environment
{
    void TearDown() override
    {
        if (s_setting) {
            EXPECT_TRUE(s_setting->EndsInOrder());
            s_setting.reset();
        }
    }
};

[[maybe_unused]] const testing::Environment* const environment = testing::AddGlobalTestEnvironment(new OrderlyEnd);

} // namespace

Setting::Setting()
{
    // What hostile ends send goes through the trace as well.
    for (const int device : {-1, 3, static_cast<int>(End::DeviceType)}) {
        RouterSession::SetMask(device, AllToFile);
    }
    std::ofstream(m_folder.Path() / L"script", std::ios::binary) << InstrumentScript();
    StartInstrument();
    if (!m_session.Activate()) {
        throw std::runtime_error("the router does not start");
    }
    const std::string pipe = served::Register(m_session, 3, 1);
    m_client.emplace(pipe);
    if (!m_client->Does(1)) {
        throw std::runtime_error("the well-behaved client is not served");
    }
}

void Setting::KillInstrument()
{
    m_instrument->Kill();
}

void Setting::StartInstrument()
{
    m_instrument.emplace(L"--script " + (m_folder.Path() / L"script").wstring());
    if (!m_instrument->WaitUntilServed()) {
        throw std::runtime_error("the instrument does not start");
    }
}

bool Setting::EndsInOrder()
{
    m_client->Stop();
    m_session.Release();
    return m_session.WaitForEnd() == 0u;
}

Object CreateObject()
{
    void* object = nullptr;
    ::CoCreateInstance(__uuidof(MorvaneUSBRouter), nullptr, CLSCTX_LOCAL_SERVER, __uuidof(IMorvaneUSBRouter),
                       &object);
    return Object(static_cast<IMorvaneUSBRouter*>(object));
}

std::string End::Register(ULONG port, LONG readBuffer, LONG writeBuffer)
{
    std::string name = support::UniqueName("Hostile");
    const BSTR text = ::SysAllocString(std::wstring(name.begin(), name.end()).c_str());
    EXPECT_EQ(m_object->Register(DeviceType, port, readBuffer, writeBuffer, text), S_OK);
    ::SysFreeString(text);
    return name;
}

void End::Open(support::PipeClient& client, ULONG port)
{
    ASSERT_TRUE(served::Open(client, Register(port)));
}

void HostileEnd::SetUp()
{
    if (!s_setting) {
        s_setting = std::make_unique<Setting>();
    }
}

void HostileEnd::TearDown()
{
    if (HasFailure()) {
        s_setting.reset();
    }
}

void HostileEnd::ActAndLook()
{
    WellBehavedClient& client = s_setting->Client();
    const int losses = client.Losses();
    const int breaks = client.Breaks();
    End end(*s_setting);
    ASSERT_TRUE(end.HasRouter());
    ASSERT_NO_FATAL_FAILURE(GetParam().act(end));
    EXPECT_TRUE(client.Does(RoundTrips));
    end.Leave();
    EXPECT_TRUE(client.Does(RoundTrips));
    EXPECT_EQ(client.Losses(), losses);
    EXPECT_EQ(client.Breaks() > breaks, GetParam().breaksPipes);
}

} // namespace hostile
