#include "host/ComServer.h"

#include "host/CMorvaneUSBRouter.h"
#include "tests/unit/host/FakeRouterHost.h"

#include <gtest/gtest.h>
#include <objbase.h>

namespace {

/// Whether WM_QUIT waits in this thread's queue.
bool QuitIsPosted()
{
    MSG message{};
    return ::PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE) != FALSE;
}

class Factory : public testing::Test
{
protected:
    ~Factory() override { QuitIsPosted(); } // none is left to the next test

    FakeRouterHost m_host;
    QuitRequest m_quit{::GetCurrentThreadId()};
    ComServer m_factory{m_host, m_quit};
};

TEST_F(Factory, CreatesObjectsThatHoldALock)
{
    void* object = nullptr;
    ASSERT_EQ(m_factory.CreateInstance(nullptr, __uuidof(IMorvaneUSBRouter), &object), S_OK);
    EXPECT_EQ(m_host.locks, 1);
    EXPECT_EQ(static_cast<IMorvaneUSBRouter*>(object)->Release(), 0U);
    EXPECT_EQ(m_host.locks, 0);
}

TEST_F(Factory, LeavesNothingBehindWhenTheInterfaceIsUnknown)
{
    void* object = &object;
    EXPECT_EQ(m_factory.CreateInstance(nullptr, __uuidof(IClassFactory), &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(m_host.locks, 0);
}

TEST_F(Factory, RefusesAggregationAndNoResult)
{
    void* object = &object;
    EXPECT_EQ(m_factory.CreateInstance(&m_factory, __uuidof(IUnknown), &object), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(m_factory.CreateInstance(nullptr, __uuidof(IUnknown), nullptr), E_POINTER);
}

TEST_F(Factory, LockServerCountsLikeAnObject)
{
    m_factory.AddServerLock(); // an object's
    EXPECT_EQ(m_factory.LockServer(TRUE), S_OK);
    m_factory.ReleaseServerLock();
    EXPECT_FALSE(m_factory.IsStopping());
    EXPECT_EQ(m_factory.LockServer(FALSE), S_OK);
    EXPECT_TRUE(m_factory.IsStopping());
}

TEST_F(Factory, AnActivationThatArrivesAfterTheLastReleaseIsToldSo)
{
    m_factory.LockServer(TRUE);
    m_factory.LockServer(FALSE);
    void* object = &object;
    EXPECT_EQ(m_factory.CreateInstance(nullptr, __uuidof(IMorvaneUSBRouter), &object), CO_E_SERVER_STOPPING);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(m_factory.LockServer(TRUE), CO_E_SERVER_STOPPING);
    EXPECT_EQ(m_host.locks, 0) << "no object came to life";
}

TEST_F(Factory, OffersItsTwoInterfacesAndNoOther)
{
    void* found = nullptr;
    EXPECT_EQ(m_factory.QueryInterface(__uuidof(IUnknown), &found), S_OK);
    EXPECT_EQ(m_factory.QueryInterface(__uuidof(IClassFactory), &found), S_OK);
    EXPECT_EQ(found, static_cast<IClassFactory*>(&m_factory));
    EXPECT_EQ(m_factory.QueryInterface(__uuidof(IMorvaneUSBRouter), &found), E_NOINTERFACE);
    EXPECT_EQ(found, nullptr);
}

TEST(ServerLocks, OnlyTheLastReleasePostsQuitToTheMainThread)
{
    FakeRouterHost host;
    QuitRequest quit(::GetCurrentThreadId());
    ComServer server(host, quit);
    MSG message{};
    ::PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE);
    server.AddServerLock();
    server.AddServerLock();
    server.ReleaseServerLock();
    EXPECT_FALSE(server.IsStopping());
    EXPECT_FALSE(QuitIsPosted());
    EXPECT_FALSE(quit.IsWanted());
    server.ReleaseServerLock();
    EXPECT_TRUE(server.IsStopping());
    EXPECT_TRUE(QuitIsPosted());
    EXPECT_TRUE(quit.IsWanted());
}

/// Whether COM knows the class object in this process, and whether it did when the options were set.
bool IsRegistered() noexcept
{
    void* factory = nullptr;
    return SUCCEEDED(::CoGetClassObject(__uuidof(MorvaneUSBRouter), CLSCTX_LOCAL_SERVER, nullptr,
                                        __uuidof(IClassFactory), &factory));
}
int optionsSet = 0;
bool wasRegistered = true;

TEST(ServerClass, TheOptionsOfComAreSetBeforeItIsRegistered)
{
    ASSERT_EQ(::CoInitialize(nullptr), S_OK);
    FakeRouterHost host;
    QuitRequest quit(::GetCurrentThreadId());
    ComServer server(host, quit, []() noexcept -> HRESULT {
        ++optionsSet;
        wasRegistered = IsRegistered();
        return E_FAIL;
    });
    EXPECT_EQ(server.RegisterClassObjects(), S_OK);
    EXPECT_EQ(optionsSet, 1);
    EXPECT_FALSE(wasRegistered);
    EXPECT_TRUE(IsRegistered());
    ::CoUninitialize();
}

TEST(ServerLocks, RegisteringTheClassWithoutComFails)
{
    FakeRouterHost host;
    QuitRequest quit(::GetCurrentThreadId());
    ComServer server(host, quit);
    EXPECT_EQ(server.RegisterClassObjects(), CO_E_NOTINITIALIZED);
}

} // namespace
