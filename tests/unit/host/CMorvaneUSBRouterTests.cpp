#include "host/CMorvaneUSBRouter.h"

#include "ports/CCDevicePortPipe.h"
#include "tests/support/AllocationCount.h"
#include "tests/support/PipeClient.h"
#include "tests/support/TestSupport.h"
#include "tests/unit/host/FakeRouterHost.h"
#include "tests/unit/host/RecordingOutput.h"
#include "win32/Text.h"

#include <gtest/gtest.h>
#include <oleauto.h>

namespace {

using Name = std::pair<std::wstring, std::int32_t>;

class Bstr
{
public:
    explicit Bstr(const std::wstring& text) : m_text(::SysAllocString(text.c_str())) {}
    ~Bstr() { ::SysFreeString(m_text); }
    Bstr(const Bstr&) = delete;
    Bstr& operator=(const Bstr&) = delete;
    BSTR Get() const { return m_text; }

private:
    BSTR m_text;
};

class RouterObject : public testing::Test
{
protected:
    ComPointer<CMorvaneUSBRouter> Create() { return ComPointer<CMorvaneUSBRouter>(new CMorvaneUSBRouter(m_host)); }

    HRESULT Register(CMorvaneUSBRouter& router, LONG deviceType, ULONG port, const std::wstring& name)
    {
        return router.Register(deviceType, port, 256, 256, Bstr(name).Get());
    }

    FakeRouterHost m_host;
};

TEST_F(RouterObject, KeepsNoMemoryOfObjectsThatCameAndWent)
{
    const auto comeAndGo = [&] {
        const auto router = Create();
        ASSERT_EQ(Register(*router, 3, 1, support::UniqueName(L"ComesAndGoes")), S_OK);
        EXPECT_NE(m_host.ports.FindPort({3, 1}), nullptr);
        m_host.names.clear(); // the fake's own
    };
    comeAndGo(); // what is made once and kept
    const std::size_t before = LiveAllocations();
    for (int object = 0; object < 100; ++object) {
        comeAndGo();
    }
    EXPECT_LE(LiveAllocations(), before + 20); // far less than a block for each
}

TEST_F(RouterObject, GivesEachPortTheOptionsOfPorts)
{
    m_host.portOptions.flushLimitMs = 50;
    const auto router = Create();
    const std::wstring name = support::UniqueName(L"Limited");
    ASSERT_EQ(Register(*router, 3, 1, name), S_OK);
    support::PipeClient client;
    ASSERT_TRUE(support::WaitUntil([&] {
        return client.Open(win32::ToAnsi(name)) &&
               support::WaitUntil([&] { return m_host.ports.FindPort({3, 1})->IsPipeConnected(); },
                                  std::chrono::seconds(1));
    }));
    ASSERT_TRUE(
        m_host.ports.SendToPort({3, 1}, &m_host.transport, {reinterpret_cast<const std::uint8_t*>("x"), 1}));
    ASSERT_TRUE(support::WaitUntil([&] { return client.Available() > 0; }));
    EXPECT_EQ(router->Unregister(3, 1), S_OK) << "returns although the client does not read";
}

TEST_F(RouterObject, TheReadSizeBoundsAMessageTheWriteSizeDoesNot)
{
    const auto router = Create();
    const std::wstring name = support::UniqueName(L"Sizes");
    ASSERT_EQ(router->Register(3, 1, 16, 3000, Bstr(name).Get()), S_OK);
    support::PipeClient client;
    ASSERT_TRUE(support::WaitUntil([&] {
        return client.Open(win32::ToAnsi(name)) &&
               support::WaitUntil([&] { return m_host.ports.FindPort({3, 1})->IsPipeConnected(); },
                                  std::chrono::seconds(1));
    }));
    ASSERT_TRUE(client.Write(std::string(40, 'x')));
    ASSERT_TRUE(support::WaitUntil([&] { return m_host.transport.Count() == 3; }));
    EXPECT_EQ(m_host.transport.TheSent()[0].payload, std::string(16, 'x'));
    EXPECT_EQ(m_host.transport.TheSent()[2].payload, std::string(8, 'x'));
}

TEST_F(RouterObject, RegistersAPortOnce)
{
    const auto router = Create();
    const std::wstring first = support::UniqueName(L"First");
    EXPECT_EQ(Register(*router, 3, 1, first), S_OK);
    const CCDevicePortPipe* const port = m_host.ports.FindPort({3, 1});
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(Register(*router, 3, 1, L"Second"), S_OK);
    EXPECT_EQ(m_host.ports.FindPort({3, 1}), port);

    const auto other = Create();
    EXPECT_EQ(Register(*other, 3, 1, L"Third"), S_OK);
    EXPECT_EQ(m_host.ports.FindPort({3, 1}), port);
    EXPECT_EQ(m_host.names.size(), 1U);

    // A pipe is recreated every 50 ms until a client is connected, so an opening may be thrown out again.
    support::PipeClient client;
    EXPECT_TRUE(support::WaitUntil([&] {
        client.Close();
        return client.Open(win32::ToAnsi(first)) &&
               support::WaitUntil([&] { return port->IsPipeConnected(); }, std::chrono::seconds(1));
    }));
}

TEST_F(RouterObject, TheReleaseOfAnObjectThatCameSecondLeavesThePort)
{
    const auto router = Create();
    auto other = Create();
    Register(*router, 3, 1, support::UniqueName(L"Port"));
    Register(*other, 3, 1, L"Other");
    other.reset();
    EXPECT_NE(m_host.ports.FindPort({3, 1}), nullptr);
}

TEST_F(RouterObject, DeviceTypesHavePortsOfTheirOwn)
{
    const auto router = Create();
    Register(*router, 3, 1, support::UniqueName(L"A"));
    Register(*router, 4, 1, support::UniqueName(L"B"));
    ASSERT_NE(m_host.ports.FindPort({3, 1}), nullptr);
    ASSERT_NE(m_host.ports.FindPort({4, 1}), nullptr);
    EXPECT_NE(m_host.ports.FindPort({3, 1}), m_host.ports.FindPort({4, 1}));
}

TEST_F(RouterObject, ADeviceIsNamedByThePortsNameUpToItsLastDot)
{
    const auto router = Create();
    Register(*router, 3, 1, L"Reader.v2");
    Register(*router, 4, 2, L"Reader.left.v2");
    Register(*router, 5, 3, L"Plain");
    Register(*router, 6, 4, L".hidden");
    EXPECT_EQ(m_host.names, (std::vector<Name>{{L"Reader", 3}, {L"Reader.left", 4}, {L"Plain", 5}, {L"", 6}}));
}

TEST_F(RouterObject, ANullNameMakesAPortThatNeverOpens)
{
    const auto router = Create();
    EXPECT_EQ(router->Register(3, 1, 256, 256, nullptr), S_OK);
    EXPECT_NE(m_host.ports.FindPort({3, 1}), nullptr);
    EXPECT_EQ(m_host.names, (std::vector<Name>{{L"", 3}}));
}

TEST_F(RouterObject, UnregisteringAnUnknownPortChangesNothing)
{
    const auto router = Create();
    Register(*router, 3, 1, support::UniqueName(L"Port"));
    EXPECT_EQ(router->Unregister(3, 2), S_OK);
    EXPECT_EQ(router->Unregister(4, 1), S_OK);
    EXPECT_NE(m_host.ports.FindPort({3, 1}), nullptr);
}

TEST_F(RouterObject, UnregisteringEndsThePipe)
{
    const auto router = Create();
    const std::wstring name = support::UniqueName(L"Port");
    Register(*router, 3, 1, name);
    support::PipeClient client;
    EXPECT_TRUE(client.Open(win32::ToAnsi(name)));
    EXPECT_EQ(router->Unregister(3, 1), S_OK);
    EXPECT_EQ(m_host.ports.FindPort({3, 1}), nullptr);
    EXPECT_TRUE(client.WaitForBreak());
}

TEST_F(RouterObject, AnyObjectUnregistersAnyPort)
{
    auto* const owner = Create().release(); // its destructor would never end, see below
    const auto other = Create();
    Register(*owner, 3, 1, support::UniqueName(L"Port"));
    EXPECT_EQ(other->Unregister(3, 1), S_OK);
    EXPECT_EQ(m_host.ports.FindPort({3, 1}), nullptr);
    // Registered again, the pair is one of the owner's once more, and it can go.
    Register(*owner, 3, 1, support::UniqueName(L"Port"));
    owner->Release();
    EXPECT_EQ(m_host.ports.FindPort({3, 1}), nullptr);
}

TEST_F(RouterObject, TheReleaseRemovesThePortsOfTheObject)
{
    const auto other = Create();
    Register(*other, 4, 1, support::UniqueName(L"Port"));
    auto router = Create();
    Register(*router, 3, 1, support::UniqueName(L"Port"));
    Register(*router, 3, 2, support::UniqueName(L"Port"));
    router.reset();
    EXPECT_EQ(m_host.ports.FindPort({3, 1}), nullptr);
    EXPECT_EQ(m_host.ports.FindPort({3, 2}), nullptr);
    EXPECT_NE(m_host.ports.FindPort({4, 1}), nullptr);
}

TEST_F(RouterObject, AFailureIsNotTheClientsBusiness)
{
    const auto router = Create();
    m_host.namingFails = true;
    EXPECT_EQ(Register(*router, 3, 1, L"Port"), S_OK);
    EXPECT_EQ(m_host.ports.FindPort({3, 1}), nullptr);
    EXPECT_EQ(router->Unregister(3, 1), S_OK);
}

TEST_F(RouterObject, EveryObjectHoldsOneServerLock)
{
    auto first = Create();
    auto second = Create();
    EXPECT_EQ(m_host.locks, 2);
    first.reset();
    EXPECT_EQ(m_host.locks, 1);
    second.reset();
    EXPECT_EQ(m_host.locks, 0);
}

TEST_F(RouterObject, ItsLifeIsTraced)
{
    RecordingOutput output;
    TraceFrontEnd frontEnd(output);
    frontEnd.Publish(OptionsFor(-1, 0x00100000));
    Create();
    const std::vector<RecordingOutput::Line> expected{{0x00100000, "CMorvaneUSBRouter::CMorvaneUSBRouter()"},
                                                      {0x00100000, "CMorvaneUSBRouter::~CMorvaneUSBRouter()"}};
    EXPECT_EQ(output.Lines(), expected);
}

TEST_F(RouterObject, OffersItsThreeInterfacesAndNoOther)
{
    const auto router = Create();
    for (const IID& id : {__uuidof(IUnknown), __uuidof(IDispatch), __uuidof(IMorvaneUSBRouter)}) {
        void* found = nullptr;
        EXPECT_EQ(router->QueryInterface(id, &found), S_OK);
        EXPECT_NE(found, nullptr);
        static_cast<IUnknown*>(found)->Release();
    }
    void* found = &found;
    EXPECT_EQ(router->QueryInterface(__uuidof(IClassFactory), &found), E_NOINTERFACE);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(router->QueryInterface(__uuidof(IUnknown), nullptr), E_POINTER);
}

TEST_F(RouterObject, TheDispatchNumbersAre1And2)
{
    const auto router = Create();
    for (const auto& [name, number] : {std::pair<std::wstring, DISPID>{L"Register", 1}, {L"Unregister", 2}}) {
        std::wstring copy = name;
        LPOLESTR names[] = {copy.data()};
        DISPID id = 0;
        EXPECT_EQ(router->GetIDsOfNames(IID_NULL, names, 1, LOCALE_NEUTRAL, &id), S_OK);
        EXPECT_EQ(id, number);
    }
    std::wstring unknown = L"Reset";
    LPOLESTR names[] = {unknown.data()};
    DISPID id = 0;
    EXPECT_EQ(router->GetIDsOfNames(IID_NULL, names, 1, LOCALE_NEUTRAL, &id), DISP_E_UNKNOWNNAME);
}

TEST_F(RouterObject, IsCalledThroughIDispatchWithConvertibleArguments)
{
    const auto router = Create();
    const Bstr name(support::UniqueName(L"Port"));
    // In reverse order; a script passes 16-bit integers for small numbers.
    VARIANTARG arguments[5]{};
    arguments[0].vt = VT_BSTR;
    arguments[0].bstrVal = name.Get();
    for (int i = 1; i < 5; ++i) {
        arguments[i].vt = VT_I2;
        arguments[i].iVal = 256;
    }
    arguments[3].iVal = 1;
    arguments[4].iVal = 3;
    DISPPARAMS parameters{arguments, nullptr, 5, 0};
    EXPECT_EQ(router->Invoke(1, IID_NULL, LOCALE_NEUTRAL, DISPATCH_METHOD, &parameters, nullptr, nullptr, nullptr),
              S_OK);
    EXPECT_NE(m_host.ports.FindPort({3, 1}), nullptr);

    DISPPARAMS two{arguments + 3, nullptr, 2, 0};
    EXPECT_EQ(router->Invoke(2, IID_NULL, LOCALE_NEUTRAL, DISPATCH_METHOD, &two, nullptr, nullptr, nullptr), S_OK);
    EXPECT_EQ(m_host.ports.FindPort({3, 1}), nullptr);

    EXPECT_EQ(router->Invoke(3, IID_NULL, LOCALE_NEUTRAL, DISPATCH_METHOD, &two, nullptr, nullptr, nullptr),
              DISP_E_MEMBERNOTFOUND);
}

TEST_F(RouterObject, DescribesItself)
{
    const auto router = Create();
    UINT count = 0;
    EXPECT_EQ(router->GetTypeInfoCount(&count), S_OK);
    EXPECT_EQ(count, 1U);
    ITypeInfo* info = nullptr;
    EXPECT_EQ(router->GetTypeInfo(1, LOCALE_NEUTRAL, &info), DISP_E_BADINDEX);
    ASSERT_EQ(router->GetTypeInfo(0, LOCALE_NEUTRAL, &info), S_OK);
    const ComPointer<ITypeInfo> owner(info);
    BSTR name = nullptr;
    BSTR help = nullptr;
    ASSERT_EQ(info->GetDocumentation(MEMBERID_NIL, &name, &help, nullptr, nullptr), S_OK);
    EXPECT_STREQ(name, L"IMorvaneUSBRouter");
    EXPECT_STREQ(help, L"IMorvaneUSBRouter Interface");
    ::SysFreeString(name);
    ::SysFreeString(help);
}

// A dual interface has two descriptions. The marshaler asks the one of the vtable for the automation flag
// ("ITypeInfo::GetRefTypeOfImplType method": -1 leads there). Wine's loader takes the flag from the other one,
// whatever the type library says.
TEST_F(RouterObject, ItsInterfaceIsDualNonextensibleAndForAutomation)
{
    const auto router = Create();
    ITypeInfo* dispatch = nullptr;
    ASSERT_EQ(router->GetTypeInfo(0, LOCALE_NEUTRAL, &dispatch), S_OK);
    const ComPointer<ITypeInfo> dispatchOwner(dispatch);
    HREFTYPE other = 0;
    ASSERT_EQ(dispatch->GetRefTypeOfImplType(static_cast<UINT>(-1), &other), S_OK);
    ITypeInfo* vtable = nullptr;
    ASSERT_EQ(dispatch->GetRefTypeInfo(other, &vtable), S_OK);
    const ComPointer<ITypeInfo> vtableOwner(vtable);
    TYPEATTR* attributes = nullptr;
    ASSERT_EQ(vtable->GetTypeAttr(&attributes), S_OK);
    EXPECT_EQ(attributes->typekind, TKIND_INTERFACE);
    EXPECT_EQ(attributes->wTypeFlags,
              TYPEFLAG_FDUAL | TYPEFLAG_FNONEXTENSIBLE | TYPEFLAG_FOLEAUTOMATION | TYPEFLAG_FDISPATCHABLE);
    vtable->ReleaseTypeAttr(attributes);
}

} // namespace
